// A tuner for digital television as an adapter: scan, stored services, selection, stream.
#pragma once

#include "nsISystemAdapter.h"

class nsIArray;
class nsIIsoCountry;
class nsIInputStream;

/// The order of things: supportedCountries, startScan, getScanProgress until the state is not 0,
/// servicesFoundByScan, a choice of them into services, then selectChannelByName and stream. Main
/// thread; calls may come while a scan runs.
///
/// Services that were stored go through the channels file and come back as it gives them
/// (docs/channels-file.md).
class nsISystemAdapterDigitalTvReceiver : public nsISystemAdapter {
 public:
  using Self = nsISystemAdapterDigitalTvReceiver;
  using Base = nsISystemAdapter;
  static constexpr std::string_view kName = "nsISystemAdapterDigitalTvReceiver";
  static constexpr nsIID kIID = "08285539-15e2-49b8-b2e2-e425ce4f6f4f"_iid;

  /// 0 is satellite, 1 cable, 2 terrestrial, 3 ATSC; other values are unknown.
  virtual nsresult GetDeliverySystem(uint32_t* aDeliverySystem) = 0;
  /// A new array of nsIIsoCountry: those whose frequencies the platform knows. NS_ERROR_FAILURE for
  /// a receiver that could not be set up, as with the other lists.
  virtual nsresult GetSupportedCountries(nsIArray** aSupportedCountries) = 0;
  /// A new array of nsIDigitalTvService: what the last scan found, or the running one has found so
  /// far.
  virtual nsresult GetServicesFoundByScan(nsIArray** aServicesFoundByScan) = 0;
  /// A new array of nsIDigitalTvService: the stored services. Reads the channels file when that has
  /// changed; the failure to read it is returned.
  virtual nsresult GetServices(nsIArray** aServices) = 0;
  /// Stores a list, in memory and in the channels file. NS_ERROR_FAILURE, with nothing changed,
  /// when two services have the same name but for the case of letters; NS_ERROR_FAILURE for an
  /// element that is no service.
  virtual nsresult SetServices(nsIArray* aServices) = 0;
  /// Whether the tuner has a signal that it can decode. Returns the platform's failure.
  virtual nsresult GetLocked(bool* aLocked) = 0;
  /// The signal's strength in thousandths of a decibel; more is stronger. Over one milliwatt where
  /// the tuner measures that, -50000 is a common one; else from -100000 to 0 of a scale of its own.
  /// -1 and NS_ERROR_FAILURE when the tuner does not tell.
  virtual nsresult GetLevel(int32_t* aLevel) = 0;
  /// Does nothing, and succeeds.
  virtual nsresult Reserved(void* aArgument) = 0;
  /// The signal's quality in percent. A success that leaves it as it is: the tuner does not tell.
  virtual nsresult GetQuality(uint32_t* aQuality) = 0;
  /// The stream of the selected service: whole transport packets of 188 bytes. Null before the
  /// first selection; the same object until the next one.
  virtual nsresult GetStream(nsIInputStream** aStream) = 0;
  /// Begins a scan of a country's frequencies and returns at once. NS_ERROR_FAILURE while a scan is
  /// running, or when the receiver can't be started; NS_ERROR_NOT_AVAILABLE when one that was
  /// stopped has not ended yet.
  virtual nsresult StartScan(nsIIsoCountry* aCountry) = 0;
  /// Asks a running scan to end; without one nothing happens. Returns at once, the state tells the
  /// end.
  virtual nsresult StopScan() = 0;
  /// aState: 1 idle, or the last scan came to its end; 0 a scan is running; -1 it could not be
  /// started; -2 it was stopped. Then how many frequencies there are, how many have been passed, on
  /// how many there was a signal, and how many services have been found.
  virtual nsresult GetScanProgress(int32_t* aState, uint32_t* aTotal, uint32_t* aDone,
                                   uint32_t* aLocked, uint32_t* aFound) = 0;
  /// Tunes to a stored service, whose name is compared without regard to case, and makes a new
  /// stream of its picture and of the sound in a language; the last channel of that language, the
  /// first channel of all for an empty one, and no sound when there is none. aReserved is ignored.
  /// NS_ERROR_FAILURE for an unknown name and without a signal; waits for a signal up to one
  /// second.
  virtual nsresult SelectChannelByName(const nsACString& aName, const nsACString& aLanguage,
                                       uint32_t aReserved) = 0;

 protected:
  ~nsISystemAdapterDigitalTvReceiver() = default;
};

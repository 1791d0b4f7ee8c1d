// One television or radio service, as a receiver finds it.
#pragma once

#include "nsXPCOMTypes.h"

class nsIArray;

/// "@vorel/digitaltvservice;1". A value: nothing is checked or converted, a new object is all zero
/// and empty. Objects have no lock: one thread at a time.
class nsIDigitalTvService : public nsISupports {
 public:
  using Self = nsIDigitalTvService;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsIDigitalTvService";
  static constexpr nsIID kIID = "d5122968-6a6b-4870-b742-0d23253ed992"_iid;

  /// UTF-8.
  virtual nsresult GetName(nsACString& aName) = 0;
  virtual nsresult SetName(const nsACString& aName) = 0;
  /// The frequency to tune to, in kHz.
  virtual nsresult GetFrequency(uint32_t* aFrequency) = 0;
  virtual nsresult SetFrequency(uint32_t aFrequency) = 0;
  /// The width of the channel, in MHz.
  virtual nsresult GetBandwidth(uint32_t* aBandwidth) = 0;
  virtual nsresult SetBandwidth(uint32_t aBandwidth) = 0;
  /// The number of the service in its transport stream.
  virtual nsresult GetServiceId(uint16_t* aServiceId) = 0;
  virtual nsresult SetServiceId(uint16_t aServiceId) = 0;
  /// The signal's strength when the service was found, in the unit of the receiver. 0 for a service
  /// that was read from the channels file.
  virtual nsresult GetLevel(int32_t* aLevel) = 0;
  virtual nsresult SetLevel(int32_t aLevel) = 0;
  /// The signal's quality when the service was found, in the unit of the receiver. 0 for a service
  /// that was read from the channels file.
  virtual nsresult GetQuality(uint32_t* aQuality) = 0;
  virtual nsresult SetQuality(uint32_t aQuality) = 0;
  /// Who broadcasts it, UTF-8.
  virtual nsresult GetProvider(nsACString& aProvider) = 0;
  virtual nsresult SetProvider(const nsACString& aProvider) = 0;
  /// A new array at each call, of nsIDigitalTvAudioChannel; the channels in it are the service's
  /// own objects. Null, and success, for a service that was given no list. Fails when no array can
  /// be made.
  virtual nsresult GetAudioChannels(nsIArray** aAudioChannels) = 0;
  /// Keeps the elements, not the array. Null leaves the service without a list. When it fails, the
  /// service keeps the list that it had.
  virtual nsresult SetAudioChannels(nsIArray* aAudioChannels) = 0;
  /// The PID of the first video stream; 0 for none, as for radio.
  virtual nsresult GetVideoPid(uint16_t* aVideoPid) = 0;
  virtual nsresult SetVideoPid(uint16_t aVideoPid) = 0;
  /// The PID on which the service's program map is sent; 0 for none.
  virtual nsresult GetPmtPid(uint16_t* aPmtPid) = 0;
  virtual nsresult SetPmtPid(uint16_t aPmtPid) = 0;

 protected:
  ~nsIDigitalTvService() = default;
};

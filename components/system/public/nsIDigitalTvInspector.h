// What tools ask of streams and channels files: "@vorel/tools/digitaltv-inspector;1" of the
// program's tools library.
#pragma once

#include "nsXPCOMTypes.h"

/// Hears of an inspection, on the main thread.
class nsIDigitalTvInspectorListener : public nsISupports {
 public:
  using Self = nsIDigitalTvInspectorListener;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsIDigitalTvInspectorListener";
  static constexpr nsIID kIID = "0d1de8b3-3b54-4a52-9e83-6a7c6b5f1e01"_iid;

  /// Some ten times a second. aTotal is 0 when the size is not known.
  virtual nsresult OnProgress(uint64_t aDone, uint64_t aTotal) = 0;
  /// The end. With NS_OK aReport is JSON; with a failure it says what could not be read.
  virtual nsresult OnInspected(nsresult aStatus, const nsACString& aReport) = 0;

 protected:
  ~nsIDigitalTvInspectorListener() = default;
};

/// Main thread.
class nsIDigitalTvInspector : public nsISupports {
 public:
  using Self = nsIDigitalTvInspector;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsIDigitalTvInspector";
  static constexpr nsIID kIID = "0d1de8b3-3b54-4a52-9e83-6a7c6b5f1e02"_iid;

  /// Reads a transport stream, "-" for the standard input, and reports what a scan would find in it
  /// and what is broken. Returns at once; reading goes on on a thread of its own, until the
  /// inspector is dropped. NS_ERROR_IN_PROGRESS while another is read, NS_ERROR_NULL_POINTER
  /// without a listener.
  virtual nsresult InspectStream(const nsACString& aPath,
                                 nsIDigitalTvInspectorListener* aListener) = 0;
  /// What a channels file holds, and what is wrong with it line by line, as JSON.
  /// NS_ERROR_FILE_NOT_FOUND, or another failure, for a file that can't be read.
  virtual nsresult CheckChannels(const nsACString& aPath, nsACString& aReport) = 0;
  /// The countries that a scan knows, as JSON.
  virtual nsresult ListCountries(nsACString& aReport) = 0;

 protected:
  ~nsIDigitalTvInspector() = default;
};

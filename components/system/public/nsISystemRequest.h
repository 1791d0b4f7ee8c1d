// Requests that run a maintenance command.
#pragma once

#include "nsXPCOMTypes.h"

class nsIObserver;

/// A maintenance command that runs off the main thread, and its status. Main thread.
class nsISystemRequest : public nsISupports {
 public:
  using Self = nsISystemRequest;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsISystemRequest";
  static constexpr nsIID kIID = "1f96dfdb-68c4-4e61-a544-8720d1ba8a79"_iid;

  /// Starts the command and comes back at once. When it has ended, aObserver, which may be null,
  /// hears "system-request-stopped" with the request as subject and the status, as "0x%x", as data.
  /// NS_ERROR_IN_PROGRESS while it runs; a request that has ended may be started again.
  virtual nsresult AsyncStart(nsIObserver* aObserver) = 0;
  /// Ends the command, and what it has started, as far as that can be ended; the observer hears of
  /// it when it has. NS_ERROR_NOT_AVAILABLE when it does not run.
  virtual nsresult Cancel() = 0;
  /// NS_ERROR_NOT_INITIALIZED before the first start, NS_ERROR_IN_PROGRESS while the command runs,
  /// then NS_OK when it ended with 0, NS_ERROR_ABORT when it was cancelled, NS_ERROR_FAILURE when
  /// it ended otherwise or could not be run.
  virtual nsresult GetStatus(nsresult* aStatus) = 0;

 protected:
  ~nsISystemRequest() = default;
};

// What each request is. They add nothing to the request.

/// Formats the data disk.
class nsISystemRequestFormat : public nsISystemRequest {
 public:
  using Self = nsISystemRequestFormat;
  using Base = nsISystemRequest;
  static constexpr std::string_view kName = "nsISystemRequestFormat";
  static constexpr nsIID kIID = "807964fc-4245-4c2e-bb39-b341fcadee27"_iid;

 protected:
  ~nsISystemRequestFormat() = default;
};

/// Makes what has been changed on a disk that forgets stay.
class nsISystemRequestCommit : public nsISystemRequest {
 public:
  using Self = nsISystemRequestCommit;
  using Base = nsISystemRequest;
  static constexpr std::string_view kName = "nsISystemRequestCommit";
  static constexpr nsIID kIID = "e863c950-9879-4640-afa3-13cce96fb043"_iid;

 protected:
  ~nsISystemRequestCommit() = default;
};

/// Checks the data disk and repairs it.
class nsISystemRequestCheckDataDisk : public nsISystemRequest {
 public:
  using Self = nsISystemRequestCheckDataDisk;
  using Base = nsISystemRequest;
  static constexpr std::string_view kName = "nsISystemRequestCheckDataDisk";
  static constexpr nsIID kIID = "2918ed20-d295-11e2-b310-60ed6088709b"_iid;

 protected:
  ~nsISystemRequestCheckDataDisk() = default;
};

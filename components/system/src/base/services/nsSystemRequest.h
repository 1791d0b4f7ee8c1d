// Requests that run a maintenance command.
#pragma once

#include <optional>
#include <string>

#include "nsIObserver.h"
#include "nsISystemRequest.h"
#include "nsImplements.h"
#include "nsLogger.h"
#include "nsPlatform.h"
#include "nsPlatformHost.h"

/// What the three requests share. Main thread.
class nsSystemRequest {
 protected:
  nsSystemRequest(nsPlatformRef aPlatform, const char* aLoggerName, std::string aCommandLine);
  ~nsSystemRequest() = default;

  nsresult AsyncStart(nsISupports* aSelf, nsIObserver* aObserver);
  nsresult Cancel();
  nsresult GetStatus(nsresult* aStatus);

 private:
  /// What the thread of the command and the main thread both see.
  struct Running;

  /// Starts the command, and takes note that it runs.
  nsresult Start(nsCOMPtr<nsISupports> aSelf);
  /// Runs the command off the main thread.
  nsresult Run(nsCOMPtr<nsISupports> aSelf, std::shared_ptr<Running> aRunning);
  /// The command has ended.
  void Stopped(nsISupports* aSelf, int32_t aExitStatus);

  const nsPlatformRef mPlatform;
  const nsCOMPtr<nsILog4Logger> mLogger;
  const std::string mCommandLine;
  nsresult mStatus = NS_ERROR_NOT_INITIALIZED;
  nsCOMPtr<nsIObserver> mObserver;
  std::shared_ptr<Running> mRunning;  // null when the command does not run
};

namespace vorel::detail {
/// A request class: its interface, and where its command and its logger are named.
template <class Class, class Interface>
class SystemRequestClass : public nsImplements<Class, Interface>, protected nsSystemRequest {
 public:
  explicit SystemRequestClass(nsPlatformRef aPlatform, std::string aCommandLine = Class::kCommand)
      : nsSystemRequest(std::move(aPlatform), Class::kLoggerName, std::move(aCommandLine)) {}

  nsresult AsyncStart(nsIObserver* aObserver) override {
    return nsSystemRequest::AsyncStart(this, aObserver);
  }
  nsresult Cancel() override { return nsSystemRequest::Cancel(); }
  nsresult GetStatus(nsresult* aStatus) override { return nsSystemRequest::GetStatus(aStatus); }

 protected:
  ~SystemRequestClass() override = default;
};
}  // namespace vorel::detail

class nsSystemRequestFormat final
    : public vorel::detail::SystemRequestClass<nsSystemRequestFormat, nsISystemRequestFormat> {
 public:
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfo<"systemRequestFormat", nsISystemRequest, nsISystemRequestFormat>(
          "5b0f3c52-8d0e-4c0b-9f1d-0c5b7b5f6a11"_iid);
  static constexpr char kLoggerName[] = "system.maintenance.format";
  static constexpr char kCommand[] = "/usr/bin/format.sh";
  using SystemRequestClass::SystemRequestClass;
};

class nsSystemRequestCommit final
    : public vorel::detail::SystemRequestClass<nsSystemRequestCommit, nsISystemRequestCommit> {
 public:
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfo<"systemRequestCommit", nsISystemRequest, nsISystemRequestCommit>(
          "c4a6d1f7-2e57-4d39-8a80-6f3f2b9e7d22"_iid);
  static constexpr char kLoggerName[] = "system.maintenance.commit";
  static constexpr char kCommand[] = "/usr/bin/commit.sh";
  using SystemRequestClass::SystemRequestClass;
};

class nsSystemRequestCheckDataDisk final
    : public vorel::detail::SystemRequestClass<nsSystemRequestCheckDataDisk,
                                               nsISystemRequestCheckDataDisk> {
 public:
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfo<"systemRequestCheckDataDisk", nsISystemRequest, nsISystemRequestCheckDataDisk>(
          "0e9d7c3a-6b14-4f85-b2c6-91d4a8e3f533"_iid);
  static constexpr char kLoggerName[] = "system.maintenance.checkdatadisk";
  static constexpr char kCommand[] = "/usr/bin/checkdatadisk.sh";
  using SystemRequestClass::SystemRequestClass;
};

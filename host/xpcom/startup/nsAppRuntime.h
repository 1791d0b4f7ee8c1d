// The application and its process, as objects.
#pragma once

#include "nsCrashReporter.h"
#include "nsIAppStartup.h"
#include "nsIXULAppInfo.h"
#include "nsIXULRuntime.h"
#include "nsImplements.h"

/// "@mozilla.org/xre/app-info;1", "@mozilla.org/xre/runtime;1" and
/// "@mozilla.org/toolkit/crash-reporter;1": one object, as on the platform. What "application.ini"
/// does not say, is empty. Any thread but for the crash reporter.
class nsAppRuntime final
    : public nsImplements<nsAppRuntime, nsIXULAppInfo, nsIXULRuntime, nsCrashReporter> {
 public:
  nsresult GetVendor(nsACString& aVendor) override;
  nsresult GetName(nsACString& aName) override;
  nsresult GetID(nsACString& aID) override;
  nsresult GetVersion(nsACString& aVersion) override;
  nsresult GetAppBuildID(nsACString& aAppBuildID) override;
  nsresult GetPlatformVersion(nsACString& aPlatformVersion) override;
  nsresult GetPlatformBuildID(nsACString&) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult GetInSafeMode(bool* aInSafeMode) override;
  nsresult GetLogConsoleErrors(bool*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult SetLogConsoleErrors(bool) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult GetOS(nsACString& aOS) override;
  nsresult GetXPCOMABI(nsACString& aXPCOMABI) override;
  nsresult GetWidgetToolkit(nsACString&) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult GetProcessType(uint32_t* aProcessType) override;
  nsresult InvalidateCachesOnRestart() override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult EnsureContentProcess() override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult GetReplacedLockTime(int64_t*) override { return NS_ERROR_NOT_IMPLEMENTED; }

 private:
  ~nsAppRuntime() override = default;
};

/// "@mozilla.org/toolkit/app-startup;1": the host's main loop and its end. Main thread.
class nsAppStartup final : public nsImplements<nsAppStartup, nsIAppStartup> {
 public:
  nsresult CreateHiddenWindow() override;
  nsresult DestroyHiddenWindow() override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult Run() override;
  nsresult EnterLastWindowClosingSurvivalArea() override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult ExitLastWindowClosingSurvivalArea() override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult GetAutomaticSafeModeNecessary(bool*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult RestartInSafeMode(uint32_t) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult TrackStartupCrashBegin(bool*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult TrackStartupCrashEnd() override { return NS_ERROR_NOT_IMPLEMENTED; }
  /// Whatever the mode, the application ends; NS_ERROR_NOT_IMPLEMENTED for one that starts it
  /// again, and NS_ERROR_NOT_SAME_THREAD on another thread.
  nsresult Quit(uint32_t aMode) override;
  nsresult GetShuttingDown(bool* aShuttingDown) override;
  nsresult GetStartupInfo(JSContext*, jsval*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult GetInterrupted(bool*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult SetInterrupted(bool) override { return NS_ERROR_NOT_IMPLEMENTED; }

 private:
  ~nsAppStartup() override = default;
};

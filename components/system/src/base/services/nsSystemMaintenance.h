// The watchdog of the main loop, and what else keeps an unattended machine going.
#pragma once

#include "nsClassInfoOfAll.h"
#include "nsIObserver.h"
#include "nsISystemMaintenance.h"
#include "nsITimer.h"
#include "nsITimerCallback.h"
#include "nsLogger.h"
#include "nsModuleClass.h"
#include "nsPlatform.h"

/// The main thread feeds the watchdog from a repeating timer, so as long as its event loop runs,
/// modal waits included. When it is not fed, it ends the process in the crash handling that was
/// prepared here.
class nsSystemMaintenance final : public nsImplements<nsSystemMaintenance, nsISystemMaintenance,
                                                      nsITimerCallback, nsIObserver> {
 public:
  static constexpr nsModuleClass kModuleClass{.mRow = 14,
                                              .mCID = "8155b51f-fa15-4ad9-a1a8-6b9cefd36168"_iid,
                                              .mContractID = "@vorel/system/maintenance;1",
                                              .mIsService = true,
                                              .mDOMRow = 1,
                                              .mGlobal = "systemMaintenance",
                                              .mAtStartup = true};
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfoOfAll<"SystemMaintenance", nsImplementsWith>(kModuleClass.mCID);

  /// Prepares crash handling and, unless the preference "vorel.appli.crashhandler.action" is "None"
  /// or "none" or not there, arms the watchdog. No failure of that shows here.
  explicit nsSystemMaintenance(nsPlatformRef aPlatform);

  nsresult Reserved3() override;
  nsresult CrashProcess() override;
  nsresult HangMainThread() override;
  nsresult RunCommand(const nsACString& aCommandLine) override;
  nsresult Reserved7(void* aArgument) override;
  nsresult Reserved8(void* aArgument) override;
  nsresult Reserved9(void* aArgument) override;

  /// Feeds the watchdog. NS_ERROR_FAILURE when that did not work; the next time will try again.
  nsresult Notify(nsITimer* aTimer) override;
  /// Does nothing.
  nsresult Observe(nsISupports* aSubject, const char* aTopic, const char16_t* aData) override;

 private:
  ~nsSystemMaintenance() override = default;

  void ArmWatchdog();
  nsresult StartSystemTimer();
  nsresult ConfigureCrashReporter(const std::string& aAction);

  const nsPlatformRef mPlatform;
  const nsCOMPtr<nsILog4Logger> mLogger;
  nsCOMPtr<nsITimer> mFeedTimer;
  uint32_t mSystemTimerPeriod = 0;  // 0: the watchdog is off
  uint32_t mSystemTimerId = 0;      // 0: none runs
};

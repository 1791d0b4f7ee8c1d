#include "nsSystemMaintenance.h"

#include <algorithm>

#include "nsCommandRunner.h"
#include "nsICrashReporter.h"
#include "nsIPrefBranch.h"
#include "nsPlatformWatchdog.h"
#include "nsServices.h"
#include "nsString.h"
#include "nsVorelMethodCaller.h"
#include "nsXPCOM.h"

namespace {

constexpr char kActionPref[] = "vorel.appli.crashhandler.action";
constexpr char kAppInfoContractID[] = "@mozilla.org/xre/app-info;1";
constexpr uint32_t kFeedInterval = 15'000;     // ms
constexpr uint32_t kWatchdogLimit = 180'000;   // ms
constexpr uint32_t kWantedResolution = 1'000;  // ms
constexpr uint32_t kQuietErrorMode = nsPlatformWatchdog::kFailCriticalErrors |
                                     nsPlatformWatchdog::kNoFaultErrorBox |
                                     nsPlatformWatchdog::kNoOpenFileErrorBox;

// On the timer's thread, while everything else may hang.
void EndHungProcess(nsPlatformWatchdog& aPort) {
  aPort.WriteStandardError("Lumacrate Main Loop Watchdog !.\n");
  aPort.WriteToAddressZero();
  aPort.ExitProcess(-1);
}

}  // namespace

nsSystemMaintenance::nsSystemMaintenance(nsPlatformRef aPlatform)
    : mPlatform(std::move(aPlatform)), mLogger(NS_GetLogger("system.maintenance")) {
  std::string action = "None";
  if (const auto prefs = do_GetService<nsIPrefBranch>(VOREL_PREFS_CONTRACTID)) {
    char* value = nullptr;
    if (NS_SUCCEEDED(prefs->GetCharPref(kActionPref, &value)) && value) {
      action = value;
      NS_Free(value);
    }
  } else {
    SYSTEM_LOG_WARNING(mLogger, "Can't get preferences service");
  }
  SYSTEM_LOG_DEBUG(mLogger, std::string("Getting preference ") + kActionPref + " = " + action);

  if (action != "None" && action != "none") {
    SYSTEM_LOG_DEBUG(mLogger, "Enable Fozogam Loop Watchdog");
    ArmWatchdog();
  } else {
    SYSTEM_LOG_DEBUG(mLogger, "Fozogam Loop Watchdog is NOT activated");
  }

  SYSTEM_LOG_DEBUG(mLogger, "Configuring crash handling to " + action + " when crash");
  if (NS_FAILED(ConfigureCrashReporter(action)))
    SYSTEM_LOG_WARNING(mLogger, "Can't configure CrashReporter");
}

nsresult nsSystemMaintenance::ConfigureCrashReporter(const std::string& aAction) {
  nsresult rv;
  const auto reporter = do_GetService<nsICrashReporter>(kAppInfoContractID, &rv);
  if (NS_FAILED(rv)) {
    SYSTEM_LOG_WARNING(mLogger, "Can't get nsICrashReporter");
    return rv;
  }
  bool enabled = false;
  rv = reporter->GetEnabled(&enabled);
  if (NS_FAILED(rv) || !enabled) return rv;

  // So that no dialog of the system's can keep the process from ending.
  nsPlatformWatchdog& watchdog = *mPlatform->mWatchdog;
  uint32_t mode = 0;
  (void)watchdog.ReadErrorMode(&mode);
  (void)watchdog.WriteErrorMode(mode | kQuietErrorMode);
  return reporter->AnnotateCrashReport(nsDependentCString("Action"), nsDependentCString(aAction));
}

void nsSystemMaintenance::ArmWatchdog() {
  mFeedTimer = do_CreateInstance<nsITimer>(NS_TIMER_CONTRACTID);
  if (mFeedTimer)
    (void)mFeedTimer->InitWithCallback(this, kFeedInterval, nsITimer::TYPE_REPEATING_SLACK);

  nsPlatformWatchdog& watchdog = *mPlatform->mWatchdog;
  uint32_t smallest = 0, largest = 0;
  if (NS_FAILED(watchdog.ReadCapabilities(&smallest, &largest))) {
    SYSTEM_LOG_WARNING(mLogger, "Cannot get Timer Capabilities");
    return;
  }
  mSystemTimerPeriod = std::min(std::max(smallest, kWantedResolution), largest);
  (void)watchdog.BeginPeriod(mSystemTimerPeriod);
  (void)StartSystemTimer();
}

nsresult nsSystemMaintenance::StartSystemTimer() {
  uint32_t id = 0;
  const nsresult rv = mPlatform->mWatchdog->StartTimer(
      kWatchdogLimit, mSystemTimerPeriod, EndHungProcess,
      nsPlatformWatchdog::kOneShot | nsPlatformWatchdog::kKillSynchronous, &id);
  mSystemTimerId = NS_SUCCEEDED(rv) ? id : 0;
  if (mSystemTimerId != 0) return NS_OK;
  SYSTEM_LOG_WARNING(mLogger, "Cannot create Timer Event");
  return NS_ERROR_FAILURE;
}

nsresult nsSystemMaintenance::Notify(nsITimer*) {
  // Without a timer device there is nothing to feed.
  if (mSystemTimerPeriod == 0) return NS_OK;
  if (mSystemTimerId != 0 && NS_FAILED(mPlatform->mWatchdog->StopTimer(mSystemTimerId))) {
    SYSTEM_LOG_WARNING(mLogger, "Cannot stop system timer");
    return NS_ERROR_FAILURE;
  }
  return StartSystemTimer();
}

nsresult nsSystemMaintenance::Observe(nsISupports*, const char*, const char16_t*) { return NS_OK; }

nsresult nsSystemMaintenance::Reserved3() { return NS_OK; }

nsresult nsSystemMaintenance::CrashProcess() {
  mPlatform->mWatchdog->WriteToAddressZero();
  return NS_ERROR_FAILURE;
}

nsresult nsSystemMaintenance::HangMainThread() {
  if (NS_IsMainThread()) {
    // A loop without an effect may be taken for one that ends.
    for (volatile bool forever = true; forever;) {
    }
    return NS_OK;
  }
  const auto caller = NS_NewRunnableMethodCaller<vorel::threads::eStrong>(
      this, &nsSystemMaintenance::HangMainThread);
  return NS_DispatchToMainThread(caller.get(), NS_DISPATCH_SYNC);
}

nsresult nsSystemMaintenance::RunCommand(const nsACString& aCommandLine) {
  return CommandRunner::Start(mPlatform->mHost, mLogger, std::string(NS_View(aCommandLine)));
}

nsresult nsSystemMaintenance::Reserved7(void*) { return NS_OK; }
nsresult nsSystemMaintenance::Reserved8(void*) { return NS_OK; }
nsresult nsSystemMaintenance::Reserved9(void*) { return NS_OK; }

#include "nsZoneWatcher.h"

#include <prenv.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <utility>

#include "nsConstructors.h"
#include "nsHost.h"
#include "nsIObserverService.h"
#include "nsIThread.h"
#include "nsServices.h"
#include "nsString.h"
#include "nsVorelMethodCaller.h"
#include "nsZoneLink.h"

namespace {

constexpr char kStartTopic[] = "xpcom-startup";
constexpr char kChangedTopic[] = "system-timezone-changed";
constexpr char kProfileTopic[] = "profile-after-change";
constexpr char kEndTopic[] = "xpcom-shutdown";

// Whether this process goes by the machine's setting, and that is aName.
bool FollowsMachine(const std::string& aName) {
  if (getenv("TZ")) return false;
  std::error_code error;
  const auto set = std::filesystem::canonical("/etc/localtime", error);
  if (error) return false;
  const auto named = std::filesystem::canonical("/usr/share/zoneinfo/" + aName, error);
  return !error && set == named;
}

// Through NSPR: the engine brings a setenv of its own, which ends the process when it is called
// from here. The environment keeps the text, so that it is never freed.
void GoBy(const std::string& aName) { (void)PR_SetEnv(strdup(("TZ=" + aName).c_str())); }
// A name alone takes the variable away.
void GoByMachine() { (void)putenv(strdup("TZ")); }

}  // namespace

nsresult nsZoneWatcher::Observe(nsISupports*, const char* aTopic, const char16_t* aData) {
  if (!aTopic) return NS_ERROR_INVALID_ARG;
  if (std::string_view(aTopic) == kStartTopic) return Start();
  if (std::string_view(aTopic) == kProfileTopic) return Follow();
  if (std::string_view(aTopic) == kEndTopic) {
    mPump = nullptr;
    return NS_OK;
  }
  if (!aData) return NS_ERROR_INVALID_ARG;
  const std::string name = NS_ToUtf8(std::u16string_view(aData));
  // A process that was given a zone of its own, or that stands in for another machine, is given the
  // new one.
  if (name.empty()) {
    if (std::exchange(mWasGivenZone, false)) GoByMachine();
  } else if (!FollowsMachine(name)) {
    GoBy(name);
    mWasGivenZone = true;
  }
  tzset();
  return NS_OK;
}

nsresult nsZoneWatcher::Start() {
  nsresult rv;
  const auto observers = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID, &rv);
  if (!observers) return rv;
  for (const char* topic : {kChangedTopic, kProfileTopic, kEndTopic}) {
    rv = observers->AddObserver(this, topic, false);
    if (NS_FAILED(rv)) return rv;
  }
  return NS_OK;
}

nsresult nsZoneWatcher::Follow() {
  nsresult rv;
  const auto observers = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID, &rv);
  if (!observers) return rv;
  // A described machine has a zone of its own, which nobody else sets.
  const nsHostOptions& options = nsHost::Current()->Options();
  const auto link = std::make_shared<nsZoneLink>();
  nsCOMPtr<nsIThread> thread;
  if (mPump || getenv("TZ") || !options.mHasNetwork || !options.mFollowsMachine || !link->Open() ||
      NS_FAILED(NS_GetMainThread(thread.getter_AddRefs())))
    return NS_OK;
  const auto tell = [observers] { (void)observers->NotifyObservers(nullptr, kChangedTopic, u""); };
  return nsEventPump::Start("Zone", link, thread.get(), tell, &mPump);
}

namespace {

constexpr nsCID kZoneWatcherCID = "5d0f2a0e-4f0c-4a0b-9a3c-7c9e6f1d2b31"_iid;
constexpr char kZoneWatcherContractID[] = "@vorel/host/zonewatcher;1";

const vorel::Module::CIDEntry kCIDs[] = {
    {&kZoneWatcherCID, true, nullptr, NS_ConstructNew<nsZoneWatcher>},
    {nullptr, false, nullptr, nullptr},
};

const vorel::Module::ContractIDEntry kContracts[] = {
    {kZoneWatcherContractID, &kZoneWatcherCID},
    {nullptr, nullptr},
};

const vorel::Module::CategoryEntry kCategories[] = {
    {kStartTopic, "ZoneWatcher", kZoneWatcherContractID},
    {nullptr, nullptr, nullptr},
};

}  // namespace

const vorel::Module kZoneModule = {
    vorel::Module::kVersion, kCIDs, kContracts, kCategories, nullptr, nullptr, nullptr};

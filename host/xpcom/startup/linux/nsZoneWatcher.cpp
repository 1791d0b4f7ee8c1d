#include "nsZoneWatcher.h"

#include <prenv.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <filesystem>
#include <string>
#include <string_view>

#include "nsConstructors.h"
#include "nsIObserverService.h"
#include "nsServices.h"
#include "nsString.h"

namespace {

constexpr char kStartTopic[] = "xpcom-startup";
constexpr char kChangedTopic[] = "system-timezone-changed";

// Whether this process goes by the machine's setting, and that is aName.
bool FollowsMachine(const std::string& aName) {
  if (getenv("TZ")) return false;
  std::error_code error;
  const std::filesystem::path zone = std::filesystem::read_symlink("/etc/localtime", error);
  return !error && zone.native().ends_with("/" + aName);
}

// Through NSPR: the engine brings a setenv of its own, which ends the process when it is called
// from here. The environment keeps the text, so that it is never freed.
void GoBy(const std::string& aName) { (void)PR_SetEnv(strdup(("TZ=" + aName).c_str())); }

}  // namespace

nsresult nsZoneWatcher::Observe(nsISupports*, const char* aTopic, const char16_t* aData) {
  if (!aTopic) return NS_ERROR_INVALID_ARG;
  if (std::string_view(aTopic) == kStartTopic) {
    nsresult rv;
    const auto observers = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID, &rv);
    return observers ? observers->AddObserver(this, kChangedTopic, false) : rv;
  }
  if (!aData) return NS_ERROR_INVALID_ARG;
  const std::string name = NS_ToUtf8(std::u16string_view(aData));
  // A process that was given a zone of its own, or that stands in for another machine, is given the
  // new one.
  if (!FollowsMachine(name)) GoBy(name);
  tzset();
  return NS_OK;
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

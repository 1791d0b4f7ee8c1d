#include "nsHostModules.h"

#include "nsAppRuntime.h"
#include "nsArray.h"
#include "nsComponentManager.h"
#include "nsDebugService.h"
#include "nsMemory.h"
#include "nsObserverService.h"
#include "nsServices.h"
#include "nsSupportsPrimitives.h"
#include "nsUUIDGenerator.h"

namespace {

nsresult GetComponentManager(nsISupports*, const nsIID& aIID, void** aResult) {
  const auto manager = nsComponentManager::Current();
  return manager ? manager->QueryInterface(aIID, aResult) : NS_ERROR_NOT_INITIALIZED;
}

nsresult GetCategoryManager(nsISupports*, const nsIID& aIID, void** aResult) {
  const auto manager = nsComponentManager::Current();
  return manager ? manager->Categories().QueryInterface(aIID, aResult) : NS_ERROR_NOT_INITIALIZED;
}

constexpr nsCID kComponentManagerCID = "91775d60-d5dc-11d2-92fb-00e09805570f"_iid;
constexpr nsCID kCategoryManagerCID = "16d222a6-1dd2-11b2-b693-f38b02c021b2"_iid;
constexpr nsCID kMemoryCID = "30a04e40-38e7-11d4-8cf5-0060b0fc14a3"_iid;
constexpr nsCID kDebugCID = "a80b1fb3-aaf6-4852-b678-c27eb7a518af"_iid;
constexpr nsCID kUUIDGeneratorCID = "706d36bb-bf79-4293-81f2-8f6828c18f9d"_iid;
constexpr nsCID kAppRuntimeCID = "95d89e3e-a169-41a3-8e56-719978e15b12"_iid;
constexpr nsCID kAppStartupCID = "d1f2b7c4-5a3e-4a86-9d0f-7e4b3c2a1f68"_iid;
constexpr nsCID kSupportsIDCID = "acf8dc40-4a25-11d3-9890-006008962422"_iid;
constexpr nsCID kSupportsCStringCID = "acf8dc41-4a25-11d3-9890-006008962422"_iid;
constexpr nsCID kSupportsStringCID = "acf8dc42-4a25-11d3-9890-006008962422"_iid;
constexpr nsCID kSupportsPRBoolCID = "acf8dc43-4a25-11d3-9890-006008962422"_iid;
constexpr nsCID kSupportsPRUint32CID = "acf8dc47-4a25-11d3-9890-006008962422"_iid;
constexpr nsCID kSupportsPRInt32CID = "acf8dc4c-4a25-11d3-9890-006008962422"_iid;
constexpr nsCID kSupportsInterfacePointerCID = "a99febba-1dd1-11b2-a943-b02334a6d083"_iid;

const vorel::Module::CIDEntry kCIDs[] = {
    {&kComponentManagerCID, true, nullptr, GetComponentManager},
    {&kCategoryManagerCID, true, nullptr, GetCategoryManager},
    {&NS_OBSERVERSERVICE_CID, true, nullptr, NS_ConstructNew<nsObserverService>},
    {&kMemoryCID, true, nullptr, NS_ConstructNew<nsMemory>},
    {&kDebugCID, true, nullptr, NS_ConstructNew<nsDebugService>},
    {&kUUIDGeneratorCID, true, nullptr, NS_ConstructNew<nsUUIDGenerator>},
    {&kAppRuntimeCID, true, nullptr, NS_ConstructNew<nsAppRuntime>},
    {&kAppStartupCID, true, nullptr, NS_ConstructNew<nsAppStartup>},
    {&NS_ARRAY_CID, false, nullptr, NS_ConstructNew<nsArray>},
    {&NS_ARRAYCI_CID, false, nullptr, NS_ConstructNew<nsArrayCI>},
    {&kSupportsIDCID, false, nullptr, NS_ConstructNew<nsSupportsID>},
    {&kSupportsCStringCID, false, nullptr, NS_ConstructNew<nsSupportsCString>},
    {&kSupportsStringCID, false, nullptr, NS_ConstructNew<nsSupportsString>},
    {&kSupportsPRBoolCID, false, nullptr, NS_ConstructNew<nsSupportsPRBool>},
    {&kSupportsPRUint32CID, false, nullptr, NS_ConstructNew<nsSupportsPRUint32>},
    {&kSupportsPRInt32CID, false, nullptr, NS_ConstructNew<nsSupportsPRInt32>},
    {&kSupportsInterfacePointerCID, false, nullptr, NS_ConstructNew<nsSupportsInterfacePointer>},
    {nullptr, false, nullptr, nullptr},
};

const vorel::Module::ContractIDEntry kContracts[] = {
    {NS_CATEGORYMANAGER_CONTRACTID, &kCategoryManagerCID},
    {NS_OBSERVERSERVICE_CONTRACTID, &NS_OBSERVERSERVICE_CID},
    {"@mozilla.org/xpcom/memory-service;1", &kMemoryCID},
    {"@mozilla.org/xpcom/debug;1", &kDebugCID},
    {"@mozilla.org/uuid-generator;1", &kUUIDGeneratorCID},
    {"@mozilla.org/xre/app-info;1", &kAppRuntimeCID},
    {"@mozilla.org/xre/runtime;1", &kAppRuntimeCID},
    {"@mozilla.org/toolkit/crash-reporter;1", &kAppRuntimeCID},
    {"@mozilla.org/toolkit/app-startup;1", &kAppStartupCID},
    {NS_ARRAY_CONTRACTID, &NS_ARRAY_CID},
    {VOREL_ARRAY_CONTRACTID, &NS_ARRAYCI_CID},
    {"@mozilla.org/supports-id;1", &kSupportsIDCID},
    {"@mozilla.org/supports-cstring;1", &kSupportsCStringCID},
    {"@mozilla.org/supports-string;1", &kSupportsStringCID},
    {"@mozilla.org/supports-PRBool;1", &kSupportsPRBoolCID},
    {"@mozilla.org/supports-PRUint32;1", &kSupportsPRUint32CID},
    {"@mozilla.org/supports-PRInt32;1", &kSupportsPRInt32CID},
    {"@mozilla.org/supports-interface-pointer;1", &kSupportsInterfacePointerCID},
    {nullptr, nullptr},
};

}  // namespace

const vorel::Module kBaseModule = {
    vorel::Module::kVersion, kCIDs, kContracts, nullptr, nullptr, nullptr, nullptr};

// clang-format off
const nsHostModule kHostModules[] = {
    {"base", &kBaseModule},
    {"threads", &kThreadsModule},
    {"log", &kLogModule},
    {"io", &kIOModule},
    {"prefs", &kPrefsModule},
    {"network", &kNetworkModule},
    {"zone", &kZoneModule},
    {"gfx", &kGfxModule},
    {nullptr, nullptr},
};
// clang-format on

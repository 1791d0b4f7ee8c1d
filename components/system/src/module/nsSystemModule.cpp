// The module record: all that the host sees of this library.
#include <array>
#include <new>
#include <span>

#include "Module.h"
#include "nsDebug.h"
#include "nsIDOMCIExtension.h"
#include "nsIDOMScriptObjectFactory.h"
#include "nsIObserverService.h"
#include "nsImplements.h"
#include "nsServices.h"
#include "nsSystemClock.h"
#include "nsSystemFileSystemWatcher.h"
#include "nsSystemFileSystemWatcherProxy.h"
#include "nsSystemFileSystemWatcherService.h"
#include "nsSystemFont.h"
#include "nsSystemGeneralSettings.h"
#include "nsSystemIPStructure.h"
#include "nsSystemMachine.h"
#include "nsSystemMaintenance.h"
#include "nsSystemManager.h"
#include "nsSystemSingleton.h"

using vorel::Module;

namespace {

// ---- State, from the load step to the unload step

// In the order in which their locks are made and dropped.
enum Singleton {
  kFileSystemWatcherService,
  kDisplayPosition,
  kManager,
  kClock,
  kGeneralSettings,
  kMaintenance,
  kFont,
  kSingletons,
};

// The identifiers of a DOM class's interfaces, and pointers to them closed by null.
struct InterfaceList {
  std::vector<nsIID> mIIDs;
  std::vector<const nsIID*> mPointers;
};

constexpr size_t kDOMClassCount = 4;

bool gInitialized = false;
nsPlatformRef gPlatform;
std::array<InterfaceList, kDOMClassCount> gInterfaces;
std::array<nsSystemSingleton, kSingletons> gSingletons;

// ---- Constructors

template <class T>
T* New() {
  if constexpr (requires { new T(gPlatform); })
    return new (std::nothrow) T(gPlatform);
  else
    return new (std::nothrow) T;
}

template <class T>
nsresult Construct(nsISupports* aOuter, const nsIID& aIID, void** aResult) {
  *aResult = nullptr;
  if (aOuter) return NS_ERROR_NO_AGGREGATION;
  const nsCOMPtr<T> instance(New<T>());
  return instance ? instance->QueryInterface(aIID, aResult) : NS_ERROR_OUT_OF_MEMORY;
}

template <class T>
nsresult NoExtraStep(T&) {
  return NS_OK;
}

// Whatever the cause, an instance that can't be had reads as NS_ERROR_OUT_OF_MEMORY.
template <Singleton Which, class T, nsresult (*ExtraStep)(T&) = NoExtraStep<T>>
nsresult ConstructSingleton(nsISupports* aOuter, const nsIID& aIID, void** aResult) {
  *aResult = nullptr;
  if (aOuter) return NS_ERROR_NO_AGGREGATION;
  const nsCOMPtr<nsISupports> instance = gSingletons[Which].Get([]() -> nsCOMPtr<nsISupports> {
    const nsCOMPtr<T> made(New<T>());
    nsCOMPtr<nsISupports> identity;
    if (made && NS_SUCCEEDED(ExtraStep(*made)))
      (void)made->QueryInterface(nsISupports::kIID, NS_OutVoid(identity));
    return identity;
  });
  return instance ? instance->QueryInterface(aIID, aResult) : NS_ERROR_OUT_OF_MEMORY;
}

nsresult ObserveShutdown(nsSystemManager& aManager) {
  nsresult rv;
  const auto os = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID, &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  rv = os->AddObserver(&aManager, "xpcom-shutdown", false);
  NS_ENSURE_SUCCESS(rv, rv);
  return NS_OK;
}

nsresult InitSettings(nsSystemGeneralSettings& aSettings) { return aSettings.InitGeneric(); }

class kCIExtension final : public nsImplementsOnOneThread<kCIExtension, nsIDOMCIExtension> {
 public:
  nsresult RegisterDOMCI(const char* aName, nsIDOMScriptObjectFactory* aFactory) override;

 private:
  ~kCIExtension() override = default;
};

// ---- Classes

struct Class {
  nsCID mCID;
  const char* mContractID;
  bool mService;
  Module::ConstructorProcPtr mConstructor;
};

constexpr auto kClasses = std::to_array<Class>({
    {"44be1a59-69ba-401e-aa66-ee1e5142d685"_iid, "@vorel/system/ipv4structure;1", false,
     Construct<nsSystemIPv4Structure>},
    {"fb3dbf4f-d33f-49a0-9b48-45d3d3f5d3dd"_iid, "@vorel/system/ipv6structure;1", false,
     Construct<nsSystemIPv6Structure>},
    {"2348063c-bd53-4d5d-974e-90e20dc9c54d"_iid, "@vorel/system/macstructure;1", false,
     Construct<nsSystemMACStructure>},
    {"81651f6e-bcc1-49d8-a0bb-a9dabcee6c4f"_iid, "@vorel/system/filesystemwatcherprivate;1", false,
     Construct<nsSystemFileSystemWatcher>},
    {"98125353-15e3-49db-a7ec-84308fe2be39"_iid, "@vorel/system/filesystemwatcher;1", false,
     Construct<nsSystemFileSystemWatcherProxy>},
    {"0f0aeecb-13ab-4976-a73f-17617d04ef5f"_iid, "@vorel/system/filesystemwatcherservice;1", true,
     ConstructSingleton<kFileSystemWatcherService, nsSystemFileSystemWatcherService>},
    {"31b9ff0f-7703-4b2f-b7fa-a870c6db4746"_iid, "@vorel/system/systemmanager;1", true,
     ConstructSingleton<kManager, nsSystemManager, ObserveShutdown>},
    {"90316285-26d8-4232-bd0f-b2b04385d109"_iid, "@vorel/system/clock;1", true,
     ConstructSingleton<kClock, nsSystemClock>},
    {"792a619b-5a10-4249-a0c6-6778b1e0595e"_iid, "@vorel/system/generalsettings;1", true,
     ConstructSingleton<kGeneralSettings, nsSystemGeneralSettings, InitSettings>},
    {"8155b51f-fa15-4ad9-a1a8-6b9cefd36168"_iid, "@vorel/system/maintenance;1", true,
     ConstructSingleton<kMaintenance, nsSystemMaintenance>},
    {"33386123-8c43-4153-90d7-e632e801179c"_iid, "@vorel/system/systemfont;1", true,
     ConstructSingleton<kFont, nsSystemFont>},
    {"4dd67d9e-6c07-4b21-83fd-3069c1bded0e"_iid, "@vorel/system/ciextension;1", false,
     Construct<kCIExtension>},
});

// The two tables of the module, each closed by a null row.
constexpr auto kCIDs = [] {
  std::array<Module::CIDEntry, kClasses.size() + 1> rows{};
  for (size_t i = 0; i < kClasses.size(); ++i)
    rows[i] = {&kClasses[i].mCID, kClasses[i].mService, nullptr, kClasses[i].mConstructor};
  return rows;
}();
constexpr auto kContractIDs = [] {
  std::array<Module::ContractIDEntry, kClasses.size() + 1> rows{};
  for (size_t i = 0; i < kClasses.size(); ++i)
    rows[i] = {kClasses[i].mContractID, &kClasses[i].mCID};
  return rows;
}();

// ---- Categories

constexpr Module::CategoryEntry kCategories[] = {
    {"JavaScript-DOM-class", "SystemManager", "@vorel/system/ciextension;1"},
    {"JavaScript-DOM-class", "SystemMaintenance", "@vorel/system/ciextension;1"},
    {"JavaScript-DOM-class", "SystemGeneralSettings", "@vorel/system/ciextension;1"},
    {"JavaScript-DOM-class", "FileSystemWatcher", "@vorel/system/ciextension;1"},
    {"app-startup", "SystemManager", "service,@vorel/system/systemmanager;1"},
    {"app-startup", "SystemMaintenance", "service,@vorel/system/maintenance;1"},
    {"JavaScript-global-property", "systemManager", "@vorel/system/systemmanager;1"},
    {"JavaScript-global-property", "systemMaintenance", "@vorel/system/maintenance;1"},
    {"JavaScript-global-property", "systemGeneralSettings", "@vorel/system/generalsettings;1"},
    {"JavaScript-DOM-interface", "SystemAdapterIP", "5f2df378-b4b4-44fa-a3cb-64be1f08db02"},
    {"JavaScript-DOM-interface", "SystemAdapterLAN", "a2891121-3f6e-48bd-b190-c29b96252cd6"},
    {"JavaScript-DOM-interface", "SystemAdapterWLAN", "13e15c6f-d54c-4291-824d-2a5cbe7652a2"},
    {"JavaScript-DOM-interface", "SystemAdapterWWAN", "2ad2f539-0131-4f6a-891e-61ff59062bc6"},
    {"JavaScript-DOM-interface", "SystemIPv4Structure", "1275dfdc-7220-49ed-951b-0b3d3bba235a"},
    {"JavaScript-DOM-interface", "SystemIPv6Structure", "007a3be6-b329-4e4b-84b5-df3cbd47ca70"},
    {"JavaScript-DOM-interface", "SystemMACStructure", "40bb24b9-972d-4227-8453-e281fee9b73d"},
    {"JavaScript-DOM-interface", "SystemIPAddress", "c39f0173-86f3-43e4-9be0-8e38594e7576"},
    {"JavaScript-DOM-interface", "SystemManager", "defd4869-f84c-4be4-a5c7-6304a759ecb3"},
    {"JavaScript-DOM-interface", "SystemAdapterStorage", "96152db9-078a-4208-a1e4-f2a4a3a2e53a"},
    {"JavaScript-DOM-interface", "FileSystemWatcher", "18e68dfc-8803-417a-9a2a-159592ea3651"},
    {nullptr, nullptr, nullptr},
};

// ---- DOM classes

struct DOMClass {
  const char* mName;
  const nsClassInfoRecord* mInfo;
  nsCID mCID;
};

constexpr DOMClass kDOMClasses[kDOMClassCount] = {
    {"SystemManager", &nsSystemManager::kClassInfo, "31b9ff0f-7703-4b2f-b7fa-a870c6db4746"_iid},
    {"SystemMaintenance", &nsSystemMaintenance::kClassInfo,
     "8155b51f-fa15-4ad9-a1a8-6b9cefd36168"_iid},
    {"SystemGeneralSettings", &nsSystemGeneralSettings::kClassInfo,
     "792a619b-5a10-4249-a0c6-6778b1e0595e"_iid},
    {"FileSystemWatcher", &nsSystemFileSystemWatcherProxy::kClassInfo,
     "98125353-15e3-49db-a7ec-84308fe2be39"_iid},
};

nsresult kCIExtension::RegisterDOMCI(const char* aName, nsIDOMScriptObjectFactory* aFactory) {
  for (size_t i = 0; i < kDOMClassCount; ++i) {
    const DOMClass& domClass = kDOMClasses[i];
    if (!aName || std::string_view(aName) != domClass.mName) continue;
    auto& interfaces = gInterfaces[i].mPointers;
    if (interfaces.empty()) return NS_ERROR_FAILURE;
    return aFactory->RegisterDOMClassInfo(domClass.mName, nullptr, interfaces[0], interfaces.data(),
                                          nsIClassInfo::DOM_OBJECT, true, &domClass.mCID);
  }
  return NS_ERROR_FAILURE;
}

nsresult ReadInterfaces(const DOMClass& aClass, InterfaceList* aList) {
  uint32_t count;
  nsIID** array;
  const nsresult rv = aClass.mInfo->getInterfaces(&count, &array);
  if (NS_FAILED(rv)) return rv;
  InterfaceList list;
  for (nsIID* iid : std::span(array, count)) {
    list.mIIDs.push_back(*iid);
    NS_Free(iid);
  }
  NS_Free(array);
  for (const nsIID& iid : list.mIIDs) list.mPointers.push_back(&iid);
  list.mPointers.push_back(nullptr);
  *aList = std::move(list);
  return NS_OK;
}

// ---- Loading and unloading

nsresult Load() {
  if (gInitialized) {
    NS_DebugBreak(NS_DEBUG_BREAK, "Recursive layout module initialization", nullptr, __FILE__,
                  __LINE__);
    return NS_ERROR_FAILURE;
  }
  // A machine that can't be read leaves nothing loaded; running on another one would be worse.
  const nsresult rv = NS_OpenMachine(&gPlatform);
  if (NS_FAILED(rv)) return rv;
  gInitialized = true;
  for (size_t i = 0; i < kDOMClassCount; ++i)
    if (NS_FAILED(ReadInterfaces(kDOMClasses[i], &gInterfaces[i]))) return NS_OK;
  for (auto& singleton : gSingletons) singleton.CreateLock();
  return NS_OK;
}

void Unload() {
  if (!gInitialized) {
    NS_DebugBreak(NS_DEBUG_BREAK, "Shutdown when not initialized", nullptr, __FILE__, __LINE__);
    return;
  }
  for (auto& interfaces : gInterfaces) interfaces = {};
  for (auto& singleton : gSingletons) singleton.Drop();
  gPlatform = nullptr;
  gInitialized = false;
}

constexpr Module kModule = {
    Module::kVersion, kCIDs.data(), kContractIDs.data(), kCategories, nullptr, Load, Unload,
};

}  // namespace

extern "C" __attribute__((visibility("default"))) const Module* const NSModule;
const Module* const NSModule = &kModule;

// The module record: all that the host sees of this library.
#include <array>
#include <new>
#include <span>
#include <vector>

#include "nsDebug.h"
#include "nsIDOMScriptObjectFactory.h"
#include "nsSystemMachine.h"
#include "nsSystemModuleTables.h"
#include "nsSystemSingleton.h"
#include "nsXPCOM.h"

using vorel::Module;

namespace {

// ---- State, from the load step to the unload step

// The identifiers of a DOM class's interfaces, and pointers to them closed by null.
struct InterfaceList {
  std::vector<nsIID> mIIDs;
  std::vector<const nsIID*> mPointers;
};

bool gInitialized = false;
nsPlatformRef gPlatform;
std::array<InterfaceList, std::size(kDOMClasses)> gInterfaces;
template <class T>
nsSystemSingleton gSingleton;

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

// Whatever the cause, an instance that can't be had reads as NS_ERROR_OUT_OF_MEMORY.
template <class T>
nsresult ConstructSingleton(nsISupports* aOuter, const nsIID& aIID, void** aResult) {
  *aResult = nullptr;
  if (aOuter) return NS_ERROR_NO_AGGREGATION;
  const nsCOMPtr<nsISupports> instance = gSingleton<T>.Get([]() -> nsCOMPtr<nsISupports> {
    const nsCOMPtr<T> made(New<T>());
    if (!made) return nullptr;
    if constexpr (requires { made->InitSingleton(); })
      if (NS_FAILED(made->InitSingleton())) return nullptr;
    nsCOMPtr<nsISupports> identity;
    (void)made->QueryInterface(nsISupports::kIID, NS_OutVoid(identity));
    return identity;
  });
  return instance ? instance->QueryInterface(aIID, aResult) : NS_ERROR_OUT_OF_MEMORY;
}

// ---- Classes

// The two tables of the module, each closed by a null row.
template <class... C>
struct ClassTables {
  static constexpr Module::CIDEntry kCIDs[] = {
      {&C::kModuleClass.mCID, C::kModuleClass.mIsService, nullptr,
       C::kModuleClass.mIsService ? ConstructSingleton<C> : Construct<C>}...,
      {nullptr, false, nullptr, nullptr}};
  static constexpr Module::ContractIDEntry kContractIDs[] = {
      {C::kModuleClass.mContractID, &C::kModuleClass.mCID}..., {nullptr, nullptr}};

  /// aDo(nsSystemSingleton&), in the order of the table.
  static void ForEachSingleton(auto aDo) {
    (
        [&] {
          if constexpr (C::kModuleClass.mIsService) aDo(gSingleton<C>);
        }(),
        ...);
  }
};
using Classes = nsModuleClasses<ClassTables>;

// ---- DOM classes

nsresult ReadInterfaces(const nsModuleDOMClass& aClass, InterfaceList* aList) {
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
  // A machine that can't be read leaves nothing loaded; running on another one would be worse. It
  // has said why.
  if (NS_FAILED(NS_OpenMachine(&gPlatform))) return NS_ERROR_ABORT;
  gInitialized = true;
  for (size_t i = 0; i < gInterfaces.size(); ++i)
    if (NS_FAILED(ReadInterfaces(kDOMClasses[i], &gInterfaces[i]))) return NS_OK;
  Classes::ForEachSingleton([](nsSystemSingleton& aSingleton) { aSingleton.CreateLock(); });
  return NS_OK;
}

void Unload() {
  if (!gInitialized) {
    NS_DebugBreak(NS_DEBUG_BREAK, "Shutdown when not initialized", nullptr, __FILE__, __LINE__);
    return;
  }
  for (auto& interfaces : gInterfaces) interfaces = {};
  Classes::ForEachSingleton([](nsSystemSingleton& aSingleton) { aSingleton.Drop(); });
  gPlatform = nullptr;
  gInitialized = false;
}

constexpr Module kModule = {
    Module::kVersion, Classes::kCIDs, Classes::kContractIDs, kCategories, nullptr, Load, Unload,
};

}  // namespace

nsresult kCIExtension::RegisterDOMCI(const char* aName, nsIDOMScriptObjectFactory* aFactory) {
  for (size_t i = 0; i < gInterfaces.size(); ++i) {
    const nsModuleDOMClass& domClass = kDOMClasses[i];
    if (!aName || std::string_view(aName) != domClass.mName) continue;
    auto& interfaces = gInterfaces[i].mPointers;
    if (interfaces.empty()) return NS_ERROR_FAILURE;
    return aFactory->RegisterDOMClassInfo(domClass.mName, nullptr, interfaces[0], interfaces.data(),
                                          nsIClassInfo::DOM_OBJECT, true, domClass.mCID);
  }
  return NS_ERROR_FAILURE;
}

extern "C" __attribute__((visibility("default"))) const Module* const NSModule;
const Module* const NSModule = &kModule;

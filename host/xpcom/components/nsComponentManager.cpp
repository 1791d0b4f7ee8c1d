#include "nsComponentManager.h"

#include <algorithm>
#include <chrono>
#include <filesystem>

#include "nsCOMArray.h"
#include "nsHostMessage.h"
#include "nsIFile.h"
#include "nsIModuleLoader.h"
#include "nsManifest.h"
#include "nsServices.h"
#include "nsSupportsPrimitives.h"
#include "nsXPCOM.h"

namespace {

nsMutex gCurrentMutex;
nsComponentManager* gCurrent NS_GUARDED_BY(gCurrentMutex) = nullptr;  // owns a reference

template <class T>
nsresult GiveCurrent(T** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  auto manager = nsComponentManager::Current();
  if (!manager) return NS_ERROR_NOT_INITIALIZED;
  manager.forget(aResult);
  return NS_OK;
}

// One name for each file, whatever way it is reached.
std::string Canonical(const std::string& aPath) {
  std::error_code error;
  const auto path = std::filesystem::canonical(aPath, error);
  return error ? aPath : path.native();
}

}  // namespace

extern "C" {
nsresult NS_GetServiceManager(nsIServiceManager** aResult) { return GiveCurrent(aResult); }
nsresult NS_GetComponentManager(nsIComponentManager** aResult) { return GiveCurrent(aResult); }
nsresult NS_GetComponentRegistrar(nsIComponentRegistrar** aResult) { return GiveCurrent(aResult); }
}

nsComponentManager::nsComponentManager(nsAppInfo aAppInfo) : mAppInfo(std::move(aAppInfo)) {}

nsCOMPtr<nsComponentManager> nsComponentManager::Current() {
  nsAutoLock lock(gCurrentMutex);
  return nsCOMPtr<nsComponentManager>(gCurrent);
}

void nsComponentManager::SetCurrent(nsComponentManager* aManager) {
  nsCOMPtr<nsComponentManager> old(aManager);
  nsComponentManager* raw;
  old.forget(&raw);
  {
    nsAutoLock lock(gCurrentMutex);
    std::swap(gCurrent, raw);
  }
  if (raw) raw->Release();
}

// ---- Registration

nsresult nsComponentManager::AddClass(ClassRef aClass, std::string_view aWhere) {
  nsAutoLock lock(mMutex);
  const nsCID cid = aClass->mCID;
  if (mClasses.try_emplace(cid, std::move(aClass)).second) return NS_OK;
  lock.Unlock();
  NS_HostMessage(eHostError, std::string(aWhere) + ": class " + cid.ToString() +
                                 " is registered already: the first stays.");
  return NS_ERROR_FACTORY_EXISTS;
}

nsresult nsComponentManager::RegisterContract(std::string_view aContractID, const nsCID& aCID,
                                              std::string_view aWhere) {
  {
    nsAutoLock lock(mMutex);
    if (const auto known = mClasses.find(aCID); known != mClasses.end()) {
      mContracts.insert_or_assign(std::string(aContractID), known->second);
      return NS_OK;
    }
  }
  NS_HostMessage(eHostError, std::string(aWhere) + ": contract ID " + std::string(aContractID) +
                                 " names class " + aCID.ToString() + ", which is not registered.");
  return NS_ERROR_FACTORY_NOT_REGISTERED;
}

// What a row says wrong concerns that row only: it has its message, and the others are registered.
nsresult nsComponentManager::RegisterRows(std::unique_ptr<nsKnownModule> aModule) {
  nsKnownModule& module = *aModule;
  {
    nsAutoLock lock(mMutex);
    mModules.push_back(std::move(aModule));
  }
  const vorel::Module& record = module.Record();
  for (auto* row = record.mCIDs; row && row->cid; ++row) {
    auto made = std::make_shared<Class>();
    made->mCID = *row->cid;
    made->mModule = &module;
    made->mRow = row;
    (void)AddClass(std::move(made), module.Name());
  }
  for (auto* row = record.mContractIDs; row && row->contractid; ++row)
    (void)RegisterContract(row->contractid, *row->cid, module.Name());
  for (auto* row = record.mCategoryEntries; row && row->category; ++row)
    (void)mCategories->AddCategoryEntry(row->category, row->entry, row->value, false, true,
                                        nullptr);
  return NS_OK;
}

nsresult nsComponentManager::RegisterModule(const vorel::Module& aRecord, std::string_view aName) {
  if (aRecord.mVersion != vorel::Module::kVersion) {
    NS_HostMessage(eHostError, std::string(aName) + " has a module record of version " +
                                   std::to_string(aRecord.mVersion) + ", not " +
                                   std::to_string(vorel::Module::kVersion));
    return NS_ERROR_FAILURE;
  }
  return RegisterRows(std::make_unique<nsKnownModule>(aRecord, std::string(aName), nullptr));
}

nsresult nsComponentManager::RegisterLibrary(const std::string& aPath, std::string_view aWhere) {
  const std::string path = Canonical(aPath);
  {
    nsAutoLock lock(mMutex);
    if (std::any_of(mModules.begin(), mModules.end(),
                    [&](const auto& aModule) { return aModule->Name() == path; }))
      return NS_OK;
  }
  std::string reason;
  auto module = nsKnownModule::Open(path, &reason);
  if (module) return RegisterRows(std::move(module));
  NS_HostMessage(eHostError, std::string(aWhere) + ": " + reason);
  return NS_ERROR_FAILURE;
}

bool nsComponentManager::NoteManifest(const std::string& aPath) {
  return mManifests.insert(Canonical(aPath)).second;
}

nsresult nsComponentManager::RegisterScript(const nsCID& aCID, const std::string& aPath,
                                            std::string_view aWhere) {
  auto made = std::make_shared<Class>();
  made->mCID = aCID;
  made->mScript = aPath;
  return AddClass(std::move(made), aWhere);
}

// ---- Looking up and making

nsComponentManager::ClassRef nsComponentManager::Find(const nsCID& aClass) {
  nsAutoLock lock(mMutex);
  const auto found = mClasses.find(aClass);
  return found == mClasses.end() ? nullptr : found->second;
}

nsComponentManager::ClassRef nsComponentManager::Find(const char* aContractID) {
  if (!aContractID) return nullptr;
  nsAutoLock lock(mMutex);
  const auto found = mContracts.find(std::string_view(aContractID));
  return found == mContracts.end() ? nullptr : found->second;
}

std::string nsComponentManager::NameOf(const Class& aClass) {
  nsAutoLock lock(mMutex);
  for (const auto& [contract, known] : mContracts)
    if (known.get() == &aClass) return contract;
  return aClass.mCID.ToString();
}

nsresult nsComponentManager::MakeFactory(const Class& aClass, nsIFactory** aResult) {
  if (aClass.mModule) return aClass.mModule->GetFactory(*aClass.mRow, aResult);
  if (std::this_thread::get_id() != mMainThreadId) return NS_ERROR_NOT_SAME_THREAD;
  const std::string ending = std::filesystem::path(aClass.mScript).extension().native();
  char* contract = nullptr;
  if (ending.empty() ||
      NS_FAILED(mCategories->GetCategoryEntry("module-loader", ending.c_str() + 1, &contract))) {
    NS_HostMessage(eHostError, aClass.mScript + ": there is no loader for files of this ending.");
    return NS_ERROR_FACTORY_NOT_LOADED;
  }
  nsresult rv;
  const auto loader = do_GetService<nsIModuleLoader>(contract, &rv);
  NS_Free(contract);
  return NS_FAILED(rv)
             ? rv
             : loader->GetFactory(nsDependentCString(aClass.mScript), aClass.mCID, aResult);
}

nsresult nsComponentManager::GetFactory(const ClassRef& aClass, nsIFactory** aResult) {
  if (!aClass) return NS_ERROR_FACTORY_NOT_REGISTERED;
  nsCOMPtr<nsIFactory> factory;
  {
    nsAutoLock lock(mMutex);
    if (mShutdown) return NS_ERROR_UNEXPECTED;
    factory = aClass->mFactory;
  }
  if (!factory) {
    if (const nsresult rv = MakeFactory(*aClass, factory.getter_AddRefs()); NS_FAILED(rv))
      return rv;
    if (!factory) return NS_ERROR_FAILURE;
    nsAutoLock lock(mMutex);
    if (mShutdown) return NS_ERROR_UNEXPECTED;
    // Another thread may have been faster: all use the first one.
    if (aClass->mFactory)
      factory = aClass->mFactory;
    else
      aClass->mFactory = factory;
  }
  factory.forget(aResult);
  return NS_OK;
}

nsresult nsComponentManager::GetClassObject(const ClassRef& aClass, const nsIID& aIID,
                                            void** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  nsCOMPtr<nsIFactory> factory;
  const nsresult rv = GetFactory(aClass, factory.getter_AddRefs());
  return NS_FAILED(rv) ? rv : factory->QueryInterface(aIID, aResult);
}

nsresult nsComponentManager::CreateInstance(const ClassRef& aClass, nsISupports* aDelegate,
                                            const nsIID& aIID, void** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  nsCOMPtr<nsIFactory> factory;
  nsresult rv = GetFactory(aClass, factory.getter_AddRefs());
  if (NS_FAILED(rv)) return rv;
  void* made = nullptr;
  rv = factory->CreateInstance(aDelegate, aIID, &made);
  if (NS_FAILED(rv)) return rv;
  if (!made) return NS_ERROR_FAILURE;
  *aResult = made;
  return NS_OK;
}

// Would this thread, if it waited for the service, wait for itself? Each service that is made has
// one maker, and each thread waits for one service at most, so that there is one chain to follow.
bool nsComponentManager::WantsItself(const Class& aClass) const {
  for (const Class* wanted = &aClass;;) {
    if (wanted->mMaker == std::this_thread::get_id()) return true;
    const auto next = mWaiting.find(wanted->mMaker);
    if (next == mWaiting.end()) return false;
    wanted = next->second;
  }
}

// Not checked: it can't be told that aLock is of mMutex.
void nsComponentManager::Wait(nsAutoLock<nsMutex>& aLock, const Class& aClass) NS_NOT_CHECKED {
  const auto self = std::this_thread::get_id();
  mWaiting[self] = &aClass;
  if (self == mMainThreadId && mMainThread) {
    // The maker may itself be waiting for something to be run here.
    const nsCOMPtr<nsIThread> thread = mMainThread;
    mWaiting.erase(self);
    aLock.Unlock();
    bool ran = false;
    const nsresult rv = thread->ProcessNextEvent(false, &ran);
    aLock.Lock();
    mWaiting[self] = &aClass;
    if (NS_FAILED(rv) || !ran) mMade.WaitFor(aLock, std::chrono::milliseconds(1));
  } else {
    mMade.Wait(aLock);
  }
  mWaiting.erase(self);
}

nsresult nsComponentManager::GetService(const ClassRef& aClass, const nsIID& aIID, void** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  if (!aClass) return NS_ERROR_FACTORY_NOT_REGISTERED;
  nsCOMPtr<nsISupports> service;
  {
    nsAutoLock lock(mMutex);
    while (!mShutdown && !aClass->mService && aClass->mMaker != std::thread::id()) {
      if (WantsItself(*aClass)) {
        lock.Unlock();
        NS_HostMessage(eHostError, "The making of service " + NameOf(*aClass) +
                                       " asks for the service itself.");
        return NS_ERROR_NOT_AVAILABLE;
      }
      Wait(lock, *aClass);
    }
    if (mShutdown) return NS_ERROR_UNEXPECTED;
    service = aClass->mService;
    if (!service) aClass->mMaker = std::this_thread::get_id();
  }
  if (service) return service->QueryInterface(aIID, aResult);

  nsresult rv = CreateInstance(aClass, nullptr, nsISupports::kIID, NS_OutVoid(service));
  {
    nsAutoLock lock(mMutex);
    aClass->mMaker = {};
    if (NS_SUCCEEDED(rv) && mShutdown) rv = NS_ERROR_UNEXPECTED;
    if (NS_SUCCEEDED(rv)) {
      aClass->mService = service;
      mServices.push_back(aClass);
    }
  }
  mMade.NotifyAll();
  return NS_FAILED(rv) ? rv : service->QueryInterface(aIID, aResult);
}

nsresult nsComponentManager::IsServiceInstantiated(const ClassRef& aClass, const nsIID& aIID,
                                                   bool* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  nsCOMPtr<nsISupports> service;
  if (aClass) {
    nsAutoLock lock(mMutex);
    if (mShutdown) return NS_ERROR_UNEXPECTED;
    service = aClass->mService;
  }
  nsCOMPtr<nsISupports> answer;
  *aResult = service && NS_SUCCEEDED(service->QueryInterface(aIID, NS_OutVoid(answer)));
  return NS_OK;
}

// ---- The end

void nsComponentManager::ReleaseServices() {
  std::vector<nsCOMPtr<nsISupports>> services;
  std::vector<nsCOMPtr<nsIFactory>> factories;
  {
    nsAutoLock lock(mMutex);
    mShutdown = true;
    for (const ClassRef& made : mServices) services.push_back(std::move(made->mService));
    mServices.clear();
    for (auto& [cid, known] : mClasses) factories.push_back(std::move(known->mFactory));
  }
  mMade.NotifyAll();
  mMainThread = nullptr;
  while (!services.empty()) services.pop_back();
}

void nsComponentManager::UnloadModules() {
  std::vector<std::unique_ptr<nsKnownModule>> modules;
  {
    nsAutoLock lock(mMutex);
    modules.swap(mModules);
    mClasses.clear();
    mContracts.clear();
  }
  for (auto module = modules.rbegin(); module != modules.rend(); ++module) (*module)->Unload();
  while (!modules.empty()) modules.pop_back();
}

// ---- nsIComponentManager, nsIServiceManager

nsresult nsComponentManager::GetClassObject(const nsCID& aClass, const nsIID& aIID,
                                            void** aResult) {
  return GetClassObject(Find(aClass), aIID, aResult);
}
nsresult nsComponentManager::GetClassObjectByContractID(const char* aContractID, const nsIID& aIID,
                                                        void** aResult) {
  return GetClassObject(Find(aContractID), aIID, aResult);
}
nsresult nsComponentManager::CreateInstance(const nsCID& aClass, nsISupports* aDelegate,
                                            const nsIID& aIID, void** aResult) {
  return CreateInstance(Find(aClass), aDelegate, aIID, aResult);
}
nsresult nsComponentManager::CreateInstanceByContractID(const char* aContractID,
                                                        nsISupports* aDelegate, const nsIID& aIID,
                                                        void** aResult) {
  return CreateInstance(Find(aContractID), aDelegate, aIID, aResult);
}
nsresult nsComponentManager::GetService(const nsCID& aClass, const nsIID& aIID, void** aResult) {
  return GetService(Find(aClass), aIID, aResult);
}
nsresult nsComponentManager::GetServiceByContractID(const char* aContractID, const nsIID& aIID,
                                                    void** aResult) {
  return GetService(Find(aContractID), aIID, aResult);
}
nsresult nsComponentManager::IsServiceInstantiated(const nsCID& aClass, const nsIID& aIID,
                                                   bool* aResult) {
  return IsServiceInstantiated(Find(aClass), aIID, aResult);
}
nsresult nsComponentManager::IsServiceInstantiatedByContractID(const char* aContractID,
                                                               const nsIID& aIID, bool* aResult) {
  return IsServiceInstantiated(Find(aContractID), aIID, aResult);
}

// ---- nsIComponentRegistrar

nsresult nsComponentManager::AutoRegister(nsIFile* aSpec) {
  if (!aSpec) return NS_ERROR_NULL_POINTER;
  if (std::this_thread::get_id() != mMainThreadId) return NS_ERROR_NOT_SAME_THREAD;
  nsCString path;
  const nsresult rv = aSpec->GetNativePath(path);
  return NS_FAILED(rv) ? rv : NS_RegisterManifest(*this, std::string(path.view()));
}

nsresult nsComponentManager::RegisterFactory(const nsCID& aClass, const char*,
                                             const char* aContractID, nsIFactory* aFactory) {
  nsAutoLock lock(mMutex);
  if (mShutdown) return NS_ERROR_UNEXPECTED;
  auto known = mClasses.find(aClass);
  if (aFactory) {
    if (known != mClasses.end()) return NS_ERROR_FACTORY_EXISTS;
    auto made = std::make_shared<Class>();
    made->mCID = aClass;
    made->mGiven = true;
    made->mFactory = aFactory;
    known = mClasses.emplace(aClass, std::move(made)).first;
  } else if (!aContractID) {
    return NS_ERROR_NULL_POINTER;
  } else if (known == mClasses.end()) {
    return NS_ERROR_FACTORY_NOT_REGISTERED;
  }
  if (aContractID) mContracts.insert_or_assign(aContractID, known->second);
  return NS_OK;
}

nsresult nsComponentManager::UnregisterFactory(const nsCID& aClass, nsIFactory* aFactory) {
  ClassRef dropped;  // outside the lock: its end may call back
  nsAutoLock lock(mMutex);
  const auto known = mClasses.find(aClass);
  if (known == mClasses.end() || !known->second->mGiven || known->second->mFactory != aFactory)
    return NS_ERROR_FACTORY_NOT_REGISTERED;
  dropped = known->second;
  mClasses.erase(known);
  std::erase_if(mContracts, [&](const auto& aContract) { return aContract.second == dropped; });
  return NS_OK;
}

nsresult nsComponentManager::IsCIDRegistered(const nsCID& aClass, bool* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  *aResult = Find(aClass) != nullptr;
  return NS_OK;
}

nsresult nsComponentManager::IsContractIDRegistered(const char* aContractID, bool* aResult) {
  if (!aContractID || !aResult) return NS_ERROR_NULL_POINTER;
  *aResult = Find(aContractID) != nullptr;
  return NS_OK;
}

nsresult nsComponentManager::EnumerateCIDs(nsISimpleEnumerator** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  nsCOMArray<nsISupportsID> ids;
  nsAutoLock lock(mMutex);
  for (const auto& [cid, known] : mClasses) ids.emplace_back(MakeRefCounted<nsSupportsID>(cid));
  return NS_NewArrayEnumerator(aResult, ids);
}

nsresult nsComponentManager::EnumerateContractIDs(nsISimpleEnumerator** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  nsCOMArray<nsISupportsCString> names;
  nsAutoLock lock(mMutex);
  for (const auto& [contract, known] : mContracts)
    names.emplace_back(MakeRefCounted<nsSupportsCString>(contract));
  return NS_NewArrayEnumerator(aResult, names);
}

nsresult nsComponentManager::CIDToContractID(const nsCID& aClass, char** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  nsAutoLock lock(mMutex);
  for (const auto& [contract, known] : mContracts) {
    if (known->mCID != aClass) continue;
    *aResult = NS_NewCString(contract);
    return NS_OK;
  }
  return NS_ERROR_FACTORY_NOT_REGISTERED;
}

nsresult nsComponentManager::ContractIDToCID(const char* aContractID, nsCID** aResult) {
  if (!aContractID || !aResult) return NS_ERROR_NULL_POINTER;
  const ClassRef found = Find(aContractID);
  if (!found) return NS_ERROR_FACTORY_NOT_REGISTERED;
  *aResult = new (NS_Alloc(sizeof(nsCID))) nsCID(found->mCID);
  return NS_OK;
}

// The component manager, service manager and registrar: one object, as on the platform.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <thread>
#include <unordered_map>
#include <vector>

#include "nsAppInfo.h"
#include "nsCategoryManager.h"
#include "nsIComponentManager.h"
#include "nsIComponentRegistrar.h"
#include "nsIServiceManager.h"
#include "nsIThread.h"
#include "nsImplements.h"
#include "nsKnownModule.h"
#include "nsLock.h"

/// Factories are found by class ID and contract ID and made when first wanted. Any thread, except
/// where it says main thread. No lock is held while a factory or an object is made.
///
/// A service is made once: other threads that want it meanwhile wait, and the main thread runs its
/// events while it waits. A service whose making, directly or by way of other threads, wants
/// itself, is NS_ERROR_NOT_AVAILABLE and an error in the log.
class nsComponentManager final : public nsImplements<nsComponentManager, nsIComponentManager,
                                                     nsIServiceManager, nsIComponentRegistrar> {
 public:
  explicit nsComponentManager(nsAppInfo aAppInfo);

  /// That of the running host, or null.
  static nsCOMPtr<nsComponentManager> Current();
  /// Makes it, or with null none, that of the running host.
  static void SetCurrent(nsComponentManager* aManager);

  const nsAppInfo& AppInfo() const { return mAppInfo; }
  nsCategoryManager& Categories() { return *mCategories; }
  /// The thread that runs events while it waits for a service.
  void SetMainThread(nsIThread* aThread) { mMainThread = aThread; }
  /// A module says that the host shall not start. Main thread.
  void RefuseStart() { mRefusesStart = true; }
  bool RefusesStart() const { return mRefusesStart; }

  // Registration, on the main thread. aWhere is for messages ("FILE:LINE").
  /// A record in memory, by name. NS_ERROR_FAILURE, and a message, for another version.
  nsresult RegisterModule(const vorel::Module& aRecord, std::string_view aName);
  /// A library; one that is known already is left as it is, with success.
  nsresult RegisterLibrary(const std::string& aPath, std::string_view aWhere);
  nsresult RegisterScript(const nsCID& aCID, const std::string& aPath, std::string_view aWhere);
  nsresult RegisterContract(std::string_view aContractID, const nsCID& aCID,
                            std::string_view aWhere);

  /// Of a manifest file that is about to be read: false when that has happened before.
  bool NoteManifest(const std::string& aPath);

  /// Releases services, youngest first, and factories, and makes no more: NS_ERROR_UNEXPECTED. Main
  /// thread.
  void ReleaseServices();
  /// Runs the modules' unload steps, last registered first, and closes the libraries. Main thread.
  void UnloadModules();

  // nsIComponentManager. NS_ERROR_FACTORY_NOT_REGISTERED for what is not known.
  nsresult GetClassObject(const nsCID& aClass, const nsIID& aIID, void** aResult) override;
  nsresult GetClassObjectByContractID(const char* aContractID, const nsIID& aIID,
                                      void** aResult) override;
  nsresult CreateInstance(const nsCID& aClass, nsISupports* aDelegate, const nsIID& aIID,
                          void** aResult) override;
  nsresult CreateInstanceByContractID(const char* aContractID, nsISupports* aDelegate,
                                      const nsIID& aIID, void** aResult) override;
  nsresult AddBootstrappedManifestLocation(nsILocalFile*) override {
    return NS_ERROR_NOT_IMPLEMENTED;
  }
  nsresult RemoveBootstrappedManifestLocation(nsILocalFile*) override {
    return NS_ERROR_NOT_IMPLEMENTED;
  }
  // nsIServiceManager
  nsresult GetService(const nsCID& aClass, const nsIID& aIID, void** aResult) override;
  nsresult GetServiceByContractID(const char* aContractID, const nsIID& aIID,
                                  void** aResult) override;
  /// False also for a service that does not answer the interface.
  nsresult IsServiceInstantiated(const nsCID& aClass, const nsIID& aIID, bool* aResult) override;
  nsresult IsServiceInstantiatedByContractID(const char* aContractID, const nsIID& aIID,
                                             bool* aResult) override;
  // nsIComponentRegistrar
  /// Reads a manifest file. Main thread.
  nsresult AutoRegister(nsIFile* aSpec) override;
  nsresult AutoUnregister(nsIFile*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  /// NS_ERROR_FACTORY_EXISTS for a class ID that has one. Without a factory it only points the
  /// contract ID to the class ID, which must be known.
  nsresult RegisterFactory(const nsCID& aClass, const char* aClassName, const char* aContractID,
                           nsIFactory* aFactory) override;
  /// Only for what RegisterFactory brought: NS_ERROR_FACTORY_NOT_REGISTERED for others.
  nsresult UnregisterFactory(const nsCID& aClass, nsIFactory* aFactory) override;
  nsresult RegisterFactoryLocation(const nsCID&, const char*, const char*, nsIFile*, const char*,
                                   const char*) override {
    return NS_ERROR_NOT_IMPLEMENTED;
  }
  nsresult UnregisterFactoryLocation(const nsCID&, nsIFile*) override {
    return NS_ERROR_NOT_IMPLEMENTED;
  }
  nsresult IsCIDRegistered(const nsCID& aClass, bool* aResult) override;
  nsresult IsContractIDRegistered(const char* aContractID, bool* aResult) override;
  nsresult EnumerateCIDs(nsISimpleEnumerator** aResult) override;
  nsresult EnumerateContractIDs(nsISimpleEnumerator** aResult) override;
  nsresult CIDToContractID(const nsCID& aClass, char** aResult) override;
  nsresult ContractIDToCID(const char* aContractID, nsCID** aResult) override;

 private:
  // Where a class comes from, and what is made of it so far.
  struct Class {
    nsCID mCID;
    nsKnownModule* mModule = nullptr;  // with mRow, or null
    const vorel::Module::CIDEntry* mRow = nullptr;
    std::string mScript;  // file of a `component` line
    bool mGiven = false;  // by RegisterFactory
    // The rest is guarded by mMutex.
    nsCOMPtr<nsIFactory> mFactory;
    nsCOMPtr<nsISupports> mService;
    std::thread::id mMaker;  // of the service, while it is made
  };
  using ClassRef = std::shared_ptr<Class>;

  ~nsComponentManager() override = default;

  nsresult RegisterRows(std::unique_ptr<nsKnownModule> aModule);
  nsresult AddClass(ClassRef aClass, std::string_view aWhere);
  ClassRef Find(const nsCID& aClass);
  ClassRef Find(const char* aContractID);
  nsresult GetFactory(const ClassRef& aClass, nsIFactory** aResult);
  nsresult MakeFactory(const Class& aClass, nsIFactory** aResult);
  nsresult GetClassObject(const ClassRef& aClass, const nsIID& aIID, void** aResult);
  nsresult CreateInstance(const ClassRef& aClass, nsISupports* aDelegate, const nsIID& aIID,
                          void** aResult);
  nsresult GetService(const ClassRef& aClass, const nsIID& aIID, void** aResult);
  nsresult IsServiceInstantiated(const ClassRef& aClass, const nsIID& aIID, bool* aResult);
  bool WantsItself(const Class& aClass) const NS_REQUIRES(mMutex);
  /// aLock is of mMutex, let go meanwhile, and held again at the end.
  void Wait(nsAutoLock<nsMutex>& aLock, const Class& aClass) NS_REQUIRES(mMutex);
  std::string NameOf(const Class& aClass);

  const nsAppInfo mAppInfo;
  const std::thread::id mMainThreadId = std::this_thread::get_id();
  nsCOMPtr<nsIThread> mMainThread;  // this and the next: only on it
  bool mRefusesStart = false;
  std::set<std::string> mManifests;
  const nsCOMPtr<nsCategoryManager> mCategories = MakeRefCounted<nsCategoryManager>();

  nsMutex mMutex;  // guards the rest
  nsCondition mMade;
  bool mShutdown NS_GUARDED_BY(mMutex) = false;
  std::unordered_map<nsCID, ClassRef> mClasses NS_GUARDED_BY(mMutex);
  std::map<std::string, ClassRef, std::less<>> mContracts NS_GUARDED_BY(mMutex);
  std::vector<ClassRef> mServices NS_GUARDED_BY(mMutex);  // in the order of their making
  // Which thread waits for which service.
  std::map<std::thread::id, const Class*> mWaiting NS_GUARDED_BY(mMutex);
  // In the order of registration.
  std::vector<std::unique_ptr<nsKnownModule>> mModules NS_GUARDED_BY(mMutex);
};

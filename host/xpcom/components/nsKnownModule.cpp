#include "nsKnownModule.h"

#include <prerror.h>
#include <prlink.h>

#include <algorithm>

#include "nsComponentManager.h"
#include "nsHostMessage.h"
#include "nsImplements.h"
#include "nsThreadManager.h"

#ifndef __has_feature  // of clang
#define __has_feature(aFeature) 0
#endif

namespace {

class nsGenericFactory final : public nsImplements<nsGenericFactory, nsIFactory> {
 public:
  explicit nsGenericFactory(vorel::Module::ConstructorProcPtr aConstructor)
      : mConstructor(aConstructor) {}
  nsresult CreateInstance(nsISupports* aOuter, const nsIID& aIID, void** aResult) override {
    return mConstructor(aOuter, aIID, aResult);
  }
  nsresult LockFactory(bool) override { return NS_OK; }

 private:
  ~nsGenericFactory() override = default;
  const vorel::Module::ConstructorProcPtr mConstructor;
};

}  // namespace

nsKnownModule::nsKnownModule(const vorel::Module& aRecord, std::string aName, PRLibrary* aLibrary)
    : mRecord(aRecord),
      mName(std::move(aName)),
      mLibrary(aLibrary),
      mState(aRecord.loadProc ? eNotLoaded : eLoaded) {}

nsKnownModule::~nsKnownModule() {
#if __has_feature(address_sanitizer)
  // What the search for leaks finds at the end is known by the names of functions.
#else
  if (mLibrary) (void)PR_UnloadLibrary(mLibrary);
#endif
}

std::unique_ptr<nsKnownModule> nsKnownModule::Open(const std::string& aPath, std::string* aError) {
  const PRLibSpec place{.type = PR_LibSpec_Pathname, .value = {.pathname = aPath.c_str()}};
  PRLibrary* const library = PR_LoadLibraryWithFlags(place, PR_LD_NOW | PR_LD_LOCAL);
  if (!library) {
    std::string why(static_cast<size_t>(std::max(PR_GetErrorTextLength(), 0)) + 1, '\0');
    why.resize(static_cast<size_t>(std::max(PR_GetErrorText(why.data()), 0)));
    *aError = why.empty() ? aPath + " can't be loaded" : why;
    return nullptr;
  }
  // The symbol is a pointer to the record.
  const auto* const symbol =
      static_cast<const vorel::Module* const*>(PR_FindSymbol(library, "NSModule"));
  if (!symbol || !*symbol)
    *aError = aPath + " exports no NSModule";
  else if ((*symbol)->mVersion != vorel::Module::kVersion)
    *aError = aPath + " has a module record of version " + std::to_string((*symbol)->mVersion) +
              ", not " + std::to_string(vorel::Module::kVersion);
  else
    return std::make_unique<nsKnownModule>(**symbol, aPath, library);
  (void)PR_UnloadLibrary(library);
  return nullptr;
}

nsresult nsKnownModule::Load() {
  switch (mState) {
    case eLoaded:
      return NS_OK;
    case eFailed:
      return NS_ERROR_FACTORY_NOT_LOADED;
    case eLoading:
      NS_HostMessage(eHostError,
                     "The load step of " + mName + " asks for one of the module's own classes.");
      return NS_ERROR_FACTORY_NOT_LOADED;
    case eNotLoaded:
      break;
  }
  mState = eLoading;
  const nsresult rv = mRecord.loadProc();
  mState = NS_SUCCEEDED(rv) ? eLoaded : eFailed;
  if (NS_SUCCEEDED(rv)) return NS_OK;
  if (rv == NS_ERROR_ABORT && nsComponentManager::Current())
    nsComponentManager::Current()->RefuseStart();
  else
    NS_HostMessage(eHostError,
                   "The load step of " + mName + " failed: " + std::string(NS_ResultName(rv)));
  return NS_ERROR_FACTORY_NOT_LOADED;
}

nsresult nsKnownModule::EnsureLoaded() {
  const State state = mState;
  if (state == eLoaded) return NS_OK;
  if (state == eFailed) return NS_ERROR_FACTORY_NOT_LOADED;
  // Asked directly: the service "thread manager" is made out of a module, too.
  nsThreadManager& threads = nsThreadManager::get();
  bool isMain;
  if (NS_SUCCEEDED(threads.GetIsMainThread(&isMain)) && isMain) return Load();
  nsCOMPtr<nsIThread> main;
  nsresult rv = threads.GetMainThread(main.getter_AddRefs());
  if (NS_FAILED(rv)) return rv;
  nsresult result = NS_ERROR_FACTORY_NOT_LOADED;
  const auto load = NS_NewRunnable([&] { result = Load(); });
  rv = main->Dispatch(load.get(), nsIEventTarget::DISPATCH_SYNC);
  return NS_FAILED(rv) ? rv : result;
}

nsresult nsKnownModule::GetFactory(const vorel::Module::CIDEntry& aRow, nsIFactory** aResult) {
  if (const nsresult rv = EnsureLoaded(); NS_FAILED(rv)) return rv;
  nsIFactory* factory = nullptr;
  if (mRecord.getFactoryProc) factory = mRecord.getFactoryProc(mRecord, aRow);
  if (!factory && aRow.getFactoryProc) factory = aRow.getFactoryProc(mRecord, aRow);
  if (!factory && aRow.constructorProc)
    MakeRefCounted<nsGenericFactory>(aRow.constructorProc).forget(&factory);
  if (!factory) return NS_ERROR_FACTORY_NOT_REGISTERED;
  *aResult = factory;
  return NS_OK;
}

void nsKnownModule::Unload() {
  if (mState == eLoaded && mRecord.unloadProc) mRecord.unloadProc();
  mState = eFailed;
}

#include "nsPrefService.h"

#include "nsConstructors.h"
#include "nsILocalFile.h"
#include "nsServices.h"
#include "nsSupportsPrimitives.h"

nsresult nsPrefBranch::FullName(const char* aName, std::string* aFull) const {
  if (!aName) return NS_ERROR_NULL_POINTER;
  if (!mPrefs->IsOnThread()) return NS_ERROR_NOT_SAME_THREAD;
  *aFull = mRoot + aName;
  return NS_OK;
}

template <class T>
nsresult nsPrefBranch::Get(const char* aPrefName, T* aResult) const {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  std::string name;
  if (const nsresult rv = FullName(aPrefName, &name); NS_FAILED(rv)) return rv;
  const nsPrefs::Pref* const pref = mPrefs->Find(name);
  if (!pref) return NS_ERROR_UNEXPECTED;
  const nsPrefValue* const value = !mIsDefault      ? pref->Value()
                                   : pref->mDefault ? &*pref->mDefault
                                                    : nullptr;
  const T* const held = value ? std::get_if<T>(value) : nullptr;
  if (!held) return NS_ERROR_UNEXPECTED;
  *aResult = *held;
  return NS_OK;
}

nsresult nsPrefBranch::Set(const char* aPrefName, nsPrefValue aValue) {
  std::string name;
  const nsresult rv = FullName(aPrefName, &name);
  if (NS_FAILED(rv)) return rv;
  // A zero would cut the text short for everybody who reads it.
  const auto* const text = std::get_if<std::string>(&aValue);
  if (text && text->find('\0') != text->npos) return NS_ERROR_INVALID_ARG;
  return name.empty() ? NS_ERROR_INVALID_ARG : mPrefs->Set(name, std::move(aValue), mIsDefault);
}

nsresult nsPrefBranch::GetRoot(char** aRoot) {
  if (!aRoot) return NS_ERROR_NULL_POINTER;
  *aRoot = NS_NewCString(mRoot);
  return NS_OK;
}

nsresult nsPrefBranch::GetPrefType(const char* aPrefName, int32_t* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  std::string name;
  if (const nsresult rv = FullName(aPrefName, &name); NS_FAILED(rv)) return rv;
  static_assert(std::is_same_v<nsPrefValue, std::variant<std::string, int32_t, bool>>);
  constexpr uint32_t kTypes[] = {PREF_STRING, PREF_INT, PREF_BOOL};
  const nsPrefs::Pref* const pref = mPrefs->Find(name);
  const nsPrefValue* const value = pref ? pref->Value() : nullptr;
  *aResult = static_cast<int32_t>(value ? kTypes[value->index()] : PREF_INVALID);
  return NS_OK;
}

nsresult nsPrefBranch::GetBoolPref(const char* aPrefName, bool* aResult) {
  return Get(aPrefName, aResult);
}
nsresult nsPrefBranch::SetBoolPref(const char* aPrefName, bool aValue) {
  return Set(aPrefName, aValue);
}
nsresult nsPrefBranch::GetCharPref(const char* aPrefName, char** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  std::string value;
  const nsresult rv = Get(aPrefName, &value);
  if (NS_SUCCEEDED(rv)) *aResult = NS_NewCString(value);
  return rv;
}
nsresult nsPrefBranch::SetCharPref(const char* aPrefName, const char* aValue) {
  return aValue ? Set(aPrefName, std::string(aValue)) : NS_ERROR_NULL_POINTER;
}
nsresult nsPrefBranch::GetIntPref(const char* aPrefName, int32_t* aResult) {
  return Get(aPrefName, aResult);
}
nsresult nsPrefBranch::SetIntPref(const char* aPrefName, int32_t aValue) {
  return Set(aPrefName, aValue);
}

nsresult nsPrefBranch::GetComplexValue(const char* aPrefName, const nsIID& aType, void** aValue) {
  if (!aValue) return NS_ERROR_NULL_POINTER;
  std::string value;
  if (const nsresult rv = Get(aPrefName, &value); NS_FAILED(rv)) return rv;
  if (aType == nsISupportsString::kIID)
    return MakeRefCounted<nsSupportsString>(NS_ToUtf16(std::string_view(value)))
        ->QueryInterface(aType, aValue);
  if (aType != nsIFile::kIID && aType != nsILocalFile::kIID) return NS_ERROR_NO_INTERFACE;
  nsCOMPtr<nsILocalFile> file;
  const nsresult rv = NS_NewNativeLocalFile(nsDependentCString(value), true, file.getter_AddRefs());
  return NS_FAILED(rv) ? rv : file->QueryInterface(aType, aValue);
}

nsresult nsPrefBranch::SetComplexValue(const char* aPrefName, const nsIID& aType,
                                       nsISupports* aValue) {
  if (aType == nsISupportsString::kIID) {
    const auto string = do_QueryInterface<nsISupportsString>(aValue);
    if (!string) return NS_ERROR_NO_INTERFACE;
    nsString data;
    const nsresult rv = string->GetData(data);
    return NS_FAILED(rv) ? rv : Set(aPrefName, NS_ToUtf8(data));
  }
  if (aType != nsIFile::kIID && aType != nsILocalFile::kIID) return NS_ERROR_NO_INTERFACE;
  const auto file = do_QueryInterface<nsIFile>(aValue);
  if (!file) return NS_ERROR_NO_INTERFACE;
  nsCString path;
  const nsresult rv = file->GetNativePath(path);
  return NS_FAILED(rv) ? rv : Set(aPrefName, std::string(path.view()));
}

nsresult nsPrefBranch::ClearUserPref(const char* aPrefName) {
  std::string name;
  const nsresult rv = FullName(aPrefName, &name);
  if (NS_SUCCEEDED(rv)) mPrefs->ClearUser(name);
  return rv;
}

nsresult nsPrefBranch::SetLocked(const char* aPrefName, bool aLocked) {
  std::string name;
  const nsresult rv = FullName(aPrefName, &name);
  return NS_FAILED(rv) ? rv : mPrefs->SetLocked(name, aLocked);
}
nsresult nsPrefBranch::LockPref(const char* aPrefName) { return SetLocked(aPrefName, true); }
nsresult nsPrefBranch::UnlockPref(const char* aPrefName) { return SetLocked(aPrefName, false); }

nsresult nsPrefBranch::PrefHasUserValue(const char* aPrefName, bool* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  std::string name;
  if (const nsresult rv = FullName(aPrefName, &name); NS_FAILED(rv)) return rv;
  const nsPrefs::Pref* const pref = mPrefs->Find(name);
  *aResult = pref && pref->mUser;
  return NS_OK;
}

nsresult nsPrefBranch::PrefIsLocked(const char* aPrefName, bool* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  std::string name;
  if (const nsresult rv = FullName(aPrefName, &name); NS_FAILED(rv)) return rv;
  const nsPrefs::Pref* const pref = mPrefs->Find(name);
  *aResult = pref && pref->mLocked;
  return NS_OK;
}

nsresult nsPrefBranch::DeleteBranch(const char* aStartingAt) {
  std::string start;
  if (const nsresult rv = FullName(aStartingAt, &start); NS_FAILED(rv)) return rv;
  for (const std::string& name : mPrefs->NamesBelow(start)) mPrefs->Remove(name);
  return NS_OK;
}

nsresult nsPrefBranch::ResetBranch(const char* aStartingAt) {
  std::string start;
  if (const nsresult rv = FullName(aStartingAt, &start); NS_FAILED(rv)) return rv;
  for (const std::string& name : mPrefs->NamesBelow(start)) mPrefs->ClearUser(name);
  return NS_OK;
}

nsresult nsPrefBranch::GetChildList(const char* aStartingAt, uint32_t* aCount,
                                    char*** aChildArray) {
  if (!aChildArray) return NS_ERROR_NULL_POINTER;
  std::string start;
  if (const nsresult rv = FullName(aStartingAt, &start); NS_FAILED(rv)) return rv;
  const auto names = mPrefs->NamesBelow(start);
  char** children = nullptr;
  if (!names.empty()) children = static_cast<char**>(NS_Alloc(names.size() * sizeof(char*)));
  for (size_t i = 0; i < names.size(); ++i)
    children[i] = NS_NewCString(std::string_view(names[i]).substr(mRoot.size()));
  if (aCount) *aCount = static_cast<uint32_t>(names.size());
  *aChildArray = children;
  return NS_OK;
}

nsresult nsPrefBranch::AddObserver(const char* aDomain, nsIObserver* aObserver, bool aHoldWeak) {
  std::string domain;
  const nsresult rv = FullName(aDomain, &domain);
  return NS_FAILED(rv) ? rv : mPrefs->AddObserver(this, mRoot, domain, aObserver, aHoldWeak);
}

nsresult nsPrefBranch::RemoveObserver(const char* aDomain, nsIObserver* aObserver) {
  if (!aObserver) return NS_ERROR_NULL_POINTER;
  std::string domain;
  const nsresult rv = FullName(aDomain, &domain);
  return NS_FAILED(rv) ? rv : mPrefs->RemoveObserver(mRoot, domain, aObserver);
}

// ---- The service

nsresult nsPrefService::QueryInterface(const nsIID& aIID, void** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  if (aIID != nsIPrefService::kIID) return nsPrefBranch::QueryInterface(aIID, aResult);
  *aResult = static_cast<nsIPrefService*>(this);
  AddRef();
  return NS_OK;
}

void nsPrefService::ReadDefaults(const std::string& aDirectory) {
  mDefaults = aDirectory;
  mPrefs->ReadDirectory(aDirectory);
}

nsresult nsPrefService::ReadUserPrefs(nsIFile* aFile) {
  if (!mPrefs->IsOnThread()) return NS_ERROR_NOT_SAME_THREAD;
  if (!aFile) return NS_OK;
  nsCString path;
  const nsresult rv = aFile->GetNativePath(path);
  return NS_FAILED(rv) ? rv : mPrefs->ReadFile(std::string(path.view()));
}

nsresult nsPrefService::ResetPrefs() {
  const nsresult rv = DeleteBranch("");
  if (NS_SUCCEEDED(rv) && !mDefaults.empty()) mPrefs->ReadDirectory(mDefaults);
  return rv;
}

nsresult nsPrefService::ResetUserPrefs() { return ResetBranch(""); }

nsresult nsPrefService::SavePrefFile(nsIFile* aFile) {
  if (!mPrefs->IsOnThread()) return NS_ERROR_NOT_SAME_THREAD;
  if (!aFile) return mPrefs->Save();
  nsCString path;
  const nsresult rv = aFile->GetNativePath(path);
  return NS_FAILED(rv) ? rv : mPrefs->SaveTo(std::string(path.view()));
}

nsresult nsPrefService::NewBranch(const char* aPrefRoot, bool aIsDefault, nsIPrefBranch** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  // No root is the empty one.
  MakeRefCounted<nsPrefBranch>(mPrefs, aPrefRoot ? aPrefRoot : "", aIsDefault).forget(aResult);
  return NS_OK;
}
nsresult nsPrefService::GetBranch(const char* aPrefRoot, nsIPrefBranch** aResult) {
  return NewBranch(aPrefRoot, false, aResult);
}
nsresult nsPrefService::GetDefaultBranch(const char* aPrefRoot, nsIPrefBranch** aResult) {
  return NewBranch(aPrefRoot, true, aResult);
}

// ---- The module

namespace {

// "@vorel/ipc/prefs;1" is the branch of all preferences. There is one process, so it is the service
// itself.
nsresult GetRootBranch(nsISupports*, const nsIID& aIID, void** aResult) {
  nsresult rv;
  const auto service = do_GetService<nsIPrefBranch>(NS_PREFSERVICE_CID, &rv);
  return NS_FAILED(rv) ? rv : service->QueryInterface(aIID, aResult);
}

constexpr nsCID kRootBranchCID = "f1d35b0a-1e0a-4d13-9d2c-5f1d1b4a7c33"_iid;

const vorel::Module::CIDEntry kCIDs[] = {
    {&NS_PREFSERVICE_CID, true, nullptr, NS_ConstructNew<nsPrefService>},
    {&kRootBranchCID, true, nullptr, GetRootBranch},
    {nullptr, false, nullptr, nullptr},
};

const vorel::Module::ContractIDEntry kContracts[] = {
    {NS_PREFSERVICE_CONTRACTID, &NS_PREFSERVICE_CID},
    {VOREL_PREFS_CONTRACTID, &kRootBranchCID},
    {nullptr, nullptr},
};

}  // namespace

const vorel::Module kPrefsModule = {
    vorel::Module::kVersion, kCIDs, kContracts, nullptr, nullptr, nullptr, nullptr};

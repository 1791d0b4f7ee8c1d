#include "nsDirectoryService.h"

#include <algorithm>

#include "nsCOMArray.h"
#include "nsIDirectoryServiceProvider2.h"
#include "nsISimpleEnumerator.h"
#include "nsLocalFile.h"
#include "nsNativeDirectories.h"
#include "nsXPCOM.h"

const nsClassInfoRecord nsDirectoryService::kClassInfo = {
    NS_ClassInterfaces<nsIDirectoryService, nsIProperties>, nullptr, nsIClassInfo::SINGLETON,
    "f00152d0-b40b-11d3-8c9c-000064657374"_iid};

nsresult nsDirectoryService::RegisterProvider(nsIDirectoryServiceProvider* aProvider) {
  if (!aProvider) return NS_ERROR_NULL_POINTER;
  mProviders.emplace_back(aProvider);
  return NS_OK;
}

nsresult nsDirectoryService::UnregisterProvider(nsIDirectoryServiceProvider* aProvider) {
  const auto found = std::find(mProviders.begin(), mProviders.end(), aProvider);
  if (found == mProviders.end()) return NS_ERROR_FAILURE;
  mProviders.erase(found);
  return NS_OK;
}

nsresult nsDirectoryService::Find(const std::string& aKey, nsIFile** aResult) {
  if (const auto found = mFiles.find(aKey); found != mFiles.end())
    return found->second->Clone(aResult);

  const auto providers = mProviders;  // one may register or unregister another
  for (auto provider = providers.rbegin(); provider != providers.rend(); ++provider) {
    nsCOMPtr<nsIFile> file;
    bool persistent = false;
    if (NS_FAILED((*provider)->GetFile(aKey.c_str(), &persistent, file.getter_AddRefs())) || !file)
      continue;
    if (!persistent) {
      file.forget(aResult);
      return NS_OK;
    }
    mFiles[aKey] = file;
    return file->Clone(aResult);
  }

  if (aKey == "DefRt") {
    nsCOMPtr<nsIFile> file;
    nsresult rv = Find("XCurProcD", file.getter_AddRefs());
    if (NS_SUCCEEDED(rv)) rv = file->AppendNative(nsDependentCString("defaults"));
    if (NS_SUCCEEDED(rv)) file.forget(aResult);
    return rv;
  }
  const std::string path = NS_NativeDirectory(aKey);
  if (path.empty()) return NS_ERROR_FAILURE;
  MakeRefCounted<nsLocalFile>(path).forget(aResult);
  return NS_OK;
}

nsresult nsDirectoryService::FindList(const std::string& aKey, const nsIID& aIID, void** aResult) {
  nsCOMArray<nsISupports> all;
  bool any = false;
  const auto providers = mProviders;
  for (auto each = providers.rbegin(); each != providers.rend(); ++each) {
    const auto provider = do_QueryInterface<nsIDirectoryServiceProvider2>(*each);
    nsCOMPtr<nsISimpleEnumerator> list;
    if (!provider || NS_FAILED(provider->GetFiles(aKey.c_str(), list.getter_AddRefs())) || !list)
      continue;
    any = true;
    for (bool more = false; NS_SUCCEEDED(list->HasMoreElements(&more)) && more;) {
      nsCOMPtr<nsISupports> element;
      if (NS_FAILED(list->GetNext(element.getter_AddRefs()))) break;
      all.push_back(element);
    }
  }
  if (!any) return NS_ERROR_FAILURE;
  nsCOMPtr<nsISimpleEnumerator> enumerator;
  const nsresult rv = NS_NewArrayEnumerator(enumerator.getter_AddRefs(), all);
  return NS_FAILED(rv) ? rv : enumerator->QueryInterface(aIID, aResult);
}

nsresult nsDirectoryService::Get(const char* aKey, const nsIID& aIID, void** aResult) {
  if (!aKey || !aResult) return NS_ERROR_NULL_POINTER;
  if (aIID == nsISimpleEnumerator::kIID) return FindList(aKey, aIID, aResult);
  nsCOMPtr<nsIFile> file;
  const nsresult rv = Find(aKey, file.getter_AddRefs());
  return NS_FAILED(rv) ? rv : file->QueryInterface(aIID, aResult);
}

nsresult nsDirectoryService::Set(const char* aKey, nsISupports* aValue) {
  if (!aKey) return NS_ERROR_NULL_POINTER;
  const auto value = do_QueryInterface<nsIFile>(aValue);
  if (!value) return NS_ERROR_INVALID_ARG;
  if (mFiles.contains(aKey)) return NS_ERROR_FAILURE;
  nsCOMPtr<nsIFile> copy;
  const nsresult rv = value->Clone(copy.getter_AddRefs());
  if (NS_SUCCEEDED(rv)) mFiles.emplace(aKey, copy);
  return rv;
}

nsresult nsDirectoryService::Has(const char* aKey, bool* aResult) {
  if (!aKey || !aResult) return NS_ERROR_NULL_POINTER;
  nsCOMPtr<nsIFile> file;
  *aResult = NS_SUCCEEDED(Find(aKey, file.getter_AddRefs()));
  return NS_OK;
}

nsresult nsDirectoryService::Undefine(const char* aKey) {
  if (!aKey) return NS_ERROR_NULL_POINTER;
  return mFiles.erase(aKey) ? NS_OK : NS_ERROR_FAILURE;
}

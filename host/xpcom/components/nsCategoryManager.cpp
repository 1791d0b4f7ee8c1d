#include "nsCategoryManager.h"

#include <algorithm>

#include "nsCOMArray.h"
#include "nsIObserverService.h"
#include "nsISimpleEnumerator.h"
#include "nsIUTF8StringEnumerator.h"
#include "nsServices.h"
#include "nsSupportsPrimitives.h"
#include "nsThread.h"
#include "nsVorelMethodCaller.h"

namespace {

class nsNameEnumerator final : public nsImplementsOnOneThread<nsNameEnumerator, nsISimpleEnumerator,
                                                              nsIUTF8StringEnumerator> {
 public:
  explicit nsNameEnumerator(std::vector<std::string> aNames) : mNames(std::move(aNames)) {}

  nsresult HasMoreElements(bool* aResult) override { return HasMore(aResult); }
  nsresult HasMore(bool* aResult) override {
    if (!aResult) return NS_ERROR_NULL_POINTER;
    *aResult = mNext < mNames.size();
    return NS_OK;
  }
  /// NS_ERROR_FAILURE past the end.
  nsresult GetNext(nsISupports** aResult) override {
    if (!aResult) return NS_ERROR_NULL_POINTER;
    if (mNext >= mNames.size()) return NS_ERROR_FAILURE;
    MakeRefCounted<nsSupportsCString>(mNames[mNext++]).forget(aResult);
    return NS_OK;
  }
  nsresult GetNext(nsACString& aResult) override {
    if (mNext >= mNames.size()) return NS_ERROR_FAILURE;
    return NS_Give(mNames[mNext++], aResult);
  }

 private:
  ~nsNameEnumerator() override = default;
  const std::vector<std::string> mNames;
  size_t mNext = 0;
};

auto Find(std::vector<nsCategoryManager::Entry>& aEntries, std::string_view aName) {
  return std::find_if(aEntries.begin(), aEntries.end(),
                      [&](const auto& aEntry) { return aEntry.mName == aName; });
}

}  // namespace

nsresult nsCategoryManager::GetCategoryEntry(const char* aCategory, const char* aEntry,
                                             char** aResult) {
  if (!aCategory || !aEntry || !aResult) return NS_ERROR_NULL_POINTER;
  nsAutoLock lock(mMutex);
  const auto category = mCategories.find(std::string_view(aCategory));
  if (category == mCategories.end()) return NS_ERROR_NOT_AVAILABLE;
  const auto entry = Find(category->second, aEntry);
  if (entry == category->second.end()) return NS_ERROR_NOT_AVAILABLE;
  *aResult = NS_NewCString(entry->mValue);
  return NS_OK;
}

nsresult nsCategoryManager::AddCategoryEntry(const char* aCategory, const char* aEntry,
                                             const char* aValue, bool aPersist, bool aReplace,
                                             char** aResult) {
  if (!aCategory || !aEntry || !aValue) return NS_ERROR_NULL_POINTER;
  if (aPersist) return NS_ERROR_INVALID_ARG;
  std::optional<std::string> old;
  {
    nsAutoLock lock(mMutex);
    auto& entries = mCategories[aCategory];
    if (const auto entry = Find(entries, aEntry); entry == entries.end()) {
      entries.push_back({aEntry, aValue});
    } else {
      if (!aReplace) return NS_ERROR_INVALID_ARG;
      old = std::exchange(entry->mValue, aValue);
    }
  }
  if (old) Announce("xpcom-category-entry-removed", aCategory, aEntry);
  Announce("xpcom-category-entry-added", aCategory, aEntry);
  if (aResult) *aResult = old ? NS_NewCString(*old) : nullptr;
  return NS_OK;
}

nsresult nsCategoryManager::DeleteCategoryEntry(const char* aCategory, const char* aEntry, bool) {
  if (!aCategory || !aEntry) return NS_ERROR_NULL_POINTER;
  {
    nsAutoLock lock(mMutex);
    const auto category = mCategories.find(std::string_view(aCategory));
    if (category == mCategories.end()) return NS_OK;
    const auto entry = Find(category->second, aEntry);
    if (entry == category->second.end()) return NS_OK;
    category->second.erase(entry);
    if (category->second.empty()) mCategories.erase(category);
  }
  Announce("xpcom-category-entry-removed", aCategory, aEntry);
  return NS_OK;
}

nsresult nsCategoryManager::DeleteCategory(const char* aCategory) {
  if (!aCategory) return NS_ERROR_NULL_POINTER;
  {
    nsAutoLock lock(mMutex);
    const auto category = mCategories.find(std::string_view(aCategory));
    if (category == mCategories.end()) return NS_OK;
    mCategories.erase(category);
  }
  Announce("xpcom-category-cleared", aCategory, nullptr);
  return NS_OK;
}

nsresult nsCategoryManager::EnumerateCategory(const char* aCategory,
                                              nsISimpleEnumerator** aResult) {
  if (!aCategory || !aResult) return NS_ERROR_NULL_POINTER;
  std::vector<std::string> names;
  for (Entry& entry : Entries(aCategory)) names.push_back(std::move(entry.mName));
  MakeRefCounted<nsNameEnumerator>(std::move(names)).forget(aResult);
  return NS_OK;
}

nsresult nsCategoryManager::EnumerateCategories(nsISimpleEnumerator** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  std::vector<std::string> names;
  {
    nsAutoLock lock(mMutex);
    for (const auto& [name, entries] : mCategories) names.push_back(name);
  }
  MakeRefCounted<nsNameEnumerator>(std::move(names)).forget(aResult);
  return NS_OK;
}

std::vector<nsCategoryManager::Entry> nsCategoryManager::Entries(std::string_view aCategory) {
  nsAutoLock lock(mMutex);
  const auto category = mCategories.find(aCategory);
  return category == mCategories.end() ? std::vector<Entry>() : category->second;
}

void nsCategoryManager::Announce(const char* aTopic, const char* aCategory, const char* aEntry) {
  if (!mAnnouncing) return;
  nsCOMPtr<nsISupports> subject;
  if (aEntry)
    subject = nsCOMPtr<nsISupportsCString>(MakeRefCounted<nsSupportsCString>(aEntry));
  else
    subject = static_cast<nsICategoryManager*>(this);
  const auto tell =
      NS_NewRunnable([subject, aTopic, data = NS_ToUtf16(std::string_view(aCategory))] {
        if (const auto service = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID))
          (void)service->NotifyObservers(subject.get(), aTopic, data.c_str());
      });
  // Refused only when the host no longer runs events: then there is nobody to tell.
  (void)NS_DispatchToMainThread(tell.get(), NS_DISPATCH_NORMAL);
}

// The category manager.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "nsCOMPtr.h"
#include "nsICategoryManager.h"
#include "nsImplements.h"
#include "nsLock.h"

/// "@mozilla.org/categorymanager;1". Entries keep the order in which they came. Any thread. Changes
/// are announced on the main thread, some time after they are made: "xpcom-category-entry-added",
/// "xpcom-category-entry-removed", "xpcom-category-cleared".
class nsCategoryManager final : public nsImplements<nsCategoryManager, nsICategoryManager> {
 public:
  /// NS_ERROR_NOT_AVAILABLE when there is no such entry.
  nsresult GetCategoryEntry(const char* aCategory, const char* aEntry, char** aResult) override;
  /// *aResult, which may be null, gets the value that was replaced, or null. NS_ERROR_INVALID_ARG
  /// when the entry exists and may not be replaced, and for a persistent one: nothing outlives the
  /// host.
  nsresult AddCategoryEntry(const char* aCategory, const char* aEntry, const char* aValue,
                            bool aPersist, bool aReplace, char** aResult) override;
  /// Success also when there is no such entry or category.
  nsresult DeleteCategoryEntry(const char* aCategory, const char* aEntry, bool aPersist) override;
  nsresult DeleteCategory(const char* aCategory) override;
  /// The names of the entries, as nsISupportsCString; the enumerator answers
  /// nsIUTF8StringEnumerator too. An unknown category is an empty one.
  nsresult EnumerateCategory(const char* aCategory, nsISimpleEnumerator** aResult) override;
  nsresult EnumerateCategories(nsISimpleEnumerator** aResult) override;

  struct Entry {
    std::string mName;
    std::string mValue;
  };
  std::vector<Entry> Entries(std::string_view aCategory);
  /// Announce changes, or stop to. Off until the host has started.
  void SetAnnouncing(bool aAnnouncing) { mAnnouncing = aAnnouncing; }

 private:
  ~nsCategoryManager() override = default;
  void Announce(const char* aTopic, const char* aCategory, const char* aEntry);

  nsMutex mMutex;
  std::map<std::string, std::vector<Entry>, std::less<>> mCategories NS_GUARDED_BY(mMutex);
  std::atomic<bool> mAnnouncing{false};
};

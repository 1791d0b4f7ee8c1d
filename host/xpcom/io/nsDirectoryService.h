// The directory service, "@mozilla.org/file/directory_service;1".
#pragma once

#include <map>
#include <string>
#include <vector>

#include "nsIDirectoryService.h"
#include "nsIDirectoryServiceProvider.h"
#include "nsIFile.h"
#include "nsIProperties.h"
#include "nsImplements.h"

/// Directories by key. A key is looked up among those that were set, then asked of the providers,
/// the last registered first, then found by the host itself:
///
///   Home, TmpD, CurWorkD, Desk   of the user and the process
///   CurProcD, XCurProcD          where the program is
///   GreD, XpcomLib               where the host's library is, and the library
///   DefRt                        "defaults" in XCurProcD
///
/// Keys of the application and the profile (ProfD, ProfLD and so on) are there when the host's
/// start, or a provider, has given them. Main thread.
class nsDirectoryService final
    : public nsImplements<nsDirectoryService, nsIDirectoryService, nsIProperties> {
 public:
  static const nsClassInfoRecord kClassInfo;

  nsresult Init() override { return NS_OK; }
  nsresult RegisterProvider(nsIDirectoryServiceProvider* aProvider) override;
  /// NS_ERROR_FAILURE for one that is not registered.
  nsresult UnregisterProvider(nsIDirectoryServiceProvider* aProvider) override;

  /// A new file each time, so that the caller may change it. NS_ERROR_FAILURE for an unknown key.
  /// Asked for an nsISimpleEnumerator it gives the lists of all providers that have one, one after
  /// the other.
  nsresult Get(const char* aKey, const nsIID& aIID, void** aResult) override;
  /// A copy of a file. NS_ERROR_FAILURE while the key is set; Undefine it first.
  nsresult Set(const char* aKey, nsISupports* aValue) override;
  nsresult Has(const char* aKey, bool* aResult) override;
  /// NS_ERROR_FAILURE for a key that is not set.
  nsresult Undefine(const char* aKey) override;
  nsresult GetKeys(uint32_t*, char***) override { return NS_ERROR_NOT_IMPLEMENTED; }

 private:
  ~nsDirectoryService() override = default;
  nsresult Find(const std::string& aKey, nsIFile** aResult);
  nsresult FindList(const std::string& aKey, const nsIID& aIID, void** aResult);

  std::map<std::string, nsCOMPtr<nsIFile>, std::less<>> mFiles;
  std::vector<nsCOMPtr<nsIDirectoryServiceProvider>> mProviders;
};

// A directory, or the root of a volume, as an adapter.
#pragma once

#include "nsISystemAdapterStorage.h"
#include "nsImplements.h"
#include "nsLogger.h"
#include "nsSystemAdapterGeneric.h"

class nsSystemAdapterStorage final
    : public nsSystemAdapterBase<nsImplements<nsSystemAdapterStorage, nsISystemAdapterStorage>> {
 public:
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfo<"", nsISystemAdapter, nsISystemAdapterStorage>(
          "94b94625-ff11-444e-b647-a315a4144409"_iid);

  nsSystemAdapterStorage();

  nsresult GetDirectory(nsIFile** aDirectory) override;
  /// Keeps a copy of its own. When none can be made that failure is returned, and the file itself
  /// is kept. Null for no directory.
  nsresult SetDirectory(nsIFile* aDirectory);

 private:
  ~nsSystemAdapterStorage() override;

  const nsCOMPtr<nsILog4Logger> mLogger;
  nsCOMPtr<nsIFile> mDirectory;
};

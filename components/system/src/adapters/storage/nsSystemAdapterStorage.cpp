#include "nsSystemAdapterStorage.h"

#include "nsDebug.h"
#include "nsIFile.h"

nsSystemAdapterStorage::nsSystemAdapterStorage()
    : mLogger(NS_GetLogger("system.adapter.storage")) {}
nsSystemAdapterStorage::~nsSystemAdapterStorage() = default;

nsresult nsSystemAdapterStorage::GetDirectory(nsIFile** aDirectory) {
  nsCOMPtr<nsIFile> directory;
  if (mDirectory) {
    const nsresult rv = mDirectory->Clone(directory.getter_AddRefs());
    NS_ENSURE_SUCCESS(rv, rv);
  }
  directory.forget(aDirectory);
  return NS_OK;
}

nsresult nsSystemAdapterStorage::SetDirectory(nsIFile* aDirectory) {
  mDirectory = aDirectory;
  if (!mDirectory) return NS_OK;
  nsCOMPtr<nsIFile> copy;
  const nsresult rv = mDirectory->Clone(copy.getter_AddRefs());
  NS_ENSURE_SUCCESS(rv, rv);
  mDirectory = copy;
  return NS_OK;
}

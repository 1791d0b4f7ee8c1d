#include "nsSystemFileSystemWatcherGenericRequest.h"

#include "nsILoadGroup.h"
#include "nsString.h"
#include "nsSystemFileSystemWatcherProxy.h"

nsSystemFileSystemWatcherGenericRequest::nsSystemFileSystemWatcherGenericRequest(
    nsSystemFileSystemWatcherProxy* aProxy) {
  (void)aProxy->GetWeakReference(mProxy.getter_AddRefs());
}

nsresult nsSystemFileSystemWatcherGenericRequest::GetName(nsACString& aName) {
  NS_Assign(aName, "about:fileSystemWatcher-request");
  return NS_OK;
}

nsresult nsSystemFileSystemWatcherGenericRequest::IsPending(bool* aIsPending) {
  *aIsPending = true;
  return NS_OK;
}

nsresult nsSystemFileSystemWatcherGenericRequest::GetStatus(nsresult* aStatus) {
  *aStatus = NS_OK;
  return NS_OK;
}

nsresult nsSystemFileSystemWatcherGenericRequest::Cancel(nsresult) {
  nsCOMPtr<nsSystemFileSystemWatcherProxy> proxy;
  if (NS_SUCCEEDED(mProxy->QueryReferent(nsSystemFileSystemWatcherProxy::kPrivateIID,
                                         reinterpret_cast<void**>(proxy.getter_AddRefs()))) &&
      proxy)
    proxy->EndWithDocument();
  return NS_OK;
}

nsresult nsSystemFileSystemWatcherGenericRequest::GetLoadGroup(nsILoadGroup** aLoadGroup) {
  *aLoadGroup = nullptr;
  return NS_OK;
}

nsresult nsSystemFileSystemWatcherGenericRequest::GetLoadFlags(uint32_t* aLoadFlags) {
  *aLoadFlags = LOAD_BACKGROUND;
  return NS_OK;
}

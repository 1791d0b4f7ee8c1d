// What ties a script's watcher to its document: an entry in the document's load group.
#pragma once

#include "nsIRequest.h"
#include "nsIWeakReference.h"
#include "nsImplements.h"

class nsILoadGroup;
class nsIRequest;
class nsSystemFileSystemWatcherProxy;

/// Main thread only. Cancelled by the load group when the document goes; always succeeds.
class nsSystemFileSystemWatcherGenericRequest final
    : public nsImplementsOnOneThread<nsSystemFileSystemWatcherGenericRequest, nsIRequest> {
 public:
  explicit nsSystemFileSystemWatcherGenericRequest(nsSystemFileSystemWatcherProxy* aProxy);

  nsresult GetName(nsACString& aName) override;
  nsresult IsPending(bool* aIsPending) override;
  nsresult GetStatus(nsresult* aStatus) override;
  /// Takes the request out of the group and ends the watch.
  nsresult Cancel(nsresult aStatus) override;
  nsresult Suspend() override { return NS_OK; }
  nsresult Resume() override { return NS_OK; }
  nsresult GetLoadGroup(nsILoadGroup** aLoadGroup) override;
  nsresult SetLoadGroup(nsILoadGroup*) override { return NS_OK; }
  nsresult GetLoadFlags(uint32_t* aLoadFlags) override;
  nsresult SetLoadFlags(uint32_t) override { return NS_OK; }

 private:
  ~nsSystemFileSystemWatcherGenericRequest() override = default;

  nsCOMPtr<nsIWeakReference> mProxy;
};

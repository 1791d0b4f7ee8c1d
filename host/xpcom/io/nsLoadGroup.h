// A document's requests, "@mozilla.org/network/load-group;1".
#pragma once

#include <vector>

#include "nsIInterfaceRequestor.h"
#include "nsILoadGroup.h"
#include "nsIRequestObserver.h"
#include "nsImplements.h"

/// Requests that are cancelled, suspended and resumed together. Main thread.
///
/// Requests without LOAD_BACKGROUND count as active. The observer hears OnStartRequest with the
/// first active one and OnStopRequest with the last. A request does not leave the group by itself:
/// whoever added it removes it when it ends. Groups do not stand in groups, where a circle of them
/// would have no end: NS_ERROR_INVALID_ARG.
class nsLoadGroup final : public nsImplements<nsLoadGroup, nsILoadGroup> {
 public:
  static const nsClassInfoRecord kClassInfo;

  // nsIRequest, of the group as a whole
  /// The default request's; NS_ERROR_NOT_AVAILABLE without one.
  nsresult GetName(nsACString& aName) override;
  /// True while requests are active.
  nsresult IsPending(bool* aResult) override;
  /// Why it is being cancelled; else the default request's status.
  nsresult GetStatus(nsresult* aStatus) override;
  /// Cancels all, the latest first, and removes each. The first failure is returned, but all are
  /// cancelled. Requests that are added meanwhile are refused with the status. NS_ERROR_INVALID_ARG
  /// for a status that is no failure.
  nsresult Cancel(nsresult aStatus) override;
  nsresult Suspend() override;
  nsresult Resume() override;
  nsresult GetLoadGroup(nsILoadGroup** aLoadGroup) override;
  nsresult SetLoadGroup(nsILoadGroup*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult GetLoadFlags(uint32_t* aLoadFlags) override;
  nsresult SetLoadFlags(uint32_t aLoadFlags) override;

  // nsILoadGroup
  nsresult GetGroupObserver(nsIRequestObserver** aGroupObserver) override;
  nsresult SetGroupObserver(nsIRequestObserver* aGroupObserver) override;
  nsresult GetDefaultLoadRequest(nsIRequest** aDefaultLoadRequest) override;
  nsresult SetDefaultLoadRequest(nsIRequest* aDefaultLoadRequest) override;
  /// Nothing for a request that is in the group already.
  nsresult AddRequest(nsIRequest* aRequest, nsISupports* aContext) override;
  /// NS_ERROR_FAILURE for one that is not in the group.
  nsresult RemoveRequest(nsIRequest* aRequest, nsISupports* aContext, nsresult aStatus) override;
  /// As they are now.
  nsresult GetRequests(nsISimpleEnumerator** aRequests) override;
  nsresult GetActiveCount(uint32_t* aActiveCount) override;
  nsresult GetNotificationCallbacks(nsIInterfaceRequestor** aNotificationCallbacks) override;
  nsresult SetNotificationCallbacks(nsIInterfaceRequestor* aNotificationCallbacks) override;

 private:
  struct Entry {
    nsCOMPtr<nsIRequest> mRequest;
    bool mIsActive;  // as it was when it was added, so that the count stays right
  };

  ~nsLoadGroup() override = default;
  std::vector<Entry>::iterator Find(nsIRequest* aRequest);
  template <class Call>
  nsresult ForAll(Call aCall);

  std::vector<Entry> mRequests;
  uint32_t mActiveCount = 0;
  nsresult mStatus = NS_OK;  // a failure only while cancelling
  uint32_t mLoadFlags = LOAD_NORMAL;
  nsCOMPtr<nsIRequest> mDefaultRequest;
  nsCOMPtr<nsIRequestObserver> mObserver;
  nsCOMPtr<nsIInterfaceRequestor> mCallbacks;
};

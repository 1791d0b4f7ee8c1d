#include "nsLoadGroup.h"

#include <algorithm>

#include "nsCOMArray.h"

const nsClassInfoRecord nsLoadGroup::kClassInfo = {NS_ClassInterfaces<nsIRequest, nsILoadGroup>,
                                                   nullptr, 0,
                                                   "e1c61582-2a84-11d3-8cce-0060b0fc14a3"_iid};

std::vector<nsLoadGroup::Entry>::iterator nsLoadGroup::Find(nsIRequest* aRequest) {
  return std::find_if(mRequests.begin(), mRequests.end(),
                      [&](const Entry& aEntry) { return aEntry.mRequest == aRequest; });
}

// Latest first, on a copy, and only what is still in the group: a call may add and remove others.
template <class Call>
nsresult nsLoadGroup::ForAll(Call aCall) {
  nsresult first = NS_OK;
  const auto entries = mRequests;
  for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
    if (Find(entry->mRequest.get()) == mRequests.end()) continue;
    const nsresult rv = aCall(entry->mRequest.get());
    if (NS_SUCCEEDED(first)) first = rv;
  }
  return first;
}

nsresult nsLoadGroup::GetName(nsACString& aName) {
  return mDefaultRequest ? mDefaultRequest->GetName(aName) : NS_ERROR_NOT_AVAILABLE;
}

nsresult nsLoadGroup::IsPending(bool* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  *aResult = mActiveCount > 0;
  return NS_OK;
}

nsresult nsLoadGroup::GetStatus(nsresult* aStatus) {
  if (!aStatus) return NS_ERROR_NULL_POINTER;
  if (NS_SUCCEEDED(mStatus) && mDefaultRequest) return mDefaultRequest->GetStatus(aStatus);
  *aStatus = mStatus;
  return NS_OK;
}

nsresult nsLoadGroup::Cancel(nsresult aStatus) {
  if (NS_SUCCEEDED(aStatus)) return NS_ERROR_INVALID_ARG;
  const nsCOMPtr<nsLoadGroup> alive = this;
  mStatus = aStatus;
  const nsresult rv = ForAll([&](nsIRequest* aRequest) {
    const nsresult cancelled = aRequest->Cancel(aStatus);
    if (Find(aRequest) != mRequests.end()) (void)RemoveRequest(aRequest, nullptr, aStatus);
    return cancelled;
  });
  mStatus = NS_OK;
  return rv;
}

nsresult nsLoadGroup::Suspend() {
  return ForAll([](nsIRequest* aRequest) { return aRequest->Suspend(); });
}

nsresult nsLoadGroup::Resume() {
  return ForAll([](nsIRequest* aRequest) { return aRequest->Resume(); });
}

nsresult nsLoadGroup::GetLoadGroup(nsILoadGroup** aLoadGroup) {
  if (!aLoadGroup) return NS_ERROR_NULL_POINTER;
  *aLoadGroup = nullptr;
  return NS_OK;
}

nsresult nsLoadGroup::GetLoadFlags(uint32_t* aLoadFlags) {
  if (!aLoadFlags) return NS_ERROR_NULL_POINTER;
  *aLoadFlags = mLoadFlags;
  return NS_OK;
}

nsresult nsLoadGroup::SetLoadFlags(uint32_t aLoadFlags) {
  mLoadFlags = aLoadFlags;
  return NS_OK;
}

nsresult nsLoadGroup::GetGroupObserver(nsIRequestObserver** aGroupObserver) {
  if (!aGroupObserver) return NS_ERROR_NULL_POINTER;
  nsCOMPtr(mObserver).forget(aGroupObserver);
  return NS_OK;
}

nsresult nsLoadGroup::SetGroupObserver(nsIRequestObserver* aGroupObserver) {
  mObserver = aGroupObserver;
  return NS_OK;
}

nsresult nsLoadGroup::GetDefaultLoadRequest(nsIRequest** aDefaultLoadRequest) {
  if (!aDefaultLoadRequest) return NS_ERROR_NULL_POINTER;
  nsCOMPtr(mDefaultRequest).forget(aDefaultLoadRequest);
  return NS_OK;
}

nsresult nsLoadGroup::SetDefaultLoadRequest(nsIRequest* aDefaultLoadRequest) {
  if (do_QueryInterface<nsILoadGroup>(aDefaultLoadRequest)) return NS_ERROR_INVALID_ARG;
  mDefaultRequest = aDefaultLoadRequest;
  if (!mDefaultRequest) return NS_OK;
  const nsresult rv = mDefaultRequest->GetLoadFlags(&mLoadFlags);
  mLoadFlags &= LOAD_REQUESTMASK;
  return rv;
}

nsresult nsLoadGroup::AddRequest(nsIRequest* aRequest, nsISupports* aContext) {
  if (!aRequest) return NS_ERROR_NULL_POINTER;
  if (do_QueryInterface<nsILoadGroup>(aRequest)) return NS_ERROR_INVALID_ARG;
  if (NS_FAILED(mStatus)) return mStatus;
  if (Find(aRequest) != mRequests.end()) return NS_OK;
  uint32_t flags = LOAD_NORMAL;
  const nsresult rv = aRequest->GetLoadFlags(&flags);
  if (NS_FAILED(rv)) return rv;
  const bool isActive = !(flags & LOAD_BACKGROUND);
  mRequests.push_back({aRequest, isActive});
  if (isActive && ++mActiveCount == 1 && mObserver) {
    const nsCOMPtr<nsIRequestObserver> observer = mObserver;
    (void)observer->OnStartRequest(aRequest, aContext);
  }
  return NS_OK;
}

nsresult nsLoadGroup::RemoveRequest(nsIRequest* aRequest, nsISupports* aContext, nsresult aStatus) {
  if (!aRequest) return NS_ERROR_NULL_POINTER;
  const auto found = Find(aRequest);
  if (found == mRequests.end()) return NS_ERROR_FAILURE;
  const Entry entry = *found;
  mRequests.erase(found);
  if (entry.mIsActive && --mActiveCount == 0 && mObserver) {
    const nsCOMPtr<nsIRequestObserver> observer = mObserver;
    (void)observer->OnStopRequest(aRequest, aContext, aStatus);
  }
  return NS_OK;
}

nsresult nsLoadGroup::GetRequests(nsISimpleEnumerator** aRequests) {
  if (!aRequests) return NS_ERROR_NULL_POINTER;
  nsCOMArray<nsIRequest> requests;
  for (const Entry& entry : mRequests) requests.push_back(entry.mRequest);
  return NS_NewArrayEnumerator(aRequests, requests);
}

nsresult nsLoadGroup::GetActiveCount(uint32_t* aActiveCount) {
  if (!aActiveCount) return NS_ERROR_NULL_POINTER;
  *aActiveCount = mActiveCount;
  return NS_OK;
}

nsresult nsLoadGroup::GetNotificationCallbacks(nsIInterfaceRequestor** aNotificationCallbacks) {
  if (!aNotificationCallbacks) return NS_ERROR_NULL_POINTER;
  nsCOMPtr(mCallbacks).forget(aNotificationCallbacks);
  return NS_OK;
}

nsresult nsLoadGroup::SetNotificationCallbacks(nsIInterfaceRequestor* aNotificationCallbacks) {
  mCallbacks = aNotificationCallbacks;
  return NS_OK;
}

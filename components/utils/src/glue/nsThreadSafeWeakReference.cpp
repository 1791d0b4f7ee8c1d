#include "nsThreadSafeWeakReference.h"

#include "nsDebug.h"

nsresult nsThreadSafeWeakReference::QueryReferent(const nsIID& aIID, void** aResult) {
  NS_ENSURE_TRUE(mReferent, NS_ERROR_NULL_POINTER);
  std::lock_guard lock(mMonitor);
  NS_ENSURE_TRUE(mReferent, NS_ERROR_NULL_POINTER);
  return mReferent.load()->QueryInterface(aIID, aResult);
}

nsThreadSafeSupportsWeakReference::nsThreadSafeSupportsWeakReference()
    : mProxy(MakeRefCounted<nsThreadSafeWeakReference>(this)) {}

nsrefcnt nsThreadSafeSupportsWeakReference::AddRef() {
  std::lock_guard lock(mProxy->mMonitor);
  return static_cast<nsrefcnt>(++mRefCnt);
}

nsrefcnt nsThreadSafeSupportsWeakReference::Release() {
  {
    // The proxy is held for the time of the lock: the destructor below releases it.
    std::lock_guard lock(mProxy->mMonitor);
    if (--mRefCnt != 0) return static_cast<nsrefcnt>(mRefCnt);
    mRefCnt = 1;  // the destructor's own reference traffic must not come here again
    mProxy->mReferent = nullptr;
  }
  delete this;
  return 0;
}

nsresult nsThreadSafeSupportsWeakReference::GetWeakReference(nsIWeakReference** aInstancePtr) {
  NS_ENSURE_TRUE(aInstancePtr, NS_ERROR_NULL_POINTER);
  nsCOMPtr<nsThreadSafeWeakReference>(mProxy).forget(aInstancePtr);
  return NS_OK;
}

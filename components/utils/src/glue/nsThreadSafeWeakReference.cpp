#include "nsThreadSafeWeakReference.h"

#include "nsDebug.h"
#include "nsXPCOM.h"

nsThreadSafeWeakReference::Monitor::Monitor() : mNative(PR_NewMonitor()) {
  // Nothing could be counted without it, so this ends the process.
  if (!mNative)
    NS_DebugBreak(NS_DEBUG_ABORT, "Can't allocate fozogam::ReentrantMonitor", nullptr, __FILE__,
                  __LINE__);
}

nsThreadSafeWeakReference::nsThreadSafeWeakReference(nsThreadSafeSupportsWeakReference* aReferent)
    : mReferent(aReferent) {}

nsresult nsThreadSafeWeakReference::QueryReferent(const nsIID& aIID, void** aResult) {
  NS_ENSURE_TRUE(mReferent, NS_ERROR_NULL_POINTER);
  const nsAutoLock lock(mMonitor);
  NS_ENSURE_TRUE(mReferent, NS_ERROR_NULL_POINTER);
  return mReferent.load()->QueryInterface(aIID, aResult);
}

nsThreadSafeSupportsWeakReference::nsThreadSafeSupportsWeakReference()
    : mProxy(MakeRefCounted<nsThreadSafeWeakReference>(this)) {}

nsrefcnt nsThreadSafeSupportsWeakReference::AddRef() {
  const nsAutoLock lock(mProxy->mMonitor);
  return static_cast<nsrefcnt>(++mRefCnt);
}

nsrefcnt nsThreadSafeSupportsWeakReference::Release() {
  {
    // The proxy is held for the time of the lock: the destructor below releases it.
    const nsAutoLock lock(mProxy->mMonitor);
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

#include "nsThreadPool.h"

#include <chrono>

#include "nsIObserverService.h"
#include "nsServices.h"
#include "nsThread.h"

namespace {

constexpr std::chrono::seconds kIdleTime{5};
thread_local const nsWorkerThreads* tPool = nullptr;

}  // namespace

nsresult nsWorkerThreads::Put(nsIRunnable* aEvent) {
  Threads ended;  // joined without the lock, which they may still hold
  nsresult rv = NS_OK;
  {
    const nsAutoLock lock(mMutex);
    if (mClosed) return NS_ERROR_UNEXPECTED;
    ended.swap(mEnded);
    if (mIdle <= mEvents.size() && mThreads.size() < mLimit) {
      mThreads.emplace_back();
      const auto self = std::prev(mThreads.end());
      if (NS_FAILED(self->Start(mName, [this, self] { Main(self); }))) {
        mThreads.pop_back();
        if (mThreads.empty()) rv = NS_ERROR_OUT_OF_MEMORY;
      }
    }
    if (NS_SUCCEEDED(rv)) {
      mEvents.emplace_back(aEvent);
      mChanged.NotifyOne();
    }
  }
  return rv;
}

bool nsWorkerThreads::IsOnOne() const { return tPool == this; }

void nsWorkerThreads::Main(Threads::iterator aSelf) {
  tPool = this;
  nsAutoLock lock(mMutex);
  while (true) {
    ++mIdle;
    mChanged.WaitFor(lock, kIdleTime,
                     [this]() NS_REQUIRES(mMutex) { return !mEvents.empty() || mClosed; });
    --mIdle;
    if (mEvents.empty()) break;
    auto event = std::move(mEvents.front());
    mEvents.pop_front();
    lock.Unlock();
    (void)event->Run();
    event = nullptr;
    lock.Lock();
  }
  mEnded.splice(mEnded.end(), mThreads, aSelf);
  mEndedOne.NotifyOne();
  if (mThreads.empty() && mCloser) mCloser->Wake(&mAllEnded);
}

void nsWorkerThreads::Shutdown() {
  nsCOMPtr<nsThread> closer;
  {
    const nsAutoLock lock(mMutex);
    if (mClosed) return;
    mClosed = true;
    mChanged.NotifyAll();
    closer = mCloser = nsThread::CurrentOrNew();
    mAllEnded = mThreads.empty();
  }
  if (closer) {
    closer->RunUntil(&mAllEnded);
  } else {  // the calling thread is at its end and has no events
    nsAutoLock lock(mMutex);
    mEndedOne.Wait(lock, [this]() NS_REQUIRES(mMutex) { return mThreads.empty(); });
  }
  Threads ended;  // joined without the lock, which they may still hold
  const nsAutoLock lock(mMutex);
  ended.swap(mEnded);
  mCloser = nullptr;
}

const nsClassInfoRecord nsVorelThreadPool::kClassInfo = {
    NS_ClassInterfaces<nsIEventTarget>, nullptr, nsIClassInfo::SINGLETON | nsIClassInfo::THREADSAFE,
    "5c0f6d9a-77f3-4f0b-8f0e-6c2f9b1d3e57"_iid};

nsresult nsVorelThreadPool::Construct(nsISupports* aOuter, const nsIID& aIID, void** aResult) {
  if (aOuter) return NS_ERROR_NO_AGGREGATION;
  const auto pool = MakeRefCounted<nsVorelThreadPool>();
  nsresult rv;
  const auto observers = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID, &rv);
  if (NS_FAILED(rv)) return rv;
  rv = observers->AddObserver(pool.get(), "xpcom-shutdown-threads", false);
  if (NS_FAILED(rv)) return rv;
  return pool->QueryInterface(aIID, aResult);
}

nsresult nsVorelThreadPool::Dispatch(nsIRunnable* aEvent, uint32_t aFlags) {
  if (!aEvent) return NS_ERROR_NULL_POINTER;
  if (aFlags == DISPATCH_NORMAL) return mThreads.Put(aEvent);
  if (aFlags != DISPATCH_SYNC) return NS_ERROR_INVALID_ARG;
  if (!mThreads.IsOnOne())
    return NS_DispatchSync([this](nsIRunnable* aSync) { return mThreads.Put(aSync); }, aEvent);
  (void)aEvent->Run();
  return NS_OK;
}

nsresult nsVorelThreadPool::IsOnCurrentThread(bool* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  *aResult = mThreads.IsOnOne();
  return NS_OK;
}

nsresult nsVorelThreadPool::Observe(nsISupports* /*aSubject*/, const char* /*aTopic*/,
                                    const char16_t* /*aData*/) {
  mThreads.Shutdown();
  return NS_OK;
}

// A few threads that share the work given to them, "@vorel/vorelthreadpool;1".
#pragma once

#include <deque>
#include <list>

#include "nsCOMPtr.h"
#include "nsIEventTarget.h"
#include "nsIObserver.h"
#include "nsIRunnable.h"
#include "nsImplements.h"
#include "nsLock.h"
#include "nsNamedThread.h"

class nsThread;

/// The pool as a plain class. Work starts in the order in which it was given, on at most aLimit
/// threads, which are made when all others are busy and end after having been idle for a while. Any
/// thread may call it.
class nsWorkerThreads {
 public:
  nsWorkerThreads(const char* aName, uint32_t aLimit) : mName(aName), mLimit(aLimit) {}
  nsWorkerThreads(const nsWorkerThreads&) = delete;
  nsWorkerThreads& operator=(const nsWorkerThreads&) = delete;
  ~nsWorkerThreads() { Shutdown(); }

  /// NS_ERROR_UNEXPECTED after Shutdown; NS_ERROR_OUT_OF_MEMORY when there is no thread and none is
  /// to be had.
  nsresult Put(nsIRunnable* aEvent);
  /// True on one of the threads.
  bool IsOnOne() const;
  /// Takes no more work, runs what was given, and joins the threads. The caller's own events run
  /// meanwhile, since the work may need them. Nothing the second time. Not from one of the threads.
  void Shutdown();

 private:
  using Threads = std::list<nsNamedThread>;
  void Main(Threads::iterator aSelf);

  const char* const mName;
  const uint32_t mLimit;
  nsMutex mMutex;  // guards the rest
  nsCondition mChanged, mEndedOne;
  std::deque<nsCOMPtr<nsIRunnable>> mEvents NS_GUARDED_BY(mMutex);
  Threads mThreads NS_GUARDED_BY(mMutex);
  Threads mEnded NS_GUARDED_BY(mMutex);  // joined when they are let go
  size_t mIdle NS_GUARDED_BY(mMutex) = 0;
  bool mClosed NS_GUARDED_BY(mMutex) = false;
  nsCOMPtr<nsThread> mCloser NS_GUARDED_BY(mMutex);  // waits for the last thread, by the flag
  bool mAllEnded = false;
};

/// The service. Dispatch with DISPATCH_SYNC runs the caller's events while it waits; from a thread
/// of the pool it runs the work at once, so that the pool can't be blocked by waiting for itself.
/// IsOnCurrentThread is true on each of its threads. It shuts down at "xpcom-shutdown-threads";
/// from then on Dispatch is NS_ERROR_UNEXPECTED.
class nsVorelThreadPool final
    : public nsImplements<nsVorelThreadPool, nsIEventTarget, nsIObserver> {
 public:
  static const nsClassInfoRecord kClassInfo;
  /// Makes the service and lets it hear of the shutdown.
  static nsresult Construct(nsISupports* aOuter, const nsIID& aIID, void** aResult);

  nsresult Dispatch(nsIRunnable* aEvent, uint32_t aFlags) override;
  nsresult IsOnCurrentThread(bool* aResult) override;
  nsresult Observe(nsISupports* aSubject, const char* aTopic, const char16_t* aData) override;

 private:
  ~nsVorelThreadPool() override = default;
  nsWorkerThreads mThreads{"Pool", 8};
};

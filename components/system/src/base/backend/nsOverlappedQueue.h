// Carries out overlapped operations for backends whose system has none: one after the other, on a
// thread that the first of them starts.
#pragma once

#include <algorithm>
#include <deque>
#include <functional>
#include <stop_token>

#include "nsLock.h"
#include "nsNamedThread.h"
#include "nsPlatformOverlapped.h"

/// Any thread.
class nsOverlappedQueue {
 public:
  /// What an operation gives to nsOverlapped::End.
  struct Outcome {
    nsresult mResult = NS_OK;
    uint32_t mCount = 0;
    std::string mBytes;
  };
  /// Waits as long as it takes, and ends soon when a stop is asked for.
  using Operation = std::function<Outcome(const std::stop_token&)>;

  nsOverlappedQueue() = default;
  nsOverlappedQueue(const nsOverlappedQueue&) = delete;
  nsOverlappedQueue& operator=(const nsOverlappedQueue&) = delete;
  ~nsOverlappedQueue() { Close(); }

  /// Begins the operation. NS_ERROR_IN_PROGRESS; NS_ERROR_ABORT after Close,
  /// NS_ERROR_OUT_OF_MEMORY when there is no thread for it.
  nsresult Post(nsOverlappedRef aRecord, Operation aOperation) {
    const nsAutoLock lock(mLock);
    if (mClosed) return NS_ERROR_ABORT;
    if (!mThread.IsStarted())
      if (const nsresult rv = mThread.Start("Overlapped", [this] { Run(); }); NS_FAILED(rv))
        return rv;
    aRecord->Begin();
    mWaiting.push_back({std::move(aRecord), std::move(aOperation)});
    mChanged.NotifyAll();
    return NS_ERROR_IN_PROGRESS;
  }

  /// Whether an operation goes on or waits.
  bool IsBusy() const {
    const nsAutoLock lock(mLock);
    return mRunning || !mWaiting.empty();
  }

  /// Ends what goes on and what waits, with NS_ERROR_ABORT for the latter. Returns before the
  /// operation that is carried out has ended.
  void Abort() {
    const nsAutoLock lock(mLock);
    AbortLocked();
  }

  /// The same for good; returns when nothing is carried out any more.
  void Close() {
    {
      const nsAutoLock lock(mLock);
      mClosed = true;
      AbortLocked();
      mChanged.NotifyAll();
    }
    mThread.Join();
  }

 private:
  struct Entry {
    nsOverlappedRef mRecord;
    Operation mOperation;
  };

  void AbortLocked() NS_REQUIRES(mLock) {
    for (const Entry& entry : std::exchange(mWaiting, {})) entry.mRecord->End(NS_ERROR_ABORT, 0);
    if (mRunning) mStop.request_stop();
  }

  void Run() {
    nsAutoLock lock(mLock);
    while (true) {
      mChanged.Wait(lock, [this]() NS_REQUIRES(mLock) { return mClosed || !mWaiting.empty(); });
      if (mWaiting.empty()) return;
      const Entry entry = std::move(mWaiting.front());
      mWaiting.pop_front();
      mStop = std::stop_source();
      mRunning = true;
      const std::stop_token stop = mStop.get_token();
      lock.Unlock();
      Outcome outcome = entry.mOperation(stop);
      lock.Lock();
      mRunning = false;
      entry.mRecord->End(outcome.mResult, outcome.mCount, std::move(outcome.mBytes));
    }
  }

  mutable nsMutex mLock;
  nsCondition mChanged;
  std::deque<Entry> mWaiting NS_GUARDED_BY(mLock);
  std::stop_source mStop NS_GUARDED_BY(mLock);
  bool mRunning NS_GUARDED_BY(mLock) = false;
  bool mClosed NS_GUARDED_BY(mLock) = false;
  nsNamedThread mThread;  // started with the lock held, and not once it is closed
};

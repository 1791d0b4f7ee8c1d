// Carries out overlapped operations for backends whose system has none: one after the other, on a
// thread that the first of them starts.
#pragma once

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <stop_token>
#include <system_error>
#include <thread>

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
    const std::lock_guard lock(mLock);
    if (mClosed) return NS_ERROR_ABORT;
    if (!mThread.joinable()) {
      try {
        mThread = std::thread([this] { Run(); });
      } catch (const std::system_error&) {
        return NS_ERROR_OUT_OF_MEMORY;
      }
    }
    aRecord->Begin();
    mWaiting.push_back({std::move(aRecord), std::move(aOperation)});
    mChanged.notify_all();
    return NS_ERROR_IN_PROGRESS;
  }

  /// Whether an operation goes on or waits.
  bool IsBusy() const {
    const std::lock_guard lock(mLock);
    return mRunning || !mWaiting.empty();
  }

  /// Ends what goes on and what waits, with NS_ERROR_ABORT for the latter. Returns before the
  /// operation that is carried out has ended.
  void Abort() {
    const std::lock_guard lock(mLock);
    AbortLocked();
  }

  /// The same for good; returns when nothing is carried out any more.
  void Close() {
    {
      const std::lock_guard lock(mLock);
      mClosed = true;
      AbortLocked();
      mChanged.notify_all();
    }
    if (mThread.joinable()) mThread.join();
  }

 private:
  struct Entry {
    nsOverlappedRef mRecord;
    Operation mOperation;
  };

  void AbortLocked() {
    for (const Entry& entry : std::exchange(mWaiting, {})) entry.mRecord->End(NS_ERROR_ABORT, 0);
    if (mRunning) mStop.request_stop();
  }

  void Run() {
    std::unique_lock lock(mLock);
    while (true) {
      mChanged.wait(lock, [this] { return mClosed || !mWaiting.empty(); });
      if (mWaiting.empty()) return;
      const Entry entry = std::move(mWaiting.front());
      mWaiting.pop_front();
      mStop = std::stop_source();
      mRunning = true;
      const std::stop_token stop = mStop.get_token();
      lock.unlock();
      Outcome outcome = entry.mOperation(stop);
      lock.lock();
      mRunning = false;
      entry.mRecord->End(outcome.mResult, outcome.mCount, std::move(outcome.mBytes));
    }
  }

  mutable std::mutex mLock;
  std::condition_variable mChanged;
  std::deque<Entry> mWaiting;
  std::stop_source mStop;
  bool mRunning = false;
  bool mClosed = false;
  std::thread mThread;
};

// Overlapped operations: one that a call of a port begins, and that ends later.
//
//   const auto record = std::make_shared<nsOverlapped>();
//   rv = port->WriteFile(bytes, count, &written, record);
//   if (rv == NS_ERROR_IN_PROGRESS) rv = record->GetResult(false, &written);
//
// The record is shared by the one who asks and the one who carries the operation out, so it and its
// bytes live until both have let go of it.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "nsError.h"

/// The event of an operation, and what comes of it. Any thread. One operation at a time.
class nsOverlapped {
 public:
  // ---- For the one who asks

  /// The event is not signalled until an operation ends. [ResetEvent]
  void Reset() {
    const std::lock_guard lock(mLock);
    mSignalled = false;
  }

  /// Waits without limit for the event. False once it is closed. [WaitForSingleObject]
  bool Wait() {
    std::unique_lock lock(mLock);
    Until(lock, [this] { return mSignalled || mClosed; });
    return !mClosed;
  }

  /// What has come of the operation: its result, and bytes or events in *aCount.
  /// NS_ERROR_IN_PROGRESS when it goes on, and aWait is false; NS_ERROR_ABORT when the event is
  /// closed before it ends. [GetOverlappedResult]
  nsresult GetResult(bool aWait, uint32_t* aCount) {
    std::unique_lock lock(mLock);
    if (aWait) Until(lock, [this] { return !mPending || mClosed; });
    if (mPending) return mClosed ? NS_ERROR_ABORT : NS_ERROR_IN_PROGRESS;
    if (NS_SUCCEEDED(mResult)) *aCount = mCount;
    return mResult;
  }

  /// The bytes of a read that went on: never written into the buffer of a call that has returned.
  std::string TakeBytes() {
    const std::lock_guard lock(mLock);
    return std::exchange(mBytes, {});
  }

  /// Ends every wait, now and from now on. The operation itself is ended by its port.
  /// [CloseHandle]
  void Close() {
    const std::lock_guard lock(mLock);
    mClosed = true;
    mCarryOut = nullptr;
    mChanged.notify_all();
  }

  // ---- For the one who carries out

  /// An operation goes on from here. With aCarryOut it is carried out by the first who waits, on
  /// that thread: aCarryOut returns after it has called End.
  void Begin(std::function<void()> aCarryOut = nullptr) {
    const std::lock_guard lock(mLock);
    mSignalled = false;
    mPending = true;
    mCarryOut = std::move(aCarryOut);
  }

  /// The operation has ended, and the event is signalled. Nothing when it has ended already.
  void End(nsresult aResult, uint32_t aCount, std::string aBytes = {}) {
    const std::lock_guard lock(mLock);
    if (!mPending) return;
    mPending = false;
    mSignalled = true;
    mResult = aResult;
    mCount = aCount;
    mBytes = std::move(aBytes);
    mChanged.notify_all();
  }

 private:
  template <class Done>
  void Until(std::unique_lock<std::mutex>& aLock, Done aDone) {
    while (!aDone()) {
      if (const auto carryOut = std::exchange(mCarryOut, nullptr)) {
        aLock.unlock();
        carryOut();
        aLock.lock();
      } else {
        mChanged.wait(aLock);
      }
    }
  }

  std::mutex mLock;
  std::condition_variable mChanged;
  bool mSignalled = false;
  bool mPending = false;
  bool mClosed = false;
  std::function<void()> mCarryOut;
  nsresult mResult = NS_OK;
  uint32_t mCount = 0;
  std::string mBytes;
};
using nsOverlappedRef = std::shared_ptr<nsOverlapped>;

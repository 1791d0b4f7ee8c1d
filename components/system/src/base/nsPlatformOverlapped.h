// Overlapped operations: one that a call of a port begins, and that ends later.
//
//   const auto record = std::make_shared<nsOverlapped>();
//   rv = port->WriteFile(bytes, count, &written, record);
//   if (rv == NS_ERROR_IN_PROGRESS) rv = record->GetResult(false, &written);
//
// The record is shared by the one who asks and the one who carries the operation out, so it and its
// bytes live until both have let go of it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "nsError.h"
#include "nsLock.h"

/// The event of an operation, and what comes of it. Any thread. One operation at a time.
class nsOverlapped {
 public:
  // ---- For the one who asks

  /// The event is not signalled until an operation ends. [ResetEvent]
  void Reset() {
    const nsAutoLock lock(mLock);
    mSignalled = false;
  }

  /// Waits without limit for the event. False once it is closed. [WaitForSingleObject]
  bool Wait() {
    nsAutoLock lock(mLock);
    Until(lock, [this]() NS_REQUIRES(mLock) { return mSignalled || mClosed; });
    return !mClosed;
  }

  /// What has come of the operation: its result, and bytes or events in *aCount.
  /// NS_ERROR_IN_PROGRESS when it goes on, and aWait is false; NS_ERROR_ABORT when the event is
  /// closed before it ends. [GetOverlappedResult]
  nsresult GetResult(bool aWait, uint32_t* aCount) {
    nsAutoLock lock(mLock);
    if (aWait) Until(lock, [this]() NS_REQUIRES(mLock) { return !mPending || mClosed; });
    if (mPending) return mClosed ? NS_ERROR_ABORT : NS_ERROR_IN_PROGRESS;
    if (NS_SUCCEEDED(mResult)) *aCount = mCount;
    return mResult;
  }

  /// The bytes of a read that went on: never written into the buffer of a call that has returned.
  std::string TakeBytes() {
    const nsAutoLock lock(mLock);
    return std::exchange(mBytes, {});
  }

  /// Ends every wait, now and from now on. The operation itself is ended by its port.
  /// [CloseHandle]
  void Close() {
    const nsAutoLock lock(mLock);
    mClosed = true;
    mCarryOut = nullptr;
    mChanged.NotifyAll();
  }

  // ---- For the one who carries out

  /// An operation goes on from here. With aCarryOut it is carried out by the first who waits, on
  /// that thread: aCarryOut returns after it has called End.
  void Begin(std::function<void()> aCarryOut = nullptr) {
    const nsAutoLock lock(mLock);
    mSignalled = false;
    mPending = true;
    mCarryOut = std::move(aCarryOut);
  }

  /// The operation has ended, and the event is signalled. Nothing when it has ended already.
  void End(nsresult aResult, uint32_t aCount, std::string aBytes = {}) {
    const nsAutoLock lock(mLock);
    if (!mPending) return;
    mPending = false;
    mSignalled = true;
    mResult = aResult;
    mCount = aCount;
    mBytes = std::move(aBytes);
    mChanged.NotifyAll();
  }

 private:
  // aLock is of mLock, and held again at the end.
  template <class Done>
  void Until(nsAutoLock<nsMutex>& aLock, Done aDone) NS_REQUIRES(mLock) NS_NOT_CHECKED {
    while (!aDone()) {
      if (const auto carryOut = std::exchange(mCarryOut, nullptr)) {
        aLock.Unlock();
        carryOut();
        aLock.Lock();
      } else {
        mChanged.Wait(aLock);
      }
    }
  }

  nsMutex mLock;
  nsCondition mChanged;
  bool mSignalled NS_GUARDED_BY(mLock) = false;
  bool mPending NS_GUARDED_BY(mLock) = false;
  bool mClosed NS_GUARDED_BY(mLock) = false;
  std::function<void()> mCarryOut NS_GUARDED_BY(mLock);
  nsresult mResult NS_GUARDED_BY(mLock) = NS_OK;
  uint32_t mCount NS_GUARDED_BY(mLock) = 0;
  std::string mBytes NS_GUARDED_BY(mLock);
};
using nsOverlappedRef = std::shared_ptr<nsOverlapped>;

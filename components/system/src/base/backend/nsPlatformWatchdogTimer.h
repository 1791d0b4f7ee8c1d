// The state of a watchdog's timer, for backends: what is written by the thread that feeds it and
// read by the one that watches, without a lock.
#pragma once

#include <atomic>
#include <cstdint>

/// Times are in ms, on a clock that only goes forward, and stands while the machine sleeps.
class nsPlatformWatchdogTimer {
 public:
  /// The new timer's id; 0 when one runs. One thread starts and stops.
  uint32_t Start(int64_t aNow, uint32_t aDelay) {
    if (mId.load(std::memory_order_acquire) != 0) return 0;
    mDeadline.store(aNow + aDelay, std::memory_order_relaxed);
    if (++mLastId == 0) ++mLastId;
    mId.store(mLastId, std::memory_order_release);
    return mLastId;
  }

  /// False when that timer does not run.
  bool Stop(uint32_t aId) {
    return aId != 0 && mId.compare_exchange_strong(aId, 0, std::memory_order_acq_rel);
  }

  /// True once, when the timer is due. Whoever is told so calls the routine: from then on Stop
  /// fails. The id that is taken must be the one whose deadline was read, which a timer that is
  /// started in between has not.
  bool TakeExpired(int64_t aNow) {
    uint32_t id = mId.load(std::memory_order_acquire);
    return id != 0 && aNow >= mDeadline.load(std::memory_order_relaxed) &&
           mId.compare_exchange_strong(id, 0, std::memory_order_acq_rel);
  }

  /// From aNow to the time of the next look, at most aPeriod away: so long may the thread sleep
  /// without missing a timer that is started meanwhile by more than a period.
  int64_t UntilNextLook(int64_t aNow, int64_t aPeriod) const {
    if (mId.load(std::memory_order_acquire) == 0) return aPeriod;
    const int64_t left = mDeadline.load(std::memory_order_relaxed) - aNow;
    return left < 0 ? 0 : left < aPeriod ? left : aPeriod;
  }

 private:
  std::atomic<uint32_t> mId{0};
  std::atomic<int64_t> mDeadline{0};
  uint32_t mLastId = 0;
};

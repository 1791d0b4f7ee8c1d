// The time-outs of a read or a write, for backends whose system has others.
#pragma once

#include <algorithm>
#include <chrono>
#include <optional>

#include "nsPlatformComm.h"

/// Of one operation that waits; it begins when this is made.
class nsCommTimer {
 public:
  using Clock = std::chrono::steady_clock;
  using Milliseconds = std::chrono::milliseconds;

  static nsCommTimer ForRead(const nsCommTimeouts& aTimeouts, uint32_t aCount) {
    constexpr uint32_t kMax = nsCommTimeouts::kMaxDword;
    nsCommTimer timer;
    const uint32_t interval = aTimeouts.mReadIntervalTimeout;
    const uint32_t multiplier = aTimeouts.mReadTotalTimeoutMultiplier;
    const uint32_t constant = aTimeouts.mReadTotalTimeoutConstant;
    if (interval == kMax && multiplier == 0 && constant == 0) {
      timer.mTotal = Milliseconds(0);
    } else if (interval == kMax && multiplier == kMax && constant > 0 && constant < kMax) {
      timer.mTotal = Milliseconds(constant);
      timer.mEndsWithData = true;
    } else {
      timer.SetTotal(multiplier, constant, aCount);
      if (interval > 0 && interval < kMax) timer.mInterval = Milliseconds(interval);
    }
    return timer;
  }
  static nsCommTimer ForWrite(const nsCommTimeouts& aTimeouts, uint32_t aCount) {
    nsCommTimer timer;
    timer.SetTotal(aTimeouts.mWriteTotalTimeoutMultiplier, aTimeouts.mWriteTotalTimeoutConstant,
                   aCount);
    return timer;
  }

  /// Whether the operation may wait at all.
  bool MayWait() const { return mTotal != Milliseconds(0); }

  /// Some of the bytes have come, or gone. True when the operation has ended with them.
  bool Moved() {
    mLast = Clock::now();
    return mEndsWithData;
  }

  /// When the operation ends without a further byte; nothing: not before there is one.
  std::optional<Clock::time_point> Deadline() const {
    std::optional<Clock::time_point> deadline;
    if (mTotal) deadline = mBegin + *mTotal;
    if (mInterval && mLast) {
      const auto next = *mLast + *mInterval;
      deadline = deadline ? std::min(*deadline, next) : next;
    }
    return deadline;
  }

 private:
  void SetTotal(uint32_t aMultiplier, uint32_t aConstant, uint32_t aCount) {
    if (aMultiplier == 0 && aConstant == 0) return;
    mTotal = Milliseconds(uint64_t{aMultiplier} * aCount + aConstant);
  }

  Clock::time_point mBegin = Clock::now();
  std::optional<Clock::time_point> mLast;
  std::optional<Milliseconds> mTotal, mInterval;
  bool mEndsWithData = false;
};

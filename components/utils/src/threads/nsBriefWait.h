// A wait for what another thread is about to do, before one sleeps for it.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>

/// To put a thread to sleep and to wake it takes as long as some microseconds of work: where two
/// threads hand each other small pieces, it is most of what they cost. So one looks first, as long
/// as that has a prospect. It has little after a wait that took longer than a sleep costs: one
/// sleeps then, until a wait turns out to have been short. And it has none where what is waited for
/// came as soon as this thread slept, as it does when both are on one processor: the next waits are
/// slept for, twice as many each time. Of one thread at a time.
class nsBriefWait {
 public:
  /// Until aReady says so: asks it again and again for a while, then calls aSleep, which returns
  /// when it is so, or when the wait is given up.
  template <class Ready, class Sleep>
  void Until(Ready aReady, Sleep aSleep) {
    if (aReady()) return;
    const auto begin = Clock::now();
    const bool looks = mSleeps == 0;
    if (looks && Look(aReady, begin)) {
      mVain /= 2;
      return;
    }
    if (!looks) --mSleeps;
    aSleep();
    const bool isShort = Clock::now() - begin < kShort;
    if (isShort && looks && mLooksFor == kMost)
      mSleeps = mVain = std::min(mVain * 2 + 1, kMostVain);
    mLooksFor = isShort ? kMost : kLeast;
  }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::microseconds kLeast{4}, kMost{100}, kShort{150}, kBetween{2};
  static constexpr uint32_t kMostVain = 1023;

  template <class Ready>
  bool Look(Ready& aReady, Clock::time_point aBegin) {
    // Not at once: what both look at goes from one processor to the other each time, which holds up
    // the one that works, and it has done more at a time by then.
    auto now = aBegin;
    do {
      for (const auto next = now + kBetween; now < next; now = Clock::now()) Pause();
      if (aReady()) return true;
    } while (now - aBegin < mLooksFor);
    return false;
  }

  /// Lets what else runs on the core go first, for some cycles.
  static void Pause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
  }

  std::chrono::microseconds mLooksFor = kLeast;
  uint32_t mVain = 0;    // how many waits were slept for after the last look in vain
  uint32_t mSleeps = 0;  // how many of them are left
};

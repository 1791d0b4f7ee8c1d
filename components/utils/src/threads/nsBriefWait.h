// A wait for what another thread is about to do, before one sleeps for it.
#pragma once

#include <algorithm>
#include <cstdint>

/// To put a thread to sleep and to wake it takes as long as some microseconds of work: where two
/// threads hand each other small pieces, it is most of what they cost. Of one thread at a time.
class nsBriefWait {
 public:
  /// Asks aReady again and again, for some microseconds at most, and fewer after each time that
  /// it was in vain. What aReady said last.
  template <class Ready>
  bool Until(Ready aReady) {
    for (uint32_t look = 0; look < mLooks; ++look, Pause())
      if (aReady()) return mLooks = std::min(kMostLooks, mLooks * 2), true;
    mLooks = std::max(kLeastLooks, mLooks / 2);
    return aReady();
  }

 private:
  static constexpr uint32_t kLeastLooks = 16, kMostLooks = 256;

  /// Lets what else runs on the core go first, for some cycles.
  static void Pause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
  }

  uint32_t mLooks = kLeastLooks;
};

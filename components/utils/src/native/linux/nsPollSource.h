// Event sources that are descriptors.
#pragma once

#include <poll.h>

#include <algorithm>
#include <atomic>
#include <vector>

#include "nsEventFd.h"
#include "nsEventSource.h"

/// Wake, and a wait for descriptors that it ends.
class nsPollSource : public nsEventSource {
 public:
  nsPollSource() { (void)mWake.Open(); }
  nsPollSource(const nsPollSource&) = delete;
  nsPollSource& operator=(const nsPollSource&) = delete;

  void Wake() override {
    mIsWoken = true;
    mWake.Set();
  }

 protected:
  enum class Polled { eReady, eTimeIsUp, eWoken };

  /// Waits for an event of one of these, which then stands in its revents, for so many milliseconds
  /// (-1: without an end), or for Wake. Those below 0 are left out.
  Polled Poll(std::vector<pollfd>& aDescriptors, int aMilliseconds) {
    aDescriptors.push_back({mWake.get(), POLLIN, 0});
    // Without a descriptor to be woken by it looks from time to time.
    const int limit = mWake               ? aMilliseconds
                      : aMilliseconds < 0 ? kPatience
                                          : std::min(aMilliseconds, kPatience);
    const int count =
        mIsWoken ? 0 : poll(aDescriptors.data(), static_cast<nfds_t>(aDescriptors.size()), limit);
    aDescriptors.pop_back();
    if (mIsWoken.exchange(false)) {
      (void)mWake.Take();
      for (pollfd& descriptor : aDescriptors) descriptor.revents = 0;
      return Polled::eWoken;
    }
    return count > 0 ? Polled::eReady : Polled::eTimeIsUp;
  }

 private:
  static constexpr int kPatience = 200;

  nsEventFd mWake;
  std::atomic<bool> mIsWoken = false;
};

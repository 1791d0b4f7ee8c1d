// Event sources that are descriptors.
#pragma once

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <vector>

#include "nsEventSource.h"

/// Wake, and a wait for descriptors that it ends.
class nsPollSource : public nsEventSource {
 public:
  nsPollSource() = default;
  nsPollSource(const nsPollSource&) = delete;
  nsPollSource& operator=(const nsPollSource&) = delete;
  ~nsPollSource() override {
    if (mWake >= 0) close(mWake);
  }

  void Wake() override {
    mIsWoken = true;
    if (mWake >= 0) (void)eventfd_write(mWake, 1);
  }

 protected:
  enum class Polled { eReady, eTimeIsUp, eWoken };

  /// Waits for an event of one of these, which then stands in its revents, for so many milliseconds
  /// (-1: without an end), or for Wake. Those below 0 are left out.
  Polled Poll(std::vector<pollfd>& aDescriptors, int aMilliseconds) {
    aDescriptors.push_back({mWake, POLLIN, 0});
    // Without a descriptor to be woken by it looks from time to time.
    const int limit = mWake >= 0          ? aMilliseconds
                      : aMilliseconds < 0 ? kPatience
                                          : std::min(aMilliseconds, kPatience);
    const int count =
        mIsWoken ? 0 : poll(aDescriptors.data(), static_cast<nfds_t>(aDescriptors.size()), limit);
    aDescriptors.pop_back();
    if (mIsWoken.exchange(false)) {
      eventfd_t ignored;
      if (mWake >= 0) (void)eventfd_read(mWake, &ignored);
      for (pollfd& descriptor : aDescriptors) descriptor.revents = 0;
      return Polled::eWoken;
    }
    return count > 0 ? Polled::eReady : Polled::eTimeIsUp;
  }

 private:
  static constexpr int kPatience = 200;

  const int mWake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  std::atomic<bool> mIsWoken = false;
};

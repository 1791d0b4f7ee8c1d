// The owner of a file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

/// Closes its descriptor with itself. Below 0 there is none.
class nsUniqueFd {
 public:
  explicit nsUniqueFd(int aFd = -1) : mFd(aFd) {}
  nsUniqueFd(nsUniqueFd&& aOther) noexcept : mFd(aOther.release()) {}
  nsUniqueFd& operator=(nsUniqueFd aOther) noexcept {
    std::swap(mFd, aOther.mFd);
    return *this;
  }
  ~nsUniqueFd() { (void)Close(); }

  int get() const { return mFd; }
  explicit operator bool() const { return mFd >= 0; }
  /// The descriptor, which is the caller's from now on.
  int release() { return std::exchange(mFd, -1); }
  /// Closes it now. False, with errno, when what was written could not be kept; the descriptor is
  /// closed all the same. True when there is none.
  bool Close() { return mFd < 0 || close(release()) == 0; }

 private:
  int mFd;
};

// An event that a thread can wait for together with descriptors.
#pragma once

#include <sys/eventfd.h>

#include "nsErrno.h"
#include "nsUniqueFd.h"

/// Closed at first. Set and Take may be called from any thread once it is open; neither waits.
class nsEventFd {
 public:
  /// NS_ERROR_OUT_OF_MEMORY when the system gives no more descriptors. Open already, it becomes a
  /// new event, not set.
  nsresult Open() {
    nsUniqueFd fd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!fd) return NS_LastResult();
    mFd = std::move(fd);
    return NS_OK;
  }
  void Close() { (void)mFd.Close(); }

  /// Can be read (POLLIN) from Set to Take.
  int get() const { return mFd.get(); }
  explicit operator bool() const { return static_cast<bool>(mFd); }

  /// Sets it; again, it stays set. Also from a handler of a signal. Nothing while it is closed.
  void Set() const {
    // Fails only when the count is full, and then it is set.
    if (mFd) (void)eventfd_write(mFd.get(), 1);
  }
  /// Whether it was set; it no longer is.
  bool Take() const {
    eventfd_t count;
    return mFd && eventfd_read(mFd.get(), &count) == 0;
  }

 private:
  nsUniqueFd mFd;
};

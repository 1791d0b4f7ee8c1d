// Writing to what may be gone.
#pragma once

#include <signal.h>
#include <time.h>

#include <cerrno>

/// Writing to a socket or pipe whose other end is gone raises SIGPIPE, which would end a process
/// that has not thought of it. The signal goes to the thread that writes: it is held back there,
/// and taken away. Within another one on the same thread it costs nothing.
class nsPipeSignalHeld {
 public:
  nsPipeSignalHeld() : mIsInner(sIsHeld) {
    if (mIsInner) return;
    sIsHeld = true;
    sigemptyset(&mPipe);
    sigaddset(&mPipe, SIGPIPE);
    sigset_t pending;
    sigpending(&pending);
    mWasPending = sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &mPipe, &mBefore);
  }
  ~nsPipeSignalHeld() {
    if (mIsInner) return;
    sIsHeld = false;
    const timespec now{};
    while (!mWasPending && sigtimedwait(&mPipe, nullptr, &now) < 0 && errno == EINTR) {
    }
    pthread_sigmask(SIG_SETMASK, &mBefore, nullptr);
  }
  nsPipeSignalHeld(const nsPipeSignalHeld&) = delete;
  nsPipeSignalHeld& operator=(const nsPipeSignalHeld&) = delete;

 private:
  static inline thread_local bool sIsHeld = false;
  const bool mIsInner;
  sigset_t mPipe, mBefore;
  bool mWasPending;
};

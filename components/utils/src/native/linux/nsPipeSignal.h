// Writing to what may be gone.
#pragma once

#include <signal.h>
#include <time.h>

#include <cerrno>

/// Writing to a socket or pipe whose other end is gone raises SIGPIPE, which would end a process
/// that has not thought of it. The signal goes to the thread that writes: it is held back there,
/// and taken away.
class nsPipeSignalHeld {
 public:
  nsPipeSignalHeld() {
    sigemptyset(&mPipe);
    sigaddset(&mPipe, SIGPIPE);
    sigset_t pending;
    sigpending(&pending);
    mWasPending = sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &mPipe, &mBefore);
  }
  ~nsPipeSignalHeld() {
    const timespec now{};
    while (!mWasPending && sigtimedwait(&mPipe, nullptr, &now) < 0 && errno == EINTR) {
    }
    pthread_sigmask(SIG_SETMASK, &mBefore, nullptr);
  }
  nsPipeSignalHeld(const nsPipeSignalHeld&) = delete;
  nsPipeSignalHeld& operator=(const nsPipeSignalHeld&) = delete;

 private:
  sigset_t mPipe, mBefore;
  bool mWasPending;
};

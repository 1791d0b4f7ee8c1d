// System calls that fail for a moment only.
#pragma once

#include <sched.h>

#include <cerrno>

/// Whether a call that failed so may well do at the next try what it did not at this one: it was
/// interrupted, or it lacked descriptors, buffers or memory, which others give back.
constexpr bool NS_IsPassing(int aErrno) {
  return aErrno == EINTR || aErrno == EMFILE || aErrno == ENFILE || aErrno == ENOBUFS ||
         aErrno == ENOMEM;
}

/// Makes a system call, and makes it again while it answers aFailure for a reason that passes: a
/// few times only, and without waiting, since the main thread reads the machine too. errno is that
/// of the last try.
template <class Call>
auto NS_RetryPassing(Call aCall, decltype(aCall()) aFailure) {
  constexpr int kTries = 4;
  for (int tries = 1;; ++tries) {
    const auto result = aCall();
    if (result != aFailure || !NS_IsPassing(errno) || tries == kTries) return result;
    if (errno != EINTR) sched_yield();
  }
}
template <class Call>
auto NS_RetryPassing(Call aCall) {
  return NS_RetryPassing(aCall, decltype(aCall()){-1});
}

// Watching a file descriptor from an event loop: for signals, sockets of the kernel, pipes of other
// programs.
#pragma once

#include <functional>
#include <memory>

#include "nsCore.h"

class nsEventPump;
class nsIEventTarget;

#pragma GCC visibility push(default)

/// Calls a function on a thread's event loop whenever a descriptor can be read, or has failed or
/// was closed at the other end. Event loops wait for events alone, so each watch has a small thread
/// that waits for the descriptor.
class nsFdWatch {
 public:
  /// Starts to watch. The descriptor stays the caller's and must stay open until the watch is
  /// destroyed. The function should read until nothing is left: if something is, it is called
  /// again. It is not called again before it has returned. NS_ERROR_INVALID_ARG for a descriptor
  /// below 0, without a target or a function; NS_ERROR_OUT_OF_MEMORY when the system gives no more
  /// threads. Any thread.
  static nsresult Start(int aFd, nsIEventTarget* aTarget, std::function<void()> aReady,
                        std::unique_ptr<nsFdWatch>* aResult);
  /// Ends the watch. Destroyed on the target's thread, where it may be done from the function
  /// itself, nothing is called after this; on another one, a call that is under way may still be
  /// running.
  ~nsFdWatch();
  nsFdWatch(const nsFdWatch&) = delete;
  nsFdWatch& operator=(const nsFdWatch&) = delete;

 private:
  explicit nsFdWatch(std::unique_ptr<nsEventPump> aPump);
  std::unique_ptr<nsEventPump> mPump;
};

#pragma GCC visibility pop

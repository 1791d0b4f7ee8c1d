// The signals that ask the program to end.
#pragma once

#include <functional>
#include <memory>

/// Hears SIGINT, SIGTERM and SIGHUP from when it is made to its end, on a thread of its own,
/// instead of what they do otherwise. What they do is a function's on the main thread. A component
/// that never comes back keeps the main thread from that: ten seconds after the signal, or with
/// another one two seconds after the first or later, the process ends by it all the same. Main
/// thread.
class nsSignalWatch {
 public:
  /// Threads inherit that the signals are blocked, so this comes before the first of them.
  nsSignalWatch();
  nsSignalWatch(const nsSignalWatch&) = delete;
  nsSignalWatch& operator=(const nsSignalWatch&) = delete;
  ~nsSignalWatch();

  /// What a signal does from now on; at once, if one has come before. The host runs, until Reset.
  void Call(std::function<void(int aSignal)> aFunction);
  void Reset();
  /// The end has begun: a process that is still there after ten seconds, since something that it
  /// waits for does not end, ends with that status as it is. What it should have kept it has kept.
  void LimitEnd(int aStatus);

 private:
  struct State;
  const std::shared_ptr<State> mState;
};

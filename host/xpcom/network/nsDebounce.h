// Debouncing: one call for many events.
#pragma once

#include <functional>

#include "nsCOMPtr.h"
#include "nsITimer.h"

/// Calls a function once for all events of a burst: when none has come for a while, and at the
/// latest some time after the first, so that events that never end are told of nevertheless. An
/// event during the call begins the next burst. One thread, on whose event loop the call is made.
class nsDebounce {
 public:
  /// Times are in milliseconds.
  nsDebounce(uint32_t aQuiet, uint32_t aLongest, std::function<void()> aCall);
  /// Nothing is called after this.
  ~nsDebounce();
  nsDebounce(const nsDebounce&) = delete;
  nsDebounce& operator=(const nsDebounce&) = delete;

  /// What the host's timers say when they refuse: then no call is under way, and the next event
  /// begins a burst.
  nsresult OnEvent();

 private:
  nsresult WaitUntil(int64_t aTime);
  void OnTimer();

  const int64_t mQuiet, mLongest;  // microseconds, as all times here
  const std::function<void()> mCall;
  nsCOMPtr<nsITimer> mTimer;
  bool mPending = false;
  int64_t mLatest = 0;  // the end of the burst, come what may
  int64_t mLast = 0;    // the last event
};

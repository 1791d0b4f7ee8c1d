// The standard output, written with a way to end the wait for whoever reads it.
#pragma once

#include <atomic>
#include <span>

#include "nsEventFd.h"

class nsStreamWriter {
 public:
  nsresult Open() { return mStop.Open(); }
  /// All of it, however slowly it is read. NS_BASE_STREAM_CLOSED when nobody reads it any more,
  /// NS_ERROR_ABORT after Stop. One thread.
  nsresult Write(std::span<const char> aBytes);
  /// Ends the write that waits, and all to come. Any thread.
  void Stop() {
    mIsStopped = true;
    mStop.Set();
  }

 private:
  nsEventFd mStop;
  std::atomic<bool> mIsStopped = false;
  bool mCanTry = true;  // to write without a wait: the output knows of that
};

// A thread with a name, which the system may have none of.
#pragma once

#include <prthread.h>

#include <functional>
#include <utility>

#include "nsError.h"

/// Runs one function on a thread of its own. Not started at first. One thread at a time may call
/// it.
class nsNamedThread {
 public:
  nsNamedThread() = default;
  nsNamedThread(nsNamedThread&& aOther) noexcept
      : mThread(std::exchange(aOther.mThread, nullptr)) {}
  nsNamedThread& operator=(nsNamedThread aOther) noexcept {
    std::swap(mThread, aOther.mThread);
    return *this;
  }
  /// Waits for the end, which whoever destroys it has asked for before.
  ~nsNamedThread() { Join(); }

  /// aName is what debuggers and lists of threads show: up to 15 bytes, and lasting. The function,
  /// and what it holds, has gone when Join returns. NS_ERROR_OUT_OF_MEMORY when the system gives no
  /// more threads: the function is not called then. NS_ERROR_ALREADY_INITIALIZED from Start to
  /// Join.
  nsresult Start(const char* aName, std::function<void()> aMain);
  bool IsStarted() const { return mThread != nullptr; }
  /// Waits until the function has returned; it can be started again then. Nothing when it was not
  /// started. Not from the thread itself.
  void Join();

 private:
  PRThread* mThread = nullptr;
};

// setTimeout and setInterval.
#pragma once

#include <jsapi.h>

#include <cstdint>
#include <map>

#include "nsCOMPtr.h"
#include "nsITimer.h"

/// The timers of a runtime. Main thread.
class nsScriptTimers {
 public:
  /// Whether there is one of the application's, which keep it running; those of components do not.
  bool AreLive() const { return mLive > 0; }
  /// Nothing for a number that no timer has.
  void Clear(uint32_t aId);
  void ClearAll();

  /// setTimeout and setInterval, clearTimeout and clearInterval of script.
  template <bool Repeats>
  static bool Set(JSContext* cx, unsigned aArgc, JS::Value* aVp);
  static bool Clear(JSContext* cx, unsigned aArgc, JS::Value* aVp);

 private:
  struct Timer {
    nsCOMPtr<nsITimer> mTimer;
    bool mKeepsAlive;
  };
  std::map<uint32_t, Timer> mTimers;
  uint32_t mNext = 1;
  uint32_t mLive = 0;
};

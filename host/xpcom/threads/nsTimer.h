// Timers, "@mozilla.org/timer;1", and the thread that fires them.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <variant>

#include "nsCOMPtr.h"
#include "nsIEventTarget.h"
#include "nsIObserver.h"
#include "nsITimer.h"
#include "nsITimerCallback.h"
#include "nsImplements.h"
#include "nsLock.h"
#include "nsNamedThread.h"

class nsTimer;

/// The timers that are armed, in the order of their times, and the thread that sends them off. All
/// fields of all timers are guarded by its lock; no callback, dispatch or last release happens
/// under it.
class nsTimers {
 public:
  using Deadlines = std::multimap<int64_t, nsTimer*>;  // equal times keep the order of arming

  static nsTimers& get();
  ~nsTimers() { Shutdown(); }

  /// Timers can be armed from now on. Main thread.
  void Start();
  /// No timer fires any more, and none can be armed. What the armed ones would call is let go. Main
  /// thread.
  void Shutdown();

  int64_t Now();
  void UseVirtual(bool aVirtual);
  void Advance(uint32_t aMilliseconds);

 private:
  friend class nsTimer;
  /// A timer on its way to its thread. The timer may die meanwhile.
  struct Firing;

  int64_t NowLocked() const NS_REQUIRES(sMutex);
  /// False when the system gives no more threads.
  bool EnsureThread() NS_REQUIRES(sMutex);
  void Arm(nsTimer* aTimer, int64_t aDeadline) NS_REQUIRES(sMutex);
  void Disarm(nsTimer* aTimer) NS_REQUIRES(sMutex);
  /// Takes the first timer that is due at a time, which becomes the present one where time is
  /// virtual.
  bool TakeDue(int64_t aTime, Firing* aFiring) NS_REQUIRES(sMutex);
  void Main();

  static nsMutex sMutex;
  nsCondition mChanged;
  Deadlines mArmed NS_GUARDED_BY(sMutex);
  nsNamedThread mThread;  // runs since the first timer was armed
  bool mRunning NS_GUARDED_BY(sMutex) = false;
  bool mVirtual NS_GUARDED_BY(sMutex) = false;
  int64_t mVirtualNow NS_GUARDED_BY(sMutex) = 0;
  int64_t mOffset NS_GUARDED_BY(sMutex) = 0;  // of our clock to the system's, left by virtual time
};

/// One timer. Any thread may call it; the callback runs on the target, by default the thread that
/// made the timer.
/// - Init* arms it, and does so anew when it is armed: what was set before is forgotten, and a
///   firing already under way to the target does not call anything. NS_ERROR_INVALID_ARG for an
///   unknown type, NS_ERROR_NULL_POINTER without a callback, NS_ERROR_NOT_INITIALIZED while the
///   host has no threads, NS_ERROR_OUT_OF_MEMORY when the system has none left for the timers.
/// - Cancel may be called at any time, also from the callback, which then is the last. Once it has
///   returned on the target thread nothing is called any more.
/// - The last release cancels. The timer is alive during its callback.
/// - One shot: the callback is let go after it was called. Repeating with slack: the delay counts
///   from the end of the callback. Precise: it counts from the time due before, and firings pile up
///   behind a slow callback. Precise that can skip: so too, but times that have passed by the end
///   of the callback are left out.
/// - A repeating timer of delay 0 fires every millisecond. One whose target is gone fires no more.
class nsTimer final : public nsImplements<nsTimer, nsITimer> {
 public:
  static const nsClassInfoRecord kClassInfo;
  nsTimer();

  nsrefcnt AddRef() override;
  nsrefcnt Release() override;

  /// Calls Observe with the timer, "timer-callback" and null.
  nsresult Init(nsIObserver* aObserver, uint32_t aDelay, uint32_t aType) override;
  nsresult InitWithFuncCallback(nsTimerCallbackFunc aCallback, void* aClosure, uint32_t aDelay,
                                uint32_t aType) override;
  nsresult InitWithCallback(nsITimerCallback* aCallback, uint32_t aDelay, uint32_t aType) override;
  nsresult Cancel() override;
  nsresult GetDelay(uint32_t* aDelay) override;
  /// An armed timer is armed anew, counting from now; in a callback it holds for the next time.
  /// NS_ERROR_NOT_INITIALIZED for a one-shot timer without a callback, which means: not
  /// initialised, or fired.
  nsresult SetDelay(uint32_t aDelay) override;
  nsresult GetType(uint32_t* aType) override;
  nsresult SetType(uint32_t aType) override;
  nsresult GetClosure(void** aClosure) override;
  /// Null unless set by InitWithCallback.
  nsresult GetCallback(nsITimerCallback** aCallback) override;
  nsresult GetTarget(nsIEventTarget** aTarget) override;
  /// Null is the calling thread. NS_ERROR_ALREADY_INITIALIZED between Init and the last callback.
  nsresult SetTarget(nsIEventTarget* aTarget) override;

 private:
  friend class nsTimers;
  using Callback = std::variant<std::monostate, nsCOMPtr<nsIObserver>, nsCOMPtr<nsITimerCallback>,
                                nsTimerCallbackFunc>;
  /// Outlives the timer: a firing that comes late finds null.
  struct Link {
    nsTimer* mTimer NS_GUARDED_BY(nsTimers::sMutex);
  };

  ~nsTimer() override;
  nsresult InitCommon(Callback aCallback, void* aClosure, uint32_t aDelay, uint32_t aType);
  /// Null when the last reference has gone, though the destructor has not come to the lock yet.
  nsCOMPtr<nsTimer> StrongIfAlive();
  void Fire(uint32_t aGeneration);
  void Call(const Callback& aCallback, void* aClosure);
  int64_t DelayTime() const NS_REQUIRES(nsTimers::sMutex);

  std::atomic<nsrefcnt> mCount{0};
  const std::shared_ptr<Link> mLink;
  nsCOMPtr<nsIEventTarget> mTarget NS_GUARDED_BY(nsTimers::sMutex);
  Callback mCallback NS_GUARDED_BY(nsTimers::sMutex);
  void* mClosure NS_GUARDED_BY(nsTimers::sMutex) = nullptr;
  uint32_t mDelay NS_GUARDED_BY(nsTimers::sMutex) = 0;
  uint32_t mType NS_GUARDED_BY(nsTimers::sMutex) = TYPE_ONE_SHOT;
  // Counts Init and Cancel: a firing of an earlier one calls nothing.
  uint32_t mGeneration NS_GUARDED_BY(nsTimers::sMutex) = 0;
  int64_t mDue NS_GUARDED_BY(nsTimers::sMutex) = 0;  // of the last firing
  bool mIsArmed NS_GUARDED_BY(nsTimers::sMutex) = false;
  nsTimers::Deadlines::iterator mPlace NS_GUARDED_BY(nsTimers::sMutex);  // while armed
};

#include "nsTimer.h"

#include <algorithm>
#include <chrono>

#include "nsHostTime.h"
#include "nsThreadManager.h"

int64_t NS_MonotonicNow() { return nsTimers::get().Now(); }
void NS_UseVirtualTime(bool aVirtual) { nsTimers::get().UseVirtual(aVirtual); }
void NS_AdvanceTime(uint32_t aMilliseconds) { nsTimers::get().Advance(aMilliseconds); }

namespace {

constexpr int64_t kMicrosecondsPerMillisecond = 1000;

int64_t SystemNow() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

}  // namespace

struct nsTimers::Firing {
  std::shared_ptr<nsTimer::Link> mLink;
  uint32_t mGeneration;
  nsCOMPtr<nsIEventTarget> mTarget;

  /// A target that is gone takes nothing: the timer has then fired for the last time, and lets go
  /// of its callback, which may hold the timer.
  void Send(uint32_t aFlags) {
    const auto event = NS_NewRunnable([link = mLink, generation = mGeneration] {
      nsCOMPtr<nsTimer> timer;
      {
        const nsAutoLock lock(nsTimers::sMutex);
        if (link->mTimer) timer = link->mTimer->StrongIfAlive();
      }
      if (timer) timer->Fire(generation);
    });
    if (NS_SUCCEEDED(mTarget->Dispatch(event.get(), aFlags))) return;
    nsTimer::Callback dropped;
    const nsAutoLock lock(nsTimers::sMutex);
    if (!mLink->mTimer || mLink->mTimer->mGeneration != mGeneration) return;
    nsTimers::get().Disarm(mLink->mTimer);
    dropped.swap(mLink->mTimer->mCallback);
  }
};

nsMutex nsTimers::sMutex;

nsTimers& nsTimers::get() {
  static nsTimers sTimers;
  return sTimers;
}

void nsTimers::Start() {
  const nsAutoLock lock(sMutex);
  mRunning = true;
}

void nsTimers::Shutdown() {
  std::vector<nsTimer::Callback> dropped;
  {
    const nsAutoLock lock(sMutex);
    mRunning = false;
    while (!mArmed.empty()) {
      nsTimer* const timer = mArmed.begin()->second;
      dropped.push_back(std::exchange(timer->mCallback, {}));
      Disarm(timer);
    }
    mChanged.NotifyOne();
  }
  mThread.Join();
}

int64_t nsTimers::NowLocked() const { return mVirtual ? mVirtualNow : SystemNow() + mOffset; }

int64_t nsTimers::Now() {
  const nsAutoLock lock(sMutex);
  return NowLocked();
}

void nsTimers::UseVirtual(bool aVirtual) {
  const nsAutoLock lock(sMutex);
  if (aVirtual == mVirtual) return;
  if (aVirtual)
    mVirtualNow = NowLocked();
  else
    mOffset = mVirtualNow - SystemNow();
  mVirtual = aVirtual;
  mChanged.NotifyOne();
}

void nsTimers::Advance(uint32_t aMilliseconds) {
  const auto self = nsThread::CurrentOrNew();
  int64_t end;
  {
    const nsAutoLock lock(sMutex);
    if (!mVirtual) return;
    end = mVirtualNow + aMilliseconds * kMicrosecondsPerMillisecond;
  }
  while (true) {
    self->ProcessPending();
    Firing firing;
    {
      const nsAutoLock lock(sMutex);
      if (!TakeDue(end, &firing)) {
        mVirtualNow = end;
        break;
      }
    }
    firing.Send(nsIEventTarget::DISPATCH_SYNC);
  }
  self->ProcessPending();
}

bool nsTimers::EnsureThread() {
  return mThread.IsStarted() || NS_SUCCEEDED(mThread.Start("Timer", [this] { Main(); }));
}

void nsTimers::Arm(nsTimer* aTimer, int64_t aDeadline) {
  Disarm(aTimer);
  aTimer->mPlace = mArmed.emplace(aDeadline, aTimer);
  aTimer->mIsArmed = true;
  if (aTimer->mPlace == mArmed.begin()) mChanged.NotifyOne();
}

void nsTimers::Disarm(nsTimer* aTimer) {
  if (!aTimer->mIsArmed) return;
  mArmed.erase(aTimer->mPlace);
  aTimer->mIsArmed = false;
}

bool nsTimers::TakeDue(int64_t aTime, Firing* aFiring) {
  if (mArmed.empty() || mArmed.begin()->first > aTime) return false;
  const auto [due, timer] = *mArmed.begin();
  if (mVirtual) mVirtualNow = std::max(mVirtualNow, due);
  Disarm(timer);
  timer->mDue = due;
  if (timer->mType == nsITimer::TYPE_REPEATING_PRECISE) Arm(timer, due + timer->DelayTime());
  *aFiring = {timer->mLink, timer->mGeneration, timer->mTarget};
  return true;
}

void nsTimers::Main() {
  nsAutoLock lock(sMutex);
  while (mRunning) {
    if (mVirtual || mArmed.empty()) {
      mChanged.Wait(lock);
      continue;
    }
    const int64_t now = NowLocked();
    const int64_t wait = mArmed.begin()->first - now;
    if (wait > 0) {
      mChanged.WaitFor(lock, std::chrono::microseconds(wait));
      continue;
    }
    Firing firing;
    (void)TakeDue(now, &firing);
    lock.Unlock();
    firing.Send(nsIEventTarget::DISPATCH_NORMAL);
    firing = {};
    lock.Lock();
  }
}

const nsClassInfoRecord nsTimer::kClassInfo = {NS_ClassInterfaces<nsITimer>, nullptr,
                                               nsIClassInfo::THREADSAFE,
                                               "5ff24248-1dd2-11b2-8427-fbab44f29bc8"_iid};

nsTimer::nsTimer() : mLink(std::make_shared<Link>(Link{this})), mTarget(nsThread::CurrentOrNew()) {}

nsTimer::~nsTimer() {
  const nsAutoLock lock(nsTimers::sMutex);
  nsTimers::get().Disarm(this);
  mLink->mTimer = nullptr;
}

// Own counting, since a firing must be able to tell a timer that is just dying from one that is
// alive.
nsrefcnt nsTimer::AddRef() { return mCount.fetch_add(1, std::memory_order_relaxed) + 1; }

nsrefcnt nsTimer::Release() {
  const nsrefcnt count = mCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
  if (count == 0) delete this;
  return count;
}

nsCOMPtr<nsTimer> nsTimer::StrongIfAlive() {
  nsrefcnt count = mCount.load(std::memory_order_relaxed);
  while (count != 0) {
    if (mCount.compare_exchange_weak(count, count + 1, std::memory_order_acq_rel)) {
      nsCOMPtr<nsTimer> strong;
      *strong.getter_AddRefs() = this;
      return strong;
    }
  }
  return nullptr;
}

nsresult nsTimer::InitCommon(Callback aCallback, void* aClosure, uint32_t aDelay, uint32_t aType) {
  if (aType > TYPE_REPEATING_PRECISE_CAN_SKIP) return NS_ERROR_INVALID_ARG;
  nsTimers& timers = nsTimers::get();
  const nsAutoLock lock(nsTimers::sMutex);  // aCallback, with what was set before, dies after it
  if (!timers.mRunning || !mTarget) return NS_ERROR_NOT_INITIALIZED;
  if (!timers.EnsureThread()) return NS_ERROR_OUT_OF_MEMORY;
  mCallback.swap(aCallback);
  mClosure = aClosure;
  mDelay = aDelay;
  mType = aType;
  ++mGeneration;
  timers.Arm(this, timers.NowLocked() + aDelay * kMicrosecondsPerMillisecond);
  return NS_OK;
}

nsresult nsTimer::Init(nsIObserver* aObserver, uint32_t aDelay, uint32_t aType) {
  if (!aObserver) return NS_ERROR_NULL_POINTER;
  return InitCommon(nsCOMPtr(aObserver), nullptr, aDelay, aType);
}

nsresult nsTimer::InitWithFuncCallback(nsTimerCallbackFunc aCallback, void* aClosure,
                                       uint32_t aDelay, uint32_t aType) {
  if (!aCallback) return NS_ERROR_NULL_POINTER;
  return InitCommon(aCallback, aClosure, aDelay, aType);
}

nsresult nsTimer::InitWithCallback(nsITimerCallback* aCallback, uint32_t aDelay, uint32_t aType) {
  if (!aCallback) return NS_ERROR_NULL_POINTER;
  return InitCommon(nsCOMPtr(aCallback), nullptr, aDelay, aType);
}

nsresult nsTimer::Cancel() {
  Callback dropped;
  const nsAutoLock lock(nsTimers::sMutex);
  nsTimers::get().Disarm(this);
  ++mGeneration;
  mCallback.swap(dropped);
  return NS_OK;
}

int64_t nsTimer::DelayTime() const {
  return std::max(mDelay, uint32_t{1}) * kMicrosecondsPerMillisecond;
}

void nsTimer::Fire(uint32_t aGeneration) {
  nsTimers& timers = nsTimers::get();
  Callback callback;
  void* closure;
  {
    const nsAutoLock lock(nsTimers::sMutex);
    if (mGeneration != aGeneration) return;
    callback = mCallback;
    closure = mClosure;
  }
  Call(callback, closure);

  Callback dropped;
  const nsAutoLock lock(nsTimers::sMutex);
  if (mGeneration != aGeneration || !timers.mRunning) return;
  if (mType == TYPE_ONE_SHOT) {
    mCallback.swap(dropped);
  } else if (!mIsArmed) {
    const int64_t now = timers.NowLocked();
    int64_t next = mDue + DelayTime();
    if (mType == TYPE_REPEATING_SLACK) next = now + DelayTime();
    if (mType == TYPE_REPEATING_PRECISE_CAN_SKIP && next <= now)
      next += ((now - next) / DelayTime() + 1) * DelayTime();
    timers.Arm(this, next);
  }
}

void nsTimer::Call(const Callback& aCallback, void* aClosure) {
  if (const auto* observer = std::get_if<nsCOMPtr<nsIObserver>>(&aCallback))
    (void)(*observer)->Observe(this, "timer-callback", nullptr);
  else if (const auto* callback = std::get_if<nsCOMPtr<nsITimerCallback>>(&aCallback))
    (void)(*callback)->Notify(this);
  else if (const auto* function = std::get_if<nsTimerCallbackFunc>(&aCallback))
    (*function)(this, aClosure);
}

nsresult nsTimer::GetDelay(uint32_t* aDelay) {
  if (!aDelay) return NS_ERROR_NULL_POINTER;
  const nsAutoLock lock(nsTimers::sMutex);
  *aDelay = mDelay;
  return NS_OK;
}

nsresult nsTimer::SetDelay(uint32_t aDelay) {
  nsTimers& timers = nsTimers::get();
  const nsAutoLock lock(nsTimers::sMutex);
  if (mType == TYPE_ONE_SHOT && std::holds_alternative<std::monostate>(mCallback))
    return NS_ERROR_NOT_INITIALIZED;
  mDelay = aDelay;
  if (mIsArmed) timers.Arm(this, timers.NowLocked() + aDelay * kMicrosecondsPerMillisecond);
  return NS_OK;
}

nsresult nsTimer::GetType(uint32_t* aType) {
  if (!aType) return NS_ERROR_NULL_POINTER;
  const nsAutoLock lock(nsTimers::sMutex);
  *aType = mType;
  return NS_OK;
}

nsresult nsTimer::SetType(uint32_t aType) {
  if (aType > TYPE_REPEATING_PRECISE_CAN_SKIP) return NS_ERROR_INVALID_ARG;
  const nsAutoLock lock(nsTimers::sMutex);
  mType = aType;
  return NS_OK;
}

nsresult nsTimer::GetClosure(void** aClosure) {
  if (!aClosure) return NS_ERROR_NULL_POINTER;
  const nsAutoLock lock(nsTimers::sMutex);
  *aClosure = mClosure;
  return NS_OK;
}

nsresult nsTimer::GetCallback(nsITimerCallback** aCallback) {
  if (!aCallback) return NS_ERROR_NULL_POINTER;
  const nsAutoLock lock(nsTimers::sMutex);
  const auto* callback = std::get_if<nsCOMPtr<nsITimerCallback>>(&mCallback);
  (callback ? nsCOMPtr(*callback) : nullptr).forget(aCallback);
  return NS_OK;
}

nsresult nsTimer::GetTarget(nsIEventTarget** aTarget) {
  if (!aTarget) return NS_ERROR_NULL_POINTER;
  const nsAutoLock lock(nsTimers::sMutex);
  nsCOMPtr(mTarget).forget(aTarget);
  return NS_OK;
}

nsresult nsTimer::SetTarget(nsIEventTarget* aTarget) {
  nsCOMPtr<nsIEventTarget> target = aTarget;
  if (!target) target = nsThread::CurrentOrNew();
  const nsAutoLock lock(nsTimers::sMutex);
  if (!std::holds_alternative<std::monostate>(mCallback)) return NS_ERROR_ALREADY_INITIALIZED;
  mTarget.swap(target);
  return NS_OK;
}

#include "nsThread.h"

#include <prthread.h>

#include <algorithm>
#include <chrono>

#include "nsProcessor.h"
#include "nsThreadManager.h"

namespace {

// Threads that call each other back and forth would sleep and be woken for each of the calls, which
// takes tens of microseconds where the processor that one wakes up on has been idle.
constexpr auto kLookTime = std::chrono::microseconds(25);

}  // namespace

bool nsEventQueue::Put(nsIRunnable* aEvent) {
  {
    const nsAutoLock lock(mMutex);
    if (mClosed) return false;
    mEvents.emplace_back(aEvent);
    mChanges.fetch_add(1, std::memory_order_release);
  }
  mChanged.NotifyOne();
  return true;
}

nsCOMPtr<nsIRunnable> nsEventQueue::Take(bool aMayWait, const bool* aUntil, bool aIsSoon) {
  nsAutoLock lock(mMutex);
  if (aMayWait) {
    const auto isReady = [&]() NS_REQUIRES(mMutex) {
      return !mEvents.empty() || (aUntil ? *aUntil : mClosed);
    };
    if (aIsSoon && !isReady()) {
      const uint32_t seen = mChanges.load(std::memory_order_relaxed);
      lock.Unlock();
      const auto end = std::chrono::steady_clock::now() + kLookTime;
      while (mChanges.load(std::memory_order_acquire) == seen &&
             std::chrono::steady_clock::now() < end) {
      }
      lock.Lock();
    }
    mChanged.Wait(lock, isReady);
  }
  if (mEvents.empty() || (aUntil && *aUntil)) return nullptr;
  auto event = std::move(mEvents.front());
  mEvents.pop_front();
  return event;
}

void nsEventQueue::Wake(bool* aFlag) {
  {
    // Within the lock: the flag may be gone as soon as its owner has seen it. The queue is held by
    // who calls, so that the owner is woken when it can go on.
    const nsAutoLock lock(mMutex);
    *aFlag = true;
    mChanges.fetch_add(1, std::memory_order_release);
  }
  mChanged.NotifyOne();
}

bool nsEventQueue::IsSet(const bool* aFlag) {
  const nsAutoLock lock(mMutex);
  return *aFlag;
}

bool nsEventQueue::HasEvents() {
  const nsAutoLock lock(mMutex);
  return !mEvents.empty();
}

bool nsEventQueue::CloseIfEmpty() {
  const nsAutoLock lock(mMutex);
  if (!mEvents.empty()) return false;
  mClosed = true;
  return true;
}

void nsEventQueue::Close() {
  std::deque<nsCOMPtr<nsIRunnable>> dropped;  // dies after the lock: destructors may dispatch
  const nsAutoLock lock(mMutex);
  mClosed = true;
  dropped.swap(mEvents);
}

namespace {

// Plain values, so that they can be asked while the thread's objects are already being destroyed.
thread_local nsThread* tCurrent = nullptr;
thread_local bool tEnded = false;

/// Runs an event for a thread that waits for the end of it.
class SyncEvent final : public nsImplements<SyncEvent, nsIRunnable> {
 public:
  SyncEvent(nsIRunnable* aEvent, nsThread* aCaller, bool* aDone)
      : mEvent(aEvent), mCaller(aCaller), mDone(aDone) {}
  nsresult Run() override {
    (void)mEvent->Run();
    if (nsThread* const thread = nsThread::Current()) thread->OnRunFor(mProcessor);
    Finish();
    return NS_OK;
  }

 private:
  // A queue that drops the event unrun must not leave the caller waiting.
  ~SyncEvent() override { Finish(); }
  void Finish() {
    mEvent = nullptr;
    if (bool* done = std::exchange(mDone, nullptr)) mCaller->Wake(done);
  }

  nsCOMPtr<nsIRunnable> mEvent;
  nsCOMPtr<nsThread> mCaller;
  bool* mDone;
  const int mProcessor = NS_CurrentProcessor();
};

class FunctionEvent final : public nsImplements<FunctionEvent, nsIRunnable> {
 public:
  explicit FunctionEvent(std::function<void()> aFunction) : mFunction(std::move(aFunction)) {}
  nsresult Run() override {
    mFunction();
    return NS_OK;
  }

 private:
  ~FunctionEvent() override = default;
  std::function<void()> mFunction;
};

}  // namespace

nsresult NS_DispatchSync(const std::function<nsresult(nsIRunnable*)>& aPut, nsIRunnable* aEvent,
                         bool aIsSoon) {
  const auto caller = nsThread::CurrentOrNew();
  if (!caller) return NS_ERROR_UNEXPECTED;
  bool done = false;
  const nsresult rv = aPut(MakeRefCounted<SyncEvent>(aEvent, caller.get(), &done).get());
  if (NS_FAILED(rv)) return rv;
  caller->RunUntil(&done, aIsSoon);
  return NS_OK;
}

nsCOMPtr<nsIRunnable> NS_NewRunnable(std::function<void()> aFunction) {
  return MakeRefCounted<FunctionEvent>(std::move(aFunction));
}

/// Keeps a thread's object as long as the thread lives. A thread that ends takes no events any
/// more, whoever still holds its object.
struct nsThread::Holder {
  ~Holder() {
    if (mThread) mThread->mQueue.Close();
    tCurrent = nullptr;
    tEnded = true;
  }
  static Holder& OfThisThread() {
    static thread_local Holder sHolder;
    return sHolder;
  }
  nsCOMPtr<nsThread> mThread;
};

const nsClassInfoRecord nsThread::kClassInfo = {NS_ClassInterfaces<nsIThread>, nullptr,
                                                nsIClassInfo::THREADSAFE,
                                                "d1a7b1de-9a3c-4a8d-8e41-2f7c6d4f9b10"_iid};

nsThread* nsThread::Current() { return tCurrent; }

nsCOMPtr<nsThread> nsThread::CurrentOrNew() {
  if (!tCurrent && !tEnded) MakeRefCounted<nsThread>(Kind::eForeign)->Adopt();
  return tCurrent;
}

void nsThread::Adopt() {
  mPRThread = PR_GetCurrentThread();
  Holder::OfThisThread().mThread = this;
  tCurrent = this;
}

nsresult nsThread::Start(uint32_t aStackSize) {
  AddRef();  // Main takes it over
  if (!PR_CreateThread(PR_USER_THREAD, Main, this, PR_PRIORITY_NORMAL, PR_GLOBAL_THREAD,
                       PR_JOINABLE_THREAD, aStackSize)) {
    Release();
    return NS_ERROR_OUT_OF_MEMORY;
  }
  nsAutoLock lock(mStartMutex);
  mStarted.Wait(lock, [this]() { return mPRThread != nullptr; });
  return NS_OK;
}

void nsThread::Main(void* aSelf) {
  auto* self = static_cast<nsThread*>(aSelf);
  {
    const nsAutoLock lock(self->mStartMutex);
    self->Adopt();
    self->mStarted.NotifyOne();
  }
  self->Release();  // the holder has its own
  while (!self->mStopping) (void)self->ProcessOne(true, nullptr);
  self->Finish();
  self->mShutdownCaller->Wake(self->mShutdownDone);
}

void nsThread::ProcessPending() {
  while (ProcessOne(false, nullptr)) {
  }
}

void nsThread::Finish() {
  do ProcessPending();
  while (!mQueue.CloseIfEmpty());
  mObservers.clear();
  (void)SetObserver(nullptr);
}

void nsThread::RunUntil(const bool* aFlag, bool aIsSoon) {
  while (!mQueue.IsSet(aFlag)) (void)ProcessOne(true, aFlag, aIsSoon);
}

void nsThread::OnRunFor(int aProcessor) { mIsMoreDueSoon = NS_CurrentProcessor() != aProcessor; }

bool nsThread::ProcessOne(bool aMayWait, const bool* aUntil, bool aIsSoon) {
  const bool mayWait = aMayWait && !(mStopping && !aUntil);
  const bool isSoon = std::exchange(mIsMoreDueSoon, false) || aIsSoon;
  // Copies: an observer may take itself, or others, off the list.
  const auto observer = Observer();
  const auto before = mObservers;
  if (observer) (void)observer->OnProcessNextEvent(this, mayWait, mDepth);
  for (const auto& each : before) (void)each->OnProcessNextEvent(this, mayWait, mDepth);

  ++mDepth;
  auto event = mQueue.Take(mayWait, aUntil, isSoon);
  mProcessor.store(NS_CurrentProcessor(), std::memory_order_relaxed);
  const bool ran = static_cast<bool>(event);
  if (ran) (void)event->Run();
  event = nullptr;  // what it holds is let go on this thread, before the observers hear of the end
  --mDepth;

  const auto after = mObservers;
  for (const auto& each : after) (void)each->AfterProcessNextEvent(this, mDepth);
  if (observer) (void)observer->AfterProcessNextEvent(this, mDepth);
  return ran;
}

nsresult nsThread::Put(nsIRunnable* aEvent) {
  if (!mQueue.Put(aEvent)) return NS_ERROR_UNEXPECTED;
  if (const auto observer = Observer()) (void)observer->OnDispatchedEvent(this);
  return NS_OK;
}

nsresult nsThread::Dispatch(nsIRunnable* aEvent, uint32_t aFlags) {
  if (!aEvent) return NS_ERROR_NULL_POINTER;
  if (aFlags == DISPATCH_NORMAL) return Put(aEvent);
  if (aFlags != DISPATCH_SYNC) return NS_ERROR_INVALID_ARG;
  if (!IsCurrent()) {
    // On the same processor it goes on when the caller sleeps only.
    const bool isElsewhere = mProcessor.load(std::memory_order_relaxed) != NS_CurrentProcessor();
    return NS_DispatchSync([this](nsIRunnable* aSync) { return Put(aSync); }, aEvent, isElsewhere);
  }
  (void)aEvent->Run();
  return NS_OK;
}

nsresult nsThread::IsOnCurrentThread(bool* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  *aResult = IsCurrent();
  return NS_OK;
}

nsresult nsThread::GetPRThread(PRThread** aPRThread) {
  if (!aPRThread) return NS_ERROR_NULL_POINTER;
  *aPRThread = mPRThread;
  return NS_OK;
}

nsresult nsThread::Shutdown() {
  const auto caller = CurrentOrNew();
  if (mKind != Kind::eMade || !caller || caller.get() == this || mShutdownAsked.exchange(true))
    return NS_ERROR_UNEXPECTED;
  bool done = false;
  (void)Put(NS_NewRunnable([this, caller, &done] {
              mShutdownCaller = caller;
              mShutdownDone = &done;
              mStopping = true;
            }).get());
  caller->RunUntil(&done);
  PR_JoinThread(mPRThread);
  mShutdownCaller = nullptr;
  nsThreadManager::get().Forget(this);
  return NS_OK;
}

nsresult nsThread::HasPendingEvents(bool* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  if (!IsCurrent()) return NS_ERROR_NOT_SAME_THREAD;
  *aResult = mQueue.HasEvents();
  return NS_OK;
}

nsresult nsThread::ProcessNextEvent(bool aMayWait, bool* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  if (!IsCurrent()) return NS_ERROR_NOT_SAME_THREAD;
  *aResult = ProcessOne(aMayWait, nullptr);
  return NS_OK;
}

nsCOMPtr<nsIThreadObserver> nsThread::Observer() {
  const nsAutoLock lock(mObserverMutex);
  return mObserver;
}

nsresult nsThread::GetObserver(nsIThreadObserver** aObserver) {
  if (!aObserver) return NS_ERROR_NULL_POINTER;
  Observer().forget(aObserver);
  return NS_OK;
}

nsresult nsThread::SetObserver(nsIThreadObserver* aObserver) {
  nsCOMPtr<nsIThreadObserver> observer = aObserver;  // the old one dies after the lock
  const nsAutoLock lock(mObserverMutex);
  mObserver.swap(observer);
  return NS_OK;
}

nsresult nsThread::GetRecursionDepth(uint32_t* aRecursionDepth) {
  if (!aRecursionDepth) return NS_ERROR_NULL_POINTER;
  if (!IsCurrent()) return NS_ERROR_NOT_SAME_THREAD;
  *aRecursionDepth = mDepth;
  return NS_OK;
}

nsresult nsThread::AddObserver(nsIThreadObserver* aObserver) {
  if (!aObserver) return NS_ERROR_NULL_POINTER;
  if (!IsCurrent()) return NS_ERROR_NOT_SAME_THREAD;
  mObservers.emplace_back(aObserver);
  return NS_OK;
}

nsresult nsThread::RemoveObserver(nsIThreadObserver* aObserver) {
  if (!IsCurrent()) return NS_ERROR_NOT_SAME_THREAD;
  const auto found = std::find(mObservers.begin(), mObservers.end(), aObserver);
  if (found == mObservers.end()) return NS_ERROR_INVALID_ARG;
  mObservers.erase(found);
  return NS_OK;
}

// A thread with an event queue, and the queue of one.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <vector>

#include "nsCOMPtr.h"
#include "nsIRunnable.h"
#include "nsIThreadInternal.h"
#include "nsIThreadObserver.h"
#include "nsImplements.h"
#include "nsLock.h"

/// First in, first out. Many put, the owner takes.
class nsEventQueue {
 public:
  /// False, and nothing is queued, once the queue is closed.
  bool Put(nsIRunnable* aEvent);
  /// The oldest event; null when there is none. With aMayWait it first waits until there is one,
  /// until *aUntil is true (set by Wake, may be null) or until the queue is closed. With aIsSoon
  /// it looks for a moment before it sleeps: to be woken takes longer than what is waited for.
  nsCOMPtr<nsIRunnable> Take(bool aMayWait, const bool* aUntil, bool aIsSoon);
  /// Sets *aFlag, which Take or IsSet of the owner may be looking at.
  void Wake(bool* aFlag);
  bool IsSet(const bool* aFlag);
  bool HasEvents();
  /// Refuses further events, if none is queued. False if there is one.
  bool CloseIfEmpty();
  /// Refuses further events and drops what is queued, unrun.
  void Close();

 private:
  nsMutex mMutex;
  nsCondition mChanged;
  std::deque<nsCOMPtr<nsIRunnable>> mEvents NS_GUARDED_BY(mMutex);
  bool mClosed NS_GUARDED_BY(mMutex) = false;
  /// Rises with each change, within the lock; who looks for one does so without it.
  std::atomic<uint32_t> mChanges{0};
};

/// One for the main thread, one for each thread that the thread manager made, and one for each
/// other thread that has asked for its own. Dispatch may be called from any thread; the rest as
/// each says.
class nsThread final : public nsImplements<nsThread, nsIThreadInternal> {
 public:
  static const nsClassInfoRecord kClassInfo;

  enum class Kind { eMain, eMade, eForeign };
  explicit nsThread(Kind aKind) : mKind(aKind) {}

  /// Starts the thread of an eMade one. A stack size of 0 is the system's.
  nsresult Start(uint32_t aStackSize);
  /// Makes this the calling thread's.
  void Adopt();
  /// The calling thread's; null when it has none yet.
  static nsThread* Current();
  /// Makes one for a calling thread that has none. Null only when the thread is ending.
  static nsCOMPtr<nsThread> CurrentOrNew();
  /// Runs what is queued, what that queues, and so on. On this thread.
  void ProcessPending();
  /// The same; then refuses everything.
  void Finish();
  /// Runs events of this, the current thread, until another thread has set the flag by Wake; soon,
  /// if aIsSoon.
  void RunUntil(const bool* aFlag, bool aIsSoon = false);
  /// On this thread: it has run an event for one that waited on aProcessor, and that goes on now.
  void OnRunFor(int aProcessor);
  void Wake(bool* aFlag) { mQueue.Wake(aFlag); }

  // nsIEventTarget
  /// NS_ERROR_UNEXPECTED when the thread is gone. With DISPATCH_SYNC the calling thread runs its
  /// own events while it waits, so that two threads may call each other; on the thread itself the
  /// event runs at once. What Run answers is dropped.
  nsresult Dispatch(nsIRunnable* aEvent, uint32_t aFlags) override;
  nsresult IsOnCurrentThread(bool* aResult) override;
  // nsIThread
  nsresult GetPRThread(PRThread** aPRThread) override;
  /// Lets the thread run what is queued and end, and joins it; meanwhile the caller runs its own
  /// events. NS_ERROR_UNEXPECTED from the thread itself, for one that the manager did not make, and
  /// the second time.
  nsresult Shutdown() override;
  /// NS_ERROR_NOT_SAME_THREAD from another thread.
  nsresult HasPendingEvents(bool* aResult) override;
  /// Runs one event, *aResult tells whether. NS_ERROR_NOT_SAME_THREAD from another thread.
  nsresult ProcessNextEvent(bool aMayWait, bool* aResult) override;
  // nsIThreadInternal. The one observer may be set from any thread; the list belongs to this
  // thread.
  nsresult GetObserver(nsIThreadObserver** aObserver) override;
  nsresult SetObserver(nsIThreadObserver* aObserver) override;
  nsresult GetRecursionDepth(uint32_t* aRecursionDepth) override;
  nsresult AddObserver(nsIThreadObserver* aObserver) override;
  nsresult RemoveObserver(nsIThreadObserver* aObserver) override;

 private:
  struct Holder;

  ~nsThread() override = default;
  static void Main(void* aSelf);
  bool IsCurrent() const { return Current() == this; }
  nsresult Put(nsIRunnable* aEvent);
  bool ProcessOne(bool aMayWait, const bool* aUntil, bool aIsSoon = false);
  nsCOMPtr<nsIThreadObserver> Observer();

  const Kind mKind;
  nsEventQueue mQueue;
  nsMutex mStartMutex;  // for the next but one until Start or Adopt has returned: then it stays
  nsCondition mStarted;
  PRThread* mPRThread = nullptr;
  std::atomic<bool> mShutdownAsked{false};
  nsCOMPtr<nsThread>
      mShutdownCaller;  // these two are handed over by the event that stops the thread
  bool* mShutdownDone = nullptr;
  bool mStopping = false;  // this and the next two: only on this thread
  bool mIsMoreDueSoon = false;
  uint32_t mDepth = 0;
  std::atomic<int> mProcessor{-1};  // that it ran its last event on
  std::vector<nsCOMPtr<nsIThreadObserver>> mObservers;
  nsMutex mObserverMutex;
  nsCOMPtr<nsIThreadObserver> mObserver NS_GUARDED_BY(mObserverMutex);
};

/// Gives aPut an event that runs aEvent elsewhere, and runs events of the calling thread until that
/// is done; with aIsSoon it looks for a moment before it sleeps. A failure of aPut is returned;
/// what Run answers is dropped.
nsresult NS_DispatchSync(const std::function<nsresult(nsIRunnable*)>& aPut, nsIRunnable* aEvent,
                         bool aIsSoon = false);

/// A runnable of a function.
nsCOMPtr<nsIRunnable> NS_NewRunnable(std::function<void()> aFunction);

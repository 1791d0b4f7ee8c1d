// The thread manager, "@mozilla.org/thread-manager;1".
#pragma once

#include <vector>

#include "nsIThreadManager.h"
#include "nsLock.h"
#include "nsThread.h"

/// The one thread manager. Any thread, but for Init and Shutdown.
class nsThreadManager final : public nsIThreadManager {
 public:
  static nsThreadManager& get();

  /// The calling thread becomes the main thread. NS_ERROR_ALREADY_INITIALIZED until Shutdown. May
  /// be called again after that: a process may start the host more than once.
  nsresult Init();
  /// To be called by the host on the main thread when the observers of "xpcom-shutdown-threads"
  /// have been told. Shuts down the threads that nobody has shut down, runs what is left for the
  /// main thread, and from then on refuses new threads and every dispatch.
  void Shutdown();
  /// Drops a made thread that has ended.
  void Forget(nsThread* aThread);

  // Not counted: it lives as long as the process.
  nsresult QueryInterface(const nsIID& aIID, void** aResult) override;
  nsrefcnt AddRef() override { return 2; }
  nsrefcnt Release() override { return 1; }

  /// NS_ERROR_NOT_INITIALIZED before the host has started and once it stops its threads.
  nsresult NewThread(uint32_t aCreationFlags, uint32_t aStackSize, nsIThread** aResult) override;
  /// Null and success for a thread that is not known.
  nsresult GetThreadFromPRThread(PRThread* aPRThread, nsIThread** aResult) override;
  nsresult GetMainThread(nsIThread** aMainThread) override;
  /// A thread that the manager did not make gets an object, and with it a queue, when it first
  /// asks.
  nsresult GetCurrentThread(nsIThread** aCurrentThread) override;
  nsresult GetIsMainThread(bool* aIsMainThread) override;
  nsresult GetIsCycleCollectorThread(bool* aIsCycleCollectorThread) override;

 private:
  nsMutex mMutex;  // guards the next three
  bool mRunning NS_GUARDED_BY(mMutex) = false;
  // Stays until the next Init, so that late questions are answered.
  nsCOMPtr<nsThread> mMain NS_GUARDED_BY(mMutex);
  std::vector<nsCOMPtr<nsThread>> mMade NS_GUARDED_BY(mMutex);
  std::atomic<nsThread*> mMainThread{nullptr};  // mMain, for comparison without the lock
};

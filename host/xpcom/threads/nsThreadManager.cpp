#include "nsThreadManager.h"

#include <algorithm>

#include "nsImplements.h"
#include "nsTimer.h"

nsThreadManager& nsThreadManager::get() {
  static nsThreadManager sManager;
  return sManager;
}

nsresult nsThreadManager::Init() {
  const nsAutoLock lock(mMutex);
  if (mRunning) return NS_ERROR_ALREADY_INITIALIZED;
  mMain = MakeRefCounted<nsThread>(nsThread::Kind::eMain);
  mMain->Adopt();
  mMainThread = mMain.get();
  mRunning = true;
  nsTimers::get().Start();
  return NS_OK;
}

void nsThreadManager::Shutdown() {
  nsCOMPtr<nsThread> main;
  {
    const nsAutoLock lock(mMutex);
    if (!mRunning) return;
    mRunning = false;
    main = mMain;
  }
  nsTimers::get().Shutdown();
  // What runs meanwhile can't make threads, but may shut some down itself.
  while (true) {
    nsCOMPtr<nsThread> thread;
    {
      const nsAutoLock lock(mMutex);
      if (!mMade.empty()) thread = mMade.back();
    }
    if (!thread) break;
    if (NS_FAILED(thread->Shutdown())) Forget(thread.get());  // another thread is at it already
  }
  main->Finish();
}

void nsThreadManager::Forget(nsThread* aThread) {
  nsCOMPtr<nsThread> last = aThread;
  const nsAutoLock lock(mMutex);
  std::erase(mMade, last);
}

nsresult nsThreadManager::QueryInterface(const nsIID& aIID, void** aResult) {
  return NS_QueryInterface<nsIThreadManager>(this, aIID, aResult);
}

nsresult nsThreadManager::NewThread(uint32_t /*aCreationFlags*/, uint32_t aStackSize,
                                    nsIThread** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  const nsAutoLock lock(mMutex);
  if (!mRunning) return NS_ERROR_NOT_INITIALIZED;
  auto thread = MakeRefCounted<nsThread>(nsThread::Kind::eMade);
  const nsresult rv = thread->Start(aStackSize);
  if (NS_FAILED(rv)) return rv;
  mMade.push_back(thread);
  thread.forget(aResult);
  return NS_OK;
}

nsresult nsThreadManager::GetThreadFromPRThread(PRThread* aPRThread, nsIThread** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  const auto is = [aPRThread](nsIThread* aThread) {
    PRThread* prThread = nullptr;
    return aThread && NS_SUCCEEDED(aThread->GetPRThread(&prThread)) && prThread == aPRThread;
  };
  nsCOMPtr<nsThread> found;
  if (is(nsThread::Current())) {
    found = nsThread::Current();
  } else {
    const nsAutoLock lock(mMutex);
    const auto made =
        std::find_if(mMade.begin(), mMade.end(), [&](auto& aMade) { return is(aMade.get()); });
    if (made != mMade.end())
      found = *made;
    else if (is(mMain.get()))
      found = mMain;
  }
  found.forget(aResult);
  return NS_OK;
}

nsresult nsThreadManager::GetMainThread(nsIThread** aMainThread) {
  if (!aMainThread) return NS_ERROR_NULL_POINTER;
  const nsAutoLock lock(mMutex);
  if (!mMain) return NS_ERROR_NOT_INITIALIZED;
  nsCOMPtr(mMain).forget(aMainThread);
  return NS_OK;
}

nsresult nsThreadManager::GetCurrentThread(nsIThread** aCurrentThread) {
  if (!aCurrentThread) return NS_ERROR_NULL_POINTER;
  auto current = nsThread::CurrentOrNew();
  if (!current) return NS_ERROR_UNEXPECTED;
  current.forget(aCurrentThread);
  return NS_OK;
}

nsresult nsThreadManager::GetIsMainThread(bool* aIsMainThread) {
  if (!aIsMainThread) return NS_ERROR_NULL_POINTER;
  const nsThread* current = nsThread::Current();
  *aIsMainThread = current && current == mMainThread.load(std::memory_order_relaxed);
  return NS_OK;
}

nsresult nsThreadManager::GetIsCycleCollectorThread(bool* aIsCycleCollectorThread) {
  if (!aIsCycleCollectorThread) return NS_ERROR_NULL_POINTER;
  *aIsCycleCollectorThread = false;
  return NS_OK;
}

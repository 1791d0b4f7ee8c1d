// Threads in tests.
#pragma once

#include <functional>

#include "nsIRunnable.h"
#include "nsIThread.h"
#include "nsIThreadManager.h"
#include "nsImplements.h"
#include "nsServices.h"

class nsTestRunnable final : public nsImplements<nsTestRunnable, nsIRunnable> {
 public:
  explicit nsTestRunnable(std::function<void()> aFunction) : mFunction(std::move(aFunction)) {}
  nsresult Run() override {
    mFunction();
    return NS_OK;
  }

 private:
  ~nsTestRunnable() override = default;
  std::function<void()> mFunction;
};

inline nsresult NS_TestDispatch(nsIEventTarget* aTarget, uint32_t aFlags,
                                std::function<void()> aFunction) {
  return aTarget->Dispatch(MakeRefCounted<nsTestRunnable>(std::move(aFunction)).get(), aFlags);
}

/// Null while no host runs.
inline nsCOMPtr<nsIThreadManager> NS_TestThreadManager() {
  return do_GetService<nsIThreadManager>(NS_THREADMANAGER_CONTRACTID);
}
inline nsCOMPtr<nsIThread> NS_TestThread(nsresult (nsIThreadManager::*aGetter)(nsIThread**)) {
  nsCOMPtr<nsIThread> thread;
  (void)(*NS_TestThreadManager().*aGetter)(thread.getter_AddRefs());
  return thread;
}
inline nsCOMPtr<nsIThread> NS_TestMainThread() {
  return NS_TestThread(&nsIThreadManager::GetMainThread);
}
inline nsCOMPtr<nsIThread> NS_TestNewThread() {
  nsCOMPtr<nsIThread> thread;
  (void)NS_TestThreadManager()->NewThread(0, 0, thread.getter_AddRefs());
  return thread;
}

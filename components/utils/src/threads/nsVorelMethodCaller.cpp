#include "nsVorelMethodCaller.h"

#include "nsIThread.h"
#include "nsIThreadManager.h"
#include "nsServices.h"

nsresult NS_GetMainThread(nsIThread** aThread) {
  nsresult rv;
  const auto manager = do_GetService<nsIThreadManager>(NS_THREADMANAGER_CONTRACTID, &rv);
  return NS_FAILED(rv) ? rv : manager->GetMainThread(aThread);
}

nsresult NS_DispatchToMainThread(nsIRunnable* aRunnable, uint32_t aFlags) {
  if (!aRunnable) return NS_ERROR_NULL_POINTER;
  nsCOMPtr<nsIThread> main;
  const nsresult rv = NS_GetMainThread(main.getter_AddRefs());
  return NS_FAILED(rv) ? rv : main->Dispatch(aRunnable, aFlags);
}

bool NS_IsMainThread() {
  const auto manager = do_GetService<nsIThreadManager>(NS_THREADMANAGER_CONTRACTID);
  bool isMain = false;
  return manager && NS_SUCCEEDED(manager->GetIsMainThread(&isMain)) && isMain;
}

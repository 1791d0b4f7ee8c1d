// The one instance of a class, which the module owns from the first request to its unload step.
#pragma once

#include <prlock.h>

#include "nsCOMPtr.h"

class nsSystemSingleton {
 public:
  /// Makes the instance, ready for use; null when it can't be had.
  using Maker = nsCOMPtr<nsISupports> (*)();

  /// Loading: from here on there may be an instance.
  void CreateLock() { mLock = PR_NewLock(); }

  /// Unloading: drops the module's reference.
  void Drop() {
    if (mLock) PR_DestroyLock(mLock);
    mLock = nullptr;
    mInstance = nullptr;
  }

  /// Null when it can't be had: without a lock, or when its making fails; the next request then
  /// tries again. From any thread.
  nsCOMPtr<nsISupports> Get(Maker aMake) {
    if (!mLock) return nullptr;
    PR_Lock(mLock);
    if (!mInstance) mInstance = aMake();
    nsCOMPtr<nsISupports> instance = mInstance;
    PR_Unlock(mLock);
    return instance;
  }

 private:
  PRLock* mLock = nullptr;
  nsCOMPtr<nsISupports> mInstance;
};

// The one instance of a class, which the module owns from the first request to its unload step.
#pragma once

#include <prlock.h>

#include "nsCOMPtr.h"
#include "nsLock.h"

class nsSystemSingleton {
 public:
  /// Makes the instance, ready for use; null when it can't be had.
  using Maker = nsCOMPtr<nsISupports> (*)();

  /// Loading: from here on there may be an instance.
  void CreateLock() { mLock.mNative = PR_NewLock(); }

  /// Unloading: drops the module's reference.
  void Drop() NS_NOT_CHECKED {  // nobody else is left
    if (mLock.mNative) PR_DestroyLock(mLock.mNative);
    mLock.mNative = nullptr;
    mInstance = nullptr;
  }

  /// Null when it can't be had: without a lock, or when its making fails; the next request then
  /// tries again. From any thread.
  nsCOMPtr<nsISupports> Get(Maker aMake) {
    if (!mLock.mNative) return nullptr;
    const nsAutoLock lock(mLock);
    if (!mInstance) mInstance = aMake();
    return mInstance;
  }

 private:
  // There is one from the module's loading to its unloading.
  struct NS_LOCKABLE ModuleLock {
    void Lock() NS_ACQUIRES() { PR_Lock(mNative); }
    void Unlock() NS_RELEASES() { PR_Unlock(mNative); }
    PRLock* mNative = nullptr;
  };
  ModuleLock mLock;
  nsCOMPtr<nsISupports> mInstance NS_GUARDED_BY(mLock);
};

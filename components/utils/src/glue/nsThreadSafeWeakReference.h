// Weak references that may be taken and turned strong while the referent dies on another thread.
#pragma once

#include <prmon.h>

#include "nsCOMPtr.h"
#include "nsISupportsWeakReference.h"
#include "nsIWeakReference.h"
#include "nsImplements.h"
#include "nsLock.h"

class nsThreadSafeSupportsWeakReference;

/// The weak reference of one object. Its monitor guards both the referent's count and the pointer
/// to it, so a count that reaches zero and a QueryReferent can't cross. Any thread; may outlive the
/// referent.
class nsThreadSafeWeakReference final
    : public nsImplements<nsThreadSafeWeakReference, nsIWeakReference> {
 public:
  explicit nsThreadSafeWeakReference(nsThreadSafeSupportsWeakReference* aReferent);

  /// A strong reference to the referent, by the asked interface. NS_ERROR_NULL_POINTER once it has
  /// died.
  nsresult QueryReferent(const nsIID& aIID, void** aResult) override;

 private:
  friend class nsThreadSafeSupportsWeakReference;
  ~nsThreadSafeWeakReference() override = default;

  // Reentrant: QueryReferent queries the referent while it holds it, and that adds a reference.
  class NS_LOCKABLE Monitor {
   public:
    Monitor();
    ~Monitor() { PR_DestroyMonitor(mNative); }
    void Lock() NS_ACQUIRES() { PR_EnterMonitor(mNative); }
    void Unlock() NS_RELEASES() { PR_ExitMonitor(mNative); }

   private:
    PRMonitor* const mNative;
  };
  Monitor mMonitor;
  std::atomic<nsThreadSafeSupportsWeakReference*> mReferent;  // written with the monitor held
};

/// Base of objects that can be weakly referenced across threads; supplies their count. A class that
/// derives from it and from other interfaces forwards AddRef and Release to this one, and answers
/// nsISupportsWeakReference only if its own QueryInterface says so.
class nsThreadSafeSupportsWeakReference : public nsISupportsWeakReference {
 public:
  nsThreadSafeSupportsWeakReference();
  nsThreadSafeSupportsWeakReference(const nsThreadSafeSupportsWeakReference&) = delete;
  nsThreadSafeSupportsWeakReference& operator=(const nsThreadSafeSupportsWeakReference&) = delete;

  nsrefcnt AddRef() override;
  nsrefcnt Release() override;
  /// NS_ERROR_NULL_POINTER for a null out pointer.
  nsresult GetWeakReference(nsIWeakReference** aInstancePtr) override;

 protected:
  virtual ~nsThreadSafeSupportsWeakReference() = default;

 private:
  nsCOMPtr<nsThreadSafeWeakReference> mProxy;
  int32_t mRefCnt NS_GUARDED_BY(mProxy->mMonitor) = 0;
};

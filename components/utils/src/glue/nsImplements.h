// nsImplements<Class, I...>: all of nsISupports for a class, from the list of its interfaces.
#pragma once

#include <atomic>
#include <cassert>

#include "nsClassInfo.h"

/// The count of a class that crosses threads.
class nsAtomicCount {
 public:
  // Relaxed: whoever handed us the pointer has synchronised already.
  nsrefcnt Increment() { return mCount.fetch_add(1, std::memory_order_relaxed) + 1; }
  // acq_rel and no fence: ThreadSanitizer does not understand fences.
  nsrefcnt Decrement() { return mCount.fetch_sub(1, std::memory_order_acq_rel) - 1; }
  void Stabilize() { mCount.store(1, std::memory_order_relaxed); }

 private:
  std::atomic<nsrefcnt> mCount{0};
};

/// The count of a class that stays on one thread.
class nsPlainCount {
 public:
  nsrefcnt Increment() { return ++mCount; }
  nsrefcnt Decrement() { return --mCount; }
  void Stabilize() { mCount = 1; }

 private:
  nsrefcnt mCount = 0;
};

/// Answers a query from a list of interfaces and their parents; the first that matches wins, so
/// nsISupports is always the first interface: the identity of the object. Adds no reference.
template <nsInterface... I, class Class>
void* NS_FindInterface(Class* aSelf, const nsIID& aIID) {
  void* found = nullptr;
  const auto walk = [&]<class T>(auto& aWalk, T* aThis) -> void {
    if (aIID == T::kIID)
      found = aThis;
    else if constexpr (!std::is_void_v<typename T::Base>)
      aWalk(aWalk, static_cast<typename T::Base*>(aThis));
  };
  (void)((walk(walk, static_cast<I*>(aSelf)), found) || ...);
  return found;
}

/// The class info object of Class, which declares  static const nsClassInfoRecord kClassInfo;
template <class Class>
nsIClassInfo* NS_ClassInfoOf() {
  static GenericClassInfo sInfo(&Class::kClassInfo);
  return &sInfo;
}

/// The whole QueryInterface of a class, from the list of its interfaces. A class that declares
/// kClassInfo answers nsIClassInfo too, with an object of its own; one that does not, does not.
template <nsInterface... I, class Class>
nsresult NS_QueryInterface(Class* aSelf, const nsIID& aIID, void** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  if ((*aResult = NS_FindInterface<I...>(aSelf, aIID))) {
    aSelf->AddRef();
    return NS_OK;
  }
  if constexpr (requires { Class::kClassInfo; }) {
    if (aIID == nsIClassInfo::kIID) {
      *aResult = NS_ClassInfoOf<Class>();
      return NS_OK;
    }
  }
  return NS_ERROR_NO_INTERFACE;
}

/// Counts and QueryInterface. At zero the count is set to 1, so that the
/// destructor may hand out and take back references to the dying object. Destructors are private:
/// objects die by Release.
template <class Count, class Class, nsInterface... I>
class nsImplementsWith : public I... {
  static_assert(sizeof...(I) > 0);

 public:
  nsImplementsWith(const nsImplementsWith&) = delete;
  nsImplementsWith& operator=(const nsImplementsWith&) = delete;

  nsresult QueryInterface(const nsIID& aIID, void** aResult) override {
    return NS_QueryInterface<I...>(static_cast<Class*>(this), aIID, aResult);
  }

  nsrefcnt AddRef() override { return mRefCnt.Increment(); }

  nsrefcnt Release() override {
    const nsrefcnt count = mRefCnt.Decrement();
    assert(count != nsrefcnt(-1) && "released too often");
    if (count == 0) {
      mRefCnt.Stabilize();
      delete this;
    }
    return count;
  }

 protected:
  nsImplementsWith() = default;
  virtual ~nsImplementsWith() =
      default;  // stands after the interfaces' slots, so that their order holds

 private:
  Count mRefCnt;
};

template <class Class, nsInterface... I>
using nsImplements = nsImplementsWith<nsAtomicCount, Class, I...>;
template <class Class, nsInterface... I>
using nsImplementsOnOneThread = nsImplementsWith<nsPlainCount, Class, I...>;

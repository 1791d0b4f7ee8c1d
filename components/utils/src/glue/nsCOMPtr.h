// Owning pointers to interfaces and counted classes.
#pragma once

#include <cassert>
#include <utility>

#include "nsCore.h"

/// Owns one reference. Made from a raw pointer it adds one; getter_AddRefs takes over the one that
/// an out parameter hands out.
template <class T>
class nsCOMPtr {
 public:
  nsCOMPtr() = default;
  nsCOMPtr(std::nullptr_t) {}
  nsCOMPtr(T* aPtr) : mPtr(aPtr) {
    if (mPtr) mPtr->AddRef();
  }
  nsCOMPtr(const nsCOMPtr& aOther) : nsCOMPtr(aOther.mPtr) {}
  nsCOMPtr(nsCOMPtr&& aOther) noexcept : mPtr(std::exchange(aOther.mPtr, nullptr)) {}
  template <class U>
  requires(!std::same_as<T, U> && std::convertible_to<U*, T*>) nsCOMPtr(const nsCOMPtr<U>& aOther)
      : nsCOMPtr(static_cast<T*>(aOther.get())) {}
  nsCOMPtr& operator=(nsCOMPtr aOther) noexcept {
    std::swap(mPtr, aOther.mPtr);
    return *this;
  }
  ~nsCOMPtr() {
    if (mPtr) mPtr->Release();
  }

  T* get() const { return mPtr; }
  T* operator->() const {
    assert(mPtr);
    return mPtr;
  }
  T& operator*() const {
    assert(mPtr);
    return *mPtr;
  }
  explicit operator bool() const { return mPtr; }
  friend bool operator==(const nsCOMPtr& aA, const nsCOMPtr& aB) { return aA.mPtr == aB.mPtr; }
  friend bool operator==(const nsCOMPtr& aA, const T* aB) { return aA.mPtr == aB; }

  /// Hands the reference to an out parameter.
  template <class U>
  void forget(U** aOut) {
    *aOut = std::exchange(mPtr, nullptr);
  }
  /// For a call that hands out a reference. Drops what was held before.
  T** getter_AddRefs() {
    nsCOMPtr().swap(*this);
    return &mPtr;
  }
  void swap(nsCOMPtr& aOther) noexcept { std::swap(mPtr, aOther.mPtr); }

 private:
  T* mPtr = nullptr;
};

/// &ptr.getter_AddRefs() for interfaces whose out parameter is void**, by identifier.
template <nsInterface T>
void** NS_OutVoid(nsCOMPtr<T>& aPtr) {
  return reinterpret_cast<void**>(aPtr.getter_AddRefs());
}

/// Null when aSource is null or does not implement T. *aRv, where given, says which.
template <nsInterface T>
nsCOMPtr<T> do_QueryInterface(nsISupports* aSource, nsresult* aRv = nullptr) {
  nsCOMPtr<T> result;
  const nsresult rv =
      aSource ? aSource->QueryInterface(T::kIID, NS_OutVoid(result)) : NS_ERROR_NULL_POINTER;
  if (aRv) *aRv = rv;
  return result;
}
template <nsInterface T, class U>
nsCOMPtr<T> do_QueryInterface(const nsCOMPtr<U>& aSource, nsresult* aRv = nullptr) {
  return do_QueryInterface<T>(aSource.get(), aRv);
}

/// True when two pointers, seen through whatever interfaces, are one object.
inline bool NS_SameObject(nsISupports* aA, nsISupports* aB) {
  return aA == aB || do_QueryInterface<nsISupports>(aA) == do_QueryInterface<nsISupports>(aB).get();
}

template <class T, class... A>
nsCOMPtr<T> MakeRefCounted(A&&... aArgs) {
  return nsCOMPtr<T>(new T(std::forward<A>(aArgs)...));
}

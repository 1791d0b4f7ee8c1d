// Locks that the compiler checks: who touches what a lock guards, holds it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

// Clang checks these where the build asks for it (-Wthread-safety); the other compiler sees
// nothing.
#ifdef __clang__
#define NS_THREAD_SAFETY(...) __attribute__((__VA_ARGS__))
#else
#define NS_THREAD_SAFETY(...)
#endif

/// Of a class whose objects are held and let go.
#define NS_LOCKABLE NS_THREAD_SAFETY(capability("lock"))
/// Of a class whose objects hold a lock as long as they live.
#define NS_SCOPED_LOCKABLE NS_THREAD_SAFETY(scoped_lockable)
/// Of a field or a global: it is read and written with the lock held.
#define NS_GUARDED_BY(aLock) NS_THREAD_SAFETY(guarded_by(aLock))
/// Of a pointer: what it points to is guarded, the pointer itself is not.
#define NS_POINTEE_GUARDED_BY(aLock) NS_THREAD_SAFETY(pt_guarded_by(aLock))
/// Of a function: the caller holds the locks. A lambda has it behind its parameters.
#define NS_REQUIRES(...) NS_THREAD_SAFETY(requires_capability(__VA_ARGS__))
/// Of a function: the caller does not hold the locks.
#define NS_EXCLUDES(...) NS_THREAD_SAFETY(locks_excluded(__VA_ARGS__))
/// Of a function: it takes, or lets go, the locks; those of its own object without arguments.
#define NS_ACQUIRES(...) NS_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
#define NS_RELEASES(...) NS_THREAD_SAFETY(release_capability(__VA_ARGS__))
/// Of a function: it has taken the locks when it returns the first argument.
#define NS_TRY_ACQUIRES(...) NS_THREAD_SAFETY(try_acquire_capability(__VA_ARGS__))
/// Of a function that gives a lock: what it returns is that one.
#define NS_RETURNS_LOCK(aLock) NS_THREAD_SAFETY(lock_returned(aLock))
/// Of a function that the check can't follow; a comment says why it is right.
#define NS_NOT_CHECKED NS_THREAD_SAFETY(no_thread_safety_analysis)

template <class Native>
class NS_LOCKABLE nsBasicMutex {
 public:
  nsBasicMutex() = default;
  nsBasicMutex(const nsBasicMutex&) = delete;
  nsBasicMutex& operator=(const nsBasicMutex&) = delete;

  void Lock() NS_ACQUIRES() { mNative.lock(); }
  void Unlock() NS_RELEASES() { mNative.unlock(); }
  /// Takes it if nobody has it. Never waits.
  bool TryLock() NS_TRY_ACQUIRES(true) { return mNative.try_lock(); }

 private:
  friend class nsCondition;
  Native mNative;
};

/// Taken once by a thread at a time.
using nsMutex = nsBasicMutex<std::mutex>;
/// May be taken again by the thread that holds it.
using nsRecursiveMutex = nsBasicMutex<std::recursive_mutex>;

/// Holds a mutex until the end of its scope. One that is not const may let it go in between.
template <class Mutex>
class NS_SCOPED_LOCKABLE nsAutoLock {
 public:
  explicit nsAutoLock(Mutex& aMutex) NS_ACQUIRES(aMutex) : mMutex(aMutex) { aMutex.Lock(); }
  /// Of a mutex that this thread holds already.
  nsAutoLock(Mutex& aMutex, std::adopt_lock_t) NS_REQUIRES(aMutex) : mMutex(aMutex) {}
  ~nsAutoLock() NS_RELEASES() NS_NOT_CHECKED {
    if (mIsHeld) mMutex.Unlock();
  }
  nsAutoLock(const nsAutoLock&) = delete;
  nsAutoLock& operator=(const nsAutoLock&) = delete;

  void Lock() NS_ACQUIRES() NS_NOT_CHECKED {
    mMutex.Lock();
    mIsHeld = true;
  }
  void Unlock() NS_RELEASES() NS_NOT_CHECKED {
    mIsHeld = false;
    mMutex.Unlock();
  }

 private:
  friend class nsCondition;
  Mutex& mMutex;
  bool mIsHeld = true;
};

/// Lets threads wait for each other. A wait lets the mutex go meanwhile and has it again after it;
/// it may end without a reason, unless it waits until aDone, called with the mutex held, says so.
class nsCondition {
 public:
  void NotifyOne() { mNative.notify_one(); }
  void NotifyAll() { mNative.notify_all(); }

  void Wait(nsAutoLock<nsMutex>& aLock) {
    Native lock(aLock);
    mNative.wait(lock.mLock);
  }
  template <class Done>
  void Wait(nsAutoLock<nsMutex>& aLock, Done aDone) {
    Native lock(aLock);
    mNative.wait(lock.mLock, aDone);
  }
  template <class Duration>
  void WaitFor(nsAutoLock<nsMutex>& aLock, const Duration& aDuration) {
    Native lock(aLock);
    mNative.wait_for(lock.mLock, aDuration);
  }
  /// What aDone says at the end.
  template <class Duration, class Done>
  bool WaitFor(nsAutoLock<nsMutex>& aLock, const Duration& aDuration, Done aDone) {
    Native lock(aLock);
    return mNative.wait_for(lock.mLock, aDuration, aDone);
  }
  template <class Time>
  void WaitUntil(nsAutoLock<nsMutex>& aLock, const Time& aTime) {
    Native lock(aLock);
    mNative.wait_until(lock.mLock, aTime);
  }
  template <class Time, class Done>
  bool WaitUntil(nsAutoLock<nsMutex>& aLock, const Time& aTime, Done aDone) {
    Native lock(aLock);
    return mNative.wait_until(lock.mLock, aTime, aDone);
  }

 private:
  /// The lock as the standard library wants to see it. It stays with whoever has it.
  struct Native {
    explicit Native(nsAutoLock<nsMutex>& aLock) : mLock(aLock.mMutex.mNative, std::adopt_lock) {}
    ~Native() { mLock.release(); }
    Native(const Native&) = delete;
    Native& operator=(const Native&) = delete;
    std::unique_lock<std::mutex> mLock;
  };
  std::condition_variable mNative;
};

#include "nsSimulatedScript.h"

#include <utility>

bool nsSimulatedScript::IsDue() const {
  const auto wait = mMachine->UntilNextChange();
  return wait && Clock::now() >= mLast + *wait;
}

void nsSimulatedScript::Wait() {
  std::unique_lock lock(mLock);
  const auto isWoken = [this] { return mIsWoken; };
  if (const auto wait = mMachine->UntilNextChange())
    (void)mWoken.wait_until(lock, mLast + *wait, isWoken);
  else
    mWoken.wait(lock, isWoken);
  mIsWoken = false;
}

bool nsSimulatedScript::Consume() {
  if (!IsDue()) return false;
  mMachine->ApplyNextChange();
  mLast = Clock::now();
  return true;
}

void nsSimulatedScript::Wake() {
  const std::lock_guard lock(mLock);
  mIsWoken = true;
  mWoken.notify_all();
}

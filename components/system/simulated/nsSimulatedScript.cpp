#include "nsSimulatedScript.h"

#include <utility>

bool nsSimulatedScript::IsDue() const {
  const auto wait = mMachine->UntilNextChange();
  return wait && Clock::now() >= mLast + *wait;
}

void nsSimulatedScript::Wait() {
  nsAutoLock lock(mLock);
  const auto isWoken = [this]() NS_REQUIRES(mLock) { return mIsWoken; };
  if (const auto wait = mMachine->UntilNextChange())
    (void)mWoken.WaitUntil(lock, mLast + *wait, isWoken);
  else
    mWoken.Wait(lock, isWoken);
  mIsWoken = false;
}

bool nsSimulatedScript::Consume() {
  if (!IsDue()) return false;
  mMachine->ApplyNextChange();
  mLast = Clock::now();
  return true;
}

void nsSimulatedScript::Wake() {
  const nsAutoLock lock(mLock);
  mIsWoken = true;
  mWoken.NotifyAll();
}

#include "nsNamedEvent.h"

#include <chrono>
#include <cstdint>
#include <map>

#include "nsDirectShowTypes.h"
#include "nsLock.h"

struct nsNamedEvent::State {
  nsMutex mLock;
  nsCondition mChanged;
  bool mIsSet NS_GUARDED_BY(mLock) = false;
  uint64_t mSets NS_GUARDED_BY(mLock) = 0;  // so far
};

nsNamedEvent::nsNamedEvent(const std::string& aName) {
  static nsMutex sLock;
  static std::map<std::string, std::weak_ptr<State>> sEvents NS_GUARDED_BY(sLock);
  nsAutoLock lock(sLock);
  auto& known = sEvents[aName];
  mState = known.lock();
  if (!mState) known = mState = std::make_shared<State>();
}
nsNamedEvent::~nsNamedEvent() = default;

void nsNamedEvent::Set() {
  {
    nsAutoLock lock(mState->mLock);
    mState->mIsSet = true;
    ++mState->mSets;
  }
  mState->mChanged.NotifyAll();
}

void nsNamedEvent::Reset() {
  nsAutoLock lock(mState->mLock);
  mState->mIsSet = false;
}

uint32_t nsNamedEvent::Wait(uint32_t aMilliseconds) {
  nsAutoLock lock(mState->mLock);
  // One that is set and at once reset ends the waits that have begun.
  const bool isSet = mState->mChanged.WaitFor(
      lock, std::chrono::milliseconds(aMilliseconds),
      [this, sets = mState->mSets]()
          NS_REQUIRES(mState->mLock) { return mState->mIsSet || mState->mSets != sets; });
  return isSet ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

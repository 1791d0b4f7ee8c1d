#include "nsNamedEvent.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>

#include "nsDirectShowTypes.h"

struct nsNamedEvent::State {
  std::mutex mLock;
  std::condition_variable mChanged;
  bool mIsSet = false;
  uint64_t mSets = 0;  // so far
};

nsNamedEvent::nsNamedEvent(const std::string& aName) {
  static std::mutex sLock;
  static std::map<std::string, std::weak_ptr<State>> sEvents;
  std::lock_guard lock(sLock);
  auto& known = sEvents[aName];
  mState = known.lock();
  if (!mState) known = mState = std::make_shared<State>();
}
nsNamedEvent::~nsNamedEvent() = default;

void nsNamedEvent::Set() {
  {
    std::lock_guard lock(mState->mLock);
    mState->mIsSet = true;
    ++mState->mSets;
  }
  mState->mChanged.notify_all();
}

void nsNamedEvent::Reset() {
  std::lock_guard lock(mState->mLock);
  mState->mIsSet = false;
}

uint32_t nsNamedEvent::Wait(uint32_t aMilliseconds) {
  std::unique_lock lock(mState->mLock);
  // One that is set and at once reset ends the waits that have begun.
  const bool isSet = mState->mChanged.wait_for(
      lock, std::chrono::milliseconds(aMilliseconds),
      [this, sets = mState->mSets] { return mState->mIsSet || mState->mSets != sets; });
  return isSet ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

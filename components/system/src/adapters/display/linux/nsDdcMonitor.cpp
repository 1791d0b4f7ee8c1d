#include "nsDdcMonitor.h"

#include <algorithm>
#include <utility>

namespace {

constexpr int kTries = 3;  // a message in twenty or so is lost on a usual wire
constexpr std::chrono::seconds kFresh(5);

std::optional<uint32_t> PercentOf(const std::optional<nsDdcValue>& aValue) {
  if (!aValue) return std::nullopt;
  return aValue->Percent();
}

// Runs what takes its time without the lock, which the check can't name here.
template <class Work>
auto Unlocked(nsAutoLock<nsMutex>& aLock, Work aWork) NS_NOT_CHECKED {
  aLock.Unlock();
  auto result = aWork();
  aLock.Lock();
  return result;
}

}  // namespace

nsDdcMonitor::nsDdcMonitor(Opener aOpener, std::function<void()> aChanged,
                           const nsDdcPauses& aPauses)
    : mOpener(std::move(aOpener)), mChanged(std::move(aChanged)), mPauses(aPauses) {
  if (NS_SUCCEEDED(mThread.Start("DisplayWire", [this] { Run(); }))) return;
  const Locked lock(mLock);
  mReason = mReasonToTell = "there is no thread for it";
  mWantsReading = mMayAnswer = false;
  mHasRead = mLeaves = mIsOver = true;
}

nsDdcMonitor::~nsDdcMonitor() { Leave(); }

void nsDdcMonitor::Leave() {
  const Locked lock(mLock);
  mLeaves = true;
  mSomething.NotifyAll();
}

// ---- What others ask

nsDdcMonitor::Values nsDdcMonitor::KnownValues() const {
  return {PercentOf(mBrightness), PercentOf(mContrast)};
}

nsDdcMonitor::Values nsDdcMonitor::Known() const {
  const Locked lock(mLock);
  return KnownValues();
}

bool nsDdcMonitor::MayAnswer() const {
  const Locked lock(mLock);
  return mMayAnswer;
}

std::string nsDdcMonitor::Reason() const {
  const Locked lock(mLock);
  return mReason;
}

std::string nsDdcMonitor::TakeReason() {
  const Locked lock(mLock);
  return std::exchange(mReasonToTell, {});
}

void nsDdcMonitor::Refresh() {
  const Locked lock(mLock);
  if (!mHasRead || Clock::now() - mReadAt < kFresh) return;
  mWantsReading = true;
  mSomething.NotifyAll();
}

bool nsDdcMonitor::AwaitFirst(Clock::time_point aUntil) {
  Locked lock(mLock);
  return mSomething.WaitUntil(lock, aUntil, [&]() NS_REQUIRES(mLock) { return mHasRead; });
}

bool nsDdcMonitor::Set(const Values& aValues, std::chrono::milliseconds aLimit) {
  Locked lock(mLock);
  if (mLeaves) return false;
  const auto change = std::make_shared<Change>(Change{.mValues = aValues});
  mChanges.push_back(change);
  mSomething.NotifyAll();
  if (aLimit.count() == 0) return true;
  if (!mSomething.WaitFor(lock, aLimit, [&] { return change->mIsDone; }))
    (void)std::erase(mChanges, change);
  return change->mIsTaken;
}

// ---- The thread

void nsDdcMonitor::Run() {
  Locked lock(mLock);
  while (!mLeaves) {
    if (!mChanges.empty()) {
      const auto change = mChanges.front();
      mChanges.pop_front();
      change->mIsTaken = Make(change->mValues, lock);
      change->mIsDone = true;
      mSomething.NotifyAll();
    } else if (std::exchange(mWantsReading, false)) {
      Read(lock);
    } else {
      mSomething.Wait(lock);
    }
  }
  for (const auto& change : mChanges) change->mIsDone = true;
  mChanges.clear();
  mHasRead = true;
  mSomething.NotifyAll();
  mIsOver = true;
}

bool nsDdcMonitor::PauseUntil(Clock::time_point aUntil, Locked& aLock) {
  (void)mSomething.WaitUntil(aLock, aUntil, [&]() NS_REQUIRES(mLock) { return mLeaves; });
  return !mLeaves;
}

bool nsDdcMonitor::Write(std::span<const uint8_t> aBytes, Locked& aLock) {
  if (!PauseUntil(mNext, aLock)) return false;
  const bool written = Unlocked(aLock, [&] { return mWire->Write(kDdcAddress, aBytes); });
  mNext = Clock::now() + mPauses.mNext;
  return written;
}

nsDdcMonitor::Answer nsDdcMonitor::Ask(uint8_t aFeature, nsDdcValue* aValue, Locked& aLock) {
  for (int tries = 0; tries < kTries && !mLeaves; ++tries) {
    if (!Write(NS_DdcRequest(aFeature), aLock)) continue;
    if (!PauseUntil(Clock::now() + mPauses.mReply, aLock)) break;
    uint8_t reply[kDdcReplySize];
    const bool read = Unlocked(aLock, [&] { return mWire->Read(kDdcAddress, reply); });
    mNext = Clock::now() + mPauses.mNext;
    if (!read) continue;
    switch (NS_ParseDdcReply(reply, aFeature, aValue)) {
      case nsDdcReply::eValue:
        return Answer::eValue;
      case nsDdcReply::eUnsupported:
        return Answer::eUnsupported;
      case nsDdcReply::eUnusable:
        break;
    }
  }
  return Answer::eSilent;
}

void nsDdcMonitor::Read(Locked& aLock) {
  const Values former = KnownValues();
  std::string reason;
  // A wire that nobody has answered on is looked for anew.
  if (!mWire) mWire = Unlocked(aLock, [&] { return mOpener(&reason); });
  bool answers = false;
  const std::pair<uint8_t, std::optional<nsDdcValue>*> features[] = {{kDdcBrightness, &mBrightness},
                                                                     {kDdcContrast, &mContrast}};
  for (const auto& [feature, known] : features) {
    nsDdcValue value;
    const Answer answer = mWire ? Ask(feature, &value, aLock) : Answer::eSilent;
    if (answer == Answer::eSilent) break;
    answers = true;
    *known = answer == Answer::eValue ? std::optional(value) : std::nullopt;
  }
  if (mWire && !answers) {
    reason = "it does not answer";
    mWire = nullptr;
  }
  mReadAt = Clock::now();
  mHasRead = true;
  mMayAnswer = answers;
  if (reason != mReason) mReasonToTell = mReason = std::move(reason);
  mSomething.NotifyAll();
  if (KnownValues() == former || mLeaves) return;
  (void)Unlocked(aLock, [&] {
    mChanged();
    return true;
  });
}

bool nsDdcMonitor::MakeOne(uint8_t aFeature, std::optional<uint32_t> aPercent,
                           std::optional<nsDdcValue>* aKnown, Locked& aLock) {
  if (!aPercent) return true;
  nsDdcValue value;
  if (*aKnown)
    value = **aKnown;
  else if (Ask(aFeature, &value, aLock) != Answer::eValue)
    return false;
  value.mCurrent = value.OfPercent(*aPercent);
  for (int tries = 0; tries < kTries && !mLeaves; ++tries) {
    if (!Write(NS_DdcChange(aFeature, value.mCurrent), aLock)) continue;
    *aKnown = value;
    return true;
  }
  return false;
}

bool nsDdcMonitor::Make(const Values& aValues, Locked& aLock) {
  if (!mWire) {
    std::string reason;
    mWire = Unlocked(aLock, [&] { return mOpener(&reason); });
    if (!mWire) return false;
  }
  return MakeOne(kDdcBrightness, aValues.mBrightness, &mBrightness, aLock) &&
         MakeOne(kDdcContrast, aValues.mContrast, &mContrast, aLock);
}

// A display that is asked for its brightness and contrast.
#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "nsDdcMessages.h"
#include "nsDdcWire.h"
#include "nsLock.h"
#include "nsNamedThread.h"

/// What displays are to be given time for.
struct nsDdcPauses {
  std::chrono::milliseconds mReply{40};  ///< From a request to its reply.
  std::chrono::milliseconds mNext{50};   ///< Between a message and the next one.
};

/// A display on a thread of its own, "DisplayWire", as it takes more than a tenth of a second to
/// answer. The methods may be called from any thread.
class nsDdcMonitor {
 public:
  /// In percent; nothing where the display does not tell.
  struct Values {
    std::optional<uint32_t> mBrightness, mContrast;
    bool operator==(const Values&) const = default;
  };
  /// Gives the wire, or null and the reason; on the thread.
  using Opener = std::function<std::unique_ptr<nsDdcWire>(std::string* aReason)>;

  /// Begins with a reading. aChanged is called on the thread when what is known has become another.
  nsDdcMonitor(Opener aOpener, std::function<void()> aChanged, const nsDdcPauses& aPauses);
  /// Waits for the transfer that goes on, if any: see IsOver.
  ~nsDdcMonitor();
  nsDdcMonitor(const nsDdcMonitor&) = delete;
  nsDdcMonitor& operator=(const nsDdcMonitor&) = delete;

  /// As of the last reading or change; empty until the first one is done. What a display that has
  /// fallen silent told before stays.
  Values Known() const;
  /// Whether there is a wire with a display that takes messages; true until that is known.
  bool MayAnswer() const;
  /// Asks for another reading, unless the last one is younger than a few seconds.
  void Refresh();
  /// Until the first reading is over, or that time has come; false then.
  bool AwaitFirst(std::chrono::steady_clock::time_point aUntil);
  /// Has the display change what is given, and waits for aLimit at most until it has taken that;
  /// false when it does not. What has not been begun by then is not done any more. With a limit of
  /// 0 nobody waits, and it is done in any case.
  bool Set(const Values& aValues, std::chrono::milliseconds aLimit);
  /// Why it did not answer the last time; empty when it did, and until that is known.
  std::string Reason() const;
  /// The same, each reason once.
  std::string TakeReason();

  /// To be ended: nothing is begun any more. IsOver is true once nothing goes on either.
  void Leave();
  bool IsOver() const { return mIsOver; }

 private:
  using Clock = std::chrono::steady_clock;

  struct Change {
    Values mValues;
    bool mIsDone = false;
    bool mIsTaken = false;
  };
  enum class Answer { eValue, eUnsupported, eSilent };
  using Locked = nsAutoLock<nsMutex>;  // given up while the display is waited for

  void Run();
  void Read(Locked& aLock) NS_REQUIRES(mLock);
  bool Make(const Values& aValues, Locked& aLock) NS_REQUIRES(mLock);
  bool MakeOne(uint8_t aFeature, std::optional<uint32_t> aPercent,
               std::optional<nsDdcValue>* aKnown, Locked& aLock) NS_REQUIRES(mLock);
  Answer Ask(uint8_t aFeature, nsDdcValue* aValue, Locked& aLock) NS_REQUIRES(mLock);
  bool Write(std::span<const uint8_t> aBytes, Locked& aLock) NS_REQUIRES(mLock);
  /// False when it is to end.
  bool PauseUntil(Clock::time_point aUntil, Locked& aLock) NS_REQUIRES(mLock);
  Values KnownValues() const NS_REQUIRES(mLock);

  const Opener mOpener;
  const std::function<void()> mChanged;
  const nsDdcPauses mPauses;

  mutable nsMutex mLock;                         // guards what follows
  nsCondition mSomething;                        // for the thread, and for whoever waits for it
  std::unique_ptr<nsDdcWire> mWire;              // the thread's alone
  Clock::time_point mNext NS_GUARDED_BY(mLock);  // when the display takes the next message
  std::deque<std::shared_ptr<Change>> mChanges NS_GUARDED_BY(mLock);
  bool mWantsReading NS_GUARDED_BY(mLock) = true;
  bool mHasRead NS_GUARDED_BY(mLock) = false;
  bool mMayAnswer NS_GUARDED_BY(mLock) = true;
  bool mLeaves NS_GUARDED_BY(mLock) = false;
  Clock::time_point mReadAt NS_GUARDED_BY(mLock);
  std::optional<nsDdcValue> mBrightness NS_GUARDED_BY(mLock), mContrast NS_GUARDED_BY(mLock);
  std::string mReason NS_GUARDED_BY(mLock), mReasonToTell NS_GUARDED_BY(mLock);

  std::atomic<bool> mIsOver = false;
  nsNamedThread mThread;  // last: it uses all of these
};

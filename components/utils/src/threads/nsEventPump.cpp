#include "nsEventPump.h"

#include <utility>

#include "nsIEventTarget.h"
#include "nsIRunnable.h"
#include "nsImplements.h"
#include "nsLock.h"
#include "nsNamedThread.h"

/// Shared by the pump, its thread and the call under way.
struct nsEventPump::State : std::enable_shared_from_this<State> {
  class Call final : public nsImplements<Call, nsIRunnable> {
   public:
    explicit Call(std::shared_ptr<State> aState) : mState(std::move(aState)) {}
    nsresult Run() override {
      mState->Consume();
      End();
      return NS_OK;
    }

   private:
    // An event loop that ends drops what it has not run: nobody may wait for that any more.
    ~Call() override { End(); }
    void End() {
      if (const auto state = std::exchange(mState, nullptr)) state->Set(&State::mIsCalled, false);
    }
    std::shared_ptr<State> mState;
  };

  void Main() {
    while (!IsStopped()) {
      mSource->Wait();
      if (IsStopped() || !Hand()) return;
    }
  }

  /// Has the source consumed, and waits for the end of it. False when that is not to be had.
  bool Hand() {
    if (!mTarget) {
      Consume();
      return true;
    }
    Set(&State::mIsCalled, true);
    if (NS_FAILED(mTarget->Dispatch(MakeRefCounted<Call>(shared_from_this()).get(),
                                    nsIEventTarget::DISPATCH_NORMAL)))
      return false;
    nsAutoLock lock(mLock);
    mChanged.Wait(lock, [this]() NS_REQUIRES(mLock) { return !mIsCalled || mIsStopped; });
    return true;
  }

  void Consume() {
    if (IsStopped() || !mSource->Consume() || IsStopped()) return;
    if (mConsumed) mConsumed();
  }

  void Set(bool State::*aFlag, bool aValue) {
    const nsAutoLock lock(mLock);
    this->*aFlag = aValue;
    mChanged.NotifyAll();
  }
  bool IsStopped() {
    const nsAutoLock lock(mLock);
    return mIsStopped;
  }

  std::shared_ptr<nsEventSource> mSource;
  nsCOMPtr<nsIEventTarget> mTarget;
  Consumed mConsumed;
  nsNamedThread mThread;

  nsMutex mLock;  // guards what follows
  nsCondition mChanged;
  bool mIsStopped NS_GUARDED_BY(mLock) = false;
  // A call is on its way to the target, or running there.
  bool mIsCalled NS_GUARDED_BY(mLock) = false;
};

nsEventPump::nsEventPump(std::shared_ptr<State> aState) : mState(std::move(aState)) {}

nsresult nsEventPump::Start(const char* aName, std::shared_ptr<nsEventSource> aSource,
                            nsIEventTarget* aTarget, Consumed aConsumed,
                            std::unique_ptr<nsEventPump>* aResult) {
  if (!aSource) return NS_ERROR_INVALID_ARG;
  const auto state = std::make_shared<State>();
  state->mSource = std::move(aSource);
  state->mTarget = aTarget;
  state->mConsumed = std::move(aConsumed);
  if (const nsresult rv = state->mThread.Start(aName, [self = state.get()] { self->Main(); });
      NS_FAILED(rv))
    return rv;
  aResult->reset(new nsEventPump(state));
  return NS_OK;
}

nsEventPump::~nsEventPump() {
  mState->Set(&State::mIsStopped, true);
  mState->mSource->Wake();
  mState->mThread.Join();
}

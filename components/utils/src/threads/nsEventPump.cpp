#include "nsEventPump.h"

#include <prthread.h>

#include <condition_variable>
#include <mutex>
#include <utility>

#include "nsIEventTarget.h"
#include "nsIRunnable.h"
#include "nsImplements.h"

namespace {
// The system's own would be enough for waiting, but not for a source that is consumed there.
constexpr PRUint32 kStackSize = 1 << 20;
}  // namespace

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

  static void Main(void* aState) {
    State& self = *static_cast<State*>(aState);
    (void)PR_SetCurrentThreadName(self.mName);
    while (!self.IsStopped()) {
      self.mSource->Wait();
      if (self.IsStopped() || !self.Hand()) return;
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
    std::unique_lock lock(mLock);
    mChanged.wait(lock, [this] { return !mIsCalled || mIsStopped; });
    return true;
  }

  void Consume() {
    if (IsStopped() || !mSource->Consume() || IsStopped()) return;
    if (mConsumed) mConsumed();
  }

  void Set(bool State::*aFlag, bool aValue) {
    const std::lock_guard lock(mLock);
    this->*aFlag = aValue;
    mChanged.notify_all();
  }
  bool IsStopped() {
    const std::lock_guard lock(mLock);
    return mIsStopped;
  }

  const char* mName = nullptr;
  std::shared_ptr<nsEventSource> mSource;
  nsCOMPtr<nsIEventTarget> mTarget;
  Consumed mConsumed;
  PRThread* mThread = nullptr;

  std::mutex mLock;  // guards what follows
  std::condition_variable mChanged;
  bool mIsStopped = false;
  bool mIsCalled = false;  // a call is on its way to the target, or running there
};

nsEventPump::nsEventPump(std::shared_ptr<State> aState) : mState(std::move(aState)) {}

nsresult nsEventPump::Start(const char* aName, std::shared_ptr<nsEventSource> aSource,
                            nsIEventTarget* aTarget, Consumed aConsumed,
                            std::unique_ptr<nsEventPump>* aResult) {
  if (!aSource) return NS_ERROR_INVALID_ARG;
  const auto state = std::make_shared<State>();
  state->mName = aName;
  state->mSource = std::move(aSource);
  state->mTarget = aTarget;
  state->mConsumed = std::move(aConsumed);
  state->mThread = PR_CreateThread(PR_USER_THREAD, &State::Main, state.get(), PR_PRIORITY_NORMAL,
                                   PR_GLOBAL_THREAD, PR_JOINABLE_THREAD, kStackSize);
  if (!state->mThread) return NS_ERROR_OUT_OF_MEMORY;
  aResult->reset(new nsEventPump(state));
  return NS_OK;
}

nsEventPump::~nsEventPump() {
  mState->Set(&State::mIsStopped, true);
  mState->mSource->Wake();
  (void)PR_JoinThread(mState->mThread);
}

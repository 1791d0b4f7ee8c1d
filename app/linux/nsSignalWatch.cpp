#include "nsSignalWatch.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string_view>

#include "nsEventFd.h"
#include "nsImplements.h"
#include "nsLock.h"
#include "nsNamedThread.h"
#include "nsUniqueFd.h"
#include "nsVorelMethodCaller.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience(10), kSecondSignal(2);
constexpr std::string_view kTooLong = "vorel: what the end waits for does not end: left behind\n";

sigset_t Signals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, number);
  return signals;
}

}  // namespace

struct nsSignalWatch::State : std::enable_shared_from_this<nsSignalWatch::State> {
  void Watch();
  void Heard(int aSignal) NS_REQUIRES(mMutex);
  int UntilNextLook() const NS_REQUIRES(mMutex);
  [[noreturn]] static void Die(int aSignal);

  nsUniqueFd mSignals;
  nsEventFd mWake;
  nsNamedThread mThread;
  std::atomic<bool> mStops{false};

  nsMutex mMutex;  // guards what follows
  std::function<void(int)> mCall NS_GUARDED_BY(mMutex);
  int mUnheard NS_GUARDED_BY(mMutex) = 0;  // a signal for which there was no function
  bool mIsWaiting NS_GUARDED_BY(mMutex) = false;
  int mLast NS_GUARDED_BY(mMutex) = 0;
  Clock::time_point mSince NS_GUARDED_BY(mMutex);  // when it has begun to wait
  bool mIsEnding NS_GUARDED_BY(mMutex) = false;
  int mStatus NS_GUARDED_BY(mMutex) = 0;
  Clock::time_point mEnd NS_GUARDED_BY(mMutex);
};

namespace {

class Runner final : public nsImplements<Runner, nsIRunnable> {
 public:
  explicit Runner(std::function<void()> aRun) : mRun(std::move(aRun)) {}
  nsresult Run() override {
    mRun();
    return NS_OK;
  }

 private:
  ~Runner() override = default;
  const std::function<void()> mRun;
};

}  // namespace

nsSignalWatch::nsSignalWatch() : mState(std::make_shared<State>()) {
  const sigset_t signals = Signals();
  (void)pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  mState->mSignals = nsUniqueFd(signalfd(-1, &signals, SFD_CLOEXEC));
  const bool started =
      mState->mSignals && NS_SUCCEEDED(mState->mWake.Open()) &&
      NS_SUCCEEDED(mState->mThread.Start("Signals", [state = mState.get()] { state->Watch(); }));
  // Better killed by a signal than deaf to it.
  if (!started) (void)pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

nsSignalWatch::~nsSignalWatch() {
  Reset();
  mState->mStops = true;
  mState->mWake.Set();
  mState->mThread.Join();
}

void nsSignalWatch::Call(std::function<void(int)> aFunction) {
  int unheard;
  {
    const nsAutoLock lock(mState->mMutex);
    mState->mCall = aFunction;
    unheard = std::exchange(mState->mUnheard, 0);
    if (unheard != 0) mState->mIsWaiting = false;
  }
  if (unheard != 0) aFunction(unheard);
}

void nsSignalWatch::Reset() {
  const nsAutoLock lock(mState->mMutex);
  mState->mCall = nullptr;
}

void nsSignalWatch::LimitEnd(int aStatus) {
  {
    const nsAutoLock lock(mState->mMutex);
    mState->mIsEnding = true;
    mState->mStatus = aStatus;
    mState->mEnd = Clock::now() + kPatience;
  }
  mState->mWake.Set();
}

void nsSignalWatch::State::Die(int aSignal) {
  const sigset_t signals = Signals();
  (void)signal(aSignal, SIG_DFL);
  (void)pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
  (void)raise(aSignal);
  _exit(128 + aSignal);
}

int nsSignalWatch::State::UntilNextLook() const {
  if (!mIsWaiting && !mIsEnding) return -1;
  Clock::time_point next = mIsEnding ? mEnd : mSince + kPatience;
  if (mIsWaiting) next = std::min(next, mSince + kPatience);
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now()).count();
  return left > 0 ? static_cast<int>(left) : 0;
}

void nsSignalWatch::State::Heard(int aSignal) {
  const auto now = Clock::now();
  if (mIsWaiting) {
    if (now - mSince >= kSecondSignal) Die(aSignal);
    return;
  }
  mIsWaiting = true;
  mSince = now;
  mLast = aSignal;
  if (!mCall) {
    mUnheard = aSignal;
    return;
  }
  const auto run = [state = shared_from_this(), aSignal] {
    std::function<void(int)> call;
    {
      const nsAutoLock lock(state->mMutex);
      state->mIsWaiting = false;
      call = state->mCall;
    }
    if (call) call(aSignal);
  };
  (void)NS_DispatchToMainThread(MakeRefCounted<Runner>(run).get(), NS_DISPATCH_NORMAL);
}

void nsSignalWatch::State::Watch() {
  for (;;) {
    int wait;
    {
      const nsAutoLock lock(mMutex);
      wait = UntilNextLook();
    }
    pollfd fds[] = {{mSignals.get(), POLLIN, 0}, {mWake.get(), POLLIN, 0}};
    (void)poll(fds, 2, wait);
    if (mStops) return;
    if (fds[1].revents) (void)mWake.Take();
    signalfd_siginfo info{};
    const bool heard =
        fds[0].revents && read(mSignals.get(), &info, sizeof info) == ssize_t{sizeof info};
    const nsAutoLock lock(mMutex);
    if (heard) Heard(static_cast<int>(info.ssi_signo));
    const auto now = Clock::now();
    if (mIsWaiting && now >= mSince + kPatience) Die(mLast);
    if (mIsEnding && now >= mEnd) {
      // A line that cannot be written has nowhere else to go.
      [[maybe_unused]] const ssize_t written =
          write(STDERR_FILENO, kTooLong.data(), kTooLong.size());
      _exit(mStatus);
    }
  }
}

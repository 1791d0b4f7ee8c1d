#include "nsFdWatch.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <system_error>
#include <thread>

#include "nsIEventTarget.h"
#include "nsThread.h"

/// Shared by the watch, its thread and the event under way.
struct nsFdWatch::State : std::enable_shared_from_this<State> {
  ~State() {
    if (mWake >= 0) close(mWake);
  }
  /// Stirs the thread: to look at mStopped, or at the descriptor again.
  void Wake() const {
    const uint64_t one = 1;
    (void)!write(mWake, &one,
                 sizeof one);  // fails only when it is full, and then the thread is awake
  }
  void Main() {
    pthread_setname_np(pthread_self(), "FdWatch");
    bool watching = true;
    while (true) {
      pollfd fds[] = {{mWake, POLLIN, 0}, {watching ? mFd : -1, POLLIN, 0}};
      if (poll(fds, 2, -1) < 0) continue;  // interrupted
      if (mStopped) return;
      if (fds[0].revents) {
        uint64_t count;
        (void)!read(mWake, &count, sizeof count);
        watching = true;
      } else if (fds[1].revents) {
        watching = false;  // until the function has returned
        const auto event = NS_NewRunnable([self = shared_from_this()] {
          if (self->mStopped) return;
          self->mReady();
          self->Wake();
        });
        if (NS_FAILED(mTarget->Dispatch(event.get(), nsIEventTarget::DISPATCH_NORMAL))) return;
      }
    }
  }

  int mFd = -1;
  int mWake = -1;
  nsCOMPtr<nsIEventTarget> mTarget;
  std::function<void()> mReady;
  std::atomic<bool> mStopped{false};
  std::thread mThread;
};

nsresult nsFdWatch::Start(int aFd, nsIEventTarget* aTarget, std::function<void()> aReady,
                          std::unique_ptr<nsFdWatch>* aResult) {
  if (aFd < 0 || !aTarget || !aReady) return NS_ERROR_INVALID_ARG;
  const auto state = std::make_shared<State>();
  state->mWake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (state->mWake < 0) return NS_ERROR_OUT_OF_MEMORY;
  state->mFd = aFd;
  state->mTarget = aTarget;
  state->mReady = std::move(aReady);
  try {
    state->mThread = std::thread([raw = state.get()] { raw->Main(); });
  } catch (const std::system_error&) {
    return NS_ERROR_OUT_OF_MEMORY;
  }
  aResult->reset(new nsFdWatch(state));
  return NS_OK;
}

nsFdWatch::~nsFdWatch() {
  mState->mStopped = true;
  mState->Wake();
  mState->mThread.join();
}

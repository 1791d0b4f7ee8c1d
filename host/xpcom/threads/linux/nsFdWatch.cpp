#include "nsFdWatch.h"

#include <poll.h>

#include <atomic>

#include "nsEventFd.h"
#include "nsIEventTarget.h"
#include "nsNamedThread.h"
#include "nsThread.h"

/// Shared by the watch, its thread and the event under way.
struct nsFdWatch::State : std::enable_shared_from_this<State> {
  void Main() {
    bool watching = true;
    while (true) {
      pollfd fds[] = {{mWake.get(), POLLIN, 0}, {watching ? mFd : -1, POLLIN, 0}};
      if (poll(fds, 2, -1) < 0) continue;  // interrupted
      if (mStopped) return;
      if (fds[0].revents) {
        (void)mWake.Take();
        watching = true;
      } else if (fds[1].revents) {
        watching = false;  // until the function has returned
        const auto event = NS_NewRunnable([self = shared_from_this()] {
          if (self->mStopped) return;
          self->mReady();
          self->mWake.Set();
        });
        if (NS_FAILED(mTarget->Dispatch(event.get(), nsIEventTarget::DISPATCH_NORMAL))) return;
      }
    }
  }

  int mFd = -1;
  nsEventFd mWake;  // the thread is to look at mStopped, or at the descriptor again
  nsCOMPtr<nsIEventTarget> mTarget;
  std::function<void()> mReady;
  std::atomic<bool> mStopped{false};
  nsNamedThread mThread;
};

nsresult nsFdWatch::Start(int aFd, nsIEventTarget* aTarget, std::function<void()> aReady,
                          std::unique_ptr<nsFdWatch>* aResult) {
  if (aFd < 0 || !aTarget || !aReady) return NS_ERROR_INVALID_ARG;
  const auto state = std::make_shared<State>();
  if (NS_FAILED(state->mWake.Open())) return NS_ERROR_OUT_OF_MEMORY;
  state->mFd = aFd;
  state->mTarget = aTarget;
  state->mReady = std::move(aReady);
  const nsresult rv = state->mThread.Start("FdWatch", [raw = state.get()] { raw->Main(); });
  if (NS_FAILED(rv)) return rv;
  aResult->reset(new nsFdWatch(state));
  return NS_OK;
}

nsFdWatch::~nsFdWatch() {
  mState->mStopped = true;
  mState->mWake.Set();
  mState->mThread.Join();
}

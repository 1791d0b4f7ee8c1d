#include "nsProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "nsEventFd.h"
#include "nsNamedThread.h"
#include "nsUniqueFd.h"
#include "nsVorelMethodCaller.h"

namespace {

// A standard descriptor that is closed would be given to the first file that is opened, and what is
// meant for a reader would end up in there. These can be neither read nor written as meant.
void TakeClosedDescriptors() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    if (fcntl(fd, F_GETFD) < 0) (void)open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

sigset_t EndSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  return signals;
}

}  // namespace

namespace vorel::process {

void Prepare() {
  TakeClosedDescriptors();
  (void)signal(SIGPIPE, SIG_IGN);
}

std::filesystem::path ProgramFile() { return std::filesystem::read_symlink("/proc/self/exe"); }

std::string WhyUnreadable(const std::string& aPath, bool aIsDirectory) {
  return access(aPath.c_str(), aIsDirectory ? R_OK | X_OK : R_OK) == 0 ? "" : std::strerror(errno);
}

bool IsTerminal() { return isatty(STDOUT_FILENO); }

bool IsInteractive() { return isatty(STDIN_FILENO) && isatty(STDOUT_FILENO); }

int OutputPipe() {
  struct stat facts;
  return fstat(STDOUT_FILENO, &facts) == 0 && S_ISFIFO(facts.st_mode) ? STDOUT_FILENO : -1;
}

}  // namespace vorel::process

/// Shared by the watch, its thread and the call under way.
struct nsSignalWatch::State : std::enable_shared_from_this<State> {
  class Call final : public nsImplements<Call, nsIRunnable> {
   public:
    Call(std::shared_ptr<State> aState, int aSignal)
        : mState(std::move(aState)), mSignal(aSignal) {}
    nsresult Run() override {
      mState->mIsWaiting = false;
      if (mState->mCall) mState->mCall(mSignal);
      return NS_OK;
    }

   private:
    ~Call() override = default;
    const std::shared_ptr<State> mState;
    const int mSignal;
  };

  bool Start() {
    const sigset_t signals = EndSignals();
    mSignals = nsUniqueFd(signalfd(-1, &signals, SFD_CLOEXEC));
    return mSignals && NS_SUCCEEDED(mStop.Open()) &&
           NS_SUCCEEDED(mThread.Start("Signals", [this] { Watch(); }));
  }

  void Watch() {
    std::chrono::steady_clock::time_point first;
    for (;;) {
      pollfd fds[] = {{mSignals.get(), POLLIN, 0}, {mStop.get(), POLLIN, 0}};
      if (poll(fds, 2, -1) < 0) continue;
      if (fds[1].revents) return;
      signalfd_siginfo info;
      if (read(mSignals.get(), &info, sizeof info) != sizeof info) continue;
      const int number = static_cast<int>(info.ssi_signo);
      const auto now = std::chrono::steady_clock::now();
      if (!mIsWaiting.exchange(true)) {
        first = now;
        (void)NS_DispatchToMainThread(MakeRefCounted<Call>(shared_from_this(), number).get(),
                                      NS_DISPATCH_NORMAL);
      } else if (now - first >= std::chrono::seconds(2)) {
        const sigset_t signals = EndSignals();
        (void)signal(number, SIG_DFL);
        (void)pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
        (void)raise(number);
      }
    }
  }

  std::function<void(int)> mCall;        // main thread
  std::atomic<bool> mIsWaiting = false;  // a call has been dispatched and has not begun
  nsUniqueFd mSignals;
  nsEventFd mStop;
  nsNamedThread mThread;
};

void nsSignalWatch::Block() {
  const sigset_t signals = EndSignals();
  (void)pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

nsSignalWatch::nsSignalWatch(std::function<void(int)> aCall) : mState(std::make_shared<State>()) {
  mState->mCall = std::move(aCall);
  if (mState->Start()) return;
  const sigset_t signals = EndSignals();  // better killed by a signal than deaf to it
  (void)pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

nsSignalWatch::~nsSignalWatch() {
  mState->mStop.Set();
  mState->mThread.Join();
  mState->mCall = nullptr;
}

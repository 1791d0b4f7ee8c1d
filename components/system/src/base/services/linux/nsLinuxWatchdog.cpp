#include "nsLinuxWatchdog.h"

#include <poll.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace {

constexpr int kWriteLimit = 500;  // ms

int64_t Now() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

}  // namespace

nsLinuxWatchdog::~nsLinuxWatchdog() {
  mWake.Set();
  mThread.Join();
}

nsresult nsLinuxWatchdog::ReadCapabilities(uint32_t* aSmallest, uint32_t* aLargest) {
  *aSmallest = 1;
  *aLargest = 1'000'000;
  return NS_OK;
}

nsresult nsLinuxWatchdog::BeginPeriod(uint32_t aPeriod) {
  mPeriod = std::max(aPeriod, 1u);
  return NS_OK;
}

nsresult nsLinuxWatchdog::StartThread() {
  if (NS_FAILED(mWake.Open())) return NS_ERROR_FAILURE;
  // Signals are for other threads to take. Not those by which a thread learns that it has gone
  // wrong, nor those by which a crash report asks all threads for their stacks.
  sigset_t taken, before;
  sigemptyset(&taken);
  for (const int signal :
       {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGALRM, SIGTERM, SIGUSR1, SIGUSR2, SIGCHLD, SIGWINCH})
    sigaddset(&taken, signal);
  pthread_sigmask(SIG_BLOCK, &taken, &before);
  const nsresult rv = mThread.Start("Watchdog", [this] { Watch(); });
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return NS_FAILED(rv) ? NS_ERROR_FAILURE : NS_OK;
}

void nsLinuxWatchdog::Watch() {
  for (;;) {
    pollfd wake{.fd = mWake.get(), .events = POLLIN, .revents = 0};
    const int64_t sleep = mTimer.UntilNextLook(Now(), mPeriod);
    if (poll(&wake, 1, static_cast<int>(sleep)) > 0) return;
    if (mTimer.TakeExpired(Now())) mRoutine.load()(*this);
  }
}

nsresult nsLinuxWatchdog::StartTimer(uint32_t aDelay, uint32_t, Routine aRoutine, uint32_t,
                                     uint32_t* aId) {
  if (!mThread.IsStarted())
    if (const nsresult rv = StartThread(); NS_FAILED(rv)) return rv;
  mRoutine = aRoutine;
  const uint32_t id = mTimer.Start(Now(), aDelay);
  if (id == 0) return NS_ERROR_NOT_AVAILABLE;
  *aId = id;
  return NS_OK;
}

nsresult nsLinuxWatchdog::StopTimer(uint32_t aId) {
  return mTimer.Stop(aId) ? NS_OK : NS_ERROR_FAILURE;
}

nsresult nsLinuxWatchdog::ReadErrorMode(uint32_t* aMode) {
  *aMode = mErrorMode;
  return NS_OK;
}

nsresult nsLinuxWatchdog::WriteErrorMode(uint32_t aMode) {
  mErrorMode = aMode;
  return NS_OK;
}

void nsLinuxWatchdog::WriteStandardError(std::string_view aText) {
  while (!aText.empty()) {
    // Whoever reads it may hang as well, and the process has to end all the same.
    pollfd ready{.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
    if (poll(&ready, 1, kWriteLimit) == 0) return;
    const ssize_t written = write(STDERR_FILENO, aText.data(), aText.size());
    if (written > 0)
      aText.remove_prefix(static_cast<size_t>(written));
    else if (errno != EINTR)
      return;
  }
}

// The sanitizers would end the process in a way of their own.
__attribute__((no_sanitize("address", "undefined", "thread"))) void
nsLinuxWatchdog::WriteToAddressZero() {
  // The address is read from a variable, so that the compiler does not know where this goes, and
  // what is written there counts: a store that nobody reads is one that it may leave out.
  volatile int* volatile address = nullptr;
  *address = 0;
}

void nsLinuxWatchdog::ExitProcess(int32_t aStatus) { _exit(aStatus); }

#include "nsStandardStreams.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "nsIAsyncInputStream.h"
#include "nsIAsyncOutputStream.h"
#include "nsIObserverService.h"
#include "nsIPipe.h"
#include "nsImplements.h"
#include "nsNamedThread.h"
#include "nsServices.h"

namespace {

class StandardOutput final : public nsImplements<StandardOutput, nsIOutputStream> {
 public:
  StandardOutput() = default;
  nsresult Close() override { return Flush(); }
  nsresult Flush() override { return std::fflush(stdout) == 0 ? NS_OK : NS_BASE_STREAM_OSERROR; }
  nsresult Write(const char* aBuf, uint32_t aCount, uint32_t* aResult) override {
    if (std::fwrite(aBuf, 1, aCount, stdout) != aCount) return NS_BASE_STREAM_OSERROR;
    *aResult = aCount;
    return Flush();
  }
  nsresult WriteFrom(nsIInputStream*, uint32_t, uint32_t*) override {
    return NS_ERROR_NOT_IMPLEMENTED;
  }
  nsresult WriteSegments(nsReadSegmentFun, void*, uint32_t, uint32_t*) override {
    return NS_ERROR_NOT_IMPLEMENTED;
  }
  nsresult IsNonBlocking(bool* aResult) override {
    *aResult = false;
    return NS_OK;
  }

 private:
  ~StandardOutput() override = default;
};

}  // namespace

struct nsStandardStreams::State {
  nsCOMPtr<nsIAsyncInputStream> mInput;
  nsCOMPtr<nsIAsyncOutputStream> mWritten;
  int mStop = -1;
  bool mIsRaw = false;
  termios mTerminal{};
  nsNamedThread mThread;

  void Read() {
    while (true) {
      pollfd fds[] = {{STDIN_FILENO, POLLIN, 0}, {mStop, POLLIN, 0}};
      if (poll(fds, 2, -1) < 0 && errno == EINTR) continue;
      if (fds[1].revents) break;
      char bytes[4096];
      const ssize_t length = read(STDIN_FILENO, bytes, sizeof bytes);
      if (length < 0 && (errno == EINTR || errno == EAGAIN)) continue;
      if (length <= 0) break;
      // Waits while the reader is slow; closing the other end ends that.
      for (uint32_t done = 0; done < static_cast<uint32_t>(length);) {
        uint32_t count = 0;
        const nsresult rv =
            mWritten->Write(bytes + done, static_cast<uint32_t>(length) - done, &count);
        if (NS_FAILED(rv) || count == 0) return;
        done += count;
      }
    }
    (void)mWritten->Close();
  }
};

nsStandardStreams::nsStandardStreams() : mState(std::make_unique<State>()) {}

nsStandardStreams::~nsStandardStreams() {
  if (mState->mInput) (void)mState->mInput->CloseWithStatus(NS_BASE_STREAM_CLOSED);
  if (mState->mStop >= 0) (void)eventfd_write(mState->mStop, 1);
  mState->mThread.Join();
  if (mState->mStop >= 0) close(mState->mStop);
  if (mState->mIsRaw) (void)tcsetattr(STDIN_FILENO, TCSANOW, &mState->mTerminal);
}

nsresult nsStandardStreams::Start(bool aRaw, std::unique_ptr<nsStandardStreams>* aStreams) {
  std::unique_ptr<nsStandardStreams> streams(new nsStandardStreams);
  State& state = *streams->mState;
  nsresult rv;
  const auto pipe = do_CreateInstance<nsIPipe>("@mozilla.org/pipe;1", &rv);
  if (NS_FAILED(rv)) return rv;
  rv = pipe->Init(true, false, 4096, 4, nullptr);
  if (NS_SUCCEEDED(rv)) rv = pipe->GetInputStream(state.mInput.getter_AddRefs());
  if (NS_SUCCEEDED(rv)) rv = pipe->GetOutputStream(state.mWritten.getter_AddRefs());
  if (NS_FAILED(rv)) return rv;
  const auto os = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID, &rv);
  if (NS_FAILED(rv)) return rv;
  state.mStop = eventfd(0, EFD_CLOEXEC);
  if (state.mStop < 0) return NS_ERROR_OUT_OF_MEMORY;
  rv = state.mThread.Start("Input", [&state] { state.Read(); });
  if (NS_FAILED(rv)) return rv;
  if (aRaw && tcgetattr(STDIN_FILENO, &state.mTerminal) == 0) {
    termios raw = state.mTerminal;
    cfmakeraw(&raw);
    raw.c_oflag |= OPOST;  // what scripts print has lines
    state.mIsRaw = tcsetattr(STDIN_FILENO, TCSANOW, &raw) == 0;
  }
  (void)os->NotifyObservers(MakeRefCounted<StandardOutput>().get(), "vorel-standard-output",
                            nullptr);
  (void)os->NotifyObservers(state.mInput.get(), "vorel-standard-input", nullptr);
  *aStreams = std::move(streams);
  return NS_OK;
}

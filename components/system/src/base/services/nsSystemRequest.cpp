#include "nsSystemRequest.h"

#include <prprf.h>

#include <utility>

#include "nsCommandRunner.h"
#include "nsLock.h"
#include "nsString.h"

namespace {

std::string Hexadecimal(const char* aFormat, nsresult aStatus) {
  char text[32];
  const PRUint32 length = PR_snprintf(text, sizeof text, aFormat, static_cast<uint32_t>(aStatus));
  return std::string(text, length);
}

}  // namespace

struct nsSystemRequest::Running {
  nsMutex mLock;
  std::optional<nsPlatformHost::CommandHandle> mCommand NS_GUARDED_BY(mLock);
  bool mCancelled NS_GUARDED_BY(mLock) = false;
};

nsSystemRequest::nsSystemRequest(nsPlatformRef aPlatform, const char* aLoggerName,
                                 std::string aCommandLine)
    : mPlatform(std::move(aPlatform)),
      mLogger(NS_GetLogger(aLoggerName)),
      mCommandLine(std::move(aCommandLine)) {}

nsresult nsSystemRequest::AsyncStart(nsISupports* aSelf, nsIObserver* aObserver) {
  if (mRunning) return NS_ERROR_IN_PROGRESS;
  const nsresult rv = Start(aSelf);
  if (NS_SUCCEEDED(rv)) mObserver = aObserver;
  return rv;
}

nsresult nsSystemRequest::Start(nsCOMPtr<nsISupports> aSelf) {
  const auto running = std::make_shared<Running>();
  const nsresult rv = Run(std::move(aSelf), running);
  if (NS_FAILED(rv)) return rv;
  mRunning = running;
  mStatus = NS_ERROR_IN_PROGRESS;
  return NS_OK;
}

nsresult nsSystemRequest::Run(nsCOMPtr<nsISupports> aSelf, std::shared_ptr<Running> aRunning) {
  const std::shared_ptr<nsPlatformHost> host = mPlatform->mHost;
  return CommandRunner::Start(
      host, mLogger, mCommandLine,
      [running = std::move(aRunning), host](nsPlatformHost::CommandHandle aCommand) {
        const nsAutoLock lock(running->mLock);
        running->mCommand = aCommand;
        // It was cancelled before it had begun.
        if (running->mCancelled) (void)host->CancelCommand(aCommand);
      },
      [this, aSelf](int32_t aExitStatus) { Stopped(aSelf.get(), aExitStatus); });
}

nsresult nsSystemRequest::Cancel() {
  if (!mRunning) return NS_ERROR_NOT_AVAILABLE;
  const nsAutoLock lock(mRunning->mLock);
  if (mRunning->mCommand) {
    // It may have ended, and the news of that be on its way.
    const nsresult rv = mPlatform->mHost->CancelCommand(*mRunning->mCommand);
    if (NS_FAILED(rv)) return rv;
  }
  mRunning->mCancelled = true;
  return NS_OK;
}

nsresult nsSystemRequest::GetStatus(nsresult* aStatus) {
  SYSTEM_LOG_DEBUG(mLogger, Hexadecimal("mStatus=0x%x", mStatus));
  *aStatus = mStatus;
  return NS_OK;
}

void nsSystemRequest::Stopped(nsISupports* aSelf, int32_t aExitStatus) {
  const auto running = std::exchange(mRunning, nullptr);
  bool cancelled;
  {
    const nsAutoLock lock(running->mLock);
    cancelled = running->mCancelled;
  }
  mStatus = cancelled ? NS_ERROR_ABORT : aExitStatus == 0 ? NS_OK : NS_ERROR_FAILURE;
  if (const nsCOMPtr<nsIObserver> observer = std::exchange(mObserver, nullptr))
    (void)observer->Observe(aSelf, "system-request-stopped",
                            NS_ToUtf16(Hexadecimal("0x%x", mStatus)).c_str());
}

// No class of the module's makes these; they have no identifiers of their own.

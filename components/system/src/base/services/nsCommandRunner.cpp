#include "nsCommandRunner.h"

#include <cerrno>
#include <utility>

#include "nsIThreadManager.h"
#include "nsServices.h"
#include "nsVorelMethodCaller.h"

nsresult CommandRunner::Start(std::shared_ptr<nsPlatformHost> aHost,
                              nsCOMPtr<nsILog4Logger> aLogger, std::string aCommandLine,
                              std::function<void(nsPlatformHost::CommandHandle)> aStarted,
                              std::function<void(int32_t)> aEnded) {
  nsresult rv;
  const auto threads = do_GetService<nsIThreadManager>(NS_THREADMANAGER_CONTRACTID, &rv);
  if (NS_FAILED(rv)) return rv;
  nsCOMPtr<nsIThread> thread;
  rv = threads->NewThread(0, nsIThreadManager::DEFAULT_STACK_SIZE, thread.getter_AddRefs());
  if (NS_FAILED(rv)) return rv;
  const auto runner =
      MakeRefCounted<CommandRunner>(std::move(aHost), std::move(aLogger), std::move(aCommandLine),
                                    std::move(aStarted), std::move(aEnded));
  return thread->Dispatch(runner.get(), NS_DISPATCH_NORMAL);
}

CommandRunner::CommandRunner(std::shared_ptr<nsPlatformHost> aHost, nsCOMPtr<nsILog4Logger> aLogger,
                             std::string aCommandLine,
                             std::function<void(nsPlatformHost::CommandHandle)> aStarted,
                             std::function<void(int32_t)> aEnded)
    : mCommandLine(std::move(aCommandLine)),
      mHost(std::move(aHost)),
      mLogger(std::move(aLogger)),
      mStarted(std::move(aStarted)),
      mEnded(std::move(aEnded)) {}

nsresult CommandRunner::Run() {
  if (!mThread) {
    RunCommand();
    const auto threads = do_GetService<nsIThreadManager>(NS_THREADMANAGER_CONTRACTID);
    if (threads) (void)threads->GetCurrentThread(mThread.getter_AddRefs());
    return NS_DispatchToMainThread(this, NS_DISPATCH_NORMAL);
  }
  (void)mThread->Shutdown();
  mThread = nullptr;
  if (mEnded) std::exchange(mEnded, {})(mStatus);
  return NS_OK;
}

void CommandRunner::RunCommand() {
  nsPlatformHost::CommandHandle command = 0;
  int32_t error = 0;
  if (NS_SUCCEEDED(mHost->StartCommand(mCommandLine, &command, &error))) {
    if (mStarted) mStarted(command);
    if (NS_FAILED(mHost->WaitForCommand(command, &mStatus))) mStatus = -1;
  }
  if (mStatus != 0)
    SYSTEM_LOG_WARNING(
        mLogger, "Can't execute command '" + mCommandLine + "' errno=" + std::to_string(error));
}

// Runs a command on a thread that ends by itself.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "nsIRunnable.h"
#include "nsIThread.h"
#include "nsImplements.h"
#include "nsLogger.h"
#include "nsPlatformHost.h"

/// Runs twice: first on the new thread, for the command, then on the main thread, which joins the
/// new one. Nobody else could: a thread can't join itself, and whoever asked has long gone on.
class CommandRunner final : public nsImplements<CommandRunner, nsIRunnable> {
 public:
  /// Starts it on a thread of its own. aStarted, where given, hears of the handle on that thread
  /// and may have it cancelled until aEnded has been called; aEnded hears of the status, or -1 when
  /// the command could not be started, on the main thread.
  static nsresult Start(std::shared_ptr<nsPlatformHost> aHost, nsCOMPtr<nsILog4Logger> aLogger,
                        std::string aCommandLine,
                        std::function<void(nsPlatformHost::CommandHandle)> aStarted = {},
                        std::function<void(int32_t)> aEnded = {});

  CommandRunner(std::shared_ptr<nsPlatformHost> aHost, nsCOMPtr<nsILog4Logger> aLogger,
                std::string aCommandLine,
                std::function<void(nsPlatformHost::CommandHandle)> aStarted,
                std::function<void(int32_t)> aEnded);

  nsresult Run() override;

 private:
  ~CommandRunner() override = default;

  void RunCommand();

  const std::string mCommandLine;
  nsCOMPtr<nsIThread> mThread;  // null until the first run is over
  const std::shared_ptr<nsPlatformHost> mHost;
  const nsCOMPtr<nsILog4Logger> mLogger;
  std::function<void(nsPlatformHost::CommandHandle)> mStarted;
  std::function<void(int32_t)> mEnded;
  int32_t mStatus = -1;
};

#pragma once

#include <sys/types.h>

#include <mutex>
#include <set>

#include "nsPlatformHost.h"

/// The names of this system, and commands through its shell. The cursor's counter is kept; nothing
/// is drawn by it, for this port has no connection to a display.
class nsLinuxHost final : public nsPlatformHost {
 public:
  nsresult ReadHostName(uint32_t aCapacity, std::string* aName) override;
  nsresult ReadPlatformName(std::string* aName) override;
  nsresult ReadDeviceId(std::string* aDeviceId) override;
  nsresult StepCursorCounter(bool aShow, int32_t* aCounter) override;
  nsresult StartCommand(const std::string& aLine, CommandHandle* aCommand,
                        int32_t* aError) override;
  nsresult WaitForCommand(CommandHandle aCommand, int32_t* aStatus) override;
  nsresult CancelCommand(CommandHandle aCommand) override;

 private:
  std::mutex mLock;
  int32_t mCursorCounter = 0;
  std::set<pid_t> mCommands;  // not yet forgotten, so their numbers are nobody else's
};

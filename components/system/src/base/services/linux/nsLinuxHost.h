// The names of this system, its commands, and its cursor.
#pragma once

#include <sys/types.h>

#include <mutex>
#include <set>

#include "nsDisplayCursor.h"
#include "nsPlatformHost.h"

/// The names of this system, commands through its shell, and the cursor of the X display. X knows
/// no counter that others move too: it is this object's own.
class nsLinuxHost final : public nsPlatformHost {
 public:
  nsresult ReadHostName(uint32_t aCapacity, std::string* aName) override;
  nsresult ReadPlatformName(std::string* aName) override;
  nsresult ReadDeviceId(std::string* aDeviceId) override;
  nsresult ReadProcessId(uint32_t* aId) override;
  nsresult StepCursorCounter(bool aShow, int32_t* aCounter) override;
  nsresult StartCommand(const std::string& aLine, CommandHandle* aCommand,
                        int32_t* aError) override;
  nsresult WaitForCommand(CommandHandle aCommand, int32_t* aStatus) override;
  nsresult CancelCommand(CommandHandle aCommand) override;

 private:
  std::mutex mCursorLock;  // guards the two below; held while a display is waited for
  int32_t mCursorCounter = 0;
  nsDisplayCursor mCursor;  // hidden while the counter is negative
  std::mutex mLock;
  std::set<pid_t> mCommands;  // not yet forgotten, so their numbers are nobody else's
};

// The names of this system, its commands, and its cursor.
#pragma once

#include <sys/types.h>

#include <set>

#include "nsDisplayCursor.h"
#include "nsLock.h"
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
  nsMutex mCursorLock;  // guards the two below; held while a display is waited for
  int32_t mCursorCounter NS_GUARDED_BY(mCursorLock) = 0;
  nsDisplayCursor mCursor NS_GUARDED_BY(mCursorLock);  // hidden while the counter is negative
  nsMutex mLock;
  // Not yet forgotten, so their numbers are nobody else's.
  std::set<pid_t> mCommands NS_GUARDED_BY(mLock);
};

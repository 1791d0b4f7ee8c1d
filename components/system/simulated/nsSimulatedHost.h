// A machine as a whole, of facts: its names, cursor and commands.
#pragma once

#include <functional>
#include <map>
#include <optional>

#include "nsLock.h"
#include "nsMachineValue.h"
#include "nsPlatformHost.h"
#include "nsSimulatedCalls.h"

/// A machine's names, its cursor, and commands that are facts: nothing is ever run.
class nsSimulatedHost final : public nsPlatformHost, public nsSimulatedPort {
 public:
  explicit nsSimulatedHost(nsSimulatedCallsRef aCalls);

  void SetHostName(std::string aName);
  void SetPlatformName(std::string aName);
  void SetDeviceId(std::string aDeviceId);
  /// Somebody else in the process has moved the cursor's counter there; and where it may go.
  void SetCursorCounter(int32_t aCounter, int32_t aLowest = INT32_MIN);
  int32_t CursorCounter() const;
  /// What a command ends with, or nothing: it runs until it is cancelled. A command that is not
  /// told of is one that does not exist.
  void SetCommand(std::string aLine, std::optional<int32_t> aStatus);

  /// An object, as docs/machine-file.md tells. Throws nsMachineFileError.
  void ReadFacts(const nsMachineValue& aValue);
  std::function<void()> ReadChange(const nsMachineValue& aValue);

  nsresult ReadHostName(uint32_t aCapacity, std::string* aName) override;
  nsresult ReadPlatformName(std::string* aName) override;
  nsresult ReadDeviceId(std::string* aDeviceId) override;
  /// Always 1.
  nsresult ReadProcessId(uint32_t* aId) override;
  nsresult StepCursorCounter(bool aShow, int32_t* aCounter) override;
  nsresult StartCommand(const std::string& aLine, CommandHandle* aCommand,
                        int32_t* aError) override;
  nsresult WaitForCommand(CommandHandle aCommand, int32_t* aStatus) override;
  nsresult CancelCommand(CommandHandle aCommand) override;

 private:
  std::string mHostName NS_GUARDED_BY(mLock) = "simulated";
  std::string mPlatformName NS_GUARDED_BY(mLock) = "simulated-machine";
  std::string mDeviceId NS_GUARDED_BY(mLock);
  int32_t mCursorCounter NS_GUARDED_BY(mLock) = 0, mLowestCounter NS_GUARDED_BY(mLock) = INT32_MIN;
  std::map<std::string, std::optional<int32_t>> mCommands NS_GUARDED_BY(mLock);
  std::map<CommandHandle, std::optional<int32_t>> mRunning NS_GUARDED_BY(mLock);
  nsCondition mEnded;
  CommandHandle mLastCommand NS_GUARDED_BY(mLock) = 0;
};

#include "nsSimulatedHost.h"

#include <algorithm>
#include <set>

namespace {
constexpr int32_t kNoSuchCommand = 127;
constexpr int32_t kEndedBySignal = 128 + 15;
}  // namespace

nsSimulatedHost::nsSimulatedHost(nsSimulatedCallsRef aCalls)
    : nsSimulatedPort(std::move(aCalls), "Host") {}

void nsSimulatedHost::SetHostName(std::string aName) {
  const nsAutoLock lock(mLock);
  mHostName = std::move(aName);
}

void nsSimulatedHost::SetPlatformName(std::string aName) {
  const nsAutoLock lock(mLock);
  mPlatformName = std::move(aName);
}

void nsSimulatedHost::SetDeviceId(std::string aDeviceId) {
  const nsAutoLock lock(mLock);
  mDeviceId = std::move(aDeviceId);
}

void nsSimulatedHost::SetCursorCounter(int32_t aCounter, int32_t aLowest) {
  const nsAutoLock lock(mLock);
  mCursorCounter = aCounter;
  mLowestCounter = aLowest;
}

int32_t nsSimulatedHost::CursorCounter() const {
  const nsAutoLock lock(mLock);
  return mCursorCounter;
}

void nsSimulatedHost::SetCommand(std::string aLine, std::optional<int32_t> aStatus) {
  const nsAutoLock lock(mLock);
  mCommands[std::move(aLine)] = aStatus;
}

std::function<void()> nsSimulatedHost::ReadChange(const nsMachineValue& aValue) {
  std::vector<std::function<void()>> steps;
  aValue.AsObject([&](nsMachineObject& aObject) {
    const auto text = [&](const char* aKey, void (nsSimulatedHost::*aSet)(std::string)) {
      if (const auto* value = aObject.Optional(aKey))
        steps.push_back([this, aSet, text = value->AsString()] { (this->*aSet)(text); });
    };
    text("name", &nsSimulatedHost::SetHostName);
    text("platform", &nsSimulatedHost::SetPlatformName);
    text("deviceId", &nsSimulatedHost::SetDeviceId);
    std::set<std::string> lines;
    if (const auto* commands = aObject.Optional("commands"))
      for (const nsMachineValue& command : commands->AsArray())
        command.AsObject([&](nsMachineObject& aCommand) {
          const std::string& line = aCommand.Required("line").AsString();
          if (!lines.insert(line).second) command.FailRepeated("command", line);
          std::optional<int32_t> status;
          if (const auto* value = aCommand.Optional("status"))
            status = value->AsInteger<int32_t>(0, 255);
          steps.push_back([this, line, status] { SetCommand(line, status); });
        });
  });
  return [steps] {
    for (const auto& step : steps) step();
  };
}

void nsSimulatedHost::ReadFacts(const nsMachineValue& aValue) { ReadChange(aValue)(); }

nsresult nsSimulatedHost::ReadHostName(uint32_t aCapacity, std::string* aName) {
  if (nsresult rv = Enter("ReadHostName"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  if (mHostName.size() >= aCapacity) return NS_ERROR_FAILURE;
  *aName = mHostName;
  return NS_OK;
}

nsresult nsSimulatedHost::ReadPlatformName(std::string* aName) {
  if (nsresult rv = Enter("ReadPlatformName"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  *aName = mPlatformName;
  return NS_OK;
}

nsresult nsSimulatedHost::ReadDeviceId(std::string* aDeviceId) {
  if (nsresult rv = Enter("ReadDeviceId"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  if (mDeviceId.empty()) return NS_ERROR_NOT_IMPLEMENTED;
  *aDeviceId = mDeviceId;
  return NS_OK;
}

nsresult nsSimulatedHost::ReadProcessId(uint32_t* aId) {
  if (nsresult rv = Enter("ReadProcessId"); NS_FAILED(rv)) return rv;
  *aId = 1;
  return NS_OK;
}

nsresult nsSimulatedHost::StepCursorCounter(bool aShow, int32_t* aCounter) {
  if (nsresult rv = Enter("StepCursorCounter"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  mCursorCounter = std::max(mCursorCounter + (aShow ? 1 : -1), mLowestCounter);
  *aCounter = mCursorCounter;
  return NS_OK;
}

nsresult nsSimulatedHost::StartCommand(const std::string& aLine, CommandHandle* aCommand,
                                       int32_t* aError) {
  if (nsresult rv = Enter("StartCommand"); NS_FAILED(rv)) {
    *aError = 12;
    return rv;
  }
  const nsAutoLock lock(mLock);
  const auto command = mCommands.find(aLine);
  mRunning[++mLastCommand] = command != mCommands.end() ? command->second : kNoSuchCommand;
  Record("StartCommand " + aLine);
  *aCommand = mLastCommand;
  return NS_OK;
}

nsresult nsSimulatedHost::WaitForCommand(CommandHandle aCommand, int32_t* aStatus) {
  if (nsresult rv = Enter("WaitForCommand"); NS_FAILED(rv)) return rv;
  nsAutoLock lock(mLock);
  const auto command = mRunning.find(aCommand);
  if (command == mRunning.end()) return NS_ERROR_FAILURE;
  mEnded.Wait(lock, [&] { return command->second.has_value(); });
  *aStatus = *command->second;
  mRunning.erase(command);
  return NS_OK;
}

nsresult nsSimulatedHost::CancelCommand(CommandHandle aCommand) {
  if (nsresult rv = Enter("CancelCommand"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  const auto command = mRunning.find(aCommand);
  if (command == mRunning.end()) return NS_ERROR_NOT_AVAILABLE;
  if (!command->second) command->second = kEndedBySignal;
  mEnded.NotifyAll();
  Record("CancelCommand");
  return NS_OK;
}

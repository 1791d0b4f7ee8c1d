#include "nsSimulatedCalls.h"

#include <utility>

void nsSimulatedCalls::AddPort(const std::string& aPort) {
  const nsAutoLock lock(mLock);
  mCounts.emplace(aPort, 0);
}

bool nsSimulatedCalls::HasPort(std::string_view aPort) const {
  const nsAutoLock lock(mLock);
  return mCounts.contains(aPort);
}

nsresult nsSimulatedCalls::Enter(std::string_view aPort, std::string_view aMethod) {
  const nsAutoLock lock(mLock);
  ++mCounts.find(aPort)->second;

  nsresult result = NS_OK;
  std::erase_if(mFaults, [&](nsSimulatedFault& aFault) {
    const bool matches = (aFault.mPort.empty() || aFault.mPort == aPort) &&
                         (aFault.mMethod.empty() || aFault.mMethod == aMethod);
    if (!matches) return false;
    // Every waiting fault counts the call, also when an earlier one has decided it.
    if (aFault.mNumber > 1) {
      --aFault.mNumber;
      return false;
    }
    if (NS_SUCCEEDED(result)) result = aFault.mResult;
    return !aFault.mForEver;
  });
  if (NS_FAILED(result)) mFailed.push_back(std::string(aPort) + "." + std::string(aMethod));
  return result;
}

void nsSimulatedCalls::Fail(nsSimulatedFault aFault) {
  const nsAutoLock lock(mLock);
  mFaults.push_back(std::move(aFault));
}

void nsSimulatedCalls::FailCall(uint64_t aNumber, nsresult aResult) {
  Fail({.mPort = {}, .mMethod = {}, .mNumber = aNumber, .mResult = aResult});
}

void nsSimulatedCalls::ClearFaults() {
  const nsAutoLock lock(mLock);
  mFaults.clear();
}

uint64_t nsSimulatedCalls::Count(std::string_view aPort) const {
  const nsAutoLock lock(mLock);
  uint64_t sum = 0;
  for (const auto& [port, count] : mCounts)
    if (aPort.empty() || port == aPort) sum += count;
  return sum;
}

std::vector<std::string> nsSimulatedCalls::FailedCalls() const {
  const nsAutoLock lock(mLock);
  return mFailed;
}

void nsSimulatedCalls::Record(std::string aAction) {
  const nsAutoLock lock(mLock);
  mJournal.push_back(std::move(aAction));
}

std::vector<std::string> nsSimulatedCalls::TakeJournal() {
  const nsAutoLock lock(mLock);
  return std::exchange(mJournal, {});
}

#include "nsSimulatedWatchdog.h"

#include <algorithm>
#include <tuple>

nsSimulatedWatchdog::nsSimulatedWatchdog(nsSimulatedCallsRef aCalls)
    : nsSimulatedPort(std::move(aCalls), "Watchdog") {}

void nsSimulatedWatchdog::Advance(int64_t aMilliseconds) {
  // As the thread of a machine would: it sleeps until the next look, and looks.
  const int64_t end = mNow + aMilliseconds;
  while (mNow < end) {
    mNow += std::min(mTimer.UntilNextLook(mNow, end - mNow), end - mNow);
    if (mTimer.TakeExpired(mNow)) mRoutine(*this);
  }
}

void nsSimulatedWatchdog::SetCapabilities(std::optional<std::pair<uint32_t, uint32_t>> aPeriods) {
  mCapabilities = aPeriods;
}

nsresult nsSimulatedWatchdog::ReadCapabilities(uint32_t* aSmallest, uint32_t* aLargest) {
  if (nsresult rv = Enter("ReadCapabilities"); NS_FAILED(rv)) return rv;
  if (!mCapabilities) return NS_ERROR_FAILURE;
  std::tie(*aSmallest, *aLargest) = *mCapabilities;
  return NS_OK;
}

nsresult nsSimulatedWatchdog::BeginPeriod(uint32_t aPeriod) {
  if (nsresult rv = Enter("BeginPeriod"); NS_FAILED(rv)) return rv;
  mPeriod = aPeriod;
  return NS_OK;
}

nsresult nsSimulatedWatchdog::StartTimer(uint32_t aDelay, uint32_t, Routine aRoutine, uint32_t,
                                         uint32_t* aId) {
  if (nsresult rv = Enter("StartTimer"); NS_FAILED(rv)) return rv;
  const uint32_t id = mTimer.Start(mNow, aDelay);
  if (id == 0) return NS_ERROR_NOT_AVAILABLE;
  mRoutine = aRoutine;
  *aId = id;
  return NS_OK;
}

nsresult nsSimulatedWatchdog::StopTimer(uint32_t aId) {
  if (nsresult rv = Enter("StopTimer"); NS_FAILED(rv)) return rv;
  return mTimer.Stop(aId) ? NS_OK : NS_ERROR_FAILURE;
}

nsresult nsSimulatedWatchdog::ReadErrorMode(uint32_t* aMode) {
  if (nsresult rv = Enter("ReadErrorMode"); NS_FAILED(rv)) return rv;
  *aMode = mErrorMode;
  return NS_OK;
}

nsresult nsSimulatedWatchdog::WriteErrorMode(uint32_t aMode) {
  if (nsresult rv = Enter("WriteErrorMode"); NS_FAILED(rv)) return rv;
  mErrorMode = aMode;
  return NS_OK;
}

void nsSimulatedWatchdog::WriteStandardError(std::string_view aText) { mStandardError += aText; }

void nsSimulatedWatchdog::WriteToAddressZero() { Record("WriteToAddressZero"); }

void nsSimulatedWatchdog::ExitProcess(int32_t aStatus) {
  Record("ExitProcess " + std::to_string(aStatus));
}

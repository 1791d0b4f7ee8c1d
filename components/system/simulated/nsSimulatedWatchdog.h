// A watchdog on the time of a test.
#pragma once

#include <optional>
#include <string>

#include "nsPlatformWatchdog.h"
#include "nsPlatformWatchdogTimer.h"
#include "nsSimulatedCalls.h"

/// A watchdog whose time goes by when a test says so. What would end the process goes into the
/// journal, and the process lives on.
class nsSimulatedWatchdog final : public nsPlatformWatchdog, public nsSimulatedPort {
 public:
  explicit nsSimulatedWatchdog(nsSimulatedCallsRef aCalls);

  /// The machine is awake for that long; a timer that becomes due meanwhile fires.
  void Advance(int64_t aMilliseconds);
  int64_t Now() const { return mNow; }
  /// The device's periods; nothing: there is no such device.
  void SetCapabilities(std::optional<std::pair<uint32_t, uint32_t>> aPeriods);
  uint32_t Period() const { return mPeriod; }
  uint32_t ErrorMode() const { return mErrorMode; }
  const std::string& StandardError() const { return mStandardError; }

  nsresult ReadCapabilities(uint32_t* aSmallest, uint32_t* aLargest) override;
  nsresult BeginPeriod(uint32_t aPeriod) override;
  nsresult StartTimer(uint32_t aDelay, uint32_t aPeriod, Routine aRoutine, uint32_t aFlags,
                      uint32_t* aId) override;
  nsresult StopTimer(uint32_t aId) override;
  nsresult ReadErrorMode(uint32_t* aMode) override;
  nsresult WriteErrorMode(uint32_t aMode) override;
  void WriteStandardError(std::string_view aText) override;
  void WriteToAddressZero() override;
  void ExitProcess(int32_t aStatus) override;

 private:
  std::optional<std::pair<uint32_t, uint32_t>> mCapabilities{{1, 1'000'000}};
  int64_t mNow = 0;
  uint32_t mPeriod = 1;
  uint32_t mErrorMode = 0;
  nsPlatformWatchdogTimer mTimer;
  Routine mRoutine = nullptr;
  std::string mStandardError;
};

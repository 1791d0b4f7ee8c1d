// The deadline of a main thread that hangs.
#pragma once

#include <atomic>

#include "nsEventFd.h"
#include "nsNamedThread.h"
#include "nsPlatformWatchdog.h"
#include "nsPlatformWatchdogTimer.h"

/// A thread that sleeps on CLOCK_MONOTONIC, which stands still while the machine sleeps and does
/// not follow changes of the clock. The first timer starts it; between two feeds it wakes once a
/// period.
class nsLinuxWatchdog final : public nsPlatformWatchdog {
 public:
  nsLinuxWatchdog() = default;
  nsLinuxWatchdog(const nsLinuxWatchdog&) = delete;
  nsLinuxWatchdog& operator=(const nsLinuxWatchdog&) = delete;
  ~nsLinuxWatchdog() override;

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
  nsresult StartThread();
  void Watch();

  nsPlatformWatchdogTimer mTimer;
  std::atomic<Routine> mRoutine{nullptr};
  std::atomic<uint32_t> mPeriod{1000};
  uint32_t mErrorMode = 0;
  nsEventFd mWake;  // set when the thread is to end
  nsNamedThread mThread;
};

// The port of the watchdog: a timer that works when nothing else does, and the end of the process.
#pragma once

#include <cstdint>
#include <string_view>

#include "nsError.h"

class nsPlatformWatchdog {
 public:
  /// Runs on the timer's thread, while the main thread may hang with any lock held: it takes no
  /// lock, allocates nothing, and of this port calls the last three methods only.
  using Routine = void (*)(nsPlatformWatchdog& aPort);

  /// Flags of StartTimer. The numbers are the platform's that has them.
  enum : uint32_t {
    kOneShot = 0,
    kKillSynchronous = 0x100,  ///< After StopTimer has come back, the routine does not run.
  };
  /// Bits of the error mode: what the system would show people, and wait for them.
  enum : uint32_t {
    kFailCriticalErrors = 0x0001,
    kNoFaultErrorBox = 0x0002,
    kNoOpenFileErrorBox = 0x8000,
  };

  virtual ~nsPlatformWatchdog() = default;

  // Main thread. NS_ERROR_FAILURE when the system does not do it.

  /// The smallest and the largest period, in ms, in which the device can count time.
  /// Windows: timeGetDevCaps.
  virtual nsresult ReadCapabilities(uint32_t* aSmallest, uint32_t* aLargest) = 0;
  /// From now on time is counted in this period. Never ended.
  /// Windows: timeBeginPeriod.
  virtual nsresult BeginPeriod(uint32_t aPeriod) = 0;
  /// Calls the routine once, aDelay ms from now, or up to aPeriod ms later. Time that the machine
  /// spends asleep does not count, nor do changes of the clock. *aId is not 0. One timer at a time:
  /// NS_ERROR_NOT_AVAILABLE while one runs. No wait, no allocation but in the first call.
  /// Windows: timeSetEvent.
  virtual nsresult StartTimer(uint32_t aDelay, uint32_t aPeriod, Routine aRoutine, uint32_t aFlags,
                              uint32_t* aId) = 0;
  /// NS_ERROR_FAILURE when that timer does not run, because it has fired for one.
  /// Windows: timeKillEvent.
  virtual nsresult StopTimer(uint32_t aId) = 0;

  /// A platform that shows nothing keeps the bits and does nothing with them.
  /// Windows: GetErrorMode.
  virtual nsresult ReadErrorMode(uint32_t* aMode) = 0;
  /// Windows: SetErrorMode.
  virtual nsresult WriteErrorMode(uint32_t aMode) = 0;

  // Any thread, in any state of the process.

  /// Writes to the standard error stream, past all buffers. Does not wait for long: what can't be
  /// written is lost.
  /// Windows: WriteFile on GetStdHandle(STD_ERROR_HANDLE).
  virtual void WriteStandardError(std::string_view aText) = 0;
  /// Writes to address 0, which ends the process in its crash handling. Comes back when the write
  /// is survived.
  /// Windows: none: a store.
  virtual void WriteToAddressZero() = 0;
  /// Ends the process without running anything more of it.
  /// Windows: TerminateProcess of GetCurrentProcess().
  virtual void ExitProcess(int32_t aStatus) = 0;
};

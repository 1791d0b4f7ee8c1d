// What the contract suites of the services' ports run on: a machine of each backend.
#pragma once

#include <atomic>
#include <functional>
#include <optional>
#include <string>

#include "nsContract.h"
#include "nsPlatformHost.h"
#include "nsPlatformTimeZones.h"
#include "nsPlatformWatchdog.h"

/// A clock, and zones: Europe/Berlin and Asia/Tokyo have definitions. Setting the zone touches
/// nothing but the test's own.
class nsClockMachine {
 public:
  virtual ~nsClockMachine() = default;
  /// Why the test can't run here; empty when it can.
  virtual std::string Lacks() = 0;
  virtual nsPlatformClock& Clock() = 0;
  virtual nsPlatformTimeZones& Zones() = 0;
  /// Calls a function while the clock may not be set, so that no fault can set it. False, and
  /// nothing called, when that can't be had.
  virtual bool WithoutTheRight(const std::function<void()>& aCall) = 0;
};
class ClockContract : public nsContractTest<nsClockMachine> {};

class nsHostMachine {
 public:
  virtual ~nsHostMachine() = default;
  std::string Lacks() const { return {}; }
  virtual nsPlatformHost& Host() = 0;
  /// The line ends with that status, or runs until it is ended, or does not exist.
  virtual void Expect(const std::string& aLine, std::optional<int32_t> aStatus) = 0;
};
class HostContract : public nsContractTest<nsHostMachine> {};

class nsWatchdogMachine {
 public:
  virtual ~nsWatchdogMachine() = default;
  std::string Lacks() const { return {}; }
  virtual nsPlatformWatchdog& Watchdog() = 0;
  /// Back when that many ms have gone by, and the timer's routine has run if it is to in these.
  virtual void PassUntilFired(uint32_t aMilliseconds, std::atomic<uint32_t>& aFired) = 0;
};
class WatchdogContract : public nsContractTest<nsWatchdogMachine> {};

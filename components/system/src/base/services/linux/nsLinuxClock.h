// The clock of this system.
#pragma once

#include <string>

#include "nsPlatformClock.h"

/// The system's clock. The privilege for it is the capability to set it, of the calling thread; the
/// one for the zone is leave to write where the zone is kept.
class nsLinuxClock final : public nsPlatformClock {
 public:
  /// aRoot as in nsLinuxTimeZones.
  explicit nsLinuxClock(std::string_view aRoot = "") : mRoot(aRoot) {}

  nsresult ReadLocalTime(nsPlatformTime* aTime) override;
  nsresult ReadUtcTime(nsPlatformTime* aTime) override;
  nsresult WriteLocalTime(const nsPlatformTime& aTime, uint32_t* aError) override;
  nsresult WriteUtcTime(const nsPlatformTime& aTime, uint32_t* aError) override;
  /// By the driver of the clock that the system itself starts from. In UTC, or in local time where
  /// /etc/adjtime says so.
  nsresult WriteHardwareClock(uint32_t* aError) override;
  nsresult EnablePrivilege(std::string_view aName, bool aEnable, uint32_t* aError) override;

 private:
  const std::string mRoot;
};

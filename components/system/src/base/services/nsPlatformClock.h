// The port of the clock: the wall clock in both readings, and the right to set it.
#pragma once

#include <cstdint>
#include <string_view>

#include "nsError.h"

/// A time by its parts, in the layout that zone definitions have it in.
struct nsPlatformTime {
  uint16_t mYear = 0;
  uint16_t mMonth = 0;      ///< From 1.
  uint16_t mDayOfWeek = 0;  ///< 0 is Sunday. Not looked at when a clock is set.
  uint16_t mDay = 0;        ///< From 1.
  uint16_t mHour = 0;
  uint16_t mMinute = 0;
  uint16_t mSecond = 0;
  uint16_t mMilliseconds = 0;

  friend bool operator==(const nsPlatformTime&, const nsPlatformTime&) = default;
};
static_assert(sizeof(nsPlatformTime) == 16);

/// A privilege is switched on for one action and off again after it. The names are those of the
/// platform which has them by name; others map them to what they have.
inline constexpr std::string_view kPrivilegeSystemTime = "SeSystemtimePrivilege";
inline constexpr std::string_view kPrivilegeTimeZone = "SeTimeZonePrivilege";

/// All methods may be called from any thread.
///
/// *aError is the system's own number for what went wrong, for logs. It is written on failure, and
/// is the one out parameter that is.
class nsPlatformClock {
 public:
  virtual ~nsPlatformClock() = default;

  /// The time in the machine's zone as it is set now.
  /// Windows: GetLocalTime.
  virtual nsresult ReadLocalTime(nsPlatformTime* aTime) = 0;
  /// Windows: GetSystemTime.
  virtual nsresult ReadUtcTime(nsPlatformTime* aTime) = 0;

  /// Sets the machine's clock. NS_ERROR_INVALID_ARG for a time that does not exist: a month 13, a
  /// 30 February. Of a local time that the change from daylight time makes double, one of the two.
  /// NS_ERROR_FILE_ACCESS_DENIED without the privilege kPrivilegeSystemTime.
  /// Windows: SetLocalTime.
  virtual nsresult WriteLocalTime(const nsPlatformTime& aTime, uint32_t* aError) = 0;
  /// Windows: SetSystemTime.
  virtual nsresult WriteUtcTime(const nsPlatformTime& aTime, uint32_t* aError) = 0;

  /// Takes the time over into the clock that runs on while the machine is off. The platform whose
  /// clock is one with it has nothing to do. NS_ERROR_NOT_AVAILABLE on a machine without one;
  /// NS_ERROR_FILE_ACCESS_DENIED as above.
  /// Windows: none: SetSystemTime has done it.
  virtual nsresult WriteHardwareClock(uint32_t* aError) = 0;

  /// Switches one of the privileges above on or off for this process or thread.
  /// NS_ERROR_FILE_ACCESS_DENIED when it may not have it; NS_ERROR_INVALID_ARG for another name.
  /// Switching off what is off is no error.
  /// Windows: LookupPrivilegeValueW, AdjustTokenPrivileges.
  virtual nsresult EnablePrivilege(std::string_view aName, bool aEnable, uint32_t* aError) = 0;
};

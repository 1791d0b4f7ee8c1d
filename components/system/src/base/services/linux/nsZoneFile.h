// The files of the zone data, in the format TZif.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "nsPlatformTimeZones.h"

/// One of the times that a zone keeps.
struct nsZoneTime {
  int32_t mOffset = 0;  ///< Seconds to be added to UTC.
  bool mDaylight = false;
  std::string mName{};  ///< "CET"

  friend bool operator==(const nsZoneTime&, const nsZoneTime&) = default;
};

/// A zone goes over to another time.
struct nsZoneChange {
  int64_t mAt = 0;  ///< Seconds since 1970 UTC.
  nsZoneTime mTo;
};

/// The rule of each year, as the last line of a file has it: "CET-1CEST,M3.5.0,M10.5.0/3".
struct nsZoneRule {
  struct Date {
    enum Kind { kMonthWeekDay, kDayWithoutLeap, kDayOfYear } mKind = kMonthWeekDay;
    int mMonth = 0, mWeek = 0, mDay = 0;
    int32_t mTime = 7200;  ///< Seconds from midnight on; negative, or several days, both happen.
  };
  nsZoneTime mStandard;
  std::optional<nsZoneTime> mDaylight;
  Date mDaylightFrom, mStandardFrom;  ///< With mDaylight only.

  static std::optional<nsZoneRule> Parse(std::string_view aText);
  /// Adds the two changes of a year.
  void AppendChanges(int aYear, std::vector<nsZoneChange>* aChanges) const;
};

/// A zone, read from any bytes.
class nsZoneFile {
 public:
  /// Nothing when the bytes are no such file or contradict themselves.
  static std::optional<nsZoneFile> Parse(std::string_view aBytes);

  nsZoneTime At(int64_t aUtc) const;
  /// The changes from aFrom on and before aTo, in order, those that change nothing left out.
  std::vector<nsZoneChange> Changes(int64_t aFrom, int64_t aTo) const;

  /// The rules in force at a time and the names of the two times; the second name is empty without
  /// daylight time. The dates are yearly ones where one yearly date fits this year and the next.
  /// Where none does, because the changes follow the moon for one, they are the dates of this year.
  nsPlatformZoneInformation Describe(int64_t aNow) const;

 private:
  template <int Bytes>
  bool ReadBlock(std::string_view aBlock, const uint32_t (&aCounts)[6]);

  std::vector<nsZoneTime> mTimes;  // not empty; the first is in force before all changes
  std::vector<std::pair<int64_t, uint8_t>> mChanges;
  std::optional<nsZoneRule> mRule;  // in force after them
};

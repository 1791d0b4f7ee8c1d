#include "nsSimulatedClock.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <optional>
#include <set>

#include "nsString.h"

using namespace std::chrono;

namespace {

// The numbers of the platform that has privileges by name.
constexpr uint32_t kErrorInvalidParameter = 87;
constexpr uint32_t kErrorNotAllAssigned = 1300;
constexpr uint32_t kErrorPrivilegeNotHeld = 1314;

constexpr int64_t kSecondsPerDay = 86400;

std::optional<int64_t> ToSeconds(const nsPlatformTime& aTime) {
  const year_month_day date{year(aTime.mYear), month(aTime.mMonth), day(aTime.mDay)};
  if (!date.ok() || aTime.mHour > 23 || aTime.mMinute > 59 || aTime.mSecond > 59)
    return std::nullopt;
  return sys_days(date).time_since_epoch().count() * kSecondsPerDay + aTime.mHour * 3600 +
         aTime.mMinute * 60 + aTime.mSecond;
}

nsPlatformTime FromSeconds(int64_t aSeconds) {
  const sys_seconds time{seconds(aSeconds)};
  const sys_days days = floor<std::chrono::days>(time);
  const year_month_day date(days);
  const hh_mm_ss clock(time - days);
  const auto narrow = [](auto aValue) { return static_cast<uint16_t>(aValue); };
  return {.mYear = narrow(int(date.year())),
          .mMonth = narrow(unsigned(date.month())),
          .mDayOfWeek = narrow(weekday(days).c_encoding()),
          .mDay = narrow(unsigned(date.day())),
          .mHour = narrow(clock.hours().count()),
          .mMinute = narrow(clock.minutes().count()),
          .mSecond = narrow(clock.seconds().count())};
}

// When a change of the rules comes in a year, on the clock on the wall.
int64_t ChangeInYear(const nsPlatformTime& aDate, year aYear) {
  const month inMonth(aDate.mMonth);
  sys_days date;
  if (aDate.mYear != 0)
    date = sys_days(year_month_day(year(aDate.mYear), inMonth, day(aDate.mDay)));
  else if (const weekday on(aDate.mDayOfWeek); aDate.mDay >= 5)
    date = sys_days(aYear / inMonth / on[last]);
  else
    date = sys_days(aYear / inMonth / on[aDate.mDay]);
  return date.time_since_epoch().count() * kSecondsPerDay + aDate.mHour * 3600 +
         aDate.mMinute * 60 + aDate.mSecond;
}

int64_t ReadTime(const nsMachineValue& aValue) {
  int y = 0;
  unsigned mo = 0, d = 0, h = 0, mi = 0, s = 0;
  char rest = 0;
  if (std::sscanf(aValue.AsString().c_str(), "%4d-%2u-%2uT%2u:%2u:%2uZ%c", &y, &mo, &d, &h, &mi, &s,
                  &rest) == 6 &&
      y >= 1601) {
    const auto narrow = [](auto aNumber) { return static_cast<uint16_t>(aNumber); };
    if (const auto time = ToSeconds({.mYear = narrow(y),
                                     .mMonth = narrow(mo),
                                     .mDay = narrow(d),
                                     .mHour = narrow(h),
                                     .mMinute = narrow(mi),
                                     .mSecond = narrow(s)}))
      return *time;
  }
  aValue.Fail("must be a time like \"2026-03-01T08:30:00Z\"");
}

// [month, week, day of the week, hour, minute]
nsPlatformTime ReadYearlyDate(const nsMachineValue& aValue) {
  const auto& parts = aValue.AsArray();
  if (parts.size() != 5) aValue.Fail("must be month, week, day of the week, hour, minute");
  return {.mMonth = parts[0].AsInteger<uint16_t>(1, 12),
          .mDayOfWeek = parts[2].AsInteger<uint16_t>(0, 6),
          .mDay = parts[1].AsInteger<uint16_t>(1, 5),
          .mHour = parts[3].AsInteger<uint16_t>(0, 23),
          .mMinute = parts[4].AsInteger<uint16_t>(0, 59)};
}

nsSimulatedZone ReadZone(nsMachineObject& aObject) {
  nsSimulatedZone zone;
  zone.mOlsonName = aObject.Required("name").AsString();
  zone.mRules.mBias = aObject.Required("bias").AsInteger<int32_t>(-1440, 1440);
  if (const auto* name = aObject.Optional("standardName"))
    zone.mLocalizedStandard = NS_ToUtf16(name->AsString());
  if (const auto* name = aObject.Optional("daylightName"))
    zone.mLocalizedDaylight = NS_ToUtf16(name->AsString());
  if (const auto* bias = aObject.Optional("daylightBias")) {
    zone.mRules.mDaylightBias = bias->AsInteger<int32_t>(-1440, 1440);
    zone.mRules.mStandardDate = ReadYearlyDate(aObject.Required("standardDate"));
    zone.mRules.mDaylightDate = ReadYearlyDate(aObject.Required("daylightDate"));
  }
  return zone;
}

}  // namespace

int32_t NS_ZoneBiasAt(const nsPlatformZoneRules& aRules, int64_t aUtc) {
  const int32_t standard = aRules.mBias + aRules.mStandardBias;
  const int32_t summer = aRules.mBias + aRules.mDaylightBias;
  const nsPlatformTime &toStandard = aRules.mStandardDate, &toDaylight = aRules.mDaylightDate;
  if (toStandard.mMonth == 0 || toDaylight.mMonth == 0) return standard;

  const sys_seconds wall{seconds(aUtc - standard * 60)};
  const year inYear = year_month_day(floor<days>(wall)).year();
  if (toStandard.mYear != 0 && int(inYear) != toStandard.mYear) return standard;
  // Each date is told on the clock that is in force until then.
  const int64_t daylightFrom = ChangeInYear(toDaylight, inYear) + standard * 60;
  const int64_t standardFrom = ChangeInYear(toStandard, inYear) + summer * 60;
  const bool isDaylight = daylightFrom < standardFrom ? aUtc >= daylightFrom && aUtc < standardFrom
                                                      : aUtc >= daylightFrom || aUtc < standardFrom;
  return isDaylight ? summer : standard;
}

nsSimulatedClock::nsSimulatedClock(nsSimulatedCallsRef aCalls)
    : nsSimulatedPort(std::move(aCalls), "Clock") {}

void nsSimulatedClock::AddZone(nsSimulatedZone aZone) {
  const nsAutoLock lock(mLock);
  mZones.push_back(std::move(aZone));
}

void nsSimulatedClock::SetZone(std::string aOlsonName, Tells aTells) {
  const nsAutoLock lock(mLock);
  const auto zone = std::ranges::find(mZones, aOlsonName, &nsSimulatedZone::mOlsonName);
  mCurrent = zone != mZones.end() ? *zone : nsSimulatedZone{.mOlsonName = std::move(aOlsonName)};
  mTells = aTells;
}

void nsSimulatedClock::SetUtc(int64_t aSeconds) {
  const nsAutoLock lock(mLock);
  mUtc = aSeconds;
}

void nsSimulatedClock::Advance(int64_t aSeconds) {
  const nsAutoLock lock(mLock);
  mUtc += aSeconds;
}

void nsSimulatedClock::SetGranted(std::string_view aPrivilege, bool aGranted) {
  const nsAutoLock lock(mLock);
  if (aGranted)
    mRefused.erase(std::string(aPrivilege));
  else
    mRefused.insert(std::string(aPrivilege));
}

bool nsSimulatedClock::IsEnabled(std::string_view aPrivilege) const {
  const nsAutoLock lock(mLock);
  return mEnabled.contains(aPrivilege);
}

int64_t nsSimulatedClock::Utc() const {
  const nsAutoLock lock(mLock);
  return mUtc;
}

struct nsSimulatedClock::Settings {
  std::optional<int64_t> mUtc;
  std::optional<std::string> mZone;
  std::optional<bool> mMaySet;
};

nsSimulatedClock::Settings nsSimulatedClock::ReadSettings(nsMachineObject& aObject) {
  Settings settings;
  if (const auto* utc = aObject.Optional("utc")) settings.mUtc = ReadTime(*utc);
  if (const auto* zone = aObject.Optional("zone")) settings.mZone = zone->AsString();
  if (const auto* maySet = aObject.Optional("maySet")) settings.mMaySet = maySet->AsBoolean();
  return settings;
}

void nsSimulatedClock::Apply(const Settings& aSettings) {
  if (aSettings.mUtc) SetUtc(*aSettings.mUtc);
  if (aSettings.mZone) SetZone(*aSettings.mZone);
  if (aSettings.mMaySet) {
    SetGranted(kPrivilegeSystemTime, *aSettings.mMaySet);
    SetGranted(kPrivilegeTimeZone, *aSettings.mMaySet);
  }
}

void nsSimulatedClock::ReadFacts(const nsMachineValue& aValue) {
  aValue.AsObject([this](nsMachineObject& aObject) {
    std::set<std::string> names;
    if (const auto* zones = aObject.Optional("zones"))
      for (const nsMachineValue& element : zones->AsArray())
        element.AsObject([&](nsMachineObject& aZone) {
          nsSimulatedZone zone = ReadZone(aZone);
          if (!names.insert(zone.mOlsonName).second) element.FailRepeated("zone", zone.mOlsonName);
          AddZone(std::move(zone));
        });
    Apply(ReadSettings(aObject));
  });
}

std::function<void()> nsSimulatedClock::ReadChange(const nsMachineValue& aValue) {
  Settings settings;
  aValue.AsObject([&](nsMachineObject& aObject) { settings = ReadSettings(aObject); });
  return [this, settings] { Apply(settings); };
}

nsresult nsSimulatedClock::ReadLocalTime(nsPlatformTime* aTime) {
  if (nsresult rv = Enter("ReadLocalTime"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  *aTime = FromSeconds(mUtc - NS_ZoneBiasAt(mCurrent.mRules, mUtc) * 60);
  return NS_OK;
}

nsresult nsSimulatedClock::ReadUtcTime(nsPlatformTime* aTime) {
  if (nsresult rv = Enter("ReadUtcTime"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  *aTime = FromSeconds(mUtc);
  return NS_OK;
}

nsresult nsSimulatedClock::WriteTime(const nsPlatformTime& aTime, bool aLocal, uint32_t* aError) {
  const nsAutoLock lock(mLock);
  if (!mEnabled.contains(kPrivilegeSystemTime)) {
    *aError = kErrorPrivilegeNotHeld;
    return NS_ERROR_FILE_ACCESS_DENIED;
  }
  std::optional<int64_t> time = ToSeconds(aTime);
  if (!time) {
    *aError = kErrorInvalidParameter;
    return NS_ERROR_INVALID_ARG;
  }
  if (aLocal) {
    const nsPlatformZoneRules& rules = mCurrent.mRules;
    const int64_t asStandard = *time + (rules.mBias + rules.mStandardBias) * 60;
    time = *time + NS_ZoneBiasAt(rules, asStandard) * 60;
  }
  mUtc = *time;
  Record("WriteTime " + std::to_string(mUtc));
  return NS_OK;
}

nsresult nsSimulatedClock::WriteLocalTime(const nsPlatformTime& aTime, uint32_t* aError) {
  if (nsresult rv = Enter("WriteLocalTime"); NS_FAILED(rv)) return rv;
  return WriteTime(aTime, true, aError);
}

nsresult nsSimulatedClock::WriteUtcTime(const nsPlatformTime& aTime, uint32_t* aError) {
  if (nsresult rv = Enter("WriteUtcTime"); NS_FAILED(rv)) return rv;
  return WriteTime(aTime, false, aError);
}

nsresult nsSimulatedClock::WriteHardwareClock(uint32_t* aError) {
  if (nsresult rv = Enter("WriteHardwareClock"); NS_FAILED(rv)) {
    *aError = kErrorInvalidParameter;
    return rv;
  }
  const nsAutoLock lock(mLock);
  Record("WriteHardwareClock " + std::to_string(mUtc));
  return NS_OK;
}

nsresult nsSimulatedClock::EnablePrivilege(std::string_view aName, bool aEnable, uint32_t* aError) {
  if (nsresult rv = Enter("EnablePrivilege"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  if (aName != kPrivilegeSystemTime && aName != kPrivilegeTimeZone) {
    *aError = kErrorInvalidParameter;
    return NS_ERROR_INVALID_ARG;
  }
  if (!aEnable) {
    if (const auto enabled = mEnabled.find(aName); enabled != mEnabled.end())
      mEnabled.erase(enabled);
    return NS_OK;
  }
  if (mRefused.contains(aName)) {
    *aError = kErrorNotAllAssigned;
    return NS_ERROR_FILE_ACCESS_DENIED;
  }
  mEnabled.insert(std::string(aName));
  return NS_OK;
}

nsresult nsSimulatedClock::ReadCurrentOlsonName(std::string* aName) {
  if (nsresult rv = Enter("ReadCurrentOlsonName"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  if (mTells != kOlsonName) return NS_ERROR_NOT_AVAILABLE;
  *aName = mCurrent.mOlsonName;
  return NS_OK;
}

nsresult nsSimulatedClock::ReadCurrentStandardName(std::u16string* aName) {
  if (nsresult rv = Enter("ReadCurrentStandardName"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  if (mTells != kStandardName) return NS_ERROR_NOT_AVAILABLE;
  *aName = mCurrent.mStandardName;
  return NS_OK;
}

nsresult nsSimulatedClock::ReadCurrentLocalizedNames(std::u16string* aStandard,
                                                     std::u16string* aDaylight) {
  if (nsresult rv = Enter("ReadCurrentLocalizedNames"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  if (mTells == kNothing) return NS_ERROR_NOT_AVAILABLE;
  *aStandard = mCurrent.mLocalizedStandard;
  *aDaylight = mCurrent.mLocalizedDaylight;
  return NS_OK;
}

const nsSimulatedZone* nsSimulatedClock::Find(const nsPlatformZoneName& aZone) const {
  const auto zone = std::ranges::find_if(mZones, [&](const nsSimulatedZone& aOther) {
    return aOther.mStandardName.empty() ? aOther.mOlsonName == aZone.mOlsonName
                                        : aOther.mStandardName == aZone.mStandardName;
  });
  return zone != mZones.end() ? &*zone : nullptr;
}

nsresult nsSimulatedClock::FindZone(const nsPlatformZoneName& aZone) {
  if (nsresult rv = Enter("FindZone"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  return Find(aZone) ? NS_OK : NS_ERROR_NOT_AVAILABLE;
}

// Each of its zones has one name.
bool nsSimulatedClock::IsSameZone(const nsPlatformZoneName& aZone, std::string_view aOlsonName) {
  const nsAutoLock lock(mLock);
  return aZone.mOlsonName == aOlsonName && Find(aZone);
}

nsresult nsSimulatedClock::ReadRules(const nsPlatformZoneName& aZone, nsPlatformZoneRules* aRules) {
  if (nsresult rv = Enter("ReadRules"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  const nsSimulatedZone* zone = Find(aZone);
  if (!zone) return NS_ERROR_NOT_AVAILABLE;
  *aRules = zone->mRules;
  return NS_OK;
}

nsresult nsSimulatedClock::ReadStandardName(const nsPlatformZoneName& aZone,
                                            std::u16string* aName) {
  if (nsresult rv = Enter("ReadStandardName"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  const nsSimulatedZone* zone = Find(aZone);
  if (!zone || zone->mLocalizedStandard.empty()) return NS_ERROR_NOT_AVAILABLE;
  *aName = zone->mLocalizedStandard;
  return NS_OK;
}

nsresult nsSimulatedClock::ReadDaylightName(const nsPlatformZoneName& aZone,
                                            std::u16string* aName) {
  if (nsresult rv = Enter("ReadDaylightName"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  const nsSimulatedZone* zone = Find(aZone);
  if (!zone || zone->mLocalizedDaylight.empty()) return NS_ERROR_NOT_AVAILABLE;
  *aName = zone->mLocalizedDaylight;
  return NS_OK;
}

nsresult nsSimulatedClock::WriteCurrentZone(const nsPlatformZoneName& aZone,
                                            const nsPlatformZoneInformation& aInformation,
                                            uint32_t* aError) {
  if (nsresult rv = Enter("WriteCurrentZone"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  if (!mEnabled.contains(kPrivilegeTimeZone)) {
    *aError = kErrorPrivilegeNotHeld;
    return NS_ERROR_FILE_ACCESS_DENIED;
  }
  mCurrent = {.mOlsonName = std::string(aZone.mOlsonName),
              .mStandardName = std::u16string(aZone.mStandardName),
              .mRules = aInformation.mRules,
              .mLocalizedStandard = aInformation.mStandardName,
              .mLocalizedDaylight = aInformation.mDaylightName};
  Record("WriteCurrentZone " + mCurrent.mOlsonName);
  return NS_OK;
}

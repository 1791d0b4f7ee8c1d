#include "nsSystemClock.h"

#include <plstr.h>
#include <prprf.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <vector>

#include "nsIObserverService.h"
#include "nsPlatformTimeZones.h"
#include "nsServices.h"
#include "nsString.h"
#include "nsTimeZoneTable.h"
#include "nsXPCOM.h"

namespace {

constexpr std::chrono::milliseconds kSecondWriteDelay(10);

std::string FormatTime(const nsPlatformTime& aTime) {
  char text[64];
  const PRUint32 length =
      PR_snprintf(text, sizeof text, "%.2d%.2d%.2d%.2d%d.%.2d", aTime.mMonth, aTime.mDay,
                  aTime.mHour, aTime.mMinute, aTime.mYear, aTime.mSecond);
  return std::string(text, length);
}

std::string WithError(const char* aFormat, uint32_t aError) {
  char text[128];
  const PRUint32 length = PR_snprintf(text, sizeof text, aFormat, aError);
  return std::string(text, length);
}

}  // namespace

/// One of the two readings of the clock, and what is said of it.
struct nsSystemClock::Reading {
  const char* mName;
  nsresult (nsPlatformClock::*mRead)(nsPlatformTime* aTime);
  nsresult (nsPlatformClock::*mWrite)(const nsPlatformTime& aTime, uint32_t* aError);
  const char* mPrivilegeError;
  const char* mWriteError;
  bool mWriteTwice;
};

const nsSystemClock::Reading nsSystemClock::kLocalTime = {
    "aLocalTime",
    &nsPlatformClock::ReadLocalTime,
    &nsPlatformClock::WriteLocalTime,
    "Can't enable system privilege error = %d",
    "Can't set local time error = %d",
    true};
const nsSystemClock::Reading nsSystemClock::kUtcTime = {"aUtcTime",
                                                        &nsPlatformClock::ReadUtcTime,
                                                        &nsPlatformClock::WriteUtcTime,
                                                        "Can't enable system privilege",
                                                        "Can't set system time",
                                                        false};

nsSystemClock::nsSystemClock(nsPlatformRef aPlatform)
    : mPlatform(std::move(aPlatform)), mLogger(NS_GetLogger("system.clock")) {}

nsresult nsSystemClock::GetTimezone(nsACString& aTimezone) {
  nsPlatformTimeZones& zones = *mPlatform->mTimeZones;

  // A platform that speaks Olson names needs no search, and has names that the table lacks.
  std::string olsonName;
  if (NS_SUCCEEDED(zones.ReadCurrentOlsonName(&olsonName))) {
    // A zone may have got another name since the table was made; applications know the table's.
    if (std::ranges::find(kTimeZoneTable, olsonName, &nsTimeZoneRow::mOlsonName) ==
        kTimeZoneTable.end()) {
      const auto row = std::ranges::find_if(kTimeZoneTable, [&](const nsTimeZoneRow& aRow) {
        return zones.IsSameZone(aRow, olsonName);
      });
      if (row != kTimeZoneTable.end()) olsonName = row->mOlsonName;
    }
    SYSTEM_LOG_DEBUG(mLogger, "olson=" + olsonName);
    return NS_Give(olsonName, aTimezone);
  }

  std::u16string keyName;
  if (NS_SUCCEEDED(zones.ReadCurrentStandardName(&keyName))) {
    SYSTEM_LOG_DEBUG(mLogger, "Windows Vista TimeZoneKeyName=" + NS_ToUtf8(keyName));
    const auto row = std::ranges::find(kTimeZoneTable, keyName, &nsTimeZoneRow::mStandardName);
    if (row != kTimeZoneTable.end()) {
      SYSTEM_LOG_DEBUG(mLogger, "olson=" + std::string(row->mOlsonName));
      return NS_Give(row->mOlsonName, aTimezone);
    }
    SYSTEM_LOG_WARNING(mLogger, "Can't find Olson name for standard name " + NS_ToUtf8(keyName));
  }

  std::u16string standardName, daylightName;
  if (NS_FAILED(zones.ReadCurrentLocalizedNames(&standardName, &daylightName))) {
    SYSTEM_LOG_WARNING(mLogger, "Can't get time zone information");
    return NS_ERROR_FAILURE;
  }
  SYSTEM_LOG_DEBUG(mLogger, "GetTimeZoneInformation\n    StandardName=" + NS_ToUtf8(standardName) +
                                "\n    DaylightName=" + NS_ToUtf8(daylightName));
  for (const nsTimeZoneRow& row : kTimeZoneTable) {
    if (row.mStandardName == standardName) {
      SYSTEM_LOG_DEBUG(mLogger,
                       "Findind localized name in array : olson=" + std::string(row.mOlsonName));
      return NS_Give(row.mOlsonName, aTimezone);
    }
    std::u16string localizedName;
    if (NS_SUCCEEDED(zones.FindZone(row)) &&
        NS_SUCCEEDED(zones.ReadStandardName(row, &localizedName)) &&
        localizedName == standardName) {
      SYSTEM_LOG_DEBUG(mLogger, "Findind localized name in register " +
                                    NS_ToUtf8(row.mStandardName) +
                                    " olson=" + std::string(row.mOlsonName));
      return NS_Give(row.mOlsonName, aTimezone);
    }
  }
  SYSTEM_LOG_WARNING(
      mLogger, "Can't find standard time zone name for localized name" + NS_ToUtf8(standardName));
  return NS_OK;
}

nsresult nsSystemClock::SetTimezone(const nsACString& aTimezone) {
  nsPlatformTimeZones& zones = *mPlatform->mTimeZones;
  const std::string name(NS_View(aTimezone));

  // A zone that the table lacks can be set where the machine knows it by that name.
  nsPlatformZoneName found{{}, name};
  const auto known = std::ranges::find(kTimeZoneTable, name, &nsTimeZoneRow::mOlsonName);
  if (known == kTimeZoneTable.end() && NS_FAILED(zones.FindZone(found))) {
    SYSTEM_LOG_WARNING(mLogger, "Can't find Olson time zone name in array" + name);
    return NS_ERROR_FAILURE;
  }
  if (known != kTimeZoneTable.end()) found = *known;
  const nsPlatformZoneName* const row = &found;
  // The first row decides, also when the machine lacks its definition and has that of a later row.
  if (NS_FAILED(zones.FindZone(*row))) {
    SYSTEM_LOG_WARNING(
        mLogger, "Can't get register data for standard name " + NS_ToUtf8(row->mStandardName));
    return NS_ERROR_FAILURE;
  }
  nsPlatformZoneInformation information;
  if (NS_FAILED(zones.ReadRules(*row, &information.mRules))) {
    SYSTEM_LOG_WARNING(mLogger,
                       "Can't get tzi data for standard name " + NS_ToUtf8(row->mStandardName));
    return NS_ERROR_FAILURE;
  }
  (void)zones.ReadStandardName(*row, &information.mStandardName);
  (void)zones.ReadDaylightName(*row, &information.mDaylightName);

  nsPlatformClock& clock = *mPlatform->mClock;
  uint32_t error = 0;
  if (NS_FAILED(clock.EnablePrivilege(kPrivilegeTimeZone, true, &error)))
    SYSTEM_LOG_WARNING(mLogger, WithError("Can't enable system privilege error=%d", error));
  nsresult result = NS_OK;
  if (NS_FAILED(zones.WriteCurrentZone(*row, information, &error))) {
    SYSTEM_LOG_WARNING(mLogger, WithError("Can't change time zone error=%d", error));
    result = NS_ERROR_FAILURE;
  }
  (void)clock.EnablePrivilege(kPrivilegeTimeZone, false, &error);

  if (NS_SUCCEEDED(result)) {
    const auto observers = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID);
    if (observers)
      (void)observers->NotifyObservers(nullptr, kTimeZoneChangedTopic, NS_ToUtf16(name).c_str());
  }
  return result;
}

nsresult nsSystemClock::GetLocalTime(nsACString& aLocalTime) {
  return ReadClock(kLocalTime, aLocalTime);
}

nsresult nsSystemClock::GetUtcTime(nsACString& aUtcTime) { return ReadClock(kUtcTime, aUtcTime); }

nsresult nsSystemClock::SetLocalTime(const nsACString& aLocalTime) {
  return WriteClock(kLocalTime, aLocalTime);
}

nsresult nsSystemClock::SetUtcTime(const nsACString& aUtcTime) {
  return WriteClock(kUtcTime, aUtcTime);
}

nsresult nsSystemClock::ReadClock(const Reading& aReading, nsACString& aTime) const {
  nsPlatformTime time;
  const nsresult rv = (mPlatform->mClock.get()->*aReading.mRead)(&time);
  if (NS_FAILED(rv)) return rv;
  const std::string text = FormatTime(time);
  SYSTEM_LOG_DEBUG(mLogger, aReading.mName + (" = " + text));
  return NS_Give(text, aTime);
}

// Fields that the text does not give are zero.
nsresult nsSystemClock::ParseTime(const std::string& aText, nsPlatformTime* aTime) const {
  PRInt16 month = 0, day = 0, hour = 0, minute = 0, year = 0, second = 0;
  const size_t point = aText.find('.');
  if (PR_sscanf(aText.c_str(), "%2hd%2hd%2hd%2hd%hd", &month, &day, &hour, &minute, &year) < 5 ||
      (point != std::string::npos && PR_sscanf(aText.c_str() + point + 1, "%2hd", &second) < 1)) {
    SYSTEM_LOG_WARNING(mLogger, "Can't parse date string" + aText);
    return NS_ERROR_FAILURE;
  }
  *aTime = {.mYear = static_cast<uint16_t>(year),
            .mMonth = static_cast<uint16_t>(month),
            .mDay = static_cast<uint16_t>(day),
            .mHour = static_cast<uint16_t>(hour),
            .mMinute = static_cast<uint16_t>(minute),
            .mSecond = static_cast<uint16_t>(second)};
  return NS_OK;
}

nsresult nsSystemClock::WriteClock(const Reading& aReading, const nsACString& aTime) const {
  const std::string text(NS_View(aTime));
  SYSTEM_LOG_DEBUG(mLogger, aReading.mName + (" = " + text));
  nsPlatformTime time;
  nsresult result = ParseTime(text, &time);
  if (NS_FAILED(result)) return result;

  nsPlatformClock& clock = *mPlatform->mClock;
  uint32_t error = 0;
  if (NS_FAILED(clock.EnablePrivilege(kPrivilegeSystemTime, true, &error))) {
    SYSTEM_LOG_WARNING(mLogger, WithError(aReading.mPrivilegeError, error));
    return NS_ERROR_FAILURE;
  }
  if (NS_FAILED((clock.*aReading.mWrite)(time, &error))) {
    SYSTEM_LOG_WARNING(mLogger, WithError(aReading.mWriteError, error));
    result = NS_ERROR_FAILURE;
  }
  if (aReading.mWriteTwice) {
    // The first write is made with the daylight rule that was in force before it. The wait must not
    // go by the clock that has just been set, as NSPR's would.
    std::this_thread::sleep_for(kSecondWriteDelay);
    (void)(clock.*aReading.mWrite)(time, &error);
  }
  if (NS_SUCCEEDED(result)) {
    // Otherwise the time is gone with the power. What can't be done here does not undo the rest.
    const nsresult rv = clock.WriteHardwareClock(&error);
    if (NS_FAILED(rv) && rv != NS_ERROR_NOT_AVAILABLE)
      SYSTEM_LOG_WARNING(mLogger, WithError("Can't set hardware clock error = %d", error));
  }
  (void)clock.EnablePrivilege(kPrivilegeSystemTime, false, &error);
  return result;
}

nsresult nsSystemClock::GetSupportedTimezones(uint32_t* aCount, char*** aTimezones) {
  // One list a process, whichever object was asked first.
  static const std::vector<const char*> sSupported = [this] {
    std::vector<const char*> names;
    names.reserve(kTimeZoneTable.size());
    for (const nsTimeZoneRow& row : kTimeZoneTable) {
      if (NS_SUCCEEDED(mPlatform->mTimeZones->FindZone(row)))
        names.push_back(row.mOlsonName.data());
      else
        SYSTEM_LOG_WARNING(
            mLogger, "Can't get register data for standard name " + NS_ToUtf8(row.mStandardName));
    }
    std::ranges::sort(names, [](const char* aA, const char* aB) { return PL_strcmp(aA, aB) < 0; });
    return names;
  }();

  auto** array =
      static_cast<char**>(NS_Alloc(std::max<size_t>(sSupported.size(), 1) * sizeof(char*)));
  std::ranges::transform(sSupported, array, [](const char* aName) { return NS_NewCString(aName); });
  *aCount = static_cast<uint32_t>(sSupported.size());
  *aTimezones = array;
  return NS_OK;
}

// The port of time zones: what the machine knows of each zone, and which one it is set to.
#pragma once

#include <string>

#include "nsPlatformClock.h"

/// A zone by both of its names. A backend uses the one that its platform speaks.
struct nsPlatformZoneName {
  std::u16string_view mStandardName;  ///< "W. Europe Standard Time"
  std::string_view mOlsonName;        ///< "Europe/Berlin"
};

/// The rules of a zone, in the 44 bytes in which the platform that has them by standard name keeps
/// them. UTC is local time plus a bias, in minutes: plus mBias and, at each time, one of the other
/// two.
///
/// The dates say when each time of the year begins, as the clock on the wall shows it just before
/// the change. With mYear 0 it is every year, and mDay then counts weeks: the first to fourth day
/// mDayOfWeek of the month, 5 for its last. Otherwise it is that date, and no other year is told
/// of. A zone without daylight time has mMonth 0 in both.
struct nsPlatformZoneRules {
  int32_t mBias = 0;
  int32_t mStandardBias = 0;
  int32_t mDaylightBias = 0;
  nsPlatformTime mStandardDate{};
  nsPlatformTime mDaylightDate{};

  friend bool operator==(const nsPlatformZoneRules&, const nsPlatformZoneRules&) = default;
};
static_assert(sizeof(nsPlatformZoneRules) == 44);

/// What a zone is set with. A name may be empty when it was not to be had.
struct nsPlatformZoneInformation {
  nsPlatformZoneRules mRules{};
  std::u16string mStandardName{};
  std::u16string mDaylightName{};
};

/// All methods may be called from any thread. Beside the errors named, NS_ERROR_FAILURE when the
/// system does not answer.
class nsPlatformTimeZones {
 public:
  virtual ~nsPlatformTimeZones() = default;

  // The zone that the machine is set to. Each of the three may be something that a platform does
  // not know.

  /// Its Olson name. NS_ERROR_NOT_AVAILABLE on a platform that does not speak these names, and
  /// where the machine's zone is none that has one.
  /// Windows: none: not available.
  virtual nsresult ReadCurrentOlsonName(std::string* aName) = 0;
  /// Its standard name. NS_ERROR_NOT_AVAILABLE where the platform does not keep it.
  /// Windows: RegQueryValueExW of "TimeZoneKeyName".
  virtual nsresult ReadCurrentStandardName(std::u16string* aName) = 0;
  /// Its names in the language of the machine. NS_ERROR_NOT_AVAILABLE when the zone cannot be told:
  /// a backend whose names are shared by zones that lie far apart answers so rather than let a
  /// search by name guess.
  /// Windows: GetTimeZoneInformation.
  virtual nsresult ReadCurrentLocalizedNames(std::u16string* aStandard,
                                             std::u16string* aDaylight) = 0;

  // The definition of a zone.

  /// NS_OK when the machine has one, NS_ERROR_NOT_AVAILABLE when not.
  /// Windows: RegOpenKeyExW of the zone below "Time Zones".
  virtual nsresult FindZone(const nsPlatformZoneName& aZone) = 0;
  /// Whether a zone, by its Olson name, is the one of that other name, as Asia/Kolkata is
  /// Asia/Calcutta. Not of a zone that the machine lacks.
  /// Windows: none: zones have one name.
  virtual bool IsSameZone(const nsPlatformZoneName& aZone, std::string_view aOlsonName) = 0;
  /// The rules in force now. NS_ERROR_NOT_AVAILABLE without a definition, NS_ERROR_FILE_CORRUPTED
  /// when it cannot be understood.
  /// Windows: RegQueryValueExW of "TZI".
  virtual nsresult ReadRules(const nsPlatformZoneName& aZone, nsPlatformZoneRules* aRules) = 0;
  /// The name of its standard time and of its daylight time, in the language of the machine where
  /// it has them so. Errors as of ReadRules; NS_ERROR_NOT_AVAILABLE also when the zone has no such
  /// time.
  /// Windows: RegQueryValueExW of "Std".
  virtual nsresult ReadStandardName(const nsPlatformZoneName& aZone, std::u16string* aName) = 0;
  /// Windows: RegQueryValueExW of "Dlt".
  virtual nsresult ReadDaylightName(const nsPlatformZoneName& aZone, std::u16string* aName) = 0;

  /// Sets the machine's zone, for good, whole or not at all. A platform that keeps definitions by
  /// name sets the name; one that keeps rules sets the information.
  /// NS_ERROR_FILE_ACCESS_DENIED without the right to do so. *aError as in nsPlatformClock.
  /// Windows: SetTimeZoneInformation.
  virtual nsresult WriteCurrentZone(const nsPlatformZoneName& aZone,
                                    const nsPlatformZoneInformation& aInformation,
                                    uint32_t* aError) = 0;
};

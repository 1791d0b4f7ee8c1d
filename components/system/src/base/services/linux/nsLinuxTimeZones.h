// The time zones of this system.
#pragma once

#include <optional>

#include "nsPlatformTimeZones.h"
#include "nsZoneFile.h"

/// Zones from the zone data under /usr/share/zoneinfo; the current one is where /etc/localtime
/// leads, and its name in /etc/timezone follows where that file exists.
class nsLinuxTimeZones final : public nsPlatformTimeZones {
 public:
  /// Both paths are taken below aRoot, so that a machine's tree other than the running one can be
  /// worked on.
  explicit nsLinuxTimeZones(std::string_view aRoot = "");

  nsresult ReadCurrentOlsonName(std::string* aName) override;
  nsresult ReadCurrentStandardName(std::u16string* aName) override;
  nsresult ReadCurrentLocalizedNames(std::u16string* aStandard, std::u16string* aDaylight) override;
  nsresult FindZone(const nsPlatformZoneName& aZone) override;
  bool IsSameZone(const nsPlatformZoneName& aZone, std::string_view aOlsonName) override;
  nsresult ReadRules(const nsPlatformZoneName& aZone, nsPlatformZoneRules* aRules) override;
  nsresult ReadStandardName(const nsPlatformZoneName& aZone, std::u16string* aName) override;
  nsresult ReadDaylightName(const nsPlatformZoneName& aZone, std::u16string* aName) override;
  nsresult WriteCurrentZone(const nsPlatformZoneName& aZone,
                            const nsPlatformZoneInformation& aInformation,
                            uint32_t* aError) override;

 private:
  bool HasZone(std::string_view aOlsonName) const;
  nsresult Describe(std::string_view aOlsonName, nsPlatformZoneInformation* aInformation) const;
  std::optional<std::string> FindZoneOfCopy(const std::string& aBytes) const;

  bool HasSameBytes(const std::string& aOlsonName, const std::string& aBytes) const;

  const std::string mLocalTime, mZoneData, mTimeZone;
};

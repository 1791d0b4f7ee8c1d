// A clock and time zones of facts.
#pragma once

#include <functional>
#include <set>
#include <vector>

#include "nsMachineValue.h"
#include "nsPlatformTimeZones.h"
#include "nsSimulatedCalls.h"

/// Local time at an instant, in seconds since 1970 UTC, is UTC minus this many minutes.
int32_t NS_ZoneBiasAt(const nsPlatformZoneRules& aRules, int64_t aUtc);

/// The definition of one zone.
struct nsSimulatedZone {
  std::string mOlsonName{};
  std::u16string mStandardName{};  ///< Empty: the definition is found by Olson name.
  nsPlatformZoneRules mRules{};
  std::u16string mLocalizedStandard{};
  std::u16string mLocalizedDaylight{};  ///< Empty: not to be had.
};

/// The clock and the zones of a machine, the two ports of them in one. The clock stands still but
/// for Advance.
class nsSimulatedClock final : public nsPlatformClock,
                               public nsPlatformTimeZones,
                               public nsSimulatedPort {
 public:
  /// How the machine tells which zone it is set to.
  enum Tells { kOlsonName, kStandardName, kLocalizedName, kNothing };

  explicit nsSimulatedClock(nsSimulatedCallsRef aCalls);

  void AddZone(nsSimulatedZone aZone);
  /// The machine is set to the zone of that Olson name, which need not have a definition.
  void SetZone(std::string aOlsonName, Tells aTells = kOlsonName);
  /// Seconds since 1970.
  void SetUtc(int64_t aSeconds);
  void Advance(int64_t aSeconds);
  /// All privileges are granted to begin with.
  void SetGranted(std::string_view aPrivilege, bool aGranted);
  bool IsEnabled(std::string_view aPrivilege) const;
  int64_t Utc() const;

  /// An object, as docs/machine-file.md tells. Throws nsMachineFileError.
  void ReadFacts(const nsMachineValue& aValue);
  /// The same object but for the zones: what the function that is given back sets.
  std::function<void()> ReadChange(const nsMachineValue& aValue);

  nsresult ReadLocalTime(nsPlatformTime* aTime) override;
  nsresult ReadUtcTime(nsPlatformTime* aTime) override;
  nsresult WriteLocalTime(const nsPlatformTime& aTime, uint32_t* aError) override;
  nsresult WriteUtcTime(const nsPlatformTime& aTime, uint32_t* aError) override;
  nsresult WriteHardwareClock(uint32_t* aError) override;
  nsresult EnablePrivilege(std::string_view aName, bool aEnable, uint32_t* aError) override;

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
  /// What a machine file may say of the clock.
  struct Settings;
  static Settings ReadSettings(nsMachineObject& aObject);
  void Apply(const Settings& aSettings);

  const nsSimulatedZone* Find(const nsPlatformZoneName& aZone) const NS_REQUIRES(mLock);
  nsresult WriteTime(const nsPlatformTime& aTime, bool aLocal, uint32_t* aError);

  int64_t mUtc NS_GUARDED_BY(mLock) = 1767225600;  // the beginning of 2026
  nsSimulatedZone mCurrent NS_GUARDED_BY(mLock){.mOlsonName = "UTC"};
  Tells mTells NS_GUARDED_BY(mLock) = kOlsonName;
  std::vector<nsSimulatedZone> mZones NS_GUARDED_BY(mLock);
  std::set<std::string, std::less<>> mRefused NS_GUARDED_BY(mLock), mEnabled NS_GUARDED_BY(mLock);
};

// The service of the machine's clock and zone.
#pragma once

#include "nsClassInfoOfAll.h"
#include "nsISystemClock.h"
#include "nsLogger.h"
#include "nsModuleClass.h"
#include "nsPlatform.h"
#include "nsPlatformClock.h"

/// What observers hear after the zone has changed, with its Olson name as data, which is empty when
/// another process has set it: whoever keeps a
/// copy of it, the script engine above all, has to forget it.
inline constexpr char kTimeZoneChangedTopic[] = "system-timezone-changed";

class nsSystemClock final : public nsImplements<nsSystemClock, nsISystemClock> {
 public:
  static constexpr nsModuleClass kModuleClass{.mRow = 12,
                                              .mCID = "90316285-26d8-4232-bd0f-b2b04385d109"_iid,
                                              .mContractID = "@vorel/system/clock;1",
                                              .mIsService = true};
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfoOfAll<"SystemClock", nsImplementsWith>(kModuleClass.mCID);

  explicit nsSystemClock(nsPlatformRef aPlatform);

  nsresult GetTimezone(nsACString& aTimezone) override;
  nsresult SetTimezone(const nsACString& aTimezone) override;
  nsresult GetLocalTime(nsACString& aLocalTime) override;
  nsresult SetLocalTime(const nsACString& aLocalTime) override;
  nsresult GetUtcTime(nsACString& aUtcTime) override;
  nsresult SetUtcTime(const nsACString& aUtcTime) override;
  nsresult GetSupportedTimezones(uint32_t* aCount, char*** aTimezones) override;

 private:
  struct Reading;
  static const Reading kLocalTime, kUtcTime;

  ~nsSystemClock() override = default;

  nsresult ReadClock(const Reading& aReading, nsACString& aTime) const;
  nsresult WriteClock(const Reading& aReading, const nsACString& aTime) const;
  nsresult ParseTime(const std::string& aText, nsPlatformTime* aTime) const;

  const nsPlatformRef mPlatform;
  const nsCOMPtr<nsILog4Logger> mLogger;
};

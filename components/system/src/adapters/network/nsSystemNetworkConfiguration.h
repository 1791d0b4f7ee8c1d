// The service that puts stored network settings into force, on trial.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "nsIObserver.h"
#include "nsISystemNetworkConfiguration.h"
#include "nsITimer.h"
#include "nsITimerCallback.h"
#include "nsImplements.h"
#include "nsLogger.h"
#include "nsModuleClass.h"
#include "nsNetworkSettings.h"
#include "nsPlatform.h"

inline constexpr char kNetworkConfigurationTopic[] = "network-configuration-changed";

/// Before the first change, records of all that will be changed are in the journal; it goes when
/// the trial is confirmed, or when all of them have been put back. A journal that nobody holds is
/// that of a process that died.
class nsSystemNetworkConfiguration final
    : public nsImplements<nsSystemNetworkConfiguration, nsISystemNetworkConfiguration,
                          nsITimerCallback, nsIObserver> {
 public:
  static constexpr nsModuleClass kModuleClass{.mRow = 19,
                                              .mCID = "1f4be1f2-93a7-4e0c-8d6c-20b6d7a5c934"_iid,
                                              .mContractID = "@vorel/network-configuration;1",
                                              .mIsService = true};
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfo<"", nsISystemNetworkConfiguration>(kModuleClass.mCID);

  explicit nsSystemNetworkConfiguration(nsPlatformRef aPlatform);
  /// Takes back what a process that died has left.
  nsresult InitSingleton();

  nsresult GetState(uint32_t* aState) override;
  nsresult GetReason(nsACString& aReason) override;
  nsresult Check(nsACString& aProblems) override;
  nsresult Apply(uint32_t aSeconds) override;
  nsresult Confirm() override;
  nsresult Rollback() override;

  /// The time is over.
  nsresult Notify(nsITimer* aTimer) override;
  /// "xpcom-shutdown": nobody is left to confirm.
  nsresult Observe(nsISupports* aSubject, const char* aTopic, const char16_t* aData) override;

 private:
  struct Plan {
    std::vector<std::string> mProblems;
    std::vector<std::pair<std::string, nsInterfaceSettings>> mInterfaces;  // those that differ
    std::vector<nsIPv4Bytes> mServers;  // empty: the resolver stays
  };
  /// What has been recorded, in the order in which it is changed. The resolver has the empty name.
  using Records = std::vector<std::pair<std::string, std::string>>;

  ~nsSystemNetworkConfiguration() override = default;

  static std::string FormatJournal(const Records& aRecords);
  static bool ParseJournal(std::string_view aText, Records* aRecords);

  nsresult MakePlan(Plan* aPlan);
  nsresult TakeRecords(const Plan& aPlan, Records* aRecords);
  nsresult WriteAll(const Plan& aPlan, std::string* aStep);
  /// Puts the records back, the last one first, and drops the journal.
  nsresult TakeBack(const std::string& aWhy);
  nsresult Refuse(nsresult aResult, const std::string& aReason);
  nsresult Arm(uint32_t aMilliseconds);
  void SetState(uint32_t aState, std::string aReason);

  const nsPlatformRef mPlatform;
  const nsCOMPtr<nsILog4Logger> mLogger;
  nsCOMPtr<nsITimer> mTimer;
  uint32_t mState = STATE_IDLE;
  std::string mReason;
  Records mRecords;  // not empty while waiting or failed
};

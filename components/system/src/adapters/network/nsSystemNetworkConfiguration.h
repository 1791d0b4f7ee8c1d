// The service that puts stored network settings into force, on trial.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "nsEventPump.h"
#include "nsIObserver.h"
#include "nsISystemNetworkConfiguration.h"
#include "nsITimer.h"
#include "nsITimerCallback.h"
#include "nsImplements.h"
#include "nsLock.h"
#include "nsLogger.h"
#include "nsModuleClass.h"
#include "nsNamedThread.h"
#include "nsNetworkChange.h"
#include "nsPlatform.h"

inline constexpr char kNetworkConfigurationTopic[] = "network-configuration-changed";

/// The main thread has the states, and a thread for each step does what waits for the system; there
/// is one step at a time.
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
  /// Begins to take back what a process that died has left.
  nsresult InitSingleton();

  nsresult GetState(uint32_t* aState) override;
  nsresult GetReason(nsACString& aReason) override;
  nsresult Check(nsACString& aProblems) override;
  nsresult CheckSettings(const nsAString& aInterface, bool aDhcp, const nsACString& aAddress,
                         const nsACString& aGateway, const nsACString& aServers,
                         nsACString& aProblems) override;
  nsresult GetStoredSettings(const nsAString& aInterface, nsACString& aSettings) override;
  nsresult GetLiveSettings(const nsAString& aInterface, nsACString& aSettings) override;
  nsresult GetConfirmedSettings(const nsAString& aInterface, nsACString& aSettings) override;
  nsresult Apply(uint32_t aSeconds) override;
  nsresult Confirm() override;
  nsresult Rollback() override;
  nsresult ApplyConfirmed() override;

  /// The time is over.
  nsresult Notify(nsITimer* aTimer) override;
  /// "xpcom-shutdown": nobody is left to confirm.
  nsresult Observe(nsISupports* aSubject, const char* aTopic, const char16_t* aData) override;

 private:
  using Outcome = nsNetworkChange::Outcome;
  using End = nsNetworkChange::End;

  ~nsSystemNetworkConfiguration() override = default;

  /// Has a step done on a thread of its own; Done follows on the main thread.
  nsresult Start(std::function<Outcome(nsNetworkChange&)> aStep);
  void Done();
  /// What a step's end means.
  void Settle(const Outcome& aOutcome);
  nsresult TakeBack(const std::string& aWhy);
  /// Something waits for its end, or could not be taken back.
  bool IsOpen() const { return mState == STATE_WAITING || (mState == STATE_FAILED && !mIsStart); }
  nsresult Refuse(nsresult aResult, const std::string& aReason);
  nsresult Arm(uint32_t aMilliseconds);
  void Disarm();
  void Listen();
  void HandleRequests();
  void SetState(uint32_t aState, std::string aReason);

  const nsPlatformRef mPlatform;
  const nsCOMPtr<nsILog4Logger> mLogger;
  nsNetworkChange mChange;   // the step's, while there is one
  nsNetworkChange mReading;  // the main thread's
  nsNamedThread mThread;
  bool mIsBusy = false;
  bool mIsEnding = false;
  bool mIsOver = false;   // the time was over during a step
  bool mIsStart = false;  // the step is ApplyConfirmed, which leaves nothing to be taken back
  Outcome mOutcome;       // of the step, once its thread is joined
  nsCOMPtr<nsITimer> mTimer;
  uint32_t mSeconds = 0;
  uint32_t mState = STATE_IDLE;
  std::string mReason;

  std::unique_ptr<nsEventPump> mRequestPump;
  nsMutex mLock;
  std::vector<nsNetworkRequest> mRequests NS_GUARDED_BY(mLock);  // guarded: those that have come
  std::vector<nsNetworkRequest> mAskers;                         // those that wait for an answer
};

// The steps that bring stored network settings into force, and back.
#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "nsNetworkSettings.h"
#include "nsPlatform.h"

/// Before the first change, records of all that will be changed are in the machine's state, which
/// is locked from then on; a trial that nobody holds is that of a process that died. What decides
/// between former and new is one write of the state.
///
/// Services may come up beside this process: until half a minute after this object was made,
/// Recover, Boot and Try wait for those that managed what is in the state. Later they only look.
///
/// Waits for the system: not for the main thread, but for ReadStored, Live and Peek. One thread at
/// a time.
class nsNetworkChange {
 public:
  enum class End {
    eNothing,    ///< there was nothing to do
    eRefused,    ///< nothing was touched
    eInForce,    ///< all of it was in force already
    eOnTrial,    ///< in force, and can be taken back
    eConfirmed,  ///< in force, and stays
    eTakenBack,  ///< what was in force before is so again
    eFailed,     ///< not all of that could be put back
  };
  struct Outcome {
    End mEnd = End::eNothing;
    nsresult mResult = NS_OK;
    std::string mReason;  ///< For people.
  };
  using Strings = std::vector<std::string>;

  explicit nsNetworkChange(nsPlatformRef aPlatform) : mPlatform(std::move(aPlatform)) {}

  /// What the store has of the machine's interfaces that somebody has written.
  nsresult ReadStored(std::vector<nsStoredSettings>* aStored, Strings* aProblems,
                      std::optional<uint32_t>* aIgmpVersion = nullptr);
  /// What is in force on an interface now. NS_ERROR_FILE_NOT_FOUND when it is not there.
  nsresult ReadLive(const std::string& aName, nsInterfaceSettings* aSettings);
  /// The version of IGMP that the machine is held to, or the newest one.
  nsresult ReadLiveIgmp(uint32_t* aVersion);
  /// Whether a process that died has left something to be done; *aIsDamaged when nobody can tell.
  bool Peek(bool* aIsDamaged);
  /// What was confirmed of an interface; nothing when nothing was.
  std::optional<nsInterfaceSettings> Confirmed(const std::string& aName);
  std::optional<uint32_t> ConfirmedIgmp();

  /// Puts everything stored into force, guarded for aSeconds where the system offers it.
  Outcome Try(uint32_t aSeconds);
  /// What is on trial stays. When that fails it is still on trial.
  Outcome Keep();
  /// Puts the former settings back; after a failure, what is left of them.
  Outcome TakeBack(const std::string& aWhy);
  /// Ends what a process that died has left: takes its trial back, or confirms it to the end.
  Outcome Recover();
  /// Recover, and what was confirmed is put into force where that does not outlive a start.
  Outcome Boot();
  /// Hands a word to the process that has a trial.
  Outcome Ask(const std::string& aWord);
  /// Nothing waits for a service any more. Any thread.
  void StopWaiting() { mIsEnding = true; }

 private:
  struct Picture {
    nsAdapterInfo mInfo;
    nsAdapterAddresses mRecord;
  };
  struct Plan {
    Strings mProblems;
    std::vector<std::pair<std::string, nsInterfaceSettings>> mInterfaces;  // those that differ
    std::vector<nsSocketAddress> mServers;  // empty: the resolver stays
    std::optional<uint32_t> mIgmpVersion;   // nothing: it stays
    std::map<std::string, std::string> mServices;

    bool IsEmpty() const { return mInterfaces.empty() && mServers.empty() && !mIgmpVersion; }
  };

  nsPlatformNetworkSettings& Port() const { return *mPlatform->mNetworkSettings; }
  std::string Because(nsresult aResult) const;
  nsresult ReadPictures(std::vector<Picture>* aPictures);
  nsresult MakePlan(Plan* aPlan);
  nsresult CheckServers(std::vector<nsSocketAddress>* aServers);
  nsresult CheckIgmp(std::optional<uint32_t>* aVersion, bool aIsConfirmed);
  /// Whether the service that managed an interface is there, or comes in time.
  bool AwaitService(const std::string& aName);
  /// Whether some of the services that managed what is recorded were not there, and have come.
  bool AwaitServices();
  nsresult TakeRecords(const Plan& aPlan, uint32_t aGuard, nsNetworkState::Records* aRecords);
  nsresult WriteAll(const Plan& aPlan, std::string* aStep);
  /// One that is damaged is empty: it is replaced by the next change.
  nsresult LoadState();
  std::optional<nsNetworkState> PeekState();
  /// Puts what was confirmed of these interfaces into force, and what was of the machine; lines of
  /// what failed.
  Strings PutConfirmed(const Strings& aNames);
  Outcome Finish();
  nsresult Restore(const std::string& aName, const std::string& aRecord);
  /// Puts the records back, and fills aAnew with those that the machine's start has dealt with.
  Strings RestoreAll(Strings* aAnew, nsresult* aResult);
  void Release();

  const nsPlatformRef mPlatform;
  const std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
  std::atomic<bool> mIsEnding = false;
  nsNetworkState mState;                             // as it was loaded or saved last
  std::map<std::string, nsInterfaceSettings> mNext;  // confirmed, once this trial is
  std::optional<uint32_t> mNextIgmp;
};

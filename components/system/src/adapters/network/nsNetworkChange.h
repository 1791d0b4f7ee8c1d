// The steps that bring stored network settings into force, and back.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "nsNetworkSettings.h"
#include "nsPlatform.h"

/// Before the first change, records of all that will be changed are in the machine's state, which
/// is locked from then on; a trial that nobody holds is that of a process that died. What decides
/// between former and new is one write of the state.
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
  nsresult ReadStored(std::vector<nsStoredSettings>* aStored, Strings* aProblems);
  /// What is in force on an interface now. NS_ERROR_FILE_NOT_FOUND when it is not there.
  nsresult ReadLive(const std::string& aName, nsInterfaceSettings* aSettings);
  /// Whether a process that died has left something to be done; *aIsDamaged when nobody can tell.
  bool Peek(bool* aIsDamaged);
  /// What was confirmed of an interface; nothing when nothing was.
  std::optional<nsInterfaceSettings> Confirmed(const std::string& aName);

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

 private:
  struct Picture {
    nsAdapterInfo mInfo;
    nsAdapterAddresses mRecord;
  };
  struct Plan {
    Strings mProblems;
    std::vector<std::pair<std::string, nsInterfaceSettings>> mInterfaces;  // those that differ
    std::vector<nsSocketAddress> mServers;  // empty: the resolver stays
  };

  nsPlatformNetworkSettings& Port() const { return *mPlatform->mNetworkSettings; }
  std::string Because(nsresult aResult) const;
  nsresult ReadPictures(std::vector<Picture>* aPictures);
  nsresult MakePlan(Plan* aPlan);
  nsresult CheckServers(std::vector<nsSocketAddress>* aServers);
  nsresult TakeRecords(const Plan& aPlan, uint32_t aGuard, nsNetworkState::Records* aRecords);
  nsresult WriteAll(const Plan& aPlan, std::string* aStep);
  /// One that is damaged is empty: it is replaced by the next change.
  nsresult LoadState();
  /// Puts what was confirmed of these interfaces into force; lines of what failed.
  Strings PutConfirmed(const Strings& aNames);
  /// Puts the records back, and fills aAnew with those that the machine's start has dealt with.
  Strings RestoreAll(Strings* aAnew, nsresult* aResult);
  void Release();

  const nsPlatformRef mPlatform;
  nsNetworkState mState;                             // as it was loaded or saved last
  std::map<std::string, nsInterfaceSettings> mNext;  // confirmed, once this trial is
};

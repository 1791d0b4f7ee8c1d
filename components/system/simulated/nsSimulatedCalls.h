// What all ports of one simulated machine share: the count of calls, faults, and the journal.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "nsError.h"
#include "nsLock.h"

/// A call that is to fail. The empty port or method stands for any.
struct nsSimulatedFault {
  std::string mPort;                    ///< "Volumes", as the port was named.
  std::string mMethod;                  ///< "ReadDriveKind", as the method of the port is named.
  uint64_t mNumber = 1;                 ///< Which of the matching calls from now on, from 1.
  nsresult mResult = NS_ERROR_FAILURE;  ///< What the call answers. It does nothing else.
  bool mForEver = false;                ///< Whether all matching calls after that one fail too.
};

/// Every method may be called from any thread.
class nsSimulatedCalls {
 public:
  /// Whether the machine has a port of this name.
  bool HasPort(std::string_view aPort) const;

  /// Several faults may wait at a time; the first that is due decides.
  void Fail(nsSimulatedFault aFault);
  /// The n-th call from now on, of whichever port.
  void FailCall(uint64_t aNumber, nsresult aResult = NS_ERROR_FAILURE);
  /// Forgets the faults that have not come.
  void ClearFaults();

  /// Calls since the machine was made: all, or those of one port.
  uint64_t Count(std::string_view aPort = {}) const;
  /// "Volumes.ReadDriveKind" for each call that was made to fail, in order.
  std::vector<std::string> FailedCalls() const;

  /// Notes something that was done to the machine. Reading is no action and leaves no trace here.
  void Record(std::string aAction);
  /// The actions since the last time, in order: "Volumes.OpenVolume D" and the like.
  std::vector<std::string> TakeJournal();

 private:
  friend class nsSimulatedPort;
  void AddPort(const std::string& aPort);
  /// A call has come in at a port that takes part: counts it, and gives what it must answer at once
  /// when that is a failure.
  nsresult Enter(std::string_view aPort, std::string_view aMethod);

  mutable nsMutex mLock;
  std::vector<nsSimulatedFault> mFaults NS_GUARDED_BY(mLock);
  std::map<std::string, uint64_t, std::less<>> mCounts NS_GUARDED_BY(mLock);
  std::vector<std::string> mFailed NS_GUARDED_BY(mLock);
  std::vector<std::string> mJournal NS_GUARDED_BY(mLock);
};
using nsSimulatedCallsRef = std::shared_ptr<nsSimulatedCalls>;

/// The base of a simulated port. Its facts are guarded by mLock, so that tests and scripts of
/// changes may alter them while the logic asks.
class nsSimulatedPort {
 protected:
  nsSimulatedPort(nsSimulatedCallsRef aCalls, std::string aName)
      : mCalls(std::move(aCalls)), mName(std::move(aName)) {
    mCalls->AddPort(mName);
  }
  ~nsSimulatedPort() = default;

  /// Each method of a port begins with `if (nsresult rv = Enter("Method"); NS_FAILED(rv)) return
  /// rv;`.
  nsresult Enter(std::string_view aMethod) const { return mCalls->Enter(mName, aMethod); }
  /// Notes "Port.aAction" in the journal.
  void Record(std::string_view aAction) const {
    mCalls->Record(mName + "." + std::string(aAction));
  }

  mutable nsMutex mLock;

 private:
  const nsSimulatedCallsRef mCalls;
  const std::string mName;
};

// Settings that come into force on the simulated interfaces.
#pragma once

#include <map>
#include <optional>

#include "nsMachineValue.h"
#include "nsPlatformNetworkSettings.h"
#include "nsSimulatedCalls.h"
#include "nsSimulatedNetwork.h"

/// Changes the interfaces of the machine. Its records are good as long as the machine is there,
/// whichever process of it asks: each Port() is one of them.
class nsSimulatedNetworkSettings final : public nsSimulatedPort {
 public:
  nsSimulatedNetworkSettings(nsSimulatedCallsRef aCalls,
                             std::shared_ptr<nsSimulatedNetwork> aNetwork);

  /// What a change of an interface comes to, from now on.
  enum Fault : uint8_t {
    eNone,
    eRefused,   ///< it fails, and nothing has changed
    eHalfDone,  ///< it fails when the addresses are there and the gateways are not
    eLinkLost,  ///< it succeeds, and the link is down from then on
  };
  void SetFault(const std::string& aInterface, Fault aFault);
  /// Who manages the interfaces; to begin with a service that gets leases, and keeps what it is
  /// told.
  void SetWay(nsInterfaceWay aWay);
  /// Whether that service is there: while it is not, nothing of its can be changed.
  void SetAway(bool aIsAway);
  /// What interfaces are held to; 0 to begin with.
  uint32_t IgmpVersion() const;
  /// What a process that ended has left; nothing when there is no state.
  std::optional<std::string> State() const;
  void SetState(std::optional<std::string> aText);

  /// An object, as docs/machine-file.md tells. Throws nsMachineFileError.
  void ReadFacts(const nsMachineValue& aValue);
  /// The same: what the function that is given back does.
  std::function<void()> ReadChange(const nsMachineValue& aValue);

  /// One process's side of it. It may outlive this object's machine, but not this object.
  static std::shared_ptr<nsPlatformNetworkSettings> NewPort(
      std::shared_ptr<nsSimulatedNetworkSettings> aSettings);

 private:
  class Port;
  std::string Keep(std::vector<nsSimulatedInterface> aInterfaces);
  const std::vector<nsSimulatedInterface>* Kept(const std::string& aRecord) const;

  const std::shared_ptr<nsSimulatedNetwork> mNetwork;
  nsInterfaceWay mWay{"simulated", "simulated", false, true};
  bool mIsAway = false;
  uint32_t mIgmpVersion = 0;
  std::map<std::string, Fault> mFaults;
  std::optional<std::string> mState;
  const Port* mHolder = nullptr;  // of the state
  std::function<void(nsNetworkRequest)> mHandler;
  const Port* mListener = nullptr;
  std::map<std::string, std::vector<nsSimulatedInterface>> mKept;  // by record
};

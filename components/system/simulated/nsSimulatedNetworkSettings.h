// Settings that come into force on the simulated interfaces.
#pragma once

#include <map>
#include <optional>

#include "nsPlatformNetworkSettings.h"
#include "nsSimulatedCalls.h"
#include "nsSimulatedNetwork.h"

/// Changes the interfaces of the machine. Its records are good as long as the machine is there,
/// whichever process of it asks.
class nsSimulatedNetworkSettings final : public nsPlatformNetworkSettings, public nsSimulatedPort {
 public:
  nsSimulatedNetworkSettings(nsSimulatedCallsRef aCalls,
                             std::shared_ptr<nsSimulatedNetwork> aNetwork);

  /// A service that manages the interfaces; none to begin with.
  void SetService(std::string aName);
  /// From now on a change of that interface fails when its addresses are there and its gateways are
  /// not.
  void SetFailsHalfway(std::string aInterface);
  /// Whether another process has the journal.
  void SetJournalTaken(bool aTaken);
  /// What a process that ended has left; nothing when there is no journal.
  std::optional<std::string> Journal() const;
  void SetJournal(std::optional<std::string> aText);

  nsresult FindService(std::string* aName) override;
  nsresult ReadInterface(const std::string& aName, std::string* aRecord) override;
  nsresult WriteInterface(const std::string& aName, const nsInterfaceSettings& aSettings) override;
  nsresult RestoreInterface(const std::string& aName, const std::string& aRecord) override;
  nsresult ReadServers(std::vector<nsIPv4Bytes>* aServers) override;
  nsresult ReadResolver(std::string* aRecord) override;
  nsresult WriteResolver(const std::vector<nsIPv4Bytes>& aServers) override;
  nsresult RestoreResolver(const std::string& aRecord) override;
  nsresult LoadJournal(std::string* aText) override;
  nsresult SaveJournal(const std::string& aText) override;
  nsresult DropJournal() override;

 private:
  std::string Keep(std::vector<nsSimulatedInterface> aInterfaces);
  const std::vector<nsSimulatedInterface>* Kept(const std::string& aRecord) const;

  const std::shared_ptr<nsSimulatedNetwork> mNetwork;
  std::string mService;
  std::string mFailsHalfway;
  bool mJournalTaken = false;
  std::optional<std::string> mJournal;
  std::map<std::string, std::vector<nsSimulatedInterface>> mKept;  // by record
};

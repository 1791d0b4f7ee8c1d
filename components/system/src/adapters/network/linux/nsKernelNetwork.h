// An interface's settings by rtnetlink, where no network service manages it.
#pragma once

#include "nsNetworkWay.h"

/// Works on the network namespace of the calling thread. What is written is what the kernel holds:
/// it does not outlive a restart of the machine.
class nsKernelNetwork final : public nsNetworkWay {
 public:
  /// aBootId names the run of the machine: a record of another one has nothing to be put back.
  explicit nsKernelNetwork(std::string aBootId) : mBootId(std::move(aBootId)) {}

  nsresult Read(const std::string& aName, uint32_t aGuard, std::string* aRecord) override;
  nsresult Write(const std::string& aName, const std::string& aRecord,
                 const nsInterfaceSettings& aSettings) override;
  nsresult Keep(const std::string&, const std::string&) override { return NS_OK; }
  nsresult Forget(const std::string&, const std::string&) override { return NS_OK; }
  nsresult Restore(const std::string& aName, const std::string& aRecord) override;

  /// Whether a record is that of a former run of the machine.
  bool IsOld(const std::string& aRecord) const;
  /// Whether the interface has these addresses, and no others of their families that last, and
  /// default routes by these gateways.
  static bool Has(const std::string& aName, const std::vector<nsIPNet>& aAddresses,
                  const std::vector<nsSocketAddress>& aGateways = {});
  /// Whether it has an IPv4 address that ends.
  static bool HasLease(const std::string& aName);
  /// Those of IPv4 in a record that last. What a service adds by IPv6 may last as well, but waits
  /// for a router.
  static std::vector<nsIPNet> AddressesOf(const std::string& aRecord);

 private:
  const std::string mBootId;
};

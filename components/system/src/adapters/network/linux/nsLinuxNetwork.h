// The port of network interfaces over rtnetlink, sysfs, and what network services leave below /run.
#pragma once

#include "nsFileTree.h"
#include "nsPlatformNetwork.h"
#include "nsPlatformRegistry.h"

/// Answers for the network namespace of the calling thread. The system passes for one of the newest
/// version, whose records are complete.
class nsLinuxNetwork final : public nsPlatformNetwork {
 public:
  /// aRoot is where files are looked for: "/", or a captured tree.
  explicit nsLinuxNetwork(std::string aRoot = "/") : mFiles(std::move(aRoot)) {}

  nsSystemVersion GetSystemVersion() override { return {10, 0, 0}; }
  std::unique_ptr<nsNetworkReading> Read() override;
  bool LoadIpHelper() override { return true; }
  // There is no packet driver.
  nsresult PacketOpenAdapter(const std::string&, PacketAdapter*) override {
    return NS_ERROR_NOT_AVAILABLE;
  }
  nsresult PacketRequest(PacketAdapter, bool, uint32_t, std::vector<uint8_t>*) override {
    return NS_ERROR_INVALID_ARG;
  }
  void PacketCloseAdapter(PacketAdapter) override {}

  /// The server of an interface's last lease; empty when no network service tells.
  std::string DhcpServerOf(uint32_t aIfIndex) const;

 private:
  const nsFileTree mFiles;
};

/// The seed of the keys of a network's interfaces.
nsRegistrySeed NS_NetworkSeed(std::shared_ptr<nsLinuxNetwork> aNetwork);

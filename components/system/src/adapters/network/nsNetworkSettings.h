// The IPv4 settings that the configuration store has of an interface: reading and checking them.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "nsPlatformNetworkSettings.h"
#include "nsPlatformRegistry.h"

/// What the store has of one interface.
struct nsStoredSettings {
  std::string mName;
  bool mIsDhcp = false;
  std::vector<nsIPv4Net> mAddresses;  ///< Empty under DHCP, as are the gateways.
  std::vector<nsIPv4Bytes> mGateways;
  std::optional<uint32_t> mMetric;
  std::vector<nsIPv4Bytes> mServers;  ///< Fixed ones, which there may be under DHCP too.
};

/// Reads the key of an interface, which must be there. Values that can't be understood are named in
/// *aProblems, "eth0: SubnetMask ...", and left out. Fails as the store does.
nsresult NS_ReadStoredSettings(nsPlatformRegistry& aRegistry, const std::string& aName,
                               nsStoredSettings* aSettings, std::vector<std::string>* aProblems);

/// Adds to *aProblems what can't be in force at the same time: an address twice, a gateway outside
/// every net of its interface, an address that no interface can have.
void NS_CheckSettings(std::span<const nsStoredSettings> aSettings,
                      std::vector<std::string>* aProblems);

/// "192.0.2.1" and nothing else.
bool NS_ReadIPv4(std::string_view aText, nsIPv4Bytes* aAddress);
/// The number of ones that a mask begins with; nothing when it has one behind a zero.
std::optional<uint8_t> NS_PrefixLengthOf(const nsIPv4Bytes& aMask);

// What the key of a network interface holds when it is opened for the first time, for backends
// whose system has no configuration store of its own.
#pragma once

#include "nsAddressText.h"
#include "nsPlatformNetwork.h"
#include "nsPlatformRegistry.h"

/// The first values of an interface's key, from its two adapter records: what is in force stands
/// under the names that DHCP fills or under those of a fixed configuration, as the interface has
/// it.
///
/// Lists end where readers have no more room; what they look at stands first.
inline std::vector<nsRegistryValue> NS_SeedInterfaceKey(const nsAdapterAddresses& aAddresses,
                                                        const nsAdapterInfo& aInfo,
                                                        const std::string& aDhcpServer) {
  using Registry = nsPlatformRegistry;
  const bool dhcp = aAddresses.mFlags & nsAdapterAddresses::kDhcpEnabled;
  const std::string prefix = dhcp ? "Dhcp" : "";
  std::vector<std::string> addresses, masks, gateways = aInfo.mGatewayList;
  for (const nsAdapterInfo::Address& address : aInfo.mIpAddressList) {
    addresses.push_back(address.mIpAddress);
    masks.push_back(address.mIpMask);
  }
  for (std::vector<std::string>* list : {&addresses, &masks, &gateways})
    while (NS_RegistryStrings(*list).size() > kTcpipValueCapacity) list->pop_back();
  std::string servers;
  for (const nsSocketAddress& server : aAddresses.mDnsServers) {
    if (server.mFamily == nsSocketAddress::kIPv6) continue;  // readers of the value expect IPv4
    const std::string more = (servers.empty() ? "" : ",") +
                             vorel::address::FormatIPv4(std::span(server.mBytes).first<4>());
    if (servers.size() + more.size() + 1 > kTcpipValueCapacity) break;
    servers += more;
  }
  std::vector<nsRegistryValue> values{
      {"EnableDHCP", Registry::kDword, NS_RegistryDword(dhcp)},
      {prefix + "IPAddress", Registry::kMultiString, NS_RegistryStrings(addresses)},
      {prefix + "SubnetMask", Registry::kMultiString, NS_RegistryStrings(masks)},
      {prefix + "DefaultGateway", Registry::kMultiString, NS_RegistryStrings(gateways)},
      {"NameServer", Registry::kString, NS_RegistryString(dhcp ? "" : servers)},
      {"DhcpNameServer", Registry::kString, NS_RegistryString(dhcp ? servers : "")},
  };
  if (!aDhcpServer.empty())
    values.push_back({"DhcpServer", Registry::kString, NS_RegistryString(aDhcpServer)});
  return values;
}

/// The seed of the keys of a network (an nsRegistrySeed once the others are bound): the key of all
/// interfaces is there and empty.
inline std::optional<std::vector<nsRegistryValue>> NS_SeedTcpipKey(
    const std::string& aPath, nsPlatformNetwork& aNetwork,
    const std::function<std::string(const nsAdapterAddresses&)>& aDhcpServerOf) {
  if (NS_SameRegistryName(aPath, kTcpipParametersKey)) return std::vector<nsRegistryValue>();
  const std::string_view path = aPath;
  if (!NS_SameRegistryName(path.substr(0, kTcpipInterfacesKey.size()), kTcpipInterfacesKey))
    return std::nullopt;
  const std::string key =
      std::string(kTcpipInterfacesKey) + std::string(path.substr(kTcpipInterfacesKey.size()));

  std::vector<nsAdapterInfo> infos;
  std::vector<nsAdapterAddresses> addresses;
  const auto reading = aNetwork.Read();
  if (NS_FAILED(reading->GetAdaptersInfo(&infos)) ||
      NS_FAILED(reading->GetAdaptersAddresses(0, 0, &addresses)))
    return std::nullopt;
  const auto same = [&](const auto& aRecord) {
    return NS_TcpipInterfaceKey(aRecord.mAdapterName) == key;
  };
  const auto info = std::ranges::find_if(infos, same);
  const auto record = std::ranges::find_if(addresses, same);
  if (info == infos.end() || record == addresses.end()) return std::nullopt;
  return NS_SeedInterfaceKey(*record, *info, aDhcpServerOf(*record));
}

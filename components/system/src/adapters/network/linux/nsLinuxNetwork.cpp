#include "nsLinuxNetwork.h"

#include <linux/if_addr.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <utility>

#include "nsAddressText.h"
#include "nsCore.h"
#include "nsLinkFiles.h"
#include "nsNetlink.h"
#include "nsPlatformNetworkSeed.h"
#include "nsUtf.h"

namespace {

using vorel::netlink::Address;
using vorel::netlink::DefaultRoute;
using vorel::netlink::Link;
using vorel::netlink::Socket;
using Record = nsAdapterAddresses;
constexpr size_t kAddressLength = 6;
using AddressesByIndex = std::map<uint32_t, std::vector<nsSocketAddress>>;

// By IF_OPER_...
constexpr uint32_t kStatusOf[] = {
    Record::kUnknown, Record::kNotPresent, Record::kDown, Record::kLowerLayerDown,
    Record::kTesting, Record::kDormant,    Record::kUp};

nsSocketAddress SocketAddress(uint8_t aFamily, const std::array<uint8_t, 16>& aBytes) {
  return {aFamily == AF_INET6 ? nsSocketAddress::kIPv6 : nsSocketAddress::kIPv4, aBytes};
}

void AddServer(std::vector<nsSocketAddress>& aServers, const std::string& aText) {
  nsSocketAddress server;
  server.mFamily = aText.find(':') == aText.npos ? nsSocketAddress::kIPv4 : nsSocketAddress::kIPv6;
  const nsresult rv = server.mFamily == nsSocketAddress::kIPv6
                          ? vorel::address::ParseIPv6(aText, server.mBytes)
                          : vorel::address::ParseIPv4(aText, std::span(server.mBytes).first<4>());
  if (NS_SUCCEEDED(rv)) aServers.push_back(server);
}

std::vector<nsSocketAddress> ServersIn(const std::string& aWords) {
  std::vector<nsSocketAddress> servers;
  std::istringstream words(aWords);
  for (std::string word; words >> word;) AddServer(servers, word);
  return servers;
}

std::vector<nsSocketAddress> ServersOfResolverFile(const std::string& aText) {
  std::vector<nsSocketAddress> servers;
  std::istringstream lines(aText);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string keyword, address;
    if (words >> keyword >> address && keyword == "nameserver") AddServer(servers, address);
  }
  return servers;
}

bool IsLocal(const nsSocketAddress& aServer) {
  return aServer.mFamily == nsSocketAddress::kIPv4 && aServer.mBytes[0] == 127;
}

/// The machine's DNS servers. A resolver of the machine itself is no answer: whoever runs it keeps
/// a file that tells whom it asks.
std::vector<nsSocketAddress> CommonServers(const nsFileTree& aFiles) {
  const auto servers = ServersOfResolverFile(aFiles.ReadFile("/etc/resolv.conf").value_or(""));
  if (!std::ranges::all_of(servers, IsLocal)) return servers;
  for (const char* path :
       {"/run/systemd/resolve/resolv.conf", "/run/NetworkManager/no-stub-resolv.conf"}) {
    const auto asked = ServersOfResolverFile(aFiles.ReadFile(path).value_or(""));
    if (!asked.empty()) return asked;
  }
  return servers;
}

/// What network services keep of single links: files in a few directories, named by the index of
/// the link. The directories are listed once, since most links have no file.
class ServiceFiles {
 public:
  explicit ServiceFiles(const nsFileTree& aFiles) : mFiles(aFiles) {
    for (Place& place : mPlaces) place.mNames = aFiles.List(place.mDirectory);
  }

  /// The DNS servers that a service has set for one link.
  std::vector<nsSocketAddress> ServersOf(uint32_t aIndex) const {
    for (const Place& place : mPlaces) {
      if (!place.mServersKey || !place.Has(aIndex)) continue;
      const std::string path = place.mDirectory + ('/' + std::to_string(aIndex));
      auto servers =
          ServersIn(NS_ValueOfKey(mFiles.ReadFile(path).value_or(""), place.mServersKey));
      if (!servers.empty()) return servers;
    }
    return {};
  }
  bool HasLease(uint32_t aIndex) const { return mPlaces[kLeases].Has(aIndex); }

 private:
  struct Place {
    std::string mDirectory;
    const char* mServersKey;
    std::vector<std::string> mNames = {};  // sorted

    bool Has(uint32_t aIndex) const {
      return !mNames.empty() && std::ranges::binary_search(mNames, std::to_string(aIndex));
    }
  };
  static constexpr size_t kLeases = 2;

  const nsFileTree& mFiles;
  // Servers set at the resolver by other services, NetworkManager above all, come before those of
  // the system's own network service.
  Place mPlaces[3] = {{"/run/systemd/resolve/netif", "SERVERS"},
                      {"/run/systemd/netif/links", "DNS"},
                      {"/run/systemd/netif/leases", nullptr}};
};

/// Bytes out of hexadecimal text, as the kernel's tables have them.
bool ReadHex(std::string_view aText, std::span<uint8_t> aBytes) {
  if (aText.size() != aBytes.size() * 2) return false;
  for (size_t i = 0; i < aBytes.size(); ++i) {
    const int high = vorel::detail::HexDigit(aText[2 * i]),
              low = vorel::detail::HexDigit(aText[2 * i + 1]);
    if (high < 0 || low < 0) return false;
    aBytes[i] = static_cast<uint8_t>(high << 4 | low);
  }
  return true;
}

/// Lines of "INDEX NAME ADDRESS ...".
void ReadIPv6Table(const std::string& aText, AddressesByIndex& aAddresses) {
  std::istringstream lines(aText);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    uint32_t index;
    std::string name, hex;
    nsSocketAddress address;
    address.mFamily = nsSocketAddress::kIPv6;
    if (words >> index >> name >> hex && ReadHex(hex, address.mBytes))
      aAddresses[index].push_back(address);
  }
}

/// A line "INDEX NAME : ..." for each interface, and one with an address, as a number in the
/// machine's own byte order, for each of its groups.
void ReadIPv4Groups(const std::string& aText, AddressesByIndex& aAddresses) {
  std::istringstream lines(aText);
  uint32_t index = 0;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string word;
    words >> word;
    if (word.empty() || word == "Idx") continue;
    std::array<uint8_t, 4> number{};
    if (line[0] != '\t') {
      index = static_cast<uint32_t>(std::strtoul(word.c_str(), nullptr, 10));
    } else if (ReadHex(word, number)) {
      if constexpr (std::endian::native == std::endian::little) std::ranges::reverse(number);
      nsSocketAddress address;
      std::ranges::copy(number, address.mBytes.begin());
      aAddresses[index].push_back(address);
    }
  }
}

nsUnicastAddress UnicastOf(const Address& aAddress) {
  nsUnicastAddress unicast;
  unicast.mAddress = SocketAddress(aAddress.mFamily, aAddress.mBytes);
  unicast.mOnLinkPrefixLength = aAddress.mPrefixLength;
  const bool permanent = aAddress.mFlags & IFA_F_PERMANENT;
  if (aAddress.mFamily == AF_INET)
    unicast.mSuffixOrigin = unicast.mPrefixOrigin = permanent ? 1 : 3;
  else
    unicast.mPrefixOrigin = permanent ? 1 : 4;
  if (aAddress.mFlags & IFA_F_DADFAILED)
    unicast.mDadState = 2;
  else if (aAddress.mFlags & IFA_F_TENTATIVE)
    unicast.mDadState = 1;
  else if (aAddress.mFlags & IFA_F_DEPRECATED)
    unicast.mDadState = 3;
  unicast.mValidLifetime = aAddress.mValidLifetime;
  unicast.mPreferredLifetime = aAddress.mPreferredLifetime;
  return unicast;
}

std::string Dotted(const std::array<uint8_t, 16>& aBytes) {
  return vorel::address::FormatIPv4(std::span(aBytes).first<4>());
}

std::string MaskText(unsigned aLength) {
  const uint32_t mask = aLength == 0 ? 0 : ~uint32_t{0} << (32 - std::min(aLength, 32u));
  return Dotted({static_cast<uint8_t>(mask >> 24), static_cast<uint8_t>(mask >> 16),
                 static_cast<uint8_t>(mask >> 8), static_cast<uint8_t>(mask)});
}

/// What the kernel told, once; the rest is looked up when it is asked for.
class Reading final : public nsNetworkReading {
 public:
  explicit Reading(const nsFileTree& aFiles) : mFiles(aFiles) {
    Socket socket;
    mResult = socket.Links(&mLinks);
    if (NS_SUCCEEDED(mResult)) mResult = socket.Addresses(AF_UNSPEC, &mAddresses);
    if (NS_SUCCEEDED(mResult)) mResult = socket.DefaultRoutes(AF_UNSPEC, &mRoutes);
    if (NS_FAILED(mResult)) {
      mError = socket.Error();
      return;
    }
    mLinkFiles.reserve(mLinks.size());
    for (const Link& link : mLinks) {
      const int error = mLinkFiles.emplace_back(mFiles, link).Error();
      if (error == 0) continue;
      // A wireless link that passes for a wired one would keep the wrong adapter.
      mResult = NS_ERROR_FAILURE;
      mError = error;
      return;
    }
  }

  nsresult GetAdaptersInfo(std::vector<nsAdapterInfo>* aInfos) override;
  nsresult GetAdaptersAddresses(uint32_t aFamily, uint32_t aFlags,
                                std::vector<Record>* aAddresses) override;
  GetIfEntry2Function FindGetIfEntry2() override {
    return [this](uint32_t aIfIndex, nsIfRow* aRow) {
      const auto link = std::ranges::find(mLinks, aIfIndex, &Link::mIndex);
      if (link == mLinks.end()) return NS_ERROR_NOT_AVAILABLE;
      const nsLinkFiles& files = mLinkFiles[static_cast<size_t>(link - mLinks.begin())];
      *aRow = {files.Type(), 0, files.Medium()};
      return NS_OK;
    };
  }
  std::string Reason() const override { return std::strerror(mError); }

 private:
  const nsFileTree& mFiles;
  nsresult mResult;
  int mError = 0;
  std::vector<Link> mLinks;
  std::vector<nsLinkFiles> mLinkFiles;  // of each link
  std::vector<Address> mAddresses;
  std::vector<DefaultRoute> mRoutes;
};

nsresult Reading::GetAdaptersAddresses(uint32_t aFamily, uint32_t,
                                       std::vector<Record>* aAddresses) {
  if (NS_FAILED(mResult)) return mResult;
  AddressesByIndex groups, anycasts;
  // The tables of this thread's namespace, which need not be that of the process.
  const auto table = [&](const char* aName) {
    return mFiles.ReadFile(std::string("/proc/thread-self/net/") + aName).value_or("");
  };
  ReadIPv4Groups(table("igmp"), groups);
  ReadIPv6Table(table("igmp6"), groups);
  ReadIPv6Table(table("anycast6"), anycasts);

  // Links that the outer world is reached through have the machine's DNS servers, unless they have
  // their own.
  const std::vector<nsSocketAddress> servers = CommonServers(mFiles);
  std::set<uint32_t> outward;
  for (const DefaultRoute& route : mRoutes) outward.insert(route.mLinkIndex);
  const ServiceFiles services(mFiles);

  std::map<uint32_t, Record*> byIndex;
  std::vector<Record> records(mLinks.size());
  for (size_t i = 0; i < mLinks.size(); ++i) {
    const Link& link = mLinks[i];
    Record& record = records[i];
    const nsLinkFiles& files = mLinkFiles[i];
    byIndex[link.mIndex] = &record;
    record.mAdapterName = link.mName;
    record.mFriendlyName = vorel::Utf8ToUtf16(link.mAlias.empty() ? link.mName : link.mAlias);
    record.mDescription = vorel::Utf8ToUtf16(files.Description());
    record.mIfIndex = link.mIndex;
    record.mIpv6IfIndex = link.mHasIPv6 ? link.mIndex : 0;
    record.mIfType = files.Type();
    record.mOperStatus =
        link.mOperState < std::size(kStatusOf) ? kStatusOf[link.mOperState] : Record::kUnknown;
    if (link.mHasIPv4) record.mFlags |= Record::kIpv4Enabled;
    if (link.mHasIPv6) record.mFlags |= Record::kIpv6Enabled;
    if (services.HasLease(link.mIndex)) record.mFlags |= Record::kDhcpEnabled;
    record.mPhysicalAddress = link.mAddress;
    record.mTransmitLinkSpeed = record.mReceiveLinkSpeed = files.Speed();
    record.mMulticastAddresses = std::move(groups[link.mIndex]);
    record.mAnycastAddresses = std::move(anycasts[link.mIndex]);
    record.mDnsServers = services.ServersOf(link.mIndex);
    if (record.mDnsServers.empty() && outward.contains(link.mIndex)) record.mDnsServers = servers;
  }
  const bool all = aFamily != nsSocketAddress::kIPv4 && aFamily != nsSocketAddress::kIPv6;
  const uint8_t family = aFamily == nsSocketAddress::kIPv6 ? AF_INET6 : AF_INET;
  for (const Address& address : mAddresses) {
    const auto found = byIndex.find(address.mLinkIndex);
    if (found == byIndex.end() || (!all && address.mFamily != family)) continue;
    found->second->mUnicastAddresses.push_back(UnicastOf(address));
    // One that ends is one that somebody renews.
    if (address.mFamily == AF_INET && !(address.mFlags & IFA_F_PERMANENT))
      found->second->mFlags |= Record::kDhcpEnabled;
  }
  *aAddresses = std::move(records);
  return NS_OK;
}

nsresult Reading::GetAdaptersInfo(std::vector<nsAdapterInfo>* aInfos) {
  if (NS_FAILED(mResult)) return mResult;
  std::vector<DefaultRoute> routes = mRoutes;
  std::erase_if(routes, [](const DefaultRoute& aRoute) { return aRoute.mFamily != AF_INET; });
  std::ranges::stable_sort(routes, {}, &DefaultRoute::mMetric);

  std::map<uint32_t, nsAdapterInfo*> byIndex;
  std::vector<nsAdapterInfo> infos;
  infos.reserve(mLinks.size());
  for (const Link& link : mLinks) {
    if (link.mAddress.size() != kAddressLength) continue;
    byIndex[link.mIndex] = &infos.emplace_back();
    infos.back().mAdapterName = link.mName;
  }
  if (infos.empty()) return NS_ERROR_NOT_AVAILABLE;
  for (const Address& address : mAddresses) {
    const auto found = byIndex.find(address.mLinkIndex);
    if (found != byIndex.end() && address.mFamily == AF_INET)
      found->second->mIpAddressList.push_back(
          {Dotted(address.mBytes), MaskText(address.mPrefixLength)});
  }
  for (const DefaultRoute& route : routes)
    if (const auto found = byIndex.find(route.mLinkIndex);
        found != byIndex.end() && route.mHasGateway)
      found->second->mGatewayList.push_back(Dotted(route.mGateway));
  for (nsAdapterInfo& info : infos) {
    if (info.mIpAddressList.empty()) info.mIpAddressList.push_back({"0.0.0.0", "0.0.0.0"});
    if (info.mGatewayList.empty()) info.mGatewayList.push_back("0.0.0.0");
  }
  *aInfos = std::move(infos);
  return NS_OK;
}

}  // namespace

std::unique_ptr<nsNetworkReading> nsLinuxNetwork::Read() {
  return std::make_unique<Reading>(mFiles);
}

std::string nsLinuxNetwork::DhcpServerOf(uint32_t aIfIndex) const {
  const std::string lease = "/run/systemd/netif/leases/" + std::to_string(aIfIndex);
  return NS_ValueOfKey(mFiles.ReadFile(lease).value_or(""), "SERVER_ADDRESS");
}

nsRegistrySeed NS_NetworkSeed(std::shared_ptr<nsLinuxNetwork> aNetwork) {
  return [network = std::move(aNetwork)](const std::string& aPath) {
    return NS_SeedTcpipKey(aPath, *network, [&](const nsAdapterAddresses& aRecord) {
      return network->DhcpServerOf(aRecord.mIfIndex);
    });
  };
}

#include "nsKernelNetwork.h"

#include <linux/if_addr.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <optional>

#include "nsErrno.h"
#include "nsNetlink.h"

namespace {

using namespace vorel::netlink;
using Payload = std::vector<uint8_t>;
constexpr char kRecordHead = 'I';

// ---- Messages

template <class Header>
Payload PayloadOf(const Header& aHeader) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(&aHeader);
  return {bytes, bytes + sizeof aHeader};
}

void PutAttribute(Payload& aPayload, uint16_t aType, const void* aValue, size_t aSize) {
  const nlattr attribute{static_cast<uint16_t>(MNL_ATTR_HDRLEN + aSize), aType};
  const size_t at = MNL_ALIGN(aPayload.size());
  aPayload.resize(at + MNL_ATTR_HDRLEN + MNL_ALIGN(aSize));
  std::memcpy(aPayload.data() + at, &attribute, sizeof attribute);
  std::memcpy(aPayload.data() + at + MNL_ATTR_HDRLEN, aValue, aSize);
}

// The attribute's bytes within the payload; empty when there is none.
template <class Header>
std::span<uint8_t> FindAttribute(Payload& aPayload, uint16_t aType) {
  Header header;
  const auto attributes = Split(aPayload, &header);
  std::span<uint8_t> found;
  if (attributes)
    ForEachAttribute(*attributes, [&](uint16_t aOther, Bytes aValue) {
      if (aOther != aType) return;
      const auto at = static_cast<size_t>(aValue.data() - aPayload.data());
      found = std::span(aPayload).subspan(at, aValue.size());
    });
  return found;
}

template <class Header>
Header HeaderOf(const Payload& aPayload) {
  Header header{};
  (void)Take(aPayload, &header);
  return header;
}

template <class Header>
void SetHeader(Payload& aPayload, const Header& aHeader) {
  std::memcpy(aPayload.data(), &aHeader, sizeof aHeader);
}

uint8_t FamilyOf(const nsSocketAddress& aAddress) {
  return aAddress.mFamily == nsSocketAddress::kIPv6 ? AF_INET6 : AF_INET;
}
size_t SizeOf(uint8_t aFamily) { return aFamily == AF_INET6 ? 16 : 4; }

std::optional<nsIPNet> NetOf(const Payload& aAddress) {
  const auto address = ParseAddress(aAddress);
  if (!address) return std::nullopt;
  nsIPNet net;
  net.mAddress.mFamily =
      address->mFamily == AF_INET6 ? nsSocketAddress::kIPv6 : nsSocketAddress::kIPv4;
  std::copy_n(address->mBytes.begin(), SizeOf(address->mFamily), net.mAddress.mBytes.begin());
  net.mPrefixLength = address->mPrefixLength;
  return net;
}

// ---- What an interface has

struct Interface {
  bool mIsUp = false;
  std::vector<Payload> mAddresses;
  std::vector<Payload> mRoutes;  // of the main table, but for those that are made by themselves
  // Those come with addresses; where a service has made them in the kernel's name, they do not.
  std::vector<Payload> mMade;
};

/// One thread's talk with the kernel about one interface.
class LiveInterface {
 public:
  explicit LiveInterface(const std::string& aName) : mIndex(if_nametoindex(aName.c_str())) {}

  bool Exists() const { return mIndex != 0; }
  /// A change that changes nothing: whether the kernel lets this process make others.
  nsresult MayChange() {
    ifinfomsg header{};
    header.ifi_index = static_cast<int>(mIndex);
    return NS_ResultOfErrno(mSocket.Change(RTM_NEWLINK, 0, PayloadOf(header)));
  }
  nsresult Read(Interface* aInterface);
  nsresult Write(const nsInterfaceSettings& aSettings);
  nsresult Restore(Interface aInterface);

 private:
  // What is made anew when an IPv6 link comes up or a router tells.
  static bool IsOfRouterOrLink(Payload& aRoute) {
    if (HeaderOf<rtmsg>(aRoute).rtm_family == AF_INET) return false;
    const auto net = FindAttribute<rtmsg>(aRoute, RTA_DST);
    const auto cache = ValueOr<rta_cacheinfo>(FindAttribute<rtmsg>(aRoute, RTA_CACHEINFO), {});
    return net.size() < 2 || (net[0] == 0xfe && (net[1] & 0xc0) == 0x80) || cache.rta_expires != 0;
  }
  static bool IsDefault(const Payload& aRoute) { return HeaderOf<rtmsg>(aRoute).rtm_dst_len == 0; }

  int SetUp(bool aUp) {
    ifinfomsg header{};
    header.ifi_index = static_cast<int>(mIndex);
    header.ifi_flags = aUp ? IFF_UP : 0;
    header.ifi_change = IFF_UP;
    return mSocket.Change(RTM_NEWLINK, 0, PayloadOf(header));
  }
  int Remove(uint16_t aType, const std::vector<Payload>& aPayloads) {
    for (const Payload& payload : aPayloads) {
      const int error = mSocket.Change(aType, 0, payload);
      // One may go with another: the second address of a net with the first, a route with its net.
      if (error != 0 && error != EADDRNOTAVAIL && error != ESRCH) return error;
    }
    return 0;
  }
  int AddRoute(Payload aRoute) {
    auto header = HeaderOf<rtmsg>(aRoute);
    header.rtm_flags &= ~static_cast<unsigned>(RTNH_F_DEAD | RTNH_F_LINKDOWN);
    SetHeader(aRoute, header);
    const int error = mSocket.Change(RTM_NEWROUTE, NLM_F_CREATE | NLM_F_APPEND, aRoute);
    return error == EEXIST ? 0 : error;
  }
  int AddAddress(const nsIPNet& aNet);
  Payload DefaultRouteBy(const nsSocketAddress& aGateway, uint32_t aMetric) const;
  static bool IsSameRoute(Payload& aA, Payload& aB);

  const unsigned mIndex;
  Socket mSocket;
};

nsresult LiveInterface::Read(Interface* aInterface) {
  Interface interface;
  std::vector<Payload> links, addresses, routes;
  nsresult rv = mSocket.Payloads(RTM_GETLINK, AF_UNSPEC, &links);
  if (NS_SUCCEEDED(rv)) rv = mSocket.Payloads(RTM_GETADDR, AF_UNSPEC, &addresses);
  for (const int family : {AF_INET, AF_INET6}) {
    std::vector<Payload> some;
    if (NS_SUCCEEDED(rv)) rv = mSocket.Payloads(RTM_GETROUTE, static_cast<uint8_t>(family), &some);
    std::ranges::move(some, std::back_inserter(routes));
  }
  if (NS_FAILED(rv)) return rv;
  for (const Payload& link : links) {
    const auto header = HeaderOf<ifinfomsg>(link);
    if (static_cast<unsigned>(header.ifi_index) == mIndex)
      interface.mIsUp = header.ifi_flags & IFF_UP;
  }
  for (Payload& address : addresses) {
    const auto header = HeaderOf<ifaddrmsg>(address);
    if (header.ifa_index != mIndex) continue;
    // What the kernel and routers give by IPv6 they give again.
    const bool isGiven = header.ifa_family == AF_INET6 && (!(header.ifa_flags & IFA_F_PERMANENT) ||
                                                           header.ifa_scope == RT_SCOPE_LINK);
    if ((header.ifa_family == AF_INET || header.ifa_family == AF_INET6) && !isGiven)
      interface.mAddresses.push_back(std::move(address));
  }
  for (Payload& route : routes) {
    const auto header = HeaderOf<rtmsg>(route);
    const auto out = FindAttribute<rtmsg>(route, RTA_OIF);
    if (header.rtm_table != RT_TABLE_MAIN || header.rtm_protocol == RTPROT_RA ||
        (header.rtm_flags & RTM_F_CLONED) || ValueOr<uint32_t>(out, 0) != mIndex)
      continue;
    if (header.rtm_protocol != RTPROT_KERNEL)
      interface.mRoutes.push_back(std::move(route));
    else if (!IsOfRouterOrLink(route))
      interface.mMade.push_back(std::move(route));
  }
  *aInterface = std::move(interface);
  return NS_OK;
}

int LiveInterface::AddAddress(const nsIPNet& aNet) {
  const uint8_t family = FamilyOf(aNet.mAddress);
  const auto& bytes = aNet.mAddress.mBytes;
  ifaddrmsg header{};
  header.ifa_family = family;
  header.ifa_prefixlen = aNet.mPrefixLength;
  header.ifa_index = mIndex;
  Payload payload = PayloadOf(header);
  PutAttribute(payload, IFA_LOCAL, bytes.data(), SizeOf(family));
  PutAttribute(payload, IFA_ADDRESS, bytes.data(), SizeOf(family));
  if (family == AF_INET && aNet.mPrefixLength < 31) {
    auto broadcast = bytes;
    for (unsigned bit = aNet.mPrefixLength; bit < 32; ++bit)
      broadcast[bit / 8] = static_cast<uint8_t>(broadcast[bit / 8] | 0x80u >> bit % 8);
    PutAttribute(payload, IFA_BROADCAST, broadcast.data(), 4);
  }
  return mSocket.Change(RTM_NEWADDR, NLM_F_CREATE | NLM_F_REPLACE, payload);
}

Payload LiveInterface::DefaultRouteBy(const nsSocketAddress& aGateway, uint32_t aMetric) const {
  rtmsg header{};
  header.rtm_family = FamilyOf(aGateway);
  header.rtm_table = RT_TABLE_MAIN;
  header.rtm_protocol = RTPROT_STATIC;
  header.rtm_scope = RT_SCOPE_UNIVERSE;
  header.rtm_type = RTN_UNICAST;
  Payload payload = PayloadOf(header);
  PutAttribute(payload, RTA_GATEWAY, aGateway.mBytes.data(), SizeOf(header.rtm_family));
  PutAttribute(payload, RTA_OIF, &mIndex, sizeof mIndex);
  if (aMetric != 0) PutAttribute(payload, RTA_PRIORITY, &aMetric, sizeof aMetric);
  return payload;
}

// Default routes, by gateway and metric. IPv6 takes 0 for 1024.
bool LiveInterface::IsSameRoute(Payload& aA, Payload& aB) {
  const uint8_t family = HeaderOf<rtmsg>(aA).rtm_family;
  if (family != HeaderOf<rtmsg>(aB).rtm_family) return false;
  const auto metric = [&](Payload& aRoute) {
    const auto value = ValueOr<uint32_t>(FindAttribute<rtmsg>(aRoute, RTA_PRIORITY), 0);
    return value == 0 && family == AF_INET6 ? 1024 : value;
  };
  return std::ranges::equal(FindAttribute<rtmsg>(aA, RTA_GATEWAY),
                            FindAttribute<rtmsg>(aB, RTA_GATEWAY)) &&
         metric(aA) == metric(aB);
}

nsresult LiveInterface::Write(const nsInterfaceSettings& aSettings) {
  Interface before;
  if (const nsresult rv = Read(&before); NS_FAILED(rv)) return rv;
  const auto isOurs = [&](uint8_t aFamily) {
    return std::ranges::any_of(aSettings.mAddresses, [&](const nsIPNet& aNet) {
      return FamilyOf(aNet.mAddress) == aFamily;
    });
  };
  std::vector<Payload> wanted;
  for (size_t i = 0; i < aSettings.mGateways.size(); ++i)
    wanted.push_back(DefaultRouteBy(aSettings.mGateways[i],
                                    aSettings.mMetric.value_or(0) + static_cast<uint32_t>(i)));
  const auto isWanted = [&](Payload& aRoute) {
    return std::ranges::any_of(wanted, [&](Payload& aOne) { return IsSameRoute(aOne, aRoute); });
  };
  // An old address that leaves takes others of its net with it: the new ones come after that.
  std::vector<Payload> leaving, defaults, others;
  for (const Payload& payload : before.mAddresses) {
    const auto net = NetOf(payload);
    if (net && !isOurs(FamilyOf(net->mAddress))) continue;
    if (!net || std::ranges::find(aSettings.mAddresses, *net) == aSettings.mAddresses.end())
      leaving.push_back(payload);
  }
  for (Payload& route : before.mRoutes) {
    if (!isOurs(HeaderOf<rtmsg>(route).rtm_family)) continue;
    if (!IsDefault(route))
      others.push_back(route);
    else if (!isWanted(route))
      defaults.push_back(route);
  }
  int error = Remove(RTM_DELROUTE, defaults);
  if (error == 0) error = Remove(RTM_DELADDR, leaving);
  if (error == 0) error = SetUp(true);
  for (const nsIPNet& net : aSettings.mAddresses)
    if (error == 0) error = AddAddress(net);
  for (const Payload& route : wanted)
    if (error == 0) error = AddRoute(route);
  for (const Payload& route : others) {
    if (error != 0) break;
    error = AddRoute(route);
    // Its gateway, or its own source, lies outside the new nets.
    if (error == ENETUNREACH || error == EHOSTUNREACH || error == EINVAL) error = 0;
  }
  return error == 0 ? NS_OK : NS_ResultOfErrno(error);
}

// What changes by itself: how long addresses still last, and whether a route's link is there.
std::vector<Payload> Steady(std::vector<Payload> aPayloads, bool aAreRoutes) {
  for (Payload& payload : aPayloads) {
    const auto cache = aAreRoutes ? FindAttribute<rtmsg>(payload, RTA_CACHEINFO)
                                  : FindAttribute<ifaddrmsg>(payload, IFA_CACHEINFO);
    std::ranges::fill(cache, uint8_t{0});
    if (!aAreRoutes) continue;
    auto header = HeaderOf<rtmsg>(payload);
    header.rtm_flags &= ~static_cast<unsigned>(RTNH_F_DEAD | RTNH_F_LINKDOWN);
    SetHeader(payload, header);
  }
  return aPayloads;
}

bool IsSame(const Interface& aA, const Interface& aB) {
  return aA.mIsUp == aB.mIsUp && Steady(aA.mAddresses, false) == Steady(aB.mAddresses, false) &&
         Steady(aA.mRoutes, true) == Steady(aB.mRoutes, true) &&
         Steady(aA.mMade, true) == Steady(aB.mMade, true);
}

nsresult LiveInterface::Restore(Interface aInterface) {
  Interface now;
  if (const nsresult rv = Read(&now); NS_FAILED(rv)) return rv;
  // It may have been put back before: connections outlive that.
  if (IsSame(now, aInterface)) return NS_OK;
  int error = Remove(RTM_DELROUTE, now.mRoutes);
  if (error == 0) error = Remove(RTM_DELROUTE, now.mMade);
  if (error == 0) error = Remove(RTM_DELADDR, now.mAddresses);
  if (error == 0) error = SetUp(aInterface.mIsUp);
  // Indices are given anew when an interface comes back.
  for (Payload& address : aInterface.mAddresses) {
    if (error != 0) break;
    auto header = HeaderOf<ifaddrmsg>(address);
    header.ifa_index = mIndex;
    SetHeader(address, header);
    error = mSocket.Change(RTM_NEWADDR, NLM_F_CREATE | NLM_F_REPLACE, address);
  }
  // What leads to the gateways comes first.
  std::vector<Payload> routes = std::move(aInterface.mMade);
  auto& others = aInterface.mRoutes;
  std::stable_partition(others.begin(), others.end(), [](Payload& aRoute) {
    return FindAttribute<rtmsg>(aRoute, RTA_GATEWAY).empty();
  });
  std::ranges::move(others, std::back_inserter(routes));
  for (Payload& route : routes) {
    if (error != 0) break;
    const auto out = FindAttribute<rtmsg>(route, RTA_OIF);
    if (out.size() == sizeof mIndex) std::memcpy(out.data(), &mIndex, sizeof mIndex);
    error = AddRoute(route);
  }
  return error == 0 ? NS_OK : NS_ResultOfErrno(error);
}

// ---- Records: the state of the link, then each payload with its kind and length before it

std::string FormatInterface(const Interface& aInterface) {
  std::string text{kRecordHead, aInterface.mIsUp ? '1' : '0'};
  const auto put = [&](char aKind, const std::vector<Payload>& aPayloads) {
    for (const Payload& payload : aPayloads) {
      const auto size = static_cast<uint32_t>(payload.size());
      text += aKind;
      text.append(reinterpret_cast<const char*>(&size), sizeof size);
      text.append(payload.begin(), payload.end());
    }
  };
  put('A', aInterface.mAddresses);
  put('R', aInterface.mRoutes);
  put('M', aInterface.mMade);
  return text;
}

std::optional<Interface> ParseInterface(std::string_view aText) {
  if (aText.size() < 2 || aText[0] != kRecordHead) return std::nullopt;
  Interface interface;
  interface.mIsUp = aText[1] == '1';
  aText.remove_prefix(2);
  while (!aText.empty()) {
    const char kind = aText[0];
    uint32_t size = 0;
    if (aText.size() < 1 + sizeof size) return std::nullopt;
    std::memcpy(&size, aText.data() + 1, sizeof size);
    aText.remove_prefix(1 + sizeof size);
    const size_t least = kind == 'A' ? sizeof(ifaddrmsg) : sizeof(rtmsg);
    if ((kind != 'A' && kind != 'R' && kind != 'M') || size > aText.size() || size < least)
      return std::nullopt;
    auto& list = kind == 'A'   ? interface.mAddresses
                 : kind == 'R' ? interface.mRoutes
                               : interface.mMade;
    list.emplace_back(aText.begin(), aText.begin() + size);
    aText.remove_prefix(size);
  }
  return interface;
}

std::vector<nsIPNet> Lasting(const Interface& aInterface) {
  std::vector<nsIPNet> nets;
  for (const Payload& address : aInterface.mAddresses) {
    const auto net = NetOf(address);
    if (net && (HeaderOf<ifaddrmsg>(address).ifa_flags & IFA_F_PERMANENT)) nets.push_back(*net);
  }
  return nets;
}

}  // namespace

nsresult nsKernelNetwork::Read(const std::string& aName, uint32_t, std::string* aRecord) {
  LiveInterface link(aName);
  if (!link.Exists()) return NS_ERROR_FILE_NOT_FOUND;
  Interface interface;
  nsresult rv = link.MayChange();
  if (NS_SUCCEEDED(rv)) rv = link.Read(&interface);
  if (NS_FAILED(rv)) return rv;
  *aRecord = nsRecordTexts::Format({mBootId, FormatInterface(interface)});
  return NS_OK;
}

nsresult nsKernelNetwork::Write(const std::string& aName, const std::string&,
                                const nsInterfaceSettings& aSettings) {
  LiveInterface link(aName);
  return link.Exists() ? link.Write(aSettings) : NS_ERROR_FILE_NOT_FOUND;
}

nsresult nsKernelNetwork::Restore(const std::string& aName, const std::string& aRecord) {
  std::vector<std::string> texts;
  auto interface = nsRecordTexts::Parse(aRecord, 2, &texts) ? ParseInterface(texts[1])
                                                            : std::optional<Interface>();
  if (!interface) return NS_ERROR_FILE_CORRUPTED;
  LiveInterface link(aName);
  if (!link.Exists()) return NS_ERROR_FILE_NOT_FOUND;
  if (texts[0] != mBootId) return NS_ERROR_NOT_AVAILABLE;
  return link.Restore(std::move(*interface));
}

bool nsKernelNetwork::Has(const std::string& aName, const std::vector<nsIPNet>& aAddresses,
                          const std::vector<nsSocketAddress>& aGateways) {
  LiveInterface link(aName);
  Interface interface;
  if (!link.Exists() || NS_FAILED(link.Read(&interface))) return false;
  std::vector<nsIPNet> nets = Lasting(interface);
  std::erase_if(nets, [&](const nsIPNet& aNet) {
    return std::ranges::none_of(aAddresses, [&](const nsIPNet& aOne) {
      return aOne.mAddress.mFamily == aNet.mAddress.mFamily;
    });
  });
  const auto isRoute = [&](const nsSocketAddress& aGateway) {
    return std::ranges::any_of(interface.mRoutes, [&](Payload& aRoute) {
      const auto bytes = std::span(aGateway.mBytes).first(SizeOf(FamilyOf(aGateway)));
      return HeaderOf<rtmsg>(aRoute).rtm_dst_len == 0 &&
             std::ranges::equal(FindAttribute<rtmsg>(aRoute, RTA_GATEWAY), bytes);
    });
  };
  return nets.size() == aAddresses.size() &&
         std::ranges::all_of(
             aAddresses,
             [&](const nsIPNet& aOne) { return std::ranges::find(nets, aOne) != nets.end(); }) &&
         std::ranges::all_of(aGateways, isRoute);
}

bool nsKernelNetwork::HasLease(const std::string& aName) {
  LiveInterface link(aName);
  Interface interface;
  if (!link.Exists() || NS_FAILED(link.Read(&interface))) return false;
  return std::ranges::any_of(interface.mAddresses, [](const Payload& aAddress) {
    const auto header = HeaderOf<ifaddrmsg>(aAddress);
    return header.ifa_family == AF_INET && !(header.ifa_flags & IFA_F_PERMANENT);
  });
}

std::vector<nsIPNet> nsKernelNetwork::AddressesOf(const std::string& aRecord) {
  std::vector<std::string> texts;
  if (!nsRecordTexts::Parse(aRecord, 2, &texts)) return {};
  const auto interface = ParseInterface(texts[1]);
  std::vector<nsIPNet> nets = interface ? Lasting(*interface) : std::vector<nsIPNet>();
  std::erase_if(
      nets, [](const nsIPNet& aNet) { return aNet.mAddress.mFamily == nsSocketAddress::kIPv6; });
  return nets;
}

bool nsKernelNetwork::IsOld(const std::string& aRecord) const {
  std::vector<std::string> texts;
  return nsRecordTexts::Parse(aRecord, 2, &texts) && texts[0] != mBootId;
}

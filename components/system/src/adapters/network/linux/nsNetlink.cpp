#include "nsNetlink.h"

#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/ipv6.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "nsRetry.h"

namespace vorel::netlink {
namespace {

// The kernel sends no larger pieces than this.
constexpr size_t kBufferSize = 64 * 1024;
// A machine whose links change all the time is described as it was in between: each change brings
// another look anyway.
constexpr int kDumpTries = 16;
// What the kernel lacked for a moment it may have at the next try.
constexpr int kFailedTries = 4;

std::string TextOf(Bytes aBytes) {
  const auto end = std::find(aBytes.begin(), aBytes.end(), 0);
  return {aBytes.begin(), end};
}

std::array<uint8_t, 16> AddressOf(Bytes aBytes) {
  std::array<uint8_t, 16> address{};
  std::copy_n(aBytes.begin(), std::min(aBytes.size(), address.size()), address.begin());
  return address;
}

size_t AddressLength(uint8_t aFamily) {
  return aFamily == AF_INET ? 4 : aFamily == AF_INET6 ? 16 : 0;
}

bool SpeaksIPv6(Bytes aFamily) {
  bool speaks = true;
  ForEachAttribute(aFamily, [&](uint16_t aType, Bytes aValue) {
    constexpr size_t offset = DEVCONF_DISABLE_IPV6 * sizeof(int32_t);
    if (aType == IFLA_INET6_CONF && aValue.size() >= offset)
      speaks = ValueOr<int32_t>(aValue.subspan(offset), 0) == 0;
  });
  return speaks;
}

}  // namespace

std::optional<Link> ParseLink(Bytes aPayload) {
  ifinfomsg header;
  const auto attributes = Split(aPayload, &header);
  if (!attributes || header.ifi_family != AF_UNSPEC || header.ifi_index <= 0) return std::nullopt;
  Link link;
  link.mIndex = static_cast<uint32_t>(header.ifi_index);
  link.mHardwareType = header.ifi_type;
  ForEachAttribute(*attributes, [&](uint16_t aType, Bytes aValue) {
    switch (aType) {
      case IFLA_IFNAME:
        link.mName = TextOf(aValue);
        break;
      case IFLA_IFALIAS:
        link.mAlias = TextOf(aValue);
        break;
      case IFLA_ADDRESS:
        link.mAddress.assign(aValue.begin(), aValue.end());
        break;
      case IFLA_OPERSTATE:
        link.mOperState = ValueOr<uint8_t>(aValue, 0);
        break;
      case IFLA_PARENT_DEV_NAME:
        link.mParent = TextOf(aValue);
        break;
      case IFLA_PARENT_DEV_BUS_NAME:
        link.mParentBus = TextOf(aValue);
        break;
      case IFLA_LINKINFO:
        ForEachAttribute(aValue, [&](uint16_t aInner, Bytes aText) {
          if (aInner == IFLA_INFO_KIND) link.mKind = TextOf(aText);
        });
        break;
      case IFLA_AF_SPEC:
        ForEachAttribute(aValue, [&](uint16_t aFamily, Bytes aSpec) {
          if (aFamily == AF_INET) link.mHasIPv4 = true;
          if (aFamily == AF_INET6) link.mHasIPv6 = SpeaksIPv6(aSpec);
        });
        break;
    }
  });
  if (link.mName.empty()) return std::nullopt;
  return link;
}

std::optional<Address> ParseAddress(Bytes aPayload) {
  ifaddrmsg header;
  const auto attributes = Split(aPayload, &header);
  if (!attributes) return std::nullopt;
  const size_t length = AddressLength(header.ifa_family);
  if (length == 0) return std::nullopt;
  Address address;
  address.mFamily = header.ifa_family;
  address.mLinkIndex = header.ifa_index;
  address.mPrefixLength = header.ifa_prefixlen;
  address.mFlags = header.ifa_flags;
  bool found = false, local = false;
  ForEachAttribute(*attributes, [&](uint16_t aType, Bytes aValue) {
    switch (aType) {
      case IFA_LOCAL:  // our end; IFA_ADDRESS is the other one's where there are two
      case IFA_ADDRESS:
        if (aValue.size() != length || (local && aType == IFA_ADDRESS)) break;
        address.mBytes = AddressOf(aValue);
        found = true;
        local = aType == IFA_LOCAL;
        break;
      case IFA_FLAGS:
        address.mFlags = ValueOr(aValue, address.mFlags);
        break;
      case IFA_CACHEINFO: {
        ifa_cacheinfo times;
        if (!Take(aValue, &times)) break;
        address.mValidLifetime = times.ifa_valid;
        address.mPreferredLifetime = times.ifa_prefered;
        break;
      }
    }
  });
  if (!found) return std::nullopt;
  return address;
}

std::vector<DefaultRoute> ParseDefaultRoutes(Bytes aPayload) {
  rtmsg header;
  const auto attributes = Split(aPayload, &header);
  if (!attributes || header.rtm_dst_len != 0 || header.rtm_type != RTN_UNICAST) return {};
  const size_t length = AddressLength(header.rtm_family);
  if (length == 0) return {};
  DefaultRoute route;
  route.mFamily = header.rtm_family;
  uint32_t table = header.rtm_table;
  std::vector<DefaultRoute> hops;
  const auto takeGateway = [&](Bytes aValue, DefaultRoute& aRoute) {
    if (aValue.size() != length) return;
    aRoute.mHasGateway = true;
    aRoute.mGateway = AddressOf(aValue);
  };
  ForEachAttribute(*attributes, [&](uint16_t aType, Bytes aValue) {
    switch (aType) {
      case RTA_TABLE:
        table = ValueOr(aValue, table);
        break;
      case RTA_OIF:
        route.mLinkIndex = ValueOr<uint32_t>(aValue, 0);
        break;
      case RTA_PRIORITY:
        route.mMetric = ValueOr<uint32_t>(aValue, 0);
        break;
      case RTA_GATEWAY:
        takeGateway(aValue, route);
        break;
      case RTA_MULTIPATH: {
        rtnexthop hop;
        while (Take(aValue, &hop) && hop.rtnh_len >= sizeof hop && hop.rtnh_len <= aValue.size()) {
          DefaultRoute& one = hops.emplace_back();
          one.mLinkIndex = static_cast<uint32_t>(hop.rtnh_ifindex);
          ForEachAttribute(aValue.subspan(sizeof hop, hop.rtnh_len - sizeof hop),
                           [&](uint16_t aInner, Bytes aGateway) {
                             if (aInner == RTA_GATEWAY) takeGateway(aGateway, one);
                           });
          aValue = aValue.subspan(std::min<size_t>(RTNH_ALIGN(hop.rtnh_len), aValue.size()));
        }
        break;
      }
    }
  });
  if (table != RT_TABLE_MAIN) return {};
  for (DefaultRoute& hop : hops) {
    hop.mFamily = route.mFamily;
    hop.mMetric = route.mMetric;
  }
  if (route.mLinkIndex != 0) hops.push_back(route);
  return hops;
}

Socket::Socket() : mBuffer(kBufferSize) {}

bool Socket::Open() {
  if (mFd) return true;
  mFd = nsUniqueFd(
      NS_RetryPassing([] { return socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE); }));
  if (!mFd) return false;
  const timeval patience{5, 0};  // rather an error than a main thread that hangs
  (void)setsockopt(mFd.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  return true;
}

Socket::Outcome Socket::Failed(int aError) {
  mError = aError;
  return Outcome::kFailed;
}

template <class Header>
Socket::Outcome Socket::Ask(uint16_t aType, const Header& aHeader, const Visitor& aVisit) {
  alignas(nlmsghdr) uint8_t buffer[256];
  nlmsghdr* const question = mnl_nlmsg_put_header(buffer);
  question->nlmsg_type = aType;
  question->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  question->nlmsg_seq = ++mSequence;
  std::memcpy(mnl_nlmsg_put_extra_header(question, sizeof aHeader), &aHeader, sizeof aHeader);
  if (aType == RTM_GETLINK) mnl_attr_put_u32(question, IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
  sockaddr_nl kernel{};
  kernel.nl_family = AF_NETLINK;
  if (!Open() || sendto(mFd.get(), buffer, question->nlmsg_len, 0,
                        reinterpret_cast<sockaddr*>(&kernel), sizeof kernel) < 0)
    return Failed(errno);
  return Answer(aVisit);
}

Socket::Outcome Socket::Answer(const Visitor& aVisit) {
  bool changed = false;
  for (;;) {
    bool isCut = false;
    const ssize_t got = Receive(mFd.get(), mBuffer, &isCut);
    if (got < 0) return Failed(errno);
    if (isCut) return Failed(EMSGSIZE);
    std::optional<Outcome> outcome;
    (void)ForEachMessage(Bytes(mBuffer.data(), static_cast<size_t>(got)),
                         [&](const nlmsghdr& aMessage, Bytes aBody) {
                           if (aMessage.nlmsg_seq != mSequence)
                             return true;  // of a question given up
                           changed = changed || (aMessage.nlmsg_flags & NLM_F_DUMP_INTR);
                           if (aMessage.nlmsg_type == NLMSG_DONE) {
                             outcome = changed ? Outcome::kChanged : Outcome::kDone;
                           } else if (aMessage.nlmsg_type == NLMSG_ERROR) {
                             nlmsgerr error{};
                             if (!Take(aBody, &error)) error.error = -EBADMSG;
                             outcome = error.error == 0 ? Outcome::kDone : Failed(-error.error);
                           } else {
                             aVisit(aMessage.nlmsg_type, aBody);
                           }
                           return !outcome;
                         });
    if (outcome) return *outcome;
  }
}

template <class Header>
nsresult Socket::Dump(uint16_t aType, const Header& aHeader, const std::function<void()>& aStart,
                      const Visitor& aVisit) {
  int failures = 0;
  for (int tries = 0; tries < kDumpTries; ++tries) {
    aStart();
    switch (Ask(aType, aHeader, aVisit)) {
      case Outcome::kDone:
        return NS_OK;
      case Outcome::kChanged:
        break;
      case Outcome::kFailed:
        // What is left of the answer goes with the socket.
        (void)mFd.Close();
        if (!NS_IsPassing(mError) || ++failures == kFailedTries) return NS_ERROR_FAILURE;
        break;
    }
  }
  return NS_OK;
}

nsresult Socket::Links(std::vector<Link>* aLinks) {
  std::vector<Link> links;
  const nsresult rv = Dump(
      RTM_GETLINK, ifinfomsg{}, [&] { links.clear(); },
      [&](uint16_t aType, Bytes aPayload) {
        if (aType != RTM_NEWLINK) return;
        if (auto link = ParseLink(aPayload)) links.push_back(std::move(*link));
      });
  if (NS_SUCCEEDED(rv)) *aLinks = std::move(links);
  return rv;
}

nsresult Socket::Addresses(uint8_t aFamily, std::vector<Address>* aAddresses) {
  ifaddrmsg header{};
  header.ifa_family = aFamily;
  std::vector<Address> addresses;
  const nsresult rv = Dump(
      RTM_GETADDR, header, [&] { addresses.clear(); },
      [&](uint16_t aType, Bytes aPayload) {
        if (aType != RTM_NEWADDR) return;
        if (const auto address = ParseAddress(aPayload)) addresses.push_back(*address);
      });
  if (NS_SUCCEEDED(rv)) *aAddresses = std::move(addresses);
  return rv;
}

nsresult Socket::DefaultRoutes(uint8_t aFamily, std::vector<DefaultRoute>* aRoutes) {
  rtmsg header{};
  header.rtm_family = aFamily;
  std::vector<DefaultRoute> routes;
  const nsresult rv = Dump(
      RTM_GETROUTE, header, [&] { routes.clear(); },
      [&](uint16_t aType, Bytes aPayload) {
        if (aType != RTM_NEWROUTE) return;
        for (const DefaultRoute& route : ParseDefaultRoutes(aPayload)) routes.push_back(route);
      });
  if (NS_SUCCEEDED(rv)) *aRoutes = std::move(routes);
  return rv;
}

nsresult Socket::Payloads(uint16_t aType, uint8_t aFamily,
                          std::vector<std::vector<uint8_t>>* aPayloads) {
  std::vector<std::vector<uint8_t>> payloads;
  const auto start = [&] { payloads.clear(); };
  const auto visit = [&](uint16_t, Bytes aPayload) {
    payloads.emplace_back(aPayload.begin(), aPayload.end());
  };
  nsresult rv;
  if (aType == RTM_GETADDR) {
    ifaddrmsg header{};
    header.ifa_family = aFamily;
    rv = Dump(aType, header, start, visit);
  } else if (aType == RTM_GETROUTE) {
    rtmsg header{};
    header.rtm_family = aFamily;
    rv = Dump(aType, header, start, visit);
  } else {
    ifinfomsg header{};
    header.ifi_family = aFamily;
    rv = Dump(aType, header, start, visit);
  }
  if (NS_SUCCEEDED(rv)) *aPayloads = std::move(payloads);
  return rv;
}

int Socket::Change(uint16_t aType, uint16_t aFlags, Bytes aPayload) {
  std::vector<uint8_t> buffer(MNL_NLMSG_HDRLEN + MNL_ALIGN(aPayload.size()));
  nlmsghdr header{};
  header.nlmsg_len = static_cast<uint32_t>(buffer.size());
  header.nlmsg_type = aType;
  header.nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | NLM_F_ACK | aFlags);
  header.nlmsg_seq = ++mSequence;
  std::memcpy(buffer.data(), &header, sizeof header);
  std::ranges::copy(aPayload, buffer.begin() + MNL_NLMSG_HDRLEN);
  sockaddr_nl kernel{};
  kernel.nl_family = AF_NETLINK;
  if (!Open() || sendto(mFd.get(), buffer.data(), buffer.size(), 0,
                        reinterpret_cast<sockaddr*>(&kernel), sizeof kernel) < 0)
    return mError = errno;
  return Answer([](uint16_t, Bytes) {}) == Outcome::kDone ? 0 : mError;
}

}  // namespace vorel::netlink

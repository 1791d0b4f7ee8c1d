#include "nsLinkMessages.h"

#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

namespace {

using Bytes = std::span<const uint8_t>;

/// The record at the head of the bytes; false when there are not so many.
template <class T>
bool Read(Bytes aBytes, T* aRecord) {
  if (aBytes.size() < sizeof *aRecord) return false;
  std::memcpy(aRecord, aBytes.data(), sizeof *aRecord);
  return true;
}

/// Takes a message or an attribute off the front: a header, whose length counts itself, what
/// belongs to it, and padding. False when there is no whole one.
template <class Header, class Length>
bool Take(Bytes* aBytes, Length Header::*aLength, Header* aHeader, Bytes* aPayload) {
  if (!Read(*aBytes, aHeader)) return false;
  const size_t length = aHeader->*aLength;
  if (length < sizeof *aHeader || length > aBytes->size()) return false;
  *aPayload = aBytes->subspan(sizeof *aHeader, length - sizeof *aHeader);
  static_assert(NLMSG_ALIGNTO == RTA_ALIGNTO);
  *aBytes = aBytes->subspan(std::min<size_t>(NLMSG_ALIGN(length), aBytes->size()));
  return true;
}

bool HasAttribute(Bytes aAttributes, unsigned short aType) {
  rtattr attribute;
  Bytes value;
  while (Take(&aAttributes, &rtattr::rta_len, &attribute, &value))
    if (attribute.rta_type == aType) return true;
  return false;
}

bool IsChange(uint16_t aType, Bytes aPayload) {
  ifinfomsg link;
  ifaddrmsg address;
  rtmsg route;
  switch (aType) {
    case RTM_NEWLINK:
    case RTM_DELLINK:
      // Messages of one family tell of the link's IPv6 side or of a bridge's port, and look like
      // news of the link, up to its end. Those of a wireless card, such as each scan that it has
      // done, go the same way.
      return Read(aPayload, &link) && link.ifi_family == AF_UNSPEC &&
             !HasAttribute(aPayload.subspan(sizeof link), IFLA_WIRELESS);
    case RTM_NEWADDR:
    case RTM_DELADDR:
      return Read(aPayload, &address);
    case RTM_NEWROUTE:
    case RTM_DELROUTE:
      // A clone is what the kernel remembers of a route for one peer.
      return Read(aPayload, &route) && !(route.rtm_flags & RTM_F_CLONED);
    default:
      return false;
  }
}

}  // namespace

bool NS_TellsOfNetworkChange(Bytes aMessages) {
  nlmsghdr header;
  Bytes payload;
  while (Take(&aMessages, &nlmsghdr::nlmsg_len, &header, &payload))
    if (IsChange(header.nlmsg_type, payload)) return true;
  return false;
}

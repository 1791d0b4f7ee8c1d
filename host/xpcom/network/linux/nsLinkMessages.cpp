#include "nsLinkMessages.h"

#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include "nsNetlinkMessages.h"

namespace {

using namespace vorel::netlink;

bool HasAttribute(Bytes aAttributes, uint16_t aType) {
  bool has = false;
  ForEachAttribute(aAttributes, [&](uint16_t aEach, Bytes) { has = has || aEach == aType; });
  return has;
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
      return Take(aPayload, &link) && link.ifi_family == AF_UNSPEC &&
             !HasAttribute(aPayload.subspan(sizeof link), IFLA_WIRELESS);
    case RTM_NEWADDR:
    case RTM_DELADDR:
      return Take(aPayload, &address);
    case RTM_NEWROUTE:
    case RTM_DELROUTE:
      // A clone is what the kernel remembers of a route for one peer.
      return Take(aPayload, &route) && !(route.rtm_flags & RTM_F_CLONED);
    default:
      return false;
  }
}

}  // namespace

bool NS_TellsOfNetworkChange(Bytes aMessages) {
  bool tells = false;
  (void)ForEachMessage(aMessages, [&](const nlmsghdr& aHeader, Bytes aPayload) {
    tells = IsChange(aHeader.nlmsg_type, aPayload);
    return !tells;
  });
  return tells;
}

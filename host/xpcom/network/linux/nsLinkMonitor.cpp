#include "nsLinkMonitor.h"

#include <ifaddrs.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "nsINetworkLinkService.h"

namespace {

constexpr uint32_t kGroups[] = {RTNLGRP_LINK, RTNLGRP_IPV4_IFADDR, RTNLGRP_IPV6_IFADDR,
                                RTNLGRP_IPV4_ROUTE, RTNLGRP_IPV6_ROUTE};
// A burst of a machine with hundreds of links fits; a larger one overruns, and is noticed.
constexpr int kReceiveBuffer = 1 << 20;

constexpr std::string_view kEtc = "/etc";
constexpr std::string_view kResolverFile = "resolv.conf";
// Where network services leave the DNS servers.
constexpr const char* kServiceDirectories[] = {"/run/systemd/resolve", "/run/systemd/resolve/netif",
                                               "/run/systemd/netif/links", "/run/NetworkManager"};
constexpr uint32_t kFileChanges = IN_CLOSE_WRITE | IN_MOVED_TO | IN_CREATE | IN_DELETE | IN_ONLYDIR;

/// A message that tells of a change. Those on a link of one family tell of its IPv6 side or of a
/// bridge's port, and look like news of the link.
bool IsChange(const nlmsghdr& aHeader) {
  switch (aHeader.nlmsg_type) {
    case RTM_NEWLINK:
    case RTM_DELLINK: {
      if (aHeader.nlmsg_len < NLMSG_LENGTH(sizeof(ifinfomsg))) return false;
      ifinfomsg link;
      std::memcpy(&link, NLMSG_DATA(&aHeader), sizeof link);
      return link.ifi_family == AF_UNSPEC;
    }
    case RTM_NEWADDR:
    case RTM_DELADDR:
    case RTM_NEWROUTE:
    case RTM_DELROUTE:
      return true;
    default:
      return false;
  }
}

bool LeadsOutward(const ifaddrs& aEntry) {
  if (!aEntry.ifa_addr || (aEntry.ifa_flags & IFF_LOOPBACK)) return false;
  if ((aEntry.ifa_flags & (IFF_UP | IFF_RUNNING)) != (IFF_UP | IFF_RUNNING)) return false;
  if (aEntry.ifa_addr->sa_family == AF_INET) return true;
  if (aEntry.ifa_addr->sa_family != AF_INET6) return false;
  sockaddr_in6 address;
  std::memcpy(&address, aEntry.ifa_addr, sizeof address);
  return !IN6_IS_ADDR_LINKLOCAL(&address.sin6_addr);
}

}  // namespace

nsresult nsLinkMonitor::Open(std::unique_ptr<nsLinkMonitor>* aResult) {
  std::unique_ptr<nsLinkMonitor> monitor(new nsLinkMonitor);
  monitor->mLinks = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
  if (monitor->mLinks < 0) return NS_ERROR_FAILURE;
  (void)setsockopt(monitor->mLinks, SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof kReceiveBuffer);
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  if (bind(monitor->mLinks, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    return NS_ERROR_FAILURE;
  for (const uint32_t group : kGroups)
    if (setsockopt(monitor->mLinks, SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &group, sizeof group) != 0)
      return NS_ERROR_FAILURE;
  // Without inotify, changes of DNS servers are seen with the next one of a link.
  monitor->mFiles = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  if (monitor->mFiles >= 0) {
    monitor->mEtc = inotify_add_watch(monitor->mFiles, kEtc.data(), kFileChanges);
    monitor->mUnwatched.insert(std::begin(kServiceDirectories), std::end(kServiceDirectories));
    monitor->WatchFiles();
  }
  *aResult = std::move(monitor);
  return NS_OK;
}

nsLinkMonitor::~nsLinkMonitor() {
  for (const int fd : Descriptors()) close(fd);
}

std::vector<int> nsLinkMonitor::Descriptors() const {
  std::vector<int> descriptors;
  for (const int fd : {mLinks, mFiles})
    if (fd >= 0) descriptors.push_back(fd);
  return descriptors;
}

bool nsLinkMonitor::Consume() {
  const bool links = ConsumeLinks();
  const bool files = ConsumeFiles();
  // A network service that starts makes its directory; links change with it.
  if (links || files) WatchFiles();
  return links || files;
}

bool nsLinkMonitor::ConsumeLinks() {
  bool changed = false;
  alignas(nlmsghdr) char buffer[32768];
  for (;;) {
    const ssize_t got = recv(mLinks, buffer, sizeof buffer, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && errno == ENOBUFS) {  // the socket goes on with what comes after the loss
      changed = true;
      continue;
    }
    if (got <= 0) return changed;
    auto left = static_cast<unsigned>(got);
    for (auto* header = reinterpret_cast<const nlmsghdr*>(buffer); NLMSG_OK(header, left);
         header = NLMSG_NEXT(header, left))
      changed = changed || IsChange(*header);
  }
}

bool nsLinkMonitor::ConsumeFiles() {
  if (mFiles < 0) return false;
  bool changed = false;
  alignas(inotify_event) char buffer[4096];
  for (;;) {
    const ssize_t got = read(mFiles, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return changed;
    for (ssize_t at = 0; at < got;) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
      at += static_cast<ssize_t>(sizeof *event + event->len);
      if (event->wd != mEtc || (event->mask & IN_Q_OVERFLOW) ||
          (event->len && event->name == kResolverFile))
        changed = true;
      if (event->mask & IN_IGNORED)  // the directory went away, and may come back
        mUnwatched.insert(std::begin(kServiceDirectories), std::end(kServiceDirectories));
    }
  }
}

void nsLinkMonitor::WatchFiles() {
  std::erase_if(mUnwatched, [this](const std::string& aPath) {
    return mFiles >= 0 && inotify_add_watch(mFiles, aPath.c_str(), kFileChanges) >= 0;
  });
}

nsLinkMonitor::Status nsLinkMonitor::ReadStatus(uint32_t* aType) {
  ifaddrs* entries = nullptr;
  *aType = nsINetworkLinkService::LINK_TYPE_UNKNOWN;
  if (getifaddrs(&entries) != 0) return kUnknown;
  Status status = kDown;
  for (const ifaddrs* entry = entries; entry && status == kDown; entry = entry->ifa_next) {
    if (!LeadsOutward(*entry)) continue;
    status = kUp;
    const std::string wireless = std::string("/sys/class/net/") + entry->ifa_name + "/phy80211";
    *aType = access(wireless.c_str(), F_OK) == 0 ? nsINetworkLinkService::LINK_TYPE_WIFI
                                                 : nsINetworkLinkService::LINK_TYPE_ETHERNET;
  }
  freeifaddrs(entries);
  return status;
}

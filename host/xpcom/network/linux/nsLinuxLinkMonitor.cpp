#include "nsLinuxLinkMonitor.h"

#include <ifaddrs.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "nsINetworkLinkService.h"
#include "nsLinkMessages.h"
#include "nsLogger.h"
#include "nsNetlinkMessages.h"

namespace {

constexpr uint32_t kGroups[] = {RTNLGRP_LINK, RTNLGRP_IPV4_IFADDR, RTNLGRP_IPV6_IFADDR,
                                RTNLGRP_IPV4_ROUTE, RTNLGRP_IPV6_ROUTE};
constexpr uint32_t kFileChanges =
    IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_CREATE | IN_DELETE | IN_ONLYDIR;
constexpr int kReadsAtOnce = 256;  // then others of the thread have their turn

bool LeadsOut(const ifaddrs& aEntry) {
  constexpr unsigned kUp = IFF_UP | IFF_RUNNING;
  if (!aEntry.ifa_addr || (aEntry.ifa_flags & (kUp | IFF_LOOPBACK)) != kUp) return false;
  if (aEntry.ifa_addr->sa_family == AF_INET) return true;
  if (aEntry.ifa_addr->sa_family != AF_INET6) return false;
  sockaddr_in6 address;
  std::memcpy(&address, aEntry.ifa_addr, sizeof address);
  return !IN6_IS_ADDR_LINKLOCAL(&address.sin6_addr);
}

uint32_t TypeOf(const ifaddrs* aEntries, std::string_view aName) {
  if (access(("/sys/class/net/" + std::string(aName) + "/phy80211").c_str(), F_OK) == 0)
    return nsINetworkLinkService::LINK_TYPE_WIFI;
  for (const ifaddrs* entry = aEntries; entry; entry = entry->ifa_next) {
    if (entry->ifa_name != aName || !entry->ifa_addr || entry->ifa_addr->sa_family != AF_PACKET)
      continue;
    sockaddr_ll link;
    std::memcpy(&link, entry->ifa_addr, sizeof link);
    if (link.sll_hatype == ARPHRD_ETHER) return nsINetworkLinkService::LINK_TYPE_ETHERNET;
  }
  return nsINetworkLinkService::LINK_TYPE_UNKNOWN;
}

}  // namespace

nsresult nsLinkMonitor::Open(std::unique_ptr<nsLinkMonitor>* aResult) {
  return nsLinuxLinkMonitor::Open({}, aResult);
}

nsLinkMonitor::Status nsLinkMonitor::ReadStatus(uint32_t* aType) {
  *aType = nsINetworkLinkService::LINK_TYPE_UNKNOWN;
  ifaddrs* entries = nullptr;
  if (getifaddrs(&entries) != 0) return Status::eUnknown;
  const ifaddrs* entry = entries;
  while (entry && !LeadsOut(*entry)) entry = entry->ifa_next;
  if (entry) *aType = TypeOf(entries, entry->ifa_name);
  freeifaddrs(entries);
  return entry ? Status::eUp : Status::eDown;
}

nsresult nsLinuxLinkMonitor::Open(const Options& aOptions,
                                  std::unique_ptr<nsLinkMonitor>* aResult) {
  std::unique_ptr<nsLinuxLinkMonitor> monitor(new nsLinuxLinkMonitor(aOptions));
  if (!monitor->OpenLinks() || NS_FAILED(monitor->mWake.Open())) return NS_ERROR_FAILURE;
  monitor->mFiles = nsUniqueFd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  if (!monitor->mFiles) {
    const std::string why = std::strerror(errno);
    const auto logger = NS_GetLogger("host");
    SYSTEM_LOG_WARNING(logger, "Changes of name servers are not noticed: " + why);
  }
  (void)monitor->WatchFiles();
  *aResult = std::move(monitor);
  return NS_OK;
}

void nsLinuxLinkMonitor::Wait() {
  // The one of files may be missing, which is never ready then.
  pollfd fds[] = {{mWake.get(), POLLIN, 0}, {mLinks.get(), POLLIN, 0}, {mFiles.get(), POLLIN, 0}};
  while (poll(fds, std::size(fds), -1) < 0 && errno == EINTR) {
  }
  (void)mWake.Take();
}

bool nsLinuxLinkMonitor::OpenLinks() {
  mLinks = nsUniqueFd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE));
  if (!mLinks) return false;
  // The system may give less.
  (void)setsockopt(mLinks.get(), SOL_SOCKET, SO_RCVBUF, &mOptions.mReceiveBuffer,
                   sizeof mOptions.mReceiveBuffer);
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  if (bind(mLinks.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return false;
  for (const uint32_t group : kGroups)
    if (setsockopt(mLinks.get(), SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &group, sizeof group) != 0)
      return false;
  return true;
}

bool nsLinuxLinkMonitor::Consume() {
  const bool links = ConsumeLinks();
  const bool files = ConsumeFiles();
  // A network service that starts makes its directories, and links change with it.
  const bool watches = (links || files) && WatchFiles();
  return links || files || watches;
}

bool nsLinuxLinkMonitor::ConsumeLinks() {
  bool changed = false;
  uint8_t buffer[32768];
  for (int i = 0; i < kReadsAtOnce; ++i) {
    bool isCut = false;
    const ssize_t got = vorel::netlink::Receive(mLinks.get(), buffer, &isCut);
    if (got < 0 && errno == ENOBUFS) {
      changed = true;  // messages were lost; the socket goes on with those that came before
      continue;
    }
    if (got <= 0) break;
    // One that is cut short is a message of a link with very much to say.
    changed = changed || isCut || NS_TellsOfNetworkChange({buffer, static_cast<size_t>(got)});
  }
  return changed;
}

bool nsLinuxLinkMonitor::ConsumeFiles() {
  if (!mFiles) return false;
  bool changed = false;
  char buffer[8192];
  for (int i = 0; i < kReadsAtOnce; ++i) {
    const ssize_t got = read(mFiles.get(), buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    for (const char* at = buffer; at < buffer + got;) {
      inotify_event event;
      std::memcpy(&event, at, sizeof event);
      const char* const name = event.len ? at + sizeof event : "";
      at += sizeof event + event.len;
      const auto watch = mWatches.find(event.wd);
      // Without a name it is the directory itself that went away.
      changed = changed || (event.mask & IN_Q_OVERFLOW) ||
                (watch != mWatches.end() &&
                 (!*name || watch->second.contains("") || watch->second.contains(name)));
    }
  }
  return changed;
}

/// Watches whatever is there now. True when something is watched that was not: it may have changed
/// before.
bool nsLinuxLinkMonitor::WatchFiles() {
  Watches watches;
  const auto watch = [&](const std::string& aDirectory, const std::string& aName) {
    // A directory that is watched already keeps its number.
    const int number = inotify_add_watch(mFiles.get(), aDirectory.c_str(), kFileChanges);
    if (number >= 0) watches[number].insert(aName);
  };
  if (!mFiles) return false;
  const std::filesystem::path resolver = mOptions.mResolverFile;
  watch(resolver.parent_path().native(), resolver.filename().native());
  std::error_code error;
  const auto target = std::filesystem::canonical(resolver, error);
  if (!error) watch(target.parent_path().native(), target.filename().native());
  for (const std::string& directory : mOptions.mServiceDirectories) watch(directory, "");
  const bool more = std::any_of(
      watches.begin(), watches.end(),
      [this](const Watches::value_type& aWatch) { return !mWatches.contains(aWatch.first); });
  mWatches = std::move(watches);
  return more;
}

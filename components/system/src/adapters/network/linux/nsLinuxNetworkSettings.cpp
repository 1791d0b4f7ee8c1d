#include "nsLinuxNetworkSettings.h"

#include <fcntl.h>
#include <linux/if_addr.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <sstream>

#include "nsAddressText.h"
#include "nsErrno.h"
#include "nsNativeFile.h"
#include "nsNetlink.h"

namespace {

using namespace vorel::netlink;
using Payload = std::vector<uint8_t>;
constexpr char kRecordHead = 'I';
constexpr char kNoResolver = '0', kResolverFile = 'F', kResolverLink = 'L';

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

// ---- What an interface has

struct Interface {
  bool mIsUp = false;
  std::vector<Payload> mAddresses;
  std::vector<Payload> mRoutes;  // of the main table, but for those that the kernel makes itself
};

/// One thread's talk with the kernel about one interface.
class LiveInterface {
 public:
  explicit LiveInterface(const std::string& aName) : mIndex(if_nametoindex(aName.c_str())) {}

  bool Exists() const { return mIndex != 0; }
  nsresult Read(Interface* aInterface);
  nsresult Write(const nsInterfaceSettings& aSettings);
  nsresult Restore(Interface aInterface);

 private:
  static bool IsDefault(const Payload& aRoute) { return HeaderOf<rtmsg>(aRoute).rtm_dst_len == 0; }

  nsresult Failed(int aError) { return NS_ResultOfErrno(aError); }
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

  const unsigned mIndex;
  Socket mSocket;
};

nsresult LiveInterface::Read(Interface* aInterface) {
  Interface interface;
  std::vector<Payload> links, addresses, routes;
  nsresult rv = mSocket.Payloads(RTM_GETLINK, AF_UNSPEC, &links);
  if (NS_SUCCEEDED(rv)) rv = mSocket.Payloads(RTM_GETADDR, AF_INET, &addresses);
  if (NS_SUCCEEDED(rv)) rv = mSocket.Payloads(RTM_GETROUTE, AF_INET, &routes);
  if (NS_FAILED(rv)) return rv;
  for (const Payload& link : links) {
    const auto header = HeaderOf<ifinfomsg>(link);
    if (static_cast<unsigned>(header.ifi_index) == mIndex)
      interface.mIsUp = header.ifi_flags & IFF_UP;
  }
  for (Payload& address : addresses) {
    const auto header = HeaderOf<ifaddrmsg>(address);
    if (header.ifa_family == AF_INET && header.ifa_index == mIndex)
      interface.mAddresses.push_back(std::move(address));
  }
  for (Payload& route : routes) {
    const auto header = HeaderOf<rtmsg>(route);
    const auto out = FindAttribute<rtmsg>(route, RTA_OIF);
    if (header.rtm_family == AF_INET && header.rtm_table == RT_TABLE_MAIN &&
        header.rtm_protocol != RTPROT_KERNEL && ValueOr<uint32_t>(out, 0) == mIndex)
      interface.mRoutes.push_back(std::move(route));
  }
  *aInterface = std::move(interface);
  return NS_OK;
}

nsresult LiveInterface::Write(const nsInterfaceSettings& aSettings) {
  Interface before;
  if (const nsresult rv = Read(&before); NS_FAILED(rv)) return rv;
  // An old address that leaves takes others of its net with it: the new ones come after that.
  std::vector<Payload> leaving, defaults;
  for (const Payload& payload : before.mAddresses) {
    const auto address = ParseAddress(payload);
    nsIPv4Net net;
    if (address) {
      std::copy_n(address->mBytes.begin(), 4, net.mAddress.begin());
      net.mPrefixLength = address->mPrefixLength;
    }
    if (!address || std::ranges::find(aSettings.mAddresses, net) == aSettings.mAddresses.end())
      leaving.push_back(payload);
  }
  std::ranges::copy_if(before.mRoutes, std::back_inserter(defaults), IsDefault);
  int error = Remove(RTM_DELROUTE, defaults);
  if (error == 0) error = Remove(RTM_DELADDR, leaving);
  if (error == 0) error = SetUp(true);
  if (error != 0) return Failed(error);

  for (const nsIPv4Net& net : aSettings.mAddresses) {
    ifaddrmsg header{};
    header.ifa_family = AF_INET;
    header.ifa_prefixlen = net.mPrefixLength;
    header.ifa_index = mIndex;
    Payload payload = PayloadOf(header);
    PutAttribute(payload, IFA_LOCAL, net.mAddress.data(), 4);
    PutAttribute(payload, IFA_ADDRESS, net.mAddress.data(), 4);
    if (net.mPrefixLength < 31) {
      nsIPv4Bytes broadcast = net.mAddress;
      for (unsigned bit = net.mPrefixLength; bit < 32; ++bit)
        broadcast[bit / 8] = static_cast<uint8_t>(broadcast[bit / 8] | 0x80u >> bit % 8);
      PutAttribute(payload, IFA_BROADCAST, broadcast.data(), 4);
    }
    error = mSocket.Change(RTM_NEWADDR, NLM_F_CREATE | NLM_F_REPLACE, payload);
    if (error != 0) return Failed(error);
  }
  for (size_t i = 0; i < aSettings.mGateways.size(); ++i) {
    rtmsg header{};
    header.rtm_family = AF_INET;
    header.rtm_table = RT_TABLE_MAIN;
    header.rtm_protocol = RTPROT_STATIC;
    header.rtm_scope = RT_SCOPE_UNIVERSE;
    header.rtm_type = RTN_UNICAST;
    Payload payload = PayloadOf(header);
    const uint32_t metric = aSettings.mMetric + static_cast<uint32_t>(i);
    PutAttribute(payload, RTA_GATEWAY, aSettings.mGateways[i].data(), 4);
    PutAttribute(payload, RTA_OIF, &mIndex, sizeof mIndex);
    if (metric != 0) PutAttribute(payload, RTA_PRIORITY, &metric, sizeof metric);
    if (error = AddRoute(payload); error != 0) return Failed(error);
  }
  for (const Payload& route : before.mRoutes) {
    if (IsDefault(route)) continue;
    error = AddRoute(route);
    // Its gateway, or its own source, lies outside the new nets.
    if (error != 0 && error != ENETUNREACH && error != EINVAL) return Failed(error);
  }
  return NS_OK;
}

nsresult LiveInterface::Restore(Interface aInterface) {
  Interface now;
  if (const nsresult rv = Read(&now); NS_FAILED(rv)) return rv;
  int error = Remove(RTM_DELROUTE, now.mRoutes);
  if (error == 0) error = Remove(RTM_DELADDR, now.mAddresses);
  if (error == 0) error = SetUp(aInterface.mIsUp);
  // Indices are given anew when a machine or an interface starts.
  for (Payload& address : aInterface.mAddresses) {
    if (error != 0) break;
    auto header = HeaderOf<ifaddrmsg>(address);
    header.ifa_index = mIndex;
    SetHeader(address, header);
    error = mSocket.Change(RTM_NEWADDR, NLM_F_CREATE | NLM_F_REPLACE, address);
  }
  for (Payload& route : aInterface.mRoutes) {
    if (error != 0) break;
    const auto out = FindAttribute<rtmsg>(route, RTA_OIF);
    if (out.size() == sizeof mIndex) std::memcpy(out.data(), &mIndex, sizeof mIndex);
    error = AddRoute(route);
  }
  return error == 0 ? NS_OK : Failed(error);
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
    if ((kind != 'A' && kind != 'R') || size > aText.size() || size < least) return std::nullopt;
    auto& list = kind == 'A' ? interface.mAddresses : interface.mRoutes;
    list.emplace_back(aText.begin(), aText.begin() + size);
    aText.remove_prefix(size);
  }
  return interface;
}

bool IsServerLine(const std::string& aLine, std::string* aAddress) {
  std::istringstream words(aLine);
  std::string keyword;
  return static_cast<bool>(words >> keyword >> *aAddress) && keyword == "nameserver";
}

}  // namespace

nsresult nsLinuxNetworkSettings::FindService(std::string* aName) {
  // The system's manager keeps a link for each unit that is active.
  for (const char* name : {"NetworkManager", "systemd-networkd"})
    if (mFiles.ReadLink(std::string("/run/systemd/units/invocation:") + name + ".service")) {
      *aName = name;
      return NS_OK;
    }
  const std::string process = mFiles.ReadAttribute("/run/NetworkManager/NetworkManager.pid");
  const bool runs = !process.empty() && process.find('/') == process.npos &&
                    mFiles.ReadAttribute("/proc/" + process + "/comm") == "NetworkManager";
  *aName = runs ? "NetworkManager" : "";
  return NS_OK;
}

nsresult nsLinuxNetworkSettings::ReadInterface(const std::string& aName, std::string* aRecord) {
  LiveInterface link(aName);
  if (!link.Exists()) return NS_ERROR_FILE_NOT_FOUND;
  Interface interface;
  if (const nsresult rv = link.Read(&interface); NS_FAILED(rv)) return rv;
  *aRecord = FormatInterface(interface);
  return NS_OK;
}

nsresult nsLinuxNetworkSettings::WriteInterface(const std::string& aName,
                                                const nsInterfaceSettings& aSettings) {
  LiveInterface link(aName);
  return link.Exists() ? link.Write(aSettings) : NS_ERROR_FILE_NOT_FOUND;
}

nsresult nsLinuxNetworkSettings::RestoreInterface(const std::string& aName,
                                                  const std::string& aRecord) {
  auto interface = ParseInterface(aRecord);
  if (!interface) return NS_ERROR_FILE_CORRUPTED;
  LiveInterface link(aName);
  return link.Exists() ? link.Restore(std::move(*interface)) : NS_ERROR_FILE_NOT_FOUND;
}

// ---- The resolver's file

nsresult nsLinuxNetworkSettings::ReadServers(std::vector<nsIPv4Bytes>* aServers) {
  std::string text;
  const nsresult rv = NS_ReadFile(mOptions.mResolver, &text, kConfigurationLimit);
  if (NS_FAILED(rv) && rv != NS_ERROR_FILE_NOT_FOUND) return rv;
  std::vector<nsIPv4Bytes> servers;
  std::istringstream lines(text);
  for (std::string line, address; std::getline(lines, line);) {
    nsIPv4Bytes bytes{};
    if (IsServerLine(line, &address) && NS_SUCCEEDED(vorel::address::ParseIPv4(address, bytes)))
      servers.push_back(bytes);
  }
  *aServers = std::move(servers);
  return NS_OK;
}

nsresult nsLinuxNetworkSettings::ReadResolver(std::string* aRecord) {
  char target[4096];
  const ssize_t length = readlink(mOptions.mResolver.c_str(), target, sizeof target);
  if (length >= 0) {
    *aRecord = kResolverLink + std::string(target, static_cast<size_t>(length));
    return NS_OK;
  }
  std::string text;
  const nsresult rv = NS_ReadFile(mOptions.mResolver, &text, kConfigurationLimit);
  if (NS_FAILED(rv) && rv != NS_ERROR_FILE_NOT_FOUND) return rv;
  *aRecord = NS_FAILED(rv) ? std::string(1, kNoResolver) : kResolverFile + text;
  return NS_OK;
}

nsresult nsLinuxNetworkSettings::WriteResolver(const std::vector<nsIPv4Bytes>& aServers) {
  std::string before;
  const nsresult rv = NS_ReadFile(mOptions.mResolver, &before, kConfigurationLimit);
  if (NS_FAILED(rv) && rv != NS_ERROR_FILE_NOT_FOUND) return rv;
  std::string text;
  std::istringstream lines(before);
  for (std::string line, address; std::getline(lines, line);)
    if (!IsServerLine(line, &address) || address.find(':') != address.npos) text += line + "\n";
  std::string servers;
  for (const nsIPv4Bytes& server : aServers)
    servers += "nameserver " + vorel::address::FormatIPv4(server) + "\n";
  return NS_ReplaceFile(mOptions.mResolver, servers + text, 0644);
}

nsresult nsLinuxNetworkSettings::RestoreResolver(const std::string& aRecord) {
  const std::string& path = mOptions.mResolver;
  const std::string rest = aRecord.empty() ? "" : aRecord.substr(1);
  if (aRecord.empty()) return NS_ERROR_FILE_CORRUPTED;
  switch (aRecord[0]) {
    case kResolverFile:
      return NS_ReplaceFile(path, rest, 0644);
    case kResolverLink: {
      const std::string beside = path + ".vorel-former";
      if (unlink(beside.c_str()) != 0 && errno != ENOENT) return NS_LastResult();
      if (symlink(rest.c_str(), beside.c_str()) != 0) return NS_LastResult();
      return rename(beside.c_str(), path.c_str()) == 0 ? NS_OK : NS_LastResult();
    }
    case kNoResolver:
      return unlink(path.c_str()) == 0 || errno == ENOENT ? NS_OK : NS_LastResult();
    default:
      return NS_ERROR_FILE_CORRUPTED;
  }
}

// ---- The journal

nsresult nsLinuxNetworkSettings::LockJournal() {
  if (mLock) return NS_OK;
  const std::string directory = mOptions.mJournal.substr(0, mOptions.mJournal.rfind('/'));
  if (mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST) return NS_LastResult();
  nsUniqueFd lock(
      open((mOptions.mJournal + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!lock) return NS_LastResult();
  if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0)
    return errno == EWOULDBLOCK ? NS_ERROR_FILE_IS_LOCKED : NS_LastResult();
  mLock = std::move(lock);
  return NS_OK;
}

nsresult nsLinuxNetworkSettings::LoadJournal(std::string* aText) {
  // Whoever only looks leaves no lock file behind, and needs no right to make one.
  if (access(mOptions.mJournal.c_str(), F_OK) != 0) return NS_LastResult();
  nsresult rv = LockJournal();
  if (NS_FAILED(rv)) return rv;
  rv = NS_ReadFile(mOptions.mJournal, aText, kConfigurationLimit, nsFileKind::eRegular);
  if (rv == NS_ERROR_FILE_NOT_FOUND) (void)mLock.Close();
  return rv;
}

nsresult nsLinuxNetworkSettings::SaveJournal(const std::string& aText) {
  nsresult rv = LockJournal();
  if (NS_FAILED(rv)) return rv;
  rv = NS_ReplaceFile(mOptions.mJournal, aText);
  if (NS_FAILED(rv)) (void)mLock.Close();
  return rv;
}

nsresult nsLinuxNetworkSettings::DropJournal() {
  nsresult rv = LockJournal();
  if (NS_FAILED(rv)) return rv;
  if (unlink(mOptions.mJournal.c_str()) != 0 && errno != ENOENT) return NS_LastResult();
  const std::string directory = mOptions.mJournal.substr(0, mOptions.mJournal.rfind('/'));
  const nsUniqueFd folder(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder || fsync(folder.get()) != 0) return NS_LastResult();
  (void)mLock.Close();
  return NS_OK;
}

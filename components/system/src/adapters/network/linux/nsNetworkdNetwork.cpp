#include "nsNetworkdNetwork.h"

#include <fcntl.h>
#include <net/if.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <sstream>

#include "nsErrno.h"
#include "nsKernelNetwork.h"
#include "nsLinkFiles.h"
#include "nsNativeFile.h"
#include "nsPlatformNetworkText.h"

namespace {

using namespace std::chrono_literals;
constexpr auto kPatience = 20s;  // for addresses that are given
constexpr auto kLeasePatience = 45s;
constexpr auto kRestorePatience = 5s;
const nsBusObject kManager{nsNetworkdNetwork::kService, "/org/freedesktop/network1",
                           "org.freedesktop.network1.Manager"};

bool IsIPv6(const nsSocketAddress& aAddress) { return aAddress.mFamily == nsSocketAddress::kIPv6; }

std::string Trimmed(const std::string& aText) {
  const size_t first = aText.find_first_not_of(" \t\r");
  return first == aText.npos ? ""
                             : aText.substr(first, aText.find_last_not_of(" \t\r") + 1 - first);
}

// ---- Files, which the service reads as another user

nsresult WriteReadable(const std::string& aPath, const std::string& aText) {
  const std::string folder = aPath.substr(0, aPath.rfind('/'));
  if (mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST) return NS_LastResult();
  const nsresult rv = NS_ReplaceFile(aPath, aText, 0644);
  if (NS_FAILED(rv)) return rv;
  return chmod(aPath.c_str(), 0644) == 0 ? NS_OK : NS_LastResult();
}

// A file with its text, behind '+'; "-" for none.
nsresult ReadOptional(const std::string& aPath, std::string* aText) {
  std::string text;
  const nsresult rv = NS_ReadFile(aPath, &text, kConfigurationLimit);
  if (NS_FAILED(rv) && rv != NS_ERROR_FILE_NOT_FOUND) return rv;
  *aText = NS_FAILED(rv) ? "-" : "+" + text;
  return NS_OK;
}

// *aIsChanged stays when it had that text already.
nsresult WriteOptional(const std::string& aPath, const std::string& aText, bool* aIsChanged) {
  std::string now;
  const nsresult rv = ReadOptional(aPath, &now);
  if (NS_FAILED(rv) || now == aText) return rv;
  *aIsChanged = true;
  if (aText.starts_with('+')) return WriteReadable(aPath, aText.substr(1));
  if (unlink(aPath.c_str()) != 0 && errno != ENOENT) return NS_LastResult();
  const nsUniqueFd folder(
      open(aPath.substr(0, aPath.rfind('/')).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return folder && fsync(folder.get()) == 0 ? NS_OK : NS_LastResult();
}

}  // namespace

// ---- The text

std::string nsNetworkdNetwork::FileText(const std::string& aName,
                                        const nsInterfaceSettings& aSettings,
                                        const std::string& aFormer) {
  const auto has = [&](bool aIPv6) {
    return std::ranges::any_of(aSettings.mAddresses,
                               [&](const nsIPNet& aNet) { return IsIPv6(aNet.mAddress) == aIPv6; });
  };
  const bool isIPv4 = aSettings.mIsDhcp || has(false), isIPv6 = has(true);
  const auto isOurs = [&](const std::string& aText) {
    return aText.find(':') == aText.npos ? isIPv4 : isIPv6;
  };
  // What the former file says of other things stays: sections are looked at as a whole.
  std::string network, others, section, head;
  bool hadDhcp6 = false;
  const auto close = [&] {
    if (head == "[Network]" || head == "[Match]" || head.empty()) {
      section.clear();
      return;
    }
    std::istringstream lines(section);
    std::string destination, gateway, address;
    for (std::string line; std::getline(lines, line);) {
      const size_t equals = line.find('=');
      if (equals == line.npos) continue;
      const std::string key = Trimmed(line.substr(0, equals)),
                        value = Trimmed(line.substr(equals + 1));
      if (key == "Destination") destination = value;
      if (key == "Gateway") gateway = value;
      if (key == "Address") address = value;
    }
    const bool isDefault =
        destination.empty() || destination == "0.0.0.0/0" || destination == "::/0";
    const bool isDropped = (head == "[Address]" && isOurs(address)) ||
                           (head == "[Route]" && isDefault && isOurs(gateway));
    if (!isDropped) others += "\n" + head + "\n" + section;
    section.clear();
  };
  std::istringstream lines(aFormer);
  for (std::string line; std::getline(lines, line);) {
    const std::string text = Trimmed(line);
    if (text.empty() || text[0] == '#' || text[0] == ';') continue;
    if (text[0] == '[') {
      close();
      head = text;
      continue;
    }
    if (head != "[Network]") {
      section += text + "\n";
      continue;
    }
    const size_t equals = text.find('=');
    const std::string key = Trimmed(text.substr(0, equals));
    const std::string value = equals == text.npos ? "" : Trimmed(text.substr(equals + 1));
    if (key == "DHCP") {
      hadDhcp6 = value != "ipv4" && value != "no" && value != "false" && value != "0";
      if (!isIPv4) network += text + "\n";
      continue;
    }
    if (((key == "Address" || key == "Gateway") && isOurs(value)) ||
        (key == "DNS" && !aSettings.mServers.empty()))
      continue;
    network += text + "\n";
  }
  close();

  std::string text =
      "# Made by vorel from the stored settings; changes here are lost.\n[Match]\nName=" + aName +
      "\n\n[Network]\n" + network;
  if (isIPv4)
    text += std::string("DHCP=") +
            (aSettings.mIsDhcp ? (hadDhcp6 ? "yes" : "ipv4")
             : hadDhcp6        ? "ipv6"
                               : "no") +
            "\n";
  for (const nsIPNet& net : aSettings.mAddresses) text += "Address=" + NS_NetText(net) + "\n";
  for (const nsSocketAddress& server : aSettings.mServers)
    text += "DNS=" + NS_AddressText(server) + "\n";
  for (size_t i = 0; i < aSettings.mGateways.size(); ++i) {
    text += "\n[Route]\nGateway=" + NS_AddressText(aSettings.mGateways[i]) + "\n";
    if (aSettings.mMetric || i > 0)
      text += "Metric=" + std::to_string(aSettings.mMetric.value_or(0) + i) + "\n";
  }
  if (aSettings.mIsDhcp && (!aSettings.mServers.empty() || aSettings.mMetric)) {
    text += "\n[DHCPv4]\n";
    if (!aSettings.mServers.empty()) text += "UseDNS=no\n";
    if (aSettings.mMetric) text += "RouteMetric=" + std::to_string(*aSettings.mMetric) + "\n";
  }
  return text + others;
}

// ---- The service

std::string nsNetworkdNetwork::TrialFile(const std::string& aName) const {
  return mRoot + "/run/systemd/network/00-00-vorel-" + aName + ".network";
}

std::string nsNetworkdNetwork::KeptFile(const std::string& aName) const {
  return mRoot + "/etc/systemd/network/00-01-vorel-" + aName + ".network";
}

std::string nsNetworkdNetwork::StateOf(unsigned aIndex, const char* aKey) const {
  std::string text;
  const std::string path = mRoot + "/run/systemd/netif/links/" + std::to_string(aIndex);
  return NS_SUCCEEDED(NS_ReadFile(path, &text, kConfigurationLimit)) ? NS_ValueOfKey(text, aKey)
                                                                     : "";
}

nsresult nsNetworkdNetwork::Reload() {
  // It configures those links anew whose files have changed.
  const nsresult rv = mBus.Call(kManager, "Reload", nullptr);
  return NS_SUCCEEDED(rv) ? NS_OK : Failed(rv, mBus.Reason());
}

nsresult nsNetworkdNetwork::Read(const std::string& aName, uint32_t aGuard, std::string* aRecord) {
  const unsigned index = if_nametoindex(aName.c_str());
  if (index == 0) return NS_ERROR_FILE_NOT_FOUND;
  for (const std::string& path : {TrialFile(aName), KeptFile(aName)})
    if (access(path.substr(0, path.rfind('/')).c_str(), W_OK) != 0 && errno != ENOENT)
      return Failed(NS_LastResult(), path);
  std::string trial, kept, kernel;
  nsresult rv = ReadOptional(TrialFile(aName), &trial);
  if (NS_SUCCEEDED(rv)) rv = ReadOptional(KeptFile(aName), &kept);
  if (NS_SUCCEEDED(rv)) rv = mKernel.Read(aName, aGuard, &kernel);
  if (NS_FAILED(rv)) return rv;
  const std::string state = StateOf(index, "ADMIN_STATE");
  *aRecord = nsRecordTexts::Format({trial, kept, state == "unmanaged" ? "u" : "m", kernel});
  return NS_OK;
}

nsresult nsNetworkdNetwork::Write(const std::string& aName, const std::string&,
                                  const nsInterfaceSettings& aSettings) {
  const unsigned index = if_nametoindex(aName.c_str());
  if (index == 0) return NS_ERROR_FILE_NOT_FOUND;
  const std::string path = StateOf(index, "NETWORK_FILE");
  std::string former;
  if (!path.empty()) {
    const nsresult rv = NS_ReadFile(mRoot + path, &former, kConfigurationLimit);
    if (NS_FAILED(rv) && rv != NS_ERROR_FILE_NOT_FOUND) return Failed(rv, path);
  }
  nsresult rv = WriteReadable(TrialFile(aName), FileText(aName, aSettings, former));
  if (NS_FAILED(rv)) return Failed(rv, TrialFile(aName));
  rv = Reload();
  if (NS_FAILED(rv)) return rv;
  const std::string trial = TrialFile(aName).substr(mRoot.size());
  const std::string lease = mRoot + "/run/systemd/netif/leases/" + std::to_string(index);
  std::string state;
  // It says that it is configured only when it has stopped to wait for routers, too.
  const bool isDone = NS_WaitFor(aSettings.mIsDhcp ? kLeasePatience : kPatience, mCancelled, [&] {
    state = StateOf(index, "ADMIN_STATE");
    if (state == "failed") return true;
    if (StateOf(index, "NETWORK_FILE") != trial) return false;
    return aSettings.mIsDhcp
               ? access(lease.c_str(), F_OK) == 0 && nsKernelNetwork::HasLease(aName)
               : nsKernelNetwork::Has(aName, aSettings.mAddresses, aSettings.mGateways);
  });
  if (mCancelled) return NS_ERROR_ABORT;
  if (!isDone)
    return Failed(NS_ERROR_NET_TIMEOUT, "systemd-networkd has it " +
                                            (state.empty() ? "not yet" : state) +
                                            (aSettings.mIsDhcp ? ", without a lease" : ""));
  return state == "failed" ? Failed(NS_ERROR_FAILURE, "systemd-networkd failed to set it") : NS_OK;
}

nsresult nsNetworkdNetwork::Keep(const std::string& aName, const std::string&) {
  std::string text;
  nsresult rv = NS_ReadFile(TrialFile(aName), &text, kConfigurationLimit);
  if (NS_SUCCEEDED(rv)) rv = WriteReadable(KeptFile(aName), text);
  return NS_SUCCEEDED(rv) ? NS_OK : Failed(rv, KeptFile(aName));
}

nsresult nsNetworkdNetwork::Restore(const std::string& aName, const std::string& aRecord) {
  std::vector<std::string> texts;
  if (!nsRecordTexts::Parse(aRecord, 4, &texts)) return NS_ERROR_FILE_CORRUPTED;
  const unsigned index = if_nametoindex(aName.c_str());
  const bool isOldRun = mKernel.IsOld(texts[3]);
  // What was below /run is gone with the run of the machine that had it.
  bool isChanged = false;
  nsresult rv = WriteOptional(TrialFile(aName), isOldRun ? "-" : texts[0], &isChanged);
  if (NS_SUCCEEDED(rv)) rv = WriteOptional(KeptFile(aName), texts[1], &isChanged);
  if (NS_FAILED(rv)) return Failed(rv, KeptFile(aName));
  if (index == 0) return NS_ERROR_FILE_NOT_FOUND;
  rv = Reload();
  if (NS_FAILED(rv)) {
    if (mBus.HasService(kService)) return rv;
    // The player is to be reached meanwhile. A service that starts reads the files; one that just
    // does may have read the former ones, and is asked again.
    const nsresult alone = mKernel.Restore(aName, texts[3]);
    if (NS_FAILED(alone) && alone != NS_ERROR_NOT_AVAILABLE) return alone;
    return isChanged ? NS_ERROR_OFFLINE : NS_OK;
  }
  if (isOldRun) return NS_OK;
  const bool isUnmanaged = texts[2] == "u";
  const auto former = nsKernelNetwork::AddressesOf(texts[3]);
  const std::string trial = TrialFile(aName).substr(mRoot.size());
  (void)NS_WaitFor(kRestorePatience, mCancelled, [&] {
    const std::string state = StateOf(index, "ADMIN_STATE");
    if (isUnmanaged) return state == "unmanaged";
    return (texts[0] != "-" || StateOf(index, "NETWORK_FILE") != trial) &&
           (state == "failed" || nsKernelNetwork::Has(aName, former));
  });
  // What nobody managed nobody else puts back.
  return isUnmanaged ? mKernel.Restore(aName, texts[3]) : NS_OK;
}

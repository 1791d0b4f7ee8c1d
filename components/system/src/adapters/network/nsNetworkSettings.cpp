#include "nsNetworkSettings.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <span>

#include "nsAddressText.h"

namespace {

using Registry = nsPlatformRegistry;
using Strings = std::vector<std::string>;
// More than any view writes or reads.
constexpr uint32_t kCapacity = 4096;
constexpr char kStateHead[] = "vorel network state 1\n";
constexpr char kStateEnd[] = "end\n";

// A missing value has no bytes.
nsresult ReadBytes(nsPlatformRegistryKey& aKey, const std::string& aName,
                   std::vector<uint8_t>* aBytes) {
  uint32_t type = 0;
  std::vector<uint8_t> bytes;
  const nsresult rv = aKey.QueryValue(aName, kCapacity, &type, &bytes);
  if (NS_FAILED(rv) && rv != NS_ERROR_FILE_NOT_FOUND) return rv;
  *aBytes = std::move(bytes);
  return NS_OK;
}

// The texts between separators, but for the empty ones and those that stand for no address.
nsresult ReadTexts(nsPlatformRegistryKey& aKey, const std::string& aName,
                   std::string_view aSeparators, Strings* aTexts) {
  std::vector<uint8_t> bytes;
  if (const nsresult rv = ReadBytes(aKey, aName, &bytes); NS_FAILED(rv)) return rv;
  Strings texts(1);
  for (const uint8_t byte : bytes) {
    const char c = static_cast<char>(byte);
    if (c == '\0' || aSeparators.find(c) != aSeparators.npos)
      texts.emplace_back();
    else
      texts.back() += c;
  }
  std::erase_if(texts, [](const std::string& aText) {
    return aText.empty() || aText == "0.0.0.0" || aText == "::";
  });
  *aTexts = std::move(texts);
  return NS_OK;
}

// Bytes of the store may be anything; what is told to people is one line of text.
std::string Quoted(const std::string& aText) {
  std::string quoted = "\"";
  for (const char c : aText.substr(0, 64)) quoted += c >= ' ' && c <= '~' && c != '"' ? c : '?';
  return quoted + '"';
}

std::span<const uint8_t> BytesOf(const nsSocketAddress& aAddress) {
  return std::span(aAddress.mBytes).first(NS_AddressSize(aAddress));
}

bool IsInNet(const nsSocketAddress& aAddress, const nsIPNet& aNet) {
  if (aAddress.mFamily != aNet.mAddress.mFamily) return false;
  for (unsigned bit = 0; bit < aNet.mPrefixLength; ++bit)
    if ((aAddress.mBytes[bit / 8] ^ aNet.mAddress.mBytes[bit / 8]) & 0x80u >> bit % 8) return false;
  return true;
}

// Whether all bits behind the prefix are 0, or all are 1.
bool HasHostBits(const nsIPNet& aNet, bool aOnes) {
  for (size_t bit = aNet.mPrefixLength; bit < BytesOf(aNet.mAddress).size() * 8; ++bit)
    if (((aNet.mAddress.mBytes[bit / 8] & 0x80u >> bit % 8) != 0) != aOnes) return false;
  return true;
}

std::string WhyNoHost(const nsIPNet& aNet) {
  const auto& bytes = aNet.mAddress.mBytes;
  if (aNet.mAddress.mFamily == nsSocketAddress::kIPv6) {
    const bool isLoopback = std::ranges::all_of(bytes.begin(), bytes.end() - 1,
                                                [](uint8_t aByte) { return aByte == 0; });
    return bytes[0] == 0xff || isLoopback ? "is no address for an interface" : "";
  }
  if (bytes[0] == 0 || bytes[0] == 127 || bytes[0] >= 224) return "is no address for an interface";
  const bool isNets = HasHostBits(aNet, false) || HasHostBits(aNet, true);
  return aNet.mPrefixLength < 31 && isNets ? "is the whole net's" : "";
}

// ---- Texts of the state

template <class Number>
bool ReadNumber(std::string_view aText, Number* aNumber) {
  const char* const end = aText.data() + aText.size();
  const auto [stop, error] = std::from_chars(aText.data(), end, *aNumber);
  return error == std::errc() && stop == end;
}

bool ParseLine(std::string_view aLine, nsInterfaceSettings& aSettings) {
  if (aLine == "dhcp") return aSettings.mIsDhcp = true;
  const size_t blank = aLine.find(' ');
  if (blank == aLine.npos) return false;
  const std::string_view word = aLine.substr(0, blank), value = aLine.substr(blank + 1);
  nsSocketAddress address;
  if (word == "metric") {
    uint32_t metric = 0;
    if (!ReadNumber(value, &metric)) return false;
    aSettings.mMetric = metric;
    return true;
  }
  if (word == "address") {
    const size_t slash = value.find('/');
    nsIPNet net;
    if (slash == value.npos || !NS_ReadAddress(value.substr(0, slash), &net.mAddress) ||
        !ReadNumber(value.substr(slash + 1), &net.mPrefixLength) ||
        net.mPrefixLength > NS_AddressSize(net.mAddress) * 8)
      return false;
    aSettings.mAddresses.push_back(net);
    return true;
  }
  if (!NS_ReadAddress(value, &address)) return false;
  if (word == "gateway")
    aSettings.mGateways.push_back(address);
  else if (word == "server")
    aSettings.mServers.push_back(address);
  else
    return false;
  return true;
}

std::optional<nsInterfaceSettings> ParseStateSettings(std::string_view aText) {
  nsInterfaceSettings settings;
  while (!aText.empty()) {
    const size_t end = aText.find('\n');
    if (end == aText.npos || !ParseLine(aText.substr(0, end), settings)) return std::nullopt;
    aText.remove_prefix(end + 1);
  }
  return settings;
}

// Lengths stand before names and records, which may have any bytes.
std::string FormatEntry(const char* aKind, const std::string& aName, const std::string& aText) {
  return aKind + std::to_string(aName.size()) + " " + std::to_string(aText.size()) + "\n" + aName +
         aText + "\n";
}

}  // namespace

std::string NS_SettingsText(const nsInterfaceSettings& aSettings) {
  std::string text = aSettings.mIsDhcp ? "dhcp\n" : "";
  for (const nsIPNet& net : aSettings.mAddresses) text += "address " + NS_NetText(net) + "\n";
  for (const auto& gateway : aSettings.mGateways)
    text += "gateway " + NS_AddressText(gateway) + "\n";
  if (aSettings.mMetric) text += "metric " + std::to_string(*aSettings.mMetric) + "\n";
  for (const auto& server : aSettings.mServers) text += "server " + NS_AddressText(server) + "\n";
  return text;
}

std::optional<uint8_t> NS_PrefixLengthOf(const nsSocketAddress& aMask) {
  unsigned length = 0;
  bool isOver = false;
  for (const uint8_t byte : BytesOf(aMask)) {
    const auto ones = static_cast<unsigned>(std::countl_one(byte));
    if ((isOver && byte != 0) || static_cast<uint8_t>(byte << ones) != 0) return std::nullopt;
    length += ones;
    isOver = isOver || ones < 8;
  }
  return static_cast<uint8_t>(length);
}

nsresult NS_ReadSettingTexts(nsPlatformRegistry& aRegistry, const std::string& aName,
                             nsSettingTexts* aTexts) {
  std::unique_ptr<nsPlatformRegistryKey> key;
  nsresult rv = aRegistry.OpenKey(NS_TcpipInterfaceKey(aName), Registry::kRead, &key);
  if (NS_FAILED(rv)) return rv;
  std::vector<uint8_t> dhcp;
  nsSettingTexts texts;
  if (NS_FAILED(rv = ReadBytes(*key, "EnableDHCP", &dhcp)) ||
      NS_FAILED(rv = ReadTexts(*key, "IPAddress", "", &texts.mAddresses)) ||
      NS_FAILED(rv = ReadTexts(*key, "SubnetMask", "", &texts.mMasks)) ||
      NS_FAILED(rv = ReadTexts(*key, "DefaultGateway", "", &texts.mGateways)) ||
      NS_FAILED(rv = ReadTexts(*key, "DefaultGatewayMetric", "", &texts.mMetrics)) ||
      NS_FAILED(rv = ReadTexts(*key, "NameServer", " ,", &texts.mServers)))
    return rv;
  texts.mIsDhcp = std::ranges::any_of(dhcp, [](uint8_t aByte) { return aByte != 0; });
  *aTexts = std::move(texts);
  return NS_OK;
}

nsresult NS_ReadStoredIgmp(nsPlatformRegistry& aRegistry, std::optional<uint32_t>* aVersion,
                           Strings* aProblems) {
  bool isWritten = false;
  nsresult rv = aRegistry.IsWritten(std::string(kTcpipParametersKey), &isWritten);
  if (NS_FAILED(rv)) return rv;
  std::vector<uint8_t> bytes;
  if (isWritten) {
    std::unique_ptr<nsPlatformRegistryKey> key;
    rv = aRegistry.OpenKey(std::string(kTcpipParametersKey), Registry::kRead, &key);
    if (NS_SUCCEEDED(rv)) rv = ReadBytes(*key, "IGMPVersion", &bytes);
    if (NS_FAILED(rv)) return rv;
  }
  *aVersion = std::nullopt;
  if (bytes.empty()) return NS_OK;
  // The store's number is one above that of the version.
  const bool isByte =
      std::ranges::all_of(bytes.begin() + 1, bytes.end(), [](uint8_t aByte) { return aByte == 0; });
  if (isByte && bytes[0] >= 2 && bytes[0] <= 4)
    *aVersion = bytes[0] - 1u;
  else
    aProblems->push_back("IGMPVersion is none of 2, 3 and 4, which stand for the versions 1 to 3");
  return NS_OK;
}

nsStoredSettings NS_ParseSettings(const std::string& aName, const nsSettingTexts& aTexts,
                                  Strings* aProblems) {
  nsStoredSettings stored{aName, {}};
  nsInterfaceSettings& settings = stored.mSettings;
  const auto problem = [&](const std::string& aText) {
    aProblems->push_back(aName + ": " + aText);
  };
  const auto read = [&](const char* aValue, const std::string& aText, nsSocketAddress* aAddress) {
    if (NS_ReadAddress(aText, aAddress)) return true;
    problem(std::string(aValue) + " " + Quoted(aText) + " is no IP address");
    return false;
  };
  nsSocketAddress address;
  settings.mIsDhcp = aTexts.mIsDhcp;
  for (const std::string& server : aTexts.mServers)
    if (read("NameServer", server, &address)) settings.mServers.push_back(address);
  // What was fixed before DHCP was chosen stays in the store.
  if (aTexts.mIsDhcp) return stored;
  const Strings &addresses = aTexts.mAddresses, &masks = aTexts.mMasks;
  if (addresses.size() != masks.size())
    problem("SubnetMask has " + std::to_string(masks.size()) + " masks for " +
            std::to_string(addresses.size()) + " addresses");
  for (size_t i = 0; i < std::min(addresses.size(), masks.size()); ++i) {
    nsSocketAddress mask;
    if (!read("IPAddress", addresses[i], &address) || !read("SubnetMask", masks[i], &mask))
      continue;
    const auto length = NS_PrefixLengthOf(mask);
    if (!length)
      problem("SubnetMask " + masks[i] + " has holes");
    else if (mask.mFamily != address.mFamily)
      problem("SubnetMask " + masks[i] + " is none for " + addresses[i]);
    else
      settings.mAddresses.push_back({address, *length});
  }
  for (const std::string& gateway : aTexts.mGateways)
    if (read("DefaultGateway", gateway, &address)) settings.mGateways.push_back(address);
  if (!aTexts.mMetrics.empty()) {
    uint32_t metric = 0;
    if (ReadNumber(aTexts.mMetrics.front(), &metric))
      settings.mMetric = metric;
    else
      problem("DefaultGatewayMetric " + Quoted(aTexts.mMetrics.front()) + " is no number");
  }
  return stored;
}

void NS_CheckSettings(std::span<const nsStoredSettings> aSettings, Strings* aProblems) {
  std::map<std::string, std::string> owners;
  for (const nsStoredSettings& stored : aSettings) {
    const auto problem = [&](const std::string& aText) {
      aProblems->push_back(stored.mName + ": " + aText);
    };
    const auto& nets = stored.mSettings.mAddresses;
    for (const nsIPNet& net : nets) {
      const std::string address = NS_AddressText(net.mAddress);
      if (const auto [at, isNew] = owners.try_emplace(address, stored.mName); !isNew)
        problem("IPAddress " + address + " is there twice: " + at->second + " has it too");
      if (const std::string why = WhyNoHost(net); !why.empty())
        problem("IPAddress " + address + " " + why);
    }
    for (const nsSocketAddress& gateway : stored.mSettings.mGateways) {
      const std::string name = "DefaultGateway " + NS_AddressText(gateway);
      const bool isLinkLocal = gateway.mFamily == nsSocketAddress::kIPv6 &&
                               gateway.mBytes[0] == 0xfe && (gateway.mBytes[1] & 0xc0) == 0x80;
      const auto leads = [&](const nsIPNet& aNet) { return IsInNet(gateway, aNet); };
      if (!isLinkLocal && std::ranges::none_of(nets, leads))
        problem(name + " is outside every net of the interface");
      else if (std::ranges::find(nets, gateway, &nsIPNet::mAddress) != nets.end())
        problem(name + " is the interface's own address");
    }
  }
}

// ---- The state

std::string nsNetworkState::Format() const {
  std::string text = kStateHead;
  for (const auto& [name, settings] : mConfirmed)
    text += FormatEntry("confirmed ", name, NS_SettingsText(settings));
  if (mIgmpVersion) text += "igmp " + std::to_string(*mIgmpVersion) + "\n";
  for (const auto& [name, service] : mServices) text += FormatEntry("service ", name, service);
  if (mPhase == eTrial) text += "trial\n";
  if (mPhase == eConfirmed) text += "done\n";
  for (const auto& [name, record] : mRecords) text += FormatEntry("record ", name, record);
  return text + kStateEnd;
}

std::optional<nsNetworkState> nsNetworkState::Parse(std::string_view aText) {
  const auto take = [&](std::string_view aWord) {
    if (!aText.starts_with(aWord)) return false;
    aText.remove_prefix(aWord.size());
    return true;
  };
  const auto number = [&](char aEnd, size_t* aNumber) {
    const size_t end = aText.find(aEnd);
    if (end == aText.npos || !ReadNumber(aText.substr(0, end), aNumber)) return false;
    aText.remove_prefix(end + 1);
    return true;
  };
  std::string name, text;
  const auto entry = [&] {
    size_t first = 0, second = 0;
    if (!number(' ', &first) || !number('\n', &second) || first > aText.size() ||
        second > aText.size() - first)
      return false;
    name = aText.substr(0, first);
    text = aText.substr(first, second);
    aText.remove_prefix(first + second);
    return take("\n");
  };
  if (!take(kStateHead)) return std::nullopt;
  nsNetworkState state;
  while (take("confirmed ")) {
    const auto settings = entry() ? ParseStateSettings(text) : std::nullopt;
    if (!settings || !state.mConfirmed.try_emplace(name, *settings).second) return std::nullopt;
  }
  if (take("igmp ")) {
    size_t version = 0;
    if (!number('\n', &version) || version < 1 || version > 3) return std::nullopt;
    state.mIgmpVersion = static_cast<uint32_t>(version);
  }
  while (take("service "))
    if (!entry() || !state.mServices.try_emplace(name, text).second) return std::nullopt;
  state.mPhase = take("trial\n") ? eTrial : take("done\n") ? eConfirmed : eNone;
  while (take("record ")) {
    if (!entry()) return std::nullopt;
    state.mRecords.emplace_back(name, text);
  }
  if (aText != kStateEnd || state.mRecords.empty() != (state.mPhase == eNone)) return std::nullopt;
  return state;
}

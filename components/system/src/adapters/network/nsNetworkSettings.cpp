#include "nsNetworkSettings.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <map>

#include "nsAddressText.h"
#include "nsPlatformNetwork.h"

namespace {

using Registry = nsPlatformRegistry;
using Strings = std::vector<std::string>;
// More than any view writes or reads.
constexpr uint32_t kCapacity = 4096;

uint32_t NumberOf(const nsIPv4Bytes& aBytes) {
  return uint32_t{aBytes[0]} << 24 | uint32_t{aBytes[1]} << 16 | uint32_t{aBytes[2]} << 8 |
         aBytes[3];
}

uint32_t MaskOf(uint8_t aPrefixLength) {
  return aPrefixLength == 0 ? 0 : ~uint32_t{0} << (32 - aPrefixLength);
}

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

// The texts between separators, but for the empty ones and the one that stands for no address.
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
  std::erase_if(texts,
                [](const std::string& aText) { return aText.empty() || aText == "0.0.0.0"; });
  *aTexts = std::move(texts);
  return NS_OK;
}

// Bytes of the store may be anything; what is told to people is one line of text.
std::string Quoted(const std::string& aText) {
  std::string quoted = "\"";
  for (const char c : aText.substr(0, 64)) quoted += c >= ' ' && c <= '~' && c != '"' ? c : '?';
  return quoted + '"';
}

}  // namespace

bool NS_ReadIPv4(std::string_view aText, nsIPv4Bytes* aAddress) {
  nsIPv4Bytes bytes{};
  // The reader of addresses takes more than one spelling.
  if (NS_FAILED(vorel::address::ParseIPv4(aText, bytes)) ||
      vorel::address::FormatIPv4(bytes) != aText)
    return false;
  *aAddress = bytes;
  return true;
}

std::optional<uint8_t> NS_PrefixLengthOf(const nsIPv4Bytes& aMask) {
  const uint32_t mask = NumberOf(aMask);
  const auto length = static_cast<uint8_t>(std::countl_one(mask));
  if (mask != MaskOf(length)) return std::nullopt;
  return length;
}

nsresult NS_ReadStoredSettings(nsPlatformRegistry& aRegistry, const std::string& aName,
                               nsStoredSettings* aSettings, Strings* aProblems) {
  std::unique_ptr<nsPlatformRegistryKey> key;
  nsresult rv = aRegistry.OpenKey(NS_TcpipInterfaceKey(aName), Registry::kRead, &key);
  if (NS_FAILED(rv)) return rv;
  std::vector<uint8_t> dhcp;
  Strings addresses, masks, gateways, metrics, servers;
  if (NS_FAILED(rv = ReadBytes(*key, "EnableDHCP", &dhcp)) ||
      NS_FAILED(rv = ReadTexts(*key, "IPAddress", "", &addresses)) ||
      NS_FAILED(rv = ReadTexts(*key, "SubnetMask", "", &masks)) ||
      NS_FAILED(rv = ReadTexts(*key, "DefaultGateway", "", &gateways)) ||
      NS_FAILED(rv = ReadTexts(*key, "DefaultGatewayMetric", "", &metrics)) ||
      NS_FAILED(rv = ReadTexts(*key, "NameServer", " ,", &servers)))
    return rv;

  nsStoredSettings settings;
  Strings problems;
  const auto problem = [&](const std::string& aText) { problems.push_back(aName + ": " + aText); };
  const auto read = [&](const char* aValue, const std::string& aText, nsIPv4Bytes* aAddress) {
    if (NS_ReadIPv4(aText, aAddress)) return true;
    problem(std::string(aValue) + " " + Quoted(aText) + " is no IPv4 address");
    return false;
  };
  settings.mName = aName;
  settings.mIsDhcp = std::ranges::any_of(dhcp, [](uint8_t aByte) { return aByte != 0; });
  nsIPv4Bytes bytes;
  for (const std::string& server : servers)
    if (read("NameServer", server, &bytes)) settings.mServers.push_back(bytes);
  // What was fixed before DHCP was chosen stays in the store.
  if (!settings.mIsDhcp) {
    if (addresses.size() != masks.size())
      problem("SubnetMask has " + std::to_string(masks.size()) + " masks for " +
              std::to_string(addresses.size()) + " addresses");
    for (size_t i = 0; i < std::min(addresses.size(), masks.size()); ++i) {
      nsIPv4Bytes mask;
      if (!read("IPAddress", addresses[i], &bytes) || !read("SubnetMask", masks[i], &mask))
        continue;
      if (const auto length = NS_PrefixLengthOf(mask))
        settings.mAddresses.push_back({bytes, *length});
      else
        problem("SubnetMask " + masks[i] + " has holes");
    }
    for (const std::string& gateway : gateways)
      if (read("DefaultGateway", gateway, &bytes)) settings.mGateways.push_back(bytes);
    if (!metrics.empty()) {
      const std::string& text = metrics.front();
      uint32_t metric = 0;
      const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), metric);
      if (error == std::errc() && end == text.data() + text.size())
        settings.mMetric = metric;
      else
        problem("DefaultGatewayMetric " + Quoted(text) + " is no number");
    }
  }
  aProblems->insert(aProblems->end(), problems.begin(), problems.end());
  *aSettings = std::move(settings);
  return NS_OK;
}

void NS_CheckSettings(std::span<const nsStoredSettings> aSettings, Strings* aProblems) {
  std::map<nsIPv4Bytes, std::string> owners;
  for (const nsStoredSettings& settings : aSettings) {
    const auto problem = [&](const char* aValue, const nsIPv4Bytes& aAddress,
                             const std::string& aText) {
      aProblems->push_back(settings.mName + ": " + aValue + " " +
                           vorel::address::FormatIPv4(aAddress) + " " + aText);
    };
    for (const nsIPv4Net& net : settings.mAddresses) {
      const nsIPv4Bytes& address = net.mAddress;
      if (const auto [at, isNew] = owners.try_emplace(address, settings.mName); !isNew)
        problem("IPAddress", address, "is there twice: " + at->second + " has it too");
      const uint32_t host = NumberOf(address) & ~MaskOf(net.mPrefixLength);
      if (address[0] == 0 || address[0] == 127 || address[0] >= 224)
        problem("IPAddress", address, "is no address for an interface");
      else if (net.mPrefixLength < 31 && (host == 0 || host == ~MaskOf(net.mPrefixLength)))
        problem("IPAddress", address, "is the whole net's");
    }
    for (const nsIPv4Bytes& gateway : settings.mGateways) {
      const auto leads = [&](const nsIPv4Net& aNet) {
        return ((NumberOf(aNet.mAddress) ^ NumberOf(gateway)) & MaskOf(aNet.mPrefixLength)) == 0;
      };
      if (std::ranges::none_of(settings.mAddresses, leads))
        problem("DefaultGateway", gateway, "is outside every net of the interface");
      else if (std::ranges::find(settings.mAddresses, gateway, &nsIPv4Net::mAddress) !=
               settings.mAddresses.end())
        problem("DefaultGateway", gateway, "is the interface's own address");
    }
  }
}

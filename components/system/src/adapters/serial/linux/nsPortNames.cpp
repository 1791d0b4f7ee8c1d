#include "nsPortNames.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <set>

#include "nsLogger.h"

namespace {

constexpr unsigned kFirstNumber = 33;
constexpr unsigned kLastNumber = 255;
constexpr char kKey[] = "SYSTEM\\CurrentControlSet\\Control\\COM Name Arbiter\\Devices";
constexpr uint32_t kLongestIdentity = 4096;

std::optional<unsigned> NumberBehind(const std::string& aText, std::string_view aPrefix) {
  unsigned number = 0;
  if (!aText.starts_with(aPrefix)) return std::nullopt;
  const char* const end = aText.data() + aText.size();
  const auto [rest, error] = std::from_chars(aText.data() + aPrefix.size(), end, number);
  if (error != std::errc() || rest != end) return std::nullopt;
  return number;
}

std::string NameOf(unsigned aNumber) { return "COM" + std::to_string(aNumber); }

}  // namespace

void nsPortNames::ReadStore() {
  std::unique_ptr<nsPlatformRegistryKey> key;
  std::vector<std::string> names;
  if (!mStore || NS_FAILED(mStore->OpenKey(kKey, nsPlatformRegistry::kRead, &key)) ||
      NS_FAILED(key->EnumerateValues(&names)))
    return;
  for (const std::string& name : names) {
    const auto number = NumberBehind(name, "COM");
    uint32_t type = 0;
    std::vector<uint8_t> data;
    if (!number || NS_FAILED(key->QueryValue(name, kLongestIdentity, &type, &data))) continue;
    const auto end = std::ranges::find(data, uint8_t{0});
    mGiven[*number] = std::string(data.begin(), end);
  }
}

void nsPortNames::WriteStore(const std::string& aName, const std::string& aIdentity) {
  std::unique_ptr<nsPlatformRegistryKey> key;
  if (!mStore) return;
  nsresult rv = mStore->CreateKey(kKey, nsPlatformRegistry::kSetValue, &key);
  if (NS_SUCCEEDED(rv))
    rv = key->SetValue(aName, nsPlatformRegistry::kString, NS_RegistryString(aIdentity));
  if (NS_FAILED(rv))
    SYSTEM_LOG_WARNING(NS_GetLogger("system.adapter.serial"),
                       aName + " can't be remembered for \"" + aIdentity +
                           "\": " + std::string(NS_ResultName(rv)));
}

std::vector<nsCommPortInfo> nsPortNames::Name(std::vector<nsSerialDevice> aDevices) {
  ReadStore();
  const auto isKnown = [&](const std::string& aIdentity) {
    return std::ranges::any_of(mGiven,
                               [&](const auto& aGiven) { return aGiven.second == aIdentity; });
  };
  std::map<std::string, int> shared;
  for (const nsSerialDevice& device : aDevices) ++shared[device.mIdentity];
  std::vector<nsCommPortInfo> ports;
  for (nsSerialDevice& device : aDevices) {
    const bool byPlace =
        shared[device.mIdentity] > 1 || (!isKnown(device.mIdentity) && isKnown(device.mPlace));
    if (byPlace) device.mIdentity = device.mPlace;
    ports.push_back(std::move(device));
  }

  std::set<unsigned> taken;
  const auto give = [&](nsCommPortInfo& aPort, unsigned aNumber) {
    aPort.mName = NameOf(aNumber);
    taken.insert(aNumber);
  };
  for (nsCommPortInfo& port : ports)
    if (const auto number = NumberBehind(port.mDevice, "/dev/ttyS");
        number && *number < kLastNumber)
      give(port, *number + 1);
  for (nsCommPortInfo& port : ports) {
    if (!port.mName.empty()) continue;
    const auto known = std::ranges::find_if(mGiven, [&](const auto& aGiven) {
      return aGiven.second == port.mIdentity && !taken.contains(aGiven.first);
    });
    if (known != mGiven.end()) give(port, known->first);
  }
  for (nsCommPortInfo& port : ports) {
    if (!port.mName.empty()) continue;
    unsigned number = kFirstNumber;
    while (mGiven.contains(number) || taken.contains(number)) ++number;
    if (number > kLastNumber) {
      SYSTEM_LOG_WARNING(NS_GetLogger("system.adapter.serial"),
                         "there is no number left for " + port.mDevice);
      continue;
    }
    give(port, number);
    mGiven[number] = port.mIdentity;
    WriteStore(port.mName, port.mIdentity);
  }
  std::erase_if(ports, [](const nsCommPortInfo& aPort) { return aPort.mName.empty(); });
  std::ranges::sort(ports, {}, [](const nsCommPortInfo& aPort) {
    return NumberBehind(aPort.mName, "COM").value_or(0);
  });
  return ports;
}

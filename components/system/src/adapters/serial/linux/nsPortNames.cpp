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

void nsPortNames::Name(std::vector<nsCommPortInfo>* aDevices) {
  ReadStore();
  std::set<unsigned> taken;
  const auto give = [&](nsCommPortInfo& aDevice, unsigned aNumber) {
    aDevice.mName = NameOf(aNumber);
    taken.insert(aNumber);
  };
  for (nsCommPortInfo& device : *aDevices)
    if (const auto number = NumberBehind(device.mDevice, "/dev/ttyS");
        number && *number < kLastNumber)
      give(device, *number + 1);
  for (nsCommPortInfo& device : *aDevices) {
    if (!device.mName.empty()) continue;
    const auto known = std::ranges::find_if(mGiven, [&](const auto& aGiven) {
      return aGiven.second == device.mIdentity && !taken.contains(aGiven.first);
    });
    if (known != mGiven.end()) give(device, known->first);
  }
  for (nsCommPortInfo& device : *aDevices) {
    if (!device.mName.empty()) continue;
    unsigned number = kFirstNumber;
    while (mGiven.contains(number) || taken.contains(number)) ++number;
    if (number > kLastNumber) {
      SYSTEM_LOG_WARNING(NS_GetLogger("system.adapter.serial"),
                         "there is no number left for " + device.mDevice);
      continue;
    }
    give(device, number);
    mGiven[number] = device.mIdentity;
    WriteStore(device.mName, device.mIdentity);
  }
  std::erase_if(*aDevices, [](const nsCommPortInfo& aDevice) { return aDevice.mName.empty(); });
  std::ranges::sort(*aDevices, {}, [](const nsCommPortInfo& aDevice) {
    return NumberBehind(aDevice.mName, "COM").value_or(0);
  });
}

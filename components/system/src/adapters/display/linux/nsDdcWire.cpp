#include "nsDdcWire.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "nsFileTree.h"
#include "nsUniqueFd.h"

namespace {

constexpr uint8_t kDescriptionAddress = 0x50;
constexpr size_t kBlock = 128;
constexpr char kConnectors[] = "/sys/class/drm", kBuses[] = "/sys/bus/i2c/devices";
constexpr char kDisplayClass[] = "0x03";  // of PCI devices

class KernelWire final : public nsDdcWire {
 public:
  explicit KernelWire(nsUniqueFd aBus) : mBus(std::move(aBus)) {}

  bool Write(uint8_t aAddress, std::span<const uint8_t> aBytes) override {
    // What is written is not changed; the record is the same for both ways.
    return Transfer(aAddress, 0, const_cast<uint8_t*>(aBytes.data()), aBytes.size());
  }
  bool Read(uint8_t aAddress, std::span<uint8_t> aBytes) override {
    return Transfer(aAddress, I2C_M_RD, aBytes.data(), aBytes.size());
  }

 private:
  bool Transfer(uint8_t aAddress, uint16_t aFlags, uint8_t* aBytes, size_t aSize) {
    i2c_msg message{aAddress, aFlags, static_cast<uint16_t>(aSize), aBytes};
    i2c_rdwr_ioctl_data transfer{&message, 1};
    return ioctl(mBus.get(), I2C_RDWR, &transfer) == 1;
  }

  const nsUniqueFd mBus;
};

std::string DeviceOf(const std::string& aBus) { return "/dev/" + aBus; }

bool IsBus(const std::string& aName) {
  return aName.starts_with("i2c-") && aName.size() > 4 &&
         std::ranges::all_of(aName.substr(4), [](char aC) { return aC >= '0' && aC <= '9'; });
}

std::string LastOf(const std::string& aPath) { return aPath.substr(aPath.rfind('/') + 1); }

// "card0-HDMI-A-1" and "HDMI-1" are one: only the kernel tells the connector's size.
std::string CommonName(std::string aName) {
  if (aName.starts_with("card") && aName.find('-') != std::string::npos)
    aName.erase(0, aName.find('-') + 1);
  if (const size_t size = aName.find("-A-"); size != std::string::npos) aName.erase(size, 2);
  return aName;
}

// The directory of the kernel's connector; empty when it can't be told which one it is.
std::string FindConnector(const nsFileTree& aFiles, const nsDdcPlace& aPlace) {
  std::vector<std::string> found;
  std::string byNumber, byName;
  for (const std::string& name : aFiles.List(kConnectors)) {
    if (!name.starts_with("card") || name.find('-') == std::string::npos) continue;
    const std::string path = std::string(kConnectors) + "/" + name;
    const std::string description = aFiles.ReadFile(path + "/edid").value_or("").substr(0, kBlock);
    // Numbers and names are those of one card; there may be another one that has them, too.
    if (description.empty() || description != aPlace.mDescription) continue;
    found.push_back(path);
    if (aPlace.mConnectorId &&
        aFiles.ReadAttribute(path + "/connector_id") == std::to_string(aPlace.mConnectorId))
      byNumber = path;
    if (CommonName(name) == CommonName(aPlace.mOutput)) byName = path;
  }
  if (found.size() == 1) return found.front();
  return byNumber.empty() ? byName : byNumber;
}

}  // namespace

std::unique_ptr<nsDdcWire> NS_OpenDdcWire(const std::string& aDevice, std::string* aReason) {
  nsUniqueFd bus(open(aDevice.c_str(), O_RDWR | O_CLOEXEC));
  unsigned long functions = 0;
  if (!bus || ioctl(bus.get(), I2C_FUNCS, &functions) != 0) {
    *aReason = aDevice + ": " + std::strerror(errno);
    return nullptr;
  }
  if (!(functions & I2C_FUNC_I2C)) {
    *aReason = aDevice + ": not for messages of any length";
    return nullptr;
  }
  return std::make_unique<KernelWire>(std::move(bus));
}

nsDdcBuses NS_FindDdcBuses(const nsFileTree& aFiles, const nsDdcPlace& aPlace) {
  nsDdcBuses buses;
  const std::string connector = aPlace.mDescription.empty() ? "" : FindConnector(aFiles, aPlace);
  if (!connector.empty()) {
    if (const auto bus = aFiles.ReadLink(connector + "/ddc"); bus && IsBus(LastOf(*bus)))
      buses.mOwn = DeviceOf(LastOf(*bus));
    // One that the connector makes of another channel.
    for (const std::string& name : aFiles.List(connector))
      if (buses.mOwn.empty() && IsBus(name)) buses.mOwn = DeviceOf(name);
  }
  if (!buses.mOwn.empty() || aPlace.mDescription.empty()) return buses;
  for (const std::string& name : aFiles.List(kBuses)) {
    if (!IsBus(name)) continue;
    const std::string path =
        aFiles.ReadLink(std::string(kBuses) + "/" + name).value_or(std::string());
    const std::string card = path.substr(0, path.rfind('/'));
    // Other buses have sensors and memory modules on them, which are nobody's to write to.
    if (aFiles.ReadAttribute(card + "/class").starts_with(kDisplayClass))
      buses.mPossible.push_back(DeviceOf(name));
  }
  return buses;
}

bool NS_IsDescribedAs(nsDdcWire& aWire, const std::string& aDescription) {
  const uint8_t from = 0;
  uint8_t block[kBlock];
  return aDescription.size() == kBlock && aWire.Write(kDescriptionAddress, {&from, 1}) &&
         aWire.Read(kDescriptionAddress, block) &&
         std::memcmp(block, aDescription.data(), kBlock) == 0;
}

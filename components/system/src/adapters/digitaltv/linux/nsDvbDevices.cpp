#include "nsDvbDevices.h"

#include <fcntl.h>
#include <libudev.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <map>
#include <memory>
#include <optional>

#include "nsRetry.h"
#include "nsUniqueFd.h"

namespace {

struct Unref {
  void operator()(udev* aUdev) const { udev_unref(aUdev); }
  void operator()(udev_enumerate* aList) const { udev_enumerate_unref(aList); }
  void operator()(udev_device* aDevice) const { udev_device_unref(aDevice); }
};
using DeviceRef = std::unique_ptr<udev_device, Unref>;

std::string Text(const char* aText) { return aText ? aText : ""; }

std::string Attribute(udev_device* aDevice, const char* aName) {
  return aDevice ? Text(udev_device_get_sysattr_value(aDevice, aName)) : "";
}

int NumberOf(udev_device* aDevice, const char* aProperty) {
  const std::string text = Text(udev_device_get_property_value(aDevice, aProperty));
  int number = -1;
  (void)std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

// The device that the adapter is on: by its serial number where it has one, else by the place where
// it is plugged in. Adapters are numbered in the order in which they come, and so are no part of
// it.
std::string IdentityOf(udev_device* aDevice, bool aByPlace) {
  udev_device* const usb =
      udev_device_get_parent_with_subsystem_devtype(aDevice, "usb", "usb_device");
  const std::string serial = Attribute(usb, "serial");
  if (!serial.empty() && !aByPlace)
    return "usb:" + Attribute(usb, "idVendor") + ":" + Attribute(usb, "idProduct") + ":" + serial;
  if (usb) return "usb-place:" + Text(udev_device_get_sysname(usb));
  udev_device* const parent = udev_device_get_parent(aDevice);
  return "place:" + Text(parent ? udev_device_get_devpath(parent) : nullptr);
}

std::optional<nsTunerSystem> SystemOf(uint32_t aSystem) {
  switch (aSystem) {
    case SYS_DVBT:
    case SYS_DVBT2:
    case SYS_ISDBT:
    case SYS_DTMB:
      return nsTunerSystem::eTerrestrial;
    case SYS_DVBS:
    case SYS_DVBS2:
    case SYS_ISDBS:
    case SYS_TURBO:
      return nsTunerSystem::eSatellite;
    case SYS_DVBC_ANNEX_A:
    case SYS_DVBC_ANNEX_B:
    case SYS_DVBC_ANNEX_C:
      return nsTunerSystem::eCable;
    case SYS_ATSC:
      return nsTunerSystem::eATSC;
    default:
      return std::nullopt;
  }
}

// What the device says of itself. Reading is also allowed while another program has it.
void Ask(nsDvbDevice& aDevice, std::string& aName) {
  const nsUniqueFd fd(open(aDevice.mFrontend.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!fd) return;
  dvb_frontend_info info{};
  if (NS_RetryPassing([&] { return ioctl(fd.get(), FE_GET_INFO, &info); }) == 0)
    aName = std::string(info.name, strnlen(info.name, sizeof info.name));
  dtv_property property{};
  property.cmd = DTV_ENUM_DELSYS;
  dtv_properties properties{1, &property};
  if (NS_RetryPassing([&] { return ioctl(fd.get(), FE_GET_PROPERTY, &properties); }) != 0) return;
  const size_t count = std::min<size_t>(property.u.buffer.len, sizeof property.u.buffer.data);
  for (size_t i = 0; i < count; ++i) {
    const auto system = static_cast<fe_delivery_system>(property.u.buffer.data[i]);
    aDevice.mSystems.push_back(system);
    const auto kind = SystemOf(system);
    auto& known = aDevice.mInfo.mSystems;
    if (kind && std::ranges::find(known, *kind) == known.end()) known.push_back(*kind);
  }
}

struct Found {
  int mAdapter, mNumber;
  std::string mIdentity, mPlace, mProduct;
  nsDvbDevice mDevice;
};

}  // namespace

nsresult NS_ListDvbDevices(std::vector<nsDvbDevice>* aDevices) {
  const std::unique_ptr<udev, Unref> context(udev_new());
  const std::unique_ptr<udev_enumerate, Unref> list(context ? udev_enumerate_new(context.get())
                                                            : nullptr);
  if (!list) return NS_ERROR_OUT_OF_MEMORY;
  if (udev_enumerate_add_match_subsystem(list.get(), "dvb") < 0 ||
      udev_enumerate_scan_devices(list.get()) < 0)
    return NS_ERROR_NOT_AVAILABLE;

  std::vector<Found> found;
  std::map<std::pair<int, int>, std::string> demuxes;
  for (auto* entry = udev_enumerate_get_list_entry(list.get()); entry;
       entry = udev_list_entry_get_next(entry)) {
    // One that has gone since the list was made is none any more.
    const DeviceRef device(
        udev_device_new_from_syspath(context.get(), udev_list_entry_get_name(entry)));
    if (!device || !udev_device_get_devnode(device.get())) continue;
    const std::string type = Text(udev_device_get_property_value(device.get(), "DVB_DEVICE_TYPE"));
    const int adapter = NumberOf(device.get(), "DVB_ADAPTER_NUM");
    const int number = NumberOf(device.get(), "DVB_DEVICE_NUM");
    const std::string node = udev_device_get_devnode(device.get());
    if (type == "demux") demuxes[{adapter, number}] = node;
    if (type != "frontend") continue;
    udev_device* const usb =
        udev_device_get_parent_with_subsystem_devtype(device.get(), "usb", "usb_device");
    Found tuner{adapter,
                number,
                IdentityOf(device.get(), false),
                IdentityOf(device.get(), true),
                Text(udev_device_get_property_value(device.get(), "ID_MODEL_FROM_DATABASE")),
                {}};
    if (tuner.mProduct.empty()) tuner.mProduct = Attribute(usb, "product");
    tuner.mDevice.mFrontend = node;
    found.push_back(std::move(tuner));
  }
  std::ranges::sort(found, {},
                    [](const Found& aTuner) { return std::pair(aTuner.mAdapter, aTuner.mNumber); });

  // Two devices with one serial number are told apart by their places.
  std::map<std::string, std::string> places;
  for (const Found& tuner : found) {
    const auto [known, isNew] = places.emplace(tuner.mIdentity, tuner.mPlace);
    if (!isNew && known->second != tuner.mPlace) known->second.clear();
  }
  std::vector<nsDvbDevice> devices;
  std::map<std::string, int> counts;
  for (Found& tuner : found) {
    const std::string& identity = places[tuner.mIdentity].empty() ? tuner.mPlace : tuner.mIdentity;
    nsDvbDevice& device = tuner.mDevice;
    const auto demux = demuxes.lower_bound({tuner.mAdapter, 0});
    if (demux == demuxes.end() || demux->first.first != tuner.mAdapter) continue;  // on its way
    const auto own = demuxes.find({tuner.mAdapter, tuner.mNumber});
    device.mDemux = own != demuxes.end() ? own->second : demux->second;
    device.mInfo.mPath = identity + "/" + std::to_string(counts[identity]++);
    std::string chip;
    Ask(device, chip);
    device.mInfo.mName = !tuner.mProduct.empty() ? tuner.mProduct
                         : !chip.empty()         ? chip
                                                 : "DVB adapter " + std::to_string(tuner.mAdapter);
    device.mInfo.mParts = {{device.mInfo.mPath + "/demux", device.mInfo.mName + " capture"}};
    devices.push_back(std::move(device));
  }
  *aDevices = std::move(devices);
  return NS_OK;
}

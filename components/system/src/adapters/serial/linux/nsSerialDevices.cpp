#include "nsSerialDevices.h"

#include <dirent.h>
#include <libudev.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <string_view>

namespace {

struct Unref {
  void operator()(udev* aUdev) const { udev_unref(aUdev); }
  void operator()(DIR* aDirectory) const { closedir(aDirectory); }
  void operator()(udev_device* aDevice) const { udev_device_unref(aDevice); }
};

std::string Text(const char* aText) { return aText ? aText : ""; }

std::string Attribute(udev_device* aDevice, const char* aName) {
  return aDevice ? Text(udev_device_get_sysattr_value(aDevice, aName)) : "";
}

// The first of a device's properties, or of an attribute of the USB device, that says something.
std::string FirstOf(udev_device* aDevice, std::initializer_list<const char*> aProperties,
                    udev_device* aUsb, const char* aAttribute) {
  for (const char* property : aProperties)
    if (std::string text = Text(udev_device_get_property_value(aDevice, property)); !text.empty())
      return text;
  return Attribute(aUsb, aAttribute);
}

// The driver's own device; the kernel puts some of its own between a line and that.
std::string DriverOf(udev_device* aDevice) {
  for (udev_device* parent = udev_device_get_parent(aDevice); parent;
       parent = udev_device_get_parent(parent)) {
    const std::string subsystem = Text(udev_device_get_subsystem(parent));
    const std::string driver = Text(udev_device_get_driver(parent));
    if (subsystem != "serial-base" && subsystem != "usb-serial" && !driver.empty()) return driver;
  }
  return "";
}

// By the serial number of a USB device, with the number of its line where it has several; else by
// the place where it is plugged in. The name of the node is no part of it: it tells the order.
std::string IdentityOf(udev_device* aDevice, udev_device* aUsb, bool aByPlace) {
  udev_device* const interface =
      udev_device_get_parent_with_subsystem_devtype(aDevice, "usb", "usb_interface");
  udev_device* const parent = udev_device_get_parent(aDevice);
  std::string line = Attribute(interface, "bInterfaceNumber");
  // A driver of USB adapters numbers the lines of one interface.
  if (const std::string port = Attribute(parent, "port_number"); !port.empty()) line += "." + port;
  const std::string serial = Attribute(aUsb, "serial");
  if (!serial.empty() && !aByPlace)
    return "usb:" + Attribute(aUsb, "idVendor") + ":" + Attribute(aUsb, "idProduct") + ":" +
           serial + ":" + line;
  if (aUsb) return "usb-place:" + Text(udev_device_get_sysname(aUsb)) + ":" + line;
  udev_device* place = parent;
  while (place && Text(udev_device_get_subsystem(place)) == "serial-base")
    place = udev_device_get_parent(place);
  return "place:" + Text(place ? udev_device_get_devpath(place) : nullptr) + ":" +
         Text(udev_device_get_sysnum(aDevice));
}

constexpr char kLines[] = "/sys/class/tty";

// Whether a line has no device behind it, by the place that its link leads to. libudev opens each
// folder on the way to a device, some ten calls for each of the 64 consoles: the start would wait
// for that.
bool IsVirtual(const std::string& aName) {
  std::array<char, 256> place;
  const ssize_t length = readlink((kLines + ("/" + aName)).c_str(), place.data(), place.size());
  return length > 0 && std::string_view(place.data(), static_cast<size_t>(length))
                               .find("/devices/virtual/tty/") != std::string_view::npos;
}

}  // namespace

nsresult NS_ListSerialDevices(std::vector<nsSerialDevice>* aDevices) {
  const std::unique_ptr<udev, Unref> context(udev_new());
  if (!context) return NS_ERROR_OUT_OF_MEMORY;
  const std::unique_ptr<DIR, Unref> list(opendir(kLines));
  if (!list && (errno != ENOENT || access("/sys/class", F_OK) < 0)) return NS_ERROR_NOT_AVAILABLE;

  std::vector<nsSerialDevice> devices;
  while (const dirent* const entry = list ? readdir(list.get()) : nullptr) {
    if (entry->d_name[0] == '.' || IsVirtual(entry->d_name)) continue;
    // One that has gone since the list was made is none any more.
    const std::unique_ptr<udev_device, Unref> device(
        udev_device_new_from_subsystem_sysname(context.get(), "tty", entry->d_name));
    if (!device || !udev_device_get_devnode(device.get())) continue;
    if (!udev_device_get_parent(device.get())) continue;
    if (Attribute(device.get(), "type") == "0") continue;  // reserved by its driver, and empty

    udev_device* const usb =
        udev_device_get_parent_with_subsystem_devtype(device.get(), "usb", "usb_device");
    nsSerialDevice info;
    info.mDevice = udev_device_get_devnode(device.get());
    info.mDriver = DriverOf(device.get());
    info.mMaker =
        FirstOf(device.get(), {"ID_VENDOR_FROM_DATABASE", "ID_VENDOR"}, usb, "manufacturer");
    info.mProduct = FirstOf(device.get(), {"ID_MODEL_FROM_DATABASE", "ID_MODEL"}, usb, "product");
    info.mIdentity = IdentityOf(device.get(), usb, false);
    info.mPlace = IdentityOf(device.get(), usb, true);
    devices.push_back(std::move(info));
  }
  std::ranges::sort(devices, {}, &nsSerialDevice::mDevice);
  *aDevices = std::move(devices);
  return NS_OK;
}

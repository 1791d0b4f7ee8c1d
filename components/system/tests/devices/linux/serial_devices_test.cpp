// Which lines of a machine are ports, and how they are told apart, on devices that the library
// under the device manager's is made to see (this program runs with umockdev before it).
#include <gtest/gtest.h>
#include <umockdev.h>

#include <algorithm>

#include "nsPortNames.h"
#include "nsSerialDevices.h"
#include "nsSimulatedMachine.h"

namespace {

using Strings = std::vector<std::string>;

class SerialDevices : public testing::Test {
 protected:
  void SetUp() override { mBed = umockdev_testbed_new(); }
  void TearDown() override { g_clear_object(&mBed); }

  /// As udevadm exports: P path below /sys, N node, E property, A attribute, L link.
  void Add(const std::string& aText) {
    GError* error = nullptr;
    if (!umockdev_testbed_add_from_string(mBed, aText.c_str(), &error))
      ADD_FAILURE() << aText << error->message;
    g_clear_error(&error);
  }
  /// A line below a device that is there: its node, and the number of its kind.
  void AddLine(const std::string& aParent, const std::string& aNode, const std::string& aType) {
    Add("P: " + aParent + "/tty/" + aNode + "\nN: " + aNode + "\nE: DEVNAME=/dev/" + aNode +
        "\nE: SUBSYSTEM=tty\n" + (aType.empty() ? "" : "A: type=" + aType + "\\n\n"));
  }
  void AddUsb(const std::string& aPlace, const std::string& aSerial) {
    Add("P: /devices/pci0000:00/usb1/" + aPlace +
        "\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nA: idVendor=0403\\n\nA: idProduct=6001\\n\n"
        "A: manufacturer=Maker\\n\nA: product=Adapter\\n\n" +
        (aSerial.empty() ? "" : "A: serial=" + aSerial + "\\n\n"));
  }
  /// An adapter with a driver of its own for lines, and one of the class that modems have.
  void AddAdapter(const std::string& aPlace, const std::string& aSerial, const std::string& aNode) {
    AddUsb(aPlace, aSerial);
    const std::string interface = "/devices/pci0000:00/usb1/" + aPlace + "/" + aPlace + ":1.0";
    Add("P: " + interface +
        "\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_interface\nA: bInterfaceNumber=00\\n\n"
        "L: driver=../../../../../bus/usb/drivers/ftdi_sio\n");
    Add("P: " + interface + "/" + aNode +
        "\nE: SUBSYSTEM=usb-serial\nA: port_number=0\\n\n"
        "L: driver=../../../../../../bus/usb-serial/drivers/ftdi_sio\n");
    AddLine(interface + "/" + aNode, aNode, "");
  }
  /// All of them.
  void Unplug() {
    g_clear_object(&mBed);
    mBed = umockdev_testbed_new();
  }
  static std::vector<nsSerialDevice> List() {
    std::vector<nsSerialDevice> devices;
    EXPECT_EQ(NS_ListSerialDevices(&devices), NS_OK);
    return devices;
  }

  UMockdevTestbed* mBed = nullptr;
};

TEST_F(SerialDevices, WhatIsNoPortIsListedOrAPortIsMissed) {
  EXPECT_TRUE(List().empty());
  Add("P: /devices/pnp0/00:04\nE: SUBSYSTEM=pnp\nL: driver=../../../bus/pnp/drivers/serial\n");
  AddLine("/devices/pnp0/00:04", "ttyS0", "4");
  Add("P: /devices/platform/serial8250\nE: SUBSYSTEM=platform\n"
      "L: driver=../../../bus/platform/drivers/serial8250\n");
  AddLine("/devices/platform/serial8250", "ttyS1", "0");  // reserved, and no chip
  AddLine("/devices/virtual", "tty0", "");                // a console
  AddLine("/devices/virtual", "ptmx", "");
  AddAdapter("1-2", "A1", "ttyUSB0");
  const auto devices = List();
  ASSERT_EQ(devices.size(), 2u);
  EXPECT_EQ(devices[0].mDevice, "/dev/ttyS0");
  EXPECT_EQ(devices[0].mDriver, "serial");
  EXPECT_EQ(devices[0].mIdentity, "place:/devices/pnp0/00:04:0");
  EXPECT_EQ(devices[1].mDevice, "/dev/ttyUSB0");
  EXPECT_EQ(devices[1].mDriver, "ftdi_sio");
  EXPECT_EQ(devices[1].mMaker, "Maker");
  EXPECT_EQ(devices[1].mProduct, "Adapter");
  EXPECT_EQ(devices[1].mIdentity, "usb:0403:6001:A1:00.0");
}

TEST_F(SerialDevices, AdaptersChangePlacesOrShareAName) {
  const auto store = nsSimulatedMachine().mRegistry;
  const auto names = [&] {  // of a new start of the program
    Strings all;
    for (const auto& port : nsPortNames(store).Name(List()))
      all.push_back(port.mName + " " + port.mIdentity);
    return all;
  };
  AddAdapter("1-1", "A", "ttyUSB0");
  AddAdapter("1-2", "B", "ttyUSB1");
  const Strings first = {"COM33 usb:0403:6001:A:00.0", "COM34 usb:0403:6001:B:00.0"};
  EXPECT_EQ(names(), first);
  Unplug();
  EXPECT_EQ(names(), Strings{});
  AddAdapter("1-2", "A", "ttyUSB1");
  AddAdapter("1-1", "B", "ttyUSB0");
  EXPECT_EQ(names(), first) << "in the other's place, by the other's node";
  // Two of a kind without serial numbers, and two with the same one, are known by their places.
  AddAdapter("1-3", "", "ttyUSB2");
  AddAdapter("1-4", "", "ttyUSB3");
  AddAdapter("1-5", "C", "ttyUSB4");
  AddAdapter("1-6", "C", "ttyUSB5");
  Strings more = first;
  more.insert(more.end(), {"COM35 usb-place:1-3:00.0", "COM36 usb-place:1-4:00.0",
                           "COM37 usb-place:1-5:00.0", "COM38 usb-place:1-6:00.0"});
  EXPECT_EQ(names(), more);
  Unplug();
  AddAdapter("1-6", "C", "ttyUSB0");
  EXPECT_EQ(names(), Strings{more.back()}) << "alone it is known by its place too";
}

}  // namespace

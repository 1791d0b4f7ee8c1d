// Messages of the kernel, as they were seen on a socket.
#include "nsLinkMessages.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "nsMutation.h"

namespace {

std::string Bytes(std::string_view aHex) {
  std::string bytes;
  for (size_t i = 0; i + 1 < aHex.size(); i += 2)
    bytes += static_cast<char>(std::stoi(std::string(aHex.substr(i, 2)), nullptr, 16));
  return bytes;
}

// On the heap at its exact length, so that a read beyond it is seen.
bool Tells(const std::string& aBytes) {
  const std::vector<uint8_t> bytes(aBytes.begin(), aBytes.end());
  return NS_TellsOfNetworkChange(bytes);
}

// A link of a bridge, as the bridge tells of it when the link leaves: RTM_DELLINK of AF_BRIDGE.
const std::string kBridgePort = Bytes(
    "5400000011000000000000000000000007000100030000000210000000000000070003007730000008000a00"
    "0400000008000400dc05000005001000020000000a00010092c85bd1a7d500000800050000000000");
const std::string kAddressAdded = Bytes(
    "4c00000014000000b723016bdb0800000218800003000000080001000a010203080002000a01020307000300"
    "77300000080008008000000014000600ffffffffffffffff5722080057220800");
const std::string kIPv6AddressRemoved = Bytes(
    "480000001500000000000000000000000a4082000300000014000100fd000000000000000000000000000001"
    "14000600ffffffffffffffff61220800612208000800080082000000");
const std::string kRouteAdded = Bytes(
    "2c00000018000006b723016bde08000002100000fe0300060000000008000f00fe000000080001000a090000");
const std::string kIPv6RouteRemoved = Bytes(
    "740000001900000000000000000000000a400000fe0200010000000008000f00fe00000014000100fd000000"
    "00000000000000000000000008000600000100000800040003000000"
    "24000c0000000000000000000000000000000000000000000000000000000000000000000500140000000000");
// The head of the message on a link "w0", and its name.
const std::string kLinkDown = Bytes(
    "3000000010000000000000000000000000000100030000000210000000000000070003007730000005001000"
    "02000000");
// The same as a wireless driver sends it with an event of its own (IFLA_WIRELESS).
const std::string kScanDone = Bytes(
    "38000000100000000000000000000000000001000300000043100100000000000700030077300000"
    "10000b00198b10000000000000000000");

TEST(LinkMessages, ChangeIsOverlooked) {
  EXPECT_TRUE(Tells(kLinkDown));
  EXPECT_TRUE(Tells(kAddressAdded));
  EXPECT_TRUE(Tells(kIPv6AddressRemoved));
  EXPECT_TRUE(Tells(kRouteAdded));
  EXPECT_TRUE(Tells(kIPv6RouteRemoved));
}

TEST(LinkMessages, WhatChangesNothingIsTakenForNews) {
  EXPECT_FALSE(Tells(""));
  EXPECT_FALSE(Tells(kBridgePort));
  EXPECT_FALSE(Tells(kScanDone));
  std::string family = kLinkDown;
  family[16] = 10;  // AF_INET6
  EXPECT_FALSE(Tells(family));
  std::string clone = kIPv6RouteRemoved;
  clone[25] = 2;  // RTM_F_CLONED, 0x200 of the flags
  EXPECT_FALSE(Tells(clone));
  std::string neighbour = kAddressAdded;
  neighbour[4] = 28;  // RTM_NEWNEIGH
  EXPECT_FALSE(Tells(neighbour));
}

TEST(LinkMessages, ChangeBehindAnotherMessageIsOverlooked) {
  EXPECT_TRUE(Tells(kBridgePort + kScanDone + kAddressAdded));
  std::string broken = kBridgePort;
  broken[0] = 15;  // shorter than a header
  EXPECT_FALSE(Tells(broken + kAddressAdded)) << "went on behind what is no message";
}

TEST(LinkMessages, CutShortMessageIsReadBeyondItsEnd) {
  for (const std::string& message : {kBridgePort, kAddressAdded, kRouteAdded, kLinkDown, kScanDone})
    for (size_t length = 0; length < message.size(); ++length) {
      EXPECT_FALSE(Tells(message.substr(0, length)));
      // As long as its header says, and without what belongs to it.
      std::string said = message.substr(0, length);
      if (length >= 16) said[0] = static_cast<char>(length);
      (void)Tells(said);
    }
}

TEST(LinkMessages, DamagedMessagesBringTheReaderDown) {
  nsMutation mutation;
  const std::string marks("\0\x01\x10\xff", 4);
  const std::string all = kBridgePort + kScanDone + kAddressAdded + kRouteAdded + kLinkDown;
  int told = 0;
  for (int i = 0; i < 50000; ++i) told += Tells(mutation.Damage(all, marks));
  EXPECT_GT(told, 0);
  EXPECT_LT(told, 50000);
}

}  // namespace

// The Linux backend of network interfaces: messages of the kernel, files beside them, and real
// links in a namespace.
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <net/if_arp.h>
#include <sys/socket.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "nsAddressText.h"
#include "nsCapturedTree.h"
#include "nsLinkFiles.h"
#include "nsLinuxNetwork.h"
#include "nsMutation.h"
#include "nsNetlink.h"
#include "nsNetworkNamespace.h"
#include "nsUtf.h"

namespace {

using namespace vorel::netlink;
using Record = nsAdapterAddresses;
using Strings = std::vector<std::string>;

// The kernel's answer to one of the captured questions.
std::vector<uint8_t> Captured(const std::string& aName) {
  std::ifstream file(VOREL_SOURCE_DIR "/components/system/tests/data/network/netlink.txt");
  std::vector<uint8_t> bytes;
  bool wanted = false;
  for (std::string line; std::getline(file, line);) {
    if (line[0] != ' ') {
      wanted = line == aName;
      continue;
    }
    for (size_t i = 2; wanted && i + 1 < line.size(); i += 2)
      bytes.push_back(static_cast<uint8_t>(std::stoi(line.substr(i, 2), nullptr, 16)));
  }
  EXPECT_FALSE(bytes.empty()) << aName;
  return bytes;
}

template <class Visit>
void ForEachPayload(Bytes aBytes, Visit aVisit) {
  (void)ForEachMessage(aBytes, [&](const nlmsghdr&, Bytes aPayload) {
    aVisit(aPayload);
    return true;
  });
}

std::string TextOf(const nsSocketAddress& aAddress) {
  return aAddress.mFamily == nsSocketAddress::kIPv6
             ? vorel::address::FormatIPv6(aAddress.mBytes)
             : vorel::address::FormatIPv4(std::span(aAddress.mBytes).first<4>());
}
std::string TextOf(uint8_t aFamily, const std::array<uint8_t, 16>& aBytes) {
  return TextOf(nsSocketAddress{
      aFamily == AF_INET6 ? nsSocketAddress::kIPv6 : nsSocketAddress::kIPv4, aBytes});
}

TEST(Netlink, ALinkMessageIsMisread) {
  std::vector<Link> links;
  ForEachPayload(Captured("links"), [&](Bytes aPayload) {
    if (const auto link = ParseLink(aPayload)) links.push_back(*link);
  });
  ASSERT_EQ(links.size(), 4u);
  EXPECT_EQ(links[0].mName, "lo");
  EXPECT_EQ(links[0].mHardwareType, ARPHRD_LOOPBACK);
  const auto wan = std::ranges::find(links, "wan0", &Link::mName);
  ASSERT_NE(wan, links.end());
  EXPECT_EQ(wan->mKind, "veth");
  EXPECT_EQ(wan->mAlias, "Uplink");
  EXPECT_EQ(wan->mAddress, (std::vector<uint8_t>{2, 0, 0, 0, 0, 1}));
  EXPECT_EQ(wan->mOperState, 6);
  EXPECT_TRUE(wan->mHasIPv4 && wan->mHasIPv6);
  const auto bridge = std::ranges::find(links, "br0", &Link::mName);
  ASSERT_NE(bridge, links.end());
  EXPECT_EQ(bridge->mKind, "bridge");
  EXPECT_FALSE(bridge->mHasIPv6) << "switched off";
}

TEST(Netlink, TheOtherEndOfALinkIsTakenForOurs) {
  Strings addresses;
  ForEachPayload(Captured("addresses"), [&](Bytes aPayload) {
    const auto address = ParseAddress(aPayload);
    ASSERT_TRUE(address);
    addresses.push_back(TextOf(address->mFamily, address->mBytes) + "/" +
                        std::to_string(address->mPrefixLength) +
                        (address->mValidLifetime == 0xffffffff ? "" : " ends"));
  });
  for (const char* expected :
       {"127.0.0.1/8", "192.168.7.20/24", "10.9.0.1/32", "192.168.7.99/24 ends", "2001:db8::7/64"})
    EXPECT_NE(std::ranges::find(addresses, expected), addresses.end()) << expected;
}

TEST(Netlink, ARouteThatIsNoDefaultOrOneOfSeveralHopsIsMisread) {
  Strings routes;
  ForEachPayload(Captured("routes"), [&](Bytes aPayload) {
    for (const DefaultRoute& route : ParseDefaultRoutes(aPayload))
      if (route.mHasGateway)
        routes.push_back(TextOf(route.mFamily, route.mGateway) + " " +
                         std::to_string(route.mMetric));
  });
  std::ranges::sort(routes);
  EXPECT_EQ(routes, (Strings{"10.9.0.2 300", "192.168.7.1 200", "192.168.7.2 100",
                             "192.168.7.3 300", "2001:db8::1 1024"}));
}

TEST(Netlink, DamagedMessagesAreReadBeyondTheirEnd) {
  nsMutation mutation;
  for (const char* name : {"links", "addresses", "routes"}) {
    const std::vector<uint8_t> whole = Captured(name);
    for (int round = 0; round < 3000; ++round) {
      const std::string damaged = mutation.Damage(std::string(whole.begin(), whole.end()),
                                                  std::string_view("\0\1\4\xff", 4));
      // A buffer of its own of just that size, so that a sanitizer sees the end of it.
      const std::vector<uint8_t> bytes(damaged.begin(), damaged.end());
      ForEachPayload(bytes, [](Bytes aPayload) {
        (void)ParseLink(aPayload);
        (void)ParseAddress(aPayload);
        (void)ParseDefaultRoutes(aPayload);
      });
    }
  }
}

class LinkFilesTest : public testing::Test {
 protected:
  // Type, medium, speed in Mbit/s and description of a link that the tree describes.
  std::string Describe(Link aLink) {
    const nsFileTree tree(mTree.Root());
    const nsLinkFiles files(tree, aLink);
    return std::to_string(files.Type()) + " " + std::to_string(files.Medium()) + " " +
           std::to_string(files.Speed() / 1'000'000) + " " + files.Description();
  }
  static Link Ethernet(const char* aName) {
    Link link;
    link.mName = aName;
    link.mIndex = 7;
    link.mHardwareType = ARPHRD_ETHER;
    link.mOperState = 6;
    return link;
  }
  nsCapturedTree mTree;
};

TEST_F(LinkFilesTest, ADeviceIsMisjudgedOrGetsAnothersDescription) {
  mTree.Add(R"(
/sys/class/net/eth0
  device -> ../../../devices/pci0/0000:00:19.0
  speed = 2500
/sys/devices/pci0/0000:00:19.0
  driver -> ../../../bus/pci/drivers/e1000e
  subsystem -> ../../../bus/pci
/run/udev/data/n7 |
  I:12
  E:ID_MODEL_FROM_DATABASE=82574L Gigabit Network Connection
/sys/class/net/usb0
  device -> ../../../devices/usb1/1-2/1-2:1.0
  speed = -1
/sys/devices/usb1/1-2
  product = AX88179 Gigabit Ethernet
  1-2:1.0/driver -> ../../../../bus/usb/drivers/ax88179
  1-2:1.0/subsystem -> ../../../../bus/usb
/sys/class/net/wl0
  device -> ../../../devices/pci0/0000:02:00.0
  phy80211 -> ../../../devices/phy0
  uevent = DEVTYPE=wlan
/sys/devices/pci0/0000:02:00.0
  driver -> ../../../bus/pci/drivers/iwlwifi
  subsystem -> ../../../bus/pci
/sys/class/net/ww0
  device -> ../../../devices/usb1/1-2/1-2:1.0
  uevent = DEVTYPE=wwan
/sys/class/net/bt0
  device -> ../../../devices/bt
  uevent = DEVTYPE=bluetooth
/sys/devices/phy0
/sys/devices/bt
/sys/class/net/wlx
  phy80211 -> ../../../devices/phy0
)");
  EXPECT_EQ(Describe(Ethernet("eth0")),
            "6 14 2500 82574L Gigabit Network Connection (e1000e, pci)");
  EXPECT_EQ(Describe(Ethernet("usb0")), "6 14 0 AX88179 Gigabit Ethernet (ax88179, usb)");
  std::filesystem::remove(mTree.Root() + "/run/udev/data/n7");
  EXPECT_EQ(Describe(Ethernet("eth0")), "6 14 2500 e1000e (pci)");
  EXPECT_EQ(Describe(Ethernet("wl0")), "71 9 0 iwlwifi (pci)");
  EXPECT_EQ(Describe(Ethernet("wlx")), "71 9 0 wlx (virtual)");
  EXPECT_EQ(Describe(Ethernet("ww0")), "243 14 0 AX88179 Gigabit Ethernet (ax88179, usb)");
  EXPECT_EQ(Describe(Ethernet("bt0")), "6 10 0 bt0");
  // Without its files, as in a namespace that sees another sysfs: what the kernel itself tells is
  // enough.
  Link told = Ethernet("eth9");
  told.mParent = "0000:00:1f.6";
  told.mParentBus = "pci";
  EXPECT_EQ(Describe(told), "6 14 0 eth9");
  for (const char* kind : {"bridge", "tun", "dummy", "macvlan", "vlan"}) {
    Link link = Ethernet("v0");
    link.mKind = kind;
    EXPECT_EQ(Describe(link), "6 19 0 " + std::string(kind) + " (virtual)");
  }
  Link pair = Ethernet("v0");
  pair.mKind = "veth";
  EXPECT_EQ(Describe(pair), "6 14 0 veth (virtual)");
  Link tunnel = Ethernet("t0");
  tunnel.mHardwareType = ARPHRD_TUNNEL;
  EXPECT_EQ(Describe(tunnel), "131 19 0 t0 (virtual)");
}

class NativeNetwork : public testing::Test {
 protected:
  void SetUp() override {
    if (!mNamespace.Lacks().empty()) GTEST_SKIP() << mNamespace.Lacks();
  }
  static std::vector<Record> Records(nsLinuxNetwork& aNetwork) {
    std::vector<Record> records;
    EXPECT_EQ(aNetwork.Read()->GetAdaptersAddresses(0, 0x90, &records), NS_OK);
    return records;
  }
  static Record RecordOf(nsLinuxNetwork& aNetwork, const std::string& aName) {
    for (const Record& record : Records(aNetwork))
      if (record.mAdapterName == aName) return record;
    ADD_FAILURE() << aName << " is not there";
    return {};
  }
  nsNetworkNamespace mNamespace;
  nsCapturedTree mTree;
};

TEST_F(NativeNetwork, TheRecordsAreOtherThanWhatTheSystemsOwnProgramPrints) {
  mNamespace.Ip("link set lo up");
  mNamespace.AddWire("vw0");
  mNamespace.AddWire("vw1");
  mNamespace.Ip("addr add 10.1.0.7/9 dev vw0");
  mNamespace.Ip("addr add 10.5.0.1 peer 10.5.0.2/32 dev vw1");
  mNamespace.Ip("addr add 2001:db8::5/77 dev vw0 nodad");
  mNamespace.Ip("link add vb0 type bridge");
  mNamespace.Ip("link add vm0 link vw0 type macvlan");
  mNamespace.SetUp("vw1", false);
  mNamespace.Ip("route add default via 10.1.0.1 dev vw0 metric 50");

  nsLinuxNetwork network;
  const std::map<std::string, uint32_t> kStates = {
      {"UP", 1u}, {"DOWN", 2u}, {"UNKNOWN", 4u}, {"LOWERLAYERDOWN", 7u}, {"DORMANT", 5u}};
  // What the kernel is still about to add by itself must not come between the two looks.
  std::vector<Record> records;
  nlohmann::json printed;
  do {
    printed = nlohmann::json::parse(mNamespace.AskIp("-j addr"));
    records = Records(network);
  } while (printed != nlohmann::json::parse(mNamespace.AskIp("-j addr")));
  ASSERT_EQ(records.size(), printed.size());
  for (size_t i = 0; i < records.size(); ++i) {
    const auto& link = printed[i];
    const Record& record = records[i];
    SCOPED_TRACE(record.mAdapterName);
    EXPECT_EQ(record.mAdapterName, link["ifname"]);
    EXPECT_EQ(record.mIfIndex, link["ifindex"]);
    EXPECT_EQ(record.mOperStatus, kStates.at(link["operstate"]));
    std::string mac = vorel::address::FormatMAC(record.mPhysicalAddress);
    std::ranges::transform(mac, mac.begin(),
                           [](char c) { return c == '-' ? ':' : static_cast<char>(tolower(c)); });
    EXPECT_EQ(mac, link["address"]);
    Strings ours, theirs;
    for (const auto& address : record.mUnicastAddresses)
      ours.push_back(TextOf(address.mAddress) + "/" + std::to_string(address.mOnLinkPrefixLength));
    for (const auto& address : link["addr_info"])
      theirs.push_back(address["local"].get<std::string>() + "/" +
                       std::to_string(address["prefixlen"].get<int>()));
    EXPECT_EQ(ours, theirs);
  }
}

TEST_F(NativeNetwork, AnAddressThatEndsIsNoSignOfDhcpOrAFixedOneIs) {
  mNamespace.AddWire("vw0");
  nsLinuxNetwork network;
  mNamespace.Ip("addr add 10.1.0.7/24 dev vw0");
  EXPECT_FALSE(RecordOf(network, "vw0").mFlags & Record::kDhcpEnabled);
  mNamespace.Ip("addr add 10.1.0.8/24 dev vw0 valid_lft 600 preferred_lft 300");
  const Record record = RecordOf(network, "vw0");
  EXPECT_TRUE(record.mFlags & Record::kDhcpEnabled);
  EXPECT_GT(record.mUnicastAddresses.at(1).mValidLifetime, 500u);
}

TEST_F(NativeNetwork, NameServersOfALinkAreNotItsOwn) {
  mNamespace.AddWire("vw0");
  mNamespace.AddWire("vw1");
  mNamespace.Ip("addr add 10.1.0.7/24 dev vw0");
  mNamespace.Ip("route add default via 10.1.0.1 dev vw0");
  nsLinuxNetwork network(mTree.Root());
  const auto servers = [&](const char* aName) {
    Strings texts;
    for (const auto& server : RecordOf(network, aName).mDnsServers) texts.push_back(TextOf(server));
    return texts;
  };
  mTree.Write(
      "/etc/resolv.conf",
      "# comment\nnameserver 9.9.9.9\nsearch x\nnameserver fe80::1%vw0\nnameserver nonsense\n");
  EXPECT_EQ(servers("vw0"), (Strings{"9.9.9.9", "fe80::1"}));
  EXPECT_EQ(servers("vw1"), Strings{}) << "nothing leads outward there";

  mTree.Write("/etc/resolv.conf", "nameserver 127.0.0.53\n");
  EXPECT_EQ(servers("vw0"), (Strings{"127.0.0.53"})) << "nobody tells more";
  mTree.Write("/run/systemd/resolve/resolv.conf", "nameserver 1.1.1.1\n");
  EXPECT_EQ(servers("vw0"), (Strings{"1.1.1.1"})) << "whom the machine's own resolver asks";

  const std::string index = std::to_string(RecordOf(network, "vw1").mIfIndex);
  mTree.Write("/run/systemd/netif/links/" + index,
              "ADMIN_STATE=configured\nDNS=8.8.8.8 2001:db8::53\n");
  EXPECT_EQ(servers("vw1"), (Strings{"8.8.8.8", "2001:db8::53"}));
  mTree.Write("/run/systemd/resolve/netif/" + index, "LLMNR=yes\nSERVERS=8.8.4.4\n");
  EXPECT_EQ(servers("vw1"), (Strings{"8.8.4.4"}));
  mTree.Write("/run/systemd/netif/leases/" + index, "ADDRESS=10.0.0.2\nSERVER_ADDRESS=10.0.0.1\n");
  EXPECT_EQ(network.DhcpServerOf(RecordOf(network, "vw1").mIfIndex), "10.0.0.1");
  EXPECT_TRUE(RecordOf(network, "vw1").mFlags & Record::kDhcpEnabled);
}

}  // namespace

// What every backend of the port of network interfaces keeps to: the simulated one, and the native
// one on links of a namespace.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "nsLinuxNetwork.h"
#include "nsNetworkNamespace.h"
#include "nsSimulatedMachine.h"

namespace {

using Record = nsAdapterAddresses;

class Machine {
 public:
  virtual ~Machine() = default;
  virtual std::string Lacks() { return ""; }
  virtual nsPlatformNetwork& Port() = 0;
  /// A wire that is up. The address is hexadecimal with ":" between.
  virtual void AddWire(const std::string& aName, const std::string& aMac) = 0;
  /// Looks like a wire, and is none.
  virtual void AddBridge(const std::string& aName) = 0;
  virtual void SetAddresses(const std::string& aName,
                            const std::vector<std::string>& aAddresses) = 0;
  /// By rising metric.
  virtual void SetGateways(const std::string& aName, const std::vector<std::string>& aGateways) = 0;
  virtual void SetDown(const std::string& aName) = 0;
  virtual void Remove(const std::string& aName) = 0;
};

class SimulatedMachine final : public Machine {
 public:
  nsPlatformNetwork& Port() override { return *mNetwork; }
  void AddWire(const std::string& aName, const std::string& aMac) override {
    mNetwork->Put(nsSimulatedNetwork::Wire(aName, aMac));
  }
  void AddBridge(const std::string& aName) override {
    auto bridge = nsSimulatedNetwork::Wire(aName, "02:00:00:00:00:99");
    bridge.mPhysicalMedium = nsIfRow::kOther;
    mNetwork->Put(bridge);
  }
  void SetAddresses(const std::string& aName, const std::vector<std::string>& aAddresses) override {
    mNetwork->Alter(aName, [&](nsSimulatedInterface& aInterface) {
      for (const auto& address : aAddresses)
        aInterface.mAddresses.mUnicastAddresses.push_back(nsSimulatedNetwork::Address(address));
    });
  }
  void SetGateways(const std::string& aName, const std::vector<std::string>& aGateways) override {
    mNetwork->Alter(aName,
                    [&](nsSimulatedInterface& aInterface) { aInterface.mGateways = aGateways; });
  }
  void SetDown(const std::string& aName) override {
    mNetwork->Alter(aName, [](nsSimulatedInterface& aInterface) {
      aInterface.mAddresses.mOperStatus = Record::kDown;
    });
  }
  void Remove(const std::string& aName) override { mNetwork->Remove(aName); }

 private:
  nsSimulatedMachine mMachine;
  const std::shared_ptr<nsSimulatedNetwork> mNetwork = mMachine.mNetwork;
};

class NativeMachine final : public Machine {
 public:
  std::string Lacks() override { return mNamespace.Lacks(); }
  nsPlatformNetwork& Port() override { return mNetwork; }
  void AddWire(const std::string& aName, const std::string& aMac) override {
    mNamespace.AddWire(aName, aMac);
  }
  void AddBridge(const std::string& aName) override {
    mNamespace.Ip("link add " + aName + " type bridge");
  }
  void SetAddresses(const std::string& aName, const std::vector<std::string>& aAddresses) override {
    for (const auto& address : aAddresses)
      mNamespace.Ip("addr add " + address + " dev " + aName + " nodad");
  }
  void SetGateways(const std::string& aName, const std::vector<std::string>& aGateways) override {
    int metric = 900;
    for (size_t i = aGateways.size(); i > 0;
         --i)  // the best one last: the order of making must not count
      mNamespace.Ip("route add default via " + aGateways[i - 1] + " dev " + aName + " metric " +
                    std::to_string(metric -= 100));
  }
  void SetDown(const std::string& aName) override { mNamespace.SetUp(aName, false); }
  void Remove(const std::string& aName) override { mNamespace.Ip("link del " + aName); }

 private:
  nsNetworkNamespace mNamespace;
  nsLinuxNetwork mNetwork;
};

struct Backend {
  const char* mName;
  std::function<std::unique_ptr<Machine>()> mMake;
};

class Network : public testing::TestWithParam<Backend> {
 protected:
  void SetUp() override {
    mMachine = GetParam().mMake();
    if (const std::string lacks = mMachine->Lacks(); !lacks.empty()) GTEST_SKIP() << lacks;
  }
  nsPlatformNetwork& Port() { return mMachine->Port(); }
  /// The record of an interface; an empty one when it is not there.
  Record RecordOf(const std::string& aName) {
    std::vector<Record> records;
    EXPECT_EQ(Port().Read()->GetAdaptersAddresses(0, 0x90, &records), NS_OK);
    const auto found = std::ranges::find(records, aName, &Record::mAdapterName);
    return found == records.end() ? Record() : *found;
  }
  nsAdapterInfo InfoOf(const std::string& aName) {
    std::vector<nsAdapterInfo> infos;
    (void)Port().Read()->GetAdaptersInfo(&infos);
    const auto found = std::ranges::find(infos, aName, &nsAdapterInfo::mAdapterName);
    return found == infos.end() ? nsAdapterInfo() : *found;
  }
  std::unique_ptr<Machine> mMachine;
};

TEST_P(Network, APictureLacksAnInterfaceOrItsFields) {
  mMachine->AddWire("vw0", "02:11:22:33:44:55");
  const Record record = RecordOf("vw0");
  EXPECT_EQ(record.mAdapterName, "vw0");
  EXPECT_FALSE(record.mFriendlyName.empty());
  EXPECT_FALSE(record.mDescription.empty());
  EXPECT_GT(record.mIfIndex, 0u);
  EXPECT_EQ(record.mIpv6IfIndex, record.mIfIndex);
  EXPECT_EQ(record.mIfType, Record::kEthernet);
  EXPECT_EQ(record.mOperStatus, Record::kUp);
  EXPECT_EQ(record.mFlags, Record::kIpv4Enabled | Record::kIpv6Enabled);
  EXPECT_EQ(record.mPhysicalAddress, (std::vector<uint8_t>{2, 0x11, 0x22, 0x33, 0x44, 0x55}));
  EXPECT_EQ(InfoOf("vw0").mAdapterName, "vw0");
}

TEST_P(Network, AddressesAreLostOrOutOfOrderOrHaveAWrongPrefix) {
  mMachine->AddWire("vw0", "02:11:22:33:44:55");
  mMachine->SetAddresses("vw0", {"10.1.0.7/9", "192.168.5.6/30", "2001:db8::5/77"});
  std::vector<nsUnicastAddress> addresses = RecordOf("vw0").mUnicastAddresses;
  // The system may add link-local addresses of its own.
  std::erase_if(addresses, [](const nsUnicastAddress& aAddress) {
    return aAddress.mAddress.mBytes[0] == 0xfe;
  });
  ASSERT_EQ(addresses.size(), 3u);
  EXPECT_EQ(addresses[0].mAddress, nsSimulatedNetwork::Server("10.1.0.7"));
  EXPECT_EQ(addresses[0].mOnLinkPrefixLength, 9);
  EXPECT_EQ(addresses[1].mAddress, nsSimulatedNetwork::Server("192.168.5.6"));
  EXPECT_EQ(addresses[1].mOnLinkPrefixLength, 30);
  EXPECT_EQ(addresses[2].mAddress, nsSimulatedNetwork::Server("2001:db8::5"));
  EXPECT_EQ(addresses[2].mOnLinkPrefixLength, 77);
  const nsAdapterInfo info = InfoOf("vw0");
  ASSERT_EQ(info.mIpAddressList.size(), 2u) << "IPv4 only";
  EXPECT_EQ(info.mIpAddressList[0].mIpAddress, "10.1.0.7");
  EXPECT_EQ(info.mIpAddressList[0].mIpMask, "255.128.0.0");
  EXPECT_EQ(info.mIpAddressList[1].mIpMask, "255.255.255.252");
}

TEST_P(Network, GatewaysComeInAnotherOrderThanTheirMetric) {
  mMachine->AddWire("vw0", "02:11:22:33:44:55");
  EXPECT_EQ(InfoOf("vw0").mGatewayList, std::vector<std::string>{"0.0.0.0"})
      << "there is always an entry";
  mMachine->SetAddresses("vw0", {"10.1.0.7/24"});
  mMachine->SetGateways("vw0", {"10.1.0.3", "10.1.0.1", "10.1.0.2"});
  EXPECT_EQ(InfoOf("vw0").mGatewayList,
            (std::vector<std::string>{"10.1.0.3", "10.1.0.1", "10.1.0.2"}));
}

TEST_P(Network, WhatOnlyLooksLikeAWireHasTheMediumOfOne) {
  mMachine->AddWire("vw0", "02:11:22:33:44:55");
  mMachine->AddBridge("vb0");
  ASSERT_TRUE(Port().LoadIpHelper());
  const auto reading = Port().Read();
  const auto getIfEntry2 = reading->FindGetIfEntry2();
  ASSERT_TRUE(getIfEntry2);
  nsIfRow row;
  EXPECT_EQ(getIfEntry2(RecordOf("vw0").mIfIndex, &row), NS_OK);
  EXPECT_EQ(row.mPhysicalMediumType, nsIfRow::kEthernet8023);
  EXPECT_EQ(getIfEntry2(RecordOf("vb0").mIfIndex, &row), NS_OK);
  EXPECT_EQ(row.mPhysicalMediumType, nsIfRow::kOther);
  EXPECT_EQ(RecordOf("vb0").mIfType, Record::kEthernet);
  row = {};
  EXPECT_EQ(getIfEntry2(987654, &row), NS_ERROR_NOT_AVAILABLE);
  EXPECT_EQ(row.mPhysicalMediumType, 0u) << "a failing call must not write";
}

TEST_P(Network, AChangeDoesNotShowAtTheNextLook) {
  mMachine->AddWire("vw0", "02:11:22:33:44:55");
  mMachine->AddWire("vw1", "02:11:22:33:44:66");
  EXPECT_EQ(RecordOf("vw0").mOperStatus, Record::kUp);
  mMachine->SetDown("vw0");
  EXPECT_EQ(RecordOf("vw0").mOperStatus, Record::kDown);
  mMachine->Remove("vw0");
  EXPECT_EQ(RecordOf("vw0").mAdapterName, "");
  EXPECT_EQ(InfoOf("vw0").mAdapterName, "");
  EXPECT_EQ(RecordOf("vw1").mAdapterName, "vw1");
}

INSTANTIATE_TEST_SUITE_P(
    Backends, Network,
    testing::Values(Backend{"Simulated",
                            [] { return std::unique_ptr<Machine>(new SimulatedMachine); }},
                    Backend{"Native", [] { return std::unique_ptr<Machine>(new NativeMachine); }}),
    [](const auto& aInfo) { return aInfo.param.mName; });

}  // namespace

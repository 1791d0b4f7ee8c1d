// What every backend of the port of network interfaces keeps to.
#include "nsNetworkContract.h"
#include "nsSimulatedMachine.h"

namespace {

using Record = nsAdapterAddresses;

class SimulatedMachine final : public nsNetworkMachine {
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

TEST_P(NetworkContract, APictureLacksAnInterfaceOrItsFields) {
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

TEST_P(NetworkContract, AddressesAreLostOrOutOfOrderOrHaveAWrongPrefix) {
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

TEST_P(NetworkContract, GatewaysComeInAnotherOrderThanTheirMetric) {
  mMachine->AddWire("vw0", "02:11:22:33:44:55");
  EXPECT_EQ(InfoOf("vw0").mGatewayList, std::vector<std::string>{"0.0.0.0"})
      << "there is always an entry";
  mMachine->SetAddresses("vw0", {"10.1.0.7/24"});
  mMachine->SetGateways("vw0", {"10.1.0.3", "10.1.0.1", "10.1.0.2"});
  EXPECT_EQ(InfoOf("vw0").mGatewayList,
            (std::vector<std::string>{"10.1.0.3", "10.1.0.1", "10.1.0.2"}));
}

TEST_P(NetworkContract, WhatOnlyLooksLikeAWireHasTheMediumOfOne) {
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

TEST_P(NetworkContract, AChangeDoesNotShowAtTheNextLook) {
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
    Simulated, NetworkContract,
    testing::Values(NS_ContractBackend<nsNetworkMachine, SimulatedMachine>("machine")));

}  // namespace

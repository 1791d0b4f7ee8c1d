// Discovery of network interfaces.
#include <map>
#include <random>

#include "nsFaultSweep.h"
#include "nsHostTime.h"
#include "nsNetworkTest.h"

namespace {

class DiscoveryTest : public nsNetworkTest {
 protected:
  nsSimulatedNetwork& Network() { return *mMachine.mNetwork; }
  nsCOMPtr<nsTestListener> Listen() {
    const auto listener = MakeRefCounted<nsTestListener>();
    EXPECT_EQ(mManager->AddAdapterListener(listener.get()), NS_OK);
    return listener;
  }
  static Interface Of(const char* aName, uint32_t aType, uint32_t aMedium) {
    Interface interface = Wire(aName, "02-00-00-00-00-01", {});
    interface.mAddresses.mIfType = aType;
    interface.mPhysicalMedium = aMedium;
    return interface;
  }
};

using Record = nsAdapterAddresses;

TEST_F(DiscoveryTest, ATypeAndMediumAreMisjudged) {
  Network().Put(Of("wired", Record::kEthernet, nsIfRow::kEthernet8023));
  Network().Put(Of("unspecified", Record::kEthernet, nsIfRow::kUnspecified));
  Network().Put(Of("bridge", Record::kEthernet, nsIfRow::kOther));
  Network().Put(Of("air", Record::kWireless, nsIfRow::kNative80211));
  Network().Put(Of("lo", Record::kLoopback, nsIfRow::kOther));
  Network().Put(Of("tun", Record::kTunnel, nsIfRow::kOther));
  Network().Put(Of("wwan", Record::kWwan, nsIfRow::kOther));
  Interface unknown = Of("norow", Record::kEthernet, nsIfRow::kOther);
  unknown.mHasRow = false;
  Network().Put(unknown);
  EXPECT_EQ(Discover(), NS_OK);
  EXPECT_EQ(Names(), (Strings{"lan wired", "lan unspecified", "wlan air", "lan norow"}));
}

TEST_F(DiscoveryTest, AnOldSystemsWirelessInterfaceIsTakenForAWire) {
  Network().SetVersion({5, 1, 2600});
  Network().SetIpHelper(false, false);
  Interface air = Of("{A}", Record::kEthernet, nsIfRow::kOther);
  air.mAnswersSsid = true;
  Network().Put(air);
  Network().Put(Of("{B}", Record::kEthernet, nsIfRow::kOther));
  EXPECT_EQ(Discover(), NS_OK);
  EXPECT_EQ(Names(), (Strings{"wlan {A}", "lan {B}"}));
  // The device's name as drivers have been asked for it ever since; and what is opened is closed.
  EXPECT_EQ(
      mMachine.mCalls->TakeJournal(),
      (Strings{"Network.PacketOpenAdapter \\Devive\\NPF_{A}", "Network.PacketCloseAdapter {A}",
               "Network.PacketOpenAdapter \\Devive\\NPF_{B}", "Network.PacketCloseAdapter {B}"}));
}

TEST_F(DiscoveryTest, AnInterfaceOfOnePictureOnlyIsAddedOrKept) {
  Network().Put(Wire("eth0", "02-00-00-00-00-01", {}));
  Interface half = Wire("eth1", "02-00-00-00-00-02", {});
  half.mHasInfo = false;
  Network().Put(half);
  EXPECT_EQ(Discover(), NS_OK);
  EXPECT_EQ(Names(), (Strings{"lan eth0"}));
  Network().Alter("eth0", [](Interface& aInterface) { aInterface.mHasInfo = false; });
  EXPECT_EQ(Discover(), NS_OK);
  EXPECT_EQ(Names(), Strings{});
}

TEST_F(DiscoveryTest, AWireWithoutAnAddressOfItsOwnIsAddedOrIsAnError) {
  Network().Put(Wire("null", "00-00-00-00-00-00", {}));
  Interface air = Wire("air", "00-00-00-00-00-00", {});
  air.mAddresses.mIfType = Record::kWireless;
  Network().Put(air);
  const auto listener = Listen();
  for (int run = 0; run < 2; ++run) EXPECT_EQ(Discover(), NS_OK);
  EXPECT_EQ(Names(), (Strings{"wlan air"})) << "wireless ones are not tested";
  EXPECT_EQ(listener->mHeard, (Strings{"adapter added air"}));
}

TEST_F(DiscoveryTest, ListenersHearTooMuchTooLittleOrOutOfOrder) {
  Network().Put(Wire("eth0", "02-00-00-00-00-01", {"10.0.0.1/8"}));
  Network().Put(Wire("eth1", "02-00-00-00-00-02", {}));
  EXPECT_EQ(Discover(), NS_OK);
  const auto listener = Listen();
  const auto heard = [&] {
    EXPECT_EQ(Discover(), NS_OK);
    return std::exchange(listener->mHeard, {});
  };
  EXPECT_EQ(heard(), Strings{}) << "nothing has changed";

  const auto alter = [&](const auto& aChange) { ASSERT_TRUE(Network().Alter("eth0", aChange)); };
  alter([](Interface& aI) { aI.mAddresses.mOperStatus = Record::kDown; });
  EXPECT_EQ(heard(), (Strings{"adapter changed eth0"}));
  alter([](Interface& aI) {
    aI.mAddresses.mUnicastAddresses[0] = nsSimulatedNetwork::Address("10.0.0.2/8");
  });
  EXPECT_EQ(heard(), (Strings{"adapter changed eth0"}));
  alter([](Interface& aI) { aI.mAddresses.mUnicastAddresses.clear(); });
  EXPECT_EQ(heard(), (Strings{"adapter changed eth0"})) << "the only address is lost";
  alter([](Interface& aI) {
    aI.mGateways = {"10.0.0.9"};
    aI.mAddresses.mDnsServers = {nsSimulatedNetwork::Server("10.0.0.53")};
    aI.mAddresses.mUnicastAddresses = {nsSimulatedNetwork::Address("2001:db8::1/64")};
  });
  EXPECT_EQ(heard(), Strings{}) << "gateways, name servers and IPv6 addresses are no modification";

  Network().Remove("eth0");
  Network().Put(Wire("eth2", "02-00-00-00-00-03", {}));
  EXPECT_EQ(heard(), (Strings{"adapter added eth2", "adapter removed eth0"}));
  Network().Put(Wire("eth0", "02-00-00-00-00-01", {}));
  EXPECT_EQ(heard(), (Strings{"adapter added eth0"}));
  Network().Remove("eth0");
  Network().Remove("eth1");
  Network().Remove("eth2");
  EXPECT_EQ(heard(),
            (Strings{"adapter removed eth1", "adapter removed eth2", "adapter removed eth0"}));
}

TEST_F(DiscoveryTest, AKnownAdapterIsReplacedInsteadOfRenewed) {
  const auto adapter = Found(Wire("eth0", "02-00-00-00-00-01", {}));
  Network().Alter("eth0", [](Interface& aI) {
    aI.mPhysicalMedium = nsIfRow::kOther;
    aI.mAddresses.mFriendlyName = u"Renamed";
  });
  EXPECT_EQ(Discover(), NS_OK);
  ASSERT_EQ(Adapters(*mManager).size(), 1u);
  EXPECT_EQ(Adapters(*mManager)[0], adapter);
  uint32_t type = 0;
  EXPECT_EQ(adapter->GetInterfaceType(&type), NS_OK);
  EXPECT_EQ(type, Record::kOther) << "it stays an adapter and tells its corrected type";
  EXPECT_EQ(NS_TextOf(adapter, &nsISystemAdapterIP::GetLabel), "Renamed");
}

TEST_F(DiscoveryTest, ANameThatPassesOnTakesItsAdapterAlong) {
  const auto put = [&](const char* aName, uint32_t aIndex, const char* aMac) {
    Interface wire = Wire(aName, aMac, {});
    wire.mAddresses.mIfIndex = aIndex;
    wire.mHasInfo = wire.mAddresses.mPhysicalAddress.size() == 6;
    Network().Put(wire);
  };
  put("eth0", 2, "02-00-00-00-00-02");
  put("eth1", 3, "02-00-00-00-00-03");
  EXPECT_EQ(Discover(), NS_OK);
  const auto before = Adapters(*mManager);
  const auto listener = Listen();
  const auto heard = [&] {
    EXPECT_EQ(Discover(), NS_OK);
    return std::exchange(listener->mHeard, {});
  };
  put("eth0", 3, "02-00-00-00-00-03");
  put("eth1", 2, "02-00-00-00-00-02");
  EXPECT_EQ(heard(), (Strings{"adapter removed eth0", "adapter added eth0", "adapter removed eth1",
                              "adapter added eth1"}))
      << "swapped: the name is the same, the interface is another one";
  for (const auto& adapter : Adapters(*mManager))
    EXPECT_EQ(std::ranges::find(before, adapter), before.end());

  put("eth0", 4, "");
  Network().Remove("eth1");
  EXPECT_EQ(heard(), (Strings{"adapter removed eth0", "adapter removed eth1"}))
      << "what has taken over the name can't be an adapter, and the others go all the same";
  EXPECT_EQ(heard(), Strings{});
}

TEST_F(DiscoveryTest, AListenerThatLooksAgainLeavesTheListBehindTheMachine) {
  for (const char* name : {"eth0", "eth1", "eth2"})
    Network().Put(Wire(name, "02-00-00-00-00-01", {}));
  EXPECT_EQ(Discover(), NS_OK);
  const auto listener = Listen();
  listener->mThen = [&, changed = false]() mutable {
    if (std::exchange(changed, true)) return;
    // Between the picture of the outer look and its end.
    Network().Remove("eth1");
    Network().Remove("eth2");
    Network().Put(Wire("eth2", "02-00-00-00-00-02", {}));
    EXPECT_EQ(Discover(), NS_OK);
  };
  Network().Alter("eth0", [](Interface& aI) { aI.mAddresses.mOperStatus = Record::kDown; });
  EXPECT_EQ(Discover(), NS_OK);
  EXPECT_EQ(Names(), (Strings{"lan eth0", "lan eth2"}));
  EXPECT_EQ(listener->mHeard, (Strings{"adapter changed eth0", "adapter removed eth2",
                                       "adapter added eth2", "adapter removed eth1"}));
}

TEST_F(DiscoveryTest, APictureThatCantBeHadIsNotTold) {
  Network().Put(Wire("eth0", "02-00-00-00-00-01", {}));
  for (const char* method : {"GetAdaptersInfo", "GetAdaptersAddresses"}) {
    (void)TakeLog("");
    mMachine.mCalls->Fail({.mPort = "Network", .mMethod = method});
    (void)Discover();
    EXPECT_EQ(TakeLog("warning"),
              (Strings{"warning system.manager: Can't read the network interfaces: "
                       "NS_ERROR_FAILURE"}))
        << method;
  }
}

TEST_F(DiscoveryTest, AnAddressOfAnotherLengthIsReadBeyondItsEnd) {
  Network().Put(Wire("eth0", "02-00-00-00-00-01", {}));
  Network().Put(Wire("odd", "02-00-00-00-00-00-00-01", {}));
  Network().Put(Wire("eth1", "02-00-00-00-00-02", {}));
  (void)TakeLog("");
  EXPECT_EQ(Discover(), NS_ERROR_FAILURE);
  EXPECT_EQ(Names(), (Strings{"lan eth0"})) << "what was handled stays handled";
  EXPECT_EQ(TakeLog("warning debug"),
            Strings(2, "warning debug: 'NS_ENSURE_SUCCESS(rv, rv) failed'"));
}

TEST_F(DiscoveryTest, AnAdapterOfAnotherKindIsTakenForAnInterface) {
  const auto stranger = MakeRefCounted<nsTestAdapter>();
  stranger->mSysPath = nsString(u"eth0");
  EXPECT_EQ(mManager->AddAdapter(stranger.get()), NS_OK);
  Network().Put(Wire("eth0", "02-00-00-00-00-01", {}));
  (void)TakeLog("");
  EXPECT_EQ(Discover(), NS_ERROR_UNEXPECTED);
  EXPECT_EQ(TakeLog("warning debug"), (Strings{"warning debug: 'NS_ENSURE_TRUE(ip) failed'"}));
}

TEST_F(DiscoveryTest, AMissingInterfaceTableIsWorkedAround) {
  Network().Put(Wire("eth0", "02-00-00-00-00-01", {}));
  (void)TakeLog("");
  Network().SetIpHelper(false, false);
  EXPECT_EQ(Discover(), NS_ERROR_UNEXPECTED);
  EXPECT_EQ(TakeLog("warning debug"), (Strings{"warning debug: 'NS_ENSURE_TRUE(module) failed'"}));
  Network().SetIpHelper(true, false);
  EXPECT_EQ(Discover(), NS_ERROR_UNEXPECTED);
  EXPECT_EQ(TakeLog("warning debug"),
            (Strings{"warning debug: 'NS_ENSURE_TRUE(GetIfEntry2Func) failed'"}));
  EXPECT_EQ(Names(), Strings{});
}

TEST_F(DiscoveryTest, TheLogOfARunChanges) {
  Interface wire = Wire("eth0", "02-00-00-00-00-01", {"10.0.0.1/8"});
  wire.mAddresses.mFriendlyName = u"Lan";
  wire.mAddresses.mDescription = u"Card";
  Network().Put(wire);
  (void)TakeLog("");
  EXPECT_EQ(Discover(), NS_OK);
  const Strings begin{
      "debug system.manager: Begin", "debug system.manager: AdapterName = eth0",
      "debug system.manager: FriendlyName=Lan", "debug system.manager: Description=Card",
      "debug system.manager: ifRow.Type = 6 ifRow.MediaType = 0 ifRow.PhysicalMediumType= 14"};
  Strings first = begin, second = begin, third = begin;
  first.insert(first.end(),
               {"debug system.manager: Adding Network adapter of type IF_TYPE_ETHERNET_CSMACD",
                "debug system.adapter.ip: add gateway = 0.0.0.0",
                "debug system.adapter.ip: MAC adress = 02-00-00-00-00-01",
                "debug system.adapter.ip: adress = 10.0.0.1"});
  EXPECT_EQ(TakeLog("debug"), first);
  Network().Alter("eth0", [](Interface& aI) { aI.mAddresses.mOperStatus = Record::kDown; });
  EXPECT_EQ(Discover(), NS_OK);
  second.push_back("debug system.manager: Update adapter sysPath=eth0");
  second.insert(second.end(), first.end() - 3, first.end());
  second.push_back("debug system.manager: Adapter is modified");
  EXPECT_EQ(TakeLog("debug"), second);
  Network().Alter("eth0", [](Interface& aI) { aI.mPhysicalMedium = nsIfRow::kBluetooth; });
  EXPECT_EQ(Discover(), NS_OK);
  third.back() =
      "debug system.manager: ifRow.Type = 6 ifRow.MediaType = 0 ifRow.PhysicalMediumType= 10";
  third.insert(third.end(),
               {"debug system.manager: Network interface is not really a LAN interface",
                "debug system.manager: Update adapter sysPath=eth0"});
  third.insert(third.end(), first.end() - 3, first.end());
  EXPECT_EQ(TakeLog("debug"), third);
}

TEST_F(DiscoveryTest, AFailingCallLosesAnInterfaceForGoodOrEndsTheWalkWrongly) {
  NS_SweepFaults([&](nsSimulatedMachine& aMachine, bool aFaulty) {
    aMachine.mNetwork->Put(Wire("eth0", "02-00-00-00-00-01", {"10.0.0.1/8"}));
    aMachine.mNetwork->Put(Wire("eth1", "02-00-00-00-00-02", {}));
    const auto manager = NewManager(aMachine);
    const nsresult rv = manager->RefreshAdapters(nsISystemAdapterIP::kIID);
    if (aFaulty) {
      const std::string call = aMachine.mCalls->FailedCalls().at(0);
      if (call == "Network.GetAdaptersInfo") {
        EXPECT_EQ(rv, NS_OK);
        EXPECT_EQ(Names(*manager), Strings{}) << "no interface is in both pictures";
      } else if (call == "Network.GetAdaptersAddresses") {
        EXPECT_EQ(rv, NS_ERROR_FAILURE);
      } else if (call == "Network.GetIfEntry2") {
        EXPECT_EQ(rv, NS_OK);
        EXPECT_EQ(Names(*manager), (Strings{"lan eth0", "lan eth1"})) << "the type is kept";
      } else {
        EXPECT_EQ(rv, NS_ERROR_UNEXPECTED) << call;
      }
      EXPECT_EQ(manager->RefreshAdapters(nsISystemAdapterIP::kIID), NS_OK);
    } else {
      EXPECT_EQ(rv, NS_OK);
    }
    EXPECT_EQ(Names(*manager), (Strings{"lan eth0", "lan eth1"}));
    EXPECT_EQ(manager->Observe(nullptr, "xpcom-shutdown", nullptr), NS_OK);
  });
}

TEST_F(DiscoveryTest, AFailingRunRemovesWhatIsStillThere) {
  Network().Put(Wire("eth0", "02-00-00-00-00-01", {}));
  Network().Put(Wire("eth1", "02-00-00-00-00-02", {}));
  EXPECT_EQ(Discover(), NS_OK);
  Network().Remove("eth1");
  mMachine.mCalls->Fail({.mPort = "Network", .mMethod = "GetAdaptersAddresses"});
  EXPECT_EQ(Discover(), NS_ERROR_FAILURE);
  EXPECT_EQ(Names(), (Strings{"lan eth0", "lan eth1"}));
  EXPECT_EQ(Discover(), NS_OK);
  EXPECT_EQ(Names(), (Strings{"lan eth0"}));
}

// Descriptors may be out for long, and no link changes when they are there again.
TEST_F(DiscoveryTest, ARunThatFailsForLongIsTheLast) {
  NS_UseVirtualTime(true);
  Network().Put(Wire("eth0", "02-00-00-00-00-01", {}));
  for (uint64_t time = 1; time <= 4; ++time)
    mMachine.mCalls->Fail({.mPort = "Network", .mMethod = "GetAdaptersAddresses", .mNumber = time});
  EXPECT_EQ(Discover(), NS_ERROR_FAILURE);
  NS_AdvanceTime(1000 + 2000 + 4000);
  EXPECT_EQ(Names(), Strings{});
  EXPECT_EQ(TakeLog("warning").size(), 4u);
  NS_AdvanceTime(7999);
  EXPECT_EQ(Names(), Strings{});
  NS_AdvanceTime(1);
  EXPECT_EQ(Names(), (Strings{"lan eth0"}));
  Network().Put(Wire("eth1", "02-00-00-00-00-02", {}));
  NS_AdvanceTime(1'000'000);
  EXPECT_EQ(Names(), (Strings{"lan eth0"})) << "it goes on looking";
  NS_UseVirtualTime(false);
}

TEST_F(DiscoveryTest, TheLinkTopicOrAnotherInterfaceRefreshesWrongly) {
  Network().Put(Wire("eth0", "02-00-00-00-00-01", {}));
  EXPECT_EQ(mManager->RefreshAdapters(nsISystemAdapter::kIID), NS_OK);
  EXPECT_EQ(Names(), Strings{});
  EXPECT_EQ(mManager->Observe(nullptr, "network:link-status-changed", u"up"), NS_OK);
  EXPECT_EQ(Names(), (Strings{"lan eth0"}));
}

TEST_F(DiscoveryTest, ManyRandomChangesEndInAnotherPictureThanTheMachines) {
  std::mt19937 random(27);
  std::map<std::string, bool> links;
  for (int change = 0; change < 10000; ++change) {
    const std::string name = "eth" + std::to_string(random() % 20);
    switch (random() % 4) {
      case 0:
        Network().Remove(name);
        break;
      case 1:
        Network().Put(Wire(name, "02-00-00-00-00-01", {"10.0.0.1/8"}));
        break;
      case 2:
        Network().Alter(name, [](Interface& aI) { aI.mAddresses.mOperStatus ^= 3; });
        break;
      default:
        Network().Alter(name, [](Interface& aI) { aI.mHasInfo = !aI.mHasInfo; });
        break;
    }
    if (random() % 5 == 0) {
      ASSERT_EQ(Discover(), NS_OK);
    }
  }
  ASSERT_EQ(Discover(), NS_OK);
  std::vector<Record> records;
  std::vector<nsAdapterInfo> infos;
  ASSERT_EQ(Network().Read()->GetAdaptersAddresses(0, 0, &records), NS_OK);
  (void)Network().Read()->GetAdaptersInfo(&infos);
  std::map<std::string, uint32_t> wanted, is;
  for (const auto& info : infos)
    for (const auto& record : records)
      if (record.mAdapterName == info.mAdapterName)
        wanted[record.mAdapterName] = record.mOperStatus;
  for (const auto& adapter : Adapters(*mManager))
    ASSERT_EQ(adapter->GetOperStatus(&is[NS_TextOf(adapter, &nsISystemAdapterIP::GetSysPath)]),
              NS_OK);
  EXPECT_EQ(is, wanted);
}

}  // namespace

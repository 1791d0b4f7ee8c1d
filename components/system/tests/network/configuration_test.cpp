// Stored settings on trial: what is refused, what is taken back and when, and every call failing.
#include "nsAddressText.h"
#include "nsFaultSweep.h"
#include "nsHostTime.h"
#include "nsIObserverService.h"
#include "nsNetworkTest.h"
#include "nsSystemNetworkConfiguration.h"

namespace {

using R = nsPlatformRegistry;
using I = nsISystemNetworkConfiguration;
using Strings = std::vector<std::string>;

void Store(nsSimulatedMachine& aMachine, const std::string& aName, const Strings& aAddresses,
           const Strings& aMasks, const Strings& aGateways, const std::string& aServers = "") {
  const std::string key = NS_TcpipInterfaceKey(aName);
  aMachine.mRegistry->Put(key, {"EnableDHCP", R::kDword, NS_RegistryDword(0)});
  aMachine.mRegistry->Put(key, {"IpAddress", R::kMultiString, NS_RegistryStrings(aAddresses)});
  aMachine.mRegistry->Put(key, {"SubnetMask", R::kMultiString, NS_RegistryStrings(aMasks)});
  aMachine.mRegistry->Put(key, {"DefaultGateway", R::kMultiString, NS_RegistryStrings(aGateways)});
  aMachine.mRegistry->Put(key, {"NameServer", R::kString, NS_RegistryString(aServers)});
}

// "eth0 192.0.2.10/24 via 192.0.2.1 dns 192.0.2.53", a line an interface.
std::string Live(nsSimulatedMachine& aMachine) {
  std::string text;
  const auto dotted = [](const nsSocketAddress& aAddress) {
    return vorel::address::FormatIPv4(std::span(aAddress.mBytes).first<4>());
  };
  for (const nsSimulatedInterface& interface : aMachine.mNetwork->Interfaces()) {
    text += interface.mAddresses.mAdapterName;
    for (const auto& address : interface.mAddresses.mUnicastAddresses)
      text += " " + dotted(address.mAddress) + "/" + std::to_string(address.mOnLinkPrefixLength);
    for (const std::string& gateway : interface.mGateways) text += " via " + gateway;
    for (const auto& server : interface.mAddresses.mDnsServers) text += " dns " + dotted(server);
    text += "\n";
  }
  const uint32_t igmp = aMachine.mNetworkSettings->IgmpVersion();
  return igmp == 0 ? text : text + "igmp " + std::to_string(igmp) + "\n";
}

constexpr char kFormer[] =
    "eth0 192.0.2.5/24 via 192.0.2.1 dns 192.0.2.53\n"
    "eth1 198.51.100.5/24\n"
    "eth2 203.0.113.5/24\n";
constexpr char kStored[] =
    "eth0 192.0.2.10/25 192.0.2.200/25 via 192.0.2.126 dns 9.9.9.9 dns 8.8.8.8\n"
    "eth1 198.51.100.6/24\n"
    "eth2 203.0.113.5/24\n"
    "igmp 2\n";

void StoreIgmp(nsSimulatedMachine& aMachine, uint32_t aNumber) {
  aMachine.mRegistry->Put(std::string(kTcpipParametersKey),
                          {"IGMPVersion", R::kDword, NS_RegistryDword(aNumber)});
}

// Three wires; the store has something new of two, and of the machine, and nothing of the third.
void Furnish(nsSimulatedMachine& aMachine) {
  auto first = nsSimulatedNetwork::Wire("eth0", "02-00-00-00-00-01", {"192.0.2.5/24"});
  first.mGateways = {"192.0.2.1"};
  first.mAddresses.mDnsServers = {nsSimulatedNetwork::Server("192.0.2.53")};
  aMachine.mNetwork->Put(first);
  aMachine.mNetwork->Put(
      nsSimulatedNetwork::Wire("eth1", "02-00-00-00-00-02", {"198.51.100.5/24"}));
  aMachine.mNetwork->Put(nsSimulatedNetwork::Wire("eth2", "02-00-00-00-00-03", {"203.0.113.5/24"}));
  Store(aMachine, "eth0", {"192.0.2.10", "192.0.2.200"}, {"255.255.255.128", "255.255.255.128"},
        {"192.0.2.126"}, "9.9.9.9,8.8.8.8");
  Store(aMachine, "eth1", {"198.51.100.6"}, {"255.255.255.0"}, {});
  StoreIgmp(aMachine, 3);
}

class Observer final : public nsImplements<Observer, nsIObserver> {
 public:
  std::string mHeard;
  nsresult Observe(nsISupports*, const char*, const char16_t* aData) override {
    mHeard += NS_ToUtf8(std::u16string(aData)) + " ";
    return NS_OK;
  }

 private:
  ~Observer() override = default;
};

class ConfigurationTest : public nsSystemTest {
 protected:
  void SetUp() override {
    StartHost();
    NS_UseVirtualTime(true);
    Furnish(mMachine);
    ASSERT_EQ(do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID)
                  ->AddObserver(mObserver.get(), kNetworkConfigurationTopic, false),
              NS_OK);
  }
  void TearDown() override {
    for (const auto& service : mMade) (void)service->Observe(nullptr, "xpcom-shutdown", nullptr);
    mMade.clear();
    NS_UseVirtualTime(false);
  }
  /// One process of the machine, when it has started.
  nsCOMPtr<nsSystemNetworkConfiguration> New(nsSimulatedMachine& aMachine) {
    nsCOMPtr<nsSystemNetworkConfiguration> service =
        MakeRefCounted<nsSystemNetworkConfiguration>(aMachine.Platform());
    EXPECT_EQ(service->InitSingleton(), NS_OK);
    mMade.push_back(service);
    (void)Settled(service);
    return service;
  }
  /// The state, once no step is under way.
  static uint32_t Settled(const nsCOMPtr<nsSystemNetworkConfiguration>& aService) {
    uint32_t state = 99;
    do {
      NS_AdvanceTime(0);
      EXPECT_EQ(aService->GetState(&state), NS_OK);
      // A step that began and did not say so is the confirmation.
    } while (state == I::STATE_APPLYING || state == I::STATE_ROLLING_BACK);
    return state;
  }
  static uint32_t Until(const nsCOMPtr<nsSystemNetworkConfiguration>& aService, uint32_t aState) {
    uint32_t state = 99;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    do {
      NS_AdvanceTime(0);
      EXPECT_EQ(aService->GetState(&state), NS_OK);
    } while (state != aState && std::chrono::steady_clock::now() < end);
    return state;
  }
  static uint32_t Apply(const nsCOMPtr<nsSystemNetworkConfiguration>& aService,
                        uint32_t aSeconds = 60) {
    EXPECT_EQ(aService->Apply(aSeconds), NS_OK) << ReasonOf(aService);
    return Settled(aService);
  }
  static void Advance(const nsCOMPtr<nsSystemNetworkConfiguration>& aService, uint32_t aTime) {
    NS_AdvanceTime(aTime);
    (void)Settled(aService);
  }
  static std::string ReasonOf(const nsCOMPtr<nsSystemNetworkConfiguration>& aService) {
    nsCString reason;
    EXPECT_EQ(aService->GetReason(reason), NS_OK);
    return std::string(reason.view());
  }
  static nsNetworkState::Phase PhaseOf(nsSimulatedMachine& aMachine) {
    const auto text = aMachine.mNetworkSettings->State();
    const auto state = text ? nsNetworkState::Parse(*text) : nsNetworkState();
    EXPECT_TRUE(state);
    return state ? state->mPhase : nsNetworkState::eTrial;
  }

  const nsCOMPtr<Observer> mObserver = MakeRefCounted<Observer>();
  std::vector<nsCOMPtr<nsSystemNetworkConfiguration>> mMade;
};

TEST_F(ConfigurationTest, ATrialIsNotTakenBackAtItsTime) {
  const auto service = New(mMachine);
  EXPECT_EQ(service->Confirm(), NS_OK);
  EXPECT_EQ(Until(service, I::STATE_REFUSED), I::STATE_REFUSED);
  EXPECT_EQ(ReasonOf(service), "nothing is on trial");
  ASSERT_EQ(Apply(service), I::STATE_WAITING) << ReasonOf(service);
  EXPECT_EQ(Live(mMachine), kStored);
  EXPECT_EQ(service->Apply(60), NS_ERROR_IN_PROGRESS);
  Advance(service, 59'999);
  EXPECT_EQ(Live(mMachine), kStored);
  Advance(service, 1);
  EXPECT_EQ(Live(mMachine), kFormer);
  EXPECT_EQ(Settled(service), I::STATE_ROLLED_BACK);
  EXPECT_EQ(PhaseOf(mMachine), nsNetworkState::eNone);
  EXPECT_EQ(mObserver->mHeard, "refused applying waiting rolling-back rolled-back ");
}

TEST_F(ConfigurationTest, AConfirmedTrialIsTakenBack) {
  const auto service = New(mMachine);
  ASSERT_EQ(Apply(service, 1), I::STATE_WAITING);
  ASSERT_EQ(service->Confirm(), NS_OK);
  // The time is over while it is confirmed.
  NS_AdvanceTime(3'600'000);
  ASSERT_EQ(Until(service, I::STATE_CONFIRMED), I::STATE_CONFIRMED);
  NS_AdvanceTime(3'600'000);
  EXPECT_EQ(Live(mMachine), kStored);
  EXPECT_EQ(PhaseOf(mMachine), nsNetworkState::eNone);
  nsCString confirmed;
  EXPECT_EQ(service->GetConfirmedSettings(nsString(u"eth1"), confirmed), NS_OK);
  EXPECT_EQ(confirmed.view(), "address 198.51.100.6/24\n");
  // Nothing differs any more: nothing is touched.
  (void)mMachine.mCalls->TakeJournal();
  EXPECT_EQ(Apply(service), I::STATE_CONFIRMED);
  EXPECT_EQ(mMachine.mCalls->TakeJournal(), Strings());
}

TEST_F(ConfigurationTest, ATrialOutlivesItsProcess) {
  const auto service = New(mMachine);
  ASSERT_EQ(Apply(service), I::STATE_WAITING);
  const auto left = mMachine.mNetworkSettings->State();
  ASSERT_TRUE(left);
  // While it lives, another process leaves its trial alone.
  const auto other = New(mMachine);
  EXPECT_EQ(Settled(other), I::STATE_IDLE);
  EXPECT_EQ(Apply(other), I::STATE_REFUSED);
  EXPECT_EQ(ReasonOf(other), "another process has settings on trial");
  EXPECT_EQ(Live(mMachine), kStored);
  EXPECT_EQ(service->Observe(nullptr, "xpcom-shutdown", nullptr), NS_OK);
  EXPECT_EQ(Live(mMachine), kFormer);

  // One that died has left what the records of its machine tell.
  ASSERT_EQ(Apply(other), I::STATE_WAITING) << ReasonOf(other);
  const auto text = mMachine.mNetworkSettings->State();
  EXPECT_EQ(other->Observe(nullptr, "xpcom-shutdown", nullptr), NS_OK);
  mMachine.mNetwork->Alter("eth0", [](nsSimulatedInterface& aOne) { aOne.mGateways.clear(); });
  mMachine.mNetworkSettings->SetState(text);
  const auto next = New(mMachine);
  EXPECT_EQ(Settled(next), I::STATE_ROLLED_BACK);
  EXPECT_EQ(Live(mMachine), kFormer);
  // Any part of a state, and any bytes, do no harm.
  for (size_t length = 0; length < text->size(); length += 7) {
    mMachine.mNetworkSettings->SetState(text->substr(0, length));
    EXPECT_EQ(Settled(New(mMachine)), I::STATE_IDLE) << length;
  }
}

TEST_F(ConfigurationTest, AnotherProcessCantConfirmOrTakeBack) {
  const auto service = New(mMachine), other = New(mMachine);
  ASSERT_EQ(Apply(service), I::STATE_WAITING);
  EXPECT_EQ(other->Confirm(), NS_OK);
  EXPECT_EQ(Until(other, I::STATE_CONFIRMED), I::STATE_CONFIRMED) << ReasonOf(other);
  EXPECT_EQ(Settled(service), I::STATE_CONFIRMED);
  EXPECT_EQ(Live(mMachine), kStored);
  Store(mMachine, "eth1", {"198.51.100.7"}, {"255.255.255.0"}, {});
  ASSERT_EQ(Apply(service), I::STATE_WAITING);
  EXPECT_EQ(other->Rollback(), NS_OK);
  EXPECT_EQ(Until(other, I::STATE_ROLLED_BACK), I::STATE_ROLLED_BACK) << ReasonOf(other);
  EXPECT_EQ(Live(mMachine), kStored);
}

TEST_F(ConfigurationTest, WhatWasOnlyReadCountsAsStored) {
  nsSimulatedMachine machine;
  machine.mNetwork->Put(nsSimulatedNetwork::Wire("eth0", "02-00-00-00-00-01", {"192.0.2.5/24"}));
  const auto platform = machine.Platform();
  std::unique_ptr<nsPlatformRegistryKey> key;
  const std::string path = NS_TcpipInterfaceKey("eth0");
  ASSERT_EQ(platform->mRegistry->OpenKey(path, R::kRead | R::kSetValue, &key), NS_OK);
  bool isWritten = true;
  EXPECT_EQ(platform->mRegistry->IsWritten(path, &isWritten), NS_OK);
  EXPECT_FALSE(isWritten);
  ASSERT_EQ(key->SetValue("EnableDHCP", R::kDword, NS_RegistryDword(0)), NS_OK);
  EXPECT_EQ(platform->mRegistry->IsWritten(path, &isWritten), NS_OK);
  EXPECT_TRUE(isWritten);
}

TEST_F(ConfigurationTest, WrongSettingsComeIntoForceOrAreNotNamed) {
  const struct {
    Strings mAddresses, mMasks, mGateways;
    std::string mServers, mReason;
  } cases[] = {
      {{"192.0.2.10"},
       {"255.255.255.0"},
       {"192.0.3.1"},
       "",
       "eth0: DefaultGateway 192.0.3.1 is outside every net of the interface"},
      {{"192.0.2.10"}, {"255.0.255.0"}, {}, "", "eth0: SubnetMask 255.0.255.0 has holes"},
      {{"192.0.2.10", "192.0.2.10"},
       {"255.255.255.0", "255.255.255.0"},
       {},
       "",
       "eth0: IPAddress 192.0.2.10 is there twice: eth0 has it too"},
      {{"192.0.2.0"}, {"255.255.255.0"}, {}, "", "eth0: IPAddress 192.0.2.0 is the whole net's"},
      {{"192.0.2.255"},
       {"255.255.255.0"},
       {},
       "",
       "eth0: IPAddress 192.0.2.255 is the whole net's"},
      {{"192.0.2.01"},
       {"255.255.255.0"},
       {},
       "",
       "eth0: IPAddress \"192.0.2.01\" is no IP address"},
      {{"192.0.2.1"}, {}, {}, "", "eth0: SubnetMask has 0 masks for 1 addresses"},
      {{"192.0.2.10"},
       {"255.255.255.0"},
       {},
       "1.1.1.1,one\n",
       "eth0: NameServer \"one?\" is no IP address"},
      {{"192.0.2.10"},
       {"255.255.255.0"},
       {"192.0.2.10"},
       "",
       "eth0: DefaultGateway 192.0.2.10 is the interface's own address"},
      {{"ff02::1"},
       {"ffff:ffff:ffff:ffff::"},
       {},
       "",
       "eth0: IPAddress ff02::1 is no address for an interface"},
      {{"2001:db8::1"},
       {"255.255.255.0"},
       {},
       "",
       "eth0: SubnetMask 255.255.255.0 is none for 2001:db8::1"},
      {{"2001:db8::1"},
       {"ffff:ffff:ffff:ffff::"},
       {"2001:db9::1"},
       "",
       "eth0: DefaultGateway 2001:db9::1 is outside every net of the interface"},
  };
  const auto service = New(mMachine);
  for (const auto& each : cases) {
    Store(mMachine, "eth0", each.mAddresses, each.mMasks, each.mGateways, each.mServers);
    EXPECT_EQ(service->Apply(60), NS_ERROR_INVALID_ARG) << each.mReason;
    EXPECT_EQ(ReasonOf(service), each.mReason);
    EXPECT_EQ(Live(mMachine), kFormer);
  }
  Furnish(mMachine);
  for (const uint32_t number : {1u, 5u, 0x203u}) {
    StoreIgmp(mMachine, number);
    EXPECT_EQ(service->Apply(60), NS_ERROR_INVALID_ARG);
    EXPECT_EQ(ReasonOf(service),
              "IGMPVersion is none of 2, 3 and 4, which stand for the versions 1 to 3");
  }
  StoreIgmp(mMachine, 3);
  EXPECT_EQ(service->Apply(0), NS_ERROR_INVALID_ARG);
  EXPECT_EQ(service->Apply(86'401), NS_ERROR_INVALID_ARG);
  // Texts that are not stored yet, beside those that are.
  const auto check = [&](bool aDhcp, const char* aAddress, const char* aGateway,
                         const char* aServers) {
    nsCString problems;
    EXPECT_EQ(service->CheckSettings(nsString(u"eth0"), aDhcp, nsCString(aAddress),
                                     nsCString(aGateway), nsCString(aServers), problems),
              NS_OK);
    return std::string(problems.view());
  };
  EXPECT_EQ(check(false, "192.0.2.9/24", "192.0.2.1", "9.9.9.9,8.8.8.8"), "");
  EXPECT_EQ(check(true, "", "", ""), "");
  EXPECT_EQ(check(false, "192.0.2.9/255.0.255.0", "", ""),
            "eth0: SubnetMask 255.0.255.0 has holes");
  EXPECT_EQ(check(false, "192.0.2.9/33", "", ""), "eth0: SubnetMask \"33\" is no IP address");
  EXPECT_EQ(check(false, "", "", ""), "eth0: it has neither DHCP nor an address");
  Store(mMachine, "eth1", {"198.51.100.6"}, {"255.255.255.0"}, {});
  EXPECT_EQ(check(false, "198.51.100.6/24", "", ""),
            "eth0: IPAddress 198.51.100.6 is there twice: eth1 has it too");
  // What only the system knows.
  mMachine.mRegistry->Put(NS_TcpipInterfaceKey("eth1"),
                          {"EnableDHCP", R::kDword, NS_RegistryDword(1)});
  mMachine.mNetworkSettings->SetWay({});
  EXPECT_EQ(Apply(service), I::STATE_REFUSED);
  EXPECT_TRUE(ReasonOf(service).starts_with("eth1: DHCP is stored, and nothing here gets leases"));
  mMachine.mNetworkSettings->SetWay({"", "dhclient", false, false});
  EXPECT_EQ(Apply(service), I::STATE_REFUSED);
  EXPECT_EQ(ReasonOf(service),
            "eth0: a fixed address is stored, and dhclient has the interface; stop it first");
  EXPECT_EQ(Live(mMachine), kFormer);
}

TEST_F(ConfigurationTest, AFaultOfTheSystemLeavesAMixture) {
  using Fault = nsSimulatedNetworkSettings;
  const auto service = New(mMachine);
  for (const auto fault : {Fault::eRefused, Fault::eHalfDone}) {
    mMachine.mNetworkSettings->SetFault("eth1", fault);
    EXPECT_EQ(Apply(service), I::STATE_ROLLED_BACK);
    EXPECT_EQ(Live(mMachine), kFormer);
    EXPECT_EQ(ReasonOf(service), "eth1: NS_ERROR_FAILURE");
  }
  mMachine.mNetworkSettings->SetFault("eth1", Fault::eLinkLost);
  EXPECT_EQ(Apply(service), I::STATE_WAITING);
  const auto statusOf = [&] { return mMachine.mNetwork->Interfaces()[1].mAddresses.mOperStatus; };
  EXPECT_EQ(statusOf(), nsAdapterAddresses::kDown);
  EXPECT_EQ(service->Rollback(), NS_OK);
  EXPECT_EQ(Settled(service), I::STATE_ROLLED_BACK);
  EXPECT_EQ(statusOf(), nsAdapterAddresses::kUp);
}

TEST_F(ConfigurationTest, ConfirmedSettingsAreNotPutBackAtTheMachinesStart) {
  mMachine.mNetworkSettings->SetWay({"", "", false, false});
  const auto service = New(mMachine);
  ASSERT_EQ(Apply(service), I::STATE_WAITING) << ReasonOf(service);
  ASSERT_EQ(service->Confirm(), NS_OK);
  ASSERT_EQ(Until(service, I::STATE_CONFIRMED), I::STATE_CONFIRMED);
  // What is stored and not confirmed is not for the start.
  Store(mMachine, "eth1", {"198.51.100.99"}, {"255.255.255.0"}, {});
  for (auto& interface : mMachine.mNetwork->Interfaces()) {
    interface.mAddresses.mUnicastAddresses.clear();
    interface.mGateways.clear();
    mMachine.mNetwork->Put(interface);
  }
  ASSERT_EQ(mMachine.Platform()->mNetworkSettings->WriteIgmpVersion(0), NS_OK);
  ASSERT_EQ(service->ApplyConfirmed(), NS_OK);
  ASSERT_EQ(Settled(service), I::STATE_CONFIRMED) << ReasonOf(service);
  EXPECT_EQ(Live(mMachine),
            std::string(kStored).substr(0, std::string(kStored).find("eth2")) + "eth2\nigmp 2\n");
  // One interface that has gone keeps nobody from another trial.
  mMachine.mNetwork->Remove("eth1");
  ASSERT_EQ(service->ApplyConfirmed(), NS_OK);
  EXPECT_EQ(Settled(service), I::STATE_FAILED);
  EXPECT_EQ(ReasonOf(service), "eth1: there is no such interface");
  Advance(service, 60'000);
  StoreIgmp(mMachine, 2);
  EXPECT_EQ(Apply(service), I::STATE_WAITING) << ReasonOf(service);
}

TEST_F(ConfigurationTest, ATrialStaysWhenItsServiceWasNotThere) {
  const auto service = New(mMachine);
  ASSERT_EQ(Apply(service), I::STATE_WAITING) << ReasonOf(service);
  const auto left = mMachine.mNetworkSettings->State();
  mMachine.mNetworkSettings->SetAway(true);
  Advance(service, 60'000);
  EXPECT_EQ(Settled(service), I::STATE_FAILED);
  EXPECT_EQ(PhaseOf(mMachine), nsNetworkState::eTrial);
  mMachine.mNetworkSettings->SetAway(false);
  Advance(service, 5'000);
  EXPECT_EQ(Settled(service), I::STATE_ROLLED_BACK);
  EXPECT_EQ(Live(mMachine), kFormer);

  // What the service has kept is its own: it is waited for, and nothing is changed without it.
  const auto other = New(mMachine);
  ASSERT_EQ(Apply(other), I::STATE_WAITING);
  ASSERT_EQ(other->Confirm(), NS_OK);
  ASSERT_EQ(Until(other, I::STATE_CONFIRMED), I::STATE_CONFIRMED);
  mMachine.mNetworkSettings->SetAway(true);
  (void)mMachine.mCalls->TakeJournal();
  ASSERT_EQ(other->ApplyConfirmed(), NS_OK);
  mMachine.mNetworkSettings->SetAway(false);
  EXPECT_EQ(Settled(other), I::STATE_CONFIRMED) << ReasonOf(other);
  EXPECT_EQ(mMachine.mCalls->TakeJournal(), Strings());

  // At the start of a process, beside which the service comes up; and one that ends meanwhile.
  for (const bool comes : {true, false}) {
    mMachine.mNetworkSettings->SetState(left);
    mMachine.mNetworkSettings->SetAway(true);
    nsCOMPtr<nsSystemNetworkConfiguration> started =
        MakeRefCounted<nsSystemNetworkConfiguration>(mMachine.Platform());
    mMade.push_back(started);
    ASSERT_EQ(started->InitSingleton(), NS_OK);
    NS_AdvanceTime(0);
    uint32_t state = 0;
    EXPECT_EQ(started->GetState(&state), NS_OK);
    EXPECT_EQ(state, I::STATE_ROLLING_BACK);
    const auto began = std::chrono::steady_clock::now();
    if (comes) {
      mMachine.mNetworkSettings->SetAway(false);
      EXPECT_EQ(Settled(started), I::STATE_ROLLED_BACK) << ReasonOf(started);
      EXPECT_EQ(Live(mMachine), kFormer);
    } else {
      EXPECT_EQ(started->Observe(nullptr, "xpcom-shutdown", nullptr), NS_OK);
      EXPECT_EQ(PhaseOf(mMachine), nsNetworkState::eTrial);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(10));
  }
}

TEST_F(ConfigurationTest, ACallThatFailsLeavesAMixture) {
  for (const bool isConfirmed : {false, true})
    NS_SweepFaults([&](nsSimulatedMachine& aMachine, bool aFaulty) {
      Furnish(aMachine);
      const auto service = New(aMachine);
      const bool began = NS_SUCCEEDED(service->Apply(60));
      const bool applied = Settled(service) == I::STATE_WAITING;
      if (!aFaulty) {
        ASSERT_TRUE(began && applied);
      }
      EXPECT_EQ(Live(aMachine), applied ? kStored : kFormer);
      bool kept = false;
      if (applied && isConfirmed) {
        mObserver->mHeard.clear();
        EXPECT_EQ(service->Confirm(), NS_OK);
        while (mObserver->mHeard.empty()) NS_AdvanceTime(0);
        kept = Settled(service) == I::STATE_CONFIRMED;
        EXPECT_TRUE(kept || aFaulty);
      }
      // What can't be put back at once is put back at the next try; what can't be removed once it
      // is confirmed, by the next start.
      Advance(service, 60'000);
      Advance(service, 5'000);
      EXPECT_EQ(Live(aMachine), kept ? kStored : kFormer);
      EXPECT_NE(Settled(service), I::STATE_FAILED);
      (void)New(aMachine);
      EXPECT_EQ(PhaseOf(aMachine), nsNetworkState::eNone);
      EXPECT_EQ(Live(aMachine), kept ? kStored : kFormer);
    });
}

}  // namespace

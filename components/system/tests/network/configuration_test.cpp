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
  return text;
}

constexpr char kFormer[] =
    "eth0 192.0.2.5/24 via 192.0.2.1 dns 192.0.2.53\n"
    "eth1 198.51.100.5/24\n"
    "eth2 203.0.113.5/24\n";
constexpr char kStored[] =
    "eth0 192.0.2.10/25 192.0.2.200/25 via 192.0.2.126 dns 9.9.9.9 dns 8.8.8.8\n"
    "eth1 198.51.100.6/24\n"
    "eth2 203.0.113.5/24\n";

// Three wires; the store has something new of two, and nothing of the third.
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
  nsCOMPtr<nsSystemNetworkConfiguration> New(nsSimulatedMachine& aMachine) {
    nsCOMPtr<nsSystemNetworkConfiguration> service =
        MakeRefCounted<nsSystemNetworkConfiguration>(aMachine.Platform());
    EXPECT_EQ(service->InitSingleton(), NS_OK);
    mMade.push_back(service);
    return service;
  }
  static uint32_t StateOf(const nsCOMPtr<nsSystemNetworkConfiguration>& aService) {
    uint32_t state = 99;
    EXPECT_EQ(aService->GetState(&state), NS_OK);
    return state;
  }
  static std::string ReasonOf(const nsCOMPtr<nsSystemNetworkConfiguration>& aService) {
    nsCString reason;
    EXPECT_EQ(aService->GetReason(reason), NS_OK);
    return std::string(reason.view());
  }

  const nsCOMPtr<Observer> mObserver = MakeRefCounted<Observer>();
  std::vector<nsCOMPtr<nsSystemNetworkConfiguration>> mMade;
};

TEST_F(ConfigurationTest, ATrialIsNotTakenBackAtItsTime) {
  const auto service = New(mMachine);
  EXPECT_EQ(service->Confirm(), NS_ERROR_NOT_AVAILABLE);
  EXPECT_EQ(service->Rollback(), NS_ERROR_NOT_AVAILABLE);
  ASSERT_EQ(service->Apply(60), NS_OK) << ReasonOf(service);
  EXPECT_EQ(Live(mMachine), kStored);
  EXPECT_EQ(service->Apply(60), NS_ERROR_IN_PROGRESS);
  NS_AdvanceTime(59'999);
  EXPECT_EQ(Live(mMachine), kStored);
  NS_AdvanceTime(1);
  EXPECT_EQ(Live(mMachine), kFormer);
  EXPECT_EQ(StateOf(service), I::STATE_ROLLED_BACK);
  EXPECT_EQ(mMachine.mNetworkSettings->Journal(), std::nullopt);
  EXPECT_EQ(mObserver->mHeard, "applying waiting rolled-back ");
}

TEST_F(ConfigurationTest, AConfirmedTrialIsTakenBack) {
  const auto service = New(mMachine);
  ASSERT_EQ(service->Apply(1), NS_OK);
  ASSERT_EQ(service->Confirm(), NS_OK);
  NS_AdvanceTime(3'600'000);
  EXPECT_EQ(service->Rollback(), NS_ERROR_NOT_AVAILABLE);
  EXPECT_EQ(Live(mMachine), kStored);
  EXPECT_EQ(mMachine.mNetworkSettings->Journal(), std::nullopt);
  // Nothing differs any more: nothing is touched.
  (void)mMachine.mCalls->TakeJournal();
  EXPECT_EQ(service->Apply(1), NS_OK);
  EXPECT_EQ(StateOf(service), I::STATE_CONFIRMED);
  EXPECT_EQ(mMachine.mCalls->TakeJournal(), Strings());
}

TEST_F(ConfigurationTest, ATrialOutlivesItsProcess) {
  std::optional<std::string> journal;
  {
    const auto service = New(mMachine);
    ASSERT_EQ(service->Apply(60), NS_OK);
    journal = mMachine.mNetworkSettings->Journal();
    ASSERT_TRUE(journal);
    // While it lives, another process leaves its trial alone.
    mMachine.mNetworkSettings->SetJournalTaken(true);
    const auto other = New(mMachine);
    EXPECT_EQ(StateOf(other), I::STATE_IDLE);
    EXPECT_EQ(Live(mMachine), kStored);
    Store(mMachine, "eth1", {"198.51.100.7"}, {"255.255.255.0"}, {});
    EXPECT_EQ(other->Apply(60), NS_ERROR_FILE_IS_LOCKED);
    mMachine.mNetworkSettings->SetJournalTaken(false);
  }
  const auto next = New(mMachine);
  EXPECT_EQ(StateOf(next), I::STATE_ROLLED_BACK);
  EXPECT_EQ(Live(mMachine), kFormer);
  // Any part of a journal, and any bytes, do no harm.
  for (size_t length = 0; length < journal->size(); length += 7) {
    mMachine.mNetworkSettings->SetJournal(journal->substr(0, length));
    EXPECT_EQ(StateOf(New(mMachine)), I::STATE_IDLE) << length;
  }
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
      {{"192.0.2.01"},
       {"255.255.255.0"},
       {},
       "",
       "eth0: IPAddress \"192.0.2.01\" is no IPv4 address"},
      {{"192.0.2.1"}, {}, {}, "", "eth0: SubnetMask has 0 masks for 1 addresses"},
      {{"192.0.2.10"},
       {"255.255.255.0"},
       {},
       "1.1.1.1,one\n",
       "eth0: NameServer \"one?\" is no IPv4 address"},
      {{"192.0.2.10"},
       {"255.255.255.0"},
       {"192.0.2.10"},
       "",
       "eth0: DefaultGateway 192.0.2.10 is the interface's own address"},
  };
  const auto service = New(mMachine);
  for (const auto& each : cases) {
    Store(mMachine, "eth0", each.mAddresses, each.mMasks, each.mGateways, each.mServers);
    EXPECT_EQ(service->Apply(60), NS_ERROR_INVALID_ARG) << each.mReason;
    EXPECT_EQ(ReasonOf(service), each.mReason);
    EXPECT_EQ(Live(mMachine), kFormer);
  }
  Furnish(mMachine);
  EXPECT_EQ(service->Apply(0), NS_ERROR_INVALID_ARG);
  EXPECT_EQ(service->Apply(86'401), NS_ERROR_INVALID_ARG);
  mMachine.mNetworkSettings->SetService("NetworkManager");
  EXPECT_EQ(service->Apply(60), NS_ERROR_NOT_AVAILABLE);
  EXPECT_EQ(Live(mMachine), kFormer);
  EXPECT_EQ(mObserver->mHeard, "");
}

TEST_F(ConfigurationTest, AHalfDoneChangeStays) {
  mMachine.mNetworkSettings->SetFailsHalfway("eth1");
  const auto service = New(mMachine);
  EXPECT_EQ(service->Apply(60), NS_ERROR_FAILURE);
  EXPECT_EQ(Live(mMachine), kFormer);
  EXPECT_EQ(StateOf(service), I::STATE_ROLLED_BACK);
  EXPECT_EQ(ReasonOf(service), "eth1: NS_ERROR_FAILURE");
}

TEST_F(ConfigurationTest, ACallThatFailsLeavesAMixture) {
  NS_SweepFaults([&](nsSimulatedMachine& aMachine, bool aFaulty) {
    Furnish(aMachine);
    const auto service = New(aMachine);
    const bool applied = NS_SUCCEEDED(service->Apply(60));
    if (!aFaulty) {
      ASSERT_TRUE(applied);
    }
    EXPECT_EQ(Live(aMachine), applied ? kStored : kFormer);
    EXPECT_EQ(StateOf(service) == I::STATE_WAITING, applied);
    // What can't be put back at once is put back at the next try.
    NS_AdvanceTime(60'000);
    NS_AdvanceTime(5'000);
    EXPECT_EQ(Live(aMachine), kFormer);
    EXPECT_EQ(aMachine.mNetworkSettings->Journal(), std::nullopt);
    EXPECT_NE(StateOf(service), I::STATE_FAILED);
  });
}

}  // namespace

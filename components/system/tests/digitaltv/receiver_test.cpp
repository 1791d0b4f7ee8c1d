// The receiver as an adapter: discovery, setting up, and what is known of the tuner.
#include "nsFaultSweep.h"
#include "nsISystemManager.h"
#include "nsReceiverTest.h"

namespace {

using Strings = std::vector<std::string>;
constexpr char kLog[] = "error system.adapter.digitaltvreceiver: ";

class ReceiverTest : public nsReceiverTest {
 protected:
  static std::vector<nsCOMPtr<nsISystemAdapterDigitalTvReceiver>> Receivers(
      nsISystemManager* aManager) {
    nsCOMPtr<nsIArray> adapters;
    EXPECT_EQ(aManager->GetAdaptersByIId(nsISystemAdapterDigitalTvReceiver::kIID,
                                         adapters.getter_AddRefs()),
              NS_OK);
    return NS_Elements<nsISystemAdapterDigitalTvReceiver>(adapters.get());
  }
  nsCOMPtr<nsSystemManager> Discover(nsresult aExpected = NS_OK) {
    const auto manager = MakeRefCounted<nsSystemManager>(Platform());
    EXPECT_EQ(manager->InitDVB(), aExpected);
    return manager;
  }
};

// ---- Discovery

TEST_F(ReceiverTest, AMachineWithoutTunersFails) {
  EXPECT_TRUE(Receivers(Discover().get()).empty());
}

TEST_F(ReceiverTest, ATunerIsDescribedInOtherWords) {
  mMachine.mTuners->Insert(kPath, NewTuner());
  mMachine.mTuners->Insert("tuner-1", NewTuner("tuner-1"));
  AllowProfile("digitaltvreceiver.express-card.express-card.*");
  const auto manager = MakeRefCounted<nsSystemManager>(Platform());
  const auto listener = MakeRefCounted<nsTestListener>();
  EXPECT_EQ(manager->AddAdapterListener(listener.get()), NS_OK);
  (void)manager->AddProfileBindingListener(listener.get());
  EXPECT_EQ(manager->InitDVB(), NS_OK);
  // An adapter is published before it has a label, and its bindings when it has been set up.
  EXPECT_EQ(listener->mHeard, (Strings{"adapter added ", "binding added digitaltvreceiver",
                                       "adapter added ", "binding added digitaltvreceiver"}));
  const auto receivers = Receivers(manager.get());
  ASSERT_EQ(receivers.size(), 2u);
  EXPECT_EQ(NS_TextOf(receivers[0], &nsISystemAdapter::GetSysPath), "tuner-0");
  EXPECT_EQ(NS_TextOf(receivers[1], &nsISystemAdapter::GetSysPath), "tuner-1");
  EXPECT_EQ(NS_TextOf(receivers[0], &nsISystemAdapter::GetLabel), "Stick");
  nsCOMPtr<nsISystemDevice> device;
  ASSERT_EQ(receivers[0]->GetDevice(device.getter_AddRefs()), NS_OK);
  EXPECT_EQ(NS_TextOf(device, &nsISystemDevice::GetName), "express-card");
  EXPECT_EQ(NS_TextOf(device, &nsISystemDevice::GetLabel), "express-card");
  nsCOMPtr<nsIArray> array;
  ASSERT_EQ(receivers[0]->GetConnectors(array.getter_AddRefs()), NS_OK);
  const auto connectors = NS_Elements<nsISystemConnector>(array.get());
  ASSERT_EQ(connectors.size(), 1u);
  EXPECT_EQ(NS_TextOf(connectors[0], &nsISystemConnector::GetName), "express-card");
  EXPECT_EQ(NS_TextOf(connectors[0], &nsISystemConnector::GetMask), "*");
  EXPECT_EQ(NS_TextOf(connectors[0], &nsISystemConnector::GetLabel), "express card connector");
  uint32_t system = 99;
  EXPECT_EQ(receivers[0]->GetDeliverySystem(&system), NS_OK);
  EXPECT_EQ(system, 2u);
}

TEST_F(ReceiverTest, ComponentsAreForgotten) {
  for (const size_t parts : {0u, 1u, 2u}) {
    SCOPED_TRACE(parts);
    nsSimulatedTuner tuner = NewTuner();
    for (size_t i = 0; i < parts; ++i)
      tuner.mInfo.mParts.push_back({"part-" + std::to_string(i), "Part"});
    mMachine.mTuners->Insert(kPath, tuner);
    (void)TakeLog({});
    const auto manager = Discover();
    const auto receivers = Receivers(manager.get());
    ASSERT_EQ(receivers.size(), 1u);
    const auto* receiver = static_cast<Receiver*>(receivers[0].get());
    EXPECT_EQ(receiver->mDemod.mPresent, parts == 2);
    EXPECT_EQ(receiver->mCapture.mPresent, parts >= 1);
    if (parts > 0) {
      EXPECT_EQ(receiver->mCapture.mDevicePath, parts == 1 ? u"part-0" : u"part-1");
    }
    const auto log = TakeLog("debug system.adapter.digitaltvreceiver: ");
    EXPECT_EQ(std::ranges::count(
                  log, "debug system.adapter.digitaltvreceiver: Demod <-> Capture : Success !"),
              parts == 2);
  }
}

TEST_F(ReceiverTest, ATunerThatCanNotBeSetUpHidesWhatWentBefore) {
  mMachine.mTuners->Insert(kPath, NewTuner());
  mMachine.mTuners->Insert("tuner-1", NewTuner("tuner-1"));
  Media().mOfDevices[IBDA_Topology::kIID] = nullptr;
  (void)TakeLog({});
  const auto manager = Discover(NS_ERROR_FAILURE);
  const auto log = TakeLog({});
  EXPECT_EQ(std::ranges::count(log, std::string(kLog) + "Cannot find IID_IBDA_Topology."), 1);
  EXPECT_EQ(log.back(), "warning debug: 'NS_ENSURE_SUCCESS(rv, rv) failed'");
  // It stays published, and no further one is looked at.
  const auto receivers = Receivers(manager.get());
  ASSERT_EQ(receivers.size(), 1u);
  nsCOMPtr<nsIArray> list;
  auto* const receiver = receivers[0].get();
  EXPECT_EQ(receiver->GetSupportedCountries(list.getter_AddRefs()), NS_ERROR_FAILURE);
  EXPECT_EQ(receiver->GetServices(list.getter_AddRefs()), NS_ERROR_FAILURE);
  EXPECT_EQ(receiver->GetServicesFoundByScan(list.getter_AddRefs()), NS_ERROR_FAILURE);
  EXPECT_EQ(receiver->SetServices(NewArray().get()), NS_ERROR_FAILURE);
  EXPECT_EQ(receiver->StopScan(), NS_OK);
  EXPECT_EQ(TakeLog(kLog), (Strings{std::string(kLog) + "mSupportedCountries uninitialized",
                                    std::string(kLog) + "mTvServices uninitialized",
                                    std::string(kLog) + "mTvServicesFoundByScan uninitialized",
                                    std::string(kLog) + "mTvServices uninitialized"}));
}

TEST_F(ReceiverTest, AFailingTunerIsNotTriedAgain) {
  NS_SweepFaults([&](nsSimulatedMachine& aMachine, bool aFaulty) {
    nsSimulatedTuner tuner = NewTuner();
    tuner.mInfo.mParts = {{"part-0", "Part"}};
    aMachine.mTuners->Insert(kPath, tuner);
    const auto manager = MakeRefCounted<nsSystemManager>(NS_WithMediaGraph(aMachine.Platform()));
    const nsresult rv = manager->InitDVB();
    if (!aFaulty) {
      EXPECT_EQ(rv, NS_OK);
      EXPECT_EQ(Receivers(manager.get()).size(), 1u);
    }
    for (const auto& receiver : Receivers(manager.get()))
      EXPECT_EQ(NS_TextOf(receiver, &nsISystemAdapter::GetSysPath), kPath);
    const size_t before = Receivers(manager.get()).size();
    if (aMachine.mCalls->FailedCalls().empty()) return;
    EXPECT_EQ(manager->InitDVB(), NS_OK);
    EXPECT_EQ(Receivers(manager.get()).size(), before + 1);
  });
}

// ---- Setting up

TEST_F(ReceiverTest, ANewReceiverIsNotEmpty) {
  const auto receiver = NewReceiver();
  uint32_t system = 0, quality = 77;
  int32_t level = 0;
  bool locked = true;
  EXPECT_EQ(receiver->GetDeliverySystem(&system), NS_OK);
  EXPECT_EQ(system, 4u);
  EXPECT_EQ(receiver->GetLocked(&locked), NS_ERROR_FAILURE);
  EXPECT_TRUE(locked);
  EXPECT_EQ(receiver->GetLevel(&level), NS_ERROR_FAILURE);
  EXPECT_EQ(level, -1);
  EXPECT_EQ(receiver->GetQuality(&quality), NS_OK);
  EXPECT_EQ(quality, 77u);
  EXPECT_FALSE(StreamOf(*receiver));
  EXPECT_EQ(receiver->Reserved(nullptr), NS_OK);
  EXPECT_EQ(receiver->Observe(nullptr, nullptr, nullptr), NS_OK);
  EXPECT_EQ(ProgressOf(*receiver), (Progress{1, 0, 0, 0, 0}));
  EXPECT_EQ(receiver->StartScan(nullptr), NS_ERROR_NULL_POINTER);
  EXPECT_EQ(receiver->StartScan(Country().get()), NS_ERROR_FAILURE);
  EXPECT_EQ(ProgressOf(*receiver).mState, -1);
  EXPECT_EQ(Select(*receiver, "Un"), NS_ERROR_FAILURE);
}

TEST_F(ReceiverTest, NodesOfATunerAreTakenForOthers) {
  const auto first = MakeRefCounted<nsTestStatistics>(), last = MakeRefCounted<nsTestStatistics>();
  last->mQuality = 12;
  const auto topology = MakeRefCounted<nsTestTopology>();
  Media().mOfDevices[IBDA_Topology::kIID] = topology;
  mMachine.mTuners->Insert(kPath, NewTuner());
  const auto systemOf = [&](std::vector<nsTestTopology::Node> aNodes) {
    topology->mNodes = std::move(aNodes);
    const auto receiver = NewReceiver();
    EXPECT_EQ(receiver->Init(), NS_OK);
    uint32_t system = 99, quality = 99;
    EXPECT_EQ(receiver->GetDeliverySystem(&system), NS_OK);
    EXPECT_EQ(receiver->GetQuality(&quality), NS_OK);
    return std::pair(system, quality);
  };
  // The first known function tells the system, the last statistics are the signal's.
  EXPECT_EQ(systemOf({{nsID{}, first},
                      {KSNODE_BDA_QAM_DEMODULATOR, last},
                      {KSNODE_BDA_COFDM_DEMODULATOR, nullptr}}),
            (std::pair(1u, 12u)));
  EXPECT_EQ(systemOf({{KSNODE_BDA_QPSK_DEMODULATOR, nullptr}}), (std::pair(0u, 99u)));
  EXPECT_EQ(systemOf({{KSNODE_BDA_8VSB_DEMODULATOR, first}}), (std::pair(3u, 90u)));
  EXPECT_EQ(systemOf({{nsID{}, first}}).first, 4u);
  EXPECT_TRUE(std::filesystem::exists(Directory() / "app/defaults/channelconf/dvb-unknown"));
  EXPECT_EQ(nsChannelsFile::Path(), "") << "a receiver that goes takes the place with it";
  EXPECT_EQ(systemOf({}).first, 4u);
  // More of them than there is room for.
  std::vector<nsTestTopology::Node> many(40, {nsID{}, first});
  many[25].mFunction = KSNODE_BDA_QPSK_DEMODULATOR;
  EXPECT_EQ(systemOf(many), (std::pair(4u, 90u)));
  many[19].mFunction = KSNODE_BDA_QAM_DEMODULATOR;
  EXPECT_EQ(systemOf(many).first, 1u);

  // Without descriptors there is neither system nor label, and the lists are there.
  topology->mDescriptorsResult = E_FAIL;
  const auto receiver = NewReceiver();
  EXPECT_EQ(receiver->Init(), NS_OK);
  nsString label;
  EXPECT_EQ(receiver->GetLabel(label), NS_OK);
  EXPECT_TRUE(label.IsEmpty());
  nsCOMPtr<nsIArray> list;
  EXPECT_EQ(receiver->GetSupportedCountries(list.getter_AddRefs()), NS_OK);
  topology->mNodesResult = E_FAIL;
  (void)TakeLog({});
  EXPECT_EQ(NewReceiver()->Init(), NS_ERROR_FAILURE);
  EXPECT_EQ(TakeLog(kLog), Strings{std::string(kLog) + "Cannot find Node Types."});
}

TEST_F(ReceiverTest, CountriesComeInAnotherOrder) {
  SetFrequencies({});
  mMachine.mTuners->Insert(kPath, NewTuner());
  mReceiver = NewReceiver();
  ASSERT_EQ(mReceiver->Init(), NS_OK);
  nsCOMPtr<nsIArray> list;
  ASSERT_EQ(mReceiver->GetSupportedCountries(list.getter_AddRefs()), NS_OK);
  auto countries = NS_Elements<nsIIsoCountry>(list.get());
  ASSERT_EQ(countries.size(), 1u);
  nsCString name, code;
  EXPECT_EQ(countries[0]->GetName(name), NS_OK);
  EXPECT_EQ(countries[0]->GetCode(code), NS_OK);
  EXPECT_EQ(name, "France");
  EXPECT_EQ(code, "FR");
  // The list is the caller's, what is in it is not.
  EXPECT_EQ(do_QueryInterface<nsIMutableArray>(list)->Clear(), NS_OK);
  ASSERT_EQ(mReceiver->GetSupportedCountries(list.getter_AddRefs()), NS_OK);
  EXPECT_EQ(NS_Elements<nsIIsoCountry>(list.get()), countries);

  Media().mOfClass[CLSID_DVBTNetworkProvider][IFrequencyMap::kIID] =
      MakeRefCounted<nsTestFrequencies>();
  (void)TakeLog({});
  EXPECT_EQ(NewReceiver()->Init(), NS_ERROR_FAILURE);
  EXPECT_EQ(TakeLog(kLog),
            Strings{std::string(kLog) + "Unable to retrieve country code list -2147467259"});
  Media().mOfClass[CLSID_DVBTNetworkProvider][IFrequencyMap::kIID] = nullptr;
  EXPECT_EQ(NewReceiver()->Init(), NS_ERROR_FAILURE);
  EXPECT_EQ(TakeLog(kLog), Strings{std::string(kLog) + "Cannot query Frequency Mapping interface"});
}

TEST_F(ReceiverTest, AMissingChannelsFileIsAFailure) {
  mMachine.mTuners->Insert(kPath, NewTuner());
  (void)TakeLog({});
  mReceiver = NewReceiver();
  EXPECT_EQ(mReceiver->Init(), NS_OK);
  EXPECT_EQ(TakeLog(kLog), Strings{std::string(kLog) +
                                   "Unable to parse channel file : " + nsChannelsFile::Path()});
  EXPECT_EQ(Stored(), "");
}

TEST_F(ReceiverTest, ADeviceWithoutANameIsLost) {
  nsSimulatedTuner tuner = NewTuner();
  tuner.mInfo.mName = "Clé de l'été";
  mMachine.mTuners->Insert(kPath, tuner);
  DirectShowSystemDeviceEnumerator devices(Platform(), KSCATEGORY_BDA_NETWORK_TUNER);
  std::unique_ptr<DirectShowSystemDevice> device, none;
  ASSERT_EQ(devices.Next(&device), NS_OK);
  EXPECT_EQ(device->mFriendlyName, u"Clé de l'été");
  EXPECT_EQ(device->mDevicePath, u"tuner-0");
  EXPECT_TRUE(device->mPresent);
  EXPECT_NE(devices.Next(&none), NS_OK);
  EXPECT_FALSE(none);
  Media().mFailAt[CLSID_SystemDeviceEnum] = 1;
  (void)TakeLog({});
  DirectShowSystemDeviceEnumerator broken(Platform(), KSCATEGORY_BDA_NETWORK_TUNER);
  EXPECT_EQ(broken.Next(&none), NS_ERROR_FAILURE);
  EXPECT_EQ(TakeLog("error "),
            Strings{"error system.digitaltvreceiver: Could not create device enumerator."});
}

}  // namespace

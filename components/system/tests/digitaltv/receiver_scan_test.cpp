// The receiver's scan, the merge of what is received twice, and the lists.
#include "nsReceiverTest.h"

namespace {

using Strings = std::vector<std::string>;
constexpr char kLog[] = "error system.adapter.digitaltvreceiver: ";

class ReceiverScanTest : public nsReceiverTest {
 protected:
  nsCOMPtr<nsIBDAScanResultDigitalTvService> NewService(const char* aName) {
    const auto service = MakeRefCounted<nsBDAScanResultDigitalTvService>();
    (void)service->SetName(nsCString(aName));
    (void)service->SetProvider(nsCString("P"));
    return nsCOMPtr<nsIBDAScanResultDigitalTvService>(service);
  }
  nsCOMPtr<nsIArray> ListOf(std::initializer_list<const char*> aNames) {
    const auto list = NewArray();
    for (const char* name : aNames) (void)list->AppendElement(NewService(name).get(), false);
    return list;
  }
};

TEST_F(ReceiverScanTest, WhatIsSentIsNotWhatIsFound) {
  SetFrequencies({474000, 482000, 490000});
  Receive({{474000, Sends({{.mId = 1, .mName = "Un"},
                           {.mId = 2, .mName = "\x05 Deux"},
                           {.mId = 3, .mName = ""},
                           {.mId = 4, .mName = "Vier", .mProvider = ""},
                           {.mId = 5, .mName = "\x1F bad"}})},
           {490000, Sends({{.mId = 1,
                            .mName = "Un",
                            .mVideoPid = 0,
                            .mAudio = {{0x201, "deu"}, {0x202, ""}}}})}});
  EXPECT_EQ(Scan(), (Progress{1, 3, 3, 2, 3}));
  EXPECT_EQ(NamesOf(Found(*mReceiver).get()), "Un/474000  Deux/474000 Un/490000 ")
      << "too far apart to be one";
  const auto log = TakeLog({});
  EXPECT_EQ(std::ranges::count(
                log, "debug system.adapter.digitaltvreceiver: Nothing found on 482000 kHz."),
            1);
  EXPECT_EQ(std::ranges::count(log, std::string(kLog) + "Failed to convert service name"), 1);

  const auto services = NS_Elements<nsIBDAScanResultDigitalTvService>(Found(*mReceiver).get());
  const auto number = [&](auto aGetter, size_t aIndex = 0) {
    std::remove_pointer_t<decltype(
        []<class C, class T>(nsresult (C::*)(T*)) -> T* { return nullptr; }(aGetter))>
        value = 0;
    EXPECT_EQ((services[aIndex].get()->*aGetter)(&value), NS_OK);
    return static_cast<int64_t>(value);
  };
  using S = nsIBDAScanResultDigitalTvService;
  EXPECT_EQ(number(&S::GetBandwidth), 8);
  EXPECT_EQ(number(&S::GetLevel), -50000);
  EXPECT_EQ(number(&S::GetQuality), 90);
  EXPECT_EQ(number(&S::GetServiceId), 1);
  EXPECT_EQ(number(&S::GetCodeRateHP), 2);
  EXPECT_EQ(number(&S::GetCodeRateLP), 0);
  EXPECT_EQ(number(&S::GetConstellation), 2);
  EXPECT_EQ(number(&S::GetTransmissionMode), 1);
  EXPECT_EQ(number(&S::GetHierarchy), 0);
  EXPECT_EQ(number(&S::GetVideoPid), 0x100);
  EXPECT_EQ(number(&S::GetPmtPid), 0x1001);
  EXPECT_EQ(number(&S::GetVideoPid, 2), 0);
  nsCOMPtr<nsIArray> channels;
  ASSERT_EQ(services[2]->GetAudioChannels(channels.getter_AddRefs()), NS_OK);
  std::string audio;
  for (const auto& channel : NS_Elements<nsIDigitalTvAudioChannel>(channels.get())) {
    nsCString language;
    uint32_t pid = 0, kind = 0;
    EXPECT_EQ(channel->GetLanguage(language), NS_OK);
    EXPECT_EQ(channel->GetPid(&pid), NS_OK);
    EXPECT_EQ(channel->GetType(&kind), NS_OK);
    audio +=
        std::to_string(pid) + "=" + std::string(language.view()) + "/" + std::to_string(kind) + " ";
  }
  EXPECT_EQ(audio, "513=deu/4 514=/4 ");
  EXPECT_EQ(Scan(), (Progress{1, 3, 3, 2, 3})) << "and a second time";
}

// ---- Received twice

TEST_F(ReceiverScanTest, TheWorseOfTwoReceptionsStays) {
  // On neighbouring frequencies the tuner hears the same transmitter; what it tells of the signal
  // decides, as it is when the second one is found.
  struct Case {
    const char* mWhy;
    std::vector<uint32_t> mFrequencies;
    std::pair<int32_t, int32_t> mQualities, mLevels;
    const char* mFound;
  };
  const Case cases[] = {
      {"better quality", {506000, 506166}, {50, 60}, {-10, -90}, "Un/506166 "},
      {"worse quality", {506166, 506000}, {60, 50}, {-90, -10}, "Un/506166 "},
      {"stronger", {506000, 506166}, {50, 50}, {-90, -10}, "Un/506166 "},
      {"weaker", {506166, 506000}, {50, 50}, {-10, -90}, "Un/506166 "},
      {"no multiple of 100", {506000, 506166}, {50, 50}, {-10, -10}, "Un/506000 "},
      {"a multiple of 100", {506166, 506000}, {50, 50}, {-10, -10}, "Un/506000 "},
      {"a multiple, found twice", {506000, 506000}, {50, 50}, {-10, -10}, "Un/506000 "},
      {"no multiple, found twice", {506166, 506166}, {50, 50}, {-10, -10}, "Un/506166 "},
  };
  SetFrequencies({});
  nsTestStatistics& statistics = Statistics();
  Receive({{506000, Sends({{.mName = "Un"}})}});
  for (const Case& each : cases) {
    SCOPED_TRACE(each.mWhy);
    SetFrequencies(each.mFrequencies);
    statistics.mSeries = {{each.mQualities.first, each.mLevels.first},
                          {each.mQualities.second, each.mLevels.second}};
    ASSERT_EQ(mReceiver->StartScan(Country().get()), NS_OK);
    EXPECT_EQ(EndOfScan(*mReceiver).mFound, 1u);
    EXPECT_EQ(NamesOf(Found(*mReceiver).get()), each.mFound);
  }
}

TEST_F(ReceiverScanTest, ServicesOfOtherNamesOrFarAwayAreMerged) {
  // 1000 kHz apart is two, 999 is one; the case of ASCII letters does not count, that of others
  // does.
  SetFrequencies({506000, 506999, 507000, 800000, 800100});
  Receive({{506000, Sends({{.mName = "Un"}, {.mId = 2, .mName = "\xC9t\xE9"}})},
           {506999, Sends({{.mName = "uN"}, {.mId = 2, .mName = "\xE9t\xE9"}})},
           {800000, Sends({{.mName = "Un"}})}});
  EXPECT_EQ(Scan().mLocked, 5u);
  // 507000 hears 506999: it takes the place of that one's, and is not near enough to 506000.
  EXPECT_EQ(NamesOf(Found(*mReceiver).get()),
            "Un/506000 \xC9t\xE9/506000 uN/507000 \xE9t\xE9/507000 Un/800100 ");
}

// ---- Starting and stopping

TEST_F(ReceiverScanTest, AFailureToStartLeavesAnotherState) {
  SetFrequencies({506000});
  Receive({});
  // A tuner that another program holds.
  mMachine.mTuners->Change(kPath, [](nsSimulatedTuner& aTuner) { aTuner.mUser = "recorder"; });
  (void)TakeLog({});
  EXPECT_EQ(mReceiver->StartScan(Country().get()), NS_ERROR_FAILURE);
  EXPECT_EQ(TakeLog(kLog).back(), std::string(kLog) + "Failed to run graph");
  EXPECT_EQ(ProgressOf(*mReceiver).mState, -1);
  mMachine.mTuners->Change(kPath, [](nsSimulatedTuner& aTuner) { aTuner.mUser = ""; });
  EXPECT_EQ(Scan(), (Progress{1, 1, 1, 0, 0}));
  // A country without frequencies of its own is one of code 0; and where the frequencies can't be
  // had, the state stays that of a running scan, for good.
  EXPECT_EQ(mReceiver->StartScan(Country("fr").get()), NS_ERROR_FAILURE);
  EXPECT_EQ(TakeLog(kLog).back(), std::string(kLog) +
                                      "Unable to retrieve default Frequency Mapping for 0 : "
                                      "-2147467259");
  EXPECT_EQ(ProgressOf(*mReceiver).mState, 0);
  EXPECT_EQ(mReceiver->StartScan(Country().get()), NS_ERROR_FAILURE);
  EXPECT_EQ(TakeLog(kLog).back(), std::string(kLog) + "Scan Already in progress");
  EXPECT_EQ(mReceiver->StopScan(), NS_OK);
  EXPECT_EQ(ProgressOf(*mReceiver).mState, 0);
}

TEST_F(ReceiverScanTest, ACountryWithoutFrequenciesNeverEnds) {
  SetFrequencies({});
  Receive({});
  EXPECT_EQ(Scan(), (Progress{1, 0, 0, 0, 0}));
}

TEST_F(ReceiverScanTest, AStoppedScanGoesOnOrWaitsForATable) {
  SetFrequencies({506000, 514000});
  nsSimulatedTransmitter silent;
  silent.mStream = nsSimulatedStream::Make(vorel::test::Bytes(188, 0x47));
  silent.mStalls = true;
  Receive({{506000, silent}, {514000, silent}});
  const auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(mReceiver->StartScan(Country().get()), NS_OK);
  EXPECT_EQ(mReceiver->StartScan(Country().get()), NS_ERROR_FAILURE) << "the scan is unharmed";
  while (ProgressOf(*mReceiver).mLocked == 0) std::this_thread::yield();
  EXPECT_EQ(mReceiver->StopScan(), NS_OK);
  EXPECT_EQ(EndOfScan(*mReceiver), (Progress{-2, 2, 1, 1, 0}));
  // The first table alone may take five seconds.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(4900));
  EXPECT_EQ(mReceiver->StopScan(), NS_OK) << "nothing runs";
  EXPECT_EQ(ProgressOf(*mReceiver).mState, -2);
}

TEST_F(ReceiverScanTest, TheApplicationsEndWaitsForTheScans) {
  SetFrequencies(std::vector<uint32_t>(100, 506000));
  nsSimulatedTuner tuner = NewTuner();
  tuner.mTransmitters[506000].mStream = nsSimulatedStream::Make(vorel::test::Bytes(188, 0x47));
  tuner.mTransmitters[506000].mStalls = true;
  mMachine.mTuners->Insert(kPath, tuner);
  const auto manager = MakeRefCounted<nsSystemManager>(Platform());
  ASSERT_EQ(manager->InitDVB(), NS_OK);
  nsCOMPtr<nsISystemAdapter> adapter;
  ASSERT_EQ(manager->GetAdapterBySysPath(nullptr, nsString(u"tuner-0"), adapter.getter_AddRefs()),
            NS_OK);
  mReceiver = static_cast<Receiver*>(adapter.get());
  ASSERT_EQ(mReceiver->StartScan(Country().get()), NS_OK);
  while (ProgressOf(*mReceiver).mLocked == 0) std::this_thread::yield();
  EXPECT_EQ(manager->Observe(nullptr, "xpcom-shutdown", nullptr), NS_OK);
  EXPECT_EQ(EndOfScan(*mReceiver), (Progress{-2, 100, 1, 1, 0}));
}

TEST_F(ReceiverScanTest, ATunerThatIsPulledOutEndsTheProcess) {
  SetFrequencies({506000, 514000, 522000});
  nsSimulatedTransmitter silent = Sends({{.mName = "Un"}});
  silent.mStalls = true;
  Receive({{506000, Sends({{.mName = "Un"}})}, {514000, silent}});
  ASSERT_EQ(mReceiver->StartScan(Country().get()), NS_OK);
  while (ProgressOf(*mReceiver).mLocked < 2) std::this_thread::yield();
  mMachine.mTuners->Remove(kPath);
  // Nothing more is found, and what was found stays.
  EXPECT_EQ(EndOfScan(*mReceiver), (Progress{1, 3, 3, 2, 1}));
  EXPECT_EQ(mReceiver->StartScan(Country().get()), NS_ERROR_FAILURE);
  EXPECT_EQ(ProgressOf(*mReceiver).mState, -1);
}

TEST_F(ReceiverScanTest, TwoReceiversDisturbEachOther) {
  SetFrequencies({506000, 514000});
  nsSimulatedTuner tuner = NewTuner("tuner-1");
  tuner.mTransmitters = {{506000, Sends({{.mName = "Deux"}})}};
  mMachine.mTuners->Insert("tuner-1", tuner);
  Receive({{506000, Sends({{.mName = "Un"}})}});
  const auto other = NewReceiver(u"tuner-1");
  ASSERT_EQ(other->Init(), NS_OK);
  // They share the event that ends a wait, so that one may end the other's too early, and that
  // frequency then has nothing: kept.
  for (int i = 0; i < 10; ++i) {
    ASSERT_EQ(mReceiver->StartScan(Country().get()), NS_OK);
    ASSERT_EQ(other->StartScan(Country().get()), NS_OK);
    const Progress one = EndOfScan(*mReceiver), two = EndOfScan(*other);
    EXPECT_EQ(one.mState, 1);
    EXPECT_EQ(two.mState, 1);
    EXPECT_EQ(one.mLocked, 1u);
    EXPECT_EQ(two.mLocked, 1u);
    EXPECT_LE(one.mFound, 1u);
    EXPECT_LE(two.mFound, 1u);
  }
}

// ---- Lists

TEST_F(ReceiverScanTest, ListsAreStoredThatShouldNotBe) {
  Receive({});
  EXPECT_EQ(mReceiver->SetServices(ListOf({"A", "B"}).get()), NS_OK);
  EXPECT_EQ(Stored(), "A/0 B/0 ");
  (void)TakeLog({});
  EXPECT_EQ(mReceiver->SetServices(ListOf({"C", "D", "d"}).get()), NS_ERROR_FAILURE);
  EXPECT_EQ(TakeLog(kLog),
            Strings{std::string(kLog) + "The same service was passed twice, aborting"});
  EXPECT_EQ(Stored(), "A/0 B/0 ");
  EXPECT_EQ(mReceiver->SetServices(nullptr), NS_ERROR_NULL_POINTER);
  EXPECT_EQ(Stored(), "A/0 B/0 ");

  // What is no service ends the list in memory, and the file stays; the next change of the file
  // brings them together again.
  const auto foreign = do_QueryInterface<nsIMutableArray>(ListOf({"E", "F"}));
  (void)foreign->InsertElementAt(Country().get(), 1, false);
  EXPECT_EQ(mReceiver->SetServices(foreign.get()), NS_ERROR_FAILURE);
  EXPECT_EQ(TakeLog(kLog), Strings{std::string(kLog) + "Incorrect array object type, should be "
                                                       "nsIBDAScanResultDigitalTvService"});
  EXPECT_EQ(Stored(), "E/0 ");
  std::ifstream file(nsChannelsFile::Path());
  std::string line;
  EXPECT_TRUE(std::getline(file, line) && line.starts_with("A(P)"));
  // Two of one name behind it are not compared any more; two in front of it are.
  const auto behind = do_QueryInterface<nsIMutableArray>(ListOf({"G", "H", "H"}));
  (void)behind->InsertElementAt(Country().get(), 1, false);
  EXPECT_EQ(mReceiver->SetServices(behind.get()), NS_ERROR_FAILURE);
  EXPECT_EQ(Stored(), "G/0 ");
  const auto before = do_QueryInterface<nsIMutableArray>(ListOf({"I", "I", "J"}));
  (void)before->InsertElementAt(Country().get(), 2, false);
  EXPECT_EQ(mReceiver->SetServices(before.get()), NS_ERROR_FAILURE);
  EXPECT_EQ(Stored(), "G/0 ");
  EXPECT_EQ(mReceiver->SetServices(NewArray().get()), NS_OK);
  EXPECT_EQ(Stored(), "");
  EXPECT_EQ(std::filesystem::file_size(nsChannelsFile::Path()), 0u);
}

TEST_F(ReceiverScanTest, AListIsNotTheCallersOwn) {
  SetFrequencies({506000});
  Receive({{506000, Sends({{.mName = "Un"}})}});
  EXPECT_EQ(Scan().mFound, 1u);
  EXPECT_EQ(do_QueryInterface<nsIMutableArray>(Found(*mReceiver))->Clear(), NS_OK);
  EXPECT_EQ(NamesOf(Found(*mReceiver).get()), "Un/506000 ");
  EXPECT_EQ(Stored(), "") << "a scan stores nothing";
  Store();
  EXPECT_EQ(Stored(), "Un/506000 ");
  // From now on they are as the file tells them.
  nsCOMPtr<nsIArray> services;
  ASSERT_EQ(mReceiver->GetServices(services.getter_AddRefs()), NS_OK);
  uint32_t quality = 99;
  EXPECT_EQ(NS_Elements<nsIDigitalTvService>(services.get())[0]->GetQuality(&quality), NS_OK);
  EXPECT_EQ(quality, 0u);
  EXPECT_EQ(Scan().mFound, 1u);
  EXPECT_EQ(Stored(), "Un/506000 ");
}

TEST_F(ReceiverScanTest, AReaderOfTheListFindsItHalfChanged) {
  // Two services that take each other's place as long as the scan goes on.
  std::vector<uint32_t> frequencies(40, 506000);
  SetFrequencies(frequencies);
  Receive({{506000, Sends({{.mName = "Un"}, {.mId = 2, .mName = "Deux"}})}});
  ASSERT_EQ(mReceiver->StartScan(Country().get()), NS_OK);
  do {
    for (const auto& service : NS_Elements<nsIDigitalTvService>(Found(*mReceiver).get())) {
      nsCString name;
      EXPECT_EQ(service->GetName(name), NS_OK);
      EXPECT_FALSE(name.IsEmpty());
    }
  } while (ProgressOf(*mReceiver).mState == 0);
  EXPECT_EQ(ProgressOf(*mReceiver), (Progress{1, 40, 40, 40, 2}));
}

// The times as they are: a second each. A machine that is busy has some more for each wait, but not
// a second.
TEST_F(ReceiverScanTest, EmptyFrequenciesTakeLongerThanTheirRule) {
  const char* const count = std::getenv("VOREL_TV_EMPTY");
  std::vector<uint32_t> frequencies(count ? static_cast<size_t>(std::atoi(count)) : 1);
  for (size_t i = 0; i < frequencies.size(); ++i)
    frequencies[i] = 474000 + 8000 * static_cast<uint32_t>(i);
  SetFrequencies(frequencies);
  mMachine.mTuners->Insert(kPath, NewTuner());
  mReceiver = NewReceiver(u"tuner-0", Receiver::Times());
  ASSERT_EQ(mReceiver->Init(), NS_OK);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Scan(), (Progress{1, static_cast<uint32_t>(frequencies.size()),
                              static_cast<uint32_t>(frequencies.size()), 0, 0}));
  const auto time = std::chrono::steady_clock::now() - start;
  RecordProperty("ms", static_cast<int>(time / std::chrono::milliseconds(1)));
  EXPECT_LT(time, std::chrono::milliseconds(1900) * static_cast<int>(frequencies.size()));
}

// At length in the slow set.
TEST_F(ReceiverScanTest, ScansLeaveSomethingBehind) {
  const char* const count = std::getenv("VOREL_TV_SCANS");
  SetFrequencies({506000, 514000});
  Receive({{506000, Sends({{.mName = "Un"}})}});
  for (int i = count ? std::atoi(count) : 5; i > 0; --i) {
    ASSERT_EQ(mReceiver->StartScan(Country().get()), NS_OK);
    if (i % 3 == 0) (void)mReceiver->StopScan();
    EXPECT_EQ(EndOfScan(*mReceiver).mState, i % 3 == 0 ? -2 : 1);
  }
}

}  // namespace

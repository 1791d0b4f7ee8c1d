// The section scanner on tables written by hand: what it finds, in which order it asks, and what it
// stands.
#include "nsSystemBDAScanner.h"

#include <condition_variable>
#include <thread>

#include "nsBDATables.h"
#include "nsDigitalTvTest.h"
#include "nsMutation.h"
#include "nsRecordedTables.h"
#include "nsTestTables.h"
#include "nsTransportDemultiplexer.h"

namespace {

using namespace vorel::test;

// ---- Without threads

class TablesTest : public nsDigitalTvTest {
 protected:
  void SetUp() override {
    StartHost();
    mTables = std::make_unique<nsBDATables>(NS_GetLogger("test.tables"));
  }
  int32_t Parse(const Bytes& aSection) { return Parse(aSection, &mFilter); }
  /// With a filter for the section's table, unless it was used before.
  int32_t Parse(const Bytes& aSection, BDASectionFilter* aFilter) {
    if (aFilter == &mFilter && mFilter.table_id != aSection[0]) {
      mFilter = {};
      mFilter.table_id = aSection[0];
    }
    const Bytes swapped = Swapped(aSection);
    aFilter->section = swapped;
    const int32_t result = mTables->parse_section(*aFilter);
    aFilter->section = {};
    return result;
  }
  BDAService& Service(size_t aIndex) { return *mTables->mCurrentTransponder->services.at(aIndex); }
  /// Reads a PAT with service 1, then its program map.
  BDAService& ReadPmt(const Bytes& aPayload) {
    mTables = std::make_unique<nsBDATables>(NS_GetLogger("test.tables"));
    mFilter = {};
    EXPECT_EQ(Parse(Section(0, 9, Pat({{1, 0x100}}))), 1);
    (void)TakeLog({});
    (void)Parse(Section(2, 1, aPayload));
    return Service(0);
  }
  BDATransponder& ReadDelivery(std::array<uint8_t, 11> aBytes) {
    mTables = std::make_unique<nsBDATables>(NS_GetLogger("test.tables"));
    mFilter = {};
    (void)Parse(Section(0x40, 1, Nit({}, {{9, 2, Descriptor(0x5A, aBytes)}})));
    return *mTables->mTransponders.at(0);
  }

  std::unique_ptr<nsBDATables> mTables;
  BDASectionFilter mFilter;
};

TEST_F(TablesTest, ASectionOfAnotherTableOrHalfOfOneIsRead) {
  BDASectionFilter other;
  EXPECT_EQ(Parse(Section(2, 1, {}), &other), -1);
  for (size_t size = 0; size < 8; ++size) {
    Bytes section = Section(0, 9, Pat({{1, 0x100}}));
    section.resize(size);
    mFilter.section = section;
    EXPECT_EQ(mTables->parse_section(mFilter), -1);
  }
  EXPECT_TRUE(mTables->mTransponders.empty());
}

TEST_F(TablesTest, ATableIsCompleteTooEarlyOrReadTwice) {
  const auto part = [](unsigned aNumber, unsigned aVersion, unsigned aService) {
    return Section(0, 9, Pat({{aService, 0x100}}), aVersion, aNumber, 2);
  };
  EXPECT_EQ(Parse(part(2, 0, 3)), 0);
  EXPECT_EQ(Parse(part(0, 0, 1)), 0);
  EXPECT_EQ(Parse(part(0, 0, 7)), 0) << "the same number again is not looked at";
  EXPECT_EQ(Parse(part(1, 0, 2)), 1);
  EXPECT_EQ(Parse(part(1, 0, 2)), 1);
  EXPECT_EQ(mTables->mCurrentTransponder->services.size(), 3u);
  EXPECT_EQ(mTables->mWaitingFilters.size(), 3u);
  (void)TakeLog({});
  EXPECT_EQ(Parse(part(0, 1, 8)), 0) << "another version begins anew";
  EXPECT_EQ(
      TakeLog("debug test.tables: section")[0],
      "debug test.tables: section version_number or table_id_ext changed 0 -> 1 / 0009 -> 0009\n");
  EXPECT_EQ(Parse(part(1, 1, 1)), 0);
  EXPECT_EQ(Parse(part(2, 1, 1)), 1);
  EXPECT_EQ(mTables->mWaitingFilters.size(), 6u) << "a service that is known brings a filter again";
}

TEST_F(TablesTest, AChainOfFiltersMixesItsTables) {
  mFilter.table_id = 0x46;
  mFilter.chained = true;
  EXPECT_EQ(Parse(Section(0x46, 1, Sdt({})), &mFilter), 0);
  EXPECT_EQ(Parse(Section(0x46, 2, Sdt({})), &mFilter), 0);
  EXPECT_EQ(Parse(Section(0x46, 3, Sdt({})), &mFilter), 0);
  EXPECT_EQ(Parse(Section(0x46, 2, Sdt({})), &mFilter), 0);
  EXPECT_EQ(mFilter.complete, 1);
  ASSERT_TRUE(mFilter.next && mFilter.next->next);
  EXPECT_EQ(mFilter.next->table_id_ext, 2);
  EXPECT_EQ(mFilter.next->next->table_id_ext, 3);
  EXPECT_FALSE(mFilter.next->next->next);
}

TEST_F(TablesTest, AProgramTableMakesServicesOfWhatIsNone) {
  EXPECT_EQ(Parse(Section(0, 9, Pat({{0, 0x10}, {1, 0x100}, {2, 0}, {0xFFFF, 0x1FFF}}))), 1);
  ASSERT_EQ(mTables->mCurrentTransponder->services.size(), 3u);
  EXPECT_EQ(mTables->mCurrentTransponder->transport_stream_id, 9u);
  EXPECT_EQ(Service(0).pmt_pid, 0x100);
  EXPECT_EQ(Service(1).pmt_pid, 0);
  EXPECT_EQ(Service(2).service_id, 0xFFFFu);
  ASSERT_EQ(mTables->mWaitingFilters.size(), 2u);
  EXPECT_EQ(mTables->mWaitingFilters[1]->pid, 0x1FFF);
  EXPECT_EQ(mTables->mWaitingFilters[1]->table_id, 2);
  EXPECT_EQ(mTables->mWaitingFilters[1]->timeout, 5);
  EXPECT_EQ(mTables->mWaitingFilters[1]->table_id_ext, -1);
}

TEST_F(TablesTest, StreamsOfAProgramAreTakenForOthers) {
  Bytes ac3 = Language("eng");
  ac3 += Descriptor(0x6A, Bytes{0});
  Bytes both = Descriptor(0x7A, Bytes{0});
  both += Descriptor(0x56, BytesOf("fra12"));
  const BDAService& service = ReadPmt(Pmt(
      0x65,
      {Elementary(27, 0x65), Elementary(2, 0x66), Elementary(3, 0x70, Language("fra")),
       Elementary(4, 0x71), Elementary(6, 0x72, ac3),
       Elementary(6, 0x73, Descriptor(0x7A, Bytes{0})), Elementary(6, 0x74, both),
       Elementary(6, 0x75, Descriptor(0x59, Bytes(8))), Elementary(6, 0x76), Elementary(5, 0x77)},
      Language("deu")));
  EXPECT_EQ(service.pcr_pid, 0x65);
  EXPECT_EQ(service.video_pid, 0x65) << "the first";
  EXPECT_EQ(service.audio.num, 2);
  EXPECT_EQ(service.audio.pid[0], 0x70);
  EXPECT_STREQ(service.audio.lang[0].data(), "fra");
  EXPECT_EQ(service.audio.pid[1], 0x71);
  EXPECT_STREQ(service.audio.lang[1].data(), "");
  EXPECT_EQ(service.ac3.num, 1);
  EXPECT_EQ(service.ac3.pid[0], 0x72);
  EXPECT_STREQ(service.ac3.lang[0].data(), "eng");
  EXPECT_EQ(service.eac3.num, 1);
  EXPECT_EQ(service.eac3.pid[0], 0x73);
  EXPECT_EQ(service.teletext_pid, 0x74) << "teletext before sound";
  EXPECT_EQ(service.subtitling_pid, 0x75);
  const auto log = TakeLog("debug test.tables: ");
  EXPECT_EQ(log.back(),
            "debug test.tables: 0x0000 0x0001: (null) -- (null), pmt_pid 0x0100, vpid 0x0065, apid "
            "0x0070 (fra), 0x0071 ()\n");
}

TEST_F(TablesTest, AnUnknownProgramIsRead) {
  (void)Parse(Section(2, 5, Pmt(1, {Elementary(2, 3)})));
  EXPECT_EQ(TakeLog("debug test.tables: PMT").back(),
            "debug test.tables: PMT for serivce_id 0x0005 was not in PAT\n");
}

TEST_F(TablesTest, A33rdSoundOverwritesSomething) {
  std::vector<Bytes> streams;
  for (unsigned i = 0; i < 40; ++i) {
    streams.push_back(Elementary(4, 0x100 + i));
    streams.push_back(Elementary(6, 0x200 + i, Descriptor(0x7A, Bytes{0})));
  }
  const BDAService& service = ReadPmt(Pmt(1, streams));
  EXPECT_EQ(service.audio.num, 32);
  EXPECT_EQ(service.audio.pid[31], 0x11F);
  EXPECT_EQ(service.ac3.num, 0);
  EXPECT_EQ(service.eac3.num, 32);
  const auto log = TakeLog("debug test.tables: more");
  ASSERT_EQ(log.size(), 16u);
  EXPECT_EQ(log[0], "debug test.tables: more than 32 audio channels, truncating\n");
  EXPECT_EQ(log[1], "debug test.tables: more than 32 ac3 channels, truncating\n");
}

TEST_F(TablesTest, NamesComeWithWhatDoesNotBelongToThem) {
  EXPECT_EQ(Parse(Section(0, 9, Pat({{1, 0x100}}))), 1);
  Bytes descriptors = Descriptor(0x5F, Bytes(4));
  descriptors += ServiceDescriptor(1, "\x05Prov\x86ider\x87", "Un\x80");
  EXPECT_EQ(
      Parse(Section(0x42, 9,
                    Sdt({SdtService(1, 4, true, descriptors),
                         SdtService(2, 1, false, ServiceDescriptor(2, "", "\x8A\x9F")),
                         SdtService(3, 0, false, {}), SdtService(4, 4, false, descriptors)}))),
      1);
  ASSERT_EQ(mTables->mCurrentTransponder->services.size(), 2u) << "one without descriptors ends it";
  EXPECT_EQ(Service(0).provider_name, "\x05Provider");
  EXPECT_EQ(Service(0).service_name, "Un");
  EXPECT_EQ(Service(0).service_type, 1);
  EXPECT_EQ(Service(0).running_status, 4);
  EXPECT_TRUE(Service(0).scrambled);
  EXPECT_EQ(Service(0).transport_stream_id, 9u);
  EXPECT_EQ(Service(1).service_name, "");
  EXPECT_EQ(Service(1).provider_name, "");
  const auto log = TakeLog("debug test.tables:   0x0009");
  ASSERT_EQ(log.size(), 2u);
  EXPECT_EQ(log[1],
            "debug test.tables:   0x0009 0x0002: pmt_pid 0x0000 (null) -- (null) (not running)\n");
  // The others, in a transport stream of their own.
  EXPECT_EQ(Parse(Section(0x46, 10, Sdt({SdtService(1, 4, false, descriptors)}))), 1);
  EXPECT_EQ(mTables->mTransponders.size(), 2u);
  EXPECT_EQ(mTables->mCurrentTransponder->services.size(), 2u);
}

TEST_F(TablesTest, TheEndOfAServicesLoopIsRead) {
  Bytes descriptors = ServiceDescriptor(1, "P", "First");
  descriptors += Descriptor(0x48, Bytes{2, 0, 0});  // begins five bytes before the end
  (void)Parse(Section(0x42, 9, Sdt({SdtService(1, 4, false, descriptors)})));
  EXPECT_EQ(mTables->mTransponders[0]->services[0]->service_name, "First");
  // One byte earlier it is read.
  descriptors = ServiceDescriptor(1, "P", "First");
  descriptors += Descriptor(0x48, Bytes{2, 0, 0, 0});
  (void)Parse(Section(0x42, 9, Sdt({SdtService(1, 4, false, descriptors)}), 1));
  EXPECT_EQ(mTables->mTransponders[0]->services[0]->service_name, "");
  // Loops too short for any.
  for (size_t length = 1; length <= 4; ++length)
    (void)Parse(Section(0x42, 9, Sdt({SdtService(1, 4, false, Bytes(length, 0x48))}),
                        static_cast<unsigned>(1 + length)));
}

TEST_F(TablesTest, ADescriptorWithoutALengthIsReadForEver) {
  for (const unsigned length : {254u, 255u}) {
    Bytes descriptors = Language("fra");
    descriptors += Bytes{0x52, static_cast<uint8_t>(length)};
    descriptors += Language("eng");
    const BDAService& service = ReadPmt(Pmt(1, {Elementary(4, 0x70, descriptors)}));
    EXPECT_EQ(service.audio.num, 1);
    EXPECT_STREQ(service.audio.lang[0].data(), "fra");
    EXPECT_EQ(TakeLog("debug test.tables: descriptor_tag").size(), length == 254 ? 1u : 0u);
  }
}

TEST_F(TablesTest, TheParametersOfAChannelAreInTheirPlaces) {
  // 506 MHz; 8 MHz with the priority bit; 64-QAM, 2/3; low priority rate 3/4, guard, 8K, other
  // frequencies.
  BDATransponder& one = ReadDelivery(
      {0x03, 0x04, 0x18, 0x40, 0x5F, 0x81, 0x40 | 0x02 | 0x01, 0xFF, 0xFF, 0xFF, 0xFF});
  EXPECT_EQ(one.frequency, 506000);
  EXPECT_EQ(one.bandwidth, 6) << "bits 5 and 6";
  EXPECT_TRUE(one.priority);
  EXPECT_EQ(one.constellation, 2);
  EXPECT_EQ(one.code_rate_hp, 2) << "the low priority rate lands here";
  EXPECT_EQ(one.code_rate_lp, 0);
  EXPECT_EQ(one.guard_interval, 0);
  EXPECT_EQ(one.transmission_mode, 1);
  EXPECT_TRUE(one.other_frequency_flag);
  EXPECT_EQ(one.network_id, 1u);
  EXPECT_EQ(one.original_network_id, 2u);
  BDATransponder& other = ReadDelivery({0xFF, 0xFF, 0xFF, 0x00, 0x1F, 0xC7, 0x9C, 0, 0, 0, 0});
  EXPECT_EQ(other.frequency, -2) << "a signed number";
  EXPECT_EQ(other.bandwidth, 8);
  EXPECT_FALSE(other.priority);
  EXPECT_EQ(other.constellation, 3);
  EXPECT_EQ(other.code_rate_hp, 4);
  EXPECT_EQ(other.guard_interval, 1);
  EXPECT_EQ(other.transmission_mode, 0);
  EXPECT_EQ(ReadDelivery({0, 0, 0, 0, 0, 0x07, 0x20}).code_rate_hp, 1);
  EXPECT_EQ(ReadDelivery({0, 0, 0, 0, 0, 0x07, 0x00}).code_rate_hp, 5);
  EXPECT_EQ(ReadDelivery({0, 0, 0, 0, 0, 0x00, 0xE0}).code_rate_hp, 5);
  EXPECT_EQ(ReadDelivery({0, 0, 0, 0, 0x60, 0, 0}).bandwidth, 5);
}

TEST_F(TablesTest, ANetworksFactsGoToTheWrongStream) {
  (void)Parse(Section(0x40, 1, Nit(Descriptor(0x40, BytesOf("nobody's")), {})));
  EXPECT_EQ(Parse(Section(0, 9, Pat({{1, 0x100}, {2, 0x101}}))), 1);
  Bytes channels = Descriptor(0x83, Bytes{0, 1, 0xFC, 7, 0, 5, 0xFF, 200});
  channels += Descriptor(0x62, Bytes{3, 0x03, 0x04, 0x18, 0x40, 0x03, 0x10, 0x4D, 0x40});
  (void)Parse(Section(0x40, 0x20,
                      Nit(Descriptor(0x40, BytesOf("Network")), {{9, 2, channels}, {10, 2, {}}})));
  BDATransponder& current = *mTables->mCurrentTransponder;
  EXPECT_EQ(current.network_name, "Network");
  EXPECT_EQ(current.alternative_frequencies, (std::vector<int32_t>{506000, 514000}));
  EXPECT_EQ(Service(0).channel_number, 7);
  ASSERT_EQ(current.services.size(), 3u);
  EXPECT_EQ(Service(2).service_id, 5u) << "made, and without its number";
  EXPECT_EQ(Service(2).channel_number, 0);
  EXPECT_EQ(mTables->mTransponders.size(), 1u) << "the last of six bytes is not read";
  // Frequencies of another kind.
  (void)Parse(Section(
      0x40, 0x20, Nit({}, {{9, 2, Descriptor(0x62, Bytes{2, 1, 2, 3, 4})}, {10, 2, Bytes(3)}}), 1));
  EXPECT_TRUE(current.alternative_frequencies.empty());
  EXPECT_EQ(mTables->mTransponders.size(), 2u);
}

TEST_F(TablesTest, AnyBytesAreReadOutsideTheSection) {
  nsMutation random;
  Bytes descriptors = ServiceDescriptor(1, "Provider", "Name");
  descriptors += Descriptor(0x83, Bytes{0, 1, 0xFC, 7});
  const Bytes delivery = Descriptor(0x5A, Bytes(11));
  const std::vector<Bytes> sections = {
      Section(0, 9, Pat({{1, 0x100}, {2, 0x101}})),
      Section(2, 1,
              Pmt(1, {Elementary(2, 1), Elementary(6, 2, Descriptor(0x6A, Bytes{1})),
                      Elementary(3, 4, Language("fra"))})),
      Section(0x40, 1,
              Nit(Descriptor(0x40, BytesOf("N")),
                  {{9, 2, delivery}, {10, 2, Descriptor(0x62, Bytes(9))}})),
      Section(0x42, 9,
              Sdt({SdtService(1, 4, false, descriptors), SdtService(2, 4, false, descriptors)}))};
  for (int i = 0; i < 20000; ++i) {
    const Bytes& whole = sections[random.Below(sections.size())];
    Bytes bytes = BytesOf(random.Damage(std::string(whole.begin(), whole.end()),
                                        std::string_view("\0\xFF\xFE\x48\x0A\x05", 6)));
    if (bytes.size() < 8) continue;
    bytes[0] = whole[0];
    bytes.shrink_to_fit();
    BDASectionFilter filter;
    filter.table_id = bytes[0];
    (void)Parse(bytes, &filter);
    if (i % 50 == 0) mTables = std::make_unique<nsBDATables>(nullptr);
  }
}

// ---- With its thread

/// Tables of a stream, through the demultiplexer.
nsCOMPtr<nsRecordedTables> Recorded(std::span<const uint8_t> aStream, std::vector<uint16_t> aPids) {
  struct Sink final : nsTransportSink {
    void OnSection(uint16_t aPid, std::span<const uint8_t> aSection) override {
      (void)mTables->Add(aPid, aSection);
    }
    nsCOMPtr<nsRecordedTables> mTables = MakeRefCounted<nsRecordedTables>();
  } sink;
  nsTransportDemultiplexer demultiplexer(sink);
  for (const uint16_t pid : {uint16_t{0}, uint16_t{0x10}, uint16_t{0x11}}) aPids.push_back(pid);
  for (const uint16_t pid : aPids) EXPECT_EQ(demultiplexer.AddSectionPid(pid, false), NS_OK);
  demultiplexer.Push(aStream);
  demultiplexer.Finish();
  return sink.mTables;
}

/// Hands out what another has, notes who asks for what, and can hold a call.
class Asked final : public nsImplements<Asked, IMpeg2Data> {
 public:
  explicit Asked(nsCOMPtr<IMpeg2Data> aData) : mData(std::move(aData)) {}
  nsresult GetSection(uint16_t, uint8_t, MPEG2_FILTER*, uint32_t, ISectionList**) override {
    return E_NOTIMPL;
  }
  nsresult GetTable(uint16_t aPid, uint8_t aTable, MPEG2_FILTER* aFilter, uint32_t aTimeout,
                    ISectionList** aList) override {
    std::unique_lock lock(mLock);
    mCalls.push_back(std::to_string(aPid) + "/" + std::to_string(aTable) + "/" +
                     std::to_string(aTimeout));
    mChanged.notify_all();
    mChanged.wait(lock, [this] { return !mIsHeld; });
    EXPECT_EQ(aFilter, nullptr);
    return mData->GetTable(aPid, aTable, aFilter, aTimeout, aList);
  }
  nsresult GetStreamOfSections(uint16_t, uint8_t, MPEG2_FILTER*, void*, IMpeg2Stream**) override {
    return E_NOTIMPL;
  }
  void Hold(bool aHold) {
    std::lock_guard lock(mLock);
    mIsHeld = aHold;
    mChanged.notify_all();
  }
  void WaitForCall() {
    std::unique_lock lock(mLock);
    mChanged.wait(lock, [this] { return !mCalls.empty(); });
  }
  std::vector<std::string> Calls() {
    std::lock_guard lock(mLock);
    return mCalls;
  }

 private:
  ~Asked() override = default;
  const nsCOMPtr<IMpeg2Data> mData;
  std::mutex mLock;
  std::condition_variable mChanged;
  bool mIsHeld = false;
  std::vector<std::string> mCalls;
};

class ScannerTest : public nsDigitalTvTest {
 protected:
  void SetUp() override { StartHost(); }

  /// Two services on one frequency.
  static nsCOMPtr<IMpeg2Data> TwoServices() {
    Stream stream;
    for (int i = 0; i < 2; ++i)
      stream.Sections(0, {Section(0, 9, Pat({{0, 0x10}, {1, 0x100}, {2, 0x101}}))})
          .Sections(
              0x100,
              {Section(2, 1,
                       Pmt(0x65, {Elementary(2, 0x65), Elementary(4, 0x66, Language("fra"))}))})
          .Sections(0x101, {Section(2, 2, Pmt(0x75, {Elementary(4, 0x75, Language("deu"))}))})
          .Sections(0x11,
                    {Section(0x42, 9,
                             Sdt({SdtService(1, 4, false, ServiceDescriptor(1, "P", "Un")),
                                  SdtService(2, 4, true, ServiceDescriptor(2, "P", "Deux"))}))});
    return Recorded(stream.mBytes, {0x100, 0x101});
  }
  static std::string Found(nsSystemBDAScanner& aScanner) {
    nsresult rv;
    std::string found;
    for (const BDAService* service : aScanner.getCurrentServices(&rv))
      found += service->service_name + "/" + std::to_string(service->pmt_pid) + "/" +
               std::to_string(service->video_pid) + "/" + service->audio.lang[0].data() + " ";
    return NS_FAILED(rv) ? "none" : found;
  }
};

TEST_F(ScannerTest, TablesAreAskedForInAnotherOrder) {
  const auto asked = MakeRefCounted<Asked>(TwoServices());
  nsSystemBDAScanner scanner;
  scanner.ResetScanner();
  EXPECT_EQ(Found(scanner), "none");
  scanner.SetData(asked);
  scanner.StartScanning();
  scanner.StartScanning();
  EXPECT_EQ(scanner.WaitScanningDone(), WAIT_OBJECT_0);
  EXPECT_EQ(asked->Calls(), (std::vector<std::string>{"0/0/5000", "16/64/15000", "17/66/5000",
                                                      "256/2/5000", "257/2/5000"}));
  EXPECT_EQ(Found(scanner), "Un/256/101/fra Deux/257/0/deu ");
  nsSystemBDAScanner::TransponderData data;
  EXPECT_EQ(scanner.GetTransponderData(&data), NS_OK);
  EXPECT_EQ(data.hierarchy, 0);
  EXPECT_EQ(std::ranges::count(TakeLog({}),
                               "debug system.adapter.digitaltvreceiver: Timeout getting table."),
            1);
  scanner.ResetScanner();
  EXPECT_EQ(Found(scanner), "none");
  EXPECT_EQ(scanner.GetTransponderData(&data), NS_ERROR_FAILURE);
}

TEST_F(ScannerTest, AStoppedScanAsksOn) {
  const auto asked = MakeRefCounted<Asked>(TwoServices());
  asked->Hold(true);
  nsSystemBDAScanner scanner;
  scanner.SetData(asked);
  scanner.StartScanning();
  asked->WaitForCall();
  EXPECT_EQ(Found(scanner), "none") << "while it runs";
  scanner.ReleaseMpeg2Data();
  asked->Hold(false);
  EXPECT_EQ(scanner.WaitScanningDone(), WAIT_OBJECT_0);
  EXPECT_EQ(asked->Calls().size(), 1u);
  EXPECT_EQ(Found(scanner), "/256/0/ /257/0/ ");
}

TEST_F(ScannerTest, AThreadThatHangsWritesIntoTheNextFrequency) {
  const auto hanging = MakeRefCounted<Asked>(TwoServices());
  hanging->Hold(true);
  nsSystemBDAScanner scanner({.mDoneWait = 1, .mBusyWait = 1, .mBusyStep = 1});
  scanner.SetData(hanging);
  scanner.StartScanning();
  hanging->WaitForCall();
  scanner.ResetScanner();
  scanner.SetData(nullptr);
  scanner.StartScanning();
  EXPECT_EQ(scanner.WaitScanningDone(), WAIT_OBJECT_0);
  EXPECT_EQ(Found(scanner), "none");
  hanging->Hold(false);
  scanner.ResetScanner();
  EXPECT_EQ(scanner.WaitScanningDone(), WAIT_TIMEOUT) << "nothing runs";
}

TEST_F(ScannerTest, TheEndOfOneScanIsUnknownToTheOthers) {
  // One name, one event: kept, receivers have always shared it.
  nsSystemBDAScanner one, other;
  one.ResetScanner();
  one.StartScanning();
  EXPECT_EQ(other.WaitScanningDone(), WAIT_OBJECT_0);
  EXPECT_EQ(one.WaitScanningDone(), WAIT_OBJECT_0);
}

TEST_F(ScannerTest, AFilterWithoutTablesIsKept) {
  nsSystemBDAScanner scanner;
  scanner.SetMpeg2Data(nullptr);
  scanner.StartScanning();
  EXPECT_EQ(scanner.WaitScanningDone(), WAIT_OBJECT_0);
  EXPECT_EQ(Found(scanner), "none");
}

}  // namespace

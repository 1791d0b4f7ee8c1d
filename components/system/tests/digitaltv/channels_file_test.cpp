// The channels file: what stands in it, and what comes back.
#include "nsChannelsFile.h"
#include "nsChannelsFormat.h"
#include "nsDigitalTvTest.h"
#include "nsMutation.h"

inline void PrintTo(const nsChannelsRecord& aRecord, std::ostream* aOut) {
  *aOut << NS_WriteChannelsLine(aRecord);
}

namespace {

using namespace std::string_view_literals;

constexpr std::string_view kSample =
    "Sample(Provider):506000000:INVERSION_AUTO:BANDWIDTH_8_MHZ:FEC_2_3:FEC_1_2:QAM_64:"
    "TRANSMISSION_MODE_8K:GUARD_INTERVAL_1_32:HIERARCHY_NONE:120+1024:130=fra,131=eng;140=fra;:1\n";

nsChannelsRecord SampleRecord() {
  nsChannelsRecord record;
  record.mName = "Sample";
  record.mProvider = "Provider";
  record.mFrequency = 506000;
  record.mBandwidth = 8;
  record.mCodeRateHP = 1;
  record.mConstellation = 2;
  record.mTransmissionMode = 1;
  record.mVideoPid = 120;
  record.mPmtPid = 1024;
  record.mAudio = {{"fra", 130, 4}, {"eng", 131, 4}, {"fra", 140, 106}};
  record.mServiceId = 1;
  return record;
}

nsChannelsRecord RecordOf(nsIBDAScanResultDigitalTvService* aService) {
  nsChannelsRecord record;
  nsCString name, provider;
  uint16_t video = 0, pmt = 0, id = 0;
  uint32_t guard = 9, quality = 9;
  int32_t level = 9;
  EXPECT_EQ(aService->GetName(name), NS_OK);
  EXPECT_EQ(aService->GetProvider(provider), NS_OK);
  EXPECT_EQ(aService->GetFrequency(&record.mFrequency), NS_OK);
  EXPECT_EQ(aService->GetBandwidth(&record.mBandwidth), NS_OK);
  EXPECT_EQ(aService->GetCodeRateHP(&record.mCodeRateHP), NS_OK);
  EXPECT_EQ(aService->GetCodeRateLP(&record.mCodeRateLP), NS_OK);
  EXPECT_EQ(aService->GetConstellation(&record.mConstellation), NS_OK);
  EXPECT_EQ(aService->GetTransmissionMode(&record.mTransmissionMode), NS_OK);
  EXPECT_EQ(aService->GetPriority(&record.mPriority), NS_OK);
  EXPECT_EQ(aService->GetHierarchy(&record.mHierarchy), NS_OK);
  EXPECT_EQ(aService->GetVideoPid(&video), NS_OK);
  EXPECT_EQ(aService->GetPmtPid(&pmt), NS_OK);
  EXPECT_EQ(aService->GetServiceId(&id), NS_OK);
  EXPECT_EQ(aService->GetGuardInterval(&guard), NS_OK);
  EXPECT_EQ(aService->GetQuality(&quality), NS_OK);
  EXPECT_EQ(aService->GetLevel(&level), NS_OK);
  EXPECT_EQ(guard, 0u);
  EXPECT_EQ(quality, 0u);
  EXPECT_EQ(level, 0);
  record.mName = name.view();
  record.mProvider = provider.view();
  record.mVideoPid = video;
  record.mPmtPid = pmt;
  record.mServiceId = id;
  nsCOMPtr<nsIArray> channels;
  EXPECT_EQ(aService->GetAudioChannels(channels.getter_AddRefs()), NS_OK);
  for (const auto& channel : NS_Elements<nsIDigitalTvAudioChannel>(channels.get())) {
    nsCString language;
    nsChannelsRecord::Audio audio;
    EXPECT_EQ(channel->GetLanguage(language), NS_OK);
    EXPECT_EQ(channel->GetPid(&audio.mPid), NS_OK);
    EXPECT_EQ(channel->GetType(&audio.mKind), NS_OK);
    audio.mLanguage = language.view();
    record.mAudio.push_back(audio);
  }
  return record;
}

nsCOMPtr<nsIBDAScanResultDigitalTvService> ServiceOf(const nsChannelsRecord& aRecord) {
  const nsCOMPtr<nsIBDAScanResultDigitalTvService> service(
      MakeRefCounted<nsBDAScanResultDigitalTvService>());
  const auto channels = do_CreateInstance<nsIMutableArray>(VOREL_ARRAY_CONTRACTID);
  for (const auto& audio : aRecord.mAudio) {
    const auto channel = MakeRefCounted<nsDigitalTvAudioChannel>();
    (void)channel->SetLanguage(nsCString(audio.mLanguage));
    (void)channel->SetPid(audio.mPid);
    (void)channel->SetType(audio.mKind);
    EXPECT_EQ(channels->AppendElement(channel.get(), false), NS_OK);
  }
  (void)service->SetName(nsCString(aRecord.mName));
  (void)service->SetProvider(nsCString(aRecord.mProvider));
  (void)service->SetFrequency(aRecord.mFrequency);
  (void)service->SetBandwidth(aRecord.mBandwidth);
  (void)service->SetCodeRateHP(aRecord.mCodeRateHP);
  (void)service->SetCodeRateLP(aRecord.mCodeRateLP);
  (void)service->SetConstellation(aRecord.mConstellation);
  (void)service->SetTransmissionMode(aRecord.mTransmissionMode);
  (void)service->SetPriority(aRecord.mPriority);
  (void)service->SetHierarchy(aRecord.mHierarchy);
  (void)service->SetVideoPid(static_cast<uint16_t>(aRecord.mVideoPid));
  (void)service->SetPmtPid(static_cast<uint16_t>(aRecord.mPmtPid));
  (void)service->SetServiceId(static_cast<uint16_t>(aRecord.mServiceId));
  // What the file has no place for.
  (void)service->SetGuardInterval(3);
  (void)service->SetQuality(77);
  (void)service->SetLevel(-50);
  EXPECT_EQ(service->SetAudioChannels(channels.get()), NS_OK);
  return service;
}

class ChannelsFileTest : public nsDigitalTvTest {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(Directory() / "app" / "defaults");
    mOptions.mApplicationDirectory = (Directory() / "app").string();
    StartHost();
    mFile.emplace();
    ASSERT_EQ(mFile->initChannelsFilePath(2), NS_OK);
  }
  void TearDown() override { nsChannelsFile::DropPath(); }

  std::filesystem::path Place(const char* aSystem = "dvb-t") {
    return Directory() / "app" / "defaults" / "channelconf" / aSystem / "channels.conf";
  }
  void Put(std::string_view aText) { std::ofstream(Place(), std::ios::binary) << aText; }
  std::string Text() {
    std::ifstream file(Place(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  std::vector<nsChannelsRecord> Read(nsresult aExpected = NS_OK) {
    const auto services = NewArray();
    EXPECT_EQ(mFile->parseChannelsFile(services.get()), aExpected);
    std::vector<nsChannelsRecord> records;
    for (const auto& service : NS_Elements<nsIBDAScanResultDigitalTvService>(services.get()))
      records.push_back(RecordOf(service.get()));
    return records;
  }
  std::vector<std::string> ReadNames(std::string_view aText, nsresult aExpected = NS_OK) {
    Put(aText);
    std::vector<std::string> names;
    for (const auto& record : Read(aExpected)) names.push_back(record.mName);
    return names;
  }

  std::optional<nsChannelsFile> mFile;  // made when there is a log
};

TEST_F(ChannelsFileTest, ALineOfTheFormatHasAnotherForm) {
  EXPECT_EQ(NS_WriteChannelsLine(SampleRecord()), kSample);
  Put(kSample);
  EXPECT_EQ(Read(), std::vector{SampleRecord()});
  nsChannelsRecord radio;
  radio.mName = "R";
  radio.mProvider = "P";
  radio.mVideoPid = 120;
  EXPECT_EQ(NS_WriteChannelsLine(radio),
            "R(P):0000:INVERSION_AUTO:BANDWIDTH_0_MHZ:FEC_1_2:FEC_1_2:QPSK:TRANSMISSION_MODE_2K:"
            "GUARD_INTERVAL_1_32:HIERARCHY_NONE:120:;;:0\n");
}

TEST_F(ChannelsFileTest, TheFileLiesElsewhere) {
  EXPECT_EQ(nsChannelsFile::Path(), Place().string());
  for (const auto& [system, name] : std::initializer_list<std::pair<uint32_t, const char*>>{
           {0, "dvb-s"}, {1, "dvb-c"}, {3, "atsc"}, {4, "dvb-unknown"}, {99, "dvb-unknown"}}) {
    EXPECT_EQ(mFile->initChannelsFilePath(system), NS_OK);
    EXPECT_EQ(nsChannelsFile::Path(), Place(name).string());
    std::ofstream(Place(name)) << "there is room for it";
    EXPECT_TRUE(std::filesystem::exists(Place(name)));
  }
  nsChannelsFile::DropPath();
  EXPECT_EQ(mFile->parseChannelsFile(NewArray().get()), NS_ERROR_NOT_AVAILABLE);
  EXPECT_EQ(mFile->writeChannelsFile(NewArray().get()), NS_ERROR_FAILURE);
}

TEST_F(ChannelsFileTest, AWordIsReadAsItWasWritten) {
  // The reader's table, to the letter.
  const auto read = [](std::string_view aFrom, std::string_view aTo) {
    std::string line(kSample), name, provider;
    line.replace(line.find(aFrom), aFrom.size(), aTo);
    nsChannelsWords words;
    nsChannelsRecord record;
    EXPECT_EQ(NS_SplitChannelsLine(line, &name, &provider, &words), NS_OK);
    EXPECT_TRUE(NS_ReadChannelsWords(words, &record)) << line;
    return record;
  };
  EXPECT_EQ(read("BANDWIDTH_8_MHZ", "BANDWIDTH_7_MHZ").mBandwidth, 7u);
  EXPECT_EQ(read("BANDWIDTH_8_MHZ", "BANDWIDTH_6_MHZ").mBandwidth, 6u);
  EXPECT_EQ(read("BANDWIDTH_8_MHZ", "BANDWIDTH_5_MHZ").mBandwidth, 0u);
  EXPECT_EQ(read("FEC_2_3", "FEC_7_8").mCodeRateHP, 4u);
  EXPECT_EQ(read("FEC_2_3", "FEC_AUTO").mCodeRateHP, 5u);
  EXPECT_EQ(read("FEC_1_2", "fec_1_2").mCodeRateLP, 5u);
  EXPECT_EQ(read("QAM_64", "QPSK").mConstellation, 0u);
  EXPECT_EQ(read("QAM_64", "QAM_AUTO").mConstellation, 3u);
  EXPECT_EQ(read("MODE_8K", "MODE_2K").mTransmissionMode, 0u);
  EXPECT_EQ(read("MODE_8K", "MODE_AUTO").mTransmissionMode, 1u);
  EXPECT_EQ(read("INTERVAL_1_32", "INTERVAL_1_4").mPriority, 3u);
  EXPECT_EQ(read("INTERVAL_1_32", "INTERVAL_AUTO").mPriority, 4u);
  EXPECT_EQ(read("INTERVAL_1_32", "INTERVAL_1_5").mPriority, 0u);
  EXPECT_EQ(read("HIERARCHY_NONE", "HIERARCHY_AUTO").mHierarchy, 1u);
  EXPECT_EQ(read("HIERARCHY_NONE", "HIERARCHY_1").mHierarchy, 0u);
  EXPECT_EQ(read("INVERSION_AUTO", "anything").mFrequency, 506000u);
  EXPECT_EQ(read("506000000", "506166666").mFrequency, 506166u);
  EXPECT_EQ(read("506000000", "4294967000").mFrequency, 4294967u);
  // And the writer's.
  const auto writes = [](auto aField, uint32_t aValue) {
    nsChannelsRecord record = SampleRecord();
    record.*aField = aValue;
    return NS_WriteChannelsLine(record);
  };
  using R = nsChannelsRecord;
  EXPECT_NE(writes(&R::mCodeRateHP, 5).find(":FEC_AUTO:FEC_1_2:"), std::string::npos);
  EXPECT_NE(writes(&R::mCodeRateLP, 77).find(":FEC_2_3:FEC_AUTO:"), std::string::npos);
  EXPECT_EQ(writes(&R::mConstellation, 3), kSample);
  EXPECT_NE(writes(&R::mTransmissionMode, 2).find(":TRANSMISSION_MODE_AUTO:"), std::string::npos);
  EXPECT_NE(writes(&R::mPriority, 1).find(":GUARD_INTERVAL_1_16:"), std::string::npos);
  EXPECT_NE(writes(&R::mPriority, 9).find(":GUARD_INTERVAL_AUTO:"), std::string::npos);
  EXPECT_NE(writes(&R::mHierarchy, 2).find(":HIERARCHY_AUTO:120"), std::string::npos);
}

TEST_F(ChannelsFileTest, PidsOfAnotherFormAreReadAsNumbers) {
  const auto pids = [](std::string_view aText) {
    uint32_t video = 99, pmt = 99;
    EXPECT_EQ(parseVideoAndPmtPids(aText, &video, &pmt), NS_OK);
    return std::pair(video, pmt);
  };
  EXPECT_EQ(pids("120+1024"), (std::pair(120u, 1024u)));
  EXPECT_EQ(pids("120"), (std::pair(120u, 0u)));
  EXPECT_EQ(pids("+5"), (std::pair(5u, 0u)));
  EXPECT_EQ(pids("5+"), (std::pair(5u, 0u)));
  EXPECT_EQ(pids("1+2+3"), (std::pair(2u, 3u)));
  EXPECT_EQ(pids("x"), (std::pair(0u, 0u)));
  EXPECT_EQ(pids(""), (std::pair(0u, 0u)));
}

TEST_F(ChannelsFileTest, AudioOfAnotherFormIsLost) {
  using Audio = std::vector<nsChannelsRecord::Audio>;
  const auto read = [](std::string_view aText, bool aExpected = true) {
    nsChannelsWords words;
    words.mAudio = aText;
    nsChannelsRecord record;
    EXPECT_EQ(NS_ReadChannelsWords(words, &record), aExpected) << aText;
    return record.mAudio;
  };
  EXPECT_EQ(read("130=fra,131;140"), (Audio{{"fra", 130, 4}, {"", 131, 4}, {"", 140, 106}}));
  EXPECT_EQ(read(";;150=deu"), (Audio{{"deu", 150, 122}}));
  EXPECT_EQ(read("1;2;3;4"), (Audio{{"", 1, 4}, {"", 2, 106}, {"", 3, 122}}));
  EXPECT_EQ(read(";;"), Audio());
  EXPECT_EQ(read(""), Audio());
  EXPECT_EQ(read("130,=fra;140", false), (Audio{{"", 130, 4}})) << "a language without a PID";
  EXPECT_EQ(read(",131"), (Audio{{"", 0, 4}})) << "the comma is part of the number";
  EXPECT_EQ(read("130=;140"), (Audio{{"", 140, 106}}));
  EXPECT_EQ(read("130=fra=eng"), (Audio{{"eng", 0, 4}}));
}

TEST_F(ChannelsFileTest, ABrokenLineTakesMoreOrLessThanItShould) {
  const std::string good(kSample), other = "Other" + good.substr(6);
  const std::string name99(99, 'n'), name100(100, 'n');
  EXPECT_EQ(ReadNames(good + other), (std::vector<std::string>{"Sample", "Other"}));
  EXPECT_EQ(ReadNames(name99 + good.substr(6)), std::vector{name99});
  EXPECT_EQ(ReadNames(good + name100 + good.substr(6) + other, NS_ERROR_INVALID_ARG),
            std::vector<std::string>{"Sample"});
  EXPECT_EQ(ReadNames(good + "\n" + other, NS_ERROR_INVALID_ARG),
            std::vector<std::string>{"Sample"})
      << "an empty line";
  EXPECT_EQ(ReadNames("A(P" + std::string(100, 'p') + ")" + good, NS_ERROR_INVALID_ARG).size(), 0u);
  // A line of the other platform, and a last one without an end.
  std::string crlf = good + other;
  crlf.insert(good.size() - 1, "\r");
  crlf.pop_back();
  EXPECT_EQ(ReadNames(crlf), (std::vector<std::string>{"Sample", "Other"}));
  // Nothing of a line is left for the next.
  Put(good + "Other(P):x\n");
  auto records = Read();
  ASSERT_EQ(records.size(), 2u);
  nsChannelsRecord empty;
  empty.mName = "Other";
  empty.mProvider = "P";
  empty.mCodeRateHP = empty.mCodeRateLP = 5;
  empty.mConstellation = 3;
  empty.mTransmissionMode = 1;
  EXPECT_EQ(records[1], empty);
  // A colon in a name is part of it; a parenthesis is not.
  EXPECT_EQ(ReadNames("A:B" + good.substr(6)), std::vector<std::string>{"A:B"});
  EXPECT_EQ(ReadNames("A (HD)(P)" + good.substr(16)), std::vector<std::string>{"A "});
  // No provider, no service.
  EXPECT_EQ(ReadNames("A()" + good.substr(16) + other), std::vector<std::string>{"Other"});
  EXPECT_EQ(TakeLog("error"),
            std::vector<std::string>{"error system.adapter.digitaltvreceiver: Failed to convert "
                                     "provider name"});
  // Audio that does not fit ends with its last whole entry, and the number behind it is still read.
  std::string audio;
  for (int pid = 1000; pid < 1020; ++pid) audio += (audio.empty() ? "" : ",") + std::to_string(pid);
  std::string line = good;
  line.replace(line.find("130="), line.rfind(':') - line.find("130="), audio + ";;");
  Put(line);
  records = Read();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].mAudio.size(), 19u);
  EXPECT_EQ(records[0].mAudio.back().mPid, 1018u);
  EXPECT_EQ(records[0].mServiceId, 1u);
}

TEST_F(ChannelsFileTest, AListIsWrittenInPart) {
  const auto services = NewArray();
  nsChannelsRecord record = SampleRecord();
  for (const char* name : {"A", "B"}) {
    record.mName = name;
    (void)services->AppendElement(ServiceOf(record).get(), false);
  }
  EXPECT_EQ(mFile->writeChannelsFile(services.get()), NS_OK);
  EXPECT_EQ(ReadNames(Text()), (std::vector<std::string>{"A", "B"}));
  // One without a list of audio channels has none.
  const auto bare = MakeRefCounted<nsBDAScanResultDigitalTvService>();
  EXPECT_EQ(bare->SetAudioChannels(nullptr), NS_OK);
  (void)services->AppendElement(bare.get(), false);
  // What is no result of a scan ends the list, with an error.
  (void)services->AppendElement(MakeRefCounted<nsDigitalTvService>().get(), false);
  (void)services->AppendElement(ServiceOf(record).get(), false);
  EXPECT_EQ(mFile->writeChannelsFile(services.get()), NS_ERROR_FAILURE);
  EXPECT_EQ(std::ranges::count(Text(), '\n'), 3);
  EXPECT_EQ(TakeLog("error"),
            std::vector<std::string>{"error system.adapter.digitaltvreceiver: Incorrect array "
                                     "object type, should be nsIBDAScanResultDigitalTvService"});
  EXPECT_EQ(mFile->writeChannelsFile(NewArray().get()), NS_OK);
  EXPECT_EQ(Text(), "");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(Place().parent_path()), {}), 1);
  std::filesystem::remove_all(Directory() / "app");
  EXPECT_EQ(mFile->writeChannelsFile(services.get()), NS_ERROR_FAILURE);
  EXPECT_EQ(TakeLog("error").back(),
            "error system.adapter.digitaltvreceiver: Unable to open " + Place().string());
}

TEST_F(ChannelsFileTest, TheListDoesNotFollowTheFile) {
  const auto services = NewArray();
  const auto length = [&] {
    uint32_t count = 0;
    EXPECT_EQ(services->GetLength(&count), NS_OK);
    return count;
  };
  EXPECT_EQ(mFile->Refresh(services.get()), NS_OK) << "there is none yet";
  Put(kSample);
  EXPECT_EQ(mFile->Refresh(services.get()), NS_OK);
  EXPECT_EQ(mFile->Refresh(services.get()), NS_OK);
  EXPECT_EQ(length(), 1u);
  const auto written = NewArray();
  (void)written->AppendElement(ServiceOf(SampleRecord()).get(), false);
  (void)written->AppendElement(ServiceOf(SampleRecord()).get(), false);
  EXPECT_EQ(mFile->writeChannelsFile(written.get()), NS_OK);
  EXPECT_EQ(mFile->Refresh(services.get()), NS_OK);
  EXPECT_EQ(length(), 2u);
  std::filesystem::remove(Place());
  EXPECT_EQ(mFile->Refresh(services.get()), NS_OK);
  EXPECT_EQ(length(), 2u);
  std::filesystem::create_directory(Place());
  EXPECT_EQ(mFile->Refresh(services.get()), NS_ERROR_NOT_AVAILABLE);
}

// What a list becomes by the two tables, worked out by hand and not by the writer.
TEST_F(ChannelsFileTest, TenThousandListsComeBackAsSomethingElse) {
  nsMutation random;
  const auto text = [&](size_t aMost) {
    std::string word;
    for (size_t left = 1 + random.Below(aMost); left > 0; --left)
      word += "abcXYZ 019:+;=,'\xC3\xA9"[random.Below(17)];
    return word;
  };
  for (int list = 0; list < 10000; ++list) {
    std::vector<nsChannelsRecord> expected;
    std::string file;
    for (size_t left = random.Below(4); left > 0; --left) {
      nsChannelsRecord record;
      record.mName = text(30);
      record.mProvider = text(30);
      record.mFrequency = static_cast<uint32_t>(random.Below(2000000));
      record.mBandwidth = static_cast<uint32_t>(random.Below(10));
      record.mCodeRateHP = static_cast<uint32_t>(random.Below(8));
      record.mCodeRateLP = static_cast<uint32_t>(random.Below(8));
      record.mConstellation = static_cast<uint32_t>(random.Below(6));
      record.mTransmissionMode = static_cast<uint32_t>(random.Below(4));
      record.mPriority = static_cast<uint32_t>(random.Below(7));
      record.mHierarchy = static_cast<uint32_t>(random.Below(3));
      record.mVideoPid = static_cast<uint32_t>(random.Below(8192));
      record.mPmtPid = static_cast<uint32_t>(random.Below(3) * random.Below(8192));
      record.mServiceId = static_cast<uint32_t>(random.Below(65536));
      for (size_t audio = random.Below(6); audio > 0; --audio)
        record.mAudio.push_back({random.Below(3) == 0 ? "" : "fra",
                                 static_cast<uint32_t>(random.Below(8192)),
                                 std::array{4u, 106u, 122u, 7u}[random.Below(4)]});
      file += NS_WriteChannelsLine(record);

      if (record.mBandwidth < 6 || record.mBandwidth > 8) record.mBandwidth = 0;
      record.mCodeRateHP = std::min(record.mCodeRateHP, 5u);
      record.mCodeRateLP = std::min(record.mCodeRateLP, 5u);
      record.mConstellation = std::min(record.mConstellation, 2u);
      record.mTransmissionMode = record.mTransmissionMode == 0 ? 0 : 1;
      record.mPriority = std::min(record.mPriority, 4u);
      record.mHierarchy = std::min(record.mHierarchy, 1u);
      std::erase_if(record.mAudio, [](const auto& aAudio) { return aAudio.mKind == 7; });
      std::ranges::stable_sort(record.mAudio, {}, &nsChannelsRecord::Audio::mKind);
      expected.push_back(record);
    }
    std::vector<nsChannelsRecord> got;
    for (size_t at = 0; at < file.size();) {
      const size_t end = file.find('\n', at) + 1;
      nsChannelsWords words;
      nsChannelsRecord record;
      ASSERT_EQ(NS_SplitChannelsLine(std::string_view(file).substr(at, end - at), &record.mName,
                                     &record.mProvider, &words),
                NS_OK);
      ASSERT_TRUE(NS_ReadChannelsWords(words, &record));
      got.push_back(record);
      at = end;
    }
    ASSERT_EQ(got, expected) << file;
    // A few of them through the disk.
    if (list % 100 != 0) continue;
    const auto services = NewArray();
    Put(file);
    const auto once = Read();
    for (const auto& record : once) (void)services->AppendElement(ServiceOf(record).get(), false);
    ASSERT_EQ(mFile->writeChannelsFile(services.get()), NS_OK);
    ASSERT_EQ(Read(), once) << file;
    ASSERT_EQ(once.size(), expected.size());
  }
}

TEST_F(ChannelsFileTest, AnyBytesAreReadOutsideTheLine) {
  nsMutation random;
  const std::string text = std::string(kSample) + "Other" + std::string(kSample.substr(6));
  for (int i = 0; i < 20000; ++i) {
    const std::string damaged = random.Damage(text, std::string_view("():;,=+\n\r\0\xFF", 11));
    nsChannelsRecord record;
    nsChannelsWords words;
    if (NS_SUCCEEDED(NS_SplitChannelsLine(damaged, &record.mName, &record.mProvider, &words))) {
      EXPECT_LT(record.mName.size() + record.mProvider.size() + words.mAudio.size(), 300u);
      (void)NS_ReadChannelsWords(words, &record);
    }
    if (i % 200 != 0) continue;
    Put(damaged);
    (void)mFile->parseChannelsFile(NewArray().get());
  }
}

}  // namespace

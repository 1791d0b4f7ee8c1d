// Streams that other people's writers made (data/digitaltv): what they hold was written down by
// hand, and is what their makers were told.
#include <sstream>

#include "nsDigitalTvTest.h"
#include "nsTransportInspector.h"

namespace {

std::vector<uint8_t> Read(const char* aName) {
  std::ifstream file(
      std::string(VOREL_SOURCE_DIR "/components/system/tests/data/digitaltv/") + aName,
      std::ios::binary);
  EXPECT_TRUE(file) << aName;
  return {std::istreambuf_iterator<char>(file), {}};
}

class StreamsTest : public nsDigitalTvTest {
 protected:
  void SetUp() override { StartHost(); }

  static nsTransportInspector::Report Inspect(std::span<const uint8_t> aBytes,
                                              size_t aPiece = 4096) {
    nsTransportInspector inspector;
    for (; !aBytes.empty(); aBytes = aBytes.subspan(std::min(aPiece, aBytes.size())))
      inspector.Push(aBytes.first(std::min(aPiece, aBytes.size())));
    return inspector.Finish();
  }
  /// "ID name/provider type pmt pcr video: pid kind language, ...; teletext subtitling running
  /// number flags"
  static std::vector<std::string> Lines(const nsTransportInspector::Report& aReport) {
    std::vector<std::string> lines;
    for (const auto& service : aReport.mServices) {
      const BDAService& record = service.mRecord;
      std::ostringstream line;
      line << record.service_id << " " << service.mName << "/" << service.mProvider << " "
           << +record.service_type << " " << record.pmt_pid << " " << record.pcr_pid << " "
           << record.video_pid << ":";
      for (const auto& audio : service.mAudio)
        line << " " << audio.mPid << " " << audio.mKind << " " << audio.mLanguage << ",";
      line << " " << record.teletext_pid << " " << record.subtitling_pid << " "
           << record.running_status << " " << record.channel_number
           << (record.scrambled ? " scrambled" : "") << " " << service.mLeftOut;
      lines.push_back(line.str());
    }
    return lines;
  }
};

TEST_F(StreamsTest, TheMultiplexerOfFfmpegIsReadInAnotherWay) {
  // ffprobe names the same programs, PIDs, languages and kinds.
  const auto stream = Read("ffmpeg.ts");
  const auto report = Inspect(stream);
  EXPECT_EQ(report.mTransponder.transport_stream_id, 7u);
  EXPECT_EQ(Lines(report), (std::vector<std::string>{
                               "11 Un/FFmpeg 1 4096 256 256: 257 4 fra, 258 106 eng, 0 0 4 0 ",
                               "12 Zweite/FFmpeg 1 4097 259 259: 260 4 deu, 0 0 4 0 "}));
  EXPECT_EQ(report.mProblems, std::vector<std::string>{"the NIT is missing"});
  EXPECT_EQ(report.mTotals.mPackets, stream.size() / 188);
  for (const size_t piece : {1u, 200u}) EXPECT_EQ(Lines(Inspect(stream, piece)), Lines(report));
}

TEST_F(StreamsTest, TheTablesOfLibdvbpsiAreReadInAnotherWay) {
  const auto report = Inspect(Read("dvbpsi.ts"));
  EXPECT_EQ(Lines(report),
            (std::vector<std::string>{
                "769 Teleö HD/ARTV2 1 768 512 512: 513 4 fra, 514 122 eng, 515 516 4 2 ",
                "770 Fm 101/Radio 2 784 529 0: 529 4 , 530 106 , 0 0 1 21 scrambled ",
                "771 / 0 800 8191 0: 0 0 4 0 no name"}))
      << "its descriptor stands in the last five bytes of its loop";
  const BDATransponder& transponder = report.mTransponder;
  EXPECT_EQ(transponder.transport_stream_id, 0x1234u);
  EXPECT_EQ(transponder.network_id, 0x3085u);
  EXPECT_EQ(transponder.original_network_id, 0x20FAu);
  EXPECT_EQ(transponder.network_name, "Bouquet");
  EXPECT_EQ(transponder.frequency, 594000);
  EXPECT_EQ(transponder.bandwidth, 8);
  EXPECT_FALSE(transponder.priority);
  EXPECT_EQ(transponder.constellation, 2);
  EXPECT_EQ(transponder.code_rate_hp, 2);
  EXPECT_EQ(transponder.code_rate_lp, 0);
  EXPECT_EQ(transponder.guard_interval, 0);
  EXPECT_EQ(transponder.transmission_mode, 1);
  EXPECT_EQ(report.mProblems,
            std::vector<std::string>{"service 771 has no name: a scan leaves it out"});
}

TEST_F(StreamsTest, WhatIsBrokenIsNotTold) {
  auto stream = Read("ffmpeg.ts");
  const auto tells = [&](const char* aText) {
    const auto problems = Inspect(stream).mProblems;
    EXPECT_NE(std::ranges::find(problems, aText), problems.end())
        << testing::PrintToString(problems);
  };
  size_t video = 0;  // a packet of PID 256 in the middle
  for (size_t at = 188 * 100; video == 0; at += 188)
    if ((stream[at + 1] & 0x1F) == 1 && stream[at + 2] == 0 && (stream[at + 3] & 0x10)) video = at;
  stream[video + 1] |= 0x80;
  tells("1 packet was received with errors");
  tells("PID 0x0100: 1 discontinuity");
  stream.insert(stream.begin() + static_cast<ptrdiff_t>(video), 77, 0);
  tells("77 bytes are in no packet; synchronisation was lost 1 time");
  stream = Read("dvbpsi.ts");
  stream[20] ^= 1;  // in the PAT
  tells("PID 0x0000: 1 section with a wrong CRC");
  tells("the PAT is missing");
  stream = Read("dvbpsi.ts");
  stream.erase(stream.begin() + 188 * 2, stream.begin() + 188 * 4);  // SDT, first program map
  tells("the SDT is missing");
  tells("the PMT of service 769 is missing");
  tells("service 770 has no name: a scan leaves it out");
  stream.assign(1000, 'x');
  tells("this is no transport stream");
  stream.clear();
  tells("this is no transport stream");
}

}  // namespace

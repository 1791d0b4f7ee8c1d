// The software demultiplexer on streams made by hand, cut and damaged.
#include "nsTransportDemultiplexer.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "nsDvbCrc.h"
#include "nsMutation.h"
#include "nsTestStream.h"

namespace {

using namespace vorel::test;

class Sink final : public nsTransportSink {
 public:
  void OnSection(uint16_t aPid, std::span<const uint8_t> aSection) override {
    mSections.emplace_back(aPid, Bytes(aSection.begin(), aSection.end()));
    mThen();
  }
  void OnPackets(std::span<const uint8_t> aPackets) override {
    EXPECT_EQ(aPackets.size() % 188, 0u);
    mPackets += aPackets;
  }
  std::vector<std::pair<unsigned, Bytes>> mSections;
  Bytes mPackets;
  std::function<void()> mThen = [] {};
};

class DemultiplexerTest : public testing::Test {
 protected:
  void Push(std::span<const uint8_t> aBytes, size_t aPiece = SIZE_MAX) {
    while (!aBytes.empty()) {
      const size_t count = std::min(aPiece, aBytes.size());
      mDemultiplexer.Push(aBytes.first(count));
      aBytes = aBytes.subspan(count);
    }
    mDemultiplexer.Finish();
  }
  std::vector<std::pair<unsigned, Bytes>> TakeSections() {
    return std::exchange(mSink.mSections, {});
  }

  Sink mSink;
  nsTransportDemultiplexer mDemultiplexer{mSink};
};

Bytes Filled(size_t aSize, uint8_t aByte) { return Bytes(aSize, aByte); }

std::vector<std::pair<unsigned, Bytes>> On(unsigned aPid, const std::vector<Bytes>& aSections) {
  std::vector<std::pair<unsigned, Bytes>> expected;
  for (const Bytes& section : aSections) expected.emplace_back(aPid, section);
  return expected;
}

TEST(DvbCrcTest, ALengthGoesAnotherWayThroughTheBlocks) {
  EXPECT_EQ(NS_DvbCrc32(BytesOf("123456789")), 0x0376E6E7u);  // the catalogued check value
  nsMutation random;
  Bytes bytes(4200);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random.Below(256));
  for (size_t length = 0; length <= 400; ++length)
    for (const size_t at : {size_t{0}, random.Below(100)}) {
      const auto part = std::span<const uint8_t>(bytes).subspan(at, length);
      ASSERT_EQ(NS_DvbCrc32(part), Crc(part)) << length;
      ASSERT_EQ(NS_DvbCrc32ByTable(part), Crc(part)) << length;
    }
  EXPECT_EQ(NS_DvbCrc32(bytes), Crc(bytes));
}

TEST_F(DemultiplexerTest, ASectionDependsOnHowTheStreamWasCut) {
  // Several in a packet, headers across packets, one of full length, one that ends with its packet.
  std::vector<Bytes> sections;
  for (const size_t size : {1, 40, 130, 3, 180, 172, 1009, 4084, 0, 171, 500})
    sections.push_back(Section(0x42, 7, Filled(size, static_cast<uint8_t>(size)), 0,
                               static_cast<unsigned>(sections.size()), 10));
  Stream stream;
  stream.Sections(0x11, sections);
  stream.Packet(0x100, true, Filled(184, 0x47));
  for (const size_t piece : {1ul, 3ul, 187ul, 188ul, 189ul, 1000ul, SIZE_MAX}) {
    ASSERT_EQ(mDemultiplexer.AddSectionPid(0x11, false), NS_OK);
    Push(stream.mBytes, piece);
    EXPECT_EQ(TakeSections(), On(0x11, sections)) << piece;
  }
  EXPECT_EQ(mDemultiplexer.Totals().mBrokenSections, 0u);
  EXPECT_EQ(mDemultiplexer.Totals().mCrcErrors, 0u);
  EXPECT_EQ(mDemultiplexer.Totals().mSkippedBytes, 0u);
  EXPECT_EQ(mDemultiplexer.Totals().mDiscontinuities, 0u);
}

TEST_F(DemultiplexerTest, APointerFieldIsBelieved) {
  const Bytes first = Section(0x02, 1, Filled(200, 1)), second = Section(0x02, 2, Filled(20, 2));
  for (unsigned pointer = 0; pointer < 256; ++pointer) {
    ASSERT_EQ(mDemultiplexer.AddSectionPid(0x20, false), NS_OK);
    mDemultiplexer.ResetStatistics();
    Stream stream;
    Bytes start{0};
    start += std::span(first).first(183);
    stream.Packet(0x20, true, start);
    Bytes next{static_cast<uint8_t>(pointer)};
    next += std::span(first).subspan(183);
    next.resize(std::max<size_t>(next.size(), 1 + pointer), 0xFF);
    next.resize(1 + pointer);
    next += second;
    next.resize(184, 0xFF);
    stream.Packet(0x20, true, next);
    Push(stream.mBytes);
    const auto sections = TakeSections();
    const size_t rest = first.size() - 183;
    const bool hasFirst = pointer >= rest && pointer <= 183,
               hasSecond = pointer + second.size() <= 183;
    std::vector<Bytes> expected;
    if (hasFirst) expected.push_back(first);
    if (hasSecond) expected.push_back(second);
    EXPECT_EQ(sections, On(0x20, expected)) << pointer;
    EXPECT_EQ(mDemultiplexer.Totals().mBrokenSections, hasFirst ? 0u : 1u) << pointer;
  }
}

TEST_F(DemultiplexerTest, ALostPacketJoinsTwoSections) {
  ASSERT_EQ(mDemultiplexer.AddSectionPid(0x12, false), NS_OK);
  const Bytes section = Section(0x4E, 1, Filled(900, 5));
  Stream stream;
  stream.Sections(0x12, {section}).Sections(0x12, {section}).Sections(0x12, {section});
  Bytes bytes = stream.mBytes;
  bytes.erase(bytes.begin() + 7 * 188, bytes.begin() + 8 * 188);  // within the second
  bytes[2 * 188 + 1] |= 0x80;                                     // a known error in the first
  bytes.insert(bytes.begin() + 12 * 188, bytes.begin() + 12 * 188, bytes.begin() + 12 * 188);
  const Bytes repeated(bytes.begin() + 11 * 188, bytes.begin() + 12 * 188);
  bytes.insert(bytes.begin() + 12 * 188, repeated.begin(), repeated.end());  // sent twice: allowed
  Push(bytes);
  EXPECT_EQ(TakeSections(), On(0x12, {section}));
  EXPECT_EQ(mDemultiplexer.Totals().mTransportErrors, 1u);
  EXPECT_EQ(mDemultiplexer.Totals().mDiscontinuities, 2u);
  EXPECT_EQ(mDemultiplexer.Totals().mBrokenSections, 2u);
}

TEST_F(DemultiplexerTest, AWrongSectionIsHandedOut) {
  ASSERT_EQ(mDemultiplexer.AddSectionPid(0, false), NS_OK);
  const Bytes good = Section(0, 1, Filled(8, 0));
  Bytes wrong = good, shorter = good, longer = good;
  wrong[9] ^= 1;
  shorter[2] = 5;    // no room for what every such section has
  longer[1] = 0xBF;  // 4,096 bytes and more
  longer[2] = 0xFF;
  const Bytes timeTable{0x70, 0x70, 5, 1, 2, 3, 4, 5};  // short header, no CRC
  for (const Bytes& bad : {wrong, shorter, longer})
    Push(Stream().Sections(0, {bad}).Sections(0, {good, timeTable}).mBytes);
  EXPECT_EQ(TakeSections(), On(0, {good, timeTable, good, timeTable, good, timeTable}));
  EXPECT_EQ(mDemultiplexer.Totals().mCrcErrors, 1u);
  EXPECT_EQ(mDemultiplexer.Totals().mBrokenSections, 2u);
}

TEST_F(DemultiplexerTest, ARepeatIsHandedOutOrAChangeIsNot) {
  ASSERT_EQ(mDemultiplexer.AddSectionPid(0x10, true), NS_OK);
  const auto section = [](unsigned aVersion, unsigned aNumber, unsigned aExtension) {
    return Section(0x40, aExtension, Filled(5, 1), aVersion, aNumber, 1);
  };
  Push(Stream()
           .Sections(0x10, {section(1, 0, 1), section(1, 1, 1), section(1, 0, 1), section(1, 0, 2),
                            section(2, 0, 1), section(1, 0, 1), section(1, 1, 1)})
           .mBytes);
  EXPECT_EQ(TakeSections(), On(0x10, {section(1, 0, 1), section(1, 1, 1), section(1, 0, 2),
                                      section(2, 0, 1), section(1, 0, 1)}));
  EXPECT_EQ(mDemultiplexer.Totals().mRepeatedSections, 2u);
  // Many more than are remembered, for ever.
  Stream many;
  std::vector<Bytes> sections;
  for (unsigned i = 0; i < 20000; ++i) sections.push_back(section(0, i & 255, i >> 8));
  Push(many.Sections(0x10, sections).mBytes);
  EXPECT_EQ(TakeSections(), On(0x10, sections));
}

TEST_F(DemultiplexerTest, AFileOfAnotherPacketSizeIsNoise) {
  const Bytes section = Section(0, 1, Filled(8, 0x47));
  Stream stream;
  for (int i = 0; i < 10; ++i) stream.Sections(0, {section}).Packet(0x47, true, Filled(184, 0x47));
  for (const size_t before : {0u, 4u})
    for (const size_t behind : {0u, 16u}) {
      if (before > 0 && behind > 0) continue;
      Bytes bytes = BytesOf("some noise, G and G again");
      const size_t noise = bytes.size() + before;
      for (size_t at = 0; at < stream.mBytes.size(); at += 188) {
        bytes += Filled(before, static_cast<uint8_t>(at / 188));
        bytes += std::span(stream.mBytes).subspan(at, 188);
        bytes += Filled(behind, static_cast<uint8_t>(at / 188));
      }
      for (const size_t piece : {1ul, 190ul, 5000ul}) {
        Sink sink;
        nsTransportDemultiplexer demultiplexer(sink);
        ASSERT_EQ(demultiplexer.AddSectionPid(0, false), NS_OK);
        demultiplexer.SetPacketPids(std::vector<uint16_t>{0x47});
        for (size_t at = 0; at < bytes.size(); at += piece)
          demultiplexer.Push(std::span(bytes).subspan(at, std::min(piece, bytes.size() - at)));
        EXPECT_EQ(demultiplexer.PacketStride(), 188 + before + behind);
        demultiplexer.Finish();
        EXPECT_EQ(sink.mSections.size(), 10u);
        EXPECT_EQ(sink.mPackets.size(), 10u * 188);
        EXPECT_EQ(demultiplexer.Totals().mSkippedBytes, noise);
      }
    }
}

TEST_F(DemultiplexerTest, NoiseInTheMiddleCostsMoreThanItself) {
  Stream stream;
  for (int i = 0; i < 40; ++i) stream.Packet(0x100, i == 0, Filled(184, static_cast<uint8_t>(i)));
  mDemultiplexer.SetPacketPids(std::vector<uint16_t>{0x100});
  Bytes bytes = stream.mBytes;
  const Bytes noise = BytesOf("noise GGGGGGGG");
  bytes.insert(bytes.begin() + 20 * 188, noise.begin(), noise.end());
  Push(bytes);
  EXPECT_EQ(mSink.mPackets, stream.mBytes);
  EXPECT_EQ(mDemultiplexer.Totals().mSyncLosses, 1u);
  EXPECT_EQ(mDemultiplexer.Totals().mSkippedBytes, noise.size());
}

TEST_F(DemultiplexerTest, AShortStreamIsNotSeen) {
  for (const size_t count : {1u, 2u, 3u}) {
    mSink.mPackets.clear();
    Stream stream;
    for (size_t i = 0; i < count; ++i) stream.Packet(0x100, true, Filled(184, 1));
    mDemultiplexer.SetPacketPids(std::vector<uint16_t>{0x100});
    Push(stream.mBytes);
    EXPECT_EQ(mSink.mPackets, stream.mBytes) << count;
  }
  mSink.mPackets.clear();
  Push(BytesOf("Goodness, Gracious, Great balls of fire"));
  EXPECT_TRUE(mSink.mPackets.empty());
}

// An independent filter: one packet at a time, from the beginning.
Bytes Filter(std::span<const uint8_t> aBytes, const std::vector<uint16_t>& aPids) {
  Bytes chosen;
  for (; aBytes.size() >= 188; aBytes = aBytes.subspan(188)) {
    const uint16_t pid = static_cast<uint16_t>((aBytes[1] & 0x1F) << 8 | aBytes[2]);
    if (std::ranges::count(aPids, pid) > 0) chosen += aBytes.first(188);
  }
  return chosen;
}

TEST_F(DemultiplexerTest, PacketsOfOtherPidsComeThrough) {
  nsMutation random;
  Stream stream;
  for (int i = 0; i < 3000; ++i)
    stream.Packet(static_cast<unsigned>(random.Below(12) * 700), random.Below(4) == 0,
                  Filled(1 + random.Below(184), static_cast<uint8_t>(random.Below(256))));
  const std::vector<uint16_t> pids{0, 700, 7700, 8191, 9000};
  mDemultiplexer.SetPacketPids(std::vector<uint16_t>{1, 2, 3});
  mDemultiplexer.SetPacketPids(pids);
  for (const size_t piece : {61ul, 188ul, 7777ul, SIZE_MAX}) {
    mSink.mPackets.clear();
    Push(stream.mBytes, piece);
    EXPECT_EQ(mSink.mPackets, Filter(stream.mBytes, pids)) << piece;
  }
  EXPECT_EQ(mDemultiplexer.Totals().mDiscontinuities, 0u);
}

TEST_F(DemultiplexerTest, PidsHaveNoLimit) {
  for (uint16_t pid = 8191; pid > 8191 - 64; --pid)
    EXPECT_EQ(mDemultiplexer.AddSectionPid(pid, false), NS_OK);
  EXPECT_EQ(mDemultiplexer.AddSectionPid(5, false), NS_ERROR_NOT_AVAILABLE);
  EXPECT_EQ(mDemultiplexer.AddSectionPid(8190, true), NS_OK);
  mDemultiplexer.RemoveSectionPid(8190);
  mDemultiplexer.RemoveSectionPid(8190);
  mDemultiplexer.RemoveSectionPid(9000);
  EXPECT_EQ(mDemultiplexer.AddSectionPid(5, false), NS_OK);
  EXPECT_EQ(mDemultiplexer.AddSectionPid(8192, false), NS_ERROR_INVALID_ARG);
  const Bytes section = Section(0x42, 1, Filled(10, 1));
  Push(Stream().Sections(5, {section}).Sections(8190, {section}).mBytes);
  EXPECT_EQ(TakeSections(), On(5, {section}));
}

TEST_F(DemultiplexerTest, ACallbackChangesThePidsUnderTheDemultiplexer) {
  const Bytes section = Section(0x42, 1, Filled(10, 1));
  ASSERT_EQ(mDemultiplexer.AddSectionPid(0x11, false), NS_OK);
  mSink.mThen = [&] {
    mDemultiplexer.RemoveSectionPid(0x11);
    for (uint16_t pid = 0x30; pid < 0x60; ++pid) (void)mDemultiplexer.AddSectionPid(pid, false);
  };
  Push(Stream().Sections(0x11, {section, section}).Sections(0x31, {section}).mBytes);
  EXPECT_EQ(mSink.mSections.size(), 2u);
  EXPECT_EQ(mSink.mSections[1].first, 0x31u);
}

TEST_F(DemultiplexerTest, DamagedBytesAreReadOutsideOrForEver) {
  nsMutation random;
  Stream stream;
  for (int i = 0; i < 30; ++i)
    stream.Sections(0x11, {Section(0x42, 1, Filled(random.Below(900), 7)), Section(0x46, 2, {})})
        .Packet(0x100, true, Filled(random.Below(185), 1));
  const std::string text(stream.mBytes.begin(), stream.mBytes.end());
  mDemultiplexer.CountAllPids(true);
  for (int i = 0; i < 300; ++i) {
    ASSERT_EQ(mDemultiplexer.AddSectionPid(0x11, i % 2 == 0), NS_OK);
    mDemultiplexer.ResetStatistics();
    const Bytes bytes = BytesOf(random.Damage(text, std::string_view("\x47\0\xFF\x11\x7F", 5)));
    Push(bytes, 1 + random.Below(2000));
    const auto& totals = mDemultiplexer.Totals();
    EXPECT_LE(totals.mPackets * 188 + totals.mSkippedBytes, bytes.size());
    for (const auto& [pid, section] : TakeSections()) {
      ASSERT_GE(section.size(), 3u);
      EXPECT_EQ(section.size(), 3u + ((section[1] & 15u) << 8 | section[2]));
    }
  }
}

}  // namespace

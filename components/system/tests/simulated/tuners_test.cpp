// Simulated tuners: what their facts make of a stream, and what a machine file says of them.
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>

#include "nsSimulatedMachineFile.h"
#include "nsTemporaryDirectory.h"
#include "nsTestStream.h"

namespace {

using vorel::test::Bytes;
using vorel::test::Stream;
using namespace std::chrono_literals;
using Runs = std::vector<std::span<const uint8_t>>;
using Reader = nsPlatformPacketReader;

// Packets of PID 100, every tenth with a clock reference: so many of them in a second.
Bytes Clocked(unsigned aPackets, unsigned aPerSecond) {
  Stream stream;
  for (unsigned i = 0; i < aPackets; ++i) stream.Packet(100, false, Bytes(176, uint8_t(i)));
  for (unsigned i = 0; i < aPackets; i += 10) {
    uint8_t* const packet = stream.mBytes.data() + i * 188;
    // The clock starts two seconds before it begins anew.
    const uint64_t end = (1ull << 33) * 300;
    const uint64_t clock = (end - 54'000'000 + i * 27'000'000ull / aPerSecond) % end;
    const uint64_t base = clock / 300, rest = clock % 300;
    packet[5] = 0x10;
    packet[6] = uint8_t(base >> 25);
    packet[7] = uint8_t(base >> 17);
    packet[8] = uint8_t(base >> 9);
    packet[9] = uint8_t(base >> 1);
    packet[10] = uint8_t((base & 1) << 7 | 0x7E | rest >> 8);
    packet[11] = uint8_t(rest);
  }
  return stream.mBytes;
}

class SimulatedTunersTest : public testing::Test {
 protected:
  void Insert(const Bytes& aStream, bool aOwnRate) {
    nsSimulatedTuner tuner;
    tuner.mOwnRate = aOwnRate;
    tuner.mTransmitters[506000].mStream = nsSimulatedStream::Make(aStream);
    mMachine.mTuners->Insert("a", std::move(tuner));
    ASSERT_EQ(mMachine.mTuners->OpenTuner("a", &mTuner), NS_OK);
    ASSERT_EQ(mTuner->Tune(506000, 8), NS_OK);
    ASSERT_EQ(mTuner->OpenPackets(&mReader), NS_OK);
  }
  Bytes Read(size_t aBytes) {
    Bytes bytes;
    Runs runs;
    while (bytes.size() < aBytes && NS_SUCCEEDED(mReader->ReadPackets(2000, &runs)))
      for (const auto run : runs) vorel::test::operator+=(bytes, run);
    return bytes;
  }
  void Change(const std::function<void(nsSimulatedTransmitter&)>& aChange) {
    mMachine.mTuners->Change(
        "a", [&](nsSimulatedTuner& aTuner) { aChange(aTuner.mTransmitters[506000]); });
  }

  nsSimulatedMachine mMachine;
  nsPlatformTunerRef mTuner;
  std::shared_ptr<Reader> mReader;
};

TEST_F(SimulatedTunersTest, StreamIsNotGivenByteByByteAndRoundAndRound) {
  const Bytes stream = Clocked(1000, 5000);
  Insert(stream, false);
  ASSERT_EQ(mReader->SetPids(std::vector<uint16_t>{Reader::kWholeStream}), NS_OK);
  const Bytes got = Read(stream.size() * 3);
  ASSERT_GE(got.size(), stream.size() * 3);
  for (size_t i = 0; i < got.size(); ++i) ASSERT_EQ(got[i], stream[i % stream.size()]) << i;
}

TEST_F(SimulatedTunersTest, OwnRateIsAnother) {
  Insert(Clocked(1000, 5000), true);
  ASSERT_EQ(mReader->SetPids(std::vector<uint16_t>{100}), NS_OK);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_GE(Read(size_t{1500} * 188).size(), 1500u * 188);
  const auto took = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(took, 290ms);
  EXPECT_LE(took, 2s) << "300 ms, and what a busy machine adds";
}

TEST_F(SimulatedTunersTest, ReaderThatStopsStopsTheTransmitter) {
  Insert(Clocked(1000, 5'000'000), true);  // 2 ms in 10 s
  ASSERT_EQ(mReader->SetPids(std::vector<uint16_t>{100}), NS_OK);
  std::this_thread::sleep_for(20ms);
  size_t most = 0;
  Runs runs;
  ASSERT_EQ(mReader->ReadPackets(1000, &runs), NS_OK);
  for (const auto run : runs) most += run.size();
  EXPECT_LE(most, 512u * 188) << "a read takes no more than is worth it";
}

TEST_F(SimulatedTunersTest, WrongBitsAreTooManyOrHitTheHead) {
  const Bytes stream = Clocked(1000, 5000);
  Insert(stream, false);
  Change([](nsSimulatedTransmitter& aTransmitter) { aTransmitter.mDamage = 7; });
  ASSERT_EQ(mReader->SetPids(std::vector<uint16_t>{100}), NS_OK);
  const Bytes got = Read(stream.size() * 2);
  size_t wrong = 0;
  for (size_t at = 0; at < got.size(); at += 188) {
    int bits = 0;
    for (size_t i = 0; i < 188; ++i) {
      const int differ = __builtin_popcount(got[at + i] ^ stream[(at + i) % stream.size()]);
      EXPECT_TRUE(i >= 4 || differ == 0);
      bits += differ;
    }
    EXPECT_LE(bits, 1);
    wrong += size_t(bits);
  }
  EXPECT_EQ(wrong, got.size() / 188 / 7);
}

TEST_F(SimulatedTunersTest, FactsThatChangeHaveNoEffectAtOnce) {
  Insert(Clocked(1000, 50000), true);
  ASSERT_EQ(mReader->SetPids(std::vector<uint16_t>{100}), NS_OK);
  Runs runs;
  ASSERT_EQ(mReader->ReadPackets(2000, &runs), NS_OK);
  Change([](nsSimulatedTransmitter& aTransmitter) { aTransmitter.mStalls = true; });
  bool locked = false;
  EXPECT_EQ(mTuner->ReadLocked(&locked), NS_OK);
  EXPECT_TRUE(locked);
  EXPECT_EQ(mReader->ReadPackets(50, &runs), NS_ERROR_NET_TIMEOUT);
  Change([](nsSimulatedTransmitter& aTransmitter) {
    aTransmitter.mStalls = aTransmitter.mLocks = false;
    aTransmitter.mQuality = 31;
    aTransmitter.mStrength = -77000;
  });
  EXPECT_EQ(mTuner->ReadLocked(&locked), NS_OK);
  EXPECT_FALSE(locked);
  uint32_t quality = 99;
  EXPECT_EQ(mTuner->ReadQuality(&quality), NS_OK);
  EXPECT_EQ(quality, 0u) << "of nothing";
  Change([](nsSimulatedTransmitter& aTransmitter) {
    aTransmitter.mLocks = true;
    aTransmitter.mLockDelay = 60ms;
  });
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(mReader->ReadPackets(5000, &runs), NS_OK);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 55ms) << "it locks anew";
  int32_t strength = 0;
  EXPECT_EQ(mTuner->ReadQuality(&quality), NS_OK);
  EXPECT_EQ(mTuner->ReadStrength(&strength), NS_OK);
  EXPECT_EQ(quality, 31u);
  EXPECT_EQ(strength, -77000);
}

TEST_F(SimulatedTunersTest, NeighbourIsReceivedInsteadOfTheNearest) {
  Insert(Clocked(100, 5000), false);
  mMachine.mTuners->Change("a", [](nsSimulatedTuner& aTuner) {
    auto& other = aTuner.mTransmitters[506300];
    other = aTuner.mTransmitters[506000];
    other.mStrength = -1000;
    other.mBandwidth = 7;
  });
  const auto strength = [&](uint32_t aFrequency, uint32_t aBandwidth) {
    int32_t found = 0;
    EXPECT_EQ(mTuner->Tune(aFrequency, aBandwidth), NS_OK);
    EXPECT_EQ(mTuner->ReadStrength(&found), NS_OK);
    return found;
  };
  EXPECT_EQ(strength(506166, 0), -1000);
  EXPECT_EQ(strength(506166, 8), -50000);
  EXPECT_EQ(strength(506140, 0), -50000);
  EXPECT_EQ(strength(505799, 0), -95000) << "nothing";
}

class TunerFileTest : public testing::Test {
 protected:
  TunerFileTest() {
    std::ofstream(mDirectory.Path() / "a.ts", std::ios::binary)
        .write(reinterpret_cast<const char*>(mStream.data()), std::streamsize(mStream.size()));
    std::ofstream(mDirectory.Path() / "empty.ts").flush();
  }
  std::string Read(const std::string& aText) {
    std::string message;
    (void)NS_ReadMachineText(aText, "m", mDirectory.Path().string(), &mMachine, &message);
    return message;
  }
  const Bytes mStream = Clocked(500, 5000);
  nsTemporaryDirectory mDirectory;
  std::unique_ptr<nsSimulatedMachine> mMachine;
};

TEST_F(TunerFileTest, WhatAFileSaysIsLost) {
  ASSERT_EQ(Read(R"({"tuners": [
    {"path": "p", "name": "Stick", "systems": ["cable", "terrestrial"], "parts": ["Demod", "Capture"],
     "rate": "fast", "frequencies": [
      {"frequency": 506000, "stream": "a.ts", "strength": -61000, "quality": 44, "bandwidth": 8},
      {"frequency": 514000, "stream": "empty.ts"}]},
    {"path": "q", "usedBy": "recorder"}, {"path": "r", "mayOpen": false}],
   "changes": [{"after": 1, "tuners": {"set": [
      {"path": "p", "frequencies": [{"frequency": 506000, "quality": 12},
                                    {"frequency": 522000, "stream": "a.ts"}]}]}},
     {"after": 1, "tuners": {"remove": ["p"], "insert": [{"path": "s"}]}}]})"),
            "");
  std::vector<nsTunerInfo> tuners;
  auto& port = *mMachine->mTuners;
  ASSERT_EQ(port.ListTuners(&tuners), NS_OK);
  ASSERT_EQ(tuners.size(), 3u);
  EXPECT_EQ(tuners[0].mName, "Stick");
  EXPECT_EQ(tuners[0].mSystems, (std::vector{nsTunerSystem::eCable, nsTunerSystem::eTerrestrial}));
  ASSERT_EQ(tuners[0].mParts.size(), 2u);
  EXPECT_EQ(tuners[0].mParts[1].mName, "Capture");
  EXPECT_NE(tuners[0].mParts[0].mPath, tuners[0].mParts[1].mPath);
  nsPlatformTunerRef tuner;
  EXPECT_EQ(port.OpenTuner("q", &tuner), NS_ERROR_FILE_IS_LOCKED);
  EXPECT_EQ(port.OpenTuner("r", &tuner), NS_ERROR_FILE_ACCESS_DENIED);
  ASSERT_EQ(port.OpenTuner("p", &tuner), NS_OK);
  EXPECT_EQ(tuner->Tune(514000, 8), NS_ERROR_FAILURE) << "no stream in the file";
  ASSERT_EQ(tuner->Tune(506000, 8), NS_OK);
  std::shared_ptr<Reader> reader;
  ASSERT_EQ(tuner->OpenPackets(&reader), NS_OK);
  ASSERT_EQ(reader->SetPids(std::vector<uint16_t>{Reader::kWholeStream}), NS_OK);
  Runs runs;
  ASSERT_EQ(reader->ReadPackets(2000, &runs), NS_OK);
  EXPECT_TRUE(std::ranges::equal(runs[0], std::span(mStream).first(runs[0].size())));
  uint32_t quality = 0;
  mMachine->ApplyNextChange();
  EXPECT_EQ(tuner->ReadQuality(&quality), NS_OK);
  EXPECT_EQ(quality, 12u);
  EXPECT_EQ(tuner->Tune(522000, 8), NS_OK);
  mMachine->ApplyNextChange();
  EXPECT_EQ(tuner->ReadQuality(&quality), NS_ERROR_NOT_AVAILABLE);
  ASSERT_EQ(port.ListTuners(&tuners), NS_OK);
  EXPECT_EQ(tuners.back().mPath, "s");
}

TEST_F(TunerFileTest, FaultyFileIsTaken) {
  EXPECT_EQ(Read(R"({"tuners": [{"path": "p"}, {"path": "p"}]})"),
            "m:1: the tuner \"p\" stands here a second time");
  EXPECT_EQ(Read("{\"tuners\": [{\"path\": \"p\", \"frequencies\": [{\"frequency\": 5,\n"
                 "\"stream\": \"none.ts\"}]}]}"),
            "m:2: the file \"" + (mDirectory.Path() / "none.ts").string() + "\" can't be read");
  EXPECT_NE(Read(R"({"tuners": [{"path": "p", "frequencies": [{"frequency": 5}]}]})"), "");
  EXPECT_NE(Read(R"({"tuners": [{"path": "p", "parts": ["1", "2", "3"]}]})"), "");
  EXPECT_NE(Read(R"({"changes": [{"after": 1, "tuners": {"set": [
                 {"path": "p", "frequencies": [{"frequency": 5, "quality": 101}]}]}}]})"),
            "");
}

}  // namespace

// What every backend of the port of tuners keeps to.
#include <set>
#include <thread>

#include "nsSimulatedMachine.h"
#include "nsTunersContract.h"

namespace {

using vorel::test::Bytes;
using vorel::test::Section;
using vorel::test::Stream;
using Reader = nsPlatformPacketReader;

class SimulatedMachine final : public nsTunersMachine {
 public:
  SimulatedMachine() { mMachine.mTuners->Insert("tuner"); }
  nsPlatformTuners& Port() override { return *mMachine.mTuners; }
  void Send(const Bytes& aStream) override {
    mMachine.mTuners->Change("tuner", [&](nsSimulatedTuner& aTuner) {
      auto& transmitter = aTuner.mTransmitters[kFrequency];
      transmitter.mStream = nsSimulatedStream::Make(aStream);
      transmitter.mLockDelay = std::chrono::milliseconds(20);
    });
  }
  void Unplug() override { mMachine.mTuners->Remove("tuner"); }

 private:
  nsSimulatedMachine mMachine;
};

// Packets with a number in each, of PIDs from 100 on in turn, and one table in between.
Bytes Numbered(unsigned aPids, unsigned aRounds = 48) {
  Stream stream;
  for (unsigned round = 0; round < aRounds; ++round) {
    for (unsigned i = 0; i < aPids; ++i) {
      Bytes payload(184, static_cast<uint8_t>(i));
      payload[0] = static_cast<uint8_t>(round);
      stream.Packet(100 + i, false, payload);
    }
    stream.Sections(17, {Section(0x42, round % 3, Bytes(40, 7)), Section(0x46, 9, Bytes(20, 8))});
  }
  return stream.mBytes;
}
unsigned PidOf(std::span<const uint8_t> aPacket) { return (aPacket[1] & 0x1Fu) << 8 | aPacket[2]; }

TEST_P(TunersContract, TunerIsNotToldOrOpensTwice) {
  std::vector<nsTunerInfo> tuners;
  ASSERT_EQ(Port().ListTuners(&tuners), NS_OK);
  ASSERT_EQ(tuners.size(), 1u);
  EXPECT_FALSE(tuners[0].mPath.empty());
  EXPECT_FALSE(tuners[0].mName.empty());
  EXPECT_LE(tuners[0].mParts.size(), 2u);
  nsPlatformTunerRef tuner = Open(), untouched;
  ASSERT_TRUE(tuner);
  EXPECT_EQ(Port().OpenTuner(tuners[0].mPath, &untouched), NS_ERROR_FILE_IS_LOCKED);
  EXPECT_EQ(Port().OpenTuner("no such tuner", &untouched), NS_ERROR_FILE_NOT_FOUND);
  EXPECT_FALSE(untouched);
  EXPECT_EQ(Path(), tuners[0].mPath) << "while it is used";
  EXPECT_EQ(tuner->Close(), NS_OK);
  EXPECT_EQ(tuner->Close(), NS_ERROR_ABORT);
  bool locked = true;
  EXPECT_EQ(tuner->ReadLocked(&locked), NS_ERROR_ABORT);
  EXPECT_EQ(tuner->Tune(nsTunersMachine::kFrequency, 8), NS_ERROR_ABORT);
  EXPECT_TRUE(locked);
  EXPECT_TRUE(Open()) << "after the end of the first";
}

TEST_P(TunersContract, LocksWhereNothingIsSentOrStaysDeaf) {
  mMachine->Send(Numbered(3));
  const auto tuner = Open();
  bool locked = true;
  EXPECT_EQ(tuner->ReadLocked(&locked), NS_OK);
  EXPECT_FALSE(locked) << "before it was tuned";
  ASSERT_EQ(tuner->Tune(nsTunersMachine::kSilent, 8), NS_OK);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(tuner->ReadLocked(&locked), NS_OK);
  EXPECT_FALSE(locked);
  int32_t noise = 0, strength = 0;
  const nsresult tells = tuner->ReadStrength(&noise);
  ASSERT_EQ(tuner->Tune(nsTunersMachine::kFrequency, 8), NS_OK);
  EXPECT_TRUE(AwaitLock(*tuner));
  EXPECT_EQ(tuner->ReadStrength(&strength), NS_OK);
  if (NS_SUCCEEDED(tells)) {
    EXPECT_GT(strength, noise);
  }
  uint32_t quality = 101;
  EXPECT_EQ(tuner->ReadQuality(&quality), NS_OK);
  EXPECT_LE(quality, 100u);
}

TEST_P(TunersContract, SectionsOfAnotherTableOrWithAWrongSumCome) {
  Stream stream;
  Bytes wrong = Section(0x42, 5, Bytes(30, 1));
  wrong.back() ^= 1;
  const Bytes large = Section(0x42, 5, Bytes(900, 2));
  for (int i = 0; i < 40; ++i)
    stream
        .Sections(17,
                  {wrong, Section(0x42, 6, Bytes(30, 3)), large, Section(0x46, 5, Bytes(30, 4))})
        .Packet(99, false, Bytes(184, 0));
  const auto tuner = Receive(stream.mBytes);
  const auto chosen = Sections(*tuner, {17, 0x42, 0xFF, 5, 0xFFFF});
  const auto any = Sections(*tuner, {17, 0, 0});
  std::vector<uint8_t> section;
  for (int i = 0; i < 5; ++i) {
    ASSERT_EQ(chosen->ReadSection(kLong, &section), NS_OK);
    EXPECT_EQ(section, large);
  }
  std::set<std::string> all;
  for (int i = 0; i < 12; ++i) {
    ASSERT_EQ(any->ReadSection(kLong, &section), NS_OK);
    all.emplace(section.begin(), section.end());
  }
  std::set<std::string> wanted;
  for (const Bytes& one : {Section(0x42, 6, Bytes(30, 3)), large, Section(0x46, 5, Bytes(30, 4))})
    wanted.emplace(one.begin(), one.end());
  EXPECT_EQ(all, wanted);
  std::shared_ptr<nsPlatformSectionReader> none;
  EXPECT_EQ(tuner->OpenSections({0x2000}, &none), NS_ERROR_INVALID_ARG);
  EXPECT_FALSE(none);
}

TEST_P(TunersContract, ReadWaitsForEverOrNotAtAll) {
  const auto tuner = Receive(Numbered(3));
  const auto sections = Sections(*tuner, {18, 0, 0});
  const auto packets = Packets(*tuner, {});
  std::vector<uint8_t> section{1};
  Runs runs;
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(sections->ReadSection(100, &section), NS_ERROR_NET_TIMEOUT);
  EXPECT_EQ(packets->ReadPackets(100, &runs), NS_ERROR_NET_TIMEOUT);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(190));
  EXPECT_EQ(section, std::vector<uint8_t>{1});
  auto waiting = std::async(std::launch::async, [&] {
    std::vector<uint8_t> never;
    return sections->ReadSection(nsPlatformSectionReader::kNoTimeout, &never);
  });
  auto alsoWaiting = std::async(std::launch::async, [&] {
    Runs never;
    return packets->ReadPackets(Reader::kNoTimeout, &never);
  });
  EXPECT_EQ(waiting.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  sections->Cancel();
  EXPECT_EQ(waiting.get(), NS_ERROR_ABORT);
  EXPECT_EQ(sections->ReadSection(0, &section), NS_ERROR_ABORT) << "and all to come";
  EXPECT_EQ(alsoWaiting.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  EXPECT_EQ(tuner->Close(), NS_OK);
  EXPECT_EQ(alsoWaiting.get(), NS_ERROR_ABORT);
}

TEST_P(TunersContract, PacketsAreOthersOrOutOfOrder) {
  const auto tuner = Receive(Numbered(4));
  const auto reader = Packets(*tuner, {100, 102});
  Runs runs;
  std::vector<Bytes> got;
  while (got.size() < 60) {
    ASSERT_EQ(reader->ReadPackets(kLong, &runs), NS_OK);
    ASSERT_FALSE(runs.empty());
    for (auto run : runs) {
      ASSERT_EQ(run.size() % 188, 0u);
      for (; !run.empty(); run = run.subspan(188)) got.emplace_back(run.begin(), run.begin() + 188);
    }
  }
  for (size_t i = 0; i + 1 < got.size(); ++i) {
    ASSERT_EQ(got[i][0], 0x47);
    // 100, 102, 100, ...; of the same round, then of the next.
    ASSERT_EQ(PidOf(got[i]) + PidOf(got[i + 1]), 202u) << i;
    const unsigned next = PidOf(got[i]) == 100 ? got[i][4] : (got[i][4] + 1u) % 48;
    ASSERT_EQ(got[i + 1][4], next) << i;
  }
}

TEST_P(TunersContract, ChangeOfPidsIsNotSeenByAReadThatWaits) {
  const auto tuner = Receive(Numbered(4));
  const auto reader = Packets(*tuner, {});
  auto waiting = std::async(std::launch::async, [&] {
    Runs runs;
    const nsresult rv = reader->ReadPackets(kLong, &runs);
    return NS_SUCCEEDED(rv) ? PidOf(runs.front()) : 0;
  });
  EXPECT_EQ(waiting.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  EXPECT_EQ(reader->SetPids(std::vector<uint16_t>{103}), NS_OK);
  EXPECT_EQ(waiting.get(), 103u);
  EXPECT_EQ(reader->SetPids(std::vector<uint16_t>{101}), NS_OK);
  Runs runs;
  unsigned pid = 0;
  for (int i = 0; i < 100 && pid != 101; ++i) {
    ASSERT_EQ(reader->ReadPackets(kLong, &runs), NS_OK);
    pid = PidOf(runs.back());
  }
  EXPECT_EQ(pid, 101u);
  EXPECT_EQ(reader->SetPids(std::vector<uint16_t>{0x2001}), NS_ERROR_INVALID_ARG);
  EXPECT_EQ(reader->SetPids(std::vector<uint16_t>{Reader::kWholeStream, 1}), NS_ERROR_INVALID_ARG);
}

TEST_P(TunersContract, MorePidsThanADeviceFiltersAreLost) {
  const auto tuner = Receive(Numbered(150));
  std::vector<uint16_t> most, whole{Reader::kWholeStream};
  for (uint16_t pid = 100; pid < 250; ++pid) most.push_back(pid);
  const auto chosen = Packets(*tuner, most), all = Packets(*tuner, whole);
  std::set<unsigned> seen, seenOfAll;
  Runs runs;
  for (int i = 0; i < 1000 && (seen.size() < 150 || seenOfAll.size() < 151); ++i) {
    ASSERT_EQ(chosen->ReadPackets(kLong, &runs), NS_OK);
    for (auto run : runs)
      for (; !run.empty(); run = run.subspan(188)) seen.insert(PidOf(run));
    ASSERT_EQ(all->ReadPackets(kLong, &runs), NS_OK);
    for (auto run : runs)
      for (; !run.empty(); run = run.subspan(188)) seenOfAll.insert(PidOf(run));
  }
  EXPECT_EQ(seen.size(), 150u);
  EXPECT_FALSE(seen.contains(17));
  EXPECT_EQ(seenOfAll.size(), 151u);
}

TEST_P(TunersContract, ReadersStandStillWhenTunedAnew) {
  const auto tuner = Receive(Numbered(2));
  const auto reader = Packets(*tuner, {100});
  const auto sections = Sections(*tuner, {17, 0x46});
  Runs runs;
  std::vector<uint8_t> section;
  ASSERT_EQ(reader->ReadPackets(kLong, &runs), NS_OK);
  ASSERT_EQ(tuner->Tune(nsTunersMachine::kSilent, 8), NS_OK);
  ASSERT_EQ(tuner->Tune(nsTunersMachine::kFrequency, 8), NS_OK);
  EXPECT_TRUE(AwaitLock(*tuner));
  EXPECT_EQ(reader->ReadPackets(kLong, &runs), NS_OK);
  EXPECT_EQ(sections->ReadSection(kLong, &section), NS_OK);
}

TEST_P(TunersContract, UnpluggedTunerHangsOrGoesOn) {
  const auto tuner = Receive(Numbered(2));
  const auto reader = Packets(*tuner, {100});
  const auto sections = Sections(*tuner, {18, 0, 0});
  Runs runs;
  ASSERT_EQ(reader->ReadPackets(kLong, &runs), NS_OK);
  const Bytes before(runs.front().begin(), runs.front().end());
  auto waiting = std::async(std::launch::async, [&] {
    std::vector<uint8_t> never;
    return sections->ReadSection(nsPlatformSectionReader::kNoTimeout, &never);
  });
  EXPECT_EQ(waiting.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
  mMachine->Unplug();
  EXPECT_EQ(waiting.get(), NS_ERROR_NOT_AVAILABLE);
  EXPECT_TRUE(std::ranges::equal(before, runs.front())) << "views stay";
  nsresult rv = NS_OK;
  Runs more;
  for (int i = 0; i < 1000 && NS_SUCCEEDED(rv); ++i) rv = reader->ReadPackets(kLong, &more);
  EXPECT_EQ(rv, NS_ERROR_NOT_AVAILABLE);
  bool locked = true;
  EXPECT_EQ(tuner->ReadLocked(&locked), NS_ERROR_NOT_AVAILABLE);
  EXPECT_EQ(tuner->Tune(nsTunersMachine::kFrequency, 8), NS_ERROR_NOT_AVAILABLE);
  EXPECT_EQ(tuner->Close(), NS_OK);
  EXPECT_EQ(Path(), "");
}

TEST_P(TunersContract, ViewsOrReadersDieWithTheTuner) {
  auto tuner = Receive(Numbered(2));
  const auto reader = Packets(*tuner, {100, 101});
  Runs runs;
  ASSERT_EQ(reader->ReadPackets(kLong, &runs), NS_OK);
  std::vector<std::thread> readers;
  const auto extra = Packets(*tuner, {101});
  readers.emplace_back([&] {
    Runs own;
    while (NS_SUCCEEDED(extra->ReadPackets(kLong, &own))) {
    }
  });
  tuner = nullptr;  // under load
  for (std::thread& thread : readers) thread.join();
  EXPECT_EQ(runs.front()[0], 0x47);
  EXPECT_EQ(reader->ReadPackets(kLong, &runs), NS_ERROR_ABORT);
  EXPECT_EQ(runs.front()[0], 0x47);
}

INSTANTIATE_TEST_SUITE_P(
    Simulated, TunersContract,
    testing::Values(NS_ContractBackend<nsTunersMachine, SimulatedMachine>("simulated")),
    testing::PrintToStringParamName());

}  // namespace

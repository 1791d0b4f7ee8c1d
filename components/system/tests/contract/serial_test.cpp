// What every backend of the port of serial lines keeps to.
#include <future>
#include <memory>
#include <thread>

#include "nsSerialContract.h"
#include "nsSimulatedMachine.h"

namespace {

using P = nsPlatformCommPort;

class SimulatedLine final : public nsSerialMachine {
 public:
  SimulatedLine() { mMachine.mComm->Insert("COM40"); }
  nsPlatformComm& Comm() override { return *mMachine.mComm; }
  void Say(const std::string& aBytes) override { mMachine.mComm->Say("COM40", aBytes); }
  std::string Hear(size_t aCount) override {
    mMachine.mComm->SetLines("COM40", {.mCTS = true});
    while (mHeard.size() < aCount) mHeard += mMachine.mComm->TakeWritten("COM40");
    std::string heard = mHeard.substr(0, aCount);
    mHeard.erase(0, aCount);
    return heard;
  }
  void Unplug() override { mMachine.mComm->Remove("COM40"); }
  void Hold(nsPlatformCommPort& aPort) override {
    nsCommConfig config;
    EXPECT_EQ(aPort.GetCommState(&config.mDCB), NS_OK);
    config.mDCB.mFlags |= nsCommDCB::kOutxCtsFlow;
    EXPECT_EQ(aPort.SetCommConfig(config, nsCommConfig::kSize), NS_OK);
    mMachine.mComm->SetLines("COM40", {.mCTS = false});
  }

 private:
  nsSimulatedMachine mMachine;
  std::string mHeard;
};

std::string AllBytes() {
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes += static_cast<char>(i);
  return bytes;
}

TEST_P(SerialContract, APortIsOpenedTwiceOrNeverAgain) {
  nsPlatformCommPortRef first, second;
  ASSERT_EQ(TryOpen(false, &first), NS_OK);
  EXPECT_EQ(TryOpen(false, &second), NS_ERROR_FILE_IS_LOCKED);
  EXPECT_EQ(TryOpen(false, &second, "\\\\.\\COM41"), NS_ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(second, nullptr);
  EXPECT_EQ(first->CloseHandle(), NS_OK);
  EXPECT_EQ(first->CloseHandle(), NS_ERROR_ABORT);
  EXPECT_EQ(TryOpen(true, &second), NS_OK);
  second = nullptr;  // the last reference closes too
  EXPECT_EQ(TryOpen(false, &first), NS_OK);
  nsCommConfig config;
  EXPECT_EQ(mMachine->Comm().ReadDefaultCommConfig("COM40", &config, nsCommConfig::kSize), NS_OK);
  EXPECT_EQ(mMachine->Comm().ReadDefaultCommConfig("COM41", &config, nsCommConfig::kSize),
            NS_ERROR_FILE_NOT_FOUND);
  std::vector<nsCommPortInfo> ports;
  ASSERT_EQ(mMachine->Comm().ListPorts(&ports), NS_OK);
  ASSERT_EQ(ports.size(), 1u);
  EXPECT_EQ(ports[0].mName, "COM40");
}

TEST_P(SerialContract, AByteIsLostOrChangedOnItsWay) {
  const auto port = Open(false);
  const std::string bytes = AllBytes();
  uint32_t written = 0;
  ASSERT_EQ(port->WriteFile(bytes.data(), 256, &written, nullptr), NS_OK);
  EXPECT_EQ(written, 256u);
  EXPECT_EQ(mMachine->Hear(256), bytes);
  mMachine->Say(bytes);
  EXPECT_EQ(Read(*port, 256), bytes);
}

TEST_P(SerialContract, AReadOutlastsItsTimeOutOrLosesWhatCame) {
  const auto port = Open(false, {.mReadTotalTimeoutConstant = 30});
  EXPECT_EQ(Read(*port, 5), "");
  mMachine->Say("abc");
  EXPECT_EQ(Read(*port, 5), "abc");
  ASSERT_EQ(port->SetCommTimeouts({.mReadIntervalTimeout = 30}), NS_OK);
  mMachine->Say("de");
  EXPECT_EQ(Read(*port, 5), "de") << "the time between bytes begins with the first";
  ASSERT_EQ(port->SetCommTimeouts(kAtOnce), NS_OK);
  EXPECT_EQ(Read(*port, 5), "");
  constexpr uint32_t kMax = nsCommTimeouts::kMaxDword;
  ASSERT_EQ(port->SetCommTimeouts({kMax, kMax, 20000, 0, 0}), NS_OK);
  mMachine->Say("f");
  EXPECT_EQ(Read(*port, 5), "f") << "waits for the first byte only";
}

TEST_P(SerialContract, TheLineIsDrivenOtherwiseThanItWasSet) {
  const auto port = Open(false);
  for (const uint32_t flags :
       {0u, nsCommDCB::kOutX | nsCommDCB::kInX, nsCommDCB::kOutxCtsFlow | 0x2000u}) {
    nsCommConfig config;
    ASSERT_EQ(port->GetCommState(&config.mDCB), NS_OK);
    config.mDCB.mBaudRate = 128000 + flags;
    config.mDCB.mFlags = nsCommDCB::kBinary | nsCommDCB::kParity | flags;
    ASSERT_EQ(port->SetCommConfig(config, nsCommConfig::kSize), NS_OK);
    nsCommDCB dcb;
    ASSERT_EQ(port->GetCommState(&dcb), NS_OK);
    EXPECT_EQ(dcb, config.mDCB) << std::hex << dcb.mFlags << " " << config.mDCB.mFlags;
  }
  nsCommConfig config;
  EXPECT_EQ(port->GetCommConfig(&config, 51), NS_ERROR_INVALID_ARG);
  EXPECT_EQ(port->SetCommConfig(config, 51), NS_ERROR_INVALID_ARG);
}

TEST_P(SerialContract, BytesThatLieThereAreToldAgainOrNotAtAll) {
  const auto port = Open(true, kAtOnce);
  ASSERT_EQ(port->SetCommMask(P::kEvRxChar), NS_OK);
  mMachine->Say("a");
  EXPECT_EQ(Events(Wait(*port)), P::kEvRxChar) << "also one that was first";
  const auto second = Wait(*port);
  uint32_t events = 77;
  EXPECT_EQ(second->GetResult(false, &events), NS_ERROR_IN_PROGRESS);
  EXPECT_EQ(port->WaitCommEvent(std::make_shared<nsOverlapped>()), NS_ERROR_INVALID_ARG);
  std::thread peer([&] { mMachine->Say("b"); });
  EXPECT_EQ(Events(second), P::kEvRxChar);
  peer.join();

  const auto third = Wait(*port);
  ASSERT_EQ(port->SetCommMask(P::kEvTxEmpty), NS_OK);
  EXPECT_EQ(Events(third), 0u) << "another mask ends the wait";
  const auto fourth = Wait(*port);
  uint32_t written = 0;
  ASSERT_EQ(port->WriteFile("x", 1, &written, std::make_shared<nsOverlapped>()), NS_OK);
  EXPECT_EQ(Events(fourth), P::kEvTxEmpty);
  nsCommStat stat;
  uint32_t errors = 77;
  ASSERT_EQ(port->ClearCommError(&errors, &stat), NS_OK);
  EXPECT_EQ(stat.mInQueue, 2u);
  EXPECT_EQ(errors, 0u);
  ASSERT_EQ(port->PurgeComm(P::kPurgeRxClear), NS_OK);
  ASSERT_EQ(port->ClearCommError(&errors, &stat), NS_OK);
  EXPECT_EQ(stat.mInQueue, 0u);
}

TEST_P(SerialContract, CloseLeavesAUserWaiting) {
  for (int what = 0; what < 3; ++what) {
    const bool overlapped = what > 0;
    const auto port = Open(overlapped);
    ASSERT_EQ(port->SetCommMask(P::kEvRxChar), NS_OK);
    std::promise<void> begun;
    auto user = std::async(std::launch::async, [&] {
      char byte;
      uint32_t count = 0;
      const auto record = std::make_shared<nsOverlapped>();
      nsresult rv;
      begun.set_value();
      if (what == 0) return port->ReadFile(&byte, 1, &count, nullptr);
      if (what == 1)
        rv = port->ReadFile(&byte, 1, &count, record);
      else
        rv = port->WaitCommEvent(record);
      return rv == NS_ERROR_IN_PROGRESS ? record->GetResult(true, &count) : rv;
    });
    begun.get_future().wait();
    EXPECT_EQ(port->CloseHandle(), NS_OK);
    EXPECT_EQ(user.get(), NS_ERROR_ABORT) << what;
    char byte;
    uint32_t count = 0;
    nsCommDCB dcb;
    EXPECT_EQ(port->ReadFile(&byte, 1, &count, nullptr), NS_ERROR_ABORT);
    EXPECT_EQ(port->SetCommMask(0), NS_ERROR_ABORT);
    EXPECT_EQ(port->GetCommState(&dcb), NS_ERROR_ABORT);
    EXPECT_EQ(port->EscapeCommFunction(P::kSetDtr), NS_ERROR_ABORT);
  }
}

TEST_P(SerialContract, ADeviceThatIsPulledOutLeavesAUserWaiting) {
  const auto port = Open(true, kAtOnce);
  ASSERT_EQ(port->SetCommMask(P::kEvRxChar | P::kEvDsr), NS_OK);
  const auto wait = Wait(*port);
  std::thread hand([&] { mMachine->Unplug(); });
  uint32_t count = 0;
  EXPECT_EQ(wait->GetResult(true, &count), NS_ERROR_NOT_AVAILABLE);
  hand.join();
  EXPECT_EQ(port->WaitCommEvent(std::make_shared<nsOverlapped>()), NS_ERROR_NOT_AVAILABLE);
  char byte;
  EXPECT_EQ(port->ReadFile(&byte, 1, &count, std::make_shared<nsOverlapped>()),
            NS_ERROR_NOT_AVAILABLE);
  EXPECT_EQ(port->CloseHandle(), NS_OK);
  nsPlatformCommPortRef again;
  EXPECT_EQ(TryOpen(true, &again), NS_ERROR_FILE_NOT_FOUND);
}

TEST_P(SerialContract, AReadThatIsPulledOutFromUnderWaitsForEver) {
  const auto port = Open(false);
  std::thread hand([&] { mMachine->Unplug(); });
  char byte;
  uint32_t count = 0;
  EXPECT_EQ(port->ReadFile(&byte, 1, &count, nullptr), NS_ERROR_NOT_AVAILABLE);
  hand.join();
}

TEST_P(SerialContract, AWriteThatGoesOnLosesBytesOrItsRecord) {
  const auto port = Open(true, kAtOnce);
  mMachine->Hold(*port);
  std::string bytes;
  while (bytes.size() < 300000) bytes += AllBytes();
  const auto count = static_cast<uint32_t>(bytes.size());
  uint32_t written = 0;
  auto record = std::make_shared<nsOverlapped>();
  auto second = std::make_shared<nsOverlapped>();
  ASSERT_EQ(port->WriteFile(bytes.data(), count, &written, record), NS_ERROR_IN_PROGRESS);
  EXPECT_EQ(record->GetResult(false, &written), NS_ERROR_IN_PROGRESS);
  ASSERT_EQ(port->WriteFile("second", 6, &written, second), NS_ERROR_IN_PROGRESS);
  nsCommStat stat;
  uint32_t errors = 0;
  ASSERT_EQ(port->ClearCommError(&errors, &stat), NS_OK);
  EXPECT_GT(stat.mOutQueue, 6u);
  EXPECT_TRUE(stat.mFlags & nsCommStat::kTxim);
  const std::string sent = bytes;
  bytes.assign(bytes.size(), '!');  // the caller's buffer is the caller's again
  EXPECT_TRUE(mMachine->Hear(count) == sent);
  EXPECT_EQ(record->GetResult(true, &written), NS_OK);
  EXPECT_EQ(written, count);
  EXPECT_EQ(mMachine->Hear(6), "second");
  EXPECT_EQ(second->GetResult(true, &written), NS_OK);
}

TEST_P(SerialContract, APurgeLeavesAWriteGoingOn) {
  const auto port = Open(true, kAtOnce);
  mMachine->Hold(*port);
  const std::string bytes(300000, 'x');
  uint32_t written = 0;
  const auto first = std::make_shared<nsOverlapped>(), second = std::make_shared<nsOverlapped>();
  ASSERT_EQ(port->WriteFile(bytes.data(), 300000, &written, first), NS_ERROR_IN_PROGRESS);
  ASSERT_EQ(port->WriteFile("x", 1, &written, second), NS_ERROR_IN_PROGRESS);
  ASSERT_EQ(port->PurgeComm(P::kPurgeTxAbort | P::kPurgeTxClear), NS_OK);
  EXPECT_EQ(first->GetResult(true, &written), NS_ERROR_ABORT);
  EXPECT_EQ(second->GetResult(true, &written), NS_ERROR_ABORT);
}

TEST_P(SerialContract, AReadThatGoesOnWritesIntoABufferThatIsGone) {
  const auto port = Open(true);
  char buffer[3] = {'1', '2', '3'};
  uint32_t read = 0;
  const auto record = std::make_shared<nsOverlapped>();
  ASSERT_EQ(port->ReadFile(buffer, 3, &read, record), NS_ERROR_IN_PROGRESS);
  mMachine->Say("abc");
  EXPECT_EQ(record->GetResult(true, &read), NS_OK);
  EXPECT_EQ(read, 3u);
  EXPECT_EQ(record->TakeBytes(), "abc");
  EXPECT_EQ(std::string(buffer, 3), "123");
  EXPECT_EQ(port->ReadFile(buffer, 1, &read, nullptr), NS_ERROR_INVALID_ARG);
}

TEST_P(SerialContract, ARightThatWasNotAskedForIsGiven) {
  nsPlatformCommPortRef port;
  char byte = 'x';
  uint32_t count = 0;
  const auto open = [&](uint32_t aAccess) {
    port = nullptr;
    return mMachine->Comm().OpenPort("\\\\.\\COM40", aAccess, nsPlatformComm::kShareBoth,
                                     nsPlatformComm::kOpenExisting, 0, &port);
  };
  ASSERT_EQ(open(nsPlatformComm::kGenericRead), NS_OK);
  EXPECT_EQ(port->WriteFile(&byte, 1, &count, nullptr), NS_ERROR_FILE_ACCESS_DENIED);
  ASSERT_EQ(open(nsPlatformComm::kGenericWrite), NS_OK);
  EXPECT_EQ(port->ReadFile(&byte, 1, &count, nullptr), NS_ERROR_FILE_ACCESS_DENIED);
  EXPECT_EQ(port->WriteFile(&byte, 1, &count, nullptr), NS_OK);
  EXPECT_EQ(mMachine->Hear(1), "x");
}

INSTANTIATE_TEST_SUITE_P(
    Simulated, SerialContract,
    testing::Values(NS_ContractBackend<nsSerialMachine, SimulatedLine>("machine")),
    testing::PrintToStringParamName());

}  // namespace

// What a pseudo terminal lacks: modem lines, counters, breaks, seven bits and parity, by an ioctl
// that a test writes the answers of. Bytes go over a pseudo terminal all the same.
#include <asm/termbits.h>
#include <gtest/gtest.h>
#include <linux/serial.h>
#include <sys/ioctl.h>

#include <cstdarg>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

#include "nsLinuxComm.h"
#include "nsPtyPair.h"
#include "nsTemporaryDirectory.h"

namespace {

// The device behind a line, as its driver shows it.
struct Device {
  std::mutex mLock;
  int mLines = TIOCM_CTS | TIOCM_DSR;
  serial_icounter_struct mCounters{};
  std::optional<termios2> mState;
  int mQueued = 0;
  bool mShifts = false;  // the last byte has not left
  std::string mDone;
  std::map<unsigned long, int> mCalls;
};
Device* gDevice = nullptr;  // set while there is no other thread

std::optional<int> Answer(Device& aDevice, unsigned long aRequest, void* aArgument) {
  const std::lock_guard lock(aDevice.mLock);
  ++aDevice.mCalls[aRequest];
  const auto line = [&] { return *static_cast<const int*>(aArgument); };
  switch (aRequest) {
    case TIOCMGET:
      *static_cast<int*>(aArgument) = aDevice.mLines;
      return 0;
    case TIOCMBIS:
      aDevice.mLines |= line();
      aDevice.mDone += line() == TIOCM_DTR ? "+dtr " : "+rts ";
      return 0;
    case TIOCMBIC:
      aDevice.mLines &= ~line();
      aDevice.mDone += line() == TIOCM_DTR ? "-dtr " : "-rts ";
      return 0;
    case TIOCSBRK:
      aDevice.mDone += "+break ";
      return 0;
    case TIOCCBRK:
      aDevice.mDone += "-break ";
      return 0;
    case TIOCGICOUNT:
      *static_cast<serial_icounter_struct*>(aArgument) = aDevice.mCounters;
      return 0;
    case TIOCOUTQ:
      *static_cast<int*>(aArgument) = aDevice.mQueued;
      return 0;
    case TIOCSERGETLSR:
      *static_cast<unsigned*>(aArgument) = aDevice.mShifts ? 0 : TIOCSER_TEMT;
      return 0;
    case TCSETS2:
      aDevice.mState = *static_cast<const termios2*>(aArgument);
      return std::nullopt;  // and the pseudo terminal, as far as it can
    case TCGETS2:
      if (!aDevice.mState) return std::nullopt;
      *static_cast<termios2*>(aArgument) = *aDevice.mState;
      return 0;
    default:
      return std::nullopt;
  }
}

}  // namespace

// The linker gives the calls of this program to the first, and the C library's own to the second.
extern "C" int __real_ioctl(int aFd, unsigned long aRequest, ...);
extern "C" int __wrap_ioctl(int aFd, unsigned long aRequest, ...) {
  va_list arguments;
  va_start(arguments, aRequest);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  if (gDevice)
    if (const auto answer = Answer(*gDevice, aRequest, argument)) return *answer;
  return __real_ioctl(aFd, aRequest, argument);
}

namespace {

using P = nsPlatformCommPort;

class SerialLines : public testing::Test {
 protected:
  void SetUp() override { gDevice = &mDevice; }
  void TearDown() override {
    mPort = nullptr;
    gDevice = nullptr;
  }
  void Open(bool aOverlapped) {
    ASSERT_EQ(
        mComm.OpenPort("\\\\.\\COM40", nsPlatformComm::kGenericRead | nsPlatformComm::kGenericWrite,
                       3, 3, aOverlapped ? nsPlatformComm::kFlagOverlapped : 0, &mPort),
        NS_OK);
    ASSERT_EQ(mPort->SetCommTimeouts({nsCommTimeouts::kMaxDword, 0, 0, 0, 0}), NS_OK);
  }
  nsOverlappedRef Wait() {
    auto record = std::make_shared<nsOverlapped>();
    EXPECT_EQ(mPort->WaitCommEvent(record), NS_ERROR_IN_PROGRESS);
    return record;
  }
  static uint32_t Events(const nsOverlappedRef& aRecord) {
    uint32_t events = 0;
    EXPECT_EQ(aRecord->GetResult(true, &events), NS_OK);
    return events;
  }
  template <class Change>
  void Set(Change aChange) {
    const std::lock_guard lock(mDevice.mLock);
    aChange(mDevice);
  }

  Device mDevice;
  nsTemporaryDirectory mLocks;
  nsPtyPair mPty;
  nsLinuxComm mComm{nullptr,
                    {.mMore = {{"COM40", mPty.Device()}},
                     .mLockDirectory = mLocks.Path().string(),
                     .mListed = false}};
  nsPlatformCommPortRef mPort;
};

TEST_F(SerialLines, SizeParityOrSpeedIsSetOtherwise) {
  Open(false);
  const struct {
    uint32_t mSpeed;
    uint8_t mSize, mParity, mStop;
    tcflag_t mFlags;
  } cases[] = {
      {9600, 8, nsCommDCB::kNoParity, 0, CS8},
      {110, 7, nsCommDCB::kEvenParity, 0, CS7 | PARENB},
      {123456, 7, nsCommDCB::kOddParity, 2, CS7 | PARENB | PARODD | CSTOPB},
      {250000, 5, nsCommDCB::kMarkParity, 1, CS5 | PARENB | PARODD | CMSPAR | CSTOPB},
      {256000, 6, nsCommDCB::kSpaceParity, 2, CS6 | PARENB | CMSPAR | CSTOPB},
  };
  for (const auto& one : cases) {
    nsCommConfig config;
    config.mDCB.mBaudRate = one.mSpeed;
    config.mDCB.mByteSize = one.mSize;
    config.mDCB.mParity = one.mParity;
    config.mDCB.mStopBits = one.mStop;
    config.mDCB.mFlags |= nsCommDCB::kParity;
    EXPECT_EQ(mPort->SetCommConfig(config, nsCommConfig::kSize), NS_OK);
    EXPECT_EQ(mDevice.mState->c_cflag & (CSIZE | PARENB | PARODD | CMSPAR | CSTOPB), one.mFlags);
    EXPECT_EQ(mDevice.mState->c_ospeed, one.mSpeed);
    EXPECT_EQ(mDevice.mState->c_ispeed, one.mSpeed);
    EXPECT_EQ(mDevice.mState->c_iflag & (INPCK | PARMRK | IGNPAR), 0u)
        << "a damaged byte comes as it is";
    nsCommDCB dcb;
    EXPECT_EQ(mPort->GetCommState(&dcb), NS_OK);
    EXPECT_EQ(dcb.mBaudRate, one.mSpeed);
    EXPECT_EQ(dcb.mByteSize, one.mSize);
    EXPECT_EQ(dcb.mParity, one.mParity);
    EXPECT_EQ(dcb.mStopBits, one.mStop);
  }
}

TEST_F(SerialLines, ALineIsTakenForAnother) {
  Open(false);
  const std::pair<int, uint32_t> lines[] = {{TIOCM_CTS, P::kCtsOn},
                                            {TIOCM_DSR, P::kDsrOn},
                                            {TIOCM_RNG, P::kRingOn},
                                            {TIOCM_CAR, P::kRlsdOn},
                                            {TIOCM_DTR | TIOCM_RTS, 0}};
  for (const auto& [given, expected] : lines) {
    const int set = given;  // clang 14 captures no structured binding
    Set([&](Device& aDevice) { aDevice.mLines = set; });
    uint32_t status = 77;
    EXPECT_EQ(mPort->GetCommModemStatus(&status), NS_OK);
    EXPECT_EQ(status, expected);
  }
  mDevice.mDone.clear();
  for (const uint32_t function :
       {P::kSetDtr, P::kClrDtr, P::kSetRts, P::kClrRts, P::kSetBreak, P::kClrBreak})
    EXPECT_EQ(mPort->EscapeCommFunction(function), NS_OK);
  EXPECT_EQ(mDevice.mDone, "+dtr -dtr +rts -rts +break -break ");
  EXPECT_EQ(mPort->EscapeCommFunction(7), NS_ERROR_INVALID_ARG);
}

TEST_F(SerialLines, AChangeOfALineIsNotHeard) {
  Open(true);
  constexpr uint32_t kAll =
      P::kEvCts | P::kEvDsr | P::kEvRlsd | P::kEvRing | P::kEvBreak | P::kEvErr;
  ASSERT_EQ(mPort->SetCommMask(kAll), NS_OK);
  const std::pair<void (*)(Device&), uint32_t> changes[] = {
      {[](Device& aDevice) { aDevice.mLines ^= TIOCM_CTS; }, P::kEvCts},
      {[](Device& aDevice) { aDevice.mLines ^= TIOCM_DSR; }, P::kEvDsr},
      {[](Device& aDevice) { aDevice.mLines ^= TIOCM_CAR; }, P::kEvRlsd},
      // Over before anybody has looked: counted by the driver.
      {[](Device& aDevice) { aDevice.mCounters.cts += 2; }, P::kEvCts},
      {[](Device& aDevice) { ++aDevice.mCounters.rng; }, P::kEvRing},
      {[](Device& aDevice) { ++aDevice.mCounters.brk; }, P::kEvBreak},
      {[](Device& aDevice) { ++aDevice.mCounters.parity; }, P::kEvErr},
      {[](Device& aDevice) { ++aDevice.mCounters.frame; }, P::kEvErr},
  };
  for (const auto& [change, expected] : changes) {
    const auto wait = Wait();
    Set(change);
    EXPECT_EQ(Events(wait), expected);
  }
  uint32_t errors = 0;
  nsCommStat stat;
  EXPECT_EQ(mPort->ClearCommError(&errors, &stat), NS_OK);
  EXPECT_EQ(errors, P::kCeBreak | P::kCeRxParity | P::kCeFrame);
  EXPECT_EQ(mPort->ClearCommError(&errors, &stat), NS_OK);
  EXPECT_EQ(errors, 0u);
}

TEST_F(SerialLines, TheQueueIsToldEmptyBeforeTheLastByteHasLeft) {
  Open(true);
  ASSERT_EQ(mPort->SetCommMask(P::kEvTxEmpty | P::kEvBreak), NS_OK);
  Set([](Device& aDevice) {
    aDevice.mQueued = 3;
    aDevice.mShifts = true;
  });
  uint32_t written = 0;
  ASSERT_EQ(mPort->WriteFile("abc", 3, &written, std::make_shared<nsOverlapped>()), NS_OK);
  const auto step = [&](auto aChange) {
    const auto wait = Wait();
    // A break comes after it: what is told first tells whether the queue was.
    Set([&](Device& aDevice) {
      aChange(aDevice);
      ++aDevice.mCounters.brk;
    });
    return Events(wait);
  };
  EXPECT_EQ(step([](Device&) {}), P::kEvBreak);
  EXPECT_EQ(step([](Device& aDevice) { aDevice.mQueued = 0; }), P::kEvBreak);
  EXPECT_EQ(step([](Device& aDevice) { aDevice.mShifts = false; }), P::kEvBreak | P::kEvTxEmpty);
}

}  // namespace

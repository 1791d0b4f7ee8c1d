// Serial ports on pseudo terminals: the adapter over real terminal lines.
#include <sys/ioctl.h>
#include <termios.h>

#include <atomic>
#include <thread>

#include "../nsSerialTest.h"
#include "nsLinuxComm.h"
#include "nsPortLock.h"
#include "nsPortNames.h"
#include "nsPtyPair.h"
#include "nsSimulatedMachine.h"
#include "nsTemporaryDirectory.h"

namespace {

using Strings = std::vector<std::string>;

class PtyTest : public nsSerialTest {
 protected:
  void SetUp() override { StartHost(); }

  nsPlatformRef Platform() {
    const auto platform = std::make_shared<nsPlatform>(*mMachine.Platform());
    platform->mComm = std::make_shared<nsLinuxComm>(
        nullptr, nsLinuxComm::Options{.mMore = {{"COM40", mPty.Device()}},
                                      .mLockDirectory = mLocks.Path().string(),
                                      .mListed = false});
    return platform;
  }
  termios Line() {
    termios state{};
    EXPECT_EQ(tcgetattr(mPty.Master(), &state), 0);
    return state;
  }

  nsTemporaryDirectory mLocks;
  nsPtyPair mPty;
};

TEST_F(PtyTest, ANumberOrATextLosesItsOrderOnTheWire) {
  const auto port = NewPort(Platform(), u"COM40");
  ASSERT_EQ(port->SetTimeout(5000), NS_OK);
  ASSERT_EQ(port->Open(), NS_OK);
  // The peer sends back what it gets, and keeps it.
  std::atomic<bool> end{false};
  std::mutex lock;
  std::string heard;
  std::thread peer([&] {
    while (!end) {
      char bytes[4096];
      const ssize_t length = read(mPty.Master(), bytes, sizeof bytes);
      if (length <= 0) {
        pollfd fd = {mPty.Master(), POLLIN, 0};
        (void)poll(&fd, 1, 10);
        continue;
      }
      {
        const std::lock_guard guard(lock);
        heard.append(bytes, static_cast<size_t>(length));
      }
      mPty.Say({bytes, static_cast<size_t>(length)});
    }
  });
  const auto input = AsyncInputOf(port);
  const auto output = AsyncOutputOf(port);
  CheckNumbersAndTexts(port, [&](size_t aCount) {
    while (true) {
      {
        const std::lock_guard guard(lock);
        if (heard.size() >= aCount) return std::exchange(heard, {});
      }
      std::this_thread::yield();
    }
  });
  end = true;
  peer.join();
  EXPECT_EQ(port->Close(), NS_OK);
}

TEST_F(PtyTest, AMegabyteInBothWaysLosesAByte) {
  const auto port = NewPort(Platform(), u"COM40");
  ASSERT_EQ(port->Open(), NS_OK);
  const auto input = AsyncInputOf(port);
  const auto output = AsyncOutputOf(port);
  std::string bytes(1 << 20, '\0');
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 2654435761u >> 24);
  std::thread peer([&] {
    EXPECT_TRUE(mPty.Hear(bytes.size()) == bytes);
    mPty.Say(bytes);
  });
  uint32_t count = 0;
  EXPECT_EQ(output->Write(bytes.data(), 1 << 20, &count), NS_OK);
  EXPECT_EQ(count, 1u << 20);
  std::string back(bytes.size(), '\0');
  EXPECT_EQ(input->Read(back.data(), 1 << 20, &count), NS_OK);
  EXPECT_EQ(count, 1u << 20);
  EXPECT_TRUE(back == bytes);
  peer.join();
  EXPECT_EQ(port->Close(), NS_OK);
}

TEST_F(PtyTest, ListenersMissBytesOrTheEnd) {
  const auto port = NewPort(Platform(), u"COM40");
  ASSERT_EQ(port->SetMode(2), NS_OK);
  ASSERT_EQ(port->AddListener(MakeRefCounted<nsTestSerialListener>("1").get()), NS_OK);
  ASSERT_EQ(port->Open(), NS_OK);
  const auto input = AsyncInputOf(port);
  nsTestSerialListener::Heard().clear();
  const auto total = [] {
    unsigned sum = 0;
    for (const std::string& line : nsTestSerialListener::Heard())
      if (line.starts_with("1 data ")) sum += static_cast<unsigned>(std::stoul(line.substr(7)));
    return sum;
  };
  for (int i = 0; i < 100; ++i) mPty.Say("x");
  RunUntil([&] { return total() >= 100; });
  EXPECT_EQ(total(), 100u);
  const auto callback = MakeRefCounted<nsTestInputCallback>([](nsIAsyncInputStream*) {});
  EXPECT_EQ(input->AsyncWait(callback.get(), nsIAsyncInputStream::WAIT_CLOSURE_ONLY, 0, nullptr),
            NS_OK);
  mPty.Unplug();
  RunUntil([&] { return callback->Count() >= 1; });
  EXPECT_EQ(port->Close(), NS_OK);
  EXPECT_EQ(port->Open(), NS_ERROR_FILE_ACCESS_DENIED);
}

TEST_F(PtyTest, TheLineIsLeftAsATerminal) {
  const auto port = NewPort(Platform(), u"COM40");
  ASSERT_EQ(port->SetParameters(3, 57600, 8, 256, 0, 2), NS_OK);
  ASSERT_EQ(port->Open(), NS_OK);
  const termios state = Line();
  EXPECT_EQ(state.c_lflag & (ICANON | ECHO | ISIG | IEXTEN), 0u);
  EXPECT_EQ(state.c_oflag & OPOST, 0u);
  EXPECT_EQ(state.c_iflag & (ICRNL | INLCR | IGNCR | ISTRIP), 0u);
  EXPECT_EQ(state.c_iflag & (IXON | IXOFF), static_cast<tcflag_t>(IXON | IXOFF));
  EXPECT_EQ(port->Close(), NS_OK);
}

TEST_F(PtyTest, OutputGoesOnAfterXoff) {
  const auto port = NewPort(Platform(), u"COM40");
  ASSERT_EQ(port->SetParameters(3, 9600, 8, 256, 0, 2), NS_OK);
  ASSERT_EQ(port->SetTimeout(50), NS_OK);
  ASSERT_EQ(port->Open(), NS_OK);
  const auto output = AsyncOutputOf(port);
  const auto input = AsyncInputOf(port);
  mPty.Say(
      "\x13"
      "a");
  char byte = 0;
  uint32_t count = 0;
  EXPECT_EQ(input->Read(&byte, 1, &count), NS_OK);
  EXPECT_EQ(byte, 'a') << "XOFF is no byte, and has been taken by now";
  EXPECT_EQ(output->Write("held", 4, &count), NS_OK);
  EXPECT_EQ(count, 0u) << "the time is over";
  mPty.Say(
      "\x11"
      "b");
  EXPECT_EQ(input->Read(&byte, 1, &count), NS_OK);
  EXPECT_EQ(output->Write("sent", 4, &count), NS_OK);
  EXPECT_EQ(count, 4u);
  EXPECT_EQ(mPty.Hear(4), "sent");
  EXPECT_EQ(port->Close(), NS_OK);
}

TEST_F(PtyTest, TwoProgramsUseOneLine) {
  nsPortLock first, second;
  std::string user;
  const std::string directory = mLocks.Path().string();
  EXPECT_EQ(first.Acquire(directory, "/dev/ttyX0", &user), NS_OK);
  EXPECT_EQ(second.Acquire(directory, "/dev/ttyX0", &user), NS_ERROR_FILE_IS_LOCKED);
  EXPECT_TRUE(user.starts_with(std::to_string(getpid()))) << user;
  EXPECT_EQ(second.Acquire(directory, "/dev/ttyX1", &user), NS_OK);
  first.Release();
  EXPECT_EQ(second.Acquire(directory, "/dev/ttyX0", &user), NS_OK);
  second.Release();
  // Of a process that is gone; of one that had our number; without a number.
  for (const std::string& text : {std::string("2147483646\n"), std::to_string(getpid()) + "\n",
                                  std::string("no number"), std::string()}) {
    nsTemporaryDirectory::Write(mLocks / "LCK..ttyX0", text);
    EXPECT_EQ(first.Acquire(directory, "/dev/ttyX0", &user), NS_OK) << text;
    first.Release();
    EXPECT_FALSE(std::filesystem::exists(mLocks / "LCK..ttyX0"));
  }
  nsTemporaryDirectory::Write(mLocks / "LCK..ttyX0", "1\n");
  EXPECT_EQ(first.Acquire(directory, "/dev/ttyX0", &user), NS_ERROR_FILE_IS_LOCKED);
  EXPECT_EQ(first.Acquire(directory + "/missing", "/dev/ttyX0", &user), NS_OK);
}

TEST_F(PtyTest, PortsChangePlacesAtTheNextStart) {
  const auto device = [](const char* aNode, const char* aIdentity, const char* aPlace = "") {
    nsSerialDevice info;
    info.mDevice = aNode;
    info.mIdentity = aIdentity;
    info.mPlace = aPlace;
    return info;
  };
  const auto names = [&](std::vector<nsSerialDevice> aDevices) {
    Strings all;
    for (const auto& one : nsPortNames(mMachine.mRegistry).Name(std::move(aDevices)))
      all.push_back(one.mName + " " + one.mIdentity);
    return all;
  };
  EXPECT_EQ(
      names({device("/dev/ttyS0", "s"), device("/dev/ttyUSB0", "a"), device("/dev/ttyUSB1", "b")}),
      (Strings{"COM1 s", "COM33 a", "COM34 b"}));
  EXPECT_EQ(
      names({device("/dev/ttyUSB0", "b"), device("/dev/ttyUSB1", "a"), device("/dev/ttyS31", "t")}),
      (Strings{"COM32 t", "COM33 a", "COM34 b"}))
      << "plugged in the other order";
  EXPECT_EQ(names({device("/dev/ttyUSB0", "c"), device("/dev/ttyUSB1", "b")}),
            (Strings{"COM34 b", "COM35 c"}))
      << "the number of one that is away is kept for it";
  EXPECT_EQ(names({device("/dev/ttyUSB0", "x", "p1"), device("/dev/ttyUSB1", "x", "p2")}),
            (Strings{"COM36 p1", "COM37 p2"}))
      << "one serial number for two";
  EXPECT_EQ(names({device("/dev/ttyUSB0", "x", "p2")}), Strings{"COM37 p2"});
  mMachine.mCalls->Fail({.mPort = "Registry", .mMethod = {}, .mForEver = true});
  EXPECT_EQ(names({device("/dev/ttyUSB0", "d")}), Strings{"COM33 d"}) << "without a store";
}

TEST(SerialPorts, NamesOfTheEnvironmentAreMisread) {
  using Pairs = std::vector<std::pair<std::string, std::string>>;
  EXPECT_EQ(NS_ParseSerialPorts("COM40=/dev/a,COM41=/dev/b"),
            (Pairs{{"COM40", "/dev/a"}, {"COM41", "/dev/b"}}));
  EXPECT_EQ(NS_ParseSerialPorts(",=x,COM1=,COM2,"), Pairs{});
}

}  // namespace

// Displays that are asked over their own wires: the messages, the wires, and those who do not
// answer as they should.
#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <latch>
#include <thread>

#include "nsCapturedTree.h"
#include "nsDdcMessages.h"
#include "nsDdcMonitors.h"
#include "nsDisplayWire.h"
#include "nsMutation.h"

namespace {

using namespace std::chrono_literals;
using Bytes = std::vector<uint8_t>;
using Values = nsDdcMonitor::Values;

constexpr auto kLong = 20s;  // for what is to come
constexpr nsDdcPauses kNoPauses{0ms, 0ms};

// ---- Messages

const Bytes kHalf{0x6E, 0x88, 2, 0, 0x10, 0, 0, 100, 0, 50, 0xF2};

TEST(DdcMessages, MessageIsNotAsDisplaysKnowIt) {
  const auto request = NS_DdcRequest(kDdcBrightness);
  EXPECT_EQ(Bytes(request.begin(), request.end()), (Bytes{0x51, 0x82, 1, 0x10, 0xAC}));
  const auto change = NS_DdcChange(kDdcBrightness, 50);
  EXPECT_EQ(Bytes(change.begin(), change.end()), (Bytes{0x51, 0x84, 3, 0x10, 0, 50, 0x9A}));
  nsDdcValue value;
  EXPECT_EQ(NS_ParseDdcReply(kHalf, kDdcBrightness, &value), nsDdcReply::eValue);
  EXPECT_EQ(value.mCurrent, 50);
  EXPECT_EQ(value.mMaximum, 100);
}

TEST(DdcMessages, HostileReplyIsTakenForAValue) {
  const std::string good(kHalf.begin(), kHalf.end());
  nsMutation mutation;
  int taken = 0;
  for (int i = 0; i < 50000; ++i) {
    std::string text = mutation.Damage(good, std::string("\0\xFF\x6E\x88\x02\x10", 6));
    if (i % 2 && text.size() == kDdcReplySize) {  // with the right checksum
      uint8_t sum = 0x50;
      for (size_t at = 0; at + 1 < text.size(); ++at) sum ^= static_cast<uint8_t>(text[at]);
      text.back() = static_cast<char>(sum);
    }
    nsDdcValue value{4711, 4712};
    const auto reply = NS_ParseDdcReply(
        {reinterpret_cast<const uint8_t*>(text.data()), text.size()}, kDdcBrightness, &value);
    if (reply != nsDdcReply::eValue) {
      ASSERT_EQ(value.mCurrent, 4711);
      continue;
    }
    ++taken;
    ASSERT_EQ(text.substr(0, 5), good.substr(0, 5));
    ASSERT_LE(value.Percent(), 100u);
    ASSERT_LE(value.OfPercent(100), value.mMaximum);
  }
  EXPECT_GT(taken, 100);
}

TEST(DdcMessages, PercentDoesNotComeBack) {
  for (const uint32_t maximum : {100u, 255u, 1000u, 65535u})
    for (uint32_t percent = 0; percent <= 100; ++percent) {
      nsDdcValue value{0, static_cast<uint16_t>(maximum)};
      value.mCurrent = value.OfPercent(percent);
      EXPECT_EQ(value.Percent(), percent) << maximum;
    }
  EXPECT_EQ((nsDdcValue{120, 100}.Percent()), 100u);
  EXPECT_EQ((nsDdcValue{0, 100}.OfPercent(4000)), 100u);
}

// ---- A display

class Monitor : public testing::Test {
 protected:
  std::unique_ptr<nsDdcMonitor> Start() {
    return std::make_unique<nsDdcMonitor>(
        [this](std::string* aReason) { return mDisplay->Open(aReason); }, [] {}, kNoPauses);
  }
  static auto Until() { return std::chrono::steady_clock::now() + kLong; }

  const std::shared_ptr<nsDisplayOnWire> mDisplay = std::make_shared<nsDisplayOnWire>();
};

TEST_F(Monitor, ValueIsNotThatOfTheDisplay) {
  mDisplay->mMaximum = 255;
  mDisplay->mFeatures = {{kDdcBrightness, 51}, {kDdcContrast, 128}};
  const auto monitor = Start();
  ASSERT_TRUE(monitor->AwaitFirst(Until()));
  EXPECT_EQ(monitor->Known(), (Values{20, 50}));
  EXPECT_TRUE(monitor->MayAnswer());
  EXPECT_TRUE(monitor->Set({100, {}}, kLong));
  EXPECT_TRUE(monitor->Set({{}, 0}, kLong));
  EXPECT_EQ(mDisplay->Feature(kDdcBrightness), 255);
  EXPECT_EQ(mDisplay->Feature(kDdcContrast), 0);
  EXPECT_EQ(monitor->Known(), (Values{100, 0}));
  EXPECT_EQ(monitor->TakeReason(), "");
}

TEST_F(Monitor, DisturbedMessageIsGivenUp) {
  mDisplay->mGarbled = 2;  // one of three is good
  mDisplay->mFeatures.erase(kDdcContrast);
  const auto monitor = Start();
  ASSERT_TRUE(monitor->AwaitFirst(Until()));
  EXPECT_EQ(monitor->Known(), (Values{40, {}}));
  EXPECT_FALSE(monitor->Set({{}, 10}, kLong)) << "it has no contrast";
  mDisplay->mRefused = 2;
  EXPECT_TRUE(monitor->Set({10, {}}, kLong));
  mDisplay->mRefused = 100;
  EXPECT_FALSE(monitor->Set({20, {}}, kLong));
  EXPECT_EQ(monitor->Known(), (Values{10, {}}));
}

TEST_F(Monitor, SilentDisplayIsAskedForEverOrNeverAgain) {
  mDisplay->mRefused = 1000000;
  const auto monitor = Start();
  ASSERT_TRUE(monitor->AwaitFirst(Until()));
  EXPECT_FALSE(monitor->MayAnswer());
  EXPECT_EQ(monitor->Known(), Values());
  EXPECT_EQ(monitor->TakeReason(), "it does not answer");
  EXPECT_EQ(monitor->TakeReason(), "");
  EXPECT_EQ(monitor->Reason(), "it does not answer");
  mDisplay->mRefused = 0;  // it has been turned on
  EXPECT_TRUE(monitor->Set({30, {}}, kLong));
  EXPECT_EQ(mDisplay->Feature(kDdcBrightness), 30);
}

TEST_F(Monitor, HangingWireHoldsEverybodyUp) {
  mDisplay->Hang(true);
  auto monitor = Start();
  EXPECT_FALSE(monitor->AwaitFirst(std::chrono::steady_clock::now() + 10ms));
  EXPECT_EQ(monitor->Known(), Values());
  EXPECT_FALSE(monitor->Set({99, {}}, 10ms));
  monitor->Leave();
  EXPECT_FALSE(monitor->IsOver());
  mDisplay->Hang(false);
  monitor = nullptr;
  EXPECT_EQ(mDisplay->Feature(kDdcBrightness), 40) << "what came too late is not done";
}

// ---- Where the wire is

nsDdcPlace Place(const std::string& aOutput, const std::string& aName, uint32_t aConnector = 0) {
  return {aOutput, aConnector, NS_TestDescription(aName)};
}

class Buses : public testing::Test {
 protected:
  void Connector(const std::string& aName, const std::string& aDisplay, int aNumber) {
    const std::string path = "/sys/class/drm/" + aName;
    mTree.Write(path + "/edid", NS_TestDescription(aDisplay) + std::string(128, 'x'));
    mTree.Write(path + "/connector_id", std::to_string(aNumber) + "\n");
  }
  std::string OwnOf(const nsDdcPlace& aPlace) const { return NS_FindDdcBuses(mFiles, aPlace).mOwn; }

  nsCapturedTree mTree;
  const nsFileTree mFiles{mTree.Root()};
};

TEST_F(Buses, WireOfAnotherConnectorIsTaken) {
  Connector("card0-HDMI-A-1", "A", 31);
  Connector("card0-DP-1", "B", 32);
  Connector("card0-DP-2", "B", 33);
  Connector("card1-DP-2", "C", 33);
  mTree.Write("/sys/class/drm/version", "drm 1.1.0\n");
  mTree.Add(R"(
/sys/class/drm
  card0-HDMI-A-1
    ddc -> ../../../i2c-4
  card0-DP-1
    i2c-7
      name = aux
  card0-DP-2
    i2c-8
      name = aux
  card1-DP-2
    ddc -> ../../../i2c-x
)");
  EXPECT_EQ(OwnOf(Place("HDMI-1", "A")), "/dev/i2c-4");
  EXPECT_EQ(OwnOf(Place("HDMI-A-0", "A")), "/dev/i2c-4") << "there is only one like it";
  EXPECT_EQ(OwnOf(Place("DP-1", "B")), "/dev/i2c-7");
  EXPECT_EQ(OwnOf(Place("DP-2", "B")), "/dev/i2c-8");
  EXPECT_EQ(OwnOf(Place("DisplayPort-0", "B", 33)), "/dev/i2c-8");
  EXPECT_EQ(OwnOf(Place("DisplayPort-0", "B")), "") << "which of the two can't be told";
  EXPECT_EQ(OwnOf(Place("DP-2", "C", 33)), "") << "that is no bus";
  EXPECT_EQ(OwnOf({"DP-1", 32, ""}), "");
}

TEST_F(Buses, WireWithSensorsIsWrittenTo) {
  mTree.Add(R"(
/sys/devices/pci0000:00
  0000:00:02.0
    class = 0x030000
    i2c-1
      name = a
  0000:00:1f.3
    class = 0x0c0500
    i2c-0
      name = b
/sys/bus/i2c/devices
  i2c-0 -> ../../../devices/pci0000:00/0000:00:1f.3/i2c-0
  i2c-1 -> ../../../devices/pci0000:00/0000:00:02.0/i2c-1
  1-0037 -> ../../../devices/pci0000:00/0000:00:02.0/i2c-1/1-0037
)");
  EXPECT_EQ(NS_FindDdcBuses(mFiles, Place("VGA-1", "A")).mPossible,
            std::vector<std::string>{"/dev/i2c-1"});
  EXPECT_TRUE(NS_FindDdcBuses(mFiles, {"VGA-1", 0, ""}).mPossible.empty());
}

// ---- All of them

class Monitors : public testing::Test {
 protected:
  Monitors() {
    for (int i = 1; i <= 3; ++i) {
      const std::string number = std::to_string(i);
      mTree.Write("/sys/devices/card/class", "0x030000\n");
      mTree.Add("/sys/bus/i2c/devices\n  i2c-" + number + " -> ../../../devices/card/i2c-" +
                number + "\n");
      auto& display = mDisplays["/dev/i2c-" + number] = std::make_shared<nsDisplayOnWire>();
      display->mDescription = NS_TestDescription(number);
      display->mFeatures[kDdcBrightness] = static_cast<uint16_t>(i);
    }
  }
  nsDdcMonitors::Opener Opener() {
    return [this](const std::string& aDevice, std::string* aReason) {
      return mDisplays.at(aDevice)->Open(aReason);
    };
  }

  nsCapturedTree mTree;
  std::map<std::string, std::shared_ptr<nsDisplayOnWire>> mDisplays;
};

TEST_F(Monitors, OneIsAskedAfterTheOther) {
  std::latch all(3);
  for (const auto& [device, display] : mDisplays)
    display->mAtFirstRequest = [&] { all.arrive_and_wait(); };
  nsDdcMonitors monitors(mTree.Root(), Opener(), kNoPauses);
  const auto told = monitors.Listen();
  monitors.Follow({Place("A", "1"), Place("B", "2"), Place("C", "3"), Place("D", "4")});
  monitors.Await(kLong);
  EXPECT_EQ(monitors.Find("A")->Known().mBrightness, 1u);
  EXPECT_EQ(monitors.Find("B")->Known().mBrightness, 2u);
  EXPECT_EQ(monitors.Find("C")->Known().mBrightness, 3u);
  EXPECT_FALSE(monitors.Find("D")->MayAnswer());
  EXPECT_EQ(monitors.Find("E"), nullptr);
  pollfd waiting{told->get(), POLLIN, 0};
  EXPECT_EQ(poll(&waiting, 1, 20000), 1) << "what they have answered is a change";
}

TEST_F(Monitors, AnswerIsLostBeforeAnybodyListens) {
  nsDdcMonitors monitors(mTree.Root(), Opener(), kNoPauses);
  monitors.Follow({Place("A", "1")});
  monitors.Await(kLong);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  const auto told = monitors.Listen();
  pollfd waiting{told->get(), POLLIN, 0};
  EXPECT_EQ(poll(&waiting, 1, 20000), 1);
  EXPECT_TRUE(told->Take());
  const auto second = monitors.Listen();
  waiting.fd = second->get();
  EXPECT_EQ(poll(&waiting, 1, 0), 0) << "it was told";
}

TEST_F(Monitors, TwinsAnswerForEachOther) {
  nsDdcMonitors monitors(mTree.Root(), Opener(), kNoPauses);
  monitors.Follow({Place("A", "1"), Place("B", "1")});
  monitors.Await(kLong);
  EXPECT_FALSE(monitors.Find("A")->MayAnswer());
  monitors.Follow({Place("B", "1")});
  monitors.Await(kLong);
  EXPECT_EQ(monitors.Find("A"), nullptr);
  EXPECT_EQ(monitors.Find("B")->Known().mBrightness, 1u) << "alone it is known";
  mDisplays["/dev/i2c-2"]->mDescription = NS_TestDescription("1");
  monitors.Follow({});
  monitors.Follow({Place("B", "1")});
  monitors.Await(kLong);
  EXPECT_FALSE(monitors.Find("B")->MayAnswer()) << "two buses have one like it";
}

TEST_F(Monitors, DisplayThatHasGoneHoldsUpTheLook) {
  for (const auto& [device, display] : mDisplays) display->Hang(true);
  nsDdcMonitors monitors(mTree.Root(), Opener(), kNoPauses);
  for (int i = 0; i < 3; ++i) {
    monitors.Follow({Place("A", "1"), Place("B", "2")});
    monitors.Follow({});
  }
  for (const auto& [device, display] : mDisplays) display->Hang(false);
  monitors.Follow({Place("A", "1")});
  monitors.Await(kLong);
  EXPECT_EQ(monitors.Find("A")->Known().mBrightness, 1u);
}

}  // namespace

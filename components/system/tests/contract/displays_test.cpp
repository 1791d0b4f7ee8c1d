// What every backend of the port of displays keeps to.
#include <algorithm>
#include <thread>

#include "nsDisplaysContract.h"
#include "nsSimulatedMachine.h"

namespace {

class SimulatedMachine final : public nsDisplaysMachine {
 public:
  SimulatedMachine() { mMachine.mDisplays->Put(Display("HDMI-1", true)); }
  nsPlatformDisplays& Port() override { return *mMachine.mDisplays; }
  void PlugSecond() override { mMachine.mDisplays->Put(Display("DP-1", false)); }

 private:
  static nsSimulatedDisplay Display(const std::string& aName, bool aIsPrimary) {
    nsSimulatedDisplay display;
    display.mName = aName;
    display.mIsPrimary = aIsPrimary;
    display.mModes = {{1920, 1080, 60}, {1280, 720, 60}, {800, 600, 75}};
    return display;
  }
  nsSimulatedMachine mMachine;
};

TEST_P(DisplaysContract, CardThatIsNotThereHasAnything) {
  const std::string first = First();
  for (const std::string card : {"\\\\.\\DISPLAY9", "\\\\.\\DISPLAY", "x", first.c_str()}) {
    nsDisplayDevice device{"untouched", "untouched", 4711};
    Settings settings;
    settings.mPelsWidth = 4711;
    nsVideoParameters parameters{nsVideoParameters::kGet, nsVideoParameters::kBrightness, 4711, 1};
    for (const uint32_t index : {1000u, 0x7FFFFFFFu, 0xFFFFFFFDu}) {
      EXPECT_EQ(Port().ReadDevice(card, index, 1, &device), NS_ERROR_NOT_AVAILABLE);
      EXPECT_EQ(Port().ReadSettings(card, index, &settings), NS_ERROR_NOT_AVAILABLE);
    }
    if (card != first) {
      EXPECT_EQ(Port().ReadSettings(card, D::kCurrentSettings, &settings), NS_ERROR_NOT_AVAILABLE);
      EXPECT_EQ(Port().ReadSettings(card, D::kRegistrySettings, &settings), NS_ERROR_NOT_AVAILABLE);
      EXPECT_TRUE(NS_FAILED(Port().ChangeSettings(card, &settings, kApply, nullptr)));
    }
    // It has no brightness, or is not there.
    EXPECT_EQ(Port().ChangeSettings(card, nullptr, D::kTest | D::kVideoParameters, &parameters),
              NS_ERROR_NOT_AVAILABLE);
    EXPECT_EQ(device.mDeviceName + device.mDeviceString, "untoucheduntouched");
    EXPECT_EQ(settings.mPelsWidth, 4711u);
    EXPECT_EQ(parameters.mBrightness, 4711u);
  }
}

TEST_P(DisplaysContract, CardLacksAMonitorOrTheModeInForce) {
  const std::string first = First();
  const auto card = Devices("")[0];
  EXPECT_EQ(
      card.mStateFlags & (nsDisplayDevice::kAttachedToDesktop | nsDisplayDevice::kPrimaryDevice |
                          nsDisplayDevice::kMirroringDriver),
      nsDisplayDevice::kAttachedToDesktop | nsDisplayDevice::kPrimaryDevice);
  EXPECT_FALSE(card.mDeviceString.empty());
  const auto monitors = Devices(first);
  ASSERT_EQ(monitors.size(), 1u);
  EXPECT_TRUE(monitors[0].mStateFlags & nsDisplayDevice::kAttachedToDesktop);
  const auto modes = Modes(first);
  Settings now;
  ASSERT_EQ(Port().ReadSettings(first, D::kCurrentSettings, &now), NS_OK);
  EXPECT_TRUE(std::ranges::any_of(modes, [&](const Settings& aMode) {
    return SizeOf(aMode) == SizeOf(now);
  })) << SizeOf(now);
  EXPECT_GT(now.mBitsPerPel, 0u);
  EXPECT_EQ(Read(first, D::kRegistrySettings), Read(first, D::kCurrentSettings))
      << "nothing is stored";
}

TEST_P(DisplaysContract, TestOrStoreOrRefusalTouchesTheScreen) {
  const std::string first = First();
  Settings other = OtherMode(first), wrong = other;
  const std::string before = Read(first, D::kCurrentSettings);
  EXPECT_EQ(Port().ChangeSettings(first, &other, D::kTest, nullptr), NS_OK);
  EXPECT_EQ(Read(first, D::kRegistrySettings), before);
  wrong.mPelsWidth = 1237;
  EXPECT_TRUE(NS_FAILED(Port().ChangeSettings(first, &wrong, D::kTest, nullptr)));
  EXPECT_TRUE(NS_FAILED(Port().ChangeSettings(first, &wrong, kApply, nullptr)));
  EXPECT_TRUE(NS_FAILED(Port().ChangeSettings(first, &wrong, kStore, nullptr)));
  wrong = {};
  wrong.mFields = Settings::kOrientation;
  wrong.mDisplayOrientation = 4;
  EXPECT_TRUE(NS_FAILED(Port().ChangeSettings(first, &wrong, kApply, nullptr)));
  wrong = {};
  wrong.mFields = Settings::kBitsPerPel;
  wrong.mBitsPerPel = 7;
  EXPECT_TRUE(NS_FAILED(Port().ChangeSettings(first, &wrong, kApply, nullptr)));
  EXPECT_EQ(Read(first, D::kCurrentSettings), before);
  EXPECT_EQ(Read(first, D::kRegistrySettings), before);
  ASSERT_EQ(Port().ChangeSettings(first, &other, kStore, nullptr), NS_OK);
  EXPECT_EQ(Read(first, D::kCurrentSettings), before);
  EXPECT_TRUE(Read(first, D::kRegistrySettings).starts_with(SizeOf(other) + " "));
}

TEST_P(DisplaysContract, StoredSettingsAreSetNeverOrTwice) {
  const std::string first = First();
  Settings other = OtherMode(first);
  const std::string before = Read(first, D::kCurrentSettings);
  ASSERT_EQ(Port().ChangeSettings(first, &other, kStore, nullptr), NS_OK);
  ASSERT_EQ(Port().RestoreSettings(), NS_OK);
  EXPECT_TRUE(Read(first, D::kCurrentSettings).starts_with(SizeOf(other) + " "));
  Settings back = OtherMode(first);
  ASSERT_EQ(Port().ChangeSettings(first, &back, D::kReset, nullptr), NS_OK);
  const std::string after = Read(first, D::kCurrentSettings);
  ASSERT_EQ(Port().RestoreSettings(), NS_OK);
  EXPECT_EQ(Read(first, D::kCurrentSettings), after);
  EXPECT_TRUE(Read(first, D::kRegistrySettings).starts_with(SizeOf(other) + " "))
      << "a change without kUpdateRegistry is stored";
}

TEST_P(DisplaysContract, SecondDisplayTakesThePlaceOfTheFirst) {
  const std::string first = First();
  mMachine->PlugSecond();
  const auto cards = Devices("");
  ASSERT_EQ(cards.size(), 2u);
  EXPECT_EQ(cards[0].mDeviceName, first);
  EXPECT_NE(cards[1].mDeviceName, first);
  EXPECT_FALSE(cards[1].mStateFlags & nsDisplayDevice::kPrimaryDevice);
  // Without a name it is the primary one.
  Settings other = OtherMode(first);
  const std::string second = Read(cards[1].mDeviceName, D::kCurrentSettings);
  ASSERT_EQ(Port().ChangeSettings("", &other, kApply, nullptr), NS_OK);
  EXPECT_TRUE(Read(first, D::kCurrentSettings).starts_with(SizeOf(other) + " "));
  EXPECT_EQ(Read(cards[1].mDeviceName, D::kCurrentSettings), second);
  Settings query;
  query.mFields = Settings::kQueryOrientation;
  query.mDisplayOrientation = 99;
  EXPECT_EQ(Port().ChangeSettings("", &query, D::kTest, nullptr), NS_OK);
  EXPECT_LE(query.mDisplayOrientation, 3u);
  EXPECT_EQ(Port().AwaitParameters(0), NS_OK);
}

TEST_P(DisplaysContract, LooksFromSeveralThreadsRace) {
  const std::string first = First();
  const auto look = [&] {
    for (int i = 0; i < 20; ++i) {
      EXPECT_EQ(Devices("").size(), 1u);
      EXPECT_EQ(Devices(first).size(), 1u);
      (void)Read(first, D::kRegistrySettings);
    }
  };
  std::thread one(look), two(look);
  one.join();
  two.join();
}

INSTANTIATE_TEST_SUITE_P(
    Simulated, DisplaysContract,
    testing::Values(NS_ContractBackend<nsDisplaysMachine, SimulatedMachine>("machine")));

}  // namespace

// Displays of real servers, which are the test's own: one of memory, and one with several outputs.
#include <set>

#include "nsCapturedTree.h"
#include "nsDisplayHand.h"
#include "nsDisplayServer.h"
#include "nsDisplayWire.h"
#include "nsEdid.h"
#include "nsLinuxDisplays.h"
#include "nsMutation.h"
#include "nsSimulatedMachine.h"
#include "nsTemporaryDirectory.h"

namespace {

using D = nsPlatformDisplays;
using Settings = nsDisplaySettings;

constexpr uint32_t kStore = D::kNoReset | D::kGlobal | D::kUpdateRegistry;
constexpr uint32_t kApply = D::kReset | D::kGlobal | D::kUpdateRegistry;

class LinuxDisplays : public testing::Test {
 protected:
  static std::unique_ptr<nsDisplayServer> StartXvfb(const std::string& aName = {}) {
    return nsDisplayServer::StartXvfb(aName);
  }
  std::unique_ptr<nsDisplayServer> StartXorg() { return nsDisplayServer::StartDummy(mDirectory); }
  // What a look finds: "\\.\DISPLAY1 screen 5", the number being the state.
  static std::vector<std::string> Cards(D& aDisplays) {
    std::vector<std::string> cards;
    nsDisplayDevice card;
    for (uint32_t i = 0; NS_SUCCEEDED(aDisplays.ReadDevice("", i, 1, &card)); ++i)
      cards.push_back(card.mDeviceName + " " + card.mDeviceString + " " +
                      std::to_string(card.mStateFlags));
    return cards;
  }
  static Settings Read(D& aDisplays, const std::string& aCard, uint32_t aIndex) {
    Settings settings;
    EXPECT_EQ(aDisplays.ReadSettings(aCard, aIndex, &settings), NS_OK);
    return settings;
  }
  static std::vector<std::string> Modes(D& aDisplays, const std::string& aCard) {
    std::vector<std::string> modes;
    Settings mode;
    for (uint32_t i = 0; NS_SUCCEEDED(aDisplays.ReadSettings(aCard, i, &mode)); ++i)
      modes.push_back(std::to_string(mode.mPelsWidth) + "x" + std::to_string(mode.mPelsHeight) +
                      "@" + std::to_string(mode.mDisplayFrequency));
    return modes;
  }
  static nsresult SetMode(D& aDisplays, const std::string& aCard, uint32_t aWidth, uint32_t aHeight,
                          uint32_t aFlags = kApply) {
    Settings settings;
    settings.mFields = Settings::kPelsWidth | Settings::kPelsHeight;
    settings.mPelsWidth = aWidth;
    settings.mPelsHeight = aHeight;
    return aDisplays.ChangeSettings(aCard, &settings, aFlags, nullptr);
  }
  static nsresult SetPosition(D& aDisplays, const std::string& aCard, int32_t aX, int32_t aY,
                              uint32_t aFlags = kApply) {
    Settings settings;
    settings.mFields = Settings::kPosition;
    settings.mPositionX = aX;
    settings.mPositionY = aY;
    return aDisplays.ChangeSettings(aCard, &settings, aFlags, nullptr);
  }

  const nsTemporaryDirectory mDirectory;
  const nsSimulatedMachine mMachine;  // has the store
  nsLinuxDisplays mDisplays{mMachine.mRegistry};
};

constexpr char kFirst[] = "\\\\.\\DISPLAY1", kSecond[] = "\\\\.\\DISPLAY2";

TEST_F(LinuxDisplays, NoServerIsAFailureOrOneThatComesIsMissed) {
  unsetenv("DISPLAY");
  EXPECT_TRUE(Cards(mDisplays).empty());
  Settings settings;
  EXPECT_EQ(mDisplays.ReadSettings(kFirst, D::kCurrentSettings, &settings), NS_ERROR_NOT_AVAILABLE);
  EXPECT_EQ(mDisplays.RestoreSettings(), NS_ERROR_NOT_AVAILABLE);
  auto server = StartXvfb();
  if (server->Name().empty()) GTEST_SKIP() << "no Xvfb that starts here";
  EXPECT_EQ(Cards(mDisplays), std::vector<std::string>{"\\\\.\\DISPLAY1 screen 5"});
  settings = Read(mDisplays, kFirst, D::kCurrentSettings);
  EXPECT_EQ(settings.mPelsWidth, 1280u);
  EXPECT_EQ(settings.mPelsHeight, 1024u);
  EXPECT_EQ(settings.mBitsPerPel, 32u);

  // Its end and its start are each told once.
  const auto changes = mDisplays.NewChanges();
  changes->Wake();
  changes->Wait();  // connects, and is woken
  const std::string name = server->Name();
  server->End();
  changes->Wait();
  EXPECT_TRUE(changes->Consume());
  EXPECT_TRUE(Cards(mDisplays).empty());
  EXPECT_NE(SetMode(mDisplays, kFirst, 800, 600), NS_OK);
  server = nullptr;
  server = StartXvfb(name);
  ASSERT_EQ(server->Name(), name);
  changes->Wait();
  EXPECT_TRUE(changes->Consume());
  EXPECT_FALSE(changes->Consume());
  EXPECT_EQ(Cards(mDisplays).size(), 1u);
}

// What happens between a look and the moment at which its changes are waited for.
TEST_F(LinuxDisplays, ChangeBeforeTheFirstWaitIsLost) {
  auto server = StartXvfb();
  if (server->Name().empty()) GTEST_SKIP() << "no Xvfb that starts here";
  const std::string name = server->Name();
  ASSERT_EQ(Cards(mDisplays).size(), 1u);
  const auto nothing = mDisplays.NewChanges();
  nothing->Wake();
  nothing->Wait();
  EXPECT_FALSE(nothing->Consume());
  const auto changed = mDisplays.NewChanges(), ended = mDisplays.NewChanges();
  nsDisplayHand().AddMode(0, 500, 400);
  changed->Wait();
  EXPECT_TRUE(changed->Consume());
  server->End();
  ended->Wait();
  EXPECT_TRUE(ended->Consume());
  EXPECT_TRUE(Cards(mDisplays).empty());
  const auto started = mDisplays.NewChanges();
  server = nullptr;
  server = StartXvfb(name);
  started->Wait();
  EXPECT_TRUE(started->Consume());
}

TEST_F(LinuxDisplays, StoppedServerHoldsEverybodyUp) {
  const auto server = StartXvfb();
  if (server->Name().empty()) GTEST_SKIP() << "no Xvfb that starts here";
  ASSERT_EQ(Cards(mDisplays).size(), 1u);
  server->Signal(SIGSTOP);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(Cards(mDisplays).empty());
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  server->Signal(SIGCONT);
  EXPECT_EQ(Cards(mDisplays).size(), 1u);
}

TEST_F(LinuxDisplays, ModeOrScreenIsLostByAChange) {
  const auto server = StartXorg();
  if (server->Name().empty()) GTEST_SKIP() << "no Xorg with the dummy driver here";
  const auto cards = Cards(mDisplays);
  ASSERT_FALSE(cards.empty());
  EXPECT_EQ(cards[0], "\\\\.\\DISPLAY1 DUMMY0 5");
  const auto modes = Modes(mDisplays, kFirst);
  EXPECT_GE(modes.size(), 3u);
  EXPECT_EQ(std::set(modes.begin(), modes.end()).size(), modes.size()) << "twice";
  const auto changes = mDisplays.NewChanges();
  changes->Wake();
  changes->Wait();

  const std::pair<uint32_t, uint32_t> sizes[] = {{800, 600}, {1280, 720}, {1024, 768}};
  for (const auto& [width, height] : sizes) {
    ASSERT_EQ(SetMode(mDisplays, kFirst, width, height), NS_OK);
    const Settings now = Read(mDisplays, kFirst, D::kCurrentSettings);
    EXPECT_EQ(std::pair(now.mPelsWidth, now.mPelsHeight), std::pair(width, height));
    changes->Wait();
    EXPECT_TRUE(changes->Consume());
    EXPECT_FALSE(changes->Consume()) << "one for a burst";
  }
  ASSERT_EQ(SetPosition(mDisplays, kFirst, 100, 200), NS_OK);
  EXPECT_EQ(Read(mDisplays, kFirst, D::kCurrentSettings).mPositionY, 200);
  // What is refused leaves all as it was, and stores nothing.
  const Settings before = Read(mDisplays, kFirst, D::kRegistrySettings);
  EXPECT_NE(SetMode(mDisplays, kFirst, 1234, 567), NS_OK);
  EXPECT_NE(SetPosition(mDisplays, kFirst, 100000, 0), NS_OK);
  Settings turned;
  turned.mFields = Settings::kOrientation;
  turned.mDisplayOrientation = 4;
  EXPECT_NE(mDisplays.ChangeSettings(kFirst, &turned, kApply, nullptr), NS_OK);
  Settings deep;
  deep.mFields = Settings::kBitsPerPel;
  deep.mBitsPerPel = 8;
  EXPECT_NE(mDisplays.ChangeSettings(kFirst, &deep, kApply, nullptr), NS_OK);
  for (const uint32_t which : {D::kCurrentSettings, D::kRegistrySettings}) {
    const Settings after = Read(mDisplays, kFirst, which);
    EXPECT_EQ(after.mPelsWidth, before.mPelsWidth);
    EXPECT_EQ(after.mPositionX, before.mPositionX);
    EXPECT_EQ(after.mDisplayOrientation, before.mDisplayOrientation);
  }
  // Without a backlight there is no brightness.
  nsVideoParameters parameters{nsVideoParameters::kGet, nsVideoParameters::kBrightness, 0, 0};
  EXPECT_EQ(mDisplays.ChangeSettings(kFirst, nullptr, D::kTest | D::kVideoParameters, &parameters),
            NS_ERROR_NOT_AVAILABLE);
}

TEST_F(LinuxDisplays, StoredSettingsTouchTheScreenOrAreSetTwice) {
  auto server = StartXorg();
  if (server->Name().empty()) GTEST_SKIP() << "no Xorg with the dummy driver here";
  ASSERT_FALSE(Cards(mDisplays).empty());
  ASSERT_EQ(SetMode(mDisplays, kFirst, 800, 600), NS_OK);
  ASSERT_EQ(SetMode(mDisplays, kFirst, 1024, 768, kStore), NS_OK);
  ASSERT_EQ(SetPosition(mDisplays, kFirst, 64, 32, kStore), NS_OK);
  EXPECT_EQ(Read(mDisplays, kFirst, D::kCurrentSettings).mPelsWidth, 800u);
  EXPECT_EQ(Read(mDisplays, kFirst, D::kRegistrySettings).mPelsWidth, 1024u);
  EXPECT_EQ(Read(mDisplays, kFirst, D::kRegistrySettings).mPositionX, 64);
  ASSERT_EQ(mDisplays.RestoreSettings(), NS_OK);
  EXPECT_EQ(Read(mDisplays, kFirst, D::kCurrentSettings).mPelsWidth, 1024u);
  EXPECT_EQ(Read(mDisplays, kFirst, D::kCurrentSettings).mPositionX, 64);
  // Once in a session, whichever process asks.
  ASSERT_EQ(SetMode(mDisplays, kFirst, 800, 600, D::kReset), NS_OK);
  nsLinuxDisplays other(mMachine.mRegistry);
  ASSERT_EQ(other.RestoreSettings(), NS_OK);
  EXPECT_EQ(Read(other, kFirst, D::kCurrentSettings).mPelsWidth, 800u);
  server = nullptr;
  server = StartXorg();
  ASSERT_EQ(mDisplays.RestoreSettings(), NS_OK);
  EXPECT_EQ(Read(mDisplays, kFirst, D::kCurrentSettings).mPelsWidth, 1024u);
}

// ---- Displays that answer over their own wires

class DisplaysOnWires : public LinuxDisplays {
 protected:
  DisplaysOnWires() {
    mTree.Write("/sys/devices/card/class", "0x030000\n");
    mTree.Add("/sys/bus/i2c/devices\n  i2c-1 -> ../../../devices/card/i2c-1\n");
    mDisplay->mDescription = NS_TestDescription("Lobby");
  }
  nsLinuxDisplays Displays() {
    const auto open = [this](const std::string&, std::string* aReason) {
      return mDisplay->Open(aReason);
    };
    return nsLinuxDisplays(mMachine.mRegistry,
                           std::make_unique<nsDdcMonitors>(mTree.Root(), open, nsDdcPauses{}));
  }
  static nsVideoParameters Parameters(D& aDisplays, uint32_t aFlags = 0) {
    nsVideoParameters parameters{nsVideoParameters::kGet,
                                 nsVideoParameters::kBrightness | nsVideoParameters::kContrast, 999,
                                 999};
    (void)aDisplays.ChangeSettings(kFirst, nullptr, aFlags | D::kTest | D::kVideoParameters,
                                   &parameters);
    return parameters;
  }
  static nsresult Set(D& aDisplays, uint32_t aFlag, uint32_t aPercent, uint32_t aFlags) {
    nsVideoParameters parameters{nsVideoParameters::kSet, aFlag, aPercent, aPercent};
    return aDisplays.ChangeSettings(kFirst, nullptr, aFlags | D::kVideoParameters, &parameters);
  }

  nsCapturedTree mTree;
  const std::shared_ptr<nsDisplayOnWire> mDisplay = std::make_shared<nsDisplayOnWire>();
};

TEST_F(DisplaysOnWires, BrightnessIsWaitedForOrNeverTold) {
  const auto server = StartXvfb();
  if (server->Name().empty()) GTEST_SKIP() << "no Xvfb that starts here";
  nsDisplayHand hand;
  hand.Describe(0, NS_TestDescription("Lobby"));
  mDisplay->Hang(true);
  nsLinuxDisplays displays = Displays();
  EXPECT_EQ(Cards(displays), std::vector<std::string>{"\\\\.\\DISPLAY1 Lobby (screen) 5"});
  EXPECT_EQ(Parameters(displays).mBrightness, 999u) << "not known yet";
  const auto changes = displays.NewChanges();
  mDisplay->Hang(false);
  changes->Wait();
  EXPECT_TRUE(changes->Consume());
  EXPECT_EQ(Parameters(displays).mBrightness, 40u);
  EXPECT_EQ(Parameters(displays).mContrast, 60u);

  EXPECT_EQ(Set(displays, nsVideoParameters::kBrightness, 70, kApply), NS_OK);
  EXPECT_EQ(mDisplay->Feature(kDdcBrightness), 70);
  EXPECT_EQ(Set(displays, nsVideoParameters::kContrast, 20, kStore), NS_OK);
  EXPECT_EQ(mDisplay->Feature(kDdcContrast), 60) << "only stored";
  EXPECT_EQ(Parameters(displays).mContrast, 60u);
  EXPECT_EQ(Parameters(displays, D::kUpdateRegistry).mContrast, 20u);
  EXPECT_EQ(displays.RestoreSettings(), NS_OK);
  EXPECT_EQ(Set(displays, nsVideoParameters::kBrightness, 71, kApply), NS_OK) << "behind that";
  EXPECT_EQ(mDisplay->Feature(kDdcContrast), 20);

  // Silent, it keeps what it told last, and takes nothing.
  mDisplay->mRefused = 1000000;
  EXPECT_NE(Set(displays, nsVideoParameters::kBrightness, 5, kApply), NS_OK);
  EXPECT_EQ(Parameters(displays).mBrightness, 71u);
  EXPECT_EQ(Parameters(displays, D::kUpdateRegistry).mBrightness, 71u);
}

TEST_F(LinuxDisplays, HostileDescriptionOrModesBringItDown) {
  const auto server = StartXvfb();
  if (server->Name().empty()) GTEST_SKIP() << "no Xvfb that starts here";
  nsDisplayHand hand;
  ASSERT_EQ(Cards(mDisplays).size(), 1u);
  nsMutation mutation;
  for (int i = 0; i < 300; ++i) {
    hand.Describe(0, mutation.Damage(NS_TestDescription("Lobby"), std::string("\0\xFF\xFC", 3)));
    ASSERT_EQ(Cards(mDisplays).size(), 1u);
    EXPECT_EQ(Read(mDisplays, kFirst, D::kCurrentSettings).mPelsWidth, 1280u);
  }
  for (const size_t size : {0, 1, 127, 129, 100000}) {
    hand.Describe(0, std::string(size, '\xFF'));
    EXPECT_EQ(Cards(mDisplays), std::vector<std::string>{"\\\\.\\DISPLAY1 screen 5"}) << size;
  }
  // 500 modes more, and then none but the server's own.
  const auto before = Modes(mDisplays, kFirst);
  std::vector<uint32_t> added;
  for (uint16_t i = 0; i < 500; ++i)
    added.push_back(hand.AddMode(0, static_cast<uint16_t>(400 + i), 300));
  (void)Cards(mDisplays);
  EXPECT_EQ(Modes(mDisplays, kFirst).size(), before.size() + 500);
  for (const uint32_t mode : added) hand.RemoveMode(0, mode);
  (void)Cards(mDisplays);
  EXPECT_EQ(Modes(mDisplays, kFirst), before);
}

// Outputs of the dummy driver, the second and third of which are turned on by somebody else.
TEST_F(LinuxDisplays, ArrangementOfSeveralIsToldOrChangedWrongly) {
  const auto server = StartXorg();
  if (server->Name().empty()) GTEST_SKIP() << "no Xorg with the dummy driver here";
  nsDisplayHand hand;
  ASSERT_EQ(Cards(mDisplays).size(), 1u);
  const auto changes = mDisplays.NewChanges();
  hand.SetScreenSize(2880, 720);
  const uint32_t small = hand.AddMode(1, 900, 500), tall = hand.AddMode(2, 700, 600);
  hand.Describe(1, NS_TestDescription("Door"));
  hand.Show(1, small, 1280, 0);
  hand.Show(2, tall, 2180, 0);
  changes->Wait();
  EXPECT_TRUE(changes->Consume());
  const std::string first = "\\\\.\\DISPLAY1 DUMMY0 ", second = "\\\\.\\DISPLAY2 Door (DUMMY1) ",
                    third = "\\\\.\\DISPLAY3 DUMMY2 ";
  using Cs = std::vector<std::string>;
  EXPECT_EQ(Cards(mDisplays), (Cs{first + "5", second + "1", third + "1"}));
  const std::string two = kSecond, three = "\\\\.\\DISPLAY3";
  EXPECT_EQ(Read(mDisplays, two, D::kCurrentSettings).mPositionX, 1280);
  EXPECT_EQ(Modes(mDisplays, two).back(), "900x500@60") << "the mode that was added";
  hand.SetPrimary(1);
  EXPECT_EQ(Cards(mDisplays), (Cs{first + "1", second + "5", third + "1"}));

  // One that goes to the left of all others moves these to the right, and the screen grows.
  ASSERT_EQ(SetPosition(mDisplays, three, -700, 0), NS_OK);
  EXPECT_EQ(Read(mDisplays, three, D::kCurrentSettings).mPositionX, 0);
  EXPECT_EQ(Read(mDisplays, kFirst, D::kCurrentSettings).mPositionX, 700);
  EXPECT_EQ(Read(mDisplays, two, D::kCurrentSettings).mPositionX, 1980);

  // Stored by connector and display: another display in its place has settings of its own.
  ASSERT_EQ(SetPosition(mDisplays, two, 5, 6, kStore), NS_OK);
  EXPECT_EQ(Read(mDisplays, two, D::kRegistrySettings).mPositionX, 5);
  hand.Describe(1, NS_TestDescription("Door").replace(12, 1, "X"));
  ASSERT_EQ(Cards(mDisplays).size(), 3u);
  EXPECT_EQ(Read(mDisplays, two, D::kRegistrySettings).mPositionX, 1980);

  // Turned off, it has neither settings nor a place on the desktop.
  hand.Show(1, 0);
  EXPECT_EQ(Cards(mDisplays), (Cs{first + "5", second + "0", third + "1"}));
  Settings settings;
  EXPECT_EQ(mDisplays.ReadSettings(two, D::kCurrentSettings, &settings), NS_ERROR_NOT_AVAILABLE);
}

TEST_F(LinuxDisplays, BacklightIsNotScaled) {
  const auto server = StartXvfb();
  if (server->Name().empty()) GTEST_SKIP() << "no Xvfb that starts here";
  nsDisplayHand hand;
  hand.PutProperty(0, "Backlight", 300, 100, 1100);
  ASSERT_EQ(Cards(mDisplays).size(), 1u);
  nsVideoParameters parameters{nsVideoParameters::kGet, nsVideoParameters::kBrightness, 0, 0};
  const uint32_t get = D::kTest | D::kVideoParameters;
  ASSERT_EQ(mDisplays.ChangeSettings(kFirst, nullptr, get, &parameters), NS_OK);
  EXPECT_EQ(parameters.mBrightness, 20u);
  parameters = {nsVideoParameters::kSet, nsVideoParameters::kBrightness, 75, 0};
  const uint32_t set = kApply | D::kVideoParameters;
  ASSERT_EQ(mDisplays.ChangeSettings(kFirst, nullptr, set, &parameters), NS_OK);
  EXPECT_EQ(hand.Property(0, "Backlight"), 850);
  parameters = {nsVideoParameters::kSet, nsVideoParameters::kContrast, 0, 75};
  EXPECT_EQ(mDisplays.ChangeSettings(kFirst, nullptr, set, &parameters), NS_ERROR_NOT_AVAILABLE);
}

// ---- What a monitor says of itself

std::vector<uint8_t> Edid(const std::string& aName) {
  const std::string bytes = NS_TestDescription(aName);
  return {bytes.begin(), bytes.end()};
}

TEST(Edid, NameOrIdentityIsMisread) {
  const nsEdid edid = NS_ParseEdid(Edid("DELL U2412M"));
  EXPECT_EQ(edid.mName, "DELL U2412M");
  EXPECT_EQ(edid.mIdentity, "DEL-A02C-04030201");
  EXPECT_EQ(NS_ParseEdid(Edid("A\x01\xFF"
                              "B  "))
                .mName,
            "AB");
  EXPECT_EQ(NS_ParseEdid({}).mIdentity, "");
  std::vector<uint8_t> other = Edid("X");
  other[0] = 1;
  EXPECT_EQ(NS_ParseEdid(other).mIdentity, "");
}

TEST(Edid, HostileBytesCrashTheReader) {
  const auto good = Edid("DELL U2412M");
  nsMutation mutation;
  int named = 0;
  for (int i = 0; i < 20000; ++i) {
    const std::string text =
        mutation.Damage(std::string(good.begin(), good.end()), std::string("\0\xFF\xFC\n\\", 5));
    const nsEdid edid = NS_ParseEdid({reinterpret_cast<const uint8_t*>(text.data()), text.size()});
    named += !edid.mName.empty();
    for (const char letter : edid.mName + edid.mIdentity) {
      ASSERT_GE(letter, ' ');
      ASSERT_LT(letter, 0x7F);
    }
    ASSERT_EQ(edid.mIdentity.find('\\'), std::string::npos) << "it is part of a path";
  }
  EXPECT_GT(named, 1000);
}

}  // namespace

// Displays of real servers, which are the test's own: one of memory, and one with several outputs.
#include <filesystem>
#include <fstream>
#include <set>

#include "nsDisplayServer.h"
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

constexpr char kConfiguration[] = R"(
Section "ServerFlags"
  Option "AutoAddDevices" "false"
  Option "AutoAddGPU" "false"
  Option "DontVTSwitch" "true"
EndSection
Section "Device"
  Identifier "dummy"
  Driver "dummy"
  VideoRam 65536
EndSection
Section "Monitor"
  Identifier "monitor"
  HorizSync 5-1000
  VertRefresh 5-200
EndSection
Section "Screen"
  Identifier "screen"
  Device "dummy"
  Monitor "monitor"
  DefaultDepth 24
  SubSection "Display"
    Depth 24
    Modes "1280x720" "1024x768" "800x600"
    Virtual 3000 2000
  EndSubSection
EndSection
)";

class LinuxDisplays : public testing::Test {
 protected:
  std::unique_ptr<nsDisplayServer> StartXvfb(const std::string& aName = {}) {
    return std::make_unique<nsDisplayServer>(
        std::vector<std::string>{"Xvfb", "-screen", "0", "1280x1024x24"}, aName);
  }
  std::unique_ptr<nsDisplayServer> StartXorg() {
    const std::string configuration = mDirectory / "xorg.conf";
    std::ofstream(configuration) << kConfiguration;
    return std::make_unique<nsDisplayServer>(
        std::vector<std::string>{"Xorg", "-config", configuration, "-logfile", mDirectory / "log",
                                 "-novtswitch", "-sharevts", "-keeptty"});
  }
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

constexpr char kFirst[] = "\\\\.\\DISPLAY1";

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

// ---- What a monitor says of itself

std::vector<uint8_t> Edid(const std::string& aName) {
  std::vector<uint8_t> bytes(128);
  const uint8_t head[] = {0, 255, 255, 255, 255, 255, 255, 0, 0x10, 0xAC, 0x2C, 0xA0, 1, 2, 3, 4};
  std::copy(std::begin(head), std::end(head), bytes.begin());
  bytes[72 + 3] = 0xFC;
  std::fill_n(bytes.begin() + 77, 13, ' ');
  std::copy(aName.begin(), aName.end(), bytes.begin() + 77);
  bytes[77 + aName.size()] = '\n';
  return bytes;
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

// Display outputs: the adapter, its view, their discovery, and the binding.
#include <algorithm>

#include "nsFaultSweep.h"
#include "nsISystemAdapterDisplayOutput.h"
#include "nsISystemDisplayMode.h"
#include "nsISystemDisplayPosition.h"
#include "nsSystemAdapterDisplayOutput.h"
#include "nsSystemDisplayOutputBinding.h"
#include "nsSystemTest.h"

namespace {

using Strings = std::vector<std::string>;
using Mode = nsSimulatedDisplay::Mode;

nsSimulatedDisplay Screen(const std::string& aName, bool aPrimary = false) {
  nsSimulatedDisplay screen;
  screen.mName = aName;
  screen.mIsPrimary = aPrimary;
  screen.mModes = {{1920, 1080, 60}, {1920, 1080, 50, true}, {1280, 720, 60}};
  screen.mDepths = {32, 16};
  screen.mCurrent.mBrightness = 80;
  screen.mCurrent.mContrast = 50;
  return screen;
}

class DisplayTest : public nsSystemTest {
 protected:
  void TearDown() override {
    if (mManager) (void)mManager->Observe(nullptr, "xpcom-shutdown", nullptr);
    mManager = nullptr;
  }
  void Start(std::vector<nsSimulatedDisplay> aScreens) {
    if (!mManager) StartHost();
    for (auto& screen : aScreens) mMachine.mDisplays->Put(std::move(screen));
    mManager = NewManager(mMachine);
    ASSERT_EQ(mManager->InitDisplay(), NS_OK);
    mListener = MakeRefCounted<nsTestListener>();
    (void)mManager->AddAdapterListener(mListener.get());
    (void)TakeLog("");
  }
  std::vector<nsCOMPtr<nsISystemAdapterDisplayOutput>> Adapters() {
    nsCOMPtr<nsIArray> adapters;
    EXPECT_EQ(
        mManager->GetAdaptersByIId(nsISystemAdapterDisplayOutput::kIID, adapters.getter_AddRefs()),
        NS_OK);
    return NS_Elements<nsISystemAdapterDisplayOutput>(adapters.get());
  }
  Strings Labels() {
    nsCOMPtr<nsIArray> adapters;
    EXPECT_EQ(mManager->GetAdapters(adapters.getter_AddRefs()), NS_OK);
    Strings labels;
    for (const auto& adapter : NS_Elements<nsISystemAdapter>(adapters.get()))
      labels.push_back(NS_TextOf(adapter, &nsISystemAdapter::GetLabel));
    return labels;
  }
  Strings Look() {
    EXPECT_EQ(mManager->InitDisplay(), NS_OK);
    return std::exchange(mListener->mHeard, {});
  }
  Strings Changes() { return mMachine.mCalls->TakeJournal(); }
  static nsCOMPtr<nsISystemAdapterDisplayOutput> ViewOf(nsISystemAdapterDisplayOutput* aAdapter) {
    nsCOMPtr<nsISystemAdapterDisplayOutput> view;
    EXPECT_EQ(aAdapter->GetRegistered(view.getter_AddRefs()), NS_OK);
    return view;
  }
  static std::string ModeOf(nsISystemAdapterDisplayOutput* aAdapter) {
    nsCOMPtr<nsISystemDisplayMode> mode;
    EXPECT_EQ(aAdapter->GetDisplayMode(mode.getter_AddRefs()), NS_OK);
    return mode ? NS_TextOf(mode, &nsISystemDisplayMode::GetName) : "none";
  }
  static Strings ModesOf(nsISystemAdapterDisplayOutput* aAdapter) {
    nsCOMPtr<nsIArray> modes;
    EXPECT_EQ(aAdapter->GetDisplayModesList(modes.getter_AddRefs()), NS_OK);
    Strings names;
    for (const auto& mode : NS_Elements<nsISystemDisplayMode>(modes.get()))
      names.push_back(NS_TextOf(mode, &nsISystemDisplayMode::GetName));
    return names;
  }
  static std::vector<uint32_t> ListOf(
      nsISystemAdapterDisplayOutput* aAdapter,
      nsresult (nsISystemAdapterDisplayOutput::*aGetter)(uint32_t*, uint32_t**)) {
    uint32_t count = 99, *numbers = nullptr;
    EXPECT_EQ((aAdapter->*aGetter)(&count, &numbers), NS_OK);
    std::vector<uint32_t> list(numbers, numbers + count);
    NS_Free(numbers);
    return list;
  }
  template <class T>
  static T Number(nsISystemAdapterDisplayOutput* aAdapter,
                  nsresult (nsISystemAdapterDisplayOutput::*aGetter)(T*)) {
    T value = 9999;
    EXPECT_EQ((aAdapter->*aGetter)(&value), NS_OK);
    return value;
  }
  static uint32_t RotationOf(nsISystemAdapterDisplayOutput* aAdapter) {
    return Number(aAdapter, &nsISystemAdapterDisplayOutput::GetRotation);
  }
  static nsCOMPtr<nsISystemDisplayPosition> Place(int32_t aX, int32_t aY) {
    return nsCOMPtr<nsISystemDisplayPosition>(MakeRefCounted<nsSystemDisplayPosition>(aX, aY));
  }

  nsCOMPtr<nsSystemManager> mManager;
  nsCOMPtr<nsTestListener> mListener;
};

TEST_F(DisplayTest, PrimaryOneIsNotTheFirstOrOthersLoseTheirOrder) {
  StartHost();
  mManager = NewManager(mMachine);
  (void)mManager->AddAdapter(MakeRefCounted<nsTestAdapter>(u"before").get());
  for (const char* name : {"A", "B"}) mMachine.mDisplays->Put(Screen(name));
  ASSERT_EQ(mManager->InitDisplay(), NS_OK);
  (void)mManager->AddAdapter(MakeRefCounted<nsTestAdapter>(u"behind").get());
  EXPECT_EQ(Labels(), (Strings{"before", "A", "B", "behind"}));
  mMachine.mDisplays->Put(Screen("C"));
  mMachine.mDisplays->Put(Screen("D", true));
  mMachine.mDisplays->Put(Screen("E"));
  (void)TakeLog("");
  ASSERT_EQ(mManager->InitDisplay(), NS_OK);
  EXPECT_EQ(Labels(), (Strings{"before", "D", "A", "B", "C", "E", "behind"}));
  const Strings log = TakeLog("debug system.manager: Insert");
  EXPECT_EQ(log, (Strings{"debug system.manager: Insert Adapter at last index = 3",
                          "debug system.manager: Insert adapter at first index = 1",
                          "debug system.manager: Insert Adapter at last index = 5"}));
}

TEST_F(DisplayTest, MirrorOrInactiveCardOrMonitorGetsAnAdapter) {
  auto mirror = Screen("mirror"), inactive = Screen("inactive"), two = Screen("two");
  mirror.mIsMirror = true;
  inactive.mIsActive = false;
  two.mMonitors = 2;
  two.mMonitor = "Lobby";
  Start({mirror, inactive, two});
  EXPECT_EQ(Labels(), Strings{"Lobby (two)"});
  EXPECT_EQ(NS_TextOf(Adapters()[0], &nsISystemAdapterDisplayOutput::GetSysPath),
            "\\\\.\\DISPLAY3");
  EXPECT_EQ(Look(), Strings{}) << "nothing has changed";
  const Strings log = TakeLog("debug system.manager");
  EXPECT_EQ(log, (Strings{"debug system.manager: graphic card 0 name : \\\\.\\DISPLAY1 string : "
                          "mirror",
                          "debug system.manager: Miroir",
                          "debug system.manager: graphic card 1 name : \\\\.\\DISPLAY2 string : "
                          "inactive",
                          "debug system.manager: Inactif",
                          "debug system.manager: graphic card 2 name : \\\\.\\DISPLAY3 string : "
                          "Lobby (two)",
                          "debug system.manager: Monitor 0 name : \\\\.\\DISPLAY3\\Monitor0 string "
                          ": Lobby actif : 1",
                          "debug system.manager: Update adapter sysPath=\\\\.\\DISPLAY3",
                          "debug system.manager: Monitor 1 name : \\\\.\\DISPLAY3\\Monitor1 string "
                          ": Lobby actif : 1",
                          "debug system.manager: Update adapter sysPath=\\\\.\\DISPLAY3"}));
  mMachine.mDisplays->Remove("two");
  EXPECT_EQ(Look(), Strings{"adapter removed Lobby (two)"});
  EXPECT_TRUE(Labels().empty());
}

TEST_F(DisplayTest, ModeOfATurnedScreenIsToldTurned) {
  auto screen = Screen("A", true);
  screen.mCurrent.mOrientation = 1;
  Start({screen});
  const auto adapter = Adapters()[0];
  EXPECT_EQ(ModesOf(adapter.get()), (Strings{"1920x1080 60Hz", "1920x1080 60Hz", "1920x1080 50Hz",
                                             "1920x1080 50Hz", "1280x720 60Hz", "1280x720 60Hz"}))
      << "each in each depth";
  EXPECT_EQ(ModeOf(adapter.get()), "1920x1080 60Hz");
  EXPECT_EQ(RotationOf(adapter.get()), 90u);
  using A = nsISystemAdapterDisplayOutput;
  EXPECT_EQ(ListOf(adapter.get(), &A::GetBitsPerPixelList), (std::vector<uint32_t>{32, 16}));
  EXPECT_EQ(ListOf(adapter.get(), &A::GetPortTypesList), std::vector<uint32_t>{0});
  nsCOMPtr<nsIArray> modes;
  ASSERT_EQ(adapter->GetDisplayModesList(modes.getter_AddRefs()), NS_OK);
  std::vector<bool> interlaced;
  for (const auto& mode : NS_Elements<nsISystemDisplayMode>(modes.get())) {
    bool is = false;
    EXPECT_EQ(mode->GetInterlaced(&is), NS_OK);
    interlaced.push_back(is);
  }
  EXPECT_EQ(interlaced, (std::vector{false, false, true, true, false, false}));
  // A mode of the list is set as the screen stands.
  ASSERT_EQ(adapter->SetDisplayMode(NS_Elements<nsISystemDisplayMode>(modes.get())[4].get()),
            NS_OK);
  EXPECT_EQ(Changes(), Strings{"Displays.ChangeSettings \\\\.\\DISPLAY1 flags=40000009 width=720 "
                               "height=1280 frequency=60"});
}

// The answer is that of the primary card, whichever is asked.
TEST_F(DisplayTest, RotationsAreListedWrongly) {
  using A = nsISystemAdapterDisplayOutput;
  const std::pair<uint32_t, std::vector<uint32_t>> cases[] = {
      {0, {0, 90, 180, 270}}, {1, {90, 270}}, {2, {180, 270}}, {3, {90, 180, 270}}};
  Start({Screen("A"), Screen("B", true)});
  for (const auto& [given, expected] : cases) {
    const uint32_t bits = given;  // clang 14 captures no structured binding
    mMachine.mDisplays->Alter("B", [&](nsSimulatedDisplay& aB) { aB.mRotations = bits; });
    (void)Look();
    for (const auto& adapter : Adapters())
      EXPECT_EQ(ListOf(adapter.get(), &A::GetRotationsList), expected) << bits;
  }
}

TEST_F(DisplayTest, TurningExchangesTheSizeAtTheWrongAngle) {
  Start({Screen("A", true)});
  const auto adapter = Adapters()[0];
  const std::pair<uint32_t, const char*> turns[] = {{90, "orientation=1 width=1080 height=1920"},
                                                    {180, "orientation=2 width=1920 height=1080"},
                                                    {270, "orientation=3 width=1920 height=1080"},
                                                    {45, "orientation=0 width=1920 height=1080"}};
  for (const auto& [degrees, expected] : turns) {
    ASSERT_EQ(adapter->SetRotation(degrees), NS_OK);
    EXPECT_EQ(Changes(), Strings{std::string("Displays.ChangeSettings \\\\.\\DISPLAY1 "
                                             "flags=40000009 ") +
                                 expected});
    EXPECT_EQ(RotationOf(adapter.get()), degrees) << "what was set, whatever it was";
  }
  (void)TakeLog("");
  ASSERT_EQ(adapter->SetRotation(45), NS_OK);
  EXPECT_TRUE(Changes().empty());
  EXPECT_EQ(TakeLog(""), Strings{"debug system.adapter.displayoutput: Begin"});
}

TEST_F(DisplayTest, ViewTouchesTheScreenOrTellsWhatIsInForce) {
  Start({Screen("A", true)});
  const auto adapter = Adapters()[0];
  const auto view = ViewOf(adapter.get());
  EXPECT_EQ(view, ViewOf(adapter.get()));
  EXPECT_NE(ViewOf(view.get()), view);
  EXPECT_EQ(NS_TextOf(view, &nsISystemAdapterDisplayOutput::GetSysPath), "\\\\.\\DISPLAY1");
  EXPECT_EQ(NS_TextOf(view, &nsISystemAdapterDisplayOutput::GetLabel), "A");
  ASSERT_EQ(view->SetRotation(90), NS_OK);
  ASSERT_EQ(view->SetPosition(Place(-1920, 7).get()), NS_OK);
  ASSERT_EQ(view->SetBitsPerPixel(16), NS_OK);
  ASSERT_EQ(view->SetBrightness(10), NS_OK);
  ASSERT_EQ(view->SetContrast(20), NS_OK);
  EXPECT_EQ(Changes(),
            (Strings{"Displays.ChangeSettings \\\\.\\DISPLAY1 flags=10000009 orientation=1 "
                     "width=1080 height=1920",
                     "Displays.ChangeSettings \\\\.\\DISPLAY1 flags=10000009 x=-1920 y=7",
                     "Displays.ChangeSettings \\\\.\\DISPLAY1 flags=10000009 bits=16",
                     "Displays.ChangeSettings \\\\.\\DISPLAY1 flags=10000029 brightness=10",
                     "Displays.ChangeSettings \\\\.\\DISPLAY1 flags=10000029 contrast=20"}));
  EXPECT_TRUE(Look().empty());
  EXPECT_EQ(RotationOf(adapter.get()), 0u);
  // Another view reads what has been stored.
  const auto other = ViewOf(view.get());
  using A = nsISystemAdapterDisplayOutput;
  EXPECT_EQ(RotationOf(other.get()), 90u);
  EXPECT_EQ(Number(other.get(), &A::GetBitsPerPixel), 16u);
  EXPECT_EQ(Number(other.get(), &A::GetBrightness), 10);
  EXPECT_EQ(Number(other.get(), &A::GetContrast), 20);
  nsCOMPtr<nsISystemDisplayPosition> position;
  bool equal = false;
  ASSERT_EQ(other->GetPosition(position.getter_AddRefs()), NS_OK);
  EXPECT_EQ(position->Equals(Place(-1920, 7).get(), &equal), NS_OK);
  EXPECT_TRUE(equal);
  EXPECT_EQ(ModeOf(other.get()), "1920x1080 60Hz");
}

TEST_F(DisplayTest, PercentIsTakenOutOfItsRange) {
  Start({Screen("A", true)});
  const auto adapter = Adapters()[0];
  using A = nsISystemAdapterDisplayOutput;
  EXPECT_EQ(adapter->SetBrightness(101), NS_ERROR_FAILURE);
  EXPECT_EQ(adapter->SetContrast(65535), NS_ERROR_FAILURE);
  EXPECT_EQ(TakeLog("error"),
            (Strings{"error system.adapter.displayoutput: value out of range [0 ; 100] : 101",
                     "error system.adapter.displayoutput: value out of range [0 ; 100] : 65535"}));
  EXPECT_EQ(Number(adapter.get(), &A::GetBrightness), 80);
  EXPECT_EQ(adapter->SetBrightness(80), NS_OK);
  EXPECT_EQ(adapter->SetBrightness(100), NS_OK);
  EXPECT_EQ(adapter->SetContrast(50), NS_OK);
  EXPECT_EQ(Changes(),
            Strings{"Displays.ChangeSettings \\\\.\\DISPLAY1 flags=40000029 brightness=100"});
  // What is there already is never out of range; the brightness is the other way round.
  mMachine.mDisplays->Alter(
      "A", [](nsSimulatedDisplay& aA) { aA.mCurrent.mContrast = aA.mCurrent.mBrightness = 200; });
  (void)Look();
  EXPECT_EQ(adapter->SetContrast(200), NS_OK);
  EXPECT_EQ(adapter->SetBrightness(200), NS_ERROR_FAILURE);
}

TEST_F(DisplayTest, RefusedChangeIsKept) {
  auto screen = Screen("A", true);
  Start({screen});
  const auto adapter = Adapters()[0];
  mMachine.mDisplays->Alter("A", [](nsSimulatedDisplay& aA) { aA.mRefuses = true; });
  using A = nsISystemAdapterDisplayOutput;
  EXPECT_EQ(adapter->SetRotation(90), NS_ERROR_FAILURE);
  EXPECT_EQ(adapter->SetPosition(Place(1, 1).get()), NS_ERROR_FAILURE);
  EXPECT_EQ(adapter->SetBitsPerPixel(16), NS_ERROR_FAILURE);
  EXPECT_EQ(adapter->SetBrightness(1), NS_ERROR_FAILURE);
  EXPECT_EQ(adapter->SetContrast(1), NS_ERROR_FAILURE);
  nsCOMPtr<nsIArray> modes;
  ASSERT_EQ(adapter->GetDisplayModesList(modes.getter_AddRefs()), NS_OK);
  EXPECT_EQ(adapter->SetDisplayMode(NS_Elements<nsISystemDisplayMode>(modes.get())[4].get()),
            NS_ERROR_FAILURE);
  EXPECT_EQ(TakeLog("error").size(), 6u);
  EXPECT_EQ(RotationOf(adapter.get()), 0u);
  EXPECT_EQ(Number(adapter.get(), &A::GetBitsPerPixel), 32u);
  EXPECT_EQ(Number(adapter.get(), &A::GetBrightness), 80);
  EXPECT_EQ(Number(adapter.get(), &A::GetContrast), 50);
  EXPECT_EQ(ModeOf(adapter.get()), "1920x1080 60Hz");
  EXPECT_EQ(adapter->SetPosition(nullptr), NS_ERROR_INVALID_ARG);
  EXPECT_EQ(adapter->SetDisplayMode(nullptr), NS_ERROR_FAILURE);
  EXPECT_EQ(TakeLog("error"), Strings{"error system.adapter.displayoutput: New mode not allowed"});
}

TEST_F(DisplayTest, EqualModeIsRefusedOrAnotherTaken) {
  Start({Screen("A", true)});
  const auto adapter = Adapters()[0];
  const auto equal =
      MakeRefCounted<nsSystemDisplayMode>(nsString(u"1280x720 60Hz"), 1280u, 720u, 60u, false);
  const auto other =
      MakeRefCounted<nsSystemDisplayMode>(nsString(u"1280x720 60Hz"), 1280u, 720u, 60u, true);
  EXPECT_EQ(adapter->SetDisplayMode(other.get()), NS_ERROR_FAILURE);
  EXPECT_EQ(adapter->SetDisplayMode(equal.get()), NS_OK);
  nsCOMPtr<nsISystemDisplayMode> mode;
  ASSERT_EQ(adapter->GetDisplayMode(mode.getter_AddRefs()), NS_OK);
  EXPECT_EQ(mode.get(), static_cast<nsISystemDisplayMode*>(equal.get())) << "the object itself";
}

TEST_F(DisplayTest, ScreenWithoutModesIsNotPublishedOrTakesOne) {
  auto screen = Screen("A", true);
  screen.mModes.clear();
  Start({screen, Screen("B")});
  EXPECT_EQ(Labels(), (Strings{"A", "B"}));
  const auto adapter = Adapters()[0];
  EXPECT_EQ(ModesOf(adapter.get()), Strings{});
  EXPECT_EQ(ListOf(adapter.get(), &nsISystemAdapterDisplayOutput::GetBitsPerPixelList),
            std::vector<uint32_t>{});
  EXPECT_EQ(ModeOf(adapter.get()), "1920x1080 60Hz");
  const auto other =
      MakeRefCounted<nsSystemDisplayMode>(nsString(u"1280x720 60Hz"), 1280u, 720u, 60u, false);
  EXPECT_EQ(adapter->SetDisplayMode(other.get()), NS_ERROR_FAILURE);
  EXPECT_EQ(TakeLog("error"), Strings{"error system.adapter.displayoutput: New mode not allowed"});
}

TEST_F(DisplayTest, ScreenWithoutSettingsIsPublishedOrStaysBroken) {
  auto screen = Screen("A", true);
  screen.mHasSettings = false;
  StartHost();
  mMachine.mDisplays->Put(screen);
  const auto adapter = MakeRefCounted<nsSystemAdapterDisplayOutput>(mMachine.Platform());
  EXPECT_EQ(adapter->Init({"\\\\.\\DISPLAY1", "A", 1}, {}), NS_ERROR_FAILURE);
  nsCOMPtr<nsISystemDisplayPosition> position = Place(1, 1);
  EXPECT_EQ(adapter->GetPosition(position.getter_AddRefs()), NS_OK) << "the second reading";
  EXPECT_FALSE(position);
  EXPECT_EQ(ModeOf(adapter.get()), "none");
  EXPECT_EQ(adapter->SetRotation(90), NS_ERROR_FAILURE);
  EXPECT_EQ(adapter->SetPosition(Place(0, 0).get()), NS_OK) << "each place is another one";
  mManager = NewManager(mMachine);
  EXPECT_EQ(mManager->InitDisplay(), NS_ERROR_FAILURE);
  EXPECT_TRUE(Labels().empty());
  mMachine.mDisplays->Alter("A", [](nsSimulatedDisplay& aA) { aA.mHasSettings = true; });
  EXPECT_EQ(mManager->InitDisplay(), NS_OK);
  EXPECT_EQ(Labels(), Strings{"A"});
}

TEST_F(DisplayTest, ChangeIsMissedOrToldWithoutOne) {
  Start({Screen("A", true)});
  EXPECT_TRUE(Look().empty());
  using Display = nsSimulatedDisplay;
  const std::function<void(Display&)> changes[] = {
      [](Display& aA) { aA.mCurrent.mX = 3; },
      [](Display& aA) { aA.mCurrent.mOrientation = 2; },
      [](Display& aA) { aA.mCurrent.mBitsPerPixel = 16; },
      [](Display& aA) { aA.mCurrent.mBrightness = 1; },
      [](Display& aA) { aA.mCurrent.mMode = aA.mModes[2]; },
      [](Display& aA) { aA.mCurrent.mMode.mInterlaced = true; }};
  for (const auto& change : changes) {
    mMachine.mDisplays->Alter("A", change);
    EXPECT_EQ(Look(), Strings{"adapter changed A"}) << &change - changes;
    EXPECT_TRUE(Look().empty()) << &change - changes;
  }
  mMachine.mDisplays->Alter("A", [](Display& aA) { aA.mCurrent.mContrast = 51; });
  EXPECT_TRUE(Look().empty()) << "the contrast is not compared";
  mMachine.mDisplays->Alter("A", [](Display& aA) { aA.mCurrent.mContrast = 0; });
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Look(), Strings{"adapter changed A"}) << "but with 0";
}

TEST_F(DisplayTest, ListenerThatLooksAgainLeavesStaleAdapters) {
  Start({});
  bool looked = false;
  mListener->mThen = [&] {
    if (std::exchange(looked, true)) return;
    mMachine.mDisplays->Remove("B");
    EXPECT_EQ(mManager->InitDisplay(), NS_OK);
  };
  for (const char* name : {"A", "B", "C"}) mMachine.mDisplays->Put(Screen(name));
  EXPECT_EQ(Look(), (Strings{"adapter added A", "adapter added C"}));
  EXPECT_EQ(Labels(), (Strings{"A", "C"}));
}

TEST_F(DisplayTest, FailingCallLosesScreensForGood) {
  StartHost();
  NS_SweepFaults([&](nsSimulatedMachine& aMachine, bool aFaulty) {
    mManager = NewManager(aMachine);
    for (const char* name : {"A", "B"}) aMachine.mDisplays->Put(Screen(name));
    (void)mManager->Observe(nullptr, "vorel-application-start", nullptr);
    const nsresult rv = mManager->InitDisplay();
    (void)mManager->Observe(nullptr, "vorel-await-displays", nullptr);
    if (!aFaulty) {
      EXPECT_EQ(rv, NS_OK);
      const auto view = ViewOf(Adapters()[0].get());
      EXPECT_EQ(view->SetRotation(90), NS_OK);
      EXPECT_EQ(Adapters()[1]->SetBrightness(7), NS_OK);
    }
    if (aFaulty && Adapters().size() == 2) {
      (void)ViewOf(Adapters()[0].get())->SetRotation(90);
      (void)Adapters()[1]->SetBrightness(7);
    }
    size_t failed;
    do {
      failed = aMachine.mCalls->FailedCalls().size();
      (void)mManager->InitDisplay();
    } while (failed != aMachine.mCalls->FailedCalls().size());
    Strings labels = Labels();
    std::ranges::sort(labels);
    EXPECT_EQ(labels, (Strings{"A", "B"}));
    (void)mManager->Observe(nullptr, "xpcom-shutdown", nullptr);
    mManager = nullptr;
  });
}

TEST_F(DisplayTest, PowerModeOrGammasDoSomething) {
  Start({Screen("A", true)});
  const auto adapter = Adapters()[0];
  EXPECT_EQ(adapter->SetPowerMode(0), NS_OK);
  EXPECT_EQ(Number(adapter.get(), &nsISystemAdapterDisplayOutput::GetPowerMode), 1u);
  nsISupports* gammas = adapter.get();
  EXPECT_EQ(adapter->GetGammas(&gammas), NS_OK);
  EXPECT_EQ(gammas, adapter.get());
  EXPECT_EQ(adapter->SetPortType(5), NS_OK);
  EXPECT_EQ(Number(adapter.get(), &nsISystemAdapterDisplayOutput::GetPortType), 5u);
  EXPECT_TRUE(Changes().empty());
}

TEST_F(DisplayTest, BindingWorksWithoutInitOrOnAnyAdapter) {
  Start({Screen("A", true)});
  const auto binding = MakeRefCounted<nsSystemDisplayOutputBinding>();
  bool value = false;
  uint16_t brightness = 7;
  EXPECT_EQ(binding->IsEnabled(&value), NS_ERROR_NOT_AVAILABLE);
  EXPECT_EQ(binding->GetStandby(&value), NS_ERROR_NOT_AVAILABLE);
  EXPECT_TRUE(value);
  EXPECT_EQ(binding->SetStandby(false), NS_ERROR_NOT_AVAILABLE);
  EXPECT_EQ(binding->GetBrightness(&brightness), NS_ERROR_NOT_AVAILABLE);
  EXPECT_EQ(TakeLog(""), Strings(4, "debug system.profile.display-output: APB not inited"));
  nsCOMPtr<nsISystemAdapter> adapter;
  EXPECT_EQ(binding->GetAdapter(adapter.getter_AddRefs()), NS_ERROR_NOT_AVAILABLE);

  ASSERT_EQ(binding->Init(MakeRefCounted<nsTestAdapter>().get(), nullptr, nullptr), NS_OK);
  (void)TakeLog("");
  EXPECT_EQ(binding->IsEnabled(&value), NS_OK);
  EXPECT_TRUE(value);
  EXPECT_EQ(binding->GetBrightness(&brightness), NS_ERROR_UNEXPECTED);
  EXPECT_EQ(TakeLog("warning"), Strings{"warning debug: 'NS_ENSURE_TRUE(adapter) failed'"});
  EXPECT_EQ(brightness, 7);
  nsCOMPtr<nsISystemApplicationProfile> profile;
  EXPECT_EQ(binding->GetApplicationProfile(profile.getter_AddRefs()), NS_OK);
  EXPECT_FALSE(profile);

  ASSERT_EQ(binding->Init(Adapters()[0].get(), NS_NewTestProfile(u"p").get(), nullptr), NS_OK);
  EXPECT_EQ(binding->SetStandby(true), NS_OK);
  EXPECT_EQ(binding->GetStandby(&value), NS_OK);
  EXPECT_FALSE(value) << "there is no link to the display for it";
  EXPECT_EQ(binding->GetBrightness(&brightness), NS_OK);
  EXPECT_EQ(brightness, 80);
  EXPECT_EQ(binding->SetBrightness(200), NS_ERROR_FAILURE);
  EXPECT_EQ(binding->SetBrightness(20), NS_OK);
  EXPECT_EQ(binding->GetAdapter(adapter.getter_AddRefs()), NS_OK);
  EXPECT_EQ(adapter.get(), Adapters()[0].get());
}

}  // namespace

// Device events: what the manager makes of the messages that the application's window gets.
#include "nsFaultSweep.h"
#include "nsISystemAdapterDisplayOutput.h"
#include "nsISystemAdapterStorage.h"
#include "nsIThread.h"
#include "nsSystemTest.h"
#include "nsVorelMethodCaller.h"

namespace {

using Strings = std::vector<std::string>;
using Message = nsWindowMessage;
using Events = nsSimulatedWindowEvents;

class DeviceEventsTest : public nsSystemTest {
 protected:
  void TearDown() override {
    if (mManager) (void)mManager->Observe(nullptr, "xpcom-shutdown", nullptr);
    mManager = nullptr;
  }

  // A manager whose window is there, and listeners that hear everything.
  void Start() {
    StartHost();
    mManager = NewManager(mMachine);
    AllowProfile("storage-external-medias-reader.mass-storage.*.*");
    ASSERT_EQ(mManager->Init(), NS_OK);
    ASSERT_EQ(mManager->SubclassWindow(&mWindow), NS_OK);
    mListener = MakeRefCounted<nsTestListener>();
    (void)mManager->AddAdapterListener(mListener.get());
    (void)mManager->AddProfileBindingListener(mListener.get());
    (void)mMachine.mCalls->TakeJournal();
    (void)TakeLog("");
  }
  // Runs the main thread until the former procedure has got so many messages.
  void RunUntil(size_t aMessages) {
    nsCOMPtr<nsIThread> main;
    ASSERT_EQ(NS_GetMainThread(main.getter_AddRefs()), NS_OK);
    while (mAnswered.size() < aMessages) {
      bool ran = false;
      ASSERT_EQ(main->ProcessNextEvent(true, &ran), NS_OK);
      for (std::string& line : mMachine.mCalls->TakeJournal())
        if (line.starts_with("WindowEvents.CallProcedure ")) mAnswered.push_back(std::move(line));
    }
  }
  intptr_t Send(uint32_t aMessage, uintptr_t aWParam = 0,
                const nsDeviceBroadcast* aBroadcast = nullptr) {
    return mManager->WndProc({&mWindow, aMessage, aWParam, aBroadcast, 0});
  }
  intptr_t SendVolume(uintptr_t aWParam, uint32_t aMask) {
    const nsDeviceBroadcast broadcast{nsDeviceBroadcast::kVolume, aMask, {}};
    return Send(Message::kDeviceChange, aWParam, &broadcast);
  }
  Strings Heard() { return std::exchange(mListener->mHeard, {}); }
  size_t Count(const nsIID& aIID) {
    nsCOMPtr<nsIArray> adapters;
    EXPECT_EQ(mManager->GetAdaptersByIId(aIID, adapters.getter_AddRefs()), NS_OK);
    uint32_t length = 0;
    EXPECT_EQ(adapters->GetLength(&length), NS_OK);
    return length;
  }

  int mWindow = 0;
  Strings mAnswered;
  nsCOMPtr<nsSystemManager> mManager;
  nsCOMPtr<nsTestListener> mListener;
};

TEST_F(DeviceEventsTest, StickIsMissedOrStaysWhenItIsPulled) {
  Start();
  mMachine.mVolumes->Insert('E');
  RunUntil(1);
  EXPECT_EQ(Heard(), (Strings{"adapter added ", "binding added storage-external-medias-reader"}));
  mMachine.mVolumes->Insert('F');
  mMachine.mVolumes->Remove('E');
  RunUntil(3);
  EXPECT_EQ(Heard(),
            (Strings{"adapter added ", "binding added storage-external-medias-reader",
                     "adapter removed ", "binding removed storage-external-medias-reader"}));
  nsCOMPtr<nsISystemAdapterStorage> gone, stays;
  EXPECT_EQ(mManager->GetAdapterForDriveLetter('E', gone.getter_AddRefs()), NS_OK);
  EXPECT_EQ(mManager->GetAdapterForDriveLetter('F', stays.getter_AddRefs()), NS_OK);
  EXPECT_FALSE(gone);
  EXPECT_TRUE(stays);
  EXPECT_EQ(mAnswered,
            (Strings{"WindowEvents.CallProcedure 537 32768", "WindowEvents.CallProcedure 537 32768",
                     "WindowEvents.CallProcedure 537 32772"}));
}

TEST_F(DeviceEventsTest, LineOfTheLogIsMissingOrMisspelt) {
  Start();
  nsSimulatedVolume disc;
  disc.mKind = nsPlatformVolumes::kDriveCdRom;
  mMachine.mVolumes->Insert('E', disc);
  mMachine.mVolumes->Remove('E');
  mMachine.mWindowEvents->Plug("usb#1-1");
  mMachine.mWindowEvents->Unplug("usb#1-1");
  RunUntil(4);
  EXPECT_EQ(TakeLog("debug system.manager"),
            (Strings{"debug system.manager: DBT_DEVICEARRIVAL",
                     "debug system.manager: Device 'E:' has been inserted.",
                     "debug system.manager: DBT_DEVICEREMOVECOMPLETE",
                     "debug system.manager: Device 'E:' has been removed.",
                     "debug system.manager: DBT_DEVICEARRIVAL",
                     "debug system.manager: Device 'usb#1-1:' has been inserted.",
                     "debug system.manager: DBT_DEVICEREMOVECOMPLETE",
                     "debug system.manager: Device 'usb#1-1:' has been removed."}));
  EXPECT_TRUE(Heard().empty());
}

TEST_F(DeviceEventsTest, UnitMaskIsReadBeyondItsLowestBit) {
  Start();
  for (const char letter : {'C', 'E', 'F'}) mMachine.mVolumes->Insert(letter);
  RunUntil(3);
  EXPECT_EQ(SendVolume(Message::kDeviceRemoveComplete, 1u << 5 | 1u << 4), Events::kFormerAnswer);
  EXPECT_EQ(Count(nsISystemAdapterStorage::kIID), 2u);
  (void)TakeLog("");
  // Without a bit it is the character behind 'Z', and so it is with one that no letter has.
  for (const uint32_t mask : {0u, 1u << 26, 1u << 31})
    for (const uintptr_t what : {Message::kDeviceArrival, Message::kDeviceRemoveComplete})
      EXPECT_EQ(SendVolume(what, mask), Events::kFormerAnswer);
  EXPECT_EQ(TakeLog("debug system.manager: Device '[:' has been ").size(), 6u);
  EXPECT_EQ(Count(nsISystemAdapterStorage::kIID), 2u);
}

TEST_F(DeviceEventsTest, DisplaysAreLookedAtTooEarlyOrForOtherDevices) {
  Start();
  nsSimulatedDisplay screen;
  screen.mName = "HDMI-1";
  mMachine.mDisplays->Put(screen);  // nobody has consumed its message yet
  const nsDeviceBroadcast other{nsDeviceBroadcast::kDeviceInterface, 0, "Display#1"};
  const nsDeviceBroadcast display{nsDeviceBroadcast::kDeviceInterface, 0, "\\\\?\\DISPLAY#1"};
  EXPECT_EQ(Send(Message::kDeviceChange, Message::kDeviceArrival, &other), Events::kFormerAnswer);
  EXPECT_EQ(Count(nsISystemAdapterDisplayOutput::kIID), 0u) << "the word is in capitals";
  EXPECT_EQ(Send(Message::kDeviceChange, Message::kDeviceArrival, &display), Events::kFormerAnswer);
  EXPECT_EQ(Count(nsISystemAdapterDisplayOutput::kIID), 1u);
  (void)mMachine.mCalls->TakeJournal();
  mMachine.mDisplays->Remove("HDMI-1");
  EXPECT_EQ(Send(Message::kDisplayChange), 0) << "the result of the dispatch";
  EXPECT_EQ(Count(nsISystemAdapterDisplayOutput::kIID), 1u) << "not before it is answered";
  EXPECT_TRUE(mMachine.mCalls->TakeJournal().empty()) << "the former procedure never sees it";
  nsCOMPtr<nsIThread> main;
  ASSERT_EQ(NS_GetMainThread(main.getter_AddRefs()), NS_OK);
  while (Count(nsISystemAdapterDisplayOutput::kIID) > 0) {
    bool ran = false;
    ASSERT_EQ(main->ProcessNextEvent(true, &ran), NS_OK);
  }
  EXPECT_EQ(TakeLog("debug system.manager: WM_DISPLAYCHANGE").size() > 0, true);
}

TEST_F(DeviceEventsTest, DestroyedWindowIsListenedTo) {
  Start();
  mMachine.mWindowEvents->DestroyWindow(&mWindow);
  EXPECT_EQ(Send(Message::kDisplayChange), 0);
  EXPECT_EQ(SendVolume(Message::kDeviceArrival, 1), 0);
  EXPECT_TRUE(mMachine.mCalls->TakeJournal().empty());
  EXPECT_TRUE(TakeLog("debug system.manager").empty());
}

TEST_F(DeviceEventsTest, RefusedRegistrationIsSilentOrStopsVolumes) {
  StartHost();
  mManager = NewManager(mMachine);
  mMachine.mWindowEvents->SetListenError(1066);
  testing::internal::CaptureStdout();
  EXPECT_EQ(mManager->SubclassWindow(&mWindow), NS_OK);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "RegisterDeviceNotification failed: 1066\n");
  mMachine.mWindowEvents->Plug("usb#1-1");
  mMachine.mVolumes->Insert('E');
  RunUntil(1);
  EXPECT_EQ(Count(nsISystemAdapterStorage::kIID), 1u);
}

// A listener that waits by running the main thread's events, and one that ends everything.
TEST_F(DeviceEventsTest, ListenerEntersTheSourceAgain) {
  Start();
  nsCOMPtr<nsIThread> main;
  ASSERT_EQ(NS_GetMainThread(main.getter_AddRefs()), NS_OK);
  mListener->mThen = [&] {
    bool ran = true;
    while (ran) ASSERT_EQ(main->ProcessNextEvent(false, &ran), NS_OK);
  };
  for (char letter = 'D'; letter <= 'Z'; ++letter) mMachine.mVolumes->Insert(letter);
  RunUntil(23);
  EXPECT_EQ(Count(nsISystemAdapterStorage::kIID), 23u);
  mListener->mThen = [&] { (void)mManager->Observe(nullptr, "xpcom-shutdown", nullptr); };
  mMachine.mVolumes->Remove('D');
  mMachine.mVolumes->Remove('E');
  RunUntil(24);
  EXPECT_EQ(Count(nsISystemAdapterStorage::kIID), 0u);
}

TEST_F(DeviceEventsTest, FailingCallIsTheLastOneThatCounts) {
  StartHost();
  NS_SweepFaults([&](nsSimulatedMachine& aMachine, bool aFaulty) {
    mManager = NewManager(aMachine);
    nsSimulatedDisplay screen;
    screen.mName = "HDMI-1";
    aMachine.mDisplays->Put(screen);
    aMachine.mVolumes->Insert('E');
    const nsDeviceBroadcast display{nsDeviceBroadcast::kDeviceInterface, 0, "DISPLAY"};
    (void)Send(Message::kDeviceChange, Message::kDeviceArrival, &display);
    (void)SendVolume(Message::kDeviceArrival, 1u << 4);
    if (!aFaulty) {
      EXPECT_EQ(Count(nsISystemAdapterDisplayOutput::kIID), 1u);
      EXPECT_EQ(Count(nsISystemAdapterStorage::kIID), 1u);
    }
    // Whatever has been missed comes with the next event.
    size_t failed;
    do {
      failed = aMachine.mCalls->FailedCalls().size();
      (void)Send(Message::kDeviceChange, Message::kDeviceArrival, &display);
    } while (failed != aMachine.mCalls->FailedCalls().size());
    EXPECT_EQ(Count(nsISystemAdapterDisplayOutput::kIID), 1u);
    EXPECT_LE(Count(nsISystemAdapterStorage::kIID), 1u);
    (void)mManager->Observe(nullptr, "xpcom-shutdown", nullptr);
    mManager = nullptr;
  });
}

}  // namespace

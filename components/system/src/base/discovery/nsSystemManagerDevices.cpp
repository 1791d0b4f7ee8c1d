// Device events: what the window of the application hears of volumes, displays and devices.
#include <algorithm>
#include <bit>
#include <cstdio>

#include "nsDebug.h"
#include "nsIThread.h"
#include "nsPlatformWindowEvents.h"
#include "nsSystemAdapterStorage.h"
#include "nsSystemManager.h"
#include "nsVorelMethodCaller.h"

namespace {

// The window procedure is a plain function. The last manager that was made stays here even when it
// is gone: its sources of events are over by then, so that no message comes any more.
nsSystemManager* gManager = nullptr;

intptr_t WindowProcedure(const nsWindowMessage& aMessage) { return gManager->WndProc(aMessage); }

// With several bits set only the lowest counts; without one it is the character after 'Z', which no
// drive has.
char LetterOf(uint32_t aUnitMask) {
  return static_cast<char>('A' + std::min(std::countr_zero(aUnitMask), 26));
}

bool IsOfDisplays(const nsDeviceBroadcast& aBroadcast) {
  return aBroadcast.mName.find("DISPLAY") != std::string::npos;
}

}  // namespace

void nsSystemManager::RecordForWindow() { gManager = this; }

nsresult nsSystemManager::SubclassWindow(nsWindowHandle aWindow) {
  nsPlatformWindowEvents& events = *mPlatform->mWindowEvents;
  mWnd = aWindow;
  (void)events.ReadProcedure(aWindow, &mOldWndProc);
  (void)events.ReplaceProcedure(aWindow, WindowProcedure);
  nsDeviceInterfaceFilter filter;
  filter.mSize = sizeof filter;
  filter.mDeviceType = nsDeviceBroadcast::kDeviceInterface;
  if (const uint32_t error =
          events.ListenForDevices(aWindow, filter, nsPlatformWindowEvents::kAllInterfaceClasses))
    std::printf("RegisterDeviceNotification failed: %d\n", static_cast<int>(error));

  nsCOMPtr<nsIThread> mainThread;
  (void)NS_GetMainThread(mainThread.getter_AddRefs());
  for (const auto& source : events.NewEvents()) {
    std::unique_ptr<nsEventPump> pump;
    if (NS_SUCCEEDED(nsEventPump::Start("DeviceEvents", source, mainThread.get(), {}, &pump)))
      mEventPumps.push_back(std::move(pump));
    else
      SYSTEM_LOG_WARNING(mLogger, "No thread for the events of devices: they are not heard of");
  }
  return NS_OK;
}

intptr_t nsSystemManager::WndProc(const nsWindowMessage& aMessage) {
  using Message = nsWindowMessage;
  if (!mPlatform->mWindowEvents->IsWindow(aMessage.mWindow)) return 0;
  if (aMessage.mMessage == Message::kDisplayChange) {
    SYSTEM_LOG_DEBUG(mLogger, "WM_DISPLAYCHANGE");
    // Looks when this message has been answered.
    const auto caller =
        NS_NewRunnableMethodCaller<vorel::threads::eStrong>(this, &nsSystemManager::InitDisplay);
    return static_cast<intptr_t>(NS_DispatchToMainThread(caller.get(), NS_DISPATCH_NORMAL));
  }
  if (aMessage.mMessage == Message::kDeviceChange && aMessage.mBroadcast) {
    if (aMessage.mWParam == Message::kDeviceArrival) OnDeviceArrival(*aMessage.mBroadcast);
    if (aMessage.mWParam == Message::kDeviceRemoveComplete) OnDeviceRemoval(*aMessage.mBroadcast);
  }
  return mPlatform->mWindowEvents->CallProcedure(mOldWndProc, aMessage);
}

void nsSystemManager::OnDeviceArrival(const nsDeviceBroadcast& aBroadcast) {
  SYSTEM_LOG_DEBUG(mLogger, "DBT_DEVICEARRIVAL");
  if (aBroadcast.mDeviceType == nsDeviceBroadcast::kVolume) {
    const char letter = LetterOf(aBroadcast.mUnitMask);
    SYSTEM_LOG_DEBUG(mLogger, std::string("Device '") + letter + ":' has been inserted.");
    (void)AddAdapterForDriveLetter(letter);
  } else if (aBroadcast.mDeviceType == nsDeviceBroadcast::kDeviceInterface) {
    SYSTEM_LOG_DEBUG(mLogger, "Device '" + aBroadcast.mName + ":' has been inserted.");
    if (IsOfDisplays(aBroadcast)) (void)InitDisplay();
  }
}

void nsSystemManager::OnDeviceRemoval(const nsDeviceBroadcast& aBroadcast) {
  SYSTEM_LOG_DEBUG(mLogger, "DBT_DEVICEREMOVECOMPLETE");
  if (aBroadcast.mDeviceType == nsDeviceBroadcast::kVolume) {
    const char letter = LetterOf(aBroadcast.mUnitMask);
    SYSTEM_LOG_DEBUG(mLogger, std::string("Device '") + letter + ":' has been removed.");
    nsCOMPtr<nsISystemAdapterStorage> adapter;
    (void)GetAdapterForDriveLetter(letter, adapter.getter_AddRefs());
    if (adapter) (void)RemoveAdapter(adapter.get());
  } else if (aBroadcast.mDeviceType == nsDeviceBroadcast::kDeviceInterface) {
    SYSTEM_LOG_DEBUG(mLogger, "Device '" + aBroadcast.mName + ":' has been removed.");
    if (IsOfDisplays(aBroadcast)) (void)InitDisplay();
  }
}

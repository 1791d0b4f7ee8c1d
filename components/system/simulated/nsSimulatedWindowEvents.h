// Windows of a simulated machine, and the messages that they get.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <set>

#include "nsLock.h"
#include "nsMachineValue.h"
#include "nsPlatformWindowEvents.h"
#include "nsSimulatedCalls.h"

/// Any handle but null is a window, until it is destroyed. A message comes to each window whose
/// procedure has been replaced by then; those of device interfaces only to windows that listen for
/// devices.
class nsSimulatedWindowEvents final : public nsPlatformWindowEvents,
                                      public nsSimulatedPort,
                                      public std::enable_shared_from_this<nsSimulatedWindowEvents> {
 public:
  explicit nsSimulatedWindowEvents(nsSimulatedCallsRef aCalls);

  // The system's side, from any thread.

  /// Sends a message; it arrives when the source is consumed. aBroadcast is null for none.
  void Send(uint32_t aMessage, uintptr_t aWParam, const nsDeviceBroadcast* aBroadcast);
  void VolumeArrived(char aLetter);
  void VolumeRemoved(char aLetter);
  void DisplayChanged();
  /// A device's interface, by its name.
  void Plug(const std::string& aName);
  void Unplug(const std::string& aName);
  void DestroyWindow(nsWindowHandle aWindow);
  /// What ListenForDevices answers; 0 for success.
  void SetListenError(uint32_t aError);

  /// An array of names of devices that are plugged in.
  void ReadFacts(const nsMachineValue& aValue);
  /// An object of "remove" and "insert", arrays of such names.
  std::function<void()> ReadChange(const nsMachineValue& aValue);

  bool IsWindow(nsWindowHandle aWindow) override;
  nsresult ReadProcedure(nsWindowHandle aWindow, FormerProcedure* aProcedure) override;
  nsresult ReplaceProcedure(nsWindowHandle aWindow, Procedure aProcedure) override;
  uint32_t ListenForDevices(nsWindowHandle aWindow, const nsDeviceInterfaceFilter& aFilter,
                            uint32_t aFlags) override;
  intptr_t CallProcedure(FormerProcedure aProcedure, const nsWindowMessage& aMessage) override;
  std::vector<std::shared_ptr<nsEventSource>> NewEvents() override;

  /// What a former procedure is, and what it answers.
  static constexpr FormerProcedure kFormerProcedure = 0x5EED;
  static constexpr intptr_t kFormerAnswer = 77;

 private:
  class Source;
  struct Message {
    nsWindowHandle mWindow;
    Procedure mProcedure;
    uint32_t mMessage;
    uintptr_t mWParam;
    bool mHasBroadcast;
    nsDeviceBroadcast mBroadcast;
  };

  bool Deliver();

  std::map<nsWindowHandle, Procedure> mProcedures NS_GUARDED_BY(mLock);
  std::set<nsWindowHandle> mListening NS_GUARDED_BY(mLock);
  std::set<nsWindowHandle> mDestroyed NS_GUARDED_BY(mLock);
  uint32_t mListenError NS_GUARDED_BY(mLock) = 0;
  std::deque<Message> mMessages NS_GUARDED_BY(mLock);
  bool mIsWoken NS_GUARDED_BY(mLock) = false;
  nsCondition mChanged;
};

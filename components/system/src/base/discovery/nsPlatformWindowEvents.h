// The port of windows and of what the system broadcasts to them: displays that change, volumes and
// devices that come and go.
//
// The shape is that of a window whose procedure is replaced. Where a system sends no such messages
// to windows, its backend makes them of what the system tells instead.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "nsError.h"
#include "nsEventSource.h"

/// What comes with a message of a device: the records of volumes and of device interfaces in one.
struct nsDeviceBroadcast {
  /// Values of mDeviceType.
  static constexpr uint32_t kVolume = 2, kDeviceInterface = 5;

  uint32_t mDeviceType = 0;
  uint32_t mUnitMask = 0;  ///< Of a volume: bit 0 for A, to bit 25 for Z.
  std::string mName;       ///< Of a device interface; those of displays have "DISPLAY" in it.
};

/// Which device interfaces are wanted. All but size and type is zero for whoever wants all.
struct nsDeviceInterfaceFilter {
  uint32_t mSize = 0;
  uint32_t mDeviceType = 0;
  uint32_t mReserved = 0;
  std::array<uint8_t, 16> mClassGuid{};
  std::array<char, 4> mName{};
};
static_assert(sizeof(nsDeviceInterfaceFilter) == 32);

using nsWindowHandle = void*;

struct nsWindowMessage {
  static constexpr uint32_t kDisplayChange = 126, kDeviceChange = 537;
  /// Values of mWParam of kDeviceChange.
  static constexpr uintptr_t kDeviceArrival = 0x8000, kDeviceRemoveComplete = 0x8004;

  nsWindowHandle mWindow = nullptr;
  uint32_t mMessage = 0;
  uintptr_t mWParam = 0;
  /// What lParam points to in a message of a device; null in all others.
  const nsDeviceBroadcast* mBroadcast = nullptr;
  /// The platform's own parameter, for CallProcedure only.
  intptr_t mLParam = 0;
};

/// Main thread, but for what the sources of events say. Beside the errors named, a method may fail
/// with NS_ERROR_FAILURE when the system does not answer.
class nsPlatformWindowEvents {
 public:
  using Procedure = intptr_t (*)(const nsWindowMessage& aMessage);
  /// A procedure of the platform's own kind, good for CallProcedure only.
  using FormerProcedure = uintptr_t;

  /// Wants the messages of all interface classes, whatever the filter says.
  static constexpr uint32_t kAllInterfaceClasses = 4;

  virtual ~nsPlatformWindowEvents() = default;

  /// Whether that window is there, and not destroyed.
  /// Windows: IsWindow.
  virtual bool IsWindow(nsWindowHandle aWindow) = 0;
  /// The procedure that the window has.
  /// Windows: GetWindowLong of GWL_WNDPROC.
  virtual nsresult ReadProcedure(nsWindowHandle aWindow, FormerProcedure* aProcedure) = 0;
  /// From then on the window's messages arrive in aProcedure, on the main thread. A second call
  /// replaces the first one's.
  /// Windows: SetWindowLong of GWL_WNDPROC.
  virtual nsresult ReplaceProcedure(nsWindowHandle aWindow, Procedure aProcedure) = 0;
  /// Messages of device interfaces come to the window, too. Those of volumes and displays come
  /// without it. The answer is the platform's error number, 0 for success.
  /// Windows: RegisterDeviceNotification, GetLastError.
  virtual uint32_t ListenForDevices(nsWindowHandle aWindow, const nsDeviceInterfaceFilter& aFilter,
                                    uint32_t aFlags) = 0;
  /// Hands a message, which has arrived in a procedure of ours, on to the former one, and gives its
  /// answer.
  /// Windows: CallWindowProc.
  virtual intptr_t CallProcedure(FormerProcedure aProcedure, const nsWindowMessage& aMessage) = 0;

  /// Where the messages come from. Each source is to be consumed on the main thread by whoever has
  /// replaced a procedure: it calls the procedures of the windows. Another call gives other
  /// sources, which start from what the machine looks like then; events between the last reading of
  /// the drive mask and that moment are not lost.
  /// Windows: GetMessage.
  virtual std::vector<std::shared_ptr<nsEventSource>> NewEvents() = 0;
};

// Messages to windows, made of what the kernel, udev and the display server tell.
#pragma once

#include <map>

#include "nsPlatformDisplays.h"
#include "nsPlatformVolumes.h"
#include "nsPlatformWindowEvents.h"

/// There are no such messages here, and no procedures of windows: a window is any handle but null,
/// its former procedure does nothing, and messages come to those whose procedure has been replaced.
///
/// A change of the mount table, or of a disk, is a look at all volumes: what differs from the look
/// before is told, letter by letter, those that have gone first. So nothing is missed, however fast
/// changes come, and what came and went between two looks is not told. udev tells of devices; those
/// of the graphics are told as ones of displays.
class nsLinuxWindowEvents final : public nsPlatformWindowEvents,
                                  public std::enable_shared_from_this<nsLinuxWindowEvents> {
 public:
  nsLinuxWindowEvents(std::shared_ptr<nsPlatformVolumes> aVolumes,
                      std::shared_ptr<nsPlatformDisplays> aDisplays)
      : mVolumes(std::move(aVolumes)), mDisplays(std::move(aDisplays)) {}

  bool IsWindow(nsWindowHandle aWindow) override { return aWindow != nullptr; }
  nsresult ReadProcedure(nsWindowHandle aWindow, FormerProcedure* aProcedure) override;
  nsresult ReplaceProcedure(nsWindowHandle aWindow, Procedure aProcedure) override;
  uint32_t ListenForDevices(nsWindowHandle aWindow, const nsDeviceInterfaceFilter& aFilter,
                            uint32_t aFlags) override;
  intptr_t CallProcedure(FormerProcedure aProcedure, const nsWindowMessage& aMessage) override;
  std::vector<std::shared_ptr<nsEventSource>> NewEvents() override;

 private:
  class DeviceEvents;
  class DisplayEvents;

  struct Window {
    Procedure mProcedure = nullptr;
    bool mListens = false;  // for device interfaces
  };

  void Deliver(uint32_t aMessage, uintptr_t aWParam, const nsDeviceBroadcast* aBroadcast);

  const std::shared_ptr<nsPlatformVolumes> mVolumes;
  const std::shared_ptr<nsPlatformDisplays> mDisplays;
  std::map<nsWindowHandle, Window> mWindows;
};

#include "nsLinuxWindowEvents.h"

#include <fcntl.h>
#include <libudev.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>

#include "nsAscii.h"
#include "nsLogger.h"
#include "nsPollSource.h"

namespace {

using Message = nsWindowMessage;

constexpr int kReceiveBuffer = 1 << 20;  // what a hub full of devices says at once fits
constexpr int kDevicesAtOnce = 256;      // then others of the thread have their turn

struct Unref {
  void operator()(udev* aUdev) const { udev_unref(aUdev); }
  void operator()(udev_monitor* aMonitor) const { udev_monitor_unref(aMonitor); }
  void operator()(udev_device* aDevice) const { udev_device_unref(aDevice); }
};
template <class T>
using Ref = std::unique_ptr<T, Unref>;

std::string_view View(const char* aText) { return aText ? aText : ""; }

// Of displays, and of nothing else, with the word by which these are known.
std::string InterfaceName(udev_device* aDevice, bool aIsDisplay) {
  std::string name(View(udev_device_get_subsystem(aDevice)));
  (name += '#') += View(udev_device_get_sysname(aDevice));
  return "\\\\?\\" + std::string(aIsDisplay ? "DISPLAY#" : "") + NS_ToLowerAscii(name);
}

}  // namespace

/// Volumes and devices.
class nsLinuxWindowEvents::DeviceEvents final : public nsPollSource {
 public:
  explicit DeviceEvents(std::shared_ptr<nsLinuxWindowEvents> aEvents)
      : mEvents(std::move(aEvents)),
        mMountTable(open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC)),
        mSeen(Look()) {
    OpenMonitor();
  }
  ~DeviceEvents() override {
    if (mMountTable >= 0) close(mMountTable);
  }

  void Wait() override {
    // The table says once that it has changed.
    while (!mVolumesChanged) {
      const int devices = mMonitor ? udev_monitor_get_fd(mMonitor.get()) : -1;
      std::vector<pollfd> waiting{{mMountTable, POLLPRI, 0}, {devices, POLLIN, 0}};
      if (Poll(waiting, -1) == Polled::eWoken) return;
      if (waiting[0].revents) mVolumesChanged = true;
      if (waiting[1].revents) return;
    }
  }

  bool Consume() override {
    bool any = ConsumeDevices();
    if (std::exchange(mVolumesChanged, false)) any = TellVolumes() || any;
    return any;
  }

 private:
  struct Letter {
    bool mHasVolume = false;
    nsPlatformVolumes::VolumeHandle mVolume = 0;
    bool operator==(const Letter&) const = default;
  };
  static constexpr size_t kLetters = 26;
  using Letters = std::array<Letter, kLetters>;

  // As of the last reading of the drive mask. Whoever read it before us knows of these volumes, and
  // only of these.
  Letters Look() const {
    Letters letters;
    for (size_t i = 0; i < kLetters; ++i) {
      const char letter = static_cast<char>('A' + i);
      uint32_t kind = nsPlatformVolumes::kDriveNoRootDirectory;
      (void)mEvents->mVolumes->ReadDriveKind(letter, &kind);
      letters[i].mHasVolume = kind != nsPlatformVolumes::kDriveNoRootDirectory;
      if (letters[i].mHasVolume) (void)mEvents->mVolumes->OpenVolume(letter, &letters[i].mVolume);
    }
    return letters;
  }

  void TellVolume(uintptr_t aWParam, size_t aLetter) const {
    const nsDeviceBroadcast broadcast{nsDeviceBroadcast::kVolume, 1u << aLetter, {}};
    mEvents->Deliver(Message::kDeviceChange, aWParam, &broadcast);
  }

  bool TellVolumes() {
    bool any = false;
    for (bool again = true; again;) {
      uint32_t mask;
      const nsresult rv = mEvents->mVolumes->ReadDriveMask(&mask);
      if (NS_FAILED(rv)) return any;  // there is a next event
      const Letters former = std::exchange(mSeen, Look());
      const Letters now = mSeen;  // listeners may end all this
      bool freed = false;
      for (size_t i = 0; i < kLetters; ++i)
        if (former[i].mHasVolume && now[i] != former[i]) {
          freed = any = true;
          TellVolume(Message::kDeviceRemoveComplete, i);
        }
      for (size_t i = 0; i < kLetters; ++i)
        if (now[i].mHasVolume && now[i] != former[i]) {
          any = true;
          TellVolume(Message::kDeviceArrival, i);
        }
      // A letter that has become free by this look is given at the next one.
      again = freed && rv == NS_SUCCESS_LOSS_OF_INSIGNIFICANT_DATA;
    }
    return any;
  }

  // Without udevd there are the kernel's own events.
  void OpenMonitor() {
    mUdev.reset(udev_new());
    const char* const group = access("/run/udev/control", F_OK) == 0 ? "udev" : "kernel";
    if (mUdev) mMonitor.reset(udev_monitor_new_from_netlink(mUdev.get(), group));
    if (mMonitor) {
      (void)udev_monitor_set_receive_buffer_size(mMonitor.get(), kReceiveBuffer);
      if (udev_monitor_enable_receiving(mMonitor.get()) < 0) mMonitor.reset();
    }
    if (!mMonitor)
      SYSTEM_LOG_DEBUG(NS_GetLogger("system.manager"), "There are no events of devices here");
  }

  bool ConsumeDevices() {
    bool any = false;
    for (int i = 0; mMonitor && i < kDevicesAtOnce; ++i) {
      errno = 0;
      const Ref<udev_device> device(udev_monitor_receive_device(mMonitor.get()));
      if (!device) {
        if (errno == EINTR) continue;
        if (errno == ENOBUFS) {
          // Some were lost: all is looked at.
          mVolumesChanged = any = true;
          mEvents->Deliver(Message::kDisplayChange, 0, nullptr);
          continue;
        }
        break;
      }
      any = true;
      TellDevice(device.get());
    }
    return any;
  }

  void TellDevice(udev_device* aDevice) {
    const std::string_view subsystem = View(udev_device_get_subsystem(aDevice));
    const std::string_view action = View(udev_device_get_action(aDevice));
    // What is pulled out stays in the mount table, and a medium changes without it.
    if (subsystem == "block") mVolumesChanged = true;
    const bool isDisplay = subsystem == "drm";
    const bool isVirtual =
        View(udev_device_get_syspath(aDevice)).starts_with("/sys/devices/virtual/");
    if (isVirtual && !isDisplay) return;
    // A display that is connected or taken away is a change of the card.
    const bool isHotplug = isDisplay && action == "change" &&
                           View(udev_device_get_property_value(aDevice, "HOTPLUG")) == "1";
    uintptr_t wParam;
    if (action == "add" || isHotplug)
      wParam = Message::kDeviceArrival;
    else if (action == "remove")
      wParam = Message::kDeviceRemoveComplete;
    else
      return;
    const nsDeviceBroadcast broadcast{nsDeviceBroadcast::kDeviceInterface, 0,
                                      InterfaceName(aDevice, isDisplay)};
    mEvents->Deliver(Message::kDeviceChange, wParam, &broadcast);
  }

  const std::shared_ptr<nsLinuxWindowEvents> mEvents;
  const int mMountTable;
  Letters mSeen;
  bool mVolumesChanged = true;  // since they were looked at the last time
  Ref<udev> mUdev;
  Ref<udev_monitor> mMonitor;
};

class nsLinuxWindowEvents::DisplayEvents final : public nsEventSource {
 public:
  DisplayEvents(std::shared_ptr<nsLinuxWindowEvents> aEvents,
                std::shared_ptr<nsEventSource> aDisplays)
      : mEvents(std::move(aEvents)), mDisplays(std::move(aDisplays)) {}
  void Wait() override { mDisplays->Wait(); }
  bool Consume() override {
    if (!mDisplays->Consume()) return false;
    mEvents->Deliver(Message::kDisplayChange, 0, nullptr);
    return true;
  }
  void Wake() override { mDisplays->Wake(); }

 private:
  const std::shared_ptr<nsLinuxWindowEvents> mEvents;
  const std::shared_ptr<nsEventSource> mDisplays;
};

nsresult nsLinuxWindowEvents::ReadProcedure(nsWindowHandle aWindow, FormerProcedure* aProcedure) {
  if (!aWindow) return NS_ERROR_INVALID_ARG;
  *aProcedure = 0;
  return NS_OK;
}

nsresult nsLinuxWindowEvents::ReplaceProcedure(nsWindowHandle aWindow, Procedure aProcedure) {
  if (!aWindow || !aProcedure) return NS_ERROR_INVALID_ARG;
  mWindows[aWindow].mProcedure = aProcedure;
  return NS_OK;
}

uint32_t nsLinuxWindowEvents::ListenForDevices(nsWindowHandle aWindow,
                                               const nsDeviceInterfaceFilter& aFilter,
                                               uint32_t aFlags) {
  const auto window = mWindows.find(aWindow);
  if (window == mWindows.end() || aFlags != kAllInterfaceClasses ||
      aFilter.mDeviceType != nsDeviceBroadcast::kDeviceInterface)
    return EINVAL;
  window->second.mListens = true;
  return 0;
}

intptr_t nsLinuxWindowEvents::CallProcedure(FormerProcedure, const nsWindowMessage&) { return 0; }

std::vector<std::shared_ptr<nsEventSource>> nsLinuxWindowEvents::NewEvents() {
  std::vector<std::shared_ptr<nsEventSource>> sources{
      std::make_shared<DeviceEvents>(shared_from_this())};
  if (auto displays = mDisplays->NewChanges())
    sources.push_back(std::make_shared<DisplayEvents>(shared_from_this(), std::move(displays)));
  return sources;
}

void nsLinuxWindowEvents::Deliver(uint32_t aMessage, uintptr_t aWParam,
                                  const nsDeviceBroadcast* aBroadcast) {
  const bool isInterface =
      aBroadcast && aBroadcast->mDeviceType == nsDeviceBroadcast::kDeviceInterface;
  const auto windows = mWindows;  // what is called may add some
  for (const auto& [handle, window] : windows)
    if (window.mProcedure && (!isInterface || window.mListens))
      (void)window.mProcedure({handle, aMessage, aWParam, aBroadcast, 0});
}

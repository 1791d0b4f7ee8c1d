// The port of displays: cards, the monitors on them, and their settings.
//
// The shape is that of the system whose records are told here. A card is an output of the machine's
// graphics, whether a monitor is connected to it or not.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "nsError.h"
#include "nsEventSource.h"

/// A card, or a monitor.
struct nsDisplayDevice {
  /// Bits of mStateFlags. Of a monitor, the first says that it is active.
  static constexpr uint32_t kAttachedToDesktop = 0x1, kPrimaryDevice = 0x4, kMirroringDriver = 0x8;

  std::string mDeviceName;    ///< Of a card, what all else is asked by: "\\.\DISPLAY1".
  std::string mDeviceString;  ///< For people. UTF-8.
  uint32_t mStateFlags = 0;
};

/// A mode, or settings. Which fields count when they are changed is said by mFields.
struct nsDisplaySettings {
  static constexpr uint16_t kSize = 156;
  /// Bits of mFields.
  static constexpr uint32_t kPosition = 0x20, kOrientation = 0x80, kBitsPerPel = 0x40000,
                            kPelsWidth = 0x80000, kPelsHeight = 0x100000, kFrequency = 0x400000,
                            kQueryOrientation = 0x1000000;
  /// Bit of mDisplayFlags.
  static constexpr uint32_t kInterlaced = 0x2;

  uint16_t mSize = kSize;
  uint32_t mFields = 0;
  int32_t mPositionX = 0;  ///< Pixels, as all sizes and places here.
  int32_t mPositionY = 0;
  /// 0 to 3: by how many quarters the picture is turned. As the answer to kQueryOrientation, the
  /// turns that can be made: bit 0 for a quarter, bit 1 for two; 0 for none, or not known.
  uint32_t mDisplayOrientation = 0;
  uint32_t mBitsPerPel = 0;
  uint32_t mPelsWidth = 0;  ///< Of the picture as it is turned.
  uint32_t mPelsHeight = 0;
  uint32_t mDisplayFlags = 0;
  uint32_t mDisplayFrequency = 0;  ///< Hz.
};

/// The record of a backend's mode, for a picture turned by aOrientation quarters.
template <class Mode>
nsDisplaySettings NS_DisplaySettingsOf(const Mode& aMode, uint32_t aOrientation,
                                       uint32_t aBitsPerPixel) {
  nsDisplaySettings settings;
  settings.mPelsWidth = aOrientation % 2 ? aMode.mHeight : aMode.mWidth;
  settings.mPelsHeight = aOrientation % 2 ? aMode.mWidth : aMode.mHeight;
  settings.mDisplayFrequency = aMode.mFrequency;
  settings.mDisplayFlags = aMode.mInterlaced ? nsDisplaySettings::kInterlaced : 0;
  settings.mDisplayOrientation = aOrientation;
  settings.mBitsPerPel = aBitsPerPixel;
  return settings;
}

/// What a monitor does of itself.
struct nsVideoParameters {
  static constexpr uint32_t kGet = 1, kSet = 2;                 ///< Values of mCommand.
  static constexpr uint32_t kBrightness = 64, kContrast = 128;  ///< Bits of mFlags.

  uint32_t mCommand = 0;
  uint32_t mFlags = 0;
  uint32_t mBrightness = 0;  ///< Percent.
  uint32_t mContrast = 0;
};

/// All methods may be called from any thread, at any time, and again as often as one likes. Without
/// a display server there are no cards. Errors not named are NS_ERROR_FAILURE: the system does not
/// answer, or refuses; a refusal has a line in the log that says why.
class nsPlatformDisplays {
 public:
  /// Values of aIndex of ReadSettings beside the numbers of modes: what is in force, and what is
  /// stored.
  static constexpr uint32_t kCurrentSettings = 0xFFFFFFFF, kRegistrySettings = 0xFFFFFFFE;

  /// Bits of aFlags of ChangeSettings.
  static constexpr uint32_t kUpdateRegistry = 0x1, kTest = 0x2, kGlobal = 0x8,
                            kVideoParameters = 0x20, kNoReset = 0x10000000, kReset = 0x40000000;

  virtual ~nsPlatformDisplays() = default;

  /// The cards, when aCard is empty, else the monitors of that card. The first card is looked for
  /// anew each time; all else answers from what that has found. NS_ERROR_NOT_AVAILABLE when there
  /// is none of that number.
  /// Windows: EnumDisplayDevices.
  virtual nsresult ReadDevice(const std::string& aCard, uint32_t aIndex, uint32_t aFlags,
                              nsDisplayDevice* aDevice) = 0;

  /// The modes of a card by number, and its settings. What has not been stored is what is in force.
  /// NS_ERROR_NOT_AVAILABLE when there is no such card or mode, or the card has no settings, as it
  /// is not in use.
  /// Windows: EnumDisplaySettings.
  virtual nsresult ReadSettings(const std::string& aCard, uint32_t aIndex,
                                nsDisplaySettings* aSettings) = 0;

  /// An empty aCard is the primary one; aSettings, aParameters may be null. What is asked is read
  /// into them.
  ///
  /// With kTest nothing is changed. With kNoReset a change is only stored, else it is made at once,
  /// and stored as well where kUpdateRegistry is given. When it can't be made, everything is as it
  /// was before, and nothing is stored. With kVideoParameters aParameters are read or set:
  /// NS_ERROR_NOT_AVAILABLE when the monitor does not answer to that.
  /// Windows: ChangeDisplaySettingsEx.
  virtual nsresult ChangeSettings(const std::string& aCard, nsDisplaySettings* aSettings,
                                  uint32_t aFlags, nsVideoParameters* aParameters) = 0;

  /// Waits until every monitor that is being asked for its parameters has answered, or has failed
  /// to, but no longer than that. Nothing else waits for monitors that take their time to answer:
  /// they tell nothing at first, and what they tell then is a change.
  /// Windows: none: ChangeDisplaySettingsEx waits itself.
  virtual nsresult AwaitParameters(uint32_t aMilliseconds) = 0;

  /// Sets what is stored, for an application that starts; the first one in a session of the display
  /// server, and nothing for all others. Systems that do so themselves do nothing here.
  /// NS_ERROR_NOT_AVAILABLE without a server.
  /// Windows: none: the system does so itself.
  virtual nsresult RestoreSettings() = 0;

  /// A source whose Consume is true when displays may have come, gone or changed; one change is
  /// told once, also where the system tells of it in pieces. Null where that comes as a message to
  /// windows.
  /// Windows: none: it comes as WM_DISPLAYCHANGE.
  virtual std::shared_ptr<nsEventSource> NewChanges() = 0;
};

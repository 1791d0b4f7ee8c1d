// What the contract suite of displays runs on.
#pragma once

#include "nsContract.h"
#include "nsPlatformDisplays.h"

/// A machine with the port under test: one display, with several modes and nothing stored.
class nsDisplaysMachine {
 public:
  virtual ~nsDisplaysMachine() = default;
  /// Why this machine can't be had here; empty when it can.
  virtual std::string Lacks() { return ""; }
  virtual nsPlatformDisplays& Port() = 0;
  /// A second display is connected, and shows something; it is not the primary one.
  virtual void PlugSecond() = 0;
};

class DisplaysContract : public nsContractTest<nsDisplaysMachine> {
 protected:
  using D = nsPlatformDisplays;
  using Settings = nsDisplaySettings;
  static constexpr uint32_t kStore = D::kNoReset | D::kGlobal | D::kUpdateRegistry;
  static constexpr uint32_t kApply = D::kReset | D::kGlobal | D::kUpdateRegistry;

  nsPlatformDisplays& Port() { return mMachine->Port(); }
  std::vector<nsDisplayDevice> Devices(const std::string& aCard) {
    std::vector<nsDisplayDevice> devices;
    nsDisplayDevice device;
    for (uint32_t i = 0; NS_SUCCEEDED(Port().ReadDevice(aCard, i, 1, &device)); ++i)
      devices.push_back(device);
    return devices;
  }
  std::string First() {
    const auto cards = Devices("");
    EXPECT_EQ(cards.size(), 1u);
    return cards.empty() ? "" : cards[0].mDeviceName;
  }
  std::vector<Settings> Modes(const std::string& aCard) {
    std::vector<Settings> modes;
    Settings mode;
    for (uint32_t i = 0; NS_SUCCEEDED(Port().ReadSettings(aCard, i, &mode)); ++i)
      modes.push_back(mode);
    return modes;
  }
  /// "1280x720@60 at 0,0".
  std::string Read(const std::string& aCard, uint32_t aWhich) {
    Settings now;
    EXPECT_EQ(Port().ReadSettings(aCard, aWhich, &now), NS_OK);
    return SizeOf(now) + " at " + std::to_string(now.mPositionX) + "," +
           std::to_string(now.mPositionY);
  }
  static std::string SizeOf(const Settings& aSettings) {
    return std::to_string(aSettings.mPelsWidth) + "x" + std::to_string(aSettings.mPelsHeight) +
           "@" + std::to_string(aSettings.mDisplayFrequency);
  }
  /// One of another size than that in force.
  Settings OtherMode(const std::string& aCard) {
    Settings now;
    EXPECT_EQ(Port().ReadSettings(aCard, D::kCurrentSettings, &now), NS_OK);
    for (Settings mode : Modes(aCard))
      if (mode.mPelsWidth != now.mPelsWidth && mode.mPelsWidth <= 1280) {
        mode.mFields = Settings::kPelsWidth | Settings::kPelsHeight | Settings::kFrequency;
        return mode;
      }
    ADD_FAILURE() << "the machine has one mode only";
    return now;
  }
};

// Displays of a simulated machine.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "nsMachineValue.h"
#include "nsPlatformDisplays.h"
#include "nsSimulatedWindowEvents.h"

/// The facts of one output and of the display that is connected to it.
struct nsSimulatedDisplay {
  struct Mode {
    uint32_t mWidth = 1920;  ///< Of the picture that is not turned.
    uint32_t mHeight = 1080;
    uint32_t mFrequency = 60;
    bool mInterlaced = false;
    friend bool operator==(const Mode&, const Mode&) = default;
  };
  /// What can be set. The stored ones are what the next session starts with.
  struct State {
    Mode mMode;
    uint32_t mOrientation = 0;  ///< In quarters.
    int32_t mX = 0;
    int32_t mY = 0;
    uint32_t mBitsPerPixel = 32;
    std::optional<uint32_t> mBrightness;  ///< Percent; nothing when the display does not tell.
    std::optional<uint32_t> mContrast;
  };

  std::string mName;     ///< "HDMI-1": the output's identity.
  std::string mMonitor;  ///< The display's name; empty when it does not tell.
  std::vector<Mode> mModes{Mode()};
  std::vector<uint32_t> mDepths{32};
  State mCurrent;
  std::optional<State> mStored;  ///< Nothing: what is in force.
  uint32_t mRotations = 3;       ///< Bit 0: by a quarter; bit 1: by two.
  bool mIsConnected = true;
  bool mIsActive = true;
  bool mIsPrimary = false;
  bool mIsMirror = false;
  uint32_t mMonitors = 1;    ///< How many are connected.
  bool mRefuses = false;     ///< Every change fails.
  bool mHasSettings = true;  ///< Whether they can be read.
};

/// Outputs by name. Each keeps its number, which is in its card's name, for as long as the machine
/// exists. Every change sends the message of displays that have changed.
class nsSimulatedDisplays final : public nsPlatformDisplays, public nsSimulatedPort {
 public:
  nsSimulatedDisplays(nsSimulatedCallsRef aCalls, std::shared_ptr<nsSimulatedWindowEvents> aEvents);

  /// The output of that name is this one from now on, in its old place or a new one at the end.
  void Put(nsSimulatedDisplay aDisplay);
  /// Changes one that is there; false when it is not.
  bool Alter(const std::string& aName, const std::function<void(nsSimulatedDisplay&)>& aChange);
  /// Takes the display away from its output.
  void Remove(const std::string& aName);
  /// The card's name: "\\.\DISPLAY1".
  std::string CardOf(const std::string& aName) const;

  /// An array of outputs, as docs/machine-file.md tells. Throws nsMachineFileError.
  void ReadFacts(const nsMachineValue& aValue);
  /// An object of "remove" and "set": what the function that is given back does.
  std::function<void()> ReadChange(const nsMachineValue& aValue);

  nsresult ReadDevice(const std::string& aCard, uint32_t aIndex, uint32_t aFlags,
                      nsDisplayDevice* aDevice) override;
  nsresult ReadSettings(const std::string& aCard, uint32_t aIndex,
                        nsDisplaySettings* aSettings) override;
  nsresult ChangeSettings(const std::string& aCard, nsDisplaySettings* aSettings, uint32_t aFlags,
                          nsVideoParameters* aParameters) override;
  /// They answer at once.
  nsresult AwaitParameters(uint32_t aMilliseconds) override;
  nsresult RestoreSettings() override;
  /// None: it comes as a message.
  std::shared_ptr<nsEventSource> NewChanges() override { return nullptr; }

 private:
  nsSimulatedDisplay* Find(const std::string& aName) NS_REQUIRES(mLock);
  nsSimulatedDisplay* FindCard(const std::string& aCard) NS_REQUIRES(mLock);

  const std::shared_ptr<nsSimulatedWindowEvents> mEvents;
  std::vector<nsSimulatedDisplay> mDisplays NS_GUARDED_BY(mLock);
  bool mIsRestored NS_GUARDED_BY(mLock) = false;
};

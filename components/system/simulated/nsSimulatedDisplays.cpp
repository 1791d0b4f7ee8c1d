#include "nsSimulatedDisplays.h"

#include <algorithm>
#include <cstdio>

namespace {

using Display = nsSimulatedDisplay;
using Settings = nsDisplaySettings;

std::string CardName(size_t aIndex) { return "\\\\.\\DISPLAY" + std::to_string(aIndex + 1); }

// The size may be stated as of the picture that is turned, or as of the one that is not.
const Display::Mode* FindMode(const Display& aDisplay, uint32_t aWidth, uint32_t aHeight,
                              std::optional<uint32_t> aFrequency) {
  for (const Display::Mode& mode : aDisplay.mModes) {
    const bool fits = (mode.mWidth == aWidth && mode.mHeight == aHeight) ||
                      (mode.mWidth == aHeight && mode.mHeight == aWidth);
    if (fits && (!aFrequency || mode.mFrequency == *aFrequency)) return &mode;
  }
  return nullptr;
}

/// False when the display can't.
bool Apply(const Display& aDisplay, const Settings& aSettings, Display::State* aState) {
  const uint32_t fields = aSettings.mFields;
  Display::State state = *aState;
  if (fields & Settings::kPosition) {
    state.mX = aSettings.mPositionX;
    state.mY = aSettings.mPositionY;
  }
  if (fields & Settings::kOrientation) state.mOrientation = aSettings.mDisplayOrientation;
  if (fields & Settings::kBitsPerPel) state.mBitsPerPixel = aSettings.mBitsPerPel;
  if (fields & (Settings::kPelsWidth | Settings::kPelsHeight | Settings::kFrequency)) {
    const Settings former = NS_DisplaySettingsOf(state.mMode, state.mOrientation, 0);
    const uint32_t width = fields & Settings::kPelsWidth ? aSettings.mPelsWidth : former.mPelsWidth;
    const uint32_t height =
        fields & Settings::kPelsHeight ? aSettings.mPelsHeight : former.mPelsHeight;
    const Display::Mode* mode = FindMode(
        aDisplay, width, height,
        fields & Settings::kFrequency ? aSettings.mDisplayFrequency : state.mMode.mFrequency);
    if (!mode && !(fields & Settings::kFrequency)) mode = FindMode(aDisplay, width, height, {});
    if (!mode) return false;
    state.mMode = *mode;
  }
  const bool canTurn =
      state.mOrientation == 0 ||
      (state.mOrientation == 2 ? aDisplay.mRotations & 2 : aDisplay.mRotations & 1);
  if (state.mOrientation > 3 || !canTurn ||
      std::ranges::find(aDisplay.mDepths, state.mBitsPerPixel) == aDisplay.mDepths.end())
    return false;
  *aState = state;
  return true;
}

bool Apply(const nsVideoParameters& aParameters, Display::State* aState) {
  if ((aParameters.mFlags & nsVideoParameters::kBrightness && !aState->mBrightness) ||
      (aParameters.mFlags & nsVideoParameters::kContrast && !aState->mContrast))
    return false;
  if (aParameters.mFlags & nsVideoParameters::kBrightness)
    aState->mBrightness = aParameters.mBrightness;
  if (aParameters.mFlags & nsVideoParameters::kContrast) aState->mContrast = aParameters.mContrast;
  return true;
}

std::string Describe(const std::string& aCard, uint32_t aFlags, const Settings* aSettings,
                     const nsVideoParameters* aParameters) {
  char flags[16];
  (void)std::snprintf(flags, sizeof flags, "%x", aFlags);
  std::string text = "ChangeSettings " + aCard + " flags=" + flags;
  const auto add = [&](const char* aName, auto aValue) {
    text += std::string(" ") + aName + "=" + std::to_string(aValue);
  };
  if (aSettings) {
    const uint32_t fields = aSettings->mFields;
    if (fields & Settings::kPosition) {
      add("x", aSettings->mPositionX);
      add("y", aSettings->mPositionY);
    }
    if (fields & Settings::kOrientation) add("orientation", aSettings->mDisplayOrientation);
    if (fields & Settings::kBitsPerPel) add("bits", aSettings->mBitsPerPel);
    if (fields & Settings::kPelsWidth) add("width", aSettings->mPelsWidth);
    if (fields & Settings::kPelsHeight) add("height", aSettings->mPelsHeight);
    if (fields & Settings::kFrequency) add("frequency", aSettings->mDisplayFrequency);
  }
  if (aParameters && aParameters->mFlags & nsVideoParameters::kBrightness)
    add("brightness", aParameters->mBrightness);
  if (aParameters && aParameters->mFlags & nsVideoParameters::kContrast)
    add("contrast", aParameters->mContrast);
  return text;
}

// ---- The machine file

Display::Mode ReadMode(const nsMachineValue& aValue) {
  const std::string& text = aValue.AsString();
  Display::Mode mode;
  int length = 0;
  if (std::sscanf(text.c_str(), "%5ux%5u@%4u%n", &mode.mWidth, &mode.mHeight, &mode.mFrequency,
                  &length) != 3 ||
      mode.mWidth == 0 || mode.mHeight == 0 || mode.mFrequency == 0)
    aValue.Fail("\"" + text + "\" is no mode such as \"1920x1080@60\"");
  const std::string_view rest = std::string_view(text).substr(static_cast<size_t>(length));
  if (!rest.empty() && rest != "i")
    aValue.Fail("\"" + text + "\" is no mode such as \"1920x1080@60\"");
  mode.mInterlaced = rest == "i";
  return mode;
}

uint32_t ReadRotation(const nsMachineValue& aValue) {
  const auto degrees = aValue.AsInteger<uint32_t>(0, 270);
  if (degrees % 90) aValue.Fail("a rotation is 0, 90, 180 or 270");
  return degrees / 90;
}

using Change = std::function<void(Display&)>;
struct Fields {
  std::string mName;
  std::vector<Change> mChanges;
  void ApplyTo(Display& aDisplay) const {
    for (const Change& change : mChanges) change(aDisplay);
  }
};

Fields ReadFields(nsMachineObject& aObject) {
  Fields fields;
  fields.mName = aObject.Required("name").AsString();
  const auto read = [&](const char* aKey, auto aRead) {
    if (const nsMachineValue* value = aObject.Optional(aKey))
      fields.mChanges.push_back(aRead(*value));
  };
  using Value = const nsMachineValue&;
  read("monitor", [](Value aV) -> Change {
    return [text = aV.AsString()](Display& aD) { aD.mMonitor = text; };
  });
  read("modes", [](Value aV) -> Change {
    std::vector<Display::Mode> modes;
    for (const nsMachineValue& mode : aV.AsArray()) modes.push_back(ReadMode(mode));
    return [modes](Display& aD) {
      aD.mModes = modes;
      if (!modes.empty()) aD.mCurrent.mMode = modes.front();
    };
  });
  read("mode", [](Value aV) -> Change {
    return [mode = ReadMode(aV)](Display& aD) { aD.mCurrent.mMode = mode; };
  });
  read("rotation", [](Value aV) -> Change {
    return [turns = ReadRotation(aV)](Display& aD) { aD.mCurrent.mOrientation = turns; };
  });
  read("rotations", [](Value aV) -> Change {
    uint32_t bits = 0;
    for (const nsMachineValue& rotation : aV.AsArray())
      bits |= ReadRotation(rotation) == 2 ? 2u : ReadRotation(rotation) ? 1u : 0u;
    return [bits](Display& aD) { aD.mRotations = bits; };
  });
  read("position", [](Value aV) -> Change {
    const auto& place = aV.AsArray();
    if (place.size() != 2) aV.Fail("a position has two numbers");
    return [x = place[0].AsInteger<int32_t>(), y = place[1].AsInteger<int32_t>()](Display& aD) {
      aD.mCurrent.mX = x;
      aD.mCurrent.mY = y;
    };
  });
  read("bitsPerPixel", [](Value aV) -> Change {
    std::vector<uint32_t> depths;
    for (const nsMachineValue& depth : aV.AsArray())
      depths.push_back(depth.AsInteger<uint32_t>(1, 128));
    if (depths.empty()) aV.Fail("a display has a depth");
    return [depths](Display& aD) {
      aD.mDepths = depths;
      aD.mCurrent.mBitsPerPixel = depths.front();
    };
  });
  read("brightness", [](Value aV) -> Change {
    return [v = aV.AsInteger<uint32_t>(0, 100)](Display& aD) { aD.mCurrent.mBrightness = v; };
  });
  read("contrast", [](Value aV) -> Change {
    return [v = aV.AsInteger<uint32_t>(0, 100)](Display& aD) { aD.mCurrent.mContrast = v; };
  });
  const auto readFlag = [&](const char* aKey, bool Display::*aFlag) {
    read(aKey, [aFlag](Value aV) -> Change {
      return [aFlag, v = aV.AsBoolean()](Display& aD) { aD.*aFlag = v; };
    });
  };
  readFlag("connected", &Display::mIsConnected);
  readFlag("active", &Display::mIsActive);
  readFlag("primary", &Display::mIsPrimary);
  readFlag("mirror", &Display::mIsMirror);
  readFlag("refuses", &Display::mRefuses);
  return fields;
}

std::vector<Fields> ReadDisplays(const nsMachineValue& aValue) {
  std::vector<Fields> displays;
  for (const nsMachineValue& element : aValue.AsArray())
    element.AsObject([&](nsMachineObject& aObject) {
      Fields fields = ReadFields(aObject);
      for (const Fields& other : displays)
        if (other.mName == fields.mName) element.FailRepeated("display", fields.mName);
      displays.push_back(std::move(fields));
    });
  return displays;
}

Display NewDisplay(const Fields& aFields) {
  Display display;
  display.mName = aFields.mName;
  aFields.ApplyTo(display);
  return display;
}

}  // namespace

nsSimulatedDisplays::nsSimulatedDisplays(nsSimulatedCallsRef aCalls,
                                         std::shared_ptr<nsSimulatedWindowEvents> aEvents)
    : nsSimulatedPort(std::move(aCalls), "Displays"), mEvents(std::move(aEvents)) {}

void nsSimulatedDisplays::ReadFacts(const nsMachineValue& aValue) {
  for (const Fields& fields : ReadDisplays(aValue)) Put(NewDisplay(fields));
}

std::function<void()> nsSimulatedDisplays::ReadChange(const nsMachineValue& aValue) {
  std::vector<std::string> gone;
  std::vector<Fields> set;
  aValue.AsObject([&](nsMachineObject& aObject) {
    if (const nsMachineValue* names = aObject.Optional("remove"))
      for (const nsMachineValue& name : names->AsArray()) gone.push_back(name.AsString());
    if (const nsMachineValue* displays = aObject.Optional("set")) set = ReadDisplays(*displays);
  });
  return [this, gone, set] {
    for (const std::string& name : gone) Remove(name);
    for (const Fields& fields : set)
      if (!Alter(fields.mName, [&](Display& aDisplay) {
            aDisplay.mIsConnected = true;
            fields.ApplyTo(aDisplay);
          }))
        Put(NewDisplay(fields));
  };
}

// ---- Facts

nsSimulatedDisplay* nsSimulatedDisplays::Find(const std::string& aName) {
  const auto found = std::ranges::find(mDisplays, aName, &Display::mName);
  return found == mDisplays.end() ? nullptr : &*found;
}

nsSimulatedDisplay* nsSimulatedDisplays::FindCard(const std::string& aCard) {
  for (size_t i = 0; i < mDisplays.size(); ++i) {
    Display& display = mDisplays[i];
    if (display.mIsConnected && (aCard.empty() ? display.mIsPrimary : CardName(i) == aCard))
      return &display;
  }
  return nullptr;
}

void nsSimulatedDisplays::Put(nsSimulatedDisplay aDisplay) {
  {
    const nsAutoLock lock(mLock);
    if (Display* known = Find(aDisplay.mName))
      *known = std::move(aDisplay);
    else
      mDisplays.push_back(std::move(aDisplay));
  }
  mEvents->DisplayChanged();
}

bool nsSimulatedDisplays::Alter(const std::string& aName,
                                const std::function<void(nsSimulatedDisplay&)>& aChange) {
  {
    const nsAutoLock lock(mLock);
    Display* const display = Find(aName);
    if (!display) return false;
    aChange(*display);
  }
  mEvents->DisplayChanged();
  return true;
}

void nsSimulatedDisplays::Remove(const std::string& aName) {
  (void)Alter(aName, [](Display& aDisplay) { aDisplay.mIsConnected = false; });
}

std::string nsSimulatedDisplays::CardOf(const std::string& aName) const {
  const nsAutoLock lock(mLock);
  const auto found = std::ranges::find(mDisplays, aName, &Display::mName);
  return found == mDisplays.end() ? "" : CardName(static_cast<size_t>(found - mDisplays.begin()));
}

// ---- The port

nsresult nsSimulatedDisplays::ReadDevice(const std::string& aCard, uint32_t aIndex, uint32_t,
                                         nsDisplayDevice* aDevice) {
  if (nsresult rv = Enter("ReadDevice"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  if (!aCard.empty()) {
    const Display* const display = FindCard(aCard);
    if (!display || aIndex >= display->mMonitors) return NS_ERROR_NOT_AVAILABLE;
    *aDevice = {aCard + "\\Monitor" + std::to_string(aIndex),
                display->mMonitor.empty() ? "Generic monitor" : display->mMonitor,
                display->mIsActive ? nsDisplayDevice::kAttachedToDesktop : 0};
    return NS_OK;
  }
  for (size_t i = 0; i < mDisplays.size(); ++i) {
    const Display& display = mDisplays[i];
    if (!display.mIsConnected || aIndex-- > 0) continue;
    *aDevice = {
        CardName(i),
        display.mMonitor.empty() ? display.mName : display.mMonitor + " (" + display.mName + ")",
        (display.mIsActive ? nsDisplayDevice::kAttachedToDesktop : 0) |
            (display.mIsPrimary ? nsDisplayDevice::kPrimaryDevice : 0) |
            (display.mIsMirror ? nsDisplayDevice::kMirroringDriver : 0)};
    return NS_OK;
  }
  return NS_ERROR_NOT_AVAILABLE;
}

nsresult nsSimulatedDisplays::ReadSettings(const std::string& aCard, uint32_t aIndex,
                                           nsDisplaySettings* aSettings) {
  if (nsresult rv = Enter("ReadSettings"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  const Display* const display = FindCard(aCard);
  if (!display) return NS_ERROR_NOT_AVAILABLE;
  if (aIndex == kCurrentSettings || aIndex == kRegistrySettings) {
    if (!display->mHasSettings) return NS_ERROR_NOT_AVAILABLE;
    const Display::State& state =
        aIndex == kRegistrySettings && display->mStored ? *display->mStored : display->mCurrent;
    *aSettings = NS_DisplaySettingsOf(state.mMode, state.mOrientation, state.mBitsPerPixel);
    aSettings->mPositionX = state.mX;
    aSettings->mPositionY = state.mY;
    return NS_OK;
  }
  // Each mode in each depth; as the display stands, turned or not.
  const size_t depths = display->mDepths.size();
  if (aIndex >= display->mModes.size() * depths) return NS_ERROR_NOT_AVAILABLE;
  *aSettings =
      NS_DisplaySettingsOf(display->mModes[aIndex / depths], display->mCurrent.mOrientation,
                           display->mDepths[aIndex % depths]);
  aSettings->mDisplayOrientation = 0;
  return NS_OK;
}

nsresult nsSimulatedDisplays::ChangeSettings(const std::string& aCard, nsDisplaySettings* aSettings,
                                             uint32_t aFlags, nsVideoParameters* aParameters) {
  if (nsresult rv = Enter("ChangeSettings"); NS_FAILED(rv)) return rv;
  bool isChanged = false;
  {
    const nsAutoLock lock(mLock);
    Display* const display = FindCard(aCard);
    if (!display) return NS_ERROR_NOT_AVAILABLE;
    if (aSettings && aSettings->mFields & Settings::kQueryOrientation) {
      aSettings->mDisplayOrientation = display->mRotations;
      return NS_OK;
    }
    const bool stored = aFlags & kUpdateRegistry;
    if (aParameters && aParameters->mCommand == nsVideoParameters::kGet) {
      const Display::State& state =
          stored && display->mStored ? *display->mStored : display->mCurrent;
      if (!state.mBrightness && !state.mContrast) return NS_ERROR_NOT_AVAILABLE;
      aParameters->mBrightness = state.mBrightness.value_or(0);
      aParameters->mContrast = state.mContrast.value_or(0);
      return NS_OK;
    }
    Record(Describe(aCard, aFlags, aSettings, aParameters));
    if (display->mRefuses) return NS_ERROR_FAILURE;
    const auto apply = [&](Display::State& aState) {
      return (!aSettings || Apply(*display, *aSettings, &aState)) &&
             (!aParameters || Apply(*aParameters, &aState));
    };
    Display::State current = display->mCurrent, next = display->mStored.value_or(current);
    if (!apply(next) || !apply(current)) return NS_ERROR_FAILURE;
    if (aFlags & kTest) return NS_OK;
    if (stored) display->mStored = next;
    isChanged = !(aFlags & kNoReset);
    if (isChanged) display->mCurrent = current;
  }
  if (isChanged && aSettings) mEvents->DisplayChanged();
  return NS_OK;
}

nsresult nsSimulatedDisplays::AwaitParameters(uint32_t) { return Enter("AwaitParameters"); }

// The machine's session begins when it is made.
nsresult nsSimulatedDisplays::RestoreSettings() {
  if (nsresult rv = Enter("RestoreSettings"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  if (std::exchange(mIsRestored, true)) return NS_OK;
  Record("RestoreSettings");
  for (Display& display : mDisplays)
    if (display.mStored) display.mCurrent = *display.mStored;
  return NS_OK;
}

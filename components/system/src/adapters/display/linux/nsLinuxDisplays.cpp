#include "nsLinuxDisplays.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "nsLogger.h"
#include "nsRandrChanges.h"

namespace {

using Settings = nsDisplaySettings;

constexpr char kLogger[] = "system.adapter.displayoutput";
// Borne by the root window once the stored settings have been set in a session.
constexpr char kRestored[] = "_VOREL_DISPLAYS_RESTORED";

// For a change that a display is to make of itself.
constexpr std::chrono::milliseconds kDisplayPatience(1000);

// Quarters to the extension's bits, and back.
uint16_t RotationOf(uint32_t aOrientation) { return static_cast<uint16_t>(1u << aOrientation); }
uint32_t OrientationOf(uint16_t aRotation) {
  return static_cast<uint32_t>(std::countr_zero(static_cast<unsigned>(aRotation & 0xF) | 0x10u)) &
         3;
}

// Those of the extension may mirror, too, and that stays.
constexpr uint16_t kRotationBits = 0xF;

// Of a size, and of a frequency where one is asked for; else the one nearest to the former. Not
// interlaced rather than interlaced, which the records can't ask for.
const nsRandrMode* FindMode(const nsRandrOutput& aOutput, uint32_t aWidth, uint32_t aHeight,
                            std::optional<uint32_t> aFrequency, uint32_t aFormer) {
  const nsRandrMode* best = nullptr;
  const auto distance = [&](const nsRandrMode& aMode) {
    return std::abs(static_cast<int64_t>(aMode.mFrequency) - aFormer) * 2 + aMode.mInterlaced;
  };
  for (const nsRandrMode& mode : aOutput.mModes) {
    if (mode.mWidth != aWidth || mode.mHeight != aHeight ||
        (aFrequency && mode.mFrequency != *aFrequency))
      continue;
    if (!best || distance(mode) < distance(*best)) best = &mode;
  }
  return best;
}

int32_t PercentOf(const nsRandrOutput& aOutput) {
  const double range = static_cast<double>(aOutput.mBacklightMax) - aOutput.mBacklightMin;
  const double value = static_cast<double>(aOutput.mBacklightValue) - aOutput.mBacklightMin;
  return static_cast<int32_t>(std::lround(value * 100 / range));
}

int32_t BacklightOf(const nsRandrOutput& aOutput, uint32_t aPercent) {
  const double range = static_cast<double>(aOutput.mBacklightMax) - aOutput.mBacklightMin;
  return static_cast<int32_t>(
      std::lround(aOutput.mBacklightMin + range * std::min(aPercent, 100u) / 100));
}

}  // namespace

nsLinuxDisplays::nsLinuxDisplays(std::shared_ptr<nsPlatformRegistry> aRegistry,
                                 std::unique_ptr<nsDdcMonitors> aMonitors)
    : mStore(std::move(aRegistry)), mMonitors(std::move(aMonitors)) {}

std::shared_ptr<nsEventSource> nsLinuxDisplays::NewChanges() {
  const nsAutoLock lock(mLock);
  std::optional<nsRandrStamp> seen;
  if (mServer) seen = mPicture.mStamp;
  return std::make_shared<nsRandrChanges>(mMonitors->Listen(), seen);
}

// ---- Looking

bool nsLinuxDisplays::Connect() {
  if (mServer && mServer->Works()) return true;
  mServer = nsRandr::Open();
  if (!mServer && !std::exchange(mToldNoServer, true))
    SYSTEM_LOG_DEBUG(NS_GetLogger(kLogger), "There is no display server, hence no displays");
  return mServer != nullptr;
}

void nsLinuxDisplays::Look() {
  // One that is gone may be back already.
  for (int tries = 0; tries < 2 && Connect(); ++tries) {
    if (mServer->Read(&mPicture)) {
      mToldNoServer = false;
      LookAtMonitors();
      return;
    }
    mServer = nullptr;
  }
  mPicture = {};
  LookAtMonitors();
}

void nsLinuxDisplays::LookAtMonitors() {
  std::vector<nsDdcPlace> places;
  for (const nsRandrOutput* const output : Cards())
    if (output->mCrtc && !output->mBacklight && !output->mDescription.empty())
      places.push_back({output->mName, output->mConnectorId, output->mDescription});
  mMonitors->Follow(places);
}

std::string nsLinuxDisplays::CardName(const nsRandrOutput& aOutput) const {
  return "\\\\.\\DISPLAY" + std::to_string(&aOutput - mPicture.mOutputs.data() + 1);
}

std::vector<const nsRandrOutput*> nsLinuxDisplays::Cards() const {
  std::vector<const nsRandrOutput*> cards;
  for (const nsRandrOutput& output : mPicture.mOutputs)
    if (output.mIsConnected) cards.push_back(&output);
  return cards;
}

const nsRandrOutput* nsLinuxDisplays::FindCard(const std::string& aCard) const {
  const auto cards = Cards();
  const auto isPrimary = [](const nsRandrOutput* aOutput) {
    return aOutput->mIsPrimary && aOutput->mCrtc;
  };
  const auto isActive = [](const nsRandrOutput* aOutput) { return aOutput->mCrtc != 0; };
  auto found = cards.end();
  if (!aCard.empty()) {
    found = std::ranges::find_if(cards, [&](const nsRandrOutput* aOutput) NS_REQUIRES(mLock) {
      return CardName(*aOutput) == aCard;
    });
  } else {
    // Somebody has to be the first: where nobody has been chosen, it is the first that is on.
    found = std::ranges::find_if(cards, isPrimary);
    if (found == cards.end()) found = std::ranges::find_if(cards, isActive);
  }
  return found == cards.end() ? nullptr : *found;
}

std::optional<nsLinuxDisplays::Active> nsLinuxDisplays::FindActive(const std::string& aCard) const {
  const nsRandrOutput* const output = FindCard(aCard);
  const nsRandrCrtc* const crtc = output ? mPicture.FindCrtc(output->mCrtc) : nullptr;
  const nsRandrMode* const mode = crtc ? mPicture.ModeOf(*crtc) : nullptr;
  if (!mode) return std::nullopt;
  return Active{output, crtc, mode};
}

nsresult nsLinuxDisplays::ReadDevice(const std::string& aCard, uint32_t aIndex, uint32_t,
                                     nsDisplayDevice* aDevice) {
  const nsAutoLock lock(mLock);
  if (!aCard.empty()) {
    const nsRandrOutput* const output = FindCard(aCard);
    if (!output || aIndex != 0) return NS_ERROR_NOT_AVAILABLE;
    *aDevice = {aCard + "\\Monitor0",
                output->mEdid.mName.empty() ? output->mName : output->mEdid.mName,
                output->mCrtc ? nsDisplayDevice::kAttachedToDesktop : 0};
    return NS_OK;
  }
  if (aIndex == 0) Look();
  const auto cards = Cards();
  if (aIndex >= cards.size()) return NS_ERROR_NOT_AVAILABLE;
  const nsRandrOutput& output = *cards[aIndex];
  *aDevice = {
      CardName(output),
      output.mEdid.mName.empty() ? output.mName : output.mEdid.mName + " (" + output.mName + ")",
      (output.mCrtc ? nsDisplayDevice::kAttachedToDesktop : 0) |
          (&output == FindCard("") ? nsDisplayDevice::kPrimaryDevice : 0)};
  return NS_OK;
}

nsDisplaySettings nsLinuxDisplays::CurrentSettings(const Active& aActive) const {
  nsDisplaySettings settings = NS_DisplaySettingsOf(
      *aActive.mMode, OrientationOf(aActive.mCrtc->mRotation), mPicture.mBitsPerPixel);
  settings.mPositionX = aActive.mCrtc->mX;
  settings.mPositionY = aActive.mCrtc->mY;
  return settings;
}

nsStoredDisplay nsLinuxDisplays::ReadStored(const nsRandrOutput& aOutput) const {
  return mStore.Read(aOutput.mName, aOutput.mEdid.mIdentity);
}

nsresult nsLinuxDisplays::ReadSettings(const std::string& aCard, uint32_t aIndex,
                                       nsDisplaySettings* aSettings) {
  const nsAutoLock lock(mLock);
  const nsRandrOutput* const output = FindCard(aCard);
  if (!output) return NS_ERROR_NOT_AVAILABLE;
  if (aIndex != kCurrentSettings && aIndex != kRegistrySettings) {
    if (aIndex >= output->mModes.size()) return NS_ERROR_NOT_AVAILABLE;
    *aSettings = NS_DisplaySettingsOf(output->mModes[aIndex], 0, mPicture.mBitsPerPixel);
    return NS_OK;
  }
  const auto active = FindActive(aCard);
  if (!active) return NS_ERROR_NOT_AVAILABLE;
  Settings settings = CurrentSettings(*active);
  if (aIndex == kRegistrySettings) {
    const nsStoredDisplay stored = ReadStored(*output);
    const uint32_t orientation = stored.mOrientation.value_or(settings.mDisplayOrientation) & 3;
    nsRandrMode mode = *active->mMode;
    mode.mWidth = stored.mWidth.value_or(mode.mWidth);
    mode.mHeight = stored.mHeight.value_or(mode.mHeight);
    mode.mFrequency = stored.mFrequency.value_or(mode.mFrequency);
    const auto x = stored.mX.value_or(static_cast<uint32_t>(settings.mPositionX));
    const auto y = stored.mY.value_or(static_cast<uint32_t>(settings.mPositionY));
    settings = NS_DisplaySettingsOf(mode, orientation,
                                    stored.mBitsPerPixel.value_or(mPicture.mBitsPerPixel));
    settings.mPositionX = static_cast<int32_t>(x);
    settings.mPositionY = static_cast<int32_t>(y);
  }
  *aSettings = settings;
  return NS_OK;
}

// ---- Changing

nsresult nsLinuxDisplays::Refuse(const Active& aActive, const std::string& aReason) const {
  SYSTEM_LOG_WARNING(NS_GetLogger(kLogger),
                     "The settings of " + aActive.mOutput->mName + " stay as they are: " + aReason);
  return NS_ERROR_FAILURE;
}

bool nsLinuxDisplays::Plan(const Active& aActive, const Settings& aSettings, nsRandrCrtc* aCrtc,
                           std::string* aReason) const {
  const uint32_t fields = aSettings.mFields;
  if (fields & Settings::kBitsPerPel && aSettings.mBitsPerPel != mPicture.mBitsPerPixel) {
    *aReason = "a running display server does not change its depth";
    return false;
  }
  if (fields & Settings::kPosition) {
    aCrtc->mX = aSettings.mPositionX;
    aCrtc->mY = aSettings.mPositionY;
  }
  if (fields & Settings::kOrientation) {
    if (aSettings.mDisplayOrientation > 3 ||
        !(aCrtc->mRotations & RotationOf(aSettings.mDisplayOrientation))) {
      *aReason = "the output does not turn that way";
      return false;
    }
    aCrtc->mRotation = static_cast<uint16_t>((aCrtc->mRotation & ~kRotationBits) |
                                             RotationOf(aSettings.mDisplayOrientation));
  }
  if (fields & (Settings::kPelsWidth | Settings::kPelsHeight | Settings::kFrequency)) {
    const Settings former = CurrentSettings(aActive);
    uint32_t width = fields & Settings::kPelsWidth ? aSettings.mPelsWidth : former.mPelsWidth;
    uint32_t height = fields & Settings::kPelsHeight ? aSettings.mPelsHeight : former.mPelsHeight;
    if (OrientationOf(aCrtc->mRotation) % 2) std::swap(width, height);
    std::optional<uint32_t> frequency;
    if (fields & Settings::kFrequency) frequency = aSettings.mDisplayFrequency;
    // The size may be stated as of the picture that is turned, or as of the one that is not.
    const nsRandrMode* mode =
        FindMode(*aActive.mOutput, width, height, frequency, aActive.mMode->mFrequency);
    if (!mode)
      mode = FindMode(*aActive.mOutput, height, width, frequency, aActive.mMode->mFrequency);
    if (!mode) {
      *aReason = "it has no mode " + std::to_string(width) + "x" + std::to_string(height) +
                 (frequency ? " " + std::to_string(*frequency) + "Hz" : "");
      return false;
    }
    aCrtc->mMode = mode->mId;
  }
  return true;
}

nsresult nsLinuxDisplays::ChangeMode(const Active& aActive, const Settings& aSettings,
                                     uint32_t aFlags) {
  nsRandrCrtc crtc = *aActive.mCrtc;
  std::string reason;
  if (!Plan(aActive, aSettings, &crtc, &reason)) return Refuse(aActive, reason);
  if (aFlags & kTest) return NS_OK;

  const std::string name = aActive.mOutput->mName, identity = aActive.mOutput->mEdid.mIdentity;
  const nsRandrMode mode = *mPicture.ModeOf(crtc);
  if (!(aFlags & kNoReset)) {
    std::vector<nsRandrCrtc> wanted = mPicture.mCrtcs;
    *std::ranges::find(wanted, crtc.mId, &nsRandrCrtc::mId) = crtc;
    const bool done = mServer && mServer->Arrange(mPicture, std::move(wanted), &reason);
    if (!done) {
      const nsresult rv = Refuse(aActive, reason.empty() ? "there is no display server" : reason);
      Look();
      return rv;
    }
    Look();
  }
  if (aFlags & kUpdateRegistry) {
    nsStoredDisplay stored;
    const uint32_t fields = aSettings.mFields;
    if (fields & Settings::kPosition) {
      stored.mX = static_cast<uint32_t>(aSettings.mPositionX);
      stored.mY = static_cast<uint32_t>(aSettings.mPositionY);
    }
    if (fields & Settings::kOrientation) stored.mOrientation = aSettings.mDisplayOrientation;
    if (fields & Settings::kBitsPerPel) stored.mBitsPerPixel = aSettings.mBitsPerPel;
    if (fields & (Settings::kPelsWidth | Settings::kPelsHeight | Settings::kFrequency)) {
      stored.mWidth = mode.mWidth;
      stored.mHeight = mode.mHeight;
      stored.mFrequency = mode.mFrequency;
    }
    const nsresult rv = mStore.Write(name, identity, stored);
    if (NS_FAILED(rv)) {
      SYSTEM_LOG_WARNING(NS_GetLogger(kLogger), "The settings of " + name + " can't be stored");
      // On the screen it has been done.
      if (aFlags & kNoReset) return NS_ERROR_FAILURE;
    }
  }
  return NS_OK;
}

nsresult nsLinuxDisplays::ReadParameters(const Active& aActive, bool aStored,
                                         nsVideoParameters* aParameters) {
  const nsRandrOutput& output = *aActive.mOutput;
  nsStoredDisplay stored;
  if (aStored) stored = ReadStored(output);
  nsDdcMonitor::Values values;
  if (output.mBacklight)
    values.mBrightness = static_cast<uint32_t>(PercentOf(output));
  else if (const nsDdcMonitor* const monitor = mMonitors->Find(output.mName))
    values = monitor->Known();
  if (stored.mBrightness) values.mBrightness = stored.mBrightness;
  if (stored.mContrast) values.mContrast = stored.mContrast;
  if (values == nsDdcMonitor::Values()) return NS_ERROR_NOT_AVAILABLE;
  if (aParameters->mFlags & nsVideoParameters::kBrightness)
    aParameters->mBrightness = values.mBrightness.value_or(0);
  if (aParameters->mFlags & nsVideoParameters::kContrast)
    aParameters->mContrast = values.mContrast.value_or(0);
  return NS_OK;
}

bool nsLinuxDisplays::SetParameters(const nsRandrOutput& aOutput,
                                    const nsDdcMonitor::Values& aValues,
                                    std::chrono::milliseconds aLimit) {
  if (aOutput.mBacklight)
    return !aValues.mBrightness ||
           (mServer && mServer->SetBacklight(aOutput, BacklightOf(aOutput, *aValues.mBrightness)));
  nsDdcMonitor* const monitor = mMonitors->Find(aOutput.mName);
  return monitor && monitor->Set(aValues, aLimit);
}

nsresult nsLinuxDisplays::ChangeParameters(const Active& aActive,
                                           const nsVideoParameters& aParameters, uint32_t aFlags) {
  const nsRandrOutput output = *aActive.mOutput;
  nsStoredDisplay stored;
  if (aParameters.mFlags & nsVideoParameters::kBrightness)
    stored.mBrightness = std::min(aParameters.mBrightness, 100u);
  if (aParameters.mFlags & nsVideoParameters::kContrast)
    stored.mContrast = std::min(aParameters.mContrast, 100u);
  const nsDdcMonitor* const monitor = mMonitors->Find(output.mName);
  const bool hasWire = monitor && monitor->MayAnswer();
  if ((stored.mBrightness && !output.mBacklight && !hasWire) || (stored.mContrast && !hasWire)) {
    std::string reason = "a backlight has no contrast";
    if (!output.mBacklight)
      reason = monitor ? "it has no backlight, and its display is not asked over its own wire: " +
                             monitor->Reason()
                       : "it has no backlight, and its display does not say which one it is";
    (void)Refuse(aActive, reason);
    return NS_ERROR_NOT_AVAILABLE;
  }
  if (aFlags & kTest) return NS_OK;
  if (!(aFlags & kNoReset)) {
    if (!SetParameters(output, {stored.mBrightness, stored.mContrast}, kDisplayPatience))
      return Refuse(aActive, output.mBacklight ? "the display server refuses the brightness"
                                               : "the display does not take it");
    if (output.mBacklight) Look();
  }
  if (aFlags & kUpdateRegistry &&
      NS_FAILED(mStore.Write(output.mName, output.mEdid.mIdentity, stored))) {
    SYSTEM_LOG_WARNING(NS_GetLogger(kLogger),
                       "The settings of " + output.mName + " can't be stored");
    if (aFlags & kNoReset) return NS_ERROR_FAILURE;
  }
  return NS_OK;
}

nsresult nsLinuxDisplays::AwaitParameters(uint32_t aMilliseconds) {
  const nsAutoLock lock(mLock);
  mMonitors->Await(std::chrono::milliseconds(aMilliseconds));
  return NS_OK;
}

nsresult nsLinuxDisplays::ChangeSettings(const std::string& aCard, nsDisplaySettings* aSettings,
                                         uint32_t aFlags, nsVideoParameters* aParameters) {
  const nsAutoLock lock(mLock);
  const auto active = FindActive(aCard);
  if (!active) return NS_ERROR_NOT_AVAILABLE;
  if (aSettings && aSettings->mFields & Settings::kQueryOrientation) {
    const uint16_t rotations = active->mCrtc->mRotations;
    const uint16_t quarters = RotationOf(1) | RotationOf(3);
    aSettings->mDisplayOrientation =
        (rotations & quarters ? 1u : 0u) | (rotations & RotationOf(2) ? 2u : 0u);
    return NS_OK;
  }
  if (aParameters && aFlags & kVideoParameters)
    return aParameters->mCommand == nsVideoParameters::kGet
               ? ReadParameters(*active, aFlags & kUpdateRegistry, aParameters)
               : ChangeParameters(*active, *aParameters, aFlags);
  return aSettings ? ChangeMode(*active, *aSettings, aFlags) : NS_OK;
}

nsresult nsLinuxDisplays::RestoreSettings() {
  const nsAutoLock lock(mLock);
  Look();
  if (!mServer) return NS_ERROR_NOT_AVAILABLE;
  if (mServer->ReadRootNumber(kRestored)) return NS_OK;
  // Said first: a setting that brings the server down is not to be tried for ever.
  (void)mServer->WriteRootNumber(kRestored, 1);
  std::vector<nsRandrCrtc> wanted = mPicture.mCrtcs;
  for (const nsRandrOutput* const output : Cards()) {
    const auto active = FindActive(CardName(*output));
    if (!active) continue;
    const nsStoredDisplay stored = ReadStored(*output);
    Settings settings;
    if (stored.mX && stored.mY) {
      settings.mFields |= Settings::kPosition;
      settings.mPositionX = static_cast<int32_t>(*stored.mX);
      settings.mPositionY = static_cast<int32_t>(*stored.mY);
    }
    if (stored.mOrientation) {
      settings.mFields |= Settings::kOrientation;
      settings.mDisplayOrientation = *stored.mOrientation;
    }
    if (stored.mWidth && stored.mHeight && stored.mFrequency) {
      settings.mFields |= Settings::kPelsWidth | Settings::kPelsHeight | Settings::kFrequency;
      settings.mPelsWidth = *stored.mWidth;
      settings.mPelsHeight = *stored.mHeight;
      settings.mDisplayFrequency = *stored.mFrequency;
    }
    nsRandrCrtc crtc = *active->mCrtc;
    std::string reason;
    if (!Plan(*active, settings, &crtc, &reason)) {
      (void)Refuse(*active, reason);  // and the others get theirs
      continue;
    }
    *std::ranges::find(wanted, crtc.mId, &nsRandrCrtc::mId) = crtc;
    // Nobody waits for displays at the start.
    if (stored.mBrightness || stored.mContrast)
      (void)SetParameters(*output, {stored.mBrightness, stored.mContrast}, {});
  }
  std::string reason;
  const bool done = wanted == mPicture.mCrtcs || mServer->Arrange(mPicture, wanted, &reason);
  if (!done)
    SYSTEM_LOG_WARNING(NS_GetLogger(kLogger), "The stored settings can't be set: " + reason);
  Look();
  return done ? NS_OK : NS_ERROR_FAILURE;
}

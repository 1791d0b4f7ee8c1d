#include "nsSystemAdapterDisplayOutput.h"

#include <algorithm>
#include <new>

#include "nsDebug.h"
#include "nsSystemArray.h"
#include "nsXPCOM.h"

namespace {

using Displays = nsPlatformDisplays;
using Settings = nsDisplaySettings;

// How a view writes, and how a live adapter does.
constexpr uint32_t kStore = Displays::kNoReset | Displays::kGlobal | Displays::kUpdateRegistry;
constexpr uint32_t kApply = Displays::kReset | Displays::kGlobal | Displays::kUpdateRegistry;
static_assert(kStore == 0x10000009 && kApply == 0x40000009);

constexpr uint16_t kMaxPercent = 100;

nsCOMPtr<nsISystemDisplayMode> NewMode(uint32_t aWidth, uint32_t aHeight, uint32_t aFrequency,
                                       bool aInterlaced, std::string* aName) {
  const auto number = [](uint32_t aNumber) {
    return std::to_string(static_cast<int32_t>(aNumber));
  };
  *aName = number(aWidth) + "x" + number(aHeight) + " " + number(aFrequency) + "Hz";
  return nsCOMPtr<nsISystemDisplayMode>(new (std::nothrow) nsSystemDisplayMode(
      nsString(NS_ToUtf16(std::string_view(*aName))), aWidth, aHeight, aFrequency, aInterlaced));
}

bool IsInterlaced(const Settings& aSettings) {
  return aSettings.mDisplayFlags & Settings::kInterlaced;
}

// Null is equal to nothing, not even to null: what could not be read may be anything.
template <class T>
bool AreEqual(const nsCOMPtr<T>& aFormer, T* aNew) {
  bool equal = false;
  return aFormer && NS_SUCCEEDED(aFormer->Equals(aNew, &equal)) && equal;
}

std::string NativePath(const nsString& aSysPath) { return NS_ToUtf8(aSysPath); }

}  // namespace

nsSystemAdapterDisplayOutput::nsSystemAdapterDisplayOutput(nsPlatformRef aPlatform)
    : mPlatform(std::move(aPlatform)), mLogger(NS_GetLogger("system.adapter.displayoutput")) {}
nsSystemAdapterDisplayOutput::~nsSystemAdapterDisplayOutput() = default;

nsresult nsSystemAdapterDisplayOutput::Create(const nsPlatformRef& aPlatform,
                                              const nsDisplayDevice& aCard,
                                              const nsDisplayDevice& aMonitor,
                                              nsSystemAdapterDisplayOutput** aResult) {
  nsCOMPtr<nsSystemAdapterDisplayOutput> adapter(new (std::nothrow)
                                                     nsSystemAdapterDisplayOutput(aPlatform));
  NS_ENSURE_TRUE(adapter, NS_ERROR_OUT_OF_MEMORY);
  const nsresult rv = adapter->Init(aCard, aMonitor);
  NS_ENSURE_SUCCESS(rv, rv);
  adapter.forget(aResult);
  return NS_OK;
}

nsresult nsSystemAdapterDisplayOutput::Init(const nsDisplayDevice& aCard,
                                            const nsDisplayDevice& aMonitor) {
  SYSTEM_LOG_DEBUG(mLogger, "Display Output Adapter init");
  mMonitorDevice = aMonitor;
  mSysPath = nsString(NS_ToUtf16(std::string_view(aCard.mDeviceName)));
  mLabel = nsString(NS_ToUtf16(std::string_view(aCard.mDeviceString)));
  return InitOutput();
}

nsresult nsSystemAdapterDisplayOutput::Update(const nsDisplayDevice&,
                                              const nsDisplayDevice& aMonitor, bool* aModified) {
  const nsAutoLock lock(mLock);
  SYSTEM_LOG_DEBUG(mLogger, "Display Output Adapter update");
  mInitialized = false;
  mModes.clear();
  mRotations.clear();
  mBitsPerPixelList.clear();
  mPortTypes.clear();
  const auto formerMode = mCurrentMode;
  const auto formerPosition = mPosition;
  const uint32_t formerRotation = mRotation, formerBitsPerPixel = mBitsPerPixel;
  const uint16_t formerBrightness = mBrightness;

  mMonitorDevice = aMonitor;
  const nsresult rv = InitOutput();
  NS_ENSURE_SUCCESS(rv, rv);
  // The contrast is compared with 0 and not with what it was. Kept as it stands: listeners of
  // displays that tell none have been called at each run all along.
  const bool unchanged = AreEqual(formerMode, mCurrentMode.get()) && formerRotation == mRotation &&
                         formerBitsPerPixel == mBitsPerPixel && formerBrightness == mBrightness &&
                         mContrast != 0 && AreEqual(formerPosition, mPosition.get());
  *aModified = !unchanged;
  return NS_OK;
}

// ---- Reading

nsresult nsSystemAdapterDisplayOutput::InitOutput() {
  if (mInitialized) return NS_OK;
  mInitialized = true;
  const std::string sysPath = NativePath(mSysPath);
  ReadModes(sysPath);

  Settings settings;
  if (NS_FAILED(mPlatform->mDisplays->ReadSettings(
          sysPath, mIsRegistered ? Displays::kRegistrySettings : Displays::kCurrentSettings,
          &settings)))
    return NS_ERROR_FAILURE;
  mPosition = MakeRefCounted<nsSystemDisplayPosition>(settings.mPositionX, settings.mPositionY);
  mRotation = settings.mDisplayOrientation <= 3 ? settings.mDisplayOrientation * 90 : mRotation;
  mBitsPerPixel = settings.mBitsPerPel;
  // Stated as of a picture that is not turned.
  uint32_t width = settings.mPelsWidth, height = settings.mPelsHeight;
  if (IsTurned()) std::swap(width, height);
  std::string name;
  mCurrentMode = NewMode(width, height, settings.mDisplayFrequency, IsInterlaced(settings), &name);
  SYSTEM_LOG_DEBUG(mLogger, "Current mode is" + name);

  ReadRotations();
  ReadVideoParameters(sysPath);
  mPortTypes.push_back(0);
  mPortType = 0;
  return NS_OK;
}

void nsSystemAdapterDisplayOutput::ReadModes(const std::string& aSysPath) {
  Settings mode;
  for (uint32_t i = 0; NS_SUCCEEDED(mPlatform->mDisplays->ReadSettings(aSysPath, i, &mode)); ++i) {
    // Landscape, whatever the rotation.
    std::string name;
    mModes.push_back(NewMode(std::max(mode.mPelsWidth, mode.mPelsHeight),
                             std::min(mode.mPelsWidth, mode.mPelsHeight), mode.mDisplayFrequency,
                             IsInterlaced(mode), &name));
    SYSTEM_LOG_DEBUG(mLogger, "Add mode " + name);
    if (std::ranges::find(mBitsPerPixelList, mode.mBitsPerPel) == mBitsPerPixelList.end())
      mBitsPerPixelList.push_back(mode.mBitsPerPel);
  }
}

void nsSystemAdapterDisplayOutput::ReadRotations() {
  Settings query;
  query.mFields = Settings::kQueryOrientation;
  // Of no card in particular. Kept as it stands: it is the primary one's answer that counts.
  if (NS_FAILED(mPlatform->mDisplays->ChangeSettings("", &query, Displays::kTest, nullptr)) ||
      query.mDisplayOrientation == 0) {
    mRotations = {0, 90, 180, 270};
    SYSTEM_LOG_DEBUG(mLogger, "Can't get rotations list");
    return;
  }
  const bool quarter = query.mDisplayOrientation & 1, half = query.mDisplayOrientation & 2;
  if (quarter) mRotations.push_back(90);
  if (half) mRotations.push_back(180);
  if (quarter || half) mRotations.push_back(270);
}

void nsSystemAdapterDisplayOutput::ReadVideoParameters(const std::string& aSysPath) {
  nsVideoParameters parameters;
  parameters.mCommand = nsVideoParameters::kGet;
  parameters.mFlags = nsVideoParameters::kBrightness | nsVideoParameters::kContrast;
  const uint32_t flags = Displays::kTest | Displays::kVideoParameters |
                         (mIsRegistered ? Displays::kUpdateRegistry : 0);
  if (NS_FAILED(mPlatform->mDisplays->ChangeSettings(aSysPath, nullptr, flags, &parameters))) {
    SYSTEM_LOG_DEBUG(mLogger, "Can't get Brightness and Contrast");
    return;
  }
  mBrightness = static_cast<uint16_t>(parameters.mBrightness);
  mContrast = static_cast<uint16_t>(parameters.mContrast);
}

// ---- Writing

nsresult nsSystemAdapterDisplayOutput::Change(Settings* aSettings, uint32_t aFlags,
                                              nsVideoParameters* aParameters) {
  const nsresult rv = mPlatform->mDisplays->ChangeSettings(
      NativePath(mSysPath), aSettings, (mIsRegistered ? kStore : kApply) | aFlags, aParameters);
  if (NS_SUCCEEDED(rv)) return NS_OK;
  SYSTEM_LOG_ERROR(mLogger, "ChangeDisplaySettingsEx Failed ");
  return NS_ERROR_FAILURE;
}

nsresult nsSystemAdapterDisplayOutput::SetPosition(nsISystemDisplayPosition* aPosition) {
  const nsAutoLock lock(mLock);
  NS_ENSURE_TRUE(aPosition, NS_ERROR_INVALID_ARG);
  nsresult rv = InitOutput();
  NS_ENSURE_SUCCESS(rv, rv);
  if (AreEqual(mPosition, aPosition)) return NS_OK;
  Settings settings;
  settings.mFields = Settings::kPosition;
  rv = aPosition->GetX(&settings.mPositionX);
  NS_ENSURE_SUCCESS(rv, rv);
  rv = aPosition->GetY(&settings.mPositionY);
  NS_ENSURE_SUCCESS(rv, rv);
  rv = Change(&settings, 0, nullptr);
  if (NS_FAILED(rv)) return rv;
  mPosition = aPosition;
  return NS_OK;
}

nsresult nsSystemAdapterDisplayOutput::SetRotation(uint32_t aRotation) {
  const nsAutoLock lock(mLock);
  nsresult rv = InitOutput();
  NS_ENSURE_SUCCESS(rv, rv);
  SYSTEM_LOG_DEBUG(mLogger, "Begin");
  if (aRotation == mRotation) return NS_OK;
  NS_ENSURE_TRUE(mCurrentMode, NS_ERROR_FAILURE);
  Settings settings;
  settings.mFields = Settings::kOrientation | Settings::kPelsWidth | Settings::kPelsHeight;
  settings.mDisplayOrientation = aRotation == 90    ? 1
                                 : aRotation == 180 ? 2
                                 : aRotation == 270 ? 3
                                                    : 0;
  rv = mCurrentMode->GetWidth(&settings.mPelsWidth);
  NS_ENSURE_SUCCESS(rv, rv);
  rv = mCurrentMode->GetHeight(&settings.mPelsHeight);
  NS_ENSURE_SUCCESS(rv, rv);
  // Not at 270. Kept as it stands: the platforms take the size either way, and drivers have been
  // chosen by what they make of this.
  if (aRotation == 90) std::swap(settings.mPelsWidth, settings.mPelsHeight);
  rv = Change(&settings, 0, nullptr);
  SYSTEM_LOG_DEBUG(mLogger, "After ChangeDisplaySettingsEx");
  if (NS_FAILED(rv)) return rv;
  mRotation = aRotation;
  return NS_OK;
}

nsresult nsSystemAdapterDisplayOutput::SetBitsPerPixel(uint32_t aBitsPerPixel) {
  nsresult rv = InitOutput();
  NS_ENSURE_SUCCESS(rv, rv);
  if (aBitsPerPixel == mBitsPerPixel) return NS_OK;
  Settings settings;
  settings.mFields = Settings::kBitsPerPel;
  settings.mBitsPerPel = aBitsPerPixel;
  rv = Change(&settings, 0, nullptr);
  if (NS_FAILED(rv)) return rv;
  mBitsPerPixel = aBitsPerPixel;
  return NS_OK;
}

nsresult nsSystemAdapterDisplayOutput::SetPortType(uint32_t aPortType) {
  const nsresult rv = InitOutput();
  NS_ENSURE_SUCCESS(rv, rv);
  mPortType = aPortType;
  return NS_OK;
}

nsresult nsSystemAdapterDisplayOutput::SetBrightness(uint16_t aBrightness) {
  const nsresult rv = InitOutput();
  NS_ENSURE_SUCCESS(rv, rv);
  if (!IsPercent(aBrightness)) return NS_ERROR_FAILURE;
  if (aBrightness == mBrightness) return NS_OK;
  return ChangePercent(nsVideoParameters::kBrightness, aBrightness, &mBrightness);
}

nsresult nsSystemAdapterDisplayOutput::SetContrast(uint16_t aContrast) {
  const nsresult rv = InitOutput();
  NS_ENSURE_SUCCESS(rv, rv);
  // The other way round than above: what it is already is never out of range.
  if (aContrast == mContrast) return NS_OK;
  if (!IsPercent(aContrast)) return NS_ERROR_FAILURE;
  return ChangePercent(nsVideoParameters::kContrast, aContrast, &mContrast);
}

bool nsSystemAdapterDisplayOutput::IsPercent(uint16_t aValue) const {
  if (aValue <= kMaxPercent) return true;
  SYSTEM_LOG_ERROR(mLogger, "value out of range [0 ; 100] : " + std::to_string(aValue));
  return false;
}

nsresult nsSystemAdapterDisplayOutput::ChangePercent(uint32_t aFlag, uint16_t aValue,
                                                     uint16_t* aField) {
  nsVideoParameters parameters;
  parameters.mCommand = nsVideoParameters::kSet;
  parameters.mFlags = aFlag;
  (aFlag == nsVideoParameters::kBrightness ? parameters.mBrightness : parameters.mContrast) =
      aValue;
  const nsresult rv = Change(nullptr, Displays::kVideoParameters, &parameters);
  if (NS_FAILED(rv)) return rv;
  *aField = aValue;
  return NS_OK;
}

nsresult nsSystemAdapterDisplayOutput::SetDisplayMode(nsISystemDisplayMode* aDisplayMode) {
  nsresult rv = InitOutput();
  NS_ENSURE_SUCCESS(rv, rv);
  if (AreEqual(mCurrentMode, aDisplayMode)) return NS_OK;
  if (std::ranges::none_of(mModes,
                           [&](const auto& aMode) { return AreEqual(aMode, aDisplayMode); })) {
    SYSTEM_LOG_ERROR(mLogger, "New mode not allowed");
    return NS_ERROR_FAILURE;
  }
  Settings settings;
  settings.mFields = Settings::kPelsWidth | Settings::kPelsHeight | Settings::kFrequency;
  rv = aDisplayMode->GetWidth(&settings.mPelsWidth);
  NS_ENSURE_SUCCESS(rv, rv);
  rv = aDisplayMode->GetHeight(&settings.mPelsHeight);
  NS_ENSURE_SUCCESS(rv, rv);
  rv = aDisplayMode->GetFrequency(&settings.mDisplayFrequency);
  NS_ENSURE_SUCCESS(rv, rv);
  if (IsTurned()) std::swap(settings.mPelsWidth, settings.mPelsHeight);
  rv = Change(&settings, 0, nullptr);
  if (NS_FAILED(rv)) return rv;
  mCurrentMode = aDisplayMode;
  return NS_OK;
}

nsresult nsSystemAdapterDisplayOutput::SetPowerMode(uint32_t) { return NS_OK; }

// ---- Getters

nsresult nsSystemAdapterDisplayOutput::GetRegistered(nsISystemAdapterDisplayOutput** aRegistered) {
  const nsAutoLock lock(mLock);
  if (!mRegistered) {
    const nsCOMPtr<nsSystemAdapterDisplayOutput> view(new (std::nothrow)
                                                          nsSystemAdapterDisplayOutput(mPlatform));
    NS_ENSURE_TRUE(view, NS_ERROR_OUT_OF_MEMORY);
    view->mIsRegistered = true;
    view->mSysPath = mSysPath;
    view->mLabel = mLabel;
    view->mPowerMode = mPowerMode;
    mRegistered = view.get();
  }
  nsCOMPtr<nsISystemAdapterDisplayOutput>(mRegistered).forget(aRegistered);
  return NS_OK;
}

nsresult nsSystemAdapterDisplayOutput::Get(const auto& aField, auto* aResult) {
  const nsresult rv = InitOutput();
  NS_ENSURE_SUCCESS(rv, rv);
  *aResult = aField;
  return NS_OK;
}

nsresult nsSystemAdapterDisplayOutput::GetPowerMode(uint32_t* aPowerMode) {
  const nsAutoLock lock(mLock);
  return Get(mPowerMode, aPowerMode);
}

nsresult nsSystemAdapterDisplayOutput::GetPosition(nsISystemDisplayPosition** aPosition) {
  const nsAutoLock lock(mLock);
  nsresult rv = InitOutput();
  NS_ENSURE_SUCCESS(rv, rv);
  nsCOMPtr<nsISystemDisplayPosition> clone;
  if (mPosition) {
    rv = mPosition->Clone(clone.getter_AddRefs());
    NS_ENSURE_SUCCESS(rv, rv);
  }
  clone.forget(aPosition);
  return NS_OK;
}

nsresult nsSystemAdapterDisplayOutput::GetRotation(uint32_t* aRotation) {
  const nsAutoLock lock(mLock);
  return Get(mRotation, aRotation);
}

nsresult nsSystemAdapterDisplayOutput::GetBitsPerPixel(uint32_t* aBitsPerPixel) {
  return Get(mBitsPerPixel, aBitsPerPixel);
}

nsresult nsSystemAdapterDisplayOutput::GetPortType(uint32_t* aPortType) {
  return Get(mPortType, aPortType);
}

nsresult nsSystemAdapterDisplayOutput::GetBrightness(uint16_t* aBrightness) {
  return Get(mBrightness, aBrightness);
}

nsresult nsSystemAdapterDisplayOutput::GetContrast(uint16_t* aContrast) {
  return Get(mContrast, aContrast);
}

nsresult nsSystemAdapterDisplayOutput::GetGammas(nsISupports** aGammas) {
  const nsresult rv = InitOutput();
  NS_ENSURE_SUCCESS(rv, rv);
  if (mGammas) nsCOMPtr<nsISupports>(mGammas).forget(aGammas);
  return NS_OK;
}

nsresult nsSystemAdapterDisplayOutput::GetDisplayMode(nsISystemDisplayMode** aDisplayMode) {
  const nsresult rv = InitOutput();
  NS_ENSURE_SUCCESS(rv, rv);
  nsCOMPtr<nsISystemDisplayMode>(mCurrentMode).forget(aDisplayMode);
  return NS_OK;
}

nsresult nsSystemAdapterDisplayOutput::GetDisplayModesList(nsIArray** aDisplayModesList) {
  nsresult rv = InitOutput();
  NS_ENSURE_SUCCESS(rv, rv);
  rv = NS_NewScriptArray(aDisplayModesList, mModes);
  NS_ENSURE_SUCCESS(rv, rv);
  return NS_OK;
}

nsresult nsSystemAdapterDisplayOutput::GetList(const std::vector<uint32_t>& aList, uint32_t* aCount,
                                               uint32_t** aNumbers) {
  const nsresult rv = InitOutput();
  NS_ENSURE_SUCCESS(rv, rv);
  auto* const numbers = static_cast<uint32_t*>(
      NS_Alloc(std::max<size_t>(aList.size(), 1) * sizeof(uint32_t)));  // an array, also of nothing
  NS_ENSURE_TRUE(numbers, NS_ERROR_OUT_OF_MEMORY);
  std::ranges::copy(aList, numbers);
  *aCount = static_cast<uint32_t>(aList.size());
  *aNumbers = numbers;
  return NS_OK;
}

nsresult nsSystemAdapterDisplayOutput::GetRotationsList(uint32_t* aCount, uint32_t** aRotations) {
  return GetList(mRotations, aCount, aRotations);
}

nsresult nsSystemAdapterDisplayOutput::GetBitsPerPixelList(uint32_t* aCount,
                                                           uint32_t** aBitsPerPixel) {
  return GetList(mBitsPerPixelList, aCount, aBitsPerPixel);
}

nsresult nsSystemAdapterDisplayOutput::GetPortTypesList(uint32_t* aCount, uint32_t** aPortTypes) {
  return GetList(mPortTypes, aCount, aPortTypes);
}

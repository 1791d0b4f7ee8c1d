#include "nsDirectShowDevice.h"

#include "IBindCtx.h"
#include "ICreateDevEnum.h"
#include "IMoniker.h"
#include "IPropertyBag.h"
#include "nsDirectShowTypes.h"
#include "nsLogger.h"
#include "nsPlatformMedia.h"

namespace {
// Of both classes.
nsCOMPtr<nsILog4Logger> Logger() { return NS_GetLogger("system.digitaltvreceiver"); }
}  // namespace

DirectShowSystemDevice::DirectShowSystemDevice() : mLog(Logger()) {}
DirectShowSystemDevice::~DirectShowSystemDevice() = default;
DirectShowSystemDevice::DirectShowSystemDevice(const DirectShowSystemDevice& aOther)
    : mLog(Logger()),
      mFriendlyName(aOther.mFriendlyName),
      mDevicePath(aOther.mDevicePath),
      mPresent(aOther.mPresent) {}

DirectShowSystemDevice& DirectShowSystemDevice::operator=(const DirectShowSystemDevice& aOther) {
  mFriendlyName = aOther.mFriendlyName;
  mDevicePath = aOther.mDevicePath;
  mPresent = aOther.mPresent;
  return *this;
}

DirectShowSystemDeviceEnumerator::DirectShowSystemDeviceEnumerator(nsPlatformRef aPlatform,
                                                                   const nsID& aCategory)
    : mLog(Logger()), mPlatform(std::move(aPlatform)) {
  if (!mPlatform->mMedia) return;  // a machine that has no media objects has no devices
  nsresult rv = mPlatform->mMedia->CoCreateInstance(CLSID_SystemDeviceEnum, CLSCTX_INPROC_SERVER,
                                                    ICreateDevEnum::kIID, NS_OutVoid(mDevEnum));
  if (NS_FAILED(rv) || !mDevEnum) {
    SYSTEM_LOG_ERROR(mLog, "Could not create device enumerator.");
    return;
  }
  // A category without devices has no enumerator, and that is a success.
  rv = mDevEnum->CreateClassEnumerator(aCategory, mEnum.getter_AddRefs(), 0);
  if (NS_FAILED(rv)) SYSTEM_LOG_ERROR(mLog, "Could not create device class enumerator.");
}
DirectShowSystemDeviceEnumerator::~DirectShowSystemDeviceEnumerator() = default;

nsresult DirectShowSystemDeviceEnumerator::Next(std::unique_ptr<DirectShowSystemDevice>* aDevice) {
  if (!mEnum) return NS_ERROR_FAILURE;
  nsCOMPtr<IMoniker> moniker;
  uint32_t fetched = 0;
  nsresult rv = mEnum->Next(1, moniker.getter_AddRefs(), &fetched);
  if (rv != S_OK) return rv;
  if (!moniker) return NS_ERROR_FAILURE;

  nsCOMPtr<IBindCtx> context;
  rv = mPlatform->mMedia->CreateBindCtx(context.getter_AddRefs());
  if (NS_FAILED(rv)) {
    SYSTEM_LOG_ERROR(mLog, "Could not create bind context.");
    return rv;
  }
  nsCOMPtr<IPropertyBag> facts;
  rv = moniker->BindToStorage(context.get(), nullptr, IPropertyBag::kIID, NS_OutVoid(facts));
  if (NS_FAILED(rv)) {
    SYSTEM_LOG_ERROR(mLog, "Could not get property bag.");
    return rv;
  }

  auto device = std::make_unique<DirectShowSystemDevice>();
  VARIANT name{};
  name.vt = VT_EMPTY;
  device->mFriendlyName.emplace();
  if (NS_FAILED(facts->Read(u"FriendlyName", &name, nullptr)))
    SYSTEM_LOG_ERROR(mLog, "FriendlyName does not exist. Setting to blank string.");
  else if (name.vt != VT_BSTR)
    SYSTEM_LOG_ERROR(mLog, "FriendlyName is not of type VT_BSTR. Setting to blank string.");
  else if (name.bstrVal) {
    device->mFriendlyName = name.bstrVal;
    mPlatform->mMedia->SysFreeString(name.bstrVal);
  }

  char16_t* path = nullptr;
  rv = moniker->GetDisplayName(context.get(), nullptr, &path);
  if (NS_FAILED(rv) || !path) {
    SYSTEM_LOG_ERROR(mLog, "Could not get device path.");
    return NS_FAILED(rv) ? rv : NS_ERROR_FAILURE;
  }
  device->mDevicePath = path;
  mPlatform->mMedia->CoTaskMemFree(path);
  device->mPresent = true;
  *aDevice = std::move(device);
  return NS_OK;
}

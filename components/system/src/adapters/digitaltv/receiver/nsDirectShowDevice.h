// The media devices of the machine: what is known of one, and the walk over a category of them.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "IEnumMoniker.h"
#include "nsCOMPtr.h"
#include "nsILog4.h"
#include "nsPlatform.h"

class ICreateDevEnum;

class DirectShowSystemDevice {
 public:
  DirectShowSystemDevice();
  virtual ~DirectShowSystemDevice();
  /// A copy has a logger of its own; what is copied are the texts and whether there is a device.
  DirectShowSystemDevice(const DirectShowSystemDevice& aOther);
  DirectShowSystemDevice& operator=(const DirectShowSystemDevice& aOther);

  const nsCOMPtr<nsILog4Logger> mLog;
  // Nothing: not known.
  std::optional<std::u16string> mFriendlyName;
  std::optional<std::u16string> mDevicePath;
  bool mPresent = false;  ///< There is a device in this place.
};

/// One walk over the devices of a category. One that could not be begun has no devices to give.
class DirectShowSystemDeviceEnumerator {
 public:
  DirectShowSystemDeviceEnumerator(nsPlatformRef aPlatform, const nsID& aCategory);
  ~DirectShowSystemDeviceEnumerator();
  DirectShowSystemDeviceEnumerator(const DirectShowSystemDeviceEnumerator&) = delete;
  DirectShowSystemDeviceEnumerator& operator=(const DirectShowSystemDeviceEnumerator&) = delete;

  /// NS_OK with the next device; behind the last one what the enumerator says, a success that is
  /// not NS_OK among it. NS_ERROR_FAILURE for a walk that could not be begun, and the failure of a
  /// device whose facts can't be read.
  nsresult Next(std::unique_ptr<DirectShowSystemDevice>* aDevice);

 private:
  nsCOMPtr<ICreateDevEnum> mDevEnum;
  nsCOMPtr<IEnumMoniker> mEnum;
  const nsCOMPtr<nsILog4Logger> mLog;
  const nsPlatformRef mPlatform;
};

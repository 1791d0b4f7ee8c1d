// What is known of the device behind a serial port.
#pragma once

#include "nsXPCOMTypes.h"

/// Another face of a serial adapter, to be asked for by name. Looks at the machine at each call,
/// from any thread; NS_ERROR_NOT_AVAILABLE while the device is not there. A text that is not known
/// is empty, and that is no error.
class nsISystemSerialPortInfo : public nsISupports {
 public:
  using Self = nsISystemSerialPortInfo;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsISystemSerialPortInfo";
  static constexpr nsIID kIID = "2f6c8d15-90be-4b77-8a43-e51d07c6b298"_iid;

  /// The system's own name of it: "/dev/ttyUSB0".
  virtual nsresult GetDevicePath(nsAString& aDevicePath) = 0;
  virtual nsresult GetDriver(nsAString& aDriver) = 0;
  virtual nsresult GetMaker(nsAString& aMaker) = 0;
  virtual nsresult GetProduct(nsAString& aProduct) = 0;
  /// What stays the same however the devices are plugged in and in which order: made of the serial
  /// number, or else of the place where it is plugged in. The port keeps its name by it.
  virtual nsresult GetIdentity(nsAString& aIdentity) = 0;

 protected:
  ~nsISystemSerialPortInfo() = default;
};

// The numbers of serial ports, which stay with their devices.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "nsPlatformComm.h"
#include "nsPlatformRegistry.h"
#include "nsSerialDevices.h"

/// ttyS<n> is COM<n+1>. Every other line gets the lowest number from COM33 up that has never been
/// given, and the store remembers it by the device's identity. One thread at a time.
class nsPortNames {
 public:
  /// Without a store the numbers last as long as this object.
  explicit nsPortNames(std::shared_ptr<nsPlatformRegistry> aStore) : mStore(std::move(aStore)) {}

  /// The devices with their names, sorted by number. Cheap adapters share a serial number: such
  /// ones are known by their places, also when one of them is there alone later. A device for which
  /// no number is left, up to 255, is dropped, with a warning.
  std::vector<nsCommPortInfo> Name(std::vector<nsSerialDevice> aDevices);

 private:
  void ReadStore();
  void WriteStore(const std::string& aName, const std::string& aIdentity);

  const std::shared_ptr<nsPlatformRegistry> mStore;
  std::map<unsigned, std::string> mGiven;  // identities by number
};

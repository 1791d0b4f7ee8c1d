// The machine's serial lines, as the system lists them.
#pragma once

#include <string>
#include <vector>

#include "nsPlatformComm.h"

/// A line without a name. Its identity comes from the serial number, where it has one.
struct nsSerialDevice : nsCommPortInfo {
  std::string mPlace;  ///< An identity by the place where it is plugged in.
};

/// All lines with a device behind them, by device node, sorted. A line whose
/// device the driver did not find, a pseudo terminal and a console are none.
/// NS_ERROR_NOT_AVAILABLE when the system does not list its devices.
nsresult NS_ListSerialDevices(std::vector<nsSerialDevice>* aDevices);

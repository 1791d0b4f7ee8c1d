// The tuners that the kernel's digital television devices make up.
#pragma once

#include <linux/dvb/frontend.h>

#include <string>
#include <vector>

#include "nsPlatformTuners.h"

/// A tuner, and the nodes that it is used by.
struct nsDvbDevice {
  nsTunerInfo mInfo;
  std::string mFrontend;  ///< "/dev/dvb/adapter0/frontend0"
  std::string mDemux;     ///< "/dev/dvb/adapter0/demux0"
  std::vector<fe_delivery_system> mSystems;
};

/// All of them, by rising adapter. What can't be asked of a device without the right to it is
/// missing. NS_ERROR_OUT_OF_MEMORY, NS_ERROR_NOT_AVAILABLE when the system does not tell of
/// devices.
nsresult NS_ListDvbDevices(std::vector<nsDvbDevice>* aDevices);

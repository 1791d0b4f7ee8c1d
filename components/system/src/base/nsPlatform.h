// What the library needs of a machine: one port for each subject, gathered here.
//
// A method of a port reads one fact or does one action, in our own words, units and result codes.
// Everything that decides, orders, retries, caches, compares, defaults or notifies stands above it.
// Out parameters are written on success only.
#pragma once

#include <memory>

class nsPlatformClock;
class nsPlatformComm;
class nsPlatformDirectoryChanges;
class nsPlatformDisplays;
class nsPlatformFiles;
class nsPlatformFonts;
class nsPlatformHost;
class nsPlatformMedia;
class nsPlatformNetwork;
class nsPlatformNetworkSettings;
class nsPlatformRegistry;
class nsPlatformTimeZones;
class nsPlatformTuners;
class nsPlatformVolumes;
class nsPlatformWatchdog;
class nsPlatformWindowEvents;

/// Made once, by the module, and given to constructors.
struct nsPlatform {
  std::shared_ptr<nsPlatformVolumes> mVolumes;
  std::shared_ptr<nsPlatformNetwork> mNetwork;
  std::shared_ptr<nsPlatformNetworkSettings> mNetworkSettings;
  std::shared_ptr<nsPlatformComm> mComm;
  std::shared_ptr<nsPlatformRegistry> mRegistry;
  std::shared_ptr<nsPlatformClock> mClock;
  std::shared_ptr<nsPlatformTimeZones> mTimeZones;
  std::shared_ptr<nsPlatformFonts> mFonts;
  std::shared_ptr<nsPlatformWatchdog> mWatchdog;
  std::shared_ptr<nsPlatformHost> mHost;
  std::shared_ptr<nsPlatformDirectoryChanges> mDirectoryChanges;
  std::shared_ptr<nsPlatformFiles> mFiles;
  std::shared_ptr<nsPlatformDisplays> mDisplays;
  std::shared_ptr<nsPlatformWindowEvents> mWindowEvents;
  std::shared_ptr<nsPlatformTuners> mTuners;
  /// Null where the platform has none: NS_WithMediaGraph gives it some.
  std::shared_ptr<nsPlatformMedia> mMedia;
};
using nsPlatformRef = std::shared_ptr<const nsPlatform>;

/// The machine that the process runs on. The backend that is built defines it: each port of it is a
/// line there.
nsPlatformRef NS_NewNativePlatform();

#include <cstdlib>

#include "nsInotifyDirectoryChanges.h"
#include "nsLinuxClock.h"
#include "nsLinuxComm.h"
#include "nsLinuxDisplays.h"
#include "nsLinuxFiles.h"
#include "nsLinuxFonts.h"
#include "nsLinuxHost.h"
#include "nsLinuxNetwork.h"
#include "nsLinuxNetworkSettings.h"
#include "nsLinuxRegistry.h"
#include "nsLinuxTimeZones.h"
#include "nsLinuxTuners.h"
#include "nsLinuxVolumes.h"
#include "nsLinuxWatchdog.h"
#include "nsLinuxWindowEvents.h"
#include "nsPlatform.h"

nsPlatformRef NS_NewNativePlatform() {
  auto platform = std::make_shared<nsPlatform>();
  platform->mVolumes = std::make_shared<nsLinuxVolumes>();
  const auto network = std::make_shared<nsLinuxNetwork>();
  platform->mNetwork = network;
  platform->mNetworkSettings = std::make_shared<nsLinuxNetworkSettings>();
  platform->mRegistry = std::make_shared<nsLinuxRegistry>(NS_RegistryPath, NS_NetworkSeed(network));
  nsLinuxComm::Options serial;
  const char* const more = std::getenv("VOREL_SERIAL_PORTS");
  if (more) serial.mMore = NS_ParseSerialPorts(more);
  platform->mComm = std::make_shared<nsLinuxComm>(platform->mRegistry, std::move(serial));
  platform->mClock = std::make_shared<nsLinuxClock>();
  platform->mTimeZones = std::make_shared<nsLinuxTimeZones>();
  platform->mFonts = std::make_shared<nsLinuxFonts>();
  platform->mTuners = std::make_shared<nsLinuxTuners>();
  platform->mWatchdog = std::make_shared<nsLinuxWatchdog>();
  platform->mHost = std::make_shared<nsLinuxHost>();
  platform->mFiles = std::make_shared<nsLinuxFiles>();
  platform->mDirectoryChanges = std::make_shared<nsInotifyDirectoryChanges>();
  platform->mDisplays = std::make_shared<nsLinuxDisplays>(platform->mRegistry);
  platform->mWindowEvents =
      std::make_shared<nsLinuxWindowEvents>(platform->mVolumes, platform->mDisplays);
  return platform;
}

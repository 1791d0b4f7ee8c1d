#include "nsLinuxNetwork.h"
#include "nsLinuxRegistry.h"
#include "nsLinuxVolumes.h"
#include "nsPlatform.h"

nsPlatformRef NS_NewNativePlatform() {
  auto platform = std::make_shared<nsPlatform>();
  platform->mVolumes = std::make_shared<nsLinuxVolumes>();
  const auto network = std::make_shared<nsLinuxNetwork>();
  platform->mNetwork = network;
  platform->mRegistry = std::make_shared<nsLinuxRegistry>(NS_RegistryPath, network);
  return platform;
}

#include "nsLinuxVolumes.h"
#include "nsPlatform.h"

nsPlatformRef NS_NewNativePlatform() {
  auto platform = std::make_shared<nsPlatform>();
  platform->mVolumes = std::make_shared<nsLinuxVolumes>();
  return platform;
}

#include "nsPlatform.h"

nsPlatformRef NS_NewNativePlatform() {
  auto platform = std::make_shared<nsPlatform>();
  return platform;
}

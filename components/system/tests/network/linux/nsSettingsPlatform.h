// A machine for tests of network settings: its network is the one of the process, all else is
// simulated.
#pragma once

#include <memory>
#include <string>

#include "nsLinuxNetwork.h"
#include "nsLinuxNetworkSettings.h"
#include "nsSimulatedMachine.h"

/// The platform of aMachine with the network of the namespace that the caller is in. Its files lie
/// in aDirectory; aBus is the name of the message bus's socket there.
inline nsPlatformRef NS_SettingsPlatform(const nsSimulatedMachine& aMachine,
                                         const std::string& aDirectory, const char* aBus) {
  auto platform = std::make_shared<nsPlatform>(*aMachine.Platform());
  platform->mNetwork = std::make_shared<nsLinuxNetwork>();
  platform->mNetworkSettings = std::make_shared<nsLinuxNetworkSettings>(
      nsLinuxNetworkSettings::Options{aDirectory + "/resolv.conf", aDirectory + "/network",
                                      "unix:path=" + aDirectory + "/" + aBus, aDirectory});
  return platform;
}

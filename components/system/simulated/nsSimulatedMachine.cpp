#include "nsSimulatedMachine.h"

nsSimulatedMachine::nsSimulatedMachine()
    : mCalls(std::make_shared<nsSimulatedCalls>()),
      mVolumes(std::make_shared<nsSimulatedVolumes>(mCalls)) {}

nsPlatformRef nsSimulatedMachine::Platform() const {
  auto platform = std::make_shared<nsPlatform>();
  platform->mVolumes = mVolumes;
  return platform;
}

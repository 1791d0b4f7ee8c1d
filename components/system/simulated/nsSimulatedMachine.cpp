#include "nsSimulatedMachine.h"

nsSimulatedMachine::nsSimulatedMachine()
    : mCalls(std::make_shared<nsSimulatedCalls>()),
      mVolumes(std::make_shared<nsSimulatedVolumes>(mCalls)) {}

nsPlatformRef nsSimulatedMachine::Platform() const {
  auto platform = std::make_shared<nsPlatform>();
  platform->mVolumes = mVolumes;
  return platform;
}

std::optional<std::chrono::milliseconds> nsSimulatedMachine::UntilNextChange() const {
  if (mChanges.empty()) return std::nullopt;
  return mChanges.front().mAfter;
}

void nsSimulatedMachine::ApplyNextChange() {
  if (mChanges.empty()) return;
  const nsSimulatedChange change = std::move(mChanges.front());
  mChanges.pop_front();
  for (const auto& action : change.mActions) action();
}

#include "nsSimulatedMachine.h"

nsSimulatedMachine::nsSimulatedMachine()
    : mCalls(std::make_shared<nsSimulatedCalls>()),
      mWindowEvents(std::make_shared<nsSimulatedWindowEvents>(mCalls)),
      mVolumes(std::make_shared<nsSimulatedVolumes>(mCalls, mWindowEvents)),
      mDisplays(std::make_shared<nsSimulatedDisplays>(mCalls, mWindowEvents)),
      mFiles(std::make_shared<nsSimulatedFiles>(mCalls)),
      mDirectoryChanges(std::make_shared<nsSimulatedDirectoryChanges>(mCalls, mFiles)),
      mNetwork(std::make_shared<nsSimulatedNetwork>(mCalls)),
      mNetworkSettings(std::make_shared<nsSimulatedNetworkSettings>(mCalls, mNetwork)),
      mComm(std::make_shared<nsSimulatedComm>(mCalls)),
      mTuners(std::make_shared<nsSimulatedTuners>(mCalls)),
      mRegistry(std::make_shared<nsSimulatedRegistry>(mCalls, mNetwork)),
      mClock(std::make_shared<nsSimulatedClock>(mCalls)),
      mFonts(std::make_shared<nsSimulatedFonts>(mCalls)),
      mWatchdog(std::make_shared<nsSimulatedWatchdog>(mCalls)),
      mHost(std::make_shared<nsSimulatedHost>(mCalls)) {}

nsPlatformRef nsSimulatedMachine::Platform() const {
  auto platform = std::make_shared<nsPlatform>();
  platform->mVolumes = mVolumes;
  platform->mFiles = mFiles;
  platform->mDirectoryChanges = mDirectoryChanges;
  platform->mNetwork = mNetwork;
  platform->mNetworkSettings = nsSimulatedNetworkSettings::NewPort(mNetworkSettings);
  platform->mComm = mComm;
  platform->mTuners = mTuners;
  platform->mRegistry = mRegistry;
  platform->mClock = mClock;
  platform->mTimeZones = mClock;
  platform->mFonts = mFonts;
  platform->mWatchdog = mWatchdog;
  platform->mHost = mHost;
  platform->mDisplays = mDisplays;
  platform->mWindowEvents = mWindowEvents;
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

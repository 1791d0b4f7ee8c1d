// A machine made of facts: for tests, demonstrations, and developers of applications who lack the
// hardware.
//
// To add a subject: nsSimulatedFoo.{h,cpp} with the port and its facts, a member here and a line in
// the constructor and in Platform, and, where the JSON file shall speak of it, a line in the
// section table of nsSimulatedMachineFile.cpp.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <optional>
#include <vector>

#include "nsPlatform.h"
#include "nsSimulatedCalls.h"
#include "nsSimulatedClock.h"
#include "nsSimulatedComm.h"
#include "nsSimulatedDisplays.h"
#include "nsSimulatedFileSystem.h"
#include "nsSimulatedFonts.h"
#include "nsSimulatedHost.h"
#include "nsSimulatedNetwork.h"
#include "nsSimulatedNetworkSettings.h"
#include "nsSimulatedRegistry.h"
#include "nsSimulatedTuners.h"
#include "nsSimulatedVolumes.h"
#include "nsSimulatedWatchdog.h"
#include "nsSimulatedWindowEvents.h"

/// A step of the machine's script.
struct nsSimulatedChange {
  /// Since the step before, or since the machine was switched on.
  std::chrono::milliseconds mAfter{0};
  /// What then happens, at once and in this order.
  std::vector<std::function<void()>> mActions;
};

/// Facts are set through the members, before or while the library runs on the machine, from any
/// thread. A new machine has nothing in it: no volume, no interface.
class nsSimulatedMachine {
 public:
  nsSimulatedMachine();

  /// What the library is given. It may outlive the machine object.
  nsPlatformRef Platform() const;

  /// The script of changes to come. The machine has no clock of its own: whoever runs it waits, on
  /// real or on virtual time, as long as UntilNextChange says, and then applies the change. Not for
  /// several threads at a time.
  void AddChange(nsSimulatedChange aChange) { mChanges.push_back(std::move(aChange)); }
  /// Nothing when no change is left.
  std::optional<std::chrono::milliseconds> UntilNextChange() const;
  /// Does nothing when no change is left.
  void ApplyNextChange();

  const nsSimulatedCallsRef mCalls;
  const std::shared_ptr<nsSimulatedWindowEvents> mWindowEvents;
  const std::shared_ptr<nsSimulatedVolumes> mVolumes;
  const std::shared_ptr<nsSimulatedDisplays> mDisplays;
  const std::shared_ptr<nsSimulatedFiles> mFiles;
  const std::shared_ptr<nsSimulatedDirectoryChanges> mDirectoryChanges;
  const std::shared_ptr<nsSimulatedNetwork> mNetwork;
  const std::shared_ptr<nsSimulatedNetworkSettings> mNetworkSettings;
  const std::shared_ptr<nsSimulatedComm> mComm;
  const std::shared_ptr<nsSimulatedTuners> mTuners;
  const std::shared_ptr<nsSimulatedRegistry> mRegistry;
  const std::shared_ptr<nsSimulatedClock> mClock;
  const std::shared_ptr<nsSimulatedFonts> mFonts;
  const std::shared_ptr<nsSimulatedWatchdog> mWatchdog;
  const std::shared_ptr<nsSimulatedHost> mHost;

 private:
  std::deque<nsSimulatedChange> mChanges;
};

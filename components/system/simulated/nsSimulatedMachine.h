// A machine made of facts: for tests, demonstrations, and developers of applications who lack the
// hardware.
//
// To add a subject: nsSimulatedFoo.{h,cpp} with the port and its facts, a member here and a line in
// the constructor and in Platform, and, where the JSON file shall speak of it, a line in the
// section table of nsSimulatedMachineFile.cpp.
#pragma once

#include "nsPlatform.h"
#include "nsSimulatedCalls.h"
#include "nsSimulatedVolumes.h"

/// Facts are set through the members, before or while the library runs on the machine, from any
/// thread. A new machine has nothing in it: no volume, no interface.
class nsSimulatedMachine {
 public:
  nsSimulatedMachine();

  /// What the library is given. It may outlive the machine object.
  nsPlatformRef Platform() const;

  const nsSimulatedCallsRef mCalls;
  const std::shared_ptr<nsSimulatedVolumes> mVolumes;
};

// The script of a simulated machine as a source of events: its changes, on real time.
#pragma once

#include <chrono>
#include <memory>

#include "nsEventSource.h"
#include "nsLock.h"
#include "nsSimulatedMachine.h"

/// Consume applies the change that is due. Tests need none of this: they apply the changes
/// themselves, on whatever time they like.
class nsSimulatedScript final : public nsEventSource {
 public:
  /// The machine is switched on now.
  explicit nsSimulatedScript(std::shared_ptr<nsSimulatedMachine> aMachine)
      : mMachine(std::move(aMachine)) {}

  void Wait() override;
  bool Consume() override;
  void Wake() override;

 private:
  using Clock = std::chrono::steady_clock;
  bool IsDue() const;

  const std::shared_ptr<nsSimulatedMachine> mMachine;
  Clock::time_point mLast = Clock::now();  // when the change before was applied

  nsMutex mLock;
  nsCondition mWoken;
  bool mIsWoken NS_GUARDED_BY(mLock) = false;
};

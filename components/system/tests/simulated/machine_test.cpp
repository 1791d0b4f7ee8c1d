// The simulated machine's own machinery: what tests of everything else lean on.
#include "nsSimulatedMachine.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include "nsFaultSweep.h"

namespace {

TEST(SimulatedCalls, WrongCallFailsOrFaultNeverEnds) {
  nsSimulatedMachine machine;
  machine.mVolumes->Insert('E');
  uint32_t value = 77;
  machine.mCalls->Fail({.mPort = "Volumes",
                        .mMethod = "ReadDriveKind",
                        .mNumber = 2,
                        .mResult = NS_ERROR_NOT_AVAILABLE});
  EXPECT_EQ(machine.mVolumes->ReadDriveKind('E', &value), NS_OK);
  EXPECT_EQ(machine.mVolumes->ReadDriveMask(&value), NS_OK);
  value = 77;
  EXPECT_EQ(machine.mVolumes->ReadDriveKind('E', &value), NS_ERROR_NOT_AVAILABLE);
  EXPECT_EQ(value, 77u) << "a failing call must not write";
  EXPECT_EQ(machine.mVolumes->ReadDriveKind('E', &value), NS_OK);
  EXPECT_EQ(machine.mCalls->FailedCalls(), std::vector<std::string>{"Volumes.ReadDriveKind"});
  EXPECT_EQ(machine.mCalls->Count(), 4u);
}

TEST(SimulatedCalls, FaultForEverStopsAfterOneCall) {
  nsSimulatedMachine machine;
  uint32_t value;
  machine.mCalls->Fail({.mPort = {}, .mMethod = {}, .mNumber = 2, .mForEver = true});
  EXPECT_EQ(machine.mVolumes->ReadDriveMask(&value), NS_OK);
  EXPECT_EQ(machine.mVolumes->ReadDriveMask(&value), NS_ERROR_FAILURE);
  EXPECT_EQ(machine.mVolumes->ReadDriveKind('C', &value), NS_ERROR_FAILURE);
  machine.mCalls->ClearFaults();
  EXPECT_EQ(machine.mVolumes->ReadDriveMask(&value), NS_OK);
}

TEST(SimulatedCalls, FailedActionStandsInTheJournal) {
  nsSimulatedMachine machine;
  machine.mVolumes->Insert('E');
  machine.mCalls->FailCall(1);
  nsPlatformVolumes::VolumeHandle volume;
  EXPECT_EQ(machine.mVolumes->OpenVolume('E', &volume), NS_ERROR_FAILURE);
  EXPECT_EQ(machine.mVolumes->OpenVolume('E', &volume), NS_OK);
  EXPECT_EQ(machine.mCalls->TakeJournal(), std::vector<std::string>{"Volumes.OpenVolume E"});
  EXPECT_TRUE(machine.mCalls->TakeJournal().empty());
}

TEST(SimulatedMachine, PlatformDiesWithTheMachine) {
  nsPlatformRef platform;
  {
    nsSimulatedMachine machine;
    machine.mVolumes->Insert('E');
    platform = machine.Platform();
  }
  uint32_t mask = 0;
  EXPECT_EQ(platform->mVolumes->ReadDriveMask(&mask), NS_OK);
  EXPECT_EQ(mask, 1u << 4);
}

// A scenario that swallows the failure of its second call; the sweep must notice, and only there.
TEST(FaultSweep, SwallowedFailureGoesUnnoticed) {
  std::vector<std::string> failed;
  NS_SweepFaults([&](nsSimulatedMachine& aMachine, bool aFaulty) {
    aMachine.mVolumes->Insert('E');
    uint32_t mask, kind;
    nsresult rv = aMachine.mVolumes->ReadDriveMask(&mask);
    if (NS_SUCCEEDED(rv)) (void)aMachine.mVolumes->ReadDriveKind('E', &kind);
    if (aFaulty) {
      ASSERT_EQ(aMachine.mCalls->FailedCalls().size(), 1u);
      failed.push_back(aMachine.mCalls->FailedCalls()[0]);
      EXPECT_EQ(NS_FAILED(rv), failed.back() == "Volumes.ReadDriveMask");
    }
  });
  EXPECT_EQ(failed, (std::vector<std::string>{"Volumes.ReadDriveMask", "Volumes.ReadDriveKind"}));
}

TEST(FaultSweep, ScenarioThatAsksNothingPasses) {
  EXPECT_FATAL_FAILURE(NS_SweepFaults([](nsSimulatedMachine&, bool) {}), "asks no port");
}

}  // namespace

// Runs a scenario once in peace, and then once for each call of a port that it made, with that call
// failing.
#pragma once

#include <gtest/gtest.h>

#include "nsSimulatedMachine.h"

/// aScenario(nsSimulatedMachine& aMachine, bool aFaulty) gives the new machine its facts, runs what
/// is to be tested, and checks what must then hold: without a fault the whole outcome, with one
/// what holds in spite of it (the failure came out, what was done before stays done, a further run
/// succeeds). `aMachine.mCalls->FailedCalls()` names the call that failed. It must make the same
/// calls in the same order each time: no threads, no clock.
///
/// aPort limits the faults to the calls of one port.
template <class Scenario>
void NS_SweepFaults(Scenario aScenario, nsresult aResult = NS_ERROR_FAILURE,
                    std::string aPort = {}) {
  uint64_t calls = 0;
  {
    SCOPED_TRACE("without a fault");
    nsSimulatedMachine machine;
    aScenario(machine, false);
    calls = machine.mCalls->Count(aPort);
    ASSERT_GT(calls, 0u) << "the scenario asks no port: nothing is swept";
  }
  for (uint64_t n = 1; n <= calls && !testing::Test::HasFatalFailure(); ++n) {
    nsSimulatedMachine machine;
    machine.mCalls->Fail({.mPort = aPort, .mMethod = {}, .mNumber = n, .mResult = aResult});
    SCOPED_TRACE("with call " + std::to_string(n) + " of " + std::to_string(calls) + " failing");
    aScenario(machine, true);
    EXPECT_EQ(machine.mCalls->FailedCalls().size(), 1u)
        << "the scenario did not come to this call: it is not the same each time";
  }
}

// A display server of the test's own, for the contract suite.
#include "../nsDisplaysContract.h"
#include "nsDisplayHand.h"
#include "nsDisplayServer.h"
#include "nsLinuxDisplays.h"
#include "nsSimulatedMachine.h"

namespace {

class NativeMachine final : public nsDisplaysMachine {
 public:
  std::string Lacks() override {
    return mServer->Name().empty() ? "no Xorg with the dummy driver here" : "";
  }
  nsPlatformDisplays& Port() override { return mDisplays; }
  void PlugSecond() override {
    nsDisplayHand hand;
    hand.SetScreenSize(2560, 720);
    hand.Show(1, hand.AddMode(1, 900, 500), 1280, 0);
  }

 private:
  const nsTemporaryDirectory mDirectory;
  const std::unique_ptr<nsDisplayServer> mServer = nsDisplayServer::StartDummy(mDirectory);
  const nsSimulatedMachine mMachine;  // has the store
  nsLinuxDisplays mDisplays{mMachine.mRegistry};
};

INSTANTIATE_TEST_SUITE_P(
    Linux, DisplaysContract,
    testing::Values(NS_ContractBackend<nsDisplaysMachine, NativeMachine>("server")));

}  // namespace

// A pseudo terminal, for the contract suite.
#include "../nsSerialContract.h"
#include "nsLinuxComm.h"
#include "nsPtyPair.h"
#include "nsTemporaryDirectory.h"

namespace {

class PtyLine final : public nsSerialMachine {
 public:
  nsPlatformComm& Comm() override { return mComm; }
  void Say(const std::string& aBytes) override { mPty.Say(aBytes); }
  std::string Hear(size_t aCount) override { return mPty.Hear(aCount); }
  void Unplug() override { mPty.Unplug(); }
  void Hold(nsPlatformCommPort&) override {}

 private:
  nsTemporaryDirectory mLocks;
  nsPtyPair mPty;
  nsLinuxComm mComm{nullptr,
                    {.mMore = {{"COM40", mPty.Device()}},
                     .mLockDirectory = mLocks.Path().string(),
                     .mListed = false}};
};

INSTANTIATE_TEST_SUITE_P(Linux, SerialContract,
                         testing::Values(NS_ContractBackend<nsSerialMachine, PtyLine>("pty")),
                         testing::PrintToStringParamName());

}  // namespace

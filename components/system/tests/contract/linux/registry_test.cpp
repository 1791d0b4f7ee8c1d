// The store in a file, for the contract suite.
#include "../nsRegistryContract.h"
#include "nsCapturedTree.h"
#include "nsLinuxNetwork.h"
#include "nsLinuxRegistry.h"

namespace {

class FileStore final : public nsRegistryMachine {
 public:
  nsPlatformRegistry& Port() override { return *mRegistry; }

 private:
  nsCapturedTree mTree;
  const std::shared_ptr<nsPlatformRegistry> mRegistry = std::make_shared<nsLinuxRegistry>(
      [path = mTree.Root() + "/state/registry"] { return path; },
      NS_NetworkSeed(std::make_shared<nsLinuxNetwork>(mTree.Root())));
};

INSTANTIATE_TEST_SUITE_P(Linux, RegistryContract,
                         testing::Values(NS_ContractBackend<nsRegistryMachine, FileStore>("file")));

}  // namespace

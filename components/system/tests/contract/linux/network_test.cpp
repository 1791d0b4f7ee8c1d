// Links of a namespace, for the contract suite.
#include "../nsNetworkContract.h"
#include "nsLinuxNetwork.h"
#include "nsNetworkNamespace.h"

namespace {

class NativeNetwork final : public nsNetworkMachine {
 public:
  std::string Lacks() override { return mNamespace.Lacks(); }
  nsPlatformNetwork& Port() override { return mNetwork; }
  void AddWire(const std::string& aName, const std::string& aMac) override {
    mNamespace.AddWire(aName, aMac);
  }
  void AddBridge(const std::string& aName) override {
    mNamespace.Ip("link add " + aName + " type bridge");
  }
  void SetAddresses(const std::string& aName, const std::vector<std::string>& aAddresses) override {
    for (const auto& address : aAddresses)
      mNamespace.Ip("addr add " + address + " dev " + aName + " nodad");
  }
  void SetGateways(const std::string& aName, const std::vector<std::string>& aGateways) override {
    int metric = 900;
    for (size_t i = aGateways.size(); i > 0;
         --i)  // the best one last: the order of making must not count
      mNamespace.Ip("route add default via " + aGateways[i - 1] + " dev " + aName + " metric " +
                    std::to_string(metric -= 100));
  }
  void SetDown(const std::string& aName) override { mNamespace.SetUp(aName, false); }
  void Remove(const std::string& aName) override { mNamespace.Ip("link del " + aName); }

 private:
  nsNetworkNamespace mNamespace;
  nsLinuxNetwork mNetwork;
};

INSTANTIATE_TEST_SUITE_P(
    Linux, NetworkContract,
    testing::Values(NS_ContractBackend<nsNetworkMachine, NativeNetwork>("namespace")));

}  // namespace

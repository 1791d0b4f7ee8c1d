// What the contract suite of network interfaces runs on.
#pragma once

#include <algorithm>
#include <vector>

#include "nsContract.h"
#include "nsPlatformNetwork.h"

class nsNetworkMachine {
 public:
  virtual ~nsNetworkMachine() = default;
  virtual std::string Lacks() { return ""; }
  virtual nsPlatformNetwork& Port() = 0;
  /// A wire that is up. The address is hexadecimal with ":" between.
  virtual void AddWire(const std::string& aName, const std::string& aMac) = 0;
  /// Looks like a wire, and is none.
  virtual void AddBridge(const std::string& aName) = 0;
  virtual void SetAddresses(const std::string& aName,
                            const std::vector<std::string>& aAddresses) = 0;
  /// By rising metric.
  virtual void SetGateways(const std::string& aName, const std::vector<std::string>& aGateways) = 0;
  virtual void SetDown(const std::string& aName) = 0;
  virtual void Remove(const std::string& aName) = 0;
};

class NetworkContract : public nsContractTest<nsNetworkMachine> {
 protected:
  nsPlatformNetwork& Port() { return mMachine->Port(); }
  /// The record of an interface; an empty one when it is not there.
  nsAdapterAddresses RecordOf(const std::string& aName) {
    std::vector<nsAdapterAddresses> records;
    EXPECT_EQ(Port().Read()->GetAdaptersAddresses(0, 0x90, &records), NS_OK);
    const auto found = std::ranges::find(records, aName, &nsAdapterAddresses::mAdapterName);
    return found == records.end() ? nsAdapterAddresses() : *found;
  }
  nsAdapterInfo InfoOf(const std::string& aName) {
    std::vector<nsAdapterInfo> infos;
    (void)Port().Read()->GetAdaptersInfo(&infos);
    const auto found = std::ranges::find(infos, aName, &nsAdapterInfo::mAdapterName);
    return found == infos.end() ? nsAdapterInfo() : *found;
  }
};

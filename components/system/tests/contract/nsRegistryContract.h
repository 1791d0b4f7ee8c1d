// What the contract suite of the configuration store runs on.
#pragma once

#include "nsContract.h"
#include "nsPlatformRegistry.h"

class nsRegistryMachine {
 public:
  virtual ~nsRegistryMachine() = default;
  std::string Lacks() const { return {}; }
  virtual nsPlatformRegistry& Port() = 0;
};

class RegistryContract : public nsContractTest<nsRegistryMachine> {
 protected:
  std::unique_ptr<nsPlatformRegistryKey> Key(uint32_t aAccess) {
    std::unique_ptr<nsPlatformRegistryKey> key;
    EXPECT_EQ(mMachine->Port().CreateKey("SOFTWARE\\Test", aAccess, &key), NS_OK);
    return key;
  }
};

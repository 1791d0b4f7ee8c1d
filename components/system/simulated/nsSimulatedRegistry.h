// A configuration store of facts.
#pragma once

#include "nsMachineValue.h"
#include "nsPlatformNetwork.h"
#include "nsPlatformRegistryData.h"
#include "nsSimulatedCalls.h"

/// A configuration store in memory.
class nsSimulatedRegistry final : public nsPlatformRegistryStore, public nsSimulatedPort {
 public:
  /// The keys of interfaces in aNetwork are there from the first time they are opened.
  nsSimulatedRegistry(nsSimulatedCallsRef aCalls, std::shared_ptr<nsPlatformNetwork> aNetwork);

  /// Puts a value into a key, and makes the key.
  void Put(const std::string& aPath, nsRegistryValue aValue);
  /// Takes one out of it.
  void Take(const std::string& aPath, const std::string& aName);
  /// What a key holds; empty when it is not there.
  std::vector<nsRegistryValue> ValuesOf(const std::string& aPath);

  /// An object of keys, as docs/machine-file.md tells. Throws nsMachineFileError.
  void ReadFacts(const nsMachineValue& aValue);
  /// The same: what the function that is given back does.
  std::function<void()> ReadChange(const nsMachineValue& aValue);

 private:
  nsresult Read(const char* aMethod, const Visitor& aVisitor) override;
  nsresult Change(const char* aMethod, const Visitor& aVisitor) override;

  nsRegistryData mData NS_GUARDED_BY(mLock);
};

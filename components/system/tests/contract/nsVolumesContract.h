// What the contract suite of volumes runs on.
#pragma once

#include "nsContract.h"
#include "nsPlatformVolumes.h"

// A machine with the port under test, where volumes can be made to come and go.
class nsVolumesMachine {
 public:
  virtual ~nsVolumesMachine() = default;
  /// Why this machine can't be had here; empty when it can.
  virtual std::string Lacks() { return ""; }
  virtual nsPlatformVolumes& Port() = 0;
  /// A volume comes, by this name.
  virtual void Insert(const std::string& aName) = 0;
  virtual void Remove(const std::string& aName) = 0;
};

class VolumesContract : public nsContractTest<nsVolumesMachine> {
 protected:
  nsPlatformVolumes& Port() { return mMachine->Port(); }
  uint32_t Mask() {
    uint32_t mask = 0;
    EXPECT_TRUE(NS_SUCCEEDED(Port().ReadDriveMask(&mask)));
    return mask;
  }
  // The letter that a new volume has got.
  char Insert(const std::string& aName) {
    const uint32_t before = Mask();
    mMachine->Insert(aName);
    const uint32_t added = Mask() & ~before;
    EXPECT_EQ(__builtin_popcount(added), 1) << "one volume, one letter";
    return static_cast<char>('A' + __builtin_ctz(added | 1u << 26));
  }
};

// What sysfs and udev know of the disks and their partitions.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "nsFileTree.h"

/// A block device, or a partition of one.
struct nsBlockDevice {
  std::string mSysPath;          ///< "/sys/devices/…/block/sdb/sdb1".
  std::set<std::string> mDisks;  ///< Those that it lies on: "/sys/devices/…/block/sdb".
  uint32_t mKind = 0;            ///< nsPlatformVolumes::DriveKind. A memory card that the system
                                 ///< itself runs from passes for removable here.
  std::optional<uint8_t> mBus;   ///< nsPlatformVolumes::BusType; nothing for memory.
  std::string mSequence;  ///< Another one for each medium that was put in; empty on old kernels.
  std::map<std::string, std::string> mProperties;  ///< udev's, of the partition: "ID_FS_LABEL_ENC".
};

class nsBlockDevices {
 public:
  explicit nsBlockDevices(const nsFileTree& aTree) : mTree(aTree) {}

  /// Nothing when there is no such device.
  std::optional<nsBlockDevice> ByNumber(unsigned aMajor, unsigned aMinor) const;
  /// "/dev/sda1" and "/dev/mapper/name".
  std::optional<nsBlockDevice> ByNode(const std::string& aNode) const;

 private:
  nsBlockDevice Read(const std::string& aSysPath, int aDepth) const;
  void ReadComposed(nsBlockDevice& aDevice, const std::string& aDisk, int aDepth) const;
  bool IsInSlot(const std::string& aDisk) const;
  std::optional<uint8_t> BusOf(const std::string& aDisk) const;
  std::map<std::string, std::string> PropertiesOf(const std::string& aSysPath) const;

  const nsFileTree& mTree;
};

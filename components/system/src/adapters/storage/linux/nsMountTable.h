// The kernel's table of mounts, /proc/self/mountinfo.
#pragma once

#include <string>
#include <string_view>
#include <vector>

/// One line of the table.
struct nsMount {
  unsigned mId = 0;
  unsigned mParent = 0;
  unsigned mMajor = 0;  ///< 0 for file systems that have no device of their own.
  unsigned mMinor = 0;
  std::string mRoot;    ///< Which directory of the file system is shown: "/" for the whole.
  std::string mPoint;   ///< Where.
  std::string mType;    ///< "ext4", "fuse.sshfs".
  std::string mSource;  ///< "/dev/sda1", "server:/share", or nothing much.
};

/// The mounts in the table's order, which is that of mounting. Lines that are none are passed over.
std::vector<nsMount> NS_ParseMountTable(std::string_view aText);

/// Leaves out what can't be reached, since another mount lies upon it or upon a directory above it.
std::vector<nsMount> NS_ReachableMounts(const std::vector<nsMount>& aMounts);

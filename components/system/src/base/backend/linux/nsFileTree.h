// Small text files and links of the kernel and of udev, below a root path: the machine's own, or a
// captured tree.
#pragma once

#include <optional>
#include <string>
#include <vector>

/// Paths are absolute ones of the described machine, "/sys/dev/block/8:1". Links are not followed
/// by the tree itself: those of sysfs are relative, and are resolved by ReadLink, which never
/// leaves the tree.
///
/// What fails for a reason that passes is tried again. Where something is not read all the same,
/// errno says why: NS_IsPassing tells whether the machine lacks it, or could not be asked.
class nsFileTree {
 public:
  /// "/" is the machine itself.
  explicit nsFileTree(std::string aRoot) : mRoot(std::move(aRoot)) {
    while (!mRoot.empty() && mRoot.back() == '/') mRoot.pop_back();
  }

  /// The path as it is on this machine.
  std::string Real(const std::string& aPath) const { return mRoot + aPath; }

  /// The whole file; nothing when it can't be read.
  std::optional<std::string> ReadFile(const std::string& aPath) const;
  /// The same without the white space at its end, and empty when it can't be read: for attributes.
  std::string ReadAttribute(const std::string& aPath) const;
  /// What a link points to, as an absolute path without "." and ".."; nothing when it is no link.
  std::optional<std::string> ReadLink(const std::string& aPath) const;
  bool Exists(const std::string& aPath) const;
  bool IsDirectory(const std::string& aPath) const;
  /// The names in a directory, sorted; none when it can't be read.
  std::vector<std::string> List(const std::string& aPath) const;

 private:
  std::string mRoot;
};

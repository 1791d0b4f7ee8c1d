// Mounts of the test's own: nobody else sees them, and leaving them undoes them; disks of files to
// mount.
#pragma once

#include <gtest/gtest.h>

#include <string>

/// The calling thread, and threads that it makes, are in a mount namespace of their own; at the end
/// the thread is back where it was.
class nsMountNamespace {
 public:
  nsMountNamespace();
  ~nsMountNamespace();
  nsMountNamespace(const nsMountNamespace&) = delete;
  nsMountNamespace& operator=(const nsMountNamespace&) = delete;

  /// False when this process has no right to one.
  bool IsUsable() const { return mUsable; }

 private:
  // The kernel lets a thread change its mounts only while no other one shares its root and working
  // directory, which threads of a running host do.
  bool Return() const;

  const int mBefore, mDirectory;
  bool mEntered = false;
  bool mUsable = false;
};

/// A file as a disk. The kernel lets go of the file when this object is gone and nothing of it is
/// mounted any more.
class nsLoopDevice {
 public:
  explicit nsLoopDevice(const std::string& aFile);
  ~nsLoopDevice();
  nsLoopDevice(const nsLoopDevice&) = delete;
  nsLoopDevice& operator=(const nsLoopDevice&) = delete;

  /// Makes a file with a file system of ext4 in it; false when there is no program for that.
  static bool Format(const std::string& aFile);

  bool Works() const { return mFd >= 0; }
  const std::string& Node() const { return mNode; }

 private:
  std::string mNode;
  int mFd = -1;
};

// Mounts of the test's own: nobody else sees them, and leaving them undoes them.
#pragma once

#include <gtest/gtest.h>

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

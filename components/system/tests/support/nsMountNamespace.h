// Mounts of the test's own: nobody else sees them, and leaving them undoes them.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

/// The calling thread, and threads that it makes, are in a mount namespace of their own; at the end
/// the thread is back where it was.
class nsMountNamespace {
 public:
  nsMountNamespace() {
    mEntered = mBefore >= 0 && unshare(CLONE_NEWNS) == 0;
    mUsable = mEntered && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  }
  ~nsMountNamespace() {
    if (mEntered) {
      EXPECT_TRUE(Return() && fchdir(mDirectory) == 0) << strerror(errno);
    }
    close(mBefore);
    close(mDirectory);
  }
  nsMountNamespace(const nsMountNamespace&) = delete;
  nsMountNamespace& operator=(const nsMountNamespace&) = delete;

  /// False when this process has no right to one.
  bool IsUsable() const { return mUsable; }

 private:
  // The kernel lets a thread change its mounts only while no other one shares its root and working
  // directory, which threads of a running host do.
  bool Return() const {
    (void)unshare(CLONE_FS);
    const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (setns(mBefore, CLONE_NEWNS) != 0) {
      if (errno != EINVAL || std::chrono::steady_clock::now() > patience) return false;
      std::this_thread::yield();
    }
    return true;
  }

  const int mBefore = open("/proc/thread-self/ns/mnt", O_RDONLY | O_CLOEXEC);
  const int mDirectory = open(".", O_PATH | O_CLOEXEC);
  bool mEntered = false;
  bool mUsable = false;
};

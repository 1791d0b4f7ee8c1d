#include "nsMountNamespace.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

nsMountNamespace::nsMountNamespace()
    : mBefore(open("/proc/thread-self/ns/mnt", O_RDONLY | O_CLOEXEC)),
      mDirectory(open(".", O_PATH | O_CLOEXEC)) {
  mEntered = mBefore >= 0 && unshare(CLONE_NEWNS) == 0;
  mUsable = mEntered && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

nsMountNamespace::~nsMountNamespace() {
  if (mEntered) {
    EXPECT_TRUE(Return() && fchdir(mDirectory) == 0) << strerror(errno);
  }
  close(mBefore);
  close(mDirectory);
}

bool nsMountNamespace::Return() const {
  (void)unshare(CLONE_FS);
  const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (setns(mBefore, CLONE_NEWNS) != 0) {
    if (errno != EINVAL || std::chrono::steady_clock::now() > patience) return false;
    std::this_thread::yield();
  }
  return true;
}

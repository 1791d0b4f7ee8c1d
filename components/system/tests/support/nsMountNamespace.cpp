#include "nsMountNamespace.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/loop.h>
#include <sched.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
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

nsLoopDevice::nsLoopDevice(const std::string& aFile) {
  const int file = open(aFile.c_str(), O_RDWR | O_CLOEXEC);
  const int control = open("/dev/loop-control", O_RDWR | O_CLOEXEC);
  for (int tries = 0; file >= 0 && control >= 0 && mFd < 0 && tries < 8; ++tries) {
    mNode = "/dev/loop" + std::to_string(ioctl(control, LOOP_CTL_GET_FREE));
    mFd = open(mNode.c_str(), O_RDWR | O_CLOEXEC);
    loop_config config{};
    config.fd = static_cast<uint32_t>(file);
    config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
    if (mFd >= 0 && ioctl(mFd, LOOP_CONFIGURE, &config) != 0) {
      close(mFd);
      mFd = -1;  // somebody else was quicker
    }
  }
  close(file);
  close(control);
}

nsLoopDevice::~nsLoopDevice() { close(mFd); }

bool nsLoopDevice::Format(const std::string& aFile) {
  std::ofstream(aFile).close();
  std::filesystem::resize_file(aFile, 4 << 20);
  const char* arguments[] = {"mkfs.ext4", "-q", "-F", aFile.c_str(), nullptr};
  pid_t child;
  int status = -1;
  return posix_spawnp(&child, arguments[0], nullptr, nullptr, const_cast<char**>(arguments),
                      environ) == 0 &&
         waitpid(child, &status, 0) == child && status == 0;
}

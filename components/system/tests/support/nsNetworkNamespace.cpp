#include "nsNetworkNamespace.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <thread>

nsNetworkNamespace::nsNetworkNamespace()
    : mBefore(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC)) {
  mEntered = mMounts.IsUsable() && mBefore >= 0 && unshare(CLONE_NEWNET) == 0;
  if (!mEntered)
    mLacks = "no right to a network namespace of its own";
  else if (mount("sysfs", "/sys", "sysfs", 0, nullptr) != 0)
    mLacks = "no right to mount the sysfs of a namespace";
  else if (!TryIp("link add probe0 type veth peer name probe1"))
    mLacks = "no virtual wires, or no program ip";
  else
    (void)TryIp("link del probe0");
}

nsNetworkNamespace::~nsNetworkNamespace() {
  if (mEntered) {
    EXPECT_EQ(setns(mBefore, CLONE_NEWNET), 0);
  }
  close(mBefore);
}

void nsNetworkNamespace::Ip(const std::string& aArguments) const {
  ASSERT_TRUE(TryIp(aArguments)) << "ip " << aArguments;
}

void nsNetworkNamespace::SetUp(const std::string& aLink, bool aUp) const {
  Ip("link set " + aLink + (aUp ? " up" : " down"));
  const std::string wanted = aUp ? "up" : "down";
  const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  std::string state;
  while (state != wanted && std::chrono::steady_clock::now() < patience) {
    std::ifstream("/sys/class/net/" + aLink + "/operstate") >> state;
    std::this_thread::yield();
  }
  EXPECT_EQ(state, wanted) << aLink;
}

void nsNetworkNamespace::AddWire(const std::string& aName, const std::string& aMac) const {
  Ip("link add " + aName + " address " + aMac + " type veth peer name " + aName + "x");
  Ip("link set " + aName + "x up");
  SetUp(aName);
}

std::string nsNetworkNamespace::AskIp(const std::string& aArguments) const {
  std::string text;
  if (FILE* pipe = popen(("ip " + aArguments).c_str(), "r")) {
    char buffer[4096];
    while (const size_t got = fread(buffer, 1, sizeof buffer, pipe)) text.append(buffer, got);
    pclose(pipe);
  }
  return text;
}

bool nsNetworkNamespace::TryIp(const std::string& aArguments) {
  return system(("ip " + aArguments + " 2>/dev/null").c_str()) == 0;
}

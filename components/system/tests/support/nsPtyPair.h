// A pseudo terminal: a serial line with a peer that a test plays.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include "nsUniqueFd.h"

class nsPtyPair {
 public:
  nsPtyPair() : mMaster(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {
    EXPECT_TRUE(mMaster) << "no pseudo terminal to be had";
    EXPECT_EQ(grantpt(mMaster.get()), 0);
    EXPECT_EQ(unlockpt(mMaster.get()), 0);
    char name[64];
    EXPECT_EQ(ptsname_r(mMaster.get(), name, sizeof name), 0);
    mDevice = name;
    // Held open, so that the line outlives its user; a hang-up would be the end of it.
    mKept = nsUniqueFd(open(name, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  }

  /// The line's device.
  const std::string& Device() const { return mDevice; }
  int Master() const { return mMaster.get(); }

  /// The peer sends all of it.
  void Say(std::string_view aBytes) {
    while (!aBytes.empty()) {
      const ssize_t length = write(mMaster.get(), aBytes.data(), aBytes.size());
      if (length > 0)
        aBytes.remove_prefix(static_cast<size_t>(length));
      else
        Wait(POLLOUT);
    }
  }
  /// What the peer has got, as soon as it is that many bytes.
  std::string Hear(size_t aCount) {
    std::string bytes;
    while (bytes.size() < aCount) {
      char buffer[65536];
      const ssize_t length =
          read(mMaster.get(), buffer, std::min(sizeof buffer, aCount - bytes.size()));
      if (length > 0)
        bytes.append(buffer, static_cast<size_t>(length));
      else if (!Wait(POLLIN))
        break;
    }
    return bytes;
  }
  /// The device is pulled out.
  void Unplug() {
    (void)mKept.Close();
    (void)mMaster.Close();
  }

 private:
  bool Wait(short aEvents) {
    pollfd fd = {mMaster.get(), aEvents, 0};
    const int count = poll(&fd, 1, 20000);
    EXPECT_GT(count, 0) << "the line is silent";
    return count > 0;
  }

  nsUniqueFd mMaster, mKept;
  std::string mDevice;
};

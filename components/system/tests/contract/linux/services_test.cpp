// The services' ports of this system, for their contract suites.
#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "../nsServicesContract.h"
#include "nsLinuxClock.h"
#include "nsLinuxHost.h"
#include "nsLinuxTimeZones.h"
#include "nsLinuxWatchdog.h"
#include "nsTemporaryDirectory.h"

namespace {

constexpr char kZoneData[] = "/usr/share/zoneinfo";

// The system's clock, which is read only, and its zones below a root of the test's own.
class NativeClock final : public nsClockMachine {
 public:
  NativeClock() {
    std::filesystem::create_directories(mRoot / "etc");
    std::filesystem::create_directories(mRoot / "usr/share");
    std::filesystem::create_directory_symlink(kZoneData, mRoot / "usr/share/zoneinfo");
  }
  std::string Lacks() override {
    return std::filesystem::exists(std::string(kZoneData) + "/Europe/Berlin")
               ? ""
               : "there is no zone data on this system";
  }
  nsPlatformClock& Clock() override { return mClock; }
  nsPlatformTimeZones& Zones() override { return mZones; }
  // On a thread that has given the capability up for good.
  bool WithoutTheRight(const std::function<void()>& aCall) override {
    bool given = false;
    std::thread([&] {
      __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
      __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3]{};
      if (syscall(SYS_capget, &header, sets) != 0) return;
      sets[0].effective &= ~(1u << CAP_SYS_TIME);
      sets[0].permitted &= ~(1u << CAP_SYS_TIME);
      given = syscall(SYS_capset, &header, sets) == 0;
      if (given) aCall();
    }).join();
    return given;
  }

 private:
  nsTemporaryDirectory mRoot;
  nsLinuxClock mClock{mRoot.Path().string()};
  nsLinuxTimeZones mZones{mRoot.Path().string()};
};

class NativeHost final : public nsHostMachine {
 public:
  nsPlatformHost& Host() override { return mHost; }
  void Expect(const std::string&, std::optional<int32_t>) override {}  // the shell knows

 private:
  nsLinuxHost mHost;
};

class NativeWatchdog final : public nsWatchdogMachine {
 public:
  nsPlatformWatchdog& Watchdog() override { return mWatchdog; }
  void PassUntilFired(uint32_t, std::atomic<uint32_t>& aFired) override {
    // It may have fired already; whoever starts the next round knows how often.
    aFired.wait(mSeen);
    mSeen = aFired;
  }

 private:
  nsLinuxWatchdog mWatchdog;
  uint32_t mSeen = 0;
};

INSTANTIATE_TEST_SUITE_P(
    Linux, ClockContract,
    testing::Values(NS_ContractBackend<nsClockMachine, NativeClock>("machine")));
INSTANTIATE_TEST_SUITE_P(Linux, HostContract,
                         testing::Values(NS_ContractBackend<nsHostMachine, NativeHost>("machine")));
INSTANTIATE_TEST_SUITE_P(
    Linux, WatchdogContract,
    testing::Values(NS_ContractBackend<nsWatchdogMachine, NativeWatchdog>("machine")));

}  // namespace

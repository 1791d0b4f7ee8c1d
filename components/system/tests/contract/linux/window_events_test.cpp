// Mounts of a namespace and a display server of the test's own, for the contract suite.
#include <sys/mount.h>

#include <algorithm>
#include <filesystem>

#include "../nsWindowEventsContract.h"
#include "nsDisplayHand.h"
#include "nsDisplayServer.h"
#include "nsLinuxDisplays.h"
#include "nsLinuxVolumes.h"
#include "nsLinuxWindowEvents.h"
#include "nsMountNamespace.h"
#include "nsSimulatedMachine.h"

namespace {

class NativeMachine final : public nsWindowEventsMachine {
 public:
  NativeMachine() {
    // As the manager does at its start.
    uint32_t mask = 0;
    (void)mVolumes->ReadDriveMask(&mask);
    nsDisplayDevice card;
    (void)mDisplays->ReadDevice("", 0, 1, &card);
  }
  std::string Lacks() override {
    return mMounts.IsUsable() ? "" : "no right to a mount namespace of its own";
  }
  nsPlatformWindowEvents& Port() override { return *mEvents; }
  void Insert(const std::string& aName) override {
    const std::string place = mDirectory / aName;
    std::filesystem::create_directories(place);
    ASSERT_EQ(mount("none", place.c_str(), "tmpfs", 0, "size=64k"), 0) << strerror(errno);
  }
  void Remove(const std::string& aName) override {
    ASSERT_EQ(umount((mDirectory / aName).c_str()), 0) << strerror(errno);
  }
  bool ChangeDisplays() override {
    if (mServer->Name().empty()) return false;
    // What nobody has looked at yet does not change for anybody.
    nsDisplayDevice device;
    EXPECT_EQ(mDisplays->ReadDevice("", 0, 0, &device), NS_OK);
    nsDisplayHand().AddMode(0, 500, 400);
    return true;
  }

 private:
  const nsTemporaryDirectory mDirectory;
  const nsMountNamespace mMounts;
  const std::unique_ptr<nsDisplayServer> mServer = nsDisplayServer::StartXvfb();
  const nsSimulatedMachine mMachine;  // has the store
  const std::shared_ptr<nsLinuxVolumes> mVolumes = std::make_shared<nsLinuxVolumes>();
  const std::shared_ptr<nsLinuxDisplays> mDisplays =
      std::make_shared<nsLinuxDisplays>(mMachine.mRegistry);
  const std::shared_ptr<nsLinuxWindowEvents> mEvents =
      std::make_shared<nsLinuxWindowEvents>(mVolumes, mDisplays);
};

INSTANTIATE_TEST_SUITE_P(
    Linux, WindowEventsContract,
    testing::Values(NS_ContractBackend<nsWindowEventsMachine, NativeMachine>("machine")));

}  // namespace

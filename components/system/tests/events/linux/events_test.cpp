// Device events of a real kernel: mounts in a namespace of the test's own.
#include <sys/mount.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <set>
#include <thread>

#include "nsIFile.h"
#include "nsISystemAdapterStorage.h"
#include "nsIThread.h"
#include "nsLinuxVolumes.h"
#include "nsLinuxWindowEvents.h"
#include "nsMountNamespace.h"
#include "nsSystemTest.h"
#include "nsTemporaryDirectory.h"
#include "nsVorelMethodCaller.h"

namespace {

using Message = nsWindowMessage;

/// The machine's volumes, those of memory and of files being sticks: nothing else can be plugged in
/// here.
class Sticks final : public nsLinuxVolumes {
 public:
  nsresult ReadDriveKind(char aLetter, uint32_t* aKind) override {
    const nsresult rv = nsLinuxVolumes::ReadDriveKind(aLetter, aKind);
    if (NS_SUCCEEDED(rv))
      *aKind = *aKind == kDriveRamDisk || *aKind == kDriveUnknown ? uint32_t{kDriveRemovable}
               : *aKind == kDriveNoRootDirectory                  ? *aKind
                                                                  : uint32_t{kDriveRamDisk};
    return rv;
  }
};

class LinuxEventsTest : public nsSystemTest {
 protected:
  void SetUp() override {
    if (!mNamespace.IsUsable()) GTEST_SKIP() << "no right to a mount namespace here";
    // Whatever this machine has mounted of memory is no stick of the test's.
    for (const char* path : {"/dev/shm", "/run/lock"}) (void)umount2(path, MNT_DETACH);
    StartHost();
    auto platform = std::make_shared<nsPlatform>(*mMachine.Platform());
    platform->mVolumes = mVolumes;
    platform->mWindowEvents = std::make_shared<nsLinuxWindowEvents>(mVolumes, mMachine.mDisplays);
    mManager = MakeRefCounted<nsSystemManager>(platform);
    ASSERT_EQ(mManager->ExploreVolumes(), NS_OK);
    mBefore = Roots();
  }
  void TearDown() override {
    if (mManager) (void)mManager->Observe(nullptr, "xpcom-shutdown", nullptr);
    mManager = nullptr;
    for (const std::string& place : mPlaces) (void)umount2(place.c_str(), MNT_DETACH);
  }
  std::string Place(int aNumber) {
    const std::string place = mDirectory / std::to_string(aNumber);
    (void)mkdir(place.c_str(), 0700);
    mPlaces.insert(place);
    return place;
  }
  static void Mount(const std::string& aPlace) {
    ASSERT_EQ(mount("stick", aPlace.c_str(), "tmpfs", 0, "size=64k"), 0) << strerror(errno);
  }
  static void Unmount(const std::string& aPlace) { ASSERT_EQ(umount(aPlace.c_str()), 0); }
  std::multiset<std::string> Roots() {
    nsCOMPtr<nsIArray> adapters;
    EXPECT_EQ(mManager->GetAdaptersByIId(nsISystemAdapterStorage::kIID, adapters.getter_AddRefs()),
              NS_OK);
    std::multiset<std::string> roots;
    for (const auto& adapter : NS_Elements<nsISystemAdapterStorage>(adapters.get())) {
      nsCOMPtr<nsIFile> directory;
      EXPECT_EQ(adapter->GetDirectory(directory.getter_AddRefs()), NS_OK);
      roots.insert(NS_TextOf(directory, &nsIFile::GetPath));
    }
    return roots;
  }
  // Runs the main thread until the adapters are those, and a little further.
  void RunUntil(std::multiset<std::string> aRoots) {
    aRoots.insert(mBefore.begin(), mBefore.end());
    nsCOMPtr<nsIThread> main;
    ASSERT_EQ(NS_GetMainThread(main.getter_AddRefs()), NS_OK);
    const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (Roots() != aRoots && std::chrono::steady_clock::now() < patience) {
      bool ran = false;
      ASSERT_EQ(main->ProcessNextEvent(false, &ran), NS_OK);
      if (!ran) std::this_thread::yield();
    }
    EXPECT_EQ(Roots(), aRoots);
  }

  const nsMountNamespace mNamespace;
  const nsTemporaryDirectory mDirectory;
  std::set<std::string> mPlaces;
  std::multiset<std::string> mBefore;
  int mWindow = 0;
  const std::shared_ptr<Sticks> mVolumes = std::make_shared<Sticks>();
  nsCOMPtr<nsSystemManager> mManager;
};

TEST_F(LinuxEventsTest, MountIsMissedOrStaysWhenItIsGone) {
  // One that comes after the volumes were explored, and before the window is there.
  Mount(Place(0));
  ASSERT_EQ(mManager->SubclassWindow(&mWindow), NS_OK);
  RunUntil({Place(0)});
  Mount(Place(1));
  RunUntil({Place(0), Place(1)});
  Unmount(Place(0));
  RunUntil({Place(1)});
  std::multiset<std::string> ten;
  for (int i = 10; i < 20; ++i) ten.insert(Place(i));
  for (const std::string& place : ten) Mount(place);
  ten.insert(Place(1));
  RunUntil(ten);
  for (const std::string& place : ten) Unmount(place);
  RunUntil({});
}

TEST_F(LinuxEventsTest, VolumeThatMovesLeavesItsOldAdapter) {
  ASSERT_EQ(mManager->SubclassWindow(&mWindow), NS_OK);
  Mount(Place(0));
  RunUntil({Place(0)});
  ASSERT_EQ(mount(Place(0).c_str(), Place(1).c_str(), nullptr, MS_MOVE, nullptr), 0)
      << strerror(errno);
  RunUntil({Place(1)});
}

// Disks of files: one comes and goes, then ten at once.
TEST_F(LinuxEventsTest, ImageIsMissedOrStaysWhenItIsGone) {
  if (!nsLoopDevice::Format(mDirectory / "image")) GTEST_SKIP() << "no mkfs.ext4 here";
  ASSERT_EQ(mManager->SubclassWindow(&mWindow), NS_OK);
  const auto mountImage = [&](int aNumber) {
    const std::string image = mDirectory / ("image" + std::to_string(aNumber));
    std::filesystem::copy_file(mDirectory / "image", image);
    const nsLoopDevice device(image);
    return device.Works() &&
           mount(device.Node().c_str(), Place(aNumber).c_str(), "ext4", 0, nullptr) == 0;
  };
  if (!mountImage(0)) GTEST_SKIP() << "this kernel does not mount ext4 from a file";
  RunUntil({Place(0)});
  Unmount(Place(0));
  RunUntil({});
  std::multiset<std::string> ten;
  for (int i = 1; i <= 10; ++i) {
    ASSERT_TRUE(mountImage(i)) << strerror(errno);
    ten.insert(Place(i));
  }
  RunUntil(ten);
  for (const std::string& place : ten) Unmount(place);
  RunUntil({});
}

// Changes from another thread while the main thread looks; what came and went unseen is no matter.
TEST_F(LinuxEventsTest, StormLeavesStaleOrDoubleAdapters) {
  ASSERT_EQ(mManager->SubclassWindow(&mWindow), NS_OK);
  std::vector<std::string> places;
  for (int i = 0; i < 10; ++i) places.push_back(Place(i));
  std::multiset<std::string> mounted;
  std::atomic<bool> done = false;
  std::thread storm([&] {
    unsigned seed = 7;
    for (int i = 0; i < 2000; ++i) {
      seed = seed * 1103515245 + 12345;
      const std::string& place = places[(seed >> 16) % places.size()];
      if (mounted.contains(place)) {
        Unmount(place);
        mounted.erase(place);
      } else {
        Mount(place);
        mounted.insert(place);
      }
    }
    done = true;
  });
  nsCOMPtr<nsIThread> main;
  ASSERT_EQ(NS_GetMainThread(main.getter_AddRefs()), NS_OK);
  while (!done) {
    bool ran = false;
    ASSERT_EQ(main->ProcessNextEvent(false, &ran), NS_OK);
    if (!ran) std::this_thread::yield();
  }
  storm.join();
  RunUntil(mounted);
}

}  // namespace

// Captured files and mounts of a namespace, for the contract suite.
#include <sys/mount.h>

#include <map>
#include <set>

#include "../nsVolumesContract.h"
#include "nsCapturedTree.h"
#include "nsLinuxVolumes.h"
#include "nsMountNamespace.h"

namespace {

using V = nsPlatformVolumes;

class CapturedMachine final : public nsVolumesMachine {
 public:
  CapturedMachine() { Write(); }
  nsPlatformVolumes& Port() override { return mVolumes; }
  void Insert(const std::string& aName) override {
    const std::string number = std::to_string(++mLast);
    mLines[aName] = number + " 1 0:" + number + " / /media/" + aName + " rw - exfat none rw\n";
    Write();
  }
  void Remove(const std::string& aName) override {
    mLines.erase(aName);
    Write();
  }

 private:
  void Write() {
    std::string table = "1 0 0:1 / / rw - ext4 none rw\n";
    for (const auto& [name, line] : mLines) table += line;
    mTree.Write("/proc/self/mountinfo", table);
  }
  nsCapturedTree mTree;
  std::map<std::string, std::string> mLines;
  int mLast = 10;
  nsLinuxVolumes mVolumes{mTree.Root()};
};

class NativeMachine final : public nsVolumesMachine {
 public:
  std::string Lacks() override {
    return mMounts.IsUsable() ? "" : "no right to a mount namespace of its own";
  }
  nsPlatformVolumes& Port() override { return mVolumes; }
  std::string Place(const std::string& aName) {
    std::filesystem::create_directories(mPlaces.Root() + "/" + aName);
    return mPlaces.Root() + "/" + aName;
  }
  void Insert(const std::string& aName) override {
    ASSERT_EQ(mount("none", Place(aName).c_str(), "tmpfs", 0, "size=64k"), 0) << strerror(errno);
  }
  void Remove(const std::string& aName) override { ASSERT_EQ(umount(Place(aName).c_str()), 0); }

 private:
  nsCapturedTree mPlaces;
  const nsMountNamespace mMounts;
  nsLinuxVolumes mVolumes;
};

INSTANTIATE_TEST_SUITE_P(
    Linux, VolumesContract,
    testing::Values(NS_ContractBackend<nsVolumesMachine, CapturedMachine>("captured"),
                    NS_ContractBackend<nsVolumesMachine, NativeMachine>("mounts")));

TEST(NativeVolumes, ImageIsAcceptedOrTakesALetterTwice) {
  NativeMachine machine;
  if (!machine.Lacks().empty()) GTEST_SKIP() << machine.Lacks();
  nsCapturedTree files;
  if (!nsLoopDevice::Format(files.Root() + "/image")) GTEST_SKIP() << "no mkfs.ext4 here";
  uint32_t before = 0;
  ASSERT_TRUE(NS_SUCCEEDED(machine.Port().ReadDriveMask(&before)));
  std::set<char> letters;
  for (int round = 0; round < 3; ++round) {
    const std::string place = machine.Place("image");
    {
      nsLoopDevice device(files.Root() + "/image");
      if (!device.Works()) GTEST_SKIP() << "no loop device here";
      if (mount(device.Node().c_str(), place.c_str(), "ext4", 0, nullptr) != 0)
        GTEST_SKIP() << "this kernel does not mount ext4 from a file";
    }
    uint32_t mask = 0;
    ASSERT_TRUE(NS_SUCCEEDED(machine.Port().ReadDriveMask(&mask)));
    const uint32_t added = mask & ~before;
    ASSERT_EQ(__builtin_popcount(added), 1);
    const char letter = static_cast<char>('A' + __builtin_ctz(added));
    EXPECT_TRUE(letters.insert(letter).second) << "given twice: " << letter;
    uint32_t kind = 99;
    std::string root;
    V::VolumeHandle volume;
    uint8_t bus = 99;
    V::VolumeInformation information;
    EXPECT_EQ(machine.Port().ReadDriveKind(letter, &kind), NS_OK);
    EXPECT_EQ(kind, V::kDriveUnknown);
    EXPECT_EQ(machine.Port().ReadRootDirectory(letter, &root), NS_OK);
    EXPECT_EQ(root, place);
    EXPECT_EQ(machine.Port().ReadVolumeInformation(letter, &information), NS_OK);
    EXPECT_EQ(information.mFileSystemName, "ext4");
    EXPECT_EQ(machine.Port().OpenVolume(letter, &volume), NS_OK);
    EXPECT_EQ(machine.Port().ReadBusType(volume, &bus), NS_OK);
    EXPECT_EQ(bus, V::kBusFileBackedVirtual);
    ASSERT_EQ(umount(place.c_str()), 0) << "an open volume must not keep it";
    ASSERT_TRUE(NS_SUCCEEDED(machine.Port().ReadDriveMask(&mask)));
    EXPECT_EQ(mask, before);
  }
}

}  // namespace

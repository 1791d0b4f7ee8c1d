// The Linux backend on captured machines: what is a volume, of which kind, on which bus, by which
// letter.
#include "nsLinuxVolumes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <ostream>

#include "nsCapturedTree.h"
#include "nsMutation.h"

namespace {

using V = nsPlatformVolumes;
constexpr int kNoBus = -1;

struct Seen {
  std::string mRoot;
  uint32_t mKind;
  int mBus;
  bool operator==(const Seen&) const = default;
};
std::ostream& operator<<(std::ostream& aStream, const Seen& aSeen) {
  return aStream << aSeen.mRoot << " kind " << aSeen.mKind << " bus " << aSeen.mBus;
}
using Picture = std::map<char, Seen>;

Picture Look(nsPlatformVolumes& aVolumes, nsresult aExpected = NS_OK) {
  uint32_t mask = 0;
  EXPECT_EQ(aVolumes.ReadDriveMask(&mask), aExpected);
  Picture picture;
  for (char letter = 'A'; letter <= 'Z'; ++letter) {
    if (!(mask >> (letter - 'A') & 1)) continue;
    Seen seen{"", 99, kNoBus};
    uint8_t bus;
    V::VolumeHandle volume;
    EXPECT_EQ(aVolumes.ReadRootDirectory(letter, &seen.mRoot), NS_OK);
    EXPECT_EQ(aVolumes.ReadDriveKind(letter, &seen.mKind), NS_OK);
    EXPECT_EQ(aVolumes.OpenVolume(letter, &volume), NS_OK);
    if (NS_SUCCEEDED(aVolumes.ReadBusType(volume, &bus))) seen.mBus = bus;
    picture[letter] = seen;
  }
  return picture;
}

char LetterOf(const Picture& aPicture, const std::string& aRoot) {
  for (const auto& [letter, seen] : aPicture)
    if (seen.mRoot == aRoot) return letter;
  return 0;
}

struct LinuxVolumes : testing::Test {
  // A line in the mount table; number 1 is the root.
  void Mount(unsigned aId, const std::string& aNumber, const std::string& aPoint,
             const std::string& aTypeAndSource) {
    mTable += std::to_string(aId) + (aId == 1 ? " 0 " : " 1 ") + aNumber + " / " + aPoint +
              " rw - " + aTypeAndSource + " rw\n";
    mTree.Write("/proc/self/mountinfo", mTable);
  }
  void Unmount(const std::string& aPoint) {
    const size_t at = mTable.rfind('\n', mTable.find(" " + aPoint + " ")) + 1;
    mTable.erase(at, mTable.find('\n', at) + 1 - at);
    mTree.Write("/proc/self/mountinfo", mTable);
  }
  // A stick without partitions; the sequence tells one medium from the next.
  void PlugStick(unsigned aMinor, const std::string& aSequence) {
    const std::string minor = std::to_string(aMinor), port = "usb1/1-" + minor;
    mTree.Add("/sys\n  dev/block/8:" + minor + " -> ../../devices/" + port + "/block/sd" + minor +
              "\n  devices/" + port + "\n    subsystem -> ../../../bus/usb\n    block/sd" + minor +
              "\n      removable = 1\n      diskseq = " + aSequence + "\n");
  }

  nsCapturedTree mTree;
  std::string mTable;
};

TEST_F(LinuxVolumes, DriveOfTheKioskIsTakenForAnother) {
  mTree.AddFile("volumes/kiosk.tree");
  nsLinuxVolumes volumes(mTree.Root());
  const Picture expected = {
      {'C', {"/", V::kDriveFixed, V::kBusSata}},
      {'D', {"/var/lib/player", V::kDriveFixed, V::kBusSata}},
      {'E', {"/media/CONTENT 2", V::kDriveRemovable, V::kBusUsb}},
      {'F', {"/media/archive", V::kDriveFixed, V::kBusUsb}},
      {'G', {"/media/exchange", V::kDriveFixed, V::kBusUsb}},
      {'H', {"/run", V::kDriveRamDisk, kNoBus}},
      {'I', {"/dev/shm", V::kDriveRamDisk, kNoBus}},
      {'J', {"/mnt/share", V::kDriveRemote, kNoBus}},
      {'K', {"/media/cdrom", V::kDriveCdRom, V::kBusAtapi}},
  };
  EXPECT_EQ(Look(volumes), expected);

  V::VolumeInformation information;
  ASSERT_EQ(volumes.ReadVolumeInformation('E', &information), NS_OK);
  EXPECT_EQ(information.mLabel, "CONTENT 2");
  EXPECT_EQ(information.mSerialNumber, 0x1A2BC3D4u);
  EXPECT_EQ(information.mFileSystemName, "vfat");
  ASSERT_EQ(volumes.ReadVolumeInformation('G', &information), NS_OK);
  EXPECT_EQ(information.mFileSystemName, "ntfs") << "not the way it is driven";
  EXPECT_EQ(information.mSerialNumber, 0xA1B2C3D4u);
  ASSERT_EQ(volumes.ReadVolumeInformation('C', &information), NS_OK);
  EXPECT_EQ(information.mSerialNumber, 0x8A2C1F0Eu);
}

TEST_F(LinuxVolumes, ContainerFileMountIsTakenForAVolume) {
  mTree.AddFile("volumes/container.tree");
  nsLinuxVolumes volumes(mTree.Root());
  const Picture expected = {
      {'C', {"/", V::kDriveUnknown, kNoBus}},
      {'D', {"/content", V::kDriveFixed, V::kBusVirtual}},
      {'E', {"/dev", V::kDriveRamDisk, kNoBus}},
      {'F', {"/nothing", V::kDriveRamDisk, kNoBus}},
  };
  EXPECT_EQ(Look(volumes), expected);
}

TEST_F(LinuxVolumes, ComposedOrHiddenOrPulledVolumeIsWrong) {
  mTree.AddFile("volumes/workshop.tree");
  nsLinuxVolumes volumes(mTree.Root());
  const Picture expected = {
      {'C', {"/", V::kDriveFixed, V::kBusNvme}},
      {'D', {"/mnt/auto", V::kDriveRemovable, V::kBusUsb}},
      {'E', {"/media/vault", V::kDriveFixed, V::kBusUsb}},
      {'F', {"/srv/pool", V::kDriveFixed, V::kBusRaid}},
      {'G', {"/boot", V::kDriveFixed, V::kBusMmc}},
      {'H', {"/media/card", V::kDriveRemovable, V::kBusSd}},
      {'I', {"/media/reader", V::kDriveRemovable, V::kBusUsb}},
      {'J', {"/media/covered", V::kDriveRamDisk, kNoBus}},
      {'K', {"/opt/image", V::kDriveUnknown, V::kBusFileBackedVirtual}},
      {'L', {"/home/tech/remote", V::kDriveRemote, kNoBus}},
      {'M', {"/var/swapfs", V::kDriveRamDisk, kNoBus}},
  };
  EXPECT_EQ(Look(volumes), expected);
}

// A memory card behind a controller of its own, with one partition.
void AddCard(nsCapturedTree& aTree, const std::string& aNumber, const std::string& aType,
             const std::string& aMore = "") {
  const std::string slot = "platform/slot" + aNumber + "/mmc_host/mmc" + aNumber + "/card";
  const std::string disk = slot + "/block/mmcblk" + aNumber;
  aTree.Add("/sys\n  dev/block/179:" + aNumber + " -> ../../devices/" + disk + "/p1\n  devices/" +
            slot + "\n    subsystem -> ../../../../../../bus/mmc\n    type = " + aType + "\n" +
            aMore + "  devices/" + disk + "\n    removable = 0\n    p1/partition = 1\n");
}

TEST_F(LinuxVolumes, ACardThatCanBeTakenOutIsFixedOrOneThatCannotIsRemovable) {
  AddCard(mTree, "1", "SD");
  AddCard(mTree, "2", "SD");
  AddCard(mTree, "3", "MMC");
  AddCard(mTree, "4", "SD", "    removable = fixed\n");
  AddCard(mTree, "5", "MMC", "    removable = removable\n");
  Mount(1, "179:1", "/", "ext4 /dev/mmcblk1p1");
  for (const char* number : {"2", "3", "4", "5"})
    Mount(10 + static_cast<unsigned>(number[0] - '0'), "179:" + std::string(number),
          "/media/" + std::string(number), "vfat card");
  nsLinuxVolumes volumes(mTree.Root());
  const Picture expected = {
      {'C', {"/", V::kDriveFixed, V::kBusSd}},
      {'D', {"/media/2", V::kDriveRemovable, V::kBusSd}},
      {'E', {"/media/3", V::kDriveFixed, V::kBusMmc}},
      {'F', {"/media/4", V::kDriveFixed, V::kBusSd}},
      {'G', {"/media/5", V::kDriveRemovable, V::kBusMmc}},
  };
  EXPECT_EQ(Look(volumes), expected);
  // The partition with the kernel lies on the card of an overlay's root.
  Unmount("/");
  Unmount("/media/2");
  Mount(1, "0:30", "/", "overlay overlay");
  Mount(30, "179:2", "/boot/firmware", "vfat card");
  nsLinuxVolumes other(mTree.Root());
  const Picture picture = Look(other);
  EXPECT_EQ(picture.at(LetterOf(picture, "/boot/firmware")).mKind, uint32_t{V::kDriveFixed});
}

TEST_F(LinuxVolumes, AVolumeThatHasMovedKeepsItsLetterAndItsAdapterTheOldDirectory) {
  Mount(1, "0:30", "/", "overlay overlay");
  PlugStick(1, "5");
  Mount(2, "8:1", "/media/one", "vfat /dev/sd1");
  nsLinuxVolumes volumes(mTree.Root());
  EXPECT_EQ(LetterOf(Look(volumes), "/media/one"), 'D');
  Mount(3, "8:1", "/media/two", "vfat /dev/sd1");
  EXPECT_EQ(LetterOf(Look(volumes), "/media/one"), 'D') << "it stays where it was";
  Unmount("/media/one");
  EXPECT_EQ(LetterOf(Look(volumes), "/media/two"), 'E') << "the first mount has gone";
  std::string gone;
  EXPECT_EQ(volumes.ReadRootDirectory('D', &gone), NS_OK);
  EXPECT_EQ(gone, "/media/one") << "by which its adapter is found";
  Unmount("/media/two");
  Mount(4, "8:1", "/media/three", "vfat /dev/sd1");
  EXPECT_EQ(LetterOf(Look(volumes), "/media/three"), 'F') << "mounted elsewhere";
}

TEST_F(LinuxVolumes, LetterIsGivenAgainAtOnceOrChangesWithItsVolume) {
  Mount(1, "0:30", "/", "overlay overlay");
  PlugStick(1, "5");
  Mount(11, "8:1", "/media/a", "vfat /dev/sd1");
  nsLinuxVolumes volumes(mTree.Root());
  EXPECT_EQ(LetterOf(Look(volumes), "/media/a"), 'D');

  PlugStick(2, "6");
  Mount(12, "8:2", "/media/b", "vfat /dev/sd2");
  EXPECT_EQ(LetterOf(Look(volumes), "/media/b"), 'E');

  Unmount("/media/a");
  Mount(13, "8:1", "/media/other", "vfat /dev/sd1");
  EXPECT_EQ(LetterOf(Look(volumes), "/media/other"), 'F') << "as good as another one";
  Unmount("/media/other");
  EXPECT_EQ(Look(volumes).size(), 2u);
  std::string root;
  EXPECT_EQ(volumes.ReadRootDirectory('F', &root), NS_OK);
  EXPECT_EQ(root, "/media/other") << "who hears of the removal still needs it";
  Mount(14, "8:1", "/media/a", "vfat /dev/sd1");
  Picture picture = Look(volumes);
  EXPECT_EQ(LetterOf(picture, "/media/a"), 'G');
  EXPECT_EQ(LetterOf(picture, "/media/b"), 'E');

  // Round and round: every other letter is used before one is used again, and the two others keep
  // theirs.
  std::string given;
  for (int i = 0; i < 30; ++i) {
    Unmount("/media/a");
    (void)Look(volumes);
    Mount(14, "8:1", "/media/a", "vfat /dev/sd1");
    picture = Look(volumes);
    given += LetterOf(picture, "/media/a");
    EXPECT_EQ(LetterOf(picture, "/media/b"), 'E');
    EXPECT_EQ(LetterOf(picture, "/"), 'C');
  }
  EXPECT_EQ(given, "HIJKLMNOPQRSTUVWXYZDFGHIJKLMNO");
}

// The other stick has the same number, node and place: only the sequence of media tells.
TEST_F(LinuxVolumes, StickChangedBetweenTwoLooksKeepsTheLetter) {
  PlugStick(1, "5");
  Mount(11, "8:1", "/media/a", "vfat /dev/sd1");
  nsLinuxVolumes volumes(mTree.Root());
  EXPECT_EQ(LetterOf(Look(volumes), "/media/a"), 'C');
  V::VolumeHandle first;
  ASSERT_EQ(volumes.OpenVolume('C', &first), NS_OK);
  mTree.Write("/sys/devices/usb1/1-1/block/sd1/diskseq", "6\n");
  EXPECT_EQ(LetterOf(Look(volumes), "/media/a"), 'D');
  uint8_t bus = 99;
  EXPECT_EQ(volumes.ReadBusType(first, &bus), NS_ERROR_NOT_AVAILABLE);
}

TEST_F(LinuxVolumes, DeviceThatGoesWhileBeingAddedIsOpened) {
  PlugStick(1, "5");
  Mount(11, "8:1", "/media/a", "vfat /dev/sd1");
  nsLinuxVolumes volumes(mTree.Root());
  ASSERT_EQ(LetterOf(Look(volumes), "/media/a"), 'C');
  std::filesystem::remove_all(mTree.Root() + "/sys/devices/usb1");
  std::filesystem::remove(mTree.Root() + "/sys/dev/block/8:1");
  V::VolumeHandle volume;
  EXPECT_EQ(volumes.OpenVolume('C', &volume), NS_ERROR_NOT_AVAILABLE);
  EXPECT_TRUE(Look(volumes).empty());
}

TEST_F(LinuxVolumes, ImagesAndMemoryTakeAllLettersFromSticks) {
  Mount(1, "0:30", "/", "overlay overlay");
  for (unsigned i = 0; i < 60; ++i)
    Mount(20 + i, "0:" + std::to_string(100 + i), "/m" + std::to_string(i), "tmpfs tmpfs");
  nsLinuxVolumes volumes(mTree.Root());
  EXPECT_EQ(Look(volumes, NS_SUCCESS_LOSS_OF_INSIGNIFICANT_DATA).size(), 16u);
  for (unsigned i = 1; i <= 9; ++i) {
    PlugStick(i, std::to_string(i));
    Mount(90 + i, "8:" + std::to_string(i), "/media/" + std::to_string(i), "vfat /dev/x");
  }
  const Picture picture = Look(volumes, NS_SUCCESS_LOSS_OF_INSIGNIFICANT_DATA);
  EXPECT_EQ(picture.size(), 24u);
  EXPECT_NE(LetterOf(picture, "/media/8"), 0);
  EXPECT_EQ(LetterOf(picture, "/media/9"), 0) << "there are no more letters";
  for (unsigned i = 0; i < 60; ++i) Unmount("/m" + std::to_string(i));
  EXPECT_EQ(LetterOf(Look(volumes, NS_SUCCESS_LOSS_OF_INSIGNIFICANT_DATA), "/media/9"), 0)
      << "who hears of the removals has not asked for the roots yet";
  EXPECT_NE(LetterOf(Look(volumes), "/media/9"), 0);
}

TEST_F(LinuxVolumes, UnreadableTableEmptiesThePicture) {
  nsLinuxVolumes volumes(mTree.Root());
  uint32_t mask = 77;
  EXPECT_EQ(volumes.ReadDriveMask(&mask), NS_ERROR_FAILURE);
  EXPECT_EQ(volumes.ReadDriveKind('C', &mask), NS_ERROR_FAILURE);
  EXPECT_EQ(mask, 77u);
  Mount(1, "0:30", "/", "overlay overlay");
  EXPECT_EQ(volumes.ReadDriveKind('C', &mask), NS_OK);
  std::filesystem::remove(mTree.Root() + "/proc/self/mountinfo");
  EXPECT_EQ(volumes.ReadDriveMask(&mask), NS_ERROR_FAILURE);
  std::string root;
  EXPECT_EQ(volumes.ReadRootDirectory('C', &root), NS_OK);
}

TEST(MountTable, EscapesOrEmptyFieldsAreMisread) {
  const auto mounts = NS_ParseMountTable(
      "36 35 98:0 /a\\040b /m\\011n\\134\\012 rw,noatime master:1 propagate_from:2 - ext3 "
      "/dev/\\043x rw\n"
      "37 35 0:9 / /empty rw -  tmpfs rw\n"  // no type between two spaces is no line of the
                                             // kernel's, but harmless
      "38 35 0:10 / /nosource rw - tmpfs  rw\n"
      "39 35 0:11 / /end\\04 rw - tmpfs \\999 rw");
  ASSERT_EQ(mounts.size(), 4u);
  EXPECT_EQ(mounts[0].mRoot, "/a b");
  EXPECT_EQ(mounts[0].mPoint, "/m\tn\\\n");
  EXPECT_EQ(mounts[0].mSource, "/dev/#x");
  EXPECT_EQ(mounts[0].mMajor, 98u);
  EXPECT_EQ(mounts[2].mType, "tmpfs");
  EXPECT_EQ(mounts[2].mSource, "");
  EXPECT_EQ(mounts[3].mPoint, "/end\\04");
}

TEST(MountTable, BrokenLinesAreTakenForMounts) {
  EXPECT_TRUE(NS_ParseMountTable("").empty());
  EXPECT_TRUE(NS_ParseMountTable("\n \n          \n36 35 98:0 / /m rw - ext3 x\n").size() == 1);
  for (const char* line :
       {"36 35 98:0 / /m rw ext3 /dev/x rw", "x 35 98:0 / /m rw - ext3 /dev/x rw",
        "36 35 98 / /m rw - ext3 /dev/x rw", "36 35 98:0:1 / /m rw - ext3 /dev/x rw",
        "36 99999999999 98:0 / /m rw - ext3 /dev/x rw", "36 35 98:0 / m rw - ext3 /dev/x rw",
        "36 35 98:0 / /m rw - ext3"})
    EXPECT_TRUE(NS_ParseMountTable(line).empty()) << line;
}

TEST(MountTable, LoopOfParentsHangs) {
  EXPECT_EQ(NS_ReachableMounts(
                NS_ParseMountTable("1 2 0:1 / /a rw - tmpfs t rw\n2 1 0:2 / /b rw - tmpfs t rw\n"
                                   "3 3 0:3 / / rw - tmpfs t rw\n"))
                .size(),
            3u);
}

// Mutations of captured machines, links and attributes too: each reading ends, and gives letters to
// volumes only.
TEST_F(LinuxVolumes, HostileFilesCrashTheReader) {
  mTree.AddFile("volumes/workshop.tree");
  mTree.AddFile("volumes/kiosk.tree");
  std::vector<std::string> files;
  std::map<std::string, std::string> texts;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(mTree.Root()))
    if (entry.is_regular_file() && !entry.is_symlink())
      files.push_back(entry.path().string().substr(mTree.Root().size()));
  std::sort(files.begin(), files.end());
  for (const std::string& file : files) texts[file] = mTree.Read(file);

  nsMutation mutation;
  for (int i = 0; i < 600; ++i) {
    const std::string& name = i % 2 ? "/proc/self/mountinfo" : files[mutation.Below(files.size())];
    mTree.Write(name, mutation.Damage(texts[name], " \n:/-\\0="));
    nsLinuxVolumes volumes(mTree.Root());
    uint32_t mask = 0;
    ASSERT_TRUE(NS_SUCCEEDED(volumes.ReadDriveMask(&mask)));
    ASSERT_EQ(mask & 3, 0u);
    for (char letter = 'C'; letter <= 'Z'; ++letter) {
      V::VolumeInformation information;
      ASSERT_EQ(NS_SUCCEEDED(volumes.ReadVolumeInformation(letter, &information)),
                (mask >> (letter - 'A') & 1) == 1);
    }
    mTree.Write(name, texts[name]);
  }
}

}  // namespace

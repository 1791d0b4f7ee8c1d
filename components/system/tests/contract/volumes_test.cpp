// What every backend of the port of volumes keeps to: the simulated one, and the native one on
// captured files and on the machine itself.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/loop.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <set>
#include <thread>

#include "nsCapturedTree.h"
#include "nsLinuxVolumes.h"
#include "nsMountNamespace.h"
#include "nsPlatformVolumes.h"
#include "nsSimulatedMachine.h"

namespace {

using V = nsPlatformVolumes;

// A machine with the port under test, where volumes can be made to come and go.
class Machine {
 public:
  virtual ~Machine() = default;
  /// Why this machine can't be had here; empty when it can.
  virtual std::string Lacks() { return ""; }
  virtual nsPlatformVolumes& Port() = 0;
  /// A volume comes, by this name.
  virtual void Insert(const std::string& aName) = 0;
  virtual void Remove(const std::string& aName) = 0;
};

class SimulatedMachine final : public Machine {
 public:
  nsPlatformVolumes& Port() override { return *mMachine.mVolumes; }
  void Insert(const std::string& aName) override {
    mLetters[aName] = mNext;
    mMachine.mVolumes->Insert(mNext++);
  }
  void Remove(const std::string& aName) override { mMachine.mVolumes->Remove(mLetters[aName]); }

 private:
  nsSimulatedMachine mMachine;
  std::map<std::string, char> mLetters;
  char mNext = 'E';
};

class CapturedMachine final : public Machine {
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

class NativeMachine final : public Machine {
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

struct Backend {
  const char* mName;
  std::function<std::unique_ptr<Machine>()> mMake;
};

class Volumes : public testing::TestWithParam<Backend> {
 protected:
  void SetUp() override {
    mMachine = GetParam().mMake();
    if (const std::string lacks = mMachine->Lacks(); !lacks.empty()) GTEST_SKIP() << lacks;
  }
  V& Port() { return mMachine->Port(); }
  uint32_t Mask() {
    uint32_t mask = 0;
    EXPECT_TRUE(NS_SUCCEEDED(Port().ReadDriveMask(&mask)));
    return mask;
  }
  // The letter that a new volume has got.
  char Insert(const std::string& aName) {
    const uint32_t before = Mask();
    mMachine->Insert(aName);
    const uint32_t added = Mask() & ~before;
    EXPECT_EQ(__builtin_popcount(added), 1) << "one volume, one letter";
    return static_cast<char>('A' + __builtin_ctz(added | 1u << 26));
  }
  std::unique_ptr<Machine> mMachine;
};

TEST_P(Volumes, LetterWithoutAVolumeHasAnything) {
  Insert("a");
  const uint32_t mask = Mask();
  EXPECT_EQ(mask >> 26, 0u);
  for (int c = -128; c < 128; ++c) {
    const char letter = static_cast<char>(c);
    if (letter >= 'A' && letter <= 'Z' && (mask >> (letter - 'A') & 1)) continue;
    uint32_t kind = 99;
    EXPECT_EQ(Port().ReadDriveKind(letter, &kind), NS_OK);
    EXPECT_EQ(kind, V::kDriveNoRootDirectory) << c;
    V::VolumeInformation information{"untouched", 1, 2, "x"};
    V::VolumeHandle volume = 4711;
    std::string root = "untouched";
    EXPECT_EQ(Port().ReadVolumeInformation(letter, &information), NS_ERROR_NOT_AVAILABLE);
    EXPECT_EQ(Port().OpenVolume(letter, &volume), NS_ERROR_NOT_AVAILABLE);
    EXPECT_EQ(Port().ReadRootDirectory(letter, &root), NS_ERROR_NOT_AVAILABLE);
    EXPECT_EQ(information.mLabel + root, "untoucheduntouched");
    EXPECT_EQ(volume, 4711u);
  }
}

TEST_P(Volumes, VolumeLacksAKindOrARoot) {
  const char letter = Insert("a");
  uint32_t kind = 99;
  EXPECT_EQ(Port().ReadDriveKind(letter, &kind), NS_OK);
  EXPECT_NE(kind, V::kDriveNoRootDirectory);
  EXPECT_LE(kind, 6u);
  std::string root;
  ASSERT_EQ(Port().ReadRootDirectory(letter, &root), NS_OK);
  EXPECT_TRUE(root.starts_with('/') && !root.ends_with('/')) << root;
  V::VolumeInformation information;
  ASSERT_EQ(Port().ReadVolumeInformation(letter, &information), NS_OK);
  EXPECT_FALSE(information.mFileSystemName.empty());
  EXPECT_GT(information.mMaximumComponentLength, 0u);
}

TEST_P(Volumes, RemovalDisturbsOthersOrForgetsTheRoot) {
  const char a = Insert("a");
  const char b = Insert("b");
  ASSERT_NE(a, b);
  std::string root, other;
  ASSERT_EQ(Port().ReadRootDirectory(a, &root), NS_OK);
  ASSERT_EQ(Port().ReadRootDirectory(b, &other), NS_OK);
  EXPECT_NE(root, other);
  mMachine->Remove("a");
  const uint32_t mask = Mask();
  EXPECT_FALSE(mask >> (a - 'A') & 1);
  EXPECT_TRUE(mask >> (b - 'A') & 1);
  uint32_t kind = 99;
  EXPECT_EQ(Port().ReadDriveKind(a, &kind), NS_OK);
  EXPECT_EQ(kind, V::kDriveNoRootDirectory);
  std::string still;
  EXPECT_EQ(Port().ReadRootDirectory(a, &still), NS_OK);
  EXPECT_EQ(still, root);
  EXPECT_NE(Insert("c"), a) << "given again at once";
}

TEST_P(Volumes, HandleAnswersForAnotherVolume) {
  uint8_t bus = 99;
  EXPECT_EQ(Port().ReadBusType(0, &bus), NS_ERROR_INVALID_ARG);
  EXPECT_EQ(Port().ReadBusType(UINTPTR_MAX, &bus), NS_ERROR_INVALID_ARG);
  const char letter = Insert("a");
  V::VolumeHandle first = 0, again = 0;
  ASSERT_EQ(Port().OpenVolume(letter, &first), NS_OK);
  ASSERT_EQ(Port().OpenVolume(letter, &again), NS_OK);
  bus = 99;
  mMachine->Remove("a");  // an open volume can be taken away
  Mask();
  mMachine->Insert("a");
  Mask();
  EXPECT_EQ(Port().ReadBusType(first, &bus), NS_ERROR_NOT_AVAILABLE);
  EXPECT_EQ(Port().ReadBusType(again, &bus), NS_ERROR_NOT_AVAILABLE);
  EXPECT_EQ(bus, 99);
}

TEST_P(Volumes, ReadersFromSeveralThreadsRace) {
  Insert("a");
  const auto read = [&] {
    for (int i = 0; i < 50; ++i) {
      uint32_t mask = 0, kind = 0;
      EXPECT_TRUE(NS_SUCCEEDED(Port().ReadDriveMask(&mask)));
      for (char letter = 'A'; letter <= 'Z'; ++letter) {
        std::string root;
        V::VolumeInformation information;
        EXPECT_EQ(Port().ReadDriveKind(letter, &kind), NS_OK);
        (void)Port().ReadRootDirectory(letter, &root);
        (void)Port().ReadVolumeInformation(letter, &information);
      }
    }
  };
  std::thread first(read), second(read);
  first.join();
  second.join();
}

INSTANTIATE_TEST_SUITE_P(, Volumes,
                         testing::Values(Backend{"simulated", std::make_unique<SimulatedMachine>},
                                         Backend{"captured", std::make_unique<CapturedMachine>},
                                         Backend{"native", std::make_unique<NativeMachine>}),
                         [](const auto& aInfo) { return aInfo.param.mName; });

// A file as a disk. The kernel lets go of it when it is unmounted.
class LoopDevice {
 public:
  explicit LoopDevice(const std::string& aFile) {
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
  ~LoopDevice() { close(mFd); }
  bool Works() const { return mFd >= 0; }
  const std::string& Node() const { return mNode; }

 private:
  std::string mNode;
  int mFd = -1;
};

bool Format(const std::string& aFile) {
  std::ofstream(aFile).close();
  std::filesystem::resize_file(aFile, 4 << 20);
  const char* arguments[] = {"mkfs.ext4", "-q", "-F", aFile.c_str(), nullptr};
  pid_t child;
  int status = -1;
  return posix_spawnp(&child, arguments[0], nullptr, nullptr, const_cast<char**>(arguments),
                      environ) == 0 &&
         waitpid(child, &status, 0) == child && status == 0;
}

TEST(NativeVolumes, ImageIsAcceptedOrTakesALetterTwice) {
  NativeMachine machine;
  if (!machine.Lacks().empty()) GTEST_SKIP() << machine.Lacks();
  nsCapturedTree files;
  if (!Format(files.Root() + "/image")) GTEST_SKIP() << "no mkfs.ext4 here";
  uint32_t before = 0;
  ASSERT_TRUE(NS_SUCCEEDED(machine.Port().ReadDriveMask(&before)));
  std::set<char> letters;
  for (int round = 0; round < 3; ++round) {
    const std::string place = machine.Place("image");
    {
      LoopDevice device(files.Root() + "/image");
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

// What every backend of the port of volumes keeps to.
#include <map>
#include <set>
#include <thread>

#include "nsSimulatedMachine.h"
#include "nsVolumesContract.h"

namespace {

using V = nsPlatformVolumes;

class SimulatedMachine final : public nsVolumesMachine {
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

TEST_P(VolumesContract, LetterWithoutAVolumeHasAnything) {
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

TEST_P(VolumesContract, VolumeLacksAKindOrARoot) {
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

TEST_P(VolumesContract, RemovalDisturbsOthersOrForgetsTheRoot) {
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

TEST_P(VolumesContract, HandleAnswersForAnotherVolume) {
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

TEST_P(VolumesContract, ReadersFromSeveralThreadsRace) {
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

INSTANTIATE_TEST_SUITE_P(
    Simulated, VolumesContract,
    testing::Values(NS_ContractBackend<nsVolumesMachine, SimulatedMachine>("machine")));

}  // namespace

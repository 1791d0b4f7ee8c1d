// Discovery of volumes, and the storage adapter.
#include "nsFaultSweep.h"
#include "nsIFile.h"
#include "nsILocalFile.h"
#include "nsSystemAdapterStorage.h"
#include "nsSystemTest.h"

namespace {

using Strings = std::vector<std::string>;
using Port = nsPlatformVolumes;

constexpr const char* kExternalProfiles[] = {
    "storage-external-release-firmware-injector",
    "storage-external-addon-injector",
    "storage-external-richmedia-player-injector",
    "storage-external-medias-reader-injector",
    "storage-external-medias-reader",
};

class StorageTest : public nsSystemTest {
 protected:
  void SetUp() override { StartHost(); }

  // Runs aThen with a manager on a machine, and empties the manager after that.
  template <class Then>
  static void WithManager(const nsSimulatedMachine& aMachine, Then aThen) {
    const auto manager = NewManager(aMachine);
    aThen(*manager);
    EXPECT_EQ(manager->Observe(nullptr, "xpcom-shutdown", nullptr), NS_OK);
  }
  static std::vector<nsCOMPtr<nsISystemAdapterStorage>> Adapters(nsSystemManager& aManager) {
    nsCOMPtr<nsIArray> adapters;
    EXPECT_EQ(aManager.GetAdaptersByIId(nsISystemAdapterStorage::kIID, adapters.getter_AddRefs()),
              NS_OK);
    return NS_Elements<nsISystemAdapterStorage>(adapters.get());
  }
  static std::string PathOf(nsISystemAdapterStorage& aAdapter) {
    nsCOMPtr<nsIFile> directory;
    EXPECT_EQ(aAdapter.GetDirectory(directory.getter_AddRefs()), NS_OK);
    return directory ? NS_TextOf(directory, &nsIFile::GetPath) : "none";
  }
  static Strings Paths(nsSystemManager& aManager) {
    Strings paths;
    for (const auto& adapter : Adapters(aManager)) paths.push_back(PathOf(*adapter));
    return paths;
  }
};

TEST_F(StorageTest, VolumesOfAKindAreMisjudged) {
  const struct {
    uint32_t mKind;
    std::optional<uint8_t> mBus;
    nsresult mResult;
    bool mAccepted;
  } cases[] = {
      {Port::kDriveRemovable, Port::kBusUsb, NS_OK, true},
      {Port::kDriveRemovable, Port::kBusSata, NS_OK, true},
      {Port::kDriveRemovable, std::nullopt, NS_OK, true},
      {Port::kDriveFixed, Port::kBusUsb, NS_OK, true},
      {Port::kDriveFixed, Port::kBusSata, NS_ERROR_FAILURE, false},
      {Port::kDriveFixed, std::nullopt, NS_ERROR_FAILURE, false},
      {Port::kDriveCdRom, Port::kBusUsb, NS_OK, false},
      {Port::kDriveRemote, Port::kBusUsb, NS_OK, false},
      {Port::kDriveRamDisk, Port::kBusUsb, NS_OK, false},
      {Port::kDriveUnknown, Port::kBusUsb, NS_OK, false},
  };
  for (const auto& volume : cases) {
    SCOPED_TRACE("kind " + std::to_string(volume.mKind) + " bus " +
                 (volume.mBus ? std::to_string(*volume.mBus) : "?"));
    nsSimulatedMachine machine;
    machine.mVolumes->Insert('E', {.mKind = volume.mKind, .mBus = volume.mBus, .mRoot = "/e"});
    WithManager(machine, [&](nsSystemManager& aManager) {
      EXPECT_EQ(aManager.AddAdapterForDriveLetter('E'), volume.mResult);
      EXPECT_EQ(Paths(aManager), volume.mAccepted ? Strings{"/e"} : Strings());
    });
  }
}

TEST_F(StorageTest, LogOfAVolumeReadsDifferently) {
  mMachine.mVolumes->Insert('E', {.mKind = Port::kDriveFixed,
                                  .mBus = Port::kBusSata,
                                  .mRoot = "/e",
                                  .mInformation = {"DATA", 0xFFFFFFFE, 255, "NTFS"}});
  WithManager(mMachine, [&](nsSystemManager& aManager) {
    EXPECT_EQ(aManager.AddAdapterForDriveLetter('E'), NS_ERROR_FAILURE);
  });
  EXPECT_EQ(
      TakeLog("debug system.manager"),
      (Strings{
          "debug system.manager: Path = E:\\ volumeName = DATA type = 3 \n volumeSerialNumber=-2 "
          "maximumComponentLength=255 fileSystemName=NTFS",
          "debug system.manager: BusType=11", "debug system.manager: DRIVE_FIXED",
          "debug system.manager: Bad device type"}));
}

TEST_F(StorageTest, LettersAreLeftOutOrVisitedOutOfOrder) {
  mMachine.mVolumes->Insert('Z', {.mRoot = "/z"});
  mMachine.mVolumes->Insert('A', {.mRoot = "/a"});
  mMachine.mVolumes->Insert('C',
                            {.mKind = Port::kDriveFixed, .mBus = Port::kBusNvme, .mRoot = "/"});
  mMachine.mVolumes->Insert('M', {.mRoot = "/m"});
  WithManager(mMachine, [&](nsSystemManager& aManager) {
    EXPECT_EQ(aManager.ExploreVolumes(), NS_OK);
    EXPECT_EQ(Paths(aManager), (Strings{"/a", "/m", "/z"}));
    EXPECT_EQ(aManager.AddAdapterForDriveLetter('['), NS_OK) << "the character after Z";
    EXPECT_EQ(Paths(aManager).size(), 3u);
  });
}

TEST_F(StorageTest, StickIsPublishedWithOtherKeysOrProfiles) {
  for (const char* profile : kExternalProfiles)
    AllowProfile(std::string(profile) + ".mass-storage.usb.*");
  mMachine.mVolumes->Insert('E', {.mRoot = "/e"});
  WithManager(mMachine, [&](nsSystemManager& aManager) {
    const auto listener = MakeRefCounted<nsTestListener>();
    (void)aManager.AddAdapterListener(listener.get());
    (void)aManager.AddProfileBindingListener(listener.get());
    ASSERT_EQ(aManager.AddAdapterForDriveLetter('E'), NS_OK);
    Strings expected = {"adapter added "};
    for (const char* profile : kExternalProfiles)
      expected.push_back("binding added " + std::string(profile));
    EXPECT_EQ(listener->mHeard, expected);

    const auto adapter = Adapters(aManager).at(0);
    EXPECT_EQ(NS_TextOf(adapter, &nsISystemAdapter::GetSysPath), "");
    nsCOMPtr<nsISystemDevice> device;
    ASSERT_EQ(adapter->GetDevice(device.getter_AddRefs()), NS_OK);
    EXPECT_EQ(NS_TextOf(device, &nsISystemDevice::GetName), "mass-storage");
    EXPECT_EQ(NS_TextOf(device, &nsISystemDevice::GetLabel), "mass storage");
    nsCOMPtr<nsIArray> connectors;
    ASSERT_EQ(adapter->GetConnectors(connectors.getter_AddRefs()), NS_OK);
    const auto connector = NS_Elements<nsISystemConnector>(connectors.get()).at(0);
    EXPECT_EQ(NS_TextOf(connector, &nsISystemConnector::GetName), "usb");
    EXPECT_EQ(NS_TextOf(connector, &nsISystemConnector::GetMask), "*");
    EXPECT_EQ(NS_TextOf(connector, &nsISystemConnector::GetLabel), "usb connector");
  });
}

TEST_F(StorageTest, RemovedVolumeIsNotFoundByItsLetter) {
  mMachine.mVolumes->Insert('E', {.mRoot = "/media/stick"});
  WithManager(mMachine, [&](nsSystemManager& aManager) {
    // Directories on the volume, or beside it, are other adapters.
    for (const char* path : {"/media/stick/content", "/media/stic"}) {
      nsCOMPtr<nsILocalFile> file;
      ASSERT_EQ(NS_NewNativeLocalFile(nsCString(path), true, file.getter_AddRefs()), NS_OK);
      const auto other = MakeRefCounted<nsSystemAdapterStorage>();
      ASSERT_EQ(other->SetDirectory(file.get()), NS_OK);
      ASSERT_EQ(aManager.AddAdapter(other.get()), NS_OK);
    }
    ASSERT_EQ(aManager.AddAdapter(MakeRefCounted<nsSystemAdapterStorage>().get()), NS_OK)
        << "without a directory";
    ASSERT_EQ(aManager.AddAdapterForDriveLetter('E'), NS_OK);
    mMachine.mVolumes->Remove('E');

    nsCOMPtr<nsISystemAdapterStorage> found;
    ASSERT_EQ(aManager.GetAdapterForDriveLetter('E', found.getter_AddRefs()), NS_OK);
    ASSERT_TRUE(found);
    EXPECT_EQ(PathOf(*found), "/media/stick");
    ASSERT_EQ(aManager.RemoveAdapter(found.get()), NS_OK);
    ASSERT_EQ(aManager.GetAdapterForDriveLetter('E', found.getter_AddRefs()), NS_OK);
    EXPECT_FALSE(found);
    ASSERT_EQ(aManager.GetAdapterForDriveLetter('Q', found.getter_AddRefs()), NS_OK)
        << "never had a volume";
    EXPECT_FALSE(found);
    EXPECT_EQ(Paths(aManager).size(), 3u);
  });
}

TEST_F(StorageTest, CallersChangeTheAdaptersDirectory) {
  nsCOMPtr<nsILocalFile> file;
  ASSERT_EQ(NS_NewNativeLocalFile(nsCString("/srv"), true, file.getter_AddRefs()), NS_OK);
  const auto adapter = MakeRefCounted<nsSystemAdapterStorage>();
  EXPECT_EQ(PathOf(*adapter), "none");
  ASSERT_EQ(adapter->SetDirectory(file.get()), NS_OK);
  ASSERT_EQ(file->AppendNative(nsCString("given")), NS_OK);
  nsCOMPtr<nsIFile> got;
  ASSERT_EQ(adapter->GetDirectory(got.getter_AddRefs()), NS_OK);
  ASSERT_EQ(got->AppendNative(nsCString("got")), NS_OK);
  EXPECT_EQ(PathOf(*adapter), "/srv");
  ASSERT_EQ(adapter->SetDirectory(nullptr), NS_OK);
  EXPECT_EQ(PathOf(*adapter), "none");
}

TEST_F(StorageTest, FailingPortBreaksStartup) {
  for (const char* profile : kExternalProfiles)
    AllowProfile(std::string(profile) + ".mass-storage.usb.*");
  const auto scenario = [&](nsSimulatedMachine& aMachine, bool aFaulty) {
    aMachine.mVolumes->Insert('D', {.mRoot = "/d"});
    aMachine.mVolumes->Insert('E', {.mKind = Port::kDriveFixed, .mRoot = "/e"});
    WithManager(aMachine, [&](nsSystemManager& aManager) {
      EXPECT_EQ(aManager.Init(), NS_OK);
      if (!aFaulty) {
        EXPECT_EQ(Paths(aManager), (Strings{"/d", "/e"}));
        return;
      }
      // One volume is lost, or lacks its directory, and then its bindings; or all are, when there
      // are no letters. The information is only for the log.
      const Strings paths = Paths(aManager);
      const std::string failed = aMachine.mCalls->FailedCalls().at(0);
      if (failed == "Volumes.ReadDriveMask")
        EXPECT_EQ(paths, Strings());
      else if (failed == "Volumes.ReadRootDirectory")
        EXPECT_EQ(std::count(paths.begin(), paths.end(), "none"), 1);
      else if (failed == "Volumes.ReadVolumeInformation" ||
               (failed == "Volumes.ReadBusType" && paths.size() == 2))
        EXPECT_EQ(paths, (Strings{"/d", "/e"}));
      else
        EXPECT_EQ(paths.size(), 1u) << failed;
      // The machine answers again, and so does the manager.
      aMachine.mVolumes->Insert('F', {.mRoot = "/f"});
      EXPECT_EQ(aManager.AddAdapterForDriveLetter('F'), NS_OK);
      EXPECT_EQ(Paths(aManager).size(), paths.size() + 1);
    });
  };
  NS_SweepFaults(scenario, NS_ERROR_FAILURE, "Volumes");
}

}  // namespace

#include "nsSimulatedVolumes.h"

#include <utility>

namespace {

char ReadLetter(const nsMachineValue& aValue) {
  const std::string& text = aValue.AsString();
  if (text.size() != 1 || text[0] < 'A' || text[0] > 'Z')
    aValue.Fail("must be a letter from A to Z");
  return text[0];
}

uint32_t ReadKind(const nsMachineValue& aValue) {
  using Volumes = nsPlatformVolumes;
  return aValue.AsOneOf<uint32_t>({{"removable", Volumes::kDriveRemovable},
                                   {"fixed", Volumes::kDriveFixed},
                                   {"network", Volumes::kDriveRemote},
                                   {"optical", Volumes::kDriveCdRom},
                                   {"memory", Volumes::kDriveRamDisk},
                                   {"unknown", Volumes::kDriveUnknown}});
}

std::optional<uint8_t> ReadBus(const nsMachineValue& aValue) {
  using Volumes = nsPlatformVolumes;
  return aValue.AsOneOf<std::optional<uint8_t>>({{"none", std::nullopt},
                                                 {"unknown", Volumes::kBusUnknown},
                                                 {"scsi", Volumes::kBusScsi},
                                                 {"atapi", Volumes::kBusAtapi},
                                                 {"ata", Volumes::kBusAta},
                                                 {"firewire", Volumes::kBusFireWire},
                                                 {"fibre", Volumes::kBusFibre},
                                                 {"usb", Volumes::kBusUsb},
                                                 {"raid", Volumes::kBusRaid},
                                                 {"iscsi", Volumes::kBusIScsi},
                                                 {"sas", Volumes::kBusSas},
                                                 {"sata", Volumes::kBusSata},
                                                 {"sd", Volumes::kBusSd},
                                                 {"mmc", Volumes::kBusMmc},
                                                 {"virtual", Volumes::kBusVirtual},
                                                 {"file", Volumes::kBusFileBackedVirtual},
                                                 {"nvme", Volumes::kBusNvme}});
}

using LettersAndVolumes = std::vector<std::pair<char, nsSimulatedVolume>>;

LettersAndVolumes ReadVolumes(const nsMachineValue& aValue) {
  LettersAndVolumes volumes;
  for (const nsMachineValue& element : aValue.AsArray())
    element.AsObject([&](nsMachineObject& aObject) {
      const nsMachineValue& letterValue = aObject.Required("letter");
      const char letter = ReadLetter(letterValue);
      for (const auto& [other, volume] : volumes)
        if (other == letter) letterValue.Fail(std::string("the letter ") + letter + " is taken");
      nsSimulatedVolume volume;
      volume.mKind = ReadKind(aObject.Required("kind"));
      volume.mBus = ReadBus(aObject.Required("bus"));
      if (const auto* root = aObject.Optional("root")) volume.mRoot = root->AsPath();
      if (const auto* medium = aObject.Optional("medium")) volume.mMedium = medium->AsBoolean();
      auto& information = volume.mInformation;
      if (const auto* label = aObject.Optional("label")) information.mLabel = label->AsString();
      if (const auto* serial = aObject.Optional("serialNumber"))
        information.mSerialNumber = serial->AsInteger<uint32_t>();
      if (const auto* length = aObject.Optional("maximumComponentLength"))
        information.mMaximumComponentLength = length->AsInteger<uint32_t>();
      if (const auto* name = aObject.Optional("fileSystem"))
        information.mFileSystemName = name->AsString();
      volumes.emplace_back(letter, std::move(volume));
    });
  return volumes;
}

}  // namespace

nsSimulatedVolumes::nsSimulatedVolumes(nsSimulatedCallsRef aCalls,
                                       std::shared_ptr<nsSimulatedWindowEvents> aEvents)
    : nsSimulatedPort(std::move(aCalls), "Volumes"), mEvents(std::move(aEvents)) {}

nsSimulatedVolumes::Drive* nsSimulatedVolumes::Find(char aLetter) {
  return aLetter >= 'A' && aLetter <= 'Z' ? &mDrives[static_cast<size_t>(aLetter - 'A')] : nullptr;
}

void nsSimulatedVolumes::Insert(char aLetter, nsSimulatedVolume aVolume) {
  Remove(aLetter);
  {
    const nsAutoLock lock(mLock);
    Drive* drive = Find(aLetter);
    if (!drive) return;
    if (aVolume.mRoot.empty()) aVolume.mRoot = std::string("/volumes/") + aLetter;
    drive->mLastRoot = aVolume.mRoot;
    drive->mVolume = std::move(aVolume);
    drive->mHandle = ++mLastHandle;
  }
  mEvents->VolumeArrived(aLetter);
}

void nsSimulatedVolumes::Remove(char aLetter) {
  {
    const nsAutoLock lock(mLock);
    Drive* drive = Find(aLetter);
    if (!drive || !drive->mVolume) return;
    drive->mVolume.reset();
  }
  mEvents->VolumeRemoved(aLetter);
}

void nsSimulatedVolumes::ReadFacts(const nsMachineValue& aValue) {
  for (auto& [letter, volume] : ReadVolumes(aValue)) Insert(letter, std::move(volume));
}

std::function<void()> nsSimulatedVolumes::ReadChange(const nsMachineValue& aValue) {
  std::vector<char> gone;
  LettersAndVolumes come;
  aValue.AsObject([&](nsMachineObject& aObject) {
    if (const nsMachineValue* letters = aObject.Optional("remove"))
      for (const nsMachineValue& letter : letters->AsArray()) gone.push_back(ReadLetter(letter));
    if (const nsMachineValue* volumes = aObject.Optional("insert")) come = ReadVolumes(*volumes);
  });
  return [this, gone, come] {
    for (const char letter : gone) Remove(letter);
    for (const auto& [letter, volume] : come) Insert(letter, volume);
  };
}

nsresult nsSimulatedVolumes::ReadDriveMask(uint32_t* aMask) {
  if (nsresult rv = Enter("ReadDriveMask"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  uint32_t mask = 0;
  for (size_t i = 0; i < mDrives.size(); ++i)
    if (mDrives[i].mVolume) mask |= 1u << i;
  *aMask = mask;
  return NS_OK;
}

nsresult nsSimulatedVolumes::ReadDriveKind(char aLetter, uint32_t* aKind) {
  if (nsresult rv = Enter("ReadDriveKind"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  const Drive* drive = Find(aLetter);
  *aKind = drive && drive->mVolume ? drive->mVolume->mKind : uint32_t{kDriveNoRootDirectory};
  return NS_OK;
}

nsresult nsSimulatedVolumes::ReadVolumeInformation(char aLetter, VolumeInformation* aInformation) {
  if (nsresult rv = Enter("ReadVolumeInformation"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  const Drive* drive = Find(aLetter);
  if (!drive || !drive->mVolume || !drive->mVolume->mMedium) return NS_ERROR_NOT_AVAILABLE;
  *aInformation = drive->mVolume->mInformation;
  return NS_OK;
}

nsresult nsSimulatedVolumes::OpenVolume(char aLetter, VolumeHandle* aVolume) {
  if (nsresult rv = Enter("OpenVolume"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  const Drive* drive = Find(aLetter);
  if (!drive || !drive->mVolume) return NS_ERROR_NOT_AVAILABLE;
  *aVolume = drive->mHandle;
  Record(std::string("OpenVolume ") + aLetter);
  return NS_OK;
}

nsresult nsSimulatedVolumes::ReadBusType(VolumeHandle aVolume, uint8_t* aBusType) {
  if (nsresult rv = Enter("ReadBusType"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  if (aVolume == 0 || aVolume > mLastHandle) return NS_ERROR_INVALID_ARG;
  for (const Drive& drive : mDrives) {
    if (drive.mHandle != aVolume || !drive.mVolume || !drive.mVolume->mBus) continue;
    *aBusType = *drive.mVolume->mBus;
    return NS_OK;
  }
  return NS_ERROR_NOT_AVAILABLE;
}

nsresult nsSimulatedVolumes::ReadRootDirectory(char aLetter, std::string* aPath) {
  if (nsresult rv = Enter("ReadRootDirectory"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  const Drive* drive = Find(aLetter);
  if (!drive || drive->mLastRoot.empty()) return NS_ERROR_NOT_AVAILABLE;
  *aPath = drive->mLastRoot;
  return NS_OK;
}

#include "nsSimulatedVolumes.h"

#include <utility>

nsSimulatedVolumes::nsSimulatedVolumes(nsSimulatedCallsRef aCalls)
    : nsSimulatedPort(std::move(aCalls), "Volumes") {}

nsSimulatedVolumes::Drive* nsSimulatedVolumes::Find(char aLetter) {
  return aLetter >= 'A' && aLetter <= 'Z' ? &mDrives[static_cast<size_t>(aLetter - 'A')] : nullptr;
}

void nsSimulatedVolumes::Insert(char aLetter, nsSimulatedVolume aVolume) {
  const std::lock_guard lock(mLock);
  Drive* drive = Find(aLetter);
  if (!drive) return;
  if (aVolume.mRoot.empty()) aVolume.mRoot = std::string("/volumes/") + aLetter;
  drive->mLastRoot = aVolume.mRoot;
  drive->mVolume = std::move(aVolume);
  drive->mHandle = ++mLastHandle;
}

void nsSimulatedVolumes::Remove(char aLetter) {
  const std::lock_guard lock(mLock);
  if (Drive* drive = Find(aLetter)) drive->mVolume.reset();
}

nsresult nsSimulatedVolumes::ReadDriveMask(uint32_t* aMask) {
  if (nsresult rv = Enter("ReadDriveMask"); NS_FAILED(rv)) return rv;
  const std::lock_guard lock(mLock);
  uint32_t mask = 0;
  for (size_t i = 0; i < mDrives.size(); ++i)
    if (mDrives[i].mVolume) mask |= 1u << i;
  *aMask = mask;
  return NS_OK;
}

nsresult nsSimulatedVolumes::ReadDriveKind(char aLetter, uint32_t* aKind) {
  if (nsresult rv = Enter("ReadDriveKind"); NS_FAILED(rv)) return rv;
  const std::lock_guard lock(mLock);
  const Drive* drive = Find(aLetter);
  *aKind = drive && drive->mVolume ? drive->mVolume->mKind : uint32_t{kDriveNoRootDirectory};
  return NS_OK;
}

nsresult nsSimulatedVolumes::ReadVolumeInformation(char aLetter, VolumeInformation* aInformation) {
  if (nsresult rv = Enter("ReadVolumeInformation"); NS_FAILED(rv)) return rv;
  const std::lock_guard lock(mLock);
  const Drive* drive = Find(aLetter);
  if (!drive || !drive->mVolume || !drive->mVolume->mMedium) return NS_ERROR_NOT_AVAILABLE;
  *aInformation = drive->mVolume->mInformation;
  return NS_OK;
}

nsresult nsSimulatedVolumes::OpenVolume(char aLetter, VolumeHandle* aVolume) {
  if (nsresult rv = Enter("OpenVolume"); NS_FAILED(rv)) return rv;
  const std::lock_guard lock(mLock);
  const Drive* drive = Find(aLetter);
  if (!drive || !drive->mVolume) return NS_ERROR_NOT_AVAILABLE;
  *aVolume = drive->mHandle;
  Record(std::string("OpenVolume ") + aLetter);
  return NS_OK;
}

nsresult nsSimulatedVolumes::ReadBusType(VolumeHandle aVolume, uint8_t* aBusType) {
  if (nsresult rv = Enter("ReadBusType"); NS_FAILED(rv)) return rv;
  const std::lock_guard lock(mLock);
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
  const std::lock_guard lock(mLock);
  const Drive* drive = Find(aLetter);
  if (!drive || drive->mLastRoot.empty()) return NS_ERROR_NOT_AVAILABLE;
  *aPath = drive->mLastRoot;
  return NS_OK;
}

// Volumes from the kernel's mount table, sysfs and udev's data.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "nsBlockDevices.h"
#include "nsFileTree.h"
#include "nsLock.h"
#include "nsMountTable.h"
#include "nsPlatformVolumes.h"

/// A volume is a file system that is mounted somewhere, and holds files of its own: the kernel's
/// windows upon itself (proc, sysfs, cgroups, …) are none. Mounted several times it is one volume,
/// whose root directory is where it was first mounted as a whole; without that mount it is another
/// volume. See docs/volumes-on-linux.md.
class nsLinuxVolumes : public nsPlatformVolumes {
 public:
  /// aRoot is "/", or a directory with the files of another machine.
  explicit nsLinuxVolumes(const std::string& aRoot = "/");

  nsresult ReadDriveMask(uint32_t* aMask) override;
  nsresult ReadDriveKind(char aLetter, uint32_t* aKind) override;
  nsresult ReadVolumeInformation(char aLetter, VolumeInformation* aInformation) override;
  nsresult OpenVolume(char aLetter, VolumeHandle* aVolume) override;
  nsresult ReadBusType(VolumeHandle aVolume, uint8_t* aBusType) override;
  nsresult ReadRootDirectory(char aLetter, std::string* aPath) override;

 private:
  struct Volume {
    std::string mIdentity;  // is the same as long as the volume is
    nsMount mMount;
    std::vector<nsMount> mMounts;  // all of them, in the table's order
    std::optional<nsBlockDevice> mDevice;
    uint32_t mKind = kDriveUnknown;
    VolumeHandle mHandle = 0;
  };
  struct Letter {
    std::optional<Volume> mVolume;
    std::string mLastRoot;
    bool mIsFreed = false;  // by the last look
  };
  static bool IsFree(const Letter& aLetter) { return !aLetter.mVolume && !aLetter.mIsFreed; }

  std::vector<Volume> FindVolumes(const std::vector<nsMount>& aMounts) const;
  Volume Describe(std::vector<nsMount> aMounts) const;
  static bool HasRoot(const Volume& aVolume, const nsMount& aMount);
  /// Each looks at the machine first, when nobody has yet.
  nsresult Refresh() NS_REQUIRES(mLock);
  nsresult EnsureRead() NS_REQUIRES(mLock) { return mRead ? NS_OK : Refresh(); }
  void GiveLetter(Volume aVolume, size_t aLeave) NS_REQUIRES(mLock);
  size_t FreeLetters() const NS_REQUIRES(mLock);
  /// Null when the letter has no volume.
  const Volume* Find(char aLetter) const NS_REQUIRES(mLock);

  const nsFileTree mTree;
  const nsBlockDevices mDevices;

  nsMutex mLock;  // guards what follows
  std::array<Letter, 26> mLetters NS_GUARDED_BY(mLock);
  size_t mNext NS_GUARDED_BY(mLock) = 0;  // where the search for a free letter goes on
  VolumeHandle mLastHandle NS_GUARDED_BY(mLock) = 0;
  bool mRead NS_GUARDED_BY(mLock) = false;
  bool mLettersLack NS_GUARDED_BY(mLock) = false;
};

// Drives of facts.
#pragma once

#include <array>
#include <functional>
#include <optional>

#include "nsMachineValue.h"
#include "nsPlatformVolumes.h"
#include "nsSimulatedCalls.h"
#include "nsSimulatedWindowEvents.h"

/// The facts of one drive.
struct nsSimulatedVolume {
  uint32_t mKind = nsPlatformVolumes::kDriveRemovable;
  std::optional<uint8_t> mBus =
      nsPlatformVolumes::kBusUsb;  ///< Nothing: the question for the bus fails.
  std::string mRoot;               ///< The root directory's path; empty: "/volumes/" + letter.
  bool mMedium = true;             ///< Whether something lies in the drive.
  nsPlatformVolumes::VolumeInformation mInformation{"", 0, 255, "vfat"};
};

/// Drives by letter, which come and go as Insert and Remove say.
class nsSimulatedVolumes final : public nsPlatformVolumes, public nsSimulatedPort {
 public:
  nsSimulatedVolumes(nsSimulatedCallsRef aCalls, std::shared_ptr<nsSimulatedWindowEvents> aEvents);

  // Each sends the messages of volumes that arrive and are removed.

  /// The letter, 'A' to 'Z', has this volume from now on, instead of the one that it may have had.
  void Insert(char aLetter, nsSimulatedVolume aVolume = {});
  /// The letter has no volume from now on.
  void Remove(char aLetter);

  /// An array of drives, as docs/machine-file.md tells. Throws nsMachineFileError.
  void ReadFacts(const nsMachineValue& aValue);
  /// An object of "insert" and "remove": what the function that is given back does.
  std::function<void()> ReadChange(const nsMachineValue& aValue);

  nsresult ReadDriveMask(uint32_t* aMask) override;
  nsresult ReadDriveKind(char aLetter, uint32_t* aKind) override;
  nsresult ReadVolumeInformation(char aLetter, VolumeInformation* aInformation) override;
  nsresult OpenVolume(char aLetter, VolumeHandle* aVolume) override;
  nsresult ReadBusType(VolumeHandle aVolume, uint8_t* aBusType) override;
  nsresult ReadRootDirectory(char aLetter, std::string* aPath) override;

 private:
  struct Drive {
    std::optional<nsSimulatedVolume> mVolume;
    std::string mLastRoot;
    VolumeHandle mHandle = 0;  // that of the volume which is there, or was last
  };
  Drive* Find(char aLetter) NS_REQUIRES(mLock);

  const std::shared_ptr<nsSimulatedWindowEvents> mEvents;
  std::array<Drive, 26> mDrives NS_GUARDED_BY(mLock);
  VolumeHandle mLastHandle NS_GUARDED_BY(mLock) = 0;
};

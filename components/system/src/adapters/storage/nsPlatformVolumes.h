// The port of volumes: the machine's drives by letter, and what each of them is.
//
// The shape is that of the platform for which drive letters are native. Where a system has none,
// its backend gives letters to mounted volumes: in mount order, from C for the root of the file
// system, never A or B. A letter stays with its volume until the volume is gone, is never borne by
// two volumes at a time, and is not given again at once while others are free.
#pragma once

#include <cstdint>
#include <string>

#include "nsError.h"

/// All methods may be called from any thread, at any time, and again as often as one likes; none
/// changes the machine. They answer from what ReadDriveMask last saw, or from something newer;
/// before its first call from what it would see.
///
/// A letter is an upper-case one, 'A' to 'Z'. Any other character is a letter that has no volume.
///
/// Beside the errors named below, every method may fail with NS_ERROR_FAILURE when the system does
/// not answer.
class nsPlatformVolumes {
 public:
  /// The kinds of a drive. The numbers are part of the log's vocabulary.
  enum DriveKind : uint32_t {
    kDriveUnknown =
        0,  ///< There is a volume of no kind below: a disk image, a composed file system.
    kDriveNoRootDirectory = 1,  ///< There is no volume.
    kDriveRemovable =
        2,             ///< The medium can be taken out, or the device says that it is of that sort.
    kDriveFixed = 3,   ///< A disk, inside the machine or outside.
    kDriveRemote = 4,  ///< A network share.
    kDriveCdRom = 5,   ///< An optical drive.
    kDriveRamDisk = 6,  ///< Nothing but memory.
  };

  /// The buses that a device is attached by. The numbers are part of the log's vocabulary.
  enum BusType : uint8_t {
    kBusUnknown = 0,
    kBusScsi = 1,
    kBusAtapi = 2,
    kBusAta = 3,
    kBusFireWire = 4,
    kBusFibre = 6,
    kBusUsb = 7,
    kBusRaid = 8,
    kBusIScsi = 9,
    kBusSas = 10,
    kBusSata = 11,
    kBusSd = 12,
    kBusMmc = 13,
    kBusVirtual = 14,
    kBusFileBackedVirtual = 15,
    kBusNvme = 17,
  };

  /// What a volume says of itself.
  struct VolumeInformation {
    std::string mLabel;  ///< Empty for a volume without one. UTF-8 as far as the volume's is.
    uint32_t mSerialNumber = 0;  ///< Given when the volume was formatted; 0 when it has none.
    uint32_t mMaximumComponentLength =
        0;                        ///< The longest name of a file, in the file system's own units.
    std::string mFileSystemName;  ///< As the system names it: "vfat", "ext4", "NTFS".
  };

  /// An open volume. It stands for the volume that had the letter when it was opened, also when the
  /// letter has another one by now.
  using VolumeHandle = uintptr_t;

  virtual ~nsPlatformVolumes() = default;

  /// The letters that have a volume: bit 0 for A, to bit 25 for Z. Looks at the machine anew.
  ///
  /// NS_SUCCESS_LOSS_OF_INSIGNIFICANT_DATA, which is a success, when there are volumes for which no
  /// letter is left; they can't be reached through this port until other volumes have gone. A
  /// letter whose volume this look has missed is given again at the next one at the earliest.
  /// Windows: GetLogicalDrives.
  virtual nsresult ReadDriveMask(uint32_t* aMask) = 0;

  /// One of DriveKind. A letter without a volume is kDriveNoRootDirectory, and that is no error.
  /// Windows: GetDriveTypeA.
  virtual nsresult ReadDriveKind(char aLetter, uint32_t* aKind) = 0;

  /// NS_ERROR_NOT_AVAILABLE when the letter has no volume, or its drive has no medium in it.
  /// Windows: GetVolumeInformationA.
  virtual nsresult ReadVolumeInformation(char aLetter, VolumeInformation* aInformation) = 0;

  /// Opens a volume in order to ask it questions, not for its data: no right is needed, and an open
  /// volume can be unmounted and unplugged as if it were not open. There is no closing it; a handle
  /// costs next to nothing.
  ///
  /// NS_ERROR_NOT_AVAILABLE when the letter has no volume or its device is gone.
  /// Windows: CreateFileA of "\\\\.\\X:", without access.
  virtual nsresult OpenVolume(char aLetter, VolumeHandle* aVolume) = 0;

  /// One of BusType, or a further number that the system has: the bus of the device that the volume
  /// lies on.
  ///
  /// NS_ERROR_INVALID_ARG for a handle that OpenVolume never gave. NS_ERROR_NOT_AVAILABLE when the
  /// volume is gone or no device stands behind it, as is so for shares and memory.
  /// Windows: DeviceIoControl, IOCTL_STORAGE_QUERY_PROPERTY.
  virtual nsresult ReadBusType(VolumeHandle aVolume, uint8_t* aBusType) = 0;

  /// The native path of the volume's root directory: absolute, without a separator at its end, the
  /// root of all file systems excepted. Bytes as the system has them.
  ///
  /// A letter whose volume is gone answers with the path it had, until it is given to another: so
  /// whoever hears of the removal can still find what belonged to the volume.
  /// NS_ERROR_NOT_AVAILABLE for a letter that never had one.
  /// Windows: none: the letter with ":\".
  virtual nsresult ReadRootDirectory(char aLetter, std::string* aPath) = 0;
};

#include "nsLinuxVolumes.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <charconv>
#include <map>
#include <set>
#include <string_view>

namespace {

using Volumes = nsPlatformVolumes;

// File systems that hold no files of anybody's.
constexpr std::string_view kPseudo[] = {
    "autofs",     "bdev",        "binder",    "binfmt_misc", "bpf",
    "cgroup",     "cgroup2",     "configfs",  "cpuset",      "debugfs",
    "devpts",     "devtmpfs",    "efivarfs",  "functionfs",  "fuse.gvfsd-fuse",
    "fuse.lxcfs", "fuse.portal", "fusectl",   "hugetlbfs",   "mqueue",
    "nfsd",       "nsfs",        "proc",      "pstore",      "resctrl",
    "rpc_pipefs", "securityfs",  "selinuxfs", "smackfs",     "sysfs",
    "tracefs",    "xenfs",
};

constexpr std::string_view kRemote[] = {
    "9p",        "afs",        "beegfs",      "ceph",           "cifs",
    "davfs",     "fuse.ceph",  "fuse.davfs2", "fuse.glusterfs", "fuse.rclone",
    "fuse.s3fs", "fuse.sshfs", "glusterfs",   "lustre",         "ncpfs",
    "nfs",       "nfs4",       "smb3",        "smbfs",          "virtiofs",
};

constexpr std::string_view kMemory[] = {"ramfs", "rootfs", "tmpfs"};

template <size_t N>
bool IsIn(const std::string_view (&aNames)[N], std::string_view aName) {
  return std::find(std::begin(aNames), std::end(aNames), aName) != std::end(aNames);
}

constexpr size_t kFirstLetter = 2;  // C; A and B are those of floppy disks
constexpr size_t kLetters = 26;

// So many letters are left to volumes that come and go. A machine may have any number of images,
// memory file systems and container mounts, and a stick must find a letter all the same.
constexpr size_t kLeaveFree = 8;

// The mount that stands for a volume: the first that shows the whole of it, else the first.
const nsMount& Choose(const std::vector<nsMount>& aMounts) {
  const auto whole = std::ranges::find(aMounts, "/", &nsMount::mRoot);
  return whole != aMounts.end() ? *whole : aMounts.front();
}

// Whether the system itself runs from what is mounted there.
bool IsOfSystem(std::string_view aPoint) {
  return aPoint == "/" || aPoint == "/usr" || aPoint == "/boot" || aPoint.starts_with("/boot/");
}

bool IsDisk(uint32_t aKind) {
  return aKind == Volumes::kDriveRemovable || aKind == Volumes::kDriveFixed;
}

// udev writes the bytes that it does not like as \x and two digits.
std::string DecodeLabel(std::string_view aText) {
  std::string label;
  for (size_t i = 0; i < aText.size(); ++i) {
    unsigned byte = 0;
    if (aText.substr(i).starts_with("\\x") && i + 4 <= aText.size() &&
        std::from_chars(&aText[i + 2], &aText[i + 2] + 2, byte, 16).ptr == &aText[i + 2] + 2) {
      label += static_cast<char>(byte);
      i += 3;
    } else {
      label += aText[i];
    }
  }
  return label;
}

// The serial number is the identifier of FAT, "12AB-34CD", the lower half of that of NTFS, sixteen
// digits, and of others the first part of theirs.
uint32_t SerialNumber(std::string aIdentifier) {
  std::erase(aIdentifier, '-');
  if (aIdentifier.size() == 16) aIdentifier.erase(0, 8);
  uint32_t number = 0;
  const char* end = aIdentifier.data() + std::min<size_t>(aIdentifier.size(), 8);
  return std::from_chars(aIdentifier.data(), end, number, 16).ptr == end ? number : 0;
}

}  // namespace

nsLinuxVolumes::nsLinuxVolumes(const std::string& aRoot) : mTree(aRoot), mDevices(mTree) {}

nsLinuxVolumes::Volume nsLinuxVolumes::Describe(std::vector<nsMount> aMounts) const {
  Volume volume;
  const nsMount& mount = volume.mMount = Choose(aMounts);
  volume.mMounts = std::move(aMounts);
  if (mount.mMajor != 0)
    volume.mDevice = mDevices.ByNumber(mount.mMajor, mount.mMinor);
  else if (!IsIn(kRemote, mount.mType) && !IsIn(kMemory, mount.mType))
    volume.mDevice = mDevices.ByNode(mount.mSource);  // of several disks, or with subvolumes

  if (volume.mDevice)
    volume.mKind = volume.mDevice->mKind;
  else if (IsIn(kRemote, mount.mType))
    volume.mKind = kDriveRemote;
  else if (IsIn(kMemory, mount.mType))
    volume.mKind = kDriveRamDisk;

  // Numbers are used again by the kernel. The path of a device and the sequence of its medium are
  // not, for those that come and go; and without a device there is the source.
  volume.mIdentity =
      std::to_string(mount.mMajor) + ":" + std::to_string(mount.mMinor) + " " + mount.mType + " " +
      (volume.mDevice ? volume.mDevice->mSysPath + " " + volume.mDevice->mSequence : mount.mSource);
  return volume;
}

std::vector<nsLinuxVolumes::Volume> nsLinuxVolumes::FindVolumes(
    const std::vector<nsMount>& aMounts) const {
  // The mounts of one file system lie together, in the order of its first one.
  std::vector<std::vector<nsMount>> grouped;
  std::map<std::pair<unsigned, unsigned>, size_t> byNumber;
  for (const nsMount& mount : aMounts) {
    if (IsIn(kPseudo, mount.mType)) continue;
    // Containers get single files mounted, such as their hosts file.
    if (mount.mRoot != "/" && !IsIn(kRemote, mount.mType) && mTree.Exists(mount.mPoint) &&
        !mTree.IsDirectory(mount.mPoint))
      continue;
    const auto [known, isNew] =
        byNumber.emplace(std::pair(mount.mMajor, mount.mMinor), grouped.size());
    if (isNew) grouped.emplace_back();
    grouped[known->second].push_back(mount);
  }
  std::vector<Volume> volumes;
  std::set<std::string> ofSystem;  // disks
  const bool knowsDevices = mTree.Exists("/sys/dev/block");
  for (std::vector<nsMount>& mounts : grouped) {
    Volume volume = Describe(std::move(mounts));
    // What is pulled out stays in the table until someone unmounts it; there is nothing behind it
    // any more.
    if (volume.mMount.mMajor != 0 && !volume.mDevice && knowsDevices) continue;
    if (volume.mDevice && std::ranges::any_of(volume.mMounts, IsOfSystem, &nsMount::mPoint))
      ofSystem.insert(volume.mDevice->mDisks.begin(), volume.mDevice->mDisks.end());
    volumes.push_back(std::move(volume));
  }
  // A memory card that the system runs from is not one that is carried about.
  for (Volume& volume : volumes) {
    if (volume.mKind != kDriveRemovable ||
        (volume.mDevice->mBus != kBusSd && volume.mDevice->mBus != kBusMmc))
      continue;
    if (std::ranges::any_of(volume.mDevice->mDisks,
                            [&](const std::string& aDisk) { return ofSystem.contains(aDisk); }))
      volume.mKind = kDriveFixed;
  }
  return volumes;
}

size_t nsLinuxVolumes::FreeLetters() const {
  return static_cast<size_t>(std::count_if(mLetters.begin() + kFirstLetter, mLetters.end(),
                                           [](const Letter& aLetter) { return IsFree(aLetter); }));
}

// The search goes round, so that a letter which has become free is taken again last; and never by
// the look that has found it free, since whoever hears of the removal asks for the root that it
// had.
void nsLinuxVolumes::GiveLetter(Volume aVolume, size_t aLeave) {
  if (FreeLetters() <= aLeave) {
    mLettersLack = true;
    return;
  }
  while (!IsFree(mLetters[kFirstLetter + mNext])) mNext = (mNext + 1) % (kLetters - kFirstLetter);
  Letter& letter = mLetters[kFirstLetter + mNext];
  mNext = (mNext + 1) % (kLetters - kFirstLetter);
  aVolume.mHandle = ++mLastHandle;
  letter.mLastRoot = aVolume.mMount.mPoint;
  letter.mVolume = std::move(aVolume);
}

// Whether the mount that stood for a volume still does. One that shows a part of it does so only as
// long as none shows the whole.
bool nsLinuxVolumes::HasRoot(const Volume& aVolume, const nsMount& aMount) {
  return std::ranges::any_of(aVolume.mMounts, [&](const nsMount& aOther) {
    return aOther.mPoint == aMount.mPoint && aOther.mRoot == aMount.mRoot &&
           aMount.mRoot == aVolume.mMount.mRoot;
  });
}

nsresult nsLinuxVolumes::Refresh() {
  const auto table = mTree.ReadFile("/proc/self/mountinfo");
  if (!table) return NS_ERROR_FAILURE;
  std::vector<Volume> volumes = FindVolumes(NS_ReachableMounts(NS_ParseMountTable(*table)));

  for (Letter& letter : mLetters) {
    letter.mIsFreed = false;
    if (!letter.mVolume) continue;
    const auto found = std::find_if(volumes.begin(), volumes.end(), [&](const Volume& aVolume) {
      return aVolume.mIdentity == letter.mVolume->mIdentity;
    });
    // Adapters and bindings know a volume by its root directory: where that has become another one,
    // the volume is one that has come.
    if (found == volumes.end() || !HasRoot(*found, letter.mVolume->mMount)) {
      letter.mVolume.reset();
      letter.mIsFreed = true;
      continue;
    }
    found->mMount = letter.mVolume->mMount;
    found->mHandle = letter.mVolume->mHandle;
    letter.mLastRoot = found->mMount.mPoint;
    letter.mVolume = std::move(*found);
    volumes.erase(found);
  }

  // The root of the file system comes first, then the disks, then the rest.
  const auto rank = [](const Volume& aVolume) {
    return aVolume.mMount.mPoint == "/" ? 0 : IsDisk(aVolume.mKind) ? 1 : 2;
  };
  std::stable_sort(volumes.begin(), volumes.end(),
                   [&](const Volume& aA, const Volume& aB) { return rank(aA) < rank(aB); });
  mLettersLack = false;
  for (Volume& volume : volumes) {
    const size_t leave = rank(volume) == 2 ? kLeaveFree : 0;
    GiveLetter(std::move(volume), leave);
  }
  mRead = true;
  return NS_OK;
}

const nsLinuxVolumes::Volume* nsLinuxVolumes::Find(char aLetter) const {
  if (aLetter < 'A' || aLetter > 'Z') return nullptr;
  const auto& volume = mLetters[static_cast<size_t>(aLetter - 'A')].mVolume;
  return volume ? &*volume : nullptr;
}

nsresult nsLinuxVolumes::ReadDriveMask(uint32_t* aMask) {
  const nsAutoLock lock(mLock);
  if (nsresult rv = Refresh(); NS_FAILED(rv)) return rv;
  uint32_t mask = 0;
  for (size_t i = 0; i < kLetters; ++i)
    if (mLetters[i].mVolume) mask |= 1u << i;
  *aMask = mask;
  return mLettersLack ? NS_SUCCESS_LOSS_OF_INSIGNIFICANT_DATA : NS_OK;
}

nsresult nsLinuxVolumes::ReadDriveKind(char aLetter, uint32_t* aKind) {
  const nsAutoLock lock(mLock);
  if (nsresult rv = EnsureRead(); NS_FAILED(rv)) return rv;
  const Volume* volume = Find(aLetter);
  *aKind = volume ? volume->mKind : uint32_t{kDriveNoRootDirectory};
  return NS_OK;
}

nsresult nsLinuxVolumes::ReadVolumeInformation(char aLetter, VolumeInformation* aInformation) {
  Volume volume;
  {
    const nsAutoLock lock(mLock);
    if (nsresult rv = EnsureRead(); NS_FAILED(rv)) return rv;
    const Volume* found = Find(aLetter);
    if (!found) return NS_ERROR_NOT_AVAILABLE;
    volume = *found;
  }
  VolumeInformation information;
  information.mMaximumComponentLength = 255;
  information.mFileSystemName = volume.mMount.mType;
  if (volume.mDevice) {
    auto& properties = volume.mDevice->mProperties;
    information.mLabel = DecodeLabel(properties["ID_FS_LABEL_ENC"]);
    information.mSerialNumber = SerialNumber(properties["ID_FS_UUID"]);
    // "fuseblk" only says how the file system is driven.
    if (volume.mMount.mType == "fuseblk" && !properties["ID_FS_TYPE"].empty())
      information.mFileSystemName = properties["ID_FS_TYPE"];
    // Asked of the file system itself only where a disk answers, not a server that may be gone; and
    // believed only when it is this one that has been asked.
    const std::string path = mTree.Real(volume.mMount.mPoint);
    struct stat status;
    struct statvfs system;
    if (stat(path.c_str(), &status) == 0 &&
        status.st_dev == makedev(volume.mMount.mMajor, volume.mMount.mMinor) &&
        statvfs(path.c_str(), &system) == 0)
      information.mMaximumComponentLength = static_cast<uint32_t>(system.f_namemax);
  }
  *aInformation = std::move(information);
  return NS_OK;
}

// No descriptor stays open: it would keep the volume from being unmounted.
nsresult nsLinuxVolumes::OpenVolume(char aLetter, VolumeHandle* aVolume) {
  const nsAutoLock lock(mLock);
  if (nsresult rv = EnsureRead(); NS_FAILED(rv)) return rv;
  const Volume* volume = Find(aLetter);
  if (!volume || (volume->mDevice && !mTree.Exists(volume->mDevice->mSysPath)))
    return NS_ERROR_NOT_AVAILABLE;
  *aVolume = volume->mHandle;
  return NS_OK;
}

nsresult nsLinuxVolumes::ReadBusType(VolumeHandle aVolume, uint8_t* aBusType) {
  const nsAutoLock lock(mLock);
  if (aVolume == 0 || aVolume > mLastHandle) return NS_ERROR_INVALID_ARG;
  for (const Letter& letter : mLetters) {
    if (!letter.mVolume || letter.mVolume->mHandle != aVolume) continue;
    if (!letter.mVolume->mDevice || !letter.mVolume->mDevice->mBus) break;
    *aBusType = *letter.mVolume->mDevice->mBus;
    return NS_OK;
  }
  return NS_ERROR_NOT_AVAILABLE;
}

nsresult nsLinuxVolumes::ReadRootDirectory(char aLetter, std::string* aPath) {
  const nsAutoLock lock(mLock);
  if (nsresult rv = EnsureRead(); NS_FAILED(rv)) return rv;
  if (aLetter < 'A' || aLetter > 'Z') return NS_ERROR_NOT_AVAILABLE;
  const std::string& root = mLetters[static_cast<size_t>(aLetter - 'A')].mLastRoot;
  if (root.empty()) return NS_ERROR_NOT_AVAILABLE;
  *aPath = root;
  return NS_OK;
}

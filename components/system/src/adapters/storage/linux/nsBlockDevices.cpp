#include "nsBlockDevices.h"

#include <string_view>

#include "nsPlatformVolumes.h"

namespace {

using Volumes = nsPlatformVolumes;

struct NameAndBus {
  std::string_view mName;
  uint8_t mBus;
};

// The subsystem of one of the devices that a disk hangs on.
constexpr NameAndBus kSubsystems[] = {
    {"usb", Volumes::kBusUsb},
    {"nvme", Volumes::kBusNvme},
    {"nvme-subsystem", Volumes::kBusNvme},
    {"mmc", Volumes::kBusSd},
    {"firewire", Volumes::kBusFireWire},
    {"ide", Volumes::kBusAta},
    {"virtio", Volumes::kBusVirtual},
    {"vmbus", Volumes::kBusVirtual},
    {"xen", Volumes::kBusVirtual},
    {"scsi", Volumes::kBusScsi},
};

// The transports of SCSI are directories of that name and a number.
constexpr NameAndBus kTransports[] = {
    {"ata", Volumes::kBusSata},
    {"end_device-", Volumes::kBusSas},
    {"rport-", Volumes::kBusFibre},
    {"session", Volumes::kBusIScsi},
};

// udev's ID_BUS, for what sysfs does not tell.
constexpr NameAndBus kUdevBuses[] = {
    {"usb", Volumes::kBusUsb},    {"ata", Volumes::kBusAta}, {"scsi", Volumes::kBusScsi},
    {"nvme", Volumes::kBusNvme},  {"mmc", Volumes::kBusSd},  {"ieee1394", Volumes::kBusFireWire},
    {"cciss", Volumes::kBusRaid},
};

template <size_t N>
std::optional<uint8_t> FindBus(const NameAndBus (&aTable)[N], std::string_view aName) {
  for (const auto& [name, bus] : aTable)
    if (name == aName) return bus;
  return std::nullopt;
}

std::string_view BaseName(std::string_view aPath) { return aPath.substr(aPath.rfind('/') + 1); }
std::string ParentOf(const std::string& aPath) { return aPath.substr(0, aPath.rfind('/')); }

std::optional<uint8_t> TransportOf(std::string_view aName) {
  for (const auto& [name, bus] : kTransports)
    if (aName.size() > name.size() && aName.starts_with(name) && aName[name.size()] >= '0' &&
        aName[name.size()] <= '9')
      return bus;
  return std::nullopt;
}

// Disks on disks, as encryption and RAID make them, are not stacked deeper than this by anyone.
constexpr int kMaximumDepth = 8;

}  // namespace

std::optional<nsBlockDevice> nsBlockDevices::ByNumber(unsigned aMajor, unsigned aMinor) const {
  const auto path =
      mTree.ReadLink("/sys/dev/block/" + std::to_string(aMajor) + ":" + std::to_string(aMinor));
  if (!path) return std::nullopt;
  return Read(*path, 0);
}

std::optional<nsBlockDevice> nsBlockDevices::ByNode(const std::string& aNode) const {
  if (!aNode.starts_with("/dev/")) return std::nullopt;
  std::optional<std::string> path;
  if (constexpr std::string_view kMapper = "/dev/mapper/"; aNode.starts_with(kMapper)) {
    for (const std::string& name : mTree.List("/sys/class/block"))
      if (mTree.ReadAttribute("/sys/class/block/" + name + "/dm/name") ==
          aNode.substr(kMapper.size()))
        path = mTree.ReadLink("/sys/class/block/" + name);
  } else {
    path = mTree.ReadLink("/sys/class/block/" + std::string(BaseName(aNode)));
  }
  if (!path) return std::nullopt;
  return Read(*path, 0);
}

nsBlockDevice nsBlockDevices::Read(const std::string& aSysPath, int aDepth) const {
  nsBlockDevice device;
  device.mSysPath = aSysPath;
  device.mProperties = PropertiesOf(aSysPath);
  // What a disk is, its partitions are too.
  const std::string disk = mTree.Exists(aSysPath + "/partition") ? ParentOf(aSysPath) : aSysPath;
  device.mSequence = mTree.ReadAttribute(disk + "/diskseq");
  if (disk.starts_with("/sys/devices/virtual/block/")) {
    ReadComposed(device, disk, aDepth);
    return device;
  }

  device.mDisks = {disk};
  const auto properties = disk == aSysPath ? device.mProperties : PropertiesOf(disk);
  const auto property = [&](const char* aName) {
    const auto found = properties.find(aName);
    return found == properties.end() ? std::string() : found->second;
  };
  device.mBus = BusOf(disk);
  if (!device.mBus) device.mBus = FindBus(kUdevBuses, property("ID_BUS"));
  if (!device.mBus) device.mBus = Volumes::kBusUnknown;

  constexpr std::string_view kScsiOptical = "5";
  if (property("ID_CDROM") == "1" || mTree.ReadAttribute(disk + "/device/type") == kScsiOptical) {
    device.mKind = Volumes::kDriveCdRom;
    if (device.mBus == Volumes::kBusSata || device.mBus == Volumes::kBusAta)
      device.mBus = Volumes::kBusAtapi;
  } else if (mTree.ReadAttribute(disk + "/removable") == "1" || IsInSlot(disk)) {
    device.mKind = Volumes::kDriveRemovable;
  } else {
    device.mKind = Volumes::kDriveFixed;
  }
  return device;
}

// Devices that the kernel makes of others, of files or of memory.
void nsBlockDevices::ReadComposed(nsBlockDevice& aDevice, const std::string& aDisk,
                                  int aDepth) const {
  const std::string_view name = BaseName(aDisk);
  aDevice.mKind = Volumes::kDriveUnknown;
  if (name.starts_with("loop")) {
    aDevice.mBus = Volumes::kBusFileBackedVirtual;
  } else if (name.starts_with("ram") || name.starts_with("zram")) {
    aDevice.mKind = Volumes::kDriveRamDisk;
  }
  if (aDepth == kMaximumDepth) return;

  // An encrypted or composed disk is what the disks below it are, so far as they agree: one that
  // lies partly on an internal disk can't be carried away.
  bool first = true;
  for (const std::string& slave : mTree.List(aDisk + "/slaves")) {
    const auto path = mTree.ReadLink(aDisk + "/slaves/" + slave);
    if (!path) continue;
    const nsBlockDevice below = Read(*path, aDepth + 1);
    aDevice.mDisks.insert(below.mDisks.begin(), below.mDisks.end());
    if (first) {
      aDevice.mKind = below.mKind;
      aDevice.mBus = below.mBus;
    } else {
      if (aDevice.mKind != below.mKind) aDevice.mKind = Volumes::kDriveFixed;
      if (aDevice.mBus != below.mBus) aDevice.mBus = Volumes::kBusRaid;
    }
    first = false;
  }
}

// A memory card in a slot of the machine. The disk's own attribute says of no such card that it can
// be taken out. The card's does where the kernel has it; before that, those that can are of another
// type than the chips that are soldered in.
bool nsBlockDevices::IsInSlot(const std::string& aDisk) const {
  const std::string card = ParentOf(ParentOf(aDisk));
  const auto subsystem = mTree.ReadLink(card + "/subsystem");
  if (!subsystem || BaseName(*subsystem) != "mmc") return false;
  const std::string removable = mTree.ReadAttribute(card + "/removable");
  if (removable == "removable" || removable == "fixed") return removable == "removable";
  return mTree.ReadAttribute(card + "/type").starts_with("SD");
}

// A disk in a case often speaks another bus inside, so USB counts wherever on the way up it stands;
// else the nearest.
std::optional<uint8_t> nsBlockDevices::BusOf(const std::string& aDisk) const {
  std::optional<uint8_t> nearest;
  for (std::string path = ParentOf(aDisk); path.size() > std::string_view("/sys/devices").size();
       path = ParentOf(path)) {
    std::optional<uint8_t> bus = TransportOf(BaseName(path));
    if (!bus) {
      const auto subsystem = mTree.ReadLink(path + "/subsystem");
      if (subsystem) bus = FindBus(kSubsystems, BaseName(*subsystem));
    }
    if (!bus) continue;
    if (bus == Volumes::kBusSd && mTree.ReadAttribute(path + "/type") == "MMC")
      bus = Volumes::kBusMmc;
    if (bus == Volumes::kBusUsb) return bus;
    // "SCSI" is what the kernel says of every disk that is driven like one, until its transport
    // tells more.
    if (!nearest || nearest == Volumes::kBusScsi) nearest = bus;
  }
  return nearest;
}

std::map<std::string, std::string> nsBlockDevices::PropertiesOf(const std::string& aSysPath) const {
  std::map<std::string, std::string> properties;
  const std::string number = mTree.ReadAttribute(aSysPath + "/dev");
  // The number names a file: nothing but digits may get into a path.
  if (number.empty() || number.find_first_not_of("0123456789:") != number.npos) return properties;
  const std::string text = mTree.ReadFile("/run/udev/data/b" + number).value_or("");
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    const std::string line = text.substr(at, end - at);
    const size_t equals = line.find('=');
    if (line.starts_with("E:") && equals != line.npos)
      properties[line.substr(2, equals - 2)] = line.substr(equals + 1);
    at = end + 1;
  }
  return properties;
}

// What sysfs and udev know of a link.
#pragma once

#include "nsFileTree.h"
#include "nsNetlink.h"

/// The value of "KEY=value" in a text of such lines; empty when it is not there.
std::string NS_ValueOfKey(const std::string& aText, const std::string& aKey);

/// Reads little at once: links of a kind of their own, such as virtual wires, need next to no file.
class nsLinkFiles {
 public:
  /// Both must outlive this.
  nsLinkFiles(const nsFileTree& aFiles, const vorel::netlink::Link& aLink);

  /// 0, or the number of errno for which the machine could not be asked just now. Type and Medium
  /// are a guess then.
  int Error() const { return mError; }
  /// One of nsAdapterAddresses::Type.
  uint32_t Type() const;
  /// One of nsIfRow::Medium. A wire is a device with hardware behind it, or one end of a pair: what
  /// looks like it, bridges and taps, is none.
  uint32_t Medium() const;
  /// Bits a second; 0 when the link is down or does not know.
  uint64_t Speed() const;
  /// "82574L Gigabit Network Connection (e1000e, pci)", "virtio_net (virtio)", "veth (virtual)".
  std::string Description() const;

 private:
  const nsFileTree& mFiles;
  const vorel::netlink::Link& mLink;
  const std::string mPath;
  int mError = 0;
  bool mIsHardware = false;
  bool mIsWireless = false;
  std::string mDeviceType;
};

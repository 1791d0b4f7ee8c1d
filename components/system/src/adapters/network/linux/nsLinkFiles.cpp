#include "nsLinkFiles.h"

#include <linux/if.h>
#include <linux/if_arp.h>

#include <cerrno>
#include <cstdlib>
#include <sstream>

#include "nsPlatformNetwork.h"
#include "nsRetry.h"

namespace {

using Record = nsAdapterAddresses;

std::string LastPart(const std::string& aPath) { return aPath.substr(aPath.rfind('/') + 1); }

}  // namespace

std::string NS_ValueOfKey(const std::string& aText, const std::string& aKey) {
  std::istringstream lines(aText);
  for (std::string line; std::getline(lines, line);)
    if (line.starts_with(aKey + "=")) return line.substr(aKey.size() + 1);
  return "";
}

nsLinkFiles::nsLinkFiles(const nsFileTree& aFiles, const vorel::netlink::Link& aLink)
    : mFiles(aFiles), mLink(aLink), mPath("/sys/class/net/" + aLink.mName) {
  const auto exists = [&](const char* aName) {
    const bool is = mFiles.Exists(mPath + aName);
    if (!is && NS_IsPassing(errno)) mError = errno;
    return is;
  };
  mIsHardware = !aLink.mParent.empty() || (aLink.mKind.empty() && exists("/device"));
  if (!mIsHardware && !aLink.mKind.empty()) return;
  const auto told = mFiles.ReadFile(mPath + "/uevent");
  if (!told && NS_IsPassing(errno)) mError = errno;
  mDeviceType = NS_ValueOfKey(told.value_or(""), "DEVTYPE");
  mIsWireless = mDeviceType == "wlan" || exists("/phy80211");
}

uint32_t nsLinkFiles::Type() const {
  switch (mLink.mHardwareType) {
    case ARPHRD_ETHER:
      if (mIsWireless) return Record::kWireless;
      return mDeviceType == "wwan" ? Record::kWwan : Record::kEthernet;
    case ARPHRD_LOOPBACK:
      return Record::kLoopback;
    case ARPHRD_PPP:
      return Record::kPpp;
    case ARPHRD_RAWIP:
      return Record::kWwan;
    case ARPHRD_TUNNEL:
    case ARPHRD_TUNNEL6:
    case ARPHRD_SIT:
    case ARPHRD_IPGRE:
    case ARPHRD_IP6GRE:
      return Record::kTunnel;
    default:  // among them links of bare radio frames, which listen and carry no addresses
      return Record::kOther;
  }
}

uint32_t nsLinkFiles::Medium() const {
  if (mIsWireless) return nsIfRow::kNative80211;
  if (mDeviceType == "bluetooth") return nsIfRow::kBluetooth;
  const bool wire = mLink.mHardwareType == ARPHRD_ETHER && (mIsHardware || mLink.mKind == "veth");
  return wire ? nsIfRow::kEthernet8023 : nsIfRow::kOther;
}

uint64_t nsLinkFiles::Speed() const {
  if (mLink.mHardwareType != ARPHRD_ETHER || mLink.mOperState != IF_OPER_UP) return 0;
  // Millions of them; -1 when the link does not know.
  const std::string text = mFiles.ReadAttribute(mPath + "/speed");
  return text.empty() || text[0] == '-' ? 0 : std::strtoull(text.c_str(), nullptr, 10) * 1'000'000;
}

std::string nsLinkFiles::Description() const {
  if (!mIsHardware) return (mLink.mKind.empty() ? mLink.mName : mLink.mKind) + " (virtual)";
  const std::string device = mPath + "/device";
  const auto linkedName = [&](const char* aName) {
    return LastPart(mFiles.ReadLink(device + aName).value_or(""));
  };
  const std::string driver = linkedName("/driver");
  std::string bus = mLink.mParentBus;
  if (bus.empty()) bus = linkedName("/subsystem");
  std::string product;
  if (bus == "usb") {  // what stands behind the link is one function of the device
    const std::string function = mFiles.ReadLink(device).value_or("");
    product = mFiles.ReadAttribute(function.substr(0, function.rfind('/')) + "/product");
  }
  if (product.empty())
    product = NS_ValueOfKey(
        mFiles.ReadFile("/run/udev/data/n" + std::to_string(mLink.mIndex)).value_or(""),
        "E:ID_MODEL_FROM_DATABASE");
  std::string attached = driver;
  if (!bus.empty()) attached += (attached.empty() ? "" : ", ") + bus;
  if (!product.empty()) return attached.empty() ? product : product + " (" + attached + ")";
  if (!driver.empty()) return driver + " (" + bus + ")";
  return mLink.mName;
}

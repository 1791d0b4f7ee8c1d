// The port of network interfaces: the adapter records of the machine, in two lists that discovery
// joins.
//
// The records have the shape, the field names and the numbers of one platform's functions for it. A
// backend fills in every field that its system knows.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "nsError.h"
#include "nsPlatformRegistry.h"

/// A family and the bytes of its address, in network order.
struct nsSocketAddress {
  enum Family : uint16_t { kIPv4 = 2, kIPv6 = 23 };
  uint16_t mFamily = kIPv4;
  std::array<uint8_t, 16> mBytes{};  ///< The first four for every family but kIPv6.

  friend bool operator==(const nsSocketAddress&, const nsSocketAddress&) = default;
};

/// One address that an interface has.
struct nsUnicastAddress {
  nsSocketAddress mAddress;
  uint8_t mOnLinkPrefixLength = 0;  ///< In bits.
  uint16_t mPrefixOrigin = 1;       ///< 0 other, 1 manual, 2 well known, 3 DHCP, 4 router.
  uint32_t mSuffixOrigin = 1;       ///< The same, 4 link-layer address, 5 random.
  uint32_t mDadState = 4;  ///< 0 invalid, 1 tentative, 2 duplicate, 3 deprecated, 4 preferred.
  uint64_t mValidLifetime = 0xffffffff;  ///< In seconds; 0xffffffff for ever.
  uint64_t mPreferredLifetime = 0xffffffff;
  uint64_t mLeaseLifetime = 0xffffffff;
};

/// The first picture of an interface: nearly everything.
struct nsAdapterAddresses {
  enum Flags : uint32_t { kDhcpEnabled = 0x4, kIpv4Enabled = 0x80, kIpv6Enabled = 0x100 };
  enum Type : uint32_t {
    kOther = 1,
    kEthernet = 6,
    kPpp = 23,
    kLoopback = 24,
    kWireless = 71,
    kTunnel = 131,
    kWwan = 243,
  };
  enum Status : uint32_t {
    kUp = 1,
    kDown = 2,
    kTesting = 3,
    kUnknown = 4,
    kDormant = 5,
    kNotPresent = 6,
    kLowerLayerDown = 7,
  };

  std::string mAdapterName;  ///< Identifies the interface for as long as it exists. Not empty.
  std::u16string mFriendlyName;
  std::u16string mDescription;
  uint32_t mIfIndex = 0;
  uint32_t mIpv6IfIndex = 0;  ///< 0 without IPv6.
  uint32_t mIfType = kOther;  ///< One of Type, or another of the numbers assigned by IANA.
  uint32_t mOperStatus = kUnknown;
  uint32_t mFlags = 0;
  std::vector<uint8_t> mPhysicalAddress;  ///< Of any length; empty for an interface without one.
  uint64_t mTransmitLinkSpeed = 0;        ///< In bits a second; 0 when not known.
  uint64_t mReceiveLinkSpeed = 0;
  std::vector<nsUnicastAddress> mUnicastAddresses;
  std::vector<nsSocketAddress> mAnycastAddresses;
  std::vector<nsSocketAddress> mMulticastAddresses;
  std::vector<nsSocketAddress> mDnsServers;  ///< In the order in which they are asked.
};

/// The second picture: IPv4 addresses and gateways as text.
struct nsAdapterInfo {
  struct Address {
    std::string mIpAddress;
    std::string mIpMask;
  };
  std::string mAdapterName;               ///< That of the first picture.
  std::vector<Address> mIpAddressList;    ///< At least one entry, "0.0.0.0" when there is none.
  std::vector<std::string> mGatewayList;  ///< The same; by rising metric.
};

/// What the interface table says of an interface.
struct nsIfRow {
  enum Medium : uint32_t {
    kUnspecified = 0,
    kNative80211 = 9,
    kBluetooth = 10,
    kEthernet8023 = 14,
    kOther = 19,
  };
  uint32_t mType = 0;                ///< As nsAdapterAddresses::Type.
  uint32_t mMediaType = 0;           ///< 0 for 802.3 frames.
  uint32_t mPhysicalMediumType = 0;  ///< kEthernet8023 when a wire ends here, kOther for bridges,
                                     ///< tunnels and everything that only looks like one.
};

struct nsSystemVersion {
  uint32_t mMajor = 0, mMinor = 0, mBuild = 0;
};

/// The interfaces as they were at one moment: both pictures and the rows of the interface table are
/// made of one reading, so that none lacks what another one has, and none fails alone for a reason
/// that has passed when the next one is asked for. One thread at a time.
class nsNetworkReading {
 public:
  /// Fills in the row of an interface, by its index; NS_ERROR_NOT_AVAILABLE when there is none.
  using GetIfEntry2Function = std::function<nsresult(uint32_t aIfIndex, nsIfRow* aRow)>;

  virtual ~nsNetworkReading() = default;

  /// The second picture, in the system's order: the interfaces that have a link-layer address of
  /// six bytes, which are those that can be adapters. NS_ERROR_NOT_AVAILABLE when there is none.
  /// Windows: GetAdaptersInfo.
  virtual nsresult GetAdaptersInfo(std::vector<nsAdapterInfo>* aInfos) = 0;
  /// The first list of records, in the system's order. aFamily is 0 for all; aFlags are those of
  /// nsPlatformNetwork.
  /// Windows: GetAdaptersAddresses.
  virtual nsresult GetAdaptersAddresses(uint32_t aFamily, uint32_t aFlags,
                                        std::vector<nsAdapterAddresses>* aAddresses) = 0;
  /// The function that reads a row; empty when the system has none or its library is not loaded. It
  /// lives no longer than the reading.
  /// Windows: GetProcAddress of "GetIfEntry2".
  virtual GetIfEntry2Function FindGetIfEntry2() = 0;
  /// Why the last of the two lists failed, for people.
  /// Windows: FormatMessageA.
  virtual std::string Reason() const = 0;
};

/// All methods may be called from any thread, at any time; none changes the machine. Errors not
/// named are NS_ERROR_FAILURE: the system does not answer.
class nsPlatformNetwork {
 public:
  /// Flags of GetAdaptersAddresses.
  static constexpr uint32_t kIncludePrefix = 0x10, kIncludeGateways = 0x80;
  /// Identifies the question for the name of the wireless network.
  static constexpr uint32_t kOidSsid = 0x0D010102;

  using PacketAdapter = uint32_t;

  virtual ~nsPlatformNetwork() = default;

  /// The version of the operating system; from major version 6 on the first picture is complete and
  /// the interface table is there, before that the old wireless test is. Does not change.
  /// Windows: GetVersionExA.
  virtual nsSystemVersion GetSystemVersion() = 0;

  /// Looks at the machine. Never null: one that failed says so when it is asked.
  /// Windows: none: the reading keeps what the first call of each function gives.
  virtual std::unique_ptr<nsNetworkReading> Read() = 0;

  /// Loads the library that has the interface table. False when the system has none; calling it
  /// again is free.
  /// Windows: LoadLibraryA of "iphlpapi.dll".
  virtual bool LoadIpHelper() = 0;

  /// The old wireless test: opens an interface by the name that the packet driver gives it.
  /// NS_ERROR_NOT_AVAILABLE when there is no driver or it does not know the name.
  /// Windows: PacketOpenAdapter, of the packet driver.
  virtual nsresult PacketOpenAdapter(const std::string& aName, PacketAdapter* aAdapter) = 0;
  /// Asks (aSet false) or tells the interface; aData is room for the answer, or what is told.
  /// NS_ERROR_NOT_AVAILABLE when it does not know the question.
  /// Windows: PacketRequest.
  virtual nsresult PacketRequest(PacketAdapter aAdapter, bool aSet, uint32_t aOid,
                                 std::vector<uint8_t>* aData) = 0;
  /// What PacketOpenAdapter gave is not to be used any more.
  /// Windows: PacketCloseAdapter.
  virtual void PacketCloseAdapter(PacketAdapter aAdapter) = 0;
};

/// Where the configuration store keeps the values of IP adapters: the key of all interfaces, and
/// below it one for each by its adapter name.
inline constexpr std::string_view kTcpipParametersKey =
    "SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters";
inline constexpr std::string_view kTcpipInterfacesKey = kRegistryExactKeys;
/// The key of one interface. A name may have a "\\", which would lead to another key, but no "/".
/// Names of interfaces that differ in case alone are those of different ones: the store tells keys
/// here apart by it.
inline std::string NS_TcpipInterfaceKey(std::string_view aAdapterName) {
  std::string key(kTcpipInterfacesKey);
  for (const char c : aAdapterName) key += c == '\\' ? '/' : c;
  return key;
}
/// Readers of a text value there have room for no more bytes.
inline constexpr uint32_t kTcpipValueCapacity = 256;

// A network interface as an adapter.
#pragma once

#include "nsISystemAdapter.h"

class nsIArray;
class nsISystemIPAddress;
class nsISystemIPStructure;
class nsISystemIPv4Structure;
class nsISystemIPv6Structure;
class nsISystemMACStructure;

/// Each interface has two of these. The live adapter stands in the manager's list and tells what is
/// in force; it refuses changes with NS_ERROR_NOT_IMPLEMENTED. The registered view, which the live
/// adapter hands out, reads and writes what is configured. Writing makes nothing come into force:
/// that takes a restart of the network's service or of the machine.
///
/// The system path is the interface's name in the system, and the label its friendly name.
///
/// The live adapter is renewed by discovery on the main thread, and is to be read there. A view may
/// be used from any thread. Addresses are handed out as clones or in new arrays, unless told
/// otherwise. In a view, a key or a value that is missing or can't be written is NS_ERROR_FAILURE.
///
/// Places without a name are reserved: NS_ERROR_NOT_IMPLEMENTED.
// script: global SystemAdapterIP, row 0
class nsISystemAdapterIP : public nsISystemAdapter {
 public:
  using Self = nsISystemAdapterIP;
  using Base = nsISystemAdapter;
  static constexpr std::string_view kName = "nsISystemAdapterIP";
  static constexpr nsIID kIID = "5f2df378-b4b4-44fa-a3cb-64be1f08db02"_iid;

  /// The registered view, always the same one; of a view, itself. It answers to what this adapter
  /// answers to.
  virtual nsresult GetRegistered(nsISystemAdapter** aRegistered) = 0;
  /// What the interface is, for people: its driver or product.
  virtual nsresult GetDescription(nsAString& aDescription) = 0;
  /// The number assigned by IANA: 6 Ethernet, 71 wireless, 1 other. 0 in a view.
  virtual nsresult GetInterfaceType(uint32_t* aInterfaceType) = 0;
  virtual nsresult Reserved11(void* aFirst) = 0;
  virtual nsresult Reserved12(void* aFirst) = 0;
  /// 1 up, 2 down, 3 testing, 4 unknown, 5 dormant, 6 not present, 7 lower layer down. 0 in a view.
  virtual nsresult GetOperStatus(uint32_t* aOperStatus) = 0;
  /// Null, and success, when there is none.
  virtual nsresult GetMacAddress(nsISystemMACStructure** aMacAddress) = 0;
  /// In bits a second; 0 when not known. A view has the speeds, and the next two, of the moment
  /// when it was made.
  virtual nsresult GetTransmitLinkSpeed(uint64_t* aTransmitLinkSpeed) = 0;
  virtual nsresult GetReceiveLinkSpeed(uint64_t* aReceiveLinkSpeed) = 0;
  virtual nsresult GetIsIpv4Enabled(bool* aIsIpv4Enabled) = 0;
  virtual nsresult GetIsIpv6Enabled(bool* aIsIpv6Enabled) = 0;
  /// 0 in a view.
  virtual nsresult GetIpv6InterfaceIndex(uint32_t* aIpv6InterfaceIndex) = 0;
  /// 0.
  virtual nsresult GetReservedCounterA(uint64_t* aReservedCounterA) = 0;
  virtual nsresult GetReservedCounterB(uint64_t* aReservedCounterB) = 0;
  /// The server of the last lease, read once a view; null, and success, of a live adapter.
  virtual nsresult GetDhcpv4Server(nsISystemIPv4Structure** aDhcpv4Server) = 0;
  /// Null, and success.
  virtual nsresult GetDhcpv6Server(nsISystemIPv6Structure** aDhcpv6Server) = 0;
  /// Whether the addresses come from a server.
  virtual nsresult GetIsDhcpv4Enabled(bool* aIsDhcpv4Enabled) = 0;
  virtual nsresult SetIsDhcpv4Enabled(bool aIsDhcpv4Enabled) = 0;
  /// Configures address, netmask and gateway, and the gateway's metric unless that is -1, in this
  /// order; what was written before a failure stays. A null argument is NS_ERROR_INVALID_ARG, also
  /// on a live adapter. Does not turn DHCP off.
  virtual nsresult SetIpv4Address(nsISystemIPStructure* aAddress, nsISystemIPStructure* aNetmask,
                                  nsISystemIPStructure* aGateway, int32_t aMetric) = 0;
  virtual nsresult Reserved27(void* aFirst, void* aSecond, void* aThird, void* aFourth) = 0;
  virtual nsresult Reserved28(void* aFirst) = 0;
  /// False in a view.
  virtual nsresult GetIsDhcpv6Enabled(bool* aIsDhcpv6Enabled) = 0;
  virtual nsresult Reserved30(void* aFirst) = 0;
  virtual nsresult Reserved31(void* aFirst, void* aSecond, void* aThird, void* aFourth,
                              void* aFifth, void* aSixth) = 0;
  virtual nsresult Reserved32(void* aFirst, void* aSecond, void* aThird, void* aFourth,
                              void* aFifth, void* aSixth) = 0;
  virtual nsresult Reserved33(void* aFirst, void* aSecond) = 0;
  /// A new array of nsISystemIPAddress. A view has the first configured IPv4 address, or that of
  /// the last lease when DHCP is on.
  virtual nsresult GetUnicastAddresses(nsIArray** aUnicastAddresses) = 0;
  /// The first that is IPv4, itself and no clone. NS_ERROR_FAILURE when there is none.
  virtual nsresult GetFirstIpv4Address(nsISystemIPAddress** aFirstIpv4Address) = 0;
  /// New arrays of nsISystemIPStructure, empty in a view.
  virtual nsresult GetAnycastAddresses(nsIArray** aAnycastAddresses) = 0;
  virtual nsresult GetMulticastAddresses(nsIArray** aMulticastAddresses) = 0;
  virtual nsresult Reserved38(void* aFirst) = 0;
  virtual nsresult Reserved39(void* aFirst) = 0;
  /// Whether the DNS servers come with the lease, that is, whether none is configured. A live
  /// adapter leaves the output as it is, and succeeds.
  virtual nsresult GetIsDnsDhcpEnabled(bool* aIsDnsDhcpEnabled) = 0;
  /// True takes the configured servers away; false changes nothing.
  virtual nsresult SetIsDnsDhcpEnabled(bool aIsDnsDhcpEnabled) = 0;
  /// Configures DNS servers; either may be null. With both null none is configured.
  virtual nsresult SetDns(nsISystemIPStructure* aPrimary, nsISystemIPStructure* aSecondary) = 0;
  /// The first two DNS servers; an output for which there is none stays as it is.
  virtual nsresult GetDns(nsISystemIPStructure** aPrimary, nsISystemIPStructure** aSecondary) = 0;
  /// A new array of nsISystemIPStructure, in the order in which they are asked.
  virtual nsresult GetDnsServers(nsIArray** aDnsServers) = 0;
  virtual nsresult Reserved45(void* aFirst, void* aSecond) = 0;
  virtual nsresult Reserved46(void* aFirst, void* aSecond) = 0;
  /// A new array of nsISystemIPStructure, by rising metric. A live adapter without a gateway has
  /// the one entry 0.0.0.0, a view has one at most.
  virtual nsresult GetGatewayAddresses(nsIArray** aGatewayAddresses) = 0;
  /// NS_ERROR_FAILURE when there is none.
  virtual nsresult GetFirstIpv4Gateway(nsISystemIPv4Structure** aFirstIpv4Gateway) = 0;
  virtual nsresult Reserved49(void* aFirst, void* aSecond, void* aThird, void* aFourth) = 0;
  virtual nsresult Reserved50(void* aFirst, void* aSecond) = 0;
  /// False.
  virtual nsresult GetIsAlwaysFalse(bool* aIsAlwaysFalse) = 0;
  /// Does nothing, and succeeds.
  virtual nsresult SetIgnored(uint32_t aIgnored) = 0;
  /// One below the number that the system's configuration has; 3 when that says nothing. The system
  /// has one for all interfaces; a live adapter has what was last set on it.
  virtual nsresult GetIgmpVersion(uint16_t* aIgmpVersion) = 0;
  virtual nsresult SetIgmpVersion(uint16_t aIgmpVersion) = 0;
  virtual nsresult Reserved55(void* aFirst) = 0;
  virtual nsresult Reserved56(void* aFirst) = 0;
  virtual nsresult Reserved57(void* aFirst) = 0;
  virtual nsresult Reserved58(void* aFirst) = 0;
  virtual nsresult Reserved59(void* aFirst) = 0;
  virtual nsresult Reserved60(void* aFirst) = 0;
  virtual nsresult Reserved61(void* aFirst) = 0;
  virtual nsresult Reserved62(void* aFirst) = 0;
  virtual nsresult Reserved63(void* aFirst) = 0;

 protected:
  ~nsISystemAdapterIP() = default;
};

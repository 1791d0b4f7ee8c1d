// Network interfaces.
#include "nsIArray.h"
#include "nsISystemAdapterIP.h"
#include "nsISystemAdapterLAN.h"
#include "nsISystemAdapterWLAN.h"
#include "nsISystemAdapterWWAN.h"
#include "nsISystemIPAddress.h"
#include "nsISystemIPv4Structure.h"
#include "nsISystemIPv6Structure.h"
#include "nsISystemMACStructure.h"
#include "nsSystemScript.h"

namespace {

constexpr auto kAdapterIP =
    nsBind<nsISystemAdapterIP, nsAttribute<"registered", &nsISystemAdapterIP::GetRegistered>,
           nsAttribute<"description", &nsISystemAdapterIP::GetDescription>,
           nsAttribute<"interfaceType", &nsISystemAdapterIP::GetInterfaceType>,
           nsLeftOut<&nsISystemAdapterIP::Reserved11>, nsLeftOut<&nsISystemAdapterIP::Reserved12>,
           nsAttribute<"operStatus", &nsISystemAdapterIP::GetOperStatus>,
           nsAttribute<"macAddress", &nsISystemAdapterIP::GetMacAddress>,
           nsAttribute<"transmitLinkSpeed", &nsISystemAdapterIP::GetTransmitLinkSpeed>,
           nsAttribute<"receiveLinkSpeed", &nsISystemAdapterIP::GetReceiveLinkSpeed>,
           nsAttribute<"isIpv4Enabled", &nsISystemAdapterIP::GetIsIpv4Enabled>,
           nsAttribute<"isIpv6Enabled", &nsISystemAdapterIP::GetIsIpv6Enabled>,
           nsAttribute<"ipv6InterfaceIndex", &nsISystemAdapterIP::GetIpv6InterfaceIndex>,
           nsAttribute<"reservedCounterA", &nsISystemAdapterIP::GetReservedCounterA>,
           nsAttribute<"reservedCounterB", &nsISystemAdapterIP::GetReservedCounterB>,
           nsAttribute<"dhcpv4Server", &nsISystemAdapterIP::GetDhcpv4Server>,
           nsAttribute<"dhcpv6Server", &nsISystemAdapterIP::GetDhcpv6Server>,
           nsAttribute<"isDhcpv4Enabled", &nsISystemAdapterIP::GetIsDhcpv4Enabled,
                       &nsISystemAdapterIP::SetIsDhcpv4Enabled>,
           nsMethod<"setIpv4Address", &nsISystemAdapterIP::SetIpv4Address, "aAddress", "aNetmask",
                    "aGateway", "aMetric">,
           nsLeftOut<&nsISystemAdapterIP::Reserved27>, nsLeftOut<&nsISystemAdapterIP::Reserved28>,
           nsAttribute<"isDhcpv6Enabled", &nsISystemAdapterIP::GetIsDhcpv6Enabled>,
           nsLeftOut<&nsISystemAdapterIP::Reserved30>, nsLeftOut<&nsISystemAdapterIP::Reserved31>,
           nsLeftOut<&nsISystemAdapterIP::Reserved32>, nsLeftOut<&nsISystemAdapterIP::Reserved33>,
           nsAttribute<"unicastAddresses", &nsISystemAdapterIP::GetUnicastAddresses>,
           nsAttribute<"firstIpv4Address", &nsISystemAdapterIP::GetFirstIpv4Address>,
           nsAttribute<"anycastAddresses", &nsISystemAdapterIP::GetAnycastAddresses>,
           nsAttribute<"multicastAddresses", &nsISystemAdapterIP::GetMulticastAddresses>,
           nsLeftOut<&nsISystemAdapterIP::Reserved38>, nsLeftOut<&nsISystemAdapterIP::Reserved39>,
           nsAttribute<"isDnsDhcpEnabled", &nsISystemAdapterIP::GetIsDnsDhcpEnabled,
                       &nsISystemAdapterIP::SetIsDnsDhcpEnabled>,
           nsMethod<"setDns", &nsISystemAdapterIP::SetDns, "aPrimary", "aSecondary">,
           nsMethod<"getDns", &nsISystemAdapterIP::GetDns, "aPrimary", "aSecondary">,
           nsAttribute<"dnsServers", &nsISystemAdapterIP::GetDnsServers>,
           nsLeftOut<&nsISystemAdapterIP::Reserved45>, nsLeftOut<&nsISystemAdapterIP::Reserved46>,
           nsAttribute<"gatewayAddresses", &nsISystemAdapterIP::GetGatewayAddresses>,
           nsAttribute<"firstIpv4Gateway", &nsISystemAdapterIP::GetFirstIpv4Gateway>,
           nsLeftOut<&nsISystemAdapterIP::Reserved49>, nsLeftOut<&nsISystemAdapterIP::Reserved50>,
           nsAttribute<"isAlwaysFalse", &nsISystemAdapterIP::GetIsAlwaysFalse>,
           nsMethod<"setIgnored", &nsISystemAdapterIP::SetIgnored, "aIgnored">,
           nsAttribute<"igmpVersion", &nsISystemAdapterIP::GetIgmpVersion,
                       &nsISystemAdapterIP::SetIgmpVersion>,
           nsLeftOut<&nsISystemAdapterIP::Reserved55>, nsLeftOut<&nsISystemAdapterIP::Reserved56>,
           nsLeftOut<&nsISystemAdapterIP::Reserved57>, nsLeftOut<&nsISystemAdapterIP::Reserved58>,
           nsLeftOut<&nsISystemAdapterIP::Reserved59>, nsLeftOut<&nsISystemAdapterIP::Reserved60>,
           nsLeftOut<&nsISystemAdapterIP::Reserved61>, nsLeftOut<&nsISystemAdapterIP::Reserved62>,
           nsLeftOut<&nsISystemAdapterIP::Reserved63>>();

constexpr auto kAdapterLAN = nsBind<nsISystemAdapterLAN>();

constexpr auto kAdapterWLAN = nsBind<
    nsISystemAdapterWLAN, nsLeftOut<&nsISystemAdapterWLAN::Reserved64>,
    nsLeftOut<&nsISystemAdapterWLAN::Reserved65>, nsLeftOut<&nsISystemAdapterWLAN::Reserved66>,
    nsLeftOut<&nsISystemAdapterWLAN::Reserved67>, nsLeftOut<&nsISystemAdapterWLAN::Reserved68>,
    nsLeftOut<&nsISystemAdapterWLAN::Reserved69>>();

constexpr auto kAdapterWWAN =
    nsBind<nsISystemAdapterWWAN, nsLeftOut<&nsISystemAdapterWWAN::Reserved64>,
           nsLeftOut<&nsISystemAdapterWWAN::Reserved65>,
           nsLeftOut<&nsISystemAdapterWWAN::Reserved66>,
           nsLeftOut<&nsISystemAdapterWWAN::Reserved67>>();

}  // namespace

nsScriptTableList NS_NetworkTables() {
  return {kAdapterIP, kAdapterLAN, kAdapterWLAN, kAdapterWWAN};
}

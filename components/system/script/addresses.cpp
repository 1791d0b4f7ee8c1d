// Addresses as values.
#include "nsISystemIPAddress.h"
#include "nsISystemIPStructure.h"
#include "nsISystemIPv4Structure.h"
#include "nsISystemIPv6Structure.h"
#include "nsISystemMACStructure.h"
#include "nsSystemScript.h"

namespace {

constexpr auto kIPStructure = nsBind<
    nsISystemIPStructure,
    nsAttribute<"string", &nsISystemIPStructure::GetString, &nsISystemIPStructure::SetString>,
    nsMethod<"getBytes", &nsISystemIPStructure::GetBytes, "aCount", "aBytes[aCount]">,
    nsMethod<"setBytes", &nsISystemIPStructure::SetBytes, "aCount", "aBytes[aCount]">,
    nsMethod<"clone", &nsISystemIPStructure::Clone, "aClone">,
    nsMethod<"equals", &nsISystemIPStructure::Equals, "aOther", "aEqual">>();

constexpr auto kIPv4Structure = nsBind<
    nsISystemIPv4Structure,
    nsAttribute<"byte0", &nsISystemIPv4Structure::GetByte0, &nsISystemIPv4Structure::SetByte0>,
    nsAttribute<"byte1", &nsISystemIPv4Structure::GetByte1, &nsISystemIPv4Structure::SetByte1>,
    nsAttribute<"byte2", &nsISystemIPv4Structure::GetByte2, &nsISystemIPv4Structure::SetByte2>,
    nsAttribute<"byte3", &nsISystemIPv4Structure::GetByte3, &nsISystemIPv4Structure::SetByte3>>();

constexpr auto kIPv6Structure = nsBind<
    nsISystemIPv6Structure,
    nsAttribute<"byte0", &nsISystemIPv6Structure::GetByte0, &nsISystemIPv6Structure::SetByte0>,
    nsAttribute<"byte1", &nsISystemIPv6Structure::GetByte1, &nsISystemIPv6Structure::SetByte1>,
    nsAttribute<"byte2", &nsISystemIPv6Structure::GetByte2, &nsISystemIPv6Structure::SetByte2>,
    nsAttribute<"byte3", &nsISystemIPv6Structure::GetByte3, &nsISystemIPv6Structure::SetByte3>,
    nsAttribute<"byte4", &nsISystemIPv6Structure::GetByte4, &nsISystemIPv6Structure::SetByte4>,
    nsAttribute<"byte5", &nsISystemIPv6Structure::GetByte5, &nsISystemIPv6Structure::SetByte5>,
    nsAttribute<"byte6", &nsISystemIPv6Structure::GetByte6, &nsISystemIPv6Structure::SetByte6>,
    nsAttribute<"byte7", &nsISystemIPv6Structure::GetByte7, &nsISystemIPv6Structure::SetByte7>,
    nsAttribute<"byte8", &nsISystemIPv6Structure::GetByte8, &nsISystemIPv6Structure::SetByte8>,
    nsAttribute<"byte9", &nsISystemIPv6Structure::GetByte9, &nsISystemIPv6Structure::SetByte9>,
    nsAttribute<"byte10", &nsISystemIPv6Structure::GetByte10, &nsISystemIPv6Structure::SetByte10>,
    nsAttribute<"byte11", &nsISystemIPv6Structure::GetByte11, &nsISystemIPv6Structure::SetByte11>,
    nsAttribute<"byte12", &nsISystemIPv6Structure::GetByte12, &nsISystemIPv6Structure::SetByte12>,
    nsAttribute<"byte13", &nsISystemIPv6Structure::GetByte13, &nsISystemIPv6Structure::SetByte13>,
    nsAttribute<"byte14", &nsISystemIPv6Structure::GetByte14, &nsISystemIPv6Structure::SetByte14>,
    nsAttribute<"byte15", &nsISystemIPv6Structure::GetByte15,
                &nsISystemIPv6Structure::SetByte15>>();

constexpr auto kMACStructure = nsBind<
    nsISystemMACStructure,
    nsAttribute<"byte0", &nsISystemMACStructure::GetByte0, &nsISystemMACStructure::SetByte0>,
    nsAttribute<"byte1", &nsISystemMACStructure::GetByte1, &nsISystemMACStructure::SetByte1>,
    nsAttribute<"byte2", &nsISystemMACStructure::GetByte2, &nsISystemMACStructure::SetByte2>,
    nsAttribute<"byte3", &nsISystemMACStructure::GetByte3, &nsISystemMACStructure::SetByte3>,
    nsAttribute<"byte4", &nsISystemMACStructure::GetByte4, &nsISystemMACStructure::SetByte4>,
    nsAttribute<"byte5", &nsISystemMACStructure::GetByte5, &nsISystemMACStructure::SetByte5>>();

constexpr auto kIPAddress = nsBind<
    nsISystemIPAddress,
    nsAttribute<"address", &nsISystemIPAddress::GetAddress, &nsISystemIPAddress::SetAddress>,
    nsAttribute<"prefixLength", &nsISystemIPAddress::GetPrefixLength,
                &nsISystemIPAddress::SetPrefixLength>,
    nsAttribute<"mask", &nsISystemIPAddress::GetMask, &nsISystemIPAddress::SetMask>,
    nsAttribute<"prefixOrigin", &nsISystemIPAddress::GetPrefixOrigin,
                &nsISystemIPAddress::SetPrefixOrigin>,
    nsAttribute<"suffixOrigin", &nsISystemIPAddress::GetSuffixOrigin,
                &nsISystemIPAddress::SetSuffixOrigin>,
    nsAttribute<"validLifetime", &nsISystemIPAddress::GetValidLifetime,
                &nsISystemIPAddress::SetValidLifetime>,
    nsAttribute<"preferredLifetime", &nsISystemIPAddress::GetPreferredLifetime,
                &nsISystemIPAddress::SetPreferredLifetime>,
    nsAttribute<"leaseLifetime", &nsISystemIPAddress::GetLeaseLifetime,
                &nsISystemIPAddress::SetLeaseLifetime>,
    nsAttribute<"dadState", &nsISystemIPAddress::GetDadState, &nsISystemIPAddress::SetDadState>>();

}  // namespace

nsScriptTableList NS_AddressTables() {
  return {kIPStructure, kIPv4Structure, kIPv6Structure, kMACStructure, kIPAddress};
}

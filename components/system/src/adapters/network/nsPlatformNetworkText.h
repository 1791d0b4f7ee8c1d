// The texts of addresses and nets that a network's backends and its logic share.
#pragma once

#include <string>
#include <string_view>

#include "nsAddressText.h"
#include "nsPlatformNetworkSettings.h"

inline std::string NS_AddressText(const nsSocketAddress& aAddress) {
  return aAddress.mFamily == nsSocketAddress::kIPv6
             ? vorel::address::FormatIPv6(aAddress.mBytes)
             : vorel::address::FormatIPv4(std::span(aAddress.mBytes).first<4>());
}

/// "192.0.2.1/24".
inline std::string NS_NetText(const nsIPNet& aNet) {
  return NS_AddressText(aNet.mAddress) + "/" + std::to_string(aNet.mPrefixLength);
}

/// "192.0.2.1" or "2001:db8::1", in the one spelling that this system writes.
inline bool NS_ReadAddress(std::string_view aText, nsSocketAddress* aAddress) {
  nsSocketAddress address;
  // The readers of addresses take more than one spelling.
  if (aText.find(':') == aText.npos) {
    if (NS_FAILED(vorel::address::ParseIPv4(aText, std::span(address.mBytes).first<4>())))
      return false;
  } else {
    address.mFamily = nsSocketAddress::kIPv6;
    size_t read = 0;
    if (NS_FAILED(vorel::address::ParseIPv6(aText, address.mBytes, &read)) || read != aText.size())
      return false;
  }
  if (NS_AddressText(address) != aText) return false;
  *aAddress = address;
  return true;
}

/// What bytes of an address its family has: 4 or 16.
inline size_t NS_AddressSize(const nsSocketAddress& aAddress) {
  return aAddress.mFamily == nsSocketAddress::kIPv6 ? 16 : 4;
}

#include "nsSystemIPStructure.h"

#include <algorithm>
#include <memory>

#include "nsAddressText.h"
#include "nsDebug.h"
#include "nsXPCOM.h"

namespace {
struct Free {
  void operator()(void* aMemory) const { NS_Free(aMemory); }
};
using OwnedBytes = std::unique_ptr<uint8_t, Free>;
}  // namespace

nsresult nsAddressBytes::GetBytes(uint32_t* aCount, uint8_t** aBytes) const {
  if (mLength == 0) return NS_ERROR_FAILURE;
  // Four bytes for each byte of the address: callers were promised that much room.
  auto* bytes = static_cast<uint8_t*>(NS_Alloc(size_t{4} * mLength));
  if (!bytes) return NS_ERROR_OUT_OF_MEMORY;
  std::copy_n(mBytes.begin(), mLength, bytes);
  *aCount = mLength;
  *aBytes = bytes;
  return NS_OK;
}

nsresult nsAddressBytes::SetBytes(uint32_t aCount, const uint8_t* aBytes) {
  if (!aBytes) return NS_ERROR_INVALID_ARG;
  if (aCount != mLength) return NS_ERROR_FAILURE;
  std::copy_n(aBytes, aCount, mBytes.begin());
  return NS_OK;
}

nsresult nsAddressBytes::Equals(nsISystemIPStructure* aOther, bool* aEqual) const {
  uint32_t count = 0;
  uint8_t* bytes = nullptr;
  if (!aOther || NS_FAILED(aOther->GetBytes(&count, &bytes))) {
    *aEqual = false;
    return NS_OK;
  }
  const OwnedBytes owned(bytes);
  *aEqual = std::ranges::equal(Address(), std::span(bytes, count));
  return NS_OK;
}

void nsAddressBytes::Assign(std::span<const uint8_t> aBytes) {
  mLength = static_cast<uint32_t>(aBytes.size());
  if (mBytes.size() < aBytes.size()) mBytes.resize(aBytes.size());
  std::ranges::copy(aBytes, mBytes.begin());
}

std::string nsSystemIPv4Structure::Format() {
  return vorel::address::FormatIPv4(mBytes.First<kLength>());
}

nsresult nsSystemIPv4Structure::Parse(std::string_view aText) {
  return vorel::address::ParseIPv4(aText, mBytes.First<kLength>());
}

std::string nsSystemIPv6Structure::Format() {
  return vorel::address::FormatIPv6(mBytes.First<kLength>());
}

nsresult nsSystemIPv6Structure::Parse(std::string_view aText) {
  return vorel::address::ParseIPv6(aText, mBytes.First<kLength>());
}

std::string nsSystemMACStructure::Format() { return vorel::address::FormatMAC(mBytes.Address()); }

nsresult nsSystemMACStructure::Parse(std::string_view aText) {
  std::vector<uint8_t> bytes;
  if (const nsresult rv = vorel::address::ParseMAC(aText, &bytes); NS_FAILED(rv)) return rv;
  mBytes.Assign(bytes);
  return NS_OK;
}

nsresult nsSystemIPAddress::GetAddress(nsISystemIPStructure** aAddress) {
  nsCOMPtr(mAddress).forget(aAddress);
  return NS_OK;
}

nsresult nsSystemIPAddress::SetAddress(nsISystemIPStructure* aAddress) {
  mAddress = aAddress;
  return NS_OK;
}

nsresult nsSystemIPAddress::GetPrefixLength(uint8_t* aPrefixLength) {
  *aPrefixLength = mPrefixLength;
  return NS_OK;
}

nsresult nsSystemIPAddress::SetPrefixLength(uint8_t aPrefixLength) {
  mPrefixLength = aPrefixLength;
  return NS_OK;
}

nsresult nsSystemIPAddress::GetMask(nsISystemIPStructure** aMask) {
  const auto mask = MakeRefCounted<nsSystemIPv4Structure>();
  std::array<uint8_t, 4> bytes{};
  for (unsigned bit = 0; bit < std::min<unsigned>(mPrefixLength, 32); ++bit)
    bytes[bit / 8] = static_cast<uint8_t>(bytes[bit / 8] | 0x80u >> bit % 8);
  const nsresult rv = mask->SetBytes(bytes.size(), bytes.data());
  NS_ENSURE_SUCCESS(rv, rv);
  nsCOMPtr<nsISystemIPStructure>(mask).forget(aMask);
  return NS_OK;
}

nsresult nsSystemIPAddress::SetMask(nsISystemIPStructure* aMask) {
  if (!aMask) return NS_ERROR_NULL_POINTER;
  uint32_t count = 0;
  uint8_t* bytes = nullptr;
  const nsresult rv = aMask->GetBytes(&count, &bytes);
  NS_ENSURE_SUCCESS(rv, rv);
  const OwnedBytes owned(bytes);
  uint32_t bits = 0;
  while (bits < count * 8 && (bytes[bits / 8] & 0x80u >> bits % 8)) ++bits;
  mPrefixLength = static_cast<uint8_t>(bits);
  return NS_OK;
}

nsresult nsSystemIPAddress::GetPrefixOrigin(uint16_t* aPrefixOrigin) {
  *aPrefixOrigin = mPrefixOrigin;
  return NS_OK;
}

// Text forms of addresses. Any bytes may be given as text; a zero byte ends it.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "nsError.h"

namespace vorel::address {

/// The four numbers with points between.
std::string FormatIPv4(std::span<const uint8_t, 4> aBytes);
/// NS_ERROR_FAILURE with fewer than four numbers, and nothing is stored. NS_ERROR_NOT_IMPLEMENTED
/// for a number that is not in 0 to 255; what stands before it is stored.
nsresult ParseIPv4(std::string_view aText, std::span<uint8_t, 4> aBytes);

/// Lower case, the longest run of two or more zero groups written as "::" (the first of equal
/// runs). IPv4-compatible, -mapped and -translated addresses and those of the ISATAP form end in
/// four decimal numbers.
std::string FormatIPv6(std::span<const uint8_t, 16> aBytes);
/// Reads the longest address that the text starts with. NS_ERROR_FAILURE, and nothing is stored,
/// when it starts with none.
nsresult ParseIPv6(std::string_view aText, std::span<uint8_t, 16> aBytes, size_t* aRead = nullptr);

/// Two upper case digits a byte, "-" between.
std::string FormatMAC(std::span<const uint8_t> aBytes);
/// As many bytes as the text has. NS_ERROR_FAILURE, and *aBytes untouched, for other text.
nsresult ParseMAC(std::string_view aText, std::vector<uint8_t>* aBytes);

}  // namespace vorel::address

#include "nsAddressText.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

namespace vorel::address {
namespace {

constexpr unsigned long kLargestNumber = 0x7fffffff;

bool IsDigit(char aChar) { return aChar >= '0' && aChar <= '9'; }
bool IsHexDigit(char aChar) {
  return IsDigit(aChar) || (aChar >= 'a' && aChar <= 'f') || (aChar >= 'A' && aChar <= 'F');
}

void AppendDotted(std::string& aText, std::span<const uint8_t, 4> aBytes) {
  for (size_t i = 0; i < 4; ++i) aText += (i == 0 ? "" : ".") + std::to_string(aBytes[i]);
}

}  // namespace

std::string FormatIPv4(std::span<const uint8_t, 4> aBytes) {
  std::string text;
  AppendDotted(text, aBytes);
  return text;
}

nsresult ParseIPv4(std::string_view aText, std::span<uint8_t, 4> aBytes) {
  const std::string text(aText);
  const char* at = text.c_str();
  std::array<long, 4> fields{};
  for (size_t i = 0; i < fields.size(); ++i) {
    if (i > 0 && *at++ != '.') return NS_ERROR_FAILURE;
    char* end = nullptr;
    fields[i] = std::strtol(at, &end, 10);
    if (end == at) return NS_ERROR_FAILURE;
    at = end;
  }
  for (size_t i = 0; i < fields.size(); ++i) {
    if (fields[i] < 0 || fields[i] > 255) return NS_ERROR_NOT_IMPLEMENTED;
    aBytes[i] = static_cast<uint8_t>(fields[i]);
  }
  return NS_OK;
}

std::string FormatIPv6(std::span<const uint8_t, 16> aBytes) {
  std::array<unsigned, 8> groups{};
  for (size_t i = 0; i < 8; ++i)
    groups[i] = static_cast<unsigned>(aBytes[2 * i] << 8 | aBytes[2 * i + 1]);
  const auto zero = [&](size_t aFirst, size_t aEnd) {
    return std::all_of(&groups[aFirst], &groups[aEnd - 1] + 1,
                       [](unsigned aGroup) { return aGroup == 0; });
  };
  std::string text;

  // Addresses that carry an IPv4 address, unless its first half is zero: ::1 is no IPv4 address.
  if (zero(0, 4) && groups[6] != 0) {
    const char* prefix = nullptr;
    if (groups[4] == 0 && groups[5] == 0) prefix = "::";
    if (groups[4] == 0 && groups[5] == 0xffff) prefix = "::ffff:";
    if (groups[4] == 0xffff && groups[5] == 0) prefix = "::ffff:0:";
    if (prefix) {
      text = prefix;
      AppendDotted(text, aBytes.last<4>());
      return text;
    }
  }
  const bool isatap = (groups[4] & 0xfdff) == 0 && groups[5] == 0x5efe;
  const size_t hexadecimal = isatap ? 6 : 8;

  size_t first = 0, end = 0;  // the run of zeros
  for (size_t i = 0; i < hexadecimal; ++i) {
    size_t j = i;
    while (j < hexadecimal && groups[j] == 0) ++j;
    if (j - i > std::max(end - first, size_t{1})) first = i, end = j;
  }
  for (size_t i = 0; i < hexadecimal; ++i) {
    if (i == first && end > first) {
      text += "::";
      i = end - 1;
      continue;
    }
    if (i != 0 && (i != end || end == first)) text += ':';
    char group[5];
    std::snprintf(group, sizeof group, "%x", groups[i] & 0xffffu);
    text += group;
  }
  if (isatap) {
    text += ':';
    AppendDotted(text, aBytes.last<4>());
  }
  return text;
}

nsresult ParseIPv6(std::string_view aText, std::span<uint8_t, 16> aBytes, size_t* aRead) {
  const std::string text(aText);  // closed by a zero, which no state below accepts
  const char* at = text.c_str();
  std::array<uint16_t, 8> groups{};
  size_t count = 0;  // of groups read
  size_t gap = 0;    // groups before "::", and there is one if it is not 0
  std::array<uint8_t, 4> dotted{};
  size_t points = 0;

  // A "::" at the start counts as "0::", and one at the end as "::0". Kept as the system's own
  // reader has it: the first stands for two groups at least, so that ::1:2:3:4:5:6:7 is read up to
  // the 6.
  if (at[0] == ':') {
    if (at[1] != ':') return NS_ERROR_FAILURE;
    count = gap = 1;
    at += 2;
  }
  while (true) {
    const bool afterGap = gap != 0 && count == gap && points == 0;
    if (!IsHexDigit(*at)) {
      if (!afterGap) return NS_ERROR_FAILURE;  // a separator with nothing behind it
      ++count;
      break;
    }
    const char* const number = at;
    if (points > 0) {
      while (IsDigit(*at)) ++at;
    } else {
      while (IsHexDigit(*at)) ++at;
      if (at - number > 4) return NS_ERROR_FAILURE;
    }
    // Room for four bytes of numbers with points, beside the groups and at least one that "::"
    // stands for.
    const bool mayDot = gap ? count <= 5 : count == 6;
    if (points > 0 || (*at == '.' && mayDot && std::all_of(number, at, IsDigit))) {
      const auto length = at - number;
      const long value = std::strtol(number, nullptr, 10);
      if (length < 1 || length > 3 || value > 255) return NS_ERROR_FAILURE;
      dotted[points] = static_cast<uint8_t>(value);
      if (points == 3) {
        groups[count++] = static_cast<uint16_t>(dotted[0] << 8 | dotted[1]);
        groups[count++] = static_cast<uint16_t>(dotted[2] << 8 | dotted[3]);
        break;
      }
      if (*at++ != '.') return NS_ERROR_FAILURE;
      ++points;
      continue;
    }
    const bool last = *at != ':' || count + (gap ? 2 : 1) > 7;
    // The last number is converted from its beginning, and "0x" may stand before it: then it may be
    // long, ends at the largest number of 31 bits, and its low 16 bits count. Kept as the system's
    // own reader has it.
    groups[count++] =
        static_cast<uint16_t>(std::min(std::strtoul(number, nullptr, 16), kLargestNumber));
    if (last) break;
    ++at;
    if (*at != ':') continue;
    if (gap) break;  // a second "::" is text behind the address
    gap = count;
    ++at;
    if (count == 7) {  // there is room for the one group that "::" stands for, and no more
      ++count;
      break;
    }
  }
  if (gap == 0 && count != 8) return NS_ERROR_FAILURE;
  if (aRead) *aRead = static_cast<size_t>(at - text.c_str());
  if (gap != 0) {
    std::copy_backward(groups.begin() + static_cast<ptrdiff_t>(gap),
                       groups.begin() + static_cast<ptrdiff_t>(count), groups.end());
    std::fill(groups.begin() + static_cast<ptrdiff_t>(gap),
              groups.end() - static_cast<ptrdiff_t>(count - gap), 0);
  }
  for (size_t i = 0; i < 8; ++i) {
    aBytes[2 * i] = static_cast<uint8_t>(groups[i] >> 8);
    aBytes[2 * i + 1] = static_cast<uint8_t>(groups[i]);
  }
  return NS_OK;
}

std::string FormatMAC(std::span<const uint8_t> aBytes) {
  std::string text;
  text.reserve(aBytes.size() * 3);
  for (const uint8_t byte : aBytes) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02X", byte);
    if (!text.empty()) text += '-';
    text += digits;
  }
  return text;
}

nsresult ParseMAC(std::string_view aText, std::vector<uint8_t>* aBytes) {
  std::vector<uint8_t> bytes;
  std::string_view rest = aText.substr(0, aText.find('\0'));
  while (true) {
    const size_t end = std::min(rest.find_first_of("-:"), rest.size());
    const std::string token(rest.substr(0, end));
    char* stop = nullptr;
    const unsigned long value = std::strtoul(token.c_str(), &stop, 16);
    if (stop == token.c_str() || value > 255) return NS_ERROR_FAILURE;
    bytes.push_back(static_cast<uint8_t>(value));
    if (end == rest.size()) break;
    rest.remove_prefix(end + 1);
  }
  *aBytes = std::move(bytes);
  return NS_OK;
}

}  // namespace vorel::address

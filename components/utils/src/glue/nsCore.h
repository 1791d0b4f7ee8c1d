// Identifiers, the root interface, and what every interface states about itself.
#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>

#include "nsError.h"

using nsrefcnt = uint32_t;

/// 16 bytes that name an interface or a class. Laid out as the platform lays it out.
struct nsID {
  uint32_t m0 = 0;
  uint16_t m1 = 0, m2 = 0;
  std::array<uint8_t, 8> m3{};

  friend constexpr bool operator==(const nsID&, const nsID&) = default;
  friend constexpr auto operator<=>(const nsID&, const nsID&) = default;

  /// "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}", lower case.
  std::string ToString() const;
  /// Reads 36 characters, with or without braces, in either case. False, and *aOut untouched, for
  /// any other text.
  static bool Parse(std::string_view aText, nsID* aOut);
};
static_assert(sizeof(nsID) == 16);
using nsIID = nsID;
using nsCID = nsID;

template <>
struct std::hash<nsID> {
  size_t operator()(const nsID& aId) const noexcept {
    // Identifiers are random already; their first half is enough.
    return (size_t{aId.m0} << 32) ^ (size_t{aId.m1} << 16) ^ aId.m2 ^ aId.m3[7];
  }
};

namespace vorel::detail {
constexpr int HexDigit(char aChar) {
  if (aChar >= '0' && aChar <= '9') return aChar - '0';
  if (aChar >= 'a' && aChar <= 'f') return aChar - 'a' + 10;
  if (aChar >= 'A' && aChar <= 'F') return aChar - 'A' + 10;
  return -1;
}

constexpr bool ParseID(std::string_view aText, nsID* aOut) {
  if (aText.size() == 38 && aText.front() == '{' && aText.back() == '}')
    aText = aText.substr(1, 36);
  if (aText.size() != 36) return false;
  std::array<uint8_t, 16> bytes{};
  size_t digits = 0;
  for (size_t i = 0; i < aText.size(); ++i) {
    if (i == 8 || i == 13 || i == 18 || i == 23) {
      if (aText[i] != '-') return false;
      continue;
    }
    const int v = HexDigit(aText[i]);
    if (v < 0) return false;
    bytes[digits / 2] = static_cast<uint8_t>(bytes[digits / 2] << 4 | v);
    ++digits;
  }
  aOut->m0 =
      uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
  aOut->m1 = static_cast<uint16_t>(bytes[4] << 8 | bytes[5]);
  aOut->m2 = static_cast<uint16_t>(bytes[6] << 8 | bytes[7]);
  for (size_t i = 0; i < 8; ++i) aOut->m3[i] = bytes[8 + i];
  return true;
}
}  // namespace vorel::detail

/// "6f7652e0-ee43-11d1-9cc3-0060088ca6b3"_iid; a malformed literal does not compile.
consteval nsID operator""_iid(const char* aText, size_t aLength) {
  nsID id;
  if (!vorel::detail::ParseID({aText, aLength}, &id)) throw "malformed identifier";
  return id;
}

/// Root of every interface: slots 0 to 2 of each vtable. Interfaces have no virtual destructor (it
/// would take slots) and never overload a virtual (some compilers regroup overloads).
class nsISupports {
 public:
  using Self = nsISupports;
  using Base = void;
  static constexpr std::string_view kName = "nsISupports";
  static constexpr nsIID kIID = "00000000-0000-0000-c000-000000000046"_iid;

  /// On success *aResult holds a pointer to the asked interface with a reference added; else it is
  /// null and the result is NS_ERROR_NO_INTERFACE. NS_ERROR_NULL_POINTER without aResult.
  virtual nsresult QueryInterface(const nsIID& aIID, void** aResult) = 0;
  virtual nsrefcnt AddRef() = 0;
  virtual nsrefcnt Release() = 0;

 protected:
  ~nsISupports() = default;
};

/// An interface states four facts about itself: Self, Base, kName, kIID. Forgetting one would
/// silently inherit the parent's, so the concept refuses it.
template <class T>
concept nsInterface = std::derived_from<T, nsISupports> && std::is_abstract_v<T> &&
    std::same_as<typename T::Self, T> &&
    (std::same_as<T, nsISupports> ||
     (std::derived_from<T, typename T::Base> && !std::same_as<T, typename T::Base> &&
      T::kIID != T::Base::kIID && T::kName != T::Base::kName));

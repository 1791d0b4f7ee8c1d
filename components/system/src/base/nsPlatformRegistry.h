// The port of the machine's configuration store: keys that hold named values with a type.
//
// On a system that has such a store it is that one. Elsewhere it is a file with the same keys,
// names, types and sizes; a key of a network interface that is opened for the first time is then
// filled with what is in force, so that reading answers from the first day.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "nsAscii.h"
#include "nsError.h"

/// Keys are found without regard to case, but for what stands below this one: names there are the
/// system's own, of interfaces, and two may differ in nothing else.
inline constexpr std::string_view kRegistryExactKeys =
    "SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters\\Interfaces\\";

/// An open key; closes when it goes. One thread at a time.
///
/// Names of values are found without regard to case, in ASCII, and keep the spelling that they were
/// first written with. Types and bytes are kept as they were written: nothing here knows what a
/// string is, or adds a zero. Any bytes may stand in a value; no zero may in a name.
class nsPlatformRegistryKey {
 public:
  virtual ~nsPlatformRegistryKey() = default;

  /// NS_ERROR_FILE_NOT_FOUND for a name that is not there, NS_ERROR_FILE_TOO_BIG for a value longer
  /// than aCapacity, NS_ERROR_FILE_ACCESS_DENIED for a key not opened with kQueryValue.
  /// Windows: RegQueryValueExA.
  virtual nsresult QueryValue(const std::string& aName, uint32_t aCapacity, uint32_t* aType,
                              std::vector<uint8_t>* aData) = 0;
  /// On success the value is durable, and other processes see it: the whole of it or nothing.
  /// NS_ERROR_FILE_ACCESS_DENIED for a key not opened with kSetValue.
  /// Windows: RegSetValueExA.
  virtual nsresult SetValue(const std::string& aName, uint32_t aType,
                            std::span<const uint8_t> aData) = 0;
  /// As SetValue. NS_ERROR_FILE_NOT_FOUND for a name that is not there.
  /// Windows: RegDeleteValueA.
  virtual nsresult DeleteValue(const std::string& aName) = 0;
  /// The names in the spelling they were written with, in the order in which they were first
  /// written. NS_ERROR_FILE_ACCESS_DENIED for a key not opened with kQueryValue.
  /// Windows: RegEnumValueA.
  virtual nsresult EnumerateValues(std::vector<std::string>* aNames) = 0;
};

/// All methods may be called from any thread, and from several processes on one store. Beside the
/// errors named, NS_ERROR_FILE_NO_DEVICE_SPACE when the store can't grow, and NS_ERROR_FAILURE: it
/// does not answer.
class nsPlatformRegistry {
 public:
  /// Access rights. kRead holds kQueryValue.
  static constexpr uint32_t kQueryValue = 0x1, kSetValue = 0x2, kRead = 0x20019;
  /// Types of values: text closed by a zero; bytes; a 32-bit number, low byte first; texts each
  /// closed by a zero, with one more zero at the end.
  static constexpr uint32_t kString = 1, kBinary = 3, kDword = 4, kMultiString = 7;

  virtual ~nsPlatformRegistry() = default;

  /// Opens a key below the machine's root: names with "\" between, found without regard to case
  /// but for those of network interfaces.
  /// NS_ERROR_FILE_NOT_FOUND when it is not there, NS_ERROR_FILE_ACCESS_DENIED when the process
  /// lacks a right that aAccess asks for.
  /// Windows: RegOpenKeyExA.
  virtual nsresult OpenKey(const std::string& aPath, uint32_t aAccess,
                           std::unique_ptr<nsPlatformRegistryKey>* aKey) = 0;
  /// The same, and makes the key when it is not there.
  /// Windows: RegCreateKeyExA.
  virtual nsresult CreateKey(const std::string& aPath, uint32_t aAccess,
                             std::unique_ptr<nsPlatformRegistryKey>* aKey) = 0;
  /// Whether somebody has put something into the key, be it what was there already: it is not there
  /// for having been read alone. Unlike opening it, asking fills nothing in.
  /// Windows: RegOpenKeyExA.
  virtual nsresult IsWritten(const std::string& aPath, bool* aIsWritten) = 0;
};

/// A value with its name.
struct nsRegistryValue {
  std::string mName;
  uint32_t mType = nsPlatformRegistry::kBinary;
  std::vector<uint8_t> mData;

  friend bool operator==(const nsRegistryValue&, const nsRegistryValue&) = default;
};

/// What a key holds that is opened for the first time; nothing when there is no such key. The
/// subject that a key belongs to knows.
using nsRegistrySeed =
    std::function<std::optional<std::vector<nsRegistryValue>>(const std::string& aPath)>;

/// Names of keys and values are compared without regard to case, in ASCII.
inline bool NS_SameRegistryName(std::string_view aA, std::string_view aB) {
  const auto lower = [](char aChar) { return NS_ToLowerAscii(aChar); };
  return std::ranges::equal(aA, aB, {}, lower, lower);
}

/// Bytes of the types of values.
inline std::vector<uint8_t> NS_RegistryString(std::string_view aText) {
  std::vector<uint8_t> bytes(aText.begin(), aText.end());
  bytes.push_back(0);
  return bytes;
}
inline std::vector<uint8_t> NS_RegistryStrings(const std::vector<std::string>& aTexts) {
  std::vector<uint8_t> bytes;
  for (const std::string& text : aTexts) {
    bytes.insert(bytes.end(), text.begin(), text.end());
    bytes.push_back(0);
  }
  bytes.push_back(0);
  return bytes;
}
inline std::vector<uint8_t> NS_RegistryDword(uint32_t aNumber) {
  return {static_cast<uint8_t>(aNumber), static_cast<uint8_t>(aNumber >> 8),
          static_cast<uint8_t>(aNumber >> 16), static_cast<uint8_t>(aNumber >> 24)};
}

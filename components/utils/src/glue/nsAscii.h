// Letters of ASCII, whatever the language of the machine.
#pragma once

#include <string>
#include <string_view>

constexpr char NS_ToLowerAscii(char aChar) {
  return aChar >= 'A' && aChar <= 'Z' ? static_cast<char>(aChar - 'A' + 'a') : aChar;
}

/// All other bytes stay as they are.
inline std::string NS_ToLowerAscii(std::string_view aText) {
  std::string lower(aText);
  for (char& c : lower) c = NS_ToLowerAscii(c);
  return lower;
}

// Preference files:  pref("name", value);  sets a default,  user_pref("name", value);  what the
// user chose. A value is a text in either quotes, a 32-bit integer, true or false.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <variant>

using nsPrefValue = std::variant<std::string, int32_t, bool>;

struct nsPrefFileSink {
  /// Lines are counted from 1. An answer that is not empty says what is wrong with the preference.
  std::function<std::string(bool aIsUser, std::string aName, nsPrefValue aValue)> mPref;
  /// With true reading goes on with the next line, with false it ends.
  std::function<bool(size_t aLine, const std::string& aWhat)> mError;
};

/// Any bytes will do.
void NS_ParsePrefs(std::string_view aText, const nsPrefFileSink& aSink);
/// The line that NS_ParsePrefs reads as this choice of the user's.
std::string NS_FormatUserPref(std::string_view aName, const nsPrefValue& aValue);

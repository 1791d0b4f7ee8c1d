// Versions as the platform compares them.
#pragma once

#include <compare>
#include <string_view>

/// A version is parts with points between; a part is number, text, number, text, any of them
/// missing. Numbers compare as numbers, and a missing one is 0; texts by byte, and a missing one is
/// greater ("1.0a" comes before "1.0"). "*" alone is greater than all numbers, and "1+" is "2pre".
/// Any bytes will do.
std::strong_ordering NS_CompareVersions(std::string_view aA, std::string_view aB);

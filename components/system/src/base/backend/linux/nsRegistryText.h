// A configuration store as a text that people can read.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "nsPlatformRegistryData.h"

/// Keys in brackets, then a line for each value: "NAME" = TYPE CONTENT. The content of a number is
/// decimal, of all else bytes in quotation marks, "\0" and "\xNN" for those that have no sign. The
/// last line is a checksum.
std::string NS_FormatRegistry(const nsRegistryData& aData);
/// Nothing for a text that is not whole: any bytes are safe.
std::optional<nsRegistryData> NS_ParseRegistry(std::string_view aText);

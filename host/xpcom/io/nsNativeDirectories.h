// The directories that the platform knows.
#pragma once

#include <string>
#include <string_view>

/// By a key of the directory service; empty when the platform has none of that key, or does not
/// tell. Any thread.
std::string NS_NativeDirectory(std::string_view aKey);

// Whole files, for the host's own use.
#pragma once

#include <string>
#include <string_view>

#include "nsError.h"

nsresult NS_ReadFile(const std::string& aPath, std::string* aContents);
/// Puts a file in the place of another: after a crash at any moment there is the whole old one or
/// the whole new one, and after success it is the new one.
nsresult NS_ReplaceFile(const std::string& aPath, std::string_view aContents);

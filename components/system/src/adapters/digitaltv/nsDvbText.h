// The text of a broadcast as UTF-8.
#pragma once

#include <string_view>

#include "nsXPCOMTypes.h"

/// aText as it stands in a descriptor, the selector of its character table in front. It ends at its
/// first zero byte behind the selector, so that one of 16-bit characters ends early. Without a
/// selector the bytes are handed on as they are, whatever they mean.
///
/// NS_ERROR_INVALID_ARG for an empty text and for a selector that is not known; else the failure of
/// the host's converters, which signal none for bytes that mean nothing: those become U+FFFD. Any
/// thread.
nsresult decodeDvbText(std::string_view aText, nsACString& aResult);

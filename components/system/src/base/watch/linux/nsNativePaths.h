// Paths and names between the logic's text and the system's bytes, and directories at any depth.
#pragma once

#include <string>
#include <string_view>

#include "nsErrno.h"
#include "nsUniqueFd.h"

namespace vorel {

/// UTF-8 where the bytes are that. Every other byte becomes a unit of its own, a surrogate without
/// a partner (0xDC00 and the byte), so that ToNative gives the same bytes again: names are bytes,
/// and a file with an odd one can still be told from others.
std::u16string FromNative(std::string_view aBytes);
std::string ToNative(std::u16string_view aText);

/// NS_ResultOfErrno for a directory: a link that is not to be followed is none.
nsresult DirectoryError(int aErrno);

/// Opens a directory whose path may be longer than the system takes in one call. aFlags as for
/// open(2); the last component is followed when it is a link, unless O_NOFOLLOW says no. -1 and
/// errno on failure.
int OpenDirectoryAt(int aDirectory, std::string_view aPath, int aFlags);
/// The same strictly below a directory, without following a link in any component.
int OpenDirectoryBelow(int aDirectory, std::string_view aPath, int aFlags);

}  // namespace vorel

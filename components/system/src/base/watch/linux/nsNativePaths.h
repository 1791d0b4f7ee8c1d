// Directories at any depth.
#pragma once

#include <string_view>

#include "nsErrno.h"
#include "nsUniqueFd.h"

namespace vorel {

/// NS_ResultOfErrno for a directory: a link that is not to be followed is none.
nsresult DirectoryError(int aErrno);

/// Opens a directory whose path may be longer than the system takes in one call. aFlags as for
/// open(2); the last component is followed when it is a link, unless O_NOFOLLOW says no. -1 and
/// errno on failure.
int OpenDirectoryAt(int aDirectory, std::string_view aPath, int aFlags);
/// The same strictly below a directory, without following a link in any component.
int OpenDirectoryBelow(int aDirectory, std::string_view aPath, int aFlags);

}  // namespace vorel

// Results for the system's error numbers, in one place.
#pragma once

#include <cerrno>

#include "nsError.h"

/// The result that stands for a number of errno; NS_OK for 0, NS_ERROR_FAILURE for one that no
/// result tells more of.
constexpr nsresult NS_ResultOfErrno(int aErrno) {
  switch (aErrno) {
    case 0:
      return NS_OK;
    case ENOENT:
      return NS_ERROR_FILE_NOT_FOUND;
    case ENOTDIR:
      return NS_ERROR_FILE_NOT_DIRECTORY;
    case EISDIR:
      return NS_ERROR_FILE_IS_DIRECTORY;
    case EEXIST:
      return NS_ERROR_FILE_ALREADY_EXISTS;
    case ENOTEMPTY:
      return NS_ERROR_FILE_DIR_NOT_EMPTY;
    case EPERM:
    case EACCES:
      return NS_ERROR_FILE_ACCESS_DENIED;
    case EROFS:
      return NS_ERROR_FILE_READ_ONLY;
    case ETXTBSY:
    case EBUSY:
      return NS_ERROR_FILE_IS_LOCKED;
    case ELOOP:
      return NS_ERROR_FILE_UNRESOLVABLE_SYMLINK;
    case ENAMETOOLONG:
      return NS_ERROR_FILE_NAME_TOO_LONG;
    case EFBIG:
      return NS_ERROR_FILE_TOO_BIG;
    case EDQUOT:
    case ENOSPC:
      return NS_ERROR_FILE_NO_DEVICE_SPACE;
    case ENOMEM:
    case EMFILE:
    case ENFILE:
      return NS_ERROR_OUT_OF_MEMORY;
    case EINVAL:
      return NS_ERROR_INVALID_ARG;
    default:
      return NS_ERROR_FAILURE;
  }
}

/// The result of the last system call that failed.
inline nsresult NS_LastResult() { return NS_ResultOfErrno(errno); }

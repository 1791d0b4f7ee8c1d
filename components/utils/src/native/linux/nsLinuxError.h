#pragma once

#include <cerrno>

#include "nsError.h"

/// The result that stands for a number of errno.
constexpr nsresult FromErrno(int aErrno) {
  switch (aErrno) {
    case ENOENT:
      return NS_ERROR_FILE_NOT_FOUND;
    case ENOTDIR:
      return NS_ERROR_FILE_NOT_DIRECTORY;
    case EACCES:
    case EPERM:
      return NS_ERROR_FILE_ACCESS_DENIED;
    case EROFS:
      return NS_ERROR_FILE_READ_ONLY;
    case ENOSPC:
      return NS_ERROR_FILE_NO_DEVICE_SPACE;
    case ENOMEM:
      return NS_ERROR_OUT_OF_MEMORY;
    case EINVAL:
      return NS_ERROR_INVALID_ARG;
    default:
      return NS_ERROR_FAILURE;
  }
}

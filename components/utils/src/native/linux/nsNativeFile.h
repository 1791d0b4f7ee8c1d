// Whole files: read with a bound, and replaced so that nothing is lost.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "nsError.h"
#include "nsUniqueFd.h"

/// More than any file that is taken whole has a reason to be.
inline constexpr size_t kFileLimit = 64 * 1024 * 1024;

/// The same for what people or this system have written: a file beyond that holds something else.
inline constexpr size_t kConfigurationLimit = 16 * 1024 * 1024;

/// What a path may lead to. Opening a pipe waits for its other end, and reading a device may never
/// come to an end: for a file from elsewhere, that has to be a regular one.
enum class nsFileKind { eAny, eRegular };

/// Reads a file of aLimit bytes at most; links are followed. NS_ERROR_FILE_TOO_BIG when there is
/// more; NS_ERROR_FILE_IS_DIRECTORY; NS_ERROR_FILE_UNKNOWN_TYPE for what is no regular file and has
/// to be; else as the system says (nsErrno.h). *aContents is written on success only.
nsresult NS_ReadFile(const std::string& aPath, std::string* aContents, size_t aLimit = kFileLimit,
                     nsFileKind aKind = nsFileKind::eAny);

/// The same for what is left of an open file.
nsresult NS_ReadDescriptor(int aFd, std::string* aContents, size_t aLimit = kFileLimit);

/// Writes all of it, however many calls that takes.
nsresult NS_WriteDescriptor(int aFd, std::string_view aContents);

/// Puts a file in the place of another, or of none: after a crash at any moment there is the whole
/// old one or the whole new one, and after success it is the new one. The new one is written beside
/// it under a name of its own, so that several may do this at once, and is removed after a failure.
/// A link in the place of the file is replaced, not followed. aMode is lessened by the umask.
nsresult NS_ReplaceFile(const std::string& aPath, std::string_view aContents, mode_t aMode = 0600);

/// Opens a file to be locked, and makes it if it is not there. It is never reached through a link,
/// and belongs to this user: NS_ERROR_FILE_ACCESS_DENIED for one that does not, or that is no
/// regular file.
nsresult NS_OpenLockFile(const std::string& aPath, nsUniqueFd* aFile);
/// False once the file that is open is not the one of the path any more: removed, or replaced.
bool NS_IsFileOfPath(int aFd, const std::string& aPath);

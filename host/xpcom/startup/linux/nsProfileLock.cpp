#include "nsProfileLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "nsErrno.h"
#include "nsNativeFile.h"

namespace {

std::string PathIn(const std::string& aDirectory) { return aDirectory + "/.parentlock"; }

// Those above are anybody's; what is in a profile is its user's own affair.
std::error_code MakeProfile(const std::string& aDirectory) {
  std::error_code error;
  std::filesystem::path path = std::filesystem::absolute(aDirectory, error).lexically_normal();
  if (!path.has_filename()) path = path.parent_path();
  if (!error) std::filesystem::create_directories(path.parent_path(), error);
  if (!error && ::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST)
    error.assign(errno, std::generic_category());
  return error;
}

// The number that the holder left in the file, for the message only.
std::string HolderOf(const std::string& aPath) {
  std::string text;
  if (NS_FAILED(NS_ReadFile(aPath, &text, 64, nsFileKind::eRegular))) return {};
  text.resize(std::min(text.find_first_not_of("0123456789"), text.size()));
  return text.empty() ? text : " " + text;
}

}  // namespace

nsresult nsProfileLock::Lock(const std::string& aDirectory, std::string* aError) {
  const auto fail = [&](int aErrno) {
    *aError = "The profile " + aDirectory + " can't be used: " + std::strerror(aErrno) + ".";
    return NS_ResultOfErrno(aErrno);
  };
  if (const std::error_code error = MakeProfile(aDirectory)) return fail(error.value());
  const std::string path = PathIn(aDirectory);
  nsUniqueFd fd;
  errno = 0;
  if (const nsresult rv = NS_OpenLockFile(path, &fd); NS_FAILED(rv)) {
    if (rv != NS_ERROR_FILE_ACCESS_DENIED && errno != 0) return fail(errno);
    *aError = "The profile " + aDirectory + " can't be used: " + path +
              " can't be opened, or is not this user's.";
    return rv;
  }
  if (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK) return fail(errno);
    *aError = "The profile " + aDirectory + " is in use by process" + HolderOf(path) + ".";
    return NS_ERROR_FILE_IS_LOCKED;
  }
  // The lock holds without the number too.
  if (::ftruncate(fd.get(), 0) == 0)
    (void)NS_WriteDescriptor(fd.get(), std::to_string(::getpid()) + "\n");
  mFd = std::move(fd);
  mDirectory = aDirectory;
  return NS_OK;
}

nsresult nsProfileLock::Keep(std::string* aError) {
  if (!mFd) return NS_ERROR_NOT_INITIALIZED;
  if (NS_IsFileOfPath(mFd.get(), PathIn(mDirectory))) return NS_OK;
  return Lock(mDirectory, aError);
}

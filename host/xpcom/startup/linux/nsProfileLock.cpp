#include "nsProfileLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "nsErrno.h"
#include "nsNativeFile.h"

namespace {

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
  std::error_code error;
  std::filesystem::create_directories(aDirectory, error);
  if (error) return fail(error.value());
  const std::string path = aDirectory + "/.parentlock";
  nsUniqueFd fd(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!fd) return fail(errno);
  if (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK) return fail(errno);
    *aError = "The profile " + aDirectory + " is in use by process" + HolderOf(path) + ".";
    return NS_ERROR_FILE_IS_LOCKED;
  }
  // The lock holds without the number too.
  if (::ftruncate(fd.get(), 0) == 0)
    (void)NS_WriteDescriptor(fd.get(), std::to_string(::getpid()) + "\n");
  mFd = std::move(fd);
  return NS_OK;
}

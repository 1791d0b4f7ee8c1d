#include "nsProfileLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "nsErrno.h"
#include "nsHostFile.h"

namespace {

// The number that the holder left in the file, for the message only.
std::string HolderOf(const std::string& aPath) {
  std::string text;
  if (NS_FAILED(NS_ReadFile(aPath, &text))) return {};
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
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd < 0) return fail(errno);
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    const int reason = errno;
    ::close(fd);
    if (reason != EWOULDBLOCK) return fail(reason);
    *aError = "The profile " + aDirectory + " is in use by process" + HolderOf(path) + ".";
    return NS_ERROR_FILE_IS_LOCKED;
  }
  const std::string self = std::to_string(::getpid()) + "\n";
  // The lock holds without the number too.
  if (::ftruncate(fd, 0) == 0) (void)!::write(fd, self.data(), self.size());
  Unlock();
  mFd = fd;
  return NS_OK;
}

void nsProfileLock::Unlock() {
  if (mFd >= 0) ::close(mFd);
  mFd = -1;
}

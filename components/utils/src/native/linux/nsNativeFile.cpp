#include "nsNativeFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>

#include "nsErrno.h"
#include "nsRetry.h"
#include "nsUniqueFd.h"

namespace {

constexpr size_t kPiece = 16 * 1024;
constexpr int kNameTries = 1000;

nsresult CheckRegular(int aFd) {
  struct stat facts;
  if (fstat(aFd, &facts) != 0) return NS_LastResult();
  if (S_ISDIR(facts.st_mode)) return NS_ERROR_FILE_IS_DIRECTORY;
  return S_ISREG(facts.st_mode) ? NS_OK : NS_ERROR_FILE_UNKNOWN_TYPE;
}

/// A new file beside a path. What an earlier process left there stays where it is.
nsUniqueFd MakeBeside(const std::string& aPath, mode_t aMode, std::string* aName) {
  static std::atomic<unsigned> sCount;
  const std::string start = aPath + "." + std::to_string(getpid()) + "-";
  nsUniqueFd file;
  for (int i = 0; i < kNameTries; ++i) {
    *aName = start + std::to_string(++sCount) + ".tmp";
    file = nsUniqueFd(
        open(aName->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, aMode));
    if (file || errno != EEXIST) break;
  }
  return file;
}

bool Sync(int aFd) {
  // Some file systems have nothing to do for that, and say so.
  return fsync(aFd) == 0 || errno == EINVAL || errno == ENOTSUP;
}

}  // namespace

nsresult NS_ReadFile(const std::string& aPath, std::string* aContents, size_t aLimit,
                     nsFileKind aKind) {
  const bool isChecked = aKind == nsFileKind::eRegular;
  const nsUniqueFd file(
      open(aPath.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | (isChecked ? O_NONBLOCK : 0)));
  if (!file) return NS_LastResult();
  if (isChecked)
    if (const nsresult rv = CheckRegular(file.get()); NS_FAILED(rv)) return rv;
  return NS_ReadDescriptor(file.get(), aContents, aLimit);
}

nsresult NS_ReadDescriptor(int aFd, std::string* aContents, size_t aLimit) {
  std::string contents;
  // The size is a hint: files of the kernel have none, and others may grow.
  struct stat facts;
  size_t piece = kPiece;
  if (fstat(aFd, &facts) == 0 && facts.st_size > 0)
    piece = std::min(static_cast<size_t>(facts.st_size), aLimit) + 1;
  for (;;) {
    const size_t length = contents.size();
    contents.resize(length + piece);
    ssize_t got;
    do got = NS_RetryPassing([&] { return read(aFd, contents.data() + length, piece); });
    while (got < 0 && errno == EINTR);
    if (got < 0) return NS_LastResult();
    contents.resize(length + static_cast<size_t>(got));
    if (contents.size() > aLimit) return NS_ERROR_FILE_TOO_BIG;
    if (got == 0) break;
    piece = kPiece;
  }
  *aContents = std::move(contents);
  return NS_OK;
}

nsresult NS_WriteDescriptor(int aFd, std::string_view aContents) {
  while (!aContents.empty()) {
    const ssize_t written = write(aFd, aContents.data(), aContents.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return NS_LastResult();
    aContents.remove_prefix(static_cast<size_t>(written));
  }
  return NS_OK;
}

nsresult NS_ReplaceFile(const std::string& aPath, std::string_view aContents, mode_t aMode) {
  std::string temporary;
  nsUniqueFd file = MakeBeside(aPath, aMode, &temporary);
  if (!file) return NS_LastResult();
  nsresult rv = NS_WriteDescriptor(file.get(), aContents);
  if (NS_SUCCEEDED(rv) &&
      !(Sync(file.get()) && file.Close() && std::rename(temporary.c_str(), aPath.c_str()) == 0))
    rv = NS_LastResult();
  if (NS_FAILED(rv)) {
    (void)unlink(temporary.c_str());
    return rv;
  }
  const size_t slash = aPath.rfind('/');
  const std::string above = slash == aPath.npos ? "." : aPath.substr(0, slash + 1);
  const nsUniqueFd directory(open(above.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return directory && Sync(directory.get()) ? NS_OK : NS_LastResult();
}

nsresult NS_OpenLockFile(const std::string& aPath, nsUniqueFd* aFile) {
  nsUniqueFd file(
      open(aPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
  struct stat facts;
  if (!file && errno == ELOOP) return NS_ERROR_FILE_ACCESS_DENIED;
  if (!file || fstat(file.get(), &facts) != 0) return NS_LastResult();
  if (!S_ISREG(facts.st_mode) || (facts.st_uid != geteuid() && geteuid() != 0))
    return NS_ERROR_FILE_ACCESS_DENIED;
  *aFile = std::move(file);
  return NS_OK;
}

bool NS_IsFileOfPath(int aFd, const std::string& aPath) {
  struct stat open, named;
  return fstat(aFd, &open) == 0 && lstat(aPath.c_str(), &named) == 0 &&
         open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

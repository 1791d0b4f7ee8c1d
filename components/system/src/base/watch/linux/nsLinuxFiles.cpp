#include "nsLinuxFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "nsNativePaths.h"
#include "nsUtf.h"

namespace {

void SetFacts(const struct stat& aStatus, nsPlatformFiles::Entry* aEntry) {
  aEntry->mStatus = NS_OK;
  aEntry->mKind = S_ISDIR(aStatus.st_mode)   ? nsPlatformFiles::kDirectory
                  : S_ISREG(aStatus.st_mode) ? nsPlatformFiles::kFile
                  : S_ISLNK(aStatus.st_mode) ? nsPlatformFiles::kSymlink
                                             : nsPlatformFiles::kSpecial;
  aEntry->mLastModify = int64_t{aStatus.st_mtim.tv_sec} * 1'000'000'000 + aStatus.st_mtim.tv_nsec;
  aEntry->mHasINode = aStatus.st_ino != 0;  // some volumes have no numbers to give
  aEntry->mINode = aStatus.st_ino;
  aEntry->mVolume = aStatus.st_dev;
}

class LinuxListing final : public nsPlatformFiles::Listing {
 public:
  explicit LinuxListing(DIR* aDirectory) : mDirectory(aDirectory) { Advance(); }
  ~LinuxListing() override { closedir(mDirectory); }

  bool HasMore() override { return mNext || mError; }
  nsresult GetNext(nsPlatformFiles::Entry* aEntry) override {
    if (const int error = std::exchange(mError, 0)) return vorel::DirectoryError(error);
    if (!mNext) return NS_ERROR_UNEXPECTED;
    struct stat status;
    if (fstatat(dirfd(mDirectory), mNext->d_name, &status, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) ==
        0)
      SetFacts(status, aEntry);
    else
      aEntry->mStatus = vorel::DirectoryError(errno);
    aEntry->mLeafName.Assign(vorel::NameToUtf16(mNext->d_name));
    Advance();
    return NS_OK;
  }

 private:
  void Advance() {
    do {
      errno = 0;
      mNext = readdir(mDirectory);
    } while (mNext &&
             (std::string_view(mNext->d_name) == "." || std::string_view(mNext->d_name) == ".."));
    if (!mNext) mError = errno;
  }

  DIR* const mDirectory;
  const dirent* mNext = nullptr;
  int mError = 0;  // to be told once, then the listing is at its end
};

/// The status of what a path of any length leads to; errno on failure.
int ReadStatus(std::string_view aPath, struct stat* aStatus) {
  while (aPath.size() > 1 && aPath.ends_with('/')) aPath.remove_suffix(1);
  const size_t end = aPath.rfind('/');
  const nsUniqueFd above(
      vorel::OpenDirectoryAt(AT_FDCWD, end == 0 ? "/" : aPath.substr(0, end), O_PATH));
  if (!above) return errno;
  const std::string name(aPath.substr(end + 1));
  return fstatat(above.get(), name.empty() ? "." : name.c_str(), aStatus, 0) == 0 ? 0 : errno;
}

}  // namespace

nsresult nsLinuxFiles::Exists(const nsAString& aPath, bool* aExists) {
  const std::string path = vorel::Utf16ToName(NS_View(aPath));
  if (!path.starts_with('/')) return NS_ERROR_FILE_UNRECOGNIZED_PATH;
  struct stat status;
  const int error = ReadStatus(path, &status);
  if (error != 0 && error != ENOENT && error != ENOTDIR) return vorel::DirectoryError(error);
  *aExists = error == 0;
  return NS_OK;
}

nsresult nsLinuxFiles::ReadEntry(const nsAString& aPath, Entry* aEntry) {
  std::u16string_view path = NS_View(aPath);
  const std::string bytes = vorel::Utf16ToName(path);
  if (!bytes.starts_with('/')) return NS_ERROR_FILE_UNRECOGNIZED_PATH;
  struct stat status;
  if (const int error = ReadStatus(bytes, &status)) return vorel::DirectoryError(error);
  while (path.size() > 1 && path.ends_with(u'/')) path.remove_suffix(1);
  aEntry->mLeafName = path.size() == 1 ? path : path.substr(path.rfind(u'/') + 1);
  SetFacts(status, aEntry);
  return NS_OK;
}

nsresult nsLinuxFiles::OpenListing(const nsAString& aPath, bool aFollowLink,
                                   std::unique_ptr<Listing>* aListing) {
  const std::string path = vorel::Utf16ToName(NS_View(aPath));
  if (!path.starts_with('/')) return NS_ERROR_FILE_UNRECOGNIZED_PATH;
  nsUniqueFd fd(vorel::OpenDirectoryAt(AT_FDCWD, path, O_RDONLY | (aFollowLink ? 0 : O_NOFOLLOW)));
  if (!fd) return vorel::DirectoryError(errno);
  DIR* const directory = fdopendir(fd.get());
  if (!directory) return vorel::DirectoryError(errno);
  (void)fd.release();
  *aListing = std::make_unique<LinuxListing>(directory);
  return NS_OK;
}

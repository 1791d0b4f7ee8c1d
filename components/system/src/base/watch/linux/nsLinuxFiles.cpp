#include "nsLinuxFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <new>
#include <utility>

#include "nsNativeFile.h"
#include "nsNativePaths.h"
#include "nsUtf.h"

namespace {

void SetFacts(const struct stat& aStatus, nsPlatformFiles::Entry* aEntry) {
  aEntry->mStatus = NS_OK;
  aEntry->mKind = S_ISDIR(aStatus.st_mode)   ? nsPlatformFiles::kDirectory
                  : S_ISREG(aStatus.st_mode) ? nsPlatformFiles::kFile
                  : S_ISLNK(aStatus.st_mode) ? nsPlatformFiles::kSymlink
                                             : nsPlatformFiles::kSpecial;
  // Only compared for being equal: times beyond the year 2262 may wrap around.
  aEntry->mLastModify =
      static_cast<int64_t>(static_cast<uint64_t>(aStatus.st_mtim.tv_sec) * 1'000'000'000 +
                           static_cast<uint64_t>(aStatus.st_mtim.tv_nsec));
  aEntry->mHasINode = aStatus.st_ino != 0;  // some volumes have no numbers to give
  aEntry->mINode = aStatus.st_ino;
  aEntry->mVolume = aStatus.st_dev;
}

/// Volumes that give a number which has become free to the next file that is made, and that tell
/// the generation of a number in their handles.
bool HasGenerations(int aDirectory) {
  struct statfs volume;
  return fstatfs(aDirectory, &volume) == 0 &&
         (volume.f_type == EXT4_SUPER_MAGIC || volume.f_type == XFS_SUPER_MAGIC ||
          volume.f_type == F2FS_SUPER_MAGIC);
}

/// 0 when it can't be told.
uint32_t Generation(int aDirectory, const char* aName) {
  alignas(file_handle) std::array<unsigned char, sizeof(file_handle) + MAX_HANDLE_SZ> buffer;
  auto* const handle = new (buffer.data()) file_handle;
  handle->handle_bytes = MAX_HANDLE_SZ;
  int mount;
  if (name_to_handle_at(aDirectory, aName, handle, &mount, 0) != 0) return 0;
  // The kernel's forms of a number of 32 bits, and of one of 64, with the generation behind it.
  const size_t at = handle->handle_type == 1 ? 4 : handle->handle_type == 0x81 ? 8 : SIZE_MAX;
  uint32_t generation = 0;
  if (at < handle->handle_bytes && handle->handle_bytes - at >= sizeof generation)
    std::memcpy(&generation, handle->f_handle + at, sizeof generation);
  return generation;
}

class LinuxListing final : public nsPlatformFiles::Listing {
 public:
  explicit LinuxListing(DIR* aDirectory)
      : mDirectory(aDirectory), mHasGenerations(HasGenerations(dirfd(aDirectory))) {
    struct stat status;
    if (fstat(dirfd(mDirectory), &status) == 0) mVolume = status.st_dev;
    Advance();
  }
  ~LinuxListing() override { closedir(mDirectory); }

  bool HasMore() override { return mNext || mError; }
  nsresult GetNext(nsPlatformFiles::Entry* aEntry) override {
    if (const int error = std::exchange(mError, 0)) return vorel::DirectoryError(error);
    if (!mNext) return NS_ERROR_UNEXPECTED;
    if (mNextError == 0) {
      SetFacts(mNextStatus, aEntry);
      if (mHasGenerations && mNextStatus.st_dev == mVolume)
        aEntry->mINode ^= uint64_t{Generation(dirfd(mDirectory), mNext->d_name)} << 32;
    } else {
      aEntry->mStatus = vorel::DirectoryError(mNextError);
    }
    aEntry->mLeafName.Assign(vorel::NameToUtf16(mNext->d_name));
    Advance();
    return NS_OK;
  }

 private:
  void Advance() {
    while (true) {
      errno = 0;
      mNext = readdir(mDirectory);
      if (!mNext) {
        mError = errno;
        return;
      }
      const std::string_view name = mNext->d_name;
      if (name == "." || name == "..") continue;
      const bool isKnown = fstatat(dirfd(mDirectory), mNext->d_name, &mNextStatus,
                                   AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) == 0;
      mNextError = isKnown ? 0 : errno;
      if (mNextError != ENOENT) return;  // one that has gone since it was listed is not there
    }
  }

  DIR* const mDirectory;
  const bool mHasGenerations;
  dev_t mVolume = 0;
  const dirent* mNext = nullptr;
  struct stat mNextStatus {};
  int mNextError = 0;  // why there is no status
  int mError = 0;      // to be told once, then the listing is at its end
};

/// A whole path of the system's; one with a zero in it would be cut off there.
bool IsPath(std::string_view aPath) {
  return aPath.starts_with('/') && aPath.find('\0') == aPath.npos;
}

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
  if (!IsPath(path)) return NS_ERROR_FILE_UNRECOGNIZED_PATH;
  struct stat status;
  const int error = ReadStatus(path, &status);
  if (error != 0 && error != ENOENT && error != ENOTDIR) return vorel::DirectoryError(error);
  *aExists = error == 0;
  return NS_OK;
}

nsresult nsLinuxFiles::ReadEntry(const nsAString& aPath, Entry* aEntry) {
  std::u16string_view path = NS_View(aPath);
  const std::string bytes = vorel::Utf16ToName(path);
  if (!IsPath(bytes)) return NS_ERROR_FILE_UNRECOGNIZED_PATH;
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
  if (!IsPath(path)) return NS_ERROR_FILE_UNRECOGNIZED_PATH;
  nsUniqueFd fd(vorel::OpenDirectoryAt(AT_FDCWD, path, O_RDONLY | (aFollowLink ? 0 : O_NOFOLLOW)));
  if (!fd) return vorel::DirectoryError(errno);
  DIR* const directory = fdopendir(fd.get());
  if (!directory) return vorel::DirectoryError(errno);
  (void)fd.release();
  *aListing = std::make_unique<LinuxListing>(directory);
  return NS_OK;
}

nsresult nsLinuxFiles::ReadVolume(const nsAString& aPath, uint64_t* aVolume) {
  const std::string path = vorel::Utf16ToName(NS_View(aPath));
  if (!IsPath(path)) return NS_ERROR_FILE_UNRECOGNIZED_PATH;
  const nsUniqueFd fd(vorel::OpenDirectoryAt(AT_FDCWD, path, O_PATH));
  struct statfs volume;
  if (!fd || fstatfs(fd.get(), &volume) != 0) return vorel::DirectoryError(errno);
  uint64_t identifier = 0;
  static_assert(sizeof volume.f_fsid == sizeof identifier);
  std::memcpy(&identifier, &volume.f_fsid, sizeof identifier);
  if (identifier == 0) return NS_ERROR_NOT_AVAILABLE;
  *aVolume = identifier;
  return NS_OK;
}

nsresult nsLinuxFiles::ReadKept(const nsAString& aPath, std::string* aContents) {
  constexpr size_t kLimit = size_t{512} << 20;
  return NS_ReadFile(vorel::Utf16ToName(NS_View(aPath)), aContents, kLimit, nsFileKind::eRegular);
}

nsresult nsLinuxFiles::ReplaceKept(const nsAString& aPath, std::string_view aContents) {
  const std::string path = vorel::Utf16ToName(NS_View(aPath));
  if (!IsPath(path)) return NS_ERROR_FILE_UNRECOGNIZED_PATH;
  std::error_code error;
  const auto directory = std::filesystem::path(path).parent_path();
  if (std::filesystem::create_directories(directory, error))
    std::filesystem::permissions(directory, std::filesystem::perms::owner_all, error);
  return NS_ReplaceFile(path, aContents);
}

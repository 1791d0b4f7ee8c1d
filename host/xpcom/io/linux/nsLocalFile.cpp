#include "nsLocalFile.h"

#include <fcntl.h>
#include <prerror.h>
#include <prio.h>
#include <prlink.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "nsCOMArray.h"
#include "nsErrno.h"
#include "nsUniqueFd.h"
#include "nsUtf.h"
#include "nsXPCOM.h"

namespace fs = std::filesystem;

namespace {

constexpr int64_t kMillisecondsPerSecond = 1000, kNanosecondsPerMillisecond = 1'000'000;

nsresult ResultOf(const std::error_code& aError) { return NS_ResultOfErrno(aError.value()); }

bool IsName(std::string_view aName) {
  return aName != ".." && aName.find('/') == aName.npos && aName.find('\0') == aName.npos;
}

std::string Join(std::string_view aDirectory, std::string_view aName) {
  std::string path(aDirectory);
  if (!path.ends_with('/')) path += '/';
  return path += aName;
}

/// The path of any nsIFile.
nsresult PathOf(nsIFile* aFile, std::string* aPath) {
  if (!aFile) return NS_ERROR_NULL_POINTER;
  nsCString path;
  const nsresult rv = aFile->GetNativePath(path);
  if (NS_SUCCEEDED(rv)) *aPath = path.view();
  return rv;
}

nsresult SyncToDisk(const std::string& aPath) {
  const nsUniqueFd file(open(aPath.c_str(), O_RDONLY | O_CLOEXEC));
  return file && fsync(file.get()) == 0 ? NS_OK : NS_LastResult();
}

/// Copies to a name of its own next to the destination and then gives it the name, so that the
/// destination is never seen half written. The caller has seen to it that a directory has no
/// destination yet.
nsresult CopyWhole(const std::string& aFrom, const std::string& aTo, bool aFollowLink) {
  const std::string temporary = aTo + ".copying." + std::to_string(getpid());
  std::error_code error;
  fs::remove_all(temporary, error);  // left by a process of the same number that was cut short
  auto options = fs::copy_options::recursive;
  options |= fs::copy_options::copy_symlinks;
  const std::string from = aFollowLink ? fs::canonical(aFrom, error).native() : aFrom;
  if (!error) fs::copy(from, temporary, options, error);
  nsresult rv = ResultOf(error);
  if (NS_SUCCEEDED(rv) && fs::is_regular_file(fs::symlink_status(temporary, error)))
    rv = SyncToDisk(temporary);
  if (NS_SUCCEEDED(rv) && rename(temporary.c_str(), aTo.c_str()) != 0) rv = NS_LastResult();
  if (NS_SUCCEEDED(rv)) rv = SyncToDisk(fs::path(aTo).parent_path().native());
  if (NS_FAILED(rv)) fs::remove_all(temporary, error);
  return rv;
}

}  // namespace

extern "C" nsresult NS_NewLocalFile(const nsAString& aPath, bool aFollowLinks,
                                    nsILocalFile** aResult) {
  return NS_NewNativeLocalFile(nsCString(vorel::Utf16ToName(NS_View(aPath))), aFollowLinks,
                               aResult);
}

extern "C" nsresult NS_NewNativeLocalFile(const nsACString& aPath, bool aFollowLinks,
                                          nsILocalFile** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  auto file = MakeRefCounted<nsLocalFile>();
  if (!NS_View(aPath).empty()) {
    const nsresult rv = file->InitWithNativePath(aPath);
    if (NS_FAILED(rv)) return rv;
  }
  (void)file->SetFollowLinks(aFollowLinks);
  file.forget(aResult);
  return NS_OK;
}

const nsClassInfoRecord nsLocalFile::kClassInfo = {NS_ClassInterfaces<nsILocalFile, nsIFile>,
                                                   nullptr, 0,
                                                   "2e23e220-60be-11d3-8c4a-000064657374"_iid};

#define ENSURE_INITIALIZED() \
  if (mPath.empty()) return NS_ERROR_NOT_INITIALIZED

// ---- Names and paths

std::string_view nsLocalFile::Leaf() const {
  return std::string_view(mPath).substr(mPath == "/" ? 0 : mPath.rfind('/') + 1);
}

std::string nsLocalFile::ParentPath() const {
  const size_t slash = mPath.rfind('/');
  return mPath.substr(0, slash == 0 ? 1 : slash);
}

nsresult nsLocalFile::InitWith(std::string_view aPath) {
  if (!aPath.starts_with('/') || aPath.find('\0') != aPath.npos)
    return NS_ERROR_FILE_UNRECOGNIZED_PATH;
  while (aPath.size() > 1 && aPath.ends_with('/')) aPath.remove_suffix(1);
  mPath = aPath;
  return NS_OK;
}

nsresult nsLocalFile::AppendName(std::string_view aName) {
  ENSURE_INITIALIZED();
  if (!IsName(aName)) return NS_ERROR_FILE_UNRECOGNIZED_PATH;
  if (!aName.empty()) mPath = Join(mPath, aName);
  return NS_OK;
}

nsresult nsLocalFile::AppendRelative(std::string_view aPath) {
  ENSURE_INITIALIZED();
  if (aPath.starts_with('/')) return NS_ERROR_FILE_UNRECOGNIZED_PATH;
  std::string path = mPath;
  while (!aPath.empty()) {
    const std::string_view name = aPath.substr(0, aPath.find('/'));
    if (!IsName(name)) return NS_ERROR_FILE_UNRECOGNIZED_PATH;
    if (!name.empty()) path = Join(path, name);
    aPath.remove_prefix(std::min(name.size() + 1, aPath.size()));
  }
  mPath = std::move(path);
  return NS_OK;
}

nsresult nsLocalFile::SetLeaf(std::string_view aName) {
  ENSURE_INITIALIZED();
  if (!IsName(aName) || aName.empty() || mPath == "/") return NS_ERROR_FILE_UNRECOGNIZED_PATH;
  mPath = Join(ParentPath(), aName);
  return NS_OK;
}

nsresult nsLocalFile::InitWithPath(const nsAString& aFilePath) {
  return InitWith(vorel::Utf16ToName(NS_View(aFilePath)));
}
nsresult nsLocalFile::InitWithNativePath(const nsACString& aFilePath) {
  return InitWith(NS_View(aFilePath));
}
nsresult nsLocalFile::InitWithFile(nsIFile* aFile) {
  std::string path;
  const nsresult rv = PathOf(aFile, &path);
  return NS_FAILED(rv) ? rv : InitWith(path);
}

nsresult nsLocalFile::Append(const nsAString& aNode) {
  return AppendName(vorel::Utf16ToName(NS_View(aNode)));
}
nsresult nsLocalFile::AppendNative(const nsACString& aNode) { return AppendName(NS_View(aNode)); }
nsresult nsLocalFile::AppendRelativePath(const nsAString& aPath) {
  return AppendRelative(vorel::Utf16ToName(NS_View(aPath)));
}
nsresult nsLocalFile::AppendRelativeNativePath(const nsACString& aPath) {
  return AppendRelative(NS_View(aPath));
}
nsresult nsLocalFile::SetLeafName(const nsAString& aLeafName) {
  return SetLeaf(vorel::Utf16ToName(NS_View(aLeafName)));
}
nsresult nsLocalFile::SetNativeLeafName(const nsACString& aLeafName) {
  return SetLeaf(NS_View(aLeafName));
}

nsresult nsLocalFile::GetLeafName(nsAString& aLeafName) {
  ENSURE_INITIALIZED();
  return NS_Give(vorel::NameToUtf16(Leaf()), aLeafName);
}

nsresult nsLocalFile::GetNativeLeafName(nsACString& aNativeLeafName) {
  ENSURE_INITIALIZED();
  return NS_Give(Leaf(), aNativeLeafName);
}

nsresult nsLocalFile::GetPath(nsAString& aPath) {
  ENSURE_INITIALIZED();
  return NS_Give(vorel::NameToUtf16(mPath), aPath);
}

nsresult nsLocalFile::GetNativePath(nsACString& aNativePath) {
  ENSURE_INITIALIZED();
  return NS_Give(mPath, aNativePath);
}

nsresult nsLocalFile::Normalize() {
  ENSURE_INITIALIZED();
  std::error_code error;
  const fs::path path = fs::canonical(mPath, error);
  if (error) return ResultOf(error);
  mPath = path.native();
  return NS_OK;
}

nsresult nsLocalFile::Clone(nsIFile** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  auto clone = MakeRefCounted<nsLocalFile>(mPath);
  clone->mFollowLinks = mFollowLinks;
  clone.forget(aResult);
  return NS_OK;
}

nsresult nsLocalFile::Equals(nsIFile* aInFile, bool* aResult) {
  if (!aInFile || !aResult) return NS_ERROR_NULL_POINTER;
  ENSURE_INITIALIZED();
  std::string path;
  const nsresult rv = PathOf(aInFile, &path);
  if (NS_SUCCEEDED(rv)) *aResult = path == mPath;
  return rv;
}

nsresult nsLocalFile::Contains(nsIFile* aInFile, bool aRecur, bool* aResult) {
  if (!aInFile || !aResult) return NS_ERROR_NULL_POINTER;
  ENSURE_INITIALIZED();
  std::string path;
  const nsresult rv = PathOf(aInFile, &path);
  if (NS_FAILED(rv)) return rv;
  const std::string inside = Join(mPath, "");
  *aResult = path.size() > inside.size() && path.starts_with(inside) &&
             (aRecur || path.find('/', inside.size()) == path.npos);
  return NS_OK;
}

nsresult nsLocalFile::GetParent(nsIFile** aParent) {
  if (!aParent) return NS_ERROR_NULL_POINTER;
  ENSURE_INITIALIZED();
  nsCOMPtr<nsLocalFile> parent;
  if (mPath != "/") parent = MakeRefCounted<nsLocalFile>(ParentPath());
  parent.forget(aParent);
  return NS_OK;
}

nsresult nsLocalFile::GetFollowLinks(bool* aFollowLinks) {
  if (!aFollowLinks) return NS_ERROR_NULL_POINTER;
  *aFollowLinks = mFollowLinks;
  return NS_OK;
}

nsresult nsLocalFile::SetFollowLinks(bool aFollowLinks) {
  mFollowLinks = aFollowLinks;
  return NS_OK;
}

nsresult nsLocalFile::GetPersistentDescriptor(nsACString& aPersistentDescriptor) {
  return GetNativePath(aPersistentDescriptor);
}

nsresult nsLocalFile::SetPersistentDescriptor(const nsACString& aPersistentDescriptor) {
  return InitWithNativePath(aPersistentDescriptor);
}

nsresult nsLocalFile::GetRelativeDescriptor(nsIFile* aFromFile, nsACString& aResult) {
  ENSURE_INITIALIZED();
  std::string from;
  const nsresult rv = PathOf(aFromFile, &from);
  if (NS_FAILED(rv)) return rv;
  NS_Assign(aResult,
            from == mPath ? std::string() : fs::path(mPath).lexically_relative(from).native());
  return NS_OK;
}

nsresult nsLocalFile::SetRelativeDescriptor(nsIFile* aFromFile, const nsACString& aRelativeDesc) {
  std::string from;
  const nsresult rv = PathOf(aFromFile, &from);
  if (NS_FAILED(rv)) return rv;
  const fs::path relative(NS_View(aRelativeDesc));
  if (relative.is_absolute()) return NS_ERROR_FILE_UNRECOGNIZED_PATH;
  return InitWith((fs::path(from) / relative).lexically_normal().native());
}

// ---- Facts

nsresult nsLocalFile::Stat(struct stat* aStat, bool aOfLink) {
  ENSURE_INITIALIZED();
  const int failed = aOfLink ? lstat(mPath.c_str(), aStat) : stat(mPath.c_str(), aStat);
  return failed ? NS_LastResult() : NS_OK;
}

nsresult nsLocalFile::IsKind(unsigned aKind, bool aOfLink, bool* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  struct stat facts;
  const nsresult rv = Stat(&facts, aOfLink);
  if (NS_SUCCEEDED(rv)) *aResult = (facts.st_mode & S_IFMT) == aKind;
  return rv;
}

nsresult nsLocalFile::IsDirectory(bool* aResult) { return IsKind(S_IFDIR, false, aResult); }
nsresult nsLocalFile::IsFile(bool* aResult) { return IsKind(S_IFREG, false, aResult); }
nsresult nsLocalFile::IsSymlink(bool* aResult) { return IsKind(S_IFLNK, true, aResult); }

nsresult nsLocalFile::IsSpecial(bool* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  struct stat facts;
  const nsresult rv = Stat(&facts, false);
  if (NS_SUCCEEDED(rv)) *aResult = !S_ISREG(facts.st_mode) && !S_ISDIR(facts.st_mode);
  return rv;
}

nsresult nsLocalFile::IsHidden(bool* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  ENSURE_INITIALIZED();
  *aResult = Leaf().starts_with('.');
  return NS_OK;
}

nsresult nsLocalFile::Exists(bool* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  ENSURE_INITIALIZED();
  *aResult = access(mPath.c_str(), F_OK) == 0;
  return NS_OK;
}

nsresult nsLocalFile::IsAccessible(int aMode, bool* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  ENSURE_INITIALIZED();
  const bool accessible = access(mPath.c_str(), aMode) == 0;
  if (!accessible && errno != EACCES && errno != EROFS) return NS_LastResult();
  *aResult = accessible;
  return NS_OK;
}

nsresult nsLocalFile::IsWritable(bool* aResult) { return IsAccessible(W_OK, aResult); }
nsresult nsLocalFile::IsReadable(bool* aResult) { return IsAccessible(R_OK, aResult); }

nsresult nsLocalFile::IsExecutable(bool* aResult) {
  bool isFile = false;
  const nsresult rv = IsFile(&isFile);
  if (NS_FAILED(rv) || isFile) return NS_FAILED(rv) ? rv : IsAccessible(X_OK, aResult);
  if (!aResult) return NS_ERROR_NULL_POINTER;
  *aResult = false;
  return NS_OK;
}

nsresult nsLocalFile::GetPermissions(uint32_t* aPermissions) {
  if (!aPermissions) return NS_ERROR_NULL_POINTER;
  struct stat facts;
  const nsresult rv = Stat(&facts, false);
  if (NS_SUCCEEDED(rv)) *aPermissions = facts.st_mode & 07777;
  return rv;
}

nsresult nsLocalFile::SetPermissions(uint32_t aPermissions) {
  ENSURE_INITIALIZED();
  return chmod(mPath.c_str(), aPermissions & 07777) ? NS_LastResult() : NS_OK;
}

nsresult nsLocalFile::GetPermissionsOfLink(uint32_t* aPermissionsOfLink) {
  if (!aPermissionsOfLink) return NS_ERROR_NULL_POINTER;
  struct stat facts;
  const nsresult rv = Stat(&facts, true);
  if (NS_SUCCEEDED(rv)) *aPermissionsOfLink = facts.st_mode & 07777;
  return rv;
}

nsresult nsLocalFile::GetTime(int64_t* aTime, bool aOfLink) {
  if (!aTime) return NS_ERROR_NULL_POINTER;
  struct stat facts;
  const nsresult rv = Stat(&facts, aOfLink);
  if (NS_FAILED(rv)) return rv;
  const int64_t rest = facts.st_mtim.tv_nsec / kNanosecondsPerMillisecond;
  int64_t time;
  // Some file systems keep times that milliseconds can't tell.
  if (__builtin_mul_overflow(facts.st_mtim.tv_sec, kMillisecondsPerSecond, &time) ||
      __builtin_add_overflow(time, rest, &time))
    return NS_ERROR_LOSS_OF_SIGNIFICANT_DATA;
  *aTime = time;
  return NS_OK;
}

nsresult nsLocalFile::SetTime(int64_t aTime, bool aOfLink) {
  ENSURE_INITIALIZED();
  int64_t seconds = aTime / kMillisecondsPerSecond, rest = aTime % kMillisecondsPerSecond;
  if (rest < 0) {
    --seconds;
    rest += kMillisecondsPerSecond;
  }
  const timespec times[] = {{0, UTIME_OMIT}, {seconds, rest * kNanosecondsPerMillisecond}};
  const int flags = aOfLink ? AT_SYMLINK_NOFOLLOW : 0;
  return utimensat(AT_FDCWD, mPath.c_str(), times, flags) ? NS_LastResult() : NS_OK;
}

nsresult nsLocalFile::GetLastModifiedTime(int64_t* aTime) { return GetTime(aTime, false); }
nsresult nsLocalFile::SetLastModifiedTime(int64_t aTime) { return SetTime(aTime, false); }
nsresult nsLocalFile::GetLastModifiedTimeOfLink(int64_t* aTime) { return GetTime(aTime, true); }
nsresult nsLocalFile::SetLastModifiedTimeOfLink(int64_t aTime) { return SetTime(aTime, true); }

nsresult nsLocalFile::GetFileSize(int64_t* aFileSize) {
  if (!aFileSize) return NS_ERROR_NULL_POINTER;
  struct stat facts;
  const nsresult rv = Stat(&facts, false);
  if (NS_SUCCEEDED(rv)) *aFileSize = S_ISDIR(facts.st_mode) ? 0 : facts.st_size;
  return rv;
}

nsresult nsLocalFile::SetFileSize(int64_t aFileSize) {
  ENSURE_INITIALIZED();
  return truncate(mPath.c_str(), aFileSize) ? NS_LastResult() : NS_OK;
}

nsresult nsLocalFile::GetFileSizeOfLink(int64_t* aFileSizeOfLink) {
  if (!aFileSizeOfLink) return NS_ERROR_NULL_POINTER;
  struct stat facts;
  const nsresult rv = Stat(&facts, true);
  if (NS_SUCCEEDED(rv)) *aFileSizeOfLink = facts.st_size;
  return rv;
}

nsresult nsLocalFile::Target(std::string* aTarget) {
  ENSURE_INITIALIZED();
  std::error_code error;
  const fs::path target = fs::read_symlink(mPath, error);
  if (error) return error.value() == EINVAL ? NS_ERROR_FILE_INVALID_PATH : ResultOf(error);
  *aTarget = (fs::path(ParentPath()) / target).lexically_normal().native();
  return NS_OK;
}

nsresult nsLocalFile::GetTarget(nsAString& aTarget) {
  std::string target;
  const nsresult rv = Target(&target);
  if (NS_SUCCEEDED(rv)) NS_Assign(aTarget, vorel::NameToUtf16(target));
  return rv;
}

nsresult nsLocalFile::GetNativeTarget(nsACString& aNativeTarget) {
  std::string target;
  const nsresult rv = Target(&target);
  if (NS_SUCCEEDED(rv)) NS_Assign(aNativeTarget, target);
  return rv;
}

nsresult nsLocalFile::GetDiskSpaceAvailable(int64_t* aDiskSpaceAvailable) {
  if (!aDiskSpaceAvailable) return NS_ERROR_NULL_POINTER;
  ENSURE_INITIALIZED();
  struct statvfs facts;
  if (statvfs(mPath.c_str(), &facts) != 0) return NS_LastResult();
  *aDiskSpaceAvailable = static_cast<int64_t>(facts.f_bavail * facts.f_frsize);
  return NS_OK;
}

nsresult nsLocalFile::GetDirectoryEntries(nsISimpleEnumerator** aDirectoryEntries) {
  if (!aDirectoryEntries) return NS_ERROR_NULL_POINTER;
  ENSURE_INITIALIZED();
  nsCOMArray<nsILocalFile> entries;
  std::error_code error;
  for (fs::directory_iterator entry(mPath, error), end; !error && entry != end;
       entry.increment(error))
    entries.push_back(MakeRefCounted<nsLocalFile>(Join(mPath, entry->path().filename().native())));
  return error ? ResultOf(error) : NS_NewArrayEnumerator(aDirectoryEntries, entries);
}

// ---- Changes

nsresult nsLocalFile::Create(uint32_t aType, uint32_t aPermissions) {
  ENSURE_INITIALIZED();
  if (aType != NORMAL_FILE_TYPE && aType != DIRECTORY_TYPE) return NS_ERROR_FILE_UNKNOWN_TYPE;
  const auto create = [&] {
    if (aType == DIRECTORY_TYPE) return mkdir(mPath.c_str(), aPermissions) == 0;
    return nsUniqueFd(open(mPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, aPermissions))
               .get() >= 0;
  };
  if (create()) return NS_OK;
  if (errno != ENOENT) return NS_LastResult();
  std::error_code error;
  fs::create_directories(ParentPath(), error);
  if (error) return ResultOf(error);
  return create() ? NS_OK : NS_LastResult();
}

nsresult nsLocalFile::CreateUnique(uint32_t aType, uint32_t aPermissions) {
  nsresult rv = Create(aType, aPermissions);
  if (rv != NS_ERROR_FILE_ALREADY_EXISTS) return rv;
  const std::string path = mPath;
  const fs::path leaf = Leaf();
  for (int i = 1; i <= 9999; ++i) {
    mPath = Join(ParentPath(),
                 leaf.stem().native() + "-" + std::to_string(i) + leaf.extension().native());
    rv = Create(aType, aPermissions);
    if (rv != NS_ERROR_FILE_ALREADY_EXISTS) break;
  }
  if (NS_FAILED(rv)) mPath = path;
  return rv == NS_ERROR_FILE_ALREADY_EXISTS ? NS_ERROR_FILE_TOO_BIG : rv;
}

nsresult nsLocalFile::Remove(bool aRecursive) {
  ENSURE_INITIALIZED();
  std::error_code error;
  const bool removed = aRecursive ? fs::remove_all(mPath, error) > 0 : fs::remove(mPath, error);
  if (error) return ResultOf(error);
  return removed ? NS_OK : NS_ERROR_FILE_NOT_FOUND;
}

nsresult nsLocalFile::Destination(nsIFile* aNewParentDir, std::string_view aNewName,
                                  std::string* aPath) {
  ENSURE_INITIALIZED();
  if (!IsName(aNewName)) return NS_ERROR_FILE_UNRECOGNIZED_PATH;
  std::string parent = ParentPath();
  if (aNewParentDir) {
    const nsresult rv = PathOf(aNewParentDir, &parent);
    if (NS_FAILED(rv)) return rv;
  }
  std::error_code error;
  if (!fs::exists(fs::symlink_status(mPath, error))) return NS_ERROR_FILE_NOT_FOUND;
  std::error_code made;
  fs::create_directories(parent, made);
  if (!fs::is_directory(fs::status(parent, error)))
    return !made || made.value() == ENOTDIR ? NS_ERROR_FILE_DESTINATION_NOT_DIR : ResultOf(made);
  const std::string path = Join(parent, aNewName.empty() ? Leaf() : aNewName);
  if (path != mPath && fs::is_directory(fs::symlink_status(path, error)))
    return NS_ERROR_FILE_ALREADY_EXISTS;
  if (path.starts_with(Join(mPath, ""))) return NS_ERROR_FILE_COPY_OR_MOVE_FAILED;  // into itself
  *aPath = path;
  return NS_OK;
}

nsresult nsLocalFile::Copy(nsIFile* aNewParentDir, std::string_view aNewName, bool aFollowLink) {
  std::string path;
  const nsresult rv = Destination(aNewParentDir, aNewName, &path);
  if (NS_FAILED(rv)) return rv;
  return path == mPath ? NS_ERROR_FILE_ALREADY_EXISTS : CopyWhole(mPath, path, aFollowLink);
}

nsresult nsLocalFile::Move(nsIFile* aNewParentDir, std::string_view aNewName) {
  std::string path;
  nsresult rv = Destination(aNewParentDir, aNewName, &path);
  if (NS_FAILED(rv)) return rv;
  if (rename(mPath.c_str(), path.c_str()) != 0) {
    if (errno != EXDEV) return NS_LastResult();
    rv = CopyWhole(mPath, path, false);
    if (NS_SUCCEEDED(rv)) rv = Remove(true);
    if (NS_FAILED(rv)) return rv;
  }
  mPath = path;
  return NS_OK;
}

nsresult nsLocalFile::CopyTo(nsIFile* aNewParentDir, const nsAString& aNewName) {
  return Copy(aNewParentDir, vorel::Utf16ToName(NS_View(aNewName)), false);
}
nsresult nsLocalFile::CopyToNative(nsIFile* aNewParentDir, const nsACString& aNewName) {
  return Copy(aNewParentDir, NS_View(aNewName), false);
}
nsresult nsLocalFile::CopyToFollowingLinks(nsIFile* aNewParentDir, const nsAString& aNewName) {
  return Copy(aNewParentDir, vorel::Utf16ToName(NS_View(aNewName)), true);
}
nsresult nsLocalFile::CopyToFollowingLinksNative(nsIFile* aNewParentDir,
                                                 const nsACString& aNewName) {
  return Copy(aNewParentDir, NS_View(aNewName), true);
}
nsresult nsLocalFile::MoveTo(nsIFile* aNewParentDir, const nsAString& aNewName) {
  return Move(aNewParentDir, vorel::Utf16ToName(NS_View(aNewName)));
}
nsresult nsLocalFile::MoveToNative(nsIFile* aNewParentDir, const nsACString& aNewName) {
  return Move(aNewParentDir, NS_View(aNewName));
}

// ---- Opening

nsresult nsLocalFile::OpenNSPRFileDesc(int32_t aFlags, int32_t aMode, PRFileDesc** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  ENSURE_INITIALIZED();
  const auto flags = static_cast<uint32_t>(aFlags);
  PRFileDesc* const file =
      PR_Open(mPath.c_str(), static_cast<PRIntn>(flags & ~(DELETE_ON_CLOSE | OS_READAHEAD)), aMode);
  if (!file) return NS_ResultOfErrno(PR_GetOSError());
  // An open file lives on without its name.
  if (flags & DELETE_ON_CLOSE) (void)PR_Delete(mPath.c_str());
  *aResult = file;
  return NS_OK;
}

nsresult nsLocalFile::OpenANSIFileDesc(const char* aMode, FILE** aResult) {
  if (!aMode || !aResult) return NS_ERROR_NULL_POINTER;
  ENSURE_INITIALIZED();
  FILE* const file = fopen(mPath.c_str(), aMode);
  if (!file) return NS_LastResult();
  *aResult = file;
  return NS_OK;
}

nsresult nsLocalFile::Load(PRLibrary** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  ENSURE_INITIALIZED();
  PRLibrary* const library = PR_LoadLibrary(mPath.c_str());
  if (!library) return NS_ERROR_FAILURE;
  *aResult = library;
  return NS_OK;
}

// Files and directories, "@mozilla.org/file/local;1".
#pragma once

#include <string>
#include <string_view>

#include "nsILocalFile.h"
#include "nsImplements.h"
#include "nsString.h"

/// A path, and what can be done with what is there. The path is absolute and has no "/" at its end,
/// but for the root's; native paths are the system's bytes, the others their UTF-8 reading. One
/// thread at a time.
///
/// All operations answer NS_ERROR_NOT_INITIALIZED before Init, and the code of the system's error
/// (nsErrno.h) when the system refuses: NS_ERROR_FILE_NOT_FOUND, NS_ERROR_FILE_ACCESS_DENIED and so
/// on.
class nsLocalFile final : public nsImplements<nsLocalFile, nsILocalFile> {
 public:
  static const nsClassInfoRecord kClassInfo;
  nsLocalFile() = default;
  explicit nsLocalFile(std::string aPath) : mPath(std::move(aPath)) {}

  /// One name; NS_ERROR_FILE_UNRECOGNIZED_PATH for one with "/" or a zero in it, and for "..".
  /// Nothing for "".
  nsresult Append(const nsAString& aNode) override;
  nsresult AppendNative(const nsACString& aNode) override;
  /// Resolves links, "." and ".."; the file must be there.
  nsresult Normalize() override;
  /// Makes missing directories above, too. NS_ERROR_FILE_ALREADY_EXISTS;
  /// NS_ERROR_FILE_UNKNOWN_TYPE.
  nsresult Create(uint32_t aType, uint32_t aPermissions) override;
  nsresult GetLeafName(nsAString& aLeafName) override;
  nsresult SetLeafName(const nsAString& aLeafName) override;
  nsresult GetNativeLeafName(nsACString& aNativeLeafName) override;
  nsresult SetNativeLeafName(const nsACString& aNativeLeafName) override;
  /// Null is the same directory, an empty name the same name. A file that is there is replaced
  /// whole or not at all; a directory that is there is NS_ERROR_FILE_ALREADY_EXISTS. The new parent
  /// is made if missing; NS_ERROR_FILE_DESTINATION_NOT_DIR if it is a file. Links inside a
  /// directory are copied as links; the file itself is what the link leads to only with
  /// FollowingLinks.
  nsresult CopyTo(nsIFile* aNewParentDir, const nsAString& aNewName) override;
  nsresult CopyToNative(nsIFile* aNewParentDir, const nsACString& aNewName) override;
  nsresult CopyToFollowingLinks(nsIFile* aNewParentDir, const nsAString& aNewName) override;
  nsresult CopyToFollowingLinksNative(nsIFile* aNewParentDir, const nsACString& aNewName) override;
  /// Arguments as for CopyTo. In one step on one volume; between volumes the old one goes only when
  /// the copy stands on the disk. Afterwards this is the new place.
  nsresult MoveTo(nsIFile* aNewParentDir, const nsAString& aNewName) override;
  nsresult MoveToNative(nsIFile* aNewParentDir, const nsACString& aNewName) override;
  /// A link is removed itself. NS_ERROR_FILE_DIR_NOT_EMPTY unless recursive.
  nsresult Remove(bool aRecursive) override;
  nsresult GetPermissions(uint32_t* aPermissions) override;
  nsresult SetPermissions(uint32_t aPermissions) override;
  nsresult GetPermissionsOfLink(uint32_t* aPermissionsOfLink) override;
  /// NS_ERROR_NOT_IMPLEMENTED: links have none of their own here.
  nsresult SetPermissionsOfLink(uint32_t) override { return NS_ERROR_NOT_IMPLEMENTED; }
  /// Milliseconds since 1970.
  nsresult GetLastModifiedTime(int64_t* aLastModifiedTime) override;
  nsresult SetLastModifiedTime(int64_t aLastModifiedTime) override;
  nsresult GetLastModifiedTimeOfLink(int64_t* aLastModifiedTimeOfLink) override;
  nsresult SetLastModifiedTimeOfLink(int64_t aLastModifiedTimeOfLink) override;
  /// Bytes; 0 for a directory.
  nsresult GetFileSize(int64_t* aFileSize) override;
  nsresult SetFileSize(int64_t aFileSize) override;
  nsresult GetFileSizeOfLink(int64_t* aFileSizeOfLink) override;
  /// What the link says, made absolute, not followed further. NS_ERROR_FILE_INVALID_PATH if it is
  /// no link.
  nsresult GetTarget(nsAString& aTarget) override;
  nsresult GetNativeTarget(nsACString& aNativeTarget) override;
  nsresult GetPath(nsAString& aPath) override;
  nsresult GetNativePath(nsACString& aNativePath) override;
  nsresult Exists(bool* aResult) override;
  nsresult IsWritable(bool* aResult) override;
  nsresult IsReadable(bool* aResult) override;
  nsresult IsExecutable(bool* aResult) override;
  /// True for a name that starts with ".".
  nsresult IsHidden(bool* aResult) override;
  nsresult IsDirectory(bool* aResult) override;
  nsresult IsFile(bool* aResult) override;
  nsresult IsSymlink(bool* aResult) override;
  nsresult IsSpecial(bool* aResult) override;
  /// Puts "-1", "-2" and so on before the name's ending until it is a new one.
  /// NS_ERROR_FILE_TOO_BIG after 9999.
  nsresult CreateUnique(uint32_t aType, uint32_t aPermissions) override;
  nsresult Clone(nsIFile** aResult) override;
  /// Compares the paths.
  nsresult Equals(nsIFile* aInFile, bool* aResult) override;
  /// By the paths; a directory does not contain itself. Not recursive: only as parent.
  nsresult Contains(nsIFile* aInFile, bool aRecur, bool* aResult) override;
  /// Null for the root.
  nsresult GetParent(nsIFile** aParent) override;
  /// A snapshot of nsIFile, in the system's order.
  nsresult GetDirectoryEntries(nsISimpleEnumerator** aDirectoryEntries) override;
  /// NS_ERROR_FILE_UNRECOGNIZED_PATH unless absolute and free of zeros.
  nsresult InitWithPath(const nsAString& aFilePath) override;
  nsresult InitWithNativePath(const nsACString& aFilePath) override;
  nsresult InitWithFile(nsIFile* aFile) override;
  /// Kept, but without meaning here.
  nsresult GetFollowLinks(bool* aFollowLinks) override;
  nsresult SetFollowLinks(bool aFollowLinks) override;
  nsresult OpenNSPRFileDesc(int32_t aFlags, int32_t aMode, PRFileDesc** aResult) override;
  nsresult OpenANSIFileDesc(const char* aMode, FILE** aResult) override;
  nsresult Load(PRLibrary** aResult) override;
  nsresult GetDiskSpaceAvailable(int64_t* aDiskSpaceAvailable) override;
  /// Several names with "/" between; the rest as for Append.
  nsresult AppendRelativePath(const nsAString& aRelativeFilePath) override;
  nsresult AppendRelativeNativePath(const nsACString& aRelativeFilePath) override;
  /// The native path.
  nsresult GetPersistentDescriptor(nsACString& aPersistentDescriptor) override;
  nsresult SetPersistentDescriptor(const nsACString& aPersistentDescriptor) override;
  /// NS_ERROR_NOT_IMPLEMENTED, both: they would start a program.
  nsresult Reveal() override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult Launch() override { return NS_ERROR_NOT_IMPLEMENTED; }
  /// The way from a directory to this, with "../" for each step up.
  nsresult GetRelativeDescriptor(nsIFile* aFromFile, nsACString& aResult) override;
  nsresult SetRelativeDescriptor(nsIFile* aFromFile, const nsACString& aRelativeDesc) override;

 private:
  ~nsLocalFile() override = default;
  std::string_view Leaf() const;
  std::string ParentPath() const;
  nsresult SetLeaf(std::string_view aName);
  nsresult AppendName(std::string_view aName);
  nsresult AppendRelative(std::string_view aPath);
  nsresult InitWith(std::string_view aPath);
  nsresult Target(std::string* aTarget);
  nsresult Stat(struct stat* aStat, bool aOfLink);
  nsresult IsKind(unsigned aKind, bool aOfLink, bool* aResult);
  nsresult IsAccessible(int aMode, bool* aResult);
  nsresult GetTime(int64_t* aTime, bool aOfLink);
  nsresult SetTime(int64_t aTime, bool aOfLink);
  nsresult Destination(nsIFile* aNewParentDir, std::string_view aNewName, std::string* aPath);
  nsresult Copy(nsIFile* aNewParentDir, std::string_view aNewName, bool aFollowLink);
  nsresult Move(nsIFile* aNewParentDir, std::string_view aNewName);

  std::string mPath;
  bool mFollowLinks = false;
};

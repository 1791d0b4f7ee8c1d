// The port of files: what a directory holds, and the facts of an entry that tell one look from the
// next.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "nsString.h"

/// All methods may be called from any thread. Paths are absolute, in the platform's form, with or
/// without a trailing separator. A name that is not text in the platform's encoding is given in a
/// form that comes back to the same file when it is handed in again.
class nsPlatformFiles {
 public:
  enum Kind : uint8_t {
    kFile,
    kDirectory,
    kSymlink,  ///< A link, whatever it leads to.
    kSpecial,  ///< A device, a pipe, a socket.
  };

  /// One entry of a directory. Of a link, the facts are those of the link itself.
  struct Entry {
    nsString mLeafName;  ///< Empty: there is an entry, but its name can't be told.
    /// Whether the facts below could be read; they can't when the entry goes while it is looked at.
    nsresult mStatus = NS_ERROR_FAILURE;
    Kind mKind = kFile;
    /// When the content last changed, in the finest unit that the volume keeps. For comparison with
    /// an earlier look only.
    int64_t mLastModify = 0;
    bool mHasINode = false;
    uint64_t mINode = 0;   ///< Stays with the file through renames and moves within its volume.
    uint64_t mVolume = 0;  ///< Tells the volumes that are mounted at a time from each other.
  };

  /// A directory that is being read. One thread at a time.
  class Listing {
   public:
    virtual ~Listing() = default;
    /// Windows: none: FindNextFileW has been asked.
    virtual bool HasMore() = 0;
    /// Moves on by one entry, also when it fails. The order is the volume's own. Entries that come
    /// or go meanwhile are in it or not; those that stay are in it once. NS_ERROR_UNEXPECTED at the
    /// end.
    /// Windows: FindNextFileW, and GetFileInformationByHandle.
    virtual nsresult GetNext(Entry* aEntry) = 0;
  };

  virtual ~nsPlatformFiles() = default;

  /// What stands between the components of a path: '/' or '\\'.
  /// Windows: none: '\\'.
  virtual char16_t Separator() const = 0;

  /// Whether there is something at the path, through links. No, and success, when there is not;
  /// fails when that can't be found out.
  /// Windows: GetFileAttributesW.
  virtual nsresult Exists(const nsAString& aPath, bool* aExists) = 0;

  /// The facts of what the path leads to, through links. NS_ERROR_FILE_NOT_FOUND.
  /// Windows: GetFileInformationByHandle.
  virtual nsresult ReadEntry(const nsAString& aPath, Entry* aEntry) = 0;

  /// Opens a directory for reading; "." and ".." are not in it. aFollowLink says whether the path
  /// itself may be a link to a directory. NS_ERROR_FILE_NOT_FOUND, NS_ERROR_FILE_NOT_DIRECTORY
  /// (also for a link that is not to be followed), NS_ERROR_FILE_ACCESS_DENIED.
  /// Windows: FindFirstFileW.
  virtual nsresult OpenListing(const nsAString& aPath, bool aFollowLink,
                               std::unique_ptr<Listing>* aListing) = 0;

  /// What tells the volume that a path is on from others, in later runs too: numbers of files are
  /// the same files there. Never 0. NS_ERROR_NOT_AVAILABLE when the volume has nothing of the kind;
  /// NS_ERROR_FILE_NOT_FOUND.
  /// Windows: GetVolumeInformationW, the serial number.
  virtual nsresult ReadVolume(const nsAString& aPath, uint64_t* aVolume) = 0;

  /// Reads what ReplaceKept has written. NS_ERROR_FILE_NOT_FOUND, NS_ERROR_FILE_TOO_BIG beyond 512
  /// MiB, NS_ERROR_FILE_UNKNOWN_TYPE for what is no regular file.
  /// Windows: ReadFile.
  virtual nsresult ReadKept(const nsAString& aPath, std::string* aContents) = 0;

  /// Puts a file in the place of another, or of none, for this user alone, and makes the directory
  /// that it lies in: after a crash at any moment there is the whole old one or the whole new one.
  /// NS_ERROR_FILE_ACCESS_DENIED, NS_ERROR_FILE_NO_DEVICE_SPACE, NS_ERROR_FILE_NOT_FOUND when there
  /// is no place for the directory.
  /// Windows: ReplaceFileW.
  virtual nsresult ReplaceKept(const nsAString& aPath, std::string_view aContents) = 0;
};

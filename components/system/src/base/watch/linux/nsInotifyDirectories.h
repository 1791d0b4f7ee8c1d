// The directories of one root that the kernel watches for us, and what their events say about where
// to look.
#pragma once

#include <sys/inotify.h>
#include <sys/types.h>

#include <atomic>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "nsCOMPtr.h"
#include "nsILog4.h"
#include "nsLock.h"
#include "nsNativePaths.h"

/// The kernel watches single directories, so that each one below the root is given to it, and the
/// picture of which is where is kept here. A directory is known by its watch: the kernel gives the
/// same number for the same directory, wherever that has gone, so that moves need no pairing of
/// events. Events may be out of date when they are read; so nothing is believed but what the disk
/// then says.
///
/// A directory that is seen at two places, by a bind mount, is one directory here: its changes are
/// named at the place that was found last.
///
/// Any thread; one that works for long holds up the others, but for Stop.
class nsInotifyDirectories {
 public:
  /// aRoot as the system has it, without a trailing slash.
  nsInotifyDirectories(std::string aRoot, nsCOMPtr<nsILog4Logger> aLog);
  ~nsInotifyDirectories();

  /// Watches the root itself. To be called once, first.
  nsresult Start();
  /// Readable when there are events to read.
  int Fd() const { return mInotify.get(); }
  /// Has POLLPRI when volumes have come or gone; -1 when that can't be heard of.
  int MountTableFd() const { return mMountTable.get(); }

  /// Watches one directory, given relative to the root; the one above it is watched already.
  nsresult Watch(const std::string& aPath);
  /// Watches everything below the root, and forgets what is no longer there.
  void Scan();
  /// Ends a scan early, and all later ones at once. Never waits.
  void Stop() { mIsStopped = true; }
  /// Handles what the kernel has queued. New directories are watched before their names are in
  /// Names. False when the root is gone, or something else has taken its place.
  bool ReadEvents();
  /// The same for volumes that have been mounted or unmounted below the root.
  bool ReadMounts();

  /// Whether the kernel has dropped events since the last time; Scan is called for then.
  bool TakeOverflow();

  /// A directory that is not watched: relative to the root, and why not.
  struct Unwatched {
    std::string mPath;
    int mError;
  };
  /// Those that are new since the last time: of many some, and for the limit one.
  std::vector<Unwatched> TakeUnwatched();
  /// Of all that TakeUnwatched has given, those that are not watched yet.
  std::vector<Unwatched> StillUnwatched();
  /// Whether there are any.
  bool IsIncomplete() const { return mIsIncomplete; }
  /// Tries them again; those that are watched now count as touched.
  void Retry();

  /// Paths relative to the root of what has changed, since the last time. What is in a directory
  /// that has gone since is left out: there is no place to look at.
  std::vector<std::string> TakeNames();
  /// The directories in which something has changed, or which have appeared, since the last time.
  /// Those that have no place below the root any more are left out, and no longer watched.
  std::vector<std::string> TakeDirectories();

 private:
  struct Directory {
    int mWatch = -1;
    Directory* mParent = nullptr;  // null: the root, or a directory that is adrift
    std::string mName;
    std::map<std::string, Directory*, std::less<>> mChildren;
    uint32_t mScan = 0;         // the scan that saw it last
    bool mIsUnread = false;     // it, or a directory in it, could not be read or watched
    bool mIsUnmounted = false;  // its volume has gone from here
  };
  struct Name {
    int mWatch;
    std::string mLeaf;
    bool operator==(const Name&) const = default;
  };

  bool HandleEvent(const inotify_event& aEvent, std::string_view aName) NS_REQUIRES(mLock);
  void ScanAll() NS_REQUIRES(mLock);
  void WatchTree(Directory* aTop) NS_REQUIRES(mLock);
  Directory* WatchChild(int aParentFd, Directory* aParent, const std::string& aName, bool* aIsNew)
      NS_REQUIRES(mLock);
  Directory* Attach(int aFd, Directory* aParent, const std::string& aName, bool* aIsNew)
      NS_REQUIRES(mLock);
  void LookForChild(Directory* aParent, const std::string& aName) NS_REQUIRES(mLock);
  void TouchTree(Directory* aTop) NS_REQUIRES(mLock);
  void WatchUnread(Directory* aDirectory) NS_REQUIRES(mLock);
  /// aName may be empty: the directory itself.
  void NoteUnwatched(Directory* aDirectory, const std::string& aName, int aError)
      NS_REQUIRES(mLock);
  int AddWatch(int aFd) NS_REQUIRES(mLock);
  void WatchWayToRoot(int aRootFd) NS_REQUIRES(mLock);
  std::map<std::string, int> Mounts() const NS_REQUIRES(mLock);
  bool IsRootInPlace() const NS_REQUIRES(mLock);
  bool EndsHere() const;
  nsUniqueFd OpenBelow(const std::string& aPath, int aFlags) const;
  nsUniqueFd Open(const Directory& aDirectory) const NS_REQUIRES(mLock);
  bool PathOf(const Directory& aDirectory, std::string* aPath) const NS_REQUIRES(mLock);
  Directory* Find(std::string_view aPath) const NS_REQUIRES(mLock);
  void Detach(Directory* aDirectory) NS_REQUIRES(mLock);
  void Forget(Directory* aDirectory) NS_REQUIRES(mLock);
  void ForgetTree(Directory* aTop) NS_REQUIRES(mLock);

  const std::string mRoot;
  const nsCOMPtr<nsILog4Logger> mLog;
  nsUniqueFd mInotify, mMountTable;
  std::atomic<bool> mIsStopped = false;

  nsMutex mLock;  // guards what follows
  // By watch.
  std::unordered_map<int, std::unique_ptr<Directory>> mDirectories NS_GUARDED_BY(mLock);
  Directory* mTop NS_GUARDED_BY(mLock) = nullptr;
  std::set<int> mAncestors NS_GUARDED_BY(mLock);  // watches of the directories above the root
  // Links on the way to it, and who holds them.
  std::set<std::pair<int, std::string>> mWayLinks NS_GUARDED_BY(mLock);
  dev_t mRootDevice NS_GUARDED_BY(mLock) = 0;
  ino_t mRootINode NS_GUARDED_BY(mLock) = 0;
  std::string mPlace NS_GUARDED_BY(mLock);  // the root's path without links
  // Relative to the root; the uppermost one's identifier.
  std::map<std::string, int> mMounts NS_GUARDED_BY(mLock);
  // Moved away to a place that is not known, or not yet.
  std::set<Directory*> mAdrift NS_GUARDED_BY(mLock);
  std::vector<Name> mNames NS_GUARDED_BY(mLock);
  std::unordered_set<int> mTouched NS_GUARDED_BY(mLock);  // watches
  uint32_t mScan NS_GUARDED_BY(mLock) = 0;
  bool mOverflow NS_GUARDED_BY(mLock) = false;
  bool mToldLimit NS_GUARDED_BY(mLock) = false;
  // The system has refused a watch since the last Retry.
  bool mIsLimited NS_GUARDED_BY(mLock) = false;
  std::vector<Unwatched> mUnwatched NS_GUARDED_BY(mLock);
  // By path; under none the one for the limit, of which the last that has met it.
  std::map<std::string, Unwatched> mToldUnwatched NS_GUARDED_BY(mLock);
  std::atomic<bool> mIsIncomplete = false;  // also read without the lock
};

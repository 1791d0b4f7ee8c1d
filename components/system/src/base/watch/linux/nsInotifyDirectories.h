// The directories of one root that the kernel watches for us, and what their events say about where
// to look.
#pragma once

#include <sys/inotify.h>
#include <sys/types.h>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "nsCOMPtr.h"
#include "nsILog4.h"
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

  bool HandleEvent(const inotify_event& aEvent, std::string_view aName);
  void ScanAll();
  void WatchTree(Directory* aTop);
  Directory* WatchChild(int aParentFd, Directory* aParent, const std::string& aName, bool* aIsNew);
  Directory* Attach(int aFd, Directory* aParent, const std::string& aName, bool* aIsNew);
  void LookForChild(Directory* aParent, const std::string& aName);
  void TouchTree(Directory* aTop);
  void WatchUnread(Directory* aDirectory);
  /// aName may be empty: the directory itself.
  void NoteUnwatched(Directory* aDirectory, const std::string& aName, int aError);
  int AddWatch(int aFd);
  void WatchWayToRoot(int aRootFd);
  std::map<std::string, int> Mounts() const;
  bool IsRootInPlace() const;
  bool EndsHere() const;
  nsUniqueFd OpenBelow(const std::string& aPath, int aFlags) const;
  nsUniqueFd Open(const Directory& aDirectory) const;
  bool PathOf(const Directory& aDirectory, std::string* aPath) const;
  Directory* Find(std::string_view aPath) const;
  void Detach(Directory* aDirectory);
  void Forget(Directory* aDirectory);
  void ForgetTree(Directory* aTop);

  const std::string mRoot;
  const nsCOMPtr<nsILog4Logger> mLog;
  nsUniqueFd mInotify, mMountTable;
  std::atomic<bool> mIsStopped = false;

  std::mutex mLock;                                                  // guards what follows
  std::unordered_map<int, std::unique_ptr<Directory>> mDirectories;  // by watch
  Directory* mTop = nullptr;
  std::set<int> mAncestors;                         // watches of the directories above the root
  std::set<std::pair<int, std::string>> mWayLinks;  // links on the way to it, and who holds them
  dev_t mRootDevice = 0;
  ino_t mRootINode = 0;
  std::string mPlace;                  // the root's path without links
  std::map<std::string, int> mMounts;  // relative to the root; the uppermost one's identifier
  std::set<Directory*> mAdrift;        // moved away to a place that is not known, or not yet
  std::vector<Name> mNames;
  std::unordered_set<int> mTouched;  // watches
  uint32_t mScan = 0;
  bool mOverflow = false;
  bool mToldLimit = false;
  bool mIsLimited = false;  // the system has refused a watch since the last Retry
  std::vector<Unwatched> mUnwatched;
  std::set<std::string> mToldUnwatched;
  std::atomic<bool> mIsIncomplete = false;  // also read without the lock
};

// Hears of what changes in a watched directory.
#pragma once

#include "nsXPCOMTypes.h"

/// Paths are relative to the root of the watch, use "/", and have no leading "/". A directory's
/// path ends in "/". Called on the thread that started the watch; results are ignored.
///
/// One report is one difference between two looks at the disk, so that several writes may come as
/// one change, and a file that came and went between two looks is never heard of.
///
/// From within OnWatcherStarted and OnWatcherStopped, no watch on the same root may be started or
/// stopped through the shared service: it holds its lock across these two calls.
class nsISystemFileSystemListener : public nsISupports {
 public:
  using Self = nsISystemFileSystemListener;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsISystemFileSystemListener";
  static constexpr nsIID kIID = "26fcdd71-f6d6-485b-9c02-2a3f27ec69b4"_iid;

  /// The root does not exist.
  static constexpr uint32_t ERROR_ROOT_MISSING = 0u;
  /// The picture of the directory failed.
  static constexpr uint32_t ERROR_TREE = 2u;
  /// The root of a standing watch has gone.
  static constexpr uint32_t ERROR_ROOT_GONE = 3u;
  /// The watch stands, but something below the root is not watched.
  static constexpr uint32_t ERROR_INCOMPLETE = 4u;
  /// There is no earlier snapshot to compare with.
  static constexpr uint32_t ERROR_FULL_LISTING = 5u;

  /// The watch stands; what changes from now on is reported.
  virtual nsresult OnWatcherStarted() = 0;
  /// The watch has ended.
  virtual nsresult OnWatcherStopped() = 0;
  /// ERROR_ROOT_MISSING with the watched path: the root does not exist. ERROR_TREE with an empty
  /// text: the picture of the directory failed. The watch does not stand.
  ///
  /// ERROR_ROOT_GONE with the watched path: the root of a standing watch was deleted, moved,
  /// replaced or unmounted, or a link on the way to it leads elsewhere now. Nothing more is heard
  /// of it. Whoever stops and starts gets a new watch of what is there then.
  ///
  /// ERROR_INCOMPLETE, after OnWatcherStarted, with a text for people that begins with the path of
  /// a directory: it can't be watched, and nothing is heard of what is below it. It is tried again
  /// from time to time, and what it holds by then is reported as added. Of many at once some are
  /// told, and when the system can watch no more, one. Who comes later to a watch that stands hears
  /// of those that are not watched yet.
  ///
  /// ERROR_FULL_LISTING with the name: of a watch with the option "since", the snapshot of that
  /// name was never there, is damaged, or of another directory. All there is is told as added, and
  /// the watch goes on.
  virtual nsresult OnWatcherError(uint32_t aCode, const nsAString& aText) = 0;
  /// A file was written to, or something came into, left or got another name in a directory.
  virtual nsresult OnFileSystemChanged(const nsAString& aPath) = 0;
  /// Of a directory, everything below it is reported first, the deepest first.
  virtual nsresult OnFileSystemRemoved(const nsAString& aPath) = 0;
  /// Of a directory, everything that it already holds is reported first.
  virtual nsresult OnFileSystemAdded(const nsAString& aPath) = 0;

 protected:
  ~nsISystemFileSystemListener() = default;
};

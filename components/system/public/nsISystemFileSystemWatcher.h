// Watches a directory with everything below it.
#pragma once

#include "nsXPCOMTypes.h"

class nsISystemFileSystemListener;

/// Init, then StartWatching; the listener hears of the rest. All on one thread, the one that calls
/// StartWatching, and it must run an event loop: reports come through it.
// script: global FileSystemWatcher, row 10
class nsISystemFileSystemWatcher : public nsISupports {
 public:
  using Self = nsISystemFileSystemWatcher;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsISystemFileSystemWatcher";
  static constexpr nsIID kIID = "18e68dfc-8803-417a-9a2a-159592ea3651"_iid;

  /// aRootURL is a "file:" URL; the directory need not exist yet. aIsRecursive is taken and not
  /// used: all watchers are recursive. Fails with the resolver's result for a URL that no file can
  /// be made of.
  virtual nsresult Init(nsISystemFileSystemListener* aListener, const nsACString& aRootURL,
                        bool aIsRecursive) = 0;
  /// Returns before the watch stands: OnWatcherStarted says that it does, OnWatcherError that it
  /// can't. A second call on a standing watch succeeds and does nothing.
  virtual nsresult StartWatching() = 0;
  /// OnWatcherStopped has been called when this returns. Without a standing watch it succeeds and
  /// does nothing.
  virtual nsresult StopWatching() = 0;
  /// False during the first walk through the directory.
  virtual nsresult GetIsWatching(bool* aIsWatching) = 0;
  /// The absolute path of the root, with the platform's separators.
  virtual nsresult GetWatchPath(nsAString& aWatchPath) = 0;
  virtual nsresult GetIsSupported(bool* aIsSupported) = 0;

 protected:
  ~nsISystemFileSystemWatcher() = default;
};

// What every watcher has in common and what does not depend on its source of events.
#pragma once

#include <atomic>

#include "nsILog4.h"
#include "nsISystemFileSystemListener.h"
#include "nsISystemFileSystemTreeListener.h"
#include "nsISystemFileSystemWatcher.h"
#include "nsLock.h"
#include "nsPlatform.h"
#include "nsString.h"
#include "nsSystemFileSystemTree.h"
#include "nsThreadSafeWeakReference.h"

/// Owns one snapshot tree while it watches, and turns the tree's absolute paths into those that
/// listeners see. One thread, the one that calls StartWatching; the count may change on any.
class nsSystemFileSystemWatcherGeneric : public nsThreadSafeSupportsWeakReference,
                                         public nsISystemFileSystemWatcher,
                                         public nsISystemFileSystemTreeListener {
 public:
  explicit nsSystemFileSystemWatcherGeneric(nsPlatformRef aPlatform);

  nsresult QueryInterface(const nsIID& aIID, void** aResult) override;
  nsrefcnt AddRef() override { return nsThreadSafeSupportsWeakReference::AddRef(); }
  nsrefcnt Release() override { return nsThreadSafeSupportsWeakReference::Release(); }

  nsresult Init(nsISystemFileSystemListener* aListener, const nsACString& aRootURL,
                bool aIsRecursive) override;
  nsresult StartWatching() override;
  nsresult StopWatching() override;
  nsresult GetIsWatching(bool* aIsWatching) override;
  nsresult GetWatchPath(nsAString& aWatchPath) override;
  nsresult GetIsSupported(bool* aIsSupported) override;

  nsresult OnChangeFound(const nsAString& aPath, uint32_t aChangeType) override;
  nsresult OnMoveFound(const nsAString& aOldPath, const nsAString& aNewPath) override;
  nsresult OnTreeReady(const nsAString& aRootPath,
                       const std::vector<nsString>& aDiscoveredDirs) override;
  nsresult OnRootPathMissing() override;
  nsresult OnTreeError() override;

 protected:
  ~nsSystemFileSystemWatcherGeneric() override;

  /// What a destructor calls: stops, and lets go of the tree and the listener.
  virtual void Stop();
  /// The source of events of a new watch, which the first walk opens; null where there is none.
  virtual std::shared_ptr<nsPlatformDirectoryReader> NewReader() { return nullptr; }
  /// A new watch's tree, before its first walk.
  virtual void Prepare(nsSystemFileSystemTree&) {}

  nsCOMPtr<nsSystemFileSystemTree> Tree();

  const nsPlatformRef mPlatform;
  const nsCOMPtr<nsILog4Logger> mLog;
  nsCOMPtr<nsISystemFileSystemListener> mListener;
  nsString mWatchPath;
  bool mIsRecursive = true;
  std::atomic<bool> mIsWatching = false;  // an update on the pool asks too
  bool mIsSupported = true;

 private:
  nsString RelativePath(const nsAString& aPath) const;

  nsMutex mTreeLock;  // guards the pointer: an update may run while a new watch starts
  nsCOMPtr<nsSystemFileSystemTree> mTree NS_GUARDED_BY(mTreeLock);
};

/// Whether a URL, or a text that is relative to a "file:" URL, names a host. Files of other hosts
/// are not ours, and a path of ours is not what is meant.
bool NS_HasOtherHost(std::string_view aURL);

/// NS_ERROR_MALFORMED_URI, with a warning, for a URL with a host. The path of the file that a
/// "file:" URL names, the same for all URLs that name it. Warns of a failure itself.
nsresult NS_GetPathFromFileURL(const nsACString& aURL, nsAString& aPath);

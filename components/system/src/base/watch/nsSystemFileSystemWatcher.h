// The platform's watcher: snapshots, and a thread that hears where to look again.
#pragma once

#include <set>
#include <vector>

#include "nsEventPump.h"
#include "nsIObserver.h"
#include "nsIThread.h"
#include "nsITimer.h"
#include "nsITimerCallback.h"
#include "nsLock.h"
#include "nsModuleClass.h"
#include "nsPlatformDirectoryChanges.h"
#include "nsSystemFileSystemWatcherGeneric.h"

/// "@vorel/system/filesystemwatcherprivate;1". Never interprets what the platform says has
/// happened: it uses only where.
///
/// The first walk watches each directory before it is listed. A background thread keeps one read of
/// changed names outstanding; each completion drops the names into a set and restarts a short
/// timer; when that runs out, a thread of the pool reduces the names to their directories and has
/// the tree look at these.
///
/// For one watch: after StopWatching, a second StartWatching walks the tree anew but reports no
/// changes. Init, StartWatching, StopWatching and all reports belong to one thread.
class nsSystemFileSystemWatcher final : public nsSystemFileSystemWatcherGeneric,
                                        public nsIObserver,
                                        public nsITimerCallback,
                                        private nsPlatformDirectoryReader::Completion {
 public:
  static constexpr nsModuleClass kModuleClass{
      .mRow = 6,
      .mCID = "81651f6e-bcc1-49d8-a0bb-a9dabcee6c4f"_iid,
      .mContractID = "@vorel/system/filesystemwatcherprivate;1"};

  explicit nsSystemFileSystemWatcher(nsPlatformRef aPlatform);

  nsresult QueryInterface(const nsIID& aIID, void** aResult) override;
  nsrefcnt AddRef() override { return nsSystemFileSystemWatcherGeneric::AddRef(); }
  nsrefcnt Release() override { return nsSystemFileSystemWatcherGeneric::Release(); }

  nsresult Init(nsISystemFileSystemListener* aListener, const nsACString& aRootURL,
                bool aIsRecursive) override;
  /// NS_ERROR_ILLEGAL_DURING_SHUTDOWN once the application ends.
  nsresult StartWatching() override;
  nsresult StopWatching() override;
  /// The watch begins with what differs from what the last one of this root with this name has
  /// left in the profile, and leaves its own (nsFileSystemWatcherOptions). Before StartWatching.
  /// NS_ERROR_NOT_AVAILABLE without a profile.
  nsresult SetSince(const nsAString& aName);
  /// What has been reported counts as told, and is left for the next one. Not waited for; nothing
  /// happens while something is being reported.
  void Keep();
  /// The texts of what has been told with ERROR_INCOMPLETE, and still holds: for who comes later.
  /// Any thread.
  std::vector<nsString> StillIncomplete();
  nsresult OnTreeReady(const nsAString& aRootPath,
                       const std::vector<nsString>& aDiscoveredDirs) override;
  nsresult Observe(nsISupports* aSubject, const char* aTopic, const char16_t* aData) override;
  /// The timer has run out.
  nsresult Notify(nsITimer* aTimer) override;

 private:
  ~nsSystemFileSystemWatcher() override;

  class Reads;

  std::shared_ptr<nsPlatformDirectoryReader> NewReader() override;
  nsresult SetObserving(bool aIsObserving);
  void Prepare(nsSystemFileSystemTree& aTree) override;
  nsresult KeepCycle(uint64_t aCycles);
  void Replace(const std::string& aSnapshot);
  std::shared_ptr<nsPlatformDirectoryReader> Reader();
  void EndThread();
  /// Notifies "filesystemwatcher-unwatched" with the root's path: it is there, but can't be
  /// watched, or not any more.
  nsresult TellUnwatched();
  void WatchNextChange();
  void OnReadCompleted(nsresult aResult, uint32_t aBytes) override;
  void InsertChangedNames(uint32_t aBytes) NS_REQUIRES(mEventLock);
  nsresult PostUpdate();
  nsresult Update();
  template <class... P>
  void PostToOwner(nsresult (nsSystemFileSystemWatcher::*aMethod)(P...),
                   std::type_identity_t<P>... aArguments);
  nsresult TellRootGone();
  nsresult TellIncomplete(const nsAString& aText);
  void Stop() override;

  std::unique_ptr<nsEventPump> mThread;
  std::atomic<bool> mShuttingDown = false;  // never cleared
  bool mIsObserving = false;
  bool mIsQuitting = false;     // the application ends: nothing starts any more
  nsString mSince, mSinceFile;  // empty: no comparison
  nsRecursiveMutex mCycleLock;  // held by whoever runs a cycle, or keeps what it found
  nsCOMPtr<nsITimer> mTimer;
  nsCOMPtr<nsIThread> mOwnerThread;  // set once, before there are other threads

  nsMutex mEventLock;  // guards what follows
  // The root's handle.
  std::shared_ptr<nsPlatformDirectoryReader> mReader NS_GUARDED_BY(mEventLock);
  std::vector<uint8_t> mChangeBuffer NS_GUARDED_BY(mEventLock);
  // Relative to the root, with the platform's separators.
  std::set<nsString> mEventPaths NS_GUARDED_BY(mEventLock);
  std::set<nsString> mToldIncomplete NS_GUARDED_BY(mEventLock);
  uint32_t mLooksAgain NS_GUARDED_BY(mEventLock) = 0;
  // Set with the lock held, cleared by Update without it.
  std::atomic<bool> mUpdateRunning = false;  // the timer has fired and the update has not ended
  std::atomic<bool> mUpdateQueued = false;   // the same, for the timer itself
};

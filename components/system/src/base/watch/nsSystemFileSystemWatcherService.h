// One platform watcher for each root, shared by all who watch it.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <thread>
#include <utility>
#include <vector>

#include "nsCOMPtr.h"
#include "nsCore.h"
#include "nsISystemFileSystemListener2.h"
#include "nsISystemFileSystemWatcher.h"
#include "nsIThread.h"
#include "nsImplements.h"
#include "nsLock.h"
#include "nsModuleClass.h"
#include "nsString.h"

/// The one listener that a platform watcher sees: calls each client on the thread on which it was
/// added, one after the other, and waits for each.
///
/// OnWatcherStarted and OnWatcherStopped are passed on with the lock held: a client that starts or
/// stops a watch on the same root from within these two gets NS_ERROR_IN_PROGRESS. A client's
/// thread must not wait for the thread that the watch was started on.
class nsSystemFileSystemWatcherServiceListener final
    : public nsImplements<nsSystemFileSystemWatcherServiceListener, nsISystemFileSystemListener2> {
 public:
  /// The current thread is the client's from now on. On a standing watch the client hears
  /// OnWatcherStarted before this returns. NS_ERROR_IN_PROGRESS, as the next one, from within
  /// OnWatcherStarted or OnWatcherStopped of the root; and from within those of another one, while
  /// this one's are being told on another thread, which may wait for this thread in the same way.
  /// aLater gives the texts of what else has been told of a standing watch and still holds: the
  /// client hears these with ERROR_INCOMPLETE next.
  nsresult AddListener(nsISystemFileSystemListener* aListener,
                       const std::function<std::vector<nsString>()>& aLater);
  /// On a standing watch the client hears OnWatcherStopped before this returns. One that is not
  /// known is ignored.
  nsresult RemoveListener(nsISystemFileSystemListener* aListener);

  bool HasListener(nsISystemFileSystemListener* aListener);
  /// Whether there is nothing to be heard of the root any more, or never was.
  bool HasEnded() const { return mHasEnded; }

  nsresult OnWatcherStarted() override;
  nsresult OnWatcherStopped() override;
  nsresult OnWatcherError(uint32_t aCode, const nsAString& aText) override;
  nsresult OnFileSystemChanged(const nsAString& aPath) override;
  nsresult OnFileSystemRemoved(const nsAString& aPath) override;
  nsresult OnFileSystemAdded(const nsAString& aPath) override;
  nsresult OnFileSystemMoved(const nsAString& aOldPath, const nsAString& aNewPath) override;

 private:
  struct Client {
    nsCOMPtr<nsISystemFileSystemListener> mListener;
    nsCOMPtr<nsIThread> mThread;
  };

  ~nsSystemFileSystemWatcherServiceListener() override = default;

  /// Tells each client of the start or the end, with the lock held.
  void TellAll(nsresult (nsISystemFileSystemListener::*aMethod)()) NS_REQUIRES(mLock);
  /// This thread tells the clients of the start or the end, or is told: it must not wait for the
  /// lock.
  bool IsTelling();
  /// Takes the lock, but where waiting for it might never end.
  bool Lock() NS_TRY_ACQUIRES(true, mLock);
  std::vector<Client> Snapshot();
  template <class Method, class... A>
  void CallAll(Method aMethod, const A&... aArguments);

  nsMutex mLock;                                      // guards what follows
  std::vector<Client> mClients NS_GUARDED_BY(mLock);  // in order of registration
  bool mStarted NS_GUARDED_BY(mLock) = false;
  std::atomic<bool> mHasEnded = false;

  nsMutex mTellingLock;  // guards what follows; nothing else is locked while it is held
  std::thread::id mTelling NS_GUARDED_BY(mTellingLock);
  nsCOMPtr<nsIThread> mTold NS_GUARDED_BY(mTellingLock);
  // The watch has ended while its start was being told.
  bool mEndsAfterwards NS_GUARDED_BY(mTellingLock) = false;
};

/// "@vorel/system/filesystemwatcherservice;1". Any thread that runs an event loop.
class nsSystemFileSystemWatcherService final
    : public nsImplements<nsSystemFileSystemWatcherService, nsISupports> {
 public:
  static constexpr nsModuleClass kModuleClass{
      .mRow = 9,
      .mCID = "0f0aeecb-13ab-4976-a73f-17617d04ef5f"_iid,
      .mContractID = "@vorel/system/filesystemwatcherservice;1",
      .mIsService = true};

  /// The listener hears of the root's changes on the calling thread. URLs that name the same path
  /// share one watcher, but for one whose root is missing or has gone: who comes later gets a new
  /// one. Fails with the resolver's result; that a watch can't be started is heard by
  /// the listener or not at all. NS_ERROR_IN_PROGRESS, as StopWatching, from within
  /// OnWatcherStarted or OnWatcherStopped of the root: nothing has changed then.
  nsresult StartWatching(const nsACString& aRootURL, nsISystemFileSystemListener* aListener);
  /// Undoes one StartWatching. A path or a listener that is not known is no error.
  nsresult StopWatching(const nsACString& aRootURL, nsISystemFileSystemListener* aListener);

 private:
  struct Entry {
    uint32_t mClientCount = 0;
    nsCOMPtr<nsISystemFileSystemWatcher> mWatcher;
    nsCOMPtr<nsSystemFileSystemWatcherServiceListener> mListener;
  };

  ~nsSystemFileSystemWatcherService() override = default;

  /// Takes one client off an entry; the entry, when it was the last.
  Entry Leave(const nsString& aPath, const nsSystemFileSystemWatcherServiceListener* aListener);

  // Guards the table and its entries. Not held while clients are called: they may start and stop
  // watches on other roots.
  nsMutex mLock;
  std::map<nsString, Entry> mTable NS_GUARDED_BY(mLock);  // by the path of the root
  // Of roots that have gone: nobody new comes to these, who is there leaves.
  std::vector<std::pair<nsString, Entry>> mEnded NS_GUARDED_BY(mLock);
};

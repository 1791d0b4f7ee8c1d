#include "nsSystemFileSystemWatcher.h"

#include <algorithm>
#include <cstring>
#include <system_error>

#include "nsDebug.h"
#include "nsIAppStartup.h"
#include "nsIEventTarget.h"
#include "nsIObserverService.h"
#include "nsLogger.h"
#include "nsServices.h"
#include "nsVorelMethodCaller.h"

namespace {

constexpr char kAppStartupContractID[] = "@mozilla.org/toolkit/app-startup;1";
constexpr char kQuitApplication[] = "quit-application";
constexpr uint32_t kChangeBufferSize = 65536;
constexpr bool kWatchSubtree = true;
constexpr uint32_t kNotifyFilter =
    nsPlatformDirectoryReader::kNotifyFileName | nsPlatformDirectoryReader::kNotifyDirName |
    nsPlatformDirectoryReader::kNotifyLastWrite | nsPlatformDirectoryReader::kNotifyCreation;
static_assert(kNotifyFilter == 0x53);
constexpr uint32_t kCoalescingDelay = 10;  // ms

// What one look leaves out the next ones tell. The bound is for volumes whose files change all the
// time.
constexpr uint32_t kMostLooksAgain = 100;

}  // namespace

nsSystemFileSystemWatcher::nsSystemFileSystemWatcher(nsPlatformRef aPlatform)
    : nsSystemFileSystemWatcherGeneric(std::move(aPlatform)),
      mReader(mPlatform->mDirectoryChanges->NewReader()) {}

nsSystemFileSystemWatcher::~nsSystemFileSystemWatcher() {
  SYSTEM_LOG_DEBUG(mLog, "DESTROY");
  nsSystemFileSystemWatcher::Stop();
}

nsresult nsSystemFileSystemWatcher::QueryInterface(const nsIID& aIID, void** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  *aResult = NS_FindInterface<nsIObserver, nsITimerCallback>(this, aIID);
  // Not nsISupports: that is the first base's.
  if (!*aResult || aIID == nsISupports::kIID)
    return nsSystemFileSystemWatcherGeneric::QueryInterface(aIID, aResult);
  AddRef();
  return NS_OK;
}

nsresult nsSystemFileSystemWatcher::Init(nsISystemFileSystemListener* aListener,
                                         const nsACString& aRootURL, bool aIsRecursive) {
  nsresult rv;
  const auto observers = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID, &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  rv = observers->AddObserver(this, kQuitApplication, true);
  NS_ENSURE_SUCCESS(rv, rv);
  mTimer = do_CreateInstance<nsITimer>(NS_TIMER_CONTRACTID, &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  return nsSystemFileSystemWatcherGeneric::Init(aListener, aRootURL, aIsRecursive);
}

nsresult nsSystemFileSystemWatcher::StartWatching() {
  bool isQuitting = false;
  if (const auto startup = do_GetService<nsIAppStartup>(kAppStartupContractID))
    (void)startup->GetShuttingDown(&isQuitting);
  if (isQuitting) mIsQuitting = true;
  if (mIsQuitting) return NS_ERROR_ILLEGAL_DURING_SHUTDOWN;
  return nsSystemFileSystemWatcherGeneric::StartWatching();
}

nsresult nsSystemFileSystemWatcher::StopWatching() {
  mShuttingDown = true;
  if (!mIsWatching) return NS_OK;
  mThreadShouldRun = false;
  mReader->Wake();
  return nsSystemFileSystemWatcherGeneric::StopWatching();
}

nsresult nsSystemFileSystemWatcher::Observe(nsISupports*, const char* aTopic, const char16_t*) {
  if (!aTopic || std::string_view(aTopic) != kQuitApplication) return NS_OK;
  mIsQuitting = true;
  if (mIsWatching) (void)StopWatching();
  // A walk that still runs is not waited for longer than it takes to notice, and its end starts
  // nothing: threads would outlive the library.
  if (const auto tree = Tree()) tree->Cancel();
  // The main thread takes no more events before long, and the library is unloaded: its threads are
  // over by then.
  if (!mThreadShouldRun) JoinThread();
  nsresult rv;
  const auto observers = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID, &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  return observers->RemoveObserver(this, kQuitApplication);
}

void nsSystemFileSystemWatcher::Stop() {
  // A thread that is still armed is not killed, since that would leave its locks held for ever: it
  // is woken, and waited for.
  mThreadShouldRun = false;
  mReader->Wake();
  JoinThread();
  {
    std::lock_guard lock(mEventLock);
    mChangeBuffer = {};
    mReader->Close();
  }
  nsSystemFileSystemWatcherGeneric::Stop();
}

// ---- The background thread

nsresult nsSystemFileSystemWatcher::OnTreeReady(const nsAString& aRootPath,
                                                const std::vector<nsString>&) {
  if (mIsQuitting) return NS_ERROR_ILLEGAL_DURING_SHUTDOWN;
  if (mWatchPath.IsEmpty()) mWatchPath = aRootPath;
  {
    std::lock_guard lock(mEventLock);
    if (!mUpdateRunning && !mEventPaths.empty()) (void)PostUpdate();
  }
  // The thread of an earlier watch of this object may still be on its way out.
  if (!mThreadShouldRun) JoinThread();
  if (NS_FAILED(mReader->Open(mWatchPath))) {
    NS_WARN_TEXT("NS_ENSURE_TRUE(mRootDirHandle != INVALID_HANDLE_VALUE) failed", nullptr);
    return NS_ERROR_UNEXPECTED;
  }
  {
    std::lock_guard lock(mEventLock);
    mChangeBuffer.resize(kChangeBufferSize);
  }
  if (!mThreadArmed) {
    mThreadShouldRun = true;
    try {
      std::lock_guard lock(mThreadLock);
      mWatcherThread =
          std::thread(&BackgroundThreadProc, nsCOMPtr<nsSystemFileSystemWatcher>(this));
    } catch (const std::system_error&) {
      NS_WARN_TEXT("NS_ENSURE_TRUE(mWatcherThread != INVALID_HANDLE_VALUE) failed", nullptr);
      return NS_ERROR_OUT_OF_MEMORY;
    }
  }
  mIsWatching = true;
  NS_ENSURE_TRUE(mListener, NS_ERROR_NOT_INITIALIZED);
  nsresult rv = mListener->OnWatcherStarted();
  NS_ENSURE_SUCCESS(rv, rv);
  return NS_OK;
}

void nsSystemFileSystemWatcher::BackgroundThreadProc(nsCOMPtr<nsSystemFileSystemWatcher> aWatcher) {
  if (!aWatcher) {
    const auto log = NS_GetLogger("system.fileWatcher");
    SYSTEM_LOG_ERROR(log, "Could not get nsSystemFileSystemWatcher context in thread!");
    return;
  }
  nsPlatformDirectoryReader& reader = *aWatcher->mReader;
  while (aWatcher->mThreadShouldRun) {
    if (!aWatcher->mThreadArmed) {
      aWatcher->WatchNextChange();
      aWatcher->mThreadArmed = true;
      reader.Wake();
    }
    reader.Wait();
  }
  SYSTEM_LOG_DEBUG(aWatcher->mLog, "END PROCESS");
  {
    std::lock_guard lock(aWatcher->mEventLock);
    aWatcher->mChangeBuffer = {};
    reader.Close();
    aWatcher->mThreadArmed = false;
    reader.Wake();
  }
  // The thread's reference goes into the call, so that the watcher does not end on this thread. A
  // main thread that takes no more calls leaves no better place.
  const auto runnable = NS_NewRunnableMethodCaller<vorel::threads::eStrong>(
      aWatcher.get(), &nsSystemFileSystemWatcher::FinishThread);
  aWatcher = nullptr;
  (void)NS_DispatchToMainThread(runnable.get(), NS_DISPATCH_NORMAL);
}

nsresult nsSystemFileSystemWatcher::FinishThread() {
  // The thread may still be between handing out this call and its end, with a reference to it: once
  // it is over, this object can only end here. While a new watch runs, it has been waited for, and
  // the thread is the new one.
  if (!mThreadShouldRun) JoinThread();
  return NS_OK;
}

void nsSystemFileSystemWatcher::JoinThread() {
  std::thread thread;
  {
    std::lock_guard lock(mThreadLock);
    thread.swap(mWatcherThread);
  }
  if (!thread.joinable()) return;
  if (thread.get_id() == std::this_thread::get_id())
    thread.detach();
  else
    thread.join();
}

void nsSystemFileSystemWatcher::WatchNextChange() {
  std::lock_guard lock(mEventLock);
  if (!mReader->IsOpen()) return;
  if (NS_FAILED(mReader->Read(mChangeBuffer.data(), static_cast<uint32_t>(mChangeBuffer.size()),
                              kWatchSubtree, kNotifyFilter, this))) {
    SYSTEM_LOG_ERROR(mLog, "ERROR: Could not ReadDirectoryChangesW()");
    mReader->Close();
  }
}

void nsSystemFileSystemWatcher::OnReadCompleted(nsresult aResult, uint32_t aBytes) {
  const nsCOMPtr<nsISystemFileSystemWatcher> alive = this;
  // Both end the chain of reads, and the watch silently goes no further.
  if (NS_FAILED(aResult) || aBytes == 0) return;
  {
    std::lock_guard lock(mEventLock);
    InsertChangedNames(aBytes);
    if (!mUpdateRunning && !mEventPaths.empty()) (void)PostUpdate();
  }
  WatchNextChange();
}

void nsSystemFileSystemWatcher::InsertChangedNames(uint32_t aBytes) {
  const size_t end = std::min<size_t>(aBytes, mChangeBuffer.size());
  std::vector<char16_t> name;
  for (size_t at = 0; at + nsPlatformChangeRecord::kSize <= end;) {
    nsPlatformChangeRecord record;
    std::memcpy(&record, mChangeBuffer.data() + at, nsPlatformChangeRecord::kSize);
    if (record.mFileNameLength > end - at - nsPlatformChangeRecord::kSize) break;
    name.resize(record.mFileNameLength / sizeof(char16_t));
    std::memcpy(name.data(), mChangeBuffer.data() + at + nsPlatformChangeRecord::kSize,
                name.size() * sizeof(char16_t));
    mEventPaths.insert(std::u16string_view(name.data(), name.size()));
    if (record.mNextEntryOffset == 0) break;
    at += record.mNextEntryOffset;
  }
}

// ---- From names to a look

nsresult nsSystemFileSystemWatcher::PostUpdate() {
  SYSTEM_LOG_DEBUG(mLog, "Begin");
  NS_ENSURE_TRUE(mTimer, NS_ERROR_UNEXPECTED);
  nsresult rv = mTimer->Cancel();
  NS_ENSURE_SUCCESS(rv, rv);
  return mTimer->InitWithCallback(this, kCoalescingDelay, nsITimer::TYPE_ONE_SHOT);
}

nsresult nsSystemFileSystemWatcher::Notify(nsITimer*) {
  std::lock_guard lock(mEventLock);
  // After a stop the flag may never clear, and there is nothing left to wait for.
  if (mUpdateQueued) return mShuttingDown ? NS_OK : PostUpdate();
  mUpdateQueued = true;
  mUpdateRunning = true;
  const auto threadPool = do_GetService<nsIEventTarget>(VOREL_THREADPOOL_CONTRACTID);
  NS_ENSURE_TRUE(threadPool, NS_ERROR_FAILURE);
  const auto runnable =
      NS_NewRunnableMethodCaller<vorel::threads::eStrong>(this, &nsSystemFileSystemWatcher::Update);
  (void)threadPool->Dispatch(runnable.get(), NS_DISPATCH_NORMAL);
  return NS_OK;
}

nsresult nsSystemFileSystemWatcher::Update() {
  const nsCOMPtr<nsISystemFileSystemWatcher> alive = this;
  SYSTEM_LOG_DEBUG(mLog, "BEGIN mWatchPath = " + NS_ToUtf8(mWatchPath));
  const auto tree = Tree();
  if (!mIsWatching || mShuttingDown || !tree) {
    mUpdateRunning = false;
    return NS_OK;
  }

  // A burst of events in one directory becomes one look at it. The entry that a name stands for
  // need not exist any more.
  const char16_t separator = mPlatform->mFiles->Separator();
  std::set<nsString> directories;
  {
    std::lock_guard lock(mEventLock);
    while (!mEventPaths.empty()) {
      const auto name = mEventPaths.extract(mEventPaths.begin());
      std::u16string path(mWatchPath.view());
      (path += separator) += name.value().view();
      path.erase(path.rfind(separator) + 1);
      directories.insert(path);
    }
  }
  (void)tree->StartUpdate(true);
  std::vector<nsString> looked;
  while (!directories.empty()) {
    looked.push_back(std::move(directories.extract(directories.begin()).value()));
    // A directory comes after the one above it, which may have told that it is gone.
    if (tree->Expects(looked.back())) (void)tree->Update(looked.back());
  }
  (void)tree->StopUpdate();
  const bool isUnfinished = tree->IsUnfinished();
  mUpdateRunning = false;
  mUpdateQueued = false;

  // What came in meanwhile is taken along with the next completion, and so is what has to be looked
  // at once more. One is asked for, as nothing more need change.
  std::lock_guard lock(mEventLock);
  if (!mEventPaths.empty()) mReader->Remind(mEventPaths.begin()->view());
  const auto lookAgain = [&](const nsString& aDirectory) {
    mReader->Remind(std::u16string(aDirectory.view().substr(mWatchPath.Length() + 1)) + u'.');
  };
  if (!isUnfinished)
    mLooksAgain = 0;
  else if (++mLooksAgain <= kMostLooksAgain)
    std::ranges::for_each(looked, lookAgain);
  std::ranges::for_each(tree->LeftOut(), lookAgain);
  return NS_OK;
}

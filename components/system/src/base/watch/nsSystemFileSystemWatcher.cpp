#include "nsSystemFileSystemWatcher.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "nsDebug.h"
#include "nsIAppStartup.h"
#include "nsIEventTarget.h"
#include "nsIFile.h"
#include "nsIObserverService.h"
#include "nsIProperties.h"
#include "nsIThreadManager.h"
#include "nsLogger.h"
#include "nsServices.h"
#include "nsSystemFileSystemSnapshot.h"
#include "nsVorelMethodCaller.h"

namespace {

constexpr char kAppStartupContractID[] = "@mozilla.org/toolkit/app-startup;1";
constexpr char kQuitApplication[] = "quit-application";
constexpr char kUnwatchedTopic[] = "filesystemwatcher-unwatched";
constexpr uint32_t kChangeBufferSize = 65536;
constexpr bool kWatchSubtree = true;
constexpr uint32_t kNotifyFilter =
    nsPlatformDirectoryReader::kNotifyFileName | nsPlatformDirectoryReader::kNotifyDirName |
    nsPlatformDirectoryReader::kNotifyLastWrite | nsPlatformDirectoryReader::kNotifyCreation;
static_assert(kNotifyFilter == 0x53);
constexpr uint32_t kCoalescingDelay = 10;  // ms

// What one look leaves out the next ones tell. The bound is for volumes whose files change all the
// time, or whose identities do.
constexpr uint32_t kMostLooksAgain = 100;

nsString TextOf(const nsPlatformUnwatched& aUnwatched) {
  nsString text(aUnwatched.mPath);
  text += aUnwatched.mReason == NS_ERROR_FILE_ACCESS_DENIED
              ? u" can't be watched: permission denied"
              : u" can't be watched, nor perhaps others: the system can watch no more";
  return text;
}

}  // namespace

/// The chain of reads as a source of events: the first is issued where all others are, on the
/// thread that waits.
class nsSystemFileSystemWatcher::Reads final : public nsEventSource {
 public:
  Reads(nsSystemFileSystemWatcher& aWatcher, std::shared_ptr<nsPlatformDirectoryReader> aReader)
      : mWatcher(aWatcher), mReader(std::move(aReader)) {}

  void Wait() override {
    if (!std::exchange(mIsArmed, true)) mWatcher.WatchNextChange();
    mReader->Wait();
  }
  bool Consume() override { return mReader->Consume(); }
  void Wake() override { mReader->Wake(); }

 private:
  nsSystemFileSystemWatcher& mWatcher;  // outlives the thread
  const std::shared_ptr<nsPlatformDirectoryReader> mReader;
  bool mIsArmed = false;
};

nsSystemFileSystemWatcher::nsSystemFileSystemWatcher(nsPlatformRef aPlatform)
    : nsSystemFileSystemWatcherGeneric(std::move(aPlatform)) {}

nsSystemFileSystemWatcher::~nsSystemFileSystemWatcher() {
  SYSTEM_LOG_DEBUG(mLog, "DESTROY");
  mIsObserving = false;  // there is nothing left to be found by
  nsSystemFileSystemWatcher::Stop();
}

nsresult nsSystemFileSystemWatcher::QueryInterface(const nsIID& aIID, void** aResult) {
  return NS_QueryInterface<nsISupportsWeakReference, nsISystemFileSystemWatcher,
                           nsISystemFileSystemTreeListener, nsIObserver, nsITimerCallback>(
      this, aIID, aResult);
}

nsresult nsSystemFileSystemWatcher::Init(nsISystemFileSystemListener* aListener,
                                         const nsACString& aRootURL, bool aIsRecursive) {
  nsresult rv;
  rv = SetObserving(true);
  NS_ENSURE_SUCCESS(rv, rv);
  mTimer = do_CreateInstance<nsITimer>(NS_TIMER_CONTRACTID, &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  return nsSystemFileSystemWatcherGeneric::Init(aListener, aRootURL, aIsRecursive);
}

// The service keeps a weak reference and warns of one whose object has died: a watch that has ended
// is none of its business any more.
nsresult nsSystemFileSystemWatcher::SetObserving(bool aIsObserving) {
  if (aIsObserving == mIsObserving) return NS_OK;
  nsresult rv;
  const auto observers = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID, &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  rv = aIsObserving ? observers->AddObserver(this, kQuitApplication, true)
                    : observers->RemoveObserver(this, kQuitApplication);
  NS_ENSURE_SUCCESS(rv, rv);
  mIsObserving = aIsObserving;
  return NS_OK;
}

nsresult nsSystemFileSystemWatcher::StartWatching() {
  bool isQuitting = false;
  if (const auto startup = do_GetService<nsIAppStartup>(kAppStartupContractID))
    (void)startup->GetShuttingDown(&isQuitting);
  if (isQuitting) mIsQuitting = true;
  if (mIsQuitting) return NS_ERROR_ILLEGAL_DURING_SHUTDOWN;
  (void)SetObserving(true);  // after a stop
  if (const auto manager = do_GetService<nsIThreadManager>(NS_THREADMANAGER_CONTRACTID);
      manager && !mOwnerThread)
    (void)manager->GetCurrentThread(mOwnerThread.getter_AddRefs());
  return nsSystemFileSystemWatcherGeneric::StartWatching();
}

nsresult nsSystemFileSystemWatcher::StopWatching() {
  mShuttingDown = true;
  (void)SetObserving(false);
  if (!mIsWatching) return NS_OK;
  EndThread();
  std::string snapshot;
  if (const auto tree = Tree(); tree && !mSinceFile.IsEmpty()) {
    { nsAutoLock lastCycle(mCycleLock); }
    (void)tree->Deliver();
    snapshot = tree->Format();
  }
  const nsresult rv = nsSystemFileSystemWatcherGeneric::StopWatching();
  if (!snapshot.empty()) Replace(snapshot);  // now that all of it has been told
  return rv;
}

// ---- What is left for the next watch

nsresult nsSystemFileSystemWatcher::SetSince(const nsAString& aName) {
  nsresult rv;
  const auto directories = do_GetService<nsIProperties>(NS_DIRECTORYSERVICE_CONTRACTID, &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  nsCOMPtr<nsIFile> profile;
  if (NS_FAILED(directories->Get("ProfD", nsIFile::kIID, NS_OutVoid(profile))))
    return NS_ERROR_NOT_AVAILABLE;
  nsString path;
  rv = profile->GetPath(path);
  NS_ENSURE_SUCCESS(rv, rv);
  // A file for each root of the name.
  const std::string root = std::to_string(NS_Checksum(NS_ToUtf8(mWatchPath)));
  const char16_t separator = mPlatform->mFiles->Separator();
  mSince = aName;
  std::u16string file(path.view());
  (file += separator) += u"watch";
  ((file += separator) += NS_View(aName)) += u"-" + NS_ToUtf16(root);
  mSinceFile = std::u16string_view(file);
  return NS_OK;
}

void nsSystemFileSystemWatcher::Prepare(nsSystemFileSystemTree& aTree) {
  if (mSinceFile.IsEmpty()) return;
  aTree.CompareWith(mSinceFile, [this] {
    if (mListener)
      (void)mListener->OnWatcherError(nsISystemFileSystemListener::ERROR_FULL_LISTING, mSince);
  });
}

void nsSystemFileSystemWatcher::Keep() {
  const auto tree = Tree();
  if (!tree || mSinceFile.IsEmpty() || mShuttingDown || mUpdateRunning) return;
  const uint64_t cycles = tree->Cycles();
  (void)tree->Deliver();
  const auto threadPool = do_GetService<nsIEventTarget>(VOREL_THREADPOOL_CONTRACTID);
  const auto runnable = NS_NewRunnableMethodCaller<vorel::threads::eStrong>(
      this, &nsSystemFileSystemWatcher::KeepCycle, cycles);
  if (threadPool) (void)threadPool->Dispatch(runnable.get(), NS_DISPATCH_NORMAL);
}

nsresult nsSystemFileSystemWatcher::KeepCycle(uint64_t aCycles) {
  nsAutoLock cycle(mCycleLock);
  const auto tree = Tree();
  // What a later cycle has found may not have been told yet; the end of the watch keeps it.
  if (tree && !mShuttingDown && tree->Cycles() == aCycles) Replace(tree->Format());
  return NS_OK;
}

void nsSystemFileSystemWatcher::Replace(const std::string& aSnapshot) {
  nsAutoLock lock(mCycleLock);
  if (NS_FAILED(mPlatform->mFiles->ReplaceKept(mSinceFile, aSnapshot)))
    SYSTEM_LOG_ERROR(mLog, "What has been told of " + NS_ToUtf8(mWatchPath) +
                               " can't be written to " + NS_ToUtf8(mSinceFile) +
                               ": the next watch tells it again");
}

nsresult nsSystemFileSystemWatcher::Observe(nsISupports*, const char* aTopic, const char16_t*) {
  if (!aTopic || std::string_view(aTopic) != kQuitApplication) return NS_OK;
  mIsQuitting = true;
  if (mIsWatching) (void)StopWatching();
  // A walk that still runs is not waited for longer than it takes to notice, and its end starts
  // nothing: threads would outlive the library.
  if (const auto tree = Tree()) tree->Cancel();
  EndThread();
  return SetObserving(false);
}

void nsSystemFileSystemWatcher::Stop() {
  EndThread();
  nsSystemFileSystemWatcherGeneric::Stop();
}

// ---- The background thread

std::shared_ptr<nsPlatformDirectoryReader> nsSystemFileSystemWatcher::NewReader() {
  EndThread();
  std::shared_ptr<nsPlatformDirectoryReader> reader = mPlatform->mDirectoryChanges->NewReader();
  nsAutoLock lock(mEventLock);
  return mReader = std::move(reader);
}

std::shared_ptr<nsPlatformDirectoryReader> nsSystemFileSystemWatcher::Reader() {
  nsAutoLock lock(mEventLock);
  return mReader;
}

// A thread that is still armed is not killed, since that would leave its locks held for ever: it is
// woken, and waited for, which takes no longer than a completion.
void nsSystemFileSystemWatcher::EndThread() {
  if (mThread) {
    mThread = nullptr;
    SYSTEM_LOG_DEBUG(mLog, "END PROCESS");
  }
  if (const auto reader = Reader()) reader->Close();
  nsAutoLock lock(mEventLock);
  mChangeBuffer = {};
}

nsresult nsSystemFileSystemWatcher::OnTreeReady(const nsAString& aRootPath,
                                                const std::vector<nsString>&) {
  if (mIsQuitting) return NS_ERROR_ILLEGAL_DURING_SHUTDOWN;
  if (mWatchPath.IsEmpty()) mWatchPath = aRootPath;
  {
    nsAutoLock lock(mEventLock);
    if (!mUpdateRunning && !mEventPaths.empty()) (void)PostUpdate();
  }
  const auto reader = Reader();
  if (!reader || !reader->IsOpen()) {
    NS_WARN_TEXT("NS_ENSURE_TRUE(mRootDirHandle != INVALID_HANDLE_VALUE) failed", nullptr);
    (void)TellUnwatched();
    return NS_ERROR_UNEXPECTED;
  }
  {
    nsAutoLock lock(mEventLock);
    mChangeBuffer.resize(kChangeBufferSize);
  }
  if (!mThread && NS_FAILED(nsEventPump::Start("Watcher", std::make_shared<Reads>(*this, reader),
                                               nullptr, nullptr, &mThread))) {
    NS_WARN_TEXT("NS_ENSURE_TRUE(mWatcherThread != INVALID_HANDLE_VALUE) failed", nullptr);
    (void)TellUnwatched();
    return NS_ERROR_OUT_OF_MEMORY;
  }
  mIsWatching = true;
  NS_ENSURE_TRUE(mListener, NS_ERROR_NOT_INITIALIZED);
  nsresult rv = mListener->OnWatcherStarted();
  for (const nsPlatformUnwatched& unwatched : reader->TakeUnwatched())
    (void)TellIncomplete(TextOf(unwatched));
  NS_ENSURE_SUCCESS(rv, rv);
  return NS_OK;
}

// The listener hears nothing of it, by its contract. Who watches for nothing else has to know.
nsresult nsSystemFileSystemWatcher::TellUnwatched() {
  if (!NS_IsMainThread()) return NS_OK;
  if (const auto observers = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID))
    (void)observers->NotifyObservers(nullptr, kUnwatchedTopic, mWatchPath.get());
  return NS_OK;
}

void nsSystemFileSystemWatcher::WatchNextChange() {
  nsAutoLock lock(mEventLock);
  if (!mReader->IsOpen()) return;
  if (NS_FAILED(mReader->Read(mChangeBuffer.data(), static_cast<uint32_t>(mChangeBuffer.size()),
                              kWatchSubtree, kNotifyFilter, this))) {
    SYSTEM_LOG_ERROR(mLog, "ERROR: Could not ReadDirectoryChangesW()");
    mReader->Close();
    PostToOwner(&nsSystemFileSystemWatcher::TellUnwatched);
  }
}

template <class... P>
void nsSystemFileSystemWatcher::PostToOwner(nsresult (nsSystemFileSystemWatcher::*aMethod)(P...),
                                            std::type_identity_t<P>... aArguments) {
  if (!mOwnerThread) return;
  const auto runnable =
      NS_NewRunnableMethodCaller<vorel::threads::eWeak>(this, aMethod, aArguments...);
  (void)mOwnerThread->Dispatch(runnable.get(), NS_DISPATCH_NORMAL);
}

void nsSystemFileSystemWatcher::OnReadCompleted(nsresult aResult, uint32_t aBytes) {
  // Both end the chain of reads, and for the listener the watch silently goes no further, unless
  // the root has gone.
  if (NS_FAILED(aResult) || aBytes == 0) {
    PostToOwner(aResult == NS_ERROR_FILE_NOT_FOUND ? &nsSystemFileSystemWatcher::TellRootGone
                                                   : &nsSystemFileSystemWatcher::TellUnwatched);
    return;
  }
  for (const nsPlatformUnwatched& unwatched : Reader()->TakeUnwatched())
    PostToOwner(&nsSystemFileSystemWatcher::TellIncomplete, TextOf(unwatched));
  {
    nsAutoLock lock(mEventLock);
    InsertChangedNames(aBytes);
    if (!mUpdateRunning && !mEventPaths.empty()) (void)PostUpdate();
  }
  WatchNextChange();
}

nsresult nsSystemFileSystemWatcher::TellRootGone() {
  const nsCOMPtr<nsISystemFileSystemListener> listener = mListener;
  if (mIsWatching && listener)
    (void)listener->OnWatcherError(nsISystemFileSystemListener::ERROR_ROOT_GONE, mWatchPath);
  return NS_OK;
}

nsresult nsSystemFileSystemWatcher::TellIncomplete(const nsAString& aText) {
  const nsCOMPtr<nsISystemFileSystemListener> listener = mListener;
  if (!mIsWatching || !listener) return NS_OK;
  {
    nsAutoLock lock(mEventLock);
    mToldIncomplete.insert(aText);
  }
  (void)listener->OnWatcherError(nsISystemFileSystemListener::ERROR_INCOMPLETE, aText);
  return NS_OK;
}

std::vector<nsString> nsSystemFileSystemWatcher::StillIncomplete() {
  const auto reader = Reader();
  if (!reader) return {};
  std::vector<nsString> still;
  for (const nsPlatformUnwatched& unwatched : reader->StillUnwatched())
    still.push_back(TextOf(unwatched));
  // What is on its way to all is not told twice.
  nsAutoLock lock(mEventLock);
  std::erase_if(still, [this](const nsString& aText)
                           NS_REQUIRES(mEventLock) { return !mToldIncomplete.contains(aText); });
  return still;
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
  nsAutoLock lock(mEventLock);
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
  nsAutoLock cycle(mCycleLock);
  if (!mIsWatching || mShuttingDown || !tree) {
    mUpdateRunning = false;
    return NS_OK;
  }

  // A burst of events in one directory becomes one look at it. The entry that a name stands for
  // need not exist any more.
  const char16_t separator = mPlatform->mFiles->Separator();
  std::set<nsString> directories;
  {
    nsAutoLock lock(mEventLock);
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
  nsAutoLock lock(mEventLock);
  if (!mEventPaths.empty()) mReader->Remind(mEventPaths.begin()->view());
  const auto lookAgain = [&](const nsString& aDirectory) NS_REQUIRES(mEventLock) {
    mReader->Remind(std::u16string(aDirectory.view().substr(mWatchPath.Length() + 1)) + u'.');
  };
  if (!isUnfinished && tree->LeftOut().empty()) {
    mLooksAgain = 0;
  } else if (++mLooksAgain <= kMostLooksAgain) {
    if (isUnfinished) std::ranges::for_each(looked, lookAgain);
    std::ranges::for_each(tree->LeftOut(), lookAgain);
  }
  return NS_OK;
}

#include "nsSystemFileSystemWatcherService.h"

#include <algorithm>
#include <utility>

#include "nsDebug.h"
#include "nsIThreadManager.h"
#include "nsServices.h"
#include "nsSystemFileSystemWatcher.h"
#include "nsVorelMethodCaller.h"

namespace {

nsCOMPtr<nsIThread> CurrentThread() {
  nsCOMPtr<nsIThread> thread;
  if (const auto manager = do_GetService<nsIThreadManager>(NS_THREADMANAGER_CONTRACTID))
    (void)manager->GetCurrentThread(thread.getter_AddRefs());
  return thread;
}

/// On the client's own thread, and back only when it has returned. Nobody looks at its result.
template <class Listener, class... P>
void CallClient(Listener* aListener, nsIThread* aThread, nsresult (Listener::*aMethod)(P...),
                std::type_identity_t<P>... aArguments) {
  bool isCurrent = true;
  if (aThread) (void)aThread->IsOnCurrentThread(&isCurrent);
  if (isCurrent) {
    (void)(aListener->*aMethod)(aArguments...);
    return;
  }
  const auto runnable =
      NS_NewRunnableMethodCaller<vorel::threads::eStrong>(aListener, aMethod, aArguments...);
  (void)aThread->Dispatch(runnable.get(), NS_DISPATCH_SYNC);
}

/// The roots whose start or end is being told. Who tells waits for its clients, with its own lock
/// held: two that wait for each other's would do so for ever.
nsMutex gTellingLock;
std::vector<nsSystemFileSystemWatcherServiceListener*> gTelling NS_GUARDED_BY(gTellingLock);

}  // namespace

// ---- The fan-out

bool nsSystemFileSystemWatcherServiceListener::IsTelling() {
  nsAutoLock lock(mTellingLock);
  bool isTold = false;
  if (mTold) (void)mTold->IsOnCurrentThread(&isTold);
  return isTold || mTelling == std::this_thread::get_id();
}

void nsSystemFileSystemWatcherServiceListener::TellAll(
    nsresult (nsISystemFileSystemListener::*aMethod)()) {
  const auto set = [this](std::thread::id aTelling, nsIThread* aTold) {
    nsCOMPtr<nsIThread> told = aTold;  // the old one goes after the lock
    nsAutoLock lock(mTellingLock);
    mTelling = aTelling;
    mTold.swap(told);
  };
  {
    nsAutoLock lock(gTellingLock);
    gTelling.push_back(this);
  }
  for (const Client& client : mClients) {
    set(std::this_thread::get_id(), client.mThread.get());
    CallClient(client.mListener.get(), client.mThread.get(), aMethod);
  }
  set({}, nullptr);
  nsAutoLock lock(gTellingLock);
  gTelling.erase(std::ranges::find(gTelling, this));
}

// Not checked: the check does not follow a lock that is held on some ways out.
bool nsSystemFileSystemWatcherServiceListener::Lock() NS_NOT_CHECKED {
  if (IsTelling()) return false;
  bool mayWait = true;
  {
    nsAutoLock lock(gTellingLock);
    mayWait = std::ranges::none_of(gTelling, [](auto* aOther) { return aOther->IsTelling(); });
  }
  if (!mayWait) return mLock.TryLock();
  mLock.Lock();
  return true;
}

nsresult nsSystemFileSystemWatcherServiceListener::AddListener(
    nsISystemFileSystemListener* aListener, const std::function<std::vector<nsString>()>& aLater) {
  if (!Lock()) return NS_ERROR_IN_PROGRESS;
  nsAutoLock lock(mLock, std::adopt_lock);
  if (mStarted) {
    lock.Unlock();
    (void)aListener->OnWatcherStarted();
    lock.Lock();
  }
  mClients.push_back({aListener, CurrentThread()});
  if (!mStarted) return NS_OK;
  lock.Unlock();
  for (const nsString& text : aLater()) (void)aListener->OnWatcherError(ERROR_INCOMPLETE, text);
  return NS_OK;
}

nsresult nsSystemFileSystemWatcherServiceListener::RemoveListener(
    nsISystemFileSystemListener* aListener) {
  if (!Lock()) return NS_ERROR_IN_PROGRESS;
  nsAutoLock lock(mLock, std::adopt_lock);
  const auto found = std::ranges::find_if(
      mClients, [&](const Client& aClient) { return aClient.mListener == aListener; });
  if (found == mClients.end()) return NS_OK;
  const Client client = *found;
  mClients.erase(found);
  if (!mStarted) return NS_OK;
  lock.Unlock();
  CallClient(client.mListener.get(), client.mThread.get(),
             &nsISystemFileSystemListener::OnWatcherStopped);
  return NS_OK;
}

bool nsSystemFileSystemWatcherServiceListener::HasListener(nsISystemFileSystemListener* aListener) {
  if (IsTelling()) return true;  // and can't be left just now
  nsAutoLock lock(mLock);
  return std::ranges::any_of(mClients,
                             [&](const Client& aClient) { return aClient.mListener == aListener; });
}

nsresult nsSystemFileSystemWatcherServiceListener::OnWatcherStarted() {
  nsAutoLock lock(mLock);
  if (mStarted) return NS_OK;
  TellAll(&nsISystemFileSystemListener::OnWatcherStarted);
  nsAutoLock telling(mTellingLock);
  mStarted = !std::exchange(mEndsAfterwards, false);
  telling.Unlock();
  if (!mStarted) TellAll(&nsISystemFileSystemListener::OnWatcherStopped);
  return NS_OK;
}

nsresult nsSystemFileSystemWatcherServiceListener::OnWatcherStopped() {
  if (IsTelling()) {  // a client has ended the application from there
    nsAutoLock lock(mTellingLock);
    mEndsAfterwards = true;
    return NS_OK;
  }
  nsAutoLock lock(mLock);
  if (!mStarted) return NS_OK;
  TellAll(&nsISystemFileSystemListener::OnWatcherStopped);
  mStarted = false;
  return NS_OK;
}

std::vector<nsSystemFileSystemWatcherServiceListener::Client>
nsSystemFileSystemWatcherServiceListener::Snapshot() {
  nsAutoLock lock(mLock);
  return {mClients.rbegin(), mClients.rend()};  // the last one registered is called first
}

template <class Method, class... A>
void nsSystemFileSystemWatcherServiceListener::CallAll(Method aMethod, const A&... aArguments) {
  for (const Client& client : Snapshot())
    CallClient(client.mListener.get(), client.mThread.get(), aMethod, aArguments...);
}

nsresult nsSystemFileSystemWatcherServiceListener::OnWatcherError(uint32_t aCode,
                                                                  const nsAString& aText) {
  if (aCode == ERROR_ROOT_MISSING || aCode == ERROR_ROOT_GONE) mHasEnded = true;
  CallAll(&nsISystemFileSystemListener::OnWatcherError, aCode, aText);
  return NS_OK;
}

nsresult nsSystemFileSystemWatcherServiceListener::OnFileSystemChanged(const nsAString& aPath) {
  CallAll(&nsISystemFileSystemListener::OnFileSystemChanged, aPath);
  return NS_OK;
}

nsresult nsSystemFileSystemWatcherServiceListener::OnFileSystemRemoved(const nsAString& aPath) {
  CallAll(&nsISystemFileSystemListener::OnFileSystemRemoved, aPath);
  return NS_OK;
}

nsresult nsSystemFileSystemWatcherServiceListener::OnFileSystemAdded(const nsAString& aPath) {
  CallAll(&nsISystemFileSystemListener::OnFileSystemAdded, aPath);
  return NS_OK;
}

nsresult nsSystemFileSystemWatcherServiceListener::OnFileSystemMoved(const nsAString& aOldPath,
                                                                     const nsAString& aNewPath) {
  struct MoveClient {
    nsCOMPtr<nsISystemFileSystemListener2> mListener;
    nsCOMPtr<nsIThread> mThread;
  };
  std::vector<MoveClient> movers;
  std::vector<Client> plain;
  {
    nsAutoLock lock(mLock);
    for (auto client = mClients.rbegin(); client != mClients.rend(); ++client) {
      if (auto mover = do_QueryInterface<nsISystemFileSystemListener2>(client->mListener))
        movers.push_back({std::move(mover), client->mThread});
      else
        plain.push_back(*client);
    }
  }
  for (const Client& client : plain) {
    CallClient(client.mListener.get(), client.mThread.get(),
               &nsISystemFileSystemListener::OnFileSystemRemoved, aOldPath);
    CallClient(client.mListener.get(), client.mThread.get(),
               &nsISystemFileSystemListener::OnFileSystemAdded, aNewPath);
  }
  for (const MoveClient& client : movers)
    CallClient(client.mListener.get(), client.mThread.get(),
               &nsISystemFileSystemListener2::OnFileSystemMoved, aOldPath, aNewPath);
  return NS_OK;
}

// ---- The table

nsSystemFileSystemWatcherService::Entry nsSystemFileSystemWatcherService::Leave(
    const nsString& aPath, const nsSystemFileSystemWatcherServiceListener* aListener) {
  nsAutoLock lock(mLock);
  if (const auto found = mTable.find(aPath);
      found != mTable.end() && found->second.mListener == aListener) {
    if (--found->second.mClientCount > 0) return {};
    Entry entry = std::move(found->second);
    mTable.erase(found);
    return entry;
  }
  const auto ended = std::ranges::find_if(
      mEnded, [&](const auto& aEnded) { return aEnded.second.mListener == aListener; });
  if (ended == mEnded.end() || --ended->second.mClientCount > 0) return {};
  Entry entry = std::move(ended->second);
  mEnded.erase(ended);
  return entry;
}

nsresult nsSystemFileSystemWatcherService::StartWatching(const nsACString& aRootURL,
                                                         nsISystemFileSystemListener* aListener) {
  NS_ENSURE_TRUE(aListener, NS_ERROR_NULL_POINTER);
  nsString path;
  nsresult rv = NS_GetPathFromFileURL(aRootURL, path);
  if (NS_FAILED(rv)) return rv;

  nsCOMPtr<nsSystemFileSystemWatcherServiceListener> listener;
  nsCOMPtr<nsISystemFileSystemWatcher> watcher;
  {
    nsAutoLock lock(mLock);
    auto found = mTable.find(path);
    if (found != mTable.end() && found->second.mListener->HasEnded()) {
      mEnded.emplace_back(path, std::move(found->second));
      mTable.erase(found);
      found = mTable.end();
    }
    if (found == mTable.end()) {
      Entry entry;
      entry.mListener = MakeRefCounted<nsSystemFileSystemWatcherServiceListener>();
      entry.mWatcher = do_CreateInstance<nsISystemFileSystemWatcher>(
          nsSystemFileSystemWatcher::kModuleClass.mContractID, &rv);
      NS_ENSURE_SUCCESS(rv, rv);
      // A start that fails goes unnoticed: the client hears OnWatcherError or nothing.
      (void)entry.mWatcher->Init(entry.mListener.get(), aRootURL, true);
      (void)entry.mWatcher->StartWatching();
      found = mTable.emplace(path, std::move(entry)).first;
    }
    ++found->second.mClientCount;
    listener = found->second.mListener;
    watcher = found->second.mWatcher;
  }
  // The watcher has no interface of its own for it: it and this class are of one library.
  rv = listener->AddListener(aListener, [&watcher] {
    return static_cast<nsSystemFileSystemWatcher*>(watcher.get())->StillIncomplete();
  });
  if (NS_FAILED(rv))
    if (const Entry entry = Leave(path, listener.get()); entry.mWatcher)
      (void)entry.mWatcher->StopWatching();
  return rv;
}

nsresult nsSystemFileSystemWatcherService::StopWatching(const nsACString& aRootURL,
                                                        nsISystemFileSystemListener* aListener) {
  nsString path;
  nsresult rv = NS_GetPathFromFileURL(aRootURL, path);
  if (NS_FAILED(rv)) return rv;

  std::vector<nsCOMPtr<nsSystemFileSystemWatcherServiceListener>> ofThatRoot;
  {
    nsAutoLock lock(mLock);
    for (const auto& [endedPath, entry] : mEnded)
      if (endedPath == path) ofThatRoot.push_back(entry.mListener);
    if (const auto found = mTable.find(path); found != mTable.end())
      ofThatRoot.push_back(found->second.mListener);
  }
  if (ofThatRoot.empty()) return NS_OK;
  auto known = std::ranges::find_if(ofThatRoot,
                                    [&](const auto& aOne) { return aOne->HasListener(aListener); });
  if (known == ofThatRoot.end()) --known;
  const auto listener = *known;
  if (rv = listener->RemoveListener(aListener); NS_FAILED(rv)) return rv;
  // The end of a watcher waits for its thread: without the lock.
  if (const Entry entry = Leave(path, listener.get()); entry.mWatcher)
    (void)entry.mWatcher->StopWatching();
  return NS_OK;
}

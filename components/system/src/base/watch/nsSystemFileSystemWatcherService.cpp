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

}  // namespace

// ---- The fan-out

bool nsSystemFileSystemWatcherServiceListener::IsTelling() {
  std::lock_guard lock(mTellingLock);
  bool isTold = false;
  if (mTold) (void)mTold->IsOnCurrentThread(&isTold);
  return isTold || mTelling == std::this_thread::get_id();
}

void nsSystemFileSystemWatcherServiceListener::TellAll(
    nsresult (nsISystemFileSystemListener::*aMethod)()) {
  const auto set = [this](std::thread::id aTelling, nsIThread* aTold) {
    nsCOMPtr<nsIThread> told = aTold;  // the old one goes after the lock
    std::lock_guard lock(mTellingLock);
    mTelling = aTelling;
    mTold.swap(told);
  };
  for (const Client& client : mClients) {
    set(std::this_thread::get_id(), client.mThread.get());
    CallClient(client.mListener.get(), client.mThread.get(), aMethod);
  }
  set({}, nullptr);
}

nsresult nsSystemFileSystemWatcherServiceListener::AddListener(
    nsISystemFileSystemListener* aListener) {
  if (IsTelling()) return NS_ERROR_IN_PROGRESS;
  std::unique_lock lock(mLock);
  if (mStarted) {
    lock.unlock();
    (void)aListener->OnWatcherStarted();
    lock.lock();
  }
  mClients.push_back({aListener, CurrentThread()});
  return NS_OK;
}

nsresult nsSystemFileSystemWatcherServiceListener::RemoveListener(
    nsISystemFileSystemListener* aListener) {
  if (IsTelling()) return NS_ERROR_IN_PROGRESS;
  std::unique_lock lock(mLock);
  const auto found = std::ranges::find_if(
      mClients, [&](const Client& aClient) { return aClient.mListener == aListener; });
  if (found == mClients.end()) return NS_OK;
  const Client client = *found;
  mClients.erase(found);
  if (!mStarted) return NS_OK;
  lock.unlock();
  CallClient(client.mListener.get(), client.mThread.get(),
             &nsISystemFileSystemListener::OnWatcherStopped);
  return NS_OK;
}

bool nsSystemFileSystemWatcherServiceListener::HasListener(nsISystemFileSystemListener* aListener) {
  std::lock_guard lock(mLock);
  return std::ranges::any_of(mClients,
                             [&](const Client& aClient) { return aClient.mListener == aListener; });
}

nsresult nsSystemFileSystemWatcherServiceListener::OnWatcherStarted() {
  std::lock_guard lock(mLock);
  if (mStarted) return NS_OK;
  TellAll(&nsISystemFileSystemListener::OnWatcherStarted);
  std::unique_lock telling(mTellingLock);
  mStarted = !std::exchange(mEndsAfterwards, false);
  telling.unlock();
  if (!mStarted) TellAll(&nsISystemFileSystemListener::OnWatcherStopped);
  return NS_OK;
}

nsresult nsSystemFileSystemWatcherServiceListener::OnWatcherStopped() {
  if (IsTelling()) {  // a client has ended the application from there
    std::lock_guard lock(mTellingLock);
    mEndsAfterwards = true;
    return NS_OK;
  }
  std::lock_guard lock(mLock);
  if (!mStarted) return NS_OK;
  TellAll(&nsISystemFileSystemListener::OnWatcherStopped);
  mStarted = false;
  return NS_OK;
}

std::vector<nsSystemFileSystemWatcherServiceListener::Client>
nsSystemFileSystemWatcherServiceListener::Snapshot() {
  std::lock_guard lock(mLock);
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
    std::lock_guard lock(mLock);
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

nsresult nsSystemFileSystemWatcherService::StartWatching(const nsACString& aRootURL,
                                                         nsISystemFileSystemListener* aListener) {
  NS_ENSURE_TRUE(aListener, NS_ERROR_NULL_POINTER);
  nsString path;
  nsresult rv = NS_GetPathFromFileURL(aRootURL, path);
  if (NS_FAILED(rv)) return rv;

  std::lock_guard lock(mLock);
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
  // The client may be called, and end watches on this root.
  const auto listener = found->second.mListener;
  ++found->second.mClientCount;
  rv = listener->AddListener(aListener);
  if (NS_FAILED(rv) && --mTable.at(path).mClientCount == 0) mTable.erase(path);
  return rv;
}

nsresult nsSystemFileSystemWatcherService::StopWatching(const nsACString& aRootURL,
                                                        nsISystemFileSystemListener* aListener) {
  nsString path;
  nsresult rv = NS_GetPathFromFileURL(aRootURL, path);
  if (NS_FAILED(rv)) return rv;

  Entry ended;  // let go of after the lock: the end of a watcher waits for its thread
  std::lock_guard lock(mLock);
  const auto findEnded = [&] {
    return std::ranges::find_if(mEnded, [&](const auto& aEnded) {
      return aEnded.first == path && aEnded.second.mListener->HasListener(aListener);
    });
  };
  if (const auto old = findEnded(); old != mEnded.end()) {
    const auto client = old->second.mListener;
    if (rv = client->RemoveListener(aListener); NS_FAILED(rv)) return rv;
    // It may have been called, as below.
    const auto left = std::ranges::find_if(
        mEnded, [&](const auto& aEnded) { return aEnded.second.mListener == client; });
    if (left == mEnded.end() || --left->second.mClientCount > 0) return NS_OK;
    ended = std::move(left->second);
    mEnded.erase(left);
    (void)ended.mWatcher->StopWatching();
    return NS_OK;
  }
  auto found = mTable.find(path);
  if (found == mTable.end()) return NS_OK;
  const auto listener = found->second.mListener;
  if (rv = listener->RemoveListener(aListener); NS_FAILED(rv)) return rv;
  // The client may have been called, and have stopped or started something of its own.
  found = mTable.find(path);
  if (found == mTable.end() || --found->second.mClientCount > 0) return NS_OK;
  ended = std::move(found->second);
  mTable.erase(found);
  (void)ended.mWatcher->StopWatching();
  return NS_OK;
}

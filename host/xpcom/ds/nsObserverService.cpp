#include "nsObserverService.h"

#include "nsIObserver.h"
#include "nsISupportsWeakReference.h"

nsresult nsObserverRef::Make(nsIObserver* aObserver, bool aWeak, nsObserverRef* aRef) {
  if (!aObserver) return NS_ERROR_NULL_POINTER;
  nsObserverRef ref;
  if (aWeak) {
    const auto source = do_QueryInterface<nsISupportsWeakReference>(aObserver);
    if (!source) return NS_ERROR_NO_INTERFACE;
    if (const nsresult rv = source->GetWeakReference(ref.mWeak.getter_AddRefs()); NS_FAILED(rv))
      return rv;
  } else {
    ref.mStrong = aObserver;
  }
  *aRef = std::move(ref);
  return NS_OK;
}

nsCOMPtr<nsIObserver> nsObserverRef::Get() const {
  if (!mWeak) return mStrong;
  nsCOMPtr<nsIObserver> alive;
  (void)mWeak->QueryReferent(nsIObserver::kIID, NS_OutVoid(alive));
  return alive;
}

nsresult nsObserverService::AddObserver(nsIObserver* aObserver, const char* aTopic,
                                        bool aOwnsWeak) {
  if (!aTopic) return NS_ERROR_NULL_POINTER;
  nsObserverRef ref;
  if (const nsresult rv = nsObserverRef::Make(aObserver, aOwnsWeak, &ref); NS_FAILED(rv)) return rv;
  nsAutoLock lock(mMutex);
  if (mShutdown) return NS_ERROR_ILLEGAL_DURING_SHUTDOWN;
  mTopics[aTopic].push_back(std::move(ref));
  return NS_OK;
}

// Observers are asked for, and dropped, outside the lock: both may run their code, and that may
// call back.
std::vector<nsObserverRef> nsObserverService::Refs(std::string_view aTopic) {
  nsAutoLock lock(mMutex);
  const auto topic = mTopics.find(aTopic);
  return topic == mTopics.end() ? std::vector<nsObserverRef>() : topic->second;
}

bool nsObserverService::Remove(std::string_view aTopic, const nsObserverRef& aRef) {
  nsAutoLock lock(mMutex);
  const auto topic = mTopics.find(aTopic);
  if (topic == mTopics.end()) return false;
  const auto found = std::find(topic->second.begin(), topic->second.end(), aRef);
  if (found == topic->second.end()) return false;
  topic->second.erase(found);
  if (topic->second.empty()) mTopics.erase(topic);
  return true;
}

nsresult nsObserverService::RemoveObserver(nsIObserver* aObserver, const char* aTopic) {
  if (!aObserver || !aTopic) return NS_ERROR_NULL_POINTER;
  for (const nsObserverRef& ref : Refs(aTopic)) {
    const auto observer = ref.Get();
    if (observer && NS_SameObject(observer.get(), aObserver))
      return Remove(aTopic, ref) ? NS_OK : NS_ERROR_FAILURE;
  }
  return NS_ERROR_FAILURE;
}

nsCOMArray<nsIObserver> nsObserverService::Observers(std::string_view aTopic) {
  nsCOMArray<nsIObserver> observers;
  std::vector<nsObserverRef> dead;
  for (nsObserverRef& ref : Refs(aTopic)) {
    if (auto observer = ref.Get())
      observers.push_back(std::move(observer));
    else
      dead.push_back(std::move(ref));
  }
  if (dead.empty()) return observers;
  // Both lists are in one order, so that one pass is enough. What it misses because the list has
  // changed meanwhile, the next one finds.
  nsAutoLock lock(mMutex);
  const auto topic = mTopics.find(aTopic);
  if (topic == mTopics.end()) return observers;
  auto next = dead.begin();
  std::erase_if(topic->second, [&](const nsObserverRef& aRef) {
    const bool isDead = next != dead.end() && aRef == *next;
    if (isDead) ++next;
    return isDead;
  });
  if (topic->second.empty()) mTopics.erase(topic);
  return observers;
}

nsresult nsObserverService::NotifyObservers(nsISupports* aSubject, const char* aTopic,
                                            const char16_t* aData) {
  if (!aTopic) return NS_ERROR_NULL_POINTER;
  if (mShutdown) return NS_ERROR_ILLEGAL_DURING_SHUTDOWN;
  const auto observers = Observers(aTopic);
  for (auto observer = observers.rbegin(); observer != observers.rend(); ++observer)
    (void)(*observer)->Observe(aSubject, aTopic, aData);
  return NS_OK;
}

nsresult nsObserverService::EnumerateObservers(const char* aTopic, nsISimpleEnumerator** aResult) {
  if (!aTopic || !aResult) return NS_ERROR_NULL_POINTER;
  if (mShutdown) return NS_ERROR_ILLEGAL_DURING_SHUTDOWN;
  return NS_NewArrayEnumerator(aResult, Observers(aTopic));
}

void nsObserverService::Shutdown() {
  std::map<std::string, std::vector<nsObserverRef>, std::less<>> dropped;
  nsAutoLock lock(mMutex);
  mShutdown = true;
  dropped.swap(mTopics);
}

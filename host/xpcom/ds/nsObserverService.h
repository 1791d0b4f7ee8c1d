// The observer service.
#pragma once

#include <map>
#include <string>

#include "nsCOMArray.h"
#include "nsIObserver.h"
#include "nsIObserverService.h"
#include "nsIWeakReference.h"
#include "nsImplements.h"
#include "nsLock.h"

inline constexpr nsCID NS_OBSERVERSERVICE_CID = "d07f5195-e3d1-11d2-8acd-00105a1b8860"_iid;

/// An observer as it was registered.
class nsObserverRef {
 public:
  /// NS_ERROR_NO_INTERFACE for a weak registration of an observer that can't be weakly referenced.
  static nsresult Make(nsIObserver* aObserver, bool aWeak, nsObserverRef* aRef);
  /// Null when a weakly held one has died.
  nsCOMPtr<nsIObserver> Get() const;
  /// The same registration, or one just like it.
  friend bool operator==(const nsObserverRef&, const nsObserverRef&) = default;

 private:
  nsCOMPtr<nsIObserver> mStrong;
  nsCOMPtr<nsIWeakReference> mWeak;
};

/// "@mozilla.org/observer-service;1". Any thread; observers are called on the thread that notifies.
/// A notification runs over the observers as they were at its start, newest first, and what they
/// answer is ignored.
class nsObserverService final : public nsImplements<nsObserverService, nsIObserverService> {
 public:
  /// NS_ERROR_NO_INTERFACE as above; NS_ERROR_ILLEGAL_DURING_SHUTDOWN, as all, once the host has
  /// shut it.
  nsresult AddObserver(nsIObserver* aObserver, const char* aTopic, bool aOwnsWeak) override;
  /// NS_ERROR_FAILURE when it is not registered for the topic.
  nsresult RemoveObserver(nsIObserver* aObserver, const char* aTopic) override;
  nsresult NotifyObservers(nsISupports* aSubject, const char* aTopic,
                           const char16_t* aData) override;
  /// In the order of registration.
  nsresult EnumerateObservers(const char* aTopic, nsISimpleEnumerator** aResult) override;

  /// The observers of a topic that live, in the order of registration.
  nsCOMArray<nsIObserver> Observers(std::string_view aTopic);
  /// Drops all observers and refuses everything from now on.
  void Shutdown();

 private:
  ~nsObserverService() override = default;

  std::vector<nsObserverRef> Refs(std::string_view aTopic);
  bool Remove(std::string_view aTopic, const nsObserverRef& aRef);

  std::atomic<bool> mShutdown{false};
  nsMutex mMutex;  // guards mTopics
  std::map<std::string, std::vector<nsObserverRef>, std::less<>> mTopics NS_GUARDED_BY(mMutex);
};

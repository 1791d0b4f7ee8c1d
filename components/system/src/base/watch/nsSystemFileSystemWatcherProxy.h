// The watcher that script constructs.
#pragma once

#include "nsIFileSystemWatcher.h"
#include "nsIFileSystemWatcherOptions.h"
#include "nsIJSNativeInitializer.h"
#include "nsILoadGroup.h"
#include "nsILog4.h"
#include "nsIRequest.h"
#include "nsISystemFileSystemListener.h"
#include "nsModuleClass.h"
#include "nsString.h"
#include "nsSystemFileSystemWatcherService.h"
#include "nsThreadSafeWeakReference.h"

/// "@vorel/system/filesystemwatcher;1". Watches nothing itself: works out the root, enters itself
/// in the document's load group, and asks the shared service. Main thread only.
class nsSystemFileSystemWatcherProxy final : public nsThreadSafeSupportsWeakReference,
                                             public nsIFileSystemWatcher,
                                             public nsIFileSystemWatcherOptions,
                                             public nsIJSNativeInitializer {
 public:
  /// Answered with the object itself. It is also the identifier of weak-reference support, whose
  /// implementation is the first base, so that both are one address.
  static constexpr nsIID kPrivateIID = nsISupportsWeakReference::kIID;
  static constexpr nsModuleClass kModuleClass{.mRow = 7,
                                              .mCID = "98125353-15e3-49db-a7ec-84308fe2be39"_iid,
                                              .mContractID = "@vorel/system/filesystemwatcher;1",
                                              .mDOMRow = 3};
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfo<"FileSystemWatcher", nsIFileSystemWatcher>(kModuleClass.mCID);

  nsSystemFileSystemWatcherProxy();

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

  nsresult SetOptions(const nsFileSystemWatcherOptions& aOptions) override;

  nsresult Initialize(nsISupports* aOwner, JSContext* cx, JSObject* aObject, uint32_t aArgc,
                      jsval* aArgv) override;

  /// The document is going: leaves its load group and stops.
  void EndWithDocument();

 private:
  ~nsSystemFileSystemWatcherProxy() override;

  static nsCOMPtr<nsSystemFileSystemWatcherService> Service();
  /// NS_ERROR_IN_PROGRESS, and tells script why.
  nsresult RefuseWhileTold();
  /// Ends the watch when nothing is being told any more; needs no proxy.
  static void StopLater(const nsCString& aRootURL, nsISystemFileSystemListener* aListener);
  /// What the options ask for stands between the watch and the listener.
  nsresult StartClient();

  const nsCOMPtr<nsILog4Logger> mLog;
  nsCOMPtr<nsILoadGroup> mLoadGroup;
  nsCOMPtr<nsIRequest> mRequest;
  nsCOMPtr<nsISystemFileSystemListener> mListener;
  nsCString mRootURL;
  nsFileSystemWatcherOptions mOptions;
  nsCOMPtr<nsISystemFileSystemListener> mClient;  // what the watch calls while it is one
  nsCOMPtr<nsISystemFileSystemWatcher> mOwn;      // with "since": shared with nobody
  bool mIsWatching = false;
  // A watch that stands already is told of inside the start: nothing is to be undone yet.
  bool mIsStarting = false;
  // The service calls the listener, and a script may stop from there: a second time would count
  // against another client.
  bool mIsStopping = false;
};

#include "nsSystemFileSystemWatcherGeneric.h"

#include <algorithm>

#include "nsAscii.h"
#include "nsDebug.h"
#include "nsIFile.h"
#include "nsIFileProtocolHandler.h"
#include "nsIIOService.h"
#include "nsISystemFileSystemListener2.h"
#include "nsLogger.h"
#include "nsServices.h"

bool NS_HasOtherHost(std::string_view aURL) {
  constexpr std::string_view kScheme = "file:", kLocal = "localhost";
  const auto startsWith = [](std::string_view aText, std::string_view aStart) {
    return NS_ToLowerAscii(aText.substr(0, aStart.size())) == aStart;
  };
  if (startsWith(aURL, kScheme)) aURL.remove_prefix(kScheme.size());
  if (!aURL.starts_with("//")) return false;
  const std::string_view host = aURL.substr(2, aURL.find_first_of("/\\?#", 2) - 2);
  return !host.empty() && !(host.size() == kLocal.size() && startsWith(host, kLocal));
}

nsresult NS_GetPathFromFileURL(const nsACString& aURL, nsAString& aPath) {
  if (NS_HasOtherHost(NS_View(aURL))) {
    NS_WARN_TEXT("a URL with a host can't be watched", nullptr);
    return NS_ERROR_MALFORMED_URI;
  }
  nsresult rv;
  const auto ioService = do_GetService<nsIIOService>(NS_IOSERVICE_CONTRACTID, &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  nsCOMPtr<nsIProtocolHandler> handler;
  rv = ioService->GetProtocolHandler("file", handler.getter_AddRefs());
  NS_ENSURE_SUCCESS(rv, rv);
  const auto fileHandler = do_QueryInterface<nsIFileProtocolHandler>(handler, &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  nsCOMPtr<nsIFile> file;
  rv = fileHandler->GetFileFromURLSpec(aURL, file.getter_AddRefs());
  NS_ENSURE_SUCCESS(rv, rv);
  rv = file->GetPath(aPath);
  NS_ENSURE_SUCCESS(rv, rv);
  return NS_OK;
}

nsSystemFileSystemWatcherGeneric::nsSystemFileSystemWatcherGeneric(nsPlatformRef aPlatform)
    : mPlatform(std::move(aPlatform)), mLog(NS_GetLogger("system.fileWatcher")) {
  SYSTEM_LOG_DEBUG(mLog, "constructor");
}

nsSystemFileSystemWatcherGeneric::~nsSystemFileSystemWatcherGeneric() {
  SYSTEM_LOG_DEBUG(mLog, "destructor");
  if (mListener) nsSystemFileSystemWatcherGeneric::Stop();
}

nsresult nsSystemFileSystemWatcherGeneric::QueryInterface(const nsIID& aIID, void** aResult) {
  return NS_QueryInterface<nsISupportsWeakReference, nsISystemFileSystemWatcher,
                           nsISystemFileSystemTreeListener>(this, aIID, aResult);
}

nsresult nsSystemFileSystemWatcherGeneric::Init(nsISystemFileSystemListener* aListener,
                                                const nsACString& aRootURL, bool) {
  SYSTEM_LOG_DEBUG(mLog, "Init : " + std::string(NS_View(aRootURL)));
  NS_ENSURE_TRUE(aListener, NS_ERROR_NULL_POINTER);
  mListener = aListener;
  if (nsresult rv = NS_GetPathFromFileURL(aRootURL, mWatchPath); NS_FAILED(rv)) return rv;
  SYSTEM_LOG_DEBUG(mLog, "WatchPath : " + NS_ToUtf8(mWatchPath));
  mIsRecursive = true;
  mIsWatching = false;
  return NS_OK;
}

nsresult nsSystemFileSystemWatcherGeneric::StartWatching() {
  SYSTEM_LOG_DEBUG(mLog, "start watching");
  if (!mIsSupported) {
    SYSTEM_LOG_WARNING(mLog, "not supported");
    return NS_ERROR_NOT_IMPLEMENTED;
  }
  if (mIsWatching) {
    SYSTEM_LOG_WARNING(mLog, "Is already watching");
    return NS_OK;
  }
  const auto tree = MakeRefCounted<nsSystemFileSystemTree>(mPlatform->mFiles, NewReader());
  nsCOMPtr<nsSystemFileSystemTree> old = tree;
  {
    nsAutoLock lock(mTreeLock);
    old.swap(mTree);
  }
  if (old) {
    old->Cancel();
    (void)old->ClearListener();
  }
  nsresult rv = tree->SetListener(this);
  NS_ENSURE_SUCCESS(rv, rv);
  Prepare(*tree);
  rv = tree->Init(mWatchPath, mIsRecursive);
  NS_ENSURE_SUCCESS(rv, rv);
  return NS_OK;
}

nsresult nsSystemFileSystemWatcherGeneric::StopWatching() {
  if (!mIsWatching) return NS_OK;
  SYSTEM_LOG_DEBUG(mLog, "StopWatching");
  const nsCOMPtr<nsISystemFileSystemWatcher> alive =
      this;  // the listener may let go of this object
  mIsWatching = false;
  if (mListener) (void)mListener->OnWatcherStopped();
  return NS_OK;
}

void nsSystemFileSystemWatcherGeneric::Stop() {
  SYSTEM_LOG_DEBUG(mLog, "stop");
  (void)StopWatching();
  if (const auto tree = Tree()) {
    tree->Cancel();
    (void)tree->ClearListener();
  }
  mListener = nullptr;
}

nsCOMPtr<nsSystemFileSystemTree> nsSystemFileSystemWatcherGeneric::Tree() {
  nsAutoLock lock(mTreeLock);
  return mTree;
}

nsresult nsSystemFileSystemWatcherGeneric::GetIsWatching(bool* aIsWatching) {
  NS_ENSURE_TRUE(aIsWatching, NS_ERROR_NULL_POINTER);
  *aIsWatching = mIsWatching;
  return NS_OK;
}

nsresult nsSystemFileSystemWatcherGeneric::GetWatchPath(nsAString& aWatchPath) {
  return NS_StringCopy(aWatchPath, mWatchPath);
}

nsresult nsSystemFileSystemWatcherGeneric::GetIsSupported(bool* aIsSupported) {
  NS_ENSURE_TRUE(aIsSupported, NS_ERROR_NULL_POINTER);
  *aIsSupported = mIsSupported;
  return NS_OK;
}

nsString nsSystemFileSystemWatcherGeneric::RelativePath(const nsAString& aPath) const {
  const std::u16string_view path = NS_View(aPath);
  std::u16string relative(path.substr(std::min<size_t>(mWatchPath.Length() + 1, path.size())));
  std::ranges::replace(relative, mPlatform->mFiles->Separator(), u'/');
  return relative;
}

nsresult nsSystemFileSystemWatcherGeneric::OnChangeFound(const nsAString& aPath,
                                                         uint32_t aChangeType) {
  NS_ENSURE_TRUE(mListener, NS_ERROR_NOT_INITIALIZED);
  const nsString path = RelativePath(aPath);
  switch (aChangeType) {
    case nsSystemFileSystemChange::eChanged:
      SYSTEM_LOG_DEBUG(mLog, "file changed : " + NS_ToUtf8(path));
      return mListener->OnFileSystemChanged(path);
    case nsSystemFileSystemChange::eAdded:
      SYSTEM_LOG_DEBUG(mLog, "file added : " + NS_ToUtf8(path));
      return mListener->OnFileSystemAdded(path);
    case nsSystemFileSystemChange::eRemoved:
      SYSTEM_LOG_DEBUG(mLog, "file removed : " + NS_ToUtf8(path));
      return mListener->OnFileSystemRemoved(path);
    default:
      SYSTEM_LOG_DEBUG(mLog, "unknown : " + NS_ToUtf8(path));
      return NS_ERROR_UNEXPECTED;
  }
}

nsresult nsSystemFileSystemWatcherGeneric::OnMoveFound(const nsAString& aOldPath,
                                                       const nsAString& aNewPath) {
  // A plain listener hears nothing of a move here; the service's one tells its plain clients.
  const auto listener = do_QueryInterface<nsISystemFileSystemListener2>(mListener);
  if (!listener) return NS_OK;
  (void)listener->OnFileSystemMoved(RelativePath(aOldPath), RelativePath(aNewPath));
  return NS_OK;
}

nsresult nsSystemFileSystemWatcherGeneric::OnTreeReady(const nsAString&,
                                                       const std::vector<nsString>&) {
  return NS_ERROR_NOT_IMPLEMENTED;
}

nsresult nsSystemFileSystemWatcherGeneric::OnRootPathMissing() {
  if (mListener)
    (void)mListener->OnWatcherError(nsISystemFileSystemListener::ERROR_ROOT_MISSING, mWatchPath);
  return StopWatching();
}

nsresult nsSystemFileSystemWatcherGeneric::OnTreeError() {
  if (mListener)
    (void)mListener->OnWatcherError(nsISystemFileSystemListener::ERROR_TREE, nsString());
  return NS_OK;
}

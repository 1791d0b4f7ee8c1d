#include "nsSystemFileSystemWatcherProxy.h"

#include <algorithm>
#include <string>

#include "nsDebug.h"
#include "nsDocument.h"
#include "nsIIOService.h"
#include "nsIURI.h"
#include "nsIXPConnect.h"
#include "nsJSUtils.h"
#include "nsLogger.h"
#include "nsScriptEngine.h"
#include "nsServices.h"
#include "nsSystemFileSystemFilter.h"
#include "nsSystemFileSystemWatcher.h"
#include "nsSystemFileSystemWatcherGenericRequest.h"
#include "nsUtf.h"
#include "nsVorelMethodCaller.h"

namespace {

constexpr char kXPConnectContractID[] = "@mozilla.org/js/xpc/XPConnect;1";

/// The options, taken from the argument anew for each use: what runs in between, a getter or the
/// making of a wrapper, can have moved them. Null when the argument is null.
JSObject* Options(JSContext* cx, const jsval& aArgument) {
  JSObject* options = nullptr;
  (void)JS_ValueToObject(cx, aArgument, &options);
  return options;
}

/// A property that holds an object, wrapped for use as T; null, and success, for any other value.
template <nsInterface T>
nsresult WrapProperty(nsIXPConnect* aXPConnect, JSContext* cx, const jsval& aArgument,
                      const char* aName, nsCOMPtr<T>* aResult) {
  jsval value;
  JSObject* object = nullptr;
  JSObject* const options = Options(cx, aArgument);
  if (!options || !JS_GetProperty(cx, options, aName, &value) ||
      !JS_ValueToObject(cx, value, &object) || !object)
    return NS_OK;
  return aXPConnect->WrapJS(cx, object, T::kIID, NS_OutVoid(*aResult));
}

/// What can be a part of a file's name anywhere.
bool IsName(std::u16string_view aText) {
  constexpr size_t kLongest = 64;
  return !aText.empty() && aText.size() <= kLongest && aText[0] != u'.' &&
         std::ranges::all_of(aText, [](char16_t aUnit) {
           return (aUnit >= u'0' && aUnit <= u'9') || (aUnit >= u'a' && aUnit <= u'z') ||
                  (aUnit >= u'A' && aUnit <= u'Z') || aUnit == u'.' || aUnit == u'_' ||
                  aUnit == u'-';
         });
}

bool IsText(JSContext* cx, const jsval& aValue) {
  return JS_TypeOfValue(cx, aValue) == JSTYPE_OF_STRING;
}

/// As those above, for the options that are refused where they are wrong: aRead takes a value that
/// is neither undefined nor null.
template <class Read>
bool ReadOption(JSContext* cx, const jsval& aArgument, const char* aName, Read aRead) {
  jsval value;
  JSObject* const options = Options(cx, aArgument);
  if (!options || !JS_GetProperty(cx, options, aName, &value)) return true;
  const int32_t type = JS_TypeOfValue(cx, value);
  const bool isNone = type == JSTYPE_OF_VOID || type == JSTYPE_OF_NULL;
  return isNone || aRead(value);
}

/// What a value is as a text, by the rules of the language.
std::u16string TextOf(JSContext* cx, const jsval& aValue) {
  nsDependentString text;
  return NS_SUCCEEDED(nsJSUtils::ReadString(cx, aValue, text)) ? std::u16string(NS_View(text))
                                                               : std::u16string();
}

/// A text, or an array of texts.
bool ReadPatterns(JSContext* cx, const jsval& aArgument, const char* aName,
                  std::vector<nsString>* aPatterns) {
  constexpr int64_t kMost = 10'000;
  int64_t count = 0;
  const bool isGood = ReadOption(cx, aArgument, aName, [&](const jsval& aValue) {
    JSObject* array = nullptr;
    jsval length;
    if (IsText(cx, aValue)) {
      aPatterns->emplace_back(TextOf(cx, aValue));
      return true;
    }
    if (!JS_ValueToObject(cx, aValue, &array) || !JS_GetProperty(cx, array, "length", &length))
      return false;
    const auto number = NS_ParseDecimal(TextOf(cx, length));
    if (!number || *number < 0 || *number > kMost) return false;
    count = *number;
    return true;
  });
  if (!isGood) return false;
  for (int64_t i = 0; i < count; ++i) {
    // From the argument anew: a getter may have run.
    const bool isText = ReadOption(cx, aArgument, aName, [&](const jsval& aValue) {
      JSObject* array = nullptr;
      jsval element;
      if (!JS_ValueToObject(cx, aValue, &array) || !array ||
          !JS_GetProperty(cx, array, std::to_string(i).c_str(), &element) || !IsText(cx, element))
        return false;
      aPatterns->emplace_back(TextOf(cx, element));
      return true;
    });
    if (!isText) return false;
  }
  return true;
}

/// Null when all of the options are as they should be.
const char* ReadOptions(JSContext* cx, const jsval& aArgument,
                        nsFileSystemWatcherOptions* aOptions) {
  if (!ReadPatterns(cx, aArgument, "exclude", &aOptions->mExclude))
    return "exclude: a pattern or an array of patterns is expected";
  if (!ReadPatterns(cx, aArgument, "only", &aOptions->mOnly))
    return "only: a pattern or an array of patterns is expected";
  if (!ReadOption(cx, aArgument, "settle", [&](const jsval& aValue) {
        if (JS_TypeOfValue(cx, aValue) != JSTYPE_OF_NUMBER) return false;
        const auto number = NS_ParseDecimal(TextOf(cx, aValue));
        if (!number || *number < 0 || *number > nsSystemFileSystemFilter::kLongestSettle)
          return false;
        aOptions->mSettle = static_cast<uint32_t>(*number);
        return true;
      }))
    return "settle: a whole number of milliseconds from 0 to 3600000 is expected";
  if (!ReadOption(cx, aArgument, "since", [&](const jsval& aValue) {
        if (IsText(cx, aValue)) aOptions->mSince.Assign(TextOf(cx, aValue));
        return IsName(aOptions->mSince.view());
      }))
    return "since: a name of up to 64 letters, digits, \"-\", \"_\" and \".\" is expected";
  return nullptr;
}

}  // namespace

nsSystemFileSystemWatcherProxy::nsSystemFileSystemWatcherProxy()
    : mLog(NS_GetLogger("system.fileWatcher")) {}

nsSystemFileSystemWatcherProxy::~nsSystemFileSystemWatcherProxy() { EndWithDocument(); }

nsresult nsSystemFileSystemWatcherProxy::QueryInterface(const nsIID& aIID, void** aResult) {
  return NS_QueryInterface<nsISupportsWeakReference, nsIFileSystemWatcher,
                           nsIFileSystemWatcherOptions, nsIJSNativeInitializer>(this, aIID,
                                                                                aResult);
}

nsCOMPtr<nsSystemFileSystemWatcherService> nsSystemFileSystemWatcherProxy::Service() {
  // The service has no interface of its own: it and this class are of one library.
  const auto service =
      do_GetService<nsISupports>(nsSystemFileSystemWatcherService::kModuleClass.mContractID);
  return static_cast<nsSystemFileSystemWatcherService*>(service.get());
}

// ---- Construction by script

nsresult nsSystemFileSystemWatcherProxy::Initialize(nsISupports* aOwner, JSContext* cx, JSObject*,
                                                    uint32_t aArgc, jsval* aArgv) {
  SYSTEM_LOG_DEBUG(mLog, "JS Initialize");
  if (aArgc != 1) {
    SYSTEM_LOG_WARNING(mLog, "bad arguments");
    return NS_ERROR_FAILURE;
  }
  JSObject* options;
  const jsval& argument = aArgv[0];
  const int32_t type = JS_TypeOfValue(cx, argument);
  if (type == JSTYPE_OF_VOID || !JS_ValueToObject(cx, argument, &options)) {
    SYSTEM_LOG_WARNING(mLog, "argument is not an object");
    return NS_ERROR_FAILURE;
  }
  bool recursive = false;
  if (options) (void)nsJSUtils::ReadBooleanProperty(cx, options, "recursive", &recursive);

  nsresult rv;
  const auto xpconnect = do_GetService<nsIXPConnect>(kXPConnectContractID, &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  nsCOMPtr<nsISystemFileSystemListener> listener;
  rv = WrapProperty(xpconnect.get(), cx, argument, "listener", &listener);
  NS_ENSURE_SUCCESS(rv, rv);
  nsCOMPtr<nsDocument> document;
  rv = WrapProperty(xpconnect.get(), cx, argument, "document", &document);
  NS_ENSURE_SUCCESS(rv, rv);
  if (!document) {
    rv = NS_GetDocument(aOwner, &document);
    NS_ENSURE_SUCCESS(rv, rv);
  }

  if (const auto loadGroup = NS_GetLoadGroup(document.get())) {
    mLoadGroup = loadGroup;
    mRequest = nsCOMPtr<nsIRequest>(MakeRefCounted<nsSystemFileSystemWatcherGenericRequest>(this));
    (void)mLoadGroup->AddRequest(mRequest.get(), nullptr);
  }

  nsDependentString rootPath(std::u16string_view{});
  options = Options(cx, argument);
  rv =
      options ? nsJSUtils::ReadStringProperty(cx, options, "rootPath", rootPath) : NS_ERROR_FAILURE;
  NS_ENSURE_SUCCESS(rv, rv);
  const auto baseUri = NS_GetBaseURI(document.get());
  NS_ENSURE_TRUE(baseUri, NS_ERROR_FAILURE);
  // Below, the host is dropped.
  if (NS_HasOtherHost(NS_ToUtf8(rootPath))) {
    SYSTEM_LOG_WARNING(mLog, "a URL with a host can't be watched");
    return NS_ERROR_MALFORMED_URI;
  }
  nsCOMPtr<nsIURI> uri;
  if (const auto ioService = do_GetService<nsIIOService>(NS_IOSERVICE_CONTRACTID))
    (void)ioService->NewURI(nsCString(vorel::Utf16ToName(NS_View(rootPath))), "UTF-8",
                            baseUri.get(), uri.getter_AddRefs());
  NS_ENSURE_TRUE(uri, NS_ERROR_FAILURE);
  nsCString spec;
  rv = uri->GetSpec(spec);
  NS_ENSURE_SUCCESS(rv, rv);
  rv = Init(listener.get(), spec, recursive);
  NS_ENSURE_SUCCESS(rv, rv);
  nsFileSystemWatcherOptions more;
  if (const char* const wrong = ReadOptions(cx, argument, &more)) {
    JS_ExplainFailure(wrong);
    SYSTEM_LOG_WARNING(mLog, wrong);
    return NS_ERROR_INVALID_ARG;
  }
  return SetOptions(more);
}

// ---- Watching

nsresult nsSystemFileSystemWatcherProxy::Init(nsISystemFileSystemListener* aListener,
                                              const nsACString& aRootURL, bool) {
  mRootURL = aRootURL;
  mListener = aListener;
  return NS_OK;
}

nsresult nsSystemFileSystemWatcherProxy::SetOptions(const nsFileSystemWatcherOptions& aOptions) {
  NS_ENSURE_TRUE(aOptions.mSettle <= nsSystemFileSystemFilter::kLongestSettle,
                 NS_ERROR_INVALID_ARG);
  NS_ENSURE_TRUE(aOptions.mSince.IsEmpty() || IsName(aOptions.mSince.view()), NS_ERROR_INVALID_ARG);
  mOptions = aOptions;
  return NS_OK;
}

nsresult nsSystemFileSystemWatcherProxy::RefuseWhileTold() {
  constexpr char kReason[] =
      "a watch of this directory is just telling of its start or end; call it later, from "
      "setTimeout(..., 0)";
  JS_ExplainFailure(kReason);
  SYSTEM_LOG_WARNING(mLog, kReason);
  return NS_ERROR_IN_PROGRESS;
}

nsresult nsSystemFileSystemWatcherProxy::StartWatching() {
  if (mIsStarting || mIsStopping) return RefuseWhileTold();
  if (mIsWatching || !mListener) return NS_OK;
  mIsStarting = true;
  nsresult rv = StartClient();
  mIsStarting = false;
  if (rv == NS_ERROR_IN_PROGRESS) return RefuseWhileTold();
  NS_ENSURE_SUCCESS(rv, rv);
  mIsWatching = true;
  return NS_OK;
}

nsresult nsSystemFileSystemWatcherProxy::StartClient() {
  const bool isFiltered =
      !mOptions.mExclude.empty() || !mOptions.mOnly.empty() || mOptions.mSettle > 0;
  mClient = mListener;
  if (mOptions.mSince.IsEmpty()) {
    if (isFiltered) mClient = MakeRefCounted<nsSystemFileSystemFilter>(mListener.get(), mOptions);
    const auto service = Service();
    NS_ENSURE_TRUE(service, NS_ERROR_FAILURE);
    return service->StartWatching(mRootURL, mClient.get());
  }
  nsresult rv;
  auto own = do_CreateInstance<nsISystemFileSystemWatcher>(
      nsSystemFileSystemWatcher::kModuleClass.mContractID, &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  auto* const watcher = static_cast<nsSystemFileSystemWatcher*>(own.get());
  // The filter goes with the watcher.
  mClient = MakeRefCounted<nsSystemFileSystemFilter>(mListener.get(), mOptions,
                                                     [watcher] { watcher->Keep(); });
  rv = watcher->Init(mClient.get(), mRootURL, true);
  NS_ENSURE_SUCCESS(rv, rv);
  rv = watcher->SetSince(mOptions.mSince);
  NS_ENSURE_SUCCESS(rv, rv);
  mOwn = std::move(own);
  return mOwn->StartWatching();
}

nsresult nsSystemFileSystemWatcherProxy::StopWatching() {
  if (mIsStarting) return RefuseWhileTold();
  if (!mIsWatching || mIsStopping) return NS_OK;
  if (mOwn) {
    const nsCOMPtr<nsISystemFileSystemWatcher> own = mOwn;
    const nsCOMPtr<nsISystemFileSystemListener> client = mClient;
    mIsStopping = true;
    (void)own->StopWatching();
    mIsStopping = false;
    mOwn = nullptr;
    mClient = nullptr;
    mIsWatching = false;
    return NS_OK;
  }
  const auto service = Service();
  NS_ENSURE_TRUE(service, NS_ERROR_FAILURE);
  mIsStopping = true;
  const nsresult rv = service->StopWatching(mRootURL, mClient.get());
  mIsStopping = false;
  if (rv == NS_ERROR_IN_PROGRESS) return RefuseWhileTold();
  mIsWatching = false;
  return NS_OK;
}

void nsSystemFileSystemWatcherProxy::StopLater(const nsCString& aRootURL,
                                               nsISystemFileSystemListener* aListener) {
  class Stop final : public nsImplements<Stop, nsIRunnable> {
   public:
    Stop(const nsCString& aURL, nsISystemFileSystemListener* aClient)
        : mURL(aURL), mClient(aClient) {}
    nsresult Run() override {
      const auto service = Service();
      if (service && service->StopWatching(mURL, mClient.get()) == NS_ERROR_IN_PROGRESS)
        StopLater(mURL, mClient.get());
      return NS_OK;
    }

   private:
    ~Stop() override = default;
    const nsCString mURL;
    const nsCOMPtr<nsISystemFileSystemListener> mClient;
  };
  (void)NS_DispatchToMainThread(MakeRefCounted<Stop>(aRootURL, aListener).get(),
                                NS_DISPATCH_NORMAL);
}

void nsSystemFileSystemWatcherProxy::EndWithDocument() {
  if (mLoadGroup && mRequest) (void)mLoadGroup->RemoveRequest(mRequest.get(), nullptr, NS_OK);
  if (mIsWatching && StopWatching() == NS_ERROR_IN_PROGRESS) {
    StopLater(mRootURL, mClient.get());
    mIsWatching = false;
  }
  mRequest = nullptr;
}

nsresult nsSystemFileSystemWatcherProxy::GetIsWatching(bool* aIsWatching) {
  NS_ENSURE_TRUE(aIsWatching, NS_ERROR_NULL_POINTER);
  *aIsWatching = mIsWatching;
  return NS_OK;
}

nsresult nsSystemFileSystemWatcherProxy::GetWatchPath(nsAString& aWatchPath) {
  return NS_GetPathFromFileURL(mRootURL, aWatchPath);
}

nsresult nsSystemFileSystemWatcherProxy::GetIsSupported(bool* aIsSupported) {
  NS_ENSURE_TRUE(aIsSupported, NS_ERROR_NULL_POINTER);
  *aIsSupported = true;
  return NS_OK;
}

#include "nsScriptRuntime.h"

#include <js/CompilationAndEvaluation.h>
#include <js/Date.h>
#include <js/Exception.h>
#include <js/GCAPI.h>
#include <js/Initialization.h>
#include <js/Promise.h>
#include <js/PropertyAndElement.h>
#include <js/WeakMap.h>
#include <jsfriendapi.h>

#include <algorithm>

#include "nsHost.h"
#include "nsIObserverService.h"
#include "nsIThread.h"
#include "nsImplements.h"
#include "nsScriptCrash.h"
#include "nsScriptErrors.h"
#include "nsScriptHeap.h"
#include "nsScriptHost.h"
#include "nsScriptStack.h"
#include "nsScriptWeakReference.h"
#include "nsScriptedObject.h"
#include "nsSelfHosted.h"
#include "nsServices.h"
#include "nsUtf.h"
#include "nsVorelMethodCaller.h"

nsScriptRuntime* nsScriptRuntime::sCurrent = nullptr;

namespace {

bool ResolveGlobal(JSContext* cx, JS::HandleObject aGlobal, JS::HandleId aId, bool* aResolved) {
  if (!JS_ResolveStandardClass(cx, aGlobal, aId, aResolved)) return false;
  return *aResolved || NS_ResolveGlobalName(cx, aGlobal, aId, aResolved);
}

bool EnumerateGlobal(JSContext* cx, JS::HandleObject aGlobal, JS::MutableHandleIdVector aNames,
                     bool aEnumerableOnly) {
  // Names of the categories are no more enumerable than those of the language.
  return JS_NewEnumerateStandardClasses(cx, aGlobal, aNames, aEnumerableOnly) &&
         (aEnumerableOnly || NS_ListGlobalNames(cx, aGlobal, aNames));
}

constexpr JSClassOps kGlobalOps = {
    nullptr, nullptr, nullptr, EnumerateGlobal, ResolveGlobal,
    nullptr, nullptr, nullptr, nullptr,         JS_GlobalObjectTraceHook};
constexpr JSClass kGlobalClass = {"Window", JSCLASS_GLOBAL_FLAGS, &kGlobalOps, nullptr, nullptr,
                                  nullptr};

/// Once a process; undone when the process ends, if no context is left.
struct Engine {
  explicit Engine(bool aIsBrief) {
    if (aIsBrief) JS::DisableJitBackend();
    mUp = JS_Init();
  }
  ~Engine() {
    if (mUp && !nsScriptRuntime::Current()) JS_ShutDown();
  }
  bool mUp;
};

constexpr std::string_view kQuitTopic = "quit-application", kEndTopic = "xpcom-shutdown-threads",
                           kZoneTopic = "system-timezone-changed";

/// Ends scripts when the host ends, and lets Date see a new time zone. Any script can find it and
/// send it anything, so that the host is asked whether it is so.
class HostObserver final : public nsImplements<HostObserver, nsIObserver> {
 public:
  nsresult Observe(nsISupports*, const char* aTopic, const char16_t*) override {
    nsScriptRuntime* const runtime = nsScriptRuntime::Current();
    if (!runtime || !aTopic) return NS_OK;
    const nsHost* const host = nsHost::Current();
    if (aTopic == kZoneTopic)
      JS::ResetTimeZone();
    else if (aTopic == kQuitTopic)
      runtime->Quit(runtime->Status());
    else if (aTopic == kEndTopic && host && host->IsStopping() && !runtime->IsInUse())
      nsScriptRuntime::Shutdown();
    return NS_OK;
  }

 private:
  ~HostObserver() override = default;
};

constexpr const char* kTopics[] = {kQuitTopic.data(), kEndTopic.data(), kZoneTopic.data()};

/// What quit() cuts short stays so, whatever compiled code on the stack makes of it.
bool StopInterrupted(JSContext* cx) {
  const nsScriptRuntime* const runtime = nsScriptRuntime::Current();
  if (!runtime || !runtime->IsStopping()) return true;
  JS_RequestInterruptCallback(cx);  // for whatever is entered next
  return false;
}

}  // namespace

nsScriptRuntime* nsScriptRuntime::GetOrCreate(std::string* aError, bool aIsBrief) {
  if (sCurrent) return sCurrent;
  static Engine sEngine(aIsBrief);
  if (!sEngine.mUp) {
    *aError = "the script engine can't be started";
    return nullptr;
  }
  sCurrent = new nsScriptRuntime();
  if (sCurrent->Init(aError)) return sCurrent;
  Shutdown();
  return nullptr;
}

void nsScriptRuntime::Shutdown() {
  delete sCurrent;  // stays Current() until the end of its destructor: finalisers need it
  sCurrent = nullptr;
}

nsScriptRuntime::nsScriptRuntime() = default;

bool nsScriptRuntime::Init(std::string* aError) {
  const uint32_t limit = nsScriptOptions().mHeapLimit;
  mCx = JS_NewContext(limit);
  if (!mCx) {
    *aError = "no memory for the script engine";
    return false;
  }
  NS_SetHeapLimit(mCx, limit);
  JS_SetNativeStackQuota(mCx, NS_ScriptStackSize());
  if (!js::UseInternalJobQueues(mCx) || !NS_InitSelfHosted(mCx)) {
    *aError = "the script engine can't be set up";
    return false;
  }
  if (!NS_InitScriptHeap(mCx) || !JS_AddInterruptCallback(mCx, StopInterrupted) ||
      !NS_StartScriptCrash(mCx)) {
    *aError = "no memory for the script engine";
    return false;
  }
  JS_AddWeakPointerZonesCallback(mCx, Sweep, this);
  JS::SetPromiseRejectionTrackerCallback(mCx, TrackRejection, this);
  mWrappers.Init(mCx);
  mNames.Init(mCx);
  mModules.Init(mCx);
  mGlobal.init(mCx);
  mScriptedMap.init(mCx);
  for (auto& tool : mTools) tool.init(mCx);
  mRejections.init(mCx, JS::GCVector<JSObject*, 0, js::SystemAllocPolicy>());

  JS::RealmOptions options;
  mGlobal = JS_NewGlobalObject(mCx, &kGlobalClass, nullptr, JS::FireOnNewGlobalHook, options);
  if (!mGlobal) {
    *aError = "no memory for the script's global object";
    return false;
  }
  JSAutoRealm realm(mCx, mGlobal);
  mScriptedMap = JS::NewWeakMapObject(mCx);
  if (!mScriptedMap || !SetDocumentFile({}) || !NS_DefineEnvironment(this)) {
    *aError = "the environment of scripts can't be set up";
    if (JS_IsExceptionPending(mCx)) mOutput.ReportException();
    return false;
  }
  if (const auto observers = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID)) {
    mObserver = MakeRefCounted<HostObserver>().get();
    for (const char* topic : kTopics) (void)observers->AddObserver(mObserver.get(), topic, false);
  }
  return true;
}

nsScriptRuntime::~nsScriptRuntime() {
  if (!mCx) return;
  NS_StopScriptCrash();
  if (const auto observers = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID);
      observers && mObserver)
    for (const char* topic : kTopics) (void)observers->RemoveObserver(mObserver.get(), topic);
  mTimers.ClearAll();
  NS_CancelLoadGroup(mDocument.get());
  mDocument = nullptr;
  for (const auto& weak : mWeak) weak->mObject = nullptr;
  mWeak.clear();
  for (nsScriptedObject* object : mScripted) object->CutOff();
  mScripted.clear();
  JS_ClearPendingException(mCx);
  mWrappers.Clear();
  mNames.Clear();
  mModules.Clear();
  mRejections.reset();
  for (auto& tool : mTools) tool.reset();
  mScriptedMap.reset();
  mGlobal.reset();
  // All wrappers go now, and with them the references that script held; then their natives, which
  // are still loaded.
  JS_RemoveWeakPointerZonesCallback(mCx, Sweep);
  JS_DestroyContext(mCx);
  mCx = nullptr;
  ReleaseGarbage();
}

bool nsScriptRuntime::SetDocumentFile(const std::string& aFile) {
  mDocument = NS_NewScriptDocument(aFile);
  JS::RootedValue document(mCx);
  JS::RootedObject global(mCx, mGlobal);
  return mWrappers.Wrap(mDocument.get(), nullptr, &document) &&
         JS_DefineProperty(mCx, global, "document", document, JSPROP_ENUMERATE);
}

// ---- Entries

nsScriptRuntime::Entry::Entry(nsScriptRuntime* aRuntime, bool aComponent, Caller aCaller)
    : mRuntime(aRuntime),
      mWasComponent(aRuntime->mInComponent),
      mWasFree(aRuntime->mIsFree),
      mRealm(aRuntime->mCx, aRuntime->mGlobal) {
  mRuntime->mIsFree = mRuntime->mDepth == 0 && aCaller == Caller::eLoop;
  ++mRuntime->mDepth;
  mRuntime->mInComponent = aComponent;
}

nsScriptRuntime::Entry::~Entry() {
  if (mRuntime->mDepth == 1) {
    mRuntime->RunJobs();
    mRuntime->DrainGarbage();
    mRuntime->mStopping = false;
  }
  --mRuntime->mDepth;
  mRuntime->mInComponent = mWasComponent;
  mRuntime->mIsFree = mWasFree;
}

void nsScriptRuntime::RunJobs() {
  if (mQuit) return;
  // The caller may be about to look at the exception of its own script.
  JS::AutoSaveExceptionState saved(mCx);
  js::RunJobs(mCx);
  while (!mRejections.get().empty()) {
    JS::RootedObject promise(mCx, mRejections.get()[0]);
    mRejections.get().erase(mRejections.get().begin());
    JS::RootedValue reason(mCx, JS::GetPromiseResult(promise));
    mOutput.ReportValue(reason, "unhandled rejection: ");
    js::RunJobs(mCx);
  }
}

void nsScriptRuntime::TrackRejection(JSContext*, bool, JS::HandleObject aPromise,
                                     JS::PromiseRejectionHandlingState aState, void* aRuntime) {
  auto& rejections = static_cast<nsScriptRuntime*>(aRuntime)->mRejections.get();
  if (aState == JS::PromiseRejectionHandlingState::Unhandled)
    (void)rejections.append(aPromise);
  else
    rejections.eraseIfEqual(aPromise.get());
}

// ---- What compiled code and script hold of each other

void nsScriptRuntime::Sweep(JSTracer* aTracer, void* aRuntime) {
  auto& self = *static_cast<nsScriptRuntime*>(aRuntime);
  self.mWrappers.Sweep(aTracer);
  for (const auto& weak : self.mWeak)  // the engine takes no pointer that is empty already
    if (weak->mObject.unbarrieredGet()) JS_UpdateWeakPointerAfterGC(aTracer, &weak->mObject);
}

void nsScriptRuntime::Register(nsScriptedObject* aObject, bool aKeepsAlive) {
  mScripted.insert(aObject);
  mLiveObjects += aKeepsAlive;
}

void nsScriptRuntime::Unregister(nsScriptedObject* aObject, bool aKeptAlive) {
  mScripted.erase(aObject);
  mLiveObjects -= aKeptAlive;
}

void nsScriptRuntime::ReleaseOrDispatch() {
  if (mIsFree && !nsKeptCharacters::CallScope::IsOpen()) return ReleaseGarbage();
  if (mReleaseAsked) return;
  class ReleaseEvent final : public nsImplements<ReleaseEvent, nsIRunnable> {
   public:
    nsresult Run() override {
      if (nsScriptRuntime* const runtime = Current()) {
        runtime->mReleaseAsked = false;
        runtime->ReleaseGarbage();
      }
      return NS_OK;
    }

   private:
    ~ReleaseEvent() override = default;
  };
  // A main thread that takes no more events is about to end the runtime, and that releases all.
  mReleaseAsked = NS_SUCCEEDED(
      NS_DispatchToMainThread(MakeRefCounted<ReleaseEvent>().get(), NS_DISPATCH_NORMAL));
}

void nsScriptRuntime::ReleaseGarbage() {
  while (!mGarbage.empty()) {
    std::vector<nsISupports*> garbage;
    garbage.swap(mGarbage);
    for (nsISupports* object : garbage) object->Release();
  }
}

// ---- The end

void nsScriptRuntime::StopScripts() {
  mStopping = true;
  js::StopDrainingJobQueue(mCx);
  JS_RequestInterruptCallback(mCx);
}

void nsScriptRuntime::Quit(int aStatus) {
  mQuit = true;
  mStatus = aStatus;
  // A script may have run the host's loop, and waits for its end.
  if (nsHost* const host = nsHost::Current()) host->LeaveRun();
  // A loop that waits for an event has to look again.
  class Nothing final : public nsImplements<Nothing, nsIRunnable> {
   public:
    nsresult Run() override { return NS_OK; }

   private:
    ~Nothing() override = default;
  };
  (void)NS_DispatchToMainThread(MakeRefCounted<Nothing>().get(), NS_DISPATCH_NORMAL);
}

int nsScriptRuntime::RunUntilDone() {
  nsCOMPtr<nsIThread> thread;
  (void)NS_GetMainThread(thread.getter_AddRefs());
  bool ran = true;
  ++mLoops;
  while (!mQuit && thread) {
    if (!ran) {  // idle
      if (!mTimers.AreLive() && mLiveObjects > 0 && mCollectedAt != mLiveObjects) {
        // Objects may be held by nothing but wrappers that nobody refers to any more.
        JS_GC(mCx);
        ReleaseGarbage();
        mCollectedAt = mLiveObjects;
        ran = true;
        continue;
      }
      if (!mTimers.AreLive() && mLiveObjects == 0) break;
    }
    const bool wait = !ran;
    ran = false;
    if (NS_FAILED(thread->ProcessNextEvent(wait, &ran))) break;
  }
  --mLoops;
  return mStatus;
}

// The engine, its one global object, and what keeps both in step with compiled code.
#pragma once

#include <js/GCVector.h>
#include <js/Promise.h>
#include <js/RootingAPI.h>
#include <jsapi.h>

#include <array>
#include <memory>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "nsCOMPtr.h"
#include "nsIHostDocument.h"
#include "nsIObserver.h"
#include "nsIWeakReference.h"
#include "nsKeptCharacters.h"
#include "nsScriptModules.h"
#include "nsScriptNames.h"
#include "nsScriptOutput.h"
#include "nsScriptTables.h"
#include "nsScriptTimers.h"
#include "nsWrappers.h"

class nsScriptedObject;
class nsScriptRuntime;
struct nsScriptWeakSlot;

/// Stands for a file in the places of errors.
inline constexpr char kScriptPreludeName[] = "prelude.js";

/// Main thread, but for what says otherwise. There is at most one.
class nsScriptRuntime {
 public:
  /// Null before the first use, and after the end.
  static nsScriptRuntime* Current() { return sCurrent; }
  /// Starts the engine when it does not run. Null, and *aError says why, when it can't be started.
  /// aIsBrief: as nsScriptOptions has it.
  static nsScriptRuntime* GetOrCreate(std::string* aError, bool aIsBrief = false);
  /// Takes leave of the engine; nothing when it does not run.
  static void Shutdown();

  JSContext* Context() const { return mCx; }
  JSObject* Global() const { return mGlobal; }
  nsIHostDocument* Document() const { return mDocument.get(); }
  /// The application's file, or the working directory: what relative addresses mean. False with a
  /// pending exception.
  bool SetDocumentFile(const std::string& aFile);

  /// Who enters script: a program or an event that has nothing else on its stack, or compiled code,
  /// which may hold locks.
  enum class Caller { eLoop, eCompiledCode };
  /// Stands around every entry into script. The outermost one runs promise jobs, reports rejections
  /// that nobody handled, and has released what script has let go.
  class Entry {
   public:
    explicit Entry(nsScriptRuntime* aRuntime, bool aComponent = false,
                   Caller aCaller = Caller::eCompiledCode);
    ~Entry();
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;

   private:
    nsScriptRuntime* const mRuntime;
    const bool mWasComponent;
    const bool mWasFree;
    JSAutoRealm mRealm;
  };

  // ---- What it is made of

  nsWrappers& Wrappers() { return mWrappers; }
  nsScriptNames& Names() { return mNames; }
  nsScriptTimers& Timers() { return mTimers; }
  nsScriptModules& Modules() { return mModules; }
  nsScriptOutput& Output() { return mOutput; }

  // The collector runs wherever script allocates, also in the middle of a call from compiled code
  // that holds locks, and what it lets go may be an object whose end waits for one of them.
  void ReleaseLater(nsISupports* aObject) { mGarbage.push_back(aObject); }
  /// Releases what has been let go: here, when no compiled code but a loop is below, otherwise in
  /// an event of its own.
  void DrainGarbage() {
    if (!mGarbage.empty()) [[unlikely]]
      ReleaseOrDispatch();
  }

  /// A weak reference to an object of script: alive as long as script keeps the object.
  nsCOMPtr<nsIWeakReference> NewWeakReference(JS::HandleObject aObject);

  // ---- Objects of script in compiled code (nsScriptedObject.cpp)

  JS::PersistentRootedObject& ScriptedObjects() { return mScriptedMap; }
  void Register(nsScriptedObject* aObject, bool aKeepsAlive);
  void Unregister(nsScriptedObject* aObject, bool aKeptAlive);
  /// True in the course of a call to a component written in script.
  bool InComponent() const { return mInComponent; }

  // ---- The end

  void Quit(int aStatus);
  int Status() const { return mStatus; }
  /// An error that nobody caught: the status is 1, unless it says something already. Components
  /// have their errors for themselves.
  void CountError() {
    if (!mInComponent && mStatus == 0 && !mQuit) mStatus = 1;
  }
  bool HasQuit() const { return mQuit; }
  /// Script runs, or a loop of this runtime does: it must not go now.
  bool IsInUse() const { return mDepth > 0 || mLoops > 0; }
  /// Set from a call of quit() in script until the outermost script has ended. No script runs then,
  /// and nothing is thrown that one could catch.
  bool IsStopping() const { return mStopping; }
  void StopScripts();
  int RunUntilDone();

  // ---- What goes with a call of compiled code

  /// Of the next failure, when compiled code gives one.
  void SetReason(std::string aReason) { mReason = std::move(aReason); }
  std::string TakeReason() { return std::exchange(mReason, {}); }
  /// "new Name: " while a compiled object reads its arguments; gives what it was.
  std::string SetConstructing(std::string aPlace) {
    return std::exchange(mConstructing, std::move(aPlace));
  }
  const std::string& Constructing() const { return mConstructing; }

  // ---- Functions of the prelude

  enum class Tool {
    eInspect,  ///< turns a value into text for people
    eComplete,
    eShowArray,     ///< lets script see a list's elements
    eArrayHandler,  ///< what it does that with, an object
  };
  JSObject* Of(Tool aTool) const { return mTools[static_cast<size_t>(aTool)]; }
  void SetTool(Tool aTool, JSObject* aObject) { mTools[static_cast<size_t>(aTool)] = aObject; }

 private:
  nsScriptRuntime();
  ~nsScriptRuntime();
  bool Init(std::string* aError);
  void ReleaseOrDispatch();
  void ReleaseGarbage();
  void RunJobs();
  static void Sweep(JSTracer* aTracer, void* aRuntime);
  static void TrackRejection(JSContext* cx, bool aMuted, JS::HandleObject aPromise,
                             JS::PromiseRejectionHandlingState aState, void* aRuntime);

  static nsScriptRuntime* sCurrent;

  JSContext* mCx = nullptr;
  nsWrappers mWrappers{*this};
  nsScriptNames mNames{*this};
  nsScriptTimers mTimers;
  nsScriptModules mModules;
  nsScriptOutput mOutput{*this};
  std::array<JS::PersistentRootedObject, 4> mTools;
  std::string mReason, mConstructing;
  int mStatus = 0;
  JS::PersistentRootedObject mGlobal;
  JS::PersistentRootedObject mScriptedMap;
  JS::PersistentRooted<JS::GCVector<JSObject*, 0, js::SystemAllocPolicy>> mRejections;
  std::vector<nsISupports*> mGarbage;
  std::unordered_set<nsScriptedObject*> mScripted;
  std::vector<std::shared_ptr<nsScriptWeakSlot>> mWeak;
  uint32_t mLiveObjects = 0;
  uint32_t mCollectedAt = 0;
  unsigned mDepth = 0;
  unsigned mLoops = 0;
  bool mIsFree = false;  ///< script runs with nothing below it but a loop
  bool mReleaseAsked = false;
  bool mInComponent = false;
  bool mQuit = false;
  bool mStopping = false;
  nsCOMPtr<nsIHostDocument> mDocument;
  nsCOMPtr<nsIObserver> mObserver;
};

/// Defines everything that script finds in its global object. False with a pending exception.
bool NS_DefineEnvironment(nsScriptRuntime* aRuntime);
/// Looks a name up in the categories of global names.
bool NS_ResolveGlobalName(JSContext* cx, JS::HandleObject aGlobal, JS::HandleId aId,
                          bool* aResolved);
/// The global name of a class of compiled objects; undefined for a class that has none.
bool NS_FindGlobalClass(JSContext* cx, const std::string& aName, JS::MutableHandleValue aResult);
/// Those of the categories that have not been looked up yet.
bool NS_ListGlobalNames(JSContext* cx, JS::HandleObject aGlobal, JS::MutableHandleIdVector aNames);
/// The whole text of a file, checked to be UTF-8. False with a pending exception.
bool NS_ReadScript(JSContext* cx, const std::string& aFile, std::string* aText);
nsCOMPtr<nsIHostDocument> NS_NewScriptDocument(const std::string& aFile);
/// Cancels what runs on behalf of the document.
void NS_CancelLoadGroup(nsIHostDocument* aDocument);

// The engine, its one global object, and what keeps both in step with compiled code.
#pragma once

#include <js/GCVector.h>
#include <js/Promise.h>
#include <js/RootingAPI.h>
#include <jsapi.h>

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "nsCOMPtr.h"
#include "nsIHostDocument.h"
#include "nsIObserver.h"
#include "nsITimer.h"
#include "nsIWeakReference.h"
#include "nsKeptCharacters.h"
#include "nsScriptTables.h"

class nsScriptedObject;
class nsScriptRuntime;
struct nsScriptWeakSlot;

/// Stands for a file in the places of errors.
inline constexpr char kScriptPreludeName[] = "prelude.js";

/// A compiled object as script sees it. One for each object, for as long as script holds it.
struct nsWrapper {
  /// A pointer to the object as the interface, with a reference.
  struct Face {
    const nsScriptInterface* mInterface;
    nsISupports* mPointer;
  };
  JS::Heap<JSObject*>
      mObject;             ///< weak: null from the moment on that the collector has condemned it
  nsISupports* mIdentity;  ///< with a reference
  std::vector<Face> mFaces;
  std::string mClassName;
};

/// A name that stands for interfaces: one of Components.interfaces, or a global one for a DOM class
/// or interface.
struct nsNamedInterface {
  std::string mName;
  std::vector<nsIID> mIIDs;
  std::string mContractID;  ///< what `new` makes
  nsCID mCID;               ///< the same, when there is no contract ID
  bool mConstructs = false;
};

/// Main thread, but for what says otherwise. There is at most one.
class nsScriptRuntime {
 public:
  /// Null before the first use, and after the end.
  static nsScriptRuntime* Current() { return sCurrent; }
  /// Starts the engine when it does not run. Null, and *aError says why, when it can't be started.
  static nsScriptRuntime* GetOrCreate(std::string* aError);
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

  // ---- Compiled objects in script (nsWrappers.cpp)

  /// The object for script; null for null. aInterface, which may be null, is what the place that
  /// gives it says it is.
  bool Wrap(nsISupports* aNative, const nsScriptInterface* aInterface,
            JS::MutableHandleValue aResult);
  /// The wrapper behind a value; null for any other.
  static nsWrapper* WrapperOf(const JS::Value& aValue);
  /// The wrapped object as an interface, borrowed; null when it does not implement it.
  nsISupports* Face(nsWrapper* aWrapper, const nsScriptInterface* aInterface);
  /// Makes members of an interface visible on the wrapper, if the object implements it.
  bool AddFace(JS::HandleObject aObject, nsWrapper* aWrapper, const nsScriptInterface* aInterface,
               bool* aImplements);
  JSObject* Prototype(const nsScriptInterface* aInterface);
  // The collector runs wherever script allocates, also in the middle of a call from compiled code
  // that holds locks, and what it lets go may be an object whose end waits for one of them.
  void ReleaseLater(nsISupports* aObject) { mGarbage.push_back(aObject); }
  /// Releases what has been let go: here, when no compiled code but a loop is below, otherwise in
  /// an event of its own.
  void DrainGarbage() {
    if (!mGarbage.empty()) [[unlikely]]
      ReleaseOrDispatch();
  }

  /// The property of a table's name, made once. False with a pending exception.
  bool NameOf(std::string_view aName, JS::MutableHandleId aResult);

  // ---- Names of interfaces (nsWrappers.cpp)

  JSObject* InterfaceObject(const nsScriptInterface* aInterface);
  nsNamedInterface* NewName() { return &mNames.emplace_back(); }
  /// The first identifier that a value names; false when it names none.
  bool ReadID(JS::HandleValue aValue, nsID* aResult);
  bool DefineInterfaceConstants(JS::HandleObject aObject, const nsScriptInterface* aInterface);
  bool DefineHasInstance(JS::HandleObject aObject, nsNamedInterface* aName);
  /// A weak reference to an object of script: alive as long as script keeps the object.
  nsCOMPtr<nsIWeakReference> NewWeakReference(JS::HandleObject aObject);

  // ---- Objects of script in compiled code (nsScriptedObject.cpp)

  JS::PersistentRootedObject& ScriptedObjects() { return mScriptedMap; }
  void Register(nsScriptedObject* aObject, bool aKeepsAlive);
  void Unregister(nsScriptedObject* aObject, bool aKeptAlive);
  /// True in the course of a call to a component written in script.
  bool InComponent() const { return mInComponent; }

  // ---- Errors and the end (nsScriptRuntime.cpp)

  /// Writes the pending exception to standard error and clears it.
  void ReportException();
  void ReportValue(JS::HandleValue aException, const char* aPrefix);
  void Quit(int aStatus);
  bool HasQuit() const { return mQuit; }
  /// Script runs, or a loop of this runtime does: it must not go now.
  bool IsInUse() const { return mDepth > 0 || mLoops > 0; }
  /// Set from a call of quit() in script until the outermost script has ended. No script runs then,
  /// and nothing is thrown that one could catch.
  bool IsStopping() const { return mStopping; }
  void StopScripts();
  int RunUntilDone();
  std::string mReason;        ///< of the next failure of compiled code, when it has given one
  std::string mConstructing;  ///< "new Name: " while a compiled object reads its arguments
  int mStatus = 0;
  bool mEndsWithOutput = false;
  std::function<void(bool)> mAroundOutput;  ///< called with true before text is written, then false
  class Output {
   public:
    explicit Output(nsScriptRuntime* aRuntime) : mAround(aRuntime->mAroundOutput) {
      if (mAround) mAround(true);
    }
    ~Output() {
      if (mAround) mAround(false);
    }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

   private:
    const std::function<void(bool)> mAround;
  };

  // ---- Timers (nsEnvironment.cpp)
  struct Timer {
    nsCOMPtr<nsITimer> mTimer;
    bool mKeepsAlive;
  };
  std::map<uint32_t, Timer> mTimers;
  uint32_t mNextTimer = 1;
  uint32_t mLiveTimers = 0;  ///< those of the application, which keep it running

  JS::PersistentRootedObject mInspect;  ///< the function that turns a value into text for people
  JS::PersistentRootedObject mComplete;
  JS::PersistentRootedObject mShowArray;  ///< the function that lets script see a list's elements
  JS::PersistentRootedObject mArrayHandler;  ///< what it does that with

  // ---- Modules (nsModules.cpp)
  std::map<std::string, JS::PersistentRootedObject> mModules;

 private:
  nsScriptRuntime();
  ~nsScriptRuntime();
  bool Init(std::string* aError);
  void ReleaseOrDispatch();
  void ReleaseGarbage();
  void RunJobs();
  bool ReadClassInfo(nsISupports* aNative, std::vector<const nsScriptInterface*>* aInterfaces,
                     std::string* aName);
  void TellHidden(JS::HandleId aId, const std::vector<nsWrapper::Face>& aFaces, size_t aFace,
                  const std::string& aName);
  JSObject* ShapePrototype(const std::vector<nsWrapper::Face>& aFaces, const std::string& aName);
  bool DefineMembers(JS::HandleObject aPrototype, const nsScriptInterface* aInterface);
  static void SweepWrappers(JSTracer* aTracer, void* aRuntime);
  static void TrackRejection(JSContext* cx, bool aMuted, JS::HandleObject aPromise,
                             JS::PromiseRejectionHandlingState aState, void* aRuntime);

  static nsScriptRuntime* sCurrent;

  JSContext* mCx = nullptr;
  JS::PersistentRootedObject mGlobal;
  JS::PersistentRootedObject mScriptedMap;
  JS::PersistentRooted<JS::GCVector<JSObject*, 0, js::SystemAllocPolicy>> mRejections;
  std::unordered_map<nsISupports*, nsWrapper*> mWrappers;
  std::unordered_map<const nsScriptInterface*, JS::PersistentRootedObject> mPrototypes;
  std::unordered_map<const nsScriptInterface*, JS::PersistentRootedObject> mInterfaceObjects;
  std::unordered_map<std::string, JS::PersistentRootedObject> mShapes;
  std::deque<nsNamedInterface> mNames;
  // By their place: tables last as long as the process. Pinned, so that no tracer is needed.
  std::unordered_map<const char*, JS::PropertyKey> mProperties;
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

  friend void NS_FinalizeWrapper(nsScriptRuntime*, nsWrapper*);
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
/// Hooks for `import`, static and dynamic.
void NS_InitModules(JSContext* cx);
/// Runs a file as what its name says it is. False with a pending exception, or stopped.
bool NS_RunFile(nsScriptRuntime* aRuntime, const std::string& aFile);
/// The whole text of a file, checked to be UTF-8. False with a pending exception.
bool NS_ReadScript(JSContext* cx, const std::string& aFile, std::string* aText);
nsCOMPtr<nsIHostDocument> NS_NewScriptDocument(const std::string& aFile);
/// Cancels what runs on behalf of the document.
void NS_CancelLoadGroup(nsIHostDocument* aDocument);

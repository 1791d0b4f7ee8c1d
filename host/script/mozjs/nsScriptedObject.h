// An object or function of script in the hands of compiled code.
#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "nsISupportsWeakReference.h"
#include "nsLock.h"
#include "nsScriptRuntime.h"

/// False with a pending TypeError: what stands at the place is no such object. aInterface may be
/// null, and aObject too; otherwise the message says which members that one lacks.
bool NS_ThrowNotImplemented(JSContext* cx, const nsScriptInterface* aInterface,
                            const std::string& aName, const std::string& aPlace,
                            JS::HandleObject aObject = nullptr);

/// One for each object of script that compiled code holds, with a face for each interface it was
/// taken for.
///
/// It keeps the script's object alive as long as compiled code keeps it. A listener that refers to
/// what it listens to makes a circle that neither side's memory management can see; it lasts until
/// the listener is removed, or until script ends, when the object is cut off from its script.
///
/// Counts may change on any thread; the last reference always goes on script's thread, the main
/// one. Calls on other threads are refused: who calls from elsewhere has to dispatch.
/// Its weak references live as long as the script's object does.
class nsScriptedObject final : public nsScriptObject, public nsISupportsWeakReference {
 public:
  static constexpr nsIID kPrivateIID = "7e0cb6a6-8a3c-4d0e-a2b5-51d3f5ad9d3c"_iid;

  /// The object of script as an interface; aName is what messages call it. False with a pending
  /// TypeError when script can't implement it, or the object does not look like it.
  static bool Get(nsScriptRuntime* aRuntime, JS::HandleObject aObject,
                  const nsScriptInterface* aInterface, const std::string& aName,
                  const std::string& aPlace, nsCOMPtr<nsISupports>* aResult);
  /// The object of script behind a pointer; null for any other object.
  static nsScriptedObject* From(nsISupports* aObject);

  JSObject* Object() const { return mObject; }
  /// Script has ended: lets its object go, and answers nothing any more.
  void CutOff();

  nsresult QueryInterface(const nsIID& aIID, void** aResult) override;
  nsrefcnt AddRef() override { return mCount.fetch_add(1, std::memory_order_relaxed) + 1; }
  nsrefcnt Release() override;
  nsresult GetWeakReference(nsIWeakReference** aResult) override;
  nsresult CallScript(const nsScriptInterface& aInterface, const nsScriptMember& aMember, bool aSet,
                      nsScriptSlot* aSlots) override;

 private:
  nsScriptedObject(nsScriptRuntime* aRuntime, JS::HandleObject aObject);
  ~nsScriptedObject();
  bool IsOnScriptThread() const { return std::this_thread::get_id() == mThread; }
  nsISupports* FindFace(const nsScriptInterface* aInterface);
  nsISupports* AddFace(const nsScriptInterface* aInterface);
  /// Whether the object of script claims the interface: by its QueryInterface, else by its members.
  bool Claims(const nsScriptInterface* aInterface);
  bool HasMembers(const nsScriptInterface* aInterface, bool aAll);
  bool Invoke(const nsScriptInterface& aInterface, const nsScriptMember& aMember, bool aSet,
              nsScriptSlot* aSlots, nsresult* aRv);

  std::atomic<nsrefcnt> mCount{0};
  std::atomic<bool> mCutOff{false};
  // Compared for every call: the thread manager would be asked by its contract.
  const std::thread::id mThread = std::this_thread::get_id();
  JS::PersistentRootedObject mObject;
  const bool mComponent;  ///< made on behalf of a component: does not keep the application running
  nsMutex mMutex;         ///< guards mFaces
  struct Face {
    const nsScriptInterface* mInterface;
    nsISupports* mPointer;
  };
  std::vector<Face> mFaces NS_GUARDED_BY(mMutex);
};

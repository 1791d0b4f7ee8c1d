// Weak references to objects of script in the hands of compiled code.
#pragma once

#include <atomic>
#include <memory>

#include "nsIWeakReference.h"
#include "nsImplements.h"
#include "nsScriptRuntime.h"

/// What a weak reference and the runtime, whose collector empties it, both see.
struct nsScriptWeakSlot {
  JS::Heap<JSObject*> mObject;         ///< main thread
  std::atomic<bool> mIsUnused{false};  ///< nobody holds the reference any more
};

/// Lives as long as script keeps the object, whoever of compiled code holds it. The count may
/// change on any thread; objects are asked for on script's own.
class nsScriptWeakReference final : public nsImplements<nsScriptWeakReference, nsIWeakReference> {
 public:
  nsScriptWeakReference(std::shared_ptr<nsScriptWeakSlot> aSlot, bool aComponent)
      : mSlot(std::move(aSlot)), mComponent(aComponent) {}
  /// NS_ERROR_NULL_POINTER once the collector has taken the object, or script has ended;
  /// NS_ERROR_NO_INTERFACE for what it does not implement; NS_ERROR_NOT_SAME_THREAD on another
  /// thread.
  nsresult QueryReferent(const nsIID& aIID, void** aResult) override;

 private:
  ~nsScriptWeakReference() override { mSlot->mIsUnused = true; }
  const std::shared_ptr<nsScriptWeakSlot> mSlot;
  const bool mComponent;
};

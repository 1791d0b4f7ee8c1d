#include "nsScriptWeakReference.h"

#include "nsScriptedObject.h"
#include "nsVorelMethodCaller.h"

nsCOMPtr<nsIWeakReference> nsScriptRuntime::NewWeakReference(JS::HandleObject aObject) {
  std::erase_if(mWeak, [](const auto& aSlot) { return aSlot->mIsUnused.load(); });
  const auto slot = std::make_shared<nsScriptWeakSlot>();
  slot->mObject = aObject;
  mWeak.push_back(slot);
  return MakeRefCounted<nsScriptWeakReference>(slot, mInComponent).get();
}

nsresult nsScriptWeakReference::QueryReferent(const nsIID& aIID, void** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  if (!NS_IsMainThread()) return NS_ERROR_NOT_SAME_THREAD;
  nsScriptRuntime* const runtime = nsScriptRuntime::Current();
  if (!runtime || !mSlot->mObject) return NS_ERROR_NULL_POINTER;
  JSContext* const cx = runtime->Context();
  nsScriptRuntime::Entry entry(runtime, mComponent);
  JS::RootedObject object(cx, mSlot->mObject.get());
  nsCOMPtr<nsISupports> native;
  if (!nsScriptedObject::Get(runtime, object, nsScriptTables::Find(nsISupports::kIID), {}, {},
                             &native)) {
    JS_ClearPendingException(cx);
    return NS_ERROR_FAILURE;
  }
  return native->QueryInterface(aIID, aResult);
}

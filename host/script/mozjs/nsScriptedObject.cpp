#include "nsScriptedObject.h"

#include <js/CallAndConstruct.h>
#include <js/PropertyAndElement.h>
#include <js/WeakMap.h>
#include <js/friend/StackLimits.h>

#include <cstdio>

#include "nsConvert.h"
#include "nsScriptErrors.h"
#include "nsVorelMethodCaller.h"

bool NS_ThrowNotImplemented(JSContext* cx, const nsScriptInterface* aInterface,
                            const std::string& aName, const std::string& aPlace,
                            JS::HandleObject aObject) {
  std::string message = aPlace + ": an object that implements " + aName + " is expected, ";
  if (!aInterface || !aInterface->mImplement)
    return NS_ThrowTypeError(cx, message + "and script can't implement that");
  const char* separator = "one with ";
  for (const nsScriptMember& member : aInterface->mMembers) {
    (message += separator) += member.mName;
    separator = ", ";
  }
  if (aInterface->mFunction) message += ", or a function";
  JS::RootedId name(cx);
  separator = "; it lacks ";
  for (const nsScriptInterface* level = aInterface;
       aObject && level && *level->mIID != nsISupports::kIID;
       level = nsScriptTables::Parent(*level)) {
    for (const nsScriptMember& member : level->mMembers) {
      bool has = false;
      if (!nsScriptRuntime::Current()->Names().NameOf(member.mName, &name) ||
          !JS_HasPropertyById(cx, aObject, name, &has))
        return false;
      if (has) continue;
      (message += separator) += member.mName;
      separator = ", ";
    }
  }
  return NS_ThrowTypeError(cx, message);
}

nsScriptedObject::nsScriptedObject(nsScriptRuntime* aRuntime, JS::HandleObject aObject)
    : mObject(aRuntime->Context(), aObject), mComponent(aRuntime->InComponent()) {
  aRuntime->Register(this, !mComponent);
}

nsScriptedObject::~nsScriptedObject() {
  nsScriptRuntime* const runtime = mCutOff ? nullptr : nsScriptRuntime::Current();
  if (runtime) {
    JSContext* const cx = runtime->Context();
    JSAutoRealm realm(cx, runtime->Global());
    JS::RootedValue none(cx);
    JS::RootedValue key(cx, JS::ObjectValue(*mObject));
    JS::RootedObject map(cx, runtime->ScriptedObjects());
    JS::RootedObject object(cx, mObject);
    if (!JS::SetWeakMapEntry(cx, map, object, none)) JS_ClearPendingException(cx);
    runtime->Unregister(this, !mComponent);
  }
  for (const Face& face : mFaces) face.mInterface->mDestroy(face.mPointer);
}

void nsScriptedObject::CutOff() {
  mObject.reset();
  mCutOff = true;
}

nsScriptedObject* nsScriptedObject::From(nsISupports* aObject) {
  void* found = nullptr;
  if (!aObject || NS_FAILED(aObject->QueryInterface(kPrivateIID, &found)) || !found) return nullptr;
  auto* const object = static_cast<nsScriptedObject*>(static_cast<nsScriptObject*>(found));
  object->Release();  // the caller's reference keeps it
  return object;
}

bool nsScriptedObject::Get(nsScriptRuntime* aRuntime, JS::HandleObject aObject,
                           const nsScriptInterface* aInterface, const std::string& aName,
                           const std::string& aPlace, nsCOMPtr<nsISupports>* aResult) {
  JSContext* const cx = aRuntime->Context();
  if (aRuntime->IsStopping()) return false;
  const bool root = aInterface && *aInterface->mIID == nsISupports::kIID;
  if (!aInterface || (!aInterface->mImplement && !root))
    return NS_ThrowNotImplemented(cx, aInterface, aName, aPlace);
  JS::RootedObject map(cx, aRuntime->ScriptedObjects());
  JS::RootedValue known(cx);
  if (!JS::GetWeakMapEntry(cx, map, aObject, &known)) return false;
  nsCOMPtr<nsScriptedObject> self;
  if (known.isUndefined()) {
    self = new nsScriptedObject(aRuntime, aObject);
    JS::RootedValue entry(cx, JS::PrivateValue(self.get()));
    if (!JS::SetWeakMapEntry(cx, map, aObject, entry)) return false;
  } else {
    self = static_cast<nsScriptedObject*>(known.toPrivate());
  }
  if (root) {
    *aResult = static_cast<nsScriptObject*>(self.get());
    return true;
  }
  nsISupports* face = self->FindFace(aInterface);
  if (!face) {
    // The place says what the object is meant to be; one member of it is enough to believe that.
    const bool function = aInterface->mFunction && JS::IsCallable(aObject);
    if (!function && !self->Claims(aInterface) && !self->HasMembers(aInterface, false)) {
      if (JS_IsExceptionPending(cx)) return false;
      return NS_ThrowNotImplemented(cx, aInterface, aName, aPlace);
    }
    face = self->AddFace(aInterface);
    // Asked now, since compiled code may ask for them on another thread.
    for (const nsScriptInterface* derived : nsScriptTables::ImplementableBelow(*aInterface))
      if (!self->FindFace(derived) && self->Claims(derived)) self->AddFace(derived);
  }
  *aResult = face;
  return true;
}

nsISupports* nsScriptedObject::FindFace(const nsScriptInterface* aInterface) {
  const nsAutoLock lock(mMutex);
  for (const Face& face : mFaces)
    if (nsScriptTables::Derives(face.mInterface, aInterface)) return face.mPointer;
  return nullptr;
}

nsISupports* nsScriptedObject::AddFace(const nsScriptInterface* aInterface) {
  nsISupports* const face = aInterface->mImplement(this);
  const nsAutoLock lock(mMutex);
  mFaces.push_back({aInterface, face});
  return face;
}

bool nsScriptedObject::HasMembers(const nsScriptInterface* aInterface, bool aAll) {
  nsScriptRuntime* const runtime = nsScriptRuntime::Current();
  JSContext* const cx = runtime->Context();
  JS::RootedObject object(cx, mObject);
  JS::RootedId name(cx);
  bool any = false;
  for (const nsScriptInterface* level = aInterface; level && *level->mIID != nsISupports::kIID;
       level = nsScriptTables::Parent(*level)) {
    if (aAll && any && FindFace(level)) break;  // what it answers to already need not be looked at
    for (const nsScriptMember& member : level->mMembers) {
      bool has = false;
      if (!runtime->Names().NameOf(member.mName, &name) ||
          !JS_HasPropertyById(cx, object, name, &has)) {
        JS_ClearPendingException(cx);
        return false;
      }
      if (aAll && !has) return false;
      any |= has;
    }
  }
  return any;
}

bool nsScriptedObject::Claims(const nsScriptInterface* aInterface) {
  nsScriptRuntime* const runtime = nsScriptRuntime::Current();
  if (runtime->IsStopping()) return false;
  JSContext* const cx = runtime->Context();
  nsScriptRuntime::Entry entry(runtime, mComponent);
  JS::RootedObject object(cx, mObject);
  JS::RootedValue function(cx), answer(cx);
  if (JS_GetProperty(cx, object, "QueryInterface", &function) && function.isObject() &&
      JS::IsCallable(&function.toObject())) {
    JSObject* const id = runtime->Names().InterfaceObject(aInterface);
    JS::RootedValueArray<1> arguments(cx);
    if (!id) return false;
    arguments[0].setObject(*id);
    // A refusal is thrown; it is an answer like any other.
    const bool answered = JS::Call(cx, object, function, arguments, &answer);
    if (!answered) JS_ClearPendingException(cx);
    return answered && answer.isObject();
  }
  JS_ClearPendingException(cx);
  return HasMembers(aInterface, true);
}

nsresult nsScriptedObject::QueryInterface(const nsIID& aIID, void** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  *aResult = nullptr;
  if (aIID == nsISupports::kIID || aIID == kPrivateIID) {
    *aResult = static_cast<nsScriptObject*>(this);
  } else if (aIID == nsISupportsWeakReference::kIID) {
    *aResult = static_cast<nsISupportsWeakReference*>(this);
  } else if (const nsScriptInterface* const table = nsScriptTables::Find(aIID);
             table && table->mImplement) {
    *aResult = FindFace(table);
    if (!*aResult && !mCutOff && IsOnScriptThread() && nsScriptRuntime::Current() && Claims(table))
      *aResult = AddFace(table);
  }
  if (!*aResult) return NS_ERROR_NO_INTERFACE;
  AddRef();
  return NS_OK;
}

nsresult nsScriptedObject::GetWeakReference(nsIWeakReference** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  if (!IsOnScriptThread()) return NS_ERROR_NOT_SAME_THREAD;
  nsScriptRuntime* const runtime = nsScriptRuntime::Current();
  if (mCutOff || !runtime) return NS_ERROR_NOT_AVAILABLE;
  JS::RootedObject object(runtime->Context(), mObject);
  runtime->NewWeakReference(object).forget(aResult);
  return NS_OK;
}

nsrefcnt nsScriptedObject::Release() {
  if (!mCutOff && !IsOnScriptThread()) {
    nsrefcnt count = mCount.load();
    while (count > 1)
      if (mCount.compare_exchange_weak(count, count - 1, std::memory_order_acq_rel))
        return count - 1;
    // The last one goes on the main thread. When that takes no more events script has ended, and
    // the memory with it.
    class LastRelease final : public nsImplements<LastRelease, nsIRunnable> {
     public:
      explicit LastRelease(nsScriptedObject* aObject) : mObject(aObject) {}
      nsresult Run() override {
        mObject->Release();
        return NS_OK;
      }

     private:
      ~LastRelease() override = default;
      nsScriptedObject* const mObject;
    };
    (void)NS_DispatchToMainThread(MakeRefCounted<LastRelease>(this).get(), NS_DISPATCH_NORMAL);
    return 1;
  }
  const nsrefcnt count = mCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
  if (count == 0) {
    mCount = 1;
    delete this;
  }
  return count;
}

nsresult nsScriptedObject::CallScript(const nsScriptInterface& aInterface,
                                      const nsScriptMember& aMember, bool aSet,
                                      nsScriptSlot* aSlots) {
  if (mCutOff) return NS_ERROR_NOT_AVAILABLE;
  if (!IsOnScriptThread()) {
    fprintf(stderr,
            "vorel: %.*s.%.*s of a script's object was called on another thread than the main one; "
            "refused\n",
            static_cast<int>(aInterface.mName.size()), aInterface.mName.data(),
            static_cast<int>(aMember.mName.size()), aMember.mName.data());
    return NS_ERROR_NOT_SAME_THREAD;
  }
  nsScriptRuntime* const runtime = nsScriptRuntime::Current();
  if (!runtime) return NS_ERROR_NOT_AVAILABLE;
  if (runtime->IsStopping()) return NS_ERROR_ABORT;
  const nsCOMPtr<nsScriptedObject> alive(this);
  JSContext* const cx = runtime->Context();
  nsScriptRuntime::Entry entry(runtime, mComponent);
  js::AutoCheckRecursionLimit recursion(cx);
  if (!recursion.check(cx)) {
    runtime->Output().ReportException();
    return NS_ERROR_OUT_OF_MEMORY;
  }

  nsresult rv = NS_OK;
  if (Invoke(aInterface, aMember, aSet, aSlots, &rv)) return rv;
  if (!JS_IsExceptionPending(cx)) return NS_ERROR_ABORT;  // stopped by quit()
  // A number thrown is a result, a deliberate answer. Whatever else is thrown is an error that
  // people must see.
  JS::RootedValue exception(cx), result(cx);
  if (!JS_GetPendingException(cx, &exception)) return NS_ERROR_FAILURE;
  if (exception.isNumber()) {
    JS_ClearPendingException(cx);
    result = exception;
  } else {
    runtime->Output().ReportException();
    JS::RootedObject error(cx, exception.isObject() ? &exception.toObject() : nullptr);
    if (error && !JS_GetProperty(cx, error, "result", &result)) JS_ClearPendingException(cx);
  }
  if (result.isNumber() && result.toNumber() >= 0x80000000u && result.toNumber() <= 0xFFFFFFFFu)
    return nsresult{static_cast<uint32_t>(result.toNumber())};
  return NS_ERROR_FAILURE;
}

bool nsScriptedObject::Invoke(const nsScriptInterface& aInterface, const nsScriptMember& aMember,
                              bool aSet, nsScriptSlot* aSlots, nsresult* aRv) {
  nsScriptRuntime* const runtime = nsScriptRuntime::Current();
  JSContext* const cx = runtime->Context();
  JS::RootedObject object(cx, mObject);
  JS::RootedValue self(cx, JS::ObjectValue(*object)), result(cx);
  JS::RootedId name(cx);
  if (!runtime->Names().NameOf(aMember.mName, &name)) return false;
  const std::span<const nsScriptParam> params = aMember.mParams;

  JS::RootedValueVector arguments(cx);
  size_t outs = 0;
  for (size_t i = 0; i < params.size(); ++i) {
    const nsScriptParam& param = params[i];
    if (param.mType == nsScriptType::eContext) continue;
    if (param.mOut && !aSet) {
      outs += !param.mIsLength;
      continue;
    }
    const uint32_t length = param.mRelated >= 0 && param.mCounted
                                ? aSlots[static_cast<size_t>(param.mRelated)].Get<uint32_t>()
                                : 0;
    JS::RootedValue value(cx);
    if (!NS_ToScript(runtime, param, aSlots[i], nullptr, length, &value) ||
        !arguments.append(value))
      return false;
  }

  if (aSet) return JS_SetPropertyById(cx, object, name, arguments[0]);
  if (aMember.mIsAttribute) {
    if (!JS_GetPropertyById(cx, object, name, &result)) return false;
  } else {
    JS::RootedValue function(cx);
    if (aInterface.mFunction && JS::IsCallable(object)) {
      function = self;
      self.setUndefined();
    } else if (!JS_GetPropertyById(cx, object, name, &function)) {
      return false;
    }
    if (function.isNullOrUndefined()) {  // a listener need not care for everything
      *aRv = NS_ERROR_NOT_IMPLEMENTED;
      return true;
    }
    if (!JS::Call(cx, self, function, arguments, &result)) return false;
  }

  // What script answers is checked as strictly as what it gives to compiled code.
  if (outs == 0) return true;
  nsCallFrame frame(params.size());
  const nsPlace place{&aInterface, &aMember, -1};
  for (size_t i = 0; i < params.size(); ++i) {
    const nsScriptParam& param = params[i];
    if (!param.mOut || param.mIsLength) continue;
    JS::RootedValue value(cx, result);
    if (outs > 1) {
      if (!result.isObject())
        return NS_ThrowTypeError(cx, place.Text(param) + ": an object with it is expected, not " +
                                         NS_DescribeValue(cx, result));
      JS::RootedObject fields(cx, &result.toObject());
      JS::RootedId field(cx);
      if (!runtime->Names().NameOf(param.mName, &field) ||
          !JS_GetPropertyById(cx, fields, field, &value))
        return false;
    }
    if (param.mType == nsScriptType::eAnyInterface) {
      auto& held = frame.Hold<nsCOMPtr<nsISupports>>(i);
      const nsIID& iid = *aSlots[static_cast<size_t>(param.mRelated)].Get<const nsIID*>();
      if (!NS_ToNative(runtime, value, iid, place.Text(param), &held)) return false;
      frame.mSlots[i].Set<nsISupports*>(held.get());
    } else if (!NS_FromScript(runtime, value, param, place, frame, i)) {
      return false;
    }
  }
  for (size_t i = 0; i < params.size(); ++i) {
    if (!params[i].mOut || params[i].mIsLength) continue;
    if (!NS_GiveOut(params[i], frame, i, aSlots[i]))
      return NS_ThrowTypeError(cx, place.Text(params[i]) + ": script can't answer an array");
  }
  return true;
}

// Compiled objects in script: wrappers, prototypes, members.
#include <js/CallAndConstruct.h>
#include <js/MemoryFunctions.h>
#include <js/PropertyAndElement.h>
#include <js/Proxy.h>
#include <js/Symbol.h>
#include <js/friend/StackLimits.h>
#include <jsfriendapi.h>

#include <algorithm>

#include "nsConvert.h"
#include "nsIArray.h"
#include "nsIClassInfo.h"
#include "nsIProgrammingLanguage.h"
#include "nsIXPCScriptable.h"
#include "nsScriptErrors.h"
#include "nsScriptRuntime.h"
#include "nsScriptWeakReference.h"
#include "nsScriptedObject.h"
#include "nsXPCOM.h"

namespace {

constexpr size_t kWrapperSlot = 0;

// What the collector is told that an object costs beside itself, so that it runs in time: the
// wrapper, its entry, and a guess at the compiled object.
constexpr size_t kWrapperSize = 512;

void FinalizeWrapper(JS::GCContext*, JSObject* aObject) {
  auto* const wrapper = JS::GetMaybePtrFromReservedSlot<nsWrapper>(aObject, kWrapperSlot);
  if (!wrapper || !nsScriptRuntime::Current()) return;
  JS::RemoveAssociatedMemory(aObject, kWrapperSize, JS::MemoryUse::Embedding1);
  nsScriptRuntime::Current()->Wrappers().Finalize(wrapper);
}

constexpr JSClassOps kWrapperOps = {nullptr, nullptr,         nullptr, nullptr, nullptr,
                                    nullptr, FinalizeWrapper, nullptr, nullptr, nullptr};
constexpr JSClass kWrapperClass = {
    "Object",     JSCLASS_HAS_RESERVED_SLOTS(1) | JSCLASS_FOREGROUND_FINALIZE,
    &kWrapperOps, nullptr,
    nullptr,      nullptr};
const nsScriptMember* MemberOf(const JS::CallArgs& aArgs) {
  return static_cast<const nsScriptMember*>(
      js::GetFunctionNativeReserved(&aArgs.callee(), 0).toPrivate());
}
const nsScriptInterface* InterfaceOf(const JS::CallArgs& aArgs) {
  return static_cast<const nsScriptInterface*>(
      js::GetFunctionNativeReserved(&aArgs.callee(), 1).toPrivate());
}

/// Frees what an operation handed out, on every way out of a call.
class Outs {
 public:
  Outs(std::span<const nsScriptParam> aParams, nsCallFrame& aFrame)
      : mParams(aParams), mFrame(aFrame) {}
  ~Outs() {
    for (size_t i = 0; i < mParams.size(); ++i)
      if (mParams[i].mOut) NS_FreeOut(mParams[i], mFrame.mSlots[i], Length(i));
  }
  uint32_t Length(size_t aIndex) const {
    const nsScriptParam& param = mParams[aIndex];
    return param.mCounted ? mFrame.mSlots[static_cast<size_t>(param.mRelated)].Get<uint32_t>() : 0;
  }

 private:
  const std::span<const nsScriptParam> mParams;
  nsCallFrame& mFrame;
};

enum class Kind { eMethod, eGetter, eSetter };

/// How many bytes or elements an in parameter brings must cover the length that script gives beside
/// it.
bool CheckLengths(JSContext* cx, std::span<const nsScriptParam> aParams, nsCallFrame& aFrame,
                  nsPlace aPlace) {
  for (size_t i = 0; i < aParams.size(); ++i) {
    const nsScriptParam& param = aParams[i];
    aPlace.mArgument += !param.mOut;
    if (param.mOut || !param.mCounted) continue;
    size_t have = 0;
    if (const auto* const bytes = std::get_if<std::vector<std::byte>>(&aFrame.At(i))) {
      have = bytes->size() / NS_NumberSize(param.mType);
    } else if (const auto* const text = std::get_if<std::string>(&aFrame.At(i))) {
      have = text->size();
    }
    const auto related = static_cast<size_t>(param.mRelated);
    // A length that may be negative is the whole text then, up to its zero.
    if (aParams[related].mType == nsScriptType::eInt32 && aFrame.mSlots[related].Get<int32_t>() < 0)
      continue;
    const uint32_t length = aFrame.mSlots[related].Get<uint32_t>();
    if (length > have)
      return NS_ThrowTypeError(cx, aPlace.Text(param) + ": " + std::to_string(length) +
                                       " are to be taken of " + std::to_string(have));
  }
  return true;
}

template <Kind K>
bool CallMember(JSContext* cx, unsigned aArgc, JS::Value* aVp) {
  JS::CallArgs args = JS::CallArgsFromVp(aArgc, aVp);
  nsScriptRuntime* const runtime = nsScriptRuntime::Current();
  const nsScriptMember& member = *MemberOf(args);
  const nsScriptInterface* const table = InterfaceOf(args);
  js::AutoCheckRecursionLimit recursion(cx);
  if (!recursion.check(cx)) return false;
  runtime->DrainGarbage();

  nsWrapper* const wrapper = nsWrappers::Of(args.thisv());
  nsISupports* const self = wrapper ? runtime->Wrappers().Face(wrapper, table) : nullptr;
  nsPlace place{table, &member, 0};
  if (!self)
    return NS_ThrowTypeError(cx, place.Method() + " belongs to objects that implement " +
                                     std::string(table->mName) + ", and was used on " +
                                     NS_DescribeValue(cx, args.thisv()));

  const std::span<const nsScriptParam> params = member.mParams;
  nsCallFrame frame(params.size());
  nsKeptCharacters::CallScope kept;
  if constexpr (K == Kind::eSetter) {
    if (!NS_FromScript(runtime, args.get(0), params[0], place, frame, 0)) return false;
    if (runtime->IsStopping()) return false;  // a trap may have called quit()
    (void)runtime->TakeReason();
    const nsresult rv = member.mSet(self, frame.mSlots);
    if (runtime->IsStopping()) return false;
    if (NS_FAILED(rv)) return NS_ThrowResult(cx, rv, place.Method());
    JS_ClearPendingException(cx);
    args.rval().setUndefined();
    return true;
  }

  unsigned next = 0;
  for (size_t i = 0; i < params.size(); ++i) {
    const nsScriptParam& param = params[i];
    if (param.mOut) {
      NS_PrepareOut(param, frame, i);
      continue;
    }
    if (param.mType == nsScriptType::eContext) {
      frame.mSlots[i].Set(cx);
      continue;
    }
    place.mArgument = static_cast<int>(next + 1);
    if (next >= args.length()) {
      if (param.mOptional) continue;
      return NS_ThrowTypeError(cx, place.Text(param) +
                                       " is missing: " + std::to_string(args.length()) +
                                       (args.length() == 1 ? " was given" : " were given"));
    }
    if (!NS_FromScript(runtime, args[next], param, place, frame, i)) return false;
    ++next;
  }
  place.mArgument = 0;
  if (!CheckLengths(cx, params, frame, place) || runtime->IsStopping()) return false;

  (void)runtime->TakeReason();
  const nsresult rv = member.mCall(self, frame.mSlots);
  if (runtime->IsStopping()) return false;
  if (NS_FAILED(rv)) return NS_ThrowResult(cx, rv, place.Method());
  JS_ClearPendingException(cx);  // of a getter that compiled code chose not to mind

  const Outs outs(params, frame);
  args.rval().setUndefined();
  const auto results = std::count_if(params.begin(), params.end(),
                                     [](const nsScriptParam& p) { return p.mOut && !p.mIsLength; });
  if (results == 0) return true;
  JS::RootedObject object(cx, results > 1 ? JS_NewPlainObject(cx) : nullptr);
  if (results > 1 && !object) return false;
  JS::RootedValue value(cx);
  JS::RootedId name(cx);
  for (size_t i = 0; i < params.size(); ++i) {
    const nsScriptParam& param = params[i];
    if (!param.mOut || param.mIsLength) continue;
    const nsIID* const iid =
        param.mType == nsScriptType::eAnyInterface
            ? frame.mSlots[static_cast<size_t>(param.mRelated)].Get<const nsIID*>()
            : nullptr;
    if (!NS_ToScript(runtime, param, frame.mSlots[i], iid, outs.Length(i), &value)) return false;
    if (results > 1 && (!runtime->Names().NameOf(param.mName, &name) ||
                        !JS_DefinePropertyById(cx, object, name, value, JSPROP_ENUMERATE)))
      return false;
  }
  if (results > 1) value.setObject(*object);
  args.rval().set(value);
  return true;
}

/// The count that a function shows as its length.
unsigned Arity(const nsScriptMember& aMember) {
  return static_cast<unsigned>(
      std::count_if(aMember.mParams.begin(), aMember.mParams.end(), [](const nsScriptParam& p) {
        return !p.mOut && !p.mOptional && p.mType != nsScriptType::eContext;
      }));
}

JSObject* NewMember(JSContext* cx, JSNative aNative, unsigned aArity,
                    const nsScriptInterface* aInterface, const nsScriptMember& aMember) {
  JSFunction* const function =
      js::NewFunctionWithReserved(cx, aNative, aArity, 0, std::string(aMember.mName).c_str());
  if (!function) return nullptr;
  JSObject* const object = JS_GetFunctionObject(function);
  js::SetFunctionNativeReserved(object, 0, JS::PrivateValue(const_cast<nsScriptMember*>(&aMember)));
  js::SetFunctionNativeReserved(object, 1,
                                JS::PrivateValue(const_cast<nsScriptInterface*>(aInterface)));
  return object;
}

bool QueryInterface(JSContext* cx, unsigned aArgc, JS::Value* aVp) {
  JS::CallArgs args = JS::CallArgsFromVp(aArgc, aVp);
  nsScriptRuntime* const runtime = nsScriptRuntime::Current();
  nsWrapper* const wrapper = nsWrappers::Of(args.thisv());
  if (!wrapper)
    return NS_ThrowTypeError(
        cx, "nsISupports.QueryInterface was used on " + NS_DescribeValue(cx, args.thisv()));
  nsID iid;
  if (!runtime->Names().ReadID(args.get(0), &iid))
    return NS_ThrowTypeError(
        cx,
        "nsISupports.QueryInterface: argument 1 (iid): an interface of Components.interfaces, or "
        "an identifier's text is expected, not " +
            NS_DescribeValue(cx, args.get(0)));
  JS::RootedObject object(cx, &args.thisv().toObject());
  bool implements = false;
  const nsScriptInterface* const table = nsScriptTables::Find(iid);
  if (table) {
    if (!runtime->Wrappers().AddFace(object, wrapper, table, &implements)) return false;
  } else {
    nsCOMPtr<nsISupports> found;
    implements = NS_SUCCEEDED(wrapper->mIdentity->QueryInterface(iid, NS_OutVoid(found)));
  }
  if (!implements)
    return NS_ThrowResult(cx, NS_ERROR_NO_INTERFACE, "nsISupports.QueryInterface",
                          table ? std::string(table->mName) : iid.ToString());
  args.rval().setObject(*object);
  return !runtime->IsStopping();
}

bool ToString(JSContext* cx, unsigned aArgc, JS::Value* aVp) {
  JS::CallArgs args = JS::CallArgsFromVp(aArgc, aVp);
  const nsWrapper* const wrapper = nsWrappers::Of(args.thisv());
  JSString* const text =
      NS_NewScriptString(cx, "[object " + (wrapper ? wrapper->mClassName : "nsISupports") + "]");
  if (!text) return false;
  args.rval().setString(text);
  return true;
}

}  // namespace

void nsWrappers::Finalize(nsWrapper* aWrapper) {
  const auto found = mWrappers.find(aWrapper->mIdentity);
  // Between condemnation and this call the object may have been wrapped anew.
  if (found != mWrappers.end() && found->second == aWrapper) mWrappers.erase(found);
  for (const nsWrapper::Face& face : aWrapper->mFaces) mRuntime.ReleaseLater(face.mPointer);
  mRuntime.ReleaseLater(aWrapper->mIdentity);
  delete aWrapper;
}

void nsWrappers::Sweep(JSTracer* aTracer) {
  for (auto& [identity, wrapper] : mWrappers)
    if (wrapper->mObject.unbarrieredGet()) JS_UpdateWeakPointerAfterGC(aTracer, &wrapper->mObject);
}

nsWrapper* nsWrappers::Of(const JS::Value& aValue) {
  JSObject* object = aValue.isObject() ? &aValue.toObject() : nullptr;
  // A list is behind its elements; no other proxy stands for what it is about.
  if (object && js::IsScriptedProxy(object)) {
    const nsScriptRuntime* const runtime = nsScriptRuntime::Current();
    JSObject* const handler = runtime ? runtime->Of(nsScriptRuntime::Tool::eArrayHandler) : nullptr;
    if (handler && js::GetProxyReservedSlot(object, 0) == JS::ObjectValue(*handler))
      object = js::GetProxyTargetObject(object);
  }
  if (!object || JS::GetClass(object) != &kWrapperClass) return nullptr;
  return JS::GetMaybePtrFromReservedSlot<nsWrapper>(object, kWrapperSlot);
}

nsISupports* nsWrappers::Face(nsWrapper* aWrapper, const nsScriptInterface* aInterface) {
  for (const nsWrapper::Face& face : aWrapper->mFaces)
    if (face.mInterface == aInterface) return face.mPointer;
  for (const nsWrapper::Face& face : aWrapper->mFaces)
    if (nsScriptTables::Derives(face.mInterface, aInterface)) return face.mPointer;
  return nullptr;
}

bool nsWrappers::AddFace(JS::HandleObject aObject, nsWrapper* aWrapper,
                         const nsScriptInterface* aInterface, bool* aImplements) {
  *aImplements = true;
  if (Face(aWrapper, aInterface)) return true;
  void* pointer = nullptr;
  if (NS_FAILED(aWrapper->mIdentity->QueryInterface(*aInterface->mIID, &pointer)) || !pointer) {
    *aImplements = false;
    return true;
  }
  // What the new one derives from is seen through it.
  std::erase_if(aWrapper->mFaces, [&](const nsWrapper::Face& aFace) {
    if (!nsScriptTables::Derives(aInterface, aFace.mInterface)) return false;
    mRuntime.ReleaseLater(aFace.mPointer);
    return true;
  });
  aWrapper->mFaces.push_back({aInterface, static_cast<nsISupports*>(pointer)});
  JS::RootedObject prototype(mCx, ShapePrototype(aWrapper->mFaces, aWrapper->mClassName));
  return prototype && JS_SetPrototype(mCx, aObject, prototype);
}

bool nsWrappers::ReadClassInfo(nsISupports* aNative,
                               std::vector<const nsScriptInterface*>* aInterfaces,
                               std::string* aName) {
  const auto info = do_QueryInterface<nsIClassInfo>(aNative);
  if (!info) return false;
  uint32_t count = 0;
  nsIID** iids = nullptr;
  if (NS_SUCCEEDED(info->GetInterfaces(&count, &iids))) {
    for (uint32_t i = 0; i < count; ++i) {
      if (const nsScriptInterface* const table = nsScriptTables::Find(*iids[i]))
        aInterfaces->push_back(table);
      NS_Free(iids[i]);
    }
    NS_Free(iids);
  }
  nsCOMPtr<nsISupports> helper;
  if (NS_SUCCEEDED(info->GetHelperForLanguage(nsIProgrammingLanguage::JAVASCRIPT,
                                              helper.getter_AddRefs()))) {
    char* name = nullptr;
    const auto scriptable = do_QueryInterface<nsIXPCScriptable>(helper);
    if (scriptable && NS_SUCCEEDED(scriptable->GetClassName(&name)) && name) *aName = name;
    NS_Free(name);
  }
  return true;
}

bool nsWrappers::Wrap(nsISupports* aNative, const nsScriptInterface* aInterface,
                      JS::MutableHandleValue aResult) {
  if (!aNative) {
    aResult.setNull();
    return true;
  }
  nsCOMPtr<nsISupports> identity;
  if (NS_FAILED(aNative->QueryInterface(nsISupports::kIID, NS_OutVoid(identity))) || !identity)
    return NS_ThrowTypeError(mCx, "an object was given to script that does not answer nsISupports");
  bool implements = false;
  const auto found = mWrappers.find(identity.get());
  if (found != mWrappers.end()) {
    nsWrapper* const wrapper = found->second;
    JS::RootedObject object(mCx, wrapper->mObject.get());
    if (object) {
      if (aInterface && !AddFace(object, wrapper, aInterface, &implements)) return false;
      aResult.setObject(*object);
      return true;
    }
  } else if (const nsScriptedObject* const scripted = nsScriptedObject::From(identity.get())) {
    if (!scripted->Object()) {
      aResult.setNull();
      return true;
    }
    aResult.setObject(*scripted->Object());
    return true;
  }

  std::vector<const nsScriptInterface*> interfaces;
  std::string name;
  ReadClassInfo(identity.get(), &interfaces, &name);
  if (aInterface) interfaces.push_back(aInterface);
  std::vector<nsWrapper::Face> faces;
  for (const nsScriptInterface* table : interfaces) {
    // What another one derives from is seen through that.
    const auto derives = [&](const nsScriptInterface* aOther) {
      return aOther != table && nsScriptTables::Derives(aOther, table);
    };
    const bool seen = std::any_of(interfaces.begin(), interfaces.end(), derives) ||
                      std::any_of(faces.begin(), faces.end(), [&](const nsWrapper::Face& aFace) {
                        return aFace.mInterface == table;
                      });
    void* pointer = nullptr;
    if (seen || NS_FAILED(identity->QueryInterface(*table->mIID, &pointer)) || !pointer) continue;
    faces.push_back({table, static_cast<nsISupports*>(pointer)});
  }
  if (name.empty()) name = faces.empty() ? "nsISupports" : faces[0].mInterface->mName;
  auto wrapper = std::make_unique<nsWrapper>();
  wrapper->mIdentity = identity.get();
  wrapper->mFaces = std::move(faces);
  wrapper->mClassName = std::move(name);
  identity->AddRef();

  JS::RootedObject prototype(mCx, ShapePrototype(wrapper->mFaces, wrapper->mClassName));
  JS::RootedObject object(
      mCx, prototype ? JS_NewObjectWithGivenProto(mCx, &kWrapperClass, prototype) : nullptr);
  if (!object) {
    for (const nsWrapper::Face& face : wrapper->mFaces) mRuntime.ReleaseLater(face.mPointer);
    mRuntime.ReleaseLater(wrapper->mIdentity);
    return false;
  }
  nsWrapper* const shown = wrapper.get();
  shown->mObject = object;
  mWrappers[shown->mIdentity] = shown;
  JS::SetReservedSlot(object, kWrapperSlot, JS::PrivateValue(wrapper.release()));
  JS::AddAssociatedMemory(object, kWrapperSize, JS::MemoryUse::Embedding1);
  aResult.setObject(*object);
  const bool isList =
      std::any_of(shown->mFaces.begin(), shown->mFaces.end(), [](const nsWrapper::Face& aFace) {
        return nsScriptTables::Derives(aFace.mInterface, nsScriptTables::Find(nsIArray::kIID));
      });
  JSObject* const showArray = mRuntime.Of(nsScriptRuntime::Tool::eShowArray);
  if (!isList || !showArray) return true;
  JS::RootedValue show(mCx, JS::ObjectValue(*showArray));
  if (!JS::Call(mCx, JS::UndefinedHandleValue, show, JS::HandleValueArray(aResult), aResult))
    return false;
  shown->mObject = &aResult.toObject();
  return true;
}

// ---- Prototypes

bool nsWrappers::DefineMembers(JS::HandleObject aPrototype, const nsScriptInterface* aInterface) {
  if (*aInterface->mIID == nsISupports::kIID)
    return JS_DefineFunction(mCx, aPrototype, "QueryInterface", QueryInterface, 1,
                             JSPROP_ENUMERATE) &&
           JS_DefineFunction(mCx, aPrototype, "toString", ToString, 0, 0);
  JS::RootedId name(mCx);
  for (const nsScriptMember& member : aInterface->mMembers) {
    if (!mRuntime.Names().NameOf(member.mName, &name)) return false;
    if (!member.mIsAttribute) {
      JS::RootedObject method(
          mCx, NewMember(mCx, CallMember<Kind::eMethod>, Arity(member), aInterface, member));
      if (!method || !JS_DefinePropertyById(mCx, aPrototype, name, method, JSPROP_ENUMERATE))
        return false;
      continue;
    }
    JS::RootedObject getter(mCx, NewMember(mCx, CallMember<Kind::eGetter>, 0, aInterface, member));
    JS::RootedObject setter(
        mCx,
        member.mSet ? NewMember(mCx, CallMember<Kind::eSetter>, 1, aInterface, member) : nullptr);
    if (!getter || (member.mSet && !setter) ||
        !JS_DefinePropertyById(mCx, aPrototype, name, getter, setter, JSPROP_ENUMERATE))
      return false;
  }
  return mRuntime.Names().DefineInterfaceConstants(aPrototype, aInterface);
}

JSObject* nsWrappers::Prototype(const nsScriptInterface* aInterface) {
  const auto found = mPrototypes.find(aInterface);
  if (found != mPrototypes.end()) return found->second;
  JS::RootedObject parent(mCx);
  if (const nsScriptInterface* const base = nsScriptTables::Parent(*aInterface)) {
    parent = Prototype(base);
    if (!parent) return nullptr;
  } else {
    parent = JS::GetRealmObjectPrototype(mCx);
  }
  JS::RootedObject prototype(mCx, JS_NewObjectWithGivenProto(mCx, nullptr, parent));
  if (!prototype || !DefineMembers(prototype, aInterface)) return nullptr;
  mPrototypes.try_emplace(aInterface, mCx, prototype);
  return prototype;
}

// One of two members of a name is not to be reached, and whoever misses it should know.
void nsWrappers::TellHidden(JS::HandleId aId, const std::vector<nsWrapper::Face>& aFaces,
                            size_t aFace, const std::string& aName) {
  const auto owner = [&](const nsWrapper::Face& aSeen) -> const nsScriptInterface* {
    for (const nsScriptInterface* level = aSeen.mInterface;
         level && *level->mIID != nsISupports::kIID; level = nsScriptTables::Parent(*level))
      for (const nsScriptMember& member : level->mMembers) {
        JS::RootedId id(mCx);
        if (mRuntime.Names().NameOf(member.mName, &id) && id.get() == aId.get()) return level;
      }
    return nullptr;
  };
  const nsScriptInterface* const hidden = owner(aFaces[aFace]);
  for (size_t i = 0; hidden && i < aFace; ++i) {
    const nsScriptInterface* const shown = owner(aFaces[i]);
    if (!shown || shown == hidden) continue;
    const nsScriptOutput::Scope output(mRuntime.Output());
    fprintf(stderr, "vorel: %s: %s.%s hides the member of this name of %s\n", aName.c_str(),
            std::string(shown->mName).c_str(), NS_Text(mCx, aId.toString()).c_str(),
            std::string(hidden->mName).c_str());
    return;
  }
}

JSObject* nsWrappers::ShapePrototype(const std::vector<nsWrapper::Face>& aFaces,
                                     const std::string& aName) {
  std::string key = aName;
  for (const nsWrapper::Face& face : aFaces) (key += '/') += face.mInterface->mName;
  const auto found = mShapes.find(key);
  if (found != mShapes.end()) return found->second;

  // The first interface is the prototype's own prototype; members of the others are copied in,
  // unless there is one of the name already.
  JS::RootedObject first(mCx, Prototype(aFaces.empty() ? nsScriptTables::Find(nsISupports::kIID)
                                                       : aFaces[0].mInterface));
  JS::RootedObject prototype(mCx,
                             first ? JS_NewObjectWithGivenProto(mCx, nullptr, first) : nullptr);
  if (!prototype) return nullptr;
  for (size_t i = 1; i < aFaces.size(); ++i) {
    for (const nsScriptInterface* level = aFaces[i].mInterface;
         level && *level->mIID != nsISupports::kIID; level = nsScriptTables::Parent(*level)) {
      JS::RootedObject from(mCx, Prototype(level));
      JS::RootedIdVector ids(mCx);
      if (!from ||
          !js::GetPropertyKeys(mCx, from, JSITER_OWNONLY | JSITER_HIDDEN | JSITER_SYMBOLS, &ids))
        return nullptr;
      for (size_t k = 0; k < ids.length(); ++k) {
        JS::RootedId id(mCx, ids[k]);
        bool has = false;
        if (!JS_HasPropertyById(mCx, prototype, id, &has)) return nullptr;
        JS::Rooted<mozilla::Maybe<JS::PropertyDescriptor>> descriptor(mCx);
        if (has) {
          TellHidden(id, aFaces, i, aName);
          continue;
        }
        if (!JS_GetOwnPropertyDescriptorById(mCx, from, id, &descriptor)) return nullptr;
        JS::Rooted<JS::PropertyDescriptor> own(mCx, *descriptor);
        if (!JS_DefinePropertyById(mCx, prototype, id, own)) return nullptr;
      }
    }
  }
  JS::RootedString tag(mCx, NS_NewScriptString(mCx, aName));
  JS::RootedId tagId(mCx, JS::GetWellKnownSymbolKey(mCx, JS::SymbolCode::toStringTag));
  if (!tag || !JS_DefinePropertyById(mCx, prototype, tagId, tag, JSPROP_READONLY)) return nullptr;
  JS::RootedValue constructor(mCx);
  if (!NS_FindGlobalClass(mCx, aName, &constructor)) JS_ClearPendingException(mCx);
  if (constructor.isObject() && !JS_DefineProperty(mCx, prototype, "constructor", constructor, 0))
    return nullptr;
  mShapes.try_emplace(key, mCx, prototype);
  return prototype;
}

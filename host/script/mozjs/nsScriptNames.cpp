#include "nsScriptNames.h"

#include <js/PropertyAndElement.h>
#include <js/Symbol.h>
#include <jsfriendapi.h>

#include "nsConvert.h"
#include "nsScriptErrors.h"
#include "nsScriptRuntime.h"

namespace {

constexpr size_t kNameSlot = 0;

constexpr JSClass kInterfaceClass = {
    "Interface", JSCLASS_HAS_RESERVED_SLOTS(1), nullptr, nullptr, nullptr, nullptr};

/// `x instanceof name`. An object that implements the interface shows its members from then on.
bool HasInstance(JSContext* cx, unsigned aArgc, JS::Value* aVp) {
  JS::CallArgs args = JS::CallArgsFromVp(aArgc, aVp);
  nsScriptRuntime* const runtime = nsScriptRuntime::Current();
  const auto* const name =
      static_cast<nsNamedInterface*>(js::GetFunctionNativeReserved(&args.callee(), 0).toPrivate());
  args.rval().setBoolean(false);
  nsWrapper* const wrapper = nsWrappers::Of(args.get(0));
  if (!wrapper) return true;
  JS::RootedObject object(cx, &args[0].toObject());
  for (const nsIID& iid : name->mIIDs) {
    bool implements = false;
    if (const nsScriptInterface* const table = nsScriptTables::Find(iid)) {
      if (!runtime->Wrappers().AddFace(object, wrapper, table, &implements)) return false;
    } else {
      nsCOMPtr<nsISupports> found;
      implements = NS_SUCCEEDED(wrapper->mIdentity->QueryInterface(iid, NS_OutVoid(found)));
    }
    if (implements) args.rval().setBoolean(true);
  }
  return !runtime->IsStopping();
}

}  // namespace

bool nsScriptNames::NameOf(std::string_view aName, JS::MutableHandleId aResult) {
  auto found = mProperties.find(aName.data());
  if (found == mProperties.end()) {
    JSString* const text = JS_AtomizeAndPinStringN(mCx, aName.data(), aName.size());
    if (!text) return false;
    found = mProperties.emplace(aName.data(), JS::PropertyKey::fromPinnedString(text)).first;
  }
  aResult.set(found->second);
  return true;
}

bool nsScriptNames::DefineInterfaceConstants(JS::HandleObject aObject,
                                             const nsScriptInterface* aInterface) {
  for (const nsScriptConstant& constant : aInterface->mConstants) {
    JS::RootedValue value(mCx, JS_NumberValue(static_cast<double>(constant.mValue)));
    if (!JS_DefineProperty(mCx, aObject, std::string(constant.mName).c_str(), value,
                           JSPROP_ENUMERATE | JSPROP_READONLY | JSPROP_PERMANENT))
      return false;
  }
  return true;
}

bool nsScriptNames::DefineHasInstance(JS::HandleObject aObject, nsNamedInterface* aName) {
  JSFunction* const function =
      js::NewFunctionWithReserved(mCx, HasInstance, 1, 0, "[Symbol.hasInstance]");
  if (!function) return false;
  JS::RootedObject object(mCx, JS_GetFunctionObject(function));
  js::SetFunctionNativeReserved(object, 0, JS::PrivateValue(aName));
  JS::RootedId id(mCx, JS::GetWellKnownSymbolKey(mCx, JS::SymbolCode::hasInstance));
  return JS_DefinePropertyById(mCx, aObject, id, object, JSPROP_READONLY);
}

JSObject* nsScriptNames::InterfaceObject(const nsScriptInterface* aInterface) {
  const auto found = mInterfaceObjects.find(aInterface);
  if (found != mInterfaceObjects.end()) return found->second;
  nsNamedInterface* const name = NewName();
  name->mName = aInterface->mName;
  name->mIIDs = {*aInterface->mIID};
  JS::RootedObject object(mCx, JS_NewObject(mCx, &kInterfaceClass));
  JS::RootedString nameString(mCx, NS_NewScriptString(mCx, aInterface->mName));
  JS::RootedString number(mCx, NS_NewScriptString(mCx, aInterface->mIID->ToString()));
  JS::RootedObject prototype(mCx, mRuntime.Wrappers().Prototype(aInterface));
  if (!object || !nameString || !number || !prototype) return nullptr;
  JS::SetReservedSlot(object, kNameSlot, JS::PrivateValue(name));
  if (!JS_DefineProperty(mCx, object, "name", nameString, JSPROP_READONLY) ||
      !JS_DefineProperty(mCx, object, "number", number, JSPROP_READONLY) ||
      !JS_DefineProperty(mCx, object, "prototype", prototype, JSPROP_READONLY) ||
      !DefineHasInstance(object, name))
    return nullptr;
  for (const nsScriptInterface* level = aInterface; level; level = nsScriptTables::Parent(*level))
    if (!DefineInterfaceConstants(object, level)) return nullptr;
  mInterfaceObjects.try_emplace(aInterface, mCx, object);
  return object;
}

bool nsScriptNames::ReadID(JS::HandleValue aValue, nsID* aResult) {
  if (aValue.isString()) return nsID::Parse(NS_Text(mCx, aValue.toString()), aResult);
  if (!aValue.isObject()) return false;
  JS::RootedObject object(mCx, &aValue.toObject());
  if (JS::GetClass(object) == &kInterfaceClass) {
    *aResult = JS::GetMaybePtrFromReservedSlot<nsNamedInterface>(object, kNameSlot)->mIIDs[0];
    return true;
  }
  // A global name: what tells whether it is an instance knows the identifiers.
  JS::RootedId id(mCx, JS::GetWellKnownSymbolKey(mCx, JS::SymbolCode::hasInstance));
  JS::RootedValue test(mCx);
  bool own = false;
  if (!JS_HasOwnPropertyById(mCx, object, id, &own) || !own ||
      !JS_GetPropertyById(mCx, object, id, &test)) {
    JS_ClearPendingException(mCx);
    return false;
  }
  if (!test.isObject() || !JS_IsNativeFunction(&test.toObject(), HasInstance)) return false;
  const auto* const name = static_cast<nsNamedInterface*>(
      js::GetFunctionNativeReserved(&test.toObject(), 0).toPrivate());
  if (name->mIIDs.empty()) return false;  // it makes objects, of no interface in particular
  *aResult = name->mIIDs[0];
  return true;
}

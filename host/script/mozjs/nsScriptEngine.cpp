// The plain C functions of the engine. jsapi.h has C++ functions of some of these names with other
// parameters; being of another language linkage, they live side by side.
#include "nsScriptEngine.h"

#include <js/Conversions.h>
#include <js/PropertyAndElement.h>
#include <jsapi.h>

#include <bit>

#include "nsKeptCharacters.h"
#include "nsScriptErrors.h"
#include "nsScriptRuntime.h"
#include "nsVorelMethodCaller.h"

static_assert(sizeof(jsval) == sizeof(JS::Value));

namespace {
JS::Value FromPlain(jsval aValue) { return JS::Value::fromRawBits(aValue.mBits); }
jsval ToPlain(const JS::Value& aValue) { return {aValue.asRawBits()}; }
/// After quit() no getter and no toString runs.
bool IsStopping() { return nsScriptRuntime::Current() && nsScriptRuntime::Current()->IsStopping(); }
}  // namespace

int32_t JS_TypeOfValue(JSContext* cx, jsval aValue) {
  JS::RootedValue value(cx, FromPlain(aValue));
  switch (::JS_TypeOfValue(cx, JS::HandleValue(value))) {
    case JSTYPE_UNDEFINED:
      return JSTYPE_OF_VOID;
    case JSTYPE_OBJECT:
      return value.isNull() ? JSTYPE_OF_NULL : JSTYPE_OF_OBJECT;
    case JSTYPE_FUNCTION:
      return JSTYPE_OF_FUNCTION;
    case JSTYPE_STRING:
      return JSTYPE_OF_STRING;
    case JSTYPE_NUMBER:
      return JSTYPE_OF_NUMBER;
    case JSTYPE_BOOLEAN:
      return JSTYPE_OF_BOOLEAN;
    default:
      return JSTYPE_OF_OTHER;
  }
}

JSString* JS_ValueToString(JSContext* cx, jsval aValue) {
  if (IsStopping()) return nullptr;
  JS::RootedValue value(cx, FromPlain(aValue));
  return JS::ToString(cx, value);
}

const char16_t* JS_GetStringCharsZAndLength(JSContext* cx, JSString* aString, size_t* aLength) {
  return nsKeptCharacters::Keep(cx, aString, aLength);
}

int JS_GetProperty(JSContext* cx, JSObject* aObject, const char* aName, jsval* aValue) {
  if (IsStopping()) return 0;
  JS::RootedObject object(cx, aObject);
  JS::RootedValue value(cx);
  if (!::JS_GetProperty(cx, JS::HandleObject(object), aName, JS::MutableHandleValue(&value)))
    return 0;
  *aValue = ToPlain(value);
  return 1;
}

int JS_ValueToBoolean(JSContext* cx, jsval aValue, int* aBoolean) {
  JS::RootedValue value(cx, FromPlain(aValue));
  *aBoolean = JS::ToBoolean(value);
  return 1;
}

int JS_ValueToObject(JSContext*, jsval aValue, JSObject** aObject) {
  const JS::Value value = FromPlain(aValue);
  if (!value.isObject() && !value.isNullOrUndefined()) return 0;
  *aObject = value.isObject() ? &value.toObject() : nullptr;
  return 1;
}

void JS_ExplainFailure(const char* aText) {
  nsScriptRuntime* const runtime = nsScriptRuntime::Current();
  if (runtime && NS_IsMainThread()) runtime->SetReason(aText);
}

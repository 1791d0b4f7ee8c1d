// The functions of the script engine that compiled components call: plain C, of the host, over
// whatever engine it has. Nothing else of the engine is seen outside the host's bridge.
//
// All run on the main thread, inside a call that script made or with a context that the host gave.
// A value or string that they hand out is kept alive by the object it came from or by the caller's
// arguments; who keeps one beyond the call keeps nothing.
#pragma once

#include "nsXPCOMTypes.h"

/// What JS_TypeOfValue answers.
enum : int32_t {
  JSTYPE_OF_VOID = 0,
  JSTYPE_OF_OBJECT = 1,
  JSTYPE_OF_FUNCTION = 2,
  JSTYPE_OF_STRING = 3,
  JSTYPE_OF_NUMBER = 4,
  JSTYPE_OF_BOOLEAN = 5,
  JSTYPE_OF_NULL = 6,
  /// Symbols and big integers, which callers need not tell apart.
  JSTYPE_OF_OTHER = 8,
};

#pragma GCC visibility push(default)
extern "C" {

/// The kind of a value; null and functions have kinds of their own.
int32_t JS_TypeOfValue(JSContext* cx, jsval aValue);
/// The value as a string, by the rules of the language: an object's toString is called. Null when
/// that throws; the exception is then pending in the context.
JSString* JS_ValueToString(JSContext* cx, jsval aValue);
/// The characters, closed by a zero, and their number. They stay until the outermost call of script
/// into compiled code returns. Null when memory is out.
const char16_t* JS_GetStringCharsZAndLength(JSContext* cx, JSString* aString, size_t* aLength);
/// 1 and the value of a property, which may run a getter; undefined for one that is missing. 0 when
/// the getter throws; the exception is then pending in the context, and *aValue untouched.
int JS_GetProperty(JSContext* cx, JSObject* aObject, const char* aName, jsval* aValue);
/// 1 and whether the value counts as true. Never fails.
int JS_ValueToBoolean(JSContext* cx, jsval aValue, int* aBoolean);
/// 1 and the object of a value that is one, 1 and null for null and undefined. 0 for any other
/// value: no wrapper objects are made, and no exception is left.
int JS_ValueToObject(JSContext* cx, jsval aValue, JSObject** aObject);

/// What the exception says of the failure that the running call from script is about to answer,
/// beside the result's name. Nothing happens on another thread than the main one, and when no
/// script runs.
void JS_ExplainFailure(const char* aText);

/// The time zone of the system has changed: Date sees the new one from then on. The context may be
/// null; nothing happens when no script runs.
void JS_ClearDateCaches(JSContext* cx);

}  // extern "C"
#pragma GCC visibility pop

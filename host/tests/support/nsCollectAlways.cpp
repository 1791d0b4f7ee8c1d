// Loaded before the engine: the collector runs before and after each entry into script, and at some
// of the places where compiled code allocates. Whatever is not held shows where it is used.
#include <dlfcn.h>
#include <js/CallAndConstruct.h>
#include <js/GCAPI.h>
#include <js/PropertyAndElement.h>
#include <jsapi.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace {

using JS::HandleId;
using JS::HandleObject;
using JS::HandleValue;
using JS::HandleValueArray;
using JS::MutableHandleObject;
using JS::MutableHandleValue;

/// The function of the engine that the one here stands before: of the same name.
template <class F>
F* Engine(F* aHere) {
  Dl_info info;
  void* const next = dladdr(reinterpret_cast<void*>(aHere), &info) && info.dli_sname
                         ? dlsym(RTLD_NEXT, info.dli_sname)
                         : nullptr;
  if (!next) {
    fputs("the engine lacks a function\n", stderr);
    abort();
  }
  return reinterpret_cast<F*>(next);
}

template <auto kHere, class... P>
auto Around(JSContext* cx, P&&... aArguments) {
  static const auto real = Engine(kHere);
  JS_GC(cx);
  const auto result = real(cx, std::forward<P>(aArguments)...);
  JS_GC(cx);
  return result;
}

/// What is called often collects at each 16th call.
template <auto kHere, class... P>
auto Before(JSContext* cx, P&&... aArguments) {
  static const auto real = Engine(kHere);
  static unsigned calls = 0;
  if (++calls % 16 == 0) JS_GC(cx);
  return real(cx, std::forward<P>(aArguments)...);
}

template <class... P>
using Function = bool (*)(JSContext*, P...);

}  // namespace

bool JS::Call(JSContext* cx, HandleValue aThis, HandleValue aFunction,
              const HandleValueArray& aArgs, MutableHandleValue aResult) {
  using F = Function<HandleValue, HandleValue, const HandleValueArray&, MutableHandleValue>;
  return Around<static_cast<F>(&JS::Call)>(cx, aThis, aFunction, aArgs, aResult);
}

bool JS::Construct(JSContext* cx, HandleValue aFunction, const HandleValueArray& aArgs,
                   MutableHandleObject aResult) {
  using F = Function<HandleValue, const HandleValueArray&, MutableHandleObject>;
  return Around<static_cast<F>(&JS::Construct)>(cx, aFunction, aArgs, aResult);
}

bool JS_CallFunctionValue(JSContext* cx, HandleObject aThis, HandleValue aFunction,
                          const HandleValueArray& aArgs, MutableHandleValue aResult) {
  return Around<&JS_CallFunctionValue>(cx, aThis, aFunction, aArgs, aResult);
}

// Getters and traps are entries, too.
bool JS_GetProperty(JSContext* cx, HandleObject aObject, const char* aName,
                    MutableHandleValue aResult) {
  return Around<&JS_GetProperty>(cx, aObject, aName, aResult);
}

bool JS_GetPropertyById(JSContext* cx, HandleObject aObject, HandleId aId,
                        MutableHandleValue aResult) {
  return Before<&JS_GetPropertyById>(cx, aObject, aId, aResult);
}

bool JS_DefinePropertyById(JSContext* cx, HandleObject aObject, HandleId aId, HandleValue aValue,
                           unsigned aAttributes) {
  using F = Function<HandleObject, HandleId, HandleValue, unsigned>;
  return Before<static_cast<F>(&JS_DefinePropertyById)>(cx, aObject, aId, aValue, aAttributes);
}

JSObject* JS_NewPlainObject(JSContext* cx) { return Before<&JS_NewPlainObject>(cx); }

JSObject* JS_NewObjectWithGivenProto(JSContext* cx, const JSClass* aClass, HandleObject aProto) {
  return Before<&JS_NewObjectWithGivenProto>(cx, aClass, aProto);
}

JSString* JS_NewStringCopyN(JSContext* cx, const char* aText, size_t aLength) {
  return Before<&JS_NewStringCopyN>(cx, aText, aLength);
}

JSString* JS_NewUCStringCopyN(JSContext* cx, const char16_t* aText, size_t aLength) {
  return Before<&JS_NewUCStringCopyN>(cx, aText, aLength);
}

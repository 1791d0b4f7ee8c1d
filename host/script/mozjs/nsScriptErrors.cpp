#include "nsScriptErrors.h"

#include <js/CharacterEncoding.h>
#include <js/Conversions.h>
#include <js/ErrorReport.h>
#include <js/Exception.h>
#include <js/PropertyAndElement.h>
#include <js/SavedFrameAPI.h>
#include <js/Stack.h>
#include <js/String.h>
#include <js/friend/ErrorMessages.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "nsScriptRuntime.h"
#include "nsString.h"
#include "nsUtf.h"

namespace {

// The engine's own script, forEach and the like, is no place for an error.
constexpr auto kNoSelfHosted = JS::SavedFrameSelfHosted::Exclude;

/// Leaves the part of a stack that begins in the application: what the prelude does, it does in its
/// caller's name.
void SkipPrelude(JSContext* cx, JS::MutableHandleObject aStack) {
  JS::RootedString source(cx);
  bool prelude = true;
  while (aStack &&
         JS::GetSavedFrameSource(cx, nullptr, aStack, &source, kNoSelfHosted) ==
             JS::SavedFrameResult::Ok &&
         JS_StringEqualsAscii(cx, source, kScriptPreludeName, &prelude) && prelude)
    if (JS::GetSavedFrameParent(cx, nullptr, aStack, aStack, kNoSelfHosted) !=
        JS::SavedFrameResult::Ok)
      return;
}

/// An error object of the kind, made where script stands now.
bool NewError(JSContext* cx, JSExnType aType, const std::string& aMessage,
              JS::MutableHandleValue aError) {
  JS::RootedString message(cx, NS_NewScriptString(cx, aMessage));
  JS::RootedObject stack(cx);
  if (!message || !JS::CaptureCurrentStack(cx, &stack)) return false;
  SkipPrelude(cx, &stack);
  JS::RootedString file(cx, JS_GetEmptyString(cx));
  uint32_t line = 0, column = 0;
  if (stack) {
    (void)JS::GetSavedFrameSource(cx, nullptr, stack, &file, kNoSelfHosted);
    (void)JS::GetSavedFrameLine(cx, nullptr, stack, &line, kNoSelfHosted);
    (void)JS::GetSavedFrameColumn(cx, nullptr, stack, &column, kNoSelfHosted);
  }
  JS::Rooted<mozilla::Maybe<JS::Value>> cause(cx, mozilla::Nothing());
  return JS::CreateError(cx, aType, stack, file, line, column, nullptr, message, cause, aError);
}

/// Ended by quit(): what is thrown now could be caught.
bool IsStopping() { return nsScriptRuntime::Current() && nsScriptRuntime::Current()->IsStopping(); }

bool Throw(JSContext* cx, JSExnType aType, const std::string& aMessage) {
  JS::RootedValue error(cx);
  if (IsStopping()) return false;
  if (NewError(cx, aType, aMessage, &error)) JS_SetPendingException(cx, error);
  return false;
}

}  // namespace

bool NS_ThrowTypeError(JSContext* cx, const std::string& aMessage) {
  return Throw(cx, JSEXN_TYPEERR, aMessage);
}

bool NS_ThrowError(JSContext* cx, const std::string& aMessage) {
  return Throw(cx, JSEXN_ERR, aMessage);
}

bool NS_ThrowResult(JSContext* cx, nsresult aResult, const std::string& aMethod,
                    const std::string& aDetail) {
  if (JS_IsExceptionPending(cx) || IsStopping()) return false;
  char code[16];
  snprintf(code, sizeof code, "0x%08x", static_cast<unsigned>(aResult));
  const std::string_view known = NS_ResultName(aResult);
  const std::string name(known.empty() ? code : known);
  // The text of an error begins with its name.
  std::string message = aMethod;
  if (!message.empty() && !known.empty()) message += std::string(" (") + code + ")";
  const std::string reason = nsScriptRuntime::Current()->TakeReason();
  for (const std::string& part : {aDetail, reason})
    if (!part.empty()) message += (message.empty() ? "" : ": ") + part;
  JS::RootedValue error(cx);
  if (!NewError(cx, JSEXN_ERR, message, &error)) return false;
  JS::RootedObject object(cx, &error.toObject());
  JS::RootedString nameString(cx, NS_NewScriptString(cx, name));
  JS::RootedString method(cx, NS_NewScriptString(cx, aMethod));
  JS::RootedValue result(cx, JS::NumberValue(static_cast<uint32_t>(aResult)));
  if (!nameString || !method ||
      !JS_DefineProperty(cx, object, "result", result, JSPROP_ENUMERATE) ||
      !JS_DefineProperty(cx, object, "name", nameString, JSPROP_ENUMERATE) ||
      !JS_DefineProperty(cx, object, "method", method, JSPROP_ENUMERATE))
    return false;
  JS_SetPendingException(cx, error);
  return false;
}

std::string NS_DescribeValue(JSContext* cx, JS::HandleValue aValue) {
  if (aValue.isUndefined()) return "undefined";
  if (aValue.isNull()) return "null";
  if (aValue.isBoolean()) return aValue.toBoolean() ? "true" : "false";
  if (aValue.isNumber()) return "the number " + NS_ToText(cx, aValue);
  if (aValue.isBigInt()) return "the number " + NS_ToText(cx, aValue) + "n";
  if (aValue.isString()) {
    const std::string text = NS_Text(cx, aValue.toString());
    return text.size() <= 40 ? "the string \"" + text + "\"" : "a string";
  }
  if (aValue.isSymbol()) return "a symbol";
  return JS::IsCallable(&aValue.toObject()) ? "a function" : "an object";
}

std::string NS_Text(JSContext* cx, JSString* aString) {
  JS::RootedString string(cx, aString);
  std::u16string chars(JS_GetStringLength(string), u'\0');
  if (!JS_CopyStringChars(cx, mozilla::Range<char16_t>(chars.data(), chars.size()), string)) {
    JS_ClearPendingException(cx);
    return {};
  }
  return NS_ToUtf8(std::u16string_view(chars));
}

std::string NS_ToText(JSContext* cx, JS::HandleValue aValue) {
  JS::RootedString string(cx, JS::ToString(cx, aValue));
  if (string) return NS_Text(cx, string);
  JS_ClearPendingException(cx);
  return "a value that has no text";
}

JSString* NS_NewScriptString(JSContext* cx, std::string_view aUtf8) {
  if (std::all_of(aUtf8.begin(), aUtf8.end(),
                  [](char c) { return static_cast<unsigned char>(c) < 0x80; }))
    return JS_NewStringCopyN(cx, aUtf8.data(), aUtf8.size());
  const std::u16string wide = vorel::NameToUtf16(aUtf8);
  return JS_NewUCStringCopyN(cx, wide.data(), wide.size());
}

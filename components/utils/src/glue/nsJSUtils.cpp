#include "nsJSUtils.h"

#include "nsDebug.h"
#include "nsScriptEngine.h"

namespace nsJSUtils {

nsresult ReadString(JSContext* cx, jsval aValue, nsDependentString& aResult) {
  JSString* const str = JS_ValueToString(cx, aValue);
  NS_ENSURE_TRUE(str, NS_ERROR_XPC_BAD_CONVERT_JS);
  size_t length = 0;
  const char16_t* const chars = JS_GetStringCharsZAndLength(cx, str, &length);
  if (!chars) return NS_ERROR_FAILURE;
  aResult.Rebind({chars, length});
  return NS_OK;
}

nsresult ReadStringProperty(JSContext* cx, JSObject* aObject, const char* aName,
                            nsDependentString& aResult) {
  jsval value;
  if (!JS_GetProperty(cx, aObject, aName, &value) || JS_TypeOfValue(cx, value) != JSTYPE_OF_STRING)
    return NS_ERROR_FAILURE;
  return ReadString(cx, value, aResult);
}

nsresult ReadBooleanProperty(JSContext* cx, JSObject* aObject, const char* aName, bool* aResult) {
  jsval value;
  int boolean;
  if (!JS_GetProperty(cx, aObject, aName, &value) ||
      JS_TypeOfValue(cx, value) != JSTYPE_OF_BOOLEAN || !JS_ValueToBoolean(cx, value, &boolean))
    return NS_ERROR_FAILURE;
  *aResult = boolean != 0;
  return NS_OK;
}

}  // namespace nsJSUtils

// Readers of script values. Script's thread only.
#pragma once

#include "nsString.h"
#include "nsXPCOMTypes.h"

namespace nsJSUtils {

/// The value as a string; one that is none is converted by the rules of the language. The result is
/// a view of the script's own characters, valid as long as the script string is.
/// NS_ERROR_XPC_BAD_CONVERT_JS when the conversion throws, NS_ERROR_FAILURE when the characters are
/// not to be had.
nsresult ReadString(JSContext* cx, jsval aValue, nsDependentString& aResult);

/// The same for a property that holds a string. NS_ERROR_FAILURE, and aResult untouched, when it
/// can't be read or holds anything else: nothing is converted.
nsresult ReadStringProperty(JSContext* cx, JSObject* aObject, const char* aName,
                            nsDependentString& aResult);

/// A property that holds a boolean. NS_ERROR_FAILURE, and *aResult untouched, when it can't be read
/// or holds anything else.
nsresult ReadBooleanProperty(JSContext* cx, JSObject* aObject, const char* aName, bool* aResult);

}  // namespace nsJSUtils

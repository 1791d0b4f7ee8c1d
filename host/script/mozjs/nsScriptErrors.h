// Exceptions for script.
#pragma once

#include <jsapi.h>

#include <string>

#include "nsError.h"
#include "nsScriptTable.h"

/// Throws a TypeError. Always false.
bool NS_ThrowTypeError(JSContext* cx, const std::string& aMessage);
/// Throws an Error. Always false.
bool NS_ThrowError(JSContext* cx, const std::string& aMessage);
/// Throws an Error with `result`, `name` and `method`; keeps an exception that is pending already.
/// Always false.
bool NS_ThrowResult(JSContext* cx, nsresult aResult, const std::string& aMethod,
                    const std::string& aDetail = {});
/// "the number 1.5", "null", "an object": for messages.
std::string NS_DescribeValue(JSContext* cx, JS::HandleValue aValue);
/// UTF-8; lone surrogates become U+FFFD. Empty, with no exception, when memory is out.
std::string NS_Text(JSContext* cx, JSString* aString);
std::string NS_ToText(JSContext* cx, JS::HandleValue aValue);
JSString* NS_NewScriptString(JSContext* cx, std::string_view aUtf8);

#include "nsConvert.h"

#include <js/Array.h>
#include <js/BigInt.h>
#include <js/Conversions.h>
#include <js/String.h>

#include <algorithm>
#include <cmath>

#include "nsIArray.h"
#include "nsIMutableArray.h"
#include "nsScriptErrors.h"
#include "nsScriptedObject.h"
#include "nsServices.h"
#include "nsUtf.h"
#include "nsXPCOM.h"

std::string nsPlace::Method() const {
  return std::string(mInterface->mName) + "." + std::string(mMember->mName);
}

std::string nsPlace::Text(const nsScriptParam& aParam) const {
  std::string text = Method();
  if (mArgument > 0) text += ": argument " + std::to_string(mArgument);
  if (mArgument < 0) text += ": what script answered";
  if (!mMember->mIsAttribute) text += " (" + std::string(aParam.mName) + ")";
  return text;
}

namespace {

bool Refuse(JSContext* cx, const std::string& aPlace, const std::string& aExpected,
            JS::HandleValue aValue) {
  return NS_ThrowTypeError(
      cx, aPlace + ": " + aExpected + " is expected, not " + NS_DescribeValue(cx, aValue));
}

/// What messages call the values of a type.
std::string Expected(const nsScriptParam& aParam) {
  using enum nsScriptType;
  switch (aParam.mType) {
    case eBool:
      return "a boolean";
    case eInt8:
      return "a whole number from -128 to 127";
    case eUint8:
      return "a whole number from 0 to 255";
    case eInt16:
      return "a whole number from -32768 to 32767";
    case eUint16:
      return "a whole number from 0 to 65535";
    case eInt32:
      return "a whole number from -2147483648 to 2147483647";
    case eUint32:
      return "a whole number from 0 to 4294967295";
    case eInt64:
      return "a whole number or BigInt of 64 bits";
    case eUint64:
      return "a whole number or BigInt from 0, of 64 bits";
    case eResult:
      return "a result code";
    case eFloat:
    case eDouble:
      return "a number";
    case eString:
    case eCString:
      return "a string";
    case eChars:
    case eWideChars:
      return aParam.mCounted ? "a string of bytes" : "a string or null";
    case eID:
      return "an interface of Components.interfaces, or an identifier's text";
    case eInterface:
      return "an object that implements " + std::string(aParam.mInterface);
    default:
      return "another value";
  }
}

template <class T>
bool ReadInteger(JS::HandleValue aValue, nsScriptSlot& aSlot) {
  if (aValue.isInt32() && std::in_range<T>(aValue.toInt32())) {
    aSlot.Set(static_cast<T>(aValue.toInt32()));
    return true;
  }
  if constexpr (sizeof(T) == 8) {
    if (aValue.isBigInt()) {
      T value;
      if (!JS::BigIntFits(aValue.toBigInt(), &value)) return false;
      aSlot.Set(value);
      return true;
    }
  }
  if (!aValue.isDouble()) return false;
  const double number = aValue.toDouble();
  // Beyond 2^53 a number is not exact any more, so that it can't be meant.
  constexpr double kExact = 9007199254740991.0;
  constexpr double kLow = sizeof(T) == 8 ? (std::signed_integral<T> ? -kExact : 0)
                                         : double(std::numeric_limits<T>::min());
  constexpr double kHigh = sizeof(T) == 8 ? kExact : double(std::numeric_limits<T>::max());
  if (!(number >= kLow && number <= kHigh) || number != std::trunc(number)) return false;
  aSlot.Set(static_cast<T>(number));
  return true;
}

bool ReadNumber(JS::HandleValue aValue, nsScriptType aType, nsScriptSlot& aSlot) {
  using enum nsScriptType;
  switch (aType) {
    case eBool:
      if (!aValue.isBoolean()) return false;
      aSlot.Set(aValue.toBoolean());
      return true;
    case eInt8:
      return ReadInteger<int8_t>(aValue, aSlot);
    case eUint8:
      return ReadInteger<uint8_t>(aValue, aSlot);
    case eInt16:
      return ReadInteger<int16_t>(aValue, aSlot);
    case eUint16:
      return ReadInteger<uint16_t>(aValue, aSlot);
    case eInt32:
      return ReadInteger<int32_t>(aValue, aSlot);
    case eUint32:
    case eResult:
      return ReadInteger<uint32_t>(aValue, aSlot);
    case eInt64:
      return ReadInteger<int64_t>(aValue, aSlot);
    case eUint64:
      return ReadInteger<uint64_t>(aValue, aSlot);
    case eFloat:
      if (!aValue.isNumber()) return false;
      aSlot.Set(static_cast<float>(aValue.toNumber()));
      // A float keeps 24 bits, which is what the type says; a number that becomes infinite does not
      // fit.
      return std::isfinite(aSlot.Get<float>()) || !std::isfinite(aValue.toNumber());
    case eDouble:
      if (!aValue.isNumber()) return false;
      aSlot.Set(aValue.toNumber());
      return true;
    default:
      return false;
  }
}

bool IsNumber(nsScriptType aType) { return aType <= nsScriptType::eResult; }

}  // namespace

size_t NS_NumberSize(nsScriptType aType) {
  using enum nsScriptType;
  switch (aType) {
    case eBool:
    case eInt8:
    case eUint8:
      return 1;
    case eInt16:
    case eUint16:
      return 2;
    case eInt64:
    case eUint64:
    case eDouble:
      return 8;
    default:
      return 4;
  }
}

namespace {

bool Copy(JSContext* cx, JS::HandleString aString, std::u16string* aResult) {
  aResult->resize(JS_GetStringLength(aString));
  return JS_CopyStringChars(cx, mozilla::Range<char16_t>(aResult->data(), aResult->size()),
                            aString);
}

/// Nothing for text with a surrogate that has no partner: UTF-8 has no form for it. Those that
/// stand for bytes of a name that is no UTF-8 become these.
bool ToUtf8(std::u16string_view aText, std::string* aResult) {
  if (std::all_of(aText.begin(), aText.end(), [](char16_t c) { return c < 0x80; })) {
    aResult->assign(aText.begin(), aText.end());
    return true;
  }
  for (size_t i = 0; i < aText.size(); ++i) {
    if ((aText[i] & 0xF800) != 0xD800) continue;
    if (aText[i] >= 0xDC80 && aText[i] <= 0xDCFF) continue;
    if ((aText[i] & 0xFC00) != 0xD800 || i + 1 == aText.size() || (aText[i + 1] & 0xFC00) != 0xDC00)
      return false;
    ++i;
  }
  *aResult = vorel::Utf16ToName(aText);
  return true;
}

bool ReadString(nsScriptRuntime* aRuntime, JS::HandleValue aValue, const nsScriptParam& aParam,
                const nsPlace& aPlace, nsCallFrame& aFrame, size_t aIndex) {
  using enum nsScriptType;
  JSContext* const cx = aRuntime->Context();
  nsScriptSlot& slot = aFrame.mSlots[aIndex];
  const bool pointer = aParam.mType == eChars || aParam.mType == eWideChars;
  if (aValue.isNull()) {  // a null pointer, or a void string
    if (aParam.mType == eString) {
      auto& held = aFrame.Hold<nsString>(aIndex);
      NS_StringSetIsVoid(held, true);
      slot.Set<nsAString*>(&held);
    } else if (aParam.mType == eCString) {
      auto& held = aFrame.Hold<nsCString>(aIndex);
      NS_CStringSetIsVoid(held, true);
      slot.Set<nsACString*>(&held);
    } else {
      slot.Set<void*>(nullptr);
    }
    return true;
  }
  if (!aValue.isString()) return Refuse(cx, aPlace.Text(aParam), Expected(aParam), aValue);
  JS::RootedString string(cx, aValue.toString());

  if (aParam.mType == eString) {
    auto& held = aFrame.Hold<nsString>(aIndex);
    char16_t* chars = nullptr;
    const uint32_t length = static_cast<uint32_t>(JS_GetStringLength(string));
    if (NS_StringGetMutableData(held, length, &chars) != length || !chars) {
      JS_ReportOutOfMemory(cx);
      return false;
    }
    slot.Set<nsAString*>(&held);
    return JS_CopyStringChars(cx, mozilla::Range<char16_t>(chars, length), string);
  }

  std::u16string wide;
  if (!Copy(cx, string, &wide)) return false;
  if (pointer && !aParam.mCounted && wide.find(u'\0') != wide.npos)
    return NS_ThrowTypeError(
        cx, aPlace.Text(aParam) + ": the string has a zero in it, where it would be cut off");
  if (aParam.mType == eWideChars) {
    slot.Set<const char16_t*>(aFrame.Hold<std::u16string>(aIndex, std::move(wide)).c_str());
    return true;
  }
  std::string narrow;
  if (aParam.mCounted) {
    if (std::any_of(wide.begin(), wide.end(), [](char16_t c) { return c > 0xFF; }))
      return NS_ThrowTypeError(cx,
                               aPlace.Text(aParam) + ": the string has characters beyond a byte");
    narrow.assign(wide.begin(), wide.end());
  } else if (!ToUtf8(wide, &narrow)) {
    return NS_ThrowTypeError(
        cx, aPlace.Text(aParam) + ": the string has half a surrogate pair, which UTF-8 can't hold");
  }
  if (aParam.mType == eCString)
    slot.Set<nsACString*>(&aFrame.Hold<nsCString>(aIndex, std::string_view(narrow)));
  else
    slot.Set<const char*>(aFrame.Hold<std::string>(aIndex, std::move(narrow)).c_str());
  return true;
}

bool ReadArray(nsScriptRuntime* aRuntime, JS::HandleValue aValue, const nsScriptParam& aParam,
               const nsPlace& aPlace, nsCallFrame& aFrame, size_t aIndex) {
  JSContext* const cx = aRuntime->Context();
  bool isArray = false;
  if (!JS::IsArrayObject(cx, aValue, &isArray)) return false;
  if (!isArray) return Refuse(cx, aPlace.Text(aParam), "an array", aValue);
  JS::RootedObject array(cx, &aValue.toObject());
  uint32_t length = 0;
  if (!JS::GetArrayLength(cx, array, &length)) return false;
  if (length > 64u << 20)
    return NS_ThrowTypeError(cx, aPlace.Text(aParam) + ": the array is too long");
  const size_t size = NS_NumberSize(aParam.mType);
  std::vector<std::byte> bytes;
  JS::RootedValue element(cx);
  for (uint32_t i = 0; i < length; ++i) {
    nsScriptSlot slot;
    if (!JS_GetElement(cx, array, i, &element)) return false;
    if (!ReadNumber(element, aParam.mType, slot))
      return Refuse(cx, aPlace.Text(aParam) + "[" + std::to_string(i) + "]", Expected(aParam),
                    element);
    bytes.insert(bytes.end(), slot.mBytes, slot.mBytes + size);
  }
  auto& held = aFrame.Hold<std::vector<std::byte>>(aIndex, std::move(bytes));
  aFrame.mSlots[aIndex].Set<void*>(held.data());
  return true;
}

template <class T>
bool SetBig(JSContext* cx, T aValue, JS::MutableHandleValue aResult) {
  constexpr int64_t kExact = 9007199254740991;
  if (std::cmp_less_equal(aValue, kExact) && std::cmp_greater_equal(aValue, -kExact)) {
    aResult.setNumber(static_cast<double>(aValue));
    return true;
  }
  JS::BigInt* const big = JS::NumberToBigInt(cx, aValue);
  if (!big) return false;
  aResult.setBigInt(big);
  return true;
}

bool SetString(JSString* aString, JS::MutableHandleValue aResult) {
  if (!aString) return false;
  aResult.setString(aString);
  return true;
}

/// One value; an array's element too, which then stands at the start of aSlot.
bool SetValue(nsScriptRuntime* aRuntime, const nsScriptParam& aParam, const nsScriptSlot& aSlot,
              const nsIID* aIID, uint32_t aLength, JS::MutableHandleValue aResult) {
  using enum nsScriptType;
  JSContext* const cx = aRuntime->Context();
  switch (aParam.mType) {
    case eBool:
      aResult.setBoolean(aSlot.Get<bool>());
      return true;
    case eInt8:
      aResult.setInt32(aSlot.Get<int8_t>());
      return true;
    case eUint8:
      aResult.setInt32(aSlot.Get<uint8_t>());
      return true;
    case eInt16:
      aResult.setInt32(aSlot.Get<int16_t>());
      return true;
    case eUint16:
      aResult.setInt32(aSlot.Get<uint16_t>());
      return true;
    case eInt32:
      aResult.setInt32(aSlot.Get<int32_t>());
      return true;
    case eUint32:
    case eResult:
      aResult.setNumber(aSlot.Get<uint32_t>());
      return true;
    case eInt64:
      return SetBig(cx, aSlot.Get<int64_t>(), aResult);
    case eUint64:
      return SetBig(cx, aSlot.Get<uint64_t>(), aResult);
    case eFloat:
      aResult.set(JS_NumberValue(static_cast<double>(aSlot.Get<float>())));
      return true;
    case eDouble:
      aResult.set(JS_NumberValue(aSlot.Get<double>()));
      return true;
    case eString: {
      const auto* const string = aSlot.Get<const nsAString*>();
      if (NS_StringGetIsVoid(*string)) {
        aResult.setNull();
        return true;
      }
      const std::u16string_view text = NS_View(*string);
      return SetString(JS_NewUCStringCopyN(cx, text.data(), text.size()), aResult);
    }
    case eCString: {
      const auto* const string = aSlot.Get<const nsACString*>();
      if (NS_CStringGetIsVoid(*string)) {
        aResult.setNull();
        return true;
      }
      return SetString(NS_NewScriptString(cx, NS_View(*string)), aResult);
    }
    case eChars: {
      const char* const chars = aSlot.Get<const char*>();
      if (!chars) {
        aResult.setNull();
        return true;
      }
      return SetString(aParam.mCounted && !aParam.mArray ? JS_NewStringCopyN(cx, chars, aLength)
                                                         : NS_NewScriptString(cx, chars),
                       aResult);
    }
    case eWideChars: {
      const auto* const chars = aSlot.Get<const char16_t*>();
      if (!chars) {
        aResult.setNull();
        return true;
      }
      const bool counted = aParam.mCounted && !aParam.mArray;
      return SetString(
          counted ? JS_NewUCStringCopyN(cx, chars, aLength) : JS_NewUCStringCopyZ(cx, chars),
          aResult);
    }
    case eID: {
      const auto* const id = aSlot.Get<const nsID*>();
      if (!id) {
        aResult.setNull();
        return true;
      }
      // An interface that script knows comes back as itself, so that it can be compared and handed
      // on.
      if (const nsScriptInterface* const table = nsScriptTables::Find(*id)) {
        JSObject* const object = aRuntime->Names().InterfaceObject(table);
        if (!object) return false;
        aResult.setObject(*object);
        return true;
      }
      return SetString(NS_NewScriptString(cx, id->ToString()), aResult);
    }
    case eInterface:
      return aRuntime->Wrappers().Wrap(aSlot.Get<nsISupports*>(),
                                       nsScriptTables::Find(*aParam.mIID), aResult);
    case eAnyInterface:
      return aRuntime->Wrappers().Wrap(aSlot.Get<nsISupports*>(),
                                       aIID ? nsScriptTables::Find(*aIID) : nullptr, aResult);
    case eValue:
      aResult.set(JS::Value::fromRawBits(aSlot.Get<jsval>().mBits));
      return true;
    default:
      aResult.setUndefined();
      return true;
  }
}

/// The i-th element of an array as a slot of its own.
nsScriptSlot Element(const nsScriptParam& aParam, const std::byte* aArray, uint32_t aIndex) {
  nsScriptSlot slot;
  const size_t size = IsNumber(aParam.mType) ? NS_NumberSize(aParam.mType) : sizeof(void*);
  std::memcpy(slot.mBytes, aArray + aIndex * size, size);
  return slot;
}

void FreeOne(const nsScriptParam& aParam, const nsScriptSlot& aSlot) {
  using enum nsScriptType;
  switch (aParam.mType) {
    case eInterface:
    case eAnyInterface:
      if (auto* const object = aSlot.Get<nsISupports*>()) object->Release();
      return;
    case eChars:
    case eWideChars:
    case eID:
      NS_Free(aSlot.Get<void*>());
      return;
    default:
      return;
  }
}

}  // namespace

bool NS_FromScript(nsScriptRuntime* aRuntime, JS::HandleValue aValue, const nsScriptParam& aParam,
                   const nsPlace& aPlace, nsCallFrame& aFrame, size_t aIndex) {
  using enum nsScriptType;
  JSContext* const cx = aRuntime->Context();
  nsScriptSlot& slot = aFrame.mSlots[aIndex];
  if (aParam.mArray) return ReadArray(aRuntime, aValue, aParam, aPlace, aFrame, aIndex);
  if (IsNumber(aParam.mType))
    return ReadNumber(aValue, aParam.mType, slot) ||
           Refuse(cx, aPlace.Text(aParam), Expected(aParam), aValue);
  switch (aParam.mType) {
    case eString:
    case eCString:
    case eChars:
    case eWideChars:
      return ReadString(aRuntime, aValue, aParam, aPlace, aFrame, aIndex);
    case eID: {
      nsID& id = aFrame.Hold<nsID>(aIndex);
      if (!aRuntime->Names().ReadID(aValue, &id))
        return Refuse(cx, aPlace.Text(aParam), Expected(aParam), aValue);
      slot.Set<const nsID*>(&id);
      return true;
    }
    case eInterface: {
      auto& held = aFrame.Hold<nsCOMPtr<nsISupports>>(aIndex);
      // The text of the place is made only for a message: most calls need none.
      if (!aValue.isNull()) {
        nsWrapper* const wrapper = nsWrappers::Of(aValue);
        if (wrapper && *aParam.mIID == nsISupports::kIID) {
          held = wrapper->mIdentity;
        } else if (wrapper) {
          if (NS_FAILED(wrapper->mIdentity->QueryInterface(*aParam.mIID, NS_OutVoid(held))) ||
              !held)
            return Refuse(cx, aPlace.Text(aParam), Expected(aParam), aValue);
        } else if (!NS_ToNative(aRuntime, aValue, *aParam.mIID, aPlace.Text(aParam), &held)) {
          return false;
        }
      }
      slot.Set<nsISupports*>(held.get());
      return true;
    }
    case eValue:
      slot.Set(jsval{aValue.asRawBits()});
      return true;
    case eContext:
      slot.Set(cx);
      return true;
    default:
      return Refuse(cx, aPlace.Text(aParam), Expected(aParam), aValue);
  }
}

void NS_PrepareOut(const nsScriptParam& aParam, nsCallFrame& aFrame, size_t aIndex) {
  if (aParam.mType == nsScriptType::eString)
    aFrame.mSlots[aIndex].Set<nsAString*>(&aFrame.Hold<nsString>(aIndex));
  else if (aParam.mType == nsScriptType::eCString)
    aFrame.mSlots[aIndex].Set<nsACString*>(&aFrame.Hold<nsCString>(aIndex));
  else if (aParam.mType == nsScriptType::eValue)
    aFrame.mSlots[aIndex].Set(jsval{JS::UndefinedValue().asRawBits()});
}

bool NS_ToScript(nsScriptRuntime* aRuntime, const nsScriptParam& aParam, const nsScriptSlot& aSlot,
                 const nsIID* aIID, uint32_t aLength, JS::MutableHandleValue aResult) {
  if (!aParam.mArray) return SetValue(aRuntime, aParam, aSlot, aIID, aLength, aResult);
  JSContext* const cx = aRuntime->Context();
  JS::RootedObject array(cx, JS::NewArrayObject(cx, 0));
  if (!array) return false;
  JS::RootedValue element(cx);
  const auto* const elements = aSlot.Get<const std::byte*>();
  for (uint32_t i = 0; elements && i < aLength; ++i) {
    if (!SetValue(aRuntime, aParam, Element(aParam, elements, i), nullptr, 0, &element) ||
        !JS_DefineElement(cx, array, i, element, JSPROP_ENUMERATE))
      return false;
  }
  aResult.setObject(*array);
  return true;
}

void NS_FreeOut(const nsScriptParam& aParam, const nsScriptSlot& aSlot, uint32_t aLength) {
  if (!aParam.mArray) return FreeOne(aParam, aSlot);
  auto* const elements = aSlot.Get<std::byte*>();
  for (uint32_t i = 0; elements && i < aLength; ++i) FreeOne(aParam, Element(aParam, elements, i));
  NS_Free(elements);
}

bool NS_GiveOut(const nsScriptParam& aParam, nsCallFrame& aFrame, size_t aIndex,
                nsScriptSlot& aSlot) {
  using enum nsScriptType;
  const nsScriptSlot& read = aFrame.mSlots[aIndex];
  if (aParam.mArray || aParam.mCounted) return false;
  switch (aParam.mType) {
    case eString:
      return NS_SUCCEEDED(NS_StringCopy(*aSlot.Get<nsAString*>(), *read.Get<nsAString*>()));
    case eCString:
      return NS_SUCCEEDED(NS_CStringCopy(*aSlot.Get<nsACString*>(), *read.Get<nsACString*>()));
    case eChars: {
      const char* const chars = read.Get<const char*>();
      aSlot.Set<char*>(chars ? NS_NewCString(chars) : nullptr);
      return true;
    }
    case eWideChars: {
      const auto* const chars = read.Get<const char16_t*>();
      aSlot.Set<char16_t*>(chars ? NS_StringCloneData(nsDependentString(chars)) : nullptr);
      return true;
    }
    case eID:
      aSlot.Set<nsID*>(new (NS_Alloc(sizeof(nsID))) nsID(*read.Get<const nsID*>()));
      return true;
    case eInterface:
    case eAnyInterface: {
      auto* const object = read.Get<nsISupports*>();
      if (object) object->AddRef();
      aSlot.Set<nsISupports*>(object);
      return true;
    }
    case eContext:
      return false;
    default:
      aSlot = read;
      return true;
  }
}

bool NS_ToNative(nsScriptRuntime* aRuntime, JS::HandleValue aValue, const nsIID& aIID,
                 const std::string& aPlace, nsCOMPtr<nsISupports>* aResult) {
  JSContext* const cx = aRuntime->Context();
  if (aValue.isNull()) {
    *aResult = nullptr;
    return true;
  }
  const nsScriptInterface* const table = nsScriptTables::Find(aIID);
  const std::string name(table ? std::string(table->mName) : aIID.ToString());
  if (!aValue.isObject()) return Refuse(cx, aPlace, "an object that implements " + name, aValue);
  if (nsWrapper* const wrapper = nsWrappers::Of(aValue)) {
    if (NS_SUCCEEDED(wrapper->mIdentity->QueryInterface(aIID, NS_OutVoid(*aResult))) && *aResult)
      return true;
    return Refuse(cx, aPlace, "an object that implements " + name, aValue);
  }
  bool isArray = false;
  if (aIID == nsIArray::kIID && !JS::IsArrayObject(cx, aValue, &isArray)) return false;
  if (isArray) {
    JS::RootedObject elements(cx, &aValue.toObject());
    uint32_t length = 0;
    if (!JS::GetArrayLength(cx, elements, &length)) return false;
    const auto array = do_CreateInstance<nsIMutableArray>(VOREL_ARRAY_CONTRACTID);
    JS::RootedValue element(cx);
    for (uint32_t i = 0; i < length; ++i) {
      nsCOMPtr<nsISupports> object;
      const std::string place = aPlace + "[" + std::to_string(i) + "]";
      if (!JS_GetElement(cx, elements, i, &element)) return false;
      if (!NS_ToNative(aRuntime, element, nsISupports::kIID, place, &object)) return false;
      const nsresult rv = array ? array->AppendElement(object.get(), false) : NS_ERROR_FAILURE;
      if (NS_FAILED(rv)) return NS_ThrowResult(cx, rv, place);
    }
    if (!array) return NS_ThrowResult(cx, NS_ERROR_FAILURE, aPlace);
    *aResult = static_cast<nsIArray*>(array.get());
    return true;
  }
  JS::RootedObject object(cx, &aValue.toObject());
  return nsScriptedObject::Get(aRuntime, object, table, name, aPlace, aResult);
}

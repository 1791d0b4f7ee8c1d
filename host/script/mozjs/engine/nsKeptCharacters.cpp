#include "nsKeptCharacters.h"

#include <js/String.h>

#include <deque>
#include <string>

namespace nsKeptCharacters {

namespace {
// A deque: the strings stay where they are, and short ones hold their characters inside themselves.
std::deque<std::u16string>& Kept() {
  static std::deque<std::u16string> sKept;
  return sKept;
}
}  // namespace

const char16_t* Keep(JSContext* cx, JSString* aString, size_t* aLength) {
  JS::RootedString string(cx, aString);
  std::u16string chars(JS_GetStringLength(string), u'\0');
  if (!JS_CopyStringChars(cx, mozilla::Range<char16_t>(chars.data(), chars.size()), string))
    return nullptr;
  *aLength = chars.size();
  CallScope::sKept = true;
  return Kept().emplace_back(std::move(chars)).c_str();
}

void CallScope::Drop() {
  Kept().clear();
  sKept = false;
}

}  // namespace nsKeptCharacters

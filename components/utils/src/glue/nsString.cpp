#include "nsString.h"

#include <charconv>
#include <cstring>

#include "nsXPCOM.h"

std::string NS_ToUtf8(std::u16string_view aText) {
  nsCString out;
  (void)NS_UTF16ToCString(nsDependentString(aText), NS_CSTRING_ENCODING_UTF8, out);
  return std::string(out.view());
}

std::u16string NS_ToUtf16(std::string_view aText) {
  nsString out;
  (void)NS_CStringToUTF16(nsDependentCString(aText), NS_CSTRING_ENCODING_UTF8, out);
  return std::u16string(out.view());
}

std::optional<int64_t> NS_ParseDecimal(std::u16string_view aText) {
  std::string digits;
  for (const char16_t c : aText) {
    if (c > 127) return {};
    digits += static_cast<char>(c);
  }
  const char* first = digits.data();
  const char* last = first + digits.size();
  if (digits.size() > 1 && digits[0] == '+' && digits[1] != '-') ++first;
  int64_t value;
  const auto [end, error] = std::from_chars(first, last, value);
  if (error != std::errc() || end != last) return {};
  return value;
}

char* NS_NewCString(std::string_view aText) {
  if (!aText.data()) return nullptr;
  auto* copy = static_cast<char*>(NS_Alloc(aText.size() + 1));
  std::memcpy(copy, aText.data(), aText.size());
  copy[aText.size()] = 0;
  return copy;
}

nsAdoptedCString::~nsAdoptedCString() { NS_Free(mText); }

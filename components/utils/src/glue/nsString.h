// Owned strings over the frozen string functions, and the small operations that everything shares.
// Comparisons are by code unit or byte and case-sensitive.
#pragma once

#include <concepts>
#include <optional>
#include <string>
#include <string_view>

#include "nsXPCOMStrings.h"

namespace vorel::detail {
template <class Char>
struct StringApi;

template <>
struct StringApi<char16_t> {
  using Abstract = nsAString;
  using Container = nsStringContainer;
  static constexpr auto Init = NS_StringContainerInit;
  static constexpr auto Init2 = NS_StringContainerInit2;
  static constexpr auto Finish = NS_StringContainerFinish;
  static constexpr auto GetData = NS_StringGetData;
  static constexpr auto SetData = NS_StringSetData;
  static constexpr auto SetDataRange = NS_StringSetDataRange;
  static constexpr auto Copy = NS_StringCopy;
};

template <>
struct StringApi<char> {
  using Abstract = nsACString;
  using Container = nsCStringContainer;
  static constexpr auto Init = NS_CStringContainerInit;
  static constexpr auto Init2 = NS_CStringContainerInit2;
  static constexpr auto Finish = NS_CStringContainerFinish;
  static constexpr auto GetData = NS_CStringGetData;
  static constexpr auto SetData = NS_CStringSetData;
  static constexpr auto SetDataRange = NS_CStringSetDataRange;
  static constexpr auto Copy = NS_CStringCopy;
};
}  // namespace vorel::detail

/// The text of a string, valid until the string is next changed.
template <class Char>
std::basic_string_view<Char> NS_View(const nsTAString<Char>& aString) {
  const Char* data;
  const uint32_t length = vorel::detail::StringApi<Char>::GetData(aString, &data, nullptr);
  return {data, length};
}

/// Sets a string, out parameters above all.
template <class Char>
void NS_Assign(nsTAString<Char>& aString,
               std::type_identity_t<std::basic_string_view<Char>> aText) {
  (void)vorel::detail::StringApi<Char>::SetData(aString, aText.data(),
                                                static_cast<uint32_t>(aText.size()));
}

/// Hands a text out: `return NS_Give(mName, aName);`.
template <class Char>
nsresult NS_Give(std::type_identity_t<std::basic_string_view<Char>> aText, nsTAString<Char>& aOut) {
  NS_Assign(aOut, aText);
  return NS_OK;
}

/// A string that owns its text. Copies share it until one of them changes.
template <class Char>
class nsTString : public vorel::detail::StringApi<Char>::Container {
  using Api = vorel::detail::StringApi<Char>;
  using View = std::basic_string_view<Char>;

 public:
  nsTString() { (void)Api::Init(*this); }
  nsTString(View aText) : nsTString() { Assign(aText); }
  nsTString(const Char* aText) : nsTString(View(aText)) {}
  nsTString(const std::basic_string<Char>& aText) : nsTString(View(aText)) {}
  nsTString(const nsTAString<Char>& aOther) : nsTString() { (void)Api::Copy(*this, aOther); }
  nsTString(const nsTString& aOther) : nsTString(static_cast<const nsTAString<Char>&>(aOther)) {}
  nsTString& operator=(const nsTAString<Char>& aOther) {
    (void)Api::Copy(*this, aOther);
    return *this;
  }
  nsTString& operator=(const nsTString& aOther) {
    return *this = static_cast<const nsTAString<Char>&>(aOther);
  }
  nsTString& operator=(View aText) {
    Assign(aText);
    return *this;
  }
  nsTString& operator=(const Char* aText) { return *this = View(aText); }
  ~nsTString() { Api::Finish(*this); }

  void Assign(View aText) { NS_Assign(*this, aText); }
  nsTString& Append(View aText) {
    if (!aText.empty())
      (void)Api::SetDataRange(*this, NS_STRING_MAX, 0, aText.data(),
                              static_cast<uint32_t>(aText.size()));
    return *this;
  }
  nsTString& operator+=(View aText) { return Append(aText); }

  View view() const { return NS_View<Char>(*this); }
  operator View() const { return view(); }
  /// Closed by a zero.
  const Char* get() const { return view().data(); }
  uint32_t Length() const { return static_cast<uint32_t>(view().size()); }
  bool IsEmpty() const { return view().empty(); }

  template <std::convertible_to<View> Text>
  friend bool operator==(const nsTString& aA, const Text& aB) {
    return aA.view() == View(aB);
  }
  friend auto operator<=>(const nsTString& aA, const nsTString& aB) {
    return aA.view() <=> aB.view();
  }
};

using nsString = nsTString<char16_t>;
using nsCString = nsTString<char>;
/// The name under which strings that must outlive their maker are stored in method callers.
using nsString_external = nsString;

/// A string that is a view of text which outlives it: for in parameters.
class nsDependentString : public nsStringContainer {
 public:
  explicit nsDependentString(std::u16string_view aText = {}) { Init(aText); }
  ~nsDependentString() { NS_StringContainerFinish(*this); }
  /// Becomes a view of other text.
  void Rebind(std::u16string_view aText) {
    NS_StringContainerFinish(*this);
    Init(aText);
  }

 private:
  void Init(std::u16string_view aText) {
    (void)NS_StringContainerInit2(
        *this, aText.data(), static_cast<uint32_t>(aText.size()),
        NS_STRING_CONTAINER_INIT_DEPEND | NS_STRING_CONTAINER_INIT_SUBSTRING);
  }
};
class nsDependentCString : public nsCStringContainer {
 public:
  explicit nsDependentCString(std::string_view aText) {
    (void)NS_CStringContainerInit2(
        *this, aText.data(), static_cast<uint32_t>(aText.size()),
        NS_STRING_CONTAINER_INIT_DEPEND | NS_STRING_CONTAINER_INIT_SUBSTRING);
  }
  ~nsDependentCString() { NS_CStringContainerFinish(*this); }
};

/// Conversions through NS_UTF16ToCString and NS_CStringToUTF16 with the UTF-8 encoding.
std::string NS_ToUtf8(std::u16string_view aText);
std::u16string NS_ToUtf16(std::string_view aText);
inline std::string NS_ToUtf8(const nsAString& aText) { return NS_ToUtf8(NS_View(aText)); }
inline std::u16string NS_ToUtf16(const nsACString& aText) { return NS_ToUtf16(NS_View(aText)); }

/// A decimal integer, the whole text of it: an optional sign and digits. Nothing for other text or
/// overflow.
std::optional<int64_t> NS_ParseDecimal(std::u16string_view aText);
/// What an out parameter of type char** hands out; to be freed with NS_Free. Null text gives null.
char* NS_NewCString(std::string_view aText);

/// The other end of it: takes the text that a call hands out, and frees it.
class nsAdoptedCString {
 public:
  nsAdoptedCString() = default;
  nsAdoptedCString(const nsAdoptedCString&) = delete;
  nsAdoptedCString& operator=(const nsAdoptedCString&) = delete;
  ~nsAdoptedCString();

  /// For one call.
  char** getter_Copies() { return &mText; }
  /// Empty when nothing was handed out.
  std::string_view view() const { return mText ? mText : std::string_view(); }

 private:
  char* mText = nullptr;
};

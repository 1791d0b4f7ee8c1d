// The frozen string functions, of both widths.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "nsString.h"
#include "nsXPCOM.h"

namespace {

// Text of either width out of one literal.
template <class Char>
std::basic_string<Char> T(std::string_view aText) {
  return {aText.begin(), aText.end()};
}

// A string in which nothing but the functions is used.
template <class Char>
struct RawString : vorel::detail::StringApi<Char>::Container {
  using Api = vorel::detail::StringApi<Char>;
  RawString() { EXPECT_EQ(NS_OK, Api::Init(*this)); }
  RawString(const std::basic_string<Char>& aText, uint32_t aFlags)
      : RawString(aText.data(), static_cast<uint32_t>(aText.size()), aFlags) {}
  RawString(const Char* aText, uint32_t aLength, uint32_t aFlags) {
    EXPECT_EQ(NS_OK, Api::Init2(*this, aText, aLength, aFlags));
  }
  ~RawString() { Api::Finish(*this); }
  std::basic_string<Char> Text() const {
    const Char* data = nullptr;
    const uint32_t length = Api::GetData(*this, &data, nullptr);
    return {data, length};
  }
  bool IsTerminated() const {
    const Char* data = nullptr;
    bool terminated = false;
    const uint32_t length = Api::GetData(*this, &data, &terminated);
    return terminated && data[length] == 0;
  }
};

template <class Char>
class Strings : public testing::Test {};
using Widths = testing::Types<char, char16_t>;
TYPED_TEST_SUITE(Strings, Widths);

#define USES                                  \
  using Char = TypeParam;                     \
  using Api = vorel::detail::StringApi<Char>; \
  using Raw = RawString<Char>;                \
  [[maybe_unused]] constexpr auto MAX = NS_STRING_MAX

TYPED_TEST(Strings, ZeroInTheMiddleEndsTheText) {
  USES;
  const auto text = T<Char>({"a\0b\0", 4});
  Raw a(text, 0), b;
  EXPECT_TRUE(a.Text() == text);
  EXPECT_EQ(NS_OK, Api::Copy(b, a));
  EXPECT_EQ(NS_OK, Api::SetDataRange(b, MAX, 0, text.data(), 4));
  EXPECT_TRUE(b.Text() == text + text);
  EXPECT_TRUE(b.IsTerminated());
  EXPECT_EQ(NS_OK, Api::SetData(a, text.data(), MAX));
  EXPECT_TRUE(a.Text() == T<Char>("a")) << "unless the length is measured";
}

TYPED_TEST(Strings, RangeIsReplacedElsewhere) {
  USES;
  const auto x = T<Char>("XY");
  const auto replace = [&](uint32_t aOffset, uint32_t aCut, const Char* aData, uint32_t aLength) {
    Raw a(T<Char>("abcdef"), 0);
    EXPECT_EQ(NS_OK, Api::SetDataRange(a, aOffset, aCut, aData, aLength));
    EXPECT_TRUE(a.IsTerminated());
    return a.Text();
  };
  EXPECT_TRUE(replace(1, 2, x.data(), 2) == T<Char>("aXYdef"));
  EXPECT_TRUE(replace(0, 0, x.data(), MAX) == T<Char>("XYabcdef"));
  EXPECT_TRUE(replace(MAX, 3, x.data(), 1) == T<Char>("abcdefX"));
  EXPECT_TRUE(replace(2, MAX, nullptr, 7) == T<Char>("ab"));
  EXPECT_TRUE(replace(6, 9, x.data(), 2) == T<Char>("abcdefXY"));
  Raw a(T<Char>("ab"), 0);
  EXPECT_EQ(NS_ERROR_INVALID_ARG, Api::SetDataRange(a, 3, 0, x.data(), 2));
  EXPECT_TRUE(a.Text() == T<Char>("ab"));
}

TYPED_TEST(Strings, PieceOfTheStringItselfIsReadWhenItHasMoved) {
  USES;
  Raw a(T<Char>("abcdef"), 0);
  const Char* data = nullptr;
  (void)Api::GetData(a, &data, nullptr);
  EXPECT_EQ(NS_OK, Api::SetDataRange(a, 1, 1, data + 3, 3));
  EXPECT_TRUE(a.Text() == T<Char>("adefcdef"));
  for (int i = 0; i < 8; ++i) {
    const uint32_t length = Api::GetData(a, &data, nullptr);
    EXPECT_EQ(NS_OK, Api::SetDataRange(a, MAX, 0, data, length));
  }
  EXPECT_EQ(8u << 8, a.Text().size());
  (void)Api::GetData(a, &data, nullptr);
  EXPECT_EQ(NS_OK, Api::SetData(a, data + 2, 3));
  EXPECT_TRUE(a.Text() == T<Char>("efc"));
  EXPECT_EQ(NS_OK, Api::Copy(a, a));
  EXPECT_TRUE(a.Text() == T<Char>("efc"));
}

TYPED_TEST(Strings, AdoptedDataIsLostOrFreedTwice) {
  USES;
  const auto adopt = [] {
    auto* data = static_cast<Char*>(NS_Alloc(3 * sizeof(Char)));
    data[0] = 'h', data[1] = 'i', data[2] = 0;
    return data;
  };
  Raw a(adopt(), MAX, NS_STRING_CONTAINER_INIT_ADOPT);
  EXPECT_TRUE(a.Text() == T<Char>("hi"));
  EXPECT_TRUE(a.IsTerminated());
  Raw b;
  EXPECT_EQ(NS_OK, Api::Copy(b, a));
  const Char bang = '!';
  EXPECT_EQ(NS_OK, Api::SetDataRange(a, MAX, 0, &bang, 1));
  EXPECT_TRUE(a.Text() == T<Char>("hi!"));
  EXPECT_TRUE(b.Text() == T<Char>("hi"));
  Raw c(adopt(), 2, NS_STRING_CONTAINER_INIT_ADOPT);  // freed though never used
}

TYPED_TEST(Strings, ViewIsWrittenThroughOrOutlived) {
  USES;
  std::basic_string<Char> text = T<Char>("abcdef");
  Raw view(text.data(), 3, NS_STRING_CONTAINER_INIT_DEPEND | NS_STRING_CONTAINER_INIT_SUBSTRING);
  EXPECT_TRUE(view.Text() == T<Char>("abc"));
  EXPECT_FALSE(view.IsTerminated());
  Raw copy;
  EXPECT_EQ(NS_OK, Api::Copy(copy, view));
  EXPECT_EQ(NS_OK, Api::SetDataRange(view, 0, 1, nullptr, 0));
  EXPECT_TRUE(text == T<Char>("abcdef"));
  EXPECT_TRUE(view.Text() == T<Char>("bc"));
  text.assign(6, 'z');
  EXPECT_TRUE(copy.Text() == T<Char>("abc"));
  EXPECT_TRUE(copy.IsTerminated());
  Raw whole(T<Char>("x").c_str(), 1, NS_STRING_CONTAINER_INIT_DEPEND);
  bool terminated = false;
  const Char* data = nullptr;
  (void)Api::GetData(whole, &data, &terminated);
  EXPECT_TRUE(terminated);
  typename Api::Container refused;
  EXPECT_EQ(NS_ERROR_INVALID_ARG,
            Api::Init2(refused, text.data(), MAX,
                       NS_STRING_CONTAINER_INIT_DEPEND | NS_STRING_CONTAINER_INIT_SUBSTRING));
}

TYPED_TEST(Strings, VoidIsAnOrdinaryEmptyString) {
  USES;
  const auto isVoid = [](auto& aString) {
    if constexpr (std::same_as<Char, char>)
      return NS_CStringGetIsVoid(aString);
    else
      return NS_StringGetIsVoid(aString);
  };
  const auto setVoid = [](auto& aString, bool aVoid) {
    if constexpr (std::same_as<Char, char>)
      NS_CStringSetIsVoid(aString, aVoid);
    else
      NS_StringSetIsVoid(aString, aVoid);
  };
  Raw a(T<Char>("abc"), 0), b(T<Char>("x"), 0);
  setVoid(a, true);
  EXPECT_TRUE(isVoid(a));
  EXPECT_TRUE(a.Text().empty());
  EXPECT_TRUE(a.IsTerminated());
  EXPECT_EQ(NS_OK, Api::Copy(b, a));
  EXPECT_TRUE(isVoid(b));
  EXPECT_EQ(NS_OK, Api::SetData(b, T<Char>("y").data(), 1));
  EXPECT_FALSE(isVoid(b));
  setVoid(a, false);
  EXPECT_FALSE(isVoid(a));
  Raw empty;
  EXPECT_FALSE(isVoid(empty));
}

TYPED_TEST(Strings, CopyChangesWithItsSource) {
  USES;
  Raw a(T<Char>("shared"), 0), b;
  EXPECT_EQ(NS_OK, Api::Copy(b, a));
  const Char x = 'X';
  EXPECT_EQ(NS_OK, Api::SetDataRange(b, 0, 1, &x, 1));
  EXPECT_TRUE(a.Text() == T<Char>("shared"));
  EXPECT_TRUE(b.Text() == T<Char>("Xhared"));
  Char* data = nullptr;
  const auto mutableData = [&](auto& aString, uint32_t aLength) {
    if constexpr (std::same_as<Char, char>)
      return NS_CStringGetMutableData(aString, aLength, &data);
    else
      return NS_StringGetMutableData(aString, aLength, &data);
  };
  EXPECT_EQ(NS_OK, Api::Copy(b, a));
  ASSERT_EQ(6u, mutableData(b, MAX));
  data[0] = 'Y';
  EXPECT_TRUE(a.Text() == T<Char>("shared"));
  EXPECT_EQ(2u, mutableData(b, 2));
  EXPECT_TRUE(b.Text() == T<Char>("Yh"));
  EXPECT_TRUE(b.IsTerminated());
  EXPECT_EQ(0u, mutableData(b, 0x7FFFFFFF)) << "no string grows so far";
  EXPECT_EQ(nullptr, data);
  EXPECT_TRUE(b.Text() == T<Char>("Yh"));
}

TYPED_TEST(Strings, ThreadsThatShareATextDisturbEachOther) {
  USES;
  const Raw text(T<Char>("text"), 0);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&text, thread] {
      const Char mark = static_cast<Char>('0' + thread);
      for (int i = 0; i < 1000; ++i) {
        Raw mine;
        EXPECT_EQ(NS_OK, Api::Copy(mine, text));
        EXPECT_EQ(NS_OK, Api::SetDataRange(mine, 0, 1, &mark, 1));
        EXPECT_TRUE(mine.Text()[0] == mark);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_TRUE(text.Text() == T<Char>("text"));
}

TEST(StringConversion, MalformedTextTakesOthersWithIt) {
  const auto toUtf16 = [](std::string_view aText) { return NS_ToUtf16(aText); };
  EXPECT_TRUE(toUtf16("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80") == u"a\u00e9\u20ac\U0001F600");
  EXPECT_TRUE(toUtf16("\xC3(") == u"\ufffd(");
  EXPECT_TRUE(toUtf16("\xE2\x82x") == u"\ufffdx");
  EXPECT_TRUE(toUtf16("\xC0\x80") == u"\ufffd\ufffd") << "no overlong zero";
  EXPECT_TRUE(toUtf16("\xED\xA0\x80").find(u'\xD800') == std::u16string::npos) << "no surrogates";
  EXPECT_EQ("\xEF\xBF\xBDx", NS_ToUtf8(std::u16string_view(u"\xD800x")));
  nsCString ascii;
  EXPECT_EQ(NS_OK, NS_UTF16ToCString(nsString(u"a\u00e9"), NS_CSTRING_ENCODING_ASCII, ascii));
  EXPECT_EQ("a?", ascii.view());
}

}  // namespace

// Character sets. The texts come from the tables of the sets, not from our own encoder.
#include <gtest/gtest.h>

#include <string>

#include "nsHost.h"
#include "nsICharsetConverterManager.h"
#include "nsIUnicodeDecoder.h"
#include "nsIUnicodeEncoder.h"
#include "nsServices.h"
#include "nsString.h"

namespace {

constexpr nsresult kNoConverter{0x80500001}, kMoreInput{0x0050000C}, kMoreOutput{0x0050000D};

class Charset : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(NS_OK, mHost.Start({}));
    mManager =
        do_GetService<nsICharsetConverterManager>("@mozilla.org/charset-converter-manager;1");
    ASSERT_TRUE(mManager);
  }
  void TearDown() override { mHost.Stop(); }
  nsCOMPtr<nsIUnicodeDecoder> Decoder(const char* aCharset) {
    nsCOMPtr<nsIUnicodeDecoder> decoder;
    EXPECT_EQ(NS_OK, mManager->GetUnicodeDecoder(aCharset, decoder.getter_AddRefs())) << aCharset;
    return decoder;
  }
  nsCOMPtr<nsIUnicodeEncoder> Encoder(const char* aCharset) {
    nsCOMPtr<nsIUnicodeEncoder> encoder;
    EXPECT_EQ(NS_OK, mManager->GetUnicodeEncoder(aCharset, encoder.getter_AddRefs())) << aCharset;
    return encoder;
  }
  static std::u16string Decode(nsIUnicodeDecoder* aDecoder, std::string_view aText,
                               nsresult aWanted = NS_OK, int32_t aRoom = 50,
                               int32_t* aUsed = nullptr) {
    char16_t units[50];
    auto length = static_cast<int32_t>(aText.size());
    EXPECT_EQ(aWanted, aDecoder->Convert(aText.data(), &length, units, &aRoom));
    if (aUsed) *aUsed = length;
    return {units, static_cast<size_t>(aRoom)};
  }
  static std::string Encode(nsIUnicodeEncoder* aEncoder, std::u16string_view aText,
                            nsresult aWanted = NS_OK) {
    char bytes[50];
    auto length = static_cast<int32_t>(aText.size());
    int32_t room = sizeof bytes;
    EXPECT_EQ(aWanted, aEncoder->Convert(aText.data(), &length, bytes, &room));
    return {bytes, static_cast<size_t>(room)};
  }
  nsHost mHost;
  nsCOMPtr<nsICharsetConverterManager> mManager;
};

TEST_F(Charset, ASetOfBroadcastsIsNotKnown) {
  for (const auto& [charset, bytes, text] :
       std::initializer_list<std::tuple<const char*, const char*, const char16_t*>>{
           {"ISO-8859-5", "\xBC", u"\u041C"},
           {"iso-8859-15", "\xA4", u"\u20AC"},
           {"ISO-10646", "\x20\xAC", u"\u20AC"},
           {"KSX1001", "\xB0\xA1", u"\uAC00"},
           {"GB2312", "\xB0\xA1", u"\u554A"},
           {"Big5", "\xA4\x40", u"\u4E00"},
           {"UTF-8", "\xF0\x9F\x98\x80", u"\xD83D\xDE00"}})
    EXPECT_EQ(text, Decode(Decoder(charset).get(), bytes)) << charset;
  nsCOMPtr<nsIUnicodeDecoder> decoder;
  for (const char* charset : {"ISO-8859-12", "", "UTF-8//IGNORE", "nonsense"})
    EXPECT_EQ(kNoConverter, mManager->GetUnicodeDecoder(charset, decoder.getter_AddRefs()))
        << charset;
}

TEST_F(Charset, BadBytesEndTheText) {
  const auto decoder = Decoder("UTF-8");
  EXPECT_EQ(u"a\uFFFDb", Decode(decoder.get(),
                                "a\xFF"
                                "b"));
  EXPECT_EQ(u"\uFFFDab", Decode(Decoder("ISO-10646").get(), std::string_view("\xDC\0\0a\0b", 6)));
  decoder->SetInputErrorBehavior(nsIUnicodeDecoder::kOnError_Signal);
  int32_t used = 0;
  EXPECT_EQ(u"a", Decode(decoder.get(),
                         "a\xFF"
                         "b",
                         NS_ERROR_ILLEGAL_INPUT, 50, &used));
  EXPECT_EQ(1, used);
  EXPECT_EQ(u"a", Decode(decoder.get(), "a\xE2\x82", kMoreInput, 50, &used));
  EXPECT_EQ(1, used);
  EXPECT_EQ(u"ab", Decode(decoder.get(), "abc", kMoreOutput, 2, &used));
  EXPECT_EQ(2, used);
}

TEST_F(Charset, ACharacterTheSetLacksEndsTheText) {
  const auto encoder = Encoder("ISO-8859-1");
  EXPECT_EQ("a", Encode(encoder.get(), u"a\u20ACb", NS_ERROR_UCONV_NOMAPPING));
  ASSERT_EQ(NS_OK,
            encoder->SetOutputErrorBehavior(nsIUnicodeEncoder::kOnError_Replace, nullptr, u'?'));
  EXPECT_EQ("a?b\xE9?", Encode(encoder.get(), u"a\u20ACb\u00E9\xD83D\xDE00"));
  EXPECT_EQ("\xE2\x82\xAC", Encode(Encoder("UTF-8").get(), u"\u20AC"));
  EXPECT_EQ(NS_ERROR_INVALID_ARG, encoder->SetOutputErrorBehavior(3, nullptr, u'?'));
}

}  // namespace

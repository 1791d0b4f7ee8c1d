// Services, audio channels and countries as values, and the text of broadcasts.
#include "nsDigitalTvService.h"
#include "nsDvbText.h"
#include "nsIsoCountry.h"
#include "nsSystemTest.h"

namespace {

using namespace std::string_view_literals;

class DigitalTvValuesTest : public nsSystemTest {
 protected:
  void SetUp() override { StartHost(); }
};

nsCOMPtr<nsIMutableArray> Channels(std::initializer_list<uint32_t> aPids) {
  const auto array = do_CreateInstance<nsIMutableArray>(VOREL_ARRAY_CONTRACTID);
  for (const uint32_t pid : aPids) {
    const auto channel = MakeRefCounted<nsDigitalTvAudioChannel>();
    EXPECT_EQ(channel->SetPid(pid), NS_OK);
    EXPECT_EQ(array->AppendElement(channel.get(), false), NS_OK);
  }
  return array;
}

std::vector<uint32_t> Pids(nsIDigitalTvService* aService) {
  nsCOMPtr<nsIArray> array;
  EXPECT_EQ(aService->GetAudioChannels(array.getter_AddRefs()), NS_OK);
  std::vector<uint32_t> pids;
  for (const auto& channel : NS_Elements<nsIDigitalTvAudioChannel>(array.get())) {
    uint32_t pid = 0;
    EXPECT_EQ(channel->GetPid(&pid), NS_OK);
    pids.push_back(pid);
  }
  return pids;
}

TEST_F(DigitalTvValuesTest, AServicesChannelsAreSharedWithItsCallers) {
  const nsCOMPtr<nsIDigitalTvService> service(MakeRefCounted<nsDigitalTvService>());
  nsCOMPtr<nsIArray> none;
  EXPECT_EQ(service->GetAudioChannels(none.getter_AddRefs()), NS_OK);
  EXPECT_TRUE(none) << "a new service has an empty list";

  const auto given = Channels({130, 131});
  EXPECT_EQ(service->SetAudioChannels(given.get()), NS_OK);
  EXPECT_EQ(given->Clear(), NS_OK);
  nsCOMPtr<nsIArray> got;
  EXPECT_EQ(service->GetAudioChannels(got.getter_AddRefs()), NS_OK);
  const auto mutableGot = do_QueryInterface<nsIMutableArray>(got);
  ASSERT_TRUE(mutableGot);
  EXPECT_EQ(mutableGot->RemoveElementAt(0), NS_OK);
  EXPECT_EQ(Pids(service.get()), (std::vector<uint32_t>{130, 131}));

  EXPECT_EQ(service->SetAudioChannels(nullptr), NS_OK);
  EXPECT_EQ(service->GetAudioChannels(got.getter_AddRefs()), NS_OK);
  EXPECT_FALSE(got);
}

TEST_F(DigitalTvValuesTest, AScanResultIsAnotherObjectAsAService) {
  const auto result = MakeRefCounted<nsBDAScanResultDigitalTvService>();
  const auto service = do_QueryInterface<nsIDigitalTvService>(nsCOMPtr<nsISupports>(result));
  ASSERT_TRUE(service);
  EXPECT_EQ(do_QueryInterface<nsISupports>(service), nsCOMPtr<nsISupports>(result));
  EXPECT_EQ(service->SetName(nsCString("Un")), NS_OK);
  EXPECT_EQ(service->SetLevel(-61), NS_OK);
  nsCString name;
  int32_t level = 0;
  uint32_t rate = 9, priority = 9;
  EXPECT_EQ(result->GetName(name), NS_OK);
  EXPECT_EQ(result->GetLevel(&level), NS_OK);
  EXPECT_EQ(result->GetCodeRateLP(&rate), NS_OK);
  EXPECT_EQ(result->SetPriority(4000000000), NS_OK);
  EXPECT_EQ(result->GetPriority(&priority), NS_OK);
  EXPECT_EQ(name, "Un"sv);
  EXPECT_EQ(level, -61);
  EXPECT_EQ(rate, 0u);
  EXPECT_EQ(priority, 4000000000u);
  EXPECT_TRUE(do_QueryInterface<nsIClassInfo>(service));
  EXPECT_FALSE(do_QueryInterface<nsIIsoCountry>(service));
}

std::string Decode(std::string_view aText, nsresult aExpected = NS_OK) {
  nsCString text("untouched");
  EXPECT_EQ(decodeDvbText(aText, text), aExpected) << testing::PrintToString(aText);
  return std::string(text.view());
}

TEST_F(DigitalTvValuesTest, ATableOfCharactersIsTakenForAnother) {
  EXPECT_EQ(Decode("ABC"), "ABC");
  EXPECT_EQ(Decode("\x20 \xE9\xFF"), "\x20 \xE9\xFF") << "no selector: as it is";
  EXPECT_EQ(Decode("\x41\0\x42"sv), "A");
  // Each form with a letter that the others have not got there.
  EXPECT_EQ(Decode("\x01\xBC\xD8\xE0"), "Мир");
  EXPECT_EQ(Decode("\x02\xC7\xE4"), "ال");
  EXPECT_EQ(Decode("\x03\xC1\xE8"), "Αθ");
  EXPECT_EQ(Decode("\x04\xF9\xEC"), "של");
  EXPECT_EQ(Decode("\x05\xDD\xFE"), "İş");
  EXPECT_EQ(Decode("\x06\xA1\xFF"), "Ąĸ");
  EXPECT_EQ(Decode("\x07\xA1\xE0"), "กเ");
  EXPECT_EQ(Decode("\x09\xAA\xFF"), "Ŗ’");
  EXPECT_EQ(Decode("\x0A\xD0\xF0"), "Ŵŵ");
  EXPECT_EQ(Decode("\x0B\xA4\xBD"), "€œ");
  EXPECT_EQ(Decode("\x10\0\x05\xBC"sv), "М");
  EXPECT_EQ(Decode("\x10\0\x02\xA3"sv), "Ł");
  EXPECT_EQ(Decode("\x10\0\x0F\xA4"sv), "€");
  EXPECT_EQ(Decode("\x11\x20\xAC\x4E\x2D"), "€中");
  EXPECT_EQ(Decode("\x11\x20\xAC\0\x41"sv), "€") << "the upper half of a Latin letter ends it";
  EXPECT_EQ(Decode("\x12\xC7\xD1\xB1\xB9"), "한국");
  EXPECT_EQ(Decode("\x13\xD6\xD0\xB9\xFA"), "中国");
  EXPECT_EQ(Decode("\x14\xA4\xA4\xB0\xEA"), "中國");
  EXPECT_EQ(Decode("\x05"), "") << "a selector and nothing more";
  EXPECT_EQ(Decode("\x13\xD6"), "") << "half a character";
}

TEST_F(DigitalTvValuesTest, ASelectorThatThereIsNotIsGuessed) {
  const std::string untouched = "untouched";
  EXPECT_EQ(Decode("", NS_ERROR_INVALID_ARG), untouched);
  for (const int first : {0x00, 0x08, 0x0C, 0x0D, 0x0E, 0x0F, 0x15, 0x1B, 0x1F})
    EXPECT_EQ(Decode(std::string(1, static_cast<char>(first)) + "ABC", NS_ERROR_INVALID_ARG),
              untouched);
  for (const std::string_view text : {"\x10\0\x0C\x41"sv, "\x10\x01\x05\x41"sv, "\x10\0\0\x41"sv,
                                      "\x10\0\x10\x41"sv, "\x10\0\xFF\x41"sv, "\x10\0"sv, "\x10"sv})
    EXPECT_EQ(Decode(text, NS_ERROR_INVALID_ARG), untouched);
}

TEST_F(DigitalTvValuesTest, AnyBytesAreNoText) {
  std::string text;
  for (unsigned first = 0; first < 0x20; ++first)
    for (unsigned byte = 0; byte < 0x100; ++byte) {
      text = {static_cast<char>(first), static_cast<char>(byte), static_cast<char>(byte ^ 0x5A),
              static_cast<char>(byte), 'x'};
      nsCString result;
      (void)decodeDvbText(text, result);
      EXPECT_EQ(NS_ToUtf8(NS_ToUtf16(result)), result.view()) << first << " " << byte;
    }
}

}  // namespace

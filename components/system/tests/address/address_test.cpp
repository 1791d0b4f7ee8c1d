// Address values: text forms, bytes, comparison, masks.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <random>

#include "nsAddressText.h"
#include "nsString.h"
#include "nsSystemIPStructure.h"
#include "nsXPCOM.h"

namespace {

std::string TextOf(nsISystemIPStructure* aValue) {
  nsCString text;
  EXPECT_EQ(aValue->GetString(text), NS_OK);
  return std::string(text.view());
}
template <class T>
nsCOMPtr<T> Of(std::string_view aText) {
  const auto value = MakeRefCounted<T>();
  EXPECT_EQ(value->SetString(nsDependentCString(aText)), NS_OK) << aText;
  return value;
}
template <class T>
nsresult Set(const nsCOMPtr<T>& aValue, std::string_view aText) {
  return aValue->SetString(nsDependentCString(aText));
}
std::string Read6(std::string_view aText) {
  const auto value = MakeRefCounted<nsSystemIPv6Structure>();
  return NS_SUCCEEDED(Set(value, aText)) ? TextOf(value.get()) : "refused";
}

TEST(IPv4, BytesBeforeABadNumberAreStoredAndTheRestIsNot) {
  const auto value = Of<nsSystemIPv4Structure>("1.2.3.4");
  EXPECT_EQ(Set(value, "10.1.300.7"), NS_ERROR_NOT_IMPLEMENTED);
  EXPECT_EQ(TextOf(value.get()), "10.1.3.4");
  EXPECT_EQ(Set(value, "256.9.9.9"), NS_ERROR_NOT_IMPLEMENTED);
  EXPECT_EQ(TextOf(value.get()), "10.1.3.4");
  EXPECT_EQ(Set(value, "1.2.3.-4"), NS_ERROR_NOT_IMPLEMENTED);
  EXPECT_EQ(TextOf(value.get()), "1.2.3.4");
  EXPECT_EQ(Set(value, "4294967297.0.0.0"), NS_ERROR_NOT_IMPLEMENTED)
      << "a number may not wrap around";
  EXPECT_EQ(Set(value, "99999999999999999999999.0.0.0"), NS_ERROR_NOT_IMPLEMENTED);
}

TEST(IPv4, TooFewNumbersChangeNothingAndTextBehindIsIgnored) {
  const auto value = Of<nsSystemIPv4Structure>("9.9.9.9");
  for (const char* text : {"1.2.3", "", ".", "1..2.3", "a.b.c.d", "1.2.3.", "1,2,3,4"}) {
    EXPECT_EQ(Set(value, text), NS_ERROR_FAILURE) << text;
    EXPECT_EQ(TextOf(value.get()), "9.9.9.9") << text;
  }
  EXPECT_EQ(TextOf(Of<nsSystemIPv4Structure>("1.2.3.4.5").get()), "1.2.3.4");
  EXPECT_EQ(TextOf(Of<nsSystemIPv4Structure>("1.2.3.4xyz").get()), "1.2.3.4");
  EXPECT_EQ(Set(value, std::string_view("1.2\0.3.4", 8)), NS_ERROR_FAILURE)
      << "a zero ends the text";
}

TEST(IPv6, CommonTextReadsAndPrintsAsTheSystemDoes) {
  std::mt19937 random(4);
  for (int round = 0; round < 20000; ++round) {
    std::array<uint8_t, 16> bytes{};
    for (size_t group = 0; group < 8; ++group) {
      if (random() % 2) continue;
      bytes[2 * group] = static_cast<uint8_t>(random() % 2 ? random() : 0);
      bytes[2 * group + 1] = static_cast<uint8_t>(random());
    }
    // Where the two readers and writers agree: no address that carries an IPv4 one, and none with
    // an early "::".
    if (bytes[0] == 0 && bytes[1] == 0) bytes[1] = 1;
    char text[INET6_ADDRSTRLEN];
    ASSERT_TRUE(inet_ntop(AF_INET6, bytes.data(), text, sizeof text));
    std::array<uint8_t, 16> read{};
    ASSERT_EQ(vorel::address::ParseIPv6(text, read), NS_OK) << text;
    EXPECT_EQ(read, bytes) << text;
    if (bytes[10] == 0x5e && bytes[11] == 0xfe) continue;
    EXPECT_EQ(vorel::address::FormatIPv6(bytes), text);
  }
}

TEST(IPv6, AddressesThatCarryAnIPv4OnePrintItWithPoints) {
  EXPECT_EQ(Read6("::ffff:c0a8:1"), "::ffff:192.168.0.1");
  EXPECT_EQ(Read6("::ffff:192.168.0.1"), "::ffff:192.168.0.1");
  EXPECT_EQ(Read6("::10.0.0.1"), "::10.0.0.1");
  EXPECT_EQ(Read6("::ffff:0:1.2.3.4"), "::ffff:0:1.2.3.4");
  EXPECT_EQ(Read6("fe80::5efe:1.2.3.4"), "fe80::5efe:1.2.3.4");
  EXPECT_EQ(Read6("fe80::200:5efe:a00:1"), "fe80::200:5efe:10.0.0.1");
  EXPECT_EQ(Read6("64:ff9b::1.2.3.4"), "64:ff9b::102:304");
  // Not when the first half of it is zero.
  EXPECT_EQ(Read6("::1"), "::1");
  EXPECT_EQ(Read6("::ffff:0.0.1.2"), "::ffff:0:102");
}

TEST(IPv6, ASingleZeroGroupIsWrittenOutAndTheFirstOfEqualRunsIsCut) {
  EXPECT_EQ(Read6("1:0:2:3:4:5:6:7"), "1:0:2:3:4:5:6:7");
  EXPECT_EQ(Read6("1:0:0:2:3:0:0:4"), "1::2:3:0:0:4");
  EXPECT_EQ(Read6("1:0:0:2:0:0:0:4"), "1:0:0:2::4");
  EXPECT_EQ(Read6("1:2:3:4:5:6:0:0"), "1:2:3:4:5:6::");
  EXPECT_EQ(Read6("0:0:0:0:0:0:0:0"), "::");
  EXPECT_EQ(Read6("2001:DB8:0:0:0:0:ABCD:00EF"), "2001:db8::abcd:ef");
}

TEST(IPv6, TextBehindAnAddressDoesNoHarm) {
  EXPECT_EQ(Read6("fe80::1%eth0"), "fe80::1");
  EXPECT_EQ(Read6("fe80::1%12"), "fe80::1");
  EXPECT_EQ(Read6("2001:db8::/32"), "2001:db8::");
  EXPECT_EQ(Read6("1:2:3:4:5:6:7:8:9"), "1:2:3:4:5:6:7:8");
  EXPECT_EQ(Read6("1::2::3"), "1::2");
  EXPECT_EQ(Read6("1:::2"), "1::");
  EXPECT_EQ(Read6("::1.2.3.4.5"), "::1.2.3.4");
  EXPECT_EQ(Read6("::1.2.3.4a"), "::1.2.3.4");
  EXPECT_EQ(Read6("1:2:3:4:5:6:7:1.2.3.4"), "1:2:3:4:5:6:7:1");
}

TEST(IPv6, WhatTheSystemsOwnReaderMakesOfOddText) {
  EXPECT_EQ(Read6("::0:a:b:c:d:e:f"), "::a:b:c:d:e")
      << "a leading :: stands for two groups at least";
  EXPECT_EQ(Read6("1:2:3:4:5:6:7::"), "1:2:3:4:5:6:7:0");
  EXPECT_EQ(Read6("1:2:3:4:5:6:7::8"), "1:2:3:4:5:6:7:0");
  EXPECT_EQ(Read6("1::0x1234"), "1::1234");
  EXPECT_EQ(Read6("1::0x12345678"), "1::5678");
  EXPECT_EQ(Read6("1::0x80000000"), "1::ffff") << "the largest number of 31 bits";
  EXPECT_EQ(Read6("1::0x100000000"), "1::ffff");
}

TEST(IPv6, TextWithoutAnAddressIsRefusedAndChangesNothing) {
  const auto value = Of<nsSystemIPv6Structure>("2001:db8::7");
  for (const char* text : {"",
                           ":",
                           ":1",
                           "1",
                           "1:",
                           "1:2:3:4:5:6:7",
                           "1:2:3:4:5:6:7:",
                           "1::2:",
                           "1::2:x",
                           "1.2.3.4",
                           "::1.2.3",
                           "::1.2.3.",
                           "::1.2.3.256",
                           "::1.2.3.0004",
                           "::1234.5.6.7",
                           "1:2:3:4:5:1.2.3.4",
                           "12345:2:3:4:5:6:7:8",
                           "1:2:3:4:5:6:7:12345",
                           "2001:db8::12345",
                           "2001:db8::00001",
                           "1::23456:1",
                           "[::1]",
                           " ::1",
                           "x"}) {
    EXPECT_EQ(Set(value, text), NS_ERROR_FAILURE) << text;
    EXPECT_EQ(TextOf(value.get()), "2001:db8::7") << text;
  }
}

TEST(MAC, EitherSeparatorIsTakenAndTheTextSetsTheLength) {
  EXPECT_EQ(TextOf(Of<nsSystemMACStructure>("aa:BB-cc:DD-ee:FF").get()), "AA-BB-CC-DD-EE-FF");
  const auto shorter = Of<nsSystemMACStructure>("aa:bb");
  EXPECT_EQ(TextOf(shorter.get()), "AA-BB");
  uint8_t byte = 1;
  EXPECT_EQ(shorter->GetByte5(&byte), NS_OK);
  EXPECT_EQ(byte, 0);
  const uint8_t six[6] = {1, 2, 3, 4, 5, 6};
  EXPECT_EQ(shorter->SetBytes(6, six), NS_ERROR_FAILURE);
}

TEST(MAC, ALongValueGrowsTheBufferAndItsCloneIsWhole) {
  std::string text = "00";
  for (int i = 1; i < 300; ++i) text += ":" + std::to_string(i % 100);
  const auto value = Of<nsSystemMACStructure>(text);
  nsCOMPtr<nsISystemIPStructure> clone;
  ASSERT_EQ(value->Clone(clone.getter_AddRefs()), NS_OK);
  EXPECT_EQ(TextOf(clone.get()), TextOf(value.get()));
  EXPECT_EQ(TextOf(clone.get()).size(), 300u * 3 - 1);
  EXPECT_EQ(Set(value, "1:2:3"), NS_OK);
  EXPECT_EQ(TextOf(value.get()), "01-02-03");
}

TEST(MAC, TokensThatAreNoByteAreRefusedAndChangeNothing) {
  const auto value = Of<nsSystemMACStructure>("1-2-3-4-5-6");
  for (const char* text :
       {"", "aa::bb", "1FF:00", ":", "aa:", "-aa", "xx:00", "ffffffffffffffffff:00"}) {
    EXPECT_EQ(Set(value, text), NS_ERROR_FAILURE) << text;
    EXPECT_EQ(TextOf(value.get()), "01-02-03-04-05-06") << text;
  }
}

TEST(Values, NewOnesAreZeroAndRefuseOtherLengths) {
  const auto check = [](const auto& aValue, const char* aText) {
    EXPECT_EQ(TextOf(aValue.get()), aText);
    const uint8_t bytes[3] = {1, 2, 3};
    EXPECT_EQ(aValue->SetBytes(3, bytes), NS_ERROR_FAILURE);
    EXPECT_EQ(aValue->SetBytes(3, nullptr), NS_ERROR_INVALID_ARG);
    EXPECT_EQ(TextOf(aValue.get()), aText);
  };
  check(MakeRefCounted<nsSystemIPv4Structure>(), "0.0.0.0");
  check(MakeRefCounted<nsSystemIPv6Structure>(), "::");
  check(MakeRefCounted<nsSystemMACStructure>(), "00-00-00-00-00-00");
}

TEST(Values, BytesAreTheTextFormInOrderForEveryAccessor) {
  const auto value = Of<nsSystemIPv6Structure>("102:304:506:708:90a:b0c:d0e:f10");
  uint8_t byte = 0;
  EXPECT_EQ(value->GetByte0(&byte), NS_OK);
  EXPECT_EQ(byte, 1);
  EXPECT_EQ(value->GetByte15(&byte), NS_OK);
  EXPECT_EQ(byte, 16);
  EXPECT_EQ(value->SetByte9(0xff), NS_OK);
  EXPECT_EQ(TextOf(value.get()), "102:304:506:708:9ff:b0c:d0e:f10");
  uint32_t count = 0;
  uint8_t* bytes = nullptr;
  ASSERT_EQ(value->GetBytes(&count, &bytes), NS_OK);
  EXPECT_EQ(count, 16u);
  bytes[0] = 99;  // the caller's own copy
  NS_Free(bytes);
  EXPECT_EQ(TextOf(value.get()), "102:304:506:708:9ff:b0c:d0e:f10");
}

TEST(Values, EqualityLooksAtBytesOnlyAndNullIsNeverEqual) {
  const auto v4 = Of<nsSystemIPv4Structure>("1.2.3.4");
  const auto mac = Of<nsSystemMACStructure>("1-2-3-4");
  bool equal = false;
  EXPECT_EQ(v4->Equals(mac.get(), &equal), NS_OK);
  EXPECT_TRUE(equal);
  EXPECT_EQ(v4->Equals(Of<nsSystemIPv6Structure>("::1.2.3.4").get(), &equal), NS_OK);
  EXPECT_FALSE(equal);
  equal = true;
  EXPECT_EQ(v4->Equals(nullptr, &equal), NS_OK);
  EXPECT_FALSE(equal);
}

TEST(Values, ACloneIsOfTheSameClassAndChangesAlone) {
  const auto value = Of<nsSystemIPv4Structure>("1.2.3.4");
  nsCOMPtr<nsISystemIPStructure> clone;
  ASSERT_EQ(value->Clone(clone.getter_AddRefs()), NS_OK);
  const auto v4 = do_QueryInterface<nsISystemIPv4Structure>(clone);
  ASSERT_TRUE(v4);
  EXPECT_EQ(v4->SetByte3(9), NS_OK);
  EXPECT_EQ(TextOf(value.get()), "1.2.3.4");
  EXPECT_EQ(TextOf(clone.get()), "1.2.3.9");
}

TEST(Values, OnlyTheIPv4OneTakesScriptArguments) {
  const auto initialise = [](const auto& aValue, uint32_t aArgc) {
    return aValue->Initialize(nullptr, nullptr, nullptr, aArgc, nullptr);
  };
  EXPECT_EQ(initialise(MakeRefCounted<nsSystemIPv4Structure>(), 2), NS_OK);
  EXPECT_EQ(initialise(MakeRefCounted<nsSystemIPv6Structure>(), 1), NS_ERROR_FAILURE);
  EXPECT_EQ(initialise(MakeRefCounted<nsSystemMACStructure>(), 1), NS_ERROR_FAILURE);
  EXPECT_EQ(initialise(MakeRefCounted<nsSystemIPAddress>(), 1), NS_ERROR_FAILURE);
  EXPECT_EQ(initialise(MakeRefCounted<nsSystemIPAddress>(), 0), NS_OK);
}

TEST(Mask, IsIPv4WhateverTheAddressAndNoLongerThan32Bits) {
  const auto address = MakeRefCounted<nsSystemIPAddress>();
  EXPECT_EQ(address->SetAddress(Of<nsSystemIPv6Structure>("2001:db8::1").get()), NS_OK);
  for (const auto& [length, text] :
       std::initializer_list<std::pair<uint8_t, const char*>>{{0, "0.0.0.0"},
                                                              {1, "128.0.0.0"},
                                                              {20, "255.255.240.0"},
                                                              {32, "255.255.255.255"},
                                                              {64, "255.255.255.255"}}) {
    EXPECT_EQ(address->SetPrefixLength(length), NS_OK);
    nsCOMPtr<nsISystemIPStructure> mask;
    ASSERT_EQ(address->GetMask(mask.getter_AddRefs()), NS_OK);
    EXPECT_EQ(TextOf(mask.get()), text);
  }
}

TEST(Mask, CountsLeadingBitsUpToTheFirstHole) {
  const auto address = MakeRefCounted<nsSystemIPAddress>();
  const auto lengthOf = [&](nsISystemIPStructure* aMask) {
    EXPECT_EQ(address->SetMask(aMask), NS_OK);
    uint8_t length = 77;
    EXPECT_EQ(address->GetPrefixLength(&length), NS_OK);
    return length;
  };
  EXPECT_EQ(lengthOf(Of<nsSystemIPv4Structure>("255.255.240.0").get()), 20);
  EXPECT_EQ(lengthOf(Of<nsSystemIPv4Structure>("255.0.255.0").get()), 8);
  EXPECT_EQ(lengthOf(Of<nsSystemIPv4Structure>("0.255.0.0").get()), 0);
  EXPECT_EQ(lengthOf(Of<nsSystemIPv6Structure>("ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff").get()),
            128);
  EXPECT_EQ(address->SetMask(nullptr), NS_ERROR_NULL_POINTER);
  uint16_t origin = 0;
  EXPECT_EQ(address->GetPrefixOrigin(&origin), NS_OK);
  EXPECT_EQ(origin, 1);
}

TEST(AnyText, IsSafeAndWhatIsAcceptedReadsBackAsItself) {
  std::mt19937 random(20);
  const std::string_view alphabet("0123456789abcdefABCDEFx:.-%/ \0g", 31);
  for (int round = 0; round < 200000; ++round) {
    std::string text;
    for (size_t length = random() % 50; length > 0; --length)
      text += alphabet[random() % alphabet.size()];
    std::array<uint8_t, 4> v4{};
    (void)vorel::address::ParseIPv4(text, v4);
    std::array<uint8_t, 16> v6{}, again{};
    if (NS_SUCCEEDED(vorel::address::ParseIPv6(text, v6))) {
      ASSERT_EQ(vorel::address::ParseIPv6(vorel::address::FormatIPv6(v6), again), NS_OK) << text;
      ASSERT_EQ(again, v6) << text;
    }
    std::vector<uint8_t> mac, macAgain;
    if (NS_SUCCEEDED(vorel::address::ParseMAC(text, &mac))) {
      ASSERT_EQ(vorel::address::ParseMAC(vorel::address::FormatMAC(mac), &macAgain), NS_OK) << text;
      ASSERT_EQ(macAgain, mac) << text;
    }
  }
}

}  // namespace

// Countries and frequencies by calling code.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "nsCountryTable.h"

namespace {

std::vector<std::string> NamesOf(uint32_t aCode) {
  std::vector<std::string> names, isoCodes;
  appendCountriesOfCode(aCode, &names, &isoCodes);
  EXPECT_EQ(names.size(), isoCodes.size());
  return names;
}

uint32_t CodeOf(std::string_view aIsoCode) {
  uint32_t code = 0;
  mapIsoCodeToCountryCode(aIsoCode, &code);
  return code;
}

TEST(CountriesTest, ARowIsMissingOrInAnotherPlace) {
  std::set<uint32_t> codes;
  for (const auto& row : NS_Countries()) codes.insert(row.mCallingCode);
  EXPECT_EQ(NS_Countries().size(), 243u);
  EXPECT_EQ(codes.size(), 204u);
  EXPECT_TRUE(std::ranges::is_sorted(NS_Countries(), {}, &nsCountryRow::mCallingCode));
  EXPECT_EQ(NamesOf(7), (std::vector<std::string>{"Kazakhstan", "Kyrgyzstan", "Tajikistan",
                                                  "Turkmenistan", "Uzbekistan", "Russia"}));
  EXPECT_EQ(NamesOf(1).size(), 23u);
  EXPECT_EQ(NamesOf(225), std::vector<std::string>{"Cote d'ivoire"});
  EXPECT_EQ(NamesOf(590), (std::vector<std::string>{"Guadeloupe", "Saint martin", "Guadeloupe",
                                                    "Saint barthelemy"}));
  for (const uint32_t code : {0u, 3u, 999u, 1000u, 65537u}) EXPECT_TRUE(NamesOf(code).empty());
}

TEST(CountriesTest, ACountryDoesNotFindItsWayBack) {
  for (const auto& row : NS_Countries()) {
    const std::string_view iso = row.mIsoCode;
    EXPECT_EQ(CodeOf(iso), iso == "CA" ? 1u : iso == "CD" ? 242u : row.mCallingCode) << iso;
  }
  EXPECT_EQ(CodeOf("fr"), 0u);
  EXPECT_EQ(CodeOf(""), 0u);
  EXPECT_EQ(CodeOf("AOR-E"), 871u);
  EXPECT_EQ(CodeOf("POR"), 872u);
}

TEST(CountriesTest, ACountryIsScannedWhereItDoesNotBroadcast) {
  const auto france = NS_FrequenciesOfCountry(33);
  EXPECT_EQ(france.size(), 28u);
  EXPECT_EQ(france.front(), 474000u);  // channel 21
  EXPECT_EQ(france.back(), 690000u);   // channel 48
  const auto australia = NS_FrequenciesOfCountry(61);
  EXPECT_EQ(australia.front(), 177500u);  // channel 6
  EXPECT_EQ(australia[7], 226500u);       // channel 12
  EXPECT_EQ(australia.back(), 690500u);   // channel 51
  EXPECT_EQ(NS_FrequenciesOfCountry(886).front(), 533000u);
  for (const uint32_t other : {1u, 55u, 81u, 82u, 86u, 871u, 1000u})  // other systems, and none
    EXPECT_TRUE(NS_FrequenciesOfCountry(other).empty()) << other;
  for (uint32_t code = 0; code < 1000; ++code) {
    const auto frequencies = NS_FrequenciesOfCountry(code);
    EXPECT_TRUE(std::ranges::is_sorted(frequencies));
    EXPECT_EQ(std::ranges::adjacent_find(frequencies), frequencies.end());
    EXPECT_TRUE(frequencies.empty() || !NamesOf(code).empty()) << code;
  }
}

}  // namespace

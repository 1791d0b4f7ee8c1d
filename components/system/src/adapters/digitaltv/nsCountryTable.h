// Countries by telephone calling code, and the frequencies that are used there.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// One country of the table: several may share a calling code. Names and codes are kept as they
/// stand, with their oddities: what players have stored goes by them.
struct nsCountryRow {
  uint16_t mCallingCode;
  const char* mIsoCode;
  const char* mName;
};

/// Ordered by calling code; those of one code in the order in which they are shown.
std::span<const nsCountryRow> NS_Countries();

/// Appends name and ISO code of each country of a calling code, in the order of the table. Nothing
/// for a code that is not in it.
void appendCountriesOfCode(uint32_t aCode, std::vector<std::string>* aNames,
                           std::vector<std::string>* aIsoCodes);

/// The calling code of an ISO code, in capitals; the first of the table where there are two. *aCode
/// stays as it is for a code that is not in the table.
void mapIsoCodeToCountryCode(std::string_view aIsoCode, uint32_t* aCode);

/// The centre frequencies, in kHz, of the channels on which a country may broadcast DVB-T or
/// DVB-T2, in rising order within a band; empty for countries that have neither on the air. For
/// platforms that have no such table themselves.
std::vector<uint32_t> NS_FrequenciesOfCountry(uint32_t aCallingCode);

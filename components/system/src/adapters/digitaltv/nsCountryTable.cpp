#include "nsCountryTable.h"

#include <algorithm>

namespace {

// As players know them: "CD" stands for both Congos and "CS" for Serbia, Nevis and Barbuda have no
// code of their own, Canada has two calling codes, one island stands there twice, and the regions
// of satellites are no countries.
constexpr nsCountryRow kRows[] = {
    {1, "KN", "Saint kitts"},
    {1, "VC", "Saint vincent and the grenadines"},
    {1, "AI", "Anguilla"},
    {1, "BS", "Bahamas"},
    {1, "BB", "Barbados"},
    {1, "BM", "Bermuda"},
    {1, "CA", "Canada"},
    {1, "KY", "Cayman islands"},
    {1, "DM", "Dominica"},
    {1, "DO", "Dominican republic"},
    {1, "GD", "Grenada"},
    {1, "JM", "Jamaica"},
    {1, "MS", "Montserrat"},
    {1, "TT", "Trinidad and tobago"},
    {1, "TC", "Turks and caicos islands"},
    {1, "PR", "Puerto rico"},
    {1, "LC", "Saint lucia"},
    {1, "AG", "Antigua"},
    {1, "KN", "Nevis"},
    {1, "AG", "Barbuda"},
    {1, "US", "Usa"},
    {1, "VG", "British virgin islands"},
    {1, "VI", "United states virgin islands"},
    {2, "CA", "Canada"},
    {7, "KZ", "Kazakhstan"},
    {7, "KG", "Kyrgyzstan"},
    {7, "TJ", "Tajikistan"},
    {7, "TM", "Turkmenistan"},
    {7, "UZ", "Uzbekistan"},
    {7, "RU", "Russia"},
    {20, "EG", "Egypt"},
    {27, "ZA", "South africa"},
    {30, "GR", "Greece"},
    {31, "NL", "Netherlands"},
    {32, "BE", "Belgium"},
    {33, "FR", "France"},
    {34, "ES", "Spain"},
    {36, "HU", "Hungary"},
    {39, "IT", "Italy"},
    {39, "VA", "Vatican city"},
    {40, "RO", "Romania"},
    {41, "CH", "Switzerland"},
    {41, "LI", "Liechtenstein"},
    {43, "AT", "Austria"},
    {44, "GB", "United kingdom"},
    {45, "DK", "Denmark"},
    {46, "SE", "Sweden"},
    {47, "NO", "Norway"},
    {48, "PL", "Poland"},
    {49, "DE", "Germany"},
    {51, "PE", "Peru"},
    {52, "MX", "Mexico"},
    {53, "CU", "Cuba"},
    {53, "CU", "Guantanamo bay"},
    {54, "AR", "Argentina"},
    {55, "BR", "Brazil"},
    {56, "CL", "Chile"},
    {57, "CO", "Colombia"},
    {58, "VE", "Venezuela"},
    {60, "MY", "Malaysia"},
    {61, "AU", "Australia"},
    {61, "CC", "Cocos-keeling islands"},
    {62, "ID", "Indonesia"},
    {63, "PH", "Philippines"},
    {64, "NZ", "New zealand"},
    {65, "SG", "Singapore"},
    {66, "TH", "Thailand"},
    {81, "JP", "Japan"},
    {82, "KR", "Korea (south)"},
    {84, "VN", "Vietnam"},
    {86, "CN", "China"},
    {90, "TR", "Turkey"},
    {91, "IN", "India"},
    {92, "PK", "Pakistan"},
    {93, "AF", "Afghanistan"},
    {94, "LK", "Sri lanka"},
    {95, "MM", "Myanmar"},
    {98, "IR", "Iran"},
    {212, "MA", "Morocco"},
    {213, "DZ", "Algeria"},
    {216, "TN", "Tunisia"},
    {218, "LY", "Libya"},
    {220, "GM", "Gambia"},
    {221, "SN", "Senegal republic"},
    {222, "MR", "Mauritania"},
    {223, "ML", "Mali"},
    {224, "GN", "Guinea"},
    {225, "CI", "Cote d'ivoire"},
    {226, "BF", "Burkina faso"},
    {227, "NE", "Niger"},
    {228, "TG", "Togo"},
    {229, "BJ", "Benin"},
    {230, "MU", "Mauritius"},
    {231, "LR", "Liberia"},
    {232, "SL", "Sierra leone"},
    {233, "GH", "Ghana"},
    {234, "NG", "Nigeria"},
    {235, "TD", "Chad"},
    {236, "CF", "Central african republic"},
    {237, "CM", "Cameroon"},
    {238, "CV", "Cape verde islands"},
    {239, "ST", "Sao tome and principe"},
    {240, "GQ", "Equatorial guinea"},
    {241, "GA", "Gabon"},
    {242, "CD", "Congo"},
    {243, "CD", "Congo(drc)"},
    {244, "AO", "Angola"},
    {245, "GW", "Guinea-bissau"},
    {246, "DG", "Diego garcia"},
    {247, "AC", "Ascension island"},
    {248, "SC", "Seychelle islands"},
    {249, "SD", "Sudan"},
    {250, "RW", "Rwanda"},
    {251, "ET", "Ethiopia"},
    {252, "SO", "Somalia"},
    {253, "DJ", "Djibouti"},
    {254, "KE", "Kenya"},
    {255, "TZ", "Tanzania"},
    {256, "UG", "Uganda"},
    {257, "BI", "Burundi"},
    {258, "MZ", "Mozambique"},
    {260, "ZM", "Zambia"},
    {261, "MG", "Madagascar"},
    {262, "RE", "Reunion island"},
    {263, "ZW", "Zimbabwe"},
    {264, "NA", "Namibia"},
    {265, "MW", "Malawi"},
    {266, "LS", "Lesotho"},
    {267, "BW", "Botswana"},
    {268, "SZ", "Swaziland"},
    {269, "KM", "Comoros"},
    {269, "YT", "Mayotte island"},
    {290, "SH", "Saint helena"},
    {291, "ER", "Eritrea"},
    {297, "AW", "Aruba"},
    {298, "FO", "Faroe islands"},
    {299, "GL", "Greenland"},
    {350, "GI", "Gibraltar"},
    {351, "PT", "Portugal"},
    {352, "LU", "Luxembourg"},
    {353, "IE", "Ireland"},
    {354, "IS", "Iceland"},
    {355, "AL", "Albania"},
    {356, "MT", "Malta"},
    {357, "CY", "Cyprus"},
    {358, "FI", "Finland"},
    {359, "BG", "Bulgaria"},
    {370, "LT", "Lithuania"},
    {371, "LV", "Latvia"},
    {372, "EE", "Estonia"},
    {373, "MD", "Moldova"},
    {374, "AM", "Armenia"},
    {375, "BY", "Belarus"},
    {376, "AD", "Andorra"},
    {377, "MC", "Monaco"},
    {378, "SM", "San marino"},
    {380, "UA", "Ukraine"},
    {381, "CS", "Serbia"},
    {385, "HR", "Croatia"},
    {386, "SI", "Slovenia"},
    {387, "BA", "Bosnia and herzegovina"},
    {389, "MK", "Macedonia"},
    {420, "CZ", "Czech republic"},
    {421, "SK", "Slovak republic"},
    {500, "FK", "Falkland islands"},
    {501, "BZ", "Belize"},
    {502, "GT", "Guatemala"},
    {503, "SV", "El salvador"},
    {504, "HN", "Honduras"},
    {505, "NI", "Nicaragua"},
    {506, "CR", "Costa rica"},
    {507, "PA", "Panama"},
    {508, "PM", "Saint pierre and miquelon"},
    {509, "HT", "Haiti"},
    {590, "GP", "Guadeloupe"},
    {590, "MF", "Saint martin"},
    {590, "GP", "Guadeloupe"},
    {590, "BL", "Saint barthelemy"},
    {591, "BO", "Bolivia"},
    {592, "GY", "Guyana"},
    {593, "EC", "Ecuador"},
    {594, "GF", "French guiana"},
    {595, "PY", "Paraguay"},
    {596, "MQ", "Martinique"},
    {597, "SR", "Suriname"},
    {598, "UY", "Uruguay"},
    {599, "AN", "Netherlands antilles"},
    {670, "MP", "Saipan island"},
    {670, "MP", "Rota island"},
    {670, "MP", "Tinian island"},
    {671, "GU", "Guam"},
    {672, "CX", "Christmas island"},
    {672, "NF", "Norfolk island"},
    {672, "AQ", "Australian antarctic territory"},
    {673, "BN", "Brunei"},
    {674, "NR", "Nauru"},
    {675, "PG", "Papua new guinea"},
    {676, "TO", "Tonga"},
    {677, "SB", "Solomon islands"},
    {678, "VU", "Vanuatu"},
    {679, "FJ", "Fiji islands"},
    {680, "PW", "Palau"},
    {681, "WF", "Wallis and futuna islands"},
    {682, "CK", "Cook islands"},
    {683, "NU", "Niue"},
    {684, "AS", "Territory of american samoa"},
    {685, "WS", "Samoa"},
    {686, "KI", "Kiribati republic"},
    {687, "NC", "New caledonia"},
    {688, "TV", "Tuvalu"},
    {689, "PF", "French polynesia"},
    {690, "TK", "Tokelau"},
    {691, "FM", "Micronesia"},
    {692, "MH", "Marshall islands"},
    {850, "KP", "Korea (north)"},
    {852, "HK", "Hong kong"},
    {853, "MO", "Macao"},
    {855, "KH", "Cambodia"},
    {856, "LA", "Laos"},
    {871, "AOR-E", "Inmarsat (atlantic-east)"},
    {872, "POR", "Inmarsat (pacific)"},
    {873, "IOR", "Inmarsat (indian)"},
    {874, "AOR-W", "Inmarsat (atlantic-west)"},
    {880, "BD", "Bangladesh"},
    {886, "TW", "Taiwan"},
    {960, "MV", "Maldives"},
    {961, "LB", "Lebanon"},
    {962, "JO", "Jordan"},
    {963, "SY", "Syria"},
    {964, "IQ", "Iraq"},
    {965, "KW", "Kuwait"},
    {966, "SA", "Saudi arabia"},
    {967, "YE", "Yemen"},
    {968, "OM", "Oman"},
    {971, "AE", "United arab emirates"},
    {972, "IL", "Israel"},
    {973, "BH", "Bahrain"},
    {974, "QA", "Qatar"},
    {975, "BT", "Bhutan"},
    {976, "MN", "Mongolia"},
    {977, "NP", "Nepal"},
    {994, "AZ", "Azerbaijan"},
    {995, "GE", "Georgia"},
};

// ---- Channel rasters

struct Raster {
  uint32_t mFirst;    ///< centre of the first channel, kHz
  uint32_t mSpacing;  ///< kHz
  uint32_t mChannels;
};

// Bands IV and V in steps of 8 MHz, channels 21 to 60 (470 to 790 MHz): Final Acts of the Regional
// Radiocommunication Conference RRC-06 (Geneva 2006), to the upper limit of the World
// Radiocommunication Conference of 2012. Countries outside of that plan's region use the same
// raster: ITU-R BT.1701 and the plans of their regulators.
constexpr Raster kUhf60{474000, 8000, 40};
// The same to channel 48 (694 MHz): Decision (EU) 2017/899 on the use of 470 to 790 MHz, and those
// who follow it.
constexpr Raster kUhf48{474000, 8000, 28};
// Band III in steps of 7 MHz, channels 5 to 12 (174 to 230 MHz): RRC-06, where multiplexes are on
// the air in it.
constexpr Raster kVhf7{177500, 7000, 8};
// Band III in steps of 8 MHz, channels 6 to 12 (174 to 230 MHz): RRC-06, the same.
constexpr Raster kVhf8{178000, 8000, 7};
// Australia: AS 4599.1 and the plans of ACMA; band III with channel 9A, and 28 to 51 (526 to 694
// MHz), each 7 MHz.
constexpr Raster kAustraliaVhf{177500, 7000, 8};
constexpr Raster kAustraliaUhf{529500, 7000, 24};
// New Zealand: Radio Spectrum Management, digital television, 510 to 686 MHz, channels 26 to 47.
constexpr Raster kNewZealand{514000, 8000, 22};
// Taiwan: National Communications Commission, 530 to 602 MHz in steps of 6 MHz, channels 24 to 35.
constexpr Raster kTaiwan{533000, 6000, 12};
// Colombia (Agencia Nacional del Espectro) and Panama (Autoridad Nacional de los Servicios
// Publicos): channels 14 to 51 of 6 MHz, 470 to 698 MHz.
constexpr Raster kAmericanUhf{473000, 6000, 38};

// Which of them are in use where: "Status of the transition to digital terrestrial television" of
// the ITU, and the register of systems in use of the DVB Project. Countries of which these say
// nothing sure are left out.
struct Use {
  std::vector<Raster> mRasters;
  std::vector<uint16_t> mCallingCodes;
};

const std::vector<Use>& Uses() {
  static const std::vector<Use> sUses = {
      // Europe, and what is under European plans overseas
      {{kUhf48}, {30,  31,  32,  33,  34,  36,  40,  41,  43,  44,  45,  47,  48,  49,  262, 269,
                  298, 299, 350, 351, 352, 353, 354, 355, 356, 357, 359, 370, 371, 372, 376, 377,
                  378, 381, 386, 387, 389, 420, 421, 500, 508, 590, 594, 596, 681, 687, 689}},
      {{kVhf7, kUhf48}, {39, 46, 358, 385}},
      // Eastern Europe, the Caucasus, central Asia
      {{kUhf60}, {7, 373, 374, 375, 380, 976, 994, 995}},
      // Africa
      {{kUhf60}, {20,  212, 216, 218, 220, 221, 222, 223, 225, 226, 227, 228, 229, 230,
                  232, 233, 234, 235, 237, 238, 239, 241, 242, 243, 244, 248, 249, 250,
                  251, 253, 254, 255, 256, 257, 258, 260, 261, 263, 264, 265, 266, 268}},
      {{kVhf8, kUhf60}, {27, 213}},
      // The Near East
      {{kUhf60}, {90, 93, 98, 963, 964, 965, 966, 968, 971, 972, 974}},
      // South and south-east Asia
      {{kUhf60}, {91}},
      {{kUhf48}, {60, 62, 65, 66, 84, 95, 673, 855}},
      {{kTaiwan}, {886}},
      // Oceania
      {{kAustraliaVhf, kAustraliaUhf}, {61}},
      {{kNewZealand}, {64}},
      // America
      {{kAmericanUhf}, {57, 507}},
  };
  return sUses;
}

}  // namespace

std::span<const nsCountryRow> NS_Countries() { return kRows; }

void appendCountriesOfCode(uint32_t aCode, std::vector<std::string>* aNames,
                           std::vector<std::string>* aIsoCodes) {
  for (const nsCountryRow& row : kRows) {
    if (row.mCallingCode != aCode) continue;
    aNames->emplace_back(row.mName);
    aIsoCodes->emplace_back(row.mIsoCode);
  }
}

void mapIsoCodeToCountryCode(std::string_view aIsoCode, uint32_t* aCode) {
  const auto found = std::ranges::find(kRows, aIsoCode, &nsCountryRow::mIsoCode);
  if (found != std::end(kRows)) *aCode = found->mCallingCode;
}

std::vector<uint32_t> NS_FrequenciesOfCountry(uint32_t aCallingCode) {
  std::vector<uint32_t> frequencies;
  for (const Use& use : Uses()) {
    if (std::ranges::find(use.mCallingCodes, aCallingCode) == use.mCallingCodes.end()) continue;
    for (const Raster& raster : use.mRasters)
      for (uint32_t channel = 0; channel < raster.mChannels; ++channel)
        frequencies.push_back(raster.mFirst + channel * raster.mSpacing);
  }
  return frequencies;
}

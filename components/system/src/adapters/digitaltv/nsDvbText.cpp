#include "nsDvbText.h"

#include <string>

#include "nsICharsetConverterManager.h"
#include "nsIUnicodeDecoder.h"
#include "nsIUnicodeEncoder.h"
#include "nsServices.h"
#include "nsString.h"

namespace {

constexpr unsigned kPartOf8859 = 0x10;

/// The set that the selector names, and how many bytes stand in front of the text. False for a
/// selector that there is not.
bool SelectCharset(std::string_view aText, std::string* aCharset, size_t* aSelector) {
  const auto byte = [&](size_t aIndex) {
    return aIndex < aText.size() ? static_cast<unsigned char>(aText[aIndex]) : 0u;
  };
  const auto partOf8859 = [&](unsigned aPart) { *aCharset = "ISO-8859-" + std::to_string(aPart); };
  *aSelector = 1;
  switch (const unsigned first = byte(0)) {
    case 0x01:
    case 0x02:
    case 0x03:
    case 0x04:
    case 0x05:
    case 0x06:
    case 0x07:
    case 0x09:
    case 0x0A:
    case 0x0B:
      partOf8859(first + 4);
      return true;
    case kPartOf8859: {
      const unsigned part = byte(2);
      if (byte(1) != 0 || part == 0 || part == 12 || part > 15) return false;
      partOf8859(part);
      *aSelector = 3;
      return true;
    }
    case 0x11:
      *aCharset = "ISO-10646";
      return true;
    case 0x12:
      *aCharset = "KSX1001";
      return true;
    case 0x13:
      *aCharset = "GB2312";
      return true;
    case 0x14:
      *aCharset = "Big5";
      return true;
    default:
      return false;
  }
}

std::string_view UpToZero(std::string_view aText) { return aText.substr(0, aText.find('\0')); }

}  // namespace

nsresult decodeDvbText(std::string_view aText, nsACString& aResult) {
  // The standard's own table of characters is not applied: what stands here is what broadcasts
  // without a selector mean by it, most of all UTF-8 and ASCII.
  if (!aText.empty() && static_cast<unsigned char>(aText.front()) >= 0x20) {
    NS_Assign(aResult, UpToZero(aText));
    return NS_OK;
  }
  nsresult rv;
  const auto manager =
      do_GetService<nsICharsetConverterManager>("@mozilla.org/charset-converter-manager;1", &rv);
  if (NS_FAILED(rv)) return rv;
  std::string charset;
  size_t selector;
  if (!SelectCharset(aText, &charset, &selector)) return NS_ERROR_INVALID_ARG;
  nsCOMPtr<nsIUnicodeDecoder> decoder;
  rv = manager->GetUnicodeDecoder(charset.c_str(), decoder.getter_AddRefs());
  if (NS_FAILED(rv)) return rv;
  nsCOMPtr<nsIUnicodeEncoder> encoder;
  rv = manager->GetUnicodeEncoder("UTF-8", encoder.getter_AddRefs());
  if (NS_FAILED(rv)) return rv;

  const std::string_view text = UpToZero(aText.substr(selector));
  auto length = static_cast<int32_t>(text.size());
  int32_t unicodeLength = 0;
  rv = decoder->GetMaxLength(text.data(), length, &unicodeLength);
  if (NS_FAILED(rv)) return rv;
  std::u16string unicode(static_cast<size_t>(unicodeLength), u'\0');
  rv = decoder->Convert(text.data(), &length, unicode.data(), &unicodeLength);
  if (NS_FAILED(rv)) return rv;

  int32_t utf8Length = 0;
  rv = encoder->GetMaxLength(unicode.data(), unicodeLength, &utf8Length);
  if (NS_FAILED(rv)) return rv;
  std::string utf8(static_cast<size_t>(utf8Length), '\0');
  rv = encoder->Convert(unicode.data(), &unicodeLength, utf8.data(), &utf8Length);
  if (NS_FAILED(rv)) return rv;
  NS_Assign(aResult, std::string_view(utf8).substr(0, static_cast<size_t>(utf8Length)));
  return NS_OK;
}

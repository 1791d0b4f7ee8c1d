#include "nsUtf.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace vorel {

namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kMalformed = 0xFFFFFFFF;

// Reads one character and moves *aIndex behind it; behind the longest valid beginning of a
// malformed one.
char32_t DecodeUtf8(std::string_view aText, size_t* aIndex) {
  const auto byte = [&](size_t aAt) { return static_cast<uint8_t>(aText[aAt]); };
  const uint8_t lead = byte((*aIndex)++);
  if (lead < 0x80) return lead;
  size_t more;
  // Of the second byte: no overlong forms, no surrogates, nothing above 10FFFF.
  uint8_t low = 0x80, high = 0xBF;
  char32_t value;
  if (lead >= 0xC2 && lead <= 0xDF) {
    more = 1;
    value = lead & 0x1Fu;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    more = 2;
    value = lead & 0x0Fu;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    more = 3;
    value = lead & 0x07u;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return kMalformed;
  }
  for (; more; --more, low = 0x80, high = 0xBF) {
    if (*aIndex >= aText.size() || byte(*aIndex) < low || byte(*aIndex) > high) return kMalformed;
    value = value << 6 | (byte((*aIndex)++) & 0x3Fu);
  }
  return value;
}

void AppendUtf8(std::string& aOut, char32_t aChar) {
  const auto put = [&](char32_t aByte) { aOut += static_cast<char>(aByte); };
  if (aChar < 0x80) {
    put(aChar);
  } else if (aChar < 0x800) {
    put(0xC0 | aChar >> 6);
    put(0x80 | (aChar & 0x3F));
  } else if (aChar < 0x10000) {
    put(0xE0 | aChar >> 12);
    put(0x80 | (aChar >> 6 & 0x3F));
    put(0x80 | (aChar & 0x3F));
  } else {
    put(0xF0 | aChar >> 18);
    put(0x80 | (aChar >> 12 & 0x3F));
    put(0x80 | (aChar >> 6 & 0x3F));
    put(0x80 | (aChar & 0x3F));
  }
}

}  // namespace

std::u16string Utf8ToUtf16(std::string_view aText) {
  std::u16string out;
  out.reserve(aText.size());
  for (size_t i = 0; i < aText.size();) {
    char32_t c = DecodeUtf8(aText, &i);
    if (c == kMalformed) c = kReplacement;
    if (c < 0x10000) {
      out += static_cast<char16_t>(c);
    } else {
      out += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
      out += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
    }
  }
  return out;
}

std::string Utf16ToUtf8(std::u16string_view aText) {
  std::string out;
  out.reserve(aText.size());
  for (size_t i = 0; i < aText.size(); ++i) {
    char32_t c = aText[i];
    if (c >= 0xD800 && c <= 0xDFFF) {
      if (c <= 0xDBFF && i + 1 < aText.size() && aText[i + 1] >= 0xDC00 && aText[i + 1] <= 0xDFFF)
        c = 0x10000 + ((c - 0xD800) << 10) + (aText[++i] - 0xDC00u);
      else
        c = kReplacement;
    }
    AppendUtf8(out, c);
  }
  return out;
}

std::u16string AsciiToUtf16(std::string_view aText) {
  std::u16string out;
  out.reserve(aText.size());
  for (const char c : aText)
    out += static_cast<uint8_t>(c) < 0x80 ? static_cast<char16_t>(c) : char16_t{kReplacement};
  return out;
}

std::string Utf16ToAscii(std::u16string_view aText) {
  std::string out;
  out.reserve(aText.size());
  for (const char16_t c : aText) out += c < 0x80 ? static_cast<char>(c) : '?';
  return out;
}

bool IsUtf8(std::string_view aText) {
  for (size_t i = 0; i < aText.size();)
    if (DecodeUtf8(aText, &i) == kMalformed) return false;
  return true;
}

std::u16string NameToUtf16(std::string_view aName) {
  if (IsUtf8(aName)) return Utf8ToUtf16(aName);
  std::u16string text;
  while (!aName.empty()) {
    size_t length = 1;
    while (length <= std::min<size_t>(4, aName.size()) && !IsUtf8(aName.substr(0, length)))
      ++length;
    if (length <= std::min<size_t>(4, aName.size())) {
      text += Utf8ToUtf16(aName.substr(0, length));
      aName.remove_prefix(length);
    } else {
      text += static_cast<char16_t>(0xDC00 + static_cast<unsigned char>(aName.front()));
      aName.remove_prefix(1);
    }
  }
  return text;
}

std::string Utf16ToName(std::u16string_view aText) {
  const auto isHigh = [](char16_t aUnit) { return aUnit >= 0xD800 && aUnit < 0xDC00; };
  std::string bytes;
  size_t start = 0;
  for (size_t i = 0; i < aText.size(); ++i) {
    if (aText[i] < 0xDC80 || aText[i] > 0xDCFF || (i > 0 && isHigh(aText[i - 1]))) continue;
    bytes += Utf16ToUtf8(aText.substr(start, i - start));
    bytes += static_cast<char>(aText[i] - 0xDC00);
    start = i + 1;
  }
  return bytes += Utf16ToUtf8(aText.substr(start));
}

namespace {
constexpr bool Steers(char16_t aUnit) {
  return aUnit < 0x20 || (aUnit >= 0x7F && aUnit < 0xA0) || aUnit == 0x061C || aUnit == 0x200E ||
         aUnit == 0x200F || (aUnit >= 0x2028 && aUnit <= 0x202E) ||
         (aUnit >= 0x2066 && aUnit <= 0x2069);
}
}  // namespace

std::string Printable(std::string_view aText, bool aKeepsLines) {
  if (std::ranges::all_of(aText, [](char c) { return c >= 0x20 && c < 0x7F; }))
    return std::string(aText);
  std::u16string text;
  for (const char16_t unit : Utf8ToUtf16(aText)) {
    if (!Steers(unit) || unit == u'\t' || (aKeepsLines && unit == u'\n')) {
      text += unit;
      continue;
    }
    char escape[12];
    (void)snprintf(escape, sizeof escape, unit < 0x80 ? "\\x%02x" : "\\u{%x}", unsigned{unit});
    text += unit == u'\n' ? u"\\n" : AsciiToUtf16(escape);
  }
  return Utf16ToUtf8(text);
}

}  // namespace vorel

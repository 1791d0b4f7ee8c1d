#include "nsEdid.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace {

constexpr size_t kBlock = 128;
constexpr std::array<uint8_t, 8> kHeader = {0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0};
constexpr size_t kMaker = 8, kProduct = 10, kSerial = 12;
constexpr size_t kDescriptors = 54, kDescriptorSize = 18, kDescriptorText = 5;
constexpr uint8_t kNameTag = 0xFC, kSerialTag = 0xFF;

// Ends with a line feed and is filled up with spaces. What is no printable ASCII is left out.
std::string TextOf(std::span<const uint8_t> aDescriptor) {
  std::string text;
  for (const uint8_t byte : aDescriptor.subspan(kDescriptorText)) {
    if (byte == '\n') break;
    if (byte >= ' ' && byte < 0x7F) text += static_cast<char>(byte);
  }
  while (text.ends_with(' ')) text.pop_back();
  return text;
}

}  // namespace

nsEdid NS_ParseEdid(std::span<const uint8_t> aBytes) {
  nsEdid edid;
  if (aBytes.size() < kBlock || !std::ranges::equal(aBytes.first(kHeader.size()), kHeader))
    return edid;
  // Three letters of five bits each.
  std::string maker;
  const unsigned packed = static_cast<unsigned>(aBytes[kMaker] << 8 | aBytes[kMaker + 1]);
  for (const int shift : {10, 5, 0}) {
    const unsigned letter = packed >> shift & 0x1F;
    maker += letter >= 1 && letter <= 26 ? static_cast<char>('A' + letter - 1) : '_';
  }
  uint32_t serial = 0;
  for (size_t i = 4; i-- > 0;) serial = serial << 8 | aBytes[kSerial + i];
  char numbers[32];
  (void)std::snprintf(numbers, sizeof numbers, "-%04X-%08X",
                      static_cast<unsigned>(aBytes[kProduct + 1] << 8 | aBytes[kProduct]), serial);
  edid.mIdentity = maker + numbers;
  for (size_t at = kDescriptors; at + kDescriptorSize <= kBlock - 2; at += kDescriptorSize) {
    const auto descriptor = aBytes.subspan(at, kDescriptorSize);
    if (descriptor[0] || descriptor[1] || descriptor[2]) continue;  // a timing
    if (descriptor[3] == kNameTag && edid.mName.empty()) edid.mName = TextOf(descriptor);
    // Many have no number, and this instead.
    if (descriptor[3] == kSerialTag && serial == 0) {
      std::string text = TextOf(descriptor);
      std::ranges::replace(text, '\\', '_');
      if (!text.empty()) edid.mIdentity += "-" + text;
    }
  }
  return edid;
}

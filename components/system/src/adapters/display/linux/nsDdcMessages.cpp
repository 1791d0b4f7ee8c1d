#include "nsDdcMessages.h"

#include <algorithm>
#include <functional>
#include <numeric>

namespace {

constexpr uint8_t kHost = 0x51, kGetFeature = 0x01, kFeatureReply = 0x02, kSetFeature = 0x03;
constexpr uint8_t kLengthFlag = 0x80;
// Addresses count in checksums as the wire has them, moved by the bit that tells the direction; the
// host's is another one there than in messages.
constexpr uint8_t kDisplayOnWire = kDdcAddress << 1, kHostInChecksum = 0x50;

uint8_t Checksum(uint8_t aSeed, std::span<const uint8_t> aBytes) {
  return std::accumulate(aBytes.begin(), aBytes.end(), aSeed, std::bit_xor<uint8_t>());
}

template <size_t kSize>
std::array<uint8_t, kSize> Message(std::array<uint8_t, kSize> aBytes) {
  aBytes.back() = Checksum(kDisplayOnWire, std::span(aBytes).first(kSize - 1));
  return aBytes;
}

constexpr uint8_t High(uint16_t aNumber) { return static_cast<uint8_t>(aNumber >> 8); }
constexpr uint8_t Low(uint16_t aNumber) { return static_cast<uint8_t>(aNumber); }

}  // namespace

uint32_t nsDdcValue::Percent() const {
  return (std::min(mCurrent, mMaximum) * 100u + mMaximum / 2u) / mMaximum;
}

uint16_t nsDdcValue::OfPercent(uint32_t aPercent) const {
  return static_cast<uint16_t>((std::min(aPercent, 100u) * mMaximum + 50) / 100);
}

std::array<uint8_t, 5> NS_DdcRequest(uint8_t aFeature) {
  return Message<5>({kHost, kLengthFlag | 2, kGetFeature, aFeature, 0});
}

std::array<uint8_t, 7> NS_DdcChange(uint8_t aFeature, uint16_t aValue) {
  return Message<7>({kHost, kLengthFlag | 4, kSetFeature, aFeature, High(aValue), Low(aValue), 0});
}

nsDdcReply NS_ParseDdcReply(std::span<const uint8_t> aBytes, uint8_t aFeature, nsDdcValue* aValue) {
  // Sender, length, kind, whether it has that setting, which, its type, maximum, value, checksum.
  if (aBytes.size() != kDdcReplySize || aBytes[0] != kDisplayOnWire ||
      aBytes[1] != (kLengthFlag | (kDdcReplySize - 3)) || aBytes[2] != kFeatureReply ||
      aBytes[4] != aFeature ||
      aBytes.back() != Checksum(kHostInChecksum, aBytes.first(kDdcReplySize - 1)))
    return nsDdcReply::eUnusable;
  const nsDdcValue value{static_cast<uint16_t>(aBytes[8] << 8 | aBytes[9]),
                         static_cast<uint16_t>(aBytes[6] << 8 | aBytes[7])};
  if (aBytes[3] != 0 || value.mMaximum == 0) return nsDdcReply::eUnsupported;
  *aValue = value;
  return nsDdcReply::eValue;
}

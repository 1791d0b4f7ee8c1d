// The messages of DDC/CI, by which a display is asked for its settings over the wire that its
// description is read from.
#pragma once

#include <array>
#include <cstdint>
#include <span>

/// The values of a setting, as the display counts them.
struct nsDdcValue {
  uint16_t mCurrent = 0;
  uint16_t mMaximum = 0;

  /// 0 to 100; more than the maximum counts as the maximum. The maximum is not 0.
  uint32_t Percent() const;
  /// The number for a percentage of up to 100.
  uint16_t OfPercent(uint32_t aPercent) const;
};

inline constexpr uint8_t kDdcAddress = 0x37;
inline constexpr uint8_t kDdcBrightness = 0x10, kDdcContrast = 0x12;

/// A request, as it is written to the display's address.
std::array<uint8_t, 5> NS_DdcRequest(uint8_t aFeature);
/// The change of a setting, as it is written there.
std::array<uint8_t, 7> NS_DdcChange(uint8_t aFeature, uint16_t aValue);

inline constexpr size_t kDdcReplySize = 11;

enum class nsDdcReply {
  eValue,
  eUnsupported,  ///< The display does not have that setting, or none that can be told in percent.
  eUnusable,     ///< Not yet ready, disturbed on the way, or about something else: ask again.
};
/// What a display has answered; any bytes are safe. *aValue is written for eValue only.
nsDdcReply NS_ParseDdcReply(std::span<const uint8_t> aBytes, uint8_t aFeature, nsDdcValue* aValue);

// Transport streams made by hand, byte by byte: sections, and packets that carry them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vorel::test {

using Bytes = std::vector<uint8_t>;

inline Bytes& operator+=(Bytes& aTo, std::span<const uint8_t> aBytes) {
  aTo.insert(aTo.end(), aBytes.begin(), aBytes.end());
  return aTo;
}
inline void Append16(Bytes& aTo, unsigned aValue) {
  aTo.push_back(static_cast<uint8_t>(aValue >> 8));
  aTo.push_back(static_cast<uint8_t>(aValue));
}

/// Bit by bit, as the standard draws it.
inline uint32_t Crc(std::span<const uint8_t> aBytes) {
  uint32_t crc = 0xFFFFFFFF;
  for (const uint8_t byte : aBytes)
    for (int bit = 7; bit >= 0; --bit) {
      const bool feedback = (crc >> 31 & 1) != (byte >> bit & 1u);
      crc = crc << 1 ^ (feedback ? 0x04C11DB7u : 0);
    }
  return crc;
}

/// A whole section with the long header, and its CRC.
inline Bytes Section(unsigned aTable, unsigned aExtension, std::span<const uint8_t> aPayload,
                     unsigned aVersion = 0, unsigned aNumber = 0, unsigned aLast = 0) {
  Bytes section{static_cast<uint8_t>(aTable)};
  Append16(section, 0xB000 | static_cast<unsigned>(aPayload.size() + 9));
  Append16(section, aExtension);
  section.push_back(static_cast<uint8_t>(0xC1 | aVersion << 1));
  section.push_back(static_cast<uint8_t>(aNumber));
  section.push_back(static_cast<uint8_t>(aLast));
  section += aPayload;
  const uint32_t crc = Crc(section);
  Append16(section, crc >> 16);
  Append16(section, crc & 0xFFFF);
  return section;
}

inline Bytes Descriptor(unsigned aTag, std::span<const uint8_t> aBytes) {
  Bytes descriptor{static_cast<uint8_t>(aTag), static_cast<uint8_t>(aBytes.size())};
  return descriptor += aBytes;
}
inline Bytes BytesOf(std::string_view aText) { return Bytes(aText.begin(), aText.end()); }

/// Packets of 188 bytes, with a counter for each PID.
class Stream {
 public:
  /// One packet with a payload of up to 184 bytes; a shorter one is filled up by an adaptation
  /// field.
  Stream& Packet(unsigned aPid, bool aUnitStart, std::span<const uint8_t> aPayload) {
    Bytes packet{0x47};
    Append16(packet, aPid | (aUnitStart ? 0x4000 : 0));
    const size_t filled = 184 - aPayload.size();
    packet.push_back(static_cast<uint8_t>((filled > 0 ? 0x30 : 0x10) | (mCounters[aPid]++ & 15)));
    if (filled > 0) packet.push_back(static_cast<uint8_t>(filled - 1));
    if (filled > 1) {
      packet.push_back(0);
      packet.resize(packet.size() + filled - 2, 0xFF);
    }
    packet += aPayload;
    mBytes += packet;
    return *this;
  }
  /// Sections one behind the other, the first behind a pointer field, the rest of the last packet
  /// stuffed. Where a section begins, its packet has a pointer field.
  Stream& Sections(unsigned aPid, const std::vector<Bytes>& aSections) {
    Bytes all;
    std::vector<size_t> starts;
    for (const Bytes& section : aSections) {
      starts.push_back(all.size());
      all += section;
    }
    for (size_t at = 0, next = 0; at < all.size();) {
      while (next < starts.size() && starts[next] < at) ++next;
      const bool begins = next < starts.size() && starts[next] <= at + 183;
      const size_t count = std::min(all.size() - at, begins ? size_t{183} : size_t{184});
      Bytes payload;
      if (begins) payload.push_back(static_cast<uint8_t>(starts[next] - at));
      payload += std::span(all).subspan(at, count);
      payload.resize(184, 0xFF);
      Packet(aPid, begins, payload);
      at += count;
    }
    return *this;
  }

  Bytes mBytes;

 private:
  std::map<unsigned, unsigned> mCounters;
};

}  // namespace vorel::test

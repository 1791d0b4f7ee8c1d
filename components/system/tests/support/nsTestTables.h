// Tables of a transport stream made by hand: the payloads of their sections, and descriptors.
#pragma once

#include <array>
#include <tuple>
#include <utility>

#include "nsTestStream.h"

namespace vorel::test {

inline Bytes Pat(const std::vector<std::pair<unsigned, unsigned>>& aPrograms) {
  Bytes payload;
  for (const auto& [service, pid] : aPrograms) {
    Append16(payload, service);
    Append16(payload, 0xE000 | pid);
  }
  return payload;
}

inline Bytes Elementary(unsigned aType, unsigned aPid, std::span<const uint8_t> aDescriptors = {}) {
  Bytes stream{static_cast<uint8_t>(aType)};
  Append16(stream, 0xE000 | aPid);
  Append16(stream, 0xF000 | static_cast<unsigned>(aDescriptors.size()));
  return stream += aDescriptors;
}

inline Bytes Pmt(unsigned aPcrPid, const std::vector<Bytes>& aStreams,
                 std::span<const uint8_t> aInfo = {}) {
  Bytes payload;
  Append16(payload, 0xE000 | aPcrPid);
  Append16(payload, 0xF000 | static_cast<unsigned>(aInfo.size()));
  payload += aInfo;
  for (const Bytes& stream : aStreams) payload += stream;
  return payload;
}

inline Bytes Language(const char* aLanguage) {
  return Descriptor(0x0A, BytesOf(std::string(aLanguage) + '\0'));
}

inline Bytes ServiceDescriptor(unsigned aType, std::string_view aProvider, std::string_view aName) {
  Bytes bytes{static_cast<uint8_t>(aType), static_cast<uint8_t>(aProvider.size())};
  bytes += BytesOf(aProvider);
  bytes.push_back(static_cast<uint8_t>(aName.size()));
  return Descriptor(0x48, bytes += BytesOf(aName));
}

inline Bytes SdtService(unsigned aId, unsigned aRunning, bool aScrambled,
                        std::span<const uint8_t> aDescriptors) {
  Bytes service;
  Append16(service, aId);
  service.push_back(0xFC);
  Append16(service,
           aRunning << 13 | (aScrambled ? 0x1000 : 0) | static_cast<unsigned>(aDescriptors.size()));
  return service += aDescriptors;
}
inline Bytes Sdt(const std::vector<Bytes>& aServices) {
  Bytes payload{0x20, 0x01, 0xFF};
  for (const Bytes& service : aServices) payload += service;
  return payload;
}

inline Bytes Nit(std::span<const uint8_t> aNetwork,
                 const std::vector<std::tuple<unsigned, unsigned, Bytes>>& aStreams) {
  Bytes payload;
  Append16(payload, 0xF000 | static_cast<unsigned>(aNetwork.size()));
  payload += aNetwork;
  Bytes loop;
  for (const auto& [id, network, descriptors] : aStreams) {
    Append16(loop, id);
    Append16(loop, network);
    Append16(loop, 0xF000 | static_cast<unsigned>(descriptors.size()));
    loop += descriptors;
  }
  Append16(payload, 0xF000 | static_cast<unsigned>(loop.size()));
  return payload += loop;
}

/// A section in the order of the scanner's source.
inline Bytes Swapped(Bytes aSection) {
  std::swap(aSection[1], aSection[2]);
  std::swap(aSection[3], aSection[4]);
  return aSection;
}

}  // namespace vorel::test

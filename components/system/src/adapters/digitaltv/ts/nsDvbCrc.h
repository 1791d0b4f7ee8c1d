// The checksum of sections.
#pragma once

#include <cstdint>
#include <span>

/// CRC-32 of ISO/IEC 13818-1: polynomial 0x04C11DB7, most significant bit first, all ones at the
/// start. Over a section with its four bytes of checksum it is 0. By carry-less multiplication
/// where the processor has it. Any thread.
uint32_t NS_DvbCrc32(std::span<const uint8_t> aBytes);

/// The same on any processor; what it is compared with.
uint32_t NS_DvbCrc32ByTable(std::span<const uint8_t> aBytes, uint32_t aStart = 0xFFFFFFFFu);

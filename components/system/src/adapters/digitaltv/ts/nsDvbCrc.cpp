#include "nsDvbCrc.h"

#include <array>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace {

constexpr uint32_t kPolynomial = 0x04C11DB7u;
constexpr size_t kSlices = 8;

/// x to the power of aExponent, modulo the polynomial.
constexpr uint32_t PowerOfX(unsigned aExponent) {
  uint32_t power = 1;
  for (unsigned i = 0; i < aExponent; ++i)
    power = power << 1 ^ ((power & 0x80000000u) != 0 ? kPolynomial : 0);
  return power;
}

/// kTables[n][b]: the checksum of byte b followed by n zero bytes.
constexpr auto kTables = [] {
  std::array<std::array<uint32_t, 256>, kSlices> tables{};
  for (uint32_t byte = 0; byte < 256; ++byte) {
    uint32_t crc = byte << 24;
    for (int bit = 0; bit < 8; ++bit) crc = crc << 1 ^ ((crc & 0x80000000u) != 0 ? kPolynomial : 0);
    tables[0][byte] = crc;
  }
  for (size_t slice = 1; slice < kSlices; ++slice)
    for (size_t byte = 0; byte < 256; ++byte) {
      const uint32_t before = tables[slice - 1][byte];
      tables[slice][byte] = before << 8 ^ tables[0][before >> 24];
    }
  return tables;
}();

#if defined(__x86_64__)
constexpr size_t kBlock = 16;
constexpr size_t kLanes = 4;

/// Shorter texts are not worth the set-up.
constexpr size_t kLeast = kBlock * kLanes;

__attribute__((target("pclmul,ssse3"))) __m128i Load(const uint8_t* aBytes) {
  // The first byte of the text is the highest power of x.
  const __m128i reversed = _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
  return _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(aBytes)), reversed);
}

/// aState times x to the power that the factors stand for, plus aNext; modulo the polynomial it is
/// what it was.
__attribute__((target("pclmul,ssse3"))) __m128i Fold(__m128i aState, __m128i aFactors,
                                                     __m128i aNext) {
  return _mm_xor_si128(_mm_xor_si128(_mm_clmulepi64_si128(aState, aFactors, 0x11),
                                     _mm_clmulepi64_si128(aState, aFactors, 0x00)),
                       aNext);
}

/// Factors that move a block on by aBits: for its upper and for its lower half.
template <unsigned Bits>
__m128i Factors() {
  return _mm_set_epi64x(PowerOfX(Bits + 64), PowerOfX(Bits));
}

__attribute__((target("pclmul,ssse3"))) uint32_t ByMultiplication(std::span<const uint8_t> aBytes) {
  const uint8_t* bytes = aBytes.data();
  size_t left = aBytes.size();
  __m128i lanes[kLanes];
  for (size_t i = 0; i < kLanes; ++i) lanes[i] = Load(bytes + i * kBlock);
  // All ones at the start is the same as the first four bytes turned over.
  lanes[0] = _mm_xor_si128(lanes[0], _mm_set_epi32(-1, 0, 0, 0));
  bytes += kLeast;
  left -= kLeast;
  const __m128i far = Factors<kLeast * 8>();
  for (; left >= kLeast; bytes += kLeast, left -= kLeast)
    for (size_t i = 0; i < kLanes; ++i) lanes[i] = Fold(lanes[i], far, Load(bytes + i * kBlock));
  const __m128i near = Factors<kBlock * 8>();
  __m128i state = lanes[0];
  for (size_t i = 1; i < kLanes; ++i) state = Fold(state, near, lanes[i]);
  for (; left >= kBlock; bytes += kBlock, left -= kBlock) state = Fold(state, near, Load(bytes));
  // What is left is 16 bytes with the same remainder as all that came before.
  std::array<uint8_t, kBlock> rest;
  const __m128i reversed = _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(rest.data()), _mm_shuffle_epi8(state, reversed));
  return NS_DvbCrc32ByTable({bytes, left}, NS_DvbCrc32ByTable(rest, 0));
}
#endif

}  // namespace

uint32_t NS_DvbCrc32ByTable(std::span<const uint8_t> aBytes, uint32_t aStart) {
  const uint8_t* bytes = aBytes.data();
  size_t left = aBytes.size();
  uint32_t crc = aStart;
  for (; left >= kSlices; bytes += kSlices, left -= kSlices) {
    uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
    word = __builtin_bswap64(word) ^ uint64_t { crc } << 32;
    crc = 0;
    for (size_t slice = 0; slice < kSlices; ++slice)
      crc ^= kTables[slice][word >> 8 * slice & 0xFF];
  }
  for (; left > 0; ++bytes, --left) crc = crc << 8 ^ kTables[0][crc >> 24 ^ *bytes];
  return crc;
}

uint32_t NS_DvbCrc32(std::span<const uint8_t> aBytes) {
#if defined(__x86_64__)
  static const bool sMultiplies =
      __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("ssse3");
  if (sMultiplies && aBytes.size() >= kLeast) return ByMultiplication(aBytes);
#endif
  return NS_DvbCrc32ByTable(aBytes);
}

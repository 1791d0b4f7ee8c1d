// How fast are streams taken apart? On one core, from memory that no cache holds.
//
// Wanted: sections with CRC at 1.2 GB/s of section bytes or more; one service of 4 PIDs out of a
// whole stream at 6 GB/s of input or more; both within twice the time of a loop that only touches
// the bytes. BM_Touch is that loop; BM_LibDvbPsi is the same sections through libdvbpsi, where that
// is installed.
#include <benchmark/benchmark.h>

#include <array>
#include <cstring>
#include <vector>

#include "nsDvbCrc.h"
#include "nsTransportDemultiplexer.h"
#ifdef VOREL_HAS_DVBPSI
extern "C" {
#include <dvbpsi/dvbpsi.h>

// Needs what stands above.
#include <dvbpsi/psi.h>
}
#endif

namespace {

constexpr size_t kStream = size_t{256} << 20;
constexpr size_t kPacket = 188;

void PutCrc(std::vector<uint8_t>* aSection) {
  const uint32_t crc = NS_DvbCrc32(*aSection);
  for (int shift = 24; shift >= 0; shift -= 8)
    aSection->push_back(static_cast<uint8_t>(crc >> shift));
}

/// Sections of one size one behind the other, all of them different, in packets of one PID.
std::vector<uint8_t> SectionStream(size_t aSectionSize, uint64_t* aSectionBytes) {
  std::vector<uint8_t> stream;
  stream.reserve(kStream + kPacket);
  std::vector<uint8_t> section;
  size_t at = 0;
  uint8_t counter = 0;
  for (uint32_t number = 0; stream.size() < kStream;) {
    std::array<uint8_t, kPacket> packet;
    packet.fill(0xFF);
    size_t fill = 5;
    packet = {0x47, 0x40, 0x12, static_cast<uint8_t>(0x10 | (counter++ & 15))};
    packet[4] = static_cast<uint8_t>(std::min(section.size() - at, kPacket - fill));
    const bool hasStart = section.size() - at <= kPacket - fill;
    if (!hasStart) {
      packet[1] = 0;
      fill = 4;
    }
    while (fill < kPacket) {
      if (at == section.size()) {
        const size_t length = aSectionSize - 3;
        section = {0x50,
                   static_cast<uint8_t>(0xB0 | length >> 8),
                   static_cast<uint8_t>(length),
                   static_cast<uint8_t>(number >> 8),
                   static_cast<uint8_t>(number),
                   0xC1,
                   0,
                   0};
        for (uint32_t i = 0; section.size() < aSectionSize - 4; ++i)
          section.push_back(static_cast<uint8_t>(number * 7 + i));
        PutCrc(&section);
        ++number;
        *aSectionBytes += section.size();
        at = 0;
      }
      const size_t count = std::min(section.size() - at, kPacket - fill);
      std::memcpy(packet.data() + fill, section.data() + at, count);
      fill += count;
      at += count;
    }
    stream.insert(stream.end(), packet.begin(), packet.end());
  }
  return stream;
}

/// A multiplex: 32 PIDs in turn, most packets of eight of them, as video streams have it.
const std::vector<uint8_t>& Multiplex() {
  static const std::vector<uint8_t> sStream = [] {
    std::vector<uint8_t> stream(kStream / kPacket * kPacket);
    std::array<uint8_t, 32> counters{};
    uint32_t random = 1;
    for (size_t at = 0; at < stream.size(); at += kPacket) {
      random = random * 1664525 + 1013904223;
      const uint32_t pid = (random >> 24 & 7) != 0 ? random >> 16 & 7 : random >> 16 & 31;
      stream[at] = 0x47;
      stream[at + 1] = 1;
      stream[at + 2] = static_cast<uint8_t>(pid);
      stream[at + 3] = static_cast<uint8_t>(0x10 | (counters[pid]++ & 15));
      std::memset(&stream[at + 4], static_cast<int>(random >> 8), kPacket - 4);
    }
    return stream;
  }();
  return sStream;
}

struct Sink final : nsTransportSink {
  void OnSection(uint16_t, std::span<const uint8_t> aSection) override {
    mBytes += aSection.size();
  }
  void OnPackets(std::span<const uint8_t> aPackets) override {
    mBytes += aPackets.size();
    benchmark::DoNotOptimize(aPackets.data());
  }
  uint64_t mBytes = 0;
};

void PushAll(nsTransportDemultiplexer* aDemultiplexer, std::span<const uint8_t> aStream) {
  constexpr size_t kPiece = size_t{1} << 20;
  for (; !aStream.empty(); aStream = aStream.subspan(std::min(kPiece, aStream.size())))
    aDemultiplexer->Push(aStream.first(std::min(kPiece, aStream.size())));
  aDemultiplexer->Finish();
}

void BM_Touch(benchmark::State& aState) {
  const auto& stream = Multiplex();
  for (auto _ : aState) {
    uint64_t sum = 0;
    for (size_t at = 0; at + 8 <= stream.size(); at += 8) {
      uint64_t word;
      std::memcpy(&word, &stream[at], 8);
      sum += word;
    }
    benchmark::DoNotOptimize(sum);
  }
  aState.SetBytesProcessed(static_cast<int64_t>(aState.iterations() * stream.size()));
}
BENCHMARK(BM_Touch)->Unit(benchmark::kMillisecond);

void BM_Filter(benchmark::State& aState) {
  const auto& stream = Multiplex();
  const std::array<uint16_t, 4> pids{0x101, 0x102, 0x10A, 0x11F};
  for (auto _ : aState) {
    Sink sink;
    nsTransportDemultiplexer demultiplexer(sink);
    demultiplexer.SetPacketPids(pids);
    PushAll(&demultiplexer, stream);
    aState.counters["passed_%"] =
        100.0 * static_cast<double>(sink.mBytes) / static_cast<double>(stream.size());
  }
  aState.SetBytesProcessed(static_cast<int64_t>(aState.iterations() * stream.size()));
}
BENCHMARK(BM_Filter)->Unit(benchmark::kMillisecond);

void BM_CountAll(benchmark::State& aState) {
  const auto& stream = Multiplex();
  for (auto _ : aState) {
    Sink sink;
    nsTransportDemultiplexer demultiplexer(sink);
    demultiplexer.CountAllPids(true);
    PushAll(&demultiplexer, stream);
  }
  aState.SetBytesProcessed(static_cast<int64_t>(aState.iterations() * stream.size()));
}
BENCHMARK(BM_CountAll)->Unit(benchmark::kMillisecond);

void BM_Sections(benchmark::State& aState) {
  uint64_t expected = 0;
  const auto stream = SectionStream(static_cast<size_t>(aState.range(0)), &expected);
  for (auto _ : aState) {
    Sink sink;
    nsTransportDemultiplexer demultiplexer(sink);
    (void)demultiplexer.AddSectionPid(0x12, false);
    PushAll(&demultiplexer, stream);
    if (sink.mBytes + 8192 < expected) aState.SkipWithError("sections are missing");
  }
  aState.SetBytesProcessed(static_cast<int64_t>(aState.iterations() * expected));
}
BENCHMARK(BM_Sections)->Arg(60)->Arg(184)->Arg(1024)->Arg(4096)->Unit(benchmark::kMillisecond);

void BM_Crc(benchmark::State& aState) {
  std::vector<uint8_t> bytes(static_cast<size_t>(aState.range(0)), 0x5A);
  for (auto _ : aState) {
    benchmark::DoNotOptimize(aState.range(1) ? NS_DvbCrc32(bytes) : NS_DvbCrc32ByTable(bytes));
    benchmark::ClobberMemory();
  }
  aState.SetBytesProcessed(static_cast<int64_t>(aState.iterations() * bytes.size()));
}
BENCHMARK(BM_Crc)->Args({1024, 1})->Args({1024, 0})->Args({60, 1});

#ifdef VOREL_HAS_DVBPSI
uint64_t gDvbPsiBytes = 0;

void TakeSection(dvbpsi_t*, dvbpsi_psi_section_t* aSection) {
  gDvbPsiBytes += aSection->i_length + 3u;
  dvbpsi_DeletePSISections(aSection);
}

void BM_LibDvbPsi(benchmark::State& aState) {
  uint64_t expected = 0;
  auto stream = SectionStream(static_cast<size_t>(aState.range(0)), &expected);
  for (auto _ : aState) {
    gDvbPsiBytes = 0;
    dvbpsi_t* const handle = dvbpsi_new(nullptr, DVBPSI_MSG_NONE);
    auto* const decoder = static_cast<dvbpsi_decoder_t*>(
        dvbpsi_decoder_new(nullptr, 4096, true, sizeof(dvbpsi_decoder_t)));
    decoder->pf_gather = TakeSection;
    handle->p_decoder = decoder;
    for (size_t at = 0; at + kPacket <= stream.size(); at += kPacket)
      (void)dvbpsi_packet_push(handle, &stream[at]);
    handle->p_decoder = nullptr;
    dvbpsi_decoder_delete(decoder);
    dvbpsi_delete(handle);
    if (gDvbPsiBytes + 8192 < expected) aState.SkipWithError("sections are missing");
  }
  aState.SetBytesProcessed(static_cast<int64_t>(aState.iterations() * expected));
}
BENCHMARK(BM_LibDvbPsi)->Arg(184)->Arg(1024)->Unit(benchmark::kMillisecond);
#endif

}  // namespace

// Streams of any bytes, cut anywhere: the cuts make no difference, and what is handed out has its
// form.
#include <cstdlib>
#include <vector>

#include "nsTransportDemultiplexer.h"

namespace {

struct Sink final : nsTransportSink {
  void OnSection(uint16_t aPid, std::span<const uint8_t> aSection) override {
    if (aSection.size() < 3 || aSection.size() != 3u + ((aSection[1] & 15u) << 8 | aSection[2]))
      std::abort();
    mOut.push_back(static_cast<uint8_t>(aPid));
    mOut.insert(mOut.end(), aSection.begin(), aSection.end());
  }
  void OnPackets(std::span<const uint8_t> aPackets) override {
    if (aPackets.empty() || aPackets.size() % 188 != 0 || aPackets[0] != 0x47) std::abort();
    mPackets.insert(mPackets.end(), aPackets.begin(), aPackets.end());
  }
  std::vector<uint8_t> mOut, mPackets;
};

void Run(std::span<const uint8_t> aBytes, size_t aPiece, Sink* aSink) {
  nsTransportDemultiplexer demultiplexer(*aSink);
  const uint16_t packets[] = {0x100, 0x11};
  demultiplexer.SetPacketPids(packets);
  demultiplexer.CountAllPids(aPiece % 2 == 0);
  constexpr uint16_t kSections[] = {0x00, 0x10, 0x11, 0x12};
  for (const uint16_t pid : kSections)
    if (NS_FAILED(demultiplexer.AddSectionPid(pid, pid == 0x11))) std::abort();
  for (; !aBytes.empty(); aBytes = aBytes.subspan(std::min(aPiece, aBytes.size())))
    demultiplexer.Push(aBytes.first(std::min(aPiece, aBytes.size())));
  demultiplexer.Finish();
  const auto& totals = demultiplexer.Totals();
  if (totals.mPackets * 188 + totals.mSkippedBytes > totals.mBytes) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize) {
  if (aSize == 0) return 0;
  const std::span<const uint8_t> bytes(aData + 1, aSize - 1);
  Sink whole, cut;
  Run(bytes, aSize, &whole);
  Run(bytes, 1u + aData[0], &cut);
  if (whole.mOut != cut.mOut || whole.mPackets != cut.mPackets) std::abort();
  return 0;
}

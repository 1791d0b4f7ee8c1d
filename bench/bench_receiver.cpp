// How fast does a chosen service come from the packets that a tuner gives to the reader of the
// pipe, and what does it cost at the rate of a broadcast?
//
// Wanted: 500 MB/s of the service or more at the reader, with one write for each packet; a stream
// of 30 Mbit/s costs one hundredth of a core or less. Figures: bytes at the reader. BM_BareFilter
// is the same choice of packets with nothing behind it. Allow two cores; with one, writer and
// reader take turns.
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <thread>

#include "nsHost.h"
#include "nsMediaGraph.h"
#include "nsSimulatedMachine.h"
#include "nsTestReceiver.h"
#include "nsTransportDemultiplexer.h"

namespace {

constexpr size_t kPacket = 188;
constexpr size_t kStream = size_t{64} << 20;
constexpr uint32_t kFrequency = 506000;
constexpr uint16_t kVideo = 0x101, kPmt = 0x100, kAudio = 0x102, kOther = 0x200;

/// A service with aOthers packets of other ones behind each of its packets; with a clock where a
/// rate is given, in bits a second.
std::vector<uint8_t> ServiceStream(size_t aSize, unsigned aOthers, double aRate) {
  std::vector<uint8_t> stream(aSize / kPacket * kPacket, 0x55);
  const uint16_t service[] = {kVideo, kVideo, kVideo, kAudio, kVideo, kVideo, kPmt, kVideo};
  size_t number = 0;
  for (size_t at = 0; at < stream.size(); at += kPacket, ++number) {
    const uint16_t pid = number % (aOthers + 1) == 0
                             ? service[number / (aOthers + 1) % std::size(service)]
                             : static_cast<uint16_t>(kOther + number % 40);
    uint8_t* const packet = &stream[at];
    packet[0] = 0x47;
    packet[1] = static_cast<uint8_t>(pid >> 8);
    packet[2] = static_cast<uint8_t>(pid);
    packet[3] = 0x10;
    if (aRate <= 0 || pid != kVideo) continue;
    const auto clock = static_cast<uint64_t>(static_cast<double>(at) * 8 / aRate * 90000);
    packet[3] = 0x30;
    packet[4] = 7;
    packet[5] = 0x10;
    for (int i = 0; i < 4; ++i) packet[6 + i] = static_cast<uint8_t>(clock >> (25 - 8 * i));
    packet[10] = static_cast<uint8_t>((clock & 1) << 7 | 0x7E);
    packet[11] = 0;
  }
  return stream;
}

/// A host, a machine with one tuner, and a receiver's graph that streams.
class Streaming {
 public:
  Streaming(const std::vector<uint8_t>& aStream, bool aOwnRate) {
    if (NS_FAILED(mHost.Start({}))) return;
    nsSimulatedTuner tuner;
    tuner.mOwnRate = aOwnRate;
    tuner.mTransmitters[kFrequency].mStream = nsSimulatedStream::Make(aStream);
    mMachine.mTuners->Insert("tuner", std::move(tuner));
    mGraph = std::make_unique<nsSystemBDAGraph>(NS_WithMediaGraph(mMachine.Platform()));
    mReceiver.mGraph = mGraph.get();
    mRuns = NS_SUCCEEDED(mGraph->SetupGraph(mReceiver)) && NS_SUCCEEDED(mReceiver.OpenPipe()) &&
            NS_SUCCEEDED(mGraph->MapStreams(kVideo, kPmt, kAudio)) && mGraph->StartGraph() &&
            NS_SUCCEEDED(mGraph->LockChannel(mReceiver, kFrequency, 8));
  }
  ~Streaming() {
    if (mGraph) mGraph->TearDownGraph(mReceiver);
    mHost.Stop();
  }
  Streaming(const Streaming&) = delete;
  Streaming& operator=(const Streaming&) = delete;

  /// What comes until aEnough says so.
  template <class Enough>
  size_t Read(Enough aEnough) {
    std::vector<char> buffer(65536);
    size_t size = 0;
    while (!aEnough(size)) {
      uint32_t count = 0;
      if (NS_FAILED(mReceiver.mInput->Read(buffer.data(), static_cast<uint32_t>(buffer.size()),
                                           &count)) ||
          count == 0)
        return 0;
      size += count;
    }
    return size;
  }

  bool mRuns = false;

 private:
  nsHost mHost;
  nsSimulatedMachine mMachine;
  std::unique_ptr<nsSystemBDAGraph> mGraph;
  nsTestReceiver mReceiver;
};

/// In seconds, of all threads.
double ProcessorTime() {
  rusage usage{};
  (void)getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& aTime) {
    return static_cast<double>(aTime.tv_sec) + static_cast<double>(aTime.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void BM_PacketsToReader(benchmark::State& aState) {
  const auto stream = ServiceStream(kStream, static_cast<unsigned>(aState.range(0)), 0);
  Streaming streaming(stream, false);
  if (!streaming.mRuns) return aState.SkipWithError("the graph does not run");
  size_t bytes = 0;
  const double before = ProcessorTime();
  for (auto _ : aState)
    bytes += streaming.Read([](size_t aSize) { return aSize >= size_t{64} << 20; });
  const double spent = ProcessorTime() - before;
  aState.SetBytesProcessed(static_cast<int64_t>(bytes));
  // Both sides together: what says something on a machine that others use too.
  aState.counters["ns_per_packet"] = spent * 1e9 * kPacket / static_cast<double>(bytes);
}
BENCHMARK(BM_PacketsToReader)->ArgName("others")->Arg(0)->Arg(5)->UseRealTime();

class Counter final : public nsTransportSink {
 public:
  void OnPackets(std::span<const uint8_t> aPackets) override { mBytes += aPackets.size(); }
  size_t mBytes = 0;
};

void BM_BareFilter(benchmark::State& aState) {
  const auto stream = ServiceStream(kStream, static_cast<unsigned>(aState.range(0)), 0);
  Counter counter;
  nsTransportDemultiplexer filter(counter);
  filter.SetPacketPids(std::array{kVideo, kPmt, kAudio, uint16_t{0}});
  for (auto _ : aState) filter.Push(stream);
  aState.SetBytesProcessed(static_cast<int64_t>(counter.mBytes));
}
BENCHMARK(BM_BareFilter)->ArgName("others")->Arg(0)->Arg(5)->UseRealTime();

// The service is all there is; its rate is that of the argument, in Mbit/s.
void BM_RealTime(benchmark::State& aState) {
  const double rate = static_cast<double>(aState.range(0)) * 1e6;
  Streaming streaming(ServiceStream(kStream / 4, 0, rate), true);
  if (!streaming.mRuns) return aState.SkipWithError("the graph does not run");
  const auto second = static_cast<size_t>(rate / 8);
  size_t bytes = 0;
  double spent = 0;
  for (auto _ : aState) {
    const double before = ProcessorTime();
    bytes += streaming.Read([&](size_t aSize) { return aSize >= second; });
    spent += ProcessorTime() - before;
  }
  aState.SetBytesProcessed(static_cast<int64_t>(bytes));
  aState.counters["percent_of_a_core"] =
      spent / (static_cast<double>(bytes) / static_cast<double>(second)) * 100;
}
BENCHMARK(BM_RealTime)->ArgName("Mbit")->Arg(30)->Iterations(5)->UseRealTime();

}  // namespace

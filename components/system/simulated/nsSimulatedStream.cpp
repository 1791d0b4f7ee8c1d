#include "nsSimulatedStream.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <numeric>

#include "nsTransportDemultiplexer.h"

namespace {

constexpr uintmax_t kMaximumFile = uintmax_t{1} << 30;
constexpr uint64_t kClock = 27'000'000;             // of clock references, in a second
constexpr uint64_t kClockEnd = (1ull << 33) * 300;  // where they begin anew

// The clock reference of a packet, and whether it has one.
bool ReadClock(const uint8_t* aPacket, uint64_t* aClock) {
  const bool hasField = (aPacket[3] & 0x20) != 0 && aPacket[4] >= 7 && (aPacket[5] & 0x10) != 0;
  if (!hasField) return false;
  const uint8_t* const field = aPacket + 6;
  const uint64_t base = uint64_t{field[0]} << 25 | uint64_t{field[1]} << 17 |
                        uint64_t{field[2]} << 9 | uint64_t{field[3]} << 1 | field[4] >> 7;
  *aClock = base * 300 + ((field[4] & 1u) << 8 | field[5]);
  return true;
}

double RateOf(std::span<const uint8_t> aPackets) {
  constexpr size_t kSize = nsSimulatedStream::kPacketSize;
  struct Clock {
    size_t mFirst = 0, mLast = 0;  // packets
    uint64_t mNow = 0, mElapsed = 0;
    bool mIsKnown = false;
  };
  std::vector<Clock> clocks(nsTransportDemultiplexer::kPidCount);
  const Clock* first = nullptr;
  for (size_t at = 0; at < aPackets.size(); at += kSize) {
    const uint8_t* const packet = aPackets.data() + at;
    uint64_t now = 0;
    if (!ReadClock(packet, &now)) continue;
    Clock& clock = clocks[(packet[1] & 0x1Fu) << 8 | packet[2]];
    if (!clock.mIsKnown) {
      clock = {at / kSize, at / kSize, now, 0, true};
      continue;
    }
    // A jump of the clock is no time: what was recorded there goes by at the rate of the rest.
    const uint64_t step = (now + kClockEnd - clock.mNow) % kClockEnd;
    if (step < kClock) {
      clock.mElapsed += step;
    } else {
      clock.mFirst += at / kSize - clock.mLast;
    }
    clock.mNow = now;
    clock.mLast = at / kSize;
    if (!first && clock.mElapsed > 0) first = &clock;
  }
  if (!first || first->mLast <= first->mFirst) return 0;
  return static_cast<double>(first->mLast - first->mFirst) * static_cast<double>(kClock) /
         static_cast<double>(first->mElapsed);
}

class Collector final : public nsTransportSink {
 public:
  explicit Collector(std::vector<uint8_t>& aPackets) : mPackets(aPackets) {}
  void OnPackets(std::span<const uint8_t> aPackets) override {
    mPackets.insert(mPackets.end(), aPackets.begin(), aPackets.end());
  }

 private:
  std::vector<uint8_t>& mPackets;
};

}  // namespace

std::shared_ptr<const nsSimulatedStream> nsSimulatedStream::Make(std::span<const uint8_t> aBytes) {
  auto stream = std::make_shared<nsSimulatedStream>();
  stream->mPackets.reserve(aBytes.size());
  Collector collector(stream->mPackets);
  const auto demultiplexer = std::make_unique<nsTransportDemultiplexer>(collector);
  std::vector<uint16_t> all(nsTransportDemultiplexer::kPidCount);
  std::iota(all.begin(), all.end(), uint16_t{0});
  demultiplexer->SetPacketPids(all);
  demultiplexer->Push(aBytes);
  demultiplexer->Finish();
  if (stream->mPackets.empty()) return nullptr;
  stream->mRate = RateOf(stream->mPackets);
  return stream;
}

nsresult nsSimulatedStream::Load(const std::string& aPath,
                                 std::shared_ptr<const nsSimulatedStream>* aStream) {
  // Opening a pipe would wait for whoever writes into it.
  std::error_code error;
  if (!std::filesystem::is_regular_file(aPath, error)) return NS_ERROR_FILE_NOT_FOUND;
  const uintmax_t size = std::filesystem::file_size(aPath, error);
  if (error) return NS_ERROR_FILE_NOT_FOUND;
  if (size > kMaximumFile) return NS_ERROR_FILE_TOO_BIG;
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(aPath.c_str(), "rb"), std::fclose);
  if (!file) return NS_ERROR_FILE_NOT_FOUND;
  std::vector<uint8_t> bytes(size);
  bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file.get()));
  if (std::ferror(file.get())) return NS_ERROR_FILE_NOT_FOUND;
  auto stream = Make(bytes);
  if (!stream) return NS_ERROR_FILE_CORRUPTED;
  *aStream = std::move(stream);
  return NS_OK;
}

void nsStreamCursor::Set(std::shared_ptr<const nsSimulatedStream> aStream, uint64_t aPosition,
                         uint32_t aDamage) {
  mStream = std::move(aStream);
  mPosition = aPosition;
  mDamage = aDamage;
}

std::span<const uint8_t> nsStreamCursor::Take(uint64_t aMost) {
  const uint64_t count = mStream->Count();
  const uint64_t index = mPosition % count;
  uint64_t packets = std::min(aMost, count - index);
  if (mDamage > 0) {
    const uint64_t next = mDamage - 1 - mPosition % mDamage;  // packets before the damaged one
    if (next == 0) {
      Packet& packet = mDamaged.emplace_back();
      const auto source = mStream->Packets().subspan(index * packet.size(), packet.size());
      std::ranges::copy(source, packet.begin());
      const uint64_t bit = mPosition * 2654435761u % ((packet.size() - 4) * 8);
      packet[4 + bit / 8] = static_cast<uint8_t>(packet[4 + bit / 8] ^ 1u << bit % 8);
      ++mPosition;
      return packet;
    }
    packets = std::min(packets, next);
  }
  mPosition += packets;
  return mStream->Packets().subspan(index * nsSimulatedStream::kPacketSize,
                                    packets * nsSimulatedStream::kPacketSize);
}

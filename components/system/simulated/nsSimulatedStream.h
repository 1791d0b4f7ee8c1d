// A recorded transport stream, which a simulated transmitter sends again and again.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "nsError.h"

/// Whole packets in memory. Never changes; any thread.
class nsSimulatedStream {
 public:
  static constexpr size_t kPacketSize = 188;

  /// Of bytes of any recording: packets of 188, 192 or 204 bytes, with whatever is between them.
  /// Null when there is no packet in them.
  static std::shared_ptr<const nsSimulatedStream> Make(std::span<const uint8_t> aBytes);
  /// Of a file. NS_ERROR_FILE_NOT_FOUND when it can't be read, NS_ERROR_FILE_CORRUPTED when there
  /// is no packet in it, NS_ERROR_FILE_TOO_BIG above 1 GiB.
  static nsresult Load(const std::string& aPath, std::shared_ptr<const nsSimulatedStream>* aStream);

  std::span<const uint8_t> Packets() const { return mPackets; }
  size_t Count() const { return mPackets.size() / kPacketSize; }
  /// How fast it was sent, by its clock references: those of its first PID that has two of them,
  /// from the first to the last. 0 without.
  double PacketsPerSecond() const { return mRate; }

 private:
  std::vector<uint8_t> mPackets;
  double mRate = 0;
};

/// Goes through a stream that has no end. One thread.
class nsStreamCursor {
 public:
  /// Of every aDamage packets one has a wrong bit behind its head; 0: of none.
  void Set(std::shared_ptr<const nsSimulatedStream> aStream, uint64_t aPosition, uint32_t aDamage);
  const std::shared_ptr<const nsSimulatedStream>& Stream() const { return mStream; }
  /// Packets since the stream began.
  uint64_t Position() const { return mPosition; }
  void Skip(uint64_t aPosition) { mPosition = aPosition; }
  /// The next packets, side by side: one or more, and at most so many. A view of the stream, or of
  /// a damaged copy that stays until Forget.
  std::span<const uint8_t> Take(uint64_t aMost);
  void Forget() { mDamaged.clear(); }

 private:
  using Packet = std::array<uint8_t, nsSimulatedStream::kPacketSize>;
  std::shared_ptr<const nsSimulatedStream> mStream;
  uint64_t mPosition = 0;
  uint32_t mDamage = 0;
  std::deque<Packet> mDamaged;  // which moves none
};

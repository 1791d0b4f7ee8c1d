// Takes a transport stream apart: sections of some PIDs, whole packets of others.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "nsError.h"

class nsSectionAssembler;

/// What a demultiplexer finds. It is called from within Push and Finish, on their thread; views are
/// valid for the time of the call. It may change the demultiplexer's PIDs from there, its own too,
/// but not push into it.
class nsTransportSink {
 public:
  /// A whole section, from its table identifier to the last byte of its CRC, which has been checked
  /// where the section has one.
  virtual void OnSection(uint16_t /*aPid*/, std::span<const uint8_t> /*aSection*/) {}
  /// Whole packets of 188 bytes of the chosen PIDs, in the order of the stream; as many in one call
  /// as lie side by side in what was pushed.
  virtual void OnPackets(std::span<const uint8_t> /*aPackets*/) {}

 protected:
  ~nsTransportSink() = default;
};

/// Not bound to a thread, one at a time; nothing is locked. Memory is bounded: at most 64 PIDs with
/// sections, and for each what repeats are known by.
///
/// Packets of 188 bytes as they are broadcast, of 192 as recorders write them (four bytes in front)
/// and of 204 (16 behind) are told apart by themselves. Bytes before the first packet and between
/// two synchronisations are skipped and counted. A packet whose transport error indicator is set is
/// counted and goes nowhere, since its PID can't be trusted.
class nsTransportDemultiplexer {
 public:
  static constexpr size_t kPacketSize = 188;
  static constexpr uint16_t kPidCount = 8192;
  static constexpr uint16_t kNullPid = 0x1FFF;
  static constexpr size_t kMaxSectionPids = 64;

  /// What has been counted since the start or the last ResetStatistics.
  struct Statistics {
    uint64_t mBytes = 0;             ///< Pushed.
    uint64_t mPackets = 0;           ///< Found, those with errors and of no chosen PID included.
    uint64_t mSkippedBytes = 0;      ///< That are no packets.
    uint64_t mSyncLosses = 0;        ///< How often a packet was not where it should be.
    uint64_t mTransportErrors = 0;   ///< Packets with the transport error indicator.
    uint64_t mDiscontinuities = 0;   ///< Of the chosen PIDs, or of all with CountAllPids.
    uint64_t mSections = 0;          ///< Handed out.
    uint64_t mRepeatedSections = 0;  ///< Dropped as repeats.
    uint64_t mCrcErrors = 0;         ///< Sections dropped for a wrong CRC.
    uint64_t mBrokenSections = 0;    ///< Dropped since packets were missing or lengths impossible.
  };
  /// Of one PID, with CountAllPids.
  struct PidStatistics {
    uint64_t mPackets = 0;
    uint64_t mScrambledPackets = 0;
    uint64_t mDiscontinuities = 0;
    uint64_t mCrcErrors = 0;
    uint64_t mBrokenSections = 0;
  };

  /// aSink lives longer than this object.
  explicit nsTransportDemultiplexer(nsTransportSink& aSink);
  nsTransportDemultiplexer(const nsTransportDemultiplexer&) = delete;
  nsTransportDemultiplexer& operator=(const nsTransportDemultiplexer&) = delete;
  ~nsTransportDemultiplexer();

  /// Sections of this PID from its next packet on. aDropRepeats: a section is handed out once, and
  /// again when its version has changed and come back. For a PID that has sections already only
  /// aDropRepeats is taken, and what is known of repeats is forgotten. NS_ERROR_INVALID_ARG for a
  /// PID of 8,192 or more, NS_ERROR_NOT_AVAILABLE when there are 64 already.
  nsresult AddSectionPid(uint16_t aPid, bool aDropRepeats);
  /// Drops a section that has come in part. A PID without sections is no error.
  void RemoveSectionPid(uint16_t aPid);
  /// The PIDs whose packets are handed out, in place of those before; any of 8,192, others are
  /// ignored.
  void SetPacketPids(std::span<const uint16_t> aPids);
  /// Counts for each PID. Costs a look at each packet's counter.
  void CountAllPids(bool aCount);

  /// A piece of the stream, of any size, also none.
  void Push(std::span<const uint8_t> aBytes);
  /// The stream has ended: what was held back to find the beginning of a short one is taken now. A
  /// stream may follow, and needs not go on where this one ended.
  void Finish();

  /// Whether packets are being found where they should be.
  bool IsSynchronised() const { return mStride != 0; }
  /// 188, 192 or 204; 0 while not synchronised.
  size_t PacketStride() const { return mStride; }
  const Statistics& Totals() const { return mTotals; }
  /// All zero without CountAllPids.
  PidStatistics Of(uint16_t aPid) const;
  void ResetStatistics();

 private:
  // What is done with a packet of a PID.
  enum : uint8_t { kSections = 1, kPackets = 2, kCounted = 4 };
  static constexpr uint8_t kNoCounter = 0xFF;

  // Each takes as many bytes as it returns.
  size_t Search(std::span<const uint8_t> aBytes);
  size_t Take(std::span<const uint8_t> aBytes);
  size_t TakePackets(std::span<const uint8_t> aBytes);
  bool FindSync(bool aIsEnd);
  void TakeHeld();
  void TakePacket(const uint8_t* aPacket, uint8_t aUse, uint16_t aPid);
  bool Continues(const uint8_t* aPacket, uint16_t aPid, bool* aIsRepeat);
  void LoseSync();

  nsTransportSink& mSink;
  size_t mStride = 0;
  size_t mSkip = 0;            ///< bytes behind the last packet that are still to come
  std::vector<uint8_t> mHeld;  ///< a packet in part; while not synchronised, what is searched
  std::array<uint8_t, kPidCount> mUse{};
  std::array<uint8_t, kPidCount> mCounters;
  std::array<uint8_t, kPidCount> mAssemblerOf{};  ///< index + 1
  std::vector<std::unique_ptr<nsSectionAssembler>> mAssemblers;
  std::vector<std::unique_ptr<nsSectionAssembler>> mRetired;  ///< until the end of a push
  bool mIsPushing = false;
  std::vector<PidStatistics> mPids;  ///< with CountAllPids, one a PID
  Statistics mTotals;
};

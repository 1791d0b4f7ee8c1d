// Sections of one PID out of the payloads of its packets.
#pragma once

#include "nsTransportDemultiplexer.h"

/// What is known of the sections that have been handed out: for each its version. Of more than
/// 8,192 it forgets all and starts anew, so that each is handed out once more.
class nsKnownSections {
 public:
  /// aSection has at least eight bytes.
  bool Has(std::span<const uint8_t> aSection) const;
  void Add(std::span<const uint8_t> aSection);
  void Clear();

 private:
  struct Entry {
    uint32_t mKey = 0;
    bool mIsUsed = false;
    uint8_t mVersion = 0;
  };
  size_t Find(uint32_t aKey) const;
  void Grow();

  std::vector<Entry> mEntries;  ///< a power of two, half of them used at most; open addressing
  size_t mUsed = 0;
};

class nsSectionAssembler {
 public:
  nsSectionAssembler(uint16_t aPid, bool aDropRepeats) : mPid(aPid), mDropRepeats(aDropRepeats) {}

  void SetDropRepeats(bool aDropRepeats);
  /// The payload of the next packet, and whether its first byte is a pointer field. aOfPid may be
  /// null.
  void Push(std::span<const uint8_t> aPayload, bool aHasPointer, nsTransportSink& aSink,
            nsTransportDemultiplexer::Statistics* aTotals,
            nsTransportDemultiplexer::PidStatistics* aOfPid);
  /// Packets are missing: a section that has come in part is dropped. Whether there was one.
  bool Break();
  /// Hands out nothing any more, not even the rest of the packet that is being taken.
  void Retire() { mIsRetired = true; }

 private:
  static constexpr size_t kMaxSection = 4096;

  struct Call;
  void Begin(std::span<const uint8_t> aBytes, const Call& aCall);
  void Continue(std::span<const uint8_t> aBytes, const Call& aCall);
  void Deliver(std::span<const uint8_t> aSection, const Call& aCall);

  const uint16_t mPid;
  bool mDropRepeats;
  bool mIsRetired = false;
  size_t mHave = 0;  ///< bytes of mSection that have come; 0: waiting for a pointer field
  size_t mNeed = 0;  ///< the whole section; 0: its length has not come yet
  std::array<uint8_t, kMaxSection> mSection;
  nsKnownSections mKnown;
};

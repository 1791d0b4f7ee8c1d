#include "nsSectionAssembler.h"

#include <algorithm>

#include "nsDvbCrc.h"

namespace {

constexpr size_t kHeader = 3;
constexpr size_t kLongHeader = 8;
constexpr size_t kCrc = 4;
constexpr size_t kMaxKnown = 8192;
constexpr uint8_t kStuffing = 0xFF;
constexpr uint8_t kTimeOffsetTable = 0x73;  // the one with a CRC but the short header

bool HasLongHeader(std::span<const uint8_t> aSection) { return (aSection[1] & 0x80) != 0; }

/// The whole length, from the first three bytes; 0 for one that no section can have.
size_t LengthOf(std::span<const uint8_t> aHeader) {
  const size_t length = kHeader + ((aHeader[1] & 0x0Fu) << 8 | aHeader[2]);
  if (length > 4096) return 0;
  if (HasLongHeader(aHeader) && length < kLongHeader + kCrc) return 0;
  return aHeader[0] == kTimeOffsetTable && length < kHeader + kCrc ? 0 : length;
}

// Table, extension, number; and the version with the bit that says whether it is in force.
uint32_t KeyOf(std::span<const uint8_t> aSection) {
  return uint32_t{aSection[0]} << 24 | uint32_t{aSection[3]} << 16 | uint32_t{aSection[4]} << 8 |
         aSection[6];
}
uint8_t VersionOf(std::span<const uint8_t> aSection) { return aSection[5] & 0x3F; }

}  // namespace

// ---- What repeats are known by

size_t nsKnownSections::Find(uint32_t aKey) const {
  const size_t mask = mEntries.size() - 1;
  size_t at = (aKey * 0x9E3779B1u >> 8) & mask;
  while (mEntries[at].mIsUsed && mEntries[at].mKey != aKey) at = (at + 1) & mask;
  return at;
}

bool nsKnownSections::Has(std::span<const uint8_t> aSection) const {
  if (mEntries.empty()) return false;
  const Entry& entry = mEntries[Find(KeyOf(aSection))];
  return entry.mIsUsed && entry.mVersion == VersionOf(aSection);
}

void nsKnownSections::Add(std::span<const uint8_t> aSection) {
  if (mUsed >= kMaxKnown) Clear();
  if (mUsed * 2 >= mEntries.size()) Grow();
  const uint32_t key = KeyOf(aSection);
  Entry& entry = mEntries[Find(key)];
  if (!entry.mIsUsed) ++mUsed;
  entry = {key, true, VersionOf(aSection)};
}

void nsKnownSections::Clear() {
  mEntries.clear();
  mUsed = 0;
}

void nsKnownSections::Grow() {
  std::vector<Entry> old(std::max<size_t>(16, mEntries.size() * 2));
  old.swap(mEntries);
  for (const Entry& entry : old)
    if (entry.mIsUsed) mEntries[Find(entry.mKey)] = entry;
}

// ---- Sections

/// Where things go during one packet.
struct nsSectionAssembler::Call {
  nsTransportSink& mSink;
  nsTransportDemultiplexer::Statistics& mTotals;
  nsTransportDemultiplexer::PidStatistics* mOfPid;

  void CountBroken() const {
    ++mTotals.mBrokenSections;
    if (mOfPid) ++mOfPid->mBrokenSections;
  }
  void CountWrong() const {
    ++mTotals.mCrcErrors;
    if (mOfPid) ++mOfPid->mCrcErrors;
  }
};

void nsSectionAssembler::SetDropRepeats(bool aDropRepeats) {
  mDropRepeats = aDropRepeats;
  mKnown.Clear();
}

bool nsSectionAssembler::Break() {
  const bool had = mHave > 0;
  mHave = mNeed = 0;
  return had;
}

void nsSectionAssembler::Push(std::span<const uint8_t> aPayload, bool aHasPointer,
                              nsTransportSink& aSink, nsTransportDemultiplexer::Statistics* aTotals,
                              nsTransportDemultiplexer::PidStatistics* aOfPid) {
  const Call call{aSink, *aTotals, aOfPid};
  if (!aHasPointer) {
    // What stands behind the end of a section without a pointer field is stuffing.
    if (mHave > 0) Continue(aPayload, call);
    return;
  }
  if (aPayload.empty()) return;
  const size_t pointer = aPayload[0];
  const auto rest = aPayload.subspan(1);
  if (pointer > rest.size()) {
    (void)Break();
    call.CountBroken();
    return;
  }
  if (mHave > 0) Continue(rest.first(pointer), call);
  if (Break()) call.CountBroken();  // the next one begins before this one's end
  Begin(rest.subspan(pointer), call);
}

void nsSectionAssembler::Begin(std::span<const uint8_t> aBytes, const Call& aCall) {
  while (!aBytes.empty() && aBytes[0] != kStuffing && !mIsRetired) {
    size_t length = 0;
    if (aBytes.size() >= kHeader) {
      length = LengthOf(aBytes);
      if (length == 0) return aCall.CountBroken();
    }
    if (length == 0 || aBytes.size() < length) {
      std::ranges::copy(aBytes, mSection.begin());
      mHave = aBytes.size();
      mNeed = length;
      return;
    }
    // The common case: the section is looked at where it lies.
    Deliver(aBytes.first(length), aCall);
    aBytes = aBytes.subspan(length);
  }
}

void nsSectionAssembler::Continue(std::span<const uint8_t> aBytes, const Call& aCall) {
  const auto take = [&](size_t aUpTo) {
    const size_t count = std::min(aUpTo - mHave, aBytes.size());
    std::copy_n(aBytes.begin(), count, mSection.begin() + static_cast<ptrdiff_t>(mHave));
    mHave += count;
    aBytes = aBytes.subspan(count);
  };
  if (mNeed == 0) {
    take(kHeader);
    if (mHave < kHeader) return;
    mNeed = LengthOf(mSection);
    if (mNeed == 0) {
      (void)Break();
      return aCall.CountBroken();
    }
  }
  take(mNeed);
  if (mHave < mNeed) return;
  const size_t length = mNeed;
  (void)Break();
  Deliver(std::span<const uint8_t>(mSection).first(length), aCall);
}

void nsSectionAssembler::Deliver(std::span<const uint8_t> aSection, const Call& aCall) {
  const bool isLong = HasLongHeader(aSection);
  if (isLong && mDropRepeats && mKnown.Has(aSection)) {
    ++aCall.mTotals.mRepeatedSections;
    return;
  }
  if ((isLong || aSection[0] == kTimeOffsetTable) && NS_DvbCrc32(aSection) != 0)
    return aCall.CountWrong();
  if (isLong && mDropRepeats) mKnown.Add(aSection);
  ++aCall.mTotals.mSections;
  aCall.mSink.OnSection(mPid, aSection);
}

#include "nsTransportDemultiplexer.h"

#include <algorithm>
#include <cstring>

#include "nsSectionAssembler.h"

namespace {

constexpr uint8_t kSync = 0x47;
constexpr std::array<size_t, 3> kStrides{188, 192, 204};
constexpr size_t kConfirmed = 4;    // packets behind the first that have to be where they should
constexpr size_t kSearched = 8192;  // at a time, while not synchronised

constexpr uint32_t kSyncMask = 0xFF000000u;
constexpr uint32_t kErrorMask = 0x00800000u;

/// The first four bytes, the sync byte uppermost.
uint32_t HeaderOf(const uint8_t* aPacket) {
  return uint32_t{aPacket[0]} << 24 | uint32_t{aPacket[1]} << 16 | uint32_t{aPacket[2]} << 8 |
         aPacket[3];
}
uint16_t PidOf(uint32_t aHeader) { return static_cast<uint16_t>(aHeader >> 8 & 0x1FFF); }

}  // namespace

nsTransportDemultiplexer::nsTransportDemultiplexer(nsTransportSink& aSink) : mSink(aSink) {
  mCounters.fill(kNoCounter);
}
nsTransportDemultiplexer::~nsTransportDemultiplexer() = default;

// ---- PIDs

nsresult nsTransportDemultiplexer::AddSectionPid(uint16_t aPid, bool aDropRepeats) {
  if (aPid >= kPidCount) return NS_ERROR_INVALID_ARG;
  if (const uint8_t known = mAssemblerOf[aPid]) {
    mAssemblers[known - 1u]->SetDropRepeats(aDropRepeats);
    return NS_OK;
  }
  auto free = std::find(mAssemblers.begin(), mAssemblers.end(), nullptr);
  if (free == mAssemblers.end()) {
    if (mAssemblers.size() == kMaxSectionPids) return NS_ERROR_NOT_AVAILABLE;
    free = mAssemblers.emplace(mAssemblers.end());
  }
  *free = std::make_unique<nsSectionAssembler>(aPid, aDropRepeats);
  mAssemblerOf[aPid] = static_cast<uint8_t>(free - mAssemblers.begin() + 1);
  mUse[aPid] |= kSections;
  return NS_OK;
}

void nsTransportDemultiplexer::RemoveSectionPid(uint16_t aPid) {
  if (aPid >= kPidCount || mAssemblerOf[aPid] == 0) return;
  auto& assembler = mAssemblers[mAssemblerOf[aPid] - 1u];
  assembler->Retire();
  // It may be the one that is calling.
  if (mIsPushing) mRetired.push_back(std::move(assembler));
  assembler = nullptr;
  mAssemblerOf[aPid] = 0;
  mUse[aPid] = static_cast<uint8_t>(mUse[aPid] & ~kSections);
}

void nsTransportDemultiplexer::SetPacketPids(std::span<const uint16_t> aPids) {
  for (uint8_t& use : mUse) use = static_cast<uint8_t>(use & ~kPackets);
  for (const uint16_t pid : aPids)
    if (pid < kPidCount) mUse[pid] |= kPackets;
}

void nsTransportDemultiplexer::CountAllPids(bool aCount) {
  mPids.assign(aCount ? kPidCount : 0, {});
  for (uint8_t& use : mUse) use = static_cast<uint8_t>(aCount ? use | kCounted : use & ~kCounted);
}

nsTransportDemultiplexer::PidStatistics nsTransportDemultiplexer::Of(uint16_t aPid) const {
  return aPid < mPids.size() ? mPids[aPid] : PidStatistics();
}

void nsTransportDemultiplexer::ResetStatistics() {
  mTotals = {};
  std::ranges::fill(mPids, PidStatistics());
}

// ---- Packets out of bytes

void nsTransportDemultiplexer::Push(std::span<const uint8_t> aBytes) {
  mTotals.mBytes += aBytes.size();
  mIsPushing = true;
  while (!aBytes.empty()) aBytes = aBytes.subspan(mStride == 0 ? Search(aBytes) : Take(aBytes));
  mIsPushing = false;
  mRetired.clear();
}

void nsTransportDemultiplexer::Finish() {
  mIsPushing = true;
  while (mStride == 0 && FindSync(true)) TakeHeld();
  mTotals.mSkippedBytes += mHeld.size();
  mHeld.clear();
  mStride = mSkip = 0;
  mCounters.fill(kNoCounter);
  for (const auto& assembler : mAssemblers)
    if (assembler) (void)assembler->Break();
  mIsPushing = false;
  mRetired.clear();
}

size_t nsTransportDemultiplexer::Search(std::span<const uint8_t> aBytes) {
  const size_t count = std::min(aBytes.size(), kSearched - mHeld.size());
  mHeld.insert(mHeld.end(), aBytes.begin(), aBytes.begin() + static_cast<ptrdiff_t>(count));
  while (mStride == 0 && FindSync(false)) TakeHeld();
  return count;
}

bool nsTransportDemultiplexer::FindSync(bool aIsEnd) {
  const size_t size = mHeld.size();
  size_t at = 0;
  bool isOpen = false;  // more bytes could make it a packet
  for (; at < size && mStride == 0; ++at) {
    const void* found = std::memchr(mHeld.data() + at, kSync, size - at);
    if (!found) {
      at = size;
      break;
    }
    at = static_cast<size_t>(static_cast<const uint8_t*>(found) - mHeld.data());
    for (const size_t stride : kStrides) {
      size_t confirmed = 0;
      while (confirmed < kConfirmed && at + (confirmed + 1) * stride < size &&
             mHeld[at + (confirmed + 1) * stride] == kSync)
        ++confirmed;
      const bool isShort = at + (confirmed + 1) * stride >= size;
      // At the end of a short stream as many as there are have to do, and one if it is all there
      // is.
      const bool isEnough = confirmed == kConfirmed ||
                            (aIsEnd && isShort &&
                             (confirmed > 0 ? at + kPacketSize <= size : at + kPacketSize == size));
      if (isEnough) {
        mStride = stride;
        break;
      }
      isOpen = isOpen || (isShort && !aIsEnd);
    }
    if (mStride != 0 || isOpen) break;
  }
  mTotals.mSkippedBytes += at;
  mHeld.erase(mHeld.begin(), mHeld.begin() + static_cast<ptrdiff_t>(at));
  return mStride != 0;
}

void nsTransportDemultiplexer::TakeHeld() {
  // What is held is taken from a copy: callbacks don't see this, but losing sync fills it again.
  const std::vector<uint8_t> held = std::move(mHeld);
  mHeld.clear();
  const size_t taken = TakePackets(held);
  mHeld.assign(held.begin() + static_cast<ptrdiff_t>(taken), held.end());
}

size_t nsTransportDemultiplexer::Take(std::span<const uint8_t> aBytes) {
  if (mSkip > 0) {
    const size_t count = std::min(mSkip, aBytes.size());
    mSkip -= count;
    return count;
  }
  if (!mHeld.empty()) {
    const size_t count = std::min(kPacketSize - mHeld.size(), aBytes.size());
    mHeld.insert(mHeld.end(), aBytes.begin(), aBytes.begin() + static_cast<ptrdiff_t>(count));
    if (mHeld.size() == kPacketSize) TakeHeld();
    return count;
  }
  const size_t taken = TakePackets(aBytes);
  if (mStride == 0) return taken;
  mHeld.assign(aBytes.begin() + static_cast<ptrdiff_t>(taken), aBytes.end());
  return aBytes.size();
}

// Goes up to the first byte that is not part of a whole packet, or of the bytes behind one; there
// sync is lost, or the bytes end.
size_t nsTransportDemultiplexer::TakePackets(std::span<const uint8_t> aBytes) {
  const uint8_t* const bytes = aBytes.data();
  const size_t size = aBytes.size();
  const size_t stride = mStride;
  size_t at = 0;
  size_t runStart = 0, runEnd = 0;  // chosen packets that lie side by side
  uint64_t packets = 0;
  const auto handOut = [&] {
    mTotals.mPackets += packets;
    packets = 0;
    if (runEnd == runStart) return;
    const auto run = aBytes.subspan(runStart, runEnd - runStart);
    runStart = runEnd;
    mSink.OnPackets(run);
  };
  for (; at + kPacketSize <= size; at += stride) {
    const uint32_t header = HeaderOf(bytes + at);
    if ((header & kSyncMask) != uint32_t{kSync} << 24) [[unlikely]] {
      handOut();
      LoseSync();
      return at;
    }
    ++packets;
    const uint16_t pid = PidOf(header);
    const uint8_t use = mUse[pid];
    if ((use | (header & kErrorMask)) == 0) continue;
    if ((header & kErrorMask) != 0) {
      ++mTotals.mTransportErrors;
      continue;
    }
    if ((use & kPackets) != 0) {
      if (at != runEnd) {
        handOut();
        runStart = at;
      }
      runEnd = at + kPacketSize;
    }
    if ((use & kSections) != 0) handOut();
    TakePacket(bytes + at, use, pid);
  }
  handOut();
  if (at > size) mSkip = at - size;
  return std::min(at, size);
}

void nsTransportDemultiplexer::LoseSync() {
  ++mTotals.mSyncLosses;
  mStride = 0;
}

// ---- One packet

bool nsTransportDemultiplexer::Continues(const uint8_t* aPacket, uint16_t aPid, bool* aIsRepeat) {
  constexpr uint8_t kRepeated = 0x10;  // beside the counter: this one has come twice already
  const uint8_t counter = aPacket[3] & 0x0F;
  const uint8_t last = mCounters[aPid];
  const bool isAnnounced = (aPacket[3] & 0x20) != 0 && aPacket[4] > 0 && (aPacket[5] & 0x80) != 0;
  *aIsRepeat = last == counter && !isAnnounced;
  mCounters[aPid] = *aIsRepeat ? counter | kRepeated : counter;
  if (last == kNoCounter || *aIsRepeat || counter == ((last + 1) & 0x0F)) return true;
  if (mAssemblerOf[aPid] != 0 && mAssemblers[mAssemblerOf[aPid] - 1u]->Break()) {
    ++mTotals.mBrokenSections;
    if (!mPids.empty()) ++mPids[aPid].mBrokenSections;
  }
  return isAnnounced;
}

void nsTransportDemultiplexer::TakePacket(const uint8_t* aPacket, uint8_t aUse, uint16_t aPid) {
  PidStatistics* const counted = mPids.empty() ? nullptr : &mPids[aPid];
  const bool isScrambled = (aPacket[3] & 0xC0) != 0;
  if (counted) {
    ++counted->mPackets;
    if (isScrambled) ++counted->mScrambledPackets;
  }
  // Null packets need no counter, and packets without a payload do not move it.
  if (aPid == kNullPid || (aPacket[3] & 0x10) == 0) return;
  bool isRepeat = false;
  if (!Continues(aPacket, aPid, &isRepeat)) {
    ++mTotals.mDiscontinuities;
    if (counted) ++counted->mDiscontinuities;
  }
  if ((aUse & kSections) == 0 || isRepeat || isScrambled) return;
  const size_t payload = (aPacket[3] & 0x20) != 0 ? 5u + aPacket[4] : 4u;
  if (payload >= kPacketSize) return;
  mAssemblers[mAssemblerOf[aPid] - 1u]->Push({aPacket + payload, kPacketSize - payload},
                                             (aPacket[1] & 0x40) != 0, mSink, &mTotals, counted);
}

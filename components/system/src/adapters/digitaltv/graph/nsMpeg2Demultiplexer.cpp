#include "nsMpeg2Demultiplexer.h"

#include <algorithm>
#include <utility>

#include "nsLogger.h"
#include "nsMediaSample.h"
#include "nsMediaTuner.h"

namespace {

constexpr size_t kPacket = 188;
constexpr size_t kCacheLine = 64, kFetchedAhead = 2;
constexpr nsMediaType kSI = {MEDIATYPE_MPEG2_SECTIONS, MEDIASUBTYPE_DVB_SI};
constexpr nsMediaType kSections = {MEDIATYPE_MPEG2_SECTIONS, MEDIASUBTYPE_MPEG2DATA};

uint32_t PidOf(const uint8_t* aPacket) { return (aPacket[1] & 0x1Fu) << 8 | aPacket[2]; }

}  // namespace

// ---- Pins

/// Where filters that read tables are connected. They ask the tuner for sections; no samples pass.
class nsMpeg2Demultiplexer::SectionsPin final : public nsMediaPinWith<nsIMediaSource> {
 public:
  SectionsPin(nsMediaFilter& aFilter, std::u16string aName, nsMediaType aType,
              nsMpeg2Demultiplexer& aDemultiplexer)
      : nsMediaPinWith(aFilter, PINDIR_OUTPUT, std::move(aName), {aType}),
        mDemultiplexer(aDemultiplexer) {}
  std::shared_ptr<nsMediaTuner> SourceTuner() override { return mDemultiplexer.SourceTuner(); }
  nsMediaPlace SourcePlace() override { return {}; }

 private:
  nsMpeg2Demultiplexer& mDemultiplexer;
};

class nsMpeg2Demultiplexer::StreamPin final : public nsMediaPinWith<IMPEG2PIDMap> {
 public:
  StreamPin(nsMediaFilter& aFilter, std::u16string aName, nsMediaType aType,
            nsMpeg2Demultiplexer& aDemultiplexer)
      : nsMediaPinWith(aFilter, PINDIR_OUTPUT, std::move(aName), {aType}),
        mDemultiplexer(aDemultiplexer) {}

  // Both change nothing when they fail: E_INVALIDARG for a PID that there can't be, for one to be
  // unmapped that is not mapped, and for other contents than whole packets; else the tuner's
  // failure.

  nsresult MapPID(uint32_t aCount, uint32_t* aPids, uint32_t aContent) override {
    if (aContent != MEDIA_TRANSPORT_PACKET) return E_INVALIDARG;
    return Change(aCount, aPids, true);
  }
  nsresult UnmapPID(uint32_t aCount, uint32_t* aPids) override {
    return Change(aCount, aPids, false);
  }
  nsresult EnumPIDMap(IEnumPIDMap** aEnum) override {
    if (!aEnum) return E_POINTER;
    std::vector<PID_MAP> map;
    {
      const nsAutoLock lock(mDemultiplexer.mLock);
      for (size_t pid = 0; pid < mPids.size(); ++pid)
        if (mPids[pid]) map.push_back({static_cast<uint32_t>(pid), MEDIA_TRANSPORT_PACKET});
    }
    MakeRefCounted<nsMediaEnum<IEnumPIDMap, PID_MAP>>(std::move(map)).forget(aEnum);
    return S_OK;
  }

  Pids mPids;  ///< under the lock of the demultiplexer

 private:
  nsresult Change(uint32_t aCount, const uint32_t* aPids, bool aIsMapped) {
    if (!aPids && aCount > 0) return E_POINTER;
    const nsAutoLock lock(mDemultiplexer.mLock);
    Pids pids = mPids;
    for (uint32_t i = 0; i < aCount; ++i) {
      if (aPids[i] >= pids.size() || (!aIsMapped && !mPids[aPids[i]])) return E_INVALIDARG;
      pids[aPids[i]] = aIsMapped;
    }
    return mDemultiplexer.ChangePids(*this, pids);
  }
  nsMpeg2Demultiplexer& mDemultiplexer;
};

nsMpeg2Demultiplexer::nsMpeg2Demultiplexer()
    : mInput(AddPin<nsPlainMediaPin>(
          PINDIR_INPUT, u"MPEG-2 Stream",
          std::vector<nsMediaType>{{MEDIATYPE_Stream, KSDATAFORMAT_SUBTYPE_BDA_MPEG2_TRANSPORT},
                                   {MEDIATYPE_Stream, MEDIASUBTYPE_MPEG2_TRANSPORT}})) {
  SetClass(CLSID_MPEG2Demultiplexer);
  (void)AddPin<SectionsPin>(u"SI", kSI, *this);
  (void)AddPin<SectionsPin>(u"Sections", kSections, *this);
}
nsMpeg2Demultiplexer::~nsMpeg2Demultiplexer() { OnStop(); }

nsresult nsMpeg2Demultiplexer::CreateOutputPin(AM_MEDIA_TYPE* aMediaType, char16_t* aName,
                                               IPin** aPin) {
  if (!aMediaType || !aName || !aPin) return E_POINTER;
  const nsAutoLock lock(NS_MediaStructureLock());
  if (IsRunning()) return VFW_E_NOT_STOPPED;
  if (PinOfName(aName, PINDIR_OUTPUT)) return VFW_E_DUPLICATE_NAME;
  StreamPin& pin = AddPin<StreamPin>(aName, nsMediaType::Of(*aMediaType), *this);
  mStreamPins.push_back(&pin);
  nsCOMPtr<IPin>(&pin).forget(aPin);
  return S_OK;
}

nsresult nsMpeg2Demultiplexer::FindMadePin(const char16_t* aName, StreamPin** aPin) {
  if (!aName) return E_POINTER;
  if (IsRunning()) return VFW_E_NOT_STOPPED;
  const auto found = std::ranges::find(mStreamPins, PinOfName(aName, PINDIR_OUTPUT));
  if (found == mStreamPins.end()) return VFW_E_NOT_FOUND;
  if ((*found)->Peer()) return VFW_E_ALREADY_CONNECTED;
  *aPin = *found;
  return S_OK;
}

nsresult nsMpeg2Demultiplexer::SetOutputPinMediaType(char16_t* aName, AM_MEDIA_TYPE* aMediaType) {
  if (!aMediaType) return E_POINTER;
  const nsAutoLock lock(NS_MediaStructureLock());
  StreamPin* pin;
  const nsresult rv = FindMadePin(aName, &pin);
  if (NS_SUCCEEDED(rv)) pin->SetTypes({nsMediaType::Of(*aMediaType)});
  return rv;
}

nsresult nsMpeg2Demultiplexer::DeleteOutputPin(char16_t* aName) {
  const nsAutoLock lock(NS_MediaStructureLock());
  StreamPin* pin;
  const nsresult rv = FindMadePin(aName, &pin);
  if (NS_FAILED(rv)) return rv;
  std::erase(mStreamPins, pin);
  RemovePin(*pin);
  return S_OK;
}

std::shared_ptr<nsMediaTuner> nsMpeg2Demultiplexer::SourceTuner() const {
  const nsCOMPtr<nsIMediaSource> source = do_QueryInterface<nsIMediaSource>(mInput.Peer());
  return source ? source->SourceTuner() : nullptr;
}

// ---- The stream

/// A pin with what it is connected to, as long as the filter runs.
struct nsMpeg2Demultiplexer::Outlet {
  void Deliver(std::span<const uint8_t> aRun);
  void Send(std::span<const uint8_t> aPackets);

  StreamPin* mPin;
  nsCOMPtr<nsIMediaInput> mSink;
  Pids mPids{};  ///< the thread's copy
  nsCOMPtr<nsMediaSample> mSample{};
};

nsresult nsMpeg2Demultiplexer::OnRun() {
  const nsAutoLock lock(mLock);
  mIsStreaming = true;
  return UpdateReader();
}

void nsMpeg2Demultiplexer::OnStop() {
  std::shared_ptr<nsPlatformPacketReader> reader;
  nsNamedThread thread;
  {
    const nsAutoLock lock(mLock);
    mIsStreaming = false;
    reader = std::exchange(mReader, nullptr);
    thread = std::move(mThread);
  }
  if (reader) reader->Cancel();
  thread.Join();
}

nsresult nsMpeg2Demultiplexer::ChangePids(StreamPin& aPin, const Pids& aPids) {
  const Pids before = std::exchange(aPin.mPids, aPids);
  const nsresult rv = UpdateReader();
  if (NS_FAILED(rv)) aPin.mPids = before;
  ++mPidsVersion;
  return rv;
}

// The reader and its thread begin with the first PID: a graph that only reads tables needs neither.
nsresult nsMpeg2Demultiplexer::UpdateReader() {
  if (!mIsStreaming) return S_OK;
  std::vector<Outlet> outlets;
  Pids all;
  {
    const nsAutoLock lock(NS_MediaStructureLock());
    for (StreamPin* const pin : mStreamPins)
      if (nsCOMPtr<nsIMediaInput> sink = do_QueryInterface<nsIMediaInput>(pin->Peer())) {
        outlets.push_back({pin, std::move(sink)});
        all |= pin->mPids;
      }
  }
  std::vector<uint16_t> pids;
  for (size_t pid = 0; pid < all.size(); ++pid)
    if (all[pid]) pids.push_back(static_cast<uint16_t>(pid));
  if (mReader) return mReader->SetPids(pids);
  if (pids.empty()) return S_OK;

  const auto tuner = SourceTuner();
  const nsPlatformTunerRef device = tuner ? tuner->Device() : nullptr;
  if (!device) return S_OK;
  std::shared_ptr<nsPlatformPacketReader> reader;
  nsresult rv = device->OpenPackets(&reader);
  if (NS_SUCCEEDED(rv)) rv = reader->SetPids(pids);
  if (NS_SUCCEEDED(rv))
    rv = mThread.Start("TvStream", [this, reader, outlets]() mutable { Stream(*reader, outlets); });
  if (NS_SUCCEEDED(rv)) mReader = std::move(reader);
  return rv;
}

void nsMpeg2Demultiplexer::Stream(nsPlatformPacketReader& aReader, std::vector<Outlet>& aOutlets) {
  std::vector<std::span<const uint8_t>> runs;
  uint64_t version = 0;
  bool isFirst = true;
  for (;;) {
    const nsresult rv = aReader.ReadPackets(nsPlatformPacketReader::kNoTimeout, &runs);
    if (NS_FAILED(rv)) {
      if (rv != NS_ERROR_ABORT)
        SYSTEM_LOG_ERROR(NS_GetLogger("system.digitaltvreceiver"),
                         "The tuner gives no more packets: " + std::string(NS_ResultName(rv)));
      return;
    }
    if (isFirst || version != mPidsVersion) {
      isFirst = false;
      const nsAutoLock lock(mLock);
      version = mPidsVersion;
      for (Outlet& outlet : aOutlets) outlet.mPids = outlet.mPin->mPids;
    }
    for (size_t i = 0; i < runs.size(); ++i) {
      // The next ones lie elsewhere in memory, where no processor expects them.
      if (i + kFetchedAhead < runs.size())
        for (size_t at = 0; at < kPacket; at += kCacheLine)
          __builtin_prefetch(runs[i + kFetchedAhead].data() + at);
      for (Outlet& outlet : aOutlets) outlet.Deliver(runs[i]);
    }
  }
}

void nsMpeg2Demultiplexer::Outlet::Deliver(std::span<const uint8_t> aRun) {
  size_t start = 0, at = 0;
  for (; at + kPacket <= aRun.size(); at += kPacket) {
    if (mPids[PidOf(&aRun[at])]) continue;
    if (at > start) Send(aRun.subspan(start, at - start));
    start = at + kPacket;
  }
  if (at > start) Send(aRun.subspan(start, at - start));
}

void nsMpeg2Demultiplexer::Outlet::Send(std::span<const uint8_t> aPackets) {
  // The sample before is used again, if nobody has kept it.
  if (!mSample || !mSample->IsOnlyReference()) mSample = MakeRefCounted<nsMediaSample>();
  mSample->SetBytes(aPackets);
  mSink->ReceiveSample(mSample.get());
  mSample->SetBytes({});
}

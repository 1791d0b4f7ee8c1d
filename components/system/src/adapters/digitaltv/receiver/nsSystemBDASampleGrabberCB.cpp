#include "nsSystemBDASampleGrabberCB.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <utility>

#include "IMediaSample.h"
#include "nsIAsyncOutputStream.h"
#include "nsIInputStream.h"
#include "nsIOutputStreamCallback.h"
#include "nsImplements.h"
#include "nsLogger.h"
#include "nsSystemBDAGraph.h"
#include "nsSystemBDAReceiver.h"
#include "nsXPCOM.h"

namespace {

constexpr uint32_t kPacket = 188;
constexpr uint8_t kSync = 0x47;
constexpr uint32_t kPipePackets = 64;  // that the receiver's pipe has room for

/// Told by the pipe that there is room again, on the thread of the reader.
class RoomListener final : public nsImplements<RoomListener, nsIOutputStreamCallback> {
 public:
  explicit RoomListener(std::shared_ptr<nsSystemBDAGraph::Writer> aWriter)
      : mWriter(std::move(aWriter)) {}
  nsresult OnOutputStreamReady(nsIAsyncOutputStream*) override {
    mHasRoom = true;
    mWriter->Wake();
    return NS_OK;
  }
  std::atomic<bool> mHasRoom = false;

 private:
  ~RoomListener() override = default;
  const std::shared_ptr<nsSystemBDAGraph::Writer> mWriter;
};

}  // namespace

/// The pipe during one sample. The receiver may be given another one meanwhile: this one is held.
class nsSystemBDASampleGrabberCB::PipeEnd {
 public:
  PipeEnd(nsSystemBDASampleGrabberCB& aOwner)
      : mOutput(aOwner.mAdapter.PipeOutput()), mOwner(aOwner), mGraph(aOwner.mGraph) {
    // A pipe in the place of one that has gone has more room than that had.
    if (std::exchange(mOwner.mRoomOf, mOutput.get()) != mOutput) mOwner.mRoom = 0;
  }

  /// Waits until a packet can be written without waiting in there, where nothing could end the
  /// wait. False when the graph was stopped. A pipe that has been closed has room: the write tells.
  bool WaitForRoom() {
    if (mOwner.mRoom == 0 && !LookForRoom()) return false;
    --mOwner.mRoom;
    return true;
  }

  /// Whether all bytes were taken. What the pipe says besides is not looked at.
  bool Write(std::span<const uint8_t> aBytes) {
    uint32_t written = 0;
    (void)mOutput->Write(reinterpret_cast<const char*>(aBytes.data()),
                         static_cast<uint32_t>(aBytes.size()), &written);
    return written == aBytes.size();
  }

  const nsCOMPtr<nsIOutputStream> mOutput;

 private:
  bool LookForRoom() {
    const nsCOMPtr<nsIInputStream> input = mOwner.mAdapter.PipeInput();
    // Only the reader changes what is queued, and it makes it less.
    const auto room = [&] {
      uint32_t queued = 0;
      if (!input || NS_FAILED(input->Available(&queued))) return kPipePackets;
      return kPipePackets - std::min((queued + kPacket - 1) / kPacket, kPipePackets);
    };
    bool canTell = true;
    while (mGraph.mGraphRunning) {
      // In a pipe that can't tell it is the write that waits.
      mOwner.mRoom = canTell ? room() : 1;
      if (mOwner.mRoom > 0) return true;
      // Half of it: a reader at work makes that before it could wake this thread, and wakes it once
      // for many packets.
      mOwner.mBriefly.Until(
          [&] { return room() >= kPipePackets / 2 || !mGraph.mGraphRunning; },
          [&] {
            const auto output = do_QueryInterface<nsIAsyncOutputStream>(mOutput);
            const auto listener = MakeRefCounted<RoomListener>(mGraph.mWriter);
            canTell = output && NS_SUCCEEDED(output->AsyncWait(
                                    listener.get(), 0, kPipePackets / 2 * kPacket, nullptr));
            if (canTell && !mGraph.WaitToWrite([&] { return listener->mHasRoom.load(); }))
              (void)output->AsyncWait(nullptr, 0, 0, nullptr);
          });
    }
    return false;
  }

  nsSystemBDASampleGrabberCB& mOwner;
  nsSystemBDAGraph& mGraph;
};

[[gnu::noinline]] nsSystemBDASampleGrabberCB* nsSystemBDASampleGrabberCB::Create(
    nsSystemBDAGraph& aGraph, nsSystemBDAReceiver& aAdapter) {
  return new nsSystemBDASampleGrabberCB(aGraph, aAdapter);
}

nsSystemBDASampleGrabberCB::nsSystemBDASampleGrabberCB(nsSystemBDAGraph& aGraph,
                                                       nsSystemBDAReceiver& aAdapter)
    // Written with these capitals, unlike the graph's: what reads logs goes by it.
    : mLog(NS_GetLogger("system.digitalTvReceiver")), mGraph(aGraph), mAdapter(aAdapter) {}
nsSystemBDASampleGrabberCB::~nsSystemBDASampleGrabberCB() { FreeRemainder(); }

nsresult nsSystemBDASampleGrabberCB::QueryInterface(const nsIID& aIID, void** aResult) {
  if (!aResult) return E_POINTER;
  *aResult = aIID == ISampleGrabberCB::kIID ? this : nullptr;
  return *aResult ? S_OK : E_NOINTERFACE;
}

nsresult nsSystemBDASampleGrabberCB::BufferCB(double, uint8_t*, int32_t) { return S_FALSE; }

nsresult nsSystemBDASampleGrabberCB::SampleCB(double, IMediaSample* aSample) {
  const int32_t length = aSample->GetActualDataLength();
  if (!mGraph.mGraphRunning) return S_OK;
  PipeEnd pipe(*this);
  if (!pipe.mOutput) return S_OK;
  uint8_t* bytes = nullptr;
  if (NS_FAILED(aSample->GetPointer(&bytes)) || !bytes || length <= 0) return S_OK;
  const std::span<const uint8_t> data(bytes, static_cast<size_t>(length));

  size_t offset = 0;
  if (mRemainderLength != 0) {
    offset = WriteRemainder(pipe, data);
    if (offset == 0) return S_OK;
  }
  while (offset + kPacket <= data.size()) {
    if (data[offset] == kSync) {
      if (!pipe.WaitForRoom()) return S_OK;
      if (!pipe.Write(data.subspan(offset, kPacket))) {
        FailWriting(pipe, "Unable to write to pipe, closing.");
        mRemainderLength = 0;
        return S_OK;
      }
      offset += kPacket;
      continue;
    }
    // Out of step: what lies before the next such byte is lost, whether or not a packet begins
    // there.
    const void* const sync = std::memchr(&data[offset + 1], kSync, data.size() - offset - 1);
    if (!sync) return S_OK;
    offset = static_cast<size_t>(static_cast<const uint8_t*>(sync) - data.data());
  }
  if (offset != data.size() && mGraph.mGraphRunning) KeepRemainder(data.subspan(offset));
  return S_OK;
}

size_t nsSystemBDASampleGrabberCB::WriteRemainder(PipeEnd& aPipe, std::span<const uint8_t> aData) {
  const size_t rest = kPacket - mRemainderLength;
  // A sample that does not reach to the end of the packet is kept too: there is nothing behind it
  // that may be read.
  if (aData.size() < rest) {
    std::memcpy(mRemainder + mRemainderLength, aData.data(), aData.size());
    mRemainderLength = static_cast<uint8_t>(mRemainderLength + aData.size());
    return 0;
  }
  if (!aPipe.WaitForRoom()) return 0;
  const bool hasFirst = aPipe.Write({mRemainder, mRemainderLength});
  const bool hasRest = aPipe.Write(aData.first(rest));
  mRemainderLength = 0;
  FreeRemainder();
  if (hasFirst && hasRest) return rest;
  FailWriting(aPipe, "Unable to write to pipe, closing");
  return 0;
}

void nsSystemBDASampleGrabberCB::KeepRemainder(std::span<const uint8_t> aRest) {
  FreeRemainder();
  // Room for the whole packet, as a short sample may follow.
  mRemainder = static_cast<uint8_t*>(NS_Alloc(kPacket));
  if (!mRemainder) return;
  std::memcpy(mRemainder, aRest.data(), aRest.size());
  mRemainderLength = static_cast<uint8_t>(aRest.size());
}

void nsSystemBDASampleGrabberCB::FreeRemainder() {
  NS_Free(mRemainder);
  mRemainder = nullptr;
}

void nsSystemBDASampleGrabberCB::FailWriting(PipeEnd& aPipe, const char* aText) {
  SYSTEM_LOG_ERROR(mLog, aText);
  mGraph.mGraphRunning = false;
  mAdapter.ClosePipe(aPipe.mOutput.get());
}

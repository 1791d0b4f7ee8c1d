#include "nsPipe.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <new>
#include <thread>
#include <utility>

#include "nsBriefWait.h"
#include "nsIEventTarget.h"
#include "nsIInputStreamCallback.h"
#include "nsIOutputStreamCallback.h"
#include "nsLock.h"
#include "nsThread.h"

namespace {

constexpr uint32_t kDefaultSegmentSize = 4096, kDefaultSegmentCount = 16, kWaitClosureOnly = 1;
constexpr size_t kCacheLine = 64;
static_assert(kWaitClosureOnly == nsIAsyncInputStream::WAIT_CLOSURE_ONLY &&
              kWaitClosureOnly == nsIAsyncOutputStream::WAIT_CLOSURE_ONLY);

/// What an end waits for: inside a call, or by a call that is made. Costs whoever has to tell it
/// one look as long as nobody waits.
class Wait {
 public:
  /// Whether anybody is to be told. Asked behind what is told of: either this says so then, or who
  /// begins to wait sees it.
  bool IsAwaited() const { return mIsAwaited; }

  /// Until aReady says so. One thread at a time.
  template <class Ready>
  void Sleep(Ready aReady) {
    if (mBriefly.Until(aReady)) return;
    nsAutoLock lock(mLock);
    for (;;) {
      mIsAwaited = true;
      if (aReady()) break;
      mChanged.Wait(lock);
    }
    mIsAwaited = mCall && !mClosureOnly;
  }
  void Set(std::function<void()> aCall, nsIEventTarget* aTarget, bool aClosureOnly) {
    // May hold the last references to things.
    nsCOMPtr<nsIEventTarget> target(aTarget);
    const nsAutoLock lock(mLock);
    mCall.swap(aCall);
    mTarget.swap(target);
    mClosureOnly = aClosureOnly;
    mIsAwaited = true;
  }
  /// Wakes whoever waits inside a call, and makes the call that is due, once.
  void Tell(bool aReady, bool aClosed) {
    std::function<void()> call;
    nsCOMPtr<nsIEventTarget> target;
    {
      const nsAutoLock lock(mLock);
      if (mCall && (aClosed || (aReady && !mClosureOnly))) {
        call.swap(mCall);
        target.swap(mTarget);
      }
      mIsAwaited = mCall && !mClosureOnly;
    }
    mChanged.NotifyAll();
    if (!call) return;
    // A target that is gone can't be told.
    if (target)
      (void)target->Dispatch(NS_NewRunnable(std::move(call)).get(),
                             nsIEventTarget::DISPATCH_NORMAL);
    else
      call();
  }

 private:
  nsBriefWait mBriefly;  // of the thread that sleeps
  std::atomic<bool> mIsAwaited = false;
  nsMutex mLock;
  nsCondition mChanged;
  std::function<void()> mCall NS_GUARDED_BY(mLock);
  nsCOMPtr<nsIEventTarget> mTarget NS_GUARDED_BY(mLock);
  bool mClosureOnly NS_GUARDED_BY(mLock) = false;
};

/// The use of an end, which one thread at a time has.
class Use {
 public:
  /// False for whoever has it already, who calls from within that end's own callback.
  // Not checked: what it guards is the end, and how far that has come is read by the other one too.
  bool Begin() NS_NOT_CHECKED {
    const auto self = std::this_thread::get_id();
    if (mUser.load(std::memory_order_relaxed) == self) return false;
    mLock.Lock();
    mUser.store(self, std::memory_order_relaxed);
    return true;
  }
  void End() NS_NOT_CHECKED {
    mUser.store({}, std::memory_order_relaxed);
    mLock.Unlock();
  }

 private:
  nsMutex mLock;
  std::atomic<std::thread::id> mUser{};
};

/// What the two ends share: a chain of segments, which the writer adds to and the reader goes
/// along. How far each has come is all that they tell each other, so that neither waits for the
/// other unless there is nothing to do.
class Core {
 public:
  Core(uint32_t aSegmentSize, uint32_t aSegmentCount)
      : mSize(aSegmentSize), mCount(aSegmentCount) {}
  /// NS_ERROR_OUT_OF_MEMORY.
  nsresult Init() {
    mReadFrom = mWriteTo = mOldest = NewSegment();
    return mOldest ? NS_OK : NS_ERROR_OUT_OF_MEMORY;
  }
  ~Core() {
    while (mOldest) DropOldest();
  }
  Core(const Core&) = delete;
  Core& operator=(const Core&) = delete;

  nsresult Available(uint32_t* aCount) const {
    const nsresult status = mStatus;  // first: what was written before the end is seen then
    const uint64_t readable = Readable();
    if (readable == 0 && NS_FAILED(status)) return status;
    *aCount = static_cast<uint32_t>(std::min<uint64_t>(readable, UINT32_MAX));
    return NS_OK;
  }
  /// Both: aMove(char* aBytes, uint32_t aOffset, uint32_t aCount, uint32_t* aMoved).
  template <class Move>
  nsresult Read(bool aBlock, uint32_t aCount, Move aMove, uint32_t* aRead);
  template <class Move>
  nsresult Write(bool aBlock, uint32_t aCount, Move aMove, uint32_t* aWritten);
  void Close(nsresult aStatus, bool aDrop) {
    if (aDrop) mDropped = true;
    nsresult open = NS_OK;
    (void)mStatus.compare_exchange_strong(open,
                                          NS_SUCCEEDED(aStatus) ? NS_BASE_STREAM_CLOSED : aStatus);
    TellReader();
    TellWriter();
  }
  void WaitToRead(std::function<void()> aCall, nsIEventTarget* aTarget, uint32_t aFlags) {
    mReader.Set(std::move(aCall), aTarget, aFlags & kWaitClosureOnly);
    TellReader();
  }
  void WaitToWrite(std::function<void()> aCall, nsIEventTarget* aTarget, uint32_t aFlags) {
    mWriter.Set(std::move(aCall), aTarget, aFlags & kWaitClosureOnly);
    TellWriter();
  }

 private:
  struct Segment {
    Segment* mNext = nullptr;
    char* Bytes() { return reinterpret_cast<char*>(this + 1); }
  };
  /// Those that the reader has done with are used again; of more than this, the rest is given back.
  static constexpr uint64_t kMostIdle = 64;

  bool IsClosed() const { return NS_FAILED(mStatus.load()); }
  uint64_t Readable() const {
    const uint64_t read = mBytesRead;  // first: it is never more than what has been written
    return mDropped ? 0 : mBytesWritten - read;
  }
  bool HasRoom() const { return mBytesWritten < WriteLimit(); }
  /// How far may be written: a segment is free when all of it has been read.
  uint64_t WriteLimit() const { return (mBytesRead / mSize + mCount) * mSize; }
  void TellReader() { mReader.Tell(Readable() > 0, IsClosed()); }
  void TellWriter() { mWriter.Tell(HasRoom(), IsClosed()); }

  /// Null when there is no memory.
  Segment* NewSegment() const {
    void* const memory = ::operator new(sizeof(Segment) + mSize, std::nothrow);
    return memory ? new (memory) Segment : nullptr;
  }
  void DropOldest() { ::operator delete(std::exchange(mOldest, mOldest->mNext)); }
  nsresult AddSegment();
  template <class Move>
  nsresult ReadPieces(bool aBlock, uint32_t aCount, Move& aMove, uint32_t* aRead);
  /// Waits for room, and writes what fits into one segment.
  template <class Move>
  nsresult WritePiece(bool aBlock, uint32_t aCount, Move& aMove, uint32_t* aWritten, bool* aGoesOn);

  const uint32_t mSize, mCount;
  std::atomic<nsresult> mStatus = NS_OK;  // a failure: closed, and why
  // By closing the input; the memory stays, since the writer may be at it.
  std::atomic<bool> mDropped = false;
  Wait mReader, mWriter;

  // The writer's, in lines of memory that the reader does not write to.
  alignas(kCacheLine) Use mWriting;
  std::atomic<uint64_t> mBytesWritten = 0;
  Segment* mWriteTo = nullptr;
  uint32_t mWriteOffset = 0;
  uint64_t mWriteLimit = 0;  // as it was when it was last looked at
  Segment* mOldest = nullptr;
  uint64_t mOldestNumber = 0;  // counted from the beginning of the stream
  // The reader's.
  alignas(kCacheLine) Use mReading;
  std::atomic<uint64_t> mBytesRead = 0;
  Segment* mReadFrom = nullptr;
  uint32_t mReadOffset = 0;
};

nsresult Core::AddSegment() {
  // The reader has left a segment when it has read from the next one.
  const uint64_t read = mBytesRead, left = read == 0 ? 0 : (read - 1) / mSize;
  for (; left > mOldestNumber + kMostIdle; ++mOldestNumber) DropOldest();
  Segment* segment;
  if (left > mOldestNumber) {
    segment = std::exchange(mOldest, mOldest->mNext);
    segment->mNext = nullptr;
    ++mOldestNumber;
  } else {
    segment = NewSegment();
    if (!segment) return NS_ERROR_OUT_OF_MEMORY;
  }
  mWriteTo->mNext = segment;
  mWriteTo = segment;
  mWriteOffset = 0;
  return NS_OK;
}

template <class Move>
nsresult Core::Read(bool aBlock, uint32_t aCount, Move aMove, uint32_t* aRead) {
  *aRead = 0;
  if (!mReading.Begin()) return NS_BASE_STREAM_WOULD_BLOCK;
  const nsresult rv = ReadPieces(aBlock, aCount, aMove, aRead);
  mReading.End();
  if (*aRead > 0 && mWriter.IsAwaited()) TellWriter();
  return rv;
}

template <class Move>
nsresult Core::ReadPieces(bool aBlock, uint32_t aCount, Move& aMove, uint32_t* aRead) {
  while (*aRead < aCount) {
    const nsresult status = mStatus;  // first: what was written before the end is seen then
    const uint64_t readable = Readable();
    if (readable == 0) {
      if (*aRead > 0) break;
      if (NS_FAILED(status)) return status == NS_BASE_STREAM_CLOSED ? NS_OK : status;
      if (!aBlock) return NS_BASE_STREAM_WOULD_BLOCK;
      mReader.Sleep([this] { return Readable() > 0 || IsClosed(); });
      continue;
    }
    if (mReadOffset == mSize) {
      mReadFrom = mReadFrom->mNext;
      mReadOffset = 0;
    }
    const auto count =
        static_cast<uint32_t>(std::min<uint64_t>({readable, mSize - mReadOffset, aCount - *aRead}));
    uint32_t moved = 0;
    const nsresult rv = aMove(mReadFrom->Bytes() + mReadOffset, *aRead, count, &moved);
    // What the callback says is its own affair; it ends the reading.
    if (NS_FAILED(rv) || moved == 0) break;
    moved = std::min(moved, count);
    *aRead += moved;
    mReadOffset += moved;
    mBytesRead = mBytesRead.load(std::memory_order_relaxed) + moved;
  }
  return NS_OK;
}

template <class Move>
nsresult Core::Write(bool aBlock, uint32_t aCount, Move aMove, uint32_t* aWritten) {
  *aWritten = 0;
  for (bool goesOn = true; goesOn && *aWritten < aCount;) {
    if (!mWriting.Begin()) return NS_BASE_STREAM_WOULD_BLOCK;
    const nsresult rv = WritePiece(aBlock, aCount, aMove, aWritten, &goesOn);
    mWriting.End();
    if (NS_FAILED(rv)) return rv;
    if (mReader.IsAwaited()) TellReader();
  }
  return aCount > 0 && *aWritten == 0 && !HasRoom() ? NS_BASE_STREAM_WOULD_BLOCK : NS_OK;
}

template <class Move>
nsresult Core::WritePiece(bool aBlock, uint32_t aCount, Move& aMove, uint32_t* aWritten,
                          bool* aGoesOn) {
  const uint64_t written = mBytesWritten.load(std::memory_order_relaxed);
  for (;;) {
    if (const nsresult status = mStatus; NS_FAILED(status)) return status;
    if (written == mWriteLimit) mWriteLimit = WriteLimit();
    if (written != mWriteLimit) break;
    if (!aBlock) return *aGoesOn = false, NS_OK;
    mWriter.Sleep([this] { return HasRoom() || IsClosed(); });
  }
  if (mWriteOffset == mSize)
    if (const nsresult rv = AddSegment(); NS_FAILED(rv)) return rv;
  const uint32_t count = std::min(mSize - mWriteOffset, aCount - *aWritten);
  uint32_t moved = 0;
  const nsresult rv = aMove(mWriteTo->Bytes() + mWriteOffset, *aWritten, count, &moved);
  if (NS_FAILED(rv) || moved == 0) return *aGoesOn = false, NS_OK;
  moved = std::min(moved, count);
  *aWritten += moved;
  mWriteOffset += moved;
  mBytesWritten = written + moved;
  return NS_OK;
}

class PipeInput final : public nsImplements<PipeInput, nsIAsyncInputStream> {
 public:
  static const nsClassInfoRecord kClassInfo;
  PipeInput(std::shared_ptr<Core> aCore, bool aBlocks)
      : mCore(std::move(aCore)), mBlocks(aBlocks) {}

  nsresult Close() override { return CloseWithStatus(NS_BASE_STREAM_CLOSED); }
  nsresult Available(uint32_t* aResult) override {
    return aResult ? mCore->Available(aResult) : NS_ERROR_NULL_POINTER;
  }
  nsresult Read(char* aBuf, uint32_t aCount, uint32_t* aResult) override {
    if (!aBuf || !aResult) return NS_ERROR_NULL_POINTER;
    return mCore->Read(
        mBlocks, aCount,
        [aBuf](char* aBytes, uint32_t aOffset, uint32_t aPart, uint32_t* aMoved) {
          std::memcpy(aBuf + aOffset, aBytes, aPart);
          *aMoved = aPart;
          return NS_OK;
        },
        aResult);
  }
  nsresult ReadSegments(nsWriteSegmentFun aWriter, void* aClosure, uint32_t aCount,
                        uint32_t* aResult) override {
    if (!aWriter || !aResult) return NS_ERROR_NULL_POINTER;
    return mCore->Read(
        mBlocks, aCount,
        [&](char* aBytes, uint32_t aOffset, uint32_t aPart, uint32_t* aMoved) {
          return aWriter(this, aClosure, aBytes, aOffset, aPart, aMoved);
        },
        aResult);
  }
  nsresult IsNonBlocking(bool* aResult) override {
    if (!aResult) return NS_ERROR_NULL_POINTER;
    *aResult = !mBlocks;
    return NS_OK;
  }
  nsresult CloseWithStatus(nsresult aStatus) override {
    mCore->Close(aStatus, true);
    return NS_OK;
  }
  nsresult AsyncWait(nsIInputStreamCallback* aCallback, uint32_t aFlags,
                     uint32_t /*aRequestedCount*/, nsIEventTarget* aEventTarget) override {
    std::function<void()> call;
    if (aCallback)
      call = [self = nsCOMPtr<nsIAsyncInputStream>(this), callback = nsCOMPtr(aCallback)] {
        (void)callback->OnInputStreamReady(self.get());
      };
    mCore->WaitToRead(std::move(call), aEventTarget, aFlags);
    return NS_OK;
  }

 private:
  ~PipeInput() override { (void)Close(); }
  const std::shared_ptr<Core> mCore;
  const bool mBlocks;
};

class PipeOutput final : public nsImplements<PipeOutput, nsIAsyncOutputStream> {
 public:
  static const nsClassInfoRecord kClassInfo;
  PipeOutput(std::shared_ptr<Core> aCore, bool aBlocks)
      : mCore(std::move(aCore)), mBlocks(aBlocks) {}

  nsresult Close() override { return CloseWithStatus(NS_BASE_STREAM_CLOSED); }
  nsresult Flush() override { return NS_OK; }
  nsresult Write(const char* aBuf, uint32_t aCount, uint32_t* aResult) override {
    if (!aBuf || !aResult) return NS_ERROR_NULL_POINTER;
    return mCore->Write(
        mBlocks, aCount,
        [aBuf](char* aBytes, uint32_t aOffset, uint32_t aPart, uint32_t* aMoved) {
          std::memcpy(aBytes, aBuf + aOffset, aPart);
          *aMoved = aPart;
          return NS_OK;
        },
        aResult);
  }
  nsresult WriteFrom(nsIInputStream* aFromStream, uint32_t aCount, uint32_t* aResult) override {
    if (!aFromStream || !aResult) return NS_ERROR_NULL_POINTER;
    return mCore->Write(
        mBlocks, aCount,
        [aFromStream](char* aBytes, uint32_t, uint32_t aPart, uint32_t* aMoved) {
          return aFromStream->Read(aBytes, aPart, aMoved);
        },
        aResult);
  }
  nsresult WriteSegments(nsReadSegmentFun aReader, void* aClosure, uint32_t aCount,
                         uint32_t* aResult) override {
    if (!aReader || !aResult) return NS_ERROR_NULL_POINTER;
    return mCore->Write(
        mBlocks, aCount,
        [&](char* aBytes, uint32_t aOffset, uint32_t aPart, uint32_t* aMoved) {
          return aReader(this, aClosure, aBytes, aOffset, aPart, aMoved);
        },
        aResult);
  }
  nsresult IsNonBlocking(bool* aResult) override {
    if (!aResult) return NS_ERROR_NULL_POINTER;
    *aResult = !mBlocks;
    return NS_OK;
  }
  nsresult CloseWithStatus(nsresult aReason) override {
    mCore->Close(aReason, false);
    return NS_OK;
  }
  nsresult AsyncWait(nsIOutputStreamCallback* aCallback, uint32_t aFlags,
                     uint32_t /*aRequestedCount*/, nsIEventTarget* aEventTarget) override {
    std::function<void()> call;
    if (aCallback)
      call = [self = nsCOMPtr<nsIAsyncOutputStream>(this), callback = nsCOMPtr(aCallback)] {
        (void)callback->OnOutputStreamReady(self.get());
      };
    mCore->WaitToWrite(std::move(call), aEventTarget, aFlags);
    return NS_OK;
  }

 private:
  ~PipeOutput() override { (void)Close(); }
  const std::shared_ptr<Core> mCore;
  const bool mBlocks;
};

const nsClassInfoRecord PipeInput::kClassInfo = {
    NS_ClassInterfaces<nsIInputStream, nsIAsyncInputStream>, nullptr, nsIClassInfo::THREADSAFE,
    "e3f7a0a5-1a37-4f6c-9f4c-6e0f8d3b2c11"_iid};
const nsClassInfoRecord PipeOutput::kClassInfo = {
    NS_ClassInterfaces<nsIOutputStream, nsIAsyncOutputStream>, nullptr, nsIClassInfo::THREADSAFE,
    "a1c94d0e-2b6b-4d9b-8a70-94e1c7f5d622"_iid};

}  // namespace

const nsClassInfoRecord nsPipe::kClassInfo = {NS_ClassInterfaces<nsIPipe>, nullptr,
                                              nsIClassInfo::THREADSAFE,
                                              "e4a0ee4e-0775-457b-9118-b3ae97a7c758"_iid};

nsresult nsPipe::Init(bool aNonBlockingInput, bool aNonBlockingOutput, uint32_t aSegmentSize,
                      uint32_t aSegmentCount, nsIMemory* /*aSegmentAllocator*/) {
  if (mInput) return NS_ERROR_ALREADY_INITIALIZED;
  const auto core = std::make_shared<Core>(aSegmentSize ? aSegmentSize : kDefaultSegmentSize,
                                           aSegmentCount ? aSegmentCount : kDefaultSegmentCount);
  if (const nsresult rv = core->Init(); NS_FAILED(rv)) return rv;
  mInput = MakeRefCounted<PipeInput>(core, !aNonBlockingInput);
  mOutput = MakeRefCounted<PipeOutput>(core, !aNonBlockingOutput);
  return NS_OK;
}

nsresult nsPipe::GetInputStream(nsIAsyncInputStream** aInputStream) {
  if (!aInputStream) return NS_ERROR_NULL_POINTER;
  if (!mInput) return NS_ERROR_NOT_INITIALIZED;
  nsCOMPtr(mInput).forget(aInputStream);
  return NS_OK;
}

nsresult nsPipe::GetOutputStream(nsIAsyncOutputStream** aOutputStream) {
  if (!aOutputStream) return NS_ERROR_NULL_POINTER;
  if (!mOutput) return NS_ERROR_NOT_INITIALIZED;
  nsCOMPtr(mOutput).forget(aOutputStream);
  return NS_OK;
}

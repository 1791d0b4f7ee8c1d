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
#include "nsProcessor.h"
#include "nsThread.h"

namespace {

constexpr uint32_t kDefaultSegmentSize = 4096, kDefaultSegmentCount = 16, kWaitClosureOnly = 1;
constexpr size_t kCacheLine = 64;
static_assert(kWaitClosureOnly == nsIAsyncInputStream::WAIT_CLOSURE_ONLY &&
              kWaitClosureOnly == nsIAsyncOutputStream::WAIT_CLOSURE_ONLY);

/// What an end waits for: inside a call, or by a call that is made. Costs whoever has to tell it
/// one look as long as nobody waits.
///
/// No wake is lost: who waits says first what for (mWanted) and looks then whether it is there; who
/// moves bytes says first how far it has come and looks then whether that is waited for. All four
/// are sequentially consistent, so that one of the two sees what the other one has said.
class Wait {
 public:
  /// Whether anybody is to be told that so many bytes are there: aHave() tells, if it matters.
  template <class Have>
  bool IsDue(Have aHave) const {
    const uint64_t wanted = mWanted;
    return wanted != 0 && aHave() >= wanted;
  }

  /// Until aReady says so, as it does for aWanted bytes or more, which is not 0. One thread at a
  /// time.
  template <class Ready>
  void Sleep(uint64_t aWanted, Ready aReady) {
    mBriefly.Until(aReady, [&] {
      nsAutoLock lock(mLock);
      mTeller = -1;
      for (;;) {
        mSleeperWants = aWanted;
        Announce();
        if (aReady()) break;
        mChanged.Wait(lock);
      }
      mSleeperWants = 0;
      Announce();
      const bool isInTheWay = mTeller == NS_CurrentProcessor();
      lock.Unlock();
      // Who has woken this thread is about to move more, and waits for the processor now. Without
      // this the two would take turns for each small piece.
      if (isInTheWay) std::this_thread::yield();
    });
  }
  /// The call is due with aWanted bytes, which is not 0, or only at the end.
  void Set(std::function<void()> aCall, nsIEventTarget* aTarget, bool aClosureOnly,
           uint64_t aWanted) {
    // May hold the last references to things.
    nsCOMPtr<nsIEventTarget> target(aTarget);
    const nsAutoLock lock(mLock);
    mCall.swap(aCall);
    mTarget.swap(target);
    mCallWants = aClosureOnly ? kNothing : aWanted;
    Announce();
  }
  /// Wakes whoever waits inside a call, and makes the call that is due, once.
  void Tell(uint64_t aHave, bool aClosed) {
    std::function<void()> call;
    nsCOMPtr<nsIEventTarget> target;
    bool wakes = false;
    {
      const nsAutoLock lock(mLock);
      if (mCall && (aClosed || aHave >= mCallWants)) {
        call.swap(mCall);
        target.swap(mTarget);
      }
      wakes = mSleeperWants != 0 && (aClosed || aHave >= mSleeperWants);
      if (wakes) {
        mSleeperWants = 0;  // it says so again if it was in vain
        mTeller = NS_CurrentProcessor();
      }
      Announce();
    }
    if (wakes) mChanged.NotifyOne();
    if (!call) return;
    // A target that is gone can't be told.
    if (target)
      (void)target->Dispatch(NS_NewRunnable(std::move(call)).get(),
                             nsIEventTarget::DISPATCH_NORMAL);
    else
      call();
  }

 private:
  static constexpr uint64_t kNothing = UINT64_MAX;  // that bytes could be

  void Announce() NS_REQUIRES(mLock) {
    const uint64_t call = mCall && mCallWants != kNothing ? mCallWants : 0;
    mWanted =
        call == 0 || mSleeperWants == 0 ? call + mSleeperWants : std::min(call, mSleeperWants);
  }

  alignas(kCacheLine) std::atomic<uint64_t> mWanted = 0;  // 0: nobody waits for bytes
  alignas(kCacheLine) nsBriefWait mBriefly;               // of the thread that sleeps
  nsMutex mLock;
  nsCondition mChanged;
  uint64_t mSleeperWants NS_GUARDED_BY(mLock) = 0, mCallWants NS_GUARDED_BY(mLock) = 0;
  int mTeller NS_GUARDED_BY(mLock) = -1;  // the processor of who has woken the sleeper
  std::function<void()> mCall NS_GUARDED_BY(mLock);
  nsCOMPtr<nsIEventTarget> mTarget NS_GUARDED_BY(mLock);
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

/// What the two ends share: a chain of blocks, each of some segments, which the writer adds to and
/// the reader goes along. How far each has come is all that they tell each other, so that neither
/// waits for the other unless there is nothing to do; and each looks at that of the other only when
/// what it knew of it is used up.
class Core {
 public:
  Core(uint32_t aSegmentSize, uint32_t aSegmentCount)
      : mSize(aSegmentSize),
        mCount(aSegmentCount),
        mBlockSize(aSegmentSize * std::clamp(kMostOfABlock / aSegmentSize, 1u, aSegmentCount)) {}
  /// NS_ERROR_OUT_OF_MEMORY.
  nsresult Init() {
    mReadFrom = mWriteTo = mOldest = NewBlock();
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
  /// What a move is given at once: at most the rest of a segment, for who is called; or whatever
  /// lies side by side.
  enum class Pieces { eSegments, eLargest };
  /// Both: aMove(char* aBytes, uint32_t aOffset, uint32_t aCount, uint32_t* aMoved). What comes
  /// while bytes are read is for the next read.
  template <class Move>
  nsresult Read(bool aBlock, Pieces aPieces, uint32_t aCount, Move aMove, uint32_t* aRead);
  template <class Move>
  nsresult Write(bool aBlock, Pieces aPieces, uint32_t aCount, Move aMove, uint32_t* aWritten);
  void Close(nsresult aStatus, bool aDrop) {
    if (aDrop) mDropped = true;
    nsresult open = NS_OK;
    (void)mStatus.compare_exchange_strong(open,
                                          NS_SUCCEEDED(aStatus) ? NS_BASE_STREAM_CLOSED : aStatus);
    TellReader();
    TellWriter();
  }
  void WaitToRead(std::function<void()> aCall, nsIEventTarget* aTarget, uint32_t aFlags) {
    mReader.Set(std::move(aCall), aTarget, aFlags & kWaitClosureOnly, 1);
    TellReader();
  }
  /// Until there is room for aRequested bytes, or for all that there can be.
  void WaitToWrite(std::function<void()> aCall, nsIEventTarget* aTarget, uint32_t aFlags,
                   uint32_t aRequested) {
    mWriter.Set(std::move(aCall), aTarget, aFlags & kWaitClosureOnly,
                std::clamp<uint64_t>(aRequested, 1, uint64_t{mSize} * mCount));
    TellWriter();
  }

 private:
  struct alignas(kCacheLine) Block {
    Block* mNext = nullptr;
    char* Bytes() { return reinterpret_cast<char*>(this + 1); }
  };
  static constexpr uint32_t kFetchedFrom = 192, kFetchedTo = 576;
  static constexpr uint32_t kMostOfABlock = 16384;  // unless a segment is larger
  /// Those that the reader has done with are used again; of more than this, the rest is given back.
  static constexpr uint64_t kMostIdle = 4;

  bool IsClosed() const { return NS_FAILED(mStatus.load()); }
  uint64_t Readable() const {
    const uint64_t read = mBytesRead;  // first: it is never more than what has been written
    return mDropped ? 0 : mBytesWritten - read;
  }
  /// How many bytes could be written.
  uint64_t Room() const {
    const uint64_t written = mBytesWritten;  // first: it is never more than the limit
    return WriteLimit() - written;
  }
  /// How far may be written: a segment is free when all of it has been read.
  uint64_t WriteLimit() const { return (mBytesRead / mSize + mCount) * mSize; }
  void TellReader() { mReader.Tell(Readable(), IsClosed()); }
  void TellWriter() { mWriter.Tell(Room(), IsClosed()); }

  /// Null when there is no memory.
  Block* NewBlock() const {
    void* const memory =
        ::operator new(sizeof(Block) + mBlockSize, std::align_val_t(alignof(Block)), std::nothrow);
    return memory ? new (memory) Block : nullptr;
  }
  void DropOldest() {
    ::operator delete(std::exchange(mOldest, mOldest->mNext), std::align_val_t(alignof(Block)));
  }
  nsresult AddBlock();
  /// The next small write goes to memory that the reader's processor had last. To have it here by
  /// then costs nothing; to wait for it there, behind each write, is most of what that costs.
  static void FetchAhead(const char* aBytes, uint32_t aSize) {
    for (uint32_t at = kFetchedFrom; at < kFetchedTo && at < aSize; at += kCacheLine)
      __builtin_prefetch(aBytes + at, 1);
  }
  uint32_t LargestPiece(Pieces aPieces, uint32_t aOffset) const {
    return aPieces == Pieces::eLargest ? mBlockSize - aOffset : mSize - aOffset % mSize;
  }
  template <class Move>
  nsresult ReadPieces(bool aBlock, Pieces aPieces, uint32_t aCount, Move& aMove, uint32_t* aRead);
  /// Waits for room, and writes what fits into one piece.
  template <class Move>
  nsresult WritePiece(bool aBlock, Pieces aPieces, uint32_t aCount, Move& aMove, uint32_t* aWritten,
                      bool* aGoesOn);

  const uint32_t mSize, mCount, mBlockSize;
  std::atomic<nsresult> mStatus = NS_OK;  // a failure: closed, and why
  // By closing the input; the memory stays, since the writer may be at it.
  std::atomic<bool> mDropped = false;
  Wait mReader, mWriter;

  // The writer's, in lines of memory that the reader does not write to.
  alignas(kCacheLine) std::atomic<uint64_t> mBytesWritten = 0;
  alignas(kCacheLine) Use mWriting;
  Block* mWriteTo = nullptr;
  uint32_t mWriteOffset = 0;
  uint64_t mWriteLimit = 0;  // as it was when it was last looked at
  Block* mOldest = nullptr;
  uint64_t mOldestNumber = 0;  // counted from the beginning of the stream
  // The reader's.
  alignas(kCacheLine) std::atomic<uint64_t> mBytesRead = 0;
  alignas(kCacheLine) Use mReading;
  Block* mReadFrom = nullptr;
  uint32_t mReadOffset = 0;
  uint64_t mReadLimit = 0;  // how far had been written when it was last looked at
};

nsresult Core::AddBlock() {
  // The reader has left a block when it has read from the next one.
  const uint64_t read = mBytesRead, left = read == 0 ? 0 : (read - 1) / mBlockSize;
  for (; left > mOldestNumber + kMostIdle; ++mOldestNumber) DropOldest();
  Block* block;
  if (left > mOldestNumber) {
    block = std::exchange(mOldest, mOldest->mNext);
    block->mNext = nullptr;
    ++mOldestNumber;
  } else {
    block = NewBlock();
    if (!block) return NS_ERROR_OUT_OF_MEMORY;
  }
  mWriteTo->mNext = block;
  mWriteTo = block;
  mWriteOffset = 0;
  return NS_OK;
}

template <class Move>
nsresult Core::Read(bool aBlock, Pieces aPieces, uint32_t aCount, Move aMove, uint32_t* aRead) {
  *aRead = 0;
  if (!mReading.Begin()) return NS_BASE_STREAM_WOULD_BLOCK;
  const nsresult rv = ReadPieces(aBlock, aPieces, aCount, aMove, aRead);
  mReading.End();
  if (*aRead > 0 && mWriter.IsDue([this] { return Room(); })) TellWriter();
  return rv;
}

template <class Move>
nsresult Core::ReadPieces(bool aBlock, Pieces aPieces, uint32_t aCount, Move& aMove,
                          uint32_t* aRead) {
  if (aCount == 0) return NS_OK;
  uint64_t read = mBytesRead.load(std::memory_order_relaxed);
  while (mDropped || mReadLimit - read < aCount) {
    const nsresult status = mStatus;  // first: what was written before the end is seen then
    mReadLimit = mBytesWritten;
    if (mReadLimit > read && !mDropped) break;
    if (NS_FAILED(status)) return status == NS_BASE_STREAM_CLOSED ? NS_OK : status;
    if (!aBlock) return NS_BASE_STREAM_WOULD_BLOCK;
    mReader.Sleep(1, [this] { return Readable() > 0 || IsClosed(); });
  }
  while (*aRead < aCount && read < mReadLimit && !mDropped) {
    if (mReadOffset == mBlockSize) {
      mReadFrom = mReadFrom->mNext;
      mReadOffset = 0;
    }
    const auto count = static_cast<uint32_t>(std::min<uint64_t>(
        {mReadLimit - read, LargestPiece(aPieces, mReadOffset), aCount - *aRead}));
    uint32_t moved = 0;
    const nsresult rv = aMove(mReadFrom->Bytes() + mReadOffset, *aRead, count, &moved);
    // What the callback says is its own affair; it ends the reading.
    if (NS_FAILED(rv) || moved == 0) break;
    moved = std::min(moved, count);
    *aRead += moved;
    mReadOffset += moved;
    mBytesRead = read += moved;
  }
  return NS_OK;
}

template <class Move>
nsresult Core::Write(bool aBlock, Pieces aPieces, uint32_t aCount, Move aMove, uint32_t* aWritten) {
  *aWritten = 0;
  for (bool goesOn = true; goesOn && *aWritten < aCount;) {
    if (!mWriting.Begin()) return NS_BASE_STREAM_WOULD_BLOCK;
    const nsresult rv = WritePiece(aBlock, aPieces, aCount, aMove, aWritten, &goesOn);
    mWriting.End();
    if (NS_FAILED(rv)) return rv;
    if (mReader.IsDue([this] { return Readable(); })) TellReader();
  }
  return aCount > 0 && *aWritten == 0 && Room() == 0 ? NS_BASE_STREAM_WOULD_BLOCK : NS_OK;
}

template <class Move>
nsresult Core::WritePiece(bool aBlock, Pieces aPieces, uint32_t aCount, Move& aMove,
                          uint32_t* aWritten, bool* aGoesOn) {
  const uint64_t written = mBytesWritten.load(std::memory_order_relaxed);
  for (;;) {
    if (const nsresult status = mStatus; NS_FAILED(status)) return status;
    if (written == mWriteLimit) mWriteLimit = WriteLimit();
    if (written != mWriteLimit) break;
    if (!aBlock) return *aGoesOn = false, NS_OK;
    // For all that is to be written, but no more than half of what there can be: a reader at work
    // then wakes this thread once for many segments.
    const uint64_t wanted =
        std::min<uint64_t>(aCount - *aWritten, uint64_t{mSize} * (mCount / 2 + 1));
    mWriter.Sleep(wanted, [this, wanted] { return Room() >= wanted || IsClosed(); });
  }
  if (mWriteOffset == mBlockSize)
    if (const nsresult rv = AddBlock(); NS_FAILED(rv)) return rv;
  const auto count = static_cast<uint32_t>(std::min<uint64_t>(
      {mWriteLimit - written, LargestPiece(aPieces, mWriteOffset), aCount - *aWritten}));
  uint32_t moved = 0;
  const nsresult rv = aMove(mWriteTo->Bytes() + mWriteOffset, *aWritten, count, &moved);
  if (NS_FAILED(rv) || moved == 0) return *aGoesOn = false, NS_OK;
  moved = std::min(moved, count);
  *aWritten += moved;
  mWriteOffset += moved;
  FetchAhead(mWriteTo->Bytes() + mWriteOffset, mBlockSize - mWriteOffset);
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
        mBlocks, Core::Pieces::eLargest, aCount,
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
        mBlocks, Core::Pieces::eSegments, aCount,
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
        mBlocks, Core::Pieces::eLargest, aCount,
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
        mBlocks, Core::Pieces::eSegments, aCount,
        [aFromStream](char* aBytes, uint32_t, uint32_t aPart, uint32_t* aMoved) {
          return aFromStream->Read(aBytes, aPart, aMoved);
        },
        aResult);
  }
  nsresult WriteSegments(nsReadSegmentFun aReader, void* aClosure, uint32_t aCount,
                         uint32_t* aResult) override {
    if (!aReader || !aResult) return NS_ERROR_NULL_POINTER;
    return mCore->Write(
        mBlocks, Core::Pieces::eSegments, aCount,
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
  nsresult AsyncWait(nsIOutputStreamCallback* aCallback, uint32_t aFlags, uint32_t aRequestedCount,
                     nsIEventTarget* aEventTarget) override {
    std::function<void()> call;
    if (aCallback)
      call = [self = nsCOMPtr<nsIAsyncOutputStream>(this), callback = nsCOMPtr(aCallback)] {
        (void)callback->OnOutputStreamReady(self.get());
      };
    mCore->WaitToWrite(std::move(call), aEventTarget, aFlags, aRequestedCount);
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

#include "nsPipe.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <functional>

#include "nsIEventTarget.h"
#include "nsIInputStreamCallback.h"
#include "nsIOutputStreamCallback.h"
#include "nsLock.h"
#include "nsThread.h"

namespace {

constexpr uint32_t kDefaultSegmentSize = 4096, kDefaultSegmentCount = 16, kWaitClosureOnly = 1;
static_assert(kWaitClosureOnly == nsIAsyncInputStream::WAIT_CLOSURE_ONLY &&
              kWaitClosureOnly == nsIAsyncOutputStream::WAIT_CLOSURE_ONLY);

/// A call that an end waits for.
class Waiter {
 public:
  void Set(std::function<void()> aCall, nsIEventTarget* aTarget, bool aClosureOnly) {
    mCall = std::move(aCall);
    mTarget = aTarget;
    mClosureOnly = aClosureOnly;
  }
  /// The call to be made now, outside the lock; null if it has to wait on, or if there is none.
  std::function<void()> TakeIf(bool aReady, bool aClosed) {
    if (!mCall || !(aClosed || (aReady && !mClosureOnly))) return nullptr;
    auto call = std::exchange(mCall, nullptr);
    const nsCOMPtr<nsIEventTarget> target = std::exchange(mTarget, nullptr);
    if (!target) return call;
    return [target, event = NS_NewRunnable(std::move(call))] {
      // A target that is gone can't be told.
      (void)target->Dispatch(event.get(), nsIEventTarget::DISPATCH_NORMAL);
    };
  }

 private:
  std::function<void()> mCall;
  nsCOMPtr<nsIEventTarget> mTarget;
  bool mClosureOnly = false;
};

/// What the two ends share. The reader alone takes segments away at the front and the writer alone
/// adds bytes at the back, so that each may touch its bytes without the lock; the lock guards where
/// these are.
class Core {
 public:
  using Move =
      std::function<nsresult(char* aBytes, uint32_t aOffset, uint32_t aCount, uint32_t* aMoved)>;

  Core(uint32_t aSegmentSize, uint32_t aSegmentCount)
      : mSize(aSegmentSize), mCount(aSegmentCount) {}

  nsresult Available(uint32_t* aCount) {
    const nsAutoLock lock(mMutex);
    if (Readable() == 0 && NS_FAILED(mStatus)) return mStatus;
    *aCount = static_cast<uint32_t>(std::min<uint64_t>(Readable(), UINT32_MAX));
    return NS_OK;
  }
  nsresult Read(bool aBlock, uint32_t aCount, const Move& aMove, uint32_t* aRead);
  nsresult Write(bool aBlock, uint32_t aCount, const Move& aMove, uint32_t* aWritten);
  void Close(nsresult aStatus, bool aDrop);
  void WaitToRead(std::function<void()> aCall, nsIEventTarget* aTarget, uint32_t aFlags) {
    Wait(&Core::mReader, std::move(aCall), aTarget, aFlags);
  }
  void WaitToWrite(std::function<void()> aCall, nsIEventTarget* aTarget, uint32_t aFlags) {
    Wait(&Core::mWriter, std::move(aCall), aTarget, aFlags);
  }

 private:
  uint64_t Readable() const NS_REQUIRES(mMutex) {
    if (mDropped || mSegments.empty()) return 0;
    return (mSegments.size() - 1) * uint64_t{mSize} + mWriteOffset - mReadOffset;
  }
  bool HasRoom() const NS_REQUIRES(mMutex) {
    return mSegments.size() < mCount || (!mSegments.empty() && mWriteOffset < mSize);
  }
  void Wait(Waiter Core::*aWaiter, std::function<void()> aCall, nsIEventTarget* aTarget,
            uint32_t aFlags);
  /// Wakes whoever waits inside a call, and makes the calls that are due. Takes the lock off.
  void Tell(nsAutoLock<nsMutex>& aLock) NS_RELEASES(mMutex);

  const uint32_t mSize, mCount;
  nsMutex mMutex;
  nsCondition mChanged;
  std::deque<std::unique_ptr<char[]>> mSegments NS_GUARDED_BY(mMutex);
  uint32_t mReadOffset NS_GUARDED_BY(mMutex) = 0;   // in the first segment
  uint32_t mWriteOffset NS_GUARDED_BY(mMutex) = 0;  // in the last segment
  nsresult mStatus NS_GUARDED_BY(mMutex) = NS_OK;   // a failure: closed, and why
  // By closing the input; the memory stays, since the writer may be at it.
  bool mDropped NS_GUARDED_BY(mMutex) = false;
  Waiter mReader NS_GUARDED_BY(mMutex), mWriter NS_GUARDED_BY(mMutex);
};

// Not checked: it can't be told that aLock is of mMutex.
void Core::Tell(nsAutoLock<nsMutex>& aLock) NS_NOT_CHECKED {
  const bool closed = NS_FAILED(mStatus);
  const auto reader = mReader.TakeIf(Readable() > 0, closed),
             writer = mWriter.TakeIf(HasRoom(), closed);
  aLock.Unlock();
  mChanged.NotifyAll();
  if (reader) reader();
  if (writer) writer();
}

void Core::Wait(Waiter Core::*aWaiter, std::function<void()> aCall, nsIEventTarget* aTarget,
                uint32_t aFlags) {
  Waiter replaced;  // may hold the last references to things
  nsAutoLock lock(mMutex);
  std::swap(replaced, this->*aWaiter);
  (this->*aWaiter).Set(std::move(aCall), aTarget, aFlags & kWaitClosureOnly);
  Tell(lock);
}

nsresult Core::Read(bool aBlock, uint32_t aCount, const Move& aMove, uint32_t* aRead) {
  *aRead = 0;
  nsAutoLock lock(mMutex);
  nsresult rv = NS_OK;
  while (*aRead < aCount) {
    if (Readable() == 0) {
      if (*aRead > 0) break;
      if (NS_FAILED(mStatus)) return mStatus == NS_BASE_STREAM_CLOSED ? NS_OK : mStatus;
      if (!aBlock) return NS_BASE_STREAM_WOULD_BLOCK;
      mChanged.Wait(lock);
      continue;
    }
    const uint32_t end = mSegments.size() == 1 ? mWriteOffset : mSize;
    const uint32_t count = std::min(end - mReadOffset, aCount - *aRead);
    char* const bytes = mSegments.front().get() + mReadOffset;
    lock.Unlock();
    uint32_t moved = 0;
    rv = aMove(bytes, *aRead, count, &moved);
    lock.Lock();
    // What the callback says is its own affair; it ends the reading.
    if (NS_FAILED(rv) || moved == 0) break;
    moved = std::min(moved, count);
    *aRead += moved;
    mReadOffset += moved;
    if (mReadOffset == mSize) {
      mSegments.pop_front();
      mReadOffset = 0;
    }
  }
  if (*aRead > 0) Tell(lock);
  return NS_OK;
}

nsresult Core::Write(bool aBlock, uint32_t aCount, const Move& aMove, uint32_t* aWritten) {
  *aWritten = 0;
  nsAutoLock lock(mMutex);
  while (*aWritten < aCount) {
    if (NS_FAILED(mStatus)) return mStatus;
    if (!HasRoom()) {
      if (!aBlock) break;
      mChanged.Wait(lock);
      continue;
    }
    if (mSegments.empty() || mWriteOffset == mSize) {
      mSegments.push_back(std::make_unique_for_overwrite<char[]>(mSize));
      mWriteOffset = 0;
    }
    const uint32_t count = std::min(mSize - mWriteOffset, aCount - *aWritten);
    char* const bytes = mSegments.back().get() + mWriteOffset;
    lock.Unlock();
    uint32_t moved = 0;
    const nsresult rv = aMove(bytes, *aWritten, count, &moved);
    lock.Lock();
    if (NS_FAILED(rv) || moved == 0) break;
    moved = std::min(moved, count);
    *aWritten += moved;
    mWriteOffset += moved;
    Tell(lock);
    lock.Lock();
  }
  return aCount > 0 && *aWritten == 0 && !HasRoom() ? NS_BASE_STREAM_WOULD_BLOCK : NS_OK;
}

void Core::Close(nsresult aStatus, bool aDrop) {
  nsAutoLock lock(mMutex);
  if (NS_SUCCEEDED(mStatus)) mStatus = NS_SUCCEEDED(aStatus) ? NS_BASE_STREAM_CLOSED : aStatus;
  if (aDrop) mDropped = true;
  Tell(lock);
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

#include "nsSerialStream.h"

#include <bit>
#include <cstdio>
#include <cstring>
#include <memory>

#include "nsDebug.h"
#include "nsString.h"
#include "nsSystemAdapterSerial.h"
#include "nsXPCOM.h"
#include "prmem.h"

namespace {

// The longest read that a single call carries out. At the speed of serial lines it would take
// hours; a length from the wire that is larger is no length.
constexpr uint64_t kLongestRead = 16 << 20;

// Big-endian, both ways.
template <class T>
T FromNetwork(T aNumber) {
  if constexpr (std::endian::native == std::endian::big || sizeof(T) == 1) return aNumber;
  uint8_t bytes[sizeof(T)];
  std::memcpy(bytes, &aNumber, sizeof bytes);
  T swapped = 0;
  for (const uint8_t byte : bytes) swapped = static_cast<T>(uint64_t{swapped} << 8 | byte);
  return swapped;
}

}  // namespace

// ---- Both

template <class Direction>
nsrefcnt nsSerialStream<Direction>::AddRef() {
  mStreamRefCnt.fetch_add(1, std::memory_order_relaxed);
  return mAdapter->AddRef();
}

template <class Direction>
nsrefcnt nsSerialStream<Direction>::Release() {
  if (mStreamRefCnt.fetch_sub(1, std::memory_order_acq_rel) == 1) (void)Close();
  return mAdapter->Release();
}

template <class Direction>
nsresult nsSerialStream<Direction>::IsNonBlocking(bool* aResult) {
  const nsAutoLock lock(mAdapter->mMonitor);
  *aResult = !(mAdapter->mBlocking && mAdapter->mMode != 2);
  return NS_OK;
}

template <class Direction>
nsresult nsSerialStream<Direction>::CloseWithStatus(nsresult aReason) {
  const nsAutoLock lock(mAdapter->mMonitor);
  char text[32];
  std::snprintf(text, sizeof text, "reason = %x", static_cast<unsigned>(aReason));
  SYSTEM_LOG_DEBUG(mAdapter->mLogger, text);
  if (NS_FAILED(mCondition)) return NS_OK;
  // The reason given never stays, and a reader sees the end of the stream. Kept as it stands: users
  // of the streams know one failure of a closed one. Who waits is not called.
  mCondition = NS_FAILED(aReason) ? NS_BASE_STREAM_CLOSED : aReason;
  return NS_OK;
}

template <class Direction>
nsresult nsSerialStream<Direction>::AsyncWait(Callback* aCallback, uint32_t aFlags, uint32_t,
                                              nsIEventTarget* aTarget) {
  // The one that was there is let go outside the monitor.
  nsCOMPtr<Callback> callback(aCallback);
  const nsAutoLock lock(mAdapter->mMonitor);
  SYSTEM_LOG_DEBUG(mAdapter->mLogger, "Begin");
  // Nothing is triggered here, even if bytes are there: the worker's next event does that.
  if (aCallback && aTarget) {
    callback =
        nsCOMPtr<Callback>(new (std::nothrow) typename Direction::ReadyEvent(aCallback, aTarget));
    if (!callback) return NS_ERROR_OUT_OF_MEMORY;
  }
  mCallback.swap(callback);
  mCallbackFlags = aFlags;
  return NS_OK;
}

template <class Direction>
nsresult nsSerialStream<Direction>::OnSerialReady(nsresult aCondition) {
  SYSTEM_LOG_DEBUG(mAdapter->mLogger, Direction::kReadyText);
  nsCOMPtr<Callback> callback;
  {
    const nsAutoLock lock(mAdapter->mMonitor);
    const bool failedBefore = NS_FAILED(mCondition);
    if (!failedBefore) mCondition = aCondition;
    if (failedBefore || NS_FAILED(aCondition) || !(mCallbackFlags & Async::WAIT_CLOSURE_ONLY)) {
      mCallback.swap(callback);
      mCallbackFlags = 0;
    }
  }
  if (!callback) return NS_OK;
  if constexpr (std::is_same_v<Direction, nsSerialInput>)
    return callback->OnInputStreamReady(this);
  else
    return callback->OnOutputStreamReady(this);
}

template <class Direction>
uint64_t nsSerialStream<Direction>::ByteCount() const {
  const nsAutoLock lock(mAdapter->mMonitor);
  return mByteCount;
}

template <class Direction>
nsPlatformCommPortRef nsSerialStream<Direction>::Enter(std::string_view aText, uint32_t* aMode,
                                                       nsresult* aResult) {
  const nsAutoLock lock(mAdapter->mMonitor);
  SYSTEM_LOG_DEBUG(mAdapter->mLogger, aText);
  *aMode = mAdapter->mMode;
  *aResult = mCondition;
  return NS_FAILED(mCondition) ? nullptr : mAdapter->TakeHandle_Locked();
}

template <class Direction>
nsresult nsSerialStream<Direction>::Leave(const nsPlatformCommPortRef& aHandle, int64_t aCount) {
  const nsAutoLock lock(mAdapter->mMonitor);
  // One that comes back from a handle after which another was opened says nothing of that.
  const bool current = !mAdapter->mHandle || mAdapter->mHandle == aHandle;
  mAdapter->ReleaseHandle_Locked(aHandle);
  if (!current) return aCount < 0 ? NS_ERROR_FAILURE : NS_OK;
  if (aCount > 0) mByteCount += static_cast<uint64_t>(aCount);
  if (aCount < 0) mCondition = NS_ERROR_FAILURE;
  return mCondition;
}

template class nsSerialStream<nsSerialInput>;
template class nsSerialStream<nsSerialOutput>;

// ---- Input

nsresult nsSerialInputStream::Available(uint32_t* aResult) {
  *aResult = 0;
  uint32_t mode = 0;
  nsresult rv;
  const nsPlatformCommPortRef handle = Enter("Begin", &mode, &rv);
  if (!handle) return rv;
  uint32_t errors = 0;
  nsCommStat stat;
  rv = handle->ClearCommError(&errors, &stat);
  if (NS_SUCCEEDED(rv)) *aResult = stat.mInQueue;
  // The failure shows in the condition, from the next call on.
  (void)Leave(handle, NS_SUCCEEDED(rv) ? 0 : -1);
  return NS_OK;
}

nsresult nsSerialInputStream::Read(char* aBuf, uint32_t aCount, uint32_t* aResult) {
  *aResult = 0;
  if (aCount == 0) return NS_OK;
  uint32_t mode = 0;
  nsresult rv;
  const nsPlatformCommPortRef handle = Enter("bufLen=" + std::to_string(aCount), &mode, &rv);
  if (!handle) return rv == NS_BASE_STREAM_CLOSED ? NS_OK : rv;

  int64_t count = -1;
  if (mode == 2) {
    count = ReadOverlapped(*handle, aBuf, aCount);
  } else {
    uint32_t read = 0;
    if (NS_SUCCEEDED(handle->ReadFile(aBuf, aCount, &read, nullptr))) count = read;
  }
  if (count > 0) *aResult = static_cast<uint32_t>(count);
  return Leave(handle, count);
}

// One byte a read: kept as it stands. Each that succeeds at once counts one, whatever it says that
// it has read: with the time-outs of mode 2 that is so also of a read that finds nothing, and who
// reads asks for what Available says.
int64_t nsSerialInputStream::ReadOverlapped(nsPlatformCommPort& aHandle, char* aBuf,
                                            uint32_t aCount) {
  const auto record = std::make_shared<nsOverlapped>();
  int64_t count = 0;
  while (count < aCount) {
    record->Reset();
    uint32_t read = 0;
    nsresult rv = aHandle.ReadFile(aBuf + count, 1, &read, record);
    if (rv == NS_ERROR_IN_PROGRESS) {
      // The byte that is waited for lands in the buffer and is not counted: kept as it stands.
      rv = record->GetResult(true, &read);
      const std::string byte = record->TakeBytes();
      if (NS_SUCCEEDED(rv) && !byte.empty()) aBuf[count] = byte.front();
      break;
    }
    if (NS_FAILED(rv)) {
      count = -1;
      break;
    }
    ++count;
  }
  record->Close();
  return count;
}

nsresult nsSerialInputStream::ReadSegments(nsWriteSegmentFun, void*, uint32_t, uint32_t*) {
  return NS_ERROR_NOT_IMPLEMENTED;
}

nsresult nsSerialInputStream::SetInputStream(nsIInputStream*) { return NS_ERROR_FAILURE; }

nsresult nsSerialInputStream::ReadBoolean(bool* aResult) {
  uint8_t byte = 0;
  const nsresult rv = Read8(&byte);
  NS_ENSURE_SUCCESS(rv, rv);
  *aResult = byte != 0;
  return NS_OK;
}

// The name of the argument is part of the log's vocabulary.
#define READ_NUMBER(aArgument)                                                           \
  std::remove_pointer_t<decltype(aArgument)> number = 0;                                 \
  uint32_t bytesRead = 0;                                                                \
  const nsresult rv = Read(reinterpret_cast<char*>(&number), sizeof number, &bytesRead); \
  NS_ENSURE_SUCCESS(rv, rv);                                                             \
  NS_ENSURE_TRUE(bytesRead == sizeof *aArgument, NS_ERROR_FAILURE);                      \
  *aArgument = FromNetwork(number);                                                      \
  return NS_OK

nsresult nsSerialInputStream::Read8(uint8_t* a8) { READ_NUMBER(a8); }
nsresult nsSerialInputStream::Read16(uint16_t* a16) { READ_NUMBER(a16); }
nsresult nsSerialInputStream::Read32(uint32_t* a32) { READ_NUMBER(a32); }
nsresult nsSerialInputStream::Read64(uint64_t* a64) { READ_NUMBER(a64); }
#undef READ_NUMBER

nsresult nsSerialInputStream::ReadFloat(float* aResult) {
  uint32_t bits = 0;
  const nsresult rv = Read32(&bits);
  if (NS_SUCCEEDED(rv)) *aResult = std::bit_cast<float>(bits);
  return rv;
}

nsresult nsSerialInputStream::ReadDouble(double* aResult) {
  uint64_t bits = 0;
  const nsresult rv = Read64(&bits);
  if (NS_SUCCEEDED(rv)) *aResult = std::bit_cast<double>(bits);
  return rv;
}

nsresult nsSerialInputStream::ReadCString(nsACString& aResult) {
  uint32_t length = 0;
  nsresult rv = Read32(&length);
  NS_ENSURE_SUCCESS(rv, rv);
  nsCString text;
  if (length > 0) {
    char* s = nullptr;
    if (length <= kLongestRead) (void)NS_CStringGetMutableData(text, length, &s);
    NS_ENSURE_TRUE(s, NS_ERROR_OUT_OF_MEMORY);
    std::memset(s, 0, length);
    uint32_t bytesRead = 0;
    rv = Read(s, length, &bytesRead);
    NS_ENSURE_SUCCESS(rv, rv);
    NS_ENSURE_TRUE(bytesRead == length, NS_ERROR_FAILURE);
  }
  return NS_CStringCopy(aResult, text);
}

nsresult nsSerialInputStream::ReadString(nsAString& aResult) {
  uint32_t length = 0;
  nsresult rv = Read32(&length);
  NS_ENSURE_SUCCESS(rv, rv);
  nsString text;
  if (length > 0) {
    char16_t* s = nullptr;
    if (length <= kLongestRead / 2) (void)NS_StringGetMutableData(text, length, &s);
    NS_ENSURE_TRUE(s, NS_ERROR_OUT_OF_MEMORY);
    std::memset(s, 0, 2 * size_t{length});
    uint32_t bytesRead = 0;
    rv = Read(reinterpret_cast<char*>(s), 2 * length, &bytesRead);
    NS_ENSURE_SUCCESS(rv, rv);
    // Bytes are compared with characters, so that no text that is not empty is ever read, although
    // it has been taken from the wire. Kept as it stands, and without a change of the byte order:
    // what devices are sent by applications was made to fit.
    NS_ENSURE_TRUE(bytesRead == length, NS_ERROR_FAILURE);
  }
  return NS_StringCopy(aResult, text);
}

nsresult nsSerialInputStream::ReadBytes(uint32_t aLength, char** aString) {
  // One more, so that what is handed out is closed by a zero; and zeros, since mode 2 counts bytes
  // that it has not read.
  char* const s = aLength <= kLongestRead ? static_cast<char*>(PR_Calloc(1, aLength + 1)) : nullptr;
  NS_ENSURE_TRUE(s, NS_ERROR_OUT_OF_MEMORY);
  std::unique_ptr<char, decltype(&PR_Free)> owner(s, PR_Free);
  uint32_t bytesRead = 0;
  const nsresult rv = Read(s, aLength, &bytesRead);
  NS_ENSURE_SUCCESS(rv, rv);
  NS_ENSURE_TRUE(bytesRead == aLength, NS_ERROR_FAILURE);
  *aString = owner.release();
  return NS_OK;
}

nsresult nsSerialInputStream::ReadByteArray(uint32_t aLength, uint8_t** aBytes) {
  return ReadBytes(aLength, reinterpret_cast<char**>(aBytes));
}

// ---- Output

nsresult nsSerialOutputStream::Flush() { return NS_OK; }

nsresult nsSerialOutputStream::Write(const char* aBuf, uint32_t aCount, uint32_t* aResult) {
  *aResult = 0;
  if (aCount == 0) return NS_OK;
  uint32_t mode = 0;
  nsresult rv;
  const nsPlatformCommPortRef handle = Enter("Begin", &mode, &rv);
  if (!handle) return rv == NS_BASE_STREAM_CLOSED ? NS_OK : rv;

  int64_t count = -1;
  bool wouldBlock = false;
  uint32_t written = 0;
  if (mode == 2) {
    const auto record = std::make_shared<nsOverlapped>();
    rv = handle->WriteFile(aBuf, aCount, &written, record);
    if (NS_SUCCEEDED(rv)) {
      // The bytes have gone out all the same. Kept as it stands: callers of this mode look at the
      // result alone.
      count = 0;
    } else if (rv == NS_ERROR_IN_PROGRESS) {
      wouldBlock = true;
      if (NS_SUCCEEDED(record->GetResult(false, &written))) count = written;
    }
    record->Close();
  } else {
    // The use of the handle stays counted: kept as it stands, and harmless, since Close closes the
    // handle whatever the count says.
    if (NS_FAILED(handle->WriteFile(aBuf, aCount, &written, nullptr))) return NS_ERROR_FAILURE;
    count = written;
  }

  if (count > 0) *aResult = static_cast<uint32_t>(count);
  if (count < 0 && wouldBlock) {
    (void)Leave(handle, 0);
    return NS_BASE_STREAM_WOULD_BLOCK;
  }
  // Success, also when the failure has just become the condition: the next call tells it.
  (void)Leave(handle, count);
  return NS_OK;
}

nsresult nsSerialOutputStream::WriteFrom(nsIInputStream* aFromStream, uint32_t aCount,
                                         uint32_t* aResult) {
  if (!aFromStream) return NS_ERROR_NULL_POINTER;
  return aFromStream->ReadSegments(
      [](nsIInputStream*, void* aSelf, const char* aSegment, uint32_t, uint32_t aLength,
         uint32_t* aWritten) {
        return static_cast<nsSerialOutputStream*>(aSelf)->Write(aSegment, aLength, aWritten);
      },
      this, aCount, aResult);
}

nsresult nsSerialOutputStream::WriteSegments(nsReadSegmentFun, void*, uint32_t, uint32_t*) {
  return NS_ERROR_NOT_IMPLEMENTED;
}

nsresult nsSerialOutputStream::SetOutputStream(nsIOutputStream*) { return NS_ERROR_FAILURE; }

nsresult nsSerialOutputStream::WriteBoolean(bool aBoolean) { return Write8(aBoolean ? 1 : 0); }

#define WRITE_NUMBER(aArgument)                                                                  \
  const auto number = FromNetwork(aArgument);                                                    \
  uint32_t writeCount = 0;                                                                       \
  const nsresult rv = Write(reinterpret_cast<const char*>(&number), sizeof number, &writeCount); \
  NS_ENSURE_SUCCESS(rv, rv);                                                                     \
  NS_ENSURE_TRUE(writeCount == sizeof(aArgument), NS_ERROR_FAILURE);                             \
  return NS_OK

nsresult nsSerialOutputStream::Write8(uint8_t a8) { WRITE_NUMBER(a8); }
nsresult nsSerialOutputStream::Write16(uint16_t a16) { WRITE_NUMBER(a16); }
nsresult nsSerialOutputStream::Write32(uint32_t a32) { WRITE_NUMBER(a32); }
nsresult nsSerialOutputStream::Write64(uint64_t a64) { WRITE_NUMBER(a64); }
#undef WRITE_NUMBER

nsresult nsSerialOutputStream::WriteFloat(float aFloat) {
  return Write32(std::bit_cast<uint32_t>(aFloat));
}
nsresult nsSerialOutputStream::WriteDouble(double aDouble) {
  return Write64(std::bit_cast<uint64_t>(aDouble));
}

nsresult nsSerialOutputStream::WriteStringZ(const char* aString) {
  if (!aString) return NS_ERROR_NULL_POINTER;
  const auto length = static_cast<uint32_t>(std::strlen(aString));
  nsresult rv = Write32(length);
  NS_ENSURE_SUCCESS(rv, rv);
  // No terminator, whatever the name says.
  rv = WriteBytes(aString, length);
  NS_ENSURE_SUCCESS(rv, rv);
  return NS_OK;
}

nsresult nsSerialOutputStream::WriteWStringZ(const char16_t* aString) {
  if (!aString) return NS_ERROR_NULL_POINTER;
  const auto length = static_cast<uint32_t>(std::char_traits<char16_t>::length(aString));
  nsresult rv = Write32(length);
  NS_ENSURE_SUCCESS(rv, rv);
  if (length == 0) return NS_OK;

  char16_t buffer[64];
  const bool fits = length <= std::size(buffer);
  auto* const copy =
      fits ? buffer : static_cast<char16_t*>(PR_Malloc(length * uint32_t{sizeof(char16_t)}));
  NS_ENSURE_TRUE(copy, NS_ERROR_OUT_OF_MEMORY);
  for (uint32_t i = 0; i < length; ++i)
    copy[i] = static_cast<char16_t>(FromNetwork(static_cast<uint16_t>(aString[i])));
  rv = WriteBytes(reinterpret_cast<const char*>(copy), length * uint32_t{sizeof(char16_t)});
  if (!fits) PR_Free(copy);
  NS_ENSURE_SUCCESS(rv, rv);
  return NS_OK;
}

nsresult nsSerialOutputStream::WriteUtf8Z(const char16_t* aString) {
  if (!aString) return NS_ERROR_NULL_POINTER;
  return WriteStringZ(NS_ToUtf8(std::u16string_view(aString)).c_str());
}

nsresult nsSerialOutputStream::WriteBytes(const char* aString, uint32_t aLength) {
  uint32_t bytesWritten = 0;
  const nsresult rv = Write(aString, aLength, &bytesWritten);
  NS_ENSURE_SUCCESS(rv, rv);
  NS_ENSURE_TRUE(bytesWritten == aLength, NS_ERROR_FAILURE);
  return NS_OK;
}

nsresult nsSerialOutputStream::WriteByteArray(uint8_t* aBytes, uint32_t aLength) {
  return WriteBytes(reinterpret_cast<const char*>(aBytes), aLength);
}

// The two streams of a serial port: what both have in common, and each of them.
#pragma once

#include <atomic>

#include "nsCOMPtr.h"
#include "nsIBinaryInputStream.h"
#include "nsIBinaryOutputStream.h"
#include "nsPlatformComm.h"
#include "nsStreamReadyEvent.h"

class nsSystemAdapterSerial;

struct nsSerialInput {
  using Async = nsIAsyncInputStream;
  using Binary = nsIBinaryInputStream;
  using Callback = nsIInputStreamCallback;
  using ReadyEvent = nsInputStreamReadyEvent;
  static constexpr char kReadyText[] = "Input Ready Begin";
};
struct nsSerialOutput {
  using Async = nsIAsyncOutputStream;
  using Binary = nsIBinaryOutputStream;
  using Callback = nsIOutputStreamCallback;
  using ReadyEvent = nsOutputStreamReadyEvent;
  static constexpr char kReadyText[] = "Output ready Begin";
};

/// A member of its adapter, which lives as long as either has a user. Its fields are guarded by the
/// adapter's monitor.
template <class Direction>
class nsSerialStream : public Direction::Async, public Direction::Binary {
 public:
  using Async = typename Direction::Async;
  using Callback = typename Direction::Callback;

  /// The two interfaces, their parents, and nothing else.
  nsresult QueryInterface(const nsIID& aIID, void** aResult) final {
    return NS_QueryInterface<typename Direction::Async, typename Direction::Binary>(this, aIID,
                                                                                    aResult);
  }
  nsrefcnt AddRef() final;
  /// The last user that lets go closes the stream; the adapter stays.
  nsrefcnt Release() final;

  nsresult Close() final { return CloseWithStatus(NS_BASE_STREAM_CLOSED); }
  nsresult IsNonBlocking(bool* aResult) final;
  nsresult CloseWithStatus(nsresult aReason) final;
  nsresult AsyncWait(Callback* aCallback, uint32_t aFlags, uint32_t aAmount,
                     nsIEventTarget* aTarget) final;

  /// Something has happened that may have made the stream ready; or the port has gone, and
  /// aCondition is a failure. On the worker's thread, without the monitor.
  nsresult OnSerialReady(nsresult aCondition);
  /// At Open, within the monitor.
  void Reset() {
    mCondition = NS_OK;
    mByteCount = 0;
  }
  /// Bytes moved since Open, for those who look from outside.
  uint64_t ByteCount() const;

 protected:
  explicit nsSerialStream(nsSystemAdapterSerial* aAdapter) : mAdapter(aAdapter) {}
  ~nsSerialStream() = default;

  /// What a use of the handle begins with: logs the text, and gives the handle, kept open until
  /// Leave. Null when there is nothing to do, and *aResult, the condition, is the answer.
  nsPlatformCommPortRef Enter(std::string_view aText, uint32_t* aMode, nsresult* aResult);
  /// What it ends with: counts bytes, or with -1 keeps a failure. The condition after that.
  nsresult Leave(const nsPlatformCommPortRef& aHandle, int64_t aCount);

  nsSystemAdapterSerial* const mAdapter;
  std::atomic<nsrefcnt> mStreamRefCnt{0};  ///< users of this stream only
  nsresult mCondition = NS_OK;
  nsCOMPtr<Callback> mCallback;
  uint32_t mCallbackFlags = 0;
  uint64_t mByteCount = 0;
};

/// The platform's binary input stream over the port. Reads of other threads than the main one may
/// wait, as the port's mode says.
class nsSerialInputStream final : public nsSerialStream<nsSerialInput> {
 public:
  explicit nsSerialInputStream(nsSystemAdapterSerial* aAdapter) : nsSerialStream(aAdapter) {}
  ~nsSerialInputStream() = default;

  nsresult Available(uint32_t* aResult) override;
  nsresult Read(char* aBuf, uint32_t aCount, uint32_t* aResult) override;
  nsresult ReadSegments(nsWriteSegmentFun aWriter, void* aClosure, uint32_t aCount,
                        uint32_t* aResult) override;
  nsresult SetInputStream(nsIInputStream* aInputStream) override;
  nsresult ReadBoolean(bool* aResult) override;
  nsresult Read8(uint8_t* a8) override;
  nsresult Read16(uint16_t* a16) override;
  nsresult Read32(uint32_t* a32) override;
  nsresult Read64(uint64_t* a64) override;
  nsresult ReadFloat(float* aResult) override;
  nsresult ReadDouble(double* aResult) override;
  nsresult ReadCString(nsACString& aResult) override;
  nsresult ReadString(nsAString& aResult) override;
  nsresult ReadBytes(uint32_t aLength, char** aString) override;
  nsresult ReadByteArray(uint32_t aLength, uint8_t** aBytes) override;

 private:
  static int64_t ReadOverlapped(nsPlatformCommPort& aHandle, char* aBuf, uint32_t aCount);
};

/// The platform's binary output stream over the port.
class nsSerialOutputStream final : public nsSerialStream<nsSerialOutput> {
 public:
  explicit nsSerialOutputStream(nsSystemAdapterSerial* aAdapter) : nsSerialStream(aAdapter) {}
  ~nsSerialOutputStream() = default;

  nsresult Flush() override;
  nsresult Write(const char* aBuf, uint32_t aCount, uint32_t* aResult) override;
  nsresult WriteFrom(nsIInputStream* aFromStream, uint32_t aCount, uint32_t* aResult) override;
  nsresult WriteSegments(nsReadSegmentFun aReader, void* aClosure, uint32_t aCount,
                         uint32_t* aResult) override;
  nsresult SetOutputStream(nsIOutputStream* aOutputStream) override;
  nsresult WriteBoolean(bool aBoolean) override;
  nsresult Write8(uint8_t a8) override;
  nsresult Write16(uint16_t a16) override;
  nsresult Write32(uint32_t a32) override;
  nsresult Write64(uint64_t a64) override;
  nsresult WriteFloat(float aFloat) override;
  nsresult WriteDouble(double aDouble) override;
  nsresult WriteStringZ(const char* aString) override;
  nsresult WriteWStringZ(const char16_t* aString) override;
  nsresult WriteUtf8Z(const char16_t* aString) override;
  nsresult WriteBytes(const char* aString, uint32_t aLength) override;
  nsresult WriteByteArray(uint8_t* aBytes, uint32_t aLength) override;
};

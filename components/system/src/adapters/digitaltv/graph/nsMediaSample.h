// A piece of a stream, in memory that is somebody else's.
#pragma once

#include <atomic>
#include <span>

#include "IMediaSample.h"
#include "nsImplements.h"

/// The bytes are a view, for the time of the call that hands the sample out; empty afterwards, so
/// that who keeps the sample reads nothing that has gone. They are not to be written to.
class nsMediaSample final : public nsImplements<nsMediaSample, IMediaSample> {
 public:
  void SetBytes(std::span<const uint8_t> aBytes) {
    mBytes.store(aBytes.data(), std::memory_order_release);
    mSize.store(static_cast<int32_t>(aBytes.size()), std::memory_order_release);
  }
  bool IsOnlyReference() {
    AddRef();
    return Release() == 1;
  }

  nsresult GetPointer(uint8_t** aBuffer) override {
    if (!aBuffer) return E_POINTER;
    *aBuffer = const_cast<uint8_t*>(mBytes.load());
    return S_OK;
  }
  int32_t GetSize() override { return mSize; }
  nsresult GetTime(int64_t*, int64_t*) override { return E_NOTIMPL; }
  nsresult SetTime(int64_t*, int64_t*) override { return E_NOTIMPL; }
  nsresult IsSyncPoint() override { return S_FALSE; }
  nsresult SetSyncPoint(int32_t) override { return E_NOTIMPL; }
  nsresult IsPreroll() override { return S_FALSE; }
  nsresult SetPreroll(int32_t) override { return E_NOTIMPL; }
  int32_t GetActualDataLength() override { return mSize; }
  nsresult SetActualDataLength(int32_t) override { return E_NOTIMPL; }
  /// S_FALSE, and null: the type is that of the connection.
  nsresult GetMediaType(AM_MEDIA_TYPE** aMediaType) override {
    if (!aMediaType) return E_POINTER;
    *aMediaType = nullptr;
    return S_FALSE;
  }
  nsresult SetMediaType(AM_MEDIA_TYPE*) override { return E_NOTIMPL; }
  nsresult IsDiscontinuity() override { return S_FALSE; }
  nsresult SetDiscontinuity(int32_t) override { return E_NOTIMPL; }
  nsresult GetMediaTime(int64_t*, int64_t*) override { return E_NOTIMPL; }
  nsresult SetMediaTime(int64_t*, int64_t*) override { return E_NOTIMPL; }

 private:
  ~nsMediaSample() override = default;
  // A sample that was kept may be looked at on another thread.
  std::atomic<const uint8_t*> mBytes = nullptr;
  std::atomic<int32_t> mSize = 0;
};

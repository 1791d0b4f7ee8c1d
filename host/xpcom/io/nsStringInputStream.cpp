#include "nsStringInputStream.h"

#include <algorithm>
#include <cstring>

#include "nsXPCOM.h"

namespace {

std::string_view View(const char* aData, int32_t aDataLen) {
  return aDataLen < 0 ? std::string_view(aData)
                      : std::string_view(aData, static_cast<size_t>(aDataLen));
}

}  // namespace

const nsClassInfoRecord nsStringInputStream::kClassInfo = {
    NS_ClassInterfaces<nsIStringInputStream, nsIInputStream, nsISeekableStream>, nullptr, 0,
    "0abb0835-5000-4790-af28-61b3ba17c295"_iid};

nsStringInputStream::~nsStringInputStream() { NS_Free(mAdopted); }

void nsStringInputStream::Set(std::string_view aView) {
  NS_Free(std::exchange(mAdopted, nullptr));
  mData = aView;
  mOffset = 0;
  mClosed = false;
}

nsresult nsStringInputStream::SetData(const char* aData, int32_t aDataLen) {
  if (!aData) return NS_ERROR_NULL_POINTER;
  mOwned = View(aData, aDataLen);
  Set(mOwned);
  return NS_OK;
}

nsresult nsStringInputStream::AdoptData(char* aData, int32_t aDataLen) {
  if (!aData) return NS_ERROR_NULL_POINTER;
  Set(View(aData, aDataLen));
  mAdopted = aData;
  return NS_OK;
}

nsresult nsStringInputStream::ShareData(const char* aData, int32_t aDataLen) {
  if (!aData) return NS_ERROR_NULL_POINTER;
  Set(View(aData, aDataLen));
  return NS_OK;
}

nsresult nsStringInputStream::Close() {
  Set({});
  mClosed = true;
  return NS_OK;
}

nsresult nsStringInputStream::Available(uint32_t* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  if (mClosed) return NS_BASE_STREAM_CLOSED;
  *aResult = static_cast<uint32_t>(mData.size() - mOffset);
  return NS_OK;
}

nsresult nsStringInputStream::Read(char* aBuf, uint32_t aCount, uint32_t* aResult) {
  if (!aBuf || !aResult) return NS_ERROR_NULL_POINTER;
  if (mClosed) return NS_BASE_STREAM_CLOSED;
  *aResult = static_cast<uint32_t>(mData.substr(mOffset).copy(aBuf, aCount));
  mOffset += *aResult;
  return NS_OK;
}

nsresult nsStringInputStream::ReadSegments(nsWriteSegmentFun aWriter, void* aClosure,
                                           uint32_t aCount, uint32_t* aResult) {
  if (!aWriter || !aResult) return NS_ERROR_NULL_POINTER;
  if (mClosed) return NS_BASE_STREAM_CLOSED;
  const std::string_view part = mData.substr(mOffset, aCount);
  uint32_t taken = 0;
  // What the callback says is its own affair; it ends the reading.
  if (!part.empty() && NS_FAILED(aWriter(this, aClosure, part.data(), 0,
                                         static_cast<uint32_t>(part.size()), &taken)))
    taken = 0;
  *aResult = std::min(taken, static_cast<uint32_t>(part.size()));
  mOffset += *aResult;
  return NS_OK;
}

nsresult nsStringInputStream::IsNonBlocking(bool* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  *aResult = true;
  return NS_OK;
}

nsresult nsStringInputStream::Seek(int32_t aWhence, int64_t aOffset) {
  if (mClosed) return NS_BASE_STREAM_CLOSED;
  const auto size = static_cast<int64_t>(mData.size());
  const int64_t bases[] = {0, static_cast<int64_t>(mOffset), size};
  if (aWhence < 0 || aWhence > 2) return NS_ERROR_INVALID_ARG;
  if (aOffset < -bases[aWhence] || aOffset > size - bases[aWhence]) return NS_ERROR_INVALID_ARG;
  mOffset = static_cast<size_t>(bases[aWhence] + aOffset);
  return NS_OK;
}

nsresult nsStringInputStream::Tell(int64_t* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  if (mClosed) return NS_BASE_STREAM_CLOSED;
  *aResult = static_cast<int64_t>(mOffset);
  return NS_OK;
}

nsresult nsStringInputStream::SetEOF() {
  if (mClosed) return NS_BASE_STREAM_CLOSED;
  mData = mData.substr(0, mOffset);
  return NS_OK;
}

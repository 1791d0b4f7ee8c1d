// A stream of bytes in memory, "@mozilla.org/io/string-input-stream;1".
#pragma once

#include <string>

#include "nsISeekableStream.h"
#include "nsIStringInputStream.h"
#include "nsImplements.h"

/// Reads from memory; never waits. One thread at a time. Setting data starts at its beginning.
/// After Close reading is NS_BASE_STREAM_CLOSED until data is set again.
class nsStringInputStream final
    : public nsImplements<nsStringInputStream, nsIStringInputStream, nsISeekableStream> {
 public:
  static const nsClassInfoRecord kClassInfo;
  nsresult SetData(const char* aData, int32_t aDataLen) override;
  nsresult AdoptData(char* aData, int32_t aDataLen) override;
  nsresult ShareData(const char* aData, int32_t aDataLen) override;
  nsresult Close() override;
  nsresult Available(uint32_t* aResult) override;
  nsresult Read(char* aBuf, uint32_t aCount, uint32_t* aResult) override;
  nsresult ReadSegments(nsWriteSegmentFun aWriter, void* aClosure, uint32_t aCount,
                        uint32_t* aResult) override;
  nsresult IsNonBlocking(bool* aResult) override;
  nsresult Seek(int32_t aWhence, int64_t aOffset) override;
  nsresult Tell(int64_t* aResult) override;
  /// Drops what comes after.
  nsresult SetEOF() override;

 private:
  ~nsStringInputStream() override;
  void Set(std::string_view aView);

  std::string mOwned;
  char* mAdopted = nullptr;
  std::string_view mData;
  size_t mOffset = 0;
  bool mClosed = true;
};

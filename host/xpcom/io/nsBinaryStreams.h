// Numbers and strings over byte streams: "@mozilla.org/binaryinputstream;1",
// "@mozilla.org/binaryoutputstream;1".
//
// Numbers are big-endian. A string is its length, 32 bits, and its units, without a zero. The
// stream below must block: where it has fewer bytes, or takes fewer, the call is NS_ERROR_FAILURE
// and what was moved is lost. Everything is NS_ERROR_NOT_INITIALIZED before a stream is set. One
// thread at a time.
#pragma once

#include <string>

#include "nsIBinaryInputStream.h"
#include "nsIBinaryOutputStream.h"
#include "nsImplements.h"

/// Reads from another stream, which is no binary one: a circle of them would have no end.
class nsBinaryInputStream final : public nsImplements<nsBinaryInputStream, nsIBinaryInputStream> {
 public:
  static const nsClassInfoRecord kClassInfo;
  nsresult SetInputStream(nsIInputStream* aInputStream) override;
  nsresult Close() override;
  nsresult Available(uint32_t* aResult) override;
  nsresult Read(char* aBuf, uint32_t aCount, uint32_t* aResult) override;
  nsresult ReadSegments(nsWriteSegmentFun aWriter, void* aClosure, uint32_t aCount,
                        uint32_t* aResult) override;
  nsresult IsNonBlocking(bool* aResult) override;
  nsresult ReadBoolean(bool* aResult) override;
  nsresult Read8(uint8_t* aResult) override;
  nsresult Read16(uint16_t* aResult) override;
  nsresult Read32(uint32_t* aResult) override;
  nsresult Read64(uint64_t* aResult) override;
  nsresult ReadFloat(float* aResult) override;
  nsresult ReadDouble(double* aResult) override;
  nsresult ReadCString(nsACString& aResult) override;
  nsresult ReadString(nsAString& aResult) override;
  /// From NS_Alloc, closed by a zero that does not count.
  nsresult ReadBytes(uint32_t aLength, char** aString) override;
  nsresult ReadByteArray(uint32_t aLength, uint8_t** aBytes) override;

 private:
  ~nsBinaryInputStream() override = default;
  nsresult ReadAll(char* aBuf, uint32_t aCount);
  /// In steps: a length that is nonsense does not allocate what is not there.
  nsresult ReadText(uint64_t aLength, std::string* aText);
  template <class T>
  nsresult ReadNumber(T* aResult);

  nsCOMPtr<nsIInputStream> mStream;
};

/// Writes to another stream, which is no binary one.
class nsBinaryOutputStream final
    : public nsImplements<nsBinaryOutputStream, nsIBinaryOutputStream> {
 public:
  static const nsClassInfoRecord kClassInfo;
  nsresult SetOutputStream(nsIOutputStream* aOutputStream) override;
  nsresult Close() override;
  nsresult Flush() override;
  nsresult Write(const char* aBuf, uint32_t aCount, uint32_t* aResult) override;
  nsresult WriteFrom(nsIInputStream* aFromStream, uint32_t aCount, uint32_t* aResult) override;
  nsresult WriteSegments(nsReadSegmentFun aReader, void* aClosure, uint32_t aCount,
                         uint32_t* aResult) override;
  nsresult IsNonBlocking(bool* aResult) override;
  nsresult WriteBoolean(bool aBoolean) override;
  nsresult Write8(uint8_t aByte) override;
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

 private:
  ~nsBinaryOutputStream() override = default;
  nsresult WriteAll(std::string_view aBytes);
  template <class T>
  nsresult WriteNumber(T aNumber);
  nsresult WriteCounted(uint32_t aCount, std::string_view aBytes);

  nsCOMPtr<nsIOutputStream> mStream;
};

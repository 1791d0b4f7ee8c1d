#include "nsBinaryStreams.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "nsString.h"
#include "nsUtf.h"
#include "nsXPCOM.h"

namespace {

template <class T>
void ToBytes(T aNumber, char* aBytes) {
  for (size_t i = sizeof(T); i-- > 0; aNumber = static_cast<T>(uint64_t{aNumber} >> 8))
    aBytes[i] = static_cast<char>(aNumber & 0xFF);
}

template <class T>
T FromBytes(const char* aBytes) {
  uint64_t number = 0;
  for (size_t i = 0; i < sizeof(T); ++i)
    number = number << 8 | static_cast<unsigned char>(aBytes[i]);
  return static_cast<T>(number);
}

std::string UnitsToBytes(std::u16string_view aText) {
  std::string bytes(aText.size() * 2, '\0');
  for (size_t i = 0; i < aText.size(); ++i)
    ToBytes(static_cast<uint16_t>(aText[i]), bytes.data() + 2 * i);
  return bytes;
}

}  // namespace

#define ENSURE_STREAM() \
  if (!mStream) return NS_ERROR_NOT_INITIALIZED

// ---- Input

const nsClassInfoRecord nsBinaryInputStream::kClassInfo = {
    NS_ClassInterfaces<nsIBinaryInputStream, nsIInputStream>, nullptr, 0,
    "c521a612-2aad-46db-b6ab-3b821fb150b1"_iid};

nsresult nsBinaryInputStream::SetInputStream(nsIInputStream* aInputStream) {
  if (!aInputStream) return NS_ERROR_NULL_POINTER;
  if (do_QueryInterface<nsIBinaryInputStream>(aInputStream)) return NS_ERROR_INVALID_ARG;
  mStream = aInputStream;
  return NS_OK;
}

nsresult nsBinaryInputStream::Close() {
  ENSURE_STREAM();
  return mStream->Close();
}

nsresult nsBinaryInputStream::Available(uint32_t* aResult) {
  ENSURE_STREAM();
  return mStream->Available(aResult);
}

nsresult nsBinaryInputStream::Read(char* aBuf, uint32_t aCount, uint32_t* aResult) {
  ENSURE_STREAM();
  return mStream->Read(aBuf, aCount, aResult);
}

nsresult nsBinaryInputStream::ReadSegments(nsWriteSegmentFun aWriter, void* aClosure,
                                           uint32_t aCount, uint32_t* aResult) {
  ENSURE_STREAM();
  return mStream->ReadSegments(aWriter, aClosure, aCount, aResult);
}

nsresult nsBinaryInputStream::IsNonBlocking(bool* aResult) {
  ENSURE_STREAM();
  return mStream->IsNonBlocking(aResult);
}

nsresult nsBinaryInputStream::ReadAll(char* aBuf, uint32_t aCount) {
  ENSURE_STREAM();
  while (aCount > 0) {
    uint32_t read = 0;
    const nsresult rv = mStream->Read(aBuf, aCount, &read);
    if (NS_FAILED(rv)) return rv;
    if (read == 0) return NS_ERROR_FAILURE;
    aBuf += read;
    aCount -= read;
  }
  return NS_OK;
}

nsresult nsBinaryInputStream::ReadText(uint64_t aLength, std::string* aText) {
  constexpr uint64_t kStep = 65536;
  std::string text;
  while (text.size() < aLength) {
    const size_t start = text.size();
    const auto step = static_cast<uint32_t>(std::min(kStep, aLength - start));
    text.resize(start + step);
    const nsresult rv = ReadAll(text.data() + start, step);
    if (NS_FAILED(rv)) return rv;
  }
  *aText = std::move(text);
  return NS_OK;
}

template <class T>
nsresult nsBinaryInputStream::ReadNumber(T* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  char bytes[sizeof(T)];
  const nsresult rv = ReadAll(bytes, sizeof bytes);
  if (NS_SUCCEEDED(rv)) *aResult = FromBytes<T>(bytes);
  return rv;
}

nsresult nsBinaryInputStream::ReadBoolean(bool* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  uint8_t byte = 0;
  const nsresult rv = ReadNumber(&byte);
  if (NS_SUCCEEDED(rv)) *aResult = byte != 0;
  return rv;
}

nsresult nsBinaryInputStream::Read8(uint8_t* aResult) { return ReadNumber(aResult); }
nsresult nsBinaryInputStream::Read16(uint16_t* aResult) { return ReadNumber(aResult); }
nsresult nsBinaryInputStream::Read32(uint32_t* aResult) { return ReadNumber(aResult); }
nsresult nsBinaryInputStream::Read64(uint64_t* aResult) { return ReadNumber(aResult); }

nsresult nsBinaryInputStream::ReadFloat(float* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  uint32_t bits = 0;
  const nsresult rv = ReadNumber(&bits);
  if (NS_SUCCEEDED(rv)) *aResult = std::bit_cast<float>(bits);
  return rv;
}

nsresult nsBinaryInputStream::ReadDouble(double* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  uint64_t bits = 0;
  const nsresult rv = ReadNumber(&bits);
  if (NS_SUCCEEDED(rv)) *aResult = std::bit_cast<double>(bits);
  return rv;
}

nsresult nsBinaryInputStream::ReadCString(nsACString& aResult) {
  uint32_t length = 0;
  std::string text;
  nsresult rv = ReadNumber(&length);
  if (NS_SUCCEEDED(rv)) rv = ReadText(length, &text);
  if (NS_SUCCEEDED(rv)) NS_Assign(aResult, text);
  return rv;
}

nsresult nsBinaryInputStream::ReadString(nsAString& aResult) {
  uint32_t length = 0;
  std::string bytes;
  nsresult rv = ReadNumber(&length);
  if (NS_SUCCEEDED(rv)) rv = ReadText(uint64_t{length} * 2, &bytes);
  if (NS_FAILED(rv)) return rv;
  std::u16string text(length, u'\0');
  for (size_t i = 0; i < length; ++i) text[i] = FromBytes<uint16_t>(bytes.data() + 2 * i);
  return NS_Give(text, aResult);
}

nsresult nsBinaryInputStream::ReadBytes(uint32_t aLength, char** aString) {
  if (!aString) return NS_ERROR_NULL_POINTER;
  std::string bytes;
  const nsresult rv = ReadText(aLength, &bytes);
  if (NS_FAILED(rv)) return rv;
  auto* const copy = static_cast<char*>(NS_Alloc(bytes.size() + 1));
  std::memcpy(copy, bytes.c_str(), bytes.size() + 1);
  *aString = copy;
  return NS_OK;
}

nsresult nsBinaryInputStream::ReadByteArray(uint32_t aLength, uint8_t** aBytes) {
  return ReadBytes(aLength, reinterpret_cast<char**>(aBytes));
}

// ---- Output

const nsClassInfoRecord nsBinaryOutputStream::kClassInfo = {
    NS_ClassInterfaces<nsIBinaryOutputStream, nsIOutputStream>, nullptr, 0,
    "86c37b9a-74e7-4672-844e-6e7dd83ba484"_iid};

nsresult nsBinaryOutputStream::SetOutputStream(nsIOutputStream* aOutputStream) {
  if (!aOutputStream) return NS_ERROR_NULL_POINTER;
  if (do_QueryInterface<nsIBinaryOutputStream>(aOutputStream)) return NS_ERROR_INVALID_ARG;
  mStream = aOutputStream;
  return NS_OK;
}

nsresult nsBinaryOutputStream::Close() {
  ENSURE_STREAM();
  return mStream->Close();
}

nsresult nsBinaryOutputStream::Flush() {
  ENSURE_STREAM();
  return mStream->Flush();
}

nsresult nsBinaryOutputStream::Write(const char* aBuf, uint32_t aCount, uint32_t* aResult) {
  ENSURE_STREAM();
  return mStream->Write(aBuf, aCount, aResult);
}

nsresult nsBinaryOutputStream::WriteFrom(nsIInputStream* aFromStream, uint32_t aCount,
                                         uint32_t* aResult) {
  ENSURE_STREAM();
  return mStream->WriteFrom(aFromStream, aCount, aResult);
}

nsresult nsBinaryOutputStream::WriteSegments(nsReadSegmentFun aReader, void* aClosure,
                                             uint32_t aCount, uint32_t* aResult) {
  ENSURE_STREAM();
  return mStream->WriteSegments(aReader, aClosure, aCount, aResult);
}

nsresult nsBinaryOutputStream::IsNonBlocking(bool* aResult) {
  ENSURE_STREAM();
  return mStream->IsNonBlocking(aResult);
}

nsresult nsBinaryOutputStream::WriteAll(std::string_view aBytes) {
  ENSURE_STREAM();
  uint32_t written = 0;
  const nsresult rv = mStream->Write(aBytes.data(), static_cast<uint32_t>(aBytes.size()), &written);
  if (NS_FAILED(rv)) return rv;
  return written == aBytes.size() ? NS_OK : NS_ERROR_FAILURE;
}

template <class T>
nsresult nsBinaryOutputStream::WriteNumber(T aNumber) {
  char bytes[sizeof(T)];
  ToBytes(aNumber, bytes);
  return WriteAll({bytes, sizeof bytes});
}

nsresult nsBinaryOutputStream::WriteCounted(uint32_t aCount, std::string_view aBytes) {
  const nsresult rv = WriteNumber(aCount);
  return NS_FAILED(rv) ? rv : WriteAll(aBytes);
}

nsresult nsBinaryOutputStream::WriteBoolean(bool aBoolean) {
  return WriteNumber(uint8_t{aBoolean});
}
nsresult nsBinaryOutputStream::Write8(uint8_t aByte) { return WriteNumber(aByte); }
nsresult nsBinaryOutputStream::Write16(uint16_t a16) { return WriteNumber(a16); }
nsresult nsBinaryOutputStream::Write32(uint32_t a32) { return WriteNumber(a32); }
nsresult nsBinaryOutputStream::Write64(uint64_t a64) { return WriteNumber(a64); }
nsresult nsBinaryOutputStream::WriteFloat(float aFloat) {
  return WriteNumber(std::bit_cast<uint32_t>(aFloat));
}
nsresult nsBinaryOutputStream::WriteDouble(double aDouble) {
  return WriteNumber(std::bit_cast<uint64_t>(aDouble));
}

nsresult nsBinaryOutputStream::WriteStringZ(const char* aString) {
  if (!aString) return NS_ERROR_NULL_POINTER;
  const std::string_view text = aString;
  return WriteCounted(static_cast<uint32_t>(text.size()), text);
}

nsresult nsBinaryOutputStream::WriteWStringZ(const char16_t* aString) {
  if (!aString) return NS_ERROR_NULL_POINTER;
  const std::u16string_view text = aString;
  return WriteCounted(static_cast<uint32_t>(text.size()), UnitsToBytes(text));
}

nsresult nsBinaryOutputStream::WriteUtf8Z(const char16_t* aString) {
  if (!aString) return NS_ERROR_NULL_POINTER;
  return WriteStringZ(vorel::Utf16ToUtf8(aString).c_str());
}

nsresult nsBinaryOutputStream::WriteBytes(const char* aString, uint32_t aLength) {
  if (!aString && aLength > 0) return NS_ERROR_NULL_POINTER;
  return WriteAll({aString, aLength});
}

nsresult nsBinaryOutputStream::WriteByteArray(uint8_t* aBytes, uint32_t aLength) {
  return WriteBytes(reinterpret_cast<const char*>(aBytes), aLength);
}

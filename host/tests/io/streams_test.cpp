// Streams from and to files and memory, and numbers over them.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "nsHost.h"
#include "nsIAsyncInputStream.h"
#include "nsIAsyncOutputStream.h"
#include "nsIBinaryInputStream.h"
#include "nsIBinaryOutputStream.h"
#include "nsIFileInputStream.h"
#include "nsIFileOutputStream.h"
#include "nsIPipe.h"
#include "nsISafeOutputStream.h"
#include "nsISeekableStream.h"
#include "nsIStringInputStream.h"
#include "nsServices.h"
#include "nsString.h"
#include "nsTemporaryDirectory.h"

namespace {

class Streams : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(NS_OK, mHost.Start({})); }
  void TearDown() override { mHost.Stop(); }

  template <class I>
  static nsCOMPtr<I> New(const char* aContract) {
    nsresult rv;
    auto object = do_CreateInstance<I>(aContract, &rv);
    EXPECT_EQ(NS_OK, rv) << aContract;
    return object;
  }
  nsCOMPtr<nsIFileInputStream> Open(std::string_view aName, int32_t aBehavior = 0) {
    const auto stream = New<nsIFileInputStream>("@mozilla.org/network/file-input-stream;1");
    EXPECT_EQ(NS_OK, stream->Init(mDir.File(aName).get(), -1, -1, aBehavior));
    return stream;
  }
  nsCOMPtr<nsIFileOutputStream> Create(std::string_view aName, const char* aKind = "file") {
    const auto stream = New<nsIFileOutputStream>(
        ("@mozilla.org/network/" + std::string(aKind) + "-output-stream;1").c_str());
    EXPECT_EQ(NS_OK, stream->Init(mDir.File(aName).get(), -1, -1, 0));
    return stream;
  }
  static std::string Read(nsIInputStream* aStream, uint32_t aCount) {
    std::string text(aCount, '\0');
    uint32_t count = 0;
    EXPECT_EQ(NS_OK, aStream->Read(text.data(), aCount, &count));
    return text.substr(0, count);
  }
  static void Write(nsIOutputStream* aStream, std::string_view aText) {
    uint32_t count = 0;
    EXPECT_EQ(NS_OK, aStream->Write(aText.data(), static_cast<uint32_t>(aText.size()), &count));
    EXPECT_EQ(aText.size(), count);
  }
  size_t CountFiles() const {
    size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(mDir.Path()))
      ++count;
    return count;
  }

  nsHost mHost;
  nsTemporaryDirectory mDir;
};

TEST_F(Streams, ABehaviourOfAnInputFileIsForgotten) {
  mDir.Put("file", "0123456789");
  auto stream =
      Open("file", nsIFileInputStream::CLOSE_ON_EOF | nsIFileInputStream::REOPEN_ON_REWIND);
  uint32_t available = 0;
  EXPECT_EQ("0123", Read(stream.get(), 4));
  EXPECT_EQ(NS_OK, stream->Available(&available));
  EXPECT_EQ(6u, available);
  const auto seekable = do_QueryInterface<nsISeekableStream>(stream);
  EXPECT_EQ(NS_OK, seekable->Seek(nsISeekableStream::NS_SEEK_END, -1));
  EXPECT_EQ("9", Read(stream.get(), 4));
  EXPECT_EQ("", Read(stream.get(), 4));
  EXPECT_EQ(NS_BASE_STREAM_CLOSED, stream->Available(&available));
  EXPECT_EQ(NS_OK, seekable->Seek(nsISeekableStream::NS_SEEK_SET, 0));
  EXPECT_EQ("01", Read(stream.get(), 2));

  stream = Open("file", nsIFileInputStream::DELETE_ON_CLOSE);
  EXPECT_EQ("01", Read(stream.get(), 2));
  EXPECT_EQ(NS_OK, stream->Close());
  EXPECT_EQ("", Read(stream.get(), 2));
  EXPECT_EQ(0u, CountFiles());

  stream = Open("later", nsIFileInputStream::DEFER_OPEN);
  char c;
  uint32_t count = 0;
  EXPECT_EQ(NS_ERROR_FILE_NOT_FOUND, stream->Read(&c, 1, &count));
  mDir.Put("later", "x");
  EXPECT_EQ("x", Read(stream.get(), 2));
}

TEST_F(Streams, AFileThatCannotBeOpenedOpens) {
  const auto input = New<nsIFileInputStream>("@mozilla.org/network/file-input-stream;1");
  uint32_t count = 0;
  EXPECT_EQ(NS_ERROR_NOT_INITIALIZED, input->Available(&count));
  EXPECT_EQ(NS_ERROR_FILE_NOT_FOUND, input->Init(mDir.File("none").get(), -1, -1, 0));
  EXPECT_EQ(NS_ERROR_NULL_POINTER, input->Init(nullptr, -1, -1, 0));
  const auto output = New<nsIFileOutputStream>("@mozilla.org/network/file-output-stream;1");
  EXPECT_EQ(NS_ERROR_FILE_IS_DIRECTORY, output->Init(mDir.File("").get(), -1, -1, 0));
}

TEST_F(Streams, AFullDiskLosesBytesSilently) {
  const auto output = New<nsIFileOutputStream>("@mozilla.org/network/file-output-stream;1");
  nsCOMPtr<nsILocalFile> full;
  ASSERT_EQ(NS_OK, NS_NewNativeLocalFile(nsCString("/dev/full"), false, full.getter_AddRefs()));
  if (NS_FAILED(output->Init(full.get(), -1, -1, 0))) GTEST_SKIP() << "no /dev/full";
  uint32_t count = 7;
  EXPECT_EQ(NS_ERROR_FILE_NO_DEVICE_SPACE, output->Write("x", 1, &count));
  EXPECT_EQ(7u, count);
}

TEST_F(Streams, ASafeFileIsSeenHalfWritten) {
  mDir.Put("file", "old");
  std::filesystem::permissions(mDir / "file", std::filesystem::perms(0600));
  std::filesystem::create_symlink("file", mDir / "link");
  {
    const auto dropped = Create("file", "safe-file");
    Write(dropped.get(), "half");
    EXPECT_EQ("old", mDir.Read("file"));
  }
  EXPECT_EQ("old", mDir.Read("file"));
  const auto stream = Create("link", "safe-file");
  Write(stream.get(), "new");
  EXPECT_EQ("old", mDir.Read("file"));
  EXPECT_EQ(NS_OK, do_QueryInterface<nsISafeOutputStream>(stream)->Finish());
  EXPECT_EQ(NS_OK, stream->Close());
  EXPECT_EQ("new", mDir.Read("file"));
  EXPECT_TRUE(std::filesystem::is_symlink(mDir / "link"));
  EXPECT_EQ(std::filesystem::perms(0600), std::filesystem::status(mDir / "file").permissions());
  EXPECT_NE(NS_OK, do_QueryInterface<nsISafeOutputStream>(stream)->Finish());
  EXPECT_EQ("new", mDir.Read("file"));
  EXPECT_EQ(2u, CountFiles()) << "something was left behind";
}

TEST_F(Streams, AStringStreamReadsPastItsEnd) {
  const auto stream = New<nsIStringInputStream>("@mozilla.org/io/string-input-stream;1");
  char c;
  uint32_t count = 0;
  EXPECT_EQ(NS_BASE_STREAM_CLOSED, stream->Read(&c, 1, &count));
  ASSERT_EQ(NS_OK, stream->SetData("a\0bc", 4));
  EXPECT_EQ(std::string("a\0b", 3), Read(stream.get(), 3));
  const auto seekable = do_QueryInterface<nsISeekableStream>(stream);
  for (const auto& [whence, offset] : {std::pair{0, -1}, {0, 5}, {1, 2}, {2, 1}, {3, 0}})
    EXPECT_EQ(NS_ERROR_INVALID_ARG, seekable->Seek(whence, offset)) << whence << " " << offset;
  EXPECT_EQ(NS_OK, seekable->Seek(nsISeekableStream::NS_SEEK_END, -2));
  std::string seen;
  const auto collect = [](nsIInputStream*, void* aClosure, const char* aFrom, uint32_t,
                          uint32_t aCount, uint32_t* aWritten) {
    static_cast<std::string*>(aClosure)->append(aFrom, aCount);
    *aWritten = 1;
    return NS_OK;
  };
  EXPECT_EQ(NS_OK, stream->ReadSegments(collect, &seen, 10, &count));
  EXPECT_EQ(1u, count);
  EXPECT_EQ("c", Read(stream.get(), 10));
  EXPECT_EQ("bc", seen);
}

TEST_F(Streams, ANumberComesBackAsAnother) {
  {
    const auto out = New<nsIBinaryOutputStream>("@mozilla.org/binaryoutputstream;1");
    EXPECT_EQ(NS_ERROR_NOT_INITIALIZED, out->Write8(1));
    ASSERT_EQ(NS_OK, out->SetOutputStream(Create("file").get()));
    EXPECT_EQ(NS_OK, out->WriteBoolean(true));
    EXPECT_EQ(NS_OK, out->Write16(0xFEDC));
    EXPECT_EQ(NS_OK, out->Write64(0x0123456789ABCDEF));
    EXPECT_EQ(NS_OK, out->WriteDouble(-0.1));
    EXPECT_EQ(NS_OK, out->WriteFloat(INFINITY));
    EXPECT_EQ(NS_OK, out->WriteStringZ("caf\xc3\xa9"));
    EXPECT_EQ(NS_OK, out->WriteWStringZ(u"\u20ac\xD800"));
    EXPECT_EQ(NS_OK, out->WriteUtf8Z(u"\u20ac"));
  }
  EXPECT_EQ(
      std::string_view(
          "\x01\xFE\xDC\x01\x23\x45\x67\x89\xAB\xCD\xEF\xBF\xB9\x99\x99\x99\x99\x99\x9A\x7F\x80\0\0"
          "\0\0\0\5caf\xc3\xa9\0\0\0\2\x20\xAC\xD8\0\0\0\0\3\xE2\x82\xAC",
          47),
      mDir.Read("file"));
  const auto in = New<nsIBinaryInputStream>("@mozilla.org/binaryinputstream;1");
  ASSERT_EQ(NS_OK, in->SetInputStream(Open("file").get()));
  bool boolean = false;
  uint16_t sixteen = 0;
  uint64_t sixtyFour = 0;
  double number = 0;
  float infinite = 0;
  nsCString text;
  nsString wide;
  char* bytes = nullptr;
  EXPECT_EQ(NS_OK, in->ReadBoolean(&boolean));
  EXPECT_EQ(NS_OK, in->Read16(&sixteen));
  EXPECT_EQ(NS_OK, in->Read64(&sixtyFour));
  EXPECT_EQ(NS_OK, in->ReadDouble(&number));
  EXPECT_EQ(NS_OK, in->ReadFloat(&infinite));
  EXPECT_EQ(NS_OK, in->ReadCString(text));
  EXPECT_EQ(NS_OK, in->ReadString(wide));
  EXPECT_TRUE(boolean);
  EXPECT_EQ(0xFEDC, sixteen);
  EXPECT_EQ(0x0123456789ABCDEFu, sixtyFour);
  EXPECT_EQ(-0.1, number);
  EXPECT_TRUE(std::isinf(infinite));
  EXPECT_EQ("caf\xc3\xa9", text);
  EXPECT_EQ(u"\u20ac\xD800", wide);
  EXPECT_EQ(NS_OK, in->ReadBytes(7, &bytes));
  EXPECT_EQ(0, std::memcmp("\0\0\0\3\xE2\x82\xAC", bytes, 8));
  NS_Free(bytes);
  EXPECT_EQ(NS_ERROR_FAILURE, in->Read16(&sixteen));
  EXPECT_EQ(0xFEDC, sixteen);
}

TEST_F(Streams, ALengthOutOfTheStreamEatsTheMemory) {
  mDir.Put("file", "\xFF\xFF\xFF\xFFrest");
  const auto in = New<nsIBinaryInputStream>("@mozilla.org/binaryinputstream;1");
  ASSERT_EQ(NS_OK, in->SetInputStream(Open("file").get()));
  nsString text(u"kept");
  EXPECT_EQ(NS_ERROR_FAILURE, in->ReadString(text));
  EXPECT_EQ(u"kept", text);
}

TEST_F(Streams, ACopyFromAStreamStopsShort) {
  const std::string big(20000, 'x');
  mDir.Put("in", big);
  const auto out = Create("out");
  uint32_t count = 0;
  EXPECT_EQ(NS_OK, out->WriteFrom(Open("in").get(), 30000, &count));
  EXPECT_EQ(20000u, count);
  EXPECT_EQ(big, mDir.Read("out"));
}

}  // namespace

// Pipes.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "nsHost.h"
#include "nsIAsyncInputStream.h"
#include "nsIAsyncOutputStream.h"
#include "nsIInputStreamCallback.h"
#include "nsIOutputStreamCallback.h"
#include "nsIPipe.h"
#include "nsIThread.h"
#include "nsIThreadManager.h"
#include "nsImplements.h"
#include "nsServices.h"

namespace {

class Callback final
    : public nsImplements<Callback, nsIInputStreamCallback, nsIOutputStreamCallback> {
 public:
  explicit Callback(std::function<void()> aCall) : mCall(std::move(aCall)) {}
  nsresult OnInputStreamReady(nsIAsyncInputStream*) override {
    mCall();
    return NS_OK;
  }
  nsresult OnOutputStreamReady(nsIAsyncOutputStream*) override {
    mCall();
    return NS_OK;
  }

 private:
  ~Callback() override = default;
  std::function<void()> mCall;
};
nsCOMPtr<Callback> Counting(int* aCount) {
  return MakeRefCounted<Callback>([aCount] { ++*aCount; });
}

class Pipe : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(NS_OK, mHost.Start({})); }
  void TearDown() override {
    mIn = nullptr;
    mOut = nullptr;
    mHost.Stop();
  }
  void Make(bool aNonBlocking, uint32_t aSize, uint32_t aCount) {
    const auto pipe = do_CreateInstance<nsIPipe>("@mozilla.org/pipe;1");
    ASSERT_TRUE(pipe);
    EXPECT_EQ(NS_ERROR_NOT_INITIALIZED, pipe->GetInputStream(mIn.getter_AddRefs()));
    ASSERT_EQ(NS_OK, pipe->Init(aNonBlocking, aNonBlocking, aSize, aCount, nullptr));
    EXPECT_EQ(NS_ERROR_ALREADY_INITIALIZED,
              pipe->Init(aNonBlocking, aNonBlocking, aSize, aCount, nullptr));
    ASSERT_EQ(NS_OK, pipe->GetInputStream(mIn.getter_AddRefs()));
    ASSERT_EQ(NS_OK, pipe->GetOutputStream(mOut.getter_AddRefs()));
  }
  /// The result's name or, for success, what was read.
  std::string Read(uint32_t aCount) {
    std::string text(aCount, '\0');
    uint32_t count = 0;
    const nsresult rv = mIn->Read(text.data(), aCount, &count);
    return NS_FAILED(rv) ? std::string(NS_ResultName(rv)) : text.substr(0, count);
  }
  std::string Write(std::string_view aText) {
    uint32_t count = 99;
    const nsresult rv = mOut->Write(aText.data(), static_cast<uint32_t>(aText.size()), &count);
    return (NS_FAILED(rv) ? std::string(NS_ResultName(rv)) + " " : "") + std::to_string(count);
  }
  nsHost mHost;
  nsCOMPtr<nsIAsyncInputStream> mIn;
  nsCOMPtr<nsIAsyncOutputStream> mOut;
};

TEST_F(Pipe, MoreFitsThanWasAskedFor) {
  Make(true, 4, 3);
  EXPECT_EQ("NS_BASE_STREAM_WOULD_BLOCK", Read(4));
  EXPECT_EQ("12", Write("0123456789abXYZ"));
  EXPECT_EQ("NS_BASE_STREAM_WOULD_BLOCK 0", Write("X"));
  EXPECT_EQ("012", Read(3));
  EXPECT_EQ("NS_BASE_STREAM_WOULD_BLOCK 0", Write("X")) << "a segment that is not yet read";
  EXPECT_EQ("34", Read(2));
  EXPECT_EQ("4", Write("WXYZ!"));
  uint32_t available = 0;
  EXPECT_EQ(NS_OK, mIn->Available(&available));
  EXPECT_EQ(11u, available);
  EXPECT_EQ("56789abWXYZ", Read(100));
}

TEST_F(Pipe, TheLastBytesAreLostWithTheOutput) {
  Make(true, 4, 3);
  EXPECT_EQ("5", Write("hello"));
  EXPECT_EQ(NS_OK, mOut->Close());
  EXPECT_EQ("NS_BASE_STREAM_CLOSED 0", Write("x"));
  EXPECT_EQ("hello", Read(10));
  EXPECT_EQ("", Read(10));
  uint32_t available = 0;
  EXPECT_EQ(NS_BASE_STREAM_CLOSED, mIn->Available(&available));
  Make(true, 4, 3);
  EXPECT_EQ("5", Write("hello"));
  EXPECT_EQ(NS_OK, mOut->CloseWithStatus(NS_ERROR_NET_RESET));
  EXPECT_EQ("hello", Read(10));
  EXPECT_EQ("NS_ERROR_NET_RESET", Read(10));
}

TEST_F(Pipe, AWriterWritesToAClosedInput) {
  Make(false, 4, 3);
  EXPECT_EQ("5", Write("hello"));
  EXPECT_EQ(NS_OK, mIn->Close());
  EXPECT_EQ("NS_BASE_STREAM_CLOSED 0", Write("x"));
  EXPECT_EQ("", Read(10));
  Make(false, 4, 3);
  EXPECT_EQ("5", Write("hello"));
  EXPECT_EQ("h", Read(1));
  EXPECT_EQ(NS_OK, mIn->CloseWithStatus(NS_ERROR_ABORT));
  EXPECT_EQ("NS_ERROR_ABORT", Read(1)) << "of which it knew that it is there";
  Make(false, 4, 3);
  mIn = nullptr;
  EXPECT_EQ("NS_BASE_STREAM_CLOSED 0", Write("x"));
}

TEST_F(Pipe, ABlockedEndIsNotWokenByTheOther) {
  Make(false, 4, 2);
  std::string seen;
  std::thread reader([&] {
    for (std::string part; !(part = Read(3)).empty();) seen += part;
  });
  std::string sent;
  for (int i = 0; i < 2000; ++i) sent += std::to_string(i);
  EXPECT_EQ(std::to_string(sent.size()), Write(sent));
  EXPECT_EQ(NS_OK, mOut->Close());
  reader.join();
  EXPECT_EQ(sent, seen);

  Make(false, 4, 1);
  std::string result;
  std::thread writer([&] { result = Write("123456789"); });
  EXPECT_EQ("1234", Read(4));
  EXPECT_EQ("5678", Read(4));
  EXPECT_EQ(NS_OK, mIn->CloseWithStatus(NS_ERROR_ABORT));
  writer.join();
  EXPECT_TRUE(result == "NS_ERROR_ABORT 8" || result == "9") << result;
}

TEST_F(Pipe, BytesChangeTheirOrderWhenBothEndsAreBusy) {
  constexpr uint32_t kBytes = 20'000;
  for (const uint32_t segments : {1u, 3u, 64u, 0xFFFFFFFFu}) {
    Make(false, 7, segments);
    std::thread writer([&] {
      std::string part;
      for (uint32_t sent = 0; sent < kBytes; sent += static_cast<uint32_t>(part.size())) {
        part.resize(1 + sent % 31 * 7);
        for (size_t i = 0; i < part.size(); ++i) part[i] = static_cast<char>((sent + i) % 251);
        ASSERT_EQ(std::to_string(part.size()), Write(part));
      }
      EXPECT_EQ(NS_OK, mOut->Close());
    });
    uint32_t seen = 0;
    for (std::string part; !(part = Read(1 + seen % 97)).empty();)
      for (const char byte : part) ASSERT_EQ(static_cast<char>(seen++ % 251), byte);
    writer.join();
    EXPECT_GE(seen, kBytes);
  }
  // What is far behind the reader is used again, or given back.
  Make(true, 4, 0xFFFFFFFF);
  for (int round = 0; round < 3; ++round) {
    const std::string sent(2000, static_cast<char>('a' + round));
    EXPECT_EQ("2000", Write(sent));
    EXPECT_EQ(sent, Read(9999));
  }
}

TEST_F(Pipe, TheEndIsSeenBeforeTheBytesInFrontOfIt) {
  for (int round = 0; round < 2000; ++round) {
    Make(false, 4, 2);
    std::thread writer([&] {
      EXPECT_EQ("5", Write("hello"));
      EXPECT_EQ(NS_OK, mOut->Close());
    });
    std::string seen;
    for (std::string part; !(part = Read(3)).empty();) seen += part;
    writer.join();
    ASSERT_EQ("hello", seen);
  }
}

TEST_F(Pipe, SeveralThreadsAtOneEndTearPieces) {
  constexpr int kPieces = 2000;
  Make(false, 4, 3);
  std::vector<std::thread> writers, readers;
  for (const char sign : {'a', 'b'})
    writers.emplace_back([this, sign] {
      for (int i = 0; i < kPieces; ++i) ASSERT_EQ("4", Write(std::string(4, sign)));
    });
  std::atomic<int> seen = 0;
  for (int i = 0; i < 2; ++i)
    readers.emplace_back([&] {
      for (std::string part; !(part = Read(4)).empty(); ++seen)
        ASSERT_TRUE(part == "aaaa" || part == "bbbb") << part;
    });
  for (auto& writer : writers) writer.join();
  EXPECT_EQ(NS_OK, mOut->Close());
  for (auto& reader : readers) reader.join();
  EXPECT_EQ(2 * kPieces, seen);
}

TEST_F(Pipe, AnEndIsUsedFromWithinItsCallback) {
  Make(true, 4, 3);
  EXPECT_EQ("8", Write("12345678"));
  std::string within, seen;
  std::function<void()> use = [&] { within += Read(4) + "," + Write("x") + ";"; };
  uint32_t count = 0;
  const nsWriteSegmentFun take = [](nsIInputStream*, void* aUse, const char*, uint32_t,
                                    uint32_t aCount, uint32_t* aWritten) -> nsresult {
    (*static_cast<std::function<void()>*>(aUse))();
    *aWritten = aCount;
    return NS_OK;
  };
  EXPECT_EQ(NS_OK, mIn->ReadSegments(take, &use, 6, &count));
  EXPECT_EQ(6u, count);
  EXPECT_EQ("NS_BASE_STREAM_WOULD_BLOCK,1;NS_BASE_STREAM_WOULD_BLOCK,1;", within);
  // Who is told that it is ready is no longer within.
  const auto callback = MakeRefCounted<Callback>([&] { seen += Write("y"); });
  EXPECT_EQ("78xx", Read(4));
  EXPECT_EQ(NS_OK, mIn->AsyncWait(callback.get(), 0, 0, nullptr));
  EXPECT_EQ("1", Write("z"));
  EXPECT_EQ("1", seen);
  EXPECT_EQ("zy", Read(4));
}

TEST_F(Pipe, AWaitIsAnsweredTwiceOrNever) {
  Make(true, 4, 1);
  int input = 0, output = 0, replaced = 0;
  EXPECT_EQ(NS_OK, mIn->AsyncWait(Counting(&replaced).get(), 0, 0, nullptr));
  EXPECT_EQ(NS_OK, mIn->AsyncWait(Counting(&input).get(), 0, 0, nullptr));
  EXPECT_EQ("4", Write("1234"));
  EXPECT_EQ(1, input);
  EXPECT_EQ(NS_OK, mIn->AsyncWait(Counting(&input).get(), 0, 0, nullptr));  // ready: at once
  EXPECT_EQ(2, input);
  EXPECT_EQ(NS_OK, mOut->AsyncWait(Counting(&output).get(), 0, 0, nullptr));
  EXPECT_EQ("12", Read(2));
  EXPECT_EQ(0, output);
  EXPECT_EQ("34", Read(2));
  EXPECT_EQ(1, output);
  EXPECT_EQ(NS_OK, mOut->AsyncWait(Counting(&output).get(), nsIAsyncOutputStream::WAIT_CLOSURE_ONLY,
                                   0, nullptr));
  EXPECT_EQ(NS_OK, mIn->AsyncWait(Counting(&replaced).get(), 0, 0, nullptr));
  EXPECT_EQ(NS_OK, mIn->AsyncWait(nullptr, 0, 0, nullptr));
  EXPECT_EQ("1", Write("x"));
  EXPECT_EQ(1, output);
  EXPECT_EQ(NS_OK, mIn->Close());
  EXPECT_EQ(2, output);
  EXPECT_EQ(2, input);
  EXPECT_EQ(0, replaced);
}

TEST_F(Pipe, AWriterIsToldBeforeThereIsTheRoomItAsksFor) {
  Make(true, 4, 3);
  int told = 0;
  const auto wait = [&](uint32_t aRequested) {
    EXPECT_EQ(NS_OK, mOut->AsyncWait(Counting(&told).get(), 0, aRequested, nullptr));
  };
  EXPECT_EQ("12", Write("0123456789ab"));
  wait(5);
  EXPECT_EQ("0123456", Read(7));
  EXPECT_EQ(0, told) << "one segment";
  EXPECT_EQ("7", Read(1));
  EXPECT_EQ(1, told);
  EXPECT_EQ("8", Write("cdefghij"));
  wait(4);
  EXPECT_EQ("89a", Read(3));
  wait(100);  // in place of that, and as far as it goes
  EXPECT_EQ("bcdefghi", Read(8));
  EXPECT_EQ(1, told);
  EXPECT_EQ("j", Read(1));
  EXPECT_EQ(2, told);
  EXPECT_EQ("1", Write("x"));
  wait(12);
  EXPECT_EQ(NS_OK, mIn->Close());
  EXPECT_EQ(3, told);
}

TEST_F(Pipe, AWaitIsAnsweredOnTheWrongThread) {
  Make(true, 4, 1);
  const auto manager = do_GetService<nsIThreadManager>(NS_THREADMANAGER_CONTRACTID);
  nsCOMPtr<nsIThread> main;
  ASSERT_EQ(NS_OK, manager->GetMainThread(main.getter_AddRefs()));
  bool onMain = false, told = false, ran = false;
  const auto callback = MakeRefCounted<Callback>([&] {
    told = true;
    EXPECT_EQ(NS_OK, manager->GetIsMainThread(&onMain));
  });
  EXPECT_EQ(NS_OK, mIn->AsyncWait(callback.get(), 0, 0, main.get()));
  std::thread([&] { EXPECT_EQ("1", Write("x")); }).join();
  EXPECT_FALSE(told);
  EXPECT_EQ(NS_OK, main->ProcessNextEvent(false, &ran));
  EXPECT_TRUE(told && onMain);
}

}  // namespace

// What tests of serial ports share.
#pragma once

#include "nsIThread.h"
#include "nsIThreadManager.h"
#include "nsRunEvents.h"
#include "nsSystemAdapterSerial.h"
#include "nsSystemTest.h"
#include "nsVorelMethodCaller.h"

/// Keeps what it hears, with the name of the listener: "1 data 3", "1 CTS 0". On the main thread.
class nsTestSerialListener final
    : public nsImplements<nsTestSerialListener, nsISystemSerialListener> {
 public:
  explicit nsTestSerialListener(std::string aName) : mName(std::move(aName)) {}
  static std::vector<std::string>& Heard() {
    static std::vector<std::string> sHeard;
    return sHeard;
  }
  nsresult OnCTS(bool aState) override { return Keep("CTS", aState); }
  nsresult OnDSR(bool aState) override { return Keep("DSR", aState); }
  nsresult OnRING(bool aState) override { return Keep("RING", aState); }
  nsresult OnDCD(bool aState) override { return Keep("DCD", aState); }
  /// Reads what is there.
  nsresult OnData(nsIInputStream* aStream) override {
    uint32_t count = 0;
    char bytes[256];
    const bool works = NS_SUCCEEDED(aStream->Available(&count)) &&
                       NS_SUCCEEDED(aStream->Read(bytes, count, &count));
    return Keep(works ? "data" : "failure", count);
  }

 private:
  ~nsTestSerialListener() override = default;
  nsresult Keep(const char* aWhat, uint32_t aValue) {
    EXPECT_TRUE(NS_IsMainThread());
    Heard().push_back(mName + " " + aWhat + " " + std::to_string(aValue));
    return NS_OK;
  }
  const std::string mName;
};

class nsTestInputCallback final : public nsImplements<nsTestInputCallback, nsIInputStreamCallback> {
 public:
  explicit nsTestInputCallback(std::function<void(nsIAsyncInputStream*)> aThen)
      : mThen(std::move(aThen)) {}
  nsresult OnInputStreamReady(nsIAsyncInputStream* aStream) override {
    mThen(aStream);
    ++mCount;
    return NS_OK;
  }
  unsigned Count() const { return mCount; }

 private:
  ~nsTestInputCallback() override = default;
  const std::function<void(nsIAsyncInputStream*)> mThen;
  std::atomic<unsigned> mCount{0};
};

class nsTestOutputCallback final
    : public nsImplements<nsTestOutputCallback, nsIOutputStreamCallback> {
 public:
  nsTestOutputCallback() = default;
  nsresult OnOutputStreamReady(nsIAsyncOutputStream*) override {
    ++mCount;
    return NS_OK;
  }
  unsigned Count() const { return mCount; }

 private:
  ~nsTestOutputCallback() override = default;
  std::atomic<unsigned> mCount{0};
};

class nsSerialTest : public nsSystemTest {
 protected:
  using Port = nsCOMPtr<nsSystemAdapterSerial>;

  static Port NewPort(const nsPlatformRef& aPlatform, const char16_t* aName = u"COM1") {
    return MakeRefCounted<nsSystemAdapterSerial>(aPlatform, nsString(aName), nsString(u"label"),
                                                 0x127u);
  }
  static Port NewPort(const nsSimulatedMachine& aMachine, const char16_t* aName = u"COM1") {
    return NewPort(aMachine.Platform(), aName);
  }
  static nsCOMPtr<nsIAsyncInputStream> AsyncInputOf(const Port& aPort) {
    nsCOMPtr<nsIAsyncInputStream> stream;
    EXPECT_EQ(aPort->GetInputStream(stream.getter_AddRefs()), NS_OK);
    return stream;
  }
  static nsCOMPtr<nsIAsyncOutputStream> AsyncOutputOf(const Port& aPort) {
    nsCOMPtr<nsIAsyncOutputStream> stream;
    EXPECT_EQ(aPort->GetOutputStream(stream.getter_AddRefs()), NS_OK);
    return stream;
  }
  static nsCOMPtr<nsIBinaryInputStream> InputOf(const Port& aPort) {
    return do_QueryInterface<nsIBinaryInputStream>(AsyncInputOf(aPort));
  }
  static nsCOMPtr<nsIBinaryOutputStream> OutputOf(const Port& aPort) {
    return do_QueryInterface<nsIBinaryOutputStream>(AsyncOutputOf(aPort));
  }

  /// Runs events of the main thread until it is so; fails the test after a long time.
  template <class Done>
  static void RunUntil(Done aDone) {
    ASSERT_TRUE(NS_RunEventsUntil(aDone)) << "it never came";
  }
  static void RunPending() { NS_RunEvents(); }

  /// Every write and every read of the binary streams, on a port of mode 1 whose device sends back
  /// what it is sent. aSent takes so many bytes that went over the wire.
  template <class Sent>
  static void CheckNumbersAndTexts(const Port& aPort, Sent aSent) {
    const auto input = InputOf(aPort);
    const auto output = OutputOf(aPort);
    using std::string_literals::operator""s;
    const auto expectSent = [&](const std::string& aExpected) {
      EXPECT_EQ(aSent(aExpected.size()), aExpected);
    };

    EXPECT_EQ(output->WriteBoolean(true), NS_OK);
    EXPECT_EQ(output->Write8(0xFE), NS_OK);
    EXPECT_EQ(output->Write16(0x1234), NS_OK);
    EXPECT_EQ(output->Write32(0x01020304), NS_OK);
    EXPECT_EQ(output->Write64(0x0102030405060708), NS_OK);
    EXPECT_EQ(output->WriteFloat(-1.5F), NS_OK);
    EXPECT_EQ(output->WriteDouble(2.5), NS_OK);
    expectSent(
        "\x01\xfe\x12\x34\x01\x02\x03\x04\x01\x02\x03\x04\x05\x06\x07\x08"
        "\xbf\xc0\x00\x00\x40\x04\x00\x00\x00\x00\x00\x00"s);
    bool boolean = false;
    uint8_t a8 = 0;
    uint16_t a16 = 0;
    uint32_t a32 = 0;
    uint64_t a64 = 0;
    float single = 0;
    double number = 0;
    EXPECT_EQ(input->ReadBoolean(&boolean), NS_OK);
    EXPECT_TRUE(boolean);
    EXPECT_EQ(input->Read8(&a8), NS_OK);
    EXPECT_EQ(a8, 0xFE);
    EXPECT_EQ(input->Read16(&a16), NS_OK);
    EXPECT_EQ(a16, 0x1234);
    EXPECT_EQ(input->Read32(&a32), NS_OK);
    EXPECT_EQ(a32, 0x01020304u);
    EXPECT_EQ(input->Read64(&a64), NS_OK);
    EXPECT_EQ(a64, 0x0102030405060708u);
    EXPECT_EQ(input->ReadFloat(&single), NS_OK);
    EXPECT_EQ(single, -1.5F);
    EXPECT_EQ(input->ReadDouble(&number), NS_OK);
    EXPECT_EQ(number, 2.5);

    nsCString text("before");
    nsString wide(u"before");
    EXPECT_EQ(output->WriteStringZ("abc"), NS_OK);
    expectSent("\0\0\0\3abc"s);  // no terminator, whatever the name says
    EXPECT_EQ(input->ReadCString(text), NS_OK);
    EXPECT_EQ(text, "abc");
    EXPECT_EQ(output->WriteStringZ(""), NS_OK);
    EXPECT_EQ(input->ReadCString(text), NS_OK);
    EXPECT_TRUE(text.IsEmpty());
    EXPECT_EQ(output->WriteUtf8Z(u"\u00e9"), NS_OK);
    expectSent("\0\0\0\0\0\0\0\2\xc3\xa9"s);
    EXPECT_EQ(input->ReadCString(text), NS_OK);
    EXPECT_EQ(text, "\u00e9");

    EXPECT_EQ(output->WriteWStringZ(u""), NS_OK);
    expectSent("\0\0\0\0"s);
    EXPECT_EQ(input->ReadString(wide), NS_OK);
    EXPECT_TRUE(wide.IsEmpty());
    // On the stack, and beyond it.
    for (const uint32_t length : {1u, 64u, 65u}) {
      const std::u16string characters(length, u'\u1234');
      EXPECT_EQ(output->WriteWStringZ(characters.c_str()), NS_OK);
      std::string expected = {'\0', '\0', '\0', static_cast<char>(length)};
      for (uint32_t i = 0; i < length; ++i) expected += "\x12\x34";
      expectSent(expected);
      EXPECT_EQ(input->ReadString(wide), NS_ERROR_FAILURE) << "bytes are compared with characters";
    }
    uint32_t available = 77;
    EXPECT_EQ(input->Available(&available), NS_OK);
    EXPECT_EQ(available, 0u) << "and have been taken all the same";

    uint8_t bytes[] = {0, 255, 0x11, 0x13};
    EXPECT_EQ(output->WriteByteArray(bytes, 4), NS_OK);
    EXPECT_EQ(output->WriteBytes("xy", 2), NS_OK);
    expectSent("\0\xff\x11\x13xy"s);
    char* read = nullptr;
    ASSERT_EQ(input->ReadBytes(6, &read), NS_OK);
    EXPECT_EQ(std::string(read, 6), "\0\xff\x11\x13xy"s);
    NS_Free(read);
  }
};

// Serial ports as adapters, on the simulated machine.
#include <atomic>
#include <future>
#include <thread>

#include "nsFaultSweep.h"
#include "nsIThread.h"
#include "nsIThreadManager.h"
#include "nsSerialTest.h"

namespace {

using Strings = std::vector<std::string>;
using P = nsPlatformCommPort;

class SerialTest : public nsSerialTest {
 protected:
  void SetUp() override {
    StartHost();
    mMachine.mComm->Insert("COM1");
  }
  nsCommDCB DCB() { return mMachine.mComm->DCB("COM1"); }
};

TEST_F(SerialTest, PortsOfTheMachineAreMissedOrMisnamed) {
  mMachine.mComm->Insert("COM255");
  mMachine.mComm->Insert("COM0");
  const auto manager = NewManager(mMachine);
  ASSERT_EQ(manager->Init(), NS_OK);
  nsCOMPtr<nsIArray> adapters;
  ASSERT_EQ(manager->GetAdaptersByIId(nsISystemAdapterSerial::kIID, adapters.getter_AddRefs()),
            NS_OK);
  Strings paths, labels;
  for (const auto& adapter : NS_Elements<nsISystemAdapterSerial>(adapters.get())) {
    paths.push_back(NS_TextOf(adapter, &nsISystemAdapterSerial::GetSysPath));
    labels.push_back(NS_TextOf(adapter, &nsISystemAdapterSerial::GetLabel));
    uint32_t capabilities = 0;
    EXPECT_EQ(adapter->GetCapabilities(&capabilities), NS_OK);
    EXPECT_EQ(capabilities, 0x127u);
  }
  EXPECT_EQ(paths, (Strings{"COM0", "COM1", "COM255"}));
  EXPECT_EQ(labels, (Strings{"Port serie COM0", "Port serie COM1", "Port serie COM255"}));
  EXPECT_EQ(manager->Observe(nullptr, "xpcom-shutdown", nullptr), NS_OK);
}

TEST_F(SerialTest, AClosedPortAnswersOrLogsOtherwise) {
  const auto port = NewPort(mMachine);
  bool flag = false;
  nsCOMPtr<nsIAsyncInputStream> input;
  nsCOMPtr<nsIAsyncOutputStream> output;
  (void)TakeLog("");
  const nsresult results[] = {port->SendBreak(1),
                              port->GetBREAK(&flag),
                              port->SetBREAK(true),
                              port->GetDCD(&flag),
                              port->GetCTS(&flag),
                              port->GetDSR(&flag),
                              port->GetDTR(&flag),
                              port->SetDTR(true),
                              port->GetRING(&flag),
                              port->GetRTS(&flag),
                              port->SetRTS(true),
                              port->GetIsTQEmpty(&flag),
                              port->DrainTQ(),
                              port->GetInputStream(input.getter_AddRefs()),
                              port->GetOutputStream(output.getter_AddRefs())};
  for (const nsresult result : results) EXPECT_EQ(result, NS_ERROR_NOT_INITIALIZED);
  EXPECT_EQ(TakeLog("warning debug: "),
            Strings(std::size(results), "warning debug: 'NS_ENSURE_TRUE(mIsOpen) failed'"));
  EXPECT_EQ(port->Close(), NS_OK);
  EXPECT_EQ(port->Reserved22(nullptr), NS_ERROR_FAILURE);
  EXPECT_EQ(port->Reserved23(nullptr), NS_ERROR_FAILURE);
  EXPECT_EQ(port->Reserved26(), NS_ERROR_NOT_IMPLEMENTED);
  EXPECT_EQ(port->Reserved27(), NS_ERROR_NOT_IMPLEMENTED);
}

TEST_F(SerialTest, ASpeedIsSetOtherwise) {
  const std::pair<uint32_t, uint32_t> speeds[] = {
      {50, 110},        {75, 110},        {110, 110},       {134, 110},     {150, 110},
      {200, 110},       {300, 300},       {600, 600},       {1200, 1200},   {1800, 1200},
      {2400, 2400},     {4800, 4800},     {9600, 9600},     {14400, 14400}, {19200, 19200},
      {38400, 38400},   {56000, 56000},   {57600, 57600},   {76800, 57600}, {115200, 115200},
      {128000, 128000}, {256000, 256000}, {230400, 256000}, {0, 256000}};
  const auto port = NewPort(mMachine);
  for (const auto& [asked, set] : speeds) {
    EXPECT_EQ(port->SetParameters(3, asked, 8, 256, 0, 0), NS_OK);
    ASSERT_EQ(port->Open(), NS_OK);
    EXPECT_EQ(DCB().mBaudRate, set) << "a speed that is not in the table changes nothing";
    EXPECT_EQ(port->Close(), NS_OK);
    uint32_t a, baud = 0, c, d, e, f;
    EXPECT_EQ(port->GetParameters(&a, &baud, &c, &d, &e, &f), NS_OK);
    EXPECT_EQ(baud, asked);
  }
  EXPECT_EQ(TakeLog("warning system.adapter.serial: "),
            (Strings{"warning system.adapter.serial:  Windows does not support 50 baud operation.  "
                     "Switching to 110 baud.",
                     "warning system.adapter.serial:  Windows does not support 75 baud operation.  "
                     "Switching to 110 baud.",
                     "warning system.adapter.serial:  Windows does not support 134.5 baud "
                     "operation.  Switching to 110 baud.",
                     "warning system.adapter.serial:  Windows does not support 150 baud operation. "
                     " Switching to 110 baud.",
                     "warning system.adapter.serial:  Windows does not support 200 baud operation. "
                     " Switching to 110 baud.",
                     "warning system.adapter.serial:  Windows does not support 1800 baud "
                     "operation.  Switching to 1200 baud.",
                     "warning system.adapter.serial:  Windows does not support 76800 baud "
                     "operation.  Switching to 57600 baud."}));
}

TEST_F(SerialTest, SizeAndStopBitsPassTheirCheckOrAreLost) {
  const std::string warning = "warning system.adapter.serial: ";
  const struct {
    uint32_t mSize, mStop, mSetSize, mSetStop;
    Strings mMessages;
  } cases[] = {
      {5, 0, 5, 0, {}},
      {5, 1, 5, 1, {}},
      {5,
       2,
       7,
       2,
       {" 2 stop bits cannot be used with 5 data bits",
        " 5 Data bits cannot be used with 2 stop bits."}},
      {6, 0, 6, 0, {}},
      {6,
       1,
       7,
       2,
       {" 1.5 stop bits can only be used with 5 data bits",
        " 6 Data bits cannot be used with 1.5 stop bits."}},
      {7,
       1,
       7,
       2,
       {" 1.5 stop bits can only be used with 5 data bits",
        " 7 Data bits cannot be used with 1.5 stop bits."}},
      {8,
       1,
       7,
       2,
       {" 1.5 stop bits can only be used with 5 data bits",
        " 8 Data bits cannot be used with 1.5 stop bits."}},
      {7, 2, 7, 2, {}},
      {8, 3, 8, 2, {}},
      {9, 0, 8, 0, {"Bad data bits"}},
      {9, 1, 8, 2, {" 1.5 stop bits can only be used with 5 data bits", "Bad data bits"}},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(std::to_string(one.mSize) + " bits, stop " + std::to_string(one.mStop));
    nsSimulatedSerial facts;
    facts.mDCB.mByteSize = 7;
    facts.mDCB.mStopBits = nsCommDCB::kTwoStopBits;
    mMachine.mComm->Insert("COM1", facts);
    const auto port = NewPort(mMachine);
    EXPECT_EQ(port->SetParameters(3, 9600, one.mSize, 256, one.mStop, 0), NS_OK);
    (void)TakeLog("");
    ASSERT_EQ(port->Open(), NS_OK);
    Strings expected;
    for (const std::string& message : one.mMessages) expected.push_back(warning + message);
    EXPECT_EQ(TakeLog(warning), expected);
    EXPECT_EQ(DCB().mByteSize, one.mSetSize);
    EXPECT_EQ(DCB().mStopBits, one.mSetStop);
  }
}

TEST_F(SerialTest, ParityIsWrittenOrFlowIsNot) {
  nsSimulatedSerial facts;
  facts.mDCB.mParity = nsCommDCB::kEvenParity;
  facts.mDCB.mFlags = 0x7FFF;
  mMachine.mComm->Insert("COM1", facts);
  const auto port = NewPort(mMachine);
  const struct {
    uint32_t mParity, mFlow, mFlags;
  } cases[] = {
      {256, 0, 0x7FFF & ~0x4B00u & ~0x3304u & ~2u},
      {512, 1, ((0x7FFF & ~0x4B00u & ~0x3304u & ~2u) | 0x2004) | 2},
      {4096, 2, ((0x7FFF & ~0x4B00u & ~0x3304u & ~2u) | 0x300) | 2},
      {7, 9, ((0x7FFF & ~0x4B00u & ~0x3304u & ~2u)) | 2},
  };
  for (const auto& one : cases) {
    EXPECT_EQ(port->SetParameters(3, 9600, 8, one.mParity, 0, one.mFlow), NS_OK);
    ASSERT_EQ(port->Open(), NS_OK);
    EXPECT_EQ(DCB().mFlags, one.mFlags) << one.mFlow;
    EXPECT_EQ(DCB().mParity, nsCommDCB::kEvenParity) << "the line keeps its own";
    EXPECT_EQ(port->Close(), NS_OK);
  }
}

TEST_F(SerialTest, LinesAreReadOrSetTheWrongWay) {
  const auto port = NewPort(mMachine);
  ASSERT_EQ(port->Open(), NS_OK);
  bool cts = false, dsr = false, dcd = true, ring = true;
  const auto look = [&] {
    EXPECT_EQ(port->GetCTS(&cts), NS_OK);
    EXPECT_EQ(port->GetDSR(&dsr), NS_OK);
    EXPECT_EQ(port->GetDCD(&dcd), NS_OK);
    EXPECT_EQ(port->GetRING(&ring), NS_OK);
    return std::string(cts ? "C" : "-") + (dsr ? "S" : "-") + (dcd ? "D" : "-") +
           (ring ? "R" : "-");
  };
  EXPECT_EQ(look(), "CS--");
  mMachine.mComm->SetLines("COM1", {false, true, false, true});
  EXPECT_EQ(look(), "-SD-");
  mMachine.mComm->SetLines("COM1", {true, false, true, false});
  EXPECT_EQ(look(), "C--R");
  mMachine.mCalls->Fail({.mPort = "Comm", .mMethod = "GetCommModemStatus"});
  EXPECT_EQ(port->GetCTS(&cts), NS_OK);
  EXPECT_FALSE(cts) << "a line that can't be read is off";

  bool dtr = false, rts = true, on = true;
  EXPECT_TRUE(mMachine.mComm->OutputsOf("COM1").mDTR);
  EXPECT_EQ(port->SetDTR(false), NS_OK);
  EXPECT_FALSE(mMachine.mComm->OutputsOf("COM1").mDTR);
  EXPECT_EQ(port->GetDTR(&dtr), NS_OK);
  EXPECT_TRUE(dtr) << "what Open made of it";
  EXPECT_EQ(port->SetRTS(true), NS_OK);
  EXPECT_TRUE(mMachine.mComm->OutputsOf("COM1").mRTS);
  EXPECT_EQ(port->GetRTS(&rts), NS_OK);
  EXPECT_FALSE(rts);
  EXPECT_EQ(port->SetBREAK(true), NS_OK);
  EXPECT_TRUE(mMachine.mComm->OutputsOf("COM1").mBreak);
  on = false;
  EXPECT_EQ(port->GetBREAK(&on), NS_ERROR_NOT_IMPLEMENTED);
  EXPECT_TRUE(on) << "the value comes all the same";
  for (const auto set : {&nsISystemAdapterSerial::SetDTR, &nsISystemAdapterSerial::SetRTS,
                         &nsISystemAdapterSerial::SetBREAK}) {
    mMachine.mCalls->Fail({.mPort = "Comm", .mMethod = "EscapeCommFunction"});
    EXPECT_EQ((port.get()->*set)(false), NS_ERROR_FAILURE);
  }
  (void)mMachine.mCalls->TakeJournal();
  (void)TakeLog("");
  EXPECT_EQ(port->SendBreak(1500), NS_OK);
  EXPECT_EQ(mMachine.mCalls->TakeJournal(),
            (Strings{"Comm.EscapeCommFunction COM1 8", "Comm.EscapeCommFunction COM1 9"}));
  EXPECT_EQ(TakeLog("debug system.adapter.serial"),
            Strings{"debug system.adapter.serial: Send BREAK for 1500 us"});
}

TEST_F(SerialTest, WhatIsQueuedIsToldWrong) {
  const auto port = NewPort(mMachine);
  ASSERT_EQ(port->Open(), NS_OK);
  bool empty = false;
  (void)TakeLog("");
  EXPECT_EQ(port->GetIsTQEmpty(&empty), NS_OK);
  EXPECT_TRUE(empty);
  EXPECT_EQ(TakeLog("debug "), Strings{"debug system.adapter.serial: Is empty = 1 "});
  mMachine.mCalls->Fail({.mPort = "Comm", .mMethod = "ClearCommError"});
  empty = false;
  EXPECT_EQ(port->GetIsTQEmpty(&empty), NS_ERROR_FAILURE);
  EXPECT_TRUE(empty);
  EXPECT_EQ(port->DrainTQ(), NS_OK);
}

TEST_F(SerialTest, OpenDoesItsStepsInAnotherOrder) {
  const auto port = NewPort(mMachine);
  ASSERT_EQ(port->Open(), NS_OK);
  EXPECT_EQ(port->Open(), NS_ERROR_FAILURE);
  bool state = false;
  EXPECT_EQ(port->GetDTR(&state), NS_OK) << "and the port stays open";
  EXPECT_EQ(port->Close(), NS_OK);
  EXPECT_EQ(mMachine.mCalls->TakeJournal(),
            (Strings{"Comm.OpenPort COM1",
                     "Comm.SetCommConfig COM1 9600 baud 8 bits parity 0 stop 0 flags 1",
                     "Comm.EscapeCommFunction COM1 5", "Comm.EscapeCommFunction COM1 6",
                     "Comm.CloseHandle COM1"}));
  EXPECT_EQ(TakeLog("debug system.adapter.serial: ").front(), "debug system.adapter.serial: Begin");

  mMachine.mComm->Remove("COM1");
  (void)TakeLog("");
  EXPECT_EQ(port->Open(), NS_ERROR_FILE_ACCESS_DENIED);
  EXPECT_EQ(TakeLog("error "), Strings{"error system.adapter.serial: Can't open handle"});
  mMachine.mComm->Insert("COM1");
  mMachine.mCalls->Fail({.mPort = "Comm", .mMethod = "SetCommMask"});
  EXPECT_EQ(port->Open(), NS_ERROR_FAILURE);
  EXPECT_EQ(TakeLog("error "), Strings{"error system.adapter.serial: SetCommMask Failed"});
  EXPECT_EQ(port->GetDCD(&state), NS_OK) << "it is open, and wants a Close";
  EXPECT_EQ(port->Close(), NS_OK);
  EXPECT_EQ(port->Open(), NS_OK);
}

TEST_F(SerialTest, SettingsAreTakenUnchecked) {
  const auto port = NewPort(mMachine);
  uint32_t value = 0;
  bool blocking = false;
  EXPECT_EQ(port->SetMode(0), NS_ERROR_FAILURE);
  EXPECT_EQ(port->SetMode(3), NS_ERROR_FAILURE);
  EXPECT_EQ(port->GetMode(&value), NS_OK);
  EXPECT_EQ(value, 1u);
  EXPECT_EQ(port->GetIsBlocking(&blocking), NS_OK);
  EXPECT_TRUE(blocking);
  EXPECT_EQ(port->SetReservedValue(77), NS_OK);
  EXPECT_EQ(port->GetReservedValue(&value), NS_OK);
  EXPECT_EQ(value, 77u);
  EXPECT_EQ(port->SetTimeout(20), NS_OK);
  ASSERT_EQ(port->Open(), NS_OK);
  const auto input = InputOf(port);
  for (const auto& [blocks, mode, expected] :
       {std::tuple{true, 1u, false}, {true, 2u, true}, {false, 1u, true}}) {
    EXPECT_EQ(port->SetIsBlocking(blocks), NS_OK);
    EXPECT_EQ(port->SetMode(mode), NS_OK);
    bool nonBlocking = !expected;
    EXPECT_EQ(input->IsNonBlocking(&nonBlocking), NS_OK);
    EXPECT_EQ(nonBlocking, expected);
  }
}

// ---- Streams in mode 1

TEST_F(SerialTest, ANumberOrATextLosesItsOrder) {
  nsSimulatedSerial echo;
  echo.mEcho = true;
  mMachine.mComm->Insert("COM1", echo);
  const auto port = NewPort(mMachine);
  ASSERT_EQ(port->SetTimeout(50), NS_OK);
  ASSERT_EQ(port->Open(), NS_OK);
  CheckNumbersAndTexts(port, [&](size_t) { return mMachine.mComm->TakeWritten("COM1"); });
}

TEST_F(SerialTest, AShortReadOrAnAbsurdLengthIsTaken) {
  const auto port = NewPort(mMachine);
  ASSERT_EQ(port->SetTimeout(10), NS_OK);
  ASSERT_EQ(port->Open(), NS_OK);
  const auto input = InputOf(port);
  const auto say = [&](std::string_view aBytes) { mMachine.mComm->Say("COM1", aBytes); };
  uint16_t a16 = 7;
  (void)TakeLog("");
  say("x");
  EXPECT_EQ(input->Read16(&a16), NS_ERROR_FAILURE);
  EXPECT_EQ(a16, 7);
  EXPECT_EQ(TakeLog("warning debug"),
            Strings{"warning debug: 'NS_ENSURE_TRUE(bytesRead == sizeof *a16) failed'"});
  nsCString text("before");
  say(std::string_view("\0\0\0\5abc", 7));
  EXPECT_EQ(input->ReadCString(text), NS_ERROR_FAILURE);
  EXPECT_EQ(TakeLog("warning debug"),
            Strings{"warning debug: 'NS_ENSURE_TRUE(bytesRead == length) failed'"});
  say("\xff\xff\xff\xff");
  EXPECT_EQ(input->ReadCString(text), NS_ERROR_OUT_OF_MEMORY);
  say("\xff\xff\xff\xff");
  nsString wide(u"before");
  EXPECT_EQ(input->ReadString(wide), NS_ERROR_OUT_OF_MEMORY);
  char* bytes = nullptr;
  EXPECT_EQ(input->ReadBytes(UINT32_MAX, &bytes), NS_ERROR_OUT_OF_MEMORY);
  say("ab");
  EXPECT_EQ(input->ReadBytes(3, &bytes), NS_ERROR_FAILURE);
  EXPECT_EQ(bytes, nullptr);
  EXPECT_EQ(text, "before");
  EXPECT_EQ(wide, u"before");
}

TEST_F(SerialTest, AClosedStreamGivesBytesOrItsReason) {
  const auto port = NewPort(mMachine);
  ASSERT_EQ(port->Open(), NS_OK);
  auto input = AsyncInputOf(port);
  const auto output = AsyncOutputOf(port);
  EXPECT_EQ(input->CloseWithStatus(NS_OK), NS_OK);
  uint32_t count = 77;
  EXPECT_EQ(input->Available(&count), NS_OK);
  (void)TakeLog("");
  EXPECT_EQ(input->CloseWithStatus(NS_ERROR_ABORT), NS_OK);
  EXPECT_EQ(TakeLog("debug"), Strings{"debug system.adapter.serial: reason = 80004004"});
  EXPECT_EQ(input->Available(&count), NS_BASE_STREAM_CLOSED);
  EXPECT_EQ(count, 0u);
  char byte = 'x';
  mMachine.mComm->Say("COM1", "a");
  EXPECT_EQ(input->Read(&byte, 0, &count), NS_OK);
  EXPECT_EQ(input->Read(&byte, 1, &count), NS_OK);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(output->Close(), NS_OK);
  EXPECT_EQ(output->Write("a", 1, &count), NS_OK);
  EXPECT_EQ(mMachine.mComm->TakeWritten("COM1"), "");
  EXPECT_EQ(port->Close(), NS_OK);
  ASSERT_EQ(port->Open(), NS_OK);
  EXPECT_EQ(output->Write("b", 1, &count), NS_OK) << "another Open makes it new";
  EXPECT_EQ(count, 1u);
  input = AsyncInputOf(port);
  input = nullptr;  // the last user
  input = AsyncInputOf(port);
  EXPECT_EQ(input->Available(&count), NS_BASE_STREAM_CLOSED);
  EXPECT_EQ(output->Write("c", 1, &count), NS_OK);
  EXPECT_EQ(count, 1u) << "the port and the other stream stay";
}

TEST_F(SerialTest, AStreamAnswersToMoreOrLess) {
  const auto port = NewPort(mMachine);
  ASSERT_EQ(port->Open(), NS_OK);
  const auto input = AsyncInputOf(port);
  const auto output = AsyncOutputOf(port);
  EXPECT_TRUE(do_QueryInterface<nsIBinaryInputStream>(input));
  EXPECT_TRUE(do_QueryInterface<nsIInputStream>(input));
  EXPECT_TRUE(NS_SameObject(do_QueryInterface<nsIBinaryInputStream>(input).get(), input.get()));
  EXPECT_FALSE(do_QueryInterface<nsIClassInfo>(input));
  EXPECT_FALSE(do_QueryInterface<nsISystemAdapterSerial>(input));
  EXPECT_TRUE(do_QueryInterface<nsIBinaryOutputStream>(output));
  EXPECT_TRUE(do_QueryInterface<nsIOutputStream>(output));
  EXPECT_FALSE(do_QueryInterface<nsIClassInfo>(output));
  EXPECT_EQ(InputOf(port)->SetInputStream(input.get()), NS_ERROR_FAILURE);
  EXPECT_EQ(OutputOf(port)->SetOutputStream(output.get()), NS_ERROR_FAILURE);
  uint32_t count = 0;
  EXPECT_EQ(input->ReadSegments(nullptr, nullptr, 1, &count), NS_ERROR_NOT_IMPLEMENTED);
  EXPECT_EQ(output->WriteSegments(nullptr, nullptr, 1, &count), NS_ERROR_NOT_IMPLEMENTED);
  EXPECT_EQ(output->Flush(), NS_OK);
}

TEST_F(SerialTest, AFailureOfTheSystemDoesNotStay) {
  const auto port = NewPort(mMachine);
  ASSERT_EQ(port->Open(), NS_OK);
  const auto input = AsyncInputOf(port);
  const auto output = AsyncOutputOf(port);
  uint32_t count = 77;
  char byte;
  mMachine.mCalls->Fail({.mPort = "Comm", .mMethod = "ClearCommError"});
  EXPECT_EQ(input->Available(&count), NS_OK) << "the call itself succeeds";
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(input->Available(&count), NS_ERROR_FAILURE);
  EXPECT_EQ(input->Read(&byte, 1, &count), NS_ERROR_FAILURE);
  mMachine.mCalls->Fail({.mPort = "Comm", .mMethod = "WriteFile"});
  EXPECT_EQ(output->Write("a", 1, &count), NS_ERROR_FAILURE);
  EXPECT_EQ(output->Write("b", 1, &count), NS_OK) << "in mode 1 it does not become the condition";
  EXPECT_EQ(mMachine.mComm->TakeWritten("COM1"), "b");
  (void)mMachine.mCalls->TakeJournal();
  EXPECT_EQ(port->Close(), NS_OK);
  EXPECT_EQ(mMachine.mCalls->TakeJournal().back(), "Comm.CloseHandle COM1");
}

TEST_F(SerialTest, CloseLeavesAReadWaitingOrHurtsTheNextOpen) {
  const auto port = NewPort(mMachine);
  ASSERT_EQ(port->SetTimeout(20), NS_OK);  // of a read that begins after the next Open
  for (int round = 0; round < 50; ++round) {
    ASSERT_EQ(port->Open(), NS_OK);
    const auto input = AsyncInputOf(port);
    auto reader = std::async(std::launch::async, [&input] {
      char byte;
      uint32_t count = 0;
      const nsresult rv = input->Read(&byte, 1, &count);
      EXPECT_EQ(count, 0u);
      return rv;
    });
    if (round % 2) std::this_thread::yield();
    EXPECT_EQ(port->Close(), NS_OK);
    const bool again = NS_SUCCEEDED(port->Open());
    (void)reader.get();
    uint32_t count = 0;
    ASSERT_TRUE(again);
    EXPECT_EQ(AsyncOutputOf(port)->Write("x", 1, &count), NS_OK);
    EXPECT_EQ(count, 1u) << "who comes back late says nothing of the port that is open now";
    EXPECT_EQ(port->Close(), NS_OK);
  }
}

TEST_F(SerialTest, AFailingCallLeavesThePortUnusable) {
  NS_SweepFaults(
      [](nsSimulatedMachine& aMachine, bool aFaulty) {
        nsSimulatedSerial echo;
        echo.mEcho = true;
        aMachine.mComm->Insert("COM1", echo);
        const auto port = NewPort(aMachine);
        const auto run = [&]() -> std::string {
          if (NS_FAILED(port->SetTimeout(20)) || NS_FAILED(port->Open())) return "closed";
          const auto input = AsyncInputOf(port);
          uint32_t count = 0, available = 0;
          char bytes[4] = {};
          bool line = false;
          (void)AsyncOutputOf(port)->Write("abc", 3, &count);
          (void)input->Available(&available);
          (void)input->Read(bytes, 3, &count);
          (void)port->GetCTS(&line);
          (void)port->SetRTS(true);
          (void)port->GetIsTQEmpty(&line);
          return std::string(bytes, count);
        };
        const std::string first = run();
        if (!aFaulty) {
          EXPECT_EQ(first, "abc");
        }
        EXPECT_EQ(port->Close(), NS_OK);
        (void)port->Close();
        const bool over = aMachine.mCalls->FailedCalls().size() == (aFaulty ? 1u : 0u);
        const std::string second = run();
        if (over) {
          EXPECT_EQ(second, "abc") << "after the fault all is as before";
        }
        EXPECT_EQ(port->Close(), NS_OK);
      },
      NS_ERROR_FAILURE, "Comm");
}

// ---- Mode 2

TEST_F(SerialTest, AnOverlappedReadOrWriteCountsOtherwise) {
  const auto port = NewPort(mMachine);
  ASSERT_EQ(port->SetMode(2), NS_OK);
  ASSERT_EQ(port->SetParameters(3, 9600, 8, 256, 0, 1), NS_OK);
  ASSERT_EQ(port->Open(), NS_OK);
  const auto input = AsyncInputOf(port);
  const auto output = OutputOf(port);
  mMachine.mComm->Say("COM1", "ab");
  char bytes[4] = {'1', '2', '3', '4'};
  uint32_t count = 0;
  EXPECT_EQ(input->Read(bytes, 4, &count), NS_OK);
  EXPECT_EQ(count, 4u) << "each read that succeeds at once counts one";
  EXPECT_EQ(std::string(bytes, 4), "ab34");
  EXPECT_EQ(output->Write("xyz", 3, &count), NS_OK);
  EXPECT_EQ(count, 0u) << "done at once: nothing is reported";
  EXPECT_EQ(output->Write32(0x01020304), NS_ERROR_FAILURE);
  EXPECT_EQ(mMachine.mComm->TakeWritten("COM1"), "xyz\1\2\3\4");

  mMachine.mComm->SetLines("COM1", {.mCTS = false});
  EXPECT_EQ(output->Write("later", 5, &count), NS_BASE_STREAM_WOULD_BLOCK);
  EXPECT_EQ(count, 0u);
  bool empty = true;
  EXPECT_EQ(port->GetIsTQEmpty(&empty), NS_OK);
  EXPECT_FALSE(empty);
  mMachine.mComm->SetLines("COM1", {.mCTS = true});
  std::string written;
  while (written.size() < 5) written += mMachine.mComm->TakeWritten("COM1");
  EXPECT_EQ(written, "later") << "its bytes live until it ends";
  mMachine.mCalls->Fail({.mPort = "Comm", .mMethod = "WriteFile"});
  EXPECT_EQ(output->Write("x", 1, &count), NS_OK) << "the failure shows from the next call on";
  EXPECT_EQ(output->Write("x", 1, &count), NS_ERROR_FAILURE);
  EXPECT_EQ(port->Close(), NS_OK);
}

TEST_F(SerialTest, ListenersHearOtherThanTheMaskSays) {
  const auto port = NewPort(mMachine);
  const auto first = MakeRefCounted<nsTestSerialListener>("1");
  const auto second = MakeRefCounted<nsTestSerialListener>("2");
  EXPECT_EQ(port->AddListener(first.get()), NS_OK);
  EXPECT_EQ(port->AddListener(second.get()), NS_OK);
  EXPECT_EQ(port->AddListener(nullptr), NS_ERROR_NULL_POINTER);
  ASSERT_EQ(port->SetMode(2), NS_OK);
  ASSERT_EQ(port->Open(), NS_OK);
  const auto input = AsyncInputOf(port);
  nsTestSerialListener::Heard().clear();
  mMachine.mComm->Say("COM1", "ab");
  // With any event all of the mask is told, in this order, and to every listener.
  const Strings expected = {"1 data 2", "2 data 0", "1 DSR 1", "2 DSR 1",  "1 CTS 1",
                            "2 CTS 1",  "1 DCD 0",  "2 DCD 0", "1 RING 0", "2 RING 0"};
  RunUntil([&] { return nsTestSerialListener::Heard().size() >= expected.size(); });
  EXPECT_EQ(nsTestSerialListener::Heard(), expected);

  EXPECT_EQ(port->RemoveListener(second.get()), NS_OK);
  EXPECT_EQ(port->RemoveListener(second.get()), NS_OK);
  nsTestSerialListener::Heard().clear();
  (void)TakeLog("");
  mMachine.mComm->SetLines("COM1", {.mDCD = true});
  const Strings lines = {"1 DSR 1", "1 CTS 1", "1 DCD 1", "1 RING 0"};
  RunUntil([&] { return nsTestSerialListener::Heard().size() >= lines.size(); });
  EXPECT_EQ(nsTestSerialListener::Heard(), lines);
  const Strings log = TakeLog("debug system.adapter.serial: EV_");
  EXPECT_EQ(log, (Strings{"debug system.adapter.serial: EV_RXCHAR recieved with 0 char",
                          "debug system.adapter.serial: EV_BREAK",
                          "debug system.adapter.serial: EV_ERR"}));
  EXPECT_EQ(port->Close(), NS_OK);
}

// The worker calls beside the test, in an order of its own: which call fails is not the same each
// time, and what must hold is so for any.
TEST_F(SerialTest, AFailingCallHoldsUpModeTwo) {
  const auto isTold = [&](const Port& aPort, std::chrono::milliseconds aPatience) {
    auto& heard = nsTestSerialListener::Heard();
    heard.clear();
    if (NS_FAILED(aPort->Open())) return false;
    mMachine.mComm->Say("COM1", "abc");
    uint32_t count = 0;
    (void)AsyncOutputOf(aPort)->Write("xyz", 3, &count);
    const auto end = std::chrono::steady_clock::now() + aPatience;
    const auto isThere = [&] { return std::ranges::count(heard, "1 data 3") > 0; };
    while (!isThere() && std::chrono::steady_clock::now() < end) RunPending();
    return isThere();
  };
  for (uint64_t n = 1; n <= 40; ++n) {
    SCOPED_TRACE(n);
    const auto port = NewPort(mMachine);
    ASSERT_EQ(port->SetMode(2), NS_OK);
    ASSERT_EQ(port->AddListener(MakeRefCounted<nsTestSerialListener>("1").get()), NS_OK);
    mMachine.mCalls->Fail({.mPort = "Comm", .mMethod = {}, .mNumber = n});
    (void)isTold(port, std::chrono::milliseconds(10));
    EXPECT_EQ(port->Close(), NS_OK);
    mMachine.mCalls->ClearFaults();
    (void)port->Close();  // one that could not be closed at first
    EXPECT_TRUE(isTold(port, std::chrono::seconds(20))) << "after the fault all is as before";
    EXPECT_EQ(port->Close(), NS_OK);
    RunPending();
  }
}

TEST_F(SerialTest, AListenerThatComesLateIsNotHeardOf) {
  const auto port = NewPort(mMachine);
  ASSERT_EQ(port->SetMode(2), NS_OK);
  ASSERT_EQ(port->Open(), NS_OK);
  const auto input = AsyncInputOf(port);
  const auto listener = MakeRefCounted<nsTestSerialListener>("1");
  nsTestSerialListener::Heard().clear();
  EXPECT_EQ(port->AddListener(listener.get()), NS_OK);
  mMachine.mComm->SetLines("COM1", {.mDCD = true});
  const Strings expected = {"1 DSR 1", "1 CTS 1", "1 DCD 1", "1 RING 0"};
  // The other mask may have been an event of its own.
  RunUntil([&] {
    const Strings& heard = nsTestSerialListener::Heard();
    return heard.size() >= 4 && Strings(heard.end() - 4, heard.end()) == expected;
  });
  mMachine.mCalls->Fail({.mPort = "Comm", .mMethod = "GetCommMask"});
  EXPECT_EQ(port->AddListener(listener.get()), NS_ERROR_FAILURE);
  EXPECT_EQ(port->Close(), NS_OK);
}

TEST_F(SerialTest, ListenersOfModeOneAreCalledOrHoldItUp) {
  const auto port = NewPort(mMachine);
  const auto listener = MakeRefCounted<nsTestSerialListener>("1");
  EXPECT_EQ(port->AddListener(listener.get()), NS_OK);
  ASSERT_EQ(port->Open(), NS_OK);
  EXPECT_EQ(TakeLog("warning system.adapter.serial"),
            Strings{"warning system.adapter.serial: Can't use listener with synchrone mode"});
  EXPECT_EQ(port->AddListener(listener.get()), NS_OK);  // starts a worker, which ends at once
  EXPECT_EQ(port->Close(), NS_OK);
}

TEST_F(SerialTest, WhoWaitsIsNotCalledOrTwice) {
  const auto port = NewPort(mMachine);
  ASSERT_EQ(port->SetMode(2), NS_OK);
  ASSERT_EQ(port->Open(), NS_OK);
  const auto input = AsyncInputOf(port);
  nsCOMPtr<nsIThread> main;
  ASSERT_EQ(do_GetService<nsIThreadManager>(NS_THREADMANAGER_CONTRACTID)
                ->GetMainThread(main.getter_AddRefs()),
            NS_OK);
  std::vector<bool> calls;
  const auto callback = MakeRefCounted<nsTestInputCallback>([&](nsIAsyncInputStream* aStream) {
    EXPECT_EQ(aStream, input.get());
    calls.push_back(NS_IsMainThread());
  });
  mMachine.mComm->Say("COM1", "early");
  RunPending();
  EXPECT_EQ(input->AsyncWait(callback.get(), 0, 5, main.get()), NS_OK);
  EXPECT_EQ(callback->Count(), 0u) << "nothing is triggered by the call itself";
  mMachine.mComm->Say("COM1", "x");
  RunUntil([&] { return callback->Count() >= 1; });
  EXPECT_EQ(calls, std::vector<bool>{true});

  // For the end only: not on data, but when a failure has become the condition.
  EXPECT_EQ(input->AsyncWait(callback.get(), nsIAsyncInputStream::WAIT_CLOSURE_ONLY, 0, main.get()),
            NS_OK);
  mMachine.mComm->Say("COM1", "y");
  const auto once = MakeRefCounted<nsTestOutputCallback>();
  EXPECT_EQ(AsyncOutputOf(port)->AsyncWait(once.get(), 0, 0, nullptr), NS_OK);
  mMachine.mComm->SetLines("COM1", {.mDSR = false});
  RunUntil([&] { return once->Count() >= 1; });
  EXPECT_EQ(callback->Count(), 1u);
  mMachine.mComm->Remove("COM1");
  RunUntil([&] { return callback->Count() >= 2; });
  uint32_t count = 0;
  EXPECT_EQ(input->Available(&count), NS_ERROR_FAILURE);
  EXPECT_EQ(port->Close(), NS_OK);
}

TEST_F(SerialTest, APortThatIsPulledOutSpinsOrNeverComesBack) {
  const auto port = NewPort(mMachine);
  ASSERT_EQ(port->SetMode(2), NS_OK);
  ASSERT_EQ(port->Open(), NS_OK);
  const auto input = AsyncInputOf(port);
  const auto callback = MakeRefCounted<nsTestInputCallback>([](nsIAsyncInputStream*) {});
  EXPECT_EQ(input->AsyncWait(callback.get(), 0, 0, nullptr), NS_OK);
  mMachine.mComm->Remove("COM1");
  RunUntil([&] {
    return callback->Count() >= 1 && !TakeLog("debug system.adapter.serial: Stop").empty();
  });
  const uint64_t calls = mMachine.mCalls->Count("Comm");
  RunPending();
  EXPECT_EQ(mMachine.mCalls->Count("Comm"), calls) << "the worker has ended";
  EXPECT_EQ(port->Close(), NS_OK);
  EXPECT_EQ(port->Open(), NS_ERROR_FILE_ACCESS_DENIED);
  mMachine.mComm->Insert("COM1");
  EXPECT_EQ(port->Open(), NS_OK);
  EXPECT_EQ(port->Close(), NS_OK);
}

TEST_F(SerialTest, APortThatNobodyClosesHoldsUpTheEnd) {
  const auto port = NewPort(mMachine);
  ASSERT_EQ(port->SetMode(2), NS_OK);
  ASSERT_EQ(port->AddListener(MakeRefCounted<nsTestSerialListener>("1").get()), NS_OK);
  ASSERT_EQ(port->Open(), NS_OK);
  const auto input = AsyncInputOf(port);
  mMachine.mComm->Say("COM1", "a");
  mHost.Stop();
  bool state = false;
  EXPECT_EQ(port->GetDTR(&state), NS_ERROR_NOT_INITIALIZED) << "closed at the end";
}

TEST_F(SerialTest, RacesOfCloseTouchWhatIsFreed) {
  const char* const given = getenv("VOREL_SERIAL_ROUNDS");
  const int rounds = given ? atoi(given) : 300;
  for (int round = 0; round < rounds; ++round) {
    auto port = NewPort(mMachine);
    ASSERT_EQ(port->SetMode(1 + round % 2), NS_OK);
    ASSERT_EQ(port->SetTimeout(1), NS_OK);
    ASSERT_EQ(port->Open(), NS_OK);
    auto input = AsyncInputOf(port);
    auto output = AsyncOutputOf(port);
    std::thread reader([held = std::move(input)]() mutable {
      char bytes[4];
      uint32_t count = 0;
      for (int i = 0; i < 3; ++i) (void)held->Read(bytes, 4, &count);
      held = nullptr;
    });
    std::thread writer([held = std::move(output)]() mutable {
      uint32_t count = 0;
      for (int i = 0; i < 3; ++i) (void)held->Write("abcd", 4, &count);
      held = nullptr;
    });
    mMachine.mComm->Say("COM1", "zyx");
    if (round % 3) (void)port->Close();
    // In mode 2 the worker holds the port: without Close it is the last one.
    if (round % 3 == 0 && round % 2 == 0) port = nullptr;
    reader.join();
    writer.join();
    if (port) (void)port->Close();
    port = nullptr;
    RunPending();
  }
}

// ---- The device

TEST_F(SerialTest, WhatIsKnownOfTheDeviceIsLost) {
  nsSimulatedSerial facts;
  facts.mInfo = {"", "/dev/ttyUSB0", "ftdi_sio", "Maker", "Product", "usb:1"};
  mMachine.mComm->Insert("COM1", facts);
  const auto port = NewPort(mMachine);
  const auto info =
      do_QueryInterface<nsISystemSerialPortInfo>(static_cast<nsISystemAdapterSerial*>(port.get()));
  ASSERT_TRUE(info);
  EXPECT_EQ(NS_TextOf(info, &nsISystemSerialPortInfo::GetDevicePath), "/dev/ttyUSB0");
  EXPECT_EQ(NS_TextOf(info, &nsISystemSerialPortInfo::GetDriver), "ftdi_sio");
  EXPECT_EQ(NS_TextOf(info, &nsISystemSerialPortInfo::GetMaker), "Maker");
  EXPECT_EQ(NS_TextOf(info, &nsISystemSerialPortInfo::GetProduct), "Product");
  EXPECT_EQ(NS_TextOf(info, &nsISystemSerialPortInfo::GetIdentity), "usb:1");
  mMachine.mComm->Remove("COM1");
  nsString text;
  EXPECT_EQ(info->GetMaker(text), NS_ERROR_NOT_AVAILABLE);
}

}  // namespace

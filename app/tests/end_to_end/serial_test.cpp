// vorel serial: the list, the terminal, pipes; and an application that talks to a device.
#include <gtest/gtest.h>

#include "nsProgram.h"

namespace {

constexpr char kMachine[] = R"({"serial": [
  {"name": "COM1", "device": "/dev/ttyS0", "echo": true},
  {"name": "COM33", "device": "/dev/ttyUSB0", "driver": "ftdi_sio", "maker": "Maker", "product": "Line",
   "identity": "usb:1", "answers": [{"to": "ask", "sayBytes": "00 ff 0a"}]}]})";

std::string SourceFile(const char* aPath) { return std::string(VOREL_SOURCE_DIR "/") + aPath; }

TEST(SerialProgram, AMachineWithoutAPortIsNoEmptyList) {
  nsProgram program;
  const nsOutcome outcome =
      program.Run({"--machine", program.Write("m.json", "{}"), "serial", "--json"});
  EXPECT_EQ(outcome.mStatus, 0) << outcome.mErrors;
  EXPECT_EQ(outcome.mOutput, "[]\n");
}

TEST(SerialProgram, APortIsNotListedOrNotFound) {
  nsProgram program;
  const std::string machine = program.Write("m.json", kMachine);
  const nsOutcome list = program.Run({"--machine", machine, "serial"});
  EXPECT_EQ(list.mStatus, 0) << list.mErrors;
  EXPECT_NE(list.mOutput.find("COM33   /dev/ttyUSB0    ftdi_sio      Maker Line"),
            std::string::npos)
      << list.mOutput;
  EXPECT_EQ(list.mErrors, "");
  const nsOutcome none = program.Run({"--machine", machine, "serial", "COM2"});
  EXPECT_EQ(none.mStatus, 1);
  EXPECT_EQ(none.mErrors,
            "vorel: there is no port 'COM2'; vorel serial lists those that there are\n");
  EXPECT_EQ(program.Run({"--machine", machine, "serial", "COM1", "--parity", "x"}).mStatus, 2);
  EXPECT_EQ(program.Run({"--machine", machine, "serial", "COM1", "--baud"}).mStatus, 2);
  EXPECT_EQ(program.Run({"--machine", machine, "serial", "COM1", "COM33"}).mStatus, 2);
}

TEST(SerialProgram, APipeLosesBytesOrNeverEnds) {
  nsProgram program;
  const std::string machine = program.Write("m.json", kMachine);
  program.SetInput("one\ntwo");
  const nsOutcome echo = program.Run({"--machine", machine, "serial", "com1", "--wait", "500"});
  EXPECT_EQ(echo.mStatus, 0) << echo.mErrors;
  EXPECT_EQ(echo.mOutput, "one\ntwo");
  program.SetInput("ask");
  const nsOutcome bytes =
      program.Run({"--machine", machine, "serial", "COM33", "--wait=500", "--hex", "--lines"});
  EXPECT_EQ(bytes.mOutput, "00 ff 0a ");
  EXPECT_EQ(bytes.mErrors, "CTS=1 DSR=1 DCD=0 RING=0\n");
}

TEST(SerialProgram, ATerminalDoesNotEndAtItsKey) {
  nsProgram program;
  program.StartOnTerminal({"--machine", program.Write("m.json", kMachine), "serial", "COM1"});
  ASSERT_TRUE(program.WaitFor("Ctrl-] ends"));
  program.Type("abc");
  ASSERT_TRUE(program.WaitFor("abc"));
  program.Type("\x1d");
  EXPECT_EQ(program.Finish(0).mStatus, 0);
}

TEST(SerialProgram, AnOpenPortHoldsUpTheEndOfAnApplication) {
  nsProgram program;
  const nsOutcome outcome = program.Run({"--machine", program.Write("m.json", kMachine), "-e", R"(
    const [port] = systemManager.getAdaptersByIId(Components.interfaces.nsISystemAdapterSerial);
    port.mode = 2;
    port.addListener({ onData() {}, onCTS() {}, onDSR() {}, onDCD() {}, onRING() {} });
    port.open();
    globalThis.held = port.inputStream;
    quit(0))"});
  EXPECT_EQ(outcome.mStatus, 0) << outcome.mErrors;
}

TEST(SerialProgram, TheExampleOfAScreenGivesUp) {
  nsProgram program;
  const nsOutcome on = program.Run({"--machine", SourceFile("app/machines/screen.json"),
                                    SourceFile("app/examples/screen.js"), "on"});
  EXPECT_EQ(on.mStatus, 0) << on.mErrors;
  EXPECT_EQ(on.mOutput, "no answer, trying again\nscreen on: OK\n");
  const nsOutcome none = program.Run({"--machine", program.Write("m.json", kMachine),
                                      SourceFile("app/examples/screen.js"), "off", "COM33"});
  EXPECT_EQ(none.mStatus, 1);
  EXPECT_EQ(none.mErrors, "no answer to POWR0000\n");
}

}  // namespace

// Displays and what is plugged in, as the program shows and changes them.
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "nsProgram.h"

namespace {

constexpr char kMachine[] = R"({
  "displays": [
    {"name": "HDMI-1", "monitor": "Lobby", "primary": true, "modes": ["1920x1080@60", "1280x720@60"],
     "brightness": 80, "contrast": 50},
    {"name": "DP-1", "modes": ["1280x720@60"], "rotation": 90, "position": [1920, 0]}],
  "changes": [
    {"after": 0.1, "volumes": {"insert": [{"letter": "E", "kind": "removable", "bus": "usb", "root": "stick"}]}},
    {"after": 0.1, "displays": {"remove": ["DP-1"]}},
    {"after": 0.1, "displays": {"set": [{"name": "HDMI-1", "rotation": 180}]}},
    {"after": 0.1, "volumes": {"remove": ["E"]}}]})";

struct Displays : testing::Test {
  nsOutcome Run(std::vector<std::string> aArguments) {
    aArguments.insert(aArguments.begin(), {"--machine", mMachine});
    return mProgram.Run(aArguments);
  }
  nsProgram mProgram;
  const std::string mMachine = mProgram.Write("m.json", kMachine);
};

TEST_F(Displays, TableOrArrangementIsWrong) {
  const nsOutcome outcome = Run({"displays"});
  EXPECT_EQ(outcome.mStatus, 0) << outcome.mErrors;
  EXPECT_TRUE(outcome.mOutput.starts_with(
      "NAME      DISPLAY         MODE            ROTATION  POSITION  BRIGHTNESS\n"
      "DISPLAY1  Lobby (HDMI-1)  1920x1080 60Hz  0         0,0       80%\n"
      "DISPLAY2  DP-1            1280x720 60Hz   90        1920,0\n"
      "\n"
      "+-----"))
      << outcome.mOutput;
  EXPECT_NE(outcome.mOutput.find("|DISPLAY1 "), std::string::npos) << outcome.mOutput;
  const nsOutcome json = Run({"displays", "--json"});
  const auto displays = nlohmann::json::parse(json.mOutput);
  EXPECT_EQ(displays.size(), 2u);
  EXPECT_EQ(displays[1]["width"], 720);
  EXPECT_EQ(displays[0]["modes"][1], "1280x720 60Hz");
}

TEST_F(Displays, ChangeIsNotMadeOrRefusedWithoutAReason) {
  EXPECT_EQ(Run({"displays", "set", "HDMI-1", "--rotate", "90", "--mode=1280x720@60", "--position",
                 "-5,7", "--brightness", "10"})
                .mStatus,
            0);
  EXPECT_EQ(Run({"displays", "set", "DISPLAY2", "--rotate", "0", "--stored"}).mStatus, 0);
  struct {
    std::vector<std::string> mArguments;
    int mStatus;
    std::string mError;
  } const cases[] = {
      {{"set"}, 2, "which display?"},
      {{"set", "HDMI-1"}, 2, "what is to change?"},
      {{"set", "VGA-1", "--rotate", "90"},
       2,
       "there is no display 'VGA-1': there are DISPLAY1 (Lobby (HDMI-1))"},
      {{"set", "HDMI-1", "--rotate", "45"}, 2, "'45' is none of 0, 90, 180, 270"},
      {{"set", "HDMI-1", "--rotate"}, 2, "--rotate needs a value"},
      {{"set", "HDMI-1", "--brightness", "101"}, 2, "'101' is no number from 0 to 100"},
      {{"set", "HDMI-1", "--position", "1"}, 2, "'1' is no place such as 1920,0"},
      {{"set", "HDMI-1", "--colour", "1"}, 2, "unknown option '--colour'"},
      {{"set", "HDMI-1", "--mode", "640x480"}, 1, "it has no mode 640x480"},
      {{"set", "DP-1", "--brightness", "5"},
       1,
       "--brightness of DISPLAY2: the display does not take it"},
      {{"get"}, 2, "unknown argument 'get'"},
  };
  for (const auto& one : cases) {
    std::vector<std::string> arguments = one.mArguments;
    arguments.insert(arguments.begin(), "displays");
    const nsOutcome outcome = Run(arguments);
    EXPECT_EQ(outcome.mStatus, one.mStatus) << one.mError;
    EXPECT_NE(outcome.mErrors.find(one.mError), std::string::npos) << outcome.mErrors;
  }
}

TEST_F(Displays, WhatIsPluggedInOrPulledIsNotTold) {
  std::filesystem::create_directory(mProgram.Directory() + "/stick");
  mProgram.Start({"--machine", mMachine, "--watch"});
  const std::string root = mProgram.Directory() + "/stick";
  for (const std::string& line :
       {"adapter-added: Storage " + root,
        "binding-added: storage-external-medias-reader on Storage " + root,
        std::string("adapter-removed: DisplayOutput DP-1"),
        std::string("adapter-changed: DisplayOutput Lobby (HDMI-1)"),
        "adapter-removed: Storage " + root,
        "binding-removed: storage-external-medias-reader on Storage " + root})
    EXPECT_TRUE(mProgram.WaitFor(line + "\n")) << line;
  EXPECT_EQ(mProgram.Finish(SIGTERM).mStatus, 0);
}

TEST_F(Displays, ExampleTurnsNothingOrCopiesNothing) {
  const nsOutcome portrait = Run({SourceFile("app/examples/portrait.js")});
  EXPECT_EQ(portrait.mOutput, "Lobby (HDMI-1) is portrait\nDP-1 is portrait\n") << portrait.mErrors;

  const std::string inbox = mProgram.Directory() + "/inbox";
  std::filesystem::create_directory(inbox);
  std::filesystem::create_directory(mProgram.Directory() + "/stick");
  mProgram.Write("stick/film", "content");
  mProgram.Start({"--machine", mMachine, SourceFile("app/examples/stick.js"), inbox});
  EXPECT_TRUE(mProgram.WaitFor("+ film\n"));
  EXPECT_EQ(mProgram.Finish(SIGTERM).mStatus, 0);
  EXPECT_TRUE(std::filesystem::exists(inbox + "/film"));
}

}  // namespace

// The shell, on a terminal and without one.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "nsProgram.h"

namespace {
const std::string kKiosk = "app/machines/kiosk.json";
}  // namespace

TEST(Shell, PipedLinesStopAtAnErrorOrLoseStatementsOfSeveralLines) {
  nsProgram program;
  program.SetInput(
      "let n = 40\n"
      "function two() {\n"
      "  return 2;\n"
      "}\n"
      "throw new Error('oops')\n"
      "setTimeout(() => console.log('late'), 1)\n"
      "n + two()");
  const nsOutcome outcome = program.Run({"--machine", SourceFile(kKiosk), "shell"});
  EXPECT_EQ(outcome.mStatus, 1);
  EXPECT_NE(outcome.mErrors.find("shell:1:7: Error: oops"), std::string::npos) << outcome.mErrors;
  EXPECT_NE(outcome.mOutput.find("42\n"), std::string::npos) << outcome.mOutput;
  EXPECT_NE(outcome.mOutput.find("late\n"), std::string::npos) << outcome.mOutput;
  EXPECT_EQ(outcome.mOutput.find("vorel>"), std::string::npos) << outcome.mOutput;
}

TEST(Shell, LinesBehindQuitAreRun) {
  nsProgram program;
  program.SetInput("quit(7)\nconsole.log('still here')\n");
  const nsOutcome outcome = program.Run({"--machine", SourceFile(kKiosk), "shell"});
  EXPECT_EQ(outcome.mStatus, 7);
  EXPECT_EQ(outcome.mOutput, "");
}

TEST(Shell, TerminalLosesKeysTimersOrHistory) {
  nsProgram program;
  const std::string profile = program.Directory() + "/profile";
  const std::vector<std::string> arguments = {"--machine", SourceFile(kKiosk), "--profile", profile,
                                              "shell"};
  program.StartOnTerminal(arguments);
  ASSERT_TRUE(program.WaitFor("vorel> "));
  // What is typed before the prompt is there would be read by the terminal in its own way.
  program.Type("FileSys\t.name\r");  // looked up when it is used
  ASSERT_TRUE(program.WaitFor("FileSystemWatcher\r\nvorel> "));
  program.Type("Number.MAX_SAF\t+0\r");
  ASSERT_TRUE(program.WaitFor("9007199254740991\r\nvorel> "));
  program.Type("setTimeout(() => console.log('ti' + 'ck'), 1); 0\r");
  ASSERT_TRUE(program.WaitFor("tick\r\nvorel> "));  // the line stands behind it again
  // The interrupt drops a statement that is begun, not the shell.
  program.Type("let broken = [1,\r");
  ASSERT_TRUE(program.WaitFor("... "));
  program.Type("\3");
  ASSERT_TRUE(program.WaitFor("^C\r\nvorel> "));
  program.Type("nothing.there\r");
  ASSERT_TRUE(program.WaitFor("nothing is not defined\r\nvorel> "));
  program.Type("40 + 2\r");
  ASSERT_TRUE(program.WaitFor("42\r\nvorel> "));
  program.Type("\4");
  EXPECT_EQ(program.Finish(0).mStatus, 0);

  struct stat facts;
  ASSERT_EQ(stat((profile + "/shell-history").c_str(), &facts), 0);
  EXPECT_EQ(facts.st_mode & 0777, 0600u);
  program.StartOnTerminal(arguments);
  ASSERT_TRUE(program.WaitFor("vorel> "));
  program.Type("\x10\r");  // the line before
  ASSERT_TRUE(program.WaitFor("42\r\nvorel> "));
  program.Type("quit(9)\r");
  EXPECT_EQ(program.Finish(0).mStatus, 9);
}

#include <gtest/gtest.h>

#include "nsCommandLine.h"

namespace {

std::string ErrorOf(const std::vector<std::string>& aArguments) {
  nsCommandLine line;
  std::string error;
  return nsCommandLine::Parse(aArguments, &line, &error) ? "" : error;
}

nsCommandLine Parsed(const std::vector<std::string>& aArguments) {
  nsCommandLine line;
  std::string error;
  EXPECT_TRUE(nsCommandLine::Parse(aArguments, &line, &error)) << error;
  return line;
}

}  // namespace

TEST(CommandLine, OptionsBehindTheScriptAreTakenFromTheApplication) {
  const auto line = Parsed({"--log", "debug", "app.js", "--json", "-e", "watch"});
  EXPECT_EQ(line.mTask, nsCommandLine::Task::eApplication);
  EXPECT_FALSE(line.mJson);
  EXPECT_EQ(line.mArguments, (std::vector<std::string>{"--json", "-e", "watch"}));
}

TEST(CommandLine, EqualsFormLosesThePartBehindASecondEquals) {
  const auto line = Parsed({"--log=system.manager=debug", "--machine=a=b.json"});
  ASSERT_EQ(line.mLogLevels.size(), 1u);
  EXPECT_EQ(line.mLogLevels[0], (std::pair<std::string, std::string>{"system.manager", "debug"}));
  EXPECT_EQ(line.mMachineFile, "a=b.json");
}

TEST(CommandLine, WatchTakesOptionsOnBothSides) {
  const auto line = Parsed({"--profile", "p", "watch", "dir", "--json"});
  EXPECT_EQ(line.mTask, nsCommandLine::Task::eWatch);
  EXPECT_TRUE(line.mJson);
  EXPECT_EQ(line.mArguments, std::vector<std::string>{"dir"});
}

TEST(CommandLine, WatchMixesUpItsDirectoriesAndItsOptions) {
  const auto line =
      Parsed({"watch", "a", "--exclude", "*.tmp", "--once", "b", "--only=x=y", "--", "--c"});
  EXPECT_EQ(line.mArguments, (std::vector<std::string>{"a", "b", "--c"}));
  EXPECT_EQ(line.mWatchOptions.mExclude, std::vector<std::string>{"*.tmp"});
  EXPECT_EQ(line.mWatchOptions.mOnly, std::vector<std::string>{"x=y"});
  EXPECT_TRUE(line.mWatchOptions.mOnce);
}

TEST(CommandLine, ShellTakesOptionsOnBothSides) {
  const auto line = Parsed({"--profile", "p", "shell", "--machine", "m"});
  EXPECT_EQ(line.mTask, nsCommandLine::Task::eShell);
  EXPECT_EQ(line.mProfileDirectory, "p");
  EXPECT_EQ(line.mMachineFile, "m");
}

TEST(CommandLine, MistakesAreSilentlyAccepted) {
  EXPECT_NE(ErrorOf({"--jsn"}).find("--jsn"), std::string::npos);
  EXPECT_NE(ErrorOf({"--machine"}).find("needs a value"), std::string::npos);
  EXPECT_NE(ErrorOf({"--machine="}).find("needs a value"), std::string::npos);
  EXPECT_NE(ErrorOf({"--log", "loud"}).find("loud"), std::string::npos);
  EXPECT_NE(ErrorOf({"--log", "a.b=loud"}).find("loud"), std::string::npos);
  for (const char* limit : {"", "x", "7", "3073", "64M", "-1", "99999999999"})
    EXPECT_NE(ErrorOf({"--heap", limit}).find("--heap"), std::string::npos) << limit;
  EXPECT_NE(ErrorOf({"app.txt"}).find("app.txt"), std::string::npos);
  EXPECT_NE(ErrorOf({"watch"}).find("directory"), std::string::npos);
  EXPECT_NE(ErrorOf({"watch", "--once"}).find("directory"), std::string::npos);
  EXPECT_NE(ErrorOf({"watch", "a", "--often"}).find("--often"), std::string::npos);
  for (const char* value : {"", "x", "-1", "0", "1e3", "9999999"}) {
    EXPECT_NE(ErrorOf({"watch", "a", "--timeout", value}).find("--timeout"), std::string::npos);
    EXPECT_NE(ErrorOf({"watch", std::string("--settle=") + value, "a"}).find("--settle"),
              std::string::npos);
  }
  for (const char* name : {"", ".x", "a/b", "\xC3\xA4"})
    EXPECT_NE(ErrorOf({"watch", "a", "--since", name}).find("--since"), std::string::npos);
  EXPECT_NE(ErrorOf({"shell", "a"}).find("'a'"), std::string::npos);
  EXPECT_NE(ErrorOf({"-e"}).find("-e"), std::string::npos);
  EXPECT_NE(ErrorOf({"--watch", "app.js"}).find("--watch"), std::string::npos);
}

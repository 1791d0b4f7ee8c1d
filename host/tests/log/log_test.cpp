// Logging: levels, forms, and where records go.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>
#include <thread>

#include "nsHost.h"
#include "nsHostLog.h"
#include "nsLogger.h"
#include "nsServices.h"
#include "nsString.h"

namespace {

constexpr uint32_t kDebug = nsILog4Logger::SEVERITY_DEBUG,
                   kWarning = nsILog4Logger::SEVERITY_WARNING,
                   kError = nsILog4Logger::SEVERITY_ERROR;

class Log : public testing::Test {
 protected:
  void SetUp() override {
    mFile = std::filesystem::temp_directory_path() /
            ("vorel-log-" + std::to_string(getpid()) +
             testing::UnitTest::GetInstance()->current_test_info()->name());
    ASSERT_EQ(NS_OK, mHost.Start({}));
    ASSERT_EQ(NS_OK, NS_SetLogFile(mFile.native()));
  }
  void TearDown() override {
    mHost.Stop();
    EXPECT_EQ(NS_OK, NS_SetLogFile(""));
    EXPECT_EQ(NS_OK, NS_SetLogLevel("warning"));
    NS_SetLogFormat(nsLogFormat::eText);
    std::filesystem::remove(mFile);
  }
  std::vector<std::string> Lines() const {
    std::ifstream file(mFile);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
  }
  static std::string Levels(const nsCOMPtr<nsILog4Logger>& aLogger) {
    std::string levels;
    for (uint32_t severity : {kDebug, kWarning, kError, 3u, 0xFFFFFFFFu}) {
      bool enabled = false;
      EXPECT_EQ(NS_OK, aLogger->IsEnabledFor(severity, &enabled));
      levels += enabled ? "+" : "-";
    }
    return levels;
  }
  std::filesystem::path mFile;
  nsHost mHost;
};

TEST_F(Log, ALevelGoesToLoggersThatOnlyBeginAlike) {
  const auto exact = NS_GetLogger("log1.system"), below = NS_GetLogger("log1.system.manager"),
             alike = NS_GetLogger("log1.systems"), other = NS_GetLogger("log1");
  EXPECT_EQ("-++--", Levels(exact));
  ASSERT_EQ(NS_OK, NS_SetLogLevel("log1.system=debug"));
  EXPECT_EQ("+++--", Levels(exact));
  EXPECT_EQ("+++--", Levels(below));
  EXPECT_EQ("-++--", Levels(alike));
  EXPECT_EQ("-++--", Levels(other));
  ASSERT_EQ(NS_OK, NS_SetLogLevel("log1.system.manager=off"));
  EXPECT_EQ("-----", Levels(below));
  ASSERT_EQ(NS_OK, NS_SetLogLevel("error"));
  EXPECT_EQ("--+--", Levels(other));
  EXPECT_EQ("+++--", Levels(exact));
  EXPECT_EQ("-----", Levels(NS_GetLogger("log1.system.manager.late")));
  EXPECT_EQ(NS_GetLogger("log1.system"), exact);
}

TEST_F(Log, AWrongLevelIsTaken) {
  for (const char* text : {"", "loud", "=debug", "a=", "a=DEBUG", "debug "})
    EXPECT_EQ(NS_ERROR_INVALID_ARG, NS_SetLogLevel(text)) << text;
  const auto service = do_GetService<nsILog4Service>(VOREL_LOG4SERVICE_CONTRACTID);
  EXPECT_EQ(NS_ERROR_INVALID_ARG, service->SetLevel(nsDependentCString("a"), 4));
  EXPECT_EQ(NS_ERROR_INVALID_ARG, NS_GetLogger("a")->Log(3, nsDependentCString("x"), nullptr));
}

TEST_F(Log, ARecordIsMoreThanALineOrLacksItsPlace) {
  const auto logger = NS_GetLogger("log3");
  SYSTEM_LOG_DEBUG(logger, "not written");
  SYSTEM_LOG_WARNING(logger, "two\nlines \x1b[31m and \xff bytes");
  ASSERT_EQ(NS_OK, logger->Log(kError, nsDependentCString("placeless"), nullptr));
  const auto lines = Lines();
  ASSERT_EQ(2u, lines.size());
  const std::string time = "\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} ";
  EXPECT_TRUE(std::regex_match(
      lines[0], std::regex(time + "warning log3: two\\\\nlines \\\\x1b\\[31m and \uFFFD bytes "
                                  "\\(.*TestBody, .*host/tests/log/log_test:\\d+\\)")))
      << lines[0];
  EXPECT_TRUE(std::regex_match(lines[1], std::regex(time + "error   log3: placeless"))) << lines[1];
}

TEST_F(Log, AnyBytesBreakTheJson) {
  NS_SetLogFormat(nsLogFormat::eJson);
  std::string all;
  for (int i = 0; i < 256; ++i) all += static_cast<char>(i);
  const auto logger = NS_GetLogger("log4.\"quoted\"\n");
  SYSTEM_LOG_ERROR(logger, all);
  const auto lines = Lines();
  ASSERT_EQ(1u, lines.size());
  const auto record = nlohmann::json::parse(lines[0]);
  EXPECT_EQ("error", record["severity"]);
  EXPECT_EQ("log4.\"quoted\"\n", record["logger"]);
  EXPECT_EQ(0, record["text"].get<std::string>().compare(0, 128, all, 0, 128));
  EXPECT_TRUE(record["line"].is_number());
  EXPECT_TRUE(std::regex_match(record["time"].get<std::string>(),
                               std::regex("\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}Z")));
}

TEST_F(Log, LoggingNeedsARunningHost) {
  const auto logger = NS_GetLogger("log5");
  mHost.Stop();
  ASSERT_EQ(NS_OK, logger->Log(kError, nsDependentCString("after"), nullptr));
  EXPECT_EQ(nullptr, NS_GetLogger("log5").get());
  EXPECT_EQ(1u, Lines().size());
}

TEST_F(Log, ABadFileLosesTheLog) {
  EXPECT_EQ(NS_ERROR_FILE_ACCESS_DENIED, NS_SetLogFile("/proc/none/log"));
  ASSERT_EQ(NS_OK, NS_GetLogger("log6")->Log(kError, nsDependentCString("still here"), nullptr));
  EXPECT_EQ(1u, Lines().size());
  // A file that can't be written to: the record goes to standard error.
  if (NS_FAILED(NS_SetLogFile("/dev/full"))) GTEST_SKIP() << "no /dev/full";
  testing::internal::CaptureStderr();
  ASSERT_EQ(NS_OK, NS_GetLogger("log6")->Log(kError, nsDependentCString("rescued"), nullptr));
  EXPECT_NE(std::string::npos, testing::internal::GetCapturedStderr().find("rescued"));
}

TEST_F(Log, RecordsOfTwoThreadsMix) {
  const auto write = [](const char* aName) {
    const auto logger = NS_GetLogger(aName);
    for (int i = 0; i < 300; ++i) {
      if (i == 100) {
        EXPECT_EQ(NS_OK, NS_SetLogLevel("log7.a=debug"));
      }
      if (i == 200) NS_SetLogFormat(nsLogFormat::eText);
      SYSTEM_LOG_ERROR(logger, std::string(200, 'x'));
    }
  };
  std::thread a(write, "log7.a"), b(write, "log7.b");
  a.join();
  b.join();
  const auto lines = Lines();
  EXPECT_EQ(600u, lines.size());
  for (const auto& line : lines)
    EXPECT_NE(std::string::npos, line.find(": " + std::string(200, 'x') + " ("));
}

}  // namespace

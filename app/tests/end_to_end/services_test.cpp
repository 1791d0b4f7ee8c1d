// Clock, settings and maintenance, as an application in script has them.
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "nsProgram.h"

namespace fs = std::filesystem;

namespace {

/// The default application with preferences of the test's own.
std::string MakeApplication(nsProgram& aProgram, const std::string& aPreferences) {
  const fs::path application = fs::path(aProgram.Directory()) / "application";
  fs::copy(SourceFile("app/default"), application, fs::copy_options::recursive);
  fs::create_directories(application / "defaults/preferences");
  std::ofstream(application / "defaults/preferences/test.js") << aPreferences;
  return application.string();
}

/// The one report of a profile; "" when there is none.
std::string ReportOf(const std::string& aProfile) {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(fs::path(aProfile) / "crashes", error)) {
    std::ifstream file(entry.path());
    return {std::istreambuf_iterator<char>(file), {}};
  }
  return "";
}

bool Has(const std::string& aText, const std::string& aPart) {
  return aText.find(aPart) != aText.npos;
}

constexpr char kMachine[] = R"({"clock": {"utc": "2026-07-01T10:00:00Z", "zone": "Europe/London",
    "zones": [{"name": "Asia/Tokyo", "bias": -540, "standardName": "JST"}]},
  "host": {"name": "lobby-7"},
  "interfaces": [{"name": "lan", "mac": "00-11-22-33-44-55"}]})";

TEST(Services, ARunningScriptKeepsTheOldZone) {
  if (!fs::exists("/usr/share/zoneinfo/Asia/Tokyo"))
    GTEST_SKIP() << "there is no zone data on this system";
  nsProgram program;
  const nsOutcome outcome =
      program.Run({"--machine", program.Write("machine.json", kMachine), "-e",
                   "const clock = Components.classes['@vorel/system/clock;1']"
                   ".getService(Components.interfaces.nsISystemClock);"
                   "new Date().getTimezoneOffset();"
                   "clock.timezone = 'Asia/Tokyo';"
                   "[new Date().getTimezoneOffset(), clock.timezone, clock.localTime].join()"});
  EXPECT_EQ(outcome.mOutput, "-540,Asia/Tokyo,070119002026.00\n") << outcome.mErrors;
}

TEST(Services, AFieldIsLostBetweenTwoRuns) {
  nsProgram program;
  const std::string machine = program.Write("machine.json", kMachine);
  const auto run = [&](const char* aText) {
    return program.Run({"--machine", machine, "-e", aText}).mOutput;
  };
  (void)run("systemGeneralSettings.field3 = 'h\u00f6he'");
  EXPECT_EQ(run("systemGeneralSettings.field3"), "h\u00f6he\n");
  EXPECT_EQ(run("systemGeneralSettings.hostName"), "lobby-7\n");
  EXPECT_EQ(run("systemGeneralSettings.uuid"), "00000000-0000-0000-0001-001122334455\n");
}

TEST(Services, AMissingCommandEndsTheHost) {
  nsProgram program;
  const nsOutcome outcome = program.Run(
      {"--machine", program.Write("machine.json", kMachine), "-e",
       "systemMaintenance.runCommand('no such'); setTimeout(() => console.log('goes on'), 300)"});
  EXPECT_EQ(outcome.mStatus, 0);
  EXPECT_TRUE(Has(outcome.mErrors, "Can't execute command 'no such' errno=")) << outcome.mErrors;
  EXPECT_TRUE(Has(outcome.mOutput, "goes on\n"));
}

TEST(Services, ACrashLeavesNoReportInTheProfile) {
  nsProgram program;
  const std::string profile = program.Directory() + "/profile";
  const nsOutcome outcome = program.Run(
      {"--app", MakeApplication(program, "pref('vorel.crashreporter.enabled', true);\n"),
       "--profile", profile, "-e", "systemMaintenance.crashProcess()"});
  EXPECT_EQ(outcome.mStatus, 128 + SIGSEGV) << outcome.mErrors;
  const std::string report = ReportOf(profile);
  EXPECT_TRUE(Has(report, "Action=None\n")) << report;
  EXPECT_TRUE(Has(report, "\"vorel\" crashed\n"));
  EXPECT_TRUE(Has(report, "nsSystemMaintenance::CrashProcess"));
}

TEST(Services, ACrashIsNotToldToTheNextRun) {
  nsProgram program;
  const std::string profile = program.Directory() + "/profile";
  const std::string application =
      MakeApplication(program, "pref('vorel.crashreporter.enabled', true);\n");
  const std::string crash = program.Write("crash.js",
                                          "function fail() {\n"
                                          "  systemMaintenance.crashProcess();\n}\nfail();\n");
  (void)program.Run({"--app", application, "--profile", profile, crash, "first", "second"});
  const std::string report = ReportOf(profile);
  EXPECT_TRUE(Has(report, "Script=" + crash + "\n")) << report;
  EXPECT_TRUE(Has(report, "Arguments='first' 'second'\n"));
  EXPECT_TRUE(Has(report, "fail() [\"" + crash + "\":2:")) << report;
  const std::string listen = program.Write("listen.js", R"(
    Components.classes['@mozilla.org/observer-service;1']
        .getService(Components.interfaces.nsIObserverService)
        .addObserver((subject, topic, data) => {
          const file = subject.QueryInterface(Components.interfaces.nsIFile);
          console.log(topic, file.exists(), file.leafName === data);
        }, 'crash-report-found', false);
    setTimeout(() => quit(), 100);
  )");
  const auto run = [&] {
    return program.Run({"--app", application, "--profile", profile, listen}).mOutput;
  };
  EXPECT_EQ(run(), "crash-report-found true true\n");
  EXPECT_EQ(run(), "") << "once";
}

// Three minutes of real time: in the slow set only.
TEST(Services, AHungScriptHangsForEver) {
  if (!std::getenv("VOREL_SLOW")) GTEST_SKIP() << "takes three minutes: ./test --slow runs it";
  nsProgram program;
  const std::string profile = program.Directory() + "/profile";
  program.Start({"--app",
                 MakeApplication(program,
                                 "pref('vorel.crashreporter.enabled', true);\n"
                                 "pref('vorel.appli.crashhandler.action', 'restart');\n"),
                 "--profile", profile,
                 program.Write("spin.js",
                               "function spin() {\n"
                               "  for (let x = 0;; x = (x + 1) % 1000);\n}\nspin();\n")});
  for (int minute = 0; minute < 3; ++minute) (void)program.WaitFor("something that it never says");
  const nsOutcome outcome = program.Finish(0);
  EXPECT_EQ(outcome.mStatus, 128 + SIGSEGV);
  EXPECT_TRUE(Has(outcome.mErrors, "Lumacrate Main Loop Watchdog !.\n")) << outcome.mErrors;
  const std::string report = ReportOf(profile);
  EXPECT_TRUE(Has(report, "Action=restart\n"));
  EXPECT_TRUE(Has(report, "\"Watchdog\" crashed\n")) << report;
  // The stack of the main thread leads through code that the engine made, to the host's.
  EXPECT_TRUE(Has(report, "nsScriptHost::RunFile")) << report;
  EXPECT_TRUE(Has(report, "spin() [\"" + program.Directory() + "/spin.js\":2:")) << report;
}

}  // namespace

// Clock, settings and maintenance, as an application in script has them.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "nsMountNamespace.h"
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

TEST(Services, AZoneThatAnotherProcessSetsComesTooLate) {
  const nsMountNamespace mounts;
  if (!fs::exists("/usr/share/zoneinfo/Asia/Tokyo"))
    GTEST_SKIP() << "there is no zone data on this system";
  if (!mounts.IsUsable() || mount("tmpfs", "/etc", "tmpfs", 0, nullptr) != 0)
    GTEST_SKIP() << "no right to an /etc of the test's own";
  const auto set = [](const char* aTarget, const char* aName = "/etc/localtime") {
    fs::create_symlink(aTarget, "/etc/fresh");
    fs::rename("/etc/fresh", aName);
  };
  set("/usr/share/zoneinfo/Asia/Tokyo");
  nsProgram program;
  program.Start({"-e",
                 "let last = 1; setInterval(() => { const now = new Date(0).getTimezoneOffset();"
                 "if (now !== last) console.log('now', last = now); }, 5); undefined"});
  EXPECT_TRUE(program.WaitFor("now -540\n"));
  set("/usr/share/zoneinfo/America/Bogota");
  EXPECT_TRUE(program.WaitFor("now 300\n"));
  // Over another link, the last of which changes.
  set("/usr/share/zoneinfo/Asia/Kolkata", "/etc/zone");
  set("zone");
  EXPECT_TRUE(program.WaitFor("now -330\n"));
  set("/usr/share/zoneinfo/Europe/Berlin", "/etc/zone");
  EXPECT_TRUE(program.WaitFor("now -60\n"));
  EXPECT_EQ(program.Finish(SIGTERM).mStatus, 0);
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
  EXPECT_EQ(outcome.mStatus, kCrashed) << outcome.mErrors;
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

TEST(Services, AComponentThatNeverComesBackMakesItDeaf) {
  nsProgram program;
  const fs::path application = MakeApplication(program, "");
  std::ofstream(application / "chrome.manifest", std::ios::app)
      << "\ncomponent {5a1c3a54-6d1b-4a0e-9b3f-2f4f5a1f6c01} loop.js\n"
         "contract @vorel/test/loop;1 {5a1c3a54-6d1b-4a0e-9b3f-2f4f5a1f6c01}\n"
         "category profile-after-change Loop @vorel/test/loop;1\n";
  std::ofstream(application / "loop.js") << "console.log('loops'); for (;;);\n";
  program.Start({"--app", application.string(), "-e", "1"});
  ASSERT_TRUE(program.WaitFor("loops\n"));
  EXPECT_EQ(program.Finish(SIGTERM).mStatus, 128 + SIGTERM);
}

TEST(Services, TheEndWaitsForACommandThatDoesNotEnd) {
  nsProgram program;
  const auto start = std::chrono::steady_clock::now();
  const nsOutcome outcome =
      program.Run({"-e", "systemMaintenance.runCommand('exec sleep 40 >/dev/null 2>&1'); quit(3)"});
  EXPECT_EQ(outcome.mStatus, 3);
  EXPECT_TRUE(Has(outcome.mErrors, "what the end waits for does not end")) << outcome.mErrors;
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
}

TEST(Services, AHangUpDoesNotEndItInOrder) {
  nsProgram program;
  program.Start({"-e", "setInterval(() => {}, 1000); console.log('runs'); undefined"});
  ASSERT_TRUE(program.WaitFor("runs\n"));
  EXPECT_EQ(program.Finish(SIGHUP).mStatus, 0);
}

TEST(Services, ItsManagerHearsNothing) {
  nsProgram program;
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  const std::string path = program.Directory() + "/notify";
  ASSERT_LT(path.size(), sizeof address.sun_path);
  path.copy(address.sun_path, path.size());
  const int manager = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(bind(manager, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  const timeval patience{30, 0};
  setsockopt(manager, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  const auto hear = [&] {
    char text[64];
    const ssize_t length = recv(manager, text, sizeof text, 0);
    return std::string(text, length > 0 ? static_cast<size_t>(length) : 0);
  };
  setenv("NOTIFY_SOCKET", path.c_str(), 1);
  setenv("WATCHDOG_USEC", "100000", 1);
  program.Start({"-e", "setInterval(() => {}, 1000); console.log('runs'); undefined"});
  unsetenv("NOTIFY_SOCKET");
  unsetenv("WATCHDOG_USEC");
  EXPECT_EQ(hear(), "READY=1");
  EXPECT_EQ(hear(), "WATCHDOG=1");
  EXPECT_EQ(hear(), "WATCHDOG=1");
  EXPECT_EQ(program.Finish(SIGTERM).mStatus, 0);
  std::string last;
  do last = hear();
  while (last == "WATCHDOG=1");
  EXPECT_EQ(last, "STOPPING=1");
  close(manager);
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

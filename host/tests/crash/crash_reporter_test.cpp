// Crash reports, each of a process of its own.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <latch>
#include <regex>
#include <set>
#include <thread>

#include "nsHost.h"
#include "nsICrashReporter.h"
#include "nsScriptHost.h"
#include "nsServices.h"
#include "nsString.h"

namespace fs = std::filesystem;

namespace crashing {

// With external linkage and never inlined, so that a report can name them.
__attribute__((noinline, no_sanitize("address", "undefined", "thread"))) int WriteNowhere() {
  volatile int* volatile nowhere = nullptr;
  *nowhere = 1;
  return 1;
}

// As it stands: an optimiser's own copy of it would have another name.
template <class T>
#ifndef __clang__
__attribute__((noipa))
#endif
__attribute__((noinline, no_sanitize("address", "undefined", "thread"))) T
WriteAs(T aValue) {
  volatile T* volatile nowhere = nullptr;
  *nowhere = aValue;
  return aValue;
}

__attribute__((noinline, no_sanitize("address", "undefined"))) int Recurse(int aDepth) {
  if (aDepth < 0) return 0;  // it does not come to that
  volatile char room[1024] = {};
  room[0] = static_cast<char>(aDepth);
  return Recurse(aDepth + 1) + room[0];
}

__attribute__((noinline)) void WaitForEver(std::latch& aReady) {
  aReady.count_down();
  for (volatile bool forever = true; forever;) {
  }
}

}  // namespace crashing

namespace {

nsCOMPtr<nsICrashReporter> Reporter() {
  return do_GetService<nsICrashReporter>("@mozilla.org/toolkit/crash-reporter;1");
}

class CrashTest : public testing::Test {
 protected:
  void SetUp() override {
    char path[] = "/tmp/vorel-crash-XXXXXX";
    ASSERT_NE(mkdtemp(path), nullptr);
    mProfile = path;
  }
  void TearDown() override { fs::remove_all(mProfile); }

  /// Runs a host whose reports are on in a process of its own, then the function. Gives the status
  /// that the process ended with.
  int Run(std::function<void()> aFunction, const char* aEnabled = "1") {
    const pid_t child = fork();
    if (child == 0) {
      // The sanitizers have handlers of their own, which write pages of text.
      for (const int number : {SIGSEGV, SIGABRT, SIGBUS}) signal(number, SIG_DFL);
      if (chdir(mProfile.c_str()) != 0) _exit(76);
      const int quiet = open("/dev/null", O_WRONLY);
      dup2(quiet, STDERR_FILENO);
      setenv("VOREL_CRASHREPORTER", aEnabled, 1);
      auto* host = new nsHost;
      nsHostOptions options;
      options.mProfileDirectory = mProfile.string();
      if (NS_FAILED(host->Start(options)) || !Reporter()) _exit(77);
      aFunction();
      _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status;
  }
  /// The one report; "" when there is none, the number of them when there are several.
  std::string Report() const {
    std::vector<fs::path> paths;
    if (fs::exists(mProfile / "crashes"))
      for (const auto& entry : fs::directory_iterator(mProfile / "crashes"))
        paths.push_back(entry.path());
    if (paths.empty()) return "";
    if (paths.size() > 1) return std::to_string(paths.size());
    std::ifstream file(paths[0]);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  std::set<std::string> Names() const {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(mProfile / "crashes"))
      names.insert(entry.path().filename().string());
    return names;
  }
  static std::string Quote(const std::string& aText) { return "'" + aText + "'"; }
  /// The part of a report that is about the thread of a name.
  static std::string OfThread(const std::string& aReport, const std::string& aName) {
    const size_t at = aReport.find("\"" + aName + "\"");
    if (at == aReport.npos) return "";
    return aReport.substr(at, aReport.find("\n\n", at) - at);
  }
  static bool Has(const std::string& aText, const std::string& aPart) {
    return aText.find(aPart) != aText.npos;
  }

  fs::path mProfile;
};

TEST_F(CrashTest, AReportNamesNeitherSignalNorFunctionNorOtherThreads) {
  const int status = Run([] {
    (void)Reporter()->AnnotateCrashReport(nsCString("Action"), nsCString("restart"));
    (void)Reporter()->AnnotateCrashReport(nsCString("Lines"), nsCString("one\ntwo"));
    (void)Reporter()->AppendAppNotesToCrashReport(nsCString("a note"));
    std::latch ready(1);
    std::thread([&] {
      pthread_setname_np(pthread_self(), "Waiter");
      crashing::WaitForEver(ready);
    }).detach();
    ready.wait();
    pthread_setname_np(pthread_self(), "Crasher");
    crashing::WriteNowhere();
  });
  ASSERT_TRUE(WIFSIGNALED(status)) << WEXITSTATUS(status);
  EXPECT_EQ(WTERMSIG(status), SIGSEGV);
  const std::string report = Report();
  EXPECT_TRUE(Has(report, "Action=restart\n")) << report;
  EXPECT_TRUE(Has(report, "Lines=one\\ntwo\n"));
  EXPECT_TRUE(Has(report, "Notes=a note\n"));
  EXPECT_TRUE(Has(report, "Signal=11 SIGSEGV\n"));
  EXPECT_TRUE(Has(report, "Address=0x0\n"));
  EXPECT_TRUE(Has(OfThread(report, "Crasher"), "crashed\n"));
  EXPECT_TRUE(Has(OfThread(report, "Crasher"), "crashing::WriteNowhere")) << report;
  EXPECT_TRUE(Has(OfThread(report, "Waiter"), "WaitForEver")) << report;
  EXPECT_FALSE(Has(OfThread(report, "Waiter"), "OnStackSignal"));
}

TEST_F(CrashTest, AStackThatIsFullLeavesNoReport) {
  const int status = Run([] { crashing::Recurse(0); });
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_TRUE(Has(Report(), "crashing::Recurse")) << Report().substr(0, 2000);
}

TEST_F(CrashTest, AThreadsStackThatIsFullLeavesNoReport) {
  const int status = Run([] { std::thread([] { crashing::Recurse(0); }).join(); });
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_TRUE(Has(Report(), "crashing::Recurse")) << Report().substr(0, 2000);
}

TEST_F(CrashTest, ABuildCantBeFoundAgainAndNamesAreTheLinkers) {
  const int status = Run([] { crashing::WriteAs(1.5); });
  EXPECT_TRUE(WIFSIGNALED(status));
  const std::string report = Report();
  EXPECT_TRUE(std::regex_search(report, std::regex("libvorelhost\\.so [0-9a-f]{16,}\n"))) << report;
  EXPECT_TRUE(Has(report, "\nNames\n")) << report;
  EXPECT_TRUE(Has(report, " = double crashing::WriteAs<double>(double)\n")) << report;
#if defined(__x86_64__)
  EXPECT_TRUE(std::regex_search(report, std::regex("rip=0x[0-9a-f]+  eflags=0x")));
#endif
}

TEST_F(CrashTest, AScriptThatHangsIsNotNamed) {
  const int status = Run([] {
    std::string error;
    const auto script = nsScriptHost::Create({}, &error);
    if (!script) _exit(78);
    std::thread([] {
      // When the script runs, which tells so by a file.
      while (access("hangs", F_OK) != 0) std::this_thread::yield();
      crashing::WriteNowhere();
    }).detach();
    std::string result;
    (void)script->Evaluate(
        "function spin() {\n"
        "  const file = Components.classes['@mozilla.org/file/local;1']\n"
        "      .createInstance(Components.interfaces.nsILocalFile);\n"
        "  file.initWithPath(" +
            Quote(fs::current_path().string() + "/hangs") +
            ");\n"
            "  file.create(0, 0o600);\n"
            "  for (let x = 0;; x = (x + 1) % 1000);\n"
            "}\n"
            "spin()",
        "/player/hangs.js", &result);
  });
  EXPECT_TRUE(WIFSIGNALED(status)) << WEXITSTATUS(status);
  const std::string report = Report();
  EXPECT_TRUE(std::regex_search(report, std::regex("spin\\(\\) \\[\"/player/hangs.js\":6:")))
      << report;
  EXPECT_TRUE(Has(report, "[\"/player/hangs.js\":8:")) << "who called it";
}

TEST_F(CrashTest, ReportsAreWrittenWhereALinkLeads) {
  fs::create_directory(mProfile / "elsewhere");
  fs::create_directory_symlink("elsewhere", mProfile / "crashes");
  const int status = Run([] { crashing::WriteNowhere(); });
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_TRUE(fs::is_empty(mProfile / "elsewhere"));
}

TEST_F(CrashTest, ReportsPileUp) {
  fs::create_directory(mProfile / "crashes");
  for (int time = 900; time < 930; ++time)
    std::ofstream(mProfile / "crashes" / ("crash-" + std::to_string(time) + "-1.txt")) << "old";
  std::ofstream(mProfile / "crashes/other.txt") << "not ours";
  const int status = Run([] { crashing::WriteNowhere(); });
  EXPECT_TRUE(WIFSIGNALED(status));
  const auto names = Names();
  EXPECT_EQ(names.size(), 21u);
  EXPECT_FALSE(names.contains("crash-910-1.txt"));
  EXPECT_TRUE(names.contains("crash-911-1.txt"));
  EXPECT_TRUE(names.contains("crash-929-1.txt"));
  EXPECT_TRUE(names.contains("other.txt"));
}

TEST_F(CrashTest, AbortLeavesNoReportOrIsSurvived) {
  const int status = Run([] { abort(); });
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGABRT);
  EXPECT_TRUE(Has(Report(), "Signal=6 SIGABRT\n"));
}

#if defined(__x86_64__)
TEST_F(CrashTest, ATrapIsSurvived) {
  const int status = Run([] { asm volatile("int3"); });
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGTRAP);
  EXPECT_TRUE(Has(Report(), "Signal=5 SIGTRAP\n"));
}
#endif

TEST_F(CrashTest, AThreadThatDoesNotAnswerHoldsTheReportUp) {
  const auto start = std::chrono::steady_clock::now();
  const int status = Run([] {
    std::latch ready(1);
    std::thread([&] {
      pthread_setname_np(pthread_self(), "Deaf");
      sigset_t all;
      sigfillset(&all);
      pthread_sigmask(SIG_BLOCK, &all, nullptr);
      crashing::WaitForEver(ready);
    }).detach();
    ready.wait();
    crashing::WriteNowhere();
  });
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
  EXPECT_TRUE(Has(OfThread(Report(), "Deaf"), "no answer")) << Report();
}

TEST_F(CrashTest, SeveralThreadsCrashIntoOneAnother) {
  const int status = Run([] {
    std::latch ready(8);
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
      threads.emplace_back([&] {
        ready.arrive_and_wait();
        crashing::WriteNowhere();
      });
    for (auto& thread : threads) thread.join();
  });
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_TRUE(Has(Report(), "crashing::WriteNowhere"));
}

TEST_F(CrashTest, ReportsAreWrittenThoughTheyAreOff) {
  int status = Run([] { crashing::WriteNowhere(); }, "0");
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(Report(), "");
  status = Run([] {
    bool enabled = false;
    (void)Reporter()->GetEnabled(&enabled);
    if (!enabled) _exit(1);
    if (Reporter()->SetEnabled(false) != NS_OK) _exit(2);
    if (Reporter()->AnnotateCrashReport(nsCString("A"), nsCString("b")) != NS_ERROR_NOT_INITIALIZED)
      _exit(3);
    if (Reporter()->SetEnabled(true) != NS_OK) _exit(4);
    for (const std::string key : {"", "a=b", "a\nb"})
      if (Reporter()->AnnotateCrashReport(nsCString(key), nsCString("b")) != NS_ERROR_INVALID_ARG)
        _exit(5);
    if (Reporter()->SetEnabled(false) != NS_OK) _exit(6);
    crashing::WriteNowhere();
  });
  EXPECT_TRUE(WIFSIGNALED(status)) << WEXITSTATUS(status);
  EXPECT_EQ(Report(), "");
}

}  // namespace

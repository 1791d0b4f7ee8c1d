// The watchdog, commands and requests.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <random>

#include "nsHostTime.h"
#include "nsICrashReporter.h"
#include "nsIThread.h"
#include "nsIThreadManager.h"
#include "nsLinuxWatchdog.h"
#include "nsSystemMaintenance.h"
#include "nsSystemRequest.h"
#include "nsSystemTest.h"

namespace {

constexpr char kActionPref[] = "vorel.appli.crashhandler.action";
constexpr int64_t kHour = 3'600'000;  // ms

/// Keeps the annotations, and is enabled or not as the test says.
class TestReporter final : public nsImplements<TestReporter, nsICrashReporter> {
 public:
  static inline bool sEnabled = true;
  static inline std::map<std::string, std::string> sAnnotations;

  nsresult GetEnabled(bool* aEnabled) override {
    *aEnabled = sEnabled;
    return NS_OK;
  }
  nsresult AnnotateCrashReport(const nsACString& aKey, const nsACString& aData) override {
    sAnnotations[std::string(NS_View(aKey))] = NS_View(aData);
    return NS_OK;
  }
  nsresult SetEnabled(bool) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult GetServerURL(nsIURL**) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult SetServerURL(nsIURL*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult GetMinidumpPath(nsILocalFile**) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult SetMinidumpPath(nsILocalFile*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult AppendAppNotesToCrashReport(const nsACString&) override {
    return NS_ERROR_NOT_IMPLEMENTED;
  }
  nsresult RegisterAppMemory(uint64_t, uint64_t) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult WriteMinidumpForException(void*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult AppendObjCExceptionInfoToAppNotes(void*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult GetSubmitReports(bool*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult SetSubmitReports(bool) override { return NS_ERROR_NOT_IMPLEMENTED; }

 private:
  ~TestReporter() override = default;
};

constexpr nsCID kReporterCID = "f3b0c3c1-2a9e-45ae-8a3d-3f1f2f0f6c10"_iid;
constexpr vorel::Module::CIDEntry kReporterCIDs[] = {
    {&kReporterCID, true, nullptr, vorel::test::Construct<TestReporter>},
    {nullptr, false, nullptr, nullptr}};
constexpr vorel::Module::ContractIDEntry kReporterContracts[] = {
    {"@mozilla.org/xre/app-info;1", &kReporterCID}, {nullptr, nullptr}};
constexpr vorel::Module kReporterModule = {
    vorel::Module::kVersion, kReporterCIDs, kReporterContracts, nullptr, nullptr, nullptr, nullptr};

class MaintenanceTest : public nsSystemTest {
 protected:
  MaintenanceTest() {
    mOptions.mModules.push_back(&kReporterModule);
    TestReporter::sEnabled = true;
    TestReporter::sAnnotations.clear();
  }
  void SetUp() override { StartHost(); }

  nsCOMPtr<nsSystemMaintenance> NewMaintenance(const char* aAction) {
    if (aAction) SetPref(kActionPref, aAction);
    return MakeRefCounted<nsSystemMaintenance>(mMachine.Platform());
  }
  nsSimulatedWatchdog& Watchdog() { return *mMachine.mWatchdog; }
  bool HasFired() {
    for (const std::string& action : mMachine.mCalls->TakeJournal())
      if (action == "Watchdog.WriteToAddressZero") return true;
    return false;
  }
  /// Runs the main thread's events until it is so.
  template <class Condition>
  void RunUntil(Condition aCondition) {
    nsCOMPtr<nsIThread> thread;
    ASSERT_EQ(do_GetService<nsIThreadManager>(NS_THREADMANAGER_CONTRACTID)
                  ->GetMainThread(thread.getter_AddRefs()),
              NS_OK);
    while (!aCondition()) {
      bool done = false;
      ASSERT_EQ(thread->ProcessNextEvent(true, &done), NS_OK);
    }
  }
};

TEST_F(MaintenanceTest, TheWatchdogRunsThoughNoActionIsToFollow) {
  for (const char* action : {static_cast<const char*>(nullptr), "None", "none"}) {
    TestReporter::sAnnotations.clear();
    const auto maintenance = NewMaintenance(action);
    EXPECT_EQ(TestReporter::sAnnotations["Action"], action ? action : "None");
    Watchdog().Advance(1000 * kHour);
    EXPECT_FALSE(HasFired());
    EXPECT_EQ(maintenance->Notify(nullptr), NS_OK);
    Watchdog().Advance(1000 * kHour);
    EXPECT_FALSE(HasFired());
  }
  EXPECT_EQ(Watchdog().ErrorMode(), 0x8003u);
}

TEST_F(MaintenanceTest, TheActionIsNotHandedOnOrTheLogSaysOtherwise) {
  const auto maintenance = NewMaintenance("restart");
  EXPECT_EQ(TestReporter::sAnnotations["Action"], "restart");
  EXPECT_EQ(TakeLog(""),
            (std::vector<std::string>{
                "debug system.maintenance: Getting preference "
                "vorel.appli.crashhandler.action = restart",
                "debug system.maintenance: Enable Fozogam Loop Watchdog",
                "debug system.maintenance: Configuring crash handling to restart when crash"}));
  // Where reports are off nothing is prepared.
  TestReporter::sEnabled = false;
  TestReporter::sAnnotations.clear();
  ASSERT_EQ(Watchdog().WriteErrorMode(0x10), NS_OK);
  (void)MakeRefCounted<nsSystemMaintenance>(mMachine.Platform());
  EXPECT_TRUE(TestReporter::sAnnotations.empty());
  EXPECT_EQ(Watchdog().ErrorMode(), 0x10u);
}

TEST_F(MaintenanceTest, AHungLoopLivesOnOrALivingOneIsKilled) {
  const auto maintenance = NewMaintenance("restart");
  EXPECT_EQ(Watchdog().Period(), 1000u);
  Watchdog().Advance(179'999);
  EXPECT_EQ(maintenance->Notify(nullptr), NS_OK);
  Watchdog().Advance(179'999);
  EXPECT_FALSE(HasFired());
  Watchdog().Advance(1'001);
  EXPECT_EQ(mMachine.mCalls->TakeJournal(),
            (std::vector<std::string>{"Watchdog.WriteToAddressZero", "Watchdog.ExitProcess -1"}));
  EXPECT_EQ(Watchdog().StandardError(), "Lumacrate Main Loop Watchdog !.\n");
  // A timer that has fired can't be stopped.
  EXPECT_EQ(maintenance->Notify(nullptr), NS_ERROR_FAILURE);
}

TEST_F(MaintenanceTest, TheFeedTimerDoesNotFeed) {
  NS_UseVirtualTime(true);
  const auto maintenance = NewMaintenance("restart");
  for (int second = 0; second < 3600; ++second) {
    NS_AdvanceTime(1000);
    Watchdog().Advance(1000);
  }
  EXPECT_FALSE(HasFired());
  // The loop hangs: no timer of it runs, time goes on.
  Watchdog().Advance(181'000);
  EXPECT_TRUE(HasFired());
  NS_UseVirtualTime(false);
}

TEST_F(MaintenanceTest, ItFiresFalselyOnceInALongLife) {
  const auto maintenance = NewMaintenance("restart");
  std::mt19937 random(3);
  // The loop is late by anything up to the limit. While the machine sleeps, and when its clock
  // jumps, the watchdog's time stands.
  for (int64_t end = 100'000 * kHour; Watchdog().Now() < end;) {
    Watchdog().Advance(random() % 4 == 0 ? random() % 180'000 : 15'000 + random() % 60'000);
    if (random() % 1000 == 0) mMachine.mClock->Advance(int64_t(random() % 1'000'000) - 500'000);
    ASSERT_EQ(maintenance->Notify(nullptr), NS_OK) << Watchdog().Now();
  }
  EXPECT_FALSE(HasFired());
  const int64_t last = Watchdog().Now();
  while (!HasFired()) Watchdog().Advance(100);
  EXPECT_GE(Watchdog().Now() - last, 180'000);
  EXPECT_LE(Watchdog().Now() - last, 181'000);
}

TEST_F(MaintenanceTest, ADevicesPeriodsAreIgnored) {
  for (const auto& [smallest, largest, expected] :
       {std::tuple(1u, 500u, 500u), {2000u, 5000u, 2000u}, {1u, 1'000'000u, 1000u}}) {
    Watchdog().SetCapabilities({{smallest, largest}});
    const nsSimulatedMachine machine;
    machine.mWatchdog->SetCapabilities({{smallest, largest}});
    SetPref(kActionPref, "restart");
    (void)MakeRefCounted<nsSystemMaintenance>(machine.Platform());
    EXPECT_EQ(machine.mWatchdog->Period(), expected);
  }
}

TEST_F(MaintenanceTest, AFailedTimerIsNotTriedAgain) {
  using Fault = nsSimulatedFault;
  mMachine.mCalls->Fail(Fault{.mPort = "Watchdog", .mMethod = "StartTimer"});
  const auto maintenance = NewMaintenance("restart");
  EXPECT_EQ(TakeLog("warning"),
            std::vector<std::string>{"warning system.maintenance: Cannot create Timer Event"});
  EXPECT_EQ(maintenance->Notify(nullptr), NS_OK);
  mMachine.mCalls->Fail(Fault{.mPort = "Watchdog", .mMethod = "StopTimer"});
  EXPECT_EQ(maintenance->Notify(nullptr), NS_ERROR_FAILURE);
  EXPECT_EQ(TakeLog("warning"),
            std::vector<std::string>{"warning system.maintenance: Cannot stop system timer"});
  Watchdog().Advance(100'000);
  EXPECT_EQ(maintenance->Notify(nullptr), NS_OK) << "the old timer is still armed, and is fed";
  mMachine.mCalls->Fail(Fault{.mPort = "Watchdog", .mMethod = "StartTimer"});
  EXPECT_EQ(maintenance->Notify(nullptr), NS_ERROR_FAILURE);
  Watchdog().Advance(500'000);
  EXPECT_FALSE(HasFired());
  EXPECT_EQ(maintenance->Notify(nullptr), NS_OK);
  Watchdog().Advance(181'000);
  EXPECT_TRUE(HasFired());
}

TEST_F(MaintenanceTest, WithoutATimerDeviceEveryFeedFails) {
  Watchdog().SetCapabilities(std::nullopt);
  const auto maintenance = NewMaintenance("restart");
  EXPECT_EQ(TakeLog("warning"),
            std::vector<std::string>{"warning system.maintenance: Cannot get Timer Capabilities"});
  EXPECT_EQ(maintenance->Notify(nullptr), NS_OK);
  Watchdog().Advance(1000 * kHour);
  EXPECT_FALSE(HasFired());
}

TEST_F(MaintenanceTest, ASurvivedCrashCountsAsSuccess) {
  const auto maintenance = NewMaintenance("None");
  EXPECT_EQ(maintenance->CrashProcess(), NS_ERROR_FAILURE);
  EXPECT_TRUE(HasFired());
}

TEST_F(MaintenanceTest, AMissingCommandPassesSilently) {
  const auto maintenance = NewMaintenance("None");
  mMachine.mHost->SetCommand("true", 0);
  (void)TakeLog("");
  ASSERT_EQ(maintenance->RunCommand(nsCString("true")), NS_OK);
  ASSERT_EQ(maintenance->RunCommand(nsCString("no such command")), NS_OK);
  std::vector<std::string> warnings;
  RunUntil([&] {
    for (auto& line : TakeLog("warning")) warnings.push_back(line);
    return !warnings.empty();
  });
  EXPECT_EQ(warnings, std::vector<std::string>{
                          "warning system.maintenance: Can't execute command 'no such command' "
                          "errno=0"});
}

TEST_F(MaintenanceTest, ARequestGivesAnotherStatusThanItsCommand) {
  const auto run = [&](std::optional<int32_t> aExitStatus, bool aCancel) {
    mMachine.mHost->SetCommand("/usr/bin/commit.sh", aExitStatus);
    const auto request = MakeRefCounted<nsSystemRequestCommit>(mMachine.Platform());
    nsresult status = NS_OK;
    EXPECT_EQ(request->GetStatus(&status), NS_OK);
    EXPECT_EQ(status, NS_ERROR_NOT_INITIALIZED);
    EXPECT_EQ(request->Cancel(), NS_ERROR_NOT_AVAILABLE);
    std::string heard;
    class Observer final : public nsImplements<Observer, nsIObserver> {
     public:
      explicit Observer(std::string* aHeard) : mHeard(aHeard) {}
      nsresult Observe(nsISupports*, const char* aTopic, const char16_t* aData) override {
        *mHeard = std::string(aTopic) + " " + NS_ToUtf8(std::u16string_view(aData));
        return NS_OK;
      }

     private:
      ~Observer() override = default;
      std::string* mHeard;
    };
    EXPECT_EQ(request->AsyncStart(MakeRefCounted<Observer>(&heard).get()), NS_OK);
    EXPECT_EQ(request->AsyncStart(nullptr), NS_ERROR_IN_PROGRESS);
    EXPECT_EQ(request->GetStatus(&status), NS_OK);
    EXPECT_EQ(status, NS_ERROR_IN_PROGRESS);
    EXPECT_TRUE(!aCancel || NS_SUCCEEDED(request->Cancel()));
    RunUntil([&] { return !heard.empty(); });
    EXPECT_EQ(request->GetStatus(&status), NS_OK);
    return std::pair(status, heard);
  };
  EXPECT_EQ(run(0, false), std::pair(NS_OK, std::string("system-request-stopped 0x0")));
  EXPECT_EQ(run(1, false),
            std::pair(NS_ERROR_FAILURE, std::string("system-request-stopped 0x80004005")));
  EXPECT_EQ(run(std::nullopt, true),
            std::pair(NS_ERROR_ABORT, std::string("system-request-stopped 0x80004004")));
}

TEST_F(MaintenanceTest, ScriptSeesARequestUnderAnotherNameOrWithoutItsInterface) {
  const auto info = do_QueryInterface<nsIClassInfo>(
      MakeRefCounted<nsSystemRequestCheckDataDisk>(mMachine.Platform()).get());
  ASSERT_TRUE(info);
  uint32_t count = 0;
  nsIID** iids = nullptr;
  ASSERT_EQ(info->GetInterfaces(&count, &iids), NS_OK);
  ASSERT_EQ(count, 2u);
  EXPECT_EQ(*iids[0], "1f96dfdb-68c4-4e61-a544-8720d1ba8a79"_iid);
  EXPECT_EQ(*iids[1], "2918ed20-d295-11e2-b310-60ed6088709b"_iid);
  for (uint32_t i = 0; i < count; ++i) NS_Free(iids[i]);
  NS_Free(iids);

  const auto platform = mMachine.Platform();
  std::vector<nsCID> identifiers;
  for (const nsCOMPtr<nsISupports>& request :
       {nsCOMPtr<nsISupports>(MakeRefCounted<nsSystemRequestFormat>(platform).get()),
        nsCOMPtr<nsISupports>(MakeRefCounted<nsSystemRequestCommit>(platform).get()),
        nsCOMPtr<nsISupports>(MakeRefCounted<nsSystemRequestCheckDataDisk>(platform).get())}) {
    nsCID identifier;
    ASSERT_EQ(do_QueryInterface<nsIClassInfo>(request)->GetClassIDNoAlloc(&identifier), NS_OK);
    EXPECT_EQ(std::ranges::count(identifiers, identifier), 0) << "one class is another";
    identifiers.push_back(identifier);
  }
}

// ---- The native backends

// In a process of its own, with its standard error on a pipe: what it wrote, and how it ended.
std::pair<std::string, int> RunInProcess(void (*aFunction)()) {
  int ends[2];
  if (pipe(ends) != 0) return {"no pipe", 0};
  const pid_t child = fork();
  if (child == 0) {
    dup2(ends[1], STDERR_FILENO);
    aFunction();
    _exit(0);
  }
  close(ends[1]);
  std::string text;
  char buffer[256];
  for (ssize_t got; (got = read(ends[0], buffer, sizeof buffer)) > 0;)
    text.append(buffer, static_cast<size_t>(got));
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  return {text, status};
}

TEST(LinuxWatchdog, AHungProcessLivesOn) {
  const auto [text, status] = RunInProcess([] {
    signal(SIGSEGV, SIG_DFL);
    auto* watchdog = new nsLinuxWatchdog;
    uint32_t id = 0;
    const auto routine = [](nsPlatformWatchdog& aPort) {
      aPort.WriteStandardError("fired\n");
      aPort.WriteToAddressZero();
    };
    // Fed in time, then no more.
    for (int i = 0; i < 5; ++i) {
      if (NS_FAILED(watchdog->StartTimer(2000, 100, routine, 0x100, &id)) ||
          NS_FAILED(watchdog->StopTimer(id)))
        _exit(1);
    }
    if (NS_SUCCEEDED(watchdog->StopTimer(id))) _exit(2);
    (void)watchdog->BeginPeriod(10);
    if (NS_FAILED(watchdog->StartTimer(50, 10, routine, 0x100, &id))) _exit(3);
    if (NS_SUCCEEDED(watchdog->StartTimer(50, 10, routine, 0x100, &id))) _exit(4);
    for (volatile bool hung = true; hung;) {
    }
  });
  EXPECT_EQ(text, "fired\n");
  EXPECT_TRUE(WIFSIGNALED(status)) << WEXITSTATUS(status);
  EXPECT_EQ(WTERMSIG(status), SIGSEGV);
}

TEST(LinuxWatchdog, AHungReaderOfTheErrorsKeepsTheProcess) {
  const auto [text, status] = RunInProcess([] {
    int ends[2];
    if (pipe(ends) != 0) _exit(1);
    fcntl(ends[1], F_SETFL, O_NONBLOCK);
    while (write(ends[1], "full", 4) > 0) {
    }
    fcntl(ends[1], F_SETFL, 0);
    dup2(ends[1], STDERR_FILENO);
    alarm(20);
    nsLinuxWatchdog().WriteStandardError("fired\n");
  });
  EXPECT_EQ(status, 0);
}

TEST(LinuxWatchdog, AStoppedTimerFiresOrItsThreadOutlivesIt) {
  const auto [text, status] = RunInProcess([] {
    nsLinuxWatchdog watchdog;
    uint32_t id = 0;
    const auto routine = [](nsPlatformWatchdog& aPort) { aPort.ExitProcess(9); };
    for (int i = 0; i < 20'000; ++i)
      if (NS_FAILED(watchdog.StartTimer(1000, 1, routine, 0x100, &id)) ||
          NS_FAILED(watchdog.StopTimer(id)))
        _exit(1);
  });
  EXPECT_EQ(text, "");
  EXPECT_EQ(status, 0);
}

}  // namespace

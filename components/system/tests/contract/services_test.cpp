// What every backend of the clock, the zones, the host and the watchdog keeps to.
#include <chrono>

#include "nsServicesContract.h"
#include "nsSimulatedMachine.h"

namespace {

constexpr nsPlatformZoneName kBerlin{u"W. Europe Standard Time", "Europe/Berlin"};
constexpr nsPlatformZoneName kTokyo{u"Tokyo Standard Time", "Asia/Tokyo"};
constexpr nsPlatformZoneName kAtlantis{u"Atlantis Standard Time", "Atlantic/Atlantis"};

// From October to March two hours of one clock, from March to October of the other.
nsPlatformZoneRules BerlinRules() {
  nsPlatformZoneRules rules{.mBias = -60, .mDaylightBias = -60};
  rules.mStandardDate = {.mMonth = 10, .mDay = 5, .mHour = 3};
  rules.mDaylightDate = {.mMonth = 3, .mDay = 5, .mHour = 2};
  return rules;
}

class SimulatedClock final : public nsClockMachine {
 public:
  SimulatedClock() {
    mMachine.mClock->AddZone({.mOlsonName = std::string(kBerlin.mOlsonName),
                              .mStandardName = std::u16string(kBerlin.mStandardName),
                              .mRules = BerlinRules(),
                              .mLocalizedStandard = u"CET",
                              .mLocalizedDaylight = u"CEST"});
    mMachine.mClock->AddZone({.mOlsonName = std::string(kTokyo.mOlsonName),
                              .mStandardName = std::u16string(kTokyo.mStandardName),
                              .mRules = {.mBias = -540},
                              .mLocalizedStandard = u"JST"});
  }
  std::string Lacks() override { return {}; }
  nsPlatformClock& Clock() override { return *mMachine.mClock; }
  nsPlatformTimeZones& Zones() override { return *mMachine.mClock; }
  bool WithoutTheRight(const std::function<void()>& aCall) override {
    mMachine.mClock->SetGranted(kPrivilegeSystemTime, false);
    aCall();
    mMachine.mClock->SetGranted(kPrivilegeSystemTime, true);
    return true;
  }

 private:
  nsSimulatedMachine mMachine;
};

class SimulatedHost final : public nsHostMachine {
 public:
  nsPlatformHost& Host() override { return *mMachine.mHost; }
  void Expect(const std::string& aLine, std::optional<int32_t> aStatus) override {
    mMachine.mHost->SetCommand(aLine, aStatus);
  }

 private:
  nsSimulatedMachine mMachine;
};

class SimulatedWatchdog final : public nsWatchdogMachine {
 public:
  nsPlatformWatchdog& Watchdog() override { return *mMachine.mWatchdog; }
  void PassUntilFired(uint32_t aMilliseconds, std::atomic<uint32_t>&) override {
    mMachine.mWatchdog->Advance(aMilliseconds);
  }

 private:
  nsSimulatedMachine mMachine;
};

// Seconds since 1970 of a time's parts; the test fails for parts that make none.
int64_t Seconds(const nsPlatformTime& aTime) {
  using namespace std::chrono;
  const year_month_day date{year(aTime.mYear), month(aTime.mMonth), day(aTime.mDay)};
  EXPECT_TRUE(date.ok()) << aTime.mYear << " " << aTime.mMonth << " " << aTime.mDay;
  EXPECT_EQ(aTime.mDayOfWeek, weekday(sys_days(date)).c_encoding());
  EXPECT_LT(aTime.mHour, 24);
  EXPECT_LT(aTime.mMinute, 60);
  EXPECT_LT(aTime.mMilliseconds, 1000);
  return sys_days(date).time_since_epoch().count() * 86400LL + aTime.mHour * 3600 +
         aTime.mMinute * 60 + aTime.mSecond;
}

// ---- The clock

TEST_P(ClockContract, ATimeIsNoneOrTheReadingsAreOfDifferentMoments) {
  nsPlatformTime utc, local;
  ASSERT_EQ(mMachine->Clock().ReadUtcTime(&utc), NS_OK);
  ASSERT_EQ(mMachine->Clock().ReadLocalTime(&local), NS_OK);
  const int64_t bias = Seconds(local) - Seconds(utc);
  EXPECT_LE(std::abs(bias), 15 * 3600);
  EXPECT_LE((bias % 900 + 900) % 900, 5) << "zones are quarters of an hour apart";
}

TEST_P(ClockContract, TheClockIsSetWithoutTheRight) {
  nsPlatformClock& clock = mMachine->Clock();
  const bool called = mMachine->WithoutTheRight([&] {
    nsPlatformTime before, after;
    ASSERT_EQ(clock.ReadUtcTime(&before), NS_OK);
    uint32_t error = 0;
    EXPECT_EQ(clock.EnablePrivilege(kPrivilegeSystemTime, true, &error),
              NS_ERROR_FILE_ACCESS_DENIED);
    EXPECT_NE(error, 0u);
    nsPlatformTime other = before;
    ++other.mYear;
    error = 0;
    EXPECT_EQ(clock.WriteUtcTime(other, &error), NS_ERROR_FILE_ACCESS_DENIED);
    EXPECT_NE(error, 0u);
    EXPECT_EQ(clock.WriteLocalTime(other, &error), NS_ERROR_FILE_ACCESS_DENIED);
    for (const auto& [month, day] : {std::pair<uint16_t, uint16_t>{13, 1}, {2, 30}, {0, 1}}) {
      other.mMonth = month;
      other.mDay = day;
      EXPECT_TRUE(NS_FAILED(clock.WriteUtcTime(other, &error))) << month << " " << day;
      EXPECT_TRUE(NS_FAILED(clock.WriteLocalTime(other, &error))) << month << " " << day;
    }
    ASSERT_EQ(clock.ReadUtcTime(&after), NS_OK);
    EXPECT_LT(Seconds(after) - Seconds(before), 60);
  });
  if (!called) GTEST_SKIP() << "the right to set the clock can't be given up here";
}

TEST_P(ClockContract, APrivilegeThatIsNoneIsGranted) {
  uint32_t error = 0;
  EXPECT_EQ(mMachine->Clock().EnablePrivilege("SeNothing", true, &error), NS_ERROR_INVALID_ARG);
  for (const auto name : {kPrivilegeSystemTime, kPrivilegeTimeZone}) {
    EXPECT_EQ(mMachine->Clock().EnablePrivilege(name, false, &error), NS_OK) << name;
    EXPECT_EQ(mMachine->Clock().EnablePrivilege(name, false, &error), NS_OK) << name;
  }
}

// ---- The zones

TEST_P(ClockContract, AZonesRulesAreMisreadOrMadeUp) {
  nsPlatformTimeZones& zones = mMachine->Zones();
  nsPlatformZoneRules berlin, tokyo, untouched{.mBias = 7};
  ASSERT_EQ(zones.ReadRules(kBerlin, &berlin), NS_OK);
  EXPECT_TRUE(berlin == BerlinRules());
  ASSERT_EQ(zones.ReadRules(kTokyo, &tokyo), NS_OK);
  EXPECT_EQ(tokyo.mBias, -540);
  EXPECT_EQ(tokyo.mStandardDate.mMonth, 0);
  EXPECT_EQ(tokyo.mDaylightDate.mMonth, 0);
  EXPECT_EQ(zones.ReadRules(kAtlantis, &untouched), NS_ERROR_NOT_AVAILABLE);
  EXPECT_TRUE(untouched == nsPlatformZoneRules{.mBias = 7});
}

TEST_P(ClockContract, AZoneThatIsNotThereHasANameOrAnotherIsFoundForIt) {
  nsPlatformTimeZones& zones = mMachine->Zones();
  EXPECT_EQ(zones.FindZone(kBerlin), NS_OK);
  std::u16string name, untouched = u"untouched";
  EXPECT_EQ(zones.ReadStandardName(kBerlin, &name), NS_OK);
  EXPECT_FALSE(name.empty());
  EXPECT_EQ(zones.ReadDaylightName(kBerlin, &name), NS_OK);
  EXPECT_FALSE(name.empty());
  EXPECT_EQ(zones.ReadDaylightName(kTokyo, &untouched), NS_ERROR_NOT_AVAILABLE);
  EXPECT_TRUE(zones.IsSameZone(kBerlin, "Europe/Berlin"));
  EXPECT_FALSE(zones.IsSameZone(kBerlin, "Asia/Tokyo"));
  for (const nsPlatformZoneName& none :
       {kAtlantis, nsPlatformZoneName{u"", ""}, nsPlatformZoneName{u"..", "../zoneinfo"}}) {
    EXPECT_EQ(zones.FindZone(none), NS_ERROR_NOT_AVAILABLE) << none.mOlsonName;
    EXPECT_EQ(zones.ReadStandardName(none, &untouched), NS_ERROR_NOT_AVAILABLE);
    EXPECT_FALSE(zones.IsSameZone(none, none.mOlsonName));
  }
  EXPECT_EQ(untouched, u"untouched");
}

TEST_P(ClockContract, AZoneThatWasSetIsNotTheOneThatIsRead) {
  uint32_t error = 0;
  ASSERT_EQ(mMachine->Clock().EnablePrivilege(kPrivilegeTimeZone, true, &error), NS_OK);
  for (const nsPlatformZoneName& zone : {kTokyo, kBerlin}) {
    ASSERT_EQ(mMachine->Zones().WriteCurrentZone(zone, {}, &error), NS_OK);
    std::string olson;
    std::u16string standard;
    const nsresult byOlson = mMachine->Zones().ReadCurrentOlsonName(&olson);
    const nsresult byStandard = mMachine->Zones().ReadCurrentStandardName(&standard);
    EXPECT_TRUE(byOlson == NS_OK || byStandard == NS_OK);
    if (byOlson == NS_OK) {
      EXPECT_EQ(olson, zone.mOlsonName);
    }
    if (byStandard == NS_OK) {
      EXPECT_EQ(standard, zone.mStandardName);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Simulated, ClockContract,
    testing::Values(NS_ContractBackend<nsClockMachine, SimulatedClock>("machine")));

// ---- The host

TEST_P(HostContract, ALongHostNameIsCut) {
  std::string name, uncut = "untouched";
  ASSERT_EQ(mMachine->Host().ReadHostName(64, &name), NS_OK);
  EXPECT_FALSE(name.empty());
  const auto length = static_cast<uint32_t>(name.size());
  EXPECT_TRUE(NS_FAILED(mMachine->Host().ReadHostName(length, &uncut)));
  EXPECT_EQ(uncut, "untouched");
  EXPECT_EQ(mMachine->Host().ReadHostName(length + 1, &uncut), NS_OK);
  EXPECT_EQ(uncut, name);
}

TEST_P(HostContract, ThePlatformHasNoSystemOrNoArchitecture) {
  std::string name;
  ASSERT_EQ(mMachine->Host().ReadPlatformName(&name), NS_OK);
  const size_t dash = name.find('-');
  EXPECT_TRUE(dash != name.npos && dash > 0 && dash + 1 < name.size()) << name;
}

TEST_P(HostContract, TheCursorsCounterForgetsAStep) {
  int32_t counter = 7;
  for (const auto& [show, expected] :
       {std::pair{false, -1}, {false, -2}, {true, -1}, {true, 0}, {true, 1}, {false, 0}}) {
    ASSERT_EQ(mMachine->Host().StepCursorCounter(show, &counter), NS_OK);
    EXPECT_EQ(counter, expected);
  }
}

TEST_P(HostContract, ACommandsEndIsLostOrItCannotBeEnded) {
  const auto run = [&](const std::string& aLine, bool aCancel) {
    nsPlatformHost::CommandHandle command = 0;
    int32_t error = 0, status = -1;
    EXPECT_EQ(mMachine->Host().StartCommand(aLine, &command, &error), NS_OK);
    EXPECT_TRUE(!aCancel || NS_SUCCEEDED(mMachine->Host().CancelCommand(command)));
    EXPECT_EQ(mMachine->Host().WaitForCommand(command, &status), NS_OK);
    // Its number may be that of another process by now.
    EXPECT_EQ(mMachine->Host().CancelCommand(command), NS_ERROR_NOT_AVAILABLE);
    return status;
  };
  mMachine->Expect("exit 0", 0);
  mMachine->Expect("exit 3", 3);
  mMachine->Expect("sleep 1000 | sleep 1000", std::nullopt);
  EXPECT_EQ(run("exit 0", false), 0);
  EXPECT_EQ(run("exit 3", false), 3);
  EXPECT_EQ(run("/nowhere/command 2>/dev/null", false), 127);
  EXPECT_EQ(run("sleep 1000 | sleep 1000", true), 128 + 15);
}

INSTANTIATE_TEST_SUITE_P(
    Simulated, HostContract,
    testing::Values(NS_ContractBackend<nsHostMachine, SimulatedHost>("machine")));

// ---- The watchdog

std::atomic<uint32_t> gFired{0};
void Fire(nsPlatformWatchdog&) {
  ++gFired;
  gFired.notify_all();
}

TEST_P(WatchdogContract, ATimerRunsTwiceOrIsStoppedByAnotherId) {
  nsPlatformWatchdog& watchdog = mMachine->Watchdog();
  uint32_t id = 0, other = 77;
  ASSERT_EQ(watchdog.StartTimer(100'000, 1, Fire, nsPlatformWatchdog::kKillSynchronous, &id),
            NS_OK);
  EXPECT_NE(id, 0u);
  EXPECT_EQ(watchdog.StartTimer(100'000, 1, Fire, nsPlatformWatchdog::kOneShot, &other),
            NS_ERROR_NOT_AVAILABLE);
  EXPECT_EQ(other, 77u);
  EXPECT_EQ(watchdog.StopTimer(id + 1), NS_ERROR_FAILURE);
  EXPECT_EQ(watchdog.StopTimer(0), NS_ERROR_FAILURE);
  EXPECT_EQ(watchdog.StopTimer(id), NS_OK);
  EXPECT_EQ(watchdog.StopTimer(id), NS_ERROR_FAILURE);
  ASSERT_EQ(watchdog.StartTimer(100'000, 1, Fire, nsPlatformWatchdog::kOneShot, &other), NS_OK);
  EXPECT_NE(other, id) << "an old id stops a new timer";
  EXPECT_EQ(watchdog.StopTimer(other), NS_OK);
}

TEST_P(WatchdogContract, ATimerDoesNotFireOnceOrRunsOn) {
  nsPlatformWatchdog& watchdog = mMachine->Watchdog();
  ASSERT_EQ(watchdog.BeginPeriod(5), NS_OK);
  gFired = 0;
  for (uint32_t round = 1; round <= 2; ++round) {
    uint32_t id = 0;
    ASSERT_EQ(watchdog.StartTimer(20, 5, Fire, nsPlatformWatchdog::kKillSynchronous, &id), NS_OK);
    mMachine->PassUntilFired(30, gFired);
    EXPECT_EQ(gFired, round);
    EXPECT_EQ(watchdog.StopTimer(id), NS_ERROR_FAILURE);
  }
}

TEST_P(WatchdogContract, TheDevicesPeriodsOrTheErrorModeAreNotKept) {
  nsPlatformWatchdog& watchdog = mMachine->Watchdog();
  uint32_t smallest = 0, largest = 0, mode = 77;
  ASSERT_EQ(watchdog.ReadCapabilities(&smallest, &largest), NS_OK);
  EXPECT_GT(smallest, 0u);
  EXPECT_LE(smallest, largest);
  for (const uint32_t wanted : {0x8003u, 0u}) {
    ASSERT_EQ(watchdog.WriteErrorMode(wanted), NS_OK);
    ASSERT_EQ(watchdog.ReadErrorMode(&mode), NS_OK);
    EXPECT_EQ(mode, wanted);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Simulated, WatchdogContract,
    testing::Values(NS_ContractBackend<nsWatchdogMachine, SimulatedWatchdog>("machine")));

}  // namespace

// The zones of this system's zone data, against the C library's reading of the same data; and the
// setting of a zone, under a root of the test's own.
#include <gtest/gtest.h>
#include <linux/rtc.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>

#include "nsLinuxClock.h"
#include "nsLinuxTimeZones.h"
#include "nsMutation.h"
#include "nsSimulatedClock.h"
#include "nsString.h"
#include "nsSystemClock.h"
#include "nsTimeZoneTable.h"

namespace fs = std::filesystem;

namespace {

/// While the clocks are held, what would set them is kept here.
struct Held {
  bool mIsHeld = false;
  int mError = 0;
  time_t mTime = 0;
  rtc_time mHardware{};
};
Held gHeld;

}  // namespace

// The linker puts these in the place of the C library's functions.
extern "C" {
int __real_clock_settime(clockid_t, const timespec*);
int __real_ioctl(int, unsigned long, void*);

int __wrap_clock_settime(clockid_t aClock, const timespec* aTime) {
  if (!gHeld.mIsHeld) return __real_clock_settime(aClock, aTime);
  gHeld.mTime = aTime->tv_sec;
  return 0;
}
int __wrap_ioctl(int aFd, unsigned long aRequest, void* aData) {
  if (!gHeld.mIsHeld || aRequest != RTC_SET_TIME) return __real_ioctl(aFd, aRequest, aData);
  gHeld.mHardware = *static_cast<const rtc_time*>(aData);
  errno = gHeld.mError;
  return gHeld.mError == 0 ? 0 : -1;
}
}

namespace {

constexpr char kZoneData[] = "/usr/share/zoneinfo";

class LinuxZones : public testing::Test {
 protected:
  void SetUp() override {
    if (!fs::exists(std::string(kZoneData) + "/Europe/Berlin"))
      GTEST_SKIP() << "there is no zone data on this system";
    char path[] = "/tmp/vorel-zones-XXXXXX";
    ASSERT_NE(mkdtemp(path), nullptr);
    mRoot = path;
    fs::create_directories(mRoot / "etc");
    fs::create_directories(mRoot / "usr/share");
    fs::create_directory_symlink(kZoneData, mRoot / "usr/share/zoneinfo");
  }
  void TearDown() override {
    if (!mRoot.empty()) fs::remove_all(mRoot);
  }
  nsCOMPtr<nsISystemClock> Clock() const {
    auto platform = std::make_shared<nsPlatform>();
    platform->mClock = std::make_shared<nsLinuxClock>(mRoot.string());
    platform->mTimeZones = std::make_shared<nsLinuxTimeZones>(mRoot.string());
    return MakeRefCounted<nsSystemClock>(std::move(platform));
  }
  std::string Current() const {
    nsCString name("untouched");
    EXPECT_EQ(Clock()->GetTimezone(name), NS_OK);
    return std::string(name.view());
  }

  fs::path mRoot;
};

// What the C library makes of a zone from a time on to another, hour by hour, in the process of its
// own that this needs: "change offset;" for each change.
std::string ChangesByLibc(const std::string& aZone, int64_t aFrom, int64_t aTo) {
  int ends[2];
  if (pipe(ends) != 0) return "no pipe";
  const pid_t child = fork();
  if (child == 0) {
    setenv("TZ", (":" + aZone).c_str(), 1);
    tzset();
    std::string text;
    long last = 1;
    for (time_t at = aFrom; at < aTo; at += 900) {
      tm parts;
      localtime_r(&at, &parts);
      if (parts.tm_gmtoff == last) continue;
      last = parts.tm_gmtoff;
      text += std::to_string(at) + " " + std::to_string(last) + ";";
    }
    const bool whole = write(ends[1], text.data(), text.size()) == ssize_t(text.size());
    _exit(whole ? 0 : 1);
  }
  close(ends[1]);
  std::string text;
  char buffer[4096];
  for (ssize_t got; (got = read(ends[0], buffer, sizeof buffer)) > 0;)
    text.append(buffer, static_cast<size_t>(got));
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  return status == 0 ? text : "the child failed";
}

std::string ChangesByRules(const nsPlatformZoneRules& aRules, int64_t aFrom, int64_t aTo) {
  std::string text;
  int64_t last = 1;
  for (int64_t at = aFrom; at < aTo; at += 900) {
    const int64_t offset = -NS_ZoneBiasAt(aRules, at) * 60;
    if (offset == last) continue;
    last = offset;
    text += std::to_string(at) + " " + std::to_string(last) + ";";
  }
  return text;
}

TEST_F(LinuxZones, TheRulesSayAnotherTimeThanTheSystem) {
  using namespace std::chrono;
  nsLinuxTimeZones zones;
  const year thisYear = year_month_day(floor<days>(system_clock::now())).year();
  const auto start = [](year aYear) {
    return sys_seconds(sys_days(aYear / January / 1)).time_since_epoch().count();
  };
  std::map<std::string_view, bool> seen;
  size_t ofOneYear = 0, ofNewLaw = 0;
  const int64_t now =
      duration_cast<seconds>(system_clock::now().time_since_epoch()).count() / 900 * 900;
  for (const nsTimeZoneRow& row : kTimeZoneTable) {
    if (NS_FAILED(zones.FindZone(row)) || !seen.emplace(row.mOlsonName, true).second) continue;
    nsPlatformZoneRules rules;
    ASSERT_EQ(zones.ReadRules(row, &rules), NS_OK) << row.mOlsonName;
    const std::string name(row.mOlsonName);
    // The 44 bytes can tell of one year only where no yearly date fits both.
    const bool oneYear = rules.mStandardDate.mYear != 0;
    ofOneYear += oneYear;
    // Each year begins, on the wall, up to 14 hours before or after UTC's.
    const int64_t from = start(thisYear) + 16 * 3600;
    const int64_t to = start(thisYear + years(oneYear ? 1 : 2)) - 16 * 3600;
    if (ChangesByRules(rules, from, to) == ChangesByLibc(name, from, to)) continue;
    // A country that has changed its law this year: the present rules hold from now on.
    ++ofNewLaw;
    EXPECT_EQ(ChangesByRules(rules, now, to), ChangesByLibc(name, now, to)) << name;
  }
  EXPECT_LE(ofNewLaw, 3u) << "zones whose rules are not those of the whole of this year";
  EXPECT_GT(seen.size(), 180u);
  EXPECT_LE(ofOneYear, 6u) << "zones whose changes follow no yearly date, Morocco's for one";
}

TEST_F(LinuxZones, AZoneThatWasSetIsNotTheOneThatIsRead) {
  nsLinuxTimeZones zones;
  const auto clock = Clock();
  for (const nsTimeZoneRow& row : kTimeZoneTable) {
    if (NS_FAILED(zones.FindZone(row))) continue;
    EXPECT_EQ(clock->SetTimezone(nsCString(row.mOlsonName)), NS_OK) << row.mOlsonName;
    EXPECT_EQ(Current(), row.mOlsonName);
  }
  // Nothing but the link is left behind, and it is one that works on the running system.
  EXPECT_EQ(std::distance(fs::directory_iterator(mRoot / "etc"), {}), 1);
  EXPECT_EQ(fs::read_symlink(mRoot / "etc/localtime"),
            std::string(kZoneData) + "/" + std::string(kTimeZoneTable.back().mOlsonName));
}

TEST_F(LinuxZones, AZoneSetInAnotherWayIsNotRecognised) {
  EXPECT_EQ(Current(), "UTC");  // nothing is set
  const fs::path link = mRoot / "etc/localtime";
  fs::create_symlink("../usr/share/zoneinfo/Europe/Kyiv", link);
  EXPECT_EQ(Current(), "Europe/Kyiv");
  fs::remove(link);
  fs::create_symlink("/usr/share/zoneinfo/right/Asia/Tokyo", link);
  EXPECT_EQ(Current(), "Asia/Tokyo");
  fs::remove(link);
  fs::copy_file(std::string(kZoneData) + "/Europe/Berlin", link);
  EXPECT_EQ(Current(), "Europe/Berlin");  // not one of the others that have the same bytes
  std::ofstream(link) << "TZif, or so it says";
  nsCString name("untouched");
  EXPECT_EQ(Clock()->GetTimezone(name), NS_ERROR_FAILURE);
  EXPECT_EQ(name.view(), "untouched");
}

TEST_F(LinuxZones, AZoneOfTheSystemThatTheTableLacksCantBeSet) {
  for (const char* name : {"Europe/Madrid", "UTC"}) {
    EXPECT_EQ(Clock()->SetTimezone(nsCString(name)), NS_OK);
    EXPECT_EQ(Current(), name);
  }
  EXPECT_EQ(Clock()->SetTimezone(nsCString("Asia/Kolkata")), NS_OK);
  EXPECT_EQ(Current(), "Asia/Calcutta") << "the same zone by the name that applications know";
  for (const char* name : {"", "localtime", "posixrules", "Europe", "Europe/Atlantis", "../Berlin"})
    EXPECT_EQ(Clock()->SetTimezone(nsCString(name)), NS_ERROR_FAILURE) << name;
  EXPECT_EQ(Current(), "Asia/Calcutta");
}

TEST_F(LinuxZones, ACopyOfNoPresentFileIsTakenForAZone) {
  fs::remove(mRoot / "usr/share/zoneinfo");
  fs::create_directories(mRoot / "usr/share/zoneinfo/Europe");
  fs::copy_file(std::string(kZoneData) + "/Europe/Berlin",
                mRoot / "usr/share/zoneinfo/Europe/Berlin");
  // As distributions have it; it leads to the copy itself.
  fs::create_symlink(mRoot / "etc/localtime", mRoot / "usr/share/zoneinfo/localtime");
  fs::copy_file(std::string(kZoneData) + "/Asia/Tokyo", mRoot / "etc/localtime");
  nsCString name("untouched");
  EXPECT_EQ(Clock()->GetTimezone(name), NS_ERROR_FAILURE);
  EXPECT_EQ(name.view(), "untouched");
}

TEST_F(LinuxZones, ALinkOverOthersIsNotFollowed) {
  fs::create_symlink(mRoot / "usr/share/zoneinfo/Europe/Warsaw", mRoot / "etc/zone");
  fs::create_symlink("zone", mRoot / "etc/localtime");
  EXPECT_EQ(Current(), "Europe/Warsaw");
}

TEST_F(LinuxZones, TheNameBesideTheLinkStaysBehind) {
  std::ofstream(mRoot / "etc/timezone") << "Europe/Berlin\n";
  ASSERT_EQ(Clock()->SetTimezone(nsCString("Asia/Tokyo")), NS_OK);
  std::string name;
  std::getline(std::ifstream(mRoot / "etc/timezone") >> std::ws, name);
  EXPECT_EQ(name, "Asia/Tokyo");
  EXPECT_EQ(std::distance(fs::directory_iterator(mRoot / "etc"), {}), 2);
}

TEST_F(LinuxZones, ARefusedChangeLeavesTheSystemWithoutAZone) {
  nsLinuxTimeZones zones(mRoot.string());
  uint32_t error = 0;
  ASSERT_EQ(zones.WriteCurrentZone({u"", "Asia/Tokyo"}, {}, &error), NS_OK);
  EXPECT_EQ(zones.WriteCurrentZone({u"", "Asia/Atlantis"}, {}, &error), NS_ERROR_NOT_AVAILABLE);
  EXPECT_EQ(zones.WriteCurrentZone({u"", "../../../etc/passwd"}, {}, &error),
            NS_ERROR_NOT_AVAILABLE);
  EXPECT_EQ(Current(), "Asia/Tokyo");
  fs::remove_all(mRoot / "etc");
  EXPECT_EQ(zones.WriteCurrentZone({u"", "Asia/Tokyo"}, {}, &error), NS_ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(error, uint32_t{ENOENT});
}

TEST(LinuxClock, TheClockIsSetWithoutTheRight) {
  // In a process that has given up the right for good, so that this machine's clock is safe.
  const pid_t child = fork();
  if (child == 0) {
    if (setgid(65534) != 0 || setuid(65534) != 0) _exit(2);
    nsLinuxClock clock;
    uint32_t error = 0;
    if (clock.EnablePrivilege(kPrivilegeSystemTime, true, &error) != NS_ERROR_FILE_ACCESS_DENIED)
      _exit(3);
    nsPlatformTime time;
    if (NS_FAILED(clock.ReadUtcTime(&time))) _exit(4);
    if (clock.WriteUtcTime(time, &error) != NS_ERROR_FILE_ACCESS_DENIED || error == 0) _exit(5);
    time.mMonth = 13;
    if (clock.WriteUtcTime(time, &error) != NS_ERROR_INVALID_ARG) _exit(6);
    time.mMonth = 2;
    time.mDay = 30;
    if (clock.WriteLocalTime(time, &error) != NS_ERROR_INVALID_ARG) _exit(7);
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (WEXITSTATUS(status) == 2) GTEST_SKIP() << "this process may not become another user";
  EXPECT_EQ(status, 0);
}

class HeldClock : public testing::Test {
 protected:
  void SetUp() override {
    gHeld = {.mIsHeld = true};
    mZone = getenv("TZ") ? getenv("TZ") : "";
  }
  void TearDown() override {
    gHeld = {};
    mZone.empty() ? unsetenv("TZ") : setenv("TZ", mZone.c_str(), 1);
    tzset();
  }
  std::string mZone;
};

TEST_F(HeldClock, ASkippedHourThatTouchesMidnightIsRefused) {
  // The clocks went from 1 November 2015, 00:00, to 01:00 in one, and from 26 March 2017, 00:00, in
  // the other.
  for (const auto& [zone, time] : std::initializer_list<std::pair<const char*, nsPlatformTime>>{
           {"America/Sao_Paulo", {.mYear = 2015, .mMonth = 10, .mDay = 18, .mMinute = 30}},
           {"Asia/Beirut", {.mYear = 2017, .mMonth = 3, .mDay = 26, .mMinute = 30}}}) {
    setenv("TZ", zone, 1);
    tzset();
    nsLinuxClock clock;
    uint32_t error = 0;
    EXPECT_EQ(clock.WriteLocalTime(time, &error), NS_OK) << zone;
    // Half an hour before the change, or after it.
    tm change{};
    change.tm_year = time.mYear - 1900;
    change.tm_mon = time.mMonth - 1;
    change.tm_mday = time.mDay;
    change.tm_hour = 1;
    change.tm_isdst = -1;
    EXPECT_EQ(std::abs(gHeld.mTime - mktime(&change)), 1800) << zone;
  }
}

TEST_F(HeldClock, TheTimeIsGoneWithThePower) {
  char path[] = "/tmp/vorel-rtc-XXXXXX";
  ASSERT_NE(mkdtemp(path), nullptr);
  const fs::path root(path);
  nsLinuxClock clock(root.string());
  uint32_t error = 0;
  EXPECT_EQ(clock.WriteHardwareClock(&error), NS_ERROR_NOT_AVAILABLE) << "there is none";

  fs::create_directories(root / "dev");
  fs::create_directories(root / "etc");
  std::ofstream(root / "dev/rtc0").close();
  setenv("TZ", "Asia/Tokyo", 1);
  tzset();
  const auto difference = [&] {
    EXPECT_EQ(clock.WriteHardwareClock(&error), NS_OK);
    tm parts{};
    parts.tm_year = gHeld.mHardware.tm_year;
    parts.tm_mon = gHeld.mHardware.tm_mon;
    parts.tm_mday = gHeld.mHardware.tm_mday;
    parts.tm_hour = gHeld.mHardware.tm_hour;
    parts.tm_min = gHeld.mHardware.tm_min;
    parts.tm_sec = gHeld.mHardware.tm_sec;
    return static_cast<double>(timegm(&parts) - time(nullptr));
  };
  EXPECT_NEAR(difference(), 0, 2);
  std::ofstream(root / "etc/adjtime") << "0.0 0 0.0\n0\nLOCAL\n";
  EXPECT_NEAR(difference(), 9 * 3600, 2);
  std::ofstream(root / "etc/adjtime") << "0.0 0 0.0\n0\nUTC\n";
  EXPECT_NEAR(difference(), 0, 2);
  gHeld.mError = EACCES;
  EXPECT_EQ(clock.WriteHardwareClock(&error), NS_ERROR_FILE_ACCESS_DENIED);
  EXPECT_EQ(error, uint32_t{EACCES});
  fs::remove_all(root);
}

TEST(LinuxClock, ReadTimesAreNotTheSystems) {
  nsLinuxClock clock;
  nsPlatformTime utc, local;
  const time_t before = time(nullptr);
  ASSERT_EQ(clock.ReadUtcTime(&utc), NS_OK);
  ASSERT_EQ(clock.ReadLocalTime(&local), NS_OK);
  const auto join = [](const nsPlatformTime& aTime) {
    return tm{.tm_sec = aTime.mSecond,
              .tm_min = aTime.mMinute,
              .tm_hour = aTime.mHour,
              .tm_mday = aTime.mDay,
              .tm_mon = aTime.mMonth - 1,
              .tm_year = aTime.mYear - 1900,
              .tm_wday = 0,
              .tm_yday = 0,
              .tm_isdst = -1,
              .tm_gmtoff = 0,
              .tm_zone = nullptr};
  };
  tm utcParts = join(utc), localParts = join(local);
  EXPECT_NEAR(double(timegm(&utcParts)), double(before), 2);
  EXPECT_NEAR(double(mktime(&localParts)), double(before), 2);
}

TEST(ZoneRule, ARuleIsMisread) {
  const auto rule = nsZoneRule::Parse("<-02>2<-01>,M3.5.0/-1,M10.5.0/0");
  ASSERT_TRUE(rule && rule->mDaylight);
  EXPECT_EQ(rule->mStandard.mOffset, -7200);
  EXPECT_EQ(rule->mStandard.mName, "-02");
  EXPECT_EQ(rule->mDaylight->mOffset, -3600);
  EXPECT_EQ(rule->mDaylightFrom.mTime, -3600);
  EXPECT_EQ(rule->mStandardFrom.mTime, 0);
  std::vector<nsZoneChange> changes;
  nsZoneRule::Parse("XXX5YYY,J60/0,59/0")->AppendChanges(2028, &changes);
  EXPECT_EQ(changes.at(0).mAt, 1835496000 + 3600);  // 1 March 2028, 00:00 at UTC-5
  EXPECT_EQ(changes.at(1).mAt, 1835409600);         // 29 February 2028, 00:00 at UTC-4
  for (const char* bad : {"", "CE", "CET", "CET-", "CET-1CEST,", "CET-1CEST,M3.5.0", "<CET-1",
                          "CET-1CEST,M13.5.0,M10.5.0", "CET-1CEST,M3.6.0,M10.5.0", "CET-1 ",
                          "CET-1CEST,M3.5.0/168,M10.5.0", "CET-25", "CET-1CEST,J0,J1"})
    EXPECT_FALSE(nsZoneRule::Parse(bad)) << bad;
}

TEST(ZoneFile, DamagedBytesAreReadBeyondTheirEndOrDescribedWrongly) {
  std::ifstream file(std::string(kZoneData) + "/Africa/Casablanca", std::ios::binary);
  const std::string good{std::istreambuf_iterator<char>(file), {}};
  if (good.empty()) GTEST_SKIP() << "there is no zone data on this system";
  ASSERT_TRUE(nsZoneFile::Parse(good));
  const auto use = [](const std::string& aBytes) {
    const auto zone = nsZoneFile::Parse(aBytes);
    if (!zone) return;
    const auto rules = zone->Describe(1'800'000'000).mRules;
    EXPECT_LE(std::abs(rules.mBias), 26 * 60);
    EXPECT_LE(rules.mStandardDate.mMonth, 12);
    EXPECT_LE(rules.mDaylightDate.mHour, 23);
  };
  for (size_t length = 0; length < good.size(); ++length) {
    EXPECT_FALSE(nsZoneFile::Parse(good.substr(0, length))) << length;
  }
  nsMutation mutation;
  for (int round = 0; round < 20'000; ++round) {
    std::string bytes = mutation.Damage(good, "\xFF\x7F,/0");
    // Some of them where the counts and the rule stand.
    if (round % 3 == 0) bytes[20 + mutation.Below(24)] ^= 1;
    if (round % 3 == 1) bytes[bytes.size() - 1 - mutation.Below(10)] ^= 1;
    use(bytes);
  }
}

}  // namespace

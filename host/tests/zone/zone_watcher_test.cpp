// A changed time zone, in processes of their own: a zone is a process's.
#include <stdlib.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "nsTestHost.h"

namespace {

int RunInProcess(void (*aFunction)()) {
  const pid_t child = fork();
  if (child == 0) {
    aFunction();
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status);
}

TEST(ZoneWatcher, TheProcessKeepsItsOldZoneOrCannotDoWithoutScript) {
  if (access("/usr/share/zoneinfo/Asia/Tokyo", R_OK) != 0)
    GTEST_SKIP() << "there is no zone data on this system";
  EXPECT_EQ(RunInProcess([] {
              setenv("TZ", "America/New_York", 1);
              tzset();
              auto* host = new nsHost;
              if (NS_FAILED(host->Start({}))) _exit(1);
              const auto change = [](const char16_t* aZone) {
                return do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID)
                    ->NotifyObservers(nullptr, "system-timezone-changed", aZone);
              };
              const auto offset = [] {
                const time_t now = time(nullptr);
                tm parts;
                localtime_r(&now, &parts);
                return parts.tm_gmtoff / 3600;
              };
              if (NS_FAILED(change(u"Asia/Tokyo")) || offset() != 9) _exit(2);
              (void)change(u"No/Such_Zone");
              if (NS_FAILED(change(u"Asia/Kolkata")) || offset() != 5) _exit(3);
            }),
            0);
}

}  // namespace

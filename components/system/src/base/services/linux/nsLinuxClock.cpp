#include "nsLinuxClock.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <linux/rtc.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

#include "nsErrno.h"
#include "nsUniqueFd.h"

namespace {

nsPlatformTime FromParts(const tm& aParts, long aNanoseconds) {
  const auto narrow = [](auto aValue) { return static_cast<uint16_t>(aValue); };
  return {.mYear = narrow(aParts.tm_year + 1900),
          .mMonth = narrow(aParts.tm_mon + 1),
          .mDayOfWeek = narrow(aParts.tm_wday),
          .mDay = narrow(aParts.tm_mday),
          .mHour = narrow(aParts.tm_hour),
          .mMinute = narrow(aParts.tm_min),
          .mSecond = narrow(aParts.tm_sec),
          .mMilliseconds = narrow(aNanoseconds / 1'000'000)};
}

nsresult ReadTime(tm* (*aSplit)(const time_t*, tm*), nsPlatformTime* aTime) {
  timespec now;
  tm parts;
  if (clock_gettime(CLOCK_REALTIME, &now) != 0 || !aSplit(&now.tv_sec, &parts))
    return NS_ERROR_FAILURE;
  *aTime = FromParts(parts, now.tv_nsec);
  return NS_OK;
}

nsresult WriteTime(time_t (*aJoin)(tm*), const nsPlatformTime& aTime, uint32_t* aError) {
  tm parts{};
  parts.tm_year = aTime.mYear - 1900;
  parts.tm_mon = aTime.mMonth - 1;
  parts.tm_mday = aTime.mDay;
  parts.tm_hour = aTime.mHour;
  parts.tm_min = aTime.mMinute;
  parts.tm_sec = aTime.mSecond;
  parts.tm_isdst = -1;
  // Joining turns a 30 February into March, and a date that does not exist is refused. In UTC: the
  // hour that daylight time leaves out is a time that can be meant, and may come out another one,
  // of another day where it is the first or the last.
  tm date = parts;
  (void)timegm(&date);
  const time_t seconds = aJoin(&parts);
  if (aTime.mHour > 23 || aTime.mMinute > 59 || aTime.mSecond > 59 || date.tm_mday != aTime.mDay ||
      date.tm_mon + 1 != aTime.mMonth || date.tm_year + 1900 != aTime.mYear) {
    *aError = EINVAL;
    return NS_ERROR_INVALID_ARG;
  }
  const timespec time{.tv_sec = seconds, .tv_nsec = aTime.mMilliseconds * 1'000'000L};
  if (clock_settime(CLOCK_REALTIME, &time) == 0) return NS_OK;
  *aError = static_cast<uint32_t>(errno);
  return NS_LastResult();
}

nsresult EnableTimeCapability(bool aEnable, uint32_t* aError) {
  __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
  __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3];
  constexpr uint32_t kBit = CAP_TO_MASK(CAP_SYS_TIME);
  auto& set = sets[CAP_TO_INDEX(CAP_SYS_TIME)];
  if (syscall(SYS_capget, &header, sets) == 0) {
    set.effective = aEnable ? set.effective | kBit : set.effective & ~kBit;
    // Raising what is not permitted fails, as it should.
    if (syscall(SYS_capset, &header, sets) == 0) return NS_OK;
  }
  *aError = static_cast<uint32_t>(errno);
  return NS_ERROR_FILE_ACCESS_DENIED;
}

// The third line of the file in which the system keeps how its hardware clock is to be read.
bool IsHardwareClockLocal(const std::string& aAdjustments) {
  std::ifstream file(aAdjustments);
  std::string line;
  for (int i = 0; i < 3; ++i)
    if (!std::getline(file, line)) return false;
  return line.starts_with("LOCAL");
}

}  // namespace

nsresult nsLinuxClock::WriteHardwareClock(uint32_t* aError) {
  const auto fail = [&] {
    const int error = errno;
    *aError = static_cast<uint32_t>(error);
    return error == ENOENT || error == ENXIO || error == ENODEV ? NS_ERROR_NOT_AVAILABLE
                                                                : NS_ResultOfErrno(error);
  };
  nsUniqueFd device(open((mRoot + "/dev/rtc").c_str(), O_RDONLY | O_CLOEXEC));
  if (!device && errno == ENOENT)
    device = nsUniqueFd(open((mRoot + "/dev/rtc0").c_str(), O_RDONLY | O_CLOEXEC));
  if (!device) return fail();
  const bool local = IsHardwareClockLocal(mRoot + "/etc/adjtime");
  if (local) tzset();
  const time_t now = time(nullptr);
  tm parts;
  (void)(local ? localtime_r(&now, &parts) : gmtime_r(&now, &parts));
  const rtc_time time{.tm_sec = parts.tm_sec,
                      .tm_min = parts.tm_min,
                      .tm_hour = parts.tm_hour,
                      .tm_mday = parts.tm_mday,
                      .tm_mon = parts.tm_mon,
                      .tm_year = parts.tm_year,
                      .tm_wday = parts.tm_wday,
                      .tm_yday = 0,
                      .tm_isdst = 0};
  return ioctl(device.get(), RTC_SET_TIME, &time) == 0 ? NS_OK : fail();
}

nsresult nsLinuxClock::ReadLocalTime(nsPlatformTime* aTime) {
  tzset();  // localtime_r alone would not notice that the zone has changed
  return ReadTime(localtime_r, aTime);
}

nsresult nsLinuxClock::ReadUtcTime(nsPlatformTime* aTime) { return ReadTime(gmtime_r, aTime); }

nsresult nsLinuxClock::WriteLocalTime(const nsPlatformTime& aTime, uint32_t* aError) {
  return WriteTime(mktime, aTime, aError);
}

nsresult nsLinuxClock::WriteUtcTime(const nsPlatformTime& aTime, uint32_t* aError) {
  return WriteTime(timegm, aTime, aError);
}

nsresult nsLinuxClock::EnablePrivilege(std::string_view aName, bool aEnable, uint32_t* aError) {
  if (aName == kPrivilegeSystemTime) return EnableTimeCapability(aEnable, aError);
  if (aName != kPrivilegeTimeZone) {
    *aError = EINVAL;
    return NS_ERROR_INVALID_ARG;
  }
  if (!aEnable || access((mRoot + "/etc").c_str(), W_OK) == 0) return NS_OK;
  *aError = static_cast<uint32_t>(errno);
  return NS_ERROR_FILE_ACCESS_DENIED;
}

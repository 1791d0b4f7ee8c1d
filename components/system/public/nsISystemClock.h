// The machine's wall clock and time zone: "@vorel/system/clock;1".
#pragma once

#include "nsXPCOMTypes.h"

/// One object a process. Main thread.
///
/// A time is a text: month, day, hour and minute of two digits each, the year, a point, the seconds
/// of two digits. Five seconds after 15:04 on 2 January 2014 is "010215042014.05". Texts that are
/// read may leave out the point and the seconds, which are zero then.
///
/// A zone is an Olson name, "Europe/Berlin".
class nsISystemClock : public nsISupports {
 public:
  using Self = nsISystemClock;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsISystemClock";
  static constexpr nsIID kIID = "440ca2a0-f3a4-41e9-bb42-1926e2537e54"_iid;

  /// The zone that the machine is set to. A success that leaves the string as it is: the machine's
  /// zone has no Olson name that could be found. NS_ERROR_FAILURE when the machine does not tell.
  virtual nsresult GetTimezone(nsACString& aTimezone) = 0;
  /// Sets the machine's zone, for all processes and for good. Running script sees it at once.
  /// NS_ERROR_FAILURE for a name that is not known, that the machine has no definition of, or that
  /// this process may not set; the zone stays as it was.
  virtual nsresult SetTimezone(const nsACString& aTimezone) = 0;
  /// The time in the machine's zone.
  virtual nsresult GetLocalTime(nsACString& aLocalTime) = 0;
  /// Sets the clock. NS_ERROR_FAILURE for a text that is no time, a time that does not exist, or
  /// without the right to do so; the clock stays as it was. Takes 10 ms.
  virtual nsresult SetLocalTime(const nsACString& aLocalTime) = 0;
  /// The time in UTC.
  virtual nsresult GetUtcTime(nsACString& aUtcTime) = 0;
  /// As SetLocalTime, but takes no time.
  virtual nsresult SetUtcTime(const nsACString& aUtcTime) = 0;
  /// The zones that can be set, sorted by byte. A name for which the machine has several
  /// definitions stands there as many times. The machine is looked at by the first call of a
  /// process; later ones answer the same. Array and strings are the caller's, to be freed with
  /// NS_Free.
  virtual nsresult GetSupportedTimezones(uint32_t* aCount, char*** aTimezones) = 0;

 protected:
  ~nsISystemClock() = default;
};

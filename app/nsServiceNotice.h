// What a service tells its manager: that it is ready, that it lives, and that it ends.
#pragma once

#include "nsCOMPtr.h"
#include "nsITimer.h"

/// The protocol of sd_notify(3): datagrams to the socket that NOTIFY_SOCKET names, and nothing
/// without it. Main thread, while the host runs.
class nsServiceNotice {
 public:
  nsServiceNotice() = default;
  nsServiceNotice(const nsServiceNotice&) = delete;
  nsServiceNotice& operator=(const nsServiceNotice&) = delete;
  ~nsServiceNotice();

  /// The application has been started. From now on the manager hears of the main loop twice in each
  /// period that it asks for (WATCHDOG_USEC), as long as that runs.
  void Ready();
  /// The end has begun. Nothing is told after it.
  void Stopping();

 private:
  nsCOMPtr<nsITimer> mTimer;
  bool mIsStopping = false;
};

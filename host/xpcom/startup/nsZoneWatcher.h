// Keeps the process in the machine's time zone.
#pragma once

#include <memory>

#include "nsEventPump.h"
#include "nsIObserver.h"
#include "nsImplements.h"

/// Has the process go over to the machine's zone when that has been set: hears
/// "system-timezone-changed" with the zone's Olson name. When another process has set it, from
/// "profile-after-change" on, tells the same with no name. A process that was given a zone of its
/// own in TZ keeps it until the first. Main thread.
class nsZoneWatcher final : public nsImplements<nsZoneWatcher, nsIObserver> {
 public:
  nsresult Observe(nsISupports* aSubject, const char* aTopic, const char16_t* aData) override;

 private:
  ~nsZoneWatcher() override = default;
  nsresult Start();
  nsresult Follow();

  bool mWasGivenZone = false;  // TZ as this has set it
  std::unique_ptr<nsEventPump> mPump;
};

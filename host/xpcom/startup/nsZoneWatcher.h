// Keeps the process in the machine's time zone.
#pragma once

#include "nsIObserver.h"
#include "nsImplements.h"

/// Has the process go over to the machine's zone when that has been set: hears
/// "system-timezone-changed" with the zone's Olson name. Main thread.
class nsZoneWatcher final : public nsImplements<nsZoneWatcher, nsIObserver> {
 public:
  nsresult Observe(nsISupports* aSubject, const char* aTopic, const char16_t* aData) override;

 private:
  ~nsZoneWatcher() override = default;
};

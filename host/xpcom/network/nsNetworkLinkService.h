// Tells observers when something about the network changes.
#pragma once

#include <memory>
#include <vector>

#include "nsFdWatch.h"
#include "nsINetworkLinkService.h"
#include "nsIObserver.h"
#include "nsITimer.h"
#include "nsITimerCallback.h"
#include "nsImplements.h"
#include "nsLinkMonitor.h"

/// "@mozilla.org/network/network-link-service;1". Begins with "profile-after-change", or when it is
/// first asked; ends with "xpcom-shutdown". Main thread.
///
/// Every change of a link, an address, a route or the DNS servers brings
/// "network:link-status-changed" with this object as subject and "up", "down" or "unknown" as data:
/// once for all that comes within a few milliseconds. Observers look for themselves at what is
/// different.
///
/// On a simulated machine it watches nothing: the machine tells of its own changes.
class nsNetworkLinkService final : public nsImplements<nsNetworkLinkService, nsINetworkLinkService,
                                                       nsIObserver, nsITimerCallback> {
 public:
  nsresult GetIsLinkUp(bool* aIsLinkUp) override;
  nsresult GetLinkStatusKnown(bool* aLinkStatusKnown) override;
  nsresult GetLinkType(uint32_t* aLinkType) override;
  nsresult Observe(nsISupports* aSubject, const char* aTopic, const char16_t* aData) override;
  nsresult Notify(nsITimer* aTimer) override;

 private:
  ~nsNetworkLinkService() override = default;

  nsresult Start();
  void Stop();
  void OnReadable();
  /// Sends a notice soon, if none is on its way.
  void Schedule();

  bool mStarted = false;
  bool mScheduled = false;
  nsLinkMonitor::Status mStatus = nsLinkMonitor::kUnknown;
  uint32_t mType = LINK_TYPE_UNKNOWN;
  nsCOMPtr<nsITimer> mTimer;
  std::unique_ptr<nsLinkMonitor> mMonitor;
  std::vector<std::unique_ptr<nsFdWatch>> mWatches;  // of the monitor's descriptors: they go first
};

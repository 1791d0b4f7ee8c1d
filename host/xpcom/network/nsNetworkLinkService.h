// Tells observers when something about the network changes.
#pragma once

#include <memory>

#include "nsDebounce.h"
#include "nsEventPump.h"
#include "nsINetworkLinkService.h"
#include "nsIObserver.h"
#include "nsImplements.h"
#include "nsLinkMonitor.h"

/// "@mozilla.org/network/network-link-service;1". Main thread.
///
/// Every change of a link, an address, a route or the name servers brings
/// "network:link-status-changed" with this object as subject and "up", "down" or "unknown" as data:
/// once for all that comes within a few milliseconds, and also where the data stays the same.
/// Observers look for themselves at what is different.
///
/// It listens from "app-startup" on and tells from the category "profile-after-change" on, which
/// is after the topic, so that whoever looks at the network at either misses nothing later; it ends
/// with "xpcom-shutdown".
///
/// In a host that stands in for another machine (nsHostOptions::mHasNetwork) it neither knows nor
/// tells anything: that machine tells of its changes itself.
class nsNetworkLinkService final
    : public nsImplements<nsNetworkLinkService, nsINetworkLinkService, nsIObserver> {
 public:
  static const nsClassInfoRecord kClassInfo;
  // The attributes are read anew each time.
  nsresult GetIsLinkUp(bool* aIsLinkUp) override;
  nsresult GetLinkStatusKnown(bool* aLinkStatusKnown) override;
  nsresult GetLinkType(uint32_t* aLinkType) override;
  nsresult Observe(nsISupports* aSubject, const char* aTopic, const char16_t* aData) override;

 private:
  ~nsNetworkLinkService() override = default;
  nsresult Listen();
  nsresult Tell();
  void OnChanged();

  // Each uses those before it.
  std::shared_ptr<nsLinkMonitor> mMonitor;
  std::unique_ptr<nsDebounce> mDebounce;
  std::unique_ptr<nsEventPump> mPump;
};

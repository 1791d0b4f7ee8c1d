#include "nsNetworkLinkService.h"

#include <string_view>

#include "nsDebug.h"
#include "nsHost.h"
#include "nsIObserverService.h"
#include "nsIThread.h"
#include "nsIThreadManager.h"
#include "nsServices.h"

namespace {

// What one command or one plug brings, a link with its addresses and routes, comes well within the
// first; a machine whose network never rests is told of at the rate of the second.
constexpr uint32_t kQuietMilliseconds = 4;
constexpr uint32_t kLongestMilliseconds = 10;

using Status = nsLinkMonitor::Status;

bool HasNetwork() {
  const nsHost* host = nsHost::Current();
  return !host || host->Options().mHasNetwork;
}

bool IsFollowed() {
  const nsHost* host = nsHost::Current();
  return HasNetwork() && (!host || host->Options().mFollowsMachine);
}

Status ReadStatus(uint32_t* aType) {
  if (HasNetwork()) return nsLinkMonitor::ReadStatus(aType);
  *aType = nsINetworkLinkService::LINK_TYPE_UNKNOWN;
  return Status::eUnknown;
}

const char16_t* TextOf(Status aStatus) {
  switch (aStatus) {
    case Status::eUp:
      return u"up";
    case Status::eDown:
      return u"down";
    case Status::eUnknown:
      break;
  }
  return u"unknown";
}

}  // namespace

const nsClassInfoRecord nsNetworkLinkService::kClassInfo = {
    NS_ClassInterfaces<nsINetworkLinkService>, nullptr, nsIClassInfo::SINGLETON,
    "75a500a2-0030-40f7-86f8-63f225b940ae"_iid};

nsresult nsNetworkLinkService::GetIsLinkUp(bool* aIsLinkUp) {
  if (!aIsLinkUp) return NS_ERROR_NULL_POINTER;
  uint32_t type;
  *aIsLinkUp = ReadStatus(&type) == Status::eUp;
  return NS_OK;
}

nsresult nsNetworkLinkService::GetLinkStatusKnown(bool* aLinkStatusKnown) {
  if (!aLinkStatusKnown) return NS_ERROR_NULL_POINTER;
  uint32_t type;
  *aLinkStatusKnown = ReadStatus(&type) != Status::eUnknown;
  return NS_OK;
}

nsresult nsNetworkLinkService::GetLinkType(uint32_t* aLinkType) {
  if (!aLinkType) return NS_ERROR_NULL_POINTER;
  (void)ReadStatus(aLinkType);
  return NS_OK;
}

nsresult nsNetworkLinkService::Observe(nsISupports*, const char* aTopic, const char16_t*) {
  const std::string_view topic = aTopic ? aTopic : "";
  if (topic == "app-startup") return Listen();
  if (topic == "profile-after-change") return Tell();
  if (topic == "xpcom-shutdown") {
    mPump = nullptr;
    mDebounce = nullptr;
    mMonitor = nullptr;
  }
  return NS_OK;
}

nsresult nsNetworkLinkService::Listen() {
  if (mMonitor || !IsFollowed()) return NS_OK;
  nsresult rv;
  const auto os = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID, &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  rv = os->AddObserver(this, "xpcom-shutdown", false);
  NS_ENSURE_SUCCESS(rv, rv);
  std::unique_ptr<nsLinkMonitor> monitor;
  rv = nsLinkMonitor::Open(&monitor);
  NS_ENSURE_SUCCESS(rv, rv);
  mMonitor = std::move(monitor);
  return NS_OK;
}

nsresult nsNetworkLinkService::Tell() {
  if (mPump || !mMonitor) return NS_OK;
  nsresult rv;
  const auto threads = do_GetService<nsIThreadManager>(NS_THREADMANAGER_CONTRACTID, &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  nsCOMPtr<nsIThread> mainThread;
  rv = threads->GetMainThread(mainThread.getter_AddRefs());
  NS_ENSURE_SUCCESS(rv, rv);
  mDebounce = std::make_unique<nsDebounce>(kQuietMilliseconds, kLongestMilliseconds,
                                           [this] { OnChanged(); });
  rv = nsEventPump::Start(
      "LinkMonitor", mMonitor, mainThread.get(),
      [this] { (void)mDebounce->OnEvent(); },  // it has warned when it fails
      &mPump);
  NS_ENSURE_SUCCESS(rv, rv);
  return NS_OK;
}

void nsNetworkLinkService::OnChanged() {
  (void)mMonitor->Consume();  // what has come since belongs to the burst
  const auto os = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID);
  if (!os) return;  // the host is shutting down
  uint32_t type;
  (void)os->NotifyObservers(static_cast<nsINetworkLinkService*>(this),
                            "network:link-status-changed", TextOf(ReadStatus(&type)));
}

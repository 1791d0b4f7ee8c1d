#include "nsNetworkLinkService.h"

#include <string_view>

#include "nsDebug.h"
#include "nsHost.h"
#include "nsIObserverService.h"
#include "nsIThread.h"
#include "nsIThreadManager.h"
#include "nsServices.h"

namespace {
// What belongs together, such as a link with its addresses and routes, comes within this time.
constexpr uint32_t kBurstMilliseconds = 5;
}  // namespace

nsresult nsNetworkLinkService::GetIsLinkUp(bool* aIsLinkUp) {
  const nsresult rv = Start();
  NS_ENSURE_SUCCESS(rv, rv);
  *aIsLinkUp = mStatus == nsLinkMonitor::kUp;
  return NS_OK;
}

nsresult nsNetworkLinkService::GetLinkStatusKnown(bool* aLinkStatusKnown) {
  const nsresult rv = Start();
  NS_ENSURE_SUCCESS(rv, rv);
  *aLinkStatusKnown = mStatus != nsLinkMonitor::kUnknown;
  return NS_OK;
}

nsresult nsNetworkLinkService::GetLinkType(uint32_t* aLinkType) {
  const nsresult rv = Start();
  NS_ENSURE_SUCCESS(rv, rv);
  *aLinkType = mType;
  return NS_OK;
}

nsresult nsNetworkLinkService::Observe(nsISupports*, const char* aTopic, const char16_t*) {
  const std::string_view topic = aTopic ? aTopic : "";
  if (topic == "profile-after-change") return Start();
  if (topic == "xpcom-shutdown") Stop();
  return NS_OK;
}

nsresult nsNetworkLinkService::Start() {
  if (mStarted) return NS_OK;
  const nsHost* host = nsHost::Current();
  if (host && !host->Options().mMachineFile.empty()) return NS_OK;

  nsresult rv;
  const auto threads = do_GetService<nsIThreadManager>(NS_THREADMANAGER_CONTRACTID, &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  nsCOMPtr<nsIThread> mainThread;
  rv = threads->GetMainThread(mainThread.getter_AddRefs());
  NS_ENSURE_SUCCESS(rv, rv);
  const auto os = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID, &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  rv = os->AddObserver(this, "xpcom-shutdown", false);
  NS_ENSURE_SUCCESS(rv, rv);
  mTimer = do_CreateInstance<nsITimer>(NS_TIMER_CONTRACTID, &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  rv = nsLinkMonitor::Open(&mMonitor);
  NS_ENSURE_SUCCESS(rv, rv);
  for (const int fd : mMonitor->Descriptors()) {
    std::unique_ptr<nsFdWatch> watch;
    rv = nsFdWatch::Start(
        fd, mainThread.get(), [this] { OnReadable(); }, &watch);
    if (NS_FAILED(rv)) Stop();
    NS_ENSURE_SUCCESS(rv, rv);
    mWatches.push_back(std::move(watch));
  }
  mStarted = true;
  mStatus = nsLinkMonitor::ReadStatus(&mType);
  // Whoever looked at the network before now may have missed a change.
  Schedule();
  return NS_OK;
}

void nsNetworkLinkService::Stop() {
  mWatches.clear();
  mMonitor.reset();
  if (mTimer) (void)mTimer->Cancel();
  mTimer = nullptr;
}

void nsNetworkLinkService::OnReadable() {
  if (mMonitor && mMonitor->Consume()) Schedule();
}

void nsNetworkLinkService::Schedule() {
  if (mScheduled) return;
  mScheduled =
      NS_SUCCEEDED(mTimer->InitWithCallback(this, kBurstMilliseconds, nsITimer::TYPE_ONE_SHOT));
}

nsresult nsNetworkLinkService::Notify(nsITimer*) {
  mScheduled = false;
  if (!mMonitor) return NS_OK;
  (void)mMonitor->Consume();  // what has come since belongs to the burst
  mStatus = nsLinkMonitor::ReadStatus(&mType);
  const auto os = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID);
  if (!os) return NS_OK;
  const char16_t* const data = mStatus == nsLinkMonitor::kUp     ? u"up"
                               : mStatus == nsLinkMonitor::kDown ? u"down"
                                                                 : u"unknown";
  return os->NotifyObservers(static_cast<nsINetworkLinkService*>(this),
                             "network:link-status-changed", data);
}

// Discovery of display outputs.
#include <algorithm>

#include "nsDebug.h"
#include "nsIMutableArray.h"
#include "nsPlatformDisplays.h"
#include "nsServices.h"
#include "nsSystemAdapterDisplayOutput.h"
#include "nsSystemManager.h"

namespace {

// Devices are told with the names of their interfaces.
constexpr uint32_t kEnumFlags = 1;

bool IsDisplay(const nsCOMPtr<nsISystemAdapter>& aAdapter) {
  return bool(do_QueryInterface<nsISystemAdapterDisplayOutput>(aAdapter));
}

}  // namespace

/// Where new display adapters go: the primary one ahead of the others, the rest behind them.
struct nsSystemManager::DisplayPlaces {
  size_t mFirst;
  size_t mLast;  // behind the last one; without display adapters both are the end of the list
};

nsresult nsSystemManager::InitDisplay() {
  nsPlatformDisplays& displays = *mPlatform->mDisplays;
  nsCOMPtr<nsIArray> known;
  nsresult rv = GetAdaptersByIId(nsISystemAdapterDisplayOutput::kIID, known.getter_AddRefs());
  NS_ENSURE_SUCCESS(rv, rv);
  // What is still in it at the end has gone.
  const auto displayAdapters = do_QueryInterface<nsIMutableArray>(known);
  NS_ENSURE_TRUE(displayAdapters, NS_ERROR_UNEXPECTED);

  const auto first = std::ranges::find_if(mAdapters, IsDisplay);
  const auto last = std::find_if(mAdapters.rbegin(), mAdapters.rend(), IsDisplay).base();
  DisplayPlaces places{
      static_cast<size_t>(first - mAdapters.begin()),
      first == mAdapters.end() ? mAdapters.size() : static_cast<size_t>(last - mAdapters.begin())};

  const uint64_t looks = mDisplayLooks;
  nsDisplayDevice card;
  for (uint32_t i = 0; NS_SUCCEEDED(displays.ReadDevice("", i, kEnumFlags, &card)); ++i) {
    SYSTEM_LOG_DEBUG(mLogger, "graphic card " + std::to_string(i) + " name : " + card.mDeviceName +
                                  " string : " + card.mDeviceString);
    if (card.mStateFlags & nsDisplayDevice::kMirroringDriver) {
      SYSTEM_LOG_DEBUG(mLogger, "Miroir");
      continue;
    }
    if (!(card.mStateFlags & nsDisplayDevice::kAttachedToDesktop)) {
      SYSTEM_LOG_DEBUG(mLogger, "Inactif");
      continue;
    }
    nsDisplayDevice monitor;
    for (uint32_t j = 0;
         NS_SUCCEEDED(displays.ReadDevice(card.mDeviceName, j, kEnumFlags, &monitor)); ++j) {
      const bool active = monitor.mStateFlags & nsDisplayDevice::kAttachedToDesktop;
      SYSTEM_LOG_DEBUG(mLogger, "Monitor " + std::to_string(j) + " name : " + monitor.mDeviceName +
                                    " string : " + monitor.mDeviceString +
                                    " actif : " + std::to_string(active));
      if (!active) {
        SYSTEM_LOG_DEBUG(mLogger, "Inactif");
        continue;
      }
      rv = LookAtDisplay(card, monitor, *displayAdapters, &places);
      if (NS_FAILED(rv)) return rv;
      // A listener has had it look meanwhile, and that has seen what came after this.
      if (looks != mDisplayLooks) return NS_OK;
    }
  }
  return RemoveLeftovers(*displayAdapters, &mDisplayLooks);
}

nsresult nsSystemManager::LookAtDisplay(const nsDisplayDevice& aCard,
                                        const nsDisplayDevice& aMonitor,
                                        nsIMutableArray& aLeftovers, DisplayPlaces* aPlaces) {
  const nsString sysPath(NS_ToUtf16(std::string_view(aCard.mDeviceName)));
  nsCOMPtr<nsISystemAdapter> known;
  nsresult rv = GetAdapterBySysPath(nullptr, sysPath, known.getter_AddRefs());
  NS_ENSURE_SUCCESS(rv, rv);
  if (!known) {
    SYSTEM_LOG_DEBUG(mLogger, "Adding a adapter for display output");
    nsCOMPtr<nsSystemAdapterDisplayOutput> made;
    rv = nsSystemAdapterDisplayOutput::Create(mPlatform, aCard, aMonitor, made.getter_AddRefs());
    NS_ENSURE_SUCCESS(rv, rv);
    const bool isPrimary = aCard.mStateFlags & nsDisplayDevice::kPrimaryDevice;
    // Whoever hears of an adapter may have changed the list meanwhile.
    const size_t index = std::min(isPrimary ? aPlaces->mFirst : aPlaces->mLast, mAdapters.size());
    SYSTEM_LOG_DEBUG(mLogger, (isPrimary ? "Insert adapter at first index = "
                                         : "Insert Adapter at last index = ") +
                                  std::to_string(index));
    mAdapters.emplace(mAdapters.begin() + static_cast<ptrdiff_t>(index), made.get());
    if (isPrimary) ++aPlaces->mFirst;
    ++aPlaces->mLast;
    (void)CallAdapterListeners(made.get(), true);
    return NS_OK;
  }

  SYSTEM_LOG_DEBUG(mLogger, "Update adapter sysPath=" + NS_ToUtf8(sysPath));
  // An adapter of another kind may bear that system path.
  auto* const adapter = dynamic_cast<nsSystemAdapterDisplayOutput*>(known.get());
  NS_ENSURE_TRUE(adapter, NS_ERROR_UNEXPECTED);
  bool modified = false;
  rv = adapter->Update(aCard, aMonitor, &modified);
  NS_ENSURE_SUCCESS(rv, rv);
  if (modified) {
    SYSTEM_LOG_DEBUG(mLogger, "Adapter is modified");
    (void)NotifyAdapterChanged(known.get());
  }
  StrikeOut(aLeftovers, known.get());
  return NS_OK;
}

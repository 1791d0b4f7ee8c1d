#include "nsSystemDisplayOutputBinding.h"

#include "nsDebug.h"
#include "nsISystemAdapterDisplayOutput.h"

namespace {
constexpr uint32_t kPowerOn = 1;
}  // namespace

nsSystemDisplayOutputBinding::nsSystemDisplayOutputBinding()
    : mLogger(NS_GetLogger("system.profile.display-output")) {}
nsSystemDisplayOutputBinding::~nsSystemDisplayOutputBinding() = default;

nsresult nsSystemDisplayOutputBinding::Init(nsISystemAdapter* aAdapter,
                                            nsISystemApplicationProfile* aApplicationProfile,
                                            nsIPrefBranch*) {
  mAdapter = aAdapter;
  mProfile = aApplicationProfile;
  mInited = true;
  return NS_OK;
}

bool nsSystemDisplayOutputBinding::IsInited() const {
  if (!mInited) SYSTEM_LOG_DEBUG(mLogger, "APB not inited");
  return mInited;
}

nsCOMPtr<nsISystemAdapterDisplayOutput> nsSystemDisplayOutputBinding::DisplayOutput() const {
  return do_QueryInterface<nsISystemAdapterDisplayOutput>(mAdapter);
}

nsresult nsSystemDisplayOutputBinding::IsEnabled(bool* aEnabled) {
  if (!IsInited()) return NS_ERROR_NOT_AVAILABLE;
  *aEnabled = true;
  return NS_OK;
}

nsresult nsSystemDisplayOutputBinding::GetApplicationProfile(
    nsISystemApplicationProfile** aApplicationProfile) {
  if (!IsInited()) return NS_ERROR_NOT_AVAILABLE;
  nsCOMPtr<nsISystemApplicationProfile>(mProfile).forget(aApplicationProfile);
  return NS_OK;
}

nsresult nsSystemDisplayOutputBinding::GetAdapter(nsISystemAdapter** aAdapter) {
  if (!IsInited()) return NS_ERROR_NOT_AVAILABLE;
  nsCOMPtr<nsISystemAdapter>(mAdapter).forget(aAdapter);
  return NS_OK;
}

nsresult nsSystemDisplayOutputBinding::GetStandby(bool* aStandby) {
  // Also for whoever does not look at the result: better dark than wrongly on. Kept as it stands.
  *aStandby = true;
  if (!IsInited()) return NS_ERROR_NOT_AVAILABLE;
  const auto adapter = DisplayOutput();
  NS_ENSURE_TRUE(adapter, NS_ERROR_UNEXPECTED);
  uint32_t powerMode = 0;
  const nsresult rv = adapter->GetPowerMode(&powerMode);
  NS_ENSURE_SUCCESS(rv, rv);
  *aStandby = powerMode != kPowerOn;
  return NS_OK;
}

nsresult nsSystemDisplayOutputBinding::SetStandby(bool aStandby) {
  if (!IsInited()) return NS_ERROR_NOT_AVAILABLE;
  const auto adapter = DisplayOutput();
  NS_ENSURE_TRUE(adapter, NS_ERROR_UNEXPECTED);
  const nsresult rv = adapter->SetPowerMode(aStandby ? 0 : kPowerOn);
  NS_ENSURE_SUCCESS(rv, rv);
  return NS_OK;
}

nsresult nsSystemDisplayOutputBinding::GetBrightness(uint16_t* aBrightness) {
  if (!IsInited()) return NS_ERROR_NOT_AVAILABLE;
  const auto adapter = DisplayOutput();
  NS_ENSURE_TRUE(adapter, NS_ERROR_UNEXPECTED);
  const nsresult rv = adapter->GetBrightness(aBrightness);
  NS_ENSURE_SUCCESS(rv, rv);
  return NS_OK;
}

nsresult nsSystemDisplayOutputBinding::SetBrightness(uint16_t aBrightness) {
  if (!IsInited()) return NS_ERROR_NOT_AVAILABLE;
  const auto adapter = DisplayOutput();
  NS_ENSURE_TRUE(adapter, NS_ERROR_UNEXPECTED);
  const nsresult rv = adapter->SetBrightness(aBrightness);
  NS_ENSURE_SUCCESS(rv, rv);
  return NS_OK;
}

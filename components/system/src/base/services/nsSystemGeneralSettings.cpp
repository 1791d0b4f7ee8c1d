#include "nsSystemGeneralSettings.h"

#include "nsPlatformHost.h"
#include "nsString.h"

namespace {
constexpr uint32_t kHostNameCapacity = 64;
constexpr int32_t kShown = 0;
constexpr int32_t kHidden = -1;
}  // namespace

nsSystemGeneralSettings::nsSystemGeneralSettings(nsPlatformRef aPlatform)
    : mPlatform(std::move(aPlatform)) {}

nsresult nsSystemGeneralSettings::QueryInterface(const nsIID& aIID, void** aResult) {
  return NS_QueryInterface<nsISystemGeneralSettings>(this, aIID, aResult);
}

nsrefcnt nsSystemGeneralSettings::Release() {
  const nsrefcnt count = mRefCnt.Decrement();
  if (count == 0) {
    mRefCnt.Stabilize();
    delete this;
  }
  return count;
}

nsresult nsSystemGeneralSettings::GetHostName(nsACString& aHostName) {
  std::string name;
  if (NS_SUCCEEDED(mPlatform->mHost->ReadHostName(kHostNameCapacity, &name)))
    NS_Assign(aHostName, name);
  return NS_OK;
}

nsresult nsSystemGeneralSettings::GetShowCursor(bool* aShowCursor) {
  const nsAutoLock lock(mLock);
  *aShowCursor = mShowCursor;
  return NS_OK;
}

nsresult nsSystemGeneralSettings::SetShowCursor(bool aShowCursor) {
  const nsAutoLock lock(mLock);
  SYSTEM_LOG_DEBUG(mLogger, std::string("aShowCursor= ") + (aShowCursor ? "1" : "0"));
  mShowCursor = aShowCursor;

  // The platform has a counter, which others move too; it is brought to where it ought to be.
  const int32_t target = aShowCursor ? kShown : kHidden;
  int32_t counter;
  nsresult rv = mPlatform->mHost->StepCursorCounter(aShowCursor, &counter);
  while (NS_SUCCEEDED(rv) && counter != target) {
    const int32_t before = counter;
    rv = mPlatform->mHost->StepCursorCounter(counter < target, &counter);
    if (counter == before) break;
  }
  return rv;
}

nsresult nsSystemGeneralSettings::GetDeviceId(nsACString& aDeviceId) {
  std::string id;
  const nsresult rv = mPlatform->mHost->ReadDeviceId(&id);
  if (NS_SUCCEEDED(rv)) NS_Assign(aDeviceId, id);
  return rv;
}

nsresult nsSystemGeneralSettings::GetPlatform(nsACString& aPlatform) {
  std::string name;
  const nsresult rv = mPlatform->mHost->ReadPlatformName(&name);
  if (NS_SUCCEEDED(rv)) NS_Assign(aPlatform, name);
  return rv;
}

#include "nsAppRuntime.h"

#include "nsComponentManager.h"
#include "nsHost.h"
#include "nsString.h"
#include "nsVorelMethodCaller.h"

namespace {

nsresult GiveField(std::string nsAppInfo::*aField, nsACString& aOut) {
  const auto manager = nsComponentManager::Current();
  return manager ? NS_Give(manager->AppInfo().*aField, aOut) : NS_ERROR_NOT_INITIALIZED;
}

}  // namespace

nsresult nsAppRuntime::GetVendor(nsACString& aVendor) {
  return GiveField(&nsAppInfo::mVendor, aVendor);
}
nsresult nsAppRuntime::GetName(nsACString& aName) { return GiveField(&nsAppInfo::mName, aName); }
nsresult nsAppRuntime::GetID(nsACString& aID) { return GiveField(&nsAppInfo::mID, aID); }
nsresult nsAppRuntime::GetVersion(nsACString& aVersion) {
  return GiveField(&nsAppInfo::mVersion, aVersion);
}
nsresult nsAppRuntime::GetAppBuildID(nsACString& aAppBuildID) {
  return GiveField(&nsAppInfo::mBuildID, aAppBuildID);
}
nsresult nsAppRuntime::GetPlatformVersion(nsACString& aPlatformVersion) {
  return NS_Give(kPlatformVersion, aPlatformVersion);
}
nsresult nsAppRuntime::GetInSafeMode(bool* aInSafeMode) {
  if (!aInSafeMode) return NS_ERROR_NULL_POINTER;
  *aInSafeMode = false;
  return NS_OK;
}
nsresult nsAppRuntime::GetOS(nsACString& aOS) { return NS_Give(kOS, aOS); }
nsresult nsAppRuntime::GetXPCOMABI(nsACString& aXPCOMABI) { return NS_Give(kABI, aXPCOMABI); }
nsresult nsAppRuntime::GetProcessType(uint32_t* aProcessType) {
  if (!aProcessType) return NS_ERROR_NULL_POINTER;
  *aProcessType = static_cast<uint32_t>(XRE_GetProcessType());
  return NS_OK;
}

nsresult nsAppStartup::Run() {
  nsHost* const host = nsHost::Current();
  if (!host) return NS_ERROR_NOT_INITIALIZED;
  return NS_IsMainThread() ? host->Run() : NS_ERROR_NOT_SAME_THREAD;
}

nsresult nsAppStartup::Quit(uint32_t aMode) {
  if (aMode & (eRestart | eRestarti386 | eRestartx86_64)) return NS_ERROR_NOT_IMPLEMENTED;
  if (!NS_IsMainThread()) return NS_ERROR_NOT_SAME_THREAD;
  nsHost* const host = nsHost::Current();
  if (!host) return NS_ERROR_NOT_INITIALIZED;
  host->Quit();
  return NS_OK;
}

nsresult nsAppStartup::GetShuttingDown(bool* aShuttingDown) {
  if (!aShuttingDown) return NS_ERROR_NULL_POINTER;
  const nsHost* const host = nsHost::Current();
  *aShuttingDown = !host || host->IsQuitting();
  return NS_OK;
}

// There are no windows of the host's own, and nothing that would start it again.
nsresult nsAppStartup::CreateHiddenWindow() { return NS_ERROR_NOT_IMPLEMENTED; }

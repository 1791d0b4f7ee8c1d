#include "nsSystemGeneralSettingsGeneric.h"

#include <prprf.h>

#include <algorithm>

#include "nsAscii.h"
#include "nsDebug.h"
#include "nsIArray.h"
#include "nsISystemAdapter.h"
#include "nsISystemAdapterIP.h"
#include "nsISystemAdapterLAN.h"
#include "nsISystemManager.h"
#include "nsServices.h"
#include "nsString.h"
#include "nsXPCOM.h"

namespace {

constexpr char kSystemManagerContractID[] = "@vorel/system/systemmanager;1";
constexpr char kVersionPref[] = "extensions.lastAppVersion";
constexpr char kFieldPref[] = "vorel.player.device-info.field";
constexpr size_t kDeviceIdLength = 11;

// The preference's text; empty when there is none.
std::string GetCharPref(nsIPrefBranch& aPrefs, const std::string& aName, nsresult* aRv) {
  char* value = nullptr;
  *aRv = aPrefs.GetCharPref(aName.c_str(), &value);
  if (NS_FAILED(*aRv) || !value) return {};
  std::string text(value);
  NS_Free(value);
  return text;
}

std::string MakeUuid(const std::string& aDeviceId, const std::string& aMac) {
  if (aDeviceId.size() != kDeviceIdLength) return "00000000-0000-0000-0001-" + aMac;
  // Characters that are no digits count as what their value makes of them; kept as it stands, since
  // a machine's name must not change. Character 5 is left out.
  const auto number = [&](size_t aFrom, size_t aLength) {
    int value = 0;
    for (size_t i = aFrom; i < aFrom + aLength; ++i) value = value * 10 + (aDeviceId[i] - '0');
    return value;
  };
  char head[64];
  const PRUint32 length = PR_snprintf(head, sizeof head, "%03x%x%04x-0000-0000-0000-", number(0, 4),
                                      number(4, 1), number(6, 5));
  return std::string(head, length) + aMac;
}

}  // namespace

nsSystemGeneralSettingsGeneric::nsSystemGeneralSettingsGeneric()
    : mLogger(NS_GetLogger("system.generalsettings")) {}

nsresult nsSystemGeneralSettingsGeneric::InitGeneric() {
  nsresult rv;
  mPrefs = do_GetService<nsIPrefBranch>(VOREL_PREFS_CONTRACTID, &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  return NS_OK;
}

// The first LAN adapter is what the machine is known by.
nsresult nsSystemGeneralSettingsGeneric::GetAdapter(nsISystemAdapter** aAdapter) {
  nsresult rv;
  const auto manager = do_GetService<nsISystemManager>(kSystemManagerContractID, &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  // A list that could not be made anew may still have it.
  (void)manager->RefreshAdapters(nsISystemAdapterIP::kIID);
  nsCOMPtr<nsIArray> adapters;
  rv = manager->GetAdaptersByIId(nsISystemAdapterLAN::kIID, adapters.getter_AddRefs());
  NS_ENSURE_SUCCESS(rv, rv);
  return adapters->QueryElementAt(0, nsISystemAdapter::kIID, reinterpret_cast<void**>(aAdapter));
}

nsresult nsSystemGeneralSettingsGeneric::GetMac(nsISystemMACStructure** aMac) {
  bool known;
  {
    const nsAutoLock lock(mLock);
    known = bool(mMac);
  }
  nsresult rv = NS_OK;
  if (!known) {
    nsCOMPtr<nsISystemAdapter> adapter;
    rv = GetAdapter(adapter.getter_AddRefs());
    NS_ENSURE_SUCCESS(rv, rv);
    const auto ip = do_QueryInterface<nsISystemAdapterIP>(adapter, &rv);
    NS_ENSURE_SUCCESS(rv, rv);
    const nsAutoLock lock(mLock);
    rv = ip->GetMacAddress(mMac.getter_AddRefs());
    NS_ENSURE_SUCCESS(rv, rv);
  }
  const nsAutoLock lock(mLock);
  NS_ENSURE_TRUE(mMac, NS_ERROR_FAILURE);
  nsCOMPtr(mMac).forget(aMac);
  return NS_OK;
}

nsresult nsSystemGeneralSettingsGeneric::GetUuid(nsACString& aUuid) {
  {
    const nsAutoLock lock(mLock);
    if (!mUuid.empty()) {
      return NS_Give(mUuid, aUuid);
    }
  }
  nsCOMPtr<nsISystemMACStructure> mac;
  nsresult rv = GetMac(mac.getter_AddRefs());
  NS_ENSURE_SUCCESS(rv, rv);
  nsCString text;
  rv = mac->GetString(text);
  NS_ENSURE_SUCCESS(rv, rv);
  std::string digits(text.view());
  std::erase(digits, '-');
  digits = NS_ToLowerAscii(digits);
  nsCString deviceId;
  const bool hasId = NS_SUCCEEDED(GetDeviceId(deviceId));
  const std::string uuid = MakeUuid(hasId ? std::string(deviceId.view()) : std::string(), digits);
  const nsAutoLock lock(mLock);
  mUuid = uuid;
  return NS_Give(mUuid, aUuid);
}

nsresult nsSystemGeneralSettingsGeneric::GetVersion(nsACString& aVersion) {
  nsresult rv;
  const std::string version = GetCharPref(*mPrefs, kVersionPref, &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  return NS_Give(version, aVersion);
}

nsresult nsSystemGeneralSettingsGeneric::GetField(char aDigit, nsAString& aField) {
  nsresult rv;  // not looked at: a field that was never set is empty
  return NS_Give(NS_ToUtf16(GetCharPref(*mPrefs, std::string(kFieldPref) + aDigit, &rv)), aField);
}

nsresult nsSystemGeneralSettingsGeneric::SetField(char aDigit, const nsAString& aField) {
  // A preference would end at a zero.
  if (NS_View(aField).find(u'\0') != std::u16string_view::npos) return NS_ERROR_INVALID_ARG;
  return mPrefs->SetCharPref((std::string(kFieldPref) + aDigit).c_str(), NS_ToUtf8(aField).c_str());
}

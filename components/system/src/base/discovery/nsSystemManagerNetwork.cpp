// Discovery of network interfaces.
#include <algorithm>
#include <new>
#include <unordered_map>

#include "nsDebug.h"
#include "nsIMutableArray.h"
#include "nsPlatformNetwork.h"
#include "nsServices.h"
#include "nsSystemAdapterIP.h"
#include "nsSystemManager.h"
#include "nsUtf.h"
#include "nsXPCOM.h"

namespace {

// Until the interfaces are looked at again when they could not be read; doubled each time, in ms.
constexpr uint32_t kFirstNetworkDelay = 1000, kLongestNetworkDelay = 64'000;

// From this major version on the interface table says what an Ethernet really is; before it
// wireless interfaces say that they are Ethernet, and are found by a test.
constexpr uint32_t kInterfaceTableVersion = 6;

using Addresses = nsAdapterAddresses;
using InfoTable = std::unordered_map<std::string, const nsAdapterInfo*>;

// Whatever answers a question for the name of its wireless network is wireless.
bool IsWireless(nsPlatformNetwork& aNetwork, const std::string& aAdapterName) {
  // The driver knows its devices by another name. Kept as it stands: interfaces that were taken for
  // wired ones all along would change their class.
  const std::string device = "\\Devive\\NPF_" + aAdapterName;
  nsPlatformNetwork::PacketAdapter adapter = 0;
  if (NS_FAILED(aNetwork.PacketOpenAdapter(device, &adapter))) return false;
  std::vector<uint8_t> ssid(33);
  const nsresult rv = aNetwork.PacketRequest(adapter, false, nsPlatformNetwork::kOidSsid, &ssid);
  aNetwork.PacketCloseAdapter(adapter);
  return NS_SUCCEEDED(rv);
}

void CorrectInterfaceType(nsPlatformNetwork& aNetwork,
                          const nsNetworkReading::GetIfEntry2Function& aGetIfEntry2,
                          nsILog4Logger* aLogger, Addresses& aRecord) {
  if (aRecord.mIfType != Addresses::kEthernet) return;
  if (!aGetIfEntry2) {
    if (IsWireless(aNetwork, aRecord.mAdapterName)) {
      SYSTEM_LOG_DEBUG(aLogger, "Correcting interface type to IF_TYPE_IEEE80211");
      aRecord.mIfType = Addresses::kWireless;
    }
    return;
  }
  nsIfRow row;
  if (NS_FAILED(aGetIfEntry2(aRecord.mIfIndex, &row))) {
    SYSTEM_LOG_DEBUG(aLogger, "GetIfEntry error");
    return;
  }
  SYSTEM_LOG_DEBUG(aLogger,
                   "ifRow.Type = " + std::to_string(row.mType) +
                       " ifRow.MediaType = " + std::to_string(row.mMediaType) +
                       " ifRow.PhysicalMediumType= " + std::to_string(row.mPhysicalMediumType));
  if (row.mPhysicalMediumType != nsIfRow::kUnspecified &&
      row.mPhysicalMediumType != nsIfRow::kEthernet8023) {
    SYSTEM_LOG_DEBUG(aLogger, "Network interface is not really a LAN interface");
    aRecord.mIfType = Addresses::kOther;
  }
}

nsresult HasZeroMacAddress(nsISystemAdapterIP& aAdapter, bool* aZero) {
  nsCOMPtr<nsISystemMACStructure> mac;
  nsresult rv = aAdapter.GetMacAddress(mac.getter_AddRefs());
  NS_ENSURE_SUCCESS(rv, rv);
  uint32_t count = 0;
  uint8_t* bytes = nullptr;
  rv = mac->GetBytes(&count, &bytes);
  NS_ENSURE_SUCCESS(rv, rv);
  *aZero =
      std::all_of(bytes, bytes + std::min(count, 6u), [](uint8_t aByte) { return aByte == 0; });
  NS_Free(bytes);
  return NS_OK;
}

// A new adapter with its records; null for one that is not to be published.
template <class Adapter>
nsresult NewAdapter(const nsPlatformRef& aPlatform, const nsAdapterInfo& aInfo,
                    const Addresses& aRecord, nsISystemAdapter** aResult) {
  const nsCOMPtr<Adapter> ip(new (std::nothrow) Adapter(aPlatform));
  NS_ENSURE_TRUE(ip, NS_ERROR_UNEXPECTED);
  nsresult rv = ip->Init(aInfo);
  NS_ENSURE_SUCCESS(rv, rv);
  rv = ip->Init(aRecord);
  NS_ENSURE_SUCCESS(rv, rv);
  bool dropped = false;
  if constexpr (std::is_same_v<Adapter, nsSystemAdapterLAN>) {
    rv = HasZeroMacAddress(*ip, &dropped);
    NS_ENSURE_SUCCESS(rv, rv);
  }
  if (!dropped) nsCOMPtr<nsISystemAdapter>(ip).forget(aResult);
  return NS_OK;
}

}  // namespace

void nsSystemManager::LookAtNetworkLater() {
  if (!mNetworkTimer) mNetworkTimer = do_CreateInstance<nsITimer>(NS_TIMER_CONTRACTID);
  if (!mNetworkTimer) return;
  mNetworkDelay = std::clamp(2 * mNetworkDelay, kFirstNetworkDelay, kLongestNetworkDelay);
  (void)mNetworkTimer->InitWithFuncCallback(
      [](nsITimer*, void* aManager) {
        (void)static_cast<nsSystemManager*>(aManager)->InitNetwork();
      },
      this, mNetworkDelay, nsITimer::TYPE_ONE_SHOT);
}

nsresult nsSystemManager::InitNetwork() {
  SYSTEM_LOG_DEBUG(mLogger, "Begin");
  nsPlatformNetwork& network = *mPlatform->mNetwork;

  nsCOMPtr<nsIArray> known;
  nsresult rv = GetAdaptersByIId(nsISystemAdapterIP::kIID, known.getter_AddRefs());
  NS_ENSURE_SUCCESS(rv, rv);
  // What is still in it at the end has gone.
  const auto ipAdapters = do_QueryInterface<nsIMutableArray>(known);
  NS_ENSURE_TRUE(ipAdapters, NS_ERROR_UNEXPECTED);

  const auto reading = network.Read();
  // Without the second picture there is simply no interface in it.
  std::vector<nsAdapterInfo> infos;
  const nsresult noInfos = reading->GetAdaptersInfo(&infos);
  InfoTable infoByName(16);
  for (const nsAdapterInfo& info : infos) infoByName[info.mAdapterName] = &info;

  std::vector<Addresses> records;
  rv = reading->GetAdaptersAddresses(
      0, nsPlatformNetwork::kIncludePrefix | nsPlatformNetwork::kIncludeGateways, &records);
  if (NS_FAILED(rv) || (NS_FAILED(noInfos) && noInfos != NS_ERROR_NOT_AVAILABLE))
    SYSTEM_LOG_WARNING(mLogger, "Can't read the network interfaces: " + reading->Reason());
  if (NS_FAILED(rv)) {
    LookAtNetworkLater();
    return rv == NS_ERROR_OUT_OF_MEMORY ? rv : NS_ERROR_FAILURE;
  }
  mNetworkDelay = 0;
  if (mNetworkTimer) (void)mNetworkTimer->Cancel();

  nsNetworkReading::GetIfEntry2Function GetIfEntry2Func;
  if (network.GetSystemVersion().mMajor >= kInterfaceTableVersion) {
    const bool module = network.LoadIpHelper();
    NS_ENSURE_TRUE(module, NS_ERROR_UNEXPECTED);
    GetIfEntry2Func = reading->FindGetIfEntry2();
    NS_ENSURE_TRUE(GetIfEntry2Func, NS_ERROR_UNEXPECTED);
  }

  const uint64_t looks = mNetworkLooks;
  for (Addresses& record : records) {
    // A listener has looked meanwhile, and has seen what came after this.
    if (looks != mNetworkLooks) return NS_OK;
    SYSTEM_LOG_DEBUG(mLogger, "AdapterName = " + record.mAdapterName);
    SYSTEM_LOG_DEBUG(mLogger,
                     "FriendlyName=" + NS_ToUtf8(std::u16string_view(record.mFriendlyName)));
    SYSTEM_LOG_DEBUG(mLogger, "Description=" + NS_ToUtf8(std::u16string_view(record.mDescription)));
    const auto info = infoByName.find(record.mAdapterName);
    if (info == infoByName.end()) continue;
    CorrectInterfaceType(network, GetIfEntry2Func, mLogger.get(), record);

    const nsString sysPath(vorel::NameToUtf16(record.mAdapterName));
    nsCOMPtr<nsISystemAdapter> adapter;
    rv = GetAdapterBySysPath(nullptr, sysPath, adapter.getter_AddRefs());
    NS_ENSURE_SUCCESS(rv, rv);
    auto* const ip = dynamic_cast<nsSystemAdapterIP*>(adapter.get());
    if (ip && ip->IfIndex() != record.mIfIndex) {
      // The interface has gone, or has another name by now, and another one has taken over its own.
      StrikeOut(*ipAdapters, adapter.get());
      (void)RemoveAdapter(adapter.get());
      if (looks != mNetworkLooks) return NS_OK;
      adapter = nullptr;
    }
    if (!adapter) {
      if (record.mIfType == Addresses::kEthernet) {
        SYSTEM_LOG_DEBUG(mLogger, "Adding Network adapter of type IF_TYPE_ETHERNET_CSMACD");
        rv = NewAdapter<nsSystemAdapterLAN>(mPlatform, *info->second, record,
                                            adapter.getter_AddRefs());
      } else if (record.mIfType == Addresses::kWireless) {
        SYSTEM_LOG_DEBUG(mLogger, "Adding Network adapter of type IF_TYPE_IEEE80211");
        rv = NewAdapter<nsSystemAdapterWLAN>(mPlatform, *info->second, record,
                                             adapter.getter_AddRefs());
      }
      if (NS_FAILED(rv)) return rv;
      if (adapter) (void)AddAdapter(adapter.get());
      continue;
    }

    SYSTEM_LOG_DEBUG(mLogger, "Update adapter sysPath=" + NS_ToUtf8(sysPath));
    NS_ENSURE_TRUE(ip, NS_ERROR_UNEXPECTED);  // an adapter of another kind bears that system path
    bool modified = false;
    rv = ip->Update(*info->second, record, &modified);
    NS_ENSURE_SUCCESS(rv, rv);
    if (modified) {
      SYSTEM_LOG_DEBUG(mLogger, "Adapter is modified");
      (void)NotifyAdapterChanged(adapter.get());
    }
    StrikeOut(*ipAdapters, adapter.get());
  }
  return RemoveLeftovers(*ipAdapters, &mNetworkLooks);
}

// The receiver's scan, and the lists of services.
#include <algorithm>
#include <cstdlib>
#include <string>
#include <utility>

#include "IFrequencyMap.h"
#include "nsAscii.h"
#include "nsCountryTable.h"
#include "nsDvbText.h"
#include "nsIBDAScanResultDigitalTvService.h"
#include "nsIDigitalTvAudioChannel.h"
#include "nsIEventTarget.h"
#include "nsIIsoCountry.h"
#include "nsLogger.h"
#include "nsPlatformMedia.h"
#include "nsServices.h"
#include "nsSystemAdapterDigitalTvReceiver.h"
#include "nsSystemBDAGraph.h"
#include "nsVorelMethodCaller.h"

namespace {

constexpr uint32_t kScanBandwidth = 8;  // MHz
/// Two transmitters of one network may send a service a sixth of a megahertz apart.
constexpr int64_t kSameChannel = 1000;  // kHz

template <class Interface>
std::string LowerNameOf(Interface* aService) {
  nsCString name;
  (void)aService->GetName(name);
  return NS_ToLowerAscii(name.view());
}

std::string Decimal(nsresult aRv) { return std::to_string(static_cast<int32_t>(aRv)); }

}  // namespace

// ---- Asking for a scan

nsresult nsSystemAdapterDigitalTvReceiver::StartScan(nsIIsoCountry* aCountry) {
  if (!aCountry) return NS_ERROR_NULL_POINTER;
  if (mScanState == 0) {
    SYSTEM_LOG_ERROR(mLog, "Scan Already in progress");
    return NS_ERROR_FAILURE;
  }
  nsCString iso;
  (void)aCountry->GetCode(iso);
  uint32_t code = 0;
  mapIsoCodeToCountryCode(iso.view(), &code);

  mScanState = 0;
  mFrequenciesDone = 0;
  mFrequenciesLocked = 0;
  mStopScan = false;
  if (!mGraph->StartGraph()) {
    mScanState = -1;
    SYSTEM_LOG_ERROR(mLog, "Failed to run graph");
    return NS_ERROR_FAILURE;
  }
  nsresult rv;
  const auto map = do_QueryInterface<IFrequencyMap>(mGraph->mNetworkProvider, &rv);
  if (NS_FAILED(rv)) {
    mScanState = -1;
    SYSTEM_LOG_ERROR(mLog, "Cannot query Frequency Mapping interface");
    return rv;
  }
  uint32_t count = 0;
  uint32_t* frequencies = nullptr;
  rv = map->get_DefaultFrequencyMapping(code, &count, &frequencies);
  if (NS_FAILED(rv)) {
    // The state stays 0, so that the next StartScan says that a scan is in progress: kept as it
    // stands.
    SYSTEM_LOG_ERROR(mLog, "Unable to retrieve default Frequency Mapping for " +
                               std::to_string(code) + " : " + Decimal(rv));
    return rv;
  }
  {
    const nsAutoLock lock(mListLock);
    mFrequencies.assign(frequencies, frequencies + (frequencies ? count : 0));
    if (mTvServicesFoundByScan) (void)mTvServicesFoundByScan->Clear();
  }
  mPlatform->mMedia->CoTaskMemFree(frequencies);
  if (mScanStarted) {
    SYSTEM_LOG_ERROR(mLog, "Device busy.");
    return NS_ERROR_NOT_AVAILABLE;
  }

  mScanStarted = true;
  const auto pool = do_GetService<nsIEventTarget>(VOREL_THREADPOOL_CONTRACTID, &rv);
  if (pool)
    rv = pool->Dispatch(NS_NewRunnableMethodCaller<vorel::threads::eStrong>(
                            this, &nsSystemAdapterDigitalTvReceiver::RunScan)
                            .get(),
                        NS_DISPATCH_NORMAL);
  // What can't be queued does not run, now or later.
  if (NS_FAILED(rv)) {
    mScanStarted = false;
    mScanState = -1;
  }
  return rv;
}

nsresult nsSystemAdapterDigitalTvReceiver::StopScan() {
  mStopScan = true;
  mScanner.ReleaseMpeg2Data();
  return NS_OK;
}

bool nsSystemAdapterDigitalTvReceiver::IsScanStopped() { return mStopScan; }

nsresult nsSystemAdapterDigitalTvReceiver::GetScanProgress(int32_t* aState, uint32_t* aTotal,
                                                           uint32_t* aDone, uint32_t* aLocked,
                                                           uint32_t* aFound) {
  *aState = mScanState;
  *aDone = mFrequenciesDone;
  *aLocked = mFrequenciesLocked;
  uint32_t found = 0;
  const nsAutoLock lock(mListLock);
  *aTotal = static_cast<uint32_t>(mFrequencies.size());
  if (mTvServicesFoundByScan) (void)mTvServicesFoundByScan->GetLength(&found);
  *aFound = found;
  return NS_OK;
}

// ---- The scan, on a thread of the pool

nsresult nsSystemAdapterDigitalTvReceiver::RunScan() {
  std::vector<uint32_t> frequencies;
  {
    const nsAutoLock lock(mListLock);
    frequencies = mFrequencies;
  }
  for (const uint32_t frequency : frequencies) {
    if (mStopScan) break;
    if (NS_FAILED(scanChannel(frequency, kScanBandwidth)))
      SYSTEM_LOG_DEBUG(mLog, "Nothing found on " + std::to_string(frequency) + " kHz.");
    ++mFrequenciesDone;
  }
  (void)mGraph->StopGraph();
  mScanStarted = false;
  mScanState = mStopScan ? -2 : 1;
  return NS_OK;
}

nsresult nsSystemAdapterDigitalTvReceiver::scanChannel(uint32_t aFrequency, uint32_t aBandwidth) {
  mScanner.ResetScanner();
  mScanner.SetMpeg2Data(mGraph->mSectionsFilter.get());
  // A request to stop that came before this was a release of nothing.
  if (mStopScan) mScanner.ReleaseMpeg2Data();
  const nsresult rv = mGraph->LockChannel(*this, static_cast<int32_t>(aFrequency),
                                          static_cast<int32_t>(aBandwidth));
  if (NS_FAILED(rv)) {
    mScanner.ReleaseMpeg2Data();
    return rv;
  }
  ++mFrequenciesLocked;
  mScanner.StartScanning();
  switch (mScanner.WaitScanningDone()) {
    case WAIT_OBJECT_0:
      (void)updateServices(aFrequency);
      break;
    case WAIT_TIMEOUT:
      SYSTEM_LOG_ERROR(mLog, "Scan timed out.");
      break;
    default:
      SYSTEM_LOG_ERROR(mLog, "Scan Failed.");
  }
  mScanner.ReleaseMpeg2Data();
  return NS_OK;
}

nsresult nsSystemAdapterDigitalTvReceiver::updateServices(uint32_t aFrequency) {
  nsCOMPtr<nsIMutableArray> channels;
  nsresult rv = NewArray(&channels);
  if (NS_FAILED(rv)) return rv;
  nsSystemBDAScanner::TransponderData transponder;
  rv = mScanner.GetTransponderData(&transponder);
  if (NS_FAILED(rv)) {
    SYSTEM_LOG_ERROR(mLog, "Unable to get transponder data");
    return rv;
  }
  const std::vector<BDAService*> services = mScanner.getCurrentServices(&rv);
  if (NS_FAILED(rv)) {
    SYSTEM_LOG_ERROR(mLog, "Unable to list newly detected services");
    return rv;
  }

  for (const BDAService* found : services) {
    if (found->service_name.empty() || found->provider_name.empty()) continue;
    nsCString name, provider;
    if (NS_FAILED(decodeDvbText(found->service_name, name))) {
      SYSTEM_LOG_ERROR(mLog, "Failed to convert service name");
      continue;
    }
    if (NS_FAILED(decodeDvbText(found->provider_name, provider))) {
      SYSTEM_LOG_ERROR(mLog, "Failed to convert provider name");
      continue;
    }
    bool keepOld = false;
    (void)selectDuplicateService(name.view(), aFrequency, &keepOld);
    if (keepOld) continue;

    const auto service = do_CreateInstance<nsIBDAScanResultDigitalTvService>(
        "@vorel/bdascanresultdigitaltvservice;1", &rv);
    if (!service) return rv;
    // Of this moment, which need not be the one at which the service was read.
    uint32_t quality = 0;
    int32_t level = 0;
    (void)GetQuality(&quality);
    (void)GetLevel(&level);
    (void)service->SetName(name);
    (void)service->SetQuality(quality);
    (void)service->SetProvider(provider);
    (void)service->SetFrequency(aFrequency);  // where it was found, not what the network says
    (void)service->SetBandwidth(static_cast<uint32_t>(transponder.bandwidth));
    (void)service->SetLevel(level);
    (void)service->SetServiceId(static_cast<uint16_t>(found->service_id));
    (void)service->SetCodeRateHP(static_cast<uint32_t>(transponder.code_rate_hp));
    (void)service->SetCodeRateLP(static_cast<uint32_t>(transponder.code_rate_lp));
    (void)service->SetConstellation(static_cast<uint32_t>(transponder.constellation));
    (void)service->SetTransmissionMode(static_cast<uint32_t>(transponder.transmission_mode));
    (void)service->SetHierarchy(0);
    (void)service->SetGuardInterval(static_cast<uint32_t>(transponder.guard_interval));
    (void)service->SetPriority(transponder.priority);
    (void)service->SetVideoPid(found->video_pid);
    (void)service->SetPmtPid(found->pmt_pid);

    const std::pair<const BDAService::Audio*, uint32_t> kinds[] = {
        {&found->audio, nsIDigitalTvAudioChannel::AUDIO_MPEG},
        {&found->ac3, nsIDigitalTvAudioChannel::AUDIO_AC3},
        {&found->eac3, nsIDigitalTvAudioChannel::AUDIO_EAC3}};
    for (const auto& [audio, kind] : kinds)
      for (int32_t i = 0; i < audio->num; ++i) {
        const auto at = static_cast<size_t>(i);
        const auto channel =
            do_CreateInstance<nsIDigitalTvAudioChannel>("@vorel/digitaltvaudiochannel;1", &rv);
        if (!channel) return rv;
        (void)channel->SetType(kind);
        (void)channel->SetPid(audio->pid[at]);
        if (audio->lang[at][0]) (void)channel->SetLanguage(nsCString(audio->lang[at].data()));
        (void)channels->AppendElement(channel.get(), false);
      }
    (void)service->SetAudioChannels(channels.get());
    (void)channels->Clear();
    const nsAutoLock lock(mListLock);
    if (mTvServicesFoundByScan) (void)mTvServicesFoundByScan->AppendElement(service.get(), false);
  }
  return NS_OK;
}

nsresult nsSystemAdapterDigitalTvReceiver::selectDuplicateService(std::string_view aName,
                                                                  uint32_t aFrequency,
                                                                  bool* aKeepOld) {
  *aKeepOld = false;
  const std::string name = NS_ToLowerAscii(aName);
  nsCOMPtr<nsIBDAScanResultDigitalTvService> old;
  uint32_t oldFrequency = 0;
  {
    const nsAutoLock lock(mListLock);
    uint32_t length = 0;
    if (mTvServicesFoundByScan) (void)mTvServicesFoundByScan->GetLength(&length);
    for (uint32_t i = 0; i < length && !old; ++i) {
      nsCOMPtr<nsIBDAScanResultDigitalTvService> element;
      if (NS_FAILED(mTvServicesFoundByScan->QueryElementAt(
              i, nsIBDAScanResultDigitalTvService::kIID, NS_OutVoid(element)))) {
        SYSTEM_LOG_ERROR(mLog, "Unable to get element " + std::to_string(i));
        return NS_ERROR_FAILURE;
      }
      (void)element->GetFrequency(&oldFrequency);
      const int64_t apart = int64_t{aFrequency} - int64_t{oldFrequency};
      if (std::abs(apart) < kSameChannel && LowerNameOf(element.get()) == name) old = element;
    }
  }
  if (!old) return NS_OK;

  // One service received twice, through neighbouring frequencies.
  uint32_t quality = 0, oldQuality = 0;
  int32_t level = 0, oldLevel = 0;
  (void)GetQuality(&quality);
  (void)old->GetQuality(&oldQuality);
  if (quality != oldQuality) {
    *aKeepOld = oldQuality > quality;
  } else {
    (void)GetLevel(&level);
    (void)old->GetLevel(&oldLevel);
    if (level != oldLevel)
      *aKeepOld = oldLevel > level;
    else
      *aKeepOld = aFrequency % 100 != 0;
  }
  if (*aKeepOld) return NS_OK;
  const nsAutoLock lock(mListLock);
  uint32_t index = 0;
  if (NS_SUCCEEDED(mTvServicesFoundByScan->IndexOf(0, old.get(), &index)))
    (void)mTvServicesFoundByScan->RemoveElementAt(index);
  return NS_OK;
}

// ---- The lists

nsresult nsSystemAdapterDigitalTvReceiver::GetServicesFoundByScan(nsIArray** aServicesFoundByScan) {
  return CopyOf(mTvServicesFoundByScan, "mTvServicesFoundByScan", aServicesFoundByScan);
}

nsresult nsSystemAdapterDigitalTvReceiver::GetServices(nsIArray** aServices) {
  if (mTvServices) {
    const nsresult rv = mChannelsFile.Refresh(mTvServices.get());
    if (NS_FAILED(rv)) return rv;
  }
  return CopyOf(mTvServices, "mTvServices", aServices);
}

nsresult nsSystemAdapterDigitalTvReceiver::HaveNameTwice(nsIArray* aServices, bool* aTwice) {
  uint32_t length = 0;
  (void)aServices->GetLength(&length);
  *aTwice = false;
  if (length < 2) return NS_OK;
  std::vector<std::string> names;
  for (uint32_t i = 0; i < length; ++i) {
    nsCOMPtr<nsIDigitalTvService> service;
    if (NS_FAILED(aServices->QueryElementAt(i, nsIDigitalTvService::kIID, NS_OutVoid(service)))) {
      SYSTEM_LOG_ERROR(mLog,
                       "Incorrect array object type, should be nsIBDAScanResultDigitalTvService");
      // The first one is compared with all others before the second one is: no other pair has had
      // its turn.
      *aTwice = !names.empty() && std::ranges::count(names, names[0]) > 1;
      return NS_ERROR_FAILURE;
    }
    names.push_back(LowerNameOf(service.get()));
  }
  std::ranges::sort(names);
  *aTwice = std::ranges::adjacent_find(names) != names.end();
  return NS_OK;
}

nsresult nsSystemAdapterDigitalTvReceiver::SetServices(nsIArray* aServices) {
  if (!aServices) return NS_ERROR_NULL_POINTER;
  if (!mTvServices) {
    SYSTEM_LOG_ERROR(mLog, "mTvServices uninitialized");
    return NS_ERROR_FAILURE;
  }
  bool twice = false;
  nsresult rv = HaveNameTwice(aServices, &twice);
  if (twice) {
    SYSTEM_LOG_ERROR(mLog, "The same service was passed twice, aborting");
    return NS_ERROR_FAILURE;
  }
  // What is no service does not keep those in front of it out of the list, only out of the file:
  // kept as it stands.
  (void)mTvServices->Clear();
  uint32_t length = 0;
  (void)aServices->GetLength(&length);
  for (uint32_t i = 0; i < length; ++i) {
    nsCOMPtr<nsIDigitalTvService> service;
    if (NS_FAILED(aServices->QueryElementAt(i, nsIDigitalTvService::kIID, NS_OutVoid(service)))) {
      rv = NS_ERROR_FAILURE;
      break;
    }
    (void)mTvServices->AppendElement(service.get(), false);
  }
  return NS_FAILED(rv) ? rv : mChannelsFile.writeChannelsFile(aServices);
}

#include "nsSystemAdapterDigitalTvReceiver.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>

#include "IBDA_Topology.h"
#include "IFrequencyMap.h"
#include "nsCountryTable.h"
#include "nsIIsoCountry.h"
#include "nsLogger.h"
#include "nsPlatformMedia.h"
#include "nsServices.h"
#include "nsSystemArray.h"
#include "nsSystemBDAGraph.h"
#include "nsVorelMethodCaller.h"

nsSystemAdapterDigitalTvReceiver::nsSystemAdapterDigitalTvReceiver(nsPlatformRef aPlatform)
    : nsSystemAdapterDigitalTvReceiver(std::move(aPlatform), Times()) {}

nsSystemAdapterDigitalTvReceiver::nsSystemAdapterDigitalTvReceiver(nsPlatformRef aPlatform,
                                                                   Times aTimes)
    : mPlatform(std::move(aPlatform)),
      mTimes(aTimes),
      mLog(NS_GetLogger("system.adapter.digitaltvreceiver")),
      mGraph(std::make_unique<nsSystemBDAGraph>(
          mPlatform, nsSystemBDAGraph::Times{.mRoundWait = aTimes.mLockRound})),
      mScanner(aTimes.mScanner) {}

nsSystemAdapterDigitalTvReceiver::~nsSystemAdapterDigitalTvReceiver() {
  (void)mGraph->StopGraph();
  mGraph->TearDownGraph(*this);
  // Also when another receiver has set it: kept as it stands, the next Init sets it again.
  nsChannelsFile::DropPath();
}

nsresult nsSystemAdapterDigitalTvReceiver::Observe(nsISupports*, const char*, const char16_t*) {
  return NS_OK;
}

// ---- The filters of the tuner, for the graph

nsresult nsSystemAdapterDigitalTvReceiver::AddFilters(IGraphBuilder* aGraph) {
  mFilterGraph = aGraph;
  const auto add = [&](const DirectShowSystemDevice& aDevice, nsCOMPtr<IBaseFilter>* aFilter,
                       const char* aFailure) -> nsresult {
    const auto text = [](const std::optional<std::u16string>& aText) {
      return aText ? aText->c_str() : nullptr;
    };
    if (NS_SUCCEEDED(mGraph->AddFilterByDevicePath(aGraph, aFilter->getter_AddRefs(),
                                                   text(aDevice.mDevicePath),
                                                   text(aDevice.mFriendlyName))))
      return NS_OK;
    SYSTEM_LOG_ERROR(mLog, aFailure);
    return NS_ERROR_FAILURE;
  };
  nsresult rv = add(mTuner, &mTunerFilter, "Cannot load Tuner Device.");
  if (NS_SUCCEEDED(rv) && mDemod.mPresent)
    rv = add(mDemod, &mDemodFilter, "Cannot load Demod Device.");
  if (NS_SUCCEEDED(rv) && mCapture.mPresent)
    rv = add(mCapture, &mCaptureFilter, "Cannot load Capture Device.");
  return rv;
}

nsresult nsSystemAdapterDigitalTvReceiver::Connect(IBaseFilter* aProvider) {
  if (!mFilterGraph) return NS_ERROR_FAILURE;
  const auto connect = [&](IBaseFilter* aFrom, IBaseFilter* aTo, const char* aFailure) {
    if (NS_SUCCEEDED(mGraph->ConnectFilters(mFilterGraph.get(), aFrom, aTo))) return true;
    SYSTEM_LOG_ERROR(mLog, aFailure);
    return false;
  };
  if (!connect(aProvider, mTunerFilter.get(),
               "Failed to connect Network Provider to Tuner Filter."))
    return NS_ERROR_FAILURE;
  IBaseFilter* last = mTunerFilter.get();
  if (mDemod.mPresent) {
    if (!connect(last, mDemodFilter.get(), "Failed to connect Tuner Filter to Demod Filter."))
      return NS_ERROR_FAILURE;
    last = mDemodFilter.get();
  }
  if (mCapture.mPresent) {
    if (!connect(last, mCaptureFilter.get(),
                 mDemod.mPresent ? "Failed to connect Demod Filter to Capture Filter."
                                 : "Failed to connect Tuner Filter to Capture Filter."))
      return NS_ERROR_FAILURE;
    last = mCaptureFilter.get();
  }

  mTransportStreamPin = nullptr;
  for (const nsID& subtype :
       {KSDATAFORMAT_SUBTYPE_BDA_MPEG2_TRANSPORT, MEDIASUBTYPE_MPEG2_TRANSPORT})
    if (NS_SUCCEEDED(mGraph->FindPinByMediaType(
            last, MEDIATYPE_Stream, subtype, mTransportStreamPin.getter_AddRefs(), PINDIR_OUTPUT)))
      return NS_OK;
  SYSTEM_LOG_ERROR(mLog, "Failed to find Tranport Stream pin on last filter.");
  return NS_ERROR_FAILURE;
}

nsresult nsSystemAdapterDigitalTvReceiver::GetTransportStreamPin(IPin** aPin) {
  if (!mTransportStreamPin) return NS_ERROR_FAILURE;
  nsCOMPtr<IPin>(mTransportStreamPin).forget(aPin);
  return NS_OK;
}

void nsSystemAdapterDigitalTvReceiver::RemoveFilters() {
  mTransportStreamPin = nullptr;
  mSignalStatistics = nullptr;
  for (nsCOMPtr<IBaseFilter>* filter : {&mTunerFilter, &mDemodFilter, &mCaptureFilter}) {
    if (*filter && mFilterGraph) (void)mFilterGraph->RemoveFilter(filter->get());
    *filter = nullptr;
  }
  mFilterGraph = nullptr;
}

// ---- Setting up

nsresult nsSystemAdapterDigitalTvReceiver::Init() {
  nsresult rv = mGraph->SetupGraph(*this);
  if (NS_FAILED(rv)) return rv;
  if (!mTunerFilter) return NS_ERROR_FAILURE;
  rv = LookAtTopology();
  if (NS_FAILED(rv)) return rv;
  rv = ListCountries();
  if (NS_FAILED(rv)) return rv;
  if (NS_FAILED(NewArray(&mTvServices)) || NS_FAILED(NewArray(&mTvServicesFoundByScan)))
    return NS_ERROR_FAILURE;

  // The directory service is for the main thread.
  if (NS_IsMainThread())
    (void)initChannelsFilePath();
  else
    (void)NS_DispatchToMainThread(NS_NewRunnableMethodCaller<vorel::threads::eStrong>(
                                      this, &nsSystemAdapterDigitalTvReceiver::initChannelsFilePath)
                                      .get(),
                                  NS_DISPATCH_SYNC);
  if (NS_FAILED(mChannelsFile.parseChannelsFile(mTvServices.get())))
    SYSTEM_LOG_ERROR(mLog, "Unable to parse channel file : " + nsChannelsFile::Path());
  return NS_OK;
}

nsresult nsSystemAdapterDigitalTvReceiver::LookAtTopology() {
  constexpr uint32_t kMostNodes = 32, kMostInterfaces = 32, kMostDescriptors = 20;

  const auto topology = do_QueryInterface<IBDA_Topology>(mTunerFilter);
  if (!topology) {
    SYSTEM_LOG_ERROR(mLog, "Cannot find IID_IBDA_Topology.");
    return NS_ERROR_FAILURE;
  }
  std::array<uint32_t, kMostNodes> nodes{};
  uint32_t nodeCount = 0;
  if (NS_FAILED(topology->GetNodeTypes(&nodeCount, kMostNodes, nodes.data()))) {
    SYSTEM_LOG_ERROR(mLog, "Cannot find Node Types.");
    return NS_ERROR_FAILURE;
  }
  nodeCount = std::min(nodeCount, kMostNodes);
  SYSTEM_LOG_DEBUG(mLog, std::to_string(nodeCount) + " Node Types");

  for (uint32_t i = 0; i < nodeCount; ++i) {
    std::array<nsID, kMostInterfaces> interfaces{};
    uint32_t count = 0;
    if (NS_FAILED(
            topology->GetNodeInterfaces(nodes[i], &count, kMostInterfaces, interfaces.data())))
      continue;
    const auto end = interfaces.begin() + std::min(count, kMostInterfaces);
    if (std::find(interfaces.begin(), end, IBDA_SignalStatistics::kIID) == end) continue;
    nsCOMPtr<nsISupports> node;
    if (NS_FAILED(topology->GetControlNode(0, 1, nodes[i], node.getter_AddRefs()))) continue;
    // The last node that has them tells the signal.
    if (const auto statistics = do_QueryInterface<IBDA_SignalStatistics>(node))
      mSignalStatistics = statistics;
  }

  std::array<BDANODE_DESCRIPTOR, kMostDescriptors> descriptors{};
  uint32_t descriptorCount = 0;
  if (NS_FAILED(
          topology->GetNodeDescriptors(&descriptorCount, kMostDescriptors, descriptors.data()))) {
    SYSTEM_LOG_ERROR(mLog, "BDA2: GetNetworkTunerType: Failed getting node descriptors");
    return NS_OK;
  }
  static constexpr std::pair<nsID, uint16_t> kSystems[] = {{KSNODE_BDA_QPSK_DEMODULATOR, 0},
                                                           {KSNODE_BDA_COFDM_DEMODULATOR, 2},
                                                           {KSNODE_BDA_QAM_DEMODULATOR, 1},
                                                           {KSNODE_BDA_8VSB_DEMODULATOR, 3}};
  // As many descriptors are looked at as there are node types, not as there are descriptors: kept
  // as it stands, as it decides under which system a tuner's channels go.
  const auto systemOf = [](const BDANODE_DESCRIPTOR& aDescriptor) {
    return std::ranges::find(kSystems, aDescriptor.guidFunction, &std::pair<nsID, uint16_t>::first);
  };
  for (uint32_t i = 0; i < std::min(nodeCount, kMostDescriptors); ++i)
    if (const auto* system = systemOf(descriptors[i]); system != std::end(kSystems)) {
      mDeliverySystem = system->second;
      break;
    }
  mLabel.Assign(mTuner.mFriendlyName.value_or(u""));
  return NS_OK;
}

nsresult nsSystemAdapterDigitalTvReceiver::ListCountries() {
  nsresult rv = NewArray(&mSupportedCountries);
  if (NS_FAILED(rv)) return rv;
  const auto map = do_QueryInterface<IFrequencyMap>(mGraph->mNetworkProvider, &rv);
  if (!map) {
    SYSTEM_LOG_ERROR(mLog, "Cannot query Frequency Mapping interface");
    return NS_ERROR_FAILURE;
  }
  uint32_t count = 0;
  uint32_t* codes = nullptr;
  rv = map->get_CountryCodeList(&count, &codes);
  if (NS_FAILED(rv)) {
    SYSTEM_LOG_ERROR(
        mLog, "Unable to retrieve country code list " + std::to_string(static_cast<int32_t>(rv)));
    return NS_ERROR_FAILURE;
  }
  const std::vector<uint32_t> list(codes, codes + (codes ? count : 0));
  mPlatform->mMedia->CoTaskMemFree(codes);
  for (const uint32_t code : list)
    if (NS_FAILED(AppendCountries(code))) return NS_ERROR_FAILURE;
  return NS_OK;
}

nsresult nsSystemAdapterDigitalTvReceiver::AppendCountries(uint32_t aCallingCode) {
  std::vector<std::string> names, codes;
  appendCountriesOfCode(aCallingCode, &names, &codes);
  for (size_t i = 0; i < names.size(); ++i) {
    const auto country = do_CreateInstance<nsIIsoCountry>("@vorel/isocountry;1");
    if (!country) {
      SYSTEM_LOG_ERROR(mLog, "Null pointer returned by createInstance");
      return NS_ERROR_FAILURE;
    }
    (void)country->SetCode(nsDependentCString(codes[i]));
    (void)country->SetName(nsDependentCString(names[i]));
    if (NS_FAILED(mSupportedCountries->AppendElement(country.get(), false))) {
      SYSTEM_LOG_ERROR(mLog, "Failed to AppendElement in nsIArray \"");
      return NS_ERROR_FAILURE;
    }
  }
  return NS_OK;
}

nsresult nsSystemAdapterDigitalTvReceiver::NewArray(nsCOMPtr<nsIMutableArray>* aArray) {
  if (auto array = do_CreateInstance<nsIMutableArray>(VOREL_ARRAY_CONTRACTID)) {
    *aArray = std::move(array);
    return NS_OK;
  }
  SYSTEM_LOG_ERROR(mLog, "Failed to create nsIArray instance \"");
  return NS_ERROR_FAILURE;
}

nsresult nsSystemAdapterDigitalTvReceiver::initChannelsFilePath() {
  return mChannelsFile.initChannelsFilePath(mDeliverySystem);
}

nsresult nsSystemAdapterDigitalTvReceiver::CopyOf(const nsCOMPtr<nsIMutableArray>& aList,
                                                  const char* aName, nsIArray** aCopy) {
  if (!aList) {
    SYSTEM_LOG_ERROR(mLog, std::string(aName) + " uninitialized");
    return NS_ERROR_FAILURE;
  }
  nsCOMPtr<nsISimpleEnumerator> elements;
  nsresult rv;
  {
    const nsAutoLock lock(mListLock);
    rv = aList->Enumerate(elements.getter_AddRefs());
  }
  if (NS_SUCCEEDED(rv)) rv = NS_NewScriptArray(aCopy, elements.get());
  if (NS_SUCCEEDED(rv)) return NS_OK;
  SYSTEM_LOG_ERROR(mLog, "Failed to create nsIArray instance \"");
  return NS_ERROR_FAILURE;
}

// ---- What is known of the tuner

nsresult nsSystemAdapterDigitalTvReceiver::GetDeliverySystem(uint32_t* aDeliverySystem) {
  *aDeliverySystem = mDeliverySystem;
  return NS_OK;
}

nsresult nsSystemAdapterDigitalTvReceiver::GetSupportedCountries(nsIArray** aSupportedCountries) {
  return CopyOf(mSupportedCountries, "mSupportedCountries", aSupportedCountries);
}

nsresult nsSystemAdapterDigitalTvReceiver::GetLocked(bool* aLocked) {
  if (!mSignalStatistics) return NS_ERROR_FAILURE;
  uint8_t locked = 0;
  const nsresult rv = mSignalStatistics->get_SignalLocked(&locked);
  if (NS_SUCCEEDED(rv)) *aLocked = locked != 0;
  return rv;
}

nsresult nsSystemAdapterDigitalTvReceiver::GetLevel(int32_t* aLevel) {
  if (mSignalStatistics && NS_SUCCEEDED(mSignalStatistics->get_SignalStrength(aLevel)))
    return NS_OK;
  SYSTEM_LOG_ERROR(mLog, "Unable to get signal Strength");
  // With the failure: kept as it stands, services found without a level carry it.
  *aLevel = -1;
  return NS_ERROR_FAILURE;
}

nsresult nsSystemAdapterDigitalTvReceiver::Reserved(void*) { return NS_OK; }

nsresult nsSystemAdapterDigitalTvReceiver::GetQuality(uint32_t* aQuality) {
  int32_t quality = 0;
  // A success in any case: kept as it stands, a tuner that does not tell is no error.
  if (mSignalStatistics && NS_SUCCEEDED(mSignalStatistics->get_SignalQuality(&quality)))
    *aQuality = static_cast<uint32_t>(quality);
  return NS_OK;
}

#include "nsFindCaptureDevice.h"

#include <string>
#include <utility>

#include "IBaseFilter.h"
#include "IGraphBuilder.h"
#include "ITuneRequest.h"
#include "ITuner.h"
#include "ITuningSpace.h"
#include "nsAscii.h"
#include "nsDirectShowTypes.h"
#include "nsLogger.h"
#include "nsPlatformMedia.h"
#include "nsString.h"
#include "nsSystemBDAGraph.h"

namespace {

const char16_t* TextOf(const std::optional<std::u16string>& aText) {
  return aText ? aText->c_str() : nullptr;
}

bool IsSamePath(const DirectShowSystemDevice& aA, const DirectShowSystemDevice& aB) {
  const auto lower = [](const DirectShowSystemDevice& aDevice) {
    return NS_ToLowerAscii(NS_ToUtf8(std::u16string_view(aDevice.mDevicePath.value_or(u""))));
  };
  return lower(aA) == lower(aB);
}

/// The graph on which devices are tried out.
class Trial {
 public:
  Trial(const nsPlatformRef& aPlatform, nsCOMPtr<nsILog4Logger> aLog)
      : mPlatform(aPlatform), mTools(aPlatform), mLog(std::move(aLog)) {}

  ~Trial() {
    if (!mGraph) return;
    (void)mTools.DisconnectAllPins(mGraph.get());
    for (const nsCOMPtr<IBaseFilter>* filter : {&mProvider, &mTuner, &mDemod, &mCapture})
      if (*filter) (void)mGraph->RemoveFilter(filter->get());
  }
  Trial(const Trial&) = delete;
  Trial& operator=(const Trial&) = delete;

  /// The network provider, tuned to nowhere, with the tuner behind it.
  bool Prepare(const DirectShowSystemDevice& aTuner) {
    nsCOMPtr<ITuningSpace> space;
    nsCOMPtr<ITuneRequest> request;
    char16_t* type = nullptr;
    nsCID provider;
    if (NS_FAILED(mPlatform->mMedia->CoCreateInstance(CLSID_FilterGraph, CLSCTX_ALL,
                                                      IGraphBuilder::kIID, NS_OutVoid(mGraph))) ||
        NS_FAILED(mTools.InitDVBTTuningSpace(space.getter_AddRefs())) ||
        NS_FAILED(space->get_NetworkType(&type)) || !type)
      return false;
    const std::string text = NS_ToUtf8(std::u16string_view(type));
    mPlatform->mMedia->SysFreeString(type);
    if (!nsID::Parse(text, &provider) ||
        NS_FAILED(mTools.AddFilter(mGraph.get(), provider, mProvider.getter_AddRefs(),
                                   u"Network Provider")) ||
        NS_FAILED(mTools.CreateDVBTTuneRequest(space.get(), request.getter_AddRefs(), -1, -1)))
      return false;
    const auto tuner = do_QueryInterface<ITuner>(mProvider);
    return tuner && NS_SUCCEEDED(tuner->put_TuneRequest(request.get())) &&
           Add(aTuner, mProvider.get(), &mTuner);
  }

  /// The first device that takes what comes from a filter, other than aNot; null for none.
  std::unique_ptr<DirectShowSystemDevice> FindBehind(IBaseFilter* aUpstream,
                                                     const DirectShowSystemDevice* aNot,
                                                     nsCOMPtr<IBaseFilter>* aFilter) {
    DirectShowSystemDeviceEnumerator devices(mPlatform, KSCATEGORY_BDA_RECEIVER_COMPONENT);
    std::unique_ptr<DirectShowSystemDevice> device;
    while (devices.Next(&device) == NS_OK) {
      if (aNot && IsSamePath(*device, *aNot)) continue;
      if (Add(*device, aUpstream, aFilter)) return device;
      if (!aNot) SYSTEM_LOG_DEBUG(mLog, "Connection failed, trying next card.");
    }
    return nullptr;
  }

  void Find(const DirectShowSystemDevice& aTuner, std::unique_ptr<DirectShowSystemDevice>* aDemod,
            std::unique_ptr<DirectShowSystemDevice>* aCapture) {
    SYSTEM_LOG_DEBUG(mLog, "Finding demod and capture filter.");
    if (Prepare(aTuner)) *aDemod = FindBehind(mTuner.get(), nullptr, &mDemod);
    if (*aDemod) {
      SYSTEM_LOG_DEBUG(mLog, "Tuner <-> Demod : Success !");
      SYSTEM_LOG_DEBUG(mLog, "Checking for Capture filter.");
      *aCapture = FindBehind(mDemod.get(), aDemod->get(), &mCapture);
      if (*aCapture) SYSTEM_LOG_DEBUG(mLog, "Demod <-> Capture : Success !");
    }
  }

 private:
  bool Add(const DirectShowSystemDevice& aDevice, IBaseFilter* aUpstream,
           nsCOMPtr<IBaseFilter>* aFilter) {
    nsCOMPtr<IBaseFilter> filter;
    if (NS_FAILED(mTools.AddFilterByDevicePath(mGraph.get(), filter.getter_AddRefs(),
                                               TextOf(aDevice.mDevicePath),
                                               TextOf(aDevice.mFriendlyName))))
      return false;
    if (NS_FAILED(mTools.ConnectFilters(mGraph.get(), aUpstream, filter.get()))) {
      (void)mGraph->RemoveFilter(filter.get());
      return false;
    }
    *aFilter = filter;
    return true;
  }

  const nsPlatformRef mPlatform;
  nsSystemBDAGraph mTools;
  const nsCOMPtr<nsILog4Logger> mLog;
  nsCOMPtr<IGraphBuilder> mGraph;
  nsCOMPtr<IBaseFilter> mProvider, mTuner, mDemod, mCapture;
};

}  // namespace

nsresult FindCaptureDevice(const nsPlatformRef& aPlatform, const DirectShowSystemDevice& aTuner,
                           std::unique_ptr<DirectShowSystemDevice>* aDemod,
                           std::unique_ptr<DirectShowSystemDevice>* aCapture) {
  std::unique_ptr<DirectShowSystemDevice> demod, capture;
  const auto log = NS_GetLogger("system.adapter.digitaltvreceiver");
  Trial(aPlatform, log).Find(aTuner, &demod, &capture);
  // A lone component counts as the one that captures.
  if (!capture) capture = std::move(demod);
  SYSTEM_LOG_DEBUG(log, "Finished Demod and Capture filters.");
  *aDemod = std::move(demod);
  *aCapture = std::move(capture);
  return NS_OK;
}

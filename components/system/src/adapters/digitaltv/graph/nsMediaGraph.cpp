#include "nsMediaGraph.h"

#include <utility>

#include "IBindCtx.h"
#include "ICreateDevEnum.h"
#include "IMoniker.h"
#include "IRunningObjectTable.h"
#include "nsFilterGraph.h"
#include "nsMediaMonikers.h"
#include "nsMpeg2Demultiplexer.h"
#include "nsNetworkProvider.h"
#include "nsPlatformMedia.h"
#include "nsPlatformTuners.h"
#include "nsSampleGrabber.h"
#include "nsTuningSpace.h"

namespace {

class GraphMedia final : public nsPlatformMedia {
 public:
  explicit GraphMedia(std::shared_ptr<nsPlatformTuners> aTuners) : mTuners(std::move(aTuners)) {}

  nsresult CoInitialize() override { return S_OK; }
  nsresult CoCreateInstance(const nsCID& aClass, uint32_t, const nsIID& aIID,
                            void** aResult) override;
  nsresult GetRunningObjectTable(IRunningObjectTable** aTable) override {
    if (!aTable) return E_POINTER;
    nsCOMPtr(mRunning).forget(aTable);
    return S_OK;
  }
  nsresult CreateItemMoniker(const char16_t* aDelimiter, const char16_t* aItem,
                             IMoniker** aMoniker) override {
    if (!aDelimiter || !aItem || !aMoniker) return E_POINTER;
    NS_NewItemMoniker(aDelimiter, aItem).forget(aMoniker);
    return S_OK;
  }
  nsresult CreateBindCtx(IBindCtx** aContext) override {
    if (!aContext) return E_POINTER;
    NS_NewBindCtx(mRunning).forget(aContext);
    return S_OK;
  }
  nsresult MkParseDisplayName(IBindCtx* aContext, const char16_t* aName, uint32_t* aEaten,
                              IMoniker** aMoniker) override {
    if (!aContext || !aName || !aEaten || !aMoniker) return E_POINTER;
    const std::u16string_view name(aName);
    const nsresult rv = NS_FindMediaDevice(mTuners, name, aMoniker);
    if (NS_SUCCEEDED(rv)) *aEaten = static_cast<uint32_t>(name.size());
    return rv;
  }
  void CoTaskMemFree(void* aMemory) override { NS_MediaFree(aMemory); }
  char16_t* SysAllocString(const char16_t* aText) override {
    return aText ? NS_NewMediaBSTR(aText) : nullptr;
  }
  void SysFreeString(char16_t* aText) override { NS_FreeMediaBSTR(aText); }

 private:
  const std::shared_ptr<nsPlatformTuners> mTuners;
  const nsCOMPtr<IRunningObjectTable> mRunning = NS_NewRunningObjectTable();
};

nsresult GraphMedia::CoCreateInstance(const nsCID& aClass, uint32_t, const nsIID& aIID,
                                      void** aResult) {
  if (!aResult) return E_POINTER;
  const auto hand = [&](const auto& aObject) { return aObject->QueryInterface(aIID, aResult); };
  if (aClass == CLSID_FilterGraph) return hand(MakeRefCounted<nsFilterGraph>());
  if (aClass == CLSID_DVBTuningSpace) return NS_NewDVBTuningSpace(aIID, aResult);
  if (aClass == CLSID_DVBTLocator) return NS_NewDVBTLocator(aIID, aResult);
  if (aClass == CLSID_DVBTNetworkProvider) return hand(MakeRefCounted<nsNetworkProvider>());
  if (aClass == CLSID_MPEG2Demultiplexer) return hand(MakeRefCounted<nsMpeg2Demultiplexer>());
  if (aClass == CLSID_SampleGrabber) return hand(NS_NewSampleGrabber());
  if (aClass == CLSID_NullRenderer) return hand(NS_NewNullRenderer());
  if (aClass == CLSID_SystemDeviceEnum) return hand(NS_NewMediaDeviceEnum(mTuners));
  return REGDB_E_CLASSNOTREG;
}

}  // namespace

nsPlatformRef NS_WithMediaGraph(nsPlatformRef aPlatform) {
  if (aPlatform->mMedia || !aPlatform->mTuners) return aPlatform;
  const auto platform = std::make_shared<nsPlatform>(*aPlatform);
  platform->mMedia = std::make_shared<GraphMedia>(aPlatform->mTuners);
  return platform;
}

#include "nsTunerFilters.h"

#include <algorithm>

#include "IBDA_SignalStatistics.h"
#include "IBDA_Topology.h"
#include "nsMediaFilter.h"
#include "nsMediaTuner.h"

namespace {

constexpr nsMediaType kAntenna = {KSDATAFORMAT_TYPE_BDA_ANTENNA, nsID()};
constexpr nsMediaType kSignal = {KSDATAFORMAT_TYPE_BDA_IF_SIGNAL, nsID()};
constexpr nsMediaType kTransport = {MEDIATYPE_Stream, KSDATAFORMAT_SUBTYPE_BDA_MPEG2_TRANSPORT};

// Strength of a tuner that does not tell any, or not yet: the lower end of the scale. A failure
// would end the wait for the signal.
constexpr int32_t kNoStrength = -100000;

/// What a link of the chain hands on: the stream behind its last one, a signal before.
std::vector<nsMediaType> OutputTypes(const nsTunerInfo& aInfo, size_t aPosition) {
  return {aPosition == aInfo.mParts.size() ? kTransport : kSignal};
}
std::u16string OutputName(const nsTunerInfo& aInfo, size_t aPosition) {
  return aPosition == aInfo.mParts.size() ? u"Transport Out" : u"Signal Out";
}

// ---- What the signal is like

class Statistics final : public nsImplements<Statistics, IBDA_SignalStatistics> {
 public:
  explicit Statistics(std::shared_ptr<nsMediaTuner> aTuner) : mTuner(std::move(aTuner)) {}

  nsresult put_SignalStrength(int32_t) override { return E_NOTIMPL; }
  nsresult get_SignalStrength(int32_t* aStrength) override {
    return Read(&nsPlatformTuner::ReadStrength, kNoStrength, aStrength);
  }
  nsresult put_SignalQuality(int32_t) override { return E_NOTIMPL; }
  nsresult get_SignalQuality(int32_t* aQuality) override {
    return Read(&nsPlatformTuner::ReadQuality, uint32_t{0}, aQuality);
  }
  nsresult put_SignalPresent(uint8_t) override { return E_NOTIMPL; }
  nsresult get_SignalPresent(uint8_t* aPresent) override { return get_SignalLocked(aPresent); }
  nsresult put_SignalLocked(uint8_t) override { return E_NOTIMPL; }
  /// A tuner that is not open has no signal.
  nsresult get_SignalLocked(uint8_t* aLocked) override {
    if (!aLocked) return E_POINTER;
    const nsPlatformTunerRef device = mTuner->Device();
    bool locked = false;
    if (device)
      if (const nsresult rv = device->ReadLocked(&locked); NS_FAILED(rv)) return rv;
    *aLocked = locked;
    return S_OK;
  }
  nsresult put_SampleTime(int32_t) override { return E_NOTIMPL; }
  nsresult get_SampleTime(int32_t*) override { return E_NOTIMPL; }

 private:
  ~Statistics() override = default;
  template <class T>
  nsresult Read(nsresult (nsPlatformTuner::*aRead)(T*), T aNotTold, int32_t* aOut) {
    if (!aOut) return E_POINTER;
    const nsPlatformTunerRef device = mTuner->Device();
    if (!device) return VFW_E_WRONG_STATE;
    T value = aNotTold;
    const nsresult rv = (device.get()->*aRead)(&value);
    if (NS_FAILED(rv) && rv != NS_ERROR_NO_CONTENT) return rv;
    *aOut = static_cast<int32_t>(value);
    return S_OK;
  }
  const std::shared_ptr<nsMediaTuner> mTuner;
};

// ---- Pins

class SourcePin final : public nsMediaPinWith<nsIMediaSource> {
 public:
  /// aInput: of the same filter, where the chain goes on; null for the tuner's own pins.
  SourcePin(nsMediaFilter& aFilter, PIN_DIRECTION aDirection, std::u16string aName,
            std::vector<nsMediaType> aTypes, nsMediaPlace aPlace,
            std::shared_ptr<nsMediaTuner> aTuner, nsMediaPin* aInput)
      : nsMediaPinWith(aFilter, aDirection, std::move(aName), std::move(aTypes)),
        mPlace(std::move(aPlace)),
        mTuner(std::move(aTuner)),
        mInput(aInput) {}

  std::shared_ptr<nsMediaTuner> SourceTuner() override {
    if (mTuner || !mInput) return mTuner;
    const nsCOMPtr<nsIMediaSource> source = do_QueryInterface<nsIMediaSource>(mInput->Peer());
    return source ? source->SourceTuner() : nullptr;
  }
  nsMediaPlace SourcePlace() override { return mPlace; }

 private:
  const nsMediaPlace mPlace;
  const std::shared_ptr<nsMediaTuner> mTuner;
  nsMediaPin* const mInput;
};

class PartInput final : public nsMediaPinWith<> {
 public:
  PartInput(nsMediaFilter& aFilter, nsMediaPlace aBefore)
      : nsMediaPinWith(aFilter, PINDIR_INPUT, u"Signal In", {kSignal}),
        mBefore(std::move(aBefore)) {}

 private:
  // A cable leads here from one place only.
  bool TakesFrom(IPin* aConnector) const override {
    const nsCOMPtr<nsIMediaSource> source = do_QueryInterface<nsIMediaSource>(aConnector);
    return source && source->SourcePlace() == mBefore;
  }
  const nsMediaPlace mBefore;
};

// ---- The tuner

nsID FunctionOf(nsTunerSystem aSystem) {
  switch (aSystem) {
    case nsTunerSystem::eSatellite:
      return KSNODE_BDA_QPSK_DEMODULATOR;
    case nsTunerSystem::eCable:
      return KSNODE_BDA_QAM_DEMODULATOR;
    case nsTunerSystem::eATSC:
      return KSNODE_BDA_8VSB_DEMODULATOR;
    case nsTunerSystem::eTerrestrial:
      break;
  }
  return KSNODE_BDA_COFDM_DEMODULATOR;
}

class TunerFilter final : public nsImplements<TunerFilter, nsMediaFilter, IBDA_Topology> {
 public:
  TunerFilter(std::shared_ptr<nsPlatformTuners> aTuners, const nsTunerInfo& aInfo)
      : mTuner(std::make_shared<nsMediaTuner>(std::move(aTuners), aInfo)) {
    const nsMediaPlace place{aInfo.mPath, 0};
    (void)AddPin<SourcePin>(PINDIR_INPUT, u"Antenna In", std::vector{kAntenna}, place, mTuner,
                            nullptr);
    (void)AddPin<SourcePin>(PINDIR_OUTPUT, OutputName(aInfo, 0), OutputTypes(aInfo, 0), place,
                            mTuner, nullptr);
    mNodes.push_back(KSNODE_BDA_RF_TUNER);
    for (const nsTunerSystem system : aInfo.mSystems) mNodes.push_back(FunctionOf(system));
    // The networks that a graph is made for come first: who looks for the kind of a tuner takes the
    // first demodulator.
    std::stable_partition(mNodes.begin() + 1, mNodes.end(), [](const nsID& aFunction) {
      return aFunction == KSNODE_BDA_COFDM_DEMODULATOR;
    });
  }

  nsresult GetNodeTypes(uint32_t* aCount, uint32_t aMax, uint32_t* aTypes) override {
    if (!aCount || !aTypes) return E_POINTER;
    *aCount = Fit(aMax);
    for (uint32_t i = 0; i < *aCount; ++i) aTypes[i] = i;
    return S_OK;
  }
  nsresult GetNodeDescriptors(uint32_t* aCount, uint32_t aMax,
                              BDANODE_DESCRIPTOR* aDescriptors) override {
    if (!aCount || !aDescriptors) return E_POINTER;
    *aCount = Fit(aMax);
    for (uint32_t i = 0; i < *aCount; ++i) aDescriptors[i] = {i, mNodes[i], nsID()};
    return S_OK;
  }
  nsresult GetNodeInterfaces(uint32_t aType, uint32_t* aCount, uint32_t aMax,
                             nsID* aInterfaces) override {
    if (!aCount || !aInterfaces) return E_POINTER;
    if (aType >= mNodes.size()) return E_INVALIDARG;
    *aCount = std::min<uint32_t>(aType > 0, aMax);
    if (*aCount > 0) aInterfaces[0] = IBDA_SignalStatistics::kIID;
    return S_OK;
  }
  nsresult GetPinTypes(uint32_t*, uint32_t, uint32_t*) override { return E_NOTIMPL; }
  nsresult GetTemplateConnections(uint32_t*, uint32_t, BDA_TEMPLATE_CONNECTION*) override {
    return E_NOTIMPL;
  }
  nsresult CreatePin(uint32_t, uint32_t*) override { return E_NOTIMPL; }
  nsresult DeletePin(uint32_t) override { return E_NOTIMPL; }
  nsresult SetMediaType(uint32_t, AM_MEDIA_TYPE*) override { return E_NOTIMPL; }
  nsresult SetMedium(uint32_t, REGPINMEDIUM*) override { return E_NOTIMPL; }
  nsresult CreateTopology(uint32_t, uint32_t) override { return E_NOTIMPL; }
  nsresult GetControlNode(uint32_t aInput, uint32_t aOutput, uint32_t aType,
                          nsISupports** aNode) override {
    if (!aNode) return E_POINTER;
    if (aInput != 0 || aOutput != 1 || aType == 0 || aType >= mNodes.size()) return E_INVALIDARG;
    MakeRefCounted<Statistics>(mTuner).forget(aNode);
    return S_OK;
  }

 private:
  ~TunerFilter() override = default;
  nsresult OnRun() override { return mTuner->Open(); }
  void OnStop() override { mTuner->Close(); }
  uint32_t Fit(uint32_t aMax) const { return std::min(aMax, static_cast<uint32_t>(mNodes.size())); }

  const std::shared_ptr<nsMediaTuner> mTuner;
  std::vector<nsID> mNodes;  ///< their functions; the number of a node is its type too
};

class PartFilter final : public nsImplements<PartFilter, nsMediaFilter> {
 public:
  PartFilter(const nsTunerInfo& aInfo, size_t aPosition) {
    nsMediaPin& input = AddPin<PartInput>(nsMediaPlace{aInfo.mPath, aPosition - 1});
    (void)AddPin<SourcePin>(PINDIR_OUTPUT, OutputName(aInfo, aPosition),
                            OutputTypes(aInfo, aPosition), nsMediaPlace{aInfo.mPath, aPosition},
                            nullptr, &input);
  }

 private:
  ~PartFilter() override = default;
};

}  // namespace

nsCOMPtr<IBaseFilter> NS_NewTunerFilter(std::shared_ptr<nsPlatformTuners> aTuners,
                                        const nsTunerInfo& aInfo) {
  return MakeRefCounted<TunerFilter>(std::move(aTuners), aInfo);
}
nsCOMPtr<IBaseFilter> NS_NewTunerPartFilter(const nsTunerInfo& aInfo, size_t aPosition) {
  return MakeRefCounted<PartFilter>(aInfo, aPosition);
}

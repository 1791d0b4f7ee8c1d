// What tests of the receiver share: a machine with tuners whose transmitters send streams made by
// hand, and objects of the graph in place of which others can be put.
#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <set>
#include <thread>

#include "IBDA_SignalStatistics.h"
#include "IBDA_Topology.h"
#include "IBaseFilter.h"
#include "IFrequencyMap.h"
#include "IGraphBuilder.h"
#include "IMoniker.h"
#include "nsDigitalTvTest.h"
#include "nsForwardingGraph.h"
#include "nsIAsyncInputStream.h"
#include "nsMediaEnum.h"
#include "nsMediaGraph.h"
#include "nsPlatformMedia.h"
#include "nsSystemAdapterDigitalTvReceiver.h"
#include "nsTestTables.h"

// ---- Objects of the graph

/// A filter that answers some interfaces with other objects, null for not at all. The graph that it
/// is added to gets the filter itself.
class nsFilterWith final : public nsImplements<nsFilterWith, IBaseFilter> {
 public:
  using Others = std::map<nsID, nsCOMPtr<nsISupports>>;
  static constexpr nsIID kItself = "0f5c7e0c-41a0-4d2b-9a59-7d6c8e2b3a10"_iid;
  nsFilterWith(nsCOMPtr<IBaseFilter> aFilter, Others aOthers)
      : mFilter(std::move(aFilter)), mOthers(std::move(aOthers)) {}

  nsresult QueryInterface(const nsIID& aIID, void** aResult) override {
    if (aIID == nsISupports::kIID || aIID == IBaseFilter::kIID)
      return nsImplements<nsFilterWith, IBaseFilter>::QueryInterface(aIID, aResult);
    if (aIID == kItself) return mFilter->QueryInterface(IBaseFilter::kIID, aResult);
    const auto other = mOthers.find(aIID);
    if (other == mOthers.end()) return mFilter->QueryInterface(aIID, aResult);
    return other->second ? other->second->QueryInterface(aIID, aResult) : E_NOINTERFACE;
  }
  nsresult GetClassID(nsCID* aClass) override { return mFilter->GetClassID(aClass); }
  nsresult Stop() override { return mFilter->Stop(); }
  nsresult Pause() override { return mFilter->Pause(); }
  nsresult Run(int64_t aStart) override { return mFilter->Run(aStart); }
  nsresult GetState(uint32_t aTimeout, FILTER_STATE* aState) override {
    return mFilter->GetState(aTimeout, aState);
  }
  nsresult SetSyncSource(IReferenceClock* aClock) override {
    return mFilter->SetSyncSource(aClock);
  }
  nsresult GetSyncSource(IReferenceClock** aClock) override {
    return mFilter->GetSyncSource(aClock);
  }
  nsresult EnumPins(IEnumPins** aPins) override { return mFilter->EnumPins(aPins); }
  nsresult FindPin(const char16_t* aId, IPin** aPin) override {
    return mFilter->FindPin(aId, aPin);
  }
  nsresult QueryFilterInfo(FILTER_INFO* aInfo) override { return mFilter->QueryFilterInfo(aInfo); }
  nsresult JoinFilterGraph(IFilterGraph* aGraph, const char16_t* aName) override {
    return mFilter->JoinFilterGraph(aGraph, aName);
  }
  nsresult QueryVendorInfo(char16_t** aInfo) override { return mFilter->QueryVendorInfo(aInfo); }

 private:
  ~nsFilterWith() override = default;
  const nsCOMPtr<IBaseFilter> mFilter;
  const Others mOthers;
};

/// A graph to which such filters can be added.
class nsGraphWith final : public nsForwardingGraph<nsGraphWith> {
 public:
  explicit nsGraphWith(nsCOMPtr<IGraphBuilder> aGraph) : nsForwardingGraph(std::move(aGraph)) {}
  nsresult QueryInterface(const nsIID& aIID, void** aResult) override {
    const nsresult rv = nsImplements<nsGraphWith, IGraphBuilder>::QueryInterface(aIID, aResult);
    return NS_SUCCEEDED(rv) ? rv : mGraph->QueryInterface(aIID, aResult);
  }
  nsresult AddFilter(IBaseFilter* aFilter, const char16_t* aName) override {
    return mGraph->AddFilter(ItselfOf(aFilter).get(), aName);
  }
  nsresult RemoveFilter(IBaseFilter* aFilter) override {
    return mGraph->RemoveFilter(ItselfOf(aFilter).get());
  }

 private:
  ~nsGraphWith() override = default;
  static nsCOMPtr<IBaseFilter> ItselfOf(IBaseFilter* aFilter) {
    nsCOMPtr<IBaseFilter> itself;
    if (NS_FAILED(aFilter->QueryInterface(nsFilterWith::kItself, NS_OutVoid(itself))))
      itself = aFilter;
    return itself;
  }
};

/// The way to such a filter.
class nsMonikerWith final : public nsImplements<nsMonikerWith, IMoniker> {
 public:
  nsMonikerWith(nsCOMPtr<IMoniker> aMoniker, nsFilterWith::Others aOthers)
      : mMoniker(std::move(aMoniker)), mOthers(std::move(aOthers)) {}
  nsresult BindToObject(IBindCtx* aContext, IMoniker* aLeft, const nsID& aIID,
                        void** aResult) override {
    nsCOMPtr<IBaseFilter> filter;
    const nsresult rv =
        mMoniker->BindToObject(aContext, aLeft, IBaseFilter::kIID, NS_OutVoid(filter));
    return NS_FAILED(rv)
               ? rv
               : MakeRefCounted<nsFilterWith>(filter, mOthers)->QueryInterface(aIID, aResult);
  }
  nsresult GetClassID(nsCID*) override { return E_NOTIMPL; }
  nsresult IsDirty() override { return E_NOTIMPL; }
  nsresult Load(IStream*) override { return E_NOTIMPL; }
  nsresult Save(IStream*, int32_t) override { return E_NOTIMPL; }
  nsresult GetSizeMax(uint64_t*) override { return E_NOTIMPL; }
  nsresult BindToStorage(IBindCtx*, IMoniker*, const nsID&, void**) override { return E_NOTIMPL; }
  nsresult Reduce(IBindCtx*, uint32_t, IMoniker**, IMoniker**) override { return E_NOTIMPL; }
  nsresult ComposeWith(IMoniker*, int32_t, IMoniker**) override { return E_NOTIMPL; }
  nsresult Enum(int32_t, IEnumMoniker**) override { return E_NOTIMPL; }
  nsresult IsEqual(IMoniker*) override { return E_NOTIMPL; }
  nsresult Hash(uint32_t*) override { return E_NOTIMPL; }
  nsresult IsRunning(IBindCtx*, IMoniker*, IMoniker*) override { return E_NOTIMPL; }
  nsresult GetTimeOfLastChange(IBindCtx*, IMoniker*, uint64_t*) override { return E_NOTIMPL; }
  nsresult Inverse(IMoniker**) override { return E_NOTIMPL; }
  nsresult CommonPrefixWith(IMoniker*, IMoniker**) override { return E_NOTIMPL; }
  nsresult RelativePathTo(IMoniker*, IMoniker**) override { return E_NOTIMPL; }
  nsresult GetDisplayName(IBindCtx*, IMoniker*, char16_t**) override { return E_NOTIMPL; }
  nsresult ParseDisplayName(IBindCtx*, IMoniker*, char16_t*, uint32_t*, IMoniker**) override {
    return E_NOTIMPL;
  }
  nsresult IsSystemMoniker(uint32_t*) override { return E_NOTIMPL; }

 private:
  ~nsMonikerWith() override = default;
  const nsCOMPtr<IMoniker> mMoniker;
  const nsFilterWith::Others mOthers;
};

/// The media objects of a machine, with others in place of some.
class nsMediaWith final : public nsPlatformMedia {
 public:
  explicit nsMediaWith(std::shared_ptr<nsPlatformMedia> aMedia) : mMedia(std::move(aMedia)) {}

  std::map<nsCID, nsFilterWith::Others> mOfClass;  ///< what filters of a class answer
  nsFilterWith::Others mOfDevices;                 ///< what filters of devices answer
  /// Classes that can't be had, from the n-th time on.
  std::map<nsCID, int> mFailAt;

  nsresult CoInitialize() override { return mMedia->CoInitialize(); }
  nsresult CoCreateInstance(const nsCID& aClass, uint32_t aContext, const nsIID& aIID,
                            void** aResult) override {
    if (const auto fail = mFailAt.find(aClass); fail != mFailAt.end() && --fail->second <= 0)
      return REGDB_E_CLASSNOTREG;
    if (aClass == CLSID_FilterGraph) {
      nsCOMPtr<IGraphBuilder> graph;
      const nsresult rv =
          mMedia->CoCreateInstance(aClass, aContext, IGraphBuilder::kIID, NS_OutVoid(graph));
      return NS_FAILED(rv) ? rv : MakeRefCounted<nsGraphWith>(graph)->QueryInterface(aIID, aResult);
    }
    const auto others = mOfClass.find(aClass);
    if (others == mOfClass.end()) return mMedia->CoCreateInstance(aClass, aContext, aIID, aResult);
    nsCOMPtr<IBaseFilter> filter;
    const nsresult rv =
        mMedia->CoCreateInstance(aClass, aContext, IBaseFilter::kIID, NS_OutVoid(filter));
    return NS_FAILED(rv) ? rv
                         : MakeRefCounted<nsFilterWith>(filter, others->second)
                               ->QueryInterface(aIID, aResult);
  }
  nsresult GetRunningObjectTable(IRunningObjectTable** aTable) override {
    return mMedia->GetRunningObjectTable(aTable);
  }
  nsresult CreateItemMoniker(const char16_t* aDelimiter, const char16_t* aItem,
                             IMoniker** aMoniker) override {
    return mMedia->CreateItemMoniker(aDelimiter, aItem, aMoniker);
  }
  nsresult CreateBindCtx(IBindCtx** aContext) override { return mMedia->CreateBindCtx(aContext); }
  nsresult MkParseDisplayName(IBindCtx* aContext, const char16_t* aName, uint32_t* aEaten,
                              IMoniker** aMoniker) override {
    nsCOMPtr<IMoniker> moniker;
    const nsresult rv =
        mMedia->MkParseDisplayName(aContext, aName, aEaten, moniker.getter_AddRefs());
    if (NS_FAILED(rv)) return rv;
    if (!mOfDevices.empty()) moniker = MakeRefCounted<nsMonikerWith>(moniker, mOfDevices);
    moniker.forget(aMoniker);
    return rv;
  }
  void CoTaskMemFree(void* aMemory) override { mMedia->CoTaskMemFree(aMemory); }
  char16_t* SysAllocString(const char16_t* aText) override { return mMedia->SysAllocString(aText); }
  void SysFreeString(char16_t* aText) override { mMedia->SysFreeString(aText); }

 private:
  const std::shared_ptr<nsPlatformMedia> mMedia;
};

/// Frequencies and countries of a test's own; nothing when it has none, which is a failure.
class nsTestFrequencies final : public nsImplements<nsTestFrequencies, IFrequencyMap> {
 public:
  std::map<uint32_t, std::vector<uint32_t>> mOfCode;

  nsresult get_FrequencyMapping(uint32_t*, uint32_t**) override { return E_NOTIMPL; }
  nsresult put_FrequencyMapping(uint32_t, uint32_t*) override { return E_NOTIMPL; }
  nsresult get_CountryCode(uint32_t*) override { return E_NOTIMPL; }
  nsresult put_CountryCode(uint32_t) override { return E_NOTIMPL; }
  nsresult get_DefaultFrequencyMapping(uint32_t aCode, uint32_t* aCount,
                                       uint32_t** aList) override {
    const auto found = mOfCode.find(aCode);
    return found == mOfCode.end() ? E_FAIL : HandOut(found->second, aCount, aList);
  }
  nsresult get_CountryCodeList(uint32_t* aCount, uint32_t** aList) override {
    std::vector<uint32_t> codes;
    for (const auto& [code, frequencies] : mOfCode) codes.push_back(code);
    return mOfCode.empty() ? E_FAIL : HandOut(codes, aCount, aList);
  }

 private:
  ~nsTestFrequencies() override = default;
  static nsresult HandOut(const std::vector<uint32_t>& aNumbers, uint32_t* aCount,
                          uint32_t** aList) {
    *aCount = static_cast<uint32_t>(aNumbers.size());
    *aList = static_cast<uint32_t*>(NS_MediaAlloc(sizeof(uint32_t) * aNumbers.size()));
    std::ranges::copy(aNumbers, *aList);
    return S_OK;
  }
};

/// What a tuner tells of the signal, as the test says.
class nsTestStatistics final : public nsImplements<nsTestStatistics, IBDA_SignalStatistics> {
 public:
  std::atomic<int32_t> mStrength = -50000, mQuality = 90;
  std::atomic<bool> mLocked = true;
  std::atomic<nsresult> mStrengthResult = S_OK, mQualityResult = S_OK, mLockedResult = S_OK;

  nsresult get_SignalStrength(int32_t* aStrength) override {
    return Tell(mStrengthResult, mStrength.load(), aStrength);
  }
  nsresult get_SignalQuality(int32_t* aQuality) override {
    return Tell(mQualityResult, mQuality.load(), aQuality);
  }
  /// Quality and strength from the first, second, ... time on that the lock is asked for.
  std::deque<std::pair<int32_t, int32_t>> mSeries;
  nsresult get_SignalLocked(uint8_t* aLocked) override {
    if (!mSeries.empty()) {
      mQuality = mSeries.front().first;
      mStrength = mSeries.front().second;
      mSeries.pop_front();
    }
    return Tell(mLockedResult, static_cast<uint8_t>(mLocked), aLocked);
  }
  nsresult put_SignalStrength(int32_t) override { return E_NOTIMPL; }
  nsresult put_SignalQuality(int32_t) override { return E_NOTIMPL; }
  nsresult put_SignalPresent(uint8_t) override { return E_NOTIMPL; }
  nsresult get_SignalPresent(uint8_t*) override { return E_NOTIMPL; }
  nsresult put_SignalLocked(uint8_t) override { return E_NOTIMPL; }
  nsresult put_SampleTime(int32_t) override { return E_NOTIMPL; }
  nsresult get_SampleTime(int32_t*) override { return E_NOTIMPL; }

 private:
  ~nsTestStatistics() override = default;
  static nsresult Tell(nsresult aResult, auto aValue, auto* aOut) {
    if (NS_SUCCEEDED(aResult)) *aOut = aValue;
    return aResult;
  }
};

/// What a tuner is made of, as the test says.
class nsTestTopology final : public nsImplements<nsTestTopology, IBDA_Topology> {
 public:
  struct Node {
    nsID mFunction{};
    nsCOMPtr<IBDA_SignalStatistics> mStatistics;
  };
  std::vector<Node> mNodes;
  nsresult mNodesResult = S_OK, mDescriptorsResult = S_OK;

  nsresult GetNodeTypes(uint32_t* aCount, uint32_t aMost, uint32_t* aTypes) override {
    *aCount = static_cast<uint32_t>(std::min<size_t>(mNodes.size(), aMost));
    for (uint32_t i = 0; i < *aCount; ++i) aTypes[i] = 100 + i;
    return mNodesResult;
  }
  nsresult GetNodeDescriptors(uint32_t* aCount, uint32_t aMost,
                              BDANODE_DESCRIPTOR* aDescriptors) override {
    *aCount = static_cast<uint32_t>(std::min<size_t>(mNodes.size(), aMost));
    for (uint32_t i = 0; i < *aCount; ++i) aDescriptors[i] = {100 + i, mNodes[i].mFunction, nsID{}};
    return mDescriptorsResult;
  }
  nsresult GetNodeInterfaces(uint32_t aType, uint32_t* aCount, uint32_t, nsID* aIIDs) override {
    aIIDs[0] = nsISupports::kIID;
    aIIDs[1] = IBDA_SignalStatistics::kIID;
    *aCount = mNodes.at(aType - 100).mStatistics ? 2 : 1;
    return S_OK;
  }
  nsresult GetControlNode(uint32_t aIn, uint32_t aOut, uint32_t aType,
                          nsISupports** aNode) override {
    EXPECT_EQ(aIn, 0u);
    EXPECT_EQ(aOut, 1u);
    nsCOMPtr<IBDA_SignalStatistics>(mNodes.at(aType - 100).mStatistics).forget(aNode);
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

 private:
  ~nsTestTopology() override = default;
};

// ---- What is sent

/// A service as a transmitter sends it.
struct nsTestService {
  uint16_t mId = 1;
  std::string mName;
  std::string mProvider = "P";
  uint16_t mVideoPid = 0x100;
  std::vector<std::pair<uint16_t, const char*>> mAudio = {{0x101, "fra"}};
  uint16_t PmtPid() const { return static_cast<uint16_t>(0x1000 + mId); }
};

/// One round of a transport stream: its tables, and then packets of each elementary stream.
inline vorel::test::Bytes NS_Broadcast(const std::vector<nsTestService>& aServices,
                                       unsigned aTransportStream = 9) {
  using namespace vorel::test;
  Stream stream;
  std::vector<std::pair<unsigned, unsigned>> programs{{0, 0x10}};
  std::vector<Bytes> descriptions;
  for (const auto& service : aServices) {
    programs.emplace_back(service.mId, service.PmtPid());
    Bytes description = ServiceDescriptor(1, service.mProvider, service.mName);
    description += Descriptor(0x5F, Bytes(3));  // the last five bytes stay unread
    descriptions.push_back(SdtService(service.mId, 4, false, description));
  }
  Bytes delivery{0x03, 0x04, 0x18, 0x40, 0x1F, 0x92, 0x02, 0xFF, 0xFF, 0xFF, 0xFF};
  stream.Sections(0, {Section(0, aTransportStream, Pat(programs))});
  stream.Sections(0x10,
                  {Section(0x40, 1, Nit({}, {{aTransportStream, 2, Descriptor(0x5A, delivery)}}))});
  stream.Sections(0x11, {Section(0x42, aTransportStream, Sdt(descriptions))});
  for (const auto& service : aServices) {
    std::vector<Bytes> elementary;
    if (service.mVideoPid) elementary.push_back(Elementary(27, service.mVideoPid));
    for (const auto& [pid, language] : service.mAudio)
      elementary.push_back(Elementary(4, pid, Language(language)));
    stream.Sections(service.PmtPid(),
                    {Section(2, service.mId, Pmt(service.mVideoPid, elementary))});
  }
  for (int i = 0; i < 50; ++i)
    for (const auto& service : aServices) {
      if (service.mVideoPid)
        stream.Packet(service.mVideoPid, false, Bytes(184, static_cast<uint8_t>(i)));
      for (const auto& audio : service.mAudio)
        stream.Packet(audio.first, false, Bytes(184, static_cast<uint8_t>(100 + i)));
    }
  return stream.mBytes;
}

// ---- The fixture

class nsReceiverTest : public nsDigitalTvTest {
 protected:
  using Receiver = nsSystemAdapterDigitalTvReceiver;
  static constexpr char kPath[] = "tuner-0";
  static constexpr Receiver::Times kFast{
      .mLockRound = 1, .mScanner = {.mDoneWait = 100, .mBusyWait = 10000, .mBusyStep = 1}};

  void SetUp() override {
    std::filesystem::create_directories(Directory() / "app" / "defaults");
    mOptions.mApplicationDirectory = (Directory() / "app").string();
    StartHost();
  }
  void TearDown() override {
    mReceiver = nullptr;
    nsChannelsFile::DropPath();
  }

  static nsSimulatedTransmitter Sends(const std::vector<nsTestService>& aServices) {
    nsSimulatedTransmitter transmitter;
    transmitter.mStream = nsSimulatedStream::Make(NS_Broadcast(aServices));
    return transmitter;
  }
  nsSimulatedTuner NewTuner(const char* aPath = kPath) {
    nsSimulatedTuner tuner;
    tuner.mInfo = {aPath, "Stick", {nsTunerSystem::eTerrestrial}, {}};
    tuner.mOwnRate = false;
    return tuner;
  }
  /// The machine with other objects of the graph in place of its own, as long as the test says.
  nsPlatformRef Platform() {
    if (!mPlatform) {
      auto platform = std::make_shared<nsPlatform>(*NS_WithMediaGraph(mMachine.Platform()));
      mMedia = std::make_shared<nsMediaWith>(platform->mMedia);
      platform->mMedia = mMedia;
      mPlatform = platform;
    }
    return mPlatform;
  }
  nsMediaWith& Media() {
    (void)Platform();
    return *mMedia;
  }
  /// Scans go through these frequencies, in kHz.
  void SetFrequencies(std::vector<uint32_t> aFrequencies) {
    if (!mFrequencies) {
      mFrequencies = MakeRefCounted<nsTestFrequencies>();
      Media().mOfClass[CLSID_DVBTNetworkProvider][IFrequencyMap::kIID] = mFrequencies;
    }
    mFrequencies->mOfCode[33] = std::move(aFrequencies);
  }
  /// The signal is what the test tells of it.
  nsTestStatistics& Statistics() {
    if (!mStatistics) {
      mStatistics = MakeRefCounted<nsTestStatistics>();
      const auto topology = MakeRefCounted<nsTestTopology>();
      topology->mNodes = {{KSNODE_BDA_COFDM_DEMODULATOR, mStatistics}};
      Media().mOfDevices[IBDA_Topology::kIID] = topology;
    }
    return *mStatistics;
  }

  /// A receiver on the tuner of that path, as discovery makes it.
  nsCOMPtr<Receiver> NewReceiver(const char16_t* aPath = u"tuner-0",
                                 Receiver::Times aTimes = kFast) {
    const auto receiver = MakeRefCounted<Receiver>(Platform(), aTimes);
    receiver->mTuner.mDevicePath = aPath;
    receiver->mTuner.mFriendlyName = u"Stick";
    receiver->mTuner.mPresent = true;
    return receiver;
  }
  /// mReceiver, on a machine whose tuner receives these.
  void Receive(std::map<uint32_t, nsSimulatedTransmitter> aTransmitters) {
    nsSimulatedTuner tuner = NewTuner();
    tuner.mTransmitters = std::move(aTransmitters);
    mMachine.mTuners->Insert(kPath, tuner);
    mReceiver = NewReceiver();
    ASSERT_EQ(mReceiver->Init(), NS_OK);
  }

  static nsCOMPtr<nsIIsoCountry> Country(const char* aCode = "FR") {
    const auto country = MakeRefCounted<nsIsoCountry>();
    (void)country->SetCode(nsCString(aCode));
    return country;
  }
  struct Progress {
    int32_t mState = 99;
    uint32_t mTotal = 99, mDone = 99, mLocked = 99, mFound = 99;
    bool operator==(const Progress&) const = default;
    friend void PrintTo(const Progress& aProgress, std::ostream* aOut) {
      *aOut << aProgress.mState << ": " << aProgress.mDone << "/" << aProgress.mTotal << " "
            << aProgress.mLocked << " " << aProgress.mFound;
    }
  };
  static Progress ProgressOf(Receiver& aReceiver) {
    Progress progress;
    EXPECT_EQ(aReceiver.GetScanProgress(&progress.mState, &progress.mTotal, &progress.mDone,
                                        &progress.mLocked, &progress.mFound),
              NS_OK);
    return progress;
  }
  /// The end of the running scan.
  static Progress EndOfScan(Receiver& aReceiver) {
    Progress progress;
    while ((progress = ProgressOf(aReceiver)).mState == 0)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return progress;
  }
  Progress Scan() {
    EXPECT_EQ(mReceiver->StartScan(Country().get()), NS_OK);
    return EndOfScan(*mReceiver);
  }
  static nsCOMPtr<nsIArray> Found(Receiver& aReceiver) {
    nsCOMPtr<nsIArray> found;
    EXPECT_EQ(aReceiver.GetServicesFoundByScan(found.getter_AddRefs()), NS_OK);
    return found;
  }
  /// "Name/frequency ..."
  static std::string NamesOf(nsIArray* aServices) {
    std::string names;
    for (const auto& service : NS_Elements<nsIDigitalTvService>(aServices)) {
      nsCString name;
      uint32_t frequency = 0;
      EXPECT_EQ(service->GetName(name), NS_OK);
      EXPECT_EQ(service->GetFrequency(&frequency), NS_OK);
      names += std::string(name.view()) + "/" + std::to_string(frequency) + " ";
    }
    return names;
  }
  std::string Stored() {
    nsCOMPtr<nsIArray> services;
    EXPECT_EQ(mReceiver->GetServices(services.getter_AddRefs()), NS_OK);
    return NamesOf(services.get());
  }
  /// Stores all that was found.
  void Store() { ASSERT_EQ(mReceiver->SetServices(Found(*mReceiver).get()), NS_OK); }

  static nsresult Select(Receiver& aReceiver, std::string_view aName,
                         std::string_view aLanguage = {}) {
    return aReceiver.SelectChannelByName(nsCString(aName), nsCString(aLanguage), 0);
  }
  static nsCOMPtr<nsIInputStream> StreamOf(Receiver& aReceiver) {
    nsCOMPtr<nsIInputStream> stream;
    EXPECT_EQ(aReceiver.GetStream(stream.getter_AddRefs()), NS_OK);
    return stream;
  }
  /// Whole packets of a stream, as many as asked for unless it ends.
  static vorel::test::Bytes ReadPackets(nsIInputStream* aStream, size_t aCount) {
    vorel::test::Bytes bytes(188 * aCount);
    size_t at = 0;
    while (at < bytes.size()) {
      uint32_t read = 0;
      const nsresult rv = aStream->Read(reinterpret_cast<char*>(bytes.data() + at),
                                        static_cast<uint32_t>(bytes.size() - at), &read);
      if (NS_FAILED(rv) || read == 0) break;
      at += read;
    }
    bytes.resize(at);
    return bytes;
  }
  static unsigned PidAt(const vorel::test::Bytes& aBytes, size_t aPacket) {
    return (aBytes[aPacket * 188 + 1] & 0x1Fu) << 8 | aBytes[aPacket * 188 + 2];
  }
  static std::set<unsigned> PidsOf(const vorel::test::Bytes& aBytes) {
    std::set<unsigned> pids;
    EXPECT_EQ(aBytes.size() % 188, 0u);
    for (size_t i = 0; i < aBytes.size() / 188; ++i) {
      EXPECT_EQ(aBytes[i * 188], 0x47);
      pids.insert(PidAt(aBytes, i));
    }
    return pids;
  }

  nsCOMPtr<Receiver> mReceiver;

 private:
  nsPlatformRef mPlatform;
  std::shared_ptr<nsMediaWith> mMedia;
  nsCOMPtr<nsTestFrequencies> mFrequencies;
  nsCOMPtr<nsTestStatistics> mStatistics;
};

// The filter graph: what connects, what flows, and what happens when tuners and readers misbehave.
#include <condition_variable>
#include <future>
#include <mutex>
#include <set>
#include <thread>

#include "IBDA_SignalStatistics.h"
#include "IBDA_Topology.h"
#include "IBaseFilter.h"
#include "IBindCtx.h"
#include "ICreateDevEnum.h"
#include "IDVBTLocator.h"
#include "IEnumFilters.h"
#include "IEnumMediaTypes.h"
#include "IEnumMoniker.h"
#include "IEnumPIDMap.h"
#include "IEnumPins.h"
#include "IFrequencyMap.h"
#include "IGraphBuilder.h"
#include "IMPEG2PIDMap.h"
#include "IMediaControl.h"
#include "IMediaSample.h"
#include "IMoniker.h"
#include "IMpeg2Data.h"
#include "IMpeg2Demultiplexer.h"
#include "IPin.h"
#include "IPropertyBag.h"
#include "IRunningObjectTable.h"
#include "ISampleGrabber.h"
#include "ISampleGrabberCB.h"
#include "ISectionList.h"
#include "ITuneRequest.h"
#include "ITuner.h"
#include "ITuningSpace.h"
#include "nsIMediaCancel.h"
#include "nsMediaGraph.h"
#include "nsPlatformMedia.h"
#include "nsSystemTest.h"
#include "nsTestTables.h"

namespace {

using namespace std::chrono_literals;
using vorel::test::Bytes;
using vorel::test::Section;
using vorel::test::Stream;

constexpr uint32_t kFrequency = 506000;
constexpr uint32_t kLong = 60000;  // ms; what should come does

/// Keeps the packets that come, or stands in the way.
class Catcher final : public nsImplements<Catcher, ISampleGrabberCB> {
 public:
  nsresult SampleCB(double, IMediaSample* aSample) override {
    uint8_t* bytes = nullptr;
    EXPECT_EQ(aSample->GetPointer(&bytes), S_OK);
    std::unique_lock lock(mLock);
    ++mInside;
    mChanged.notify_all();
    mChanged.wait(lock, [this] { return !mIsHeld; });
    --mInside;
    if (mBytes.size() < kMost)
      mBytes.insert(mBytes.end(), bytes, bytes + aSample->GetActualDataLength());
    ++mSamples;
    mChanged.notify_all();
    return S_OK;
  }
  nsresult BufferCB(double, uint8_t*, int32_t) override { return E_NOTIMPL; }

  /// Whether so many packets have come.
  bool Await(size_t aPackets) {
    std::unique_lock lock(mLock);
    return mChanged.wait_for(lock, 20s, [&] { return mBytes.size() >= aPackets * 188; });
  }
  bool AwaitInside() {
    std::unique_lock lock(mLock);
    return mChanged.wait_for(lock, 20s, [&] { return mInside > 0; });
  }
  void Hold(bool aHold) {
    const std::lock_guard lock(mLock);
    mIsHeld = aHold;
    mChanged.notify_all();
  }
  Bytes Take() {
    const std::lock_guard lock(mLock);
    return std::exchange(mBytes, {});
  }
  uint64_t Samples() {
    const std::lock_guard lock(mLock);
    return mSamples;
  }

 private:
  static constexpr size_t kMost = 40 << 20;
  ~Catcher() override = default;
  std::mutex mLock;
  std::condition_variable mChanged;
  Bytes mBytes;
  uint64_t mSamples = 0;
  int mInside = 0;
  bool mIsHeld = false;
};

uint32_t PidOf(std::span<const uint8_t> aPacket) { return (aPacket[1] & 0x1Fu) << 8 | aPacket[2]; }

std::set<uint32_t> PidsIn(const Bytes& aBytes) {
  std::set<uint32_t> pids;
  for (size_t at = 0; at + 188 <= aBytes.size(); at += 188) pids.insert(PidOf({&aBytes[at], 188}));
  return pids;
}

nsCOMPtr<IPin> PinOf(IBaseFilter* aFilter, const char16_t* aName) {
  nsCOMPtr<IPin> pin;
  EXPECT_EQ(aFilter->FindPin(aName, pin.getter_AddRefs()), S_OK) << NS_ToUtf8(aName);
  return pin;
}
nsCOMPtr<IPin> PinOf(const nsCOMPtr<IBaseFilter>& aFilter, const char16_t* aName) {
  return PinOf(aFilter.get(), aName);
}

/// Maps these PIDs on a pin, in place of those before.
nsresult Map(IPin* aPin, std::vector<uint32_t> aPids) {
  const auto map = do_QueryInterface<IMPEG2PIDMap>(aPin);
  nsCOMPtr<IEnumPIDMap> mapped;
  EXPECT_EQ(map->EnumPIDMap(mapped.getter_AddRefs()), S_OK);
  PID_MAP entry;
  uint32_t count = 0;
  while (mapped->Next(1, &entry, &count) == S_OK) EXPECT_EQ(map->UnmapPID(1, &entry.ulPID), S_OK);
  return map->MapPID(static_cast<uint32_t>(aPids.size()), aPids.data(), 0);
}

/// A graph as receivers build it, by hand.
struct Receiver {
  explicit Receiver(nsPlatformMedia& aMedia) : mMedia(aMedia) {
    mGraph = New<IGraphBuilder>(CLSID_FilterGraph);
    mControl = do_QueryInterface<IMediaControl>(mGraph);
  }
  ~Receiver() {
    (void)mControl->Stop();
    nsCOMPtr<IEnumFilters> each;
    nsCOMPtr<IBaseFilter> filter;
    EXPECT_EQ(mGraph->EnumFilters(each.getter_AddRefs()), S_OK);
    while (each->Next(1, filter.getter_AddRefs(), nullptr) == S_OK)
      EXPECT_EQ(mGraph->RemoveFilter(filter.get()), S_OK);
  }

  template <nsInterface I>
  nsCOMPtr<I> New(const nsCID& aClass) {
    nsCOMPtr<I> object;
    EXPECT_EQ(mMedia.CoCreateInstance(aClass, CLSCTX_ALL, I::kIID, NS_OutVoid(object)), S_OK);
    return object;
  }
  nsCOMPtr<IBaseFilter> Add(const nsCID& aClass, const char16_t* aName) {
    const auto filter = New<IBaseFilter>(aClass);
    EXPECT_EQ(mGraph->AddFilter(filter.get(), aName), S_OK);
    return filter;
  }
  nsCOMPtr<IBaseFilter> AddDevice(const char16_t* aPath) {
    nsCOMPtr<IBindCtx> context;
    nsCOMPtr<IMoniker> moniker;
    nsCOMPtr<IBaseFilter> filter;
    uint32_t eaten = 0;
    EXPECT_EQ(mMedia.CreateBindCtx(context.getter_AddRefs()), S_OK);
    const nsresult rv =
        mMedia.MkParseDisplayName(context.get(), aPath, &eaten, moniker.getter_AddRefs());
    if (NS_FAILED(rv)) return nullptr;
    EXPECT_EQ(eaten, std::u16string_view(aPath).size());
    EXPECT_EQ(moniker->BindToObject(context.get(), nullptr, IBaseFilter::kIID, NS_OutVoid(filter)),
              S_OK);
    EXPECT_EQ(mGraph->AddFilter(filter.get(), aPath), S_OK);
    return filter;
  }
  nsCOMPtr<IBaseFilter> AddOfCategory(const nsID& aCategory, std::u16string_view aName) {
    const auto devices = New<ICreateDevEnum>(CLSID_SystemDeviceEnum);
    nsCOMPtr<IEnumMoniker> each;
    nsCOMPtr<IMoniker> moniker;
    nsCOMPtr<IBaseFilter> filter;
    EXPECT_EQ(devices->CreateClassEnumerator(aCategory, each.getter_AddRefs(), 0), S_OK);
    while (each->Next(1, moniker.getter_AddRefs(), nullptr) == S_OK)
      if (FriendlyName(moniker.get()) == aName) {
        EXPECT_EQ(moniker->BindToObject(nullptr, nullptr, IBaseFilter::kIID, NS_OutVoid(filter)),
                  S_OK);
      }
    EXPECT_EQ(mGraph->AddFilter(filter.get(), u"tables"), S_OK);
    return filter;
  }
  std::u16string FriendlyName(IMoniker* aMoniker) {
    nsCOMPtr<IPropertyBag> bag;
    EXPECT_EQ(aMoniker->BindToStorage(nullptr, nullptr, IPropertyBag::kIID, NS_OutVoid(bag)), S_OK);
    VARIANT value{};
    EXPECT_EQ(bag->Read(u"FriendlyName", &value, nullptr), S_OK);
    EXPECT_EQ(value.vt, VT_BSTR);
    const std::u16string name(value.bstrVal);
    mMedia.SysFreeString(value.bstrVal);
    return name;
  }
  nsresult Connect(const nsCOMPtr<IBaseFilter>& aFrom, const char16_t* aOut,
                   const nsCOMPtr<IBaseFilter>& aTo, const char16_t* aIn) {
    return mGraph->ConnectDirect(PinOf(aFrom, aOut).get(), PinOf(aTo, aIn).get(), nullptr);
  }
  nsCOMPtr<IPin> NewStreamPin(const char16_t* aName) {
    AM_MEDIA_TYPE type{};
    type.majortype = MEDIATYPE_Video;
    type.subtype = MEDIASUBTYPE_MPEG2_VIDEO;
    nsCOMPtr<IPin> pin;
    EXPECT_EQ(do_QueryInterface<IMpeg2Demultiplexer>(mDemux)->CreateOutputPin(
                  &type, const_cast<char16_t*>(aName), pin.getter_AddRefs()),
              S_OK);
    return pin;
  }
  /// A grabber behind a new pin of the demultiplexer.
  nsCOMPtr<IPin> Catch(const char16_t* aName, Catcher& aCatcher) {
    const auto pin = NewStreamPin(aName);
    const auto grabber = Add(CLSID_SampleGrabber, aName);
    EXPECT_EQ(do_QueryInterface<ISampleGrabber>(grabber)->SetCallback(&aCatcher, 0), S_OK);
    EXPECT_EQ(mGraph->ConnectDirect(pin.get(), PinOf(grabber, u"Input").get(), nullptr), S_OK);
    return pin;
  }
  /// All of it, on a tuner that captures itself.
  void Build(const char16_t* aPath) {
    mProvider = Add(CLSID_DVBTNetworkProvider, u"provider");
    mTuner = AddDevice(aPath);
    mDemux = Add(CLSID_MPEG2Demultiplexer, u"demultiplexer");
    mSections = AddOfCategory(KSCATEGORY_BDA_TRANSPORT_INFORMATION, u"MPEG-2 Sections and Tables");
    EXPECT_EQ(Connect(mProvider, u"Antenna Out", mTuner, u"Antenna In"), S_OK);
    EXPECT_EQ(Connect(mTuner, u"Transport Out", mDemux, u"MPEG-2 Stream"), S_OK);
    EXPECT_EQ(Connect(mDemux, u"Sections", mSections, u"In"), S_OK);
    mData = do_QueryInterface<IMpeg2Data>(mSections);
    mPin = Catch(u"Mpeg2", *mCatcher);
  }
  nsresult Tune(uint32_t aFrequency) {
    const auto space = New<ITuningSpace>(CLSID_DVBTuningSpace);
    const auto locator = New<IDVBTLocator>(CLSID_DVBTLocator);
    nsCOMPtr<ITuneRequest> request;
    EXPECT_EQ(space->CreateTuneRequest(request.getter_AddRefs()), S_OK);
    EXPECT_EQ(locator->put_CarrierFrequency(static_cast<int32_t>(aFrequency)), S_OK);
    EXPECT_EQ(locator->put_Bandwidth(8), S_OK);
    EXPECT_EQ(request->put_Locator(locator.get()), S_OK);
    return do_QueryInterface<ITuner>(mProvider)->put_TuneRequest(request.get());
  }
  /// Runs and receives.
  void Start() {
    ASSERT_EQ(mControl->Run(), S_OK);
    ASSERT_EQ(Tune(kFrequency), S_OK);
  }
  /// The sections of a table, as broadcast.
  nsresult Table(uint16_t aPid, uint8_t aTable, uint32_t aTimeout, std::vector<Bytes>* aSections) {
    nsCOMPtr<ISectionList> list;
    const nsresult rv = mData->GetTable(aPid, aTable, nullptr, aTimeout, list.getter_AddRefs());
    EXPECT_EQ(NS_SUCCEEDED(rv), bool(list));
    if (NS_FAILED(rv)) return rv;
    uint16_t count = 0;
    EXPECT_EQ(list->GetNumberOfSections(&count), S_OK);
    for (uint16_t i = 0; i < count; ++i) {
      uint32_t length = 0;
      SECTION* section = nullptr;
      EXPECT_EQ(list->GetSectionData(i, &length, &section), S_OK);
      const auto* const bytes = reinterpret_cast<const uint8_t*>(section);
      aSections->push_back(vorel::test::Swapped(Bytes(bytes, bytes + length)));
    }
    return rv;
  }

  nsPlatformMedia& mMedia;
  nsCOMPtr<Catcher> mCatcher = MakeRefCounted<Catcher>();
  nsCOMPtr<IGraphBuilder> mGraph;
  nsCOMPtr<IMediaControl> mControl;
  nsCOMPtr<IBaseFilter> mProvider, mTuner, mDemux, mSections;
  nsCOMPtr<IMpeg2Data> mData;
  nsCOMPtr<IPin> mPin;
};

class GraphTest : public nsSystemTest {
 protected:
  void SetUp() override {
    nsSystemTest::SetUp();
    Plug("tuner");
  }
  void Plug(const std::string& aPath, const Bytes& aStream = {}, size_t aParts = 0) {
    nsSimulatedTuner tuner;
    tuner.mOwnRate = false;
    tuner.mInfo.mSystems = {nsTunerSystem::eCable, nsTunerSystem::eTerrestrial};
    for (size_t i = 0; i < aParts; ++i)
      tuner.mInfo.mParts.push_back({aPath + ".part" + std::to_string(i + 1), "same name"});
    auto& transmitter = tuner.mTransmitters[kFrequency];
    if (!aStream.empty()) transmitter.mStream = nsSimulatedStream::Make(aStream);
    mMachine.mTuners->Insert(aPath, std::move(tuner));
  }
  void Send(const Bytes& aStream, const std::string& aPath = "tuner") {
    mMachine.mTuners->Change(aPath, [&](nsSimulatedTuner& aTuner) {
      aTuner.mTransmitters[kFrequency].mStream = nsSimulatedStream::Make(aStream);
    });
  }
  nsPlatformMedia& Media() {
    if (!mPlatform) mPlatform = NS_WithMediaGraph(mMachine.Platform());
    return *mPlatform->mMedia;
  }

  nsPlatformRef mPlatform;
};

/// Packets of PIDs from 100 on in turn, each with the number of its round.
Bytes Numbered(unsigned aPids, unsigned aRounds = 200) {
  Stream stream;
  for (unsigned round = 0; round < aRounds; ++round)
    for (unsigned pid = 0; pid < aPids; ++pid) {
      Bytes payload(184, static_cast<uint8_t>(pid));
      payload[0] = static_cast<uint8_t>(round >> 8);
      payload[1] = static_cast<uint8_t>(round);
      stream.Packet(100 + pid, false, payload);
    }
  return stream.mBytes;
}

/// The packets of these PIDs in a stream that is sent again and again, up to so many bytes.
Bytes Filtered(const Bytes& aStream, const std::set<uint32_t>& aPids, size_t aSize) {
  Bytes filtered;
  while (filtered.size() < aSize)
    for (size_t at = 0; at < aStream.size() && filtered.size() < aSize; at += 188)
      if (aPids.contains(PidOf({&aStream[at], 188})))
        filtered.insert(filtered.end(), aStream.begin() + static_cast<ptrdiff_t>(at),
                        aStream.begin() + static_cast<ptrdiff_t>(at + 188));
  return filtered;
}

// ---- Connections

TEST_F(GraphTest, PinsConnectThatDontBelongTogether) {
  Plug("chain", {}, 2);
  Plug("other", {}, 1);
  Receiver receiver(Media());
  const auto provider = receiver.Add(CLSID_DVBTNetworkProvider, u"provider"),
             demux = receiver.Add(CLSID_MPEG2Demultiplexer, u"demultiplexer"),
             tuner = receiver.AddDevice(u"chain"), first = receiver.AddDevice(u"chain.part1"),
             second = receiver.AddDevice(u"chain.part2"),
             other = receiver.AddDevice(u"other.part1");
  const auto connect = [&](const auto& aFrom, const char16_t* aOut, const auto& aTo,
                           const char16_t* aIn) { return receiver.Connect(aFrom, aOut, aTo, aIn); };
  EXPECT_EQ(connect(provider, u"Antenna Out", demux, u"MPEG-2 Stream"), VFW_E_NO_ACCEPTABLE_TYPES);
  EXPECT_EQ(connect(tuner, u"Signal Out", other, u"Signal In"), VFW_E_NO_ACCEPTABLE_TYPES)
      << "the component of another tuner";
  EXPECT_EQ(connect(tuner, u"Signal Out", second, u"Signal In"), VFW_E_NO_ACCEPTABLE_TYPES)
      << "past the one between";
  EXPECT_EQ(connect(tuner, u"Signal Out", demux, u"MPEG-2 Stream"), VFW_E_NO_ACCEPTABLE_TYPES)
      << "no stream yet";
  EXPECT_EQ(connect(tuner, u"Antenna In", provider, u"Antenna Out"), VFW_E_INVALID_DIRECTION);
  EXPECT_EQ(connect(tuner, u"Signal Out", first, u"Signal In"), S_OK);
  EXPECT_EQ(connect(tuner, u"Signal Out", first, u"Signal In"), VFW_E_ALREADY_CONNECTED);
  EXPECT_EQ(connect(first, u"Signal Out", second, u"Signal In"), S_OK);
  EXPECT_EQ(connect(second, u"Transport Out", demux, u"MPEG-2 Stream"), S_OK);

  Receiver elsewhere(Media());
  const auto stranger = elsewhere.AddDevice(u"chain");
  EXPECT_EQ(connect(provider, u"Antenna Out", stranger, u"Antenna In"), VFW_E_NOT_IN_GRAPH);
  EXPECT_EQ(receiver.mGraph->AddFilter(stranger.get(), u"mine"), E_INVALIDARG);
  nsCOMPtr<IPin> peer;
  EXPECT_EQ(PinOf(stranger, u"Antenna In")->ConnectedTo(peer.getter_AddRefs()),
            VFW_E_NOT_CONNECTED);
}

TEST_F(GraphTest, WantedTypeIsNotKept) {
  Receiver receiver(Media());
  receiver.mDemux = receiver.Add(CLSID_MPEG2Demultiplexer, u"demultiplexer");
  const auto grabber = receiver.Add(CLSID_SampleGrabber, u"grabber"),
             end = receiver.Add(CLSID_NullRenderer, u"end");
  const auto pin = receiver.NewStreamPin(u"Mpeg2");
  const auto input = PinOf(grabber, u"Input");
  EXPECT_NE(receiver.Connect(grabber, u"Output", end, u"In"), S_OK) << "there is no type yet";
  AM_MEDIA_TYPE type{};
  type.majortype = MEDIATYPE_Stream;
  const auto typed = do_QueryInterface<ISampleGrabber>(grabber);
  ASSERT_EQ(typed->SetMediaType(&type), S_OK);
  EXPECT_EQ(receiver.mGraph->ConnectDirect(pin.get(), input.get(), nullptr),
            VFW_E_NO_ACCEPTABLE_TYPES);
  EXPECT_EQ(receiver.mGraph->ConnectDirect(pin.get(), input.get(), &type),
            VFW_E_NO_ACCEPTABLE_TYPES);
  type.majortype = MEDIATYPE_Video;
  ASSERT_EQ(typed->SetMediaType(&type), S_OK);
  EXPECT_EQ(receiver.mGraph->ConnectDirect(pin.get(), input.get(), nullptr), S_OK);
  EXPECT_EQ(receiver.Connect(grabber, u"Output", end, u"In"), S_OK);
  AM_MEDIA_TYPE connected{};
  EXPECT_EQ(PinOf(end, u"In")->ConnectionMediaType(&connected), S_OK);
  EXPECT_EQ(connected.subtype, MEDIASUBTYPE_MPEG2_VIDEO);

  EXPECT_EQ(receiver.mGraph->RemoveFilter(grabber.get()), S_OK);
  nsCOMPtr<IPin> peer;
  EXPECT_EQ(pin->ConnectedTo(peer.getter_AddRefs()), VFW_E_NOT_CONNECTED) << "both ends are free";
  EXPECT_EQ(PinOf(end, u"In")->ConnectedTo(peer.getter_AddRefs()), VFW_E_NOT_CONNECTED);
}

TEST_F(GraphTest, TwoFiltersOfOneNameCantBeAdded) {
  Plug("twins", {}, 2);
  Receiver receiver(Media());
  const auto make = [&] { return receiver.New<IBaseFilter>(CLSID_NullRenderer); };
  const auto first = make(), second = make();
  EXPECT_EQ(receiver.mGraph->AddFilter(first.get(), u"name"), S_OK);
  EXPECT_EQ(receiver.mGraph->AddFilter(second.get(), u"name"), VFW_S_DUPLICATE_NAME);
  EXPECT_EQ(receiver.mGraph->AddFilter(second.get(), u"again"), E_INVALIDARG);
  nsCOMPtr<IBaseFilter> found;
  EXPECT_EQ(receiver.mGraph->FindFilterByName(u"name", found.getter_AddRefs()), S_OK);
  EXPECT_EQ(found, first);
}

// ---- Devices

TEST_F(GraphTest, DevicesAreNotFoundByNameOrPath) {
  Plug("chain", {}, 2);
  Receiver receiver(Media());
  const auto devices = receiver.New<ICreateDevEnum>(CLSID_SystemDeviceEnum);
  const auto paths = [&](const nsID& aCategory) {
    std::vector<std::u16string> found;
    nsCOMPtr<IEnumMoniker> each;
    nsCOMPtr<IMoniker> moniker;
    if (devices->CreateClassEnumerator(aCategory, each.getter_AddRefs(), 0) != S_OK) return found;
    while (each->Next(1, moniker.getter_AddRefs(), nullptr) == S_OK) {
      char16_t* path = nullptr;
      EXPECT_EQ(moniker->GetDisplayName(nullptr, nullptr, &path), S_OK);
      found.emplace_back(path);
      Media().CoTaskMemFree(path);
    }
    return found;
  };
  using Paths = std::vector<std::u16string>;
  EXPECT_EQ(paths(KSCATEGORY_BDA_NETWORK_TUNER), (Paths{u"tuner", u"chain"}));
  EXPECT_EQ(paths(KSCATEGORY_BDA_RECEIVER_COMPONENT), (Paths{u"chain.part1", u"chain.part2"}));
  mMachine.mTuners->Remove("chain");
  EXPECT_FALSE(receiver.AddDevice(u"chain")) << "it has gone";
  EXPECT_FALSE(receiver.AddDevice(u""));
  mMachine.mTuners->Remove("tuner");
  nsCOMPtr<IEnumMoniker> each;
  EXPECT_EQ(devices->CreateClassEnumerator(KSCATEGORY_BDA_NETWORK_TUNER, each.getter_AddRefs(), 0),
            S_FALSE);
  EXPECT_FALSE(each);
  nsCOMPtr<nsISupports> none;
  EXPECT_EQ(Media().CoCreateInstance(KSCATEGORY_BDA_NETWORK_TUNER, CLSCTX_ALL, nsISupports::kIID,
                                     NS_OutVoid(none)),
            REGDB_E_CLASSNOTREG);
}

TEST_F(GraphTest, TunerDoesNotTellItsKindAndSignal) {
  Send(Numbered(1));
  Receiver receiver(Media());
  receiver.Build(u"tuner");
  const auto topology = do_QueryInterface<IBDA_Topology>(receiver.mTuner);
  ASSERT_TRUE(topology);
  BDANODE_DESCRIPTOR nodes[20];
  uint32_t types[32], count = 0, descriptors = 0;
  ASSERT_EQ(topology->GetNodeTypes(&count, 32, types), S_OK);
  ASSERT_EQ(topology->GetNodeDescriptors(&descriptors, 20, nodes), S_OK);
  ASSERT_EQ(count, 3u);
  ASSERT_EQ(descriptors, 3u);
  EXPECT_EQ(nodes[1].guidFunction, KSNODE_BDA_COFDM_DEMODULATOR) << "what the graph is made for";
  nsID interfaces[32];
  uint32_t node = 32;
  for (uint32_t i = 0; i < count && node == 32; ++i) {
    uint32_t number = 0;
    ASSERT_EQ(topology->GetNodeInterfaces(types[i], &number, 32, interfaces), S_OK);
    if (number > 0 && interfaces[0] == IBDA_SignalStatistics::kIID) node = types[i];
  }
  nsCOMPtr<nsISupports> control;
  ASSERT_EQ(topology->GetControlNode(0, 1, node, control.getter_AddRefs()), S_OK);
  const auto statistics = do_QueryInterface<IBDA_SignalStatistics>(control);
  ASSERT_TRUE(statistics);
  uint8_t locked = 1;
  int32_t strength = 7, quality = 7;
  EXPECT_EQ(statistics->get_SignalLocked(&locked), S_OK);
  EXPECT_EQ(locked, 0) << "the graph is stopped";
  EXPECT_TRUE(NS_FAILED(statistics->get_SignalStrength(&strength)));
  EXPECT_EQ(strength, 7);
  receiver.Start();
  EXPECT_EQ(statistics->get_SignalLocked(&locked), S_OK);
  EXPECT_EQ(locked, 1);
  EXPECT_EQ(statistics->get_SignalStrength(&strength), S_OK);
  EXPECT_EQ(strength, -50000);
  EXPECT_EQ(statistics->get_SignalQuality(&quality), S_OK);
  EXPECT_EQ(quality, 90);
  mMachine.mTuners->Change("tuner", [](nsSimulatedTuner& aTuner) { aTuner.mTellsSignal = false; });
  EXPECT_EQ(statistics->get_SignalStrength(&strength), S_OK) << "who waits for a signal goes on";
  EXPECT_EQ(strength, -100000);
  mMachine.mTuners->Remove("tuner");
  EXPECT_TRUE(NS_FAILED(statistics->get_SignalLocked(&locked)));
  EXPECT_TRUE(NS_FAILED(statistics->get_SignalStrength(&strength)));
}

TEST_F(GraphTest, CountryHasNoFrequencies) {
  Receiver receiver(Media());
  receiver.mProvider = receiver.Add(CLSID_DVBTNetworkProvider, u"provider");
  const auto map = do_QueryInterface<IFrequencyMap>(receiver.mProvider);
  uint32_t count = 0, *list = nullptr;
  ASSERT_EQ(map->get_CountryCodeList(&count, &list), S_OK);
  const std::vector<uint32_t> codes(list, list + count);
  Media().CoTaskMemFree(list);
  EXPECT_NE(std::ranges::find(codes, 33u), codes.end());
  EXPECT_EQ(std::set(codes.begin(), codes.end()).size(), codes.size()) << "each once";
  for (const uint32_t code : codes) {
    ASSERT_EQ(map->get_DefaultFrequencyMapping(code, &count, &list), S_OK);
    EXPECT_GT(count, 0u) << code;
    Media().CoTaskMemFree(list);
  }
  EXPECT_TRUE(NS_FAILED(map->get_DefaultFrequencyMapping(0, &count, &list)));
}

TEST_F(GraphTest, RunningGraphIsNotFoundOrStays) {
  nsCOMPtr<IRunningObjectTable> table;
  ASSERT_EQ(Media().GetRunningObjectTable(table.getter_AddRefs()), S_OK);
  nsCOMPtr<IMoniker> name, same, other;
  ASSERT_EQ(Media().CreateItemMoniker(u"!", u"FilterGraph 1", name.getter_AddRefs()), S_OK);
  ASSERT_EQ(Media().CreateItemMoniker(u"!", u"FilterGraph 1", same.getter_AddRefs()), S_OK);
  ASSERT_EQ(Media().CreateItemMoniker(u"!", u"FilterGraph 2", other.getter_AddRefs()), S_OK);
  Receiver receiver(Media());
  uint32_t registration = 0;
  EXPECT_EQ(table->Register(ROTFLAGS_REGISTRATIONKEEPSALIVE, receiver.mGraph.get(), name.get(),
                            &registration),
            S_OK);
  EXPECT_NE(registration, 0u);
  nsCOMPtr<nsISupports> found;
  EXPECT_EQ(table->GetObject(same.get(), found.getter_AddRefs()), S_OK);
  EXPECT_TRUE(NS_SameObject(found.get(), receiver.mGraph.get()));
  EXPECT_EQ(table->IsRunning(other.get()), S_FALSE);
  EXPECT_EQ(table->Revoke(registration), S_OK);
  EXPECT_EQ(table->IsRunning(same.get()), S_FALSE);
  EXPECT_EQ(table->Revoke(registration), E_INVALIDARG);
}

// ---- The stream

TEST_F(GraphTest, PinsGetOthersPackets) {
  const Bytes sent = Numbered(5);
  Send(sent);
  Receiver receiver(Media());
  receiver.Build(u"tuner");
  const auto second = MakeRefCounted<Catcher>();
  const auto secondPin = receiver.Catch(u"second", *second);
  ASSERT_EQ(Map(receiver.mPin.get(), {100, 102}), S_OK);
  ASSERT_EQ(Map(secondPin.get(), {102, 104}), S_OK);
  receiver.Start();
  ASSERT_TRUE(receiver.mCatcher->Await(1000));
  ASSERT_TRUE(second->Await(1000));
  ASSERT_EQ(receiver.mControl->Stop(), S_OK);
  const Bytes first = receiver.mCatcher->Take(), other = second->Take();
  EXPECT_EQ(first, Filtered(sent, {100, 102}, first.size()));
  EXPECT_EQ(other, Filtered(sent, {102, 104}, other.size()));
}

TEST_F(GraphTest, MapOfBeforeStays) {
  Send(Numbered(5));
  Receiver receiver(Media());
  receiver.Build(u"tuner");
  const auto map = do_QueryInterface<IMPEG2PIDMap>(receiver.mPin);
  ASSERT_EQ(Map(receiver.mPin.get(), {100, 101}), S_OK);
  uint32_t pids[] = {102, 0x2000}, unmapped = 104;
  EXPECT_EQ(map->MapPID(2, pids, 0), E_INVALIDARG);
  EXPECT_EQ(map->MapPID(1, pids, 3), E_INVALIDARG) << "no whole packets";
  EXPECT_EQ(map->UnmapPID(1, &unmapped), E_INVALIDARG);
  receiver.Start();
  ASSERT_TRUE(receiver.mCatcher->Await(1000));
  EXPECT_EQ(PidsIn(receiver.mCatcher->Take()), (std::set<uint32_t>{100, 101}));
  // While it flows.
  ASSERT_EQ(Map(receiver.mPin.get(), {103}), S_OK);
  const uint64_t batch = receiver.mCatcher->Samples();
  while (receiver.mCatcher->Samples() < batch + 2) std::this_thread::yield();
  receiver.mCatcher->Hold(true);
  ASSERT_TRUE(receiver.mCatcher->AwaitInside());
  (void)receiver.mCatcher->Take();
  receiver.mCatcher->Hold(false);
  ASSERT_TRUE(receiver.mCatcher->Await(2000));
  const Bytes after = receiver.mCatcher->Take();
  // What had come before the change may still arrive; behind that there is the new PID alone.
  EXPECT_EQ(PidsIn(Bytes(after.end() - 188 * 500, after.end())), (std::set<uint32_t>{103}));
  ASSERT_EQ(receiver.mControl->Stop(), S_OK);
}

TEST_F(GraphTest, SamplesComeAfterStop) {
  Send(Numbered(3));
  Receiver receiver(Media());
  receiver.Build(u"tuner");
  ASSERT_EQ(Map(receiver.mPin.get(), {100, 101, 102}), S_OK);
  for (int i = 0; i < 30; ++i) {
    receiver.Start();
    EXPECT_EQ(receiver.mPin->Disconnect(), VFW_E_NOT_STOPPED);
    EXPECT_EQ(receiver.mGraph->RemoveFilter(receiver.mDemux.get()), VFW_E_NOT_STOPPED);
    ASSERT_TRUE(receiver.mCatcher->Await(static_cast<size_t>(i)));
    ASSERT_EQ(receiver.mControl->Stop(), S_OK);
    const uint64_t samples = receiver.mCatcher->Samples();
    std::this_thread::yield();
    EXPECT_EQ(receiver.mCatcher->Samples(), samples);
    (void)receiver.mCatcher->Take();
  }
  EXPECT_EQ(receiver.mControl->Stop(), S_OK) << "a second time";
}

TEST_F(GraphTest, OldServiceFlowsWhenItRunsAgain) {
  Send(Numbered(3));
  Receiver receiver(Media());
  receiver.Build(u"tuner");
  ASSERT_EQ(Map(receiver.mPin.get(), {100}), S_OK);
  receiver.Start();
  ASSERT_TRUE(receiver.mCatcher->Await(10));
  ASSERT_EQ(receiver.mControl->Stop(), S_OK);
  (void)receiver.mCatcher->Take();
  ASSERT_EQ(receiver.mControl->Run(), S_OK);
  std::this_thread::sleep_for(20ms);
  EXPECT_TRUE(receiver.mCatcher->Take().empty()) << "nothing was asked for yet";
  ASSERT_EQ(receiver.mControl->Stop(), S_OK);
  ASSERT_EQ(receiver.Tune(kFrequency), S_OK) << "while it is stopped";
  ASSERT_EQ(receiver.mControl->Run(), S_OK);
  EXPECT_TRUE(receiver.mCatcher->Await(10)) << "it was kept";
}

TEST_F(GraphTest, PulledTunerHangsOrStaysLost) {
  const Bytes sent = Numbered(3);
  Send(sent);
  Receiver receiver(Media());
  receiver.Build(u"tuner");
  ASSERT_EQ(Map(receiver.mPin.get(), {100}), S_OK);
  receiver.Start();
  ASSERT_TRUE(receiver.mCatcher->Await(100));
  nsresult waited = S_OK;
  std::thread reader([&] {
    std::vector<Bytes> sections;
    waited = receiver.Table(17, 0x42, kLong, &sections);
  });
  std::this_thread::sleep_for(20ms);
  const auto begin = std::chrono::steady_clock::now();
  mMachine.mTuners->Remove("tuner");
  reader.join();
  EXPECT_EQ(waited, NS_ERROR_NOT_AVAILABLE);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 30s);
  EXPECT_EQ(Map(receiver.mPin.get(), {}), S_OK);
  EXPECT_EQ(receiver.mControl->Stop(), S_OK);
  EXPECT_EQ(receiver.mControl->Run(), NS_ERROR_FILE_NOT_FOUND);
  int32_t state = State_Running;
  EXPECT_EQ(receiver.mControl->GetState(0, &state), S_OK);
  EXPECT_EQ(state, State_Stopped);
  FILTER_STATE provider = State_Running;
  EXPECT_EQ(receiver.mProvider->GetState(0, &provider), S_OK);
  EXPECT_EQ(provider, State_Stopped) << "none is left running";
  Plug("tuner", sent);
  (void)receiver.mCatcher->Take();
  ASSERT_EQ(Map(receiver.mPin.get(), {101}), S_OK);
  receiver.Start();
  EXPECT_TRUE(receiver.mCatcher->Await(100));
}

TEST_F(GraphTest, TwoReceiversAreInEachOthersWay) {
  const Bytes sent = Numbered(4);
  Send(sent);
  Plug("second", sent);
  Receiver a(Media()), b(Media()), late(Media());
  a.Build(u"tuner");
  b.Build(u"second");
  late.Build(u"tuner");
  ASSERT_EQ(Map(a.mPin.get(), {100, 101}), S_OK);
  ASSERT_EQ(Map(b.mPin.get(), {103}), S_OK);
  a.mCatcher->Hold(true);
  a.Start();
  ASSERT_TRUE(a.mCatcher->AwaitInside());
  EXPECT_EQ(late.mControl->Run(), NS_ERROR_FILE_IS_LOCKED);
  for (int i = 0; i < 10; ++i) {
    b.Start();
    ASSERT_TRUE(b.mCatcher->Await(500)) << "although the other's reader does not read";
    ASSERT_EQ(b.mControl->Stop(), S_OK);
  }
  const Bytes second = b.mCatcher->Take();
  EXPECT_EQ(PidsIn(second), (std::set<uint32_t>{103}));
  a.mCatcher->Hold(false);
  ASSERT_TRUE(a.mCatcher->Await(1000));
  ASSERT_EQ(a.mControl->Stop(), S_OK);
  const Bytes first = a.mCatcher->Take();
  EXPECT_EQ(first, Filtered(sent, {100, 101}, first.size())) << "nothing was lost";
  late.Start();
}

// ---- Tables

Bytes NotInForce(Bytes aSection) {
  aSection[5] &= 0xFE;
  aSection.resize(aSection.size() - 4);
  const uint32_t crc = vorel::test::Crc(aSection);
  vorel::test::Append16(aSection, crc >> 16);
  vorel::test::Append16(aSection, crc & 0xFFFF);
  return aSection;
}

TEST_F(GraphTest, TablesAreNotWholeOrNotInForce) {
  using vorel::test::Pat;
  // Longer than a packet, so that each goes over several.
  std::vector<std::pair<unsigned, unsigned>> many, rest{{900, 0x90}};
  for (unsigned i = 1; i <= 100; ++i) many.emplace_back(i, 0x100 + i);
  const Bytes first = Section(0x00, 7, Pat(many), 4, 0, 1),
              last = Section(0x00, 7, Pat(rest), 4, 1, 1),
              next = NotInForce(Section(0x00, 7, Pat(rest), 5, 0, 0)),
              large = Section(0x42, 7, Bytes(1000, 1));
  Bytes broken = Section(0x42, 7, Bytes(1000, 2), 1);
  broken[500] ^= 1;
  Stream stream;
  for (int i = 0; i < 8; ++i)
    stream.Sections(0, {next, last})
        .Sections(17, {broken, large, Section(0x46, 8, Bytes(30, 1))})
        .Sections(0, {next})
        .Sections(0, {first, next})
        .Packet(0x30, false, Bytes(184, 0));
  Send(stream.mBytes);
  Receiver receiver(Media());
  receiver.Build(u"tuner");
  std::vector<Bytes> sections;
  EXPECT_EQ(receiver.Table(0, 0, kLong, &sections), VFW_E_WRONG_STATE) << "the graph is stopped";
  receiver.Start();
  ASSERT_EQ(receiver.Table(0, 0, kLong, &sections), S_OK);
  EXPECT_EQ(sections, (std::vector<Bytes>{first, last}));
  sections.clear();
  ASSERT_EQ(receiver.Table(17, 0x42, kLong, &sections), S_OK);
  EXPECT_EQ(sections, (std::vector<Bytes>{large}));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(receiver.Table(16, 0x40, 60, &sections), VFW_E_TIMEOUT);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 50ms);
}

TEST_F(GraphTest, HalfATableIsHandedOut) {
  Stream stream;
  for (int i = 0; i < 8; ++i)
    stream.Sections(17, {Section(0x42, 7, Bytes(40, 1), 0, 0, 1)})
        .Packet(0x30, false, Bytes(184, 0));
  Send(stream.mBytes);
  Receiver receiver(Media());
  receiver.Build(u"tuner");
  receiver.Start();
  std::vector<Bytes> sections;
  EXPECT_EQ(receiver.Table(17, 0x42, 100, &sections), VFW_E_TIMEOUT);
}

TEST_F(GraphTest, ProgramsOnOnePidAreLeftOut) {
  using vorel::test::Pat;
  using vorel::test::Pmt;
  const auto pmt = [](unsigned aProgram) { return Section(0x02, aProgram, Pmt(0x50, {}), 1); };
  Stream stream;
  // The third comes seldom; the fourth is named, but never comes.
  for (int i = 0; i < 40; ++i) {
    stream
        .Sections(
            0, {Section(0, 7, Pat({{1, 0x100}, {2, 0x100}, {3, 0x100}, {9, 0x109}, {10, 0x109}}))})
        .Sections(0x100, {pmt(1), pmt(2)})
        .Sections(0x109, {pmt(9)});
    if (i == 20) stream.Sections(0x100, {pmt(3)});
  }
  Send(stream.mBytes);
  Receiver receiver(Media());
  receiver.Build(u"tuner");
  receiver.Start();
  std::vector<Bytes> sections;
  ASSERT_EQ(receiver.Table(0, 0, kLong, &sections), S_OK);
  sections.clear();
  ASSERT_EQ(receiver.Table(0x100, 2, kLong, &sections), S_OK);
  EXPECT_EQ(sections, (std::vector<Bytes>{pmt(1), pmt(2), pmt(3)}));
  sections.clear();
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_EQ(receiver.Table(0x109, 2, kLong, &sections), S_OK);
  EXPECT_EQ(sections, (std::vector<Bytes>{pmt(9)}));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 30s) << "one that is missing holds up all";
}

TEST_F(GraphTest, ReadOfATableCantBeEnded) {
  Send(Numbered(2));
  Receiver receiver(Media());
  receiver.Build(u"tuner");
  receiver.Start();
  const auto cancel = do_QueryInterface<nsIMediaCancel>(receiver.mData);
  ASSERT_TRUE(cancel);
  auto reading = std::async(std::launch::async, [&] {
    std::vector<Bytes> sections;
    return receiver.Table(17, 0x42, kLong, &sections);
  });
  // It may not have come to the wait yet.
  while (reading.wait_for(5ms) != std::future_status::ready) EXPECT_EQ(cancel->Cancel(), S_OK);
  EXPECT_EQ(reading.get(), NS_ERROR_ABORT);
  std::vector<Bytes> sections;
  EXPECT_EQ(receiver.Table(17, 0x42, 30, &sections), VFW_E_TIMEOUT) << "later ones wait";
  auto other = std::async(std::launch::async, [&] {
    std::vector<Bytes> none;
    return receiver.Table(17, 0x42, kLong, &none);
  });
  std::this_thread::sleep_for(30ms);
  EXPECT_EQ(receiver.mControl->Stop(), S_OK);
  EXPECT_TRUE(NS_FAILED(other.get())) << "the tuner is closed";
}

// ---- Faults

TEST_F(GraphTest, FaultOfTheTunerBreaksTheGraph) {
  using vorel::test::Pat;
  Stream stream;
  for (int i = 0; i < 20; ++i)
    stream.Sections(0, {Section(0, 7, Pat({{1, 0x100}}))}).Packet(100, false, Bytes(184, 1));
  const Bytes sent = stream.mBytes;
  for (const char* const method : {"ListTuners", "OpenTuner", "Tune", "OpenSections", "ReadSection",
                                   "OpenPackets", "SetPids", "ReadPackets", "Close"})
    for (uint64_t number = 1; number <= 2; ++number) {
      SCOPED_TRACE(std::string(method) + " " + std::to_string(number));
      nsSimulatedMachine machine;
      machine.mTuners->Insert("tuner");
      machine.mTuners->Change("tuner", [&](nsSimulatedTuner& aTuner) {
        aTuner.mOwnRate = false;
        aTuner.mTransmitters[kFrequency].mStream = nsSimulatedStream::Make(sent);
      });
      const auto platform = NS_WithMediaGraph(machine.Platform());
      machine.mCalls->Fail({.mPort = "Tuners",
                            .mMethod = method,
                            .mNumber = number,
                            .mResult = NS_ERROR_NOT_AVAILABLE});
      for (int round = 0; round < 4; ++round) {
        const bool isLast = round == 3;  // by then the fault has come
        Receiver receiver(*platform->mMedia);
        const nsCOMPtr<IBaseFilter> tuner = receiver.AddDevice(u"tuner");
        if (isLast) {
          ASSERT_TRUE(tuner);
        }
        if (!tuner) continue;
        EXPECT_EQ(receiver.mGraph->RemoveFilter(tuner.get()), S_OK);
        if (std::string_view(method) == "ListTuners" && !isLast) continue;
        receiver.Build(u"tuner");
        const nsresult mapped = Map(receiver.mPin.get(), {100});
        nsresult rv = receiver.mControl->Run();
        if (NS_SUCCEEDED(rv)) rv = receiver.Tune(kFrequency);
        std::vector<Bytes> sections;
        if (NS_SUCCEEDED(rv)) rv = receiver.Table(0, 0, kLong, &sections);
        if (!isLast) continue;
        EXPECT_EQ(mapped, S_OK);
        EXPECT_EQ(rv, S_OK);
        EXPECT_TRUE(receiver.mCatcher->Await(50));
        EXPECT_EQ(receiver.mControl->Stop(), S_OK);
      }
      EXPECT_EQ(machine.mCalls->FailedCalls().size(), 1u);
    }
}

TEST_F(GraphTest, GraphThatIsLetGoKeepsItsTuner) {
  Send(Numbered(2));
  {
    Receiver receiver(Media());
    receiver.Build(u"tuner");
    ASSERT_EQ(Map(receiver.mPin.get(), {100}), S_OK);
    receiver.Start();
    ASSERT_TRUE(receiver.mCatcher->Await(10));
  }
  (void)mMachine.mCalls->TakeJournal();
  nsCOMPtr<IGraphBuilder> graph;
  {
    Receiver receiver(Media());
    receiver.Build(u"tuner");
    receiver.Start();
    graph = receiver.New<IGraphBuilder>(CLSID_FilterGraph);
    graph.swap(receiver.mGraph);
    receiver.mControl = do_QueryInterface<IMediaControl>(receiver.mGraph);
  }
  graph = nullptr;  // running, and nobody has taken it apart
  const auto journal = mMachine.mCalls->TakeJournal();
  EXPECT_NE(std::ranges::find(journal, "Tuners.Close tuner"), journal.end());
}

}  // namespace

// The receiver's graph and the end of its stream: steps and their failures, packets into the pipe,
// and readers that are slow, stop or go.
#include <thread>

#include "IBaseFilter.h"
#include "IBindCtx.h"
#include "IEnumFilters.h"
#include "IEnumPIDMap.h"
#include "IGraphBuilder.h"
#include "IMPEG2PIDMap.h"
#include "IMediaControl.h"
#include "IMoniker.h"
#include "IPin.h"
#include "IRunningObjectTable.h"
#include "nsFindCaptureDevice.h"
#include "nsForwardingGraph.h"
#include "nsMediaGraph.h"
#include "nsMediaSample.h"
#include "nsPlatformMedia.h"
#include "nsSystemBDAGraph.h"
#include "nsSystemBDASampleGrabberCB.h"
#include "nsSystemTest.h"
#include "nsTestReceiver.h"
#include "nsTestTables.h"

namespace {

using namespace std::chrono_literals;
using vorel::test::Bytes;
using vorel::test::Stream;
using vorel::test::operator+=;

constexpr uint32_t kFrequency = 506000;
constexpr size_t kPipePackets = nsTestReceiver::kPipePackets;

/// Counts writes, and takes less from one on.
class Recorder final : public nsImplements<Recorder, nsIOutputStream> {
 public:
  nsresult Close() override {
    mJournal.push_back("close");
    return NS_OK;
  }
  nsresult Flush() override { return NS_OK; }
  nsresult Write(const char* aBytes, uint32_t aCount, uint32_t* aWritten) override {
    *aWritten = mSizes.size() >= mWhole ? aCount / 2 : aCount;
    mSizes.push_back(aCount);
    mBytes.insert(mBytes.end(), aBytes, aBytes + *aWritten);
    return NS_OK;
  }
  nsresult WriteFrom(nsIInputStream*, uint32_t, uint32_t*) override { return E_NOTIMPL; }
  nsresult WriteSegments(nsReadSegmentFun, void*, uint32_t, uint32_t*) override {
    return E_NOTIMPL;
  }
  nsresult IsNonBlocking(bool*) override { return E_NOTIMPL; }

  std::vector<uint32_t> mSizes;
  Bytes mBytes;
  size_t mWhole = SIZE_MAX;
  std::vector<std::string> mJournal;

 private:
  ~Recorder() override = default;
};

/// Packets with their number.
Bytes Packets(size_t aCount, size_t aFrom = 0) {
  Bytes bytes(aCount * 188, 0x55);
  for (size_t i = 0; i < aCount; ++i) {
    bytes[i * 188] = 0x47;
    for (size_t byte = 0; byte < 4; ++byte)
      bytes[i * 188 + 10 + byte] = static_cast<uint8_t>((aFrom + i) >> (8 * byte));
  }
  return bytes;
}
Bytes Part(const Bytes& aBytes, size_t aFrom, size_t aSize) {
  return Bytes(aBytes.begin() + static_cast<ptrdiff_t>(aFrom),
               aBytes.begin() + static_cast<ptrdiff_t>(aFrom + aSize));
}

// ---- The end of the stream

class StreamEndTest : public nsSystemTest {
 protected:
  void SetUp() override {
    nsSystemTest::SetUp();
    StartHost();
    mGraph = std::make_unique<nsSystemBDAGraph>(NS_WithMediaGraph(mMachine.Platform()));
    mCallback = nsSystemBDASampleGrabberCB::Create(*mGraph, mReceiver);
    mGraph->mGraphRunning = true;
    mReceiver.mOutput = mRecorder;
  }
  void Give(const Bytes& aBytes) {
    // Of its own size, so that a look behind its end is seen.
    const auto bytes = std::make_unique<uint8_t[]>(aBytes.size());
    std::ranges::copy(aBytes, bytes.get());
    const auto sample = MakeRefCounted<nsMediaSample>();
    sample->SetBytes({bytes.get(), aBytes.size()});
    EXPECT_EQ(mCallback->SampleCB(0, sample.get()), S_OK);
  }
  using Sizes = std::vector<uint32_t>;

  std::unique_ptr<nsSystemBDAGraph> mGraph;
  nsTestReceiver mReceiver;
  nsSystemBDASampleGrabberCB* mCallback = nullptr;  // lives for ever
  const nsCOMPtr<Recorder> mRecorder = MakeRefCounted<Recorder>();
};

TEST_F(StreamEndTest, PacketsAreTornOverSamples) {
  const Bytes all = Packets(6);
  Give(Part(all, 0, 376));
  EXPECT_EQ(mRecorder->mSizes, (Sizes{188, 188}));
  Give(Part(all, 376, 200));
  Give(Part(all, 576, 20));
  Give(Part(all, 596, 156));
  EXPECT_EQ(mRecorder->mSizes, (Sizes{188, 188, 188, 32, 156})) << "one that three samples share";
  Give(Part(all, 752, 376));
  EXPECT_EQ(mRecorder->mBytes, all);
}

TEST_F(StreamEndTest, LostSyncCostsWholeSamples) {
  Bytes sample(7, 1);
  sample += Packets(2);
  sample += Bytes(20, 1);
  sample += Packets(1, 2);
  Give(sample);
  EXPECT_EQ(mRecorder->mBytes, Packets(3));
  Give(Bytes(1000, 1));
  EXPECT_EQ(mRecorder->mBytes, Packets(3)) << "nothing of it is kept";
  Give(Packets(1, 3));
  EXPECT_EQ(mRecorder->mBytes, Packets(4));
}

TEST_F(StreamEndTest, StoppedGraphWritesOrForgets) {
  const Bytes all = Packets(3);
  Give(Part(all, 0, 200));
  mGraph->mGraphRunning = false;
  Give(Packets(2, 7));
  EXPECT_EQ(mRecorder->mBytes, Packets(1));
  mGraph->mGraphRunning = true;
  Give(Part(all, 200, 364));
  EXPECT_EQ(mRecorder->mBytes, all) << "what was kept before stays";
  mReceiver.mOutput = nullptr;
  Give(Packets(1));
  EXPECT_TRUE(mGraph->mGraphRunning);
}

TEST_F(StreamEndTest, ShortWriteGoesOn) {
  (void)nsTestLog::Instance().Take();
  mRecorder->mWhole = 2;
  Give(Packets(5));
  EXPECT_EQ(mRecorder->mSizes.size(), 3u);
  EXPECT_EQ(mRecorder->mJournal, (std::vector<std::string>{"close"}));
  EXPECT_FALSE(mGraph->mGraphRunning);
  EXPECT_EQ(nsTestLog::Instance().Take("error"),
            (std::vector<std::string>{
                "error system.digitalTvReceiver: Unable to write to pipe, closing."}));
  Give(Packets(5));
  EXPECT_EQ(mRecorder->mSizes.size(), 3u);

  mRecorder->mWhole = 4;
  mGraph->mGraphRunning = true;
  Give(Part(Packets(2), 0, 200));
  mRecorder->mWhole = mRecorder->mSizes.size() + 1;
  Give(Part(Packets(2), 200, 176));
  EXPECT_EQ(nsTestLog::Instance().Take("error"),
            (std::vector<std::string>{
                "error system.digitalTvReceiver: Unable to write to pipe, closing"}));
  EXPECT_FALSE(mGraph->mGraphRunning);
}

TEST_F(StreamEndTest, StopWaitsForAReaderThatDoesNotRead) {
  ASSERT_EQ(mReceiver.OpenPipe(), NS_OK);
  std::thread streaming([this] { Give(Packets(200)); });
  uint32_t queued = 0;
  while (queued < kPipePackets * 188) {
    ASSERT_EQ(mReceiver.mInput->Available(&queued), NS_OK);
    std::this_thread::yield();
  }
  EXPECT_TRUE(mGraph->StopGraph());
  streaming.join();
  // It runs again on the same pipe, with other packets.
  mGraph->mGraphRunning = true;
  streaming = std::thread([this] { Give(Packets(5, 1000)); });
  std::this_thread::sleep_for(1ms);
  EXPECT_TRUE(mGraph->StopGraph());
  streaming.join();
  mGraph = nullptr;
  // The pipe is as it was, and its reader may go on when the graph has gone.
  EXPECT_EQ(mReceiver.Read(kPipePackets * 188), Packets(kPipePackets));
  EXPECT_EQ(mReceiver.mInput->Available(&queued), NS_OK) << "it is open";
}

TEST_F(StreamEndTest, SlowReaderLosesPackets) {
  ASSERT_EQ(mReceiver.OpenPipe(), NS_OK);
  const Bytes all = Packets(20000);
  std::thread streaming([&] {
    for (size_t at = 0; at < all.size();) {
      const size_t size = std::min<size_t>(all.size() - at, 1 + at % 40000);
      Give(Part(all, at, size));
      at += size;
    }
  });
  Bytes read;
  for (uint32_t i = 0; read.size() < all.size(); ++i) {
    read += mReceiver.Read(std::min<size_t>(all.size() - read.size(), 1 + i * 37 % 20000),
                           1 + i % 3000);
    if (i % 16 == 0) std::this_thread::sleep_for(1ms);
  }
  streaming.join();
  EXPECT_TRUE(read == all);
  EXPECT_TRUE(mGraph->mGraphRunning);
}

TEST_F(StreamEndTest, ReaderGoesWhileItIsWaitedFor) {
  ASSERT_EQ(mReceiver.OpenPipe(), NS_OK);
  std::thread streaming([this] { Give(Packets(200)); });
  (void)mReceiver.Read(188);
  EXPECT_EQ(mReceiver.mInput->Close(), NS_OK);
  streaming.join();
  EXPECT_FALSE(mGraph->mGraphRunning);
  uint32_t written = 0;
  EXPECT_TRUE(NS_FAILED(mReceiver.mOutput->Write("x", 1, &written)));
}

// ---- The steps of the graph

/// Hands through, and lets one call fail.
class FaultyMedia final : public nsPlatformMedia {
 public:
  explicit FaultyMedia(std::shared_ptr<nsPlatformMedia> aMedia) : mMedia(std::move(aMedia)) {}

  nsresult CoInitialize() override {
    return Fails("CoInitialize") ? E_FAIL : mMedia->CoInitialize();
  }
  nsresult CoCreateInstance(const nsCID& aClass, uint32_t aContext, const nsIID& aIID,
                            void** aResult) override;
  nsresult GetRunningObjectTable(IRunningObjectTable** aTable) override {
    return Fails("table") ? E_FAIL : mMedia->GetRunningObjectTable(aTable);
  }
  nsresult CreateItemMoniker(const char16_t* aDelimiter, const char16_t* aItem,
                             IMoniker** aMoniker) override {
    mItem = NS_ToUtf8(std::u16string_view(aItem));
    return Fails("item") ? E_FAIL : mMedia->CreateItemMoniker(aDelimiter, aItem, aMoniker);
  }
  nsresult CreateBindCtx(IBindCtx** aContext) override {
    return Fails("context") ? E_FAIL : mMedia->CreateBindCtx(aContext);
  }
  nsresult MkParseDisplayName(IBindCtx* aContext, const char16_t* aName, uint32_t* aEaten,
                              IMoniker** aMoniker) override {
    return Fails("parse") ? E_FAIL : mMedia->MkParseDisplayName(aContext, aName, aEaten, aMoniker);
  }
  void CoTaskMemFree(void* aMemory) override { mMedia->CoTaskMemFree(aMemory); }
  char16_t* SysAllocString(const char16_t* aText) override { return mMedia->SysAllocString(aText); }
  void SysFreeString(char16_t* aText) override { mMedia->SysFreeString(aText); }

  bool Fails(const std::string& aCall) {
    mCalls.push_back(aCall);
    return aCall == mFault;
  }

  std::string mFault, mItem;
  std::vector<std::string> mCalls;

 private:
  const std::shared_ptr<nsPlatformMedia> mMedia;
};

/// The graph, of which additions and connections can fail.
class FaultyGraph final : public nsForwardingGraph<FaultyGraph> {
 public:
  FaultyGraph(FaultyMedia& aFaults, nsCOMPtr<IGraphBuilder> aGraph)
      : nsForwardingGraph(std::move(aGraph)), mFaults(aFaults) {}
  nsresult QueryInterface(const nsIID& aIID, void** aResult) override {
    if (aIID != IMediaControl::kIID) return nsImplementsWith::QueryInterface(aIID, aResult);
    return mFaults.Fails("control") ? E_NOINTERFACE : mGraph->QueryInterface(aIID, aResult);
  }
  nsresult AddFilter(IBaseFilter* aFilter, const char16_t* aName) override {
    return mFaults.Fails("add " + NS_ToUtf8(std::u16string_view(aName)))
               ? E_FAIL
               : mGraph->AddFilter(aFilter, aName);
  }
  nsresult ConnectDirect(IPin* aOut, IPin* aIn, const AM_MEDIA_TYPE* aType) override {
    PIN_INFO info{};
    EXPECT_EQ(aOut->QueryPinInfo(&info), S_OK);
    const std::string name = NS_ToUtf8(std::u16string_view(info.achName));
    FILTER_INFO filter{};
    PIN_INFO input{};
    EXPECT_EQ(aIn->QueryPinInfo(&input), S_OK);
    EXPECT_EQ(input.pFilter->QueryFilterInfo(&filter), S_OK);
    const std::string to = NS_ToUtf8(std::u16string_view(filter.achName));
    filter.pGraph->Release();
    input.pFilter->Release();
    info.pFilter->Release();
    return mFaults.Fails("connect " + to) ? VFW_E_TYPE_NOT_ACCEPTED
                                          : mGraph->ConnectDirect(aOut, aIn, aType);
  }

 private:
  ~FaultyGraph() override = default;
  FaultyMedia& mFaults;
};

nsresult FaultyMedia::CoCreateInstance(const nsCID& aClass, uint32_t aContext, const nsIID& aIID,
                                       void** aResult) {
  static const std::map<nsID, std::string> kNames = {
      {CLSID_FilterGraph, "graph"},        {CLSID_DVBTuningSpace, "space"},
      {CLSID_DVBTLocator, "locator"},      {CLSID_DVBTNetworkProvider, "provider"},
      {CLSID_MPEG2Demultiplexer, "demux"}, {CLSID_SampleGrabber, "grabber"},
      {CLSID_NullRenderer, "renderer"},    {CLSID_SystemDeviceEnum, "devices"}};
  if (Fails("new " + kNames.at(aClass)))
    return aClass == CLSID_SampleGrabber ? REGDB_E_CLASSNOTREG : E_FAIL;
  if (aClass != CLSID_FilterGraph) return mMedia->CoCreateInstance(aClass, aContext, aIID, aResult);
  nsCOMPtr<IGraphBuilder> graph;
  const nsresult rv =
      mMedia->CoCreateInstance(aClass, aContext, IGraphBuilder::kIID, NS_OutVoid(graph));
  if (NS_FAILED(rv)) return rv;
  return MakeRefCounted<FaultyGraph>(*this, graph)->QueryInterface(aIID, aResult);
}

class ReceiverGraphTest : public nsSystemTest {
 protected:
  void SetUp() override {
    nsSystemTest::SetUp();
    StartHost();
    nsSimulatedTuner tuner;
    tuner.mOwnRate = false;
    tuner.mTransmitters[kFrequency].mStream = nsSimulatedStream::Make(Sent());
    mMachine.mTuners->Insert("tuner", std::move(tuner));
    const nsPlatformRef machine = NS_WithMediaGraph(mMachine.Platform());
    const auto platform = std::make_shared<nsPlatform>(*machine);
    mMedia = std::make_shared<FaultyMedia>(machine->mMedia);
    platform->mMedia = mMedia;
    mPlatform = platform;
  }
  static Bytes Sent() {
    Stream stream;
    for (unsigned i = 0; i < 400; ++i)
      for (const unsigned pid : {0u, 0x100u, 0x101u, 0x102u, 0x103u})
        stream.Packet(pid, false, Bytes(184, static_cast<uint8_t>(i)));
    return stream.mBytes;
  }
  static Bytes Filtered(const std::set<unsigned>& aPids, size_t aSize) {
    const Bytes sent = Sent();
    Bytes filtered;
    while (filtered.size() < aSize)
      for (size_t at = 0; at < sent.size() && filtered.size() < aSize; at += 188)
        if (aPids.contains((sent[at + 1] & 0x1Fu) << 8 | sent[at + 2]))
          filtered += Part(sent, at, 188);
    return filtered;
  }

  std::shared_ptr<FaultyMedia> mMedia;
  nsPlatformRef mPlatform;
};

TEST_F(ReceiverGraphTest, StepFailsWithoutItsWords) {
  const std::string graph = "Echec de création du graphe.",
                    filters = "Echec lors de l'ajout des filtres au graphe.",
                    connections = "Echec de connexion des filtres du graphe.",
                    space = "Failed to initialise the Tune Request.";
  using Lines = std::vector<std::string>;
  const std::vector<std::pair<std::string, Lines>> faults = {
      {"new graph", {"Graphbuilder Failed to create graph : -2147467259__0", graph}},
      {"control", {"Echec de chargement de l'interface de controle du graphe.", graph}},
      {"table", {"Echec de l'ajout du graphe", graph}},
      {"item", {"Echec de l'ajout du graphe", graph}},
      {"new space", {"Could not create DVBTuningSpace.", space, filters}},
      {"new provider",
       {"Failed to load filter.", "Failed to add Network Provider to the graph.", filters}},
      {"add Network Provider",
       {"Failed to add filter.", "Failed to add Network Provider to the graph.", filters}},
      {"new locator", {"Failed to create the Tune Request.", filters}},
      {"context",
       {"AddFilterByDevicePath: Could not create bind context.",
        "Failed to add the graph builder to the Receiver.", filters}},
      {"parse",
       {"AddFilterByDevicePath: Could not create moniker from device path.",
        "Failed to add the graph builder to the Receiver.", filters}},
      {"add Tuner",
       {"Failed to add filter.", "Failed to add the graph builder to the Receiver.", filters}},
      {"new demux",
       {"Failed to load filter.", "Failed to add BDA MPEG-2 Demultiplexer to the graph.", filters}},
      {"new devices",
       {"AddFilterByName: Cannot CoCreate ICreateDevEnum.", "Cannot load TIF.", filters}},
      {"add BDA MPEG2 Transport Information Filter",
       {"AddFilterByName: Failed to add Filter.", "Cannot load TIF.", filters}},
      {"add MPEG-2 Sections and Tables",
       {"AddFilterByName: Failed to add Filter.", "Cannot load MPEG-2 Sections and Tables.",
        filters}},
      {"new grabber",
       {"Failed to load filter. The filter is not registered.", "Cannot load Sample Grabber.",
        filters}},
      {"add NullRenderer", {"Failed to add filter.", "Cannot load Null Renderer.", filters}},
      {"connect Tuner",
       {"Pin connection failed : 0x8004022a", "Pin connection failed : 0x80004003",
        "Failed to connect Capture filter to BDA Demux.", connections}},
      {"connect BDA MPEG-2 Demultiplexer",
       {"Pin connection failed : 0x8004022a", "Failed to connect Capture filter to BDA Demux.",
        connections}},
      {"connect BDA MPEG2 Transport Information Filter",
       {"Pin connection failed : 0x8004022a", "Pin connection failed : 0x8004022a",
        "Failed to connect BDA Demux to TIF.", connections}},
      {"connect Grabber",
       {"Pin connection failed : 0x8004022a", "Failed to connect demux video pin to samplegrabber",
        connections}},
      {"connect NullRenderer",
       {"Pin connection failed : 0x8004022a", "Failed to connect SampleGrabber to Null Renderer.",
        connections}},
  };
  for (const auto& [fault, words] : faults) {
    SCOPED_TRACE(fault);
    mMedia->mFault = fault;
    nsSystemBDAGraph broken(mPlatform);
    nsTestReceiver receiver;
    receiver.mGraph = &broken;
    (void)nsTestLog::Instance().Take();
    EXPECT_EQ(broken.SetupGraph(receiver), NS_ERROR_FAILURE);
    Lines expected;
    for (const std::string& line : words)
      expected.push_back("error system.digitaltvreceiver: " + line);
    EXPECT_EQ(nsTestLog::Instance().Take("error"), expected);
    broken.TearDownGraph(receiver);
    broken.TearDownGraph(receiver);
  }
  mMedia->mFault = "CoInitialize";
  nsSystemBDAGraph whole(mPlatform);
  nsTestReceiver receiver;
  receiver.mGraph = &whole;
  EXPECT_EQ(whole.SetupGraph(receiver), NS_OK) << "the work goes on";
  EXPECT_EQ(nsTestLog::Instance().Take("error"),
            (Lines{"error system.digitaltvreceiver: Coinitialize Failed : -2147467259__0"}));
  whole.TearDownGraph(receiver);
}

TEST_F(ReceiverGraphTest, GraphIsNotRegisteredOrStaysSo) {
  nsCOMPtr<IRunningObjectTable> table;
  ASSERT_EQ(mMedia->GetRunningObjectTable(table.getter_AddRefs()), S_OK);
  nsSystemBDAGraph graph(mPlatform);
  nsTestReceiver receiver;
  receiver.mGraph = &graph;
  EXPECT_TRUE(graph.StopGraph()) << "it was never built";
  ASSERT_EQ(graph.SetupGraph(receiver), NS_OK);
  char expected[64];
  (void)std::snprintf(expected, sizeof expected, "FilterGraph %08x pid %08x",
                      static_cast<unsigned>(reinterpret_cast<uintptr_t>(graph.mGraphBuilder.get())),
                      1u);
  EXPECT_EQ(mMedia->mItem, expected);
  nsCOMPtr<IMoniker> name;
  ASSERT_EQ(
      mMedia->CreateItemMoniker(u"!", NS_ToUtf16(mMedia->mItem).c_str(), name.getter_AddRefs()),
      S_OK);
  EXPECT_EQ(table->IsRunning(name.get()), S_OK);
  graph.TearDownGraph(receiver);
  EXPECT_EQ(table->IsRunning(name.get()), S_FALSE);
  EXPECT_EQ(graph.mRotRegister, 0u);
}

TEST_F(ReceiverGraphTest, LockIsWaitedForTooLongOrTooShort) {
  nsSystemBDAGraph graph(mPlatform, {.mRounds = 10, .mRoundWait = 1});
  nsTestReceiver receiver;
  receiver.mGraph = &graph;
  ASSERT_EQ(graph.SetupGraph(receiver), NS_OK);
  ASSERT_TRUE(graph.StartGraph());
  const auto looks = [&](int aUntilLock) {
    receiver.mLooks = 0;
    receiver.mLooksUntilLock = aUntilLock;
    return graph.LockChannel(receiver, kFrequency, 8);
  };
  EXPECT_EQ(looks(9), NS_OK);
  EXPECT_EQ(receiver.mLooks, 10);
  EXPECT_EQ(looks(10), NS_ERROR_FAILURE);
  EXPECT_EQ(receiver.mLooks, 10);
  receiver.mIsStopped = true;
  EXPECT_EQ(looks(0), NS_ERROR_FAILURE);
  EXPECT_EQ(receiver.mLooks, 0);
  receiver.mIsStopped = false;
  receiver.mFailsToTell = true;
  EXPECT_EQ(looks(0), NS_ERROR_FAILURE);
  EXPECT_EQ(receiver.mLooks, 1) << "a failure ends the waiting";
  const auto journal = mMachine.mCalls->TakeJournal();
  EXPECT_EQ(std::ranges::count(journal, "Tuners.Tune tuner 506000 8"), 4);
  graph.TearDownGraph(receiver);
}

TEST_F(ReceiverGraphTest, StreamHasOtherPackets) {
  nsSystemBDAGraph graph(mPlatform);
  nsTestReceiver receiver;
  receiver.mGraph = &graph;
  ASSERT_EQ(graph.SetupGraph(receiver), NS_OK);
  const std::vector<std::pair<std::array<uint32_t, 3>, std::set<unsigned>>> selections = {
      {{0x101, 0x100, 0x102}, {0, 0x100, 0x101, 0x102}},
      {{0, 0x103, 0}, {0, 0x103}},
      {{0x101, 0, 0}, {0, 0x101}}};
  for (const auto& [pids, packets] : selections) {
    EXPECT_TRUE(graph.StopGraph());
    ASSERT_EQ(receiver.OpenPipe(), NS_OK);
    ASSERT_EQ(graph.MapStreams(pids[0], pids[1], pids[2]), NS_OK);
    ASSERT_TRUE(graph.StartGraph());
    ASSERT_EQ(graph.LockChannel(receiver, kFrequency, 8), NS_OK);
    EXPECT_EQ(receiver.Read(3000 * 188), Filtered(packets, 3000 * 188));
  }
  // The last reader has stopped, and the pipe is full.
  EXPECT_TRUE(graph.StopGraph());
  graph.TearDownGraph(receiver);
  EXPECT_TRUE(graph.StopGraph());
}

TEST_F(ReceiverGraphTest, PidThatCantBeMappedEndsTheRest) {
  nsSystemBDAGraph graph(mPlatform);
  nsTestReceiver receiver;
  receiver.mGraph = &graph;
  EXPECT_TRUE(NS_FAILED(graph.MapStreams(1, 2, 3))) << "there is no graph";
  ASSERT_EQ(graph.SetupGraph(receiver), NS_OK);
  (void)nsTestLog::Instance().Take();
  EXPECT_EQ(graph.MapStreams(0x101, 0x2001, 0x102), NS_OK);
  EXPECT_EQ(
      nsTestLog::Instance().Take("error"),
      (std::vector<std::string>{"error system.digitaltvreceiver: Unable to map PMT Pid 8193"}));
  nsCOMPtr<IPin> pin;
  ASSERT_EQ(graph.FindPinByName(graph.mDemux.get(), u"Mpeg2", pin.getter_AddRefs(), 1), NS_OK);
  EXPECT_EQ(graph.FindPinByName(graph.mDemux.get(), u"Mpeg2", pin.getter_AddRefs(), 0),
            NS_ERROR_FAILURE);
  ASSERT_EQ(graph.FindPinByName(graph.mDemux.get(), u"Mpeg2", pin.getter_AddRefs(), 2), NS_OK);
  nsCOMPtr<IEnumPIDMap> mapped;
  ASSERT_EQ(do_QueryInterface<IMPEG2PIDMap>(pin)->EnumPIDMap(mapped.getter_AddRefs()), S_OK);
  PID_MAP entries[5];
  uint32_t count = 0;
  EXPECT_EQ(mapped->Next(5, entries, &count), S_FALSE);
  ASSERT_EQ(count, 3u);
  EXPECT_EQ(entries[1].ulPID, 0x101u);
  EXPECT_EQ(entries[2].ulPID, 0x102u);
  graph.TearDownGraph(receiver);
}

TEST_F(ReceiverGraphTest, GraphThatCantRunIsNotMarked) {
  nsSystemBDAGraph graph(mPlatform);
  nsTestReceiver receiver;
  receiver.mGraph = &graph;
  ASSERT_EQ(graph.SetupGraph(receiver), NS_OK);
  mMachine.mTuners->Change("tuner", [](nsSimulatedTuner& aTuner) { aTuner.mUser = "another"; });
  (void)nsTestLog::Instance().Take();
  EXPECT_FALSE(graph.StartGraph());
  EXPECT_TRUE(graph.mGraphRunning);
  const auto lines = nsTestLog::Instance().Take("error system.digitaltvreceiver");
  EXPECT_EQ(lines, (std::vector<std::string>{
                       "error system.digitaltvreceiver: Failed to run Media Control : 8052000e"}));
  mMachine.mTuners->Change("tuner", [](nsSimulatedTuner& aTuner) { aTuner.mUser = ""; });
  EXPECT_TRUE(graph.StartGraph());
  graph.TearDownGraph(receiver);
}

// ---- Components of a tuner

TEST_F(ReceiverGraphTest, ComponentsOfATunerAreMistaken) {
  const auto plug = [this](const std::string& aPath, size_t aParts) {
    nsSimulatedTuner tuner;
    for (size_t i = 0; i < aParts; ++i)
      tuner.mInfo.mParts.push_back({aPath + "/part" + std::to_string(i), "part"});
    mMachine.mTuners->Insert(aPath, std::move(tuner));
  };
  plug("one", 1);
  plug("two", 2);
  const auto find = [&](const char16_t* aPath, std::u16string* aDemod, std::u16string* aCapture) {
    DirectShowSystemDevice tuner;
    tuner.mDevicePath = aPath;
    tuner.mFriendlyName = u"a tuner";
    std::unique_ptr<DirectShowSystemDevice> demod, capture;
    EXPECT_EQ(FindCaptureDevice(mPlatform, tuner, &demod, &capture), NS_OK);
    *aDemod = demod ? demod->mDevicePath.value() : u"";
    *aCapture = capture ? capture->mDevicePath.value() : u"";
  };
  std::u16string demod, capture;
  find(u"two", &demod, &capture);
  EXPECT_EQ(demod, u"two/part0");
  EXPECT_EQ(capture, u"two/part1");
  find(u"one", &demod, &capture);
  EXPECT_EQ(demod, u"");
  EXPECT_EQ(capture, u"one/part0") << "a lone one captures";
  for (const char16_t* const path : {u"tuner", u"gone"}) {
    find(path, &demod, &capture);
    EXPECT_EQ(demod + capture, u"");
  }
  mMachine.mTuners->Change("two", [](nsSimulatedTuner& aTuner) { aTuner.mUser = "another"; });
  find(u"two", &demod, &capture);
  EXPECT_EQ(capture, u"two/part1") << "although somebody uses it";
}

}  // namespace

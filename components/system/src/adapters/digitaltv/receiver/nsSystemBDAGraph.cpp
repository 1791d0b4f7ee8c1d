#include "nsSystemBDAGraph.h"

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "IBaseFilter.h"
#include "IBindCtx.h"
#include "ICreateDevEnum.h"
#include "IDVBTLocator.h"
#include "IDVBTuneRequest.h"
#include "IDVBTuningSpace2.h"
#include "IEnumFilters.h"
#include "IEnumMediaTypes.h"
#include "IEnumMoniker.h"
#include "IEnumPIDMap.h"
#include "IEnumPins.h"
#include "IGraphBuilder.h"
#include "IMPEG2PIDMap.h"
#include "IMediaControl.h"
#include "IMoniker.h"
#include "IMpeg2Demultiplexer.h"
#include "IPin.h"
#include "IPropertyBag.h"
#include "IRunningObjectTable.h"
#include "ISampleGrabber.h"
#include "IScanningTuner.h"
#include "nsLogger.h"
#include "nsPlatformHost.h"
#include "nsPlatformMedia.h"
#include "nsString.h"
#include "nsSystemBDAReceiver.h"
#include "nsSystemBDASampleGrabberCB.h"

namespace {

// The terrestrial system, and the class of its network provider.
constexpr int32_t kDvbTerrestrial = 1;
constexpr char16_t kNetworkType[] = u"{216C62DF-6D7F-4E9A-8571-05F14EDB766A}";

constexpr char16_t kStreamPin[] = u"MPEG-2 Stream";
constexpr char16_t kPlayerPin[] = u"Mpeg2";

std::string Formatted(const char* aFormat, auto... aArguments) {
  char text[160];
  (void)std::snprintf(text, sizeof text, aFormat, aArguments...);
  return text;
}
unsigned Bits(nsresult aRv) { return static_cast<unsigned>(aRv); }
int Number(nsresult aRv) { return static_cast<int>(static_cast<unsigned>(aRv)); }

/// A text with its length in front, for as long as a call takes.
class BasicString {
 public:
  BasicString(nsPlatformMedia& aMedia, const char16_t* aText)
      : mMedia(aMedia), mText(aMedia.SysAllocString(aText)) {}
  ~BasicString() { mMedia.SysFreeString(mText); }
  BasicString(const BasicString&) = delete;
  BasicString& operator=(const BasicString&) = delete;
  char16_t* get() const { return mText; }

 private:
  nsPlatformMedia& mMedia;
  char16_t* const mText;
};

/// The label under which transport packets travel to the grabber.
AM_MEDIA_TYPE PlayerType() {
  AM_MEDIA_TYPE type{};
  type.majortype = MEDIATYPE_Video;
  type.subtype = MEDIASUBTYPE_MPEG2_VIDEO;
  return type;
}

/// True for what is in force, one of its own or both; PINDIR_INPUT and PINDIR_OUTPUT among them.
bool IsOfDirection(const PIN_INFO& aInfo, int32_t aDirection) {
  return aDirection == nsSystemBDAGraph::kAnyDirection || aInfo.dir == aDirection;
}

/// What a pin says of itself; the reference to its filter is given back.
nsresult InfoOf(IPin* aPin, PIN_INFO* aInfo) {
  *aInfo = {};
  const nsresult rv = aPin->QueryPinInfo(aInfo);
  if (NS_SUCCEEDED(rv) && aInfo->pFilter) aInfo->pFilter->Release();
  return rv;
}

/// aVisit(IPin*) for each pin until one says true. NS_ERROR_FAILURE when none did.
nsresult FindPin(IEnumPins* aPins, auto aVisit) {
  nsCOMPtr<IPin> pin;
  while (aPins->Next(1, pin.getter_AddRefs(), nullptr) == S_OK && pin)
    if (aVisit(pin)) return NS_OK;
  return NS_ERROR_FAILURE;
}

nsCOMPtr<IEnumPins> PinsOf(IBaseFilter* aFilter) {
  nsCOMPtr<IEnumPins> pins;
  if (!aFilter || NS_FAILED(aFilter->EnumPins(pins.getter_AddRefs()))) return nullptr;
  return pins;
}

void FreeMediaType(nsPlatformMedia& aMedia, AM_MEDIA_TYPE* aType) {
  if (aType->pUnk) aType->pUnk->Release();
  aMedia.CoTaskMemFree(aType->pbFormat);
  aMedia.CoTaskMemFree(aType);
}

}  // namespace

nsSystemBDAGraph::nsSystemBDAGraph(nsPlatformRef aPlatform)
    : nsSystemBDAGraph(std::move(aPlatform), Times()) {}
nsSystemBDAGraph::nsSystemBDAGraph(nsPlatformRef aPlatform, Times aTimes)
    : mLog(NS_GetLogger("system.digitaltvreceiver")),
      mPlatform(std::move(aPlatform)),
      mTimes(aTimes) {}
nsSystemBDAGraph::~nsSystemBDAGraph() = default;

// A failure of the graph: its line in the log, and the one result that all have.
#define BDA_FAIL(aText)              \
  do {                               \
    SYSTEM_LOG_ERROR(mLog, (aText)); \
    return NS_ERROR_FAILURE;         \
  } while (false)

// ---- Building

nsresult nsSystemBDAGraph::SetupGraph(nsSystemBDAReceiver& aAdapter) {
  if (NS_FAILED(CreateGraph())) BDA_FAIL("Echec de création du graphe.");
  if (NS_FAILED(BuildGraph(aAdapter))) BDA_FAIL("Echec lors de l'ajout des filtres au graphe.");
  if (NS_FAILED(ConnectGraph(aAdapter))) BDA_FAIL("Echec de connexion des filtres du graphe.");
  return NS_OK;
}

nsresult nsSystemBDAGraph::CreateGraph() {
  nsPlatformMedia& media = *mPlatform->mMedia;
  nsresult rv = media.CoInitialize();
  if (NS_FAILED(rv)) SYSTEM_LOG_ERROR(mLog, Formatted("Coinitialize Failed : %i__0", Number(rv)));
  rv = media.CoCreateInstance(CLSID_FilterGraph, CLSCTX_ALL, IGraphBuilder::kIID,
                              NS_OutVoid(mGraphBuilder));
  if (NS_FAILED(rv)) BDA_FAIL(Formatted("Graphbuilder Failed to create graph : %i__0", Number(rv)));
  mMediaControl = do_QueryInterface<IMediaControl>(mGraphBuilder);
  if (!mMediaControl) BDA_FAIL("Echec de chargement de l'interface de controle du graphe.");
  // A viewer can attach to what is in the table.
  if (NS_FAILED(AddToRot(mGraphBuilder.get(), &mRotRegister)))
    BDA_FAIL("Echec de l'ajout du graphe");
  return NS_OK;
}

nsresult nsSystemBDAGraph::AddToRot(nsISupports* aGraph, uint32_t* aRegistration) {
  nsPlatformMedia& media = *mPlatform->mMedia;
  uint32_t process = 0;
  if (NS_FAILED(mPlatform->mHost->ReadProcessId(&process))) return NS_ERROR_FAILURE;
  const std::string name = Formatted("FilterGraph %08x pid %08x",
                                     static_cast<unsigned>(reinterpret_cast<uintptr_t>(aGraph)),
                                     static_cast<unsigned>(process));
  nsCOMPtr<IRunningObjectTable> table;
  nsCOMPtr<IMoniker> moniker;
  if (NS_FAILED(media.GetRunningObjectTable(table.getter_AddRefs())) ||
      NS_FAILED(media.CreateItemMoniker(u"!", NS_ToUtf16(std::string_view(name)).c_str(),
                                        moniker.getter_AddRefs())) ||
      NS_FAILED(
          table->Register(ROTFLAGS_REGISTRATIONKEEPSALIVE, aGraph, moniker.get(), aRegistration)))
    return NS_ERROR_FAILURE;
  return NS_OK;
}

nsresult nsSystemBDAGraph::BuildGraph(nsSystemBDAReceiver& aAdapter) {
  IGraphBuilder* const graph = mGraphBuilder.get();
  if (NS_FAILED(InitDVBTTuningSpace(mTuningSpace.getter_AddRefs())))
    BDA_FAIL("Failed to initialise the Tune Request.");
  char16_t* type = nullptr;
  if (NS_FAILED(mTuningSpace->get_NetworkType(&type)) || !type)
    BDA_FAIL("Failed to get TuningSpace Network Type.");
  const std::string text = NS_ToUtf8(std::u16string_view(type));
  mPlatform->mMedia->SysFreeString(type);
  nsCID provider;
  if (!nsID::Parse(text, &provider)) BDA_FAIL("Couldn't get CLSIDFromString.");
  if (NS_FAILED(AddFilter(graph, provider, mNetworkProvider.getter_AddRefs(), u"Network Provider")))
    BDA_FAIL("Failed to add Network Provider to the graph.");

  nsCOMPtr<ITuneRequest> request;
  if (NS_FAILED(CreateDVBTTuneRequest(mTuningSpace.get(), request.getter_AddRefs(), 0, 0)))
    BDA_FAIL("Failed to create the Tune Request.");
  mScanningTuner = do_QueryInterface<IScanningTuner>(mNetworkProvider);
  if (!mScanningTuner) BDA_FAIL("Failed while interfacing Tuner with Network Provider.");
  if (NS_FAILED(mScanningTuner->put_TuningSpace(mTuningSpace.get())))
    BDA_FAIL("Failed to give tuning space to tuner.");
  if (NS_FAILED(mScanningTuner->put_TuneRequest(request.get())))
    BDA_FAIL("Failed to submit the Tune Tequest to the Network Provider.");
  if (NS_FAILED(aAdapter.AddFilters(graph)))
    BDA_FAIL("Failed to add the graph builder to the Receiver.");

  if (NS_FAILED(AddFilter(graph, CLSID_MPEG2Demultiplexer, mDemux.getter_AddRefs(),
                          u"BDA MPEG-2 Demultiplexer")))
    BDA_FAIL("Failed to add BDA MPEG-2 Demultiplexer to the graph.");
  if (NS_FAILED(AddFilterByName(graph, mTif.getter_AddRefs(), KSCATEGORY_BDA_TRANSPORT_INFORMATION,
                                u"BDA MPEG2 Transport Information Filter")))
    BDA_FAIL("Cannot load TIF.");
  if (NS_FAILED(AddFilterByName(graph, mSectionsFilter.getter_AddRefs(),
                                KSCATEGORY_BDA_TRANSPORT_INFORMATION,
                                u"MPEG-2 Sections and Tables")))
    BDA_FAIL("Cannot load MPEG-2 Sections and Tables.");
  if (NS_FAILED(AddFilter(graph, CLSID_SampleGrabber, mGrabber.getter_AddRefs(), u"Grabber")))
    BDA_FAIL("Cannot load Sample Grabber.");
  if (NS_FAILED(
          AddFilter(graph, CLSID_NullRenderer, mNullRenderer.getter_AddRefs(), u"NullRenderer")))
    BDA_FAIL("Cannot load Null Renderer.");
  return NS_OK;
}

nsresult nsSystemBDAGraph::ConnectGraph(nsSystemBDAReceiver& aAdapter) {
  IGraphBuilder* const graph = mGraphBuilder.get();
  // What fails here shows when the pins are connected.
  nsCOMPtr<IPin> output, input;
  (void)aAdapter.Connect(mNetworkProvider.get());
  (void)aAdapter.GetTransportStreamPin(output.getter_AddRefs());
  if (NS_FAILED(FindPinByName(mDemux.get(), kStreamPin, input.getter_AddRefs(), PINDIR_INPUT)))
    // The words are those of the grabber's pin: kept as they stand, readers of logs know them.
    BDA_FAIL("Failed to get input pin on sample grabber.");
  if (NS_FAILED(ConnectPins(graph, output.get(), input.get())))
    BDA_FAIL("Failed to connect Capture filter to BDA Demux.");
  if (NS_FAILED(ConnectFilters(graph, mDemux.get(), mTif.get())))
    BDA_FAIL("Failed to connect BDA Demux to TIF.");
  if (NS_FAILED(ConnectFilters(graph, mDemux.get(), mSectionsFilter.get())))
    BDA_FAIL("Failed to connect BDA Demux to MPEG-2 Sections and Tables.");

  nsresult rv;
  const auto grabber = do_QueryInterface<ISampleGrabber>(mGrabber, &rv);
  if (!grabber) BDA_FAIL(Formatted("Unable to obtain ISampleGrabber interface : %x", Bits(rv)));
  AM_MEDIA_TYPE type = PlayerType();
  if (NS_FAILED(grabber->SetMediaType(&type)))
    BDA_FAIL("Unable to set media type in sample grabber.");
  // The grabber holds the only pointer, and it is never destroyed: a sample may still be on its way
  // when the graph has gone.
  if (NS_FAILED(grabber->SetCallback(nsSystemBDASampleGrabberCB::Create(*this, aAdapter), 0)))
    BDA_FAIL("Could not set SampleGrabber Callback");
  if (NS_FAILED(grabber->SetBufferSamples(0))) BDA_FAIL("Unable to activate buffer samples.");
  if (NS_FAILED(FindPinByName(mGrabber.get(), u"Input", input.getter_AddRefs(), PINDIR_INPUT)))
    BDA_FAIL("Failed to get input pin on sample grabber.");

  const auto demultiplexer = do_QueryInterface<IMpeg2Demultiplexer>(mDemux);
  if (!demultiplexer) BDA_FAIL("Failed to query IMpeg2Demultiplexer interface");
  std::u16string name = kPlayerPin;
  rv = demultiplexer->CreateOutputPin(&type, name.data(), output.getter_AddRefs());
  if (NS_FAILED(rv)) BDA_FAIL(Formatted("Failed to create new output Pin : %x", Bits(rv)));
  if (NS_FAILED(ConnectPins(graph, output.get(), input.get())))
    BDA_FAIL("Failed to connect demux video pin to samplegrabber");
  if (NS_FAILED(ConnectFilters(graph, mGrabber.get(), mNullRenderer.get())))
    BDA_FAIL("Failed to connect SampleGrabber to Null Renderer.");
  return NS_OK;
}

void nsSystemBDAGraph::TearDownGraph(nsSystemBDAReceiver& aAdapter) {
  (void)StopGraph();
  if (mGraphBuilder) (void)DisconnectAllPins(mGraphBuilder.get());
  aAdapter.RemoveFilters();
  mTuningSpace = nullptr;
  mScanningTuner = nullptr;
  if (mGraphBuilder) (void)RemoveAllFilters(mGraphBuilder.get());
  for (nsCOMPtr<IBaseFilter>* filter :
       {&mSectionsFilter, &mTif, &mDemux, &mGrabber, &mNullRenderer, &mNetworkProvider})
    *filter = nullptr;
  if (mRotRegister != 0) {
    nsCOMPtr<IRunningObjectTable> table;
    if (NS_SUCCEEDED(mPlatform->mMedia->GetRunningObjectTable(table.getter_AddRefs())))
      (void)table->Revoke(mRotRegister);
    mRotRegister = 0;
  }
  mMediaControl = nullptr;
  mGraphBuilder = nullptr;
}

// ---- Running

bool nsSystemBDAGraph::StartGraph() {
  const nsresult rv = mMediaControl ? mMediaControl->Run() : E_POINTER;
  // Whether or not that worked: kept as it stands, what comes is passed on in any case.
  mGraphRunning = true;
  if (NS_SUCCEEDED(rv)) return true;
  SYSTEM_LOG_ERROR(mLog, Formatted("Failed to run Media Control : %x", Bits(rv)));
  return false;
}

bool nsSystemBDAGraph::StopGraph() {
  mGraphRunning = false;
  WakeWriter();
  if (!mMediaControl) return true;
  if (NS_SUCCEEDED(mMediaControl->Stop())) return true;
  SYSTEM_LOG_ERROR(mLog, "Failed to stop Media Control.");
  return false;
}

// ---- Tuning

nsresult nsSystemBDAGraph::InitDVBTTuningSpace(ITuningSpace** aSpace) {
  nsPlatformMedia& media = *mPlatform->mMedia;
  nsCOMPtr<ITuningSpace> space;
  if (NS_FAILED(media.CoCreateInstance(CLSID_DVBTuningSpace, CLSCTX_ALL, ITuningSpace::kIID,
                                       NS_OutVoid(space))))
    BDA_FAIL("Could not create DVBTuningSpace.");
  const auto dvb = do_QueryInterface<IDVBTuningSpace2>(space);
  if (!dvb) BDA_FAIL("Could not QI TuningSpace.");
  if (NS_FAILED(dvb->put_SystemType(kDvbTerrestrial))) BDA_FAIL("Could not put SystemType.");
  if (NS_FAILED(dvb->put_NetworkType(BasicString(media, kNetworkType).get())))
    BDA_FAIL("Could not put NetworkType.");
  space.forget(aSpace);
  return NS_OK;
}

nsresult nsSystemBDAGraph::CreateDVBTTuneRequest(ITuningSpace* aSpace, ITuneRequest** aRequest,
                                                 int32_t aFrequency, int32_t aBandwidth) {
  if (!aSpace) BDA_FAIL("Tuning Space is NULL.");
  const auto space = do_QueryInterface<IDVBTuningSpace2>(aSpace);
  if (!space) BDA_FAIL("Can't Query Interface for an IDVBTuningSpace2.");
  nsCOMPtr<ITuneRequest> request;
  if (NS_FAILED(space->CreateTuneRequest(request.getter_AddRefs())))
    BDA_FAIL("Failed to create Tune Request.");
  const auto dvb = do_QueryInterface<IDVBTuneRequest>(request);
  if (!dvb) BDA_FAIL("Can't Query Interface for an IDVBTuneRequest.");
  nsCOMPtr<IDVBTLocator> locator;
  const nsresult rv = mPlatform->mMedia->CoCreateInstance(CLSID_DVBTLocator, CLSCTX_ALL,
                                                          IDVBTLocator::kIID, NS_OutVoid(locator));
  if (rv == REGDB_E_CLASSNOTREG)
    BDA_FAIL("The DVBTLocator class isn't registered in the registration database.");
  if (rv == CLASS_E_NOAGGREGATION)
    BDA_FAIL("The DVBTLocator class can't be created as part of an aggregate.");
  if (NS_FAILED(rv)) return NS_ERROR_FAILURE;
  // All else is left to the tuner to find.
  if (NS_FAILED(locator->put_CarrierFrequency(aFrequency)))
    BDA_FAIL("Can't set Frequency on Locator.");
  if (NS_FAILED(locator->put_Bandwidth(aBandwidth))) BDA_FAIL("Can't set Bandwidth on Locator.");
  if (NS_FAILED(dvb->put_Locator(locator.get())))
    BDA_FAIL("Cannot put the locator on DVB Tune Request.");
  nsCOMPtr<ITuneRequest>(dvb.get()).forget(aRequest);
  return NS_OK;
}

nsresult nsSystemBDAGraph::LockChannel(nsSystemBDAReceiver& aAdapter, int32_t aFrequency,
                                       int32_t aBandwidth) {
  const auto tuner = do_QueryInterface<ITuner>(mNetworkProvider);
  nsCOMPtr<ITuneRequest> request;
  if (NS_FAILED(CreateDVBTTuneRequest(mTuningSpace.get(), request.getter_AddRefs(), aFrequency,
                                      aBandwidth)))
    return NS_ERROR_FAILURE;
  if (!tuner) BDA_FAIL("Failed while interfacing Tuner with Network Provider.");
  if (NS_FAILED(tuner->put_TuneRequest(request.get())))
    BDA_FAIL("Failed to submit the Tune Request to the Network Provider.");
  for (uint32_t round = 0; round < mTimes.mRounds && !aAdapter.IsScanStopped(); ++round) {
    bool locked = false;
    int32_t level = 0;
    const nsresult lockResult = aAdapter.GetLocked(&locked);
    const nsresult levelResult = aAdapter.GetLevel(&level);
    if (NS_FAILED(lockResult) || NS_FAILED(levelResult)) {
      SYSTEM_LOG_ERROR(mLog, "Failed : did not getlocked or not getlevel.");
      break;
    }
    if (locked) return NS_OK;
    std::this_thread::sleep_for(std::chrono::milliseconds(mTimes.mRoundWait));
  }
  return NS_ERROR_FAILURE;
}

nsresult nsSystemBDAGraph::MapStreams(uint32_t aVideo, uint32_t aPmt, uint32_t aAudio) {
  nsCOMPtr<IPin> pin;
  const nsresult rv = FindPinByName(mDemux.get(), kPlayerPin, pin.getter_AddRefs(), PINDIR_OUTPUT);
  if (NS_FAILED(rv)) {
    SYSTEM_LOG_ERROR(mLog, Formatted("Unable get MPEG2 demux output Pin : %x", Bits(rv)));
    return rv;
  }
  const auto map = do_QueryInterface<IMPEG2PIDMap>(pin);
  nsCOMPtr<IEnumPIDMap> mapped;
  if (!map || NS_FAILED(map->EnumPIDMap(mapped.getter_AddRefs())) || !mapped)
    BDA_FAIL("Unable to enum PID map");
  PID_MAP entry{};
  uint32_t received = 0;
  while (mapped->Next(1, &entry, &received) == S_OK && received == 1) {
    uint32_t pid = entry.ulPID;
    if (NS_FAILED(map->UnmapPID(1, &pid))) BDA_FAIL(Formatted("Unable to unmap PID %u", pid));
  }

  // What can't be mapped is left out, and the rest goes to the player.
  const auto add = [&](uint32_t aPid, const char* aFailure) {
    if (NS_FAILED(map->MapPID(1, &aPid, MEDIA_TRANSPORT_PACKET)))
      SYSTEM_LOG_ERROR(mLog, aFailure + (aPid ? " " + std::to_string(aPid) : std::string()));
  };
  add(0, "Unable to map PAT Pid");
  if (aPmt) add(aPmt, "Unable to map PMT Pid");
  if (aVideo) add(aVideo, "Unable to map Video Pid");
  if (aAudio) add(aAudio, "Unable to map Audio Pid");
  return NS_OK;
}

// ---- Filters

nsresult nsSystemBDAGraph::AddFilter(IGraphBuilder* aGraph, const nsCID& aClass,
                                     IBaseFilter** aFilter, const char16_t* aName) {
  nsCOMPtr<IBaseFilter> filter;
  const nsresult rv = mPlatform->mMedia->CoCreateInstance(aClass, CLSCTX_INPROC_SERVER,
                                                          IBaseFilter::kIID, NS_OutVoid(filter));
  if (rv == REGDB_E_CLASSNOTREG) BDA_FAIL("Failed to load filter. The filter is not registered.");
  if (NS_FAILED(rv)) BDA_FAIL("Failed to load filter.");
  if (NS_FAILED(aGraph->AddFilter(filter.get(), aName))) BDA_FAIL("Failed to add filter.");
  filter.forget(aFilter);
  return NS_OK;
}

nsresult nsSystemBDAGraph::AddFilterByName(IGraphBuilder* aGraph, IBaseFilter** aFilter,
                                           const nsID& aCategory, const char16_t* aName) {
  nsPlatformMedia& media = *mPlatform->mMedia;
  nsCOMPtr<ICreateDevEnum> devices;
  if (NS_FAILED(media.CoCreateInstance(CLSID_SystemDeviceEnum, CLSCTX_INPROC_SERVER,
                                       ICreateDevEnum::kIID, NS_OutVoid(devices))))
    BDA_FAIL("AddFilterByName: Cannot CoCreate ICreateDevEnum.");
  nsCOMPtr<IEnumMoniker> monikers;
  nsresult rv = devices->CreateClassEnumerator(aCategory, monikers.getter_AddRefs(), 0);
  if (rv == E_OUTOFMEMORY)
    BDA_FAIL("AddFilterByName: There is not enough memory available to create a class enumerator.");
  if (rv == E_POINTER) BDA_FAIL("AddFilterByName: Class Enumerator, NULL pointer argument.");
  // S_FALSE: the category is empty.
  if (rv != S_OK || !monikers)
    BDA_FAIL("AddFilterByName: Failed to create System Device Enumerator.");

  nsCOMPtr<IMoniker> moniker;
  while (monikers->Next(1, moniker.getter_AddRefs(), nullptr) == S_OK && moniker) {
    nsCOMPtr<IPropertyBag> facts;
    if (NS_FAILED(moniker->BindToStorage(nullptr, nullptr, IPropertyBag::kIID, NS_OutVoid(facts))))
      BDA_FAIL("AddFilterByName: Cannot BindToStorage.");
    VARIANT value{};
    value.vt = VT_BSTR;
    if (NS_FAILED(facts->Read(u"FriendlyName", &value, nullptr)) || value.vt != VT_BSTR ||
        !value.bstrVal)
      BDA_FAIL("AddFilterByName: Failed to get name of filter.");
    const std::u16string name(value.bstrVal);
    media.SysFreeString(value.bstrVal);
    if (name != aName) continue;
    nsCOMPtr<IBaseFilter> filter;
    if (NS_FAILED(moniker->BindToObject(nullptr, nullptr, IBaseFilter::kIID, NS_OutVoid(filter))))
      BDA_FAIL("AddFilterByName: Cannot BindToObject.");
    if (NS_FAILED(aGraph->AddFilter(filter.get(), aName)))
      BDA_FAIL("AddFilterByName: Failed to add Filter.");
    filter.forget(aFilter);
    return NS_OK;
  }
  BDA_FAIL("AddFilterByName: Failed to find matching filter.");
}

nsresult nsSystemBDAGraph::AddFilterByDevicePath(IGraphBuilder* aGraph, IBaseFilter** aFilter,
                                                 const char16_t* aPath, const char16_t* aName) {
  nsPlatformMedia& media = *mPlatform->mMedia;
  nsCOMPtr<IBindCtx> context;
  if (NS_FAILED(media.CreateBindCtx(context.getter_AddRefs())))
    BDA_FAIL("AddFilterByDevicePath: Could not create bind context.");
  nsCOMPtr<IMoniker> moniker;
  uint32_t eaten = 0;
  if (!aPath ||
      NS_FAILED(media.MkParseDisplayName(context.get(), aPath, &eaten, moniker.getter_AddRefs())))
    BDA_FAIL("AddFilterByDevicePath: Could not create moniker from device path.");
  nsCOMPtr<IBaseFilter> filter;
  if (NS_FAILED(
          moniker->BindToObject(context.get(), nullptr, IBaseFilter::kIID, NS_OutVoid(filter))))
    BDA_FAIL("Could Not Create Filter.");
  if (NS_FAILED(aGraph->AddFilter(filter.get(), aName ? aName : aPath)))
    BDA_FAIL("Failed to add filter.");
  filter.forget(aFilter);
  return NS_OK;
}

nsresult nsSystemBDAGraph::RemoveAllFilters(IGraphBuilder* aGraph) {
  nsCOMPtr<IEnumFilters> filters;
  if (NS_FAILED(aGraph->EnumFilters(filters.getter_AddRefs())) || !filters)
    BDA_FAIL("Error removing filters. Can't enumerate graph");
  // Collected first: removing one would spoil the enumeration.
  std::vector<nsCOMPtr<IBaseFilter>> all;
  nsCOMPtr<IBaseFilter> filter;
  while (filters->Next(1, filter.getter_AddRefs(), nullptr) == S_OK && filter)
    all.push_back(filter);
  for (const auto& each : all) (void)aGraph->RemoveFilter(each.get());
  return NS_OK;
}

// ---- Pins

nsresult nsSystemBDAGraph::ConnectFilters(IGraphBuilder* aGraph, IBaseFilter* aUpstream,
                                          IBaseFilter* aDownstream) {
  // A pin that is free: its direction is wanted, and nothing is connected to it.
  const auto isFree = [&](const nsCOMPtr<IPin>& aPin, PIN_DIRECTION aDirection,
                          const char* aInfoFailure, const char* aPeerFailure) {
    PIN_INFO info;
    if (NS_FAILED(InfoOf(aPin.get(), &info))) {
      SYSTEM_LOG_ERROR(mLog, aInfoFailure);
      return false;
    }
    if (info.dir != aDirection) return false;
    nsCOMPtr<IPin> peer;
    const nsresult rv = aPin->ConnectedTo(peer.getter_AddRefs());
    if (rv != VFW_E_NOT_CONNECTED && NS_FAILED(rv)) SYSTEM_LOG_ERROR(mLog, aPeerFailure);
    return rv == VFW_E_NOT_CONNECTED;
  };

  const nsCOMPtr<IEnumPins> outputs = PinsOf(aUpstream);
  if (!outputs) BDA_FAIL("Cannot Enumerate Pins on Upstream Filter.");
  return FindPin(outputs.get(), [&](const nsCOMPtr<IPin>& aOut) {
    if (!isFree(aOut, PINDIR_OUTPUT, "Cannot Obtain Pin Info for Upstream Filter.",
                "Failed to determin if Upstream Output Pin is already connected."))
      return false;
    const nsCOMPtr<IEnumPins> inputs = PinsOf(aDownstream);
    if (!inputs) {
      SYSTEM_LOG_ERROR(mLog, "Cannot enumerate pins on downstream filter.");
      return false;
    }
    // Pins that refuse are passed over.
    return NS_SUCCEEDED(FindPin(inputs.get(), [&](const nsCOMPtr<IPin>& aIn) {
      return isFree(aIn, PINDIR_INPUT, "Cannot Obtain Pin Info for Downstream Filter.",
                    "Failed to Find if Downstream Input Pin is already connected.") &&
             NS_SUCCEEDED(ConnectPins(aGraph, aOut.get(), aIn.get()));
    }));
  });
}

nsresult nsSystemBDAGraph::ConnectPins(IGraphBuilder* aGraph, IPin* aOut, IPin* aIn) {
  const nsresult rv = aOut && aIn ? aGraph->ConnectDirect(aOut, aIn, nullptr) : E_POINTER;
  if (NS_FAILED(rv)) SYSTEM_LOG_ERROR(mLog, Formatted("Pin connection failed : 0x%x", Bits(rv)));
  return rv;
}

nsresult nsSystemBDAGraph::FindPinByName(IBaseFilter* aFilter, const char16_t* aName, IPin** aPin,
                                         int32_t aDirection) {
  const nsCOMPtr<IEnumPins> pins = PinsOf(aFilter);
  if (!pins) return NS_ERROR_FAILURE;
  return FindPin(pins.get(), [&](nsCOMPtr<IPin>& aCandidate) {
    PIN_INFO info;
    if (NS_FAILED(InfoOf(aCandidate.get(), &info)) || !IsOfDirection(info, aDirection) ||
        std::u16string_view(info.achName) != aName)
      return false;
    aCandidate.forget(aPin);
    return true;
  });
}

nsresult nsSystemBDAGraph::FindPinByMediaType(IBaseFilter* aFilter, const nsID& aMajor,
                                              const nsID& aSubtype, IPin** aPin,
                                              int32_t aDirection) {
  const nsCOMPtr<IEnumPins> pins = PinsOf(aFilter);
  if (!pins) return NS_ERROR_FAILURE;
  return FindPin(pins.get(), [&](nsCOMPtr<IPin>& aCandidate) {
    PIN_INFO info;
    nsCOMPtr<IEnumMediaTypes> types;
    if (NS_FAILED(InfoOf(aCandidate.get(), &info)) || !IsOfDirection(info, aDirection) ||
        NS_FAILED(aCandidate->EnumMediaTypes(types.getter_AddRefs())) || !types)
      return false;
    AM_MEDIA_TYPE* type = nullptr;
    while (types->Next(1, &type, nullptr) == S_OK && type) {
      const bool fits = type->majortype == aMajor && type->subtype == aSubtype;
      FreeMediaType(*mPlatform->mMedia, std::exchange(type, nullptr));
      if (!fits) continue;
      aCandidate.forget(aPin);
      return true;
    }
    return false;
  });
}

nsresult nsSystemBDAGraph::DisconnectAllPins(IGraphBuilder* aGraph) {
  nsCOMPtr<IEnumFilters> filters;
  if (NS_FAILED(aGraph->EnumFilters(filters.getter_AddRefs())) || !filters) return NS_ERROR_FAILURE;
  nsresult rv = NS_OK;
  nsCOMPtr<IBaseFilter> filter;
  while (filters->Next(1, filter.getter_AddRefs(), nullptr) == S_OK && filter) {
    const nsCOMPtr<IEnumPins> pins = PinsOf(filter.get());
    if (!pins) {
      rv = NS_ERROR_FAILURE;
      continue;
    }
    (void)FindPin(pins.get(), [&](const nsCOMPtr<IPin>& aPin) {
      if (aPin->Disconnect() == VFW_E_NOT_STOPPED)
        SYSTEM_LOG_ERROR(mLog, "Could not disconnect pin. The filter is active.");
      return false;
    });
  }
  return rv;
}

// What all filters of the graph and all their pins have in common.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "IBaseFilter.h"
#include "IFilterGraph.h"
#include "IMediaSample.h"
#include "IPin.h"
#include "nsCOMPtr.h"
#include "nsLock.h"
#include "nsMediaEnum.h"

class nsMediaTuner;

/// Guards how filters, pins and graphs hang together, in all graphs of the process. Taken for
/// moments, with nothing called that waits.
nsRecursiveMutex& NS_MediaStructureLock();

// ---- Between our own pins

/// Where in the chain of a tuner's devices something stands: 0 the tuner, then its components.
struct nsMediaPlace {
  std::string mTuner;  ///< path
  size_t mPosition = 0;

  friend bool operator==(const nsMediaPlace&, const nsMediaPlace&) = default;
};

/// What an output pin between a tuner and the demultiplexer's branches answers besides, and so does
/// a tuner's input.
class nsIMediaSource : public nsISupports {
 public:
  using Self = nsIMediaSource;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsIMediaSource";
  static constexpr nsIID kIID = "3b6a2f5d-9a3f-4f36-9c77-01c2b6a7c2f1"_iid;

  /// Null while the chain up to the tuner has a gap.
  virtual std::shared_ptr<nsMediaTuner> SourceTuner() = 0;
  virtual nsMediaPlace SourcePlace() = 0;

 protected:
  ~nsIMediaSource() = default;
};

/// What an input pin answers that takes samples, on the streaming thread.
class nsIMediaInput : public nsISupports {
 public:
  using Self = nsIMediaInput;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsIMediaInput";
  static constexpr nsIID kIID = "8d8f5d0b-8a43-4b58-8e6a-5a1b9f0cf6a4"_iid;

  virtual void ReceiveSample(IMediaSample* aSample) = 0;

 protected:
  ~nsIMediaInput() = default;
};

// ---- Pins

class nsMediaFilter;

/// A pin belongs to its filter and lives as long as that: references to it are references to the
/// filter. Two pins hold each other while they are connected.
class nsMediaPin : public IPin {
 public:
  using Self = nsMediaPin;
  using Base = IPin;
  static constexpr std::string_view kName = "nsMediaPin";
  static constexpr nsIID kIID = "5c0e9d1a-2c8f-4d55-8a0d-6f5be5f3a0b2"_iid;

  /// What it offers, best first, or takes; an input without any takes all.
  nsMediaPin(nsMediaFilter& aFilter, PIN_DIRECTION aDirection, std::u16string aName,
             std::vector<nsMediaType> aTypes);
  nsMediaPin(const nsMediaPin&) = delete;
  nsMediaPin& operator=(const nsMediaPin&) = delete;
  virtual ~nsMediaPin();

  nsresult Connect(IPin* aReceivePin, const AM_MEDIA_TYPE* aType) final;
  nsresult ReceiveConnection(IPin* aConnector, const AM_MEDIA_TYPE* aType) final;
  nsresult Disconnect() final;
  nsresult ConnectedTo(IPin** aPin) final;
  nsresult ConnectionMediaType(AM_MEDIA_TYPE* aType) final;
  nsresult QueryPinInfo(PIN_INFO* aInfo) final;
  nsresult QueryDirection(PIN_DIRECTION* aDirection) final;
  nsresult QueryId(char16_t** aId) final;
  nsresult QueryAccept(const AM_MEDIA_TYPE* aType) final;
  nsresult EnumMediaTypes(IEnumMediaTypes** aEnum) final;
  nsresult QueryInternalConnections(IPin**, uint32_t*) final { return E_NOTIMPL; }
  // Streams here are live, and have neither ends nor segments.
  nsresult EndOfStream() final { return S_OK; }
  nsresult BeginFlush() final { return S_OK; }
  nsresult EndFlush() final { return S_OK; }
  nsresult NewSegment(int64_t, int64_t, double) final { return S_OK; }

  /// Null when it is not connected.
  nsCOMPtr<IPin> Peer() const;
  bool IsOutput() const { return mDirection == PINDIR_OUTPUT; }
  const std::u16string& Name() const { return mName; }
  void SetTypes(std::vector<nsMediaType> aTypes) NS_REQUIRES(NS_MediaStructureLock()) {
    mTypes = std::move(aTypes);
  }

 protected:
  nsMediaFilter& Filter() const { return mFilter; }
  /// What an output offers now.
  virtual std::vector<nsMediaType> Offers() const NS_REQUIRES(NS_MediaStructureLock()) {
    return mTypes;
  }
  virtual bool Takes(const nsMediaType& aType) const NS_REQUIRES(NS_MediaStructureLock());
  /// Whether an input takes a connection from this pin, whose type it takes.
  virtual bool TakesFrom(IPin*) const { return true; }
  nsMediaType ConnectedType() const;

 private:
  nsresult CheckFree() const NS_REQUIRES(NS_MediaStructureLock());

  nsMediaFilter& mFilter;
  const PIN_DIRECTION mDirection;
  const std::u16string mName;
  std::vector<nsMediaType> mTypes NS_GUARDED_BY(NS_MediaStructureLock());
  nsCOMPtr<IPin> mPeer NS_GUARDED_BY(NS_MediaStructureLock());
  nsMediaType mConnectedType NS_GUARDED_BY(NS_MediaStructureLock()){};
};

/// A pin that answers more interfaces.
template <nsInterface... More>
class nsMediaPinWith : public nsMediaPin, public More... {
 public:
  using nsMediaPin::nsMediaPin;
  nsresult QueryInterface(const nsIID& aIID, void** aResult) final {
    if (!aResult) return E_POINTER;
    *aResult = NS_FindInterface<nsMediaPin, More...>(this, aIID);
    if (!*aResult) return E_NOINTERFACE;
    AddRef();
    return S_OK;
  }
  nsrefcnt AddRef() final;
  nsrefcnt Release() final;
};
using nsPlainMediaPin = nsMediaPinWith<>;

// ---- Filters

/// Filters are stopped or running; they don't pause. Any thread.
class nsMediaFilter : public IBaseFilter {
 public:
  using Self = nsMediaFilter;
  using Base = IBaseFilter;
  static constexpr std::string_view kName = "nsMediaFilter";
  static constexpr nsIID kIID = "b5a4b2d6-0d83-4d8b-8f5f-0c0f9d4a0d3e"_iid;

  nsresult GetClassID(nsCID* aClass) override;
  nsresult Stop() override;
  nsresult Pause() override { return E_NOTIMPL; }
  nsresult Run(int64_t aStart) override;
  nsresult GetState(uint32_t aTimeout, FILTER_STATE* aState) override;
  nsresult SetSyncSource(IReferenceClock*) override { return E_NOTIMPL; }
  nsresult GetSyncSource(IReferenceClock**) override { return E_NOTIMPL; }
  nsresult EnumPins(IEnumPins** aEnum) override;
  nsresult FindPin(const char16_t* aId, IPin** aPin) override;
  nsresult QueryFilterInfo(FILTER_INFO* aInfo) override;
  nsresult JoinFilterGraph(IFilterGraph* aGraph, const char16_t* aName) override;
  nsresult QueryVendorInfo(char16_t**) override { return E_NOTIMPL; }

  bool IsRunning() const { return mState == State_Running; }

 protected:
  nsMediaFilter();
  ~nsMediaFilter();

  void SetClass(const nsCID& aClass) { mClass = aClass; }
  template <class Pin, class... A>
  Pin& AddPin(A&&... aArgs) {
    auto pin = std::make_unique<Pin>(*this, std::forward<A>(aArgs)...);
    Pin& added = *pin;
    const nsAutoLock lock(NS_MediaStructureLock());
    mPins.push_back(std::move(pin));
    return added;
  }
  /// The pin stays in memory as long as the filter, since somebody may hold it.
  void RemovePin(nsMediaPin& aPin);
  nsMediaPin* PinOfName(std::u16string_view aName, PIN_DIRECTION aDirection) const;
  /// What it takes to run; undone by OnStop, which also follows a failure. Not both at a time.
  virtual nsresult OnRun() { return S_OK; }
  virtual void OnStop() {}

 private:
  nsCID mClass;
  nsMutex mStateLock;  ///< guards no field: Run and Stop come one after the other
  std::atomic<FILTER_STATE> mState = State_Stopped;
  std::vector<std::unique_ptr<nsMediaPin>> mPins NS_GUARDED_BY(NS_MediaStructureLock());
  std::vector<std::unique_ptr<nsMediaPin>> mRemovedPins NS_GUARDED_BY(NS_MediaStructureLock());
  /// Takes itself back before it goes.
  IFilterGraph* mGraph NS_GUARDED_BY(NS_MediaStructureLock()) = nullptr;
  std::u16string mName NS_GUARDED_BY(NS_MediaStructureLock());
};

template <nsInterface... More>
nsrefcnt nsMediaPinWith<More...>::AddRef() {
  return Filter().AddRef();
}
template <nsInterface... More>
nsrefcnt nsMediaPinWith<More...>::Release() {
  return Filter().Release();
}

// The media graph of one receiver: from the network provider through the tuner's devices into a
// demultiplexer, and from there to the tables of the stream and to the player.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "nsCOMPtr.h"
#include "nsDirectShowTypes.h"
#include "nsILog4.h"
#include "nsLock.h"
#include "nsPlatform.h"

class IBaseFilter;
class IEnumPins;
class IGraphBuilder;
class IMediaControl;
class IPin;
class IScanningTuner;
class ITuneRequest;
class ITuningSpace;
class nsSystemBDAReceiver;

/// Built once, then run and stopped by scan and selection; nothing is locked, and a selection
/// during a scan is the caller's fault. What is not said otherwise fails with NS_ERROR_FAILURE,
/// after a line in the log that says what failed.
class nsSystemBDAGraph {
 public:
  /// How a signal is waited for: so many looks, and milliseconds between them.
  struct Times {
    uint32_t mRounds = 10;
    uint32_t mRoundWait = 100;
  };

  explicit nsSystemBDAGraph(nsPlatformRef aPlatform);
  nsSystemBDAGraph(nsPlatformRef aPlatform, Times aTimes);
  nsSystemBDAGraph(const nsSystemBDAGraph&) = delete;
  nsSystemBDAGraph& operator=(const nsSystemBDAGraph&) = delete;
  /// After TearDownGraph, if there was a SetupGraph.
  ~nsSystemBDAGraph();

  // ---- The whole

  /// Makes, fills and connects the graph. What was built before a failure stays until
  /// TearDownGraph.
  nsresult SetupGraph(nsSystemBDAReceiver& aAdapter);
  nsresult CreateGraph();
  nsresult BuildGraph(nsSystemBDAReceiver& aAdapter);
  nsresult ConnectGraph(nsSystemBDAReceiver& aAdapter);
  /// Undoes SetupGraph, however far that came. Nothing happens the second time.
  void TearDownGraph(nsSystemBDAReceiver& aAdapter);

  /// False when it could not be run; mGraphRunning is set in any case.
  bool StartGraph();
  /// When it returns, nothing is written to the pipe any more. A write that waits for the reader is
  /// given up, with what is left of its sample. False when it could not be stopped; true for a
  /// graph that was never built.
  bool StopGraph();

  // ---- Tuning

  nsresult InitDVBTTuningSpace(ITuningSpace** aSpace);
  /// kHz and MHz.
  nsresult CreateDVBTTuneRequest(ITuningSpace* aSpace, ITuneRequest** aRequest, int32_t aFrequency,
                                 int32_t aBandwidth);
  /// Tunes and waits for the signal, one second by default; a stopped scan ends it.
  nsresult LockChannel(nsSystemBDAReceiver& aAdapter, int32_t aFrequency, int32_t aBandwidth);
  /// The packets that go to the player: PID 0 and these, each if it is not 0, in place of those
  /// before. A PID that can't be added is logged and left out.
  nsresult MapStreams(uint32_t aVideo, uint32_t aPmt, uint32_t aAudio);

  // ---- Pieces

  /// Makes a filter of a class and adds it.
  nsresult AddFilter(IGraphBuilder* aGraph, const nsCID& aClass, IBaseFilter** aFilter,
                     const char16_t* aName);
  /// The filter of this name among those of a category.
  nsresult AddFilterByName(IGraphBuilder* aGraph, IBaseFilter** aFilter, const nsID& aCategory,
                           const char16_t* aName);
  /// The filter of a device, under the path where the name is null.
  nsresult AddFilterByDevicePath(IGraphBuilder* aGraph, IBaseFilter** aFilter,
                                 const char16_t* aPath, const char16_t* aName);
  /// The first free pair of pins that take each other.
  nsresult ConnectFilters(IGraphBuilder* aGraph, IBaseFilter* aUpstream, IBaseFilter* aDownstream);
  /// These two, by whatever type they agree on. The result is the graph's.
  nsresult ConnectPins(IGraphBuilder* aGraph, IPin* aOut, IPin* aIn);
  /// Directions of the two below: those of PIN_DIRECTION, and both.
  static constexpr int32_t kAnyDirection = 2;
  nsresult FindPinByName(IBaseFilter* aFilter, const char16_t* aName, IPin** aPin,
                         int32_t aDirection);
  nsresult FindPinByMediaType(IBaseFilter* aFilter, const nsID& aMajor, const nsID& aSubtype,
                              IPin** aPin, int32_t aDirection);
  nsresult DisconnectAllPins(IGraphBuilder* aGraph);
  nsresult RemoveAllFilters(IGraphBuilder* aGraph);

  // ---- What the stream's end asks for, on its own thread

  /// Ends waits for room in the pipe, if what is waited for has come. May outlive the graph.
  struct Writer {
    void Wake() {
      { const nsAutoLock lock(mLock); }
      mChanged.NotifyAll();
    }
    nsMutex mLock;  ///< guards no field: no wake is missed between a look and the wait
    nsCondition mChanged;
  };
  const std::shared_ptr<Writer> mWriter = std::make_shared<Writer>();
  /// Waits until aReady says so, which is asked again after each Wake. False when the graph has
  /// been stopped.
  template <class Ready>
  bool WaitToWrite(Ready aReady) {
    nsAutoLock lock(mWriter->mLock);
    mWriter->mChanged.Wait(lock, [&] { return !mGraphRunning || aReady(); });
    return mGraphRunning;
  }
  void WakeWriter() { mWriter->Wake(); }

  nsCOMPtr<IBaseFilter> mSectionsFilter;
  std::atomic<bool> mGraphRunning = false;  ///< It has been told to run.
  const nsCOMPtr<nsILog4Logger> mLog;
  nsCOMPtr<IBaseFilter> mNetworkProvider;
  nsCOMPtr<IGraphBuilder> mGraphBuilder;
  nsCOMPtr<IMediaControl> mMediaControl;
  nsCOMPtr<IScanningTuner> mScanningTuner;
  nsCOMPtr<ITuningSpace> mTuningSpace;
  nsCOMPtr<IBaseFilter> mDemux, mTif, mGrabber, mNullRenderer;
  uint32_t mRotRegister = 0;  ///< 0: not registered

 private:
  nsresult AddToRot(nsISupports* aGraph, uint32_t* aRegistration);

  const nsPlatformRef mPlatform;
  const Times mTimes;
};

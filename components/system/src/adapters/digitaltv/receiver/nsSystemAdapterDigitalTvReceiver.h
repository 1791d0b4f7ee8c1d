// A tuner for digital television as an adapter.
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "IBDA_SignalStatistics.h"
#include "IBaseFilter.h"
#include "IGraphBuilder.h"
#include "IPin.h"
#include "nsChannelsFile.h"
#include "nsDirectShowDevice.h"
#include "nsIInputStream.h"
#include "nsIMutableArray.h"
#include "nsIObserver.h"
#include "nsISystemAdapterDigitalTvReceiver.h"
#include "nsImplements.h"
#include "nsLock.h"
#include "nsModuleClass.h"
#include "nsSystemAdapterGeneric.h"
#include "nsSystemBDAReceiver.h"
#include "nsSystemBDAScanner.h"

class nsIBDAScanResultDigitalTvService;
class nsSystemBDAGraph;

/// One receiver: its graph, its scanner and its lists. Discovery fills mTuner, mDemod and mCapture,
/// publishes it, and then calls Init. The main thread is the one of all that script calls; a scan
/// runs on a thread of the pool, and what both see is atomic or has a lock.
///
/// One selection or one scan at a time: nothing keeps a caller from selecting while a scan runs,
/// and each then tunes away from the other.
class nsSystemAdapterDigitalTvReceiver final
    : public nsSystemAdapterBase<nsImplements<nsSystemAdapterDigitalTvReceiver,
                                              nsISystemAdapterDigitalTvReceiver, nsIObserver>>,
      public nsSystemBDAReceiver {
 public:
  static constexpr nsModuleClass kModuleClass{
      .mRow = 16,
      .mCID = "08285539-15e2-49b8-b2e2-e425ce4f6f4f"_iid,
      .mContractID = "@vorel/system/adapter///digitaltvreceiver;1"};
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfo<"", nsISystemAdapter, nsISystemAdapterDigitalTvReceiver>(kModuleClass.mCID);

  /// Milliseconds; a signal is waited for in ten rounds.
  struct Times {
    uint32_t mLockRound = 100;
    nsSystemBDAScanner::Times mScanner{};
  };

  explicit nsSystemAdapterDigitalTvReceiver(nsPlatformRef aPlatform);
  nsSystemAdapterDigitalTvReceiver(nsPlatformRef aPlatform, Times aTimes);

  /// Builds the graph and fills the lists. NS_ERROR_FAILURE, or the failure of the graph, for a
  /// receiver that can't be set up, whose lists then answer NS_ERROR_FAILURE; a channels file that
  /// can't be read is none.
  nsresult Init();

  // nsISystemAdapterDigitalTvReceiver
  nsresult GetDeliverySystem(uint32_t* aDeliverySystem) override;
  nsresult GetSupportedCountries(nsIArray** aSupportedCountries) override;
  nsresult GetServicesFoundByScan(nsIArray** aServicesFoundByScan) override;
  nsresult GetServices(nsIArray** aServices) override;
  nsresult SetServices(nsIArray* aServices) override;
  nsresult GetLocked(bool* aLocked) override;
  nsresult GetLevel(int32_t* aLevel) override;
  nsresult Reserved(void* aArgument) override;
  nsresult GetQuality(uint32_t* aQuality) override;
  nsresult GetStream(nsIInputStream** aStream) override;
  nsresult StartScan(nsIIsoCountry* aCountry) override;
  nsresult StopScan() override;
  nsresult GetScanProgress(int32_t* aState, uint32_t* aTotal, uint32_t* aDone, uint32_t* aLocked,
                           uint32_t* aFound) override;
  nsresult SelectChannelByName(const nsACString& aName, const nsACString& aLanguage,
                               uint32_t aReserved) override;

  // nsIObserver
  nsresult Observe(nsISupports* aSubject, const char* aTopic, const char16_t* aData) override;

  // nsSystemBDAReceiver
  nsresult AddFilters(IGraphBuilder* aGraph) override;
  nsresult Connect(IBaseFilter* aProvider) override;
  nsresult GetTransportStreamPin(IPin** aPin) override;
  void RemoveFilters() override;
  bool IsScanStopped() override;
  nsCOMPtr<nsIOutputStream> PipeOutput() override;
  nsCOMPtr<nsIInputStream> PipeInput() override;
  void ClosePipe(nsIOutputStream* aOutput) override;

  // The devices, in the order in which the signal passes them.
  DirectShowSystemDevice mTuner, mDemod, mCapture;

 private:
  ~nsSystemAdapterDigitalTvReceiver() override;

  /// What a selection takes from a stored service; all zero for none.
  struct Selection {
    uint32_t mFrequency = 0;  ///< kHz
    uint32_t mBandwidth = 0;  ///< MHz
    uint32_t mVideoPid = 0;
    uint32_t mPmtPid = 0;
    uint32_t mAudioPid = 0;
  };

  // Setting up
  nsresult LookAtTopology();
  nsresult ListCountries();
  nsresult AppendCountries(uint32_t aCallingCode);
  nsresult NewArray(nsCOMPtr<nsIMutableArray>* aArray);
  nsresult initChannelsFilePath();
  /// A new array of a list's elements. NS_ERROR_FAILURE when there is no list.
  nsresult CopyOf(const nsCOMPtr<nsIMutableArray>& aList, const char* aName, nsIArray** aCopy);

  // Scanning: RunScan and what it calls run on a thread of the pool.
  nsresult RunScan();
  nsresult scanChannel(uint32_t aFrequency, uint32_t aBandwidth);
  nsresult updateServices(uint32_t aFrequency);
  nsresult selectDuplicateService(std::string_view aName, uint32_t aFrequency, bool* aKeepOld);
  /// NS_ERROR_FAILURE, and a comparison that ends there, for an element that is no service.
  nsresult HaveNameTwice(nsIArray* aServices, bool* aTwice);

  // Selecting
  nsresult FindService(std::string_view aName, std::string_view aLanguage, Selection* aSelection);
  nsresult ReplacePipe();
  /// Tunes, and waits for a signal. Without *aGoesOn the selection ends there.
  nsresult Tune(const Selection& aSelection, bool* aGoesOn);

  const nsPlatformRef mPlatform;
  const Times mTimes;
  const nsCOMPtr<nsILog4Logger> mLog;
  nsChannelsFile mChannelsFile;
  /// 0 satellite, 1 cable, 2 terrestrial, 3 ATSC. None of these until a tuner has told, so that the
  /// channels of one that does not go under "dvb-unknown".
  uint16_t mDeliverySystem = 4;
  const std::unique_ptr<nsSystemBDAGraph> mGraph;

  nsCOMPtr<nsIMutableArray> mSupportedCountries;  ///< of nsIIsoCountry
  /// The stored ones, of nsIBDAScanResultDigitalTvService.
  nsCOMPtr<nsIMutableArray> mTvServices;

  nsCOMPtr<IBaseFilter> mTunerFilter, mDemodFilter, mCaptureFilter;
  nsCOMPtr<IGraphBuilder> mFilterGraph;               ///< that they are in
  nsCOMPtr<IPin> mTransportStreamPin;                 ///< the last output of the chain
  nsCOMPtr<IBDA_SignalStatistics> mSignalStatistics;  ///< as it is after Init

  nsSystemBDAScanner mScanner;
  /// Guards the next two, of the latter the array and not the pointer, which is set once. An array
  /// of the host's is for one thread at a time.
  nsMutex mListLock;
  std::vector<uint32_t> mFrequencies NS_GUARDED_BY(mListLock);  ///< kHz, in the platform's order
  nsCOMPtr<nsIMutableArray> mTvServicesFoundByScan NS_POINTEE_GUARDED_BY(mListLock);
  std::atomic<bool> mScanStarted = false;  ///< from the moment that it is queued
  /// 1 idle, 0 running, -1 failed to start, -2 stopped.
  std::atomic<int32_t> mScanState = 1;
  std::atomic<uint32_t> mFrequenciesDone = 0;
  std::atomic<uint32_t> mFrequenciesLocked = 0;
  std::atomic<bool> mStopScan = false;

  nsMutex mPipeLock;  ///< guards the next two, not what they do
  nsCOMPtr<nsIOutputStream> mPipeOutput NS_GUARDED_BY(mPipeLock);
  nsCOMPtr<nsIInputStream> mPipeInput NS_GUARDED_BY(mPipeLock);
};

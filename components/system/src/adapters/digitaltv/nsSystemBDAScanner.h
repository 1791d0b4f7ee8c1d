// Reads what a transport stream says of its services, one frequency at a time.
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "IMpeg2Data.h"
#include "nsBDARecords.h"
#include "nsCOMPtr.h"
#include "nsILog4.h"
#include "nsLock.h"
#include "nsNamedEvent.h"
#include "nsNamedThread.h"

class IBaseFilter;

/// For each frequency: ResetScanner, SetMpeg2Data, StartScanning, WaitScanningDone, the results,
/// ReleaseMpeg2Data. All from one thread but ReleaseMpeg2Data, which any thread may call. Results
/// live until the next ResetScanner.
///
/// The event that tells the end is one for all scanners of the process: the end of a scan on one
/// receiver ends the wait for another.
class nsSystemBDAScanner {
 public:
  /// Milliseconds.
  struct Times {
    uint32_t mDoneWait = 15000;  ///< one wait for the end of a scan
    uint32_t mBusyWait = 10000;  ///< for the thread of the scan before
    uint32_t mBusyStep = 500;
  };

  struct TransponderData {
    int32_t frequency = 0;  ///< kHz
    int32_t bandwidth = 0;  ///< MHz
    int32_t code_rate_hp = 0, code_rate_lp = 0, constellation = 0, transmission_mode = 0;
    bool priority = false;
    int32_t hierarchy = 0;  ///< always
    int32_t guard_interval = 0;
  };

  nsSystemBDAScanner();
  explicit nsSystemBDAScanner(Times aTimes);
  nsSystemBDAScanner(const nsSystemBDAScanner&) = delete;
  nsSystemBDAScanner& operator=(const nsSystemBDAScanner&) = delete;
  /// Waits for the call that a running scan is in.
  ~nsSystemBDAScanner();

  /// Drops what was found. Waits for a scan that is still running, ten seconds at most; one that
  /// runs on after that keeps its records to itself.
  void ResetScanner();
  /// The filter's IMpeg2Data in place of the one before; none for null, and for a filter that has
  /// none.
  void SetMpeg2Data(IBaseFilter* aSections);
  /// The same for who has it at hand.
  void SetData(nsCOMPtr<IMpeg2Data> aData);
  /// Ends a running scan when its call in flight returns.
  void ReleaseMpeg2Data();
  /// Begins the scan, on a thread of its own. Nothing happens when that was done since the last
  /// ResetScanner.
  void StartScanning();
  /// WAIT_OBJECT_0 when the scan has ended, WAIT_TIMEOUT when none runs and the event was not set
  /// for 15 seconds. As long as a scan runs it waits.
  uint32_t WaitScanningDone();

  /// The services of the transport stream whose PAT came. NS_ERROR_FAILURE, and none, when none
  /// came or a scan is running.
  std::vector<BDAService*> getCurrentServices(nsresult* aRv);
  /// NS_ERROR_FAILURE when no PAT came.
  nsresult GetTransponderData(TransponderData* aData);
  /// Gives the record of the transport stream away, with its services; null when no PAT came. What
  /// GetTransponderData and getCurrentServices give afterwards is nothing.
  std::unique_ptr<BDATransponder> TakeCurrentTransponder();

 private:
  struct Run;
  std::shared_ptr<Run> Current() const;
  static void ScanThread(const std::shared_ptr<Run>& aRun, nsNamedEvent& aDone);

  const Times mTimes;
  const nsCOMPtr<nsILog4Logger> mLog;
  nsNamedEvent mDoneEvent{"ScanningDone"};
  const bool mLongTimeouts = false;  ///< times five; nothing sets it
  mutable nsMutex mLock;
  std::shared_ptr<Run> mRun NS_GUARDED_BY(mLock);  ///< what one frequency has
  std::vector<nsNamedThread> mThreads;
};

#include "nsSystemBDAScanner.h"

#include <chrono>
#include <thread>
#include <utility>

#include "IBaseFilter.h"
#include "ISectionList.h"
#include "nsBDATables.h"
#include "nsDirectShowTypes.h"
#include "nsIMediaCancel.h"
#include "nsLogger.h"

namespace {

struct Table {
  int32_t mPid;
  int32_t mTableId;
  int32_t mTimeout;  // seconds
};
constexpr Table kPat = {0x0000, 0x00, 5};
constexpr Table kNit = {0x0010, 0x40, 15};
constexpr Table kSdt = {0x0011, 0x42, 5};
constexpr int32_t kPmtTimeout = 5;

}  // namespace

/// The state of one frequency. The thread holds it too: one that hangs in a call when the next
/// frequency begins works on records that nobody reads any more.
struct nsSystemBDAScanner::Run {
  Run(nsCOMPtr<nsILog4Logger> aLog, bool aLongTimeouts)
      : mLog(aLog), mTables(std::move(aLog)), mFactor(aLongTimeouts ? 5 : 1) {
    mTables.mPmtTimeout = kPmtTimeout * mFactor;
  }

  nsCOMPtr<IMpeg2Data> Data() {
    nsAutoLock lock(mLock);
    return mBDAData;
  }
  nsCOMPtr<IMpeg2Data> SetData(nsCOMPtr<IMpeg2Data> aData) {
    nsAutoLock lock(mLock);
    mBDAData.swap(aData);
    return aData;  // released by the caller, outside the lock
  }
  void Add(const Table& aTable) {
    mTables.AddFilter(aTable.mPid, aTable.mTableId, aTable.mTimeout * mFactor);
  }
  void ProcessWaitingFilters();
  void ReadSection(BDASectionFilter& aFilter);

  const nsCOMPtr<nsILog4Logger> mLog;
  std::atomic<bool> mThreadStarted = false;
  std::atomic<bool> mThreadBusy = false;
  std::atomic<bool> mIsAbandoned = false;
  nsBDATables mTables;  ///< the thread's while it is busy

 private:
  const int32_t mFactor;
  nsMutex mLock;
  nsCOMPtr<IMpeg2Data> mBDAData NS_GUARDED_BY(mLock);
};

nsSystemBDAScanner::nsSystemBDAScanner() : nsSystemBDAScanner(Times()) {}

nsSystemBDAScanner::nsSystemBDAScanner(Times aTimes)
    : mTimes(aTimes),
      mLog(NS_GetLogger("system.adapter.digitaltvreceiver")),
      mRun(std::make_shared<Run>(mLog, mLongTimeouts)) {}

nsSystemBDAScanner::~nsSystemBDAScanner() {
  ReleaseMpeg2Data();
  mThreads.clear();  // joins them
}

// ---- The life of a scan

std::shared_ptr<nsSystemBDAScanner::Run> nsSystemBDAScanner::Current() const {
  const nsAutoLock lock(mLock);
  return mRun;
}

void nsSystemBDAScanner::ResetScanner() {
  using std::chrono::milliseconds;
  const auto former = Current();
  for (uint32_t waited = 0; former->mThreadBusy && waited < mTimes.mBusyWait;
       waited += mTimes.mBusyStep)
    std::this_thread::sleep_for(milliseconds(mTimes.mBusyStep));
  const auto run = std::make_shared<Run>(mLog, mLongTimeouts);
  if (former->mThreadBusy)
    former->mIsAbandoned = true;
  else
    mThreads.clear();
  (void)run->SetData(former->SetData(nullptr));
  {
    nsAutoLock lock(mLock);
    mRun = run;
  }
  mDoneEvent.Reset();
}

void nsSystemBDAScanner::SetMpeg2Data(IBaseFilter* aSections) {
  SetData(do_QueryInterface<IMpeg2Data>(aSections));
}

void nsSystemBDAScanner::SetData(nsCOMPtr<IMpeg2Data> aData) {
  (void)Current()->SetData(std::move(aData));
}

void nsSystemBDAScanner::ReleaseMpeg2Data() {
  // The call in flight ends with it, where the object can do that.
  const nsCOMPtr<IMpeg2Data> data = Current()->SetData(nullptr);
  if (const auto waiting = do_QueryInterface<nsIMediaCancel>(data)) (void)waiting->Cancel();
}

void nsSystemBDAScanner::StartScanning() {
  const auto run = Current();
  if (run->mThreadStarted.exchange(true)) return;
  // Set before the thread is there, so that nobody takes the time until then for its end.
  run->mThreadBusy = true;
  nsNamedThread thread;
  if (NS_FAILED(thread.Start("TvScan", [run, this] { ScanThread(run, mDoneEvent); }))) {
    SYSTEM_LOG_ERROR(mLog, "Failed to start the scanning thread.");
    run->mThreadBusy = false;
    return;
  }
  mThreads.push_back(std::move(thread));
}

void nsSystemBDAScanner::ScanThread(const std::shared_ptr<Run>& aRun, nsNamedEvent& aDone) {
  aRun->mThreadBusy = true;
  if (aRun->Data()) {
    aRun->Add(kPat);
    aRun->Add(kNit);
    aRun->Add(kSdt);
    aRun->ProcessWaitingFilters();
  }
  aRun->mThreadBusy = false;
  // Whoever waits now waits for another scan.
  if (!aRun->mIsAbandoned) aDone.Set();
}

uint32_t nsSystemBDAScanner::WaitScanningDone() {
  uint32_t result;
  do result = mDoneEvent.Wait(mTimes.mDoneWait);
  while (result == WAIT_TIMEOUT && Current()->mThreadBusy);
  return result;
}

// ---- Reading

void nsSystemBDAScanner::Run::ProcessWaitingFilters() {
  auto& waiting = mTables.mWaitingFilters;
  while (!waiting.empty()) {
    ReadSection(*waiting.front());
    waiting.pop_front();
  }
}

void nsSystemBDAScanner::Run::ReadSection(BDASectionFilter& aFilter) {
  const nsCOMPtr<IMpeg2Data> data = Data();
  if (!data) return;
  nsCOMPtr<ISectionList> list;
  nsresult rv =
      data->GetTable(static_cast<uint16_t>(aFilter.pid), static_cast<uint8_t>(aFilter.table_id),
                     nullptr, static_cast<uint32_t>(aFilter.timeout) * 1000, list.getter_AddRefs());
  if (NS_FAILED(rv) || !list) {
    SYSTEM_LOG_DEBUG(mLog, "Timeout getting table.");
    return;
  }
  uint16_t count = 0;
  rv = list->GetNumberOfSections(&count);
  if (NS_FAILED(rv)) {
    SYSTEM_LOG_DEBUG(mLog, "Error getting number of sections.");
    return;
  }
  for (uint16_t i = 0; i < count; ++i) {
    uint32_t length = 0;
    SECTION* section = nullptr;
    if (NS_FAILED(list->GetSectionData(i, &length, &section)) || !section) continue;
    aFilter.section = {reinterpret_cast<const uint8_t*>(section), length};
    (void)mTables.parse_section(aFilter);
    aFilter.section = {};
  }
}

// ---- Results

std::vector<BDAService*> nsSystemBDAScanner::getCurrentServices(nsresult* aRv) {
  std::vector<BDAService*> services;
  const auto run = Current();
  const BDATransponder* const current =
      run->mThreadBusy ? nullptr : run->mTables.mCurrentTransponder;
  if (!current) {
    SYSTEM_LOG_DEBUG(mLog, "Transponder not ready");
    *aRv = NS_ERROR_FAILURE;
    return services;
  }
  SYSTEM_LOG_DEBUG(mLog, "returning " + std::to_string(current->services.size()) + " new services");
  for (const auto& service : current->services) services.push_back(service.get());
  *aRv = NS_OK;
  return services;
}

nsresult nsSystemBDAScanner::GetTransponderData(TransponderData* aData) {
  // The thread writes the records while it is busy.
  const auto run = Current();
  const BDATransponder* const current =
      run->mThreadBusy ? nullptr : run->mTables.mCurrentTransponder;
  if (!current) return NS_ERROR_FAILURE;
  *aData = {current->frequency,     current->bandwidth,
            current->code_rate_hp,  current->code_rate_lp,
            current->constellation, current->transmission_mode,
            current->priority,      0,
            current->guard_interval};
  return NS_OK;
}

std::unique_ptr<BDATransponder> nsSystemBDAScanner::TakeCurrentTransponder() {
  const auto run = Current();
  if (run->mThreadBusy) return nullptr;
  nsBDATables& tables = run->mTables;
  for (auto& transponder : tables.mTransponders)
    if (transponder.get() == tables.mCurrentTransponder) {
      tables.mCurrentTransponder = nullptr;
      return std::exchange(transponder, std::make_unique<BDATransponder>());
    }
  return nullptr;
}

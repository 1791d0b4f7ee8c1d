#include "nsSystemAdapterSerial.h"

#include <algorithm>
#include <cstdio>
#include <new>

#include "nsDebug.h"
#include "nsIObserver.h"
#include "nsIObserverService.h"
#include "nsIThreadManager.h"
#include "nsServices.h"
#include "nsString.h"
#include "nsVorelMethodCaller.h"
#include "prinrval.h"
#include "prthread.h"

using vorel::threads::eStrong;
using Port = nsPlatformCommPort;

namespace {

// What mode 2 listens for, and what is added for listeners: lines, breaks and damaged bytes.
constexpr uint32_t kStreamEvents = Port::kEvRxChar | Port::kEvTxEmpty | Port::kEvDsr;
constexpr uint32_t kListenerEvents =
    Port::kEvCts | Port::kEvDsr | Port::kEvRlsd | Port::kEvBreak | Port::kEvErr | Port::kEvRing;
constexpr uint32_t kPurgeAll =
    Port::kPurgeTxAbort | Port::kPurgeRxAbort | Port::kPurgeTxClear | Port::kPurgeRxClear;

// Bits of ModemStatus.
constexpr uint32_t kCTS = 1, kDSR = 2, kDCD = 4, kRING = 8;

// "WaitCommEvent error -2147221231" and its kin.
std::string ErrorText(const char* aFormat, nsresult aResult) {
  char text[80];
  std::snprintf(text, sizeof text, aFormat, static_cast<long>(static_cast<int32_t>(aResult)));
  return text;
}

// A worker keeps its adapter alive, and threads are waited for at the end of the program: a port
// that nobody has closed is closed then.
class EndObserver final : public nsImplements<EndObserver, nsIObserver> {
 public:
  static constexpr char kTopic[] = "xpcom-shutdown-threads";
  explicit EndObserver(nsISystemAdapterSerial* aAdapter) : mAdapter(aAdapter) {}
  nsresult Observe(nsISupports*, const char*, const char16_t*) override {
    return mAdapter->Close();
  }

 private:
  ~EndObserver() override = default;
  const nsCOMPtr<nsISystemAdapterSerial> mAdapter;
};

}  // namespace

nsSystemAdapterSerial::nsSystemAdapterSerial(nsPlatformRef aPlatform, const nsAString& aSysPath,
                                             const nsAString& aLabel, uint32_t aCapabilities)
    : mPlatform(std::move(aPlatform)),
      mLogger(NS_GetLogger("system.adapter.serial")),
      mInputStream(this),
      mOutputStream(this),
      mCapabilities(aCapabilities) {
  mSysPath = aSysPath;
  mLabel = aLabel;
}

nsSystemAdapterSerial::~nsSystemAdapterSerial() { (void)Close(); }

// ---- Settings

nsresult nsSystemAdapterSerial::GetCapabilities(uint32_t* aCapabilities) {
  *aCapabilities = mCapabilities;
  return NS_OK;
}

nsresult nsSystemAdapterSerial::SetParameters(uint32_t aAccess, uint32_t aBaudRate,
                                              uint32_t aCharSize, uint32_t aParity,
                                              uint32_t aStopBits, uint32_t aFlowControl) {
  mAccess = aAccess;
  mBaudRate = aBaudRate;
  mCharSize = aCharSize;
  mParity = aParity;
  mStopBits = aStopBits;
  mFlowControl = aFlowControl;
  return NS_OK;
}

nsresult nsSystemAdapterSerial::GetParameters(uint32_t* aAccess, uint32_t* aBaudRate,
                                              uint32_t* aCharSize, uint32_t* aParity,
                                              uint32_t* aStopBits, uint32_t* aFlowControl) {
  const nsAutoLock lock(mMonitor);
  *aAccess = mAccess;
  *aBaudRate = mBaudRate;
  *aCharSize = mCharSize;
  *aParity = mParity;
  *aStopBits = mStopBits;
  *aFlowControl = mFlowControl;
  return NS_OK;
}

nsresult nsSystemAdapterSerial::GetIsBlocking(bool* aIsBlocking) {
  *aIsBlocking = mBlocking;
  return NS_OK;
}

nsresult nsSystemAdapterSerial::SetIsBlocking(bool aIsBlocking) {
  const nsAutoLock lock(mMonitor);
  mBlocking = aIsBlocking;
  return NS_OK;
}

nsresult nsSystemAdapterSerial::GetReservedValue(uint32_t* aReservedValue) {
  const nsAutoLock lock(mMonitor);
  *aReservedValue = mReservedValue;
  return NS_OK;
}

nsresult nsSystemAdapterSerial::SetReservedValue(uint32_t aReservedValue) {
  const nsAutoLock lock(mMonitor);
  mReservedValue = aReservedValue;
  return NS_OK;
}

nsresult nsSystemAdapterSerial::GetTimeout(uint32_t* aTimeout) {
  const nsAutoLock lock(mMonitor);
  *aTimeout = mTimeout;
  return NS_OK;
}

nsresult nsSystemAdapterSerial::SetTimeout(uint32_t aTimeout) {
  const nsAutoLock lock(mMonitor);
  mTimeout = aTimeout;
  return NS_OK;
}

nsresult nsSystemAdapterSerial::GetMode(uint32_t* aMode) {
  const nsAutoLock lock(mMonitor);
  *aMode = mMode;
  return NS_OK;
}

nsresult nsSystemAdapterSerial::SetMode(uint32_t aMode) {
  const nsAutoLock lock(mMonitor);
  if (aMode != 1 && aMode != 2) return NS_ERROR_FAILURE;
  mMode = aMode;
  return NS_OK;
}

// ---- Lines

nsresult nsSystemAdapterSerial::EscapeLine(uint32_t aFunction) {
  return mHandle && NS_SUCCEEDED(mHandle->EscapeCommFunction(aFunction)) ? NS_OK : NS_ERROR_FAILURE;
}

nsresult nsSystemAdapterSerial::SendBreak(uint32_t aMicroseconds) {
  const nsAutoLock lock(mMonitor);
  NS_ENSURE_TRUE(mIsOpen, NS_ERROR_NOT_INITIALIZED);
  char text[48];
  std::snprintf(text, sizeof text, "Send BREAK for %d us", static_cast<int>(aMicroseconds));
  SYSTEM_LOG_DEBUG(mLogger, text);
  const nsresult rv = EscapeLine(Port::kSetBreak);
  if (NS_FAILED(rv)) return rv;
  // The monitor stays held: nothing may be written into a break.
  PR_Sleep(PR_MicrosecondsToInterval(aMicroseconds));
  return EscapeLine(Port::kClrBreak);
}

nsresult nsSystemAdapterSerial::GetBREAK(bool* aBREAK) {
  const nsAutoLock lock(mMonitor);
  NS_ENSURE_TRUE(mIsOpen, NS_ERROR_NOT_INITIALIZED);
  // The value and the failure: kept as it stands, callers read the one in spite of the other.
  *aBREAK = mBreak;
  return NS_ERROR_NOT_IMPLEMENTED;
}

nsresult nsSystemAdapterSerial::SetBREAK(bool aBREAK) {
  const nsAutoLock lock(mMonitor);
  NS_ENSURE_TRUE(mIsOpen, NS_ERROR_NOT_INITIALIZED);
  const nsresult rv = EscapeLine(aBREAK ? Port::kSetBreak : Port::kClrBreak);
  mBreak = aBREAK;
  return rv;
}

uint32_t nsSystemAdapterSerial::ModemStatus() {
  const nsAutoLock lock(mMonitor);
  uint32_t status = 0;
  if (!mIsOpen || !mHandle || NS_FAILED(mHandle->GetCommModemStatus(&status))) return 0;
  return (status & Port::kCtsOn ? kCTS : 0) | (status & Port::kDsrOn ? kDSR : 0) |
         (status & Port::kRlsdOn ? kDCD : 0) | (status & Port::kRingOn ? kRING : 0);
}

nsresult nsSystemAdapterSerial::GetLine(uint32_t aLine, bool* aState) {
  const nsAutoLock lock(mMonitor);
  NS_ENSURE_TRUE(mIsOpen, NS_ERROR_NOT_INITIALIZED);
  *aState = (ModemStatus() & aLine) != 0;
  return NS_OK;
}

nsresult nsSystemAdapterSerial::GetDCD(bool* aDCD) { return GetLine(kDCD, aDCD); }
nsresult nsSystemAdapterSerial::GetCTS(bool* aCTS) { return GetLine(kCTS, aCTS); }
nsresult nsSystemAdapterSerial::GetDSR(bool* aDSR) { return GetLine(kDSR, aDSR); }
nsresult nsSystemAdapterSerial::GetRING(bool* aRING) { return GetLine(kRING, aRING); }

// The two outputs are remembered by Open alone. Kept as it stands: applications take them for the
// state in which the port was opened.
nsresult nsSystemAdapterSerial::GetDTR(bool* aDTR) {
  const nsAutoLock lock(mMonitor);
  NS_ENSURE_TRUE(mIsOpen, NS_ERROR_NOT_INITIALIZED);
  *aDTR = mDTR;
  return NS_OK;
}

nsresult nsSystemAdapterSerial::SetDTR(bool aDTR) {
  const nsAutoLock lock(mMonitor);
  NS_ENSURE_TRUE(mIsOpen, NS_ERROR_NOT_INITIALIZED);
  return EscapeLine(aDTR ? Port::kSetDtr : Port::kClrDtr);
}

nsresult nsSystemAdapterSerial::GetRTS(bool* aRTS) {
  const nsAutoLock lock(mMonitor);
  NS_ENSURE_TRUE(mIsOpen, NS_ERROR_NOT_INITIALIZED);
  *aRTS = mRTS;
  return NS_OK;
}

nsresult nsSystemAdapterSerial::SetRTS(bool aRTS) {
  const nsAutoLock lock(mMonitor);
  NS_ENSURE_TRUE(mIsOpen, NS_ERROR_NOT_INITIALIZED);
  return EscapeLine(aRTS ? Port::kSetRts : Port::kClrRts);
}

nsresult nsSystemAdapterSerial::GetIsTQEmpty(bool* aIsTQEmpty) {
  const nsAutoLock lock(mMonitor);
  NS_ENSURE_TRUE(mIsOpen, NS_ERROR_NOT_INITIALIZED);
  uint32_t errors = 0;
  nsCommStat stat;
  const nsresult rv = mHandle ? mHandle->ClearCommError(&errors, &stat) : NS_ERROR_NOT_AVAILABLE;
  *aIsTQEmpty = NS_FAILED(rv) || stat.mOutQueue == 0;
  if (NS_FAILED(rv)) return NS_ERROR_FAILURE;
  SYSTEM_LOG_DEBUG(mLogger, std::string("Is empty = ") + (*aIsTQEmpty ? "1 " : "0 "));
  return NS_OK;
}

nsresult nsSystemAdapterSerial::DrainTQ() {
  const nsAutoLock lock(mMonitor);
  NS_ENSURE_TRUE(mIsOpen, NS_ERROR_NOT_INITIALIZED);
  return NS_OK;
}

// ---- Streams

nsresult nsSystemAdapterSerial::GetInputStream(nsIAsyncInputStream** aInputStream) {
  const nsAutoLock lock(mMonitor);
  NS_ENSURE_TRUE(mIsOpen, NS_ERROR_NOT_INITIALIZED);
  nsCOMPtr<nsIAsyncInputStream>(&mInputStream).forget(aInputStream);
  return NS_OK;
}

nsresult nsSystemAdapterSerial::GetOutputStream(nsIAsyncOutputStream** aOutputStream) {
  const nsAutoLock lock(mMonitor);
  NS_ENSURE_TRUE(mIsOpen, NS_ERROR_NOT_INITIALIZED);
  nsCOMPtr<nsIAsyncOutputStream>(&mOutputStream).forget(aOutputStream);
  return NS_OK;
}

nsPlatformCommPortRef nsSystemAdapterSerial::TakeHandle_Locked() {
  if (mHandle) ++mHandleRefCount;
  return mHandle;
}

void nsSystemAdapterSerial::ReleaseHandle_Locked(const nsPlatformCommPortRef& aHandle) {
  // Close has taken away the handle that one counts for who comes back late; the count of one that
  // was opened since is not its business.
  if (mHandle != aHandle || --mHandleRefCount > 0) return;
  SYSTEM_LOG_DEBUG(mLogger, "close Handle");
  (void)mHandle->CloseHandle();
  mHandle = nullptr;
}

// ---- Open and close

void nsSystemAdapterSerial::setBaudrate(nsCommDCB& aDCB) {
  static constexpr struct {
    uint32_t mRequested, mSet;
    const char* mName;  // of a speed that Windows does not have
  } kRates[] = {
      {50, 110, "50"},           {75, 110, "75"},           {110, 110, nullptr},
      {134, 110, "134.5"},       {150, 110, "150"},         {200, 110, "200"},
      {300, 300, nullptr},       {600, 600, nullptr},       {1200, 1200, nullptr},
      {1800, 1200, "1800"},      {2400, 2400, nullptr},     {4800, 4800, nullptr},
      {9600, 9600, nullptr},     {14400, 14400, nullptr},   {19200, 19200, nullptr},
      {38400, 38400, nullptr},   {56000, 56000, nullptr},   {57600, 57600, nullptr},
      {76800, 57600, "76800"},   {115200, 115200, nullptr}, {128000, 128000, nullptr},
      {256000, 256000, nullptr},
  };
  // A speed that is not in the table leaves the line as it is, without a word: kept as it stands.
  for (const auto& rate : kRates) {
    if (rate.mRequested != mBaudRate) continue;
    if (rate.mName)
      SYSTEM_LOG_WARNING(mLogger, std::string(" Windows does not support ") + rate.mName +
                                      " baud operation.  Switching to " +
                                      std::to_string(rate.mSet) + " baud.");
    aDCB.mBaudRate = rate.mSet;
  }
}

void nsSystemAdapterSerial::setStopBits(nsCommDCB& aDCB) {
  const bool five = mCharSize == 5;
  switch (mStopBits) {
    case 0:
      aDCB.mStopBits = nsCommDCB::kOneStopBit;
      break;
    case 1:
      if (five)
        aDCB.mStopBits = nsCommDCB::kOne5StopBits;
      else
        SYSTEM_LOG_WARNING(mLogger, " 1.5 stop bits can only be used with 5 data bits");
      break;
    case 2:
      if (!five)
        aDCB.mStopBits = nsCommDCB::kTwoStopBits;
      else
        SYSTEM_LOG_WARNING(mLogger, " 2 stop bits cannot be used with 5 data bits");
      break;
    default:
      break;
  }
}

void nsSystemAdapterSerial::setCharSize(nsCommDCB& aDCB) {
  const uint32_t size = mCharSize;
  switch (size) {
    case 5:
      if (mStopBits != 2)
        aDCB.mByteSize = 5;
      else
        SYSTEM_LOG_WARNING(mLogger, " 5 Data bits cannot be used with 2 stop bits.");
      break;
    case 6:
    case 7:
    case 8:
      if (mStopBits != 1)
        aDCB.mByteSize = static_cast<uint8_t>(size);
      else
        SYSTEM_LOG_WARNING(
            mLogger, " " + std::to_string(size) + " Data bits cannot be used with 1.5 stop bits.");
      break;
    default:
      SYSTEM_LOG_WARNING(mLogger, "Bad data bits");
      aDCB.mByteSize = 8;
      break;
  }
}

void nsSystemAdapterSerial::setParity(nsCommDCB& aDCB) const {
  // The kind of parity is deliberately not written: odd, even, mark and space all keep what the
  // line was set to before. Only the check is turned on and off. Kept as it stands: players in the
  // field have their lines set up outside of the application.
  switch (mParity) {
    case 256:
      aDCB.mFlags &= ~nsCommDCB::kParity;
      break;
    case 512:
    case 1024:
    case 2048:
    case 4096:
      aDCB.mFlags |= nsCommDCB::kParity;
      break;
    default:
      break;
  }
}

void nsSystemAdapterSerial::setFlowControl(nsCommDCB& aDCB) const {
  constexpr uint32_t kHardware = nsCommDCB::kOutxCtsFlow | nsCommDCB::kRtsControl;
  constexpr uint32_t kSoftware = nsCommDCB::kOutX | nsCommDCB::kInX;
  switch (mFlowControl) {
    case 0:
      aDCB.mFlags &= ~(kHardware | kSoftware);
      break;
    case 1:
      aDCB.mFlags &= ~(kHardware | kSoftware);
      aDCB.mFlags |= nsCommDCB::kOutxCtsFlow | nsCommDCB::kRtsHandshake;
      break;
    case 2:
      aDCB.mFlags &= ~(kHardware | kSoftware);
      aDCB.mFlags |= kSoftware;
      break;
    default:
      break;
  }
}

nsresult nsSystemAdapterSerial::Open() {
  bool listening = false;
  {
    const nsAutoLock lock(mMonitor);
    NS_ENSURE_TRUE(!mIsOpen, NS_ERROR_FAILURE);
    SYSTEM_LOG_DEBUG(mLogger, "Begin");

    const std::string fileName = "\\\\.\\" + NS_ToUtf8(mSysPath);
    const uint32_t access = (mAccess & 1 ? nsPlatformComm::kGenericRead : 0) |
                            (mAccess & 2 ? nsPlatformComm::kGenericWrite : 0);
    // One that could not be closed: its worker may still have it for a moment, and the port opens
    // only once.
    if (mHandle) (void)mHandle->CloseHandle();
    mHandle = nullptr;
    nsPlatformCommPortRef handle;
    if (NS_FAILED(mPlatform->mComm->OpenPort(
            fileName, access, nsPlatformComm::kShareBoth, nsPlatformComm::kOpenExisting,
            mMode == 2 ? nsPlatformComm::kFlagOverlapped : 0, &handle))) {
      SYSTEM_LOG_ERROR(mLogger, "Can't open handle");
      return NS_ERROR_FILE_ACCESS_DENIED;
    }
    mHandle = handle;
    mIsOpen = true;
    mHandleRefCount = 1;

    // What a device can't do leaves it as it is; the port is open all the same.
    mCommConfig = {};
    (void)mHandle->GetCommConfig(&mCommConfig, nsCommConfig::kSize);
    nsCommDCB& dcb = mCommConfig.mDCB;
    (void)mHandle->GetCommState(&dcb);
    dcb.mFlags &=
        ~(nsCommDCB::kOutX | nsCommDCB::kInX | nsCommDCB::kNull | nsCommDCB::kAbortOnError);
    dcb.mFlags |= nsCommDCB::kBinary;
    setBaudrate(dcb);
    setStopBits(dcb);
    setCharSize(dcb);
    setParity(dcb);
    setFlowControl(dcb);
    (void)mHandle->SetCommConfig(mCommConfig, nsCommConfig::kSize);

    mCommTimeouts = {};
    if (mMode == 2) {
      mCommTimeouts.mReadIntervalTimeout = nsCommTimeouts::kMaxDword;
    } else {
      mCommTimeouts.mReadIntervalTimeout = mTimeout;
      mCommTimeouts.mReadTotalTimeoutConstant =
          mTimeout == nsCommTimeouts::kMaxDword ? 0 : mTimeout;
      mCommTimeouts.mWriteTotalTimeoutConstant = mTimeout;
    }
    (void)mHandle->SetCommTimeouts(mCommTimeouts);

    listening = !mListeners.empty();
    const uint32_t mask = (mMode == 2 ? kStreamEvents : 0) | (listening ? kListenerEvents : 0);
    if (NS_FAILED(mHandle->SetCommMask(mask))) {
      // The port stays open, and Close closes it. Kept as it stands.
      SYSTEM_LOG_ERROR(mLogger, "SetCommMask Failed");
      return NS_ERROR_FAILURE;
    }
    (void)mHandle->PurgeComm(kPurgeAll);
    (void)mHandle->EscapeCommFunction(Port::kSetDtr);

    mInputStream.Reset();
    mOutputStream.Reset();
    mBreak = false;
    mDTR = true;
    mRTS = false;
    if (mMode == 2) {
      mStopThread = false;
      mOverlapped = std::make_shared<nsOverlapped>();
      mThread = nullptr;
      return startThread();
    }
  }
  if (listening) SYSTEM_LOG_WARNING(mLogger, "Can't use listener with synchrone mode");
  return NS_OK;
}

nsresult nsSystemAdapterSerial::Close() {
  nsCOMPtr<nsIObserver> observer;
  {
    const nsAutoLock lock(mMonitor);
    if (!mIsOpen) return NS_OK;
    SYSTEM_LOG_DEBUG(mLogger, "Begin");
    (void)mInputStream.Close();
    (void)mOutputStream.Close();
    if (mHandle) {
      (void)mHandle->SetCommMask(0);
      (void)mHandle->EscapeCommFunction(Port::kClrDtr);
      (void)mHandle->PurgeComm(kPurgeAll);
      if (NS_SUCCEEDED(mHandle->CloseHandle())) mHandle = nullptr;
    }
    mIsOpen = false;
    if (mThread) {
      mStopThread = true;
      if (mOverlapped) {  // none in mode 1, where a listener may have started a worker
        mOverlapped->Reset();
        mOverlapped->Close();
      }
      mThread = nullptr;
      SYSTEM_LOG_DEBUG(mLogger, "Thread shutdown End");
    }
    observer.swap(mEndObserver);
  }
  if (observer)
    if (const auto os = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID))
      (void)os->RemoveObserver(observer.get(), EndObserver::kTopic);
  SYSTEM_LOG_DEBUG(mLogger, "End");
  return NS_OK;
}

// ---- Listeners, and the worker

nsresult nsSystemAdapterSerial::AddListener(nsISystemSerialListener* aListener) {
  if (!aListener) return NS_ERROR_NULL_POINTER;
  const nsAutoLock lock(mMonitor);
  SYSTEM_LOG_DEBUG(mLogger, "After lock add listener");
  mListeners.emplace_back(aListener);
  if (!mIsOpen || !mHandle) return NS_OK;
  uint32_t mask = 0;
  if (NS_FAILED(mHandle->GetCommMask(&mask))) {
    SYSTEM_LOG_ERROR(mLogger, "GetCommMask Failed");
    return NS_ERROR_FAILURE;
  }
  if (NS_FAILED(mHandle->SetCommMask(mask | kListenerEvents))) {
    SYSTEM_LOG_ERROR(mLogger, "SetCommMask Failed");
    return NS_ERROR_FAILURE;
  }
  // Also on a port that is open in mode 1, where the worker ends at once: to avoid that is the
  // caller's task.
  return mThread ? NS_OK : startThread();
}

nsresult nsSystemAdapterSerial::RemoveListener(nsISystemSerialListener* aListener) {
  nsCOMPtr<nsISystemSerialListener> removed;  // let go outside the monitor
  const nsAutoLock lock(mMonitor);
  const auto found =
      std::ranges::find_if(mListeners, [&](const auto& aKnown) { return aKnown == aListener; });
  if (found == mListeners.end()) return NS_OK;
  removed.swap(*found);
  mListeners.erase(found);
  return NS_OK;
}

nsCOMArray<nsISystemSerialListener> nsSystemAdapterSerial::Listeners() const {
  const nsAutoLock lock(mMonitor);
  return mListeners;
}

nsresult nsSystemAdapterSerial::startThread() {
  nsresult rv;
  const auto threads = do_GetService<nsIThreadManager>(NS_THREADMANAGER_CONTRACTID, &rv);
  nsCOMPtr<nsIThread> thread;
  if (NS_SUCCEEDED(rv))
    rv = threads->NewThread(0, nsIThreadManager::DEFAULT_STACK_SIZE, thread.getter_AddRefs());
  if (NS_SUCCEEDED(rv)) {
    mThread = thread;
    rv = thread->Dispatch(this, NS_DISPATCH_NORMAL);
    if (NS_FAILED(rv)) mThread = nullptr;
  }
  if (NS_FAILED(rv)) {
    SYSTEM_LOG_ERROR(mLogger, "Can't start thread");
    return rv;
  }
  if (mStopThread) return NS_OK;
  if (const auto os = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID)) {
    mEndObserver = MakeRefCounted<EndObserver>(this);
    (void)os->AddObserver(mEndObserver.get(), EndObserver::kTopic, false);
  }
  return NS_OK;
}

bool nsSystemAdapterSerial::IsStopped(const nsCOMPtr<nsIThread>& aWorker) const {
  const nsAutoLock lock(mMonitor);
  return mStopThread || mThread != aWorker;
}

nsresult nsSystemAdapterSerial::Run() {
  SYSTEM_LOG_DEBUG(mLogger, "Start");
  nsCOMPtr<nsIThread> worker;
  if (const auto threads = do_GetService<nsIThreadManager>(NS_THREADMANAGER_CONTRACTID))
    (void)threads->GetCurrentThread(worker.getter_AddRefs());
  while (!IsStopped(worker)) {
    if (NS_FAILED(monitorCommEvent(worker)))
      SYSTEM_LOG_ERROR(mLogger, "Error in monitoring :stopping thread");
  }
  // A thread can't end itself.
  if (worker)
    (void)NS_DispatchToMainThread(
        NS_NewRunnableMethodCaller<eStrong>(worker.get(), &nsIThread::Shutdown).get(),
        NS_DISPATCH_NORMAL);
  SYSTEM_LOG_DEBUG(mLogger, "Stop");
  return NS_OK;
}

nsresult nsSystemAdapterSerial::monitorCommEvent(const nsCOMPtr<nsIThread>& aWorker) {
  nsPlatformCommPortRef handle;
  nsOverlappedRef overlapped;
  {
    const nsAutoLock lock(mMonitor);
    if (mThread == aWorker) {
      handle = mHandle;
      overlapped = mOverlapped;
    }
  }
  if (!handle || !overlapped) return NS_OK;  // closed meanwhile: the worker looks again, and ends

  overlapped->Reset();
  if (IsStopped(aWorker)) return NS_OK;
  nsresult rv = handle->WaitCommEvent(overlapped);
  if (rv == NS_ERROR_ABORT) return NS_OK;
  if (NS_FAILED(rv) && rv != NS_ERROR_IN_PROGRESS) {
    SYSTEM_LOG_ERROR(mLogger, ErrorText("WaitCommEvent error %ld\n", rv));
    if (rv == NS_ERROR_NOT_AVAILABLE) HandleRemoval(aWorker);
  }
  if (IsStopped(aWorker) || !overlapped->Wait()) return NS_OK;

  uint32_t mask = 0;
  rv = overlapped->GetResult(false, &mask);
  if (rv == NS_ERROR_ABORT) return NS_OK;  // closed: no error of the port
  if (NS_FAILED(rv)) {
    SYSTEM_LOG_ERROR(mLogger, ErrorText("Comm event overlapped error %ld", rv));
    return NS_ERROR_FAILURE;
  }
  // Into the same variable: what is handled are not the events that have happened, but all that the
  // port listens for, each as if it had. Kept as it stands: listeners are told the state of all
  // lines with every event, and applications count on that.
  rv = handle->GetCommMask(&mask);
  if (rv == NS_ERROR_ABORT) return NS_OK;
  if (NS_FAILED(rv)) {
    SYSTEM_LOG_ERROR(mLogger, ErrorText("GetCommMask error %ld\n", rv));
    return NS_ERROR_FAILURE;
  }

  handle = nullptr;  // a listener may close the port and open it again
  if (mask & Port::kEvRxChar) {
    uint32_t available = 0;
    if (NS_FAILED(mInputStream.Available(&available)) || available == 0) {
      SYSTEM_LOG_DEBUG(mLogger, "EV_RXCHAR recieved with 0 char");
    } else {
      (void)mInputStream.OnSerialReady(NS_OK);
      TellListenersOfData();
    }
  }
  if (mask & Port::kEvTxEmpty) (void)mOutputStream.OnSerialReady(NS_OK);
  if (mask & Port::kEvBreak) SYSTEM_LOG_DEBUG(mLogger, "EV_BREAK");
  if (mask & Port::kEvErr) SYSTEM_LOG_DEBUG(mLogger, "EV_ERR");
  if (mask & Port::kEvDsr)
    TellListeners<&nsISystemSerialListener::OnDSR>((ModemStatus() & kDSR) != 0);
  if (mask & Port::kEvCts)
    TellListeners<&nsISystemSerialListener::OnCTS>((ModemStatus() & kCTS) != 0);
  if (mask & Port::kEvRlsd)
    TellListeners<&nsISystemSerialListener::OnDCD>((ModemStatus() & kDCD) != 0);
  if (mask & Port::kEvRing)
    TellListeners<&nsISystemSerialListener::OnRING>((ModemStatus() & kRING) != 0);
  return NS_OK;
}

void nsSystemAdapterSerial::HandleRemoval(const nsCOMPtr<nsIThread>& aWorker) {
  {
    const nsAutoLock lock(mMonitor);
    if (mThread != aWorker) return;
    mStopThread = true;
  }
  (void)mInputStream.OnSerialReady(NS_ERROR_FAILURE);
  (void)mOutputStream.OnSerialReady(NS_ERROR_FAILURE);
}

template <auto Method>
void nsSystemAdapterSerial::TellListeners(bool aState) {
  for (const auto& listener : Listeners())
    (void)NS_DispatchToMainThread(
        NS_NewRunnableMethodCaller<eStrong>(listener.get(), Method, aState).get(),
        NS_DISPATCH_SYNC);
}

void nsSystemAdapterSerial::TellListenersOfData() {
  nsIAsyncInputStream* const stream = &mInputStream;
  for (const auto& listener : Listeners())
    (void)NS_DispatchToMainThread(NS_NewRunnableMethodCaller<eStrong>(
                                      listener.get(), &nsISystemSerialListener::OnData, stream)
                                      .get(),
                                  NS_DISPATCH_SYNC);
}

// ---- The device

nsresult nsSystemAdapterSerial::GetPortInfo(std::string nsCommPortInfo::*aField,
                                            nsAString& aText) const {
  std::vector<nsCommPortInfo> ports;
  const nsresult rv = mPlatform->mComm->ListPorts(&ports);
  if (NS_FAILED(rv)) return rv;
  const std::string name = NS_ToUtf8(mSysPath);
  for (const nsCommPortInfo& port : ports) {
    if (port.mName != name) continue;
    NS_Assign(aText, NS_ToUtf16(port.*aField));
    return NS_OK;
  }
  return NS_ERROR_NOT_AVAILABLE;
}

nsresult nsSystemAdapterSerial::GetDevicePath(nsAString& aDevicePath) {
  return GetPortInfo(&nsCommPortInfo::mDevice, aDevicePath);
}
nsresult nsSystemAdapterSerial::GetDriver(nsAString& aDriver) {
  return GetPortInfo(&nsCommPortInfo::mDriver, aDriver);
}
nsresult nsSystemAdapterSerial::GetMaker(nsAString& aMaker) {
  return GetPortInfo(&nsCommPortInfo::mMaker, aMaker);
}
nsresult nsSystemAdapterSerial::GetProduct(nsAString& aProduct) {
  return GetPortInfo(&nsCommPortInfo::mProduct, aProduct);
}
nsresult nsSystemAdapterSerial::GetIdentity(nsAString& aIdentity) {
  return GetPortInfo(&nsCommPortInfo::mIdentity, aIdentity);
}

// A serial port as an adapter.
#pragma once

#include <atomic>
#include <memory>

#include "nsCOMArray.h"
#include "nsIRunnable.h"
#include "nsISystemAdapterSerial.h"
#include "nsISystemSerialListener.h"
#include "nsISystemSerialPortInfo.h"
#include "nsIThread.h"
#include "nsImplements.h"
#include "nsLock.h"
#include "nsLogger.h"
#include "nsPlatform.h"
#include "nsPlatformComm.h"
#include "nsSerialStream.h"
#include "nsSystemAdapterGeneric.h"

class nsIObserver;

/// As the runnable it is the worker of mode 2, which listens to the port from Open to Close.
class nsSystemAdapterSerial final
    : public nsSystemAdapterBase<nsImplements<nsSystemAdapterSerial, nsISystemAdapterSerial,
                                              nsIRunnable, nsISystemSerialPortInfo>> {
 public:
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfo<"", nsISystemAdapter, nsISystemAdapterSerial>(
          "6b1e0f8c-42d7-4c39-b5a8-0d93e7f2614b"_iid);

  nsSystemAdapterSerial(nsPlatformRef aPlatform, const nsAString& aSysPath, const nsAString& aLabel,
                        uint32_t aCapabilities);

  nsresult GetCapabilities(uint32_t* aCapabilities) override;
  nsresult SetParameters(uint32_t aAccess, uint32_t aBaudRate, uint32_t aCharSize, uint32_t aParity,
                         uint32_t aStopBits, uint32_t aFlowControl) override;
  nsresult GetParameters(uint32_t* aAccess, uint32_t* aBaudRate, uint32_t* aCharSize,
                         uint32_t* aParity, uint32_t* aStopBits, uint32_t* aFlowControl) override;
  nsresult SendBreak(uint32_t aMicroseconds) override;
  nsresult GetBREAK(bool* aBREAK) override;
  nsresult SetBREAK(bool aBREAK) override;
  nsresult GetDCD(bool* aDCD) override;
  nsresult GetCTS(bool* aCTS) override;
  nsresult GetDSR(bool* aDSR) override;
  nsresult GetDTR(bool* aDTR) override;
  nsresult SetDTR(bool aDTR) override;
  nsresult GetRING(bool* aRING) override;
  nsresult GetRTS(bool* aRTS) override;
  nsresult SetRTS(bool aRTS) override;
  nsresult Reserved22(void*) override { return NS_ERROR_FAILURE; }
  nsresult Reserved23(void*) override { return NS_ERROR_FAILURE; }
  nsresult GetIsTQEmpty(bool* aIsTQEmpty) override;
  nsresult DrainTQ() override;
  nsresult Reserved26() override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult Reserved27() override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult AddListener(nsISystemSerialListener* aListener) override;
  nsresult RemoveListener(nsISystemSerialListener* aListener) override;
  nsresult GetIsBlocking(bool* aIsBlocking) override;
  nsresult SetIsBlocking(bool aIsBlocking) override;
  nsresult GetReservedValue(uint32_t* aReservedValue) override;
  nsresult SetReservedValue(uint32_t aReservedValue) override;
  nsresult GetTimeout(uint32_t* aTimeout) override;
  nsresult SetTimeout(uint32_t aTimeout) override;
  nsresult GetMode(uint32_t* aMode) override;
  nsresult SetMode(uint32_t aMode) override;
  nsresult GetInputStream(nsIAsyncInputStream** aInputStream) override;
  nsresult GetOutputStream(nsIAsyncOutputStream** aOutputStream) override;
  nsresult Open() override;
  nsresult Close() override;
  // nsIRunnable
  nsresult Run() override;
  // nsISystemSerialPortInfo
  nsresult GetDevicePath(nsAString& aDevicePath) override;
  nsresult GetDriver(nsAString& aDriver) override;
  nsresult GetMaker(nsAString& aMaker) override;
  nsresult GetProduct(nsAString& aProduct) override;
  nsresult GetIdentity(nsAString& aIdentity) override;

 private:
  template <class Direction>
  friend class nsSerialStream;

  ~nsSystemAdapterSerial() override;

  // With the monitor.
  void setBaudrate(nsCommDCB& aDCB) NS_REQUIRES(mMonitor);
  void setStopBits(nsCommDCB& aDCB) NS_REQUIRES(mMonitor);
  void setCharSize(nsCommDCB& aDCB) NS_REQUIRES(mMonitor);
  void setParity(nsCommDCB& aDCB) const NS_REQUIRES(mMonitor);
  void setFlowControl(nsCommDCB& aDCB) const NS_REQUIRES(mMonitor);
  /// The handle for a use that goes on outside the monitor; null without one.
  nsPlatformCommPortRef TakeHandle_Locked() NS_REQUIRES(mMonitor);
  /// The end of such a use.
  void ReleaseHandle_Locked(const nsPlatformCommPortRef& aHandle) NS_REQUIRES(mMonitor);

  nsresult EscapeLine(uint32_t aFunction) NS_REQUIRES(mMonitor);
  nsresult GetLine(uint32_t aBit, bool* aLine);
  /// Bit 0 CTS, bit 1 DSR, bit 2 DCD, bit 3 RING; 0 without an answer.
  uint32_t ModemStatus();
  /// With the monitor, so that the worker's first look finds mThread.
  nsresult startThread() NS_REQUIRES(mMonitor);
  /// Whether the worker on this thread is to end: also one that a later worker has replaced.
  bool IsStopped(const nsCOMPtr<nsIThread>& aWorker) const;
  nsresult monitorCommEvent(const nsCOMPtr<nsIThread>& aWorker);
  /// The device has gone: the streams fail, whoever waits on them is called, and the worker ends.
  void HandleRemoval(const nsCOMPtr<nsIThread>& aWorker);
  template <auto Method>
  void TellListeners(bool aState);
  void TellListenersOfData();
  nsCOMArray<nsISystemSerialListener> Listeners() const;
  nsresult GetPortInfo(std::string nsCommPortInfo::*aField, nsAString& aText) const;

  const nsPlatformRef mPlatform;
  const nsCOMPtr<nsILog4Logger> mLogger;

  // Set by Close, cleared by Open in mode 2; and set when the device has gone.
  bool mStopThread NS_GUARDED_BY(mMonitor) = true;
  nsSerialInputStream mInputStream;
  nsSerialOutputStream mOutputStream;
  nsCOMPtr<nsIThread> mThread NS_GUARDED_BY(mMonitor);
  // "system.serial.mMonitor": guards all fields, and those of the streams, which the compiler can
  // not check there. Entered again by operations that call others. Not held while anything waits
  // but a break.
  mutable nsRecursiveMutex mMonitor;
  bool mIsOpen NS_GUARDED_BY(mMonitor) = false;
  const uint32_t mCapabilities;
  // These six are written without the monitor: they are for the next Open.
  std::atomic<uint32_t> mAccess{3};
  std::atomic<uint32_t> mBaudRate{9600};
  std::atomic<uint32_t> mCharSize{8};
  std::atomic<uint32_t> mParity{256};
  std::atomic<uint32_t> mStopBits{0};
  std::atomic<uint32_t> mFlowControl{0};
  nsCOMArray<nsISystemSerialListener> mListeners NS_GUARDED_BY(mMonitor);
  bool mBreak NS_GUARDED_BY(mMonitor) = false;
  bool mDTR NS_GUARDED_BY(mMonitor) = false;
  bool mRTS NS_GUARDED_BY(mMonitor) = false;
  std::atomic<bool> mBlocking{true};  // read without the monitor
  uint32_t mReservedValue NS_GUARDED_BY(mMonitor) = 0;
  uint32_t mTimeout NS_GUARDED_BY(mMonitor) = 0;
  uint32_t mMode NS_GUARDED_BY(mMonitor) = 1;
  nsPlatformCommPortRef mHandle NS_GUARDED_BY(mMonitor);
  // Users of mHandle outside the monitor, plus one while it is open.
  uint32_t mHandleRefCount NS_GUARDED_BY(mMonitor) = 0;
  nsOverlappedRef mOverlapped NS_GUARDED_BY(mMonitor);
  nsCommConfig mCommConfig NS_GUARDED_BY(mMonitor);
  nsCommTimeouts mCommTimeouts NS_GUARDED_BY(mMonitor);

  // Closes a port of mode 2 at the end of the program.
  nsCOMPtr<nsIObserver> mEndObserver NS_GUARDED_BY(mMonitor);
};

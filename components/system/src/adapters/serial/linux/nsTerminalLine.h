// An open serial line of Linux.
#pragma once

#include <linux/serial.h>

#include <chrono>
#include <memory>

#include "nsEventFd.h"
#include "nsLock.h"
#include "nsOverlappedQueue.h"
#include "nsPlatformComm.h"
#include "nsPlatformCommTimer.h"
#include "nsPortLock.h"
#include "nsUniqueFd.h"

/// Bytes go straight between the caller and the kernel. A wait for events is carried out by who
/// waits: it sleeps until bytes come, and where lines are to be heard it looks at them eight times
/// a second, or a hundred times as long as something goes on. A read or a write that goes on has a
/// thread of its own, which is there from the first of them on.
class nsTerminalLine final : public nsPlatformCommPort,
                             public std::enable_shared_from_this<nsTerminalLine> {
 public:
  /// Takes over an open terminal, and makes it raw. Fails for what is no terminal.
  static nsresult Make(std::string aName, nsUniqueFd aFd, nsPortLock aPortLock, uint32_t aAccess,
                       bool aIsOverlapped, std::shared_ptr<nsTerminalLine>* aLine);
  ~nsTerminalLine() override { (void)End(); }

  nsresult GetCommConfig(nsCommConfig* aConfig, uint32_t aSize) override;
  nsresult GetCommState(nsCommDCB* aDCB) override;
  nsresult SetCommConfig(const nsCommConfig& aConfig, uint32_t aSize) override;
  nsresult SetCommTimeouts(const nsCommTimeouts& aTimeouts) override;
  nsresult SetCommMask(uint32_t aMask) override;
  nsresult GetCommMask(uint32_t* aMask) override;
  nsresult PurgeComm(uint32_t aFlags) override;
  nsresult EscapeCommFunction(uint32_t aFunction) override;
  nsresult GetCommModemStatus(uint32_t* aStatus) override;
  nsresult ClearCommError(uint32_t* aErrors, nsCommStat* aStat) override;
  nsresult WaitCommEvent(const nsOverlappedRef& aRecord) override;
  nsresult ReadFile(char* aBuffer, uint32_t aCount, uint32_t* aRead,
                    const nsOverlappedRef& aRecord) override;
  nsresult WriteFile(const char* aBuffer, uint32_t aCount, uint32_t* aWritten,
                     const nsOverlappedRef& aRecord) override;
  nsresult CloseHandle() override { return End(); }

 private:
  using Clock = std::chrono::steady_clock;
  /// The use of the descriptor, which is not closed as long as there is one.
  class Use;

  nsTerminalLine(std::string aName, nsUniqueFd aFd, nsPortLock aPortLock, uint32_t aAccess,
                 bool aIsOverlapped);
  nsresult Prepare();
  nsresult End();

  // With a use.
  template <class... A>
  nsresult Control(unsigned long aRequest, A... aArguments);
  nsresult ResultOf(int aErrno);
  nsresult ReadState(nsCommDCB* aDCB);
  /// Waits until the descriptor is ready for aEvents. NS_ERROR_NET_TIMEOUT, NS_ERROR_ABORT.
  nsresult WaitFor(short aEvents, const nsCommTimer& aTimer, int aStopFd);
  nsresult Receive(char* aBuffer, uint32_t aCount, nsCommTimer& aTimer, int aStopFd,
                   uint32_t* aRead);
  nsresult Send(const char* aBuffer, uint32_t aCount, nsCommTimer& aTimer, int aStopFd,
                uint32_t* aWritten);
  bool IsOutputEmpty();
  void OnWritten();
  /// Adds to mEvents what has happened on lines and counters since the last look.
  void LookAtLines(uint32_t aMask);
  void CarryOut(uint64_t aWait);
  int WaitTime(uint32_t aMask) const NS_REQUIRES(mLock);

  // Within the lock.
  void EndRecord(nsresult aResult, uint32_t aEvents) NS_REQUIRES(mLock);
  /// Ends a wait from outside, without an event.
  void EndWait(nsresult aResult) NS_REQUIRES(mLock);
  void SetGone() NS_REQUIRES(mLock);

  const std::string mName;
  const uint32_t mAccess;
  const bool mIsOverlapped;
  nsUniqueFd mFd;
  nsUniqueFd mEpoll;
  nsEventFd mClosing;  // set for good
  nsEventFd mLook;     // the wait is to look again
  bool mHasLines = false, mHasCounters = false;

  nsMutex mLock;
  nsCondition mUnused;
  nsPortLock mPortLock NS_GUARDED_BY(mLock);
  unsigned mUses NS_GUARDED_BY(mLock) = 0;
  bool mClosed NS_GUARDED_BY(mLock) = false;
  bool mGone NS_GUARDED_BY(mLock) = false;
  uint32_t mKeptFlags NS_GUARDED_BY(mLock) = 0;  // of the DCB, which the terminal has no place for
  nsCommTimeouts mTimeouts NS_GUARDED_BY(mLock);
  uint32_t mMask NS_GUARDED_BY(mLock) = 0;
  uint32_t mEvents NS_GUARDED_BY(mLock) = 0;  // since the mask was set or a wait took them
  std::weak_ptr<nsOverlapped> mWait NS_GUARDED_BY(mLock);
  uint64_t mWaitNumber NS_GUARDED_BY(mLock) = 0;
  int mLines NS_GUARDED_BY(mLock) = 0;
  serial_icounter_struct mCounters NS_GUARDED_BY(mLock){}, mErrorCounters NS_GUARDED_BY(mLock){};
  bool mIsSending NS_GUARDED_BY(mLock) = false;
  Clock::time_point mLastChange;
  uint32_t mPendingOut NS_GUARDED_BY(mLock) = 0;

  nsMutex mWriteOrder;  // guards no field: writes come one after the other
  nsOverlappedQueue mReads, mWrites;
};

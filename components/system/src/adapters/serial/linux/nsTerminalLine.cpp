#include "nsTerminalLine.h"

// The kernel's own structure: the C library's can't tell any speed.
#include <asm/termbits.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <stop_token>

#include "nsErrno.h"
#include "nsLogger.h"

namespace {

constexpr uint32_t kLineEvents = nsPlatformCommPort::kEvCts | nsPlatformCommPort::kEvDsr |
                                 nsPlatformCommPort::kEvRlsd | nsPlatformCommPort::kEvRing;
constexpr uint32_t kErrorEvents = nsPlatformCommPort::kEvBreak | nsPlatformCommPort::kEvErr;
constexpr int kBusyLookMilliseconds = 10;
constexpr int kIdleLookMilliseconds = 125;
constexpr auto kBusyTime = std::chrono::seconds(1);
constexpr uint32_t kRtsEnable = 0x1000, kDtrEnable = 0x10;
constexpr tcflag_t kParityBits = PARENB | PARODD | CMSPAR;

uint8_t ParityOf(tcflag_t aFlags) {
  if (!(aFlags & PARENB)) return nsCommDCB::kNoParity;
  if (aFlags & CMSPAR) return aFlags & PARODD ? nsCommDCB::kMarkParity : nsCommDCB::kSpaceParity;
  return aFlags & PARODD ? nsCommDCB::kOddParity : nsCommDCB::kEvenParity;
}

tcflag_t FlagsOfParity(uint8_t aParity) {
  switch (aParity) {
    case nsCommDCB::kOddParity:
      return PARENB | PARODD;
    case nsCommDCB::kEvenParity:
      return PARENB;
    case nsCommDCB::kMarkParity:
      return PARENB | PARODD | CMSPAR;
    case nsCommDCB::kSpaceParity:
      return PARENB | CMSPAR;
    default:
      return 0;
  }
}

uint8_t SizeOf(tcflag_t aFlags) {
  switch (aFlags & CSIZE) {
    case CS5:
      return 5;
    case CS6:
      return 6;
    case CS7:
      return 7;
    default:
      return 8;
  }
}

tcflag_t FlagsOfSize(uint8_t aSize) {
  return aSize == 5 ? CS5 : aSize == 6 ? CS6 : aSize == 7 ? CS7 : CS8;
}

// What a device takes for the same speed: its divider rarely meets one exactly.
bool IsSameSpeed(uint32_t aA, uint32_t aB) {
  const double a = aA, b = aB;
  return std::abs(a - b) <= 0.03 * std::max(a, b);
}

}  // namespace

class nsTerminalLine::Use {
 public:
  explicit Use(nsTerminalLine& aLine) : mLine(aLine) {
    const nsAutoLock lock(mLine.mLock);
    mResult = mLine.mClosed ? NS_ERROR_ABORT : mLine.mGone ? NS_ERROR_NOT_AVAILABLE : NS_OK;
    if (NS_SUCCEEDED(mResult)) ++mLine.mUses;
  }
  Use(const Use&) = delete;
  Use& operator=(const Use&) = delete;
  ~Use() {
    if (NS_FAILED(mResult)) return;
    const nsAutoLock lock(mLine.mLock);
    if (--mLine.mUses == 0) mLine.mUnused.NotifyAll();
  }
  nsresult Result() const { return mResult; }

 private:
  nsTerminalLine& mLine;
  nsresult mResult;
};

// ---- Begin and end

nsTerminalLine::nsTerminalLine(std::string aName, nsUniqueFd aFd, nsPortLock aPortLock,
                               uint32_t aAccess, bool aIsOverlapped)
    : mName(std::move(aName)),
      mAccess(aAccess),
      mIsOverlapped(aIsOverlapped),
      mFd(std::move(aFd)),
      mPortLock(std::move(aPortLock)) {}

nsresult nsTerminalLine::Make(std::string aName, nsUniqueFd aFd, nsPortLock aPortLock,
                              uint32_t aAccess, bool aIsOverlapped,
                              std::shared_ptr<nsTerminalLine>* aLine) {
  const std::shared_ptr<nsTerminalLine> line(new nsTerminalLine(
      std::move(aName), std::move(aFd), std::move(aPortLock), aAccess, aIsOverlapped));
  const nsresult rv = line->Prepare();
  if (NS_SUCCEEDED(rv)) *aLine = line;
  return rv;
}

nsresult nsTerminalLine::Prepare() NS_NOT_CHECKED {  // nobody else has it yet
  nsresult rv = mClosing.Open();
  if (NS_SUCCEEDED(rv)) rv = mLook.Open();
  if (NS_FAILED(rv)) return rv;
  mEpoll = nsUniqueFd(epoll_create1(EPOLL_CLOEXEC));
  if (!mEpoll) return NS_LastResult();
  // Bytes are an event when they come, not while they lie there.
  const std::pair<int, uint32_t> watched[] = {
      {mFd.get(), EPOLLIN | EPOLLET}, {mClosing.get(), EPOLLIN}, {mLook.get(), EPOLLIN}};
  for (const auto& [fd, events] : watched) {
    epoll_event event{};
    event.events = events;
    event.data.fd = fd;
    if (epoll_ctl(mEpoll.get(), EPOLL_CTL_ADD, fd, &event) != 0) return NS_LastResult();
  }

  // Raw, and with no regard to a carrier. What else the line was set to stays.
  termios2 state{};
  if (ioctl(mFd.get(), TCGETS2, &state) != 0) return NS_ERROR_FAILURE;
  state.c_iflag &= IXON | IXOFF;
  state.c_iflag |= IGNBRK;  // a break is an event, and no byte
  state.c_oflag = 0;
  state.c_lflag = 0;
  state.c_cflag |= CLOCAL | CREAD;
  state.c_cc[VMIN] = 1;
  state.c_cc[VTIME] = 0;
  if (ioctl(mFd.get(), TCSETS2, &state) != 0) return NS_LastResult();
  mHasLines = ioctl(mFd.get(), TIOCMGET, &mLines) == 0;
  mHasCounters = ioctl(mFd.get(), TIOCGICOUNT, &mCounters) == 0;
  mErrorCounters = mCounters;
  return NS_OK;
}

nsresult nsTerminalLine::End() {
  {
    const nsAutoLock lock(mLock);
    if (mClosed) return NS_ERROR_ABORT;
    mClosed = true;
    EndWait(NS_ERROR_ABORT);
    mClosing.Set();
  }
  mReads.Close();
  mWrites.Close();
  nsAutoLock lock(mLock);
  mUnused.Wait(lock, [this]() NS_REQUIRES(mLock) { return mUses == 0; });
  if (mFd) (void)ioctl(mFd.get(), TIOCNXCL);
  (void)mEpoll.Close();
  (void)mFd.Close();
  mPortLock.Release();
  return NS_OK;
}

void nsTerminalLine::EndRecord(nsresult aResult, uint32_t aEvents) {
  ++mWaitNumber;
  if (const nsOverlappedRef record = std::exchange(mWait, {}).lock()) record->End(aResult, aEvents);
}

void nsTerminalLine::EndWait(nsresult aResult) {
  EndRecord(aResult, 0);
  mLook.Set();
}

void nsTerminalLine::SetGone() {
  if (mGone) return;
  mGone = true;
  EndWait(NS_ERROR_NOT_AVAILABLE);
}

nsresult nsTerminalLine::ResultOf(int aErrno) {
  if (aErrno != EIO && aErrno != ENODEV && aErrno != ENXIO) return NS_ERROR_FAILURE;
  const nsAutoLock lock(mLock);
  SetGone();
  return NS_ERROR_NOT_AVAILABLE;
}

template <class... A>
nsresult nsTerminalLine::Control(unsigned long aRequest, A... aArguments) {
  if (ioctl(mFd.get(), aRequest, aArguments...) == 0) return NS_OK;
  // A line that its driver has hung up answers EIO; so does one that can't do what it is asked for,
  // and the wait for events tells the two apart.
  return errno == EIO ? NS_ERROR_FAILURE : ResultOf(errno);
}

// ---- How the line is driven

nsresult nsTerminalLine::ReadState(nsCommDCB* aDCB) {
  termios2 state{};
  if (const nsresult rv = Control(TCGETS2, &state); NS_FAILED(rv)) return rv;
  nsCommDCB dcb;
  dcb.mBaudRate = state.c_ospeed;
  dcb.mByteSize = SizeOf(state.c_cflag);
  dcb.mParity = ParityOf(state.c_cflag);
  dcb.mStopBits = !(state.c_cflag & CSTOPB) ? nsCommDCB::kOneStopBit
                  : dcb.mByteSize == 5      ? nsCommDCB::kOne5StopBits
                                            : nsCommDCB::kTwoStopBits;
  dcb.mXonChar = static_cast<char>(state.c_cc[VSTART]);
  dcb.mXoffChar = static_cast<char>(state.c_cc[VSTOP]);
  if (state.c_cflag & CRTSCTS) dcb.mFlags |= nsCommDCB::kOutxCtsFlow | nsCommDCB::kRtsHandshake;
  if (state.c_iflag & IXON) dcb.mFlags |= nsCommDCB::kOutX;
  if (state.c_iflag & IXOFF) dcb.mFlags |= nsCommDCB::kInX;
  int lines = 0;
  if (mHasLines && NS_SUCCEEDED(Control(TIOCMGET, &lines))) {
    if (lines & TIOCM_DTR) dcb.mFlags |= kDtrEnable;
    if ((lines & TIOCM_RTS) && !(state.c_cflag & CRTSCTS)) dcb.mFlags |= kRtsEnable;
  }
  const nsAutoLock lock(mLock);
  dcb.mFlags |= mKeptFlags;
  *aDCB = dcb;
  return NS_OK;
}

nsresult nsTerminalLine::GetCommConfig(nsCommConfig* aConfig, uint32_t aSize) {
  if (aSize < nsCommConfig::kSize) return NS_ERROR_INVALID_ARG;
  nsCommConfig config;
  const nsresult rv = GetCommState(&config.mDCB);
  if (NS_SUCCEEDED(rv)) *aConfig = config;
  return rv;
}

nsresult nsTerminalLine::GetCommState(nsCommDCB* aDCB) {
  const Use use(*this);
  return NS_FAILED(use.Result()) ? use.Result() : ReadState(aDCB);
}

nsresult nsTerminalLine::SetCommConfig(const nsCommConfig& aConfig, uint32_t aSize) {
  if (aSize < nsCommConfig::kSize) return NS_ERROR_INVALID_ARG;
  const Use use(*this);
  if (NS_FAILED(use.Result())) return use.Result();
  const nsCommDCB& dcb = aConfig.mDCB;
  termios2 state{};
  nsresult rv = Control(TCGETS2, &state);
  if (NS_FAILED(rv)) return rv;

  // Damaged bytes come as they are, whether parity is checked or not: INPCK would make zeros of
  // them. The counters tell of the damage.
  constexpr tcflag_t kSpeedBits = CBAUD | (tcflag_t{CBAUD} << IBSHIFT);
  state.c_cflag &= ~(kSpeedBits | CSIZE | CSTOPB | CRTSCTS | kParityBits);
  state.c_cflag |= BOTHER | (tcflag_t{BOTHER} << IBSHIFT) | FlagsOfSize(dcb.mByteSize) |
                   FlagsOfParity(dcb.mParity);
  state.c_ispeed = state.c_ospeed = dcb.mBaudRate;
  if (dcb.mStopBits != nsCommDCB::kOneStopBit) state.c_cflag |= CSTOPB;
  const uint32_t rts = dcb.mFlags & nsCommDCB::kRtsControl;
  if ((dcb.mFlags & nsCommDCB::kOutxCtsFlow) || rts == nsCommDCB::kRtsHandshake)
    state.c_cflag |= CRTSCTS;
  state.c_iflag &= ~static_cast<tcflag_t>(IXON | IXOFF | IXANY);
  if (dcb.mFlags & nsCommDCB::kOutX) state.c_iflag |= IXON;
  if (dcb.mFlags & nsCommDCB::kInX) state.c_iflag |= IXOFF;
  state.c_cc[VSTART] = static_cast<cc_t>(dcb.mXonChar);
  state.c_cc[VSTOP] = static_cast<cc_t>(dcb.mXoffChar);
  rv = Control(TCSETS2, &state);
  if (NS_FAILED(rv)) return rv == NS_ERROR_FAILURE ? NS_ERROR_INVALID_ARG : rv;
  if (mHasLines && rts != nsCommDCB::kRtsHandshake) {
    const int line = TIOCM_RTS;
    (void)Control(rts == kRtsEnable ? TIOCMBIS : TIOCMBIC, &line);
  }
  {
    const nsAutoLock lock(mLock);
    mKeptFlags = dcb.mFlags & (nsCommDCB::kParity | nsCommDCB::kNull | nsCommDCB::kAbortOnError);
  }

  // A driver takes what it can and says nothing.
  nsCommDCB taken;
  rv = ReadState(&taken);
  if (NS_FAILED(rv)) return rv;
  if (IsSameSpeed(taken.mBaudRate, dcb.mBaudRate) && taken.mByteSize == dcb.mByteSize &&
      taken.mParity == dcb.mParity && taken.mStopBits == dcb.mStopBits)
    return NS_OK;
  SYSTEM_LOG_WARNING(NS_GetLogger("system.adapter.serial"),
                     mName + ": the device can't be set to " + std::to_string(dcb.mBaudRate) +
                         " baud, " + std::to_string(dcb.mByteSize) + " data bits, parity " +
                         std::to_string(dcb.mParity) + ", stop bits " +
                         std::to_string(dcb.mStopBits));
  return NS_ERROR_INVALID_ARG;
}

nsresult nsTerminalLine::SetCommTimeouts(const nsCommTimeouts& aTimeouts) {
  const Use use(*this);
  if (NS_FAILED(use.Result())) return use.Result();
  const nsAutoLock lock(mLock);
  mTimeouts = aTimeouts;
  return NS_OK;
}

nsresult nsTerminalLine::PurgeComm(uint32_t aFlags) {
  const Use use(*this);
  if (NS_FAILED(use.Result())) return use.Result();
  if (aFlags & kPurgeRxAbort) mReads.Abort();
  if (aFlags & kPurgeTxAbort) mWrites.Abort();
  const bool input = aFlags & kPurgeRxClear, output = aFlags & kPurgeTxClear;
  if (!input && !output) return NS_OK;
  return Control(TCFLSH, input && output ? TCIOFLUSH : input ? TCIFLUSH : TCOFLUSH);
}

nsresult nsTerminalLine::EscapeCommFunction(uint32_t aFunction) {
  const Use use(*this);
  if (NS_FAILED(use.Result())) return use.Result();
  const int dtr = TIOCM_DTR, rts = TIOCM_RTS;
  switch (aFunction) {
    case kSetXoff:
      return Control(TCXONC, TCOOFF);
    case kSetXon:
      return Control(TCXONC, TCOON);
    case kSetRts:
      return Control(TIOCMBIS, &rts);
    case kClrRts:
      return Control(TIOCMBIC, &rts);
    case kSetDtr:
      return Control(TIOCMBIS, &dtr);
    case kClrDtr:
      return Control(TIOCMBIC, &dtr);
    case kSetBreak:
      return Control(TIOCSBRK);
    case kClrBreak:
      return Control(TIOCCBRK);
    default:
      return NS_ERROR_INVALID_ARG;
  }
}

nsresult nsTerminalLine::GetCommModemStatus(uint32_t* aStatus) {
  const Use use(*this);
  if (NS_FAILED(use.Result())) return use.Result();
  int lines = 0;
  const nsresult rv = Control(TIOCMGET, &lines);
  if (NS_FAILED(rv)) return rv;
  *aStatus = (lines & TIOCM_CTS ? kCtsOn : 0) | (lines & TIOCM_DSR ? kDsrOn : 0) |
             (lines & TIOCM_RNG ? kRingOn : 0) | (lines & TIOCM_CAR ? kRlsdOn : 0);
  return NS_OK;
}

nsresult nsTerminalLine::ClearCommError(uint32_t* aErrors, nsCommStat* aStat) {
  const Use use(*this);
  if (NS_FAILED(use.Result())) return use.Result();
  int input = 0, output = 0;
  if (ioctl(mFd.get(), FIONREAD, &input) != 0) return ResultOf(errno);
  (void)ioctl(mFd.get(), TIOCOUTQ, &output);
  serial_icounter_struct counters{};
  const bool counted = mHasCounters && ioctl(mFd.get(), TIOCGICOUNT, &counters) == 0;

  const nsAutoLock lock(mLock);
  uint32_t errors = 0;
  if (counted) {
    const serial_icounter_struct& before = mErrorCounters;
    if (counters.buf_overrun != before.buf_overrun) errors |= kCeRxOver;
    if (counters.overrun != before.overrun) errors |= kCeOverrun;
    if (counters.parity != before.parity) errors |= kCeRxParity;
    if (counters.frame != before.frame) errors |= kCeFrame;
    if (counters.brk != before.brk) errors |= kCeBreak;
    mErrorCounters = counters;
  }
  nsCommStat stat;
  stat.mInQueue = static_cast<uint32_t>(std::max(input, 0));
  stat.mOutQueue = static_cast<uint32_t>(std::max(output, 0)) + mPendingOut;
  if (mPendingOut > 0) stat.mFlags = nsCommStat::kTxim;
  *aErrors = errors;
  *aStat = stat;
  return NS_OK;
}

// ---- Events

nsresult nsTerminalLine::SetCommMask(uint32_t aMask) {
  const Use use(*this);
  if (NS_FAILED(use.Result())) return use.Result();
  LookAtLines(aMask);
  // Bytes that have come so far are forgotten; the end of the device is not.
  epoll_event events[3];
  const int count = epoll_wait(mEpoll.get(), events, 3, 0);
  const nsAutoLock lock(mLock);
  for (int i = 0; i < count; ++i)
    if (events[i].data.fd == mFd.get() && (events[i].events & (EPOLLHUP | EPOLLERR))) SetGone();
  if (mGone) return NS_ERROR_NOT_AVAILABLE;
  mMask = aMask;
  mEvents = 0;
  mIsSending = false;
  EndWait(NS_OK);
  return NS_OK;
}

nsresult nsTerminalLine::GetCommMask(uint32_t* aMask) {
  const Use use(*this);
  if (NS_FAILED(use.Result())) return use.Result();
  const nsAutoLock lock(mLock);
  *aMask = mMask;
  return NS_OK;
}

nsresult nsTerminalLine::WaitCommEvent(const nsOverlappedRef& aRecord) {
  const Use use(*this);
  if (NS_FAILED(use.Result())) return use.Result();
  const nsAutoLock lock(mLock);
  if (!aRecord || mMask == 0 || mWait.lock()) return NS_ERROR_INVALID_ARG;
  mWait = aRecord;
  aRecord->Begin([self = shared_from_this(), wait = ++mWaitNumber] { self->CarryOut(wait); });
  return NS_ERROR_IN_PROGRESS;
}

bool nsTerminalLine::IsOutputEmpty() {
  int queued = 0;
  if (ioctl(mFd.get(), TIOCOUTQ, &queued) == 0 && queued > 0) return false;
  // The last bytes stand in the device itself.
  unsigned state = 0;
  return ioctl(mFd.get(), TIOCSERGETLSR, &state) != 0 || (state & TIOCSER_TEMT);
}

void nsTerminalLine::OnWritten() {
  const nsAutoLock lock(mLock);
  if (!(mMask & kEvTxEmpty)) return;
  mIsSending = true;
  mLook.Set();
}

void nsTerminalLine::LookAtLines(uint32_t aMask) {
  bool isSending;
  {
    const nsAutoLock lock(mLock);
    isSending = mIsSending && mPendingOut == 0;
  }
  const bool sent = isSending && IsOutputEmpty();
  int lines = 0;
  const bool seen = mHasLines && (aMask & kLineEvents) && ioctl(mFd.get(), TIOCMGET, &lines) == 0;
  serial_icounter_struct counters{};
  const bool counted = mHasCounters && (aMask & (kLineEvents | kErrorEvents)) &&
                       ioctl(mFd.get(), TIOCGICOUNT, &counters) == 0;

  const nsAutoLock lock(mLock);
  uint32_t events = 0;
  if (sent) {
    mIsSending = false;
    events |= kEvTxEmpty;
  }
  if (seen) {
    const int changed = lines ^ mLines;
    mLines = lines;
    if (changed & TIOCM_CTS) events |= kEvCts;
    if (changed & TIOCM_DSR) events |= kEvDsr;
    if (changed & TIOCM_CAR) events |= kEvRlsd;
    if (changed & TIOCM_RNG) events |= kEvRing;
  }
  if (counted) {
    // A pulse that is over when the lines are looked at has been counted.
    if (counters.cts != mCounters.cts) events |= kEvCts;
    if (counters.dsr != mCounters.dsr) events |= kEvDsr;
    if (counters.dcd != mCounters.dcd) events |= kEvRlsd;
    if (counters.rng != mCounters.rng) events |= kEvRing;
    if (counters.brk != mCounters.brk) events |= kEvBreak;
    if (counters.frame != mCounters.frame || counters.parity != mCounters.parity ||
        counters.overrun != mCounters.overrun || counters.buf_overrun != mCounters.buf_overrun)
      events |= kEvErr;
    mCounters = counters;
  }
  if (events & ~uint32_t{kEvTxEmpty}) mLastChange = Clock::now();
  mEvents |= events;
}

int nsTerminalLine::WaitTime(uint32_t aMask) const {
  if (mIsSending) return kBusyLookMilliseconds;
  const bool looks = (mHasLines && (aMask & kLineEvents)) ||
                     (mHasCounters && (aMask & (kLineEvents | kErrorEvents)));
  if (!looks) return -1;
  return Clock::now() - mLastChange < kBusyTime ? kBusyLookMilliseconds : kIdleLookMilliseconds;
}

// On the thread of who waits. Whatever ends the wait from outside has ended the record.
void nsTerminalLine::CarryOut(uint64_t aWait) {
  const Use use(*this);
  if (NS_FAILED(use.Result())) return;
  while (true) {
    uint32_t mask;
    {
      const nsAutoLock lock(mLock);
      if (mWaitNumber != aWait) return;
      mask = mMask;
    }
    LookAtLines(mask);
    int time;
    {
      const nsAutoLock lock(mLock);
      if (mWaitNumber != aWait) return;
      if (mEvents & mMask) return EndRecord(NS_OK, std::exchange(mEvents, 0) & mMask);
      time = WaitTime(mask);
    }
    epoll_event events[3];
    const int count = epoll_wait(mEpoll.get(), events, 3, time);
    const nsAutoLock lock(mLock);
    for (int i = 0; i < count; ++i) {
      if (events[i].data.fd == mLook.get()) (void)mLook.Take();
      if (events[i].data.fd != mFd.get()) continue;
      if (events[i].events & (EPOLLHUP | EPOLLERR)) SetGone();
      if (events[i].events & EPOLLIN) mEvents |= kEvRxChar;
    }
  }
}

// ---- Bytes

nsresult nsTerminalLine::WaitFor(short aEvents, const nsCommTimer& aTimer, int aStopFd) {
  pollfd fds[] = {{mFd.get(), aEvents, 0}, {mClosing.get(), POLLIN, 0}, {aStopFd, POLLIN, 0}};
  while (true) {
    int time = -1;
    if (const auto deadline = aTimer.Deadline()) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now());
      time = static_cast<int>(std::clamp<int64_t>(left.count(), 0, INT32_MAX));
    }
    const int count = poll(fds, 3, time);
    if (count < 0 && errno != EINTR) return NS_LastResult();
    if (fds[1].revents || fds[2].revents) return NS_ERROR_ABORT;
    if (count > 0) return NS_OK;
    if (count == 0 && time < INT32_MAX) return NS_ERROR_NET_TIMEOUT;
  }
}

nsresult nsTerminalLine::Receive(char* aBuffer, uint32_t aCount, nsCommTimer& aTimer, int aStopFd,
                                 uint32_t* aRead) {
  uint32_t got = 0;
  nsresult rv = NS_OK;
  while (got < aCount) {
    const ssize_t length = read(mFd.get(), aBuffer + got, aCount - got);
    if (length > 0) {
      got += static_cast<uint32_t>(length);
      if (aTimer.Moved()) break;
    } else if (length < 0 && errno == EAGAIN) {
      if (!aTimer.MayWait()) break;
      rv = WaitFor(POLLIN, aTimer, aStopFd);
      if (NS_FAILED(rv)) break;
    } else if (length == 0 || errno != EINTR) {
      // A line that is hung up ends like a file.
      rv = ResultOf(length == 0 ? EIO : errno);
      break;
    }
  }
  // What has come before the device went is not lost.
  if (NS_FAILED(rv) && rv != NS_ERROR_NET_TIMEOUT && got == 0) return rv;
  *aRead = got;
  return NS_OK;
}

nsresult nsTerminalLine::Send(const char* aBuffer, uint32_t aCount, nsCommTimer& aTimer,
                              int aStopFd, uint32_t* aWritten) {
  uint32_t sent = 0;
  nsresult rv = NS_OK;
  while (sent < aCount) {
    const ssize_t length = write(mFd.get(), aBuffer + sent, aCount - sent);
    if (length > 0) {
      sent += static_cast<uint32_t>(length);
    } else if (length == 0 || errno == EAGAIN) {
      rv = WaitFor(POLLOUT, aTimer, aStopFd);
      if (NS_FAILED(rv)) break;
    } else if (errno != EINTR) {
      rv = ResultOf(errno);
      break;
    }
  }
  if (sent > 0) OnWritten();
  if (NS_FAILED(rv) && rv != NS_ERROR_NET_TIMEOUT) return rv;
  *aWritten = sent;
  return NS_OK;
}

nsresult nsTerminalLine::ReadFile(char* aBuffer, uint32_t aCount, uint32_t* aRead,
                                  const nsOverlappedRef& aRecord) {
  const Use use(*this);
  if (NS_FAILED(use.Result())) return use.Result();
  if (!(mAccess & nsPlatformComm::kGenericRead)) return NS_ERROR_FILE_ACCESS_DENIED;
  if (mIsOverlapped && !aRecord) return NS_ERROR_INVALID_ARG;
  nsCommTimer timer;
  {
    const nsAutoLock lock(mLock);
    timer = nsCommTimer::ForRead(mTimeouts, aCount);
  }
  int queued = 0;
  if (!mIsOverlapped || !timer.MayWait() ||
      (!mReads.IsBusy() && ioctl(mFd.get(), FIONREAD, &queued) == 0 &&
       queued >= static_cast<int64_t>(aCount)))
    return Receive(aBuffer, aCount, timer, -1, aRead);
  return mReads.Post(aRecord, [this, timer, aCount](const std::stop_token& aStop) mutable {
    nsOverlappedQueue::Outcome outcome;
    nsEventFd stop;
    outcome.mResult = stop.Open();
    if (NS_FAILED(outcome.mResult)) return outcome;
    const std::stop_callback wake(aStop, [&stop] { stop.Set(); });
    outcome.mBytes.resize(aCount);
    outcome.mResult = Receive(outcome.mBytes.data(), aCount, timer, stop.get(), &outcome.mCount);
    outcome.mBytes.resize(outcome.mCount);
    return outcome;
  });
}

nsresult nsTerminalLine::WriteFile(const char* aBuffer, uint32_t aCount, uint32_t* aWritten,
                                   const nsOverlappedRef& aRecord) {
  const Use use(*this);
  if (NS_FAILED(use.Result())) return use.Result();
  if (!(mAccess & nsPlatformComm::kGenericWrite)) return NS_ERROR_FILE_ACCESS_DENIED;
  if (mIsOverlapped && !aRecord) return NS_ERROR_INVALID_ARG;
  nsCommTimer timer;
  {
    const nsAutoLock lock(mLock);
    timer = nsCommTimer::ForWrite(mTimeouts, aCount);
  }
  if (!mIsOverlapped) return Send(aBuffer, aCount, timer, -1, aWritten);

  // What the kernel takes at once goes there, unless bytes wait to go before it.
  const nsAutoLock order(mWriteOrder);
  uint32_t taken = 0;
  if (!mWrites.IsBusy()) {
    ssize_t length;
    do {
      length = write(mFd.get(), aBuffer, aCount);
    } while (length < 0 && errno == EINTR);
    if (length < 0 && errno != EAGAIN) return ResultOf(errno);
    taken = static_cast<uint32_t>(std::max<ssize_t>(length, 0));
    if (taken > 0) OnWritten();
    if (taken == aCount) {
      *aWritten = taken;
      return NS_OK;
    }
  }
  const uint32_t left = aCount - taken;
  {
    const nsAutoLock lock(mLock);
    mPendingOut += left;
  }
  const nsresult rv =
      mWrites.Post(aRecord, [this, timer, taken, bytes = std::string(aBuffer + taken, left)](
                                const std::stop_token& aStop) mutable {
        nsOverlappedQueue::Outcome outcome;
        nsEventFd stop;
        outcome.mResult = stop.Open();
        if (NS_SUCCEEDED(outcome.mResult)) {
          const std::stop_callback wake(aStop, [&stop] { stop.Set(); });
          outcome.mResult = Send(bytes.data(), static_cast<uint32_t>(bytes.size()), timer,
                                 stop.get(), &outcome.mCount);
          outcome.mCount += taken;
        }
        const nsAutoLock lock(mLock);
        mPendingOut -= static_cast<uint32_t>(bytes.size());
        mLook.Set();
        return outcome;
      });
  if (rv != NS_ERROR_IN_PROGRESS) {
    const nsAutoLock lock(mLock);
    mPendingOut -= left;
  }
  return rv;
}

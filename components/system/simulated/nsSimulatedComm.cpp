#include "nsSimulatedComm.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <memory>

#include "nsOverlappedQueue.h"
#include "nsPlatformCommTimer.h"

using Port = nsPlatformCommPort;

namespace {

// Names of ports sort by their numbers.
unsigned NumberOf(const std::string& aName) {
  unsigned number = 0;
  if (aName.starts_with("COM"))
    (void)std::from_chars(aName.data() + 3, aName.data() + aName.size(), number);
  return number;
}

}  // namespace

// All ports of the machine, under one lock: cables join them. Lives as long as a port is open.
class nsSimulatedComm::Lines {
 public:
  struct Line {
    nsSimulatedSerial mFacts;
    bool mPresent = true;
    OpenLine* mUser = nullptr;
    nsCommDCB mDCB;
    std::string mInput, mWritten, mHeard;
    std::string mUnsaid;  // of what it says by itself
    bool mDTR = false, mRTS = false, mBreak = false;
    bool mStopped = false;  // by XOFF
    bool mHolding = false;  // has asked the other end to stop
    uint32_t mErrors = 0;
    uint32_t mEvents = 0;  // since the mask was set or a wait took them
  };
  using LineRef = std::shared_ptr<Line>;

  LineRef Find(const std::string& aName) const NS_REQUIRES(mLock) {
    const auto line = mByName.find(aName);
    return line != mByName.end() && line->second->mPresent ? line->second : nullptr;
  }

  void Happened(Line& aLine, uint32_t aEvents) NS_REQUIRES(mLock) {
    aLine.mEvents |= aEvents;
    mChanged.NotifyAll();
  }

  // Bytes reach the port.
  void Deliver(Line& aLine, std::string_view aBytes) NS_REQUIRES(mLock) {
    if (!aLine.mUser || !aLine.mPresent) return;
    uint32_t events = 0;
    for (const char byte : aBytes) {
      if ((aLine.mDCB.mFlags & nsCommDCB::kOutX) &&
          (byte == aLine.mDCB.mXoffChar || byte == aLine.mDCB.mXonChar)) {
        aLine.mStopped = byte == aLine.mDCB.mXoffChar;
      } else if (aLine.mInput.size() >= aLine.mFacts.mQueue) {
        aLine.mErrors |= Port::kCeRxOver;
        events |= Port::kEvErr;
      } else {
        aLine.mInput += byte;
        events |= Port::kEvRxChar;
      }
    }
    if (aLine.mInput.size() * 4 >= size_t{aLine.mFacts.mQueue} * 3) Hold(aLine, true);
    Happened(aLine, events);
  }

  std::string Take(Line& aLine, size_t aCount) NS_REQUIRES(mLock) {
    std::string bytes = aLine.mInput.substr(0, aCount);
    aLine.mInput.erase(0, bytes.size());
    if (aLine.mInput.size() * 2 <= aLine.mFacts.mQueue) Hold(aLine, false);
    SayMore(aLine);
    return bytes;
  }

  // A device that says something by itself goes on where there is room.
  void SayMore(Line& aLine) NS_REQUIRES(mLock) {
    const std::string_view more(
        aLine.mUnsaid.data(),
        std::min(aLine.mUnsaid.size(), aLine.mFacts.mQueue - aLine.mInput.size()));
    if (more.empty()) return;
    Deliver(aLine, more);
    aLine.mUnsaid.erase(0, more.size());
  }

  bool IsHeld(const Line& aLine) const NS_REQUIRES(mLock) {
    return ((aLine.mDCB.mFlags & nsCommDCB::kOutxCtsFlow) && !aLine.mFacts.mCTS) ||
           ((aLine.mDCB.mFlags & nsCommDCB::kOutX) && aLine.mStopped);
  }

  // Bytes leave the port.
  void Transmit(Line& aLine, std::string_view aBytes) NS_REQUIRES(mLock) {
    constexpr size_t kMemory = 4096;
    aLine.mWritten += aBytes;
    Happened(aLine, Port::kEvTxEmpty);
    if (const LineRef peer = PeerOf(aLine)) {
      const nsCommDCB &mine = aLine.mDCB, &theirs = peer->mDCB;
      if (mine.mBaudRate != theirs.mBaudRate || mine.mByteSize != theirs.mByteSize) {
        peer->mErrors |= Port::kCeFrame;
        Happened(*peer, Port::kEvErr);
        return;
      }
      if (mine.mParity != theirs.mParity) {
        peer->mErrors |= Port::kCeRxParity;
        Happened(*peer, Port::kEvErr);
      }
      Deliver(*peer, aBytes);
    }
    if (aLine.mFacts.mEcho) Deliver(aLine, aBytes);
    if (aLine.mFacts.mAnswers.empty()) return;
    aLine.mHeard += aBytes;
    while (Answer(aLine)) {
    }
    if (aLine.mHeard.size() > kMemory) aLine.mHeard.erase(0, aLine.mHeard.size() - kMemory);
  }

  void SetLines(Line& aLine, const nsSimulatedLines& aLines) NS_REQUIRES(mLock) {
    uint32_t events = 0;
    const auto set = [&](const std::optional<bool>& aNew, bool& aState, uint32_t aEvent) {
      if (!aNew || *aNew == aState) return;
      aState = *aNew;
      events |= aEvent;
    };
    set(aLines.mCTS, aLine.mFacts.mCTS, Port::kEvCts);
    set(aLines.mDSR, aLine.mFacts.mDSR, Port::kEvDsr);
    set(aLines.mRing, aLine.mFacts.mRing, Port::kEvRing);
    set(aLines.mDCD, aLine.mFacts.mDCD, Port::kEvRlsd);
    Happened(aLine, events);
  }

  void SetOutputs(Line& aLine, std::optional<bool> aDTR, std::optional<bool> aRTS)
      NS_REQUIRES(mLock) {
    const bool ready = aDTR.value_or(false) && !aLine.mDTR;
    if (aDTR) aLine.mDTR = *aDTR;
    if (ready) {
      aLine.mUnsaid = aLine.mFacts.mSays;
      SayMore(aLine);
    }
    if (aRTS) aLine.mRTS = *aRTS;
    if (const LineRef peer = PeerOf(aLine)) SetLines(*peer, {aRTS, aDTR, std::nullopt, aDTR});
  }

  void SetBreak(Line& aLine, bool aOn) NS_REQUIRES(mLock) {
    if (aOn && !aLine.mBreak)
      if (const LineRef peer = PeerOf(aLine)) HearBreak(*peer);
    aLine.mBreak = aOn;
  }

  void HearBreak(Line& aLine) NS_REQUIRES(mLock) {
    if (!aLine.mUser) return;
    aLine.mErrors |= Port::kCeBreak;
    Happened(aLine, Port::kEvBreak);
  }

  nsMutex mLock;
  nsCondition mChanged;
  std::map<std::string, LineRef> mByName NS_GUARDED_BY(mLock);

 private:
  LineRef PeerOf(const Line& aLine) const NS_REQUIRES(mLock) {
    return aLine.mFacts.mJoined.empty() ? nullptr : Find(aLine.mFacts.mJoined);
  }

  // The queue is nearly full, or has room again.
  void Hold(Line& aLine, bool aHold) NS_REQUIRES(mLock) {
    if (aLine.mHolding == aHold) return;
    aLine.mHolding = aHold;
    if ((aLine.mDCB.mFlags & nsCommDCB::kRtsControl) == nsCommDCB::kRtsHandshake)
      SetOutputs(aLine, std::nullopt, !aHold);
    if (aLine.mDCB.mFlags & nsCommDCB::kInX)
      if (const LineRef peer = PeerOf(aLine))
        Deliver(*peer, {aHold ? &aLine.mDCB.mXoffChar : &aLine.mDCB.mXonChar, 1});
  }

  // The first answer to what the device has heard, if there is one.
  bool Answer(Line& aLine) NS_REQUIRES(mLock) {
    nsSimulatedSerial::Answer* first = nullptr;
    size_t end = std::string::npos;
    for (auto& answer : aLine.mFacts.mAnswers) {
      const size_t found = aLine.mHeard.find(answer.mTo);
      if (found == std::string::npos || found + answer.mTo.size() >= end) continue;
      first = &answer;
      end = found + answer.mTo.size();
    }
    if (!first) return false;
    aLine.mHeard.erase(0, end);
    if (first->mIgnore > 0)
      --first->mIgnore;
    else
      Deliver(aLine, first->mSay);
    return true;
  }
};

// An open port.
class nsSimulatedComm::OpenLine final : public nsPlatformCommPort,
                                        public nsSimulatedPort,
                                        public std::enable_shared_from_this<OpenLine> {
 public:
  OpenLine(nsSimulatedCallsRef aCalls, std::shared_ptr<Lines> aLines, Lines::LineRef aLine,
           uint32_t aAccess, bool aOverlapped)
      : nsSimulatedPort(std::move(aCalls), "Comm"),
        mLines(std::move(aLines)),
        mLine(std::move(aLine)),
        mAccess(aAccess),
        mIsOverlapped(aOverlapped) {}
  ~OpenLine() override { (void)End(); }

  nsresult GetCommConfig(nsCommConfig* aConfig, uint32_t aSize) override {
    return With("GetCommConfig", [&] {
      if (aSize < nsCommConfig::kSize) return NS_ERROR_INVALID_ARG;
      *aConfig = {nsCommConfig::kSize, mLine->mDCB};
      return NS_OK;
    });
  }
  nsresult GetCommState(nsCommDCB* aDCB) override {
    return With("GetCommState", [&] {
      *aDCB = mLine->mDCB;
      return NS_OK;
    });
  }
  nsresult SetCommConfig(const nsCommConfig& aConfig, uint32_t aSize) override {
    return With("SetCommConfig", [&]() NS_REQUIRES(mLines->mLock) {
      if (aSize < nsCommConfig::kSize) return NS_ERROR_INVALID_ARG;
      const nsCommDCB& dcb = aConfig.mDCB;
      if (dcb.mBaudRate > mLine->mFacts.mHighest.value_or(UINT32_MAX)) return NS_ERROR_INVALID_ARG;
      mLine->mDCB = dcb;
      char text[96];
      std::snprintf(text, sizeof text,
                    "SetCommConfig %s %u baud %u bits parity %u stop %u flags %x",
                    mLine->mFacts.mInfo.mName.c_str(), dcb.mBaudRate, dcb.mByteSize, dcb.mParity,
                    dcb.mStopBits, dcb.mFlags);
      Record(text);
      const uint32_t rts = dcb.mFlags & nsCommDCB::kRtsControl;
      mLines->SetOutputs(*mLine, std::nullopt,
                         rts == nsCommDCB::kRtsHandshake ? !mLine->mHolding : rts != 0);
      mLines->mChanged.NotifyAll();
      return NS_OK;
    });
  }
  nsresult SetCommTimeouts(const nsCommTimeouts& aTimeouts) override {
    return With("SetCommTimeouts", [&] {
      mTimeouts = aTimeouts;
      return NS_OK;
    });
  }
  nsresult SetCommMask(uint32_t aMask) override {
    return With("SetCommMask", [&] {
      mMask = aMask;
      mLine->mEvents = 0;
      EndWait(NS_OK, 0);
      return NS_OK;
    });
  }
  nsresult GetCommMask(uint32_t* aMask) override {
    return With("GetCommMask", [&] {
      *aMask = mMask;
      return NS_OK;
    });
  }
  nsresult PurgeComm(uint32_t aFlags) override {
    nsresult rv = With("PurgeComm", [&]() NS_REQUIRES(mLines->mLock) {
      if (aFlags & kPurgeRxClear) {
        mLine->mUnsaid.clear();
        (void)mLines->Take(*mLine, mLine->mInput.size());
      }
      return NS_OK;
    });
    if (NS_FAILED(rv)) return rv;
    if (aFlags & kPurgeTxAbort) mWrites.Abort();
    if (aFlags & kPurgeRxAbort) mReads.Abort();
    return NS_OK;
  }
  nsresult EscapeCommFunction(uint32_t aFunction) override {
    return With("EscapeCommFunction", [&]() NS_REQUIRES(mLines->mLock) {
      Record("EscapeCommFunction " + mLine->mFacts.mInfo.mName + " " + std::to_string(aFunction));
      switch (aFunction) {
        case kSetXoff:
        case kSetXon:
          mLine->mStopped = aFunction == kSetXoff;
          mLines->mChanged.NotifyAll();
          return NS_OK;
        case kSetRts:
        case kClrRts:
          mLines->SetOutputs(*mLine, std::nullopt, aFunction == kSetRts);
          return NS_OK;
        case kSetDtr:
        case kClrDtr:
          mLines->SetOutputs(*mLine, aFunction == kSetDtr, std::nullopt);
          return NS_OK;
        case kSetBreak:
        case kClrBreak:
          mLines->SetBreak(*mLine, aFunction == kSetBreak);
          return NS_OK;
        default:
          return NS_ERROR_INVALID_ARG;
      }
    });
  }
  nsresult GetCommModemStatus(uint32_t* aStatus) override {
    return With("GetCommModemStatus", [&] {
      const nsSimulatedSerial& facts = mLine->mFacts;
      *aStatus = (facts.mCTS ? kCtsOn : 0) | (facts.mDSR ? kDsrOn : 0) |
                 (facts.mRing ? kRingOn : 0) | (facts.mDCD ? kRlsdOn : 0);
      return NS_OK;
    });
  }
  nsresult ClearCommError(uint32_t* aErrors, nsCommStat* aStat) override {
    return With("ClearCommError", [&] {
      *aErrors = std::exchange(mLine->mErrors, 0);
      nsCommStat stat;
      stat.mInQueue = static_cast<uint32_t>(mLine->mInput.size());
      stat.mOutQueue = mPendingOut;
      if (mPendingOut > 0) {
        stat.mFlags = nsCommStat::kTxim;
        if (!mLine->mFacts.mCTS) stat.mFlags |= nsCommStat::kCtsHold;
        if (mLine->mStopped) stat.mFlags |= nsCommStat::kXoffHold;
      }
      *aStat = stat;
      return NS_OK;
    });
  }
  nsresult WaitCommEvent(const nsOverlappedRef& aRecord) override {
    return With("WaitCommEvent", [&] {
      if (!aRecord || mMask == 0 || mWait.lock()) return NS_ERROR_INVALID_ARG;
      mWait = aRecord;
      aRecord->Begin([self = shared_from_this(), wait = ++mWaitNumber] { self->CarryOut(wait); });
      return NS_ERROR_IN_PROGRESS;
    });
  }
  nsresult ReadFile(char* aBuffer, uint32_t aCount, uint32_t* aRead,
                    const nsOverlappedRef& aRecord) override {
    nsCommTimer timer;
    bool pends = false;
    nsresult rv = With("ReadFile", [&] {
      if (!(mAccess & nsPlatformComm::kGenericRead)) return NS_ERROR_FILE_ACCESS_DENIED;
      if (mIsOverlapped && !aRecord) return NS_ERROR_INVALID_ARG;
      timer = nsCommTimer::ForRead(mTimeouts, aCount);
      pends = mIsOverlapped && timer.MayWait() && mLine->mInput.size() < aCount;
      return NS_OK;
    });
    if (NS_FAILED(rv)) return rv;
    if (pends)
      return mReads.Post(aRecord, [this, timer, aCount](const std::stop_token& aStop) {
        nsOverlappedQueue::Outcome outcome;
        outcome.mResult = Receive(aCount, timer, aStop, &outcome.mBytes);
        outcome.mCount = static_cast<uint32_t>(outcome.mBytes.size());
        return outcome;
      });
    std::string bytes;
    rv = Receive(aCount, timer, {}, &bytes);
    if (NS_FAILED(rv)) return rv;
    std::ranges::copy(bytes, aBuffer);
    *aRead = static_cast<uint32_t>(bytes.size());
    return NS_OK;
  }
  nsresult WriteFile(const char* aBuffer, uint32_t aCount, uint32_t* aWritten,
                     const nsOverlappedRef& aRecord) override {
    nsCommTimer timer;
    bool pends = false;
    nsresult rv = With("WriteFile", [&]() NS_REQUIRES(mLines->mLock) {
      if (!(mAccess & nsPlatformComm::kGenericWrite)) return NS_ERROR_FILE_ACCESS_DENIED;
      if (mIsOverlapped && !aRecord) return NS_ERROR_INVALID_ARG;
      timer = nsCommTimer::ForWrite(mTimeouts, aCount);
      pends = mIsOverlapped && (mPendingOut > 0 || mLines->IsHeld(*mLine));
      if (pends) mPendingOut += aCount;
      return NS_OK;
    });
    if (NS_FAILED(rv)) return rv;
    if (!pends) return Send({aBuffer, aCount}, timer, {}, aWritten);
    rv = mWrites.Post(
        aRecord, [this, timer, bytes = std::string(aBuffer, aCount)](const std::stop_token& aStop) {
          nsOverlappedQueue::Outcome outcome;
          outcome.mResult = Send(bytes, timer, aStop, &outcome.mCount);
          const nsAutoLock lock(mLines->mLock);
          mPendingOut -= static_cast<uint32_t>(bytes.size());
          return outcome;
        });
    return rv;
  }
  nsresult CloseHandle() override {
    if (nsresult rv = Enter("CloseHandle"); NS_FAILED(rv)) return rv;
    Record("CloseHandle " + mLine->mFacts.mInfo.mName);
    return End();
  }

  /// Within the lines' lock: the device has gone.
  void OnRemoved() { EndWait(NS_ERROR_NOT_AVAILABLE, 0); }

 private:
  nsresult State() const {
    return mClosed ? NS_ERROR_ABORT : !mLine->mPresent ? NS_ERROR_NOT_AVAILABLE : NS_OK;
  }

  template <class Then>
  nsresult With(const char* aMethod, Then aThen) {
    if (nsresult rv = Enter(aMethod); NS_FAILED(rv)) return rv;
    const nsAutoLock lock(mLines->mLock);
    const nsresult state = State();
    return NS_FAILED(state) ? state : aThen();
  }

  // Waits until aDone, at most to the deadline. False when the time is over.
  template <class Done>
  bool Until(nsAutoLock<nsMutex>& aLock, const nsCommTimer& aTimer, const std::stop_token& aStop,
             Done aDone) NS_REQUIRES(mLines->mLock) {
    const auto ready = [&]() NS_REQUIRES(mLines->mLock) {
      return aStop.stop_requested() || NS_FAILED(State()) || aDone();
    };
    if (!aTimer.MayWait()) return ready();
    if (const auto deadline = aTimer.Deadline())
      return mLines->mChanged.WaitUntil(aLock, *deadline, ready);
    mLines->mChanged.Wait(aLock, ready);
    return true;
  }

  nsresult Receive(uint32_t aCount, nsCommTimer aTimer, const std::stop_token& aStop,
                   std::string* aBytes) {
    const std::stop_callback wake(aStop, [this] { Wake(); });
    nsAutoLock lock(mLines->mLock);
    while (aBytes->size() < aCount) {
      if (!Until(lock, aTimer, aStop, [this] { return !mLine->mInput.empty(); })) break;
      if (const nsresult state = State(); NS_FAILED(state)) return state;
      if (aStop.stop_requested()) return NS_ERROR_ABORT;
      *aBytes += mLines->Take(*mLine, aCount - aBytes->size());
      if (aTimer.Moved()) break;
    }
    return NS_OK;
  }

  nsresult Send(std::string_view aBytes, const nsCommTimer& aTimer, const std::stop_token& aStop,
                uint32_t* aWritten) {
    const std::stop_callback wake(aStop, [this] { Wake(); });
    nsAutoLock lock(mLines->mLock);
    const bool sent = Until(lock, aTimer, aStop, [this]() NS_REQUIRES(mLines->mLock) {
      return !mLines->IsHeld(*mLine);
    });
    if (const nsresult state = State(); NS_FAILED(state)) return state;
    if (aStop.stop_requested()) return NS_ERROR_ABORT;
    if (sent) mLines->Transmit(*mLine, aBytes);
    *aWritten = sent ? static_cast<uint32_t>(aBytes.size()) : 0;
    return NS_OK;
  }

  void Wake() {
    const nsAutoLock lock(mLines->mLock);
    mLines->mChanged.NotifyAll();
  }

  // On the thread of who waits.
  void CarryOut(uint64_t aWait) {
    nsAutoLock lock(mLines->mLock);
    mLines->mChanged.Wait(
        lock, [&] { return mWaitNumber != aWait || mWait.expired() || (mLine->mEvents & mMask); });
    if (mWaitNumber == aWait) EndWait(NS_OK, std::exchange(mLine->mEvents, 0) & mMask);
  }

  void EndWait(nsresult aResult, uint32_t aEvents) {
    ++mWaitNumber;
    if (const nsOverlappedRef record = std::exchange(mWait, {}).lock())
      record->End(aResult, aEvents);
    mLines->mChanged.NotifyAll();
  }

  nsresult End() {
    {
      const nsAutoLock lock(mLines->mLock);
      if (mClosed) return NS_ERROR_ABORT;
      mClosed = true;
      mLine->mUser = nullptr;
      mLine->mInput.clear();
      EndWait(NS_ERROR_ABORT, 0);
      mLines->SetOutputs(*mLine, false, false);
    }
    mReads.Close();
    mWrites.Close();
    return NS_OK;
  }

  const std::shared_ptr<Lines> mLines;
  const Lines::LineRef mLine;
  const uint32_t mAccess;
  const bool mIsOverlapped;
  bool mClosed = false;
  nsCommTimeouts mTimeouts;
  uint32_t mMask = 0;
  uint32_t mPendingOut = 0;
  std::weak_ptr<nsOverlapped> mWait;
  uint64_t mWaitNumber = 0;
  nsOverlappedQueue mReads, mWrites;
};

// ---- The machine

nsSimulatedComm::nsSimulatedComm(nsSimulatedCallsRef aCalls)
    : nsSimulatedPort(aCalls, "Comm"),
      mAllCalls(std::move(aCalls)),
      mLines(std::make_shared<Lines>()) {}
nsSimulatedComm::~nsSimulatedComm() = default;

void nsSimulatedComm::Insert(const std::string& aName, nsSimulatedSerial aPort) {
  Remove(aName);
  const nsAutoLock lock(mLines->mLock);
  aPort.mInfo.mName = aName;
  auto line = std::make_shared<Lines::Line>();
  line->mDCB = aPort.mDCB;
  line->mFacts = std::move(aPort);
  mLines->mByName[aName] = std::move(line);
}

void nsSimulatedComm::Remove(const std::string& aName) {
  const nsAutoLock lock(mLines->mLock);
  const Lines::LineRef line = mLines->Find(aName);
  if (!line) return;
  line->mPresent = false;
  if (line->mUser) line->mUser->OnRemoved();
  mLines->mChanged.NotifyAll();
}

void nsSimulatedComm::SetLines(const std::string& aName, const nsSimulatedLines& aLines) {
  const nsAutoLock lock(mLines->mLock);
  if (const auto line = mLines->Find(aName)) mLines->SetLines(*line, aLines);
}

void nsSimulatedComm::Say(const std::string& aName, std::string_view aBytes) {
  const nsAutoLock lock(mLines->mLock);
  if (const auto line = mLines->Find(aName)) mLines->Deliver(*line, aBytes);
}

void nsSimulatedComm::Break(const std::string& aName) {
  const nsAutoLock lock(mLines->mLock);
  if (const auto line = mLines->Find(aName)) mLines->HearBreak(*line);
}

void nsSimulatedComm::Damage(const std::string& aName, uint32_t aError) {
  const nsAutoLock lock(mLines->mLock);
  const auto line = mLines->Find(aName);
  if (!line || !line->mUser) return;
  line->mErrors |= aError;
  mLines->Happened(*line, Port::kEvErr);
}

std::string nsSimulatedComm::TakeWritten(const std::string& aName) {
  const nsAutoLock lock(mLines->mLock);
  const auto line = mLines->Find(aName);
  return line ? std::exchange(line->mWritten, {}) : std::string();
}

nsCommDCB nsSimulatedComm::DCB(const std::string& aName) const {
  const nsAutoLock lock(mLines->mLock);
  const auto line = mLines->Find(aName);
  return line ? line->mDCB : nsCommDCB();
}

nsSimulatedComm::Outputs nsSimulatedComm::OutputsOf(const std::string& aName) const {
  const nsAutoLock lock(mLines->mLock);
  const auto line = mLines->Find(aName);
  return line ? Outputs{line->mDTR, line->mRTS, line->mBreak} : Outputs();
}

nsresult nsSimulatedComm::ListPorts(std::vector<nsCommPortInfo>* aPorts) {
  if (nsresult rv = Enter("ListPorts"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLines->mLock);
  std::vector<nsCommPortInfo> ports;
  for (const auto& [name, line] : mLines->mByName)
    if (line->mPresent) ports.push_back(line->mFacts.mInfo);
  std::ranges::sort(ports, {}, [](const nsCommPortInfo& aPort) { return NumberOf(aPort.mName); });
  *aPorts = std::move(ports);
  return NS_OK;
}

nsresult nsSimulatedComm::ReadDefaultCommConfig(const std::string& aName, nsCommConfig* aConfig,
                                                uint32_t aSize) {
  if (nsresult rv = Enter("ReadDefaultCommConfig"); NS_FAILED(rv)) return rv;
  if (aSize < nsCommConfig::kSize) return NS_ERROR_INVALID_ARG;
  const nsAutoLock lock(mLines->mLock);
  const auto line = mLines->Find(aName);
  if (!line) return NS_ERROR_FILE_NOT_FOUND;
  *aConfig = {nsCommConfig::kSize, line->mFacts.mDCB};
  return NS_OK;
}

nsresult nsSimulatedComm::OpenPort(const std::string& aFileName, uint32_t aAccess, uint32_t,
                                   uint32_t, uint32_t aFlags, nsPlatformCommPortRef* aPort) {
  if (nsresult rv = Enter("OpenPort"); NS_FAILED(rv)) return rv;
  constexpr std::string_view kPrefix = "\\\\.\\";
  if (!aFileName.starts_with(kPrefix)) return NS_ERROR_FILE_NOT_FOUND;
  const std::string name = aFileName.substr(kPrefix.size());
  nsAutoLock lock(mLines->mLock);
  const auto line = mLines->Find(name);
  if (!line) return NS_ERROR_FILE_NOT_FOUND;
  if (line->mUser || !line->mFacts.mUser.empty()) return NS_ERROR_FILE_IS_LOCKED;
  if (!line->mFacts.mMayOpen) return NS_ERROR_FILE_ACCESS_DENIED;
  const auto port =
      std::make_shared<OpenLine>(mAllCalls, mLines, line, aAccess, (aFlags & kFlagOverlapped) != 0);
  line->mUser = port.get();
  line->mInput.clear();
  line->mHeard.clear();
  line->mErrors = line->mEvents = 0;
  line->mStopped = line->mHolding = false;
  Record("OpenPort " + name);
  lock.Unlock();  // what is replaced takes it too, when it closes
  *aPort = port;
  return NS_OK;
}

// ---- Machine files

namespace {

int HexOf(char aDigit) {
  if (aDigit >= '0' && aDigit <= '9') return aDigit - '0';
  if (aDigit >= 'a' && aDigit <= 'f') return aDigit - 'a' + 10;
  return aDigit >= 'A' && aDigit <= 'F' ? aDigit - 'A' + 10 : -1;
}

// Pairs of hexadecimal digits, with blanks between them or not.
std::string ReadHex(const nsMachineValue& aValue) {
  std::string bytes;
  int high = -1;
  for (const char digit : aValue.AsString()) {
    if (digit == ' ' && high < 0) continue;
    const int value = HexOf(digit);
    if (value < 0) aValue.Fail("must be pairs of hexadecimal digits");
    if (high >= 0) bytes += static_cast<char>(high * 16 + value);
    high = high < 0 ? value : -1;
  }
  if (high >= 0) aValue.Fail("must be pairs of hexadecimal digits");
  return bytes;
}

// A text under aKey, or bytes under the key with "Bytes" behind it; nothing when neither is there.
std::optional<std::string> ReadBytes(nsMachineObject& aObject, const std::string& aKey) {
  const nsMachineValue* const text = aObject.Optional(aKey);
  const nsMachineValue* const bytes = aObject.Optional(aKey + "Bytes");
  if (text && bytes) bytes->Fail("stands beside \"" + aKey + "\"");
  if (text) return text->AsString();
  if (bytes) return ReadHex(*bytes);
  return std::nullopt;
}

std::string ReadWholeFile(const nsMachineValue& aValue) {
  const std::string path = aValue.AsPath();
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "rb"), std::fclose);
  if (!file) aValue.Fail("the file \"" + path + "\" can't be read");
  std::string bytes;
  char buffer[4096];
  while (const size_t length = std::fread(buffer, 1, sizeof buffer, file.get()))
    bytes.append(buffer, length);
  if (std::ferror(file.get())) aValue.Fail("the file \"" + path + "\" can't be read");
  return bytes;
}

nsSimulatedLines ReadLines(nsMachineObject& aObject) {
  const auto line = [&](const char* aKey) -> std::optional<bool> {
    const nsMachineValue* const value = aObject.Optional(aKey);
    return value ? std::optional(value->AsBoolean()) : std::nullopt;
  };
  return {line("cts"), line("dsr"), line("ring"), line("dcd")};
}

std::string ReadName(nsMachineObject& aObject) {
  const nsMachineValue& name = aObject.Required("name");
  const unsigned number = NumberOf(name.AsString());
  if (number > 255 || name.AsString() != "COM" + std::to_string(number))
    name.Fail("must be a name from \"COM0\" to \"COM255\"");
  return name.AsString();
}

std::vector<nsSimulatedSerial> ReadPorts(const nsMachineValue& aValue) {
  std::vector<nsSimulatedSerial> ports;
  for (const nsMachineValue& element : aValue.AsArray())
    element.AsObject([&](nsMachineObject& aObject) {
      nsSimulatedSerial port;
      port.mInfo.mName = ReadName(aObject);
      for (const nsSimulatedSerial& other : ports)
        if (other.mInfo.mName == port.mInfo.mName)
          element.FailRepeated("serial port", port.mInfo.mName);
      const auto text = [&](const char* aKey, std::string& aText) {
        if (const auto* value = aObject.Optional(aKey)) aText = value->AsString();
      };
      text("device", port.mInfo.mDevice);
      text("driver", port.mInfo.mDriver);
      text("maker", port.mInfo.mMaker);
      text("product", port.mInfo.mProduct);
      text("identity", port.mInfo.mIdentity);
      text("joined", port.mJoined);
      text("usedBy", port.mUser);
      if (const auto* mayOpen = aObject.Optional("mayOpen")) port.mMayOpen = mayOpen->AsBoolean();
      if (const auto* echo = aObject.Optional("echo")) port.mEcho = echo->AsBoolean();
      if (const auto* says = aObject.Optional("says")) port.mSays = ReadWholeFile(*says);
      if (const auto* queue = aObject.Optional("queue"))
        port.mQueue = queue->AsInteger<uint32_t>(1, 1 << 20);
      if (const auto* highest = aObject.Optional("highestSpeed"))
        port.mHighest = highest->AsInteger<uint32_t>(1);
      if (const auto* parity = aObject.Optional("parity"))
        port.mDCB.mParity = parity->AsOneOf<uint8_t>({{"none", nsCommDCB::kNoParity},
                                                      {"odd", nsCommDCB::kOddParity},
                                                      {"even", nsCommDCB::kEvenParity},
                                                      {"mark", nsCommDCB::kMarkParity},
                                                      {"space", nsCommDCB::kSpaceParity}});
      const nsSimulatedLines lines = ReadLines(aObject);
      port.mCTS = lines.mCTS.value_or(port.mCTS);
      port.mDSR = lines.mDSR.value_or(port.mDSR);
      port.mRing = lines.mRing.value_or(port.mRing);
      port.mDCD = lines.mDCD.value_or(port.mDCD);
      if (const auto* answers = aObject.Optional("answers"))
        for (const nsMachineValue& item : answers->AsArray())
          item.AsObject([&](nsMachineObject& aAnswer) {
            nsSimulatedSerial::Answer answer;
            answer.mTo = ReadBytes(aAnswer, "to").value_or("");
            if (answer.mTo.empty()) aAnswer.Fail("\"to\" or \"toBytes\" must not be empty");
            answer.mSay = ReadBytes(aAnswer, "say").value_or("");
            if (const auto* ignore = aAnswer.Optional("ignore"))
              answer.mIgnore = ignore->AsInteger<uint32_t>();
            port.mAnswers.push_back(std::move(answer));
          });
      ports.push_back(std::move(port));
    });
  return ports;
}

}  // namespace

void nsSimulatedComm::ReadFacts(const nsMachineValue& aValue) {
  for (nsSimulatedSerial& port : ReadPorts(aValue)) {
    const std::string name = port.mInfo.mName;
    Insert(name, std::move(port));
  }
}

std::function<void()> nsSimulatedComm::ReadChange(const nsMachineValue& aValue) {
  std::vector<std::function<void()>> steps;
  aValue.AsObject([&](nsMachineObject& aObject) {
    if (const auto* removed = aObject.Optional("remove"))
      for (const nsMachineValue& name : removed->AsArray())
        steps.push_back([this, text = name.AsString()] { Remove(text); });
    if (const auto* inserted = aObject.Optional("insert"))
      for (const nsSimulatedSerial& port : ReadPorts(*inserted))
        steps.push_back([this, port] { Insert(port.mInfo.mName, port); });
    if (const auto* set = aObject.Optional("set"))
      for (const nsMachineValue& element : set->AsArray())
        element.AsObject([&](nsMachineObject& aPort) {
          const std::string name = ReadName(aPort);
          steps.push_back([this, name, lines = ReadLines(aPort)] { SetLines(name, lines); });
          if (const auto* value = aPort.Optional("break"); value && value->AsBoolean())
            steps.push_back([this, name] { Break(name); });
          if (const auto* value = aPort.Optional("error")) {
            const auto error = value->AsOneOf<uint32_t>({{"parity", Port::kCeRxParity},
                                                         {"framing", Port::kCeFrame},
                                                         {"overrun", Port::kCeOverrun}});
            steps.push_back([this, name, error] { Damage(name, error); });
          }
          if (const auto bytes = ReadBytes(aPort, "say"))
            steps.push_back([this, name, bytes = *bytes] { Say(name, bytes); });
        });
  });
  return [steps] {
    for (const auto& step : steps) step();
  };
}

#include "nsDvbReader.h"

#include <fcntl.h>
#include <linux/dvb/dmx.h>
#include <poll.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <chrono>

#include "nsDvbCrc.h"
#include "nsErrno.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kSectionBuffer = 64 * 1024;
constexpr size_t kPacketBuffer = 4 * 1024 * 1024;  // a second of the fastest stream
constexpr size_t kMostSection = 4096;
constexpr uint8_t kSync = 0x47;
constexpr uint8_t kTimeOffsetTable = 0x73;  // a short section that has a checksum all the same
// A driver that has no room for a further one must not be asked: the kernel keeps the refused PID
// in its list, and falls over it when the descriptor is closed. Each has room for these; a service
// has half a dozen.
constexpr size_t kMostPids = 16;
constexpr int kPatience = 1000;  // ms, where the system does not tell of removals

}  // namespace

// ---- What both kinds share

void nsDvbReader::Enlist() {
  mSession->mReaders.push_back(this);
  mIsEnlisted = true;
}

nsDvbReader::~nsDvbReader() {
  if (!mIsEnlisted) return;
  const nsAutoLock lock(mSession->mLock);
  mSession->mReaders.remove(this);
}

nsresult nsDvbReader::OpenDemux(size_t aBuffer) {
  nsUniqueFd fd(open(mSession->mDevice.mDemux.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  if (!fd) {
    // The device has no filter left.
    if (errno == EMFILE || errno == EBUSY || errno == ENOMEM) return NS_ERROR_OUT_OF_MEMORY;
    return mSession->Failed(errno == ENOENT ? ENODEV : errno);
  }
  // What a driver does not give is what it has.
  (void)ioctl(fd.get(), DMX_SET_BUFFER_SIZE, aBuffer);
  mFd = std::move(fd);
  return NS_OK;
}

void nsDvbReader::Restart() {
  if (mFd) (void)ioctl(mFd.get(), DMX_START);  // one without a filter has nothing to throw away
  mIsRestarted = true;
}

void nsDvbReader::End() {
  const nsAutoLock lock(mSession->mLock);
  mIsCancelled = true;
  Wake();
}

template <class Prepare, class Take>
nsresult nsDvbReader::Read(uint32_t aTimeout, Prepare&& aPrepare, Take&& aTake) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(aTimeout);
  nsAutoLock lock(mSession->mLock);
  mIsReading = true;
  ++mSession->mReads;
  nsresult rv = NS_ERROR_IN_PROGRESS;
  while (rv == NS_ERROR_IN_PROGRESS) {
    rv = mIsCancelled ? NS_ERROR_ABORT : mSession->State();
    if (NS_SUCCEEDED(rv)) rv = aPrepare();
    if (NS_FAILED(rv)) break;
    const int fd = mFd.get(), removals = mSession->mRemovals.get();
    lock.Unlock();
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    const bool isLast = aTimeout != nsPlatformPacketReader::kNoTimeout && left <= 0;
    int wait = aTimeout == nsPlatformPacketReader::kNoTimeout ? -1
               : isLast                                       ? 0
                        : static_cast<int>(std::min<int64_t>(left, INT32_MAX));
    if (removals < 0 && (wait < 0 || wait > kPatience)) wait = kPatience;
    pollfd polled[] = {{fd, POLLIN, 0}, {mWake.get(), POLLIN, 0}, {removals, POLLIN, 0}};
    const int count = poll(polled, 3, wait);
    rv = NS_ERROR_IN_PROGRESS;
    int error = 0;
    if (count > 0 && (polled[0].revents & POLLIN)) {
      rv = aTake(fd);
      error = errno;
    } else if (count > 0 && polled[0].revents) {
      rv = NS_ERROR_FAILURE;
      error = ENODEV;
    }
    lock.Lock();
    if (polled[1].revents) (void)mWake.Take();
    if (rv == NS_ERROR_FAILURE) rv = mSession->Failed(error);
    if (rv != NS_ERROR_IN_PROGRESS) break;
    if (polled[2].revents || (removals < 0 && count == 0)) mSession->Look();
    if (isLast) {
      rv = mIsCancelled ? NS_ERROR_ABORT : mSession->State();
      if (NS_SUCCEEDED(rv)) rv = NS_ERROR_NET_TIMEOUT;
    }
  }
  mIsReading = false;
  if (--mSession->mReads == 0) mSession->mIsIdle.NotifyAll();
  return rv;
}

// ---- Sections

nsresult nsDvbSectionReader::Make(std::shared_ptr<nsDvbSession> aSession,
                                  const nsSectionFilter& aFilter,
                                  std::shared_ptr<nsPlatformSectionReader>* aReader) {
  auto reader = std::make_unique<nsDvbSectionReader>(aSession, aFilter);
  nsresult rv = reader->OpenWake();
  if (NS_SUCCEEDED(rv)) rv = reader->OpenDemux(kSectionBuffer);
  if (NS_SUCCEEDED(rv)) {
    dmx_sct_filter_params filter{};
    filter.pid = aFilter.mPid;
    filter.filter.filter[0] = aFilter.mTableId;
    filter.filter.mask[0] = aFilter.mTableIdMask;
    filter.flags = DMX_CHECK_CRC | DMX_IMMEDIATE_START;
    if (ioctl(reader->mFd.get(), DMX_SET_FILTER, &filter) != 0)
      rv = errno == EBUSY || errno == ENOMEM ? NS_ERROR_OUT_OF_MEMORY : aSession->Failed(errno);
  }
  if (NS_FAILED(rv)) return rv;
  reader->Enlist();
  *aReader = std::move(reader);
  return NS_OK;
}

nsresult nsDvbSectionReader::ReadSection(uint32_t aTimeout, std::vector<uint8_t>* aSection) {
  std::vector<uint8_t> section(kMostSection);
  const nsresult rv = Read(
      aTimeout, [] { return NS_OK; },
      [&](int aFd) {
        const ssize_t count = read(aFd, section.data(), section.size());
        if (count < 0) {
          // Nothing there after all; interrupted; more has come than was read, and some is lost.
          const bool goesOn = errno == EAGAIN || errno == EINTR || errno == EOVERFLOW;
          return goesOn ? NS_ERROR_IN_PROGRESS : NS_ERROR_FAILURE;
        }
        const std::span<const uint8_t> read(section.data(), static_cast<size_t>(count));
        if (read.size() < 3 || !mFilter.Matches(read)) return NS_ERROR_IN_PROGRESS;
        if (read[0] == kTimeOffsetTable && (read[1] & 0x80) == 0 && NS_DvbCrc32(read) != 0)
          return NS_ERROR_IN_PROGRESS;
        section.resize(read.size());
        return NS_OK;
      });
  if (NS_SUCCEEDED(rv)) *aSection = std::move(section);
  return rv;
}

// ---- Packets

nsresult nsDvbPacketReader::Make(std::shared_ptr<nsDvbSession> aSession,
                                 std::shared_ptr<nsPlatformPacketReader>* aReader) {
  auto reader = std::make_unique<nsDvbPacketReader>(aSession);
  if (nsresult rv = reader->OpenWake(); NS_FAILED(rv)) return rv;
  reader->Enlist();
  *aReader = std::move(reader);
  return NS_OK;
}

nsresult nsDvbPacketReader::SetPids(std::span<const uint16_t> aPids) {
  Pids pids;
  for (const uint16_t pid : aPids) {
    if (pid > kWholeStream || (pid == kWholeStream && aPids.size() > 1))
      return NS_ERROR_INVALID_ARG;
    pids.set(pid);
  }
  const nsAutoLock lock(mSession->mLock);
  if (const nsresult state = mSession->State(); NS_FAILED(state)) return state;
  mWanted = pids;
  mIsChanged = true;
  // The descriptor belongs to the read that goes on.
  if (!mIsReading) return Apply();
  Wake();
  return NS_OK;
}

// Asks the kernel for the PIDs that are wanted; for all of them, when it filters no more of them.
nsresult nsDvbPacketReader::Apply() {
  if (!std::exchange(mIsChanged, false)) return NS_OK;
  const bool wantsAll = mWanted[kWholeStream];
  if (mSortsItself && mWanted.any() && !wantsAll) return NS_OK;
  const auto start = [this](uint16_t aPid) NS_REQUIRES(mSession->mLock) -> nsresult {
    mFiltered.reset();
    mHeld = 0;
    if (nsresult rv = OpenDemux(kPacketBuffer); NS_FAILED(rv)) return rv;
    dmx_pes_filter_params filter{};
    filter.pid = aPid;
    filter.input = DMX_IN_FRONTEND;
    filter.output = DMX_OUT_TSDEMUX_TAP;
    filter.pes_type = DMX_PES_OTHER;
    filter.flags = DMX_IMMEDIATE_START;
    if (ioctl(mFd.get(), DMX_SET_PES_FILTER, &filter) != 0) {
      const int error = errno;
      mFd.Close();
      return error == EBUSY || error == ENOMEM ? NS_ERROR_OUT_OF_MEMORY : mSession->Failed(error);
    }
    mFiltered.set(aPid);
    return NS_OK;
  };
  if (mWanted.none()) {
    mFd.Close();
    mFiltered.reset();
    mSortsItself = false;
    return NS_OK;
  }
  if (mSortsItself || wantsAll || mFiltered[kWholeStream]) {
    mFd.Close();
    mFiltered.reset();
    mSortsItself = false;
  }
  // What is added comes before what is no longer wanted goes.
  bool isBounded = !wantsAll && mWanted.count() > kMostPids;
  for (uint16_t pid = 0; pid <= kWholeStream && !isBounded; ++pid) {
    if (!mWanted[pid] || mFiltered[pid]) continue;
    if (!mFd) {
      if (nsresult rv = start(pid); NS_FAILED(rv)) return rv;
    } else if (ioctl(mFd.get(), DMX_ADD_PID, &pid) == 0) {
      mFiltered.set(pid);
    } else {
      isBounded = true;
    }
  }
  if (isBounded) {
    mFd.Close();
    if (nsresult rv = start(kWholeStream); NS_FAILED(rv)) return rv;
    mSortsItself = true;
    mSorted.reset();
    mDemultiplexer.Finish();
    return NS_OK;
  }
  for (uint16_t pid = 0; pid < kWholeStream; ++pid) {
    if (!mFiltered[pid] || mWanted[pid]) continue;
    // It fails for one that is not filtered any more.
    (void)ioctl(mFd.get(), DMX_REMOVE_PID, &pid);
    mFiltered.reset(pid);
  }
  return NS_OK;
}

nsresult nsDvbPacketReader::ReadPackets(uint32_t aTimeout,
                                        std::vector<std::span<const uint8_t>>* aRuns) {
  std::vector<std::span<const uint8_t>> runs;
  bool isFirst = true;
  const nsresult rv = Read(
      aTimeout,
      [&]() NS_REQUIRES(mSession->mLock) {
        if (std::exchange(isFirst, false)) mCopies.clear();
        const nsresult applied = Apply();
        if (std::exchange(mIsRestarted, false)) {
          mHeld = 0;
          mDemultiplexer.Finish();
        }
        if (NS_SUCCEEDED(applied) && mSortsItself && mSorted != mWanted) {
          std::vector<uint16_t> pids;
          for (uint16_t pid = 0; pid < kWholeStream; ++pid)
            if (mWanted[pid]) pids.push_back(pid);
          mDemultiplexer.SetPacketPids(pids);
          mSorted = mWanted;
        }
        return applied;
      },
      [&](int aFd) { return Take(aFd, &runs); });
  if (NS_SUCCEEDED(rv)) aRuns->swap(runs);
  return rv;
}

nsresult nsDvbPacketReader::Take(int aFd, std::vector<std::span<const uint8_t>>* aRuns) {
  // A packet that the kernel was just writing has come in part.
  std::copy_n(mBuffer.begin() + static_cast<ptrdiff_t>(mHeldAt), mHeld, mBuffer.begin());
  mHeldAt = 0;
  const ssize_t count = read(aFd, mBuffer.data() + mHeld, mBuffer.size() - mHeld);
  if (count < 0) {
    if (errno == EOVERFLOW) mHeld = 0;  // more has come than was read, and is lost
    const bool goesOn = errno == EAGAIN || errno == EINTR || errno == EOVERFLOW;
    return goesOn ? NS_ERROR_IN_PROGRESS : NS_ERROR_FAILURE;
  }
  const size_t have = mHeld + static_cast<size_t>(count);
  // They begin at once, but where part of the stream was thrown away meanwhile.
  size_t begin = 0;
  while (begin < have && (mBuffer[begin] != kSync ||
                          (begin + kPacketSize < have && mBuffer[begin + kPacketSize] != kSync)))
    ++begin;
  mHeld = (have - begin) % kPacketSize;
  mHeldAt = have - mHeld;
  const std::span<const uint8_t> packets(mBuffer.data() + begin, mHeldAt - begin);
  if (mSortsItself) {
    mRuns = aRuns;
    mDemultiplexer.Push(packets);
    mRuns = nullptr;
  } else if (!packets.empty()) {
    aRuns->push_back(packets);
  }
  return aRuns->empty() ? NS_ERROR_IN_PROGRESS : NS_OK;
}

void nsDvbPacketReader::OnPackets(std::span<const uint8_t> aPackets) {
  if (!mRuns) return;  // the end of a stream, which nobody reads any more
  const std::less_equal<const uint8_t*> notAfter;
  const bool isView = notAfter(mBuffer.data(), aPackets.data()) &&
                      notAfter(aPackets.data() + aPackets.size(), mBuffer.data() + mBuffer.size());
  // What was held back to find the beginning of the stream lies elsewhere, for the time of the
  // call.
  if (!isView) mCopies.emplace_back(aPackets.begin(), aPackets.end());
  mRuns->push_back(isView ? aPackets : std::span<const uint8_t>(mCopies.back()));
}

// The backend for the kernel's tuners on a stand-in for the kernel: its calls, and what comes out
// of its demultiplexer.
#include <fcntl.h>
#include <linux/dvb/dmx.h>
#include <linux/dvb/frontend.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <span>
#include <thread>

#include "../nsTunersContract.h"
#include "nsDvbTuner.h"
#include "nsTemporaryDirectory.h"
#include "nsTransportDemultiplexer.h"

namespace {

using vorel::test::Bytes;

// A tuner and its demultiplexer, which filters up to 64 PIDs for a descriptor.
class Kernel {
 public:
  static constexpr size_t kMostPids = 64;

  Kernel() {
    std::ofstream(Frontend()).flush();
    sKernel = this;
    mFeeder = std::thread([this] { Feed(); });
  }
  ~Kernel() {
    mStops = true;
    mFeeder.join();
    sKernel = nullptr;
    if (mFrontendEnd >= 0) close(mFrontendEnd);
  }
  std::string Frontend() const { return (mDirectory.Path() / "frontend0").string(); }
  std::string Demux() const { return (mDirectory.Path() / "demux0").string(); }

  /// A descriptor of the frontend, or -1 while there is one.
  int OpenFrontend() {
    const std::lock_guard lock(mLock);
    char byte;
    if (mFrontendEnd >= 0 && recv(mFrontendEnd, &byte, 1, MSG_PEEK | MSG_DONTWAIT) != 0) return -1;
    if (mFrontendEnd >= 0) close(mFrontendEnd);
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    mFrontendEnd = ends[1];
    mTuned = 0;
    return mFrontend = ends[0];
  }
  void Send(const Bytes& aStream) {
    const std::lock_guard lock(mLock);
    mStream = aStream;
  }
  void Unplug() {
    const std::lock_guard lock(mLock);
    mIsGone = true;
    std::filesystem::remove(Frontend());
  }
  bool IsGone() {
    const std::lock_guard lock(mLock);
    return mIsGone;
  }

  int OpenDemux() {
    const std::lock_guard lock(mLock);
    if (mIsGone) return Fail(ENODEV);
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
    mDemuxes[ends[0]] = std::make_unique<Filter>(ends[1]);
    return ends[0];
  }
  /// False: the descriptor is none of the tuner's.
  bool Ioctl(int aFd, unsigned long aRequest, void* aArgument, int* aResult) {
    const std::lock_guard lock(mLock);
    const auto demux = mDemuxes.find(aFd);
    if (aFd != mFrontend && demux == mDemuxes.end()) return false;
    *aResult = mIsGone            ? Fail(ENODEV)
               : aFd == mFrontend ? OfFrontend(aRequest, aArgument)
                                  : OfDemux(*demux->second, aRequest, aArgument);
    return true;
  }

  static Kernel* sKernel;

 private:
  struct Filter final : nsTransportSink {
    explicit Filter(int aEnd) : mEnd(aEnd) {}
    ~Filter() { close(mEnd); }
    void OnSection(uint16_t, std::span<const uint8_t> aSection) override {
      if (((aSection[0] ^ mTable) & mMask) == 0) Write(aSection);
    }
    void Write(std::span<const uint8_t> aBytes) {
      (void)!send(mEnd, aBytes.data(), aBytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    }
    const int mEnd;
    bool mIsOfSections = false;
    uint8_t mTable = 0, mMask = 0;
    std::set<uint16_t> mPids;
    Bytes mPackets;
    std::unique_ptr<nsTransportDemultiplexer> mSections;
  };

  static int Fail(int aErrno) {
    errno = aErrno;
    return -1;
  }

  bool IsLocked() const {
    return mTuned == nsTunersMachine::kFrequency && !mStream.empty() &&
           std::chrono::steady_clock::now() > mTunedAt + std::chrono::milliseconds(20);
  }

  int OfFrontend(unsigned long aRequest, void* aArgument) {
    if (aRequest == FE_READ_STATUS) {
      *static_cast<fe_status*>(aArgument) = IsLocked() ? FE_HAS_LOCK : FE_NONE;
      return 0;
    }
    if (aRequest != FE_SET_PROPERTY && aRequest != FE_GET_PROPERTY) return Fail(EOPNOTSUPP);
    auto& properties = *static_cast<dtv_properties*>(aArgument);
    for (dtv_property& one : std::span(properties.props, properties.num)) {
      if (one.cmd == DTV_FREQUENCY) mTuned = one.u.data / 1000;
      if (one.cmd == DTV_DELIVERY_SYSTEM) {
        EXPECT_EQ(one.u.data, uint32_t{SYS_DVBT});
      }
      if (one.cmd == DTV_BANDWIDTH_HZ) {
        EXPECT_EQ(one.u.data, 8'000'000u);
      }
      if (one.cmd == DTV_TUNE) mTunedAt = std::chrono::steady_clock::now();
      if (aRequest != FE_GET_PROPERTY) continue;
      one.u.st.len = 1;
      one.u.st.stat[0].scale = FE_SCALE_DECIBEL;
      one.u.st.stat[0].svalue = one.cmd == DTV_STAT_CNR ? 40000 : IsLocked() ? -45000 : -100000;
    }
    return 0;
  }

  int OfDemux(Filter& aFilter, unsigned long aRequest, void* aArgument) {
    if (aRequest == DMX_SET_FILTER) {
      const auto& filter = *static_cast<const dmx_sct_filter_params*>(aArgument);
      EXPECT_TRUE(filter.flags & DMX_CHECK_CRC);
      aFilter.mIsOfSections = true;
      aFilter.mTable = filter.filter.filter[0];
      aFilter.mMask = filter.filter.mask[0];
      aFilter.mSections = std::make_unique<nsTransportDemultiplexer>(aFilter);
      return aFilter.mSections->AddSectionPid(filter.pid, false) == NS_OK ? 0 : Fail(EINVAL);
    }
    if (aRequest == DMX_SET_PES_FILTER)
      aFilter.mPids.insert(static_cast<const dmx_pes_filter_params*>(aArgument)->pid);
    else if (aRequest == DMX_ADD_PID && aFilter.mPids.size() >= kMostPids) {
      ADD_FAILURE() << "the kernel does not survive the end of a descriptor with a refused PID";
      return Fail(EBUSY);
    } else if (aRequest == DMX_ADD_PID)
      aFilter.mPids.insert(*static_cast<const uint16_t*>(aArgument));
    else if (aRequest == DMX_REMOVE_PID)
      aFilter.mPids.erase(*static_cast<const uint16_t*>(aArgument));
    else if (aRequest == DMX_START)
      aFilter.mPackets.clear();
    return 0;
  }

  // Sends round and round; packets leave in pieces that end within one.
  void Feed() {
    constexpr size_t kPiece = 16;
    size_t at = 0;
    while (!mStops) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      const std::lock_guard lock(mLock);
      if (!IsLocked() || mIsGone) continue;
      for (size_t i = 0; i < kPiece; ++i, at += 188) {
        if (at >= mStream.size()) at = 0;
        const auto packet = std::span<const uint8_t>(mStream).subspan(at, 188);
        const auto pid = static_cast<uint16_t>((packet[1] & 0x1F) << 8 | packet[2]);
        for (auto& [fd, filter] : mDemuxes) {
          if (filter->mIsOfSections)
            filter->mSections->Push(packet);
          else if (filter->mPids.contains(pid) || filter->mPids.contains(0x2000))
            filter->mPackets.insert(filter->mPackets.end(), packet.begin(), packet.end());
        }
      }
      for (auto& [fd, filter] : mDemuxes) {
        if (filter->mPackets.empty()) continue;
        const size_t half = filter->mPackets.size() / 2 + 33;
        filter->Write(std::span(filter->mPackets).first(half));
        filter->Write(std::span(filter->mPackets).subspan(half));
        filter->mPackets.clear();
      }
    }
  }

  nsTemporaryDirectory mDirectory;
  std::mutex mLock;
  Bytes mStream;
  uint32_t mTuned = 0;
  std::chrono::steady_clock::time_point mTunedAt;
  int mFrontend = -1, mFrontendEnd = -1;
  bool mIsGone = false;
  std::map<int, std::unique_ptr<Filter>> mDemuxes;
  std::atomic<bool> mStops = false;
  std::thread mFeeder;
};
Kernel* Kernel::sKernel = nullptr;

// Lists and opens the tuner of the stand-in; all else is the backend's.
class Tuners final : public nsPlatformTuners {
 public:
  explicit Tuners(Kernel& aKernel) : mKernel(aKernel) {}
  nsresult ListTuners(std::vector<nsTunerInfo>* aTuners) override {
    aTuners->clear();
    if (!mKernel.IsGone()) aTuners->push_back({"tuner", "Tuner", {}, {}});
    return NS_OK;
  }
  nsresult OpenTuner(const std::string& aPath, nsPlatformTunerRef* aTuner) override {
    if (aPath != "tuner") return NS_ERROR_FILE_NOT_FOUND;
    nsUniqueFd frontend(mKernel.OpenFrontend());
    if (!frontend) return NS_ERROR_FILE_IS_LOCKED;
    return nsDvbTuner::Make(std::move(frontend),
                            {{}, mKernel.Frontend(), mKernel.Demux(), {SYS_DVBC_ANNEX_A, SYS_DVBT}},
                            aTuner);
  }

 private:
  Kernel& mKernel;
};

class StandIn final : public nsTunersMachine {
 public:
  nsPlatformTuners& Port() override { return mTuners; }
  void Send(const Bytes& aStream) override { mKernel.Send(aStream); }
  void Unplug() override { mKernel.Unplug(); }

 private:
  Kernel mKernel;
  Tuners mTuners{mKernel};
};

INSTANTIATE_TEST_SUITE_P(StandIn, TunersContract,
                         testing::Values(NS_ContractBackend<nsTunersMachine, StandIn>("ioctls")),
                         testing::PrintToStringParamName());

}  // namespace

extern "C" {
int __real_open(const char* aPath, int aFlags, ...);
int __wrap_open(const char* aPath, int aFlags, ...) {
  if (Kernel::sKernel && Kernel::sKernel->Demux() == aPath) return Kernel::sKernel->OpenDemux();
  if (!(aFlags & O_CREAT)) return __real_open(aPath, aFlags);
  va_list arguments;
  va_start(arguments, aFlags);
  const mode_t mode = va_arg(arguments, mode_t);
  va_end(arguments);
  return __real_open(aPath, aFlags, mode);
}
int __real_ioctl(int aFd, unsigned long aRequest, ...);
int __wrap_ioctl(int aFd, unsigned long aRequest, ...) {
  va_list arguments;
  va_start(arguments, aRequest);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  int result = 0;
  if (Kernel::sKernel && Kernel::sKernel->Ioctl(aFd, aRequest, argument, &result)) return result;
  return __real_ioctl(aFd, aRequest, argument);
}
}

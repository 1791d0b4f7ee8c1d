#include "nsDvbTuner.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <optional>

#include "nsDvbReader.h"
#include "nsErrno.h"
#include "nsRetry.h"

namespace {

constexpr uint32_t kMostBandwidth = 10;  // MHz

int Call(int aFd, unsigned long aRequest, void* aArgument) {
  return NS_RetryPassing([&] { return ioctl(aFd, aRequest, aArgument); });
}

std::string FolderOf(const std::string& aNode) { return aNode.substr(0, aNode.rfind('/')); }

// Only terrestrial television is tuned by frequency and bandwidth alone.
std::optional<fe_delivery_system> TunedSystem(const std::vector<fe_delivery_system>& aSystems) {
  for (const auto system : {SYS_DVBT, SYS_DVBT2, SYS_ISDBT, SYS_DTMB})
    if (std::ranges::find(aSystems, system) != aSystems.end()) return system;
  return std::nullopt;
}

}  // namespace

// ---- What is shared

nsDvbSession::nsDvbSession(nsUniqueFd aFrontend, nsDvbDevice aDevice)
    : mFrontend(std::move(aFrontend)), mDevice(std::move(aDevice)) {
  nsUniqueFd removals(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  // Without it readers look from time to time.
  if (removals && inotify_add_watch(removals.get(), FolderOf(mDevice.mFrontend).c_str(),
                                    IN_DELETE | IN_DELETE_SELF | IN_ONLYDIR) >= 0)
    mRemovals = std::move(removals);
}

nsresult nsDvbSession::Failed(int aErrno) {
  if (aErrno != ENODEV && aErrno != ENXIO) return NS_ERROR_FAILURE;
  mIsGone = true;
  for (nsDvbReader* const reader : mReaders) reader->Wake();
  return NS_ERROR_NOT_AVAILABLE;
}

void nsDvbSession::Look() {
  if (mIsClosed || mIsGone) return;
  if (mRemovals) {
    char events[4096];
    while (read(mRemovals.get(), events, sizeof events) > 0) {
    }
  }
  fe_status status{};
  if (Call(mFrontend.get(), FE_READ_STATUS, &status) != 0)
    (void)Failed(errno);
  else if (access(mDevice.mFrontend.c_str(), F_OK) != 0)
    (void)Failed(ENODEV);
}

// ---- The tuner

nsresult nsDvbTuner::Make(nsUniqueFd aFrontend, const nsDvbDevice& aDevice,
                          nsPlatformTunerRef* aTuner) {
  *aTuner =
      std::make_shared<nsDvbTuner>(std::make_shared<nsDvbSession>(std::move(aFrontend), aDevice));
  return NS_OK;
}

template <class Do>
nsresult nsDvbTuner::With(Do&& aDo) {
  const nsAutoLock lock(mSession->mLock);
  const nsresult state = mSession->State();
  return NS_FAILED(state) ? state : aDo(mSession->mFrontend.get());
}

nsresult nsDvbTuner::Tune(uint32_t aFrequency, uint32_t aBandwidth) {
  return With([&](int aFd) NS_REQUIRES(mSession->mLock) {
    const auto system = TunedSystem(mSession->mDevice.mSystems);
    if (!system || aFrequency > UINT32_MAX / 1000 || aBandwidth > kMostBandwidth)
      return NS_ERROR_INVALID_ARG;
    std::vector<dtv_property> properties;
    const auto set = [&](uint32_t aCommand, uint32_t aValue) {
      dtv_property property{};
      property.cmd = aCommand;
      property.u.data = aValue;
      properties.push_back(property);
    };
    set(DTV_CLEAR, 0);
    set(DTV_DELIVERY_SYSTEM, *system);
    set(DTV_FREQUENCY, aFrequency * 1000);
    set(DTV_BANDWIDTH_HZ, aBandwidth * 1000000);
    set(DTV_INVERSION, INVERSION_AUTO);
    set(DTV_MODULATION, QAM_AUTO);
    set(DTV_CODE_RATE_HP, FEC_AUTO);
    set(DTV_CODE_RATE_LP, FEC_AUTO);
    set(DTV_TRANSMISSION_MODE, TRANSMISSION_MODE_AUTO);
    set(DTV_GUARD_INTERVAL, GUARD_INTERVAL_AUTO);
    set(DTV_HIERARCHY, HIERARCHY_AUTO);
    set(DTV_TUNE, 0);
    dtv_properties all{static_cast<uint32_t>(properties.size()), properties.data()};
    if (Call(aFd, FE_SET_PROPERTY, &all) != 0)
      return errno == EINVAL ? NS_ERROR_INVALID_ARG : mSession->Failed(errno);
    mIsTuned = true;
    for (nsDvbReader* const reader : mSession->mReaders) reader->Restart();
    return NS_OK;
  });
}

nsresult nsDvbTuner::ReadLocked(bool* aLocked) {
  return With([&](int aFd) NS_REQUIRES(mSession->mLock) {
    fe_status status{};
    if (Call(aFd, FE_READ_STATUS, &status) != 0) return mSession->Failed(errno);
    *aLocked = mIsTuned && (status & FE_HAS_LOCK) != 0;
    return NS_OK;
  });
}

// What the device tells; a reading of the older call has the scale of its own that those have.
nsresult nsDvbTuner::ReadStatistic(uint32_t aProperty, unsigned long aOlderCall,
                                   dtv_stats* aStatistic) {
  return With([&](int aFd) NS_REQUIRES(mSession->mLock) {
    // Many drivers measure when they are asked for the status only.
    fe_status status{};
    if (Call(aFd, FE_READ_STATUS, &status) != 0) return mSession->Failed(errno);
    dtv_property property{};
    property.cmd = aProperty;
    dtv_properties properties{1, &property};
    if (Call(aFd, FE_GET_PROPERTY, &properties) == 0 && property.u.st.len > 0 &&
        (property.u.st.stat[0].scale == FE_SCALE_DECIBEL ||
         property.u.st.stat[0].scale == FE_SCALE_RELATIVE)) {
      *aStatistic = property.u.st.stat[0];
      return NS_OK;
    }
    uint16_t value = 0;
    if (Call(aFd, aOlderCall, &value) != 0)
      return mSession->Failed(errno) == NS_ERROR_FAILURE ? NS_ERROR_NO_CONTENT
                                                         : NS_ERROR_NOT_AVAILABLE;
    aStatistic->scale = FE_SCALE_RELATIVE;
    aStatistic->uvalue = value;
    return NS_OK;
  });
}

nsresult nsDvbTuner::ReadStrength(int32_t* aStrength) {
  dtv_stats statistic{};
  const nsresult rv = ReadStatistic(DTV_STAT_SIGNAL_STRENGTH, FE_READ_SIGNAL_STRENGTH, &statistic);
  if (NS_FAILED(rv)) return rv;
  const int64_t value = statistic.svalue;
  *aStrength =
      static_cast<int32_t>(statistic.scale == FE_SCALE_DECIBEL
                               ? std::clamp<int64_t>(value, INT32_MIN, INT32_MAX)
                               : std::clamp<int64_t>(value, 0, 0xFFFF) * 100000 / 0xFFFF - 100000);
  return NS_OK;
}

nsresult nsDvbTuner::ReadQuality(uint32_t* aQuality) {
  dtv_stats statistic{};
  const nsresult rv = ReadStatistic(DTV_STAT_CNR, FE_READ_SNR, &statistic);
  if (NS_FAILED(rv)) return rv;
  const int64_t most = statistic.scale == FE_SCALE_DECIBEL ? 30000 : 0xFFFF;
  const int64_t value = statistic.svalue;
  *aQuality = static_cast<uint32_t>(std::clamp<int64_t>(value, 0, most) * 100 / most);
  return NS_OK;
}

nsresult nsDvbTuner::OpenSections(const nsSectionFilter& aFilter,
                                  std::shared_ptr<nsPlatformSectionReader>* aReader) {
  return With([&](int) NS_REQUIRES(mSession->mLock) {
    if (aFilter.mPid >= nsTransportDemultiplexer::kPidCount) return NS_ERROR_INVALID_ARG;
    return nsDvbSectionReader::Make(mSession, aFilter, aReader);
  });
}

nsresult nsDvbTuner::OpenPackets(std::shared_ptr<nsPlatformPacketReader>* aReader) {
  return With(
      [&](int) NS_REQUIRES(mSession->mLock) { return nsDvbPacketReader::Make(mSession, aReader); });
}

nsresult nsDvbTuner::Close() {
  nsAutoLock lock(mSession->mLock);
  if (mSession->mIsClosed) return NS_ERROR_ABORT;
  mSession->mIsClosed = true;
  for (nsDvbReader* const reader : mSession->mReaders) reader->Wake();
  mSession->mIsIdle.Wait(lock,
                         [this]() NS_REQUIRES(mSession->mLock) { return mSession->mReads == 0; });
  for (nsDvbReader* const reader : mSession->mReaders) reader->Drop();
  mSession->mFrontend.Close();
  mSession->mRemovals.Close();
  return NS_OK;
}

// An open tuner of the kernel, and its readers.
#pragma once

#include <list>

#include "nsDvbDevices.h"
#include "nsLock.h"
#include "nsUniqueFd.h"

class nsDvbReader;

/// What a tuner and its readers share.
class nsDvbSession {
 public:
  nsDvbSession(nsUniqueFd aFrontend, nsDvbDevice aDevice);
  nsDvbSession(const nsDvbSession&) = delete;
  nsDvbSession& operator=(const nsDvbSession&) = delete;

  /// Why nothing can be done any more, or NS_OK.
  nsresult State() const NS_REQUIRES(mLock) {
    return mIsClosed ? NS_ERROR_ABORT : mIsGone ? NS_ERROR_NOT_AVAILABLE : NS_OK;
  }
  /// The result of a call that has failed with that; the device may have gone.
  nsresult Failed(int aErrno) NS_REQUIRES(mLock);
  /// Looks whether the device has gone, when the system has told of something.
  void Look() NS_REQUIRES(mLock);

  nsMutex mLock;
  nsCondition mIsIdle;
  nsUniqueFd mFrontend NS_GUARDED_BY(mLock);
  const nsDvbDevice mDevice;
  /// Can be read when something happened in the folder of the device: an open device is not told
  /// that it has gone.
  nsUniqueFd mRemovals NS_GUARDED_BY(mLock);
  std::list<nsDvbReader*> mReaders NS_GUARDED_BY(mLock);
  unsigned mReads NS_GUARDED_BY(mLock) = 0;  ///< That go on.
  bool mIsClosed NS_GUARDED_BY(mLock) = false;
  bool mIsGone NS_GUARDED_BY(mLock) = false;
};

class nsDvbTuner final : public nsPlatformTuner {
 public:
  static nsresult Make(nsUniqueFd aFrontend, const nsDvbDevice& aDevice,
                       nsPlatformTunerRef* aTuner);
  explicit nsDvbTuner(std::shared_ptr<nsDvbSession> aSession) : mSession(std::move(aSession)) {}
  ~nsDvbTuner() override { (void)Close(); }

  nsresult Tune(uint32_t aFrequency, uint32_t aBandwidth) override;
  nsresult ReadLocked(bool* aLocked) override;
  nsresult ReadStrength(int32_t* aStrength) override;
  nsresult ReadQuality(uint32_t* aQuality) override;
  nsresult OpenSections(const nsSectionFilter& aFilter,
                        std::shared_ptr<nsPlatformSectionReader>* aReader) override;
  nsresult OpenPackets(std::shared_ptr<nsPlatformPacketReader>* aReader) override;
  nsresult Close() override;

 private:
  template <class Do>
  nsresult With(Do&& aDo);
  nsresult ReadStatistic(uint32_t aProperty, unsigned long aOlderCall, dtv_stats* aStatistic);

  const std::shared_ptr<nsDvbSession> mSession;
  bool mIsTuned NS_GUARDED_BY(mSession->mLock) = false;
};

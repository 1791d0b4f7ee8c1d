// The tuner of a graph: what its filters do with the machine's.
#pragma once

#include <memory>

#include "nsLock.h"
#include "nsPlatformTuners.h"

/// Open while its filter runs. Any thread.
class nsMediaTuner {
 public:
  nsMediaTuner(std::shared_ptr<nsPlatformTuners> aTuners, nsTunerInfo aInfo)
      : mInfo(std::move(aInfo)), mTuners(std::move(aTuners)) {}
  nsMediaTuner(const nsMediaTuner&) = delete;
  nsMediaTuner& operator=(const nsMediaTuner&) = delete;
  ~nsMediaTuner() { Close(); }

  /// Takes the device, and tunes it to what was asked for meanwhile.
  nsresult Open();
  /// Gives the device back; all its readers end.
  void Close();
  /// kHz and MHz. While it is not open the last one is kept for Open. Without a frequency nothing
  /// happens, and without a bandwidth the tuner finds it.
  nsresult Tune(int32_t aFrequency, int32_t aBandwidth);
  /// Null while it is not open.
  nsPlatformTunerRef Device() const;
  /// Changes whenever something else may be received.
  uint64_t Generation() const;

  const nsTunerInfo mInfo;

 private:
  nsresult TuneNow() NS_REQUIRES(mLock);

  const std::shared_ptr<nsPlatformTuners> mTuners;
  mutable nsMutex mLock;
  nsPlatformTunerRef mDevice NS_GUARDED_BY(mLock);
  uint32_t mFrequency NS_GUARDED_BY(mLock) = 0, mBandwidth NS_GUARDED_BY(mLock) =
                                                    0;  ///< to be tuned to; 0: nothing
  uint64_t mGeneration NS_GUARDED_BY(mLock) = 0;
};

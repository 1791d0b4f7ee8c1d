#include "nsMediaTuner.h"

#include <utility>

nsresult nsMediaTuner::Open() {
  const nsAutoLock lock(mLock);
  if (mDevice) return NS_OK;
  nsresult rv = mTuners->OpenTuner(mInfo.mPath, &mDevice);
  if (NS_FAILED(rv)) return rv;
  ++mGeneration;
  rv = TuneNow();
  if (NS_FAILED(rv)) {
    (void)mDevice->Close();
    mDevice = nullptr;
  }
  return rv;
}

void nsMediaTuner::Close() {
  nsPlatformTunerRef device;
  {
    const nsAutoLock lock(mLock);
    device = std::exchange(mDevice, nullptr);
    ++mGeneration;
  }
  if (device) (void)device->Close();
}

nsresult nsMediaTuner::Tune(int32_t aFrequency, int32_t aBandwidth) {
  if (aFrequency <= 0) return NS_OK;
  const nsAutoLock lock(mLock);
  mFrequency = static_cast<uint32_t>(aFrequency);
  mBandwidth = aBandwidth > 0 ? static_cast<uint32_t>(aBandwidth) : 0;
  return mDevice ? TuneNow() : NS_OK;
}

// What it is tuned to ends with Close: a graph that runs anew first receives nothing, and so
// nothing of a service that is no longer wanted.
nsresult nsMediaTuner::TuneNow() {
  const uint32_t frequency = std::exchange(mFrequency, 0);
  if (frequency == 0) return NS_OK;
  ++mGeneration;
  return mDevice->Tune(frequency, mBandwidth);
}

nsPlatformTunerRef nsMediaTuner::Device() const {
  const nsAutoLock lock(mLock);
  return mDevice;
}

uint64_t nsMediaTuner::Generation() const {
  const nsAutoLock lock(mLock);
  return mGeneration;
}

// Tuners of the kernel: /dev/dvb.
#pragma once

#include "nsPlatformTuners.h"

/// Holds nothing between calls.
class nsLinuxTuners final : public nsPlatformTuners {
 public:
  nsresult ListTuners(std::vector<nsTunerInfo>* aTuners) override;
  nsresult OpenTuner(const std::string& aPath, nsPlatformTunerRef* aTuner) override;
};

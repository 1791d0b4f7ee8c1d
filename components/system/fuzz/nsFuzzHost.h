// A host for fuzz targets: services without a profile.
#pragma once

#include <cstdlib>

#include "nsHost.h"

/// Starts one for the life of the process.
inline void NS_StartFuzzHost() {
  static nsHost* const sHost = [] {
    auto* const host = new nsHost;  // lives to the end: libFuzzer ends by _Exit
    if (NS_FAILED(host->Start({}))) std::abort();
    return host;
  }();
  (void)sHost;
}

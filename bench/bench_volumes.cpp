// How long does it take to look at all volumes anew, as start-up and every arrival of a volume do?
#include <benchmark/benchmark.h>

#include <cstdlib>

#include "nsLinuxVolumes.h"

namespace {

void ReadWholePicture(benchmark::State& aState) {
  nsLinuxVolumes volumes;
  int count = 0;
  for (auto _ : aState) {
    uint32_t mask = 0;
    if (NS_FAILED(volumes.ReadDriveMask(&mask))) std::abort();
    count = 0;
    for (char letter = 'A'; letter <= 'Z'; ++letter) {
      uint32_t kind;
      uint8_t bus;
      std::string root;
      nsPlatformVolumes::VolumeInformation information;
      nsPlatformVolumes::VolumeHandle volume;
      if (NS_FAILED(volumes.ReadDriveKind(letter, &kind))) std::abort();
      if (NS_FAILED(volumes.ReadVolumeInformation(letter, &information)) ||
          NS_FAILED(volumes.OpenVolume(letter, &volume)))
        continue;
      (void)volumes.ReadBusType(volume, &bus);
      (void)volumes.ReadRootDirectory(letter, &root);
      ++count;
    }
  }
  aState.counters["volumes"] = count;
}
BENCHMARK(ReadWholePicture)->Unit(benchmark::kMicrosecond);

}  // namespace

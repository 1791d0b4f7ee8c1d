// Do the services keep to their times: the list of zones at its first call (20 ms), 200 new font
// files (300 ms), and a feed of the watchdog (1 us)?
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "nsHost.h"
#include "nsILocalFile.h"
#include "nsLinuxTimeZones.h"
#include "nsLinuxWatchdog.h"
#include "nsPlatform.h"
#include "nsString.h"
#include "nsSystemFont.h"
#include "nsTestFont.h"
#include "nsTimeZoneTable.h"
#include "nsXPCOM.h"

namespace fs = std::filesystem;

namespace {

// What the first call does; later ones copy a list.
void FindAllZones(benchmark::State& aState) {
  nsLinuxTimeZones zones;
  size_t found = 0;
  for (auto _ : aState) {
    found = 0;
    for (const nsTimeZoneRow& row : kTimeZoneTable) found += NS_SUCCEEDED(zones.FindZone(row));
  }
  aState.counters["zones"] = static_cast<double>(found);
}
BENCHMARK(FindAllZones)->Unit(benchmark::kMillisecond);

void SynchronizeNewFonts(benchmark::State& aState) {
  nsHost host;
  nsHostOptions options;
  options.mLogLevels = {{"", 3}};  // each font is warned about
  if (NS_FAILED(host.Start(options))) std::abort();
  char path[] = "/tmp/vorel-bench-XXXXXX";
  if (!mkdtemp(path)) std::abort();
  for (int i = 0; i < 200; ++i)
    std::ofstream(fs::path(path) / ("font" + std::to_string(i) + ".ttf"), std::ios::binary)
        << nsTestFont{"Bench " + std::to_string(i)}.Bytes();
  for (auto _ : aState) {
    aState.PauseTiming();
    auto fonts = MakeRefCounted<nsSystemFont>(NS_NewNativePlatform());
    nsCOMPtr<nsILocalFile> directory;
    if (NS_FAILED(NS_NewNativeLocalFile(nsCString(path), true, directory.getter_AddRefs())))
      std::abort();
    aState.ResumeTiming();
    if (NS_FAILED(fonts->Synchronize(directory.get()))) std::abort();
    aState.PauseTiming();
    fonts = nullptr;
    aState.ResumeTiming();
  }
  fs::remove_all(path);
  host.Stop();
}
BENCHMARK(SynchronizeNewFonts)->Unit(benchmark::kMillisecond);

void FeedWatchdog(benchmark::State& aState) {
  nsLinuxWatchdog watchdog;
  uint32_t id = 0;
  const auto routine = [](nsPlatformWatchdog&) { std::abort(); };
  if (NS_FAILED(watchdog.StartTimer(180'000, 1000, routine, 0x100, &id))) std::abort();
  for (auto _ : aState)
    if (NS_FAILED(watchdog.StopTimer(id)) ||
        NS_FAILED(watchdog.StartTimer(180'000, 1000, routine, 0x100, &id)))
      std::abort();
}
BENCHMARK(FeedWatchdog)->Unit(benchmark::kMicrosecond);

}  // namespace

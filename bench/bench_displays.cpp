// How soon is a listener told of a stick, and what does a look at the displays cost?
#include <benchmark/benchmark.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>

#include "nsHost.h"
#include "nsISystemAdapterListener.h"
#include "nsIThread.h"
#include "nsImplements.h"
#include "nsLinuxDisplays.h"
#include "nsLinuxVolumes.h"
#include "nsLinuxWindowEvents.h"
#include "nsPercentile.h"
#include "nsSimulatedMachine.h"
#include "nsSystemManager.h"
#include "nsVorelMethodCaller.h"

namespace {

using Clock = std::chrono::steady_clock;

/// Volumes of memory pass for sticks: a machine that measures has no hand to plug one in.
class Sticks final : public nsPlatformVolumes {
 public:
  nsresult ReadDriveMask(uint32_t* aMask) override { return mVolumes.ReadDriveMask(aMask); }
  nsresult ReadDriveKind(char aLetter, uint32_t* aKind) override {
    const nsresult rv = mVolumes.ReadDriveKind(aLetter, aKind);
    if (*aKind == kDriveRamDisk) *aKind = kDriveRemovable;
    return rv;
  }
  nsresult ReadVolumeInformation(char aLetter, VolumeInformation* aInformation) override {
    return mVolumes.ReadVolumeInformation(aLetter, aInformation);
  }
  nsresult OpenVolume(char aLetter, VolumeHandle* aVolume) override {
    return mVolumes.OpenVolume(aLetter, aVolume);
  }
  nsresult ReadBusType(VolumeHandle aVolume, uint8_t* aBusType) override {
    return mVolumes.ReadBusType(aVolume, aBusType);
  }
  nsresult ReadRootDirectory(char aLetter, std::string* aPath) override {
    return mVolumes.ReadRootDirectory(aLetter, aPath);
  }

 private:
  nsLinuxVolumes mVolumes;
};

class Listener final : public nsImplements<Listener, nsISystemAdapterListener> {
 public:
  nsresult OnAdapterAdded(nsISystemAdapter*) override { return Count(); }
  nsresult OnAdapterRemoved(nsISystemAdapter*) override { return Count(); }
  nsresult OnAdapterChanged(nsISystemAdapter*) override { return NS_OK; }
  int mHeard = 0;

 private:
  ~Listener() override = default;
  nsresult Count() {
    ++mHeard;
    return NS_OK;
  }
};

// From the return of mount(2), or umount(2), to the listener.
void MountToListener(benchmark::State& aState) {
  if (unshare(CLONE_NEWNS) != 0 ||
      mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    aState.SkipWithError("no right to a mount namespace here");
    return;
  }
  std::string place = (std::filesystem::temp_directory_path() / "vorel-bench-XXXXXX").string();
  if (!mkdtemp(place.data())) return aState.SkipWithError("no directory");
  nsHost host;
  if (NS_FAILED(host.Start({}))) return aState.SkipWithError("no host");
  {
    const nsSimulatedMachine machine;
    const auto volumes = std::make_shared<Sticks>();
    auto platform = std::make_shared<nsPlatform>(*machine.Platform());
    platform->mVolumes = volumes;
    platform->mWindowEvents = std::make_shared<nsLinuxWindowEvents>(volumes, machine.mDisplays);
    const auto manager = MakeRefCounted<nsSystemManager>(platform);
    (void)manager->ExploreVolumes();
    int window = 0;
    (void)manager->SubclassWindow(&window);
    const auto listener = MakeRefCounted<Listener>();
    (void)manager->AddAdapterListener(listener.get());
    nsCOMPtr<nsIThread> main;
    (void)NS_GetMainThread(main.getter_AddRefs());
    std::vector<double> times;
    bool isMounted = false;
    for (auto _ : aState) {
      const int heard = listener->mHeard;
      const bool done = isMounted ? umount(place.c_str()) == 0
                                  : mount("stick", place.c_str(), "tmpfs", 0, "size=64k") == 0;
      if (!done) return aState.SkipWithError("mount fails");
      isMounted = !isMounted;
      const auto start = Clock::now();
      while (listener->mHeard == heard) {
        bool ran = false;
        (void)main->ProcessNextEvent(true, &ran);
      }
      const std::chrono::duration<double> time = Clock::now() - start;
      times.push_back(time.count() * 1e3);
      aState.SetIterationTime(time.count());
    }
    if (isMounted) (void)umount(place.c_str());
    aState.counters["p99_ms"] = NS_Percentile(times, 0.99);
    (void)manager->Observe(nullptr, "xpcom-shutdown", nullptr);
  }
  std::filesystem::remove_all(place);
}
BENCHMARK(MountToListener)->UseManualTime()->Iterations(2000)->Unit(benchmark::kMillisecond);

// All displays of the server that DISPLAY names, looked at and made into adapters.
void LookAtDisplays(benchmark::State& aState) {
  nsHost host;
  if (NS_FAILED(host.Start({}))) return aState.SkipWithError("no host");
  {
    const nsSimulatedMachine machine;
    auto platform = std::make_shared<nsPlatform>(*machine.Platform());
    platform->mDisplays = std::make_shared<nsLinuxDisplays>(machine.mRegistry);
    nsDisplayDevice card;
    if (NS_FAILED(platform->mDisplays->ReadDevice("", 0, 1, &card)))
      return aState.SkipWithError("no display server here");
    for (auto _ : aState) {
      const auto manager = MakeRefCounted<nsSystemManager>(platform);
      (void)manager->InitDisplay();
    }
  }
}
BENCHMARK(LookAtDisplays)->Unit(benchmark::kMillisecond);

}  // namespace

// How soon is a listener told of a stick or a display, and what does a look at displays cost?
// Wanted: 30 ms or less (p99) from a mount, 50 ms or less from an event of the display server;
// after a storm of mounts the list is the mount table; the picture of a machine with three displays
// takes 30 ms of the processor's time or less.
//
// Needs the right to make a mount namespace, and Xorg with the dummy driver.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <bit>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <set>
#include <thread>

#include "nsDisplayHand.h"
#include "nsDisplayServer.h"
#include "nsHost.h"
#include "nsIFile.h"
#include "nsISystemAdapterListener.h"
#include "nsISystemAdapterStorage.h"
#include "nsIThread.h"
#include "nsImplements.h"
#include "nsLinuxDisplays.h"
#include "nsLinuxVolumes.h"
#include "nsLinuxWindowEvents.h"
#include "nsMountNamespace.h"
#include "nsPercentile.h"
#include "nsSimulatedMachine.h"
#include "nsSystemManager.h"
#include "nsSystemTest.h"
#include "nsTemporaryDirectory.h"
#include "nsVorelMethodCaller.h"

namespace {

using Clock = std::chrono::steady_clock;

/// Volumes of memory pass for sticks: a machine that measures has no hand to plug one in.
class Sticks final : public nsLinuxVolumes {
 public:
  nsresult ReadDriveKind(char aLetter, uint32_t* aKind) override {
    const nsresult rv = nsLinuxVolumes::ReadDriveKind(aLetter, aKind);
    if (*aKind == kDriveRamDisk) *aKind = kDriveRemovable;
    return rv;
  }
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

/// A manager that follows this machine's mounts and displays, all else being simulated.
class Machine {
 public:
  Machine() {
    auto platform = std::make_shared<nsPlatform>(*mMachine.Platform());
    const auto volumes = std::make_shared<Sticks>();
    platform->mVolumes = volumes;
    platform->mDisplays = std::make_shared<nsLinuxDisplays>(mMachine.mRegistry);
    platform->mWindowEvents = std::make_shared<nsLinuxWindowEvents>(volumes, platform->mDisplays);
    mManager = MakeRefCounted<nsSystemManager>(platform);
    (void)mManager->ExploreVolumes();
    (void)mManager->InitDisplay();
    (void)mManager->SubclassWindow(&mWindow);
    (void)mManager->AddAdapterListener(mListener.get());
    (void)NS_GetMainThread(mMain.getter_AddRefs());
  }
  ~Machine() { (void)mManager->Observe(nullptr, "xpcom-shutdown", nullptr); }

  int Heard() const { return mListener->mHeard; }
  // From the call on, until a listener hears of something; in seconds.
  double UntilHeard(Clock::time_point aStart, int aHeard) {
    while (mListener->mHeard == aHeard) Turn(true);
    return std::chrono::duration<double>(Clock::now() - aStart).count();
  }
  bool Turn(bool aMayWait) {
    bool ran = false;
    (void)mMain->ProcessNextEvent(aMayWait, &ran);
    return ran;
  }
  std::multiset<std::string> Roots() {
    nsCOMPtr<nsIArray> adapters;
    (void)mManager->GetAdaptersByIId(nsISystemAdapterStorage::kIID, adapters.getter_AddRefs());
    std::multiset<std::string> roots;
    for (const auto& adapter : NS_Elements<nsISystemAdapterStorage>(adapters.get())) {
      nsCOMPtr<nsIFile> directory;
      (void)adapter->GetDirectory(directory.getter_AddRefs());
      if (directory) roots.insert(NS_TextOf(directory, &nsIFile::GetPath));
    }
    return roots;
  }

 private:
  const nsSimulatedMachine mMachine;
  int mWindow = 0;
  const nsCOMPtr<Listener> mListener{MakeRefCounted<Listener>()};
  nsCOMPtr<nsSystemManager> mManager;
  nsCOMPtr<nsIThread> mMain;
};

void Report(benchmark::State& aState, std::vector<double>& aSeconds) {
  aState.counters["p50_ms"] = NS_Percentile(aSeconds, 0.5) * 1e3;
  aState.counters["p99_ms"] = NS_Percentile(aSeconds, 0.99) * 1e3;
}

bool Change(const std::string& aPlace, bool aIsMounted) {
  return aIsMounted ? umount(aPlace.c_str()) == 0
                    : mount("stick", aPlace.c_str(), "tmpfs", 0, "size=64k") == 0;
}

// From the return of mount(2), or umount(2), to the listener.
void MountToListener(benchmark::State& aState) {
  const nsTemporaryDirectory directory;
  const nsMountNamespace mounts;
  if (!mounts.IsUsable()) return aState.SkipWithError("no right to a mount namespace here");
  nsHost host;
  if (NS_FAILED(host.Start({}))) return aState.SkipWithError("no host");
  {
    Machine machine;
    const std::string place = directory.Path();
    std::vector<double> times;
    bool isMounted = false;
    for (auto _ : aState) {
      const int heard = machine.Heard();
      if (!Change(place, isMounted)) return aState.SkipWithError("mount fails");
      isMounted = !isMounted;
      times.push_back(machine.UntilHeard(Clock::now(), heard));
      aState.SetIterationTime(times.back());
    }
    if (isMounted) (void)Change(place, true);
    Report(aState, times);
  }
}
BENCHMARK(MountToListener)->UseManualTime()->Iterations(1000)->Unit(benchmark::kMillisecond);

// 10,000 mounts and unmounts of 20 volumes, as fast as another thread can; then the list and the
// mount table are to be the same. Volumes of memory get no more than 16 letters, of which the
// machine's own have taken some: so many are in at each time as get one.
void MountStorm(benchmark::State& aState) {
  constexpr size_t kVolumes = 20, kChanges = 10000, kLettersOfMemory = 16;
  const nsTemporaryDirectory directory;
  const nsMountNamespace mounts;
  if (!mounts.IsUsable()) return aState.SkipWithError("no right to a mount namespace here");
  nsHost host;
  if (NS_FAILED(host.Start({}))) return aState.SkipWithError("no host");
  uint32_t letters = 0;
  (void)nsLinuxVolumes().ReadDriveMask(&letters);
  const size_t own = static_cast<size_t>(std::popcount(letters));
  if (own >= kLettersOfMemory) return aState.SkipWithError("this machine has too many volumes");
  const size_t atOnce = kLettersOfMemory - own;
  for (auto _ : aState) {
    Machine machine;
    const auto before = machine.Roots();
    std::vector<std::string> places;
    for (size_t i = 0; i < kVolumes; ++i) {
      places.push_back(directory / std::to_string(i));
      std::filesystem::create_directories(places.back());
    }
    std::set<std::string> mounted;
    std::atomic<bool> isOver = false;
    std::string failure;
    std::thread storm([&] {
      std::mt19937 random{7};
      for (size_t i = 0; i < kChanges && failure.empty(); ++i) {
        std::string place = places[random() % kVolumes];
        if (mounted.size() == atOnce) place = *mounted.begin();
        const bool isMounted = mounted.contains(place);
        if (!Change(place, isMounted))
          failure = (isMounted ? "umount: " : "mount: ") + std::string(strerror(errno));
        else if (!mounted.insert(place).second)
          mounted.erase(place);
      }
      isOver = true;
    });
    while (!isOver)
      if (!machine.Turn(false)) std::this_thread::yield();
    storm.join();
    auto wanted = before;
    wanted.insert(mounted.begin(), mounted.end());
    const auto end = Clock::now();
    while (machine.Roots() != wanted && Clock::now() - end < std::chrono::seconds(10))
      if (!machine.Turn(false)) std::this_thread::yield();
    aState.counters["settled_ms"] =
        std::chrono::duration<double, std::milli>(Clock::now() - end).count();
    aState.counters["told"] = machine.Heard();
    aState.counters["at_once"] = static_cast<double>(atOnce);
    if (!failure.empty()) aState.SkipWithError(failure.c_str());
    const auto found = machine.Roots();
    if (found != wanted) {
      aState.SkipWithError("the list is not the mount table");
      for (const std::string& root : wanted) std::printf("mounted %s\n", root.c_str());
      for (const std::string& root : found) std::printf("listed %s\n", root.c_str());
    }
    for (const std::string& place : mounted) (void)Change(place, true);
  }
}
BENCHMARK(MountStorm)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

/// A server of three displays beside each other.
class Displays {
 public:
  Displays() {
    if (mServer->Name().empty()) return;
    mHand = std::make_unique<nsDisplayHand>();
    mHand->SetScreenSize(3 * 1280, 720);
    for (size_t i = 1; i < 3; ++i) {
      mModes[i] = mHand->AddMode(i, 1280, 720);
      Show(i, true);
    }
  }
  bool Works() const { return mHand != nullptr; }
  void Show(size_t aOutput, bool aIsOn) {
    mHand->Show(aOutput, aIsOn ? mModes[aOutput] : 0, static_cast<int16_t>(aOutput * 1280));
  }

 private:
  const nsTemporaryDirectory mDirectory;
  const std::unique_ptr<nsDisplayServer> mServer = nsDisplayServer::StartDummy(mDirectory);
  std::unique_ptr<nsDisplayHand> mHand;
  uint32_t mModes[3] = {};
};

// From the request that turns an output on or off, what the server does included.
void HotPlugToListener(benchmark::State& aState) {
  Displays displays;
  if (!displays.Works()) return aState.SkipWithError("no Xorg with the dummy driver here");
  nsHost host;
  if (NS_FAILED(host.Start({}))) return aState.SkipWithError("no host");
  {
    Machine machine;
    std::vector<double> times;
    bool isOn = true;
    for (auto _ : aState) {
      const int heard = machine.Heard();
      const auto start = Clock::now();
      displays.Show(2, isOn = !isOn);
      times.push_back(machine.UntilHeard(start, heard));
      aState.SetIterationTime(times.back());
    }
    Report(aState, times);
  }
}
BENCHMARK(HotPlugToListener)->UseManualTime()->Iterations(200)->Unit(benchmark::kMillisecond);

// All displays, looked at and made into adapters.
void LookAtDisplays(benchmark::State& aState) {
  const Displays displays;
  if (!displays.Works()) return aState.SkipWithError("no Xorg with the dummy driver here");
  nsHost host;
  if (NS_FAILED(host.Start({}))) return aState.SkipWithError("no host");
  {
    const nsSimulatedMachine machine;
    auto platform = std::make_shared<nsPlatform>(*machine.Platform());
    platform->mDisplays = std::make_shared<nsLinuxDisplays>(machine.mRegistry);
    for (auto _ : aState) {
      const auto manager = MakeRefCounted<nsSystemManager>(platform);
      if (NS_FAILED(manager->InitDisplay())) aState.SkipWithError("no look");
    }
  }
}
BENCHMARK(LookAtDisplays)->Unit(benchmark::kMillisecond);

// The program beside this one: its picture, and the processor's time that it takes.
void PictureOfThreeDisplays(benchmark::State& aState) {
  const Displays displays;
  if (!displays.Works()) return aState.SkipWithError("no Xorg with the dummy driver here");
  const std::string program =
      std::filesystem::read_symlink("/proc/self/exe").parent_path() / "vorel";
  std::vector<double> processor;
  for (auto _ : aState) {
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const char* arguments[] = {program.c_str(), "--json", nullptr};
    pid_t child = 0;
    int status = -1;
    rusage used{};
    if (posix_spawn(&child, program.c_str(), &files, nullptr, const_cast<char**>(arguments),
                    environ) != 0 ||
        wait4(child, &status, 0, &used) != child || status != 0)
      aState.SkipWithError("the program fails");
    posix_spawn_file_actions_destroy(&files);
    const auto seconds = [](const timeval& aTime) {
      return static_cast<double>(aTime.tv_sec) + static_cast<double>(aTime.tv_usec) * 1e-6;
    };
    processor.push_back(seconds(used.ru_utime) + seconds(used.ru_stime));
  }
  aState.counters["processor_p50_ms"] = NS_Percentile(processor, 0.5) * 1e3;
}
BENCHMARK(PictureOfThreeDisplays)->UseRealTime()->Iterations(50)->Unit(benchmark::kMillisecond);

}  // namespace

// How fast is a first snapshot, and what does an entry of it weigh? How long from a change to its
// report, and from the last of many new files to the report of it?
//
// On memory where there is some, to measure this and not a disk: 100,000 files in 5,000
// directories.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "nsHost.h"
#include "nsISystemFileSystemListener.h"
#include "nsIThread.h"
#include "nsIThreadManager.h"
#include "nsPlatform.h"
#include "nsServices.h"
#include "nsString.h"
#include "nsSystemFileSystemWatcher.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int kDirectories = 5000, kFilesEach = 20;

double Seconds(Clock::duration aTime) { return std::chrono::duration<double>(aTime).count(); }

class Listener final : public nsImplements<Listener, nsISystemFileSystemListener> {
 public:
  bool mStarted = false;
  size_t mReports = 0;

  nsresult OnWatcherStarted() override {
    mStarted = true;
    return NS_OK;
  }
  nsresult OnWatcherStopped() override { return NS_OK; }
  nsresult OnWatcherError(uint32_t, const nsAString&) override { std::abort(); }
  nsresult OnFileSystemChanged(const nsAString&) override { return Count(); }
  nsresult OnFileSystemRemoved(const nsAString&) override { return Count(); }
  nsresult OnFileSystemAdded(const nsAString&) override { return Count(); }

 private:
  ~Listener() override = default;
  nsresult Count() {
    ++mReports;
    return NS_OK;
  }
};

class Bench {
 public:
  Bench() {
    if (NS_FAILED(mHost.Start({}))) std::abort();
    std::string name = fs::is_directory("/dev/shm") ? "/dev/shm/" : "/tmp/";
    name += "vorel-bench-XXXXXX";
    mRoot = mkdtemp(name.data());
    (void)do_GetService<nsIThreadManager>(NS_THREADMANAGER_CONTRACTID)
        ->GetMainThread(mThread.getter_AddRefs());
  }
  ~Bench() {
    mHost.Stop();
    fs::remove_all(mRoot);
  }

  void RunUntil(const std::function<bool()>& aCondition) {
    bool processed;
    while (!aCondition()) (void)mThread->ProcessNextEvent(true, &processed);
  }
  void Fill(const std::string& aPrefix) {
    for (int directory = 0; directory < kDirectories; ++directory) {
      const fs::path path = mRoot / std::to_string(directory);
      fs::create_directories(path);
      for (int file = 0; file < kFilesEach; ++file)
        std::ofstream(path / (aPrefix + std::to_string(file)));
    }
  }
  nsCOMPtr<nsSystemFileSystemWatcher> Start(Listener* aListener) {
    auto watcher = MakeRefCounted<nsSystemFileSystemWatcher>(NS_NewNativePlatform());
    if (NS_FAILED(watcher->Init(aListener, nsCString("file://" + mRoot.native()), true)) ||
        NS_FAILED(watcher->StartWatching()))
      std::abort();
    RunUntil([&] { return aListener->mStarted; });
    return watcher;
  }

  nsHost mHost;
  fs::path mRoot;
  nsCOMPtr<nsIThread> mThread;
};

void FirstSnapshot(benchmark::State& aState) {
  Bench bench;
  bench.Fill("media-file-");
  constexpr double kEntries = kDirectories * (kFilesEach + 1.0);
  double bytes = 0;
  for (auto _ : aState) {
    const size_t before = mallinfo2().uordblks;
    const auto listener = MakeRefCounted<Listener>();
    const auto start = Clock::now();
    const auto watcher = bench.Start(listener.get());
    aState.SetIterationTime(Seconds(Clock::now() - start));
    // Later ones take the place that the first one leaves.
    if (bytes == 0) bytes = static_cast<double>(mallinfo2().uordblks - before) / kEntries;
    (void)watcher->StopWatching();
  }
  aState.counters["files/s"] =
      benchmark::Counter(kDirectories * kFilesEach, benchmark::Counter::kIsIterationInvariantRate);
  aState.counters["bytes/entry"] = bytes;
}
BENCHMARK(FirstSnapshot)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);

void OneChange(benchmark::State& aState) {
  Bench bench;
  const auto listener = MakeRefCounted<Listener>();
  const auto watcher = bench.Start(listener.get());
  std::vector<double> times;
  int number = 0;
  for (auto _ : aState) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    bool processed = true;
    while (processed) (void)bench.mThread->ProcessNextEvent(false, &processed);
    const size_t before = listener->mReports;
    const auto start = Clock::now();
    std::ofstream(bench.mRoot / std::to_string(number++));
    bench.RunUntil([&] { return listener->mReports > before; });
    times.push_back(Seconds(Clock::now() - start) * 1e3);
    aState.SetIterationTime(times.back() / 1e3);
  }
  std::sort(times.begin(), times.end());
  aState.counters["p50 ms"] = times[times.size() / 2];
  aState.counters["p99 ms"] = times[times.size() * 99 / 100];
  (void)watcher->StopWatching();
}
BENCHMARK(OneChange)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(500);

void BurstOfNewFiles(benchmark::State& aState) {
  Bench bench;
  bench.Fill("old");
  const auto listener = MakeRefCounted<Listener>();
  const auto watcher = bench.Start(listener.get());
  int number = 0;
  for (auto _ : aState) {
    const size_t wanted = listener->mReports + kDirectories * kFilesEach;
    // By hand of another thread, with the listener's at work.
    std::atomic<bool> done = false;
    std::thread maker([&] {
      bench.Fill("burst" + std::to_string(number++) + "-");
      done = true;
    });
    while (!done) {
      bool processed;
      (void)bench.mThread->ProcessNextEvent(false, &processed);
      if (!processed) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    maker.join();
    const auto end = Clock::now();
    bench.RunUntil([&] { return listener->mReports >= wanted; });
    aState.SetIterationTime(Seconds(Clock::now() - end));
  }
  (void)watcher->StopWatching();
}
BENCHMARK(BurstOfNewFiles)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

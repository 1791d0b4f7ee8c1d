// How long does a worker wait for a synchronous call to the main thread? Wanted: p50 of 15 us or
// less.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <vector>

#include "../host/xpcom/threads/nsThreadManager.h"

namespace {

double Percentile(std::vector<double>& aTimes, double aPart) {
  const auto at =
      aTimes.begin() + static_cast<ptrdiff_t>(aPart * static_cast<double>(aTimes.size() - 1));
  std::nth_element(aTimes.begin(), at, aTimes.end());
  return *at;
}

// The main thread sleeps in its event loop before each call, as it does in an idle player.
void WorkerToMain(benchmark::State& aState) {
  using Clock = std::chrono::steady_clock;
  auto& manager = nsThreadManager::get();
  nsCOMPtr<nsIThread> main, worker;
  if (NS_FAILED(manager.Init()) || NS_FAILED(manager.GetMainThread(main.getter_AddRefs())) ||
      NS_FAILED(manager.NewThread(0, 0, worker.getter_AddRefs()))) {
    aState.SkipWithError("no threads");
    return;
  }
  std::vector<double> times;
  bool stop = false;
  const auto nothing = NS_NewRunnable([] {});
  const auto calls = NS_NewRunnable([&] {
    for (auto _ : aState) {
      const auto start = Clock::now();
      benchmark::DoNotOptimize(main->Dispatch(nothing.get(), nsIEventTarget::DISPATCH_SYNC));
      const std::chrono::duration<double> time = Clock::now() - start;
      aState.SetIterationTime(time.count());
      times.push_back(time.count() * 1e6);
    }
    (void)main->Dispatch(NS_NewRunnable([&] { stop = true; }).get(),
                         nsIEventTarget::DISPATCH_NORMAL);
  });
  (void)worker->Dispatch(calls.get(), nsIEventTarget::DISPATCH_NORMAL);
  for (bool ran; !stop;) (void)main->ProcessNextEvent(true, &ran);
  aState.counters["p50_us"] = Percentile(times, 0.5);
  aState.counters["p99_us"] = Percentile(times, 0.99);
  (void)worker->Shutdown();
  manager.Shutdown();
}
BENCHMARK(WorkerToMain)->UseManualTime()->Iterations(20000)->Repetitions(5);

}  // namespace

// How long does a worker wait for a synchronous call to the main thread? Wanted: p50 of 15 us or
// less.
#include <benchmark/benchmark.h>

#include <chrono>
#include <functional>
#include <vector>

#include "nsHost.h"
#include "nsIRunnable.h"
#include "nsIThread.h"
#include "nsIThreadManager.h"
#include "nsImplements.h"
#include "nsPercentile.h"
#include "nsServices.h"

namespace {

class Runnable final : public nsImplements<Runnable, nsIRunnable> {
 public:
  explicit Runnable(std::function<void()> aFunction) : mFunction(std::move(aFunction)) {}
  nsresult Run() override {
    mFunction();
    return NS_OK;
  }

 private:
  ~Runnable() override = default;
  std::function<void()> mFunction;
};

// The main thread sleeps in its event loop before each call, as it does in an idle player.
void WorkerToMain(benchmark::State& aState) {
  using Clock = std::chrono::steady_clock;
  nsHost host;
  if (NS_FAILED(host.Start({}))) {
    aState.SkipWithError("no host");
    return;
  }
  const auto manager = do_GetService<nsIThreadManager>(NS_THREADMANAGER_CONTRACTID);
  nsCOMPtr<nsIThread> main, worker;
  (void)manager->GetMainThread(main.getter_AddRefs());
  (void)manager->NewThread(0, 0, worker.getter_AddRefs());
  std::vector<double> times;
  bool stop = false;
  const auto nothing = MakeRefCounted<Runnable>([] {});
  const auto calls = MakeRefCounted<Runnable>([&] {
    for (auto _ : aState) {
      const auto start = Clock::now();
      benchmark::DoNotOptimize(main->Dispatch(nothing.get(), nsIEventTarget::DISPATCH_SYNC));
      const std::chrono::duration<double> time = Clock::now() - start;
      aState.SetIterationTime(time.count());
      times.push_back(time.count() * 1e6);
    }
    (void)main->Dispatch(MakeRefCounted<Runnable>([&] { stop = true; }).get(),
                         nsIEventTarget::DISPATCH_NORMAL);
  });
  (void)worker->Dispatch(calls.get(), nsIEventTarget::DISPATCH_NORMAL);
  for (bool ran; !stop;) (void)main->ProcessNextEvent(true, &ran);
  aState.counters["p50_us"] = NS_Percentile(times, 0.5);
  aState.counters["p99_us"] = NS_Percentile(times, 0.99);
  (void)worker->Shutdown();
  host.Stop();
}
BENCHMARK(WorkerToMain)->UseManualTime()->Iterations(20000)->Repetitions(5);

}  // namespace

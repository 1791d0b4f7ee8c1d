// What does it cost to cross between script and compiled code? The loop stands on the side that
// calls, so that a whole crossing is measured; times are of one.
//
// And does memory stay what it is? "Growth" crosses 10^7 times and fails when the process has
// grown; that takes minutes, and --benchmark_filter=-Growth leaves it out.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdio>
#include <iostream>

#include "nsHost.h"
#include "nsIMutableArray.h"
#include "nsIObserverService.h"
#include "nsScriptHost.h"
#include "nsServices.h"
#include "nsXPCOM.h"

namespace {

constexpr int kCalls = 10000;

/// A host with an array and a text of its own, in script under the names that the loops use.
nsScriptHost* Scripts() {
  static nsHost sHost;
  static const std::unique_ptr<nsScriptHost> sScripts = [] {
    std::string error;
    nsHostOptions options;
    options.mModules = {&nsScriptHost::Module()};
    if (NS_FAILED(sHost.Start(options))) error = sHost.Error();
    auto scripts = error.empty() ? nsScriptHost::Create({}, &error) : nullptr;
    if (!scripts) std::cerr << error << "\n";
    if (scripts)
      (void)scripts->Evaluate(R"(
        const { classes, interfaces } = Components;
        const list = classes['@vorel/array;1'].createInstance(interfaces.nsIMutableArray);
        const number = classes['@mozilla.org/supports-PRUint32;1'].createInstance(interfaces.nsISupportsPRUint32);
        const text = classes['@mozilla.org/supports-string;1'].createInstance(interfaces.nsISupportsString);
        text.data = 'a name of usual length';
        const observers = classes['@mozilla.org/observer-service;1'].getService(interfaces.nsIObserverService);
        let heard = 0;
        observers.addObserver(() => { ++heard; }, 'bench', false);
        let subject;
        observers.addObserver({ observe(object) { subject = object; ++heard; } }, 'bench-object', false);
        function readAttribute(n) { let sum = 0; for (let i = 0; i < n; ++i) sum += number.data; return sum; }
        function readLength(n) { let sum = 0; for (let i = 0; i < n; ++i) sum += list.length; return sum; }
        function readString(n) { let sum = 0; for (let i = 0; i < n; ++i) sum += text.data.length; return sum; }
        function writeString(n) { for (let i = 0; i < n; ++i) text.data = 'a name of usual length'; }
        function callListener(n) { for (let i = 0; i < n; ++i) observers.notifyObservers(null, 'bench', null); }
        function makeObject(n) { for (let i = 0; i < n; ++i) classes['@mozilla.org/supports-PRUint32;1'].createInstance(); }
        function makeList(n) { for (let i = 0; i < n; ++i) classes['@vorel/array;1'].createInstance(); }
        function getObject(n) { for (let i = 0; i < n; ++i) list.enumerate(); }
        function giveObject(n) {
          for (let i = 0; i < n; ++i) {
            const observer = () => {};
            observers.addObserver(observer, 'given', false);
            observers.removeObserver(observer, 'given');
          }
        }
        function fail(n) { for (let i = 0; i < n; ++i) try { list.queryElementAt(7, null); } catch (error) {} }
        function startTimer(n) { for (let i = 0; i < n; ++i) clearTimeout(setTimeout(() => {}, 1e6)); }
        undefined)",
                              "bench.js", nullptr);
    return scripts;
  }();
  return sScripts.get();
}

void SetCallTime(benchmark::State& aState, int aCalls) {
  aState.counters["call"] =
      benchmark::Counter(static_cast<double>(aCalls) * static_cast<double>(aState.iterations()),
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

bool Run(const std::string& aScript) {
  nsScriptHost* const scripts = Scripts();
  return scripts && NS_SUCCEEDED(scripts->Evaluate(aScript, "bench.js", nullptr));
}

/// Calls one of the functions above.
bool Cross(const char* aFunction, int aCalls) {
  return Run(std::string(aFunction) + "(" + std::to_string(aCalls) + "); undefined");
}

void Loop(benchmark::State& aState, const char* aFunction) {
  for (auto _ : aState)
    if (!Cross(aFunction, kCalls)) return aState.SkipWithError("the script failed");
  SetCallTime(aState, kCalls);
}

/// Events of compiled code that a listener of script hears, with nothing of script around them.
bool Notify(const char* aTopic, int aCalls) {
  if (!Scripts()) return false;
  const auto observers = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID);
  const auto subject = do_CreateInstance<nsIMutableArray>(VOREL_ARRAY_CONTRACTID);
  for (int i = 0; i < aCalls; ++i)
    if (NS_FAILED(observers->NotifyObservers(subject.get(), aTopic, nullptr))) return false;
  return true;
}

void Notify(benchmark::State& aState, const char* aTopic) {
  for (auto _ : aState)
    if (!Notify(aTopic, kCalls)) return aState.SkipWithError("the listener was not called");
  SetCallTime(aState, kCalls);
}

struct Memory {
  double mHeap;      ///< bytes that are allocated
  double mResident;  ///< bytes that the process takes; those of the engine's objects are among them
};

Memory MemoryNow() {
  (void)Run("Components.utils.forceGC()");
  (void)malloc_trim(0);
  unsigned long pages = 0;
  if (FILE* const file = fopen("/proc/self/statm", "r")) {
    (void)!fscanf(file, "%*u %lu", &pages);
    fclose(file);
  }
  const auto heap = mallinfo2();
  return {static_cast<double>(heap.uordblks + heap.hblkhd), static_cast<double>(pages) * 4096};
}

void Growth(benchmark::State& aState, bool (*aCross)(const char*, int), const char* aWhat) {
  constexpr int kSlice = 1'000'000, kSlices = 10;
  constexpr double kAllowed = 2e6;  // a fifth of a byte a crossing
  for (auto _ : aState) {
    // Whatever grows to its usual size in the beginning.
    if (!aCross(aWhat, kSlice)) return aState.SkipWithError("the script failed");
    const Memory before = MemoryNow();
    for (int i = 0; i < kSlices; ++i)
      if (!aCross(aWhat, kSlice)) return aState.SkipWithError("the script failed");
    const Memory after = MemoryNow();
    const double heap = after.mHeap - before.mHeap;
    const double resident = after.mResident - before.mResident;
    aState.counters["heap"] = heap;
    aState.counters["resident"] = resident;
    if (heap > kAllowed || resident > kAllowed) {
      const std::string text = "memory has grown: the heap by " + std::to_string(heap) +
                               " bytes, the process by " + std::to_string(resident);
      return aState.SkipWithError(text.c_str());
    }
  }
  SetCallTime(aState, kSlice * (kSlices + 1));
}

BENCHMARK_CAPTURE(Loop, ReadAttribute, "readAttribute");
// A list is seen through its elements, which costs.
BENCHMARK_CAPTURE(Loop, ReadLength, "readLength");
BENCHMARK_CAPTURE(Loop, ReadString, "readString");
BENCHMARK_CAPTURE(Loop, WriteString, "writeString");
BENCHMARK_CAPTURE(Notify, Listener, "bench");
BENCHMARK_CAPTURE(Notify, ListenerThatKeeps, "bench-object");
// From script into compiled code, and back into script from there.
BENCHMARK_CAPTURE(Loop, NotifyListener, "callListener");
BENCHMARK_CAPTURE(Loop, MakeObject, "makeObject");
BENCHMARK_CAPTURE(Loop, MakeList, "makeList");

BENCHMARK_CAPTURE(Growth, ReadAttribute, Cross, "readAttribute")->Iterations(1);
BENCHMARK_CAPTURE(Growth, ReadString, Cross, "readString")->Iterations(1);
BENCHMARK_CAPTURE(Growth, WriteString, Cross, "writeString")->Iterations(1);
BENCHMARK_CAPTURE(Growth, Listener, Notify, "bench")->Iterations(1);
BENCHMARK_CAPTURE(Growth, NotifyListener, Cross, "callListener")->Iterations(1);
BENCHMARK_CAPTURE(Growth, MakeObject, Cross, "makeObject")->Iterations(1);
BENCHMARK_CAPTURE(Growth, MakeList, Cross, "makeList")->Iterations(1);
BENCHMARK_CAPTURE(Growth, GetObject, Cross, "getObject")->Iterations(1);
BENCHMARK_CAPTURE(Growth, GiveObject, Cross, "giveObject")->Iterations(1);
BENCHMARK_CAPTURE(Growth, Fail, Cross, "fail")->Iterations(1);
BENCHMARK_CAPTURE(Growth, StartTimer, Cross, "startTimer")->Iterations(1);

}  // namespace

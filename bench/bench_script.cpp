// What does it cost to cross between script and compiled code? The loop stands on the side that
// calls, so that a whole crossing is measured; times are of one.
#include <benchmark/benchmark.h>

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
    if (NS_FAILED(sHost.Start({}))) error = sHost.Error();
    auto scripts = error.empty() ? nsScriptHost::Create({}, &error) : nullptr;
    if (!scripts) std::cerr << error << "\n";
    if (scripts)
      (void)scripts->Evaluate(R"(
        const { classes, interfaces } = Components;
        const list = classes['@vorel/array;1'].createInstance(interfaces.nsIMutableArray);
        const text = classes['@mozilla.org/supports-string;1'].createInstance(interfaces.nsISupportsString);
        text.data = 'a name of usual length';
        const observers = classes['@mozilla.org/observer-service;1'].getService(interfaces.nsIObserverService);
        let heard = 0;
        observers.addObserver(() => { ++heard; }, 'bench', false);
        let subject;
        observers.addObserver({ observe(object) { subject = object; ++heard; } }, 'bench-object', false);
        function readAttribute(n) { let sum = 0; for (let i = 0; i < n; ++i) sum += list.length; return sum; }
        function readString(n) { let sum = 0; for (let i = 0; i < n; ++i) sum += text.data.length; return sum; }
        function writeString(n) { for (let i = 0; i < n; ++i) text.data = 'a name of usual length'; }
        function callListener(n) { for (let i = 0; i < n; ++i) observers.notifyObservers(null, 'bench', null); }
        function makeObject(n) { for (let i = 0; i < n; ++i) classes['@vorel/array;1'].createInstance(); }
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

void Loop(benchmark::State& aState, const char* aFunction) {
  nsScriptHost* const scripts = Scripts();
  if (!scripts) return aState.SkipWithError("no scripts");
  const std::string call = std::string(aFunction) + "(" + std::to_string(kCalls) + "); undefined";
  for (auto _ : aState)
    if (NS_FAILED(scripts->Evaluate(call, "bench.js", nullptr)))
      return aState.SkipWithError("the script failed");
  SetCallTime(aState, kCalls);
}

/// An event of compiled code that a listener of script hears, with nothing of script around it.
void Notify(benchmark::State& aState, const char* aTopic, bool aWithObject) {
  if (!Scripts()) return aState.SkipWithError("no scripts");
  const auto observers = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID);
  const auto subject =
      aWithObject ? do_CreateInstance<nsIMutableArray>(VOREL_ARRAY_CONTRACTID) : nullptr;
  for (auto _ : aState)
    if (NS_FAILED(observers->NotifyObservers(subject.get(), aTopic, nullptr)))
      return aState.SkipWithError("the listener was not called");
  SetCallTime(aState, 1);
}

BENCHMARK_CAPTURE(Loop, ReadAttribute, "readAttribute");
BENCHMARK_CAPTURE(Loop, ReadString, "readString");
BENCHMARK_CAPTURE(Loop, WriteString, "writeString");
BENCHMARK_CAPTURE(Notify, Listener, "bench", false);
BENCHMARK_CAPTURE(Notify, ListenerOfObject, "bench-object", true);
// From script into compiled code, and back into script from there.
BENCHMARK_CAPTURE(Loop, NotifyListener, "callListener");
BENCHMARK_CAPTURE(Loop, MakeObject, "makeObject");

}  // namespace

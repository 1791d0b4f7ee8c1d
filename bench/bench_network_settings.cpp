// How long does a change of an interface's settings take, from the store to being in force, and
// back? Wanted: 300 ms or less for fixed addresses in the kernel, 1.5 s or less by a network
// service.
//
// By itself it makes a network namespace, without a service, and needs the right to do so. With
// VOREL_BENCH_INTERFACE it works on that interface of the machine, with what manages it there: it
// has 192.0.2.10 and 192.0.2.11 in turn, and what it had before at the end.
#include <benchmark/benchmark.h>
#include <sched.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>

#include "nsLinuxNetwork.h"
#include "nsLinuxNetworkSettings.h"
#include "nsNetworkChange.h"
#include "nsSimulatedMachine.h"

namespace {

using R = nsPlatformRegistry;
using End = nsNetworkChange::End;

struct Bench {
  Bench() {
    std::string name = (std::filesystem::temp_directory_path() / "vorel-bench-XXXXXX").string();
    mDirectory = mkdtemp(name.data());
    const char* const interface = std::getenv("VOREL_BENCH_INTERFACE");
    mInterface = interface ? interface : "eth0";
    if (!interface && (unshare(CLONE_NEWNET) != 0 ||
                       system("ip link add eth0 type veth peer name eth0x && ip link set eth0 up &&"
                              "ip link set eth0x up && ip addr add 192.0.2.5/24 dev eth0") != 0)) {
      std::cerr << "a network namespace is needed\n";
      std::exit(1);
    }
    nsLinuxNetworkSettings::Options options;
    options.mState = mDirectory + "/network";
    if (!interface) options.mBus = "unix:path=" + mDirectory + "/none";
    auto platform = std::make_shared<nsPlatform>(*mMachine.Platform());
    platform->mNetwork = std::make_shared<nsLinuxNetwork>();
    platform->mNetworkSettings = std::make_shared<nsLinuxNetworkSettings>(options);
    mPlatform = platform;
  }
  ~Bench() { std::filesystem::remove_all(mDirectory); }

  void Store(const std::string& aAddress) {
    const std::string key = NS_TcpipInterfaceKey(mInterface);
    auto& registry = *mMachine.mRegistry;
    registry.Put(key, {"EnableDHCP", R::kDword, NS_RegistryDword(0)});
    registry.Put(key, {"IpAddress", R::kMultiString, NS_RegistryStrings({aAddress})});
    registry.Put(key, {"SubnetMask", R::kMultiString, NS_RegistryStrings({"255.255.255.0"})});
    registry.Put(key, {"DefaultGateway", R::kMultiString, NS_RegistryStrings({"192.0.2.1"})});
  }

  std::string mDirectory, mInterface;
  nsSimulatedMachine mMachine;
  nsPlatformRef mPlatform;
};

Bench& TheBench() {
  static Bench sBench;
  return sBench;
}

void Settings(benchmark::State& aState, bool aBack) {
  Bench& bench = TheBench();
  nsNetworkChange change(bench.mPlatform);
  int round = 0;
  for (auto _ : aState) {
    aState.PauseTiming();
    bench.Store(round++ % 2 ? "192.0.2.10" : "192.0.2.11");
    if (!aBack) aState.ResumeTiming();
    const auto tried = change.Try(60);
    if (aBack)
      aState.ResumeTiming();
    else
      aState.PauseTiming();
    const auto back = change.TakeBack("");
    if (!aBack) aState.ResumeTiming();
    if (tried.mEnd != End::eOnTrial || back.mEnd != End::eTakenBack)
      aState.SkipWithError((tried.mReason + back.mReason).c_str());
  }
}

BENCHMARK_CAPTURE(Settings, InForce, false)->Unit(benchmark::kMillisecond)->Iterations(30);
BENCHMARK_CAPTURE(Settings, TakenBack, true)->Unit(benchmark::kMillisecond)->Iterations(30);

}  // namespace

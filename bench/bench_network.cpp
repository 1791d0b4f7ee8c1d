// Does the picture of the network keep up with the network? In a namespace with 200 interfaces,
// with the library in a host as in a player. Wanted: a discovery run of 10 ms or less, beside what
// "ip -j addr" takes; from a change of a link to the listener 20 ms or less (p99); the true picture
// after 10000 changes as fast as they can be made, without growth of memory; the true picture 50 ms
// after changes that were lost because nobody took them.
//
// Needs the right to make a network namespace, and the program ip.
#include <benchmark/benchmark.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <thread>

#include "../host/tests/network/nsLostMessages.h"
#include "nsCOMPtr.h"
#include "nsHost.h"
#include "nsIArray.h"
#include "nsIObserver.h"
#include "nsIObserverService.h"
#include "nsIRunnable.h"
#include "nsISystemAdapterIP.h"
#include "nsISystemAdapterListener.h"
#include "nsISystemIPAddress.h"
#include "nsISystemIPStructure.h"
#include "nsISystemMACStructure.h"
#include "nsISystemManager.h"
#include "nsIThread.h"
#include "nsIThreadManager.h"
#include "nsImplements.h"
#include "nsPercentile.h"
#include "nsServices.h"
#include "nsString.h"

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;
constexpr int kWires = 100;  // of two interfaces each
constexpr uint32_t kUp = 1, kDown = 2;

[[noreturn]] void Give(const std::string& aUp) {
  std::cerr << aUp << '\n';
  std::exit(1);
}
void Require(nsresult aRv, const char* aWhat) {
  if (NS_FAILED(aRv)) Give(std::string(aWhat) + ": " + std::string(NS_ResultName(aRv)));
}

/// The program ip, which does one line after the other, and does not mind failures.
class IpBatch {
 public:
  IpBatch() : mPipe(popen("ip -force -batch - 2>/dev/null", "w")) {
    if (!mPipe) Give("ip can't be run");
  }
  ~IpBatch() { pclose(mPipe); }
  IpBatch(const IpBatch&) = delete;
  IpBatch& operator=(const IpBatch&) = delete;
  void operator()(const std::string& aLine) { std::fputs((aLine + '\n').c_str(), mPipe); }

 private:
  FILE* const mPipe;
};

std::string AskIp() {
  FILE* const pipe = popen("ip -j addr", "r");
  if (!pipe) Give("ip can't be run");
  std::string text;
  char buffer[65536];
  while (const size_t got = std::fread(buffer, 1, sizeof buffer, pipe)) text.append(buffer, got);
  pclose(pipe);
  return text;
}

/// "up 02:00:00:00:00:01 10.0.0.1/24 ..." by name.
using Picture = std::map<std::string, std::string>;

Picture TruePicture() {
  Picture picture;
  for (const auto& link : nlohmann::json::parse(AskIp())) {
    if (link["link_type"] != "ether") continue;
    std::multiset<std::string> addresses;
    for (const auto& address : link["addr_info"])
      addresses.insert(address["local"].get<std::string>() + '/' +
                       std::to_string(address["prefixlen"].get<int>()));
    std::string& text = picture[link["ifname"]];
    text = link["operstate"] == "UP" ? "up " : "down ";
    text += link["address"];
    for (const std::string& address : addresses) text += ' ' + address;
  }
  return picture;
}

class Nothing final : public nsImplements<Nothing, nsIRunnable> {
 public:
  nsresult Run() override { return NS_OK; }

 private:
  ~Nothing() override = default;
};

/// The host with the library, in a namespace of its own with the interfaces "a0" to "a99" and,
/// at the other ends, "b0" to "b99".
class Player {
 public:
  static Player& Get() {
    static Player sPlayer;
    return sPlayer;
  }

  nsISystemManager& Manager() { return *mManager; }

  bool RunOneEvent(bool aMayWait) {
    bool ran = false;
    Require(mMain->ProcessNextEvent(aMayWait, &ran), "events");
    return ran;
  }
  template <class Condition>
  void RunUntil(const Condition& aCondition) {
    while (!aCondition()) RunOneEvent(true);
  }
  void Wake() {
    Require(mMain->Dispatch(MakeRefCounted<Nothing>().get(), nsIEventTarget::DISPATCH_NORMAL),
            "dispatch");
  }
  /// Until the network and its picture have come to rest.
  void Settle() {
    constexpr std::chrono::milliseconds kRest(200);
    for (auto end = Clock::now() + kRest; Clock::now() < end;) {
      if (RunOneEvent(false))
        end = Clock::now() + kRest;
      else
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

  Picture Seen() {
    Picture picture;
    ForEach([&](nsISystemAdapterIP& aAdapter) {
      uint32_t status;
      nsCString text;
      nsString name;
      nsCOMPtr<nsISystemMACStructure> mac;
      nsCOMPtr<nsIArray> addresses;
      Require(aAdapter.GetSysPath(name), "name");
      Require(aAdapter.GetOperStatus(&status), "status");
      Require(aAdapter.GetMacAddress(mac.getter_AddRefs()), "MAC address");
      Require(mac->GetString(text), "MAC address");
      std::string line = status == kUp ? "up " : "down ";
      for (const char c : NS_View(text))
        line += c == '-' ? ':' : static_cast<char>(std::tolower(c));
      Require(aAdapter.GetUnicastAddresses(addresses.getter_AddRefs()), "addresses");
      std::multiset<std::string> all;
      ForEachOf<nsISystemIPAddress>(*addresses, [&](nsISystemIPAddress& aAddress) {
        nsCOMPtr<nsISystemIPStructure> address;
        uint8_t length;
        Require(aAddress.GetAddress(address.getter_AddRefs()), "address");
        Require(address->GetString(text), "address");
        Require(aAddress.GetPrefixLength(&length), "prefix");
        all.insert(std::string(NS_View(text)) + '/' + std::to_string(length));
      });
      for (const std::string& address : all) line += ' ' + address;
      picture[NS_ToUtf8(NS_View(name))] = line;
    });
    return picture;
  }

  int mNotices = 0;
  /// Adapter and its status.
  std::function<void(const std::string&, uint32_t)> mOnChanged;

 private:
  class Listener final : public nsImplements<Listener, nsISystemAdapterListener, nsIObserver> {
   public:
    explicit Listener(Player& aPlayer) : mPlayer(aPlayer) {}
    nsresult OnAdapterAdded(nsISystemAdapter*) override { return NS_OK; }
    nsresult OnAdapterRemoved(nsISystemAdapter*) override { return NS_OK; }
    nsresult OnAdapterChanged(nsISystemAdapter* aAdapter) override {
      const auto ip = do_QueryInterface<nsISystemAdapterIP>(aAdapter);
      nsString name;
      uint32_t status = 0;
      if (mPlayer.mOnChanged && ip && NS_SUCCEEDED(ip->GetSysPath(name)) &&
          NS_SUCCEEDED(ip->GetOperStatus(&status)))
        mPlayer.mOnChanged(NS_ToUtf8(NS_View(name)), status);
      return NS_OK;
    }
    nsresult Observe(nsISupports*, const char*, const char16_t*) override {
      ++mPlayer.mNotices;
      return NS_OK;
    }

   private:
    ~Listener() override = default;
    Player& mPlayer;
  };

  Player() {
    if (unshare(CLONE_NEWNET | CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("sysfs", "/sys", "sysfs", 0, nullptr) != 0)
      Give("no right to make a network namespace");
    {
      IpBatch ip;
      for (int i = 0; i < kWires; ++i) {
        const std::string n = std::to_string(i);
        ip("link add a" + n + " type veth peer name b" + n);
        ip("address add 10.0." + n + ".1/24 dev a" + n);
        ip("link set b" + n + " up");
        ip("link set a" + n + " up");
      }
    }
    nsHostOptions options;
    const std::string manifest = "/tmp/vorel-bench-" + std::to_string(getpid()) + ".manifest";
    std::ofstream(manifest) << "binary-component "
                            << std::filesystem::canonical("/proc/self/exe")
                                   .replace_filename("libvorelsystem.so")
                                   .native()
                            << '\n';
    options.mManifests = {manifest};
    Require(mHost.Start(options), "host");
    std::filesystem::remove(manifest);
    Require(mHost.StartProfile(), "profile");
    const auto threads = do_GetService<nsIThreadManager>(NS_THREADMANAGER_CONTRACTID);
    Require(threads->GetMainThread(mMain.getter_AddRefs()), "main thread");
    mManager = do_GetService<nsISystemManager>("@vorel/system/systemmanager;1");
    if (!mManager) Give("no manager");
    const auto listener = MakeRefCounted<Listener>(*this);
    Require(mManager->AddAdapterListener(listener.get()), "listener");
    const auto os = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID);
    Require(os->AddObserver(listener.get(), "network:link-status-changed", false), "observer");
    Settle();
    if (Seen().size() != 2 * kWires || Seen() != TruePicture()) Give("the first picture is wrong");
  }

  template <class I, class Function>
  static void ForEachOf(nsIArray& aArray, const Function& aFunction) {
    uint32_t length;
    Require(aArray.GetLength(&length), "array");
    for (uint32_t i = 0; i < length; ++i) {
      nsCOMPtr<I> element;
      Require(aArray.QueryElementAt(i, I::kIID, NS_OutVoid(element)), "element");
      aFunction(*element);
    }
  }
  template <class Function>
  void ForEach(const Function& aFunction) {
    nsCOMPtr<nsIArray> adapters;
    Require(mManager->GetAdaptersByIId(nsISystemAdapterIP::kIID, adapters.getter_AddRefs()),
            "adapters");
    ForEachOf<nsISystemAdapterIP>(*adapters, aFunction);
  }

  nsHost mHost;
  nsCOMPtr<nsIThread> mMain;
  nsCOMPtr<nsISystemManager> mManager;
};

void DiscoveryRun(benchmark::State& aState) {
  Player& player = Player::Get();
  for (auto _ : aState)
    Require(player.Manager().RefreshAdapters(nsISystemAdapterIP::kIID), "discovery");
}
BENCHMARK(DiscoveryRun)->Unit(benchmark::kMillisecond);

void IpProgram(benchmark::State& aState) {
  (void)Player::Get();
  for (auto _ : aState) benchmark::DoNotOptimize(AskIp());
}
BENCHMARK(IpProgram)->Unit(benchmark::kMillisecond)->UseRealTime();

void SetUp(const std::string& aName, bool aUp) {
  static const int sSocket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request{};
  aName.copy(request.ifr_name, IFNAMSIZ - 1);
  bool done = ioctl(sSocket, SIOCGIFFLAGS, &request) == 0;
  request.ifr_flags =
      static_cast<short>(aUp ? request.ifr_flags | IFF_UP : request.ifr_flags & ~IFF_UP);
  done = done && ioctl(sSocket, SIOCSIFFLAGS, &request) == 0;
  if (!done) Give("the link does not obey");
}

// From a link going down to the listener's call, which shows it so.
void LinkChangeToListener(benchmark::State& aState) {
  Player& player = Player::Get();
  std::mt19937 random(5);
  std::vector<double> times;
  for (auto _ : aState) {
    const std::string name = "a" + std::to_string(random() % kWires);
    const auto change = [&](bool aUp) {
      bool told = false;
      player.mOnChanged = [&](const std::string& aName, uint32_t aStatus) {
        told = told || (aName == name && (aStatus == kUp) == aUp);
      };
      SetUp(name, aUp);  // the system waits in it for others, before and after the change
      const auto start = Clock::now();
      player.RunUntil([&] { return told; });
      return Milliseconds(Clock::now() - start).count();
    };
    times.push_back(change(false));
    aState.SetIterationTime(times.back() / 1000);
    (void)change(true);
    player.Settle();
  }
  player.mOnChanged = nullptr;
  aState.counters["p50_ms"] = NS_Percentile(times, 0.5);
  aState.counters["p99_ms"] = NS_Percentile(times, 0.99);
  aState.counters["max_ms"] = NS_Percentile(times, 1);
}
BENCHMARK(LinkChangeToListener)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(200);

double ResidentKilobytes() {
  std::ifstream file("/proc/self/statm");
  double size = 0, resident = 0;
  file >> size >> resident;
  return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024;
}

std::string RandomChange(std::mt19937& aRandom) {
  const std::string n = std::to_string(aRandom() % kWires);
  const std::string name = (aRandom() % 2 ? "a" : "b") + n;
  const std::string address =
      "10.1." + n + '.' + std::to_string(1 + aRandom() % 4) + "/24 dev " + name;
  switch (aRandom() % 9) {
    case 0:
      return "link delete a" + n;
    case 1:
    case 2:  // twice, since it fails while they are there
      return "link add a" + n + " type veth peer name b" + n;
    case 3:
      return "link set " + name + " down";
    case 4:
    case 5:
      return "link set " + name + " up";
    case 6:
    case 7:
      return "address add " + address;
    default:
      return "address delete " + address;
  }
}

// The worst case: nothing rests until the last change. The time is from then to the true picture.
void RandomChanges(benchmark::State& aState) {
  Player& player = Player::Get();
  std::mt19937 random(6);
  const auto storm = [&](int aChanges) {
    std::atomic<bool> done = false;
    std::thread changer([&] {
      {
        IpBatch ip;
        for (int i = 0; i < aChanges; ++i) ip(RandomChange(random));
      }
      done = true;
      player.Wake();
    });
    player.RunUntil([&] { return done.load(); });
    changer.join();
  };
  storm(2000);  // what is kept for a while is kept by now
  player.Settle();
  const double before = ResidentKilobytes();
  player.mNotices = 0;
  for (auto _ : aState) {
    const auto begin = Clock::now();
    storm(10000);
    const auto end = Clock::now();
    // IPv6 addresses come up to seconds later, by themselves; the picture follows.
    player.Settle();
    aState.SetIterationTime(Milliseconds(end - begin).count() / 1000);
    if (player.Seen() != TruePicture()) aState.SkipWithError("the picture is wrong");
  }
  aState.counters["notices"] = player.mNotices;
  aState.counters["growth_kB"] = ResidentKilobytes() - before;
}
BENCHMARK(RandomChanges)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1);

// While the main thread is busy elsewhere, more changes than the system keeps. Then one more, of
// which nothing was heard, and the time from when the main thread is back to its picture.
void Overrun(benchmark::State& aState) {
  Player& player = Player::Get();
  IpBatch()("link add a0 type veth peer name b0");
  player.Settle();
  std::vector<double> times;
  int octet = 0;
  for (auto _ : aState) {
    const long before = NS_LostMessages();
    while (NS_LostMessages() == before) {
      IpBatch ip;
      for (int i = 0; i < 500; ++i) ip("link set a0 mtu " + std::to_string(1000 + i));
    }
    const std::string address = "10.2.0." + std::to_string(++octet) + "/32";
    IpBatch()("address add " + address + " dev a0");
    const auto start = Clock::now();
    player.RunUntil([&] { return player.Seen()["a0"].find(address) != std::string::npos; });
    times.push_back(Milliseconds(Clock::now() - start).count());
    aState.SetIterationTime(times.back() / 1000);
    player.Settle();
  }
  aState.counters["max_ms"] = NS_Percentile(times, 1);
}
BENCHMARK(Overrun)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);

}  // namespace

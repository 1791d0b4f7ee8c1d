// What do a port's streams cost above the bare descriptor, and what does an open port cost at rest?
// Wanted: one byte there and back in mode 1 within 1.3 times the bare descriptor, 1 MiB both ways
// at 0.8 of its speed at least, at most 10 wake-ups a second for a port of mode 2 at rest, and none
// where nothing has to be looked at. On pseudo terminals, so any machine will do; the peer is a
// thread of this program.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <optional>
#include <string>
#include <thread>

#include "nsHost.h"
#include "nsLinuxComm.h"
#include "nsPercentile.h"
#include "nsSimulatedMachine.h"
#include "nsString.h"
#include "nsSystemAdapterSerial.h"
#include "nsTemporaryDirectory.h"
#include "nsUniqueFd.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kMebibyte = 1 << 20;
constexpr size_t kPiece = 4096;

// A pseudo terminal whose far end sends back what it gets.
class Echo {
 public:
  explicit Echo(bool aAnswers = true) : mMaster(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    char name[64] = {};
    if (grantpt(mMaster.get()) != 0 || unlockpt(mMaster.get()) != 0 ||
        ptsname_r(mMaster.get(), name, sizeof name) != 0)
      return;
    mDevice = name;
    mSlave = nsUniqueFd(open(name, O_RDWR | O_NOCTTY | O_CLOEXEC));
    termios state{};
    (void)tcgetattr(mSlave.get(), &state);
    cfmakeraw(&state);
    (void)tcsetattr(mSlave.get(), TCSANOW, &state);
    if (aAnswers) mPeer = std::thread([this] { Answer(); });
  }
  ~Echo() {
    mEnds = true;
    if (mPeer.joinable()) mPeer.join();
  }
  const std::string& Device() const { return mDevice; }
  int Fd() const { return mSlave.get(); }

 private:
  void Answer() const {
    char bytes[kPiece];
    while (!mEnds) {
      pollfd fd = {mMaster.get(), POLLIN, 0};
      if (poll(&fd, 1, 20) <= 0) continue;
      const ssize_t length = read(mMaster.get(), bytes, sizeof bytes);
      for (ssize_t at = 0; at < length;) {
        const ssize_t sent = write(mMaster.get(), bytes + at, static_cast<size_t>(length - at));
        if (sent <= 0) return;
        at += sent;
      }
    }
  }

  nsUniqueFd mMaster, mSlave;
  std::string mDevice;
  std::atomic<bool> mEnds{false};
  std::thread mPeer;
};

class Machine {
 public:
  explicit Machine(std::vector<std::pair<std::string, std::string>> aPorts)
      : mPlatform(std::make_shared<nsPlatform>(*mSimulated.Platform())) {
    mPlatform->mComm = std::make_shared<nsLinuxComm>(
        nullptr, nsLinuxComm::Options{.mMore = std::move(aPorts),
                                      .mLockDirectory = mLocks.Path().string(),
                                      .mListed = false});
  }
  nsCOMPtr<nsSystemAdapterSerial> Open(const std::string& aName, uint32_t aMode) const {
    auto port = MakeRefCounted<nsSystemAdapterSerial>(mPlatform, nsString(NS_ToUtf16(aName)),
                                                      nsString(u"label"), 0x127u);
    if (NS_FAILED(port->SetMode(aMode)) || NS_FAILED(port->SetTimeout(2000)) ||
        NS_FAILED(port->Open()))
      return nullptr;
    return port;
  }

 private:
  nsTemporaryDirectory mLocks;
  nsSimulatedMachine mSimulated;
  std::shared_ptr<nsPlatform> mPlatform;
};

// A way to write and read whole pieces; false after a failure.
struct Bare {
  int mFd;
  bool Write(const char* aBytes, size_t aCount) const {
    for (size_t at = 0; at < aCount;) {
      const ssize_t sent = write(mFd, aBytes + at, aCount - at);
      if (sent <= 0) return false;
      at += static_cast<size_t>(sent);
    }
    return true;
  }
  bool Read(char* aBytes, size_t aCount) const {
    for (size_t at = 0; at < aCount;) {
      const ssize_t got = read(mFd, aBytes + at, aCount - at);
      if (got <= 0) return false;
      at += static_cast<size_t>(got);
    }
    return true;
  }
};
struct Streams {
  nsCOMPtr<nsIAsyncInputStream> mInput;
  nsCOMPtr<nsIAsyncOutputStream> mOutput;
  explicit Streams(const nsCOMPtr<nsSystemAdapterSerial>& aPort) {
    (void)aPort->GetInputStream(mInput.getter_AddRefs());
    (void)aPort->GetOutputStream(mOutput.getter_AddRefs());
  }
  bool Write(const char* aBytes, size_t aCount) const {
    for (size_t at = 0; at < aCount;) {
      uint32_t sent = 0;
      if (NS_FAILED(mOutput->Write(aBytes + at, static_cast<uint32_t>(aCount - at), &sent)) ||
          sent == 0)
        return false;
      at += sent;
    }
    return true;
  }
  bool Read(char* aBytes, size_t aCount) const {
    for (size_t at = 0; at < aCount;) {
      uint32_t got = 0;
      if (NS_FAILED(mInput->Read(aBytes + at, static_cast<uint32_t>(aCount - at), &got)) ||
          got == 0)
        return false;
      at += got;
    }
    return true;
  }
};

// In microseconds. Nothing after a failure.
template <class Way>
std::optional<double> OneByte(const Way& aWay) {
  const auto start = Clock::now();
  char byte = 'x';
  if (!aWay.Write(&byte, 1) || !aWay.Read(&byte, 1)) return std::nullopt;
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

// In turns on one terminal: what else the machine does, and where its scheduler puts this thread
// and the peer, is the same for both.
void OneByteBothInTurns(benchmark::State& aState, const Bare& aBare, const Streams& aPort) {
  constexpr int kTurn = 50;
  std::vector<double> bare, port;
  for (auto _ : aState) {
    for (int i = 0; i < 2 * kTurn; ++i) {
      const auto time = i < kTurn ? OneByte(aBare) : OneByte(aPort);
      if (!time) return aState.SkipWithError("no echo");
      (i < kTurn ? bare : port).push_back(*time);
    }
  }
  const double bareHalf = NS_Percentile(bare, 0.5), portHalf = NS_Percentile(port, 0.5);
  aState.counters["bare_p50_us"] = bareHalf;
  aState.counters["port_p50_us"] = portHalf;
  aState.counters["bare_p99_us"] = NS_Percentile(bare, 0.99);
  aState.counters["port_p99_us"] = NS_Percentile(port, 0.99);
  aState.counters["ratio_of_p50"] = portHalf / bareHalf;
}

template <class Way>
void BothWays(benchmark::State& aState, const Way& aWay) {
  const std::string sent(kPiece, 'x');
  std::string got(kPiece, '\0');
  for (auto _ : aState) {
    std::atomic<bool> failed{false};
    std::thread writer([&] {
      for (size_t at = 0; at < kMebibyte; at += kPiece)
        if (!aWay.Write(sent.data(), kPiece)) failed = true;
    });
    for (size_t at = 0; at < kMebibyte && !failed; at += kPiece)
      if (!aWay.Read(got.data(), kPiece)) failed = true;
    writer.join();
    if (failed) return aState.SkipWithError("bytes were lost");
  }
  aState.SetBytesProcessed(aState.iterations() * int64_t{2 * kMebibyte});
}

template <class Measure>
void OnThePort(benchmark::State& aState, const Echo& aEcho, Measure aMeasure) {
  nsHost host;
  if (NS_FAILED(host.Start({}))) return aState.SkipWithError("no host");
  const Machine machine({{"COM40", aEcho.Device()}});
  if (const auto port = machine.Open("COM40", 1)) {
    aMeasure(Streams(port));
    (void)port->Close();
  } else {
    aState.SkipWithError("the port can't be opened");
  }
}

void OneByteInTurns(benchmark::State& aState) {
  const Echo echo;
  OnThePort(aState, echo,
            [&](const Streams& aPort) { OneByteBothInTurns(aState, Bare{echo.Fd()}, aPort); });
}
void BothWaysBare(benchmark::State& aState) {
  const Echo echo;
  BothWays(aState, Bare{echo.Fd()});
}
void BothWaysModeOne(benchmark::State& aState) {
  const Echo echo;
  OnThePort(aState, echo, [&](const Streams& aPort) { BothWays(aState, aPort); });
}
BENCHMARK(OneByteInTurns)->UseRealTime();
BENCHMARK(BothWaysBare)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BothWaysModeOne)->UseRealTime()->Unit(benchmark::kMillisecond);

// How often a thread of this process has waited so far.
long WakeUps() {
  long sum = 0;
  DIR* const tasks = opendir("/proc/self/task");
  while (const dirent* task = readdir(tasks)) {
    std::ifstream status("/proc/self/task/" + std::string(task->d_name) + "/status");
    for (std::string line; std::getline(status, line);)
      if (line.starts_with("voluntary_ctxt_switches:")) sum += std::stol(line.substr(24));
  }
  closedir(tasks);
  return sum;
}

void PortsAtRest(benchmark::State& aState) {
  constexpr int kPorts = 64;
  nsHost host;
  if (NS_FAILED(host.Start({}))) return aState.SkipWithError("no host");
  std::vector<std::unique_ptr<Echo>> lines;
  std::vector<std::pair<std::string, std::string>> names;
  for (int i = 0; i < kPorts; ++i) {
    lines.push_back(std::make_unique<Echo>(false));
    names.emplace_back("COM" + std::to_string(40 + i), lines.back()->Device());
  }
  const Machine machine(names);
  std::vector<nsCOMPtr<nsSystemAdapterSerial>> ports;
  for (const auto& [name, device] : names) ports.push_back(machine.Open(name, 2));
  std::this_thread::sleep_for(std::chrono::seconds(1));
  double rate = 0;
  for (auto _ : aState) {
    constexpr int kSeconds = 5;
    const long before = WakeUps();
    std::this_thread::sleep_for(std::chrono::seconds(kSeconds));
    rate = static_cast<double>(WakeUps() - before - 1) / kSeconds / kPorts;
  }
  for (const auto& port : ports)
    if (!port || NS_FAILED(port->Close())) aState.SkipWithError("a port was not open");
  aState.counters["wakeups_per_port_and_s"] = rate;
}
BENCHMARK(PortsAtRest)->Iterations(1)->UseRealTime();

}  // namespace

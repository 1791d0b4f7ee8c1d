// The kernel's tuners, where the acceptance machine's module makes one that plays files.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "../nsTunersContract.h"
#include "nsLinuxTuners.h"

namespace {

class KernelMachine final : public nsTunersMachine {
 public:
  KernelMachine() {
    if (!Lacks().empty()) return;
    Plug(true);
    std::vector<nsTunerInfo> tuners;
    for (int i = 0; i < 1000 && tuners.empty(); ++i) {
      EXPECT_EQ(mTuners.ListTuners(&tuners), NS_OK);
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
  ~KernelMachine() override {
    if (Lacks().empty()) std::filesystem::remove(kStream);
  }
  std::string Lacks() override {
    return std::filesystem::exists(kPlugged) && std::filesystem::exists("/run/streams")
               ? ""
               : "no tuner that plays files (acceptance/modules/dvbtuner.c)";
  }
  nsPlatformTuners& Port() override { return mTuners; }
  void Send(const vorel::test::Bytes& aStream) override {
    std::ofstream(kStream, std::ios::binary)
        .write(reinterpret_cast<const char*>(aStream.data()),
               static_cast<std::streamsize>(aStream.size()));
  }
  void Unplug() override { Plug(false); }

 private:
  static constexpr const char* kPlugged = "/sys/module/dvbtuner/parameters/plugged";
  static constexpr const char* kStream = "/run/streams/506000.ts";

  static void Plug(bool aIn) { std::ofstream(kPlugged) << (aIn ? "1" : "0") << std::flush; }

  nsLinuxTuners mTuners;
};

INSTANTIATE_TEST_SUITE_P(
    Linux, TunersContract,
    testing::Values(NS_ContractBackend<nsTunersMachine, KernelMachine>("kernel")),
    testing::PrintToStringParamName());

}  // namespace

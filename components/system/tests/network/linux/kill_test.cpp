// A process that is killed at each of the system calls by which it changes the network: the next
// one finds the former settings, or has them back, or the new ones, and never a mixture.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "nsNativeFile.h"
#include "nsNetworkChange.h"
#include "nsNetworkNamespace.h"
#include "nsSettingsPlatform.h"
#include "nsSimulatedMachine.h"

namespace {

using R = nsPlatformRegistry;
using End = nsNetworkChange::End;
constexpr long kNever = 1'000'000;

class NetworkKillTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string name = (std::filesystem::temp_directory_path() / "vorel-test-XXXXXX").string();
    mDirectory = mkdtemp(name.data());
  }
  void TearDown() override { std::filesystem::remove_all(mDirectory); }

  void Store(const std::string& aName, const std::string& aAddress, const std::string& aGateway) {
    const std::string key = NS_TcpipInterfaceKey(aName);
    auto& registry = *mMachine.mRegistry;
    registry.Put(key, {"EnableDHCP", R::kDword, NS_RegistryDword(0)});
    registry.Put(key, {"IpAddress", R::kMultiString, NS_RegistryStrings({aAddress})});
    registry.Put(key, {"SubnetMask", R::kMultiString, NS_RegistryStrings({"255.255.255.0"})});
    registry.Put(key, {"DefaultGateway", R::kMultiString, NS_RegistryStrings({aGateway})});
    registry.Put(key, {"NameServer", R::kString, NS_RegistryString("9.9.9.9")});
  }
  /// One process's view of this machine: the network of the namespace, the store of the test.
  nsPlatformRef Platform() const { return NS_SettingsPlatform(mMachine, mDirectory, "none"); }
  /// What there is now.
  std::string Seen(const nsNetworkNamespace& aNetwork) const {
    std::string servers;
    EXPECT_EQ(NS_ReadFile(mDirectory + "/resolv.conf", &servers), NS_OK);
    return aNetwork.AskIp("-4 -o addr show") + aNetwork.AskIp("-4 route show") + servers;
  }
  void Reset(const nsNetworkNamespace& aNetwork) const {
    std::filesystem::remove(mDirectory + "/network");
    std::ofstream(mDirectory + "/resolv.conf") << "nameserver 192.0.2.53\nsearch example.org\n";
    for (const char* line :
         {"addr flush dev eth0", "addr flush dev eth1", "addr add 192.0.2.5/24 brd + dev eth0",
          "addr add 192.0.2.6/24 dev eth0", "route add default via 192.0.2.1 dev eth0",
          "route add 10.1.0.0/16 via 192.0.2.2 dev eth0", "addr add 198.51.100.5/24 dev eth1"})
      aNetwork.Ip(line);
  }
  /// A process that tries what is stored, and then keeps it or takes it back. It is killed when it
  /// has made aCalls system calls; true when it came to its end before.
  bool Killed(long aCalls, bool aKeeps) const {
    const pid_t child = fork();
    if (child == 0) {
      if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(9);
      (void)raise(SIGSTOP);
      nsNetworkChange change(Platform());
      if (change.Try(60).mEnd != End::eOnTrial) _exit(8);
      const End end = aKeeps ? change.Keep().mEnd : change.TakeBack("").mEnd;
      _exit(end == (aKeeps ? End::eConfirmed : End::eTakenBack) ? 0 : 7);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSTOPPED(status)) << "status " << status;
    EXPECT_EQ(ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_EXITKILL), 0);
    // A call stops it twice: when it begins and when it has ended.
    for (long stops = 0; stops < 2 * aCalls; ++stops) {
      EXPECT_EQ(ptrace(PTRACE_SYSCALL, child, nullptr, nullptr), 0);
      EXPECT_EQ(waitpid(child, &status, 0), child);
      if (!WIFEXITED(status)) continue;
      EXPECT_EQ(WEXITSTATUS(status), 0);
      return false;
    }
    EXPECT_EQ(kill(child, SIGKILL), 0);
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return true;
  }

  std::string mDirectory;
  nsSimulatedMachine mMachine;
};

TEST_F(NetworkKillTest, AProcessThatIsKilledLeavesAMixture) {
  const nsNetworkNamespace network;
  if (!network.Lacks().empty()) GTEST_SKIP() << network.Lacks();
  network.AddWire("eth0");
  network.AddWire("eth1", "02:00:00:00:00:02");
  Store("eth0", "203.0.113.10", "203.0.113.1");
  Store("eth1", "198.51.100.6", "198.51.100.1");
  Reset(network);
  const std::string former = Seen(network);
  ASSERT_FALSE(Killed(kNever, true));
  const std::string changed = Seen(network);
  ASSERT_NE(former, changed);

  const char* const wanted = getenv("VOREL_NETWORK_KILLS");
  const long step = wanted ? 1 : 23;  // each call, or some of them
  long runs = 0, kept = 0;
  for (const bool keeps : {true, false})
    for (long calls = 1;; calls += step, ++runs) {
      SCOPED_TRACE(std::string(keeps ? "confirming" : "taking back") + ", killed after call " +
                   std::to_string(calls));
      Reset(network);
      const bool isKilled = Killed(calls, keeps);
      (void)nsNetworkChange(Platform()).Recover();
      const std::string seen = Seen(network);
      kept += seen == changed;
      EXPECT_TRUE(seen == former || seen == changed) << seen;
      bool isDamaged = false;
      EXPECT_FALSE(nsNetworkChange(Platform()).Peek(&isDamaged));
      EXPECT_FALSE(isDamaged);
      if (!keeps || !isKilled) {
        EXPECT_EQ(seen, keeps ? changed : former);
      }
      if (!isKilled || HasFailure()) break;
    }
  std::printf("killed %ld times: %ld times new, else former\n", runs, kept);
  EXPECT_GT(kept, 0);
}

}  // namespace

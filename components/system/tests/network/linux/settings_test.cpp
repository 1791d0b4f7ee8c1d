// Settings put into force by rtnetlink in a namespace, as the program ip sees them; the resolver's
// file and the journal.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "nsLinuxNetworkSettings.h"
#include "nsNativeFile.h"
#include "nsNetworkNamespace.h"
#include "nsNetworkdNetwork.h"
#include "nsPlatformNetworkText.h"

namespace {

class LinuxSettingsTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string name = (std::filesystem::temp_directory_path() / "vorel-test-XXXXXX").string();
    mDirectory = mkdtemp(name.data());
    mOptions = {mDirectory + "/resolv.conf", mDirectory + "/state/network",
                "unix:path=" + mDirectory + "/none", "/"};
  }
  void TearDown() override { std::filesystem::remove_all(mDirectory); }

  std::string mDirectory;
  nsLinuxNetworkSettings::Options mOptions;
};

nsSocketAddress Address(const std::string& aText) {
  nsSocketAddress address;
  EXPECT_TRUE(NS_ReadAddress(aText, &address)) << aText;
  return address;
}
nsIPNet Net(const std::string& aText, uint8_t aLength) { return {Address(aText), aLength}; }

// What lasts of both families.
std::string Seen(const nsNetworkNamespace& aNamespace) {
  return aNamespace.AskIp("-j -4 addr show dev eth0") +
         aNamespace.AskIp("-o -6 addr show dev eth0 scope global") +
         aNamespace.AskIp("-j -4 route show") + aNamespace.AskIp("-j -6 route show proto static");
}

// "192.0.2.6/24 default>203.0.113.1 20", of a family.
std::string Summary(const nsNetworkNamespace& aNamespace, const std::string& aFamily) {
  std::string seen;
  const auto addresses =
      nlohmann::json::parse(aNamespace.AskIp("-j " + aFamily + " addr show dev eth0 scope global"));
  for (const auto& link : addresses)  // those that have none of the family are empty
    for (const auto& address : link.value("addr_info", nlohmann::json::array()))
      if (address.contains("local"))
        seen += address["local"].get<std::string>() + "/" +
                std::to_string(address["prefixlen"].get<int>()) + " ";
  for (const auto& route : nlohmann::json::parse(aNamespace.AskIp("-j " + aFamily + " route show")))
    if (route.contains("gateway"))
      seen += route["dst"].get<std::string>() + ">" + route["gateway"].get<std::string>() + " " +
              std::to_string(route.value("metric", 0)) + " ";
  return seen;
}

TEST_F(LinuxSettingsTest, SettingsAreNotWhatIpSeesOrAreNotPutBack) {
  const nsNetworkNamespace network;
  if (!network.Lacks().empty()) GTEST_SKIP() << network.Lacks();
  network.AddWire("eth0");
  network.AddWire("eth1", "02:00:00:00:00:02");
  network.Ip("addr add 192.0.2.5/24 brd + dev eth0");
  network.Ip("addr add 192.0.2.6/24 dev eth0");
  network.Ip("route add default via 192.0.2.1 dev eth0 metric 7");
  network.Ip("route add 10.1.0.0/16 via 192.0.2.2 dev eth0");
  network.Ip("addr add 198.51.100.5/24 dev eth1");
  network.Ip("route add default via 198.51.100.1 dev eth1 metric 9");
  network.Ip("addr add 2001:db8:5::5/64 dev eth0 nodad");
  network.Ip("-6 route add default via 2001:db8:5::1 dev eth0 proto static");
  const std::string before = Seen(network);

  nsLinuxNetworkSettings port(mOptions);
  nsInterfaceWay way;
  ASSERT_EQ(port.FindWay("eth0", &way), NS_OK);
  EXPECT_EQ(way.mService, "");
  EXPECT_EQ(port.FindWay("none", &way), NS_ERROR_FILE_NOT_FOUND);
  std::string record;
  ASSERT_EQ(port.ReadInterface("eth0", 0, &record), NS_OK);
  nsInterfaceSettings wanted;
  wanted.mAddresses = {Net("192.0.2.6", 24), Net("203.0.113.9", 28)};
  wanted.mGateways = {Address("203.0.113.1"), Address("192.0.2.1")};
  wanted.mMetric = 20;
  // A second time changes nothing.
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(port.WriteInterface("eth0", record, wanted), NS_OK);
    EXPECT_EQ(Summary(network, "-4"),
              "192.0.2.6/24 203.0.113.9/28 default>198.51.100.1 9 default>203.0.113.1 20 "
              "default>192.0.2.1 21 10.1.0.0/16>192.0.2.2 0 ");
    EXPECT_EQ(Summary(network, "-6"), "2001:db8:5::5/64 default>2001:db8:5::1 1024 ");
  }
  wanted.mAddresses = {Net("2001:db8:6::6", 64)};
  wanted.mGateways = {Address("2001:db8:6::1")};
  ASSERT_EQ(port.WriteInterface("eth0", record, wanted), NS_OK);
  EXPECT_EQ(Summary(network, "-6"), "2001:db8:6::6/64 default>2001:db8:6::1 20 ");

  // From what this left, from nothing, and from a link that is down.
  for (const char* meanwhile : {"link set eth0 up", "addr flush dev eth0", "link set eth0 down"}) {
    network.Ip(meanwhile);
    ASSERT_EQ(port.RestoreInterface("eth0", record), NS_OK) << meanwhile;
    EXPECT_EQ(Seen(network), before) << meanwhile;
  }
  EXPECT_EQ(port.RestoreInterface("eth0", "K1" + record), NS_ERROR_FILE_CORRUPTED);
  for (size_t length = 0; length < record.size(); ++length)
    (void)port.RestoreInterface("none", record.substr(0, length));
  std::string old = record;
  old[4] = old[4] == '0' ? '1' : '0';  // of another run of the machine
  EXPECT_EQ(port.RestoreInterface("eth0", old), NS_ERROR_NOT_AVAILABLE);
  EXPECT_EQ(Seen(network), before);
  EXPECT_EQ(port.WriteInterface("none", record, wanted), NS_ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(port.RestoreInterface("none", record), NS_ERROR_FILE_NOT_FOUND);
}

TEST_F(LinuxSettingsTest, AMissingRightIsMissedWhenItIsTooLate) {
  const nsNetworkNamespace network;
  if (!network.Lacks().empty()) GTEST_SKIP() << network.Lacks();
  network.AddWire("eth0");
  const pid_t child = fork();
  if (child == 0) {
    std::string record;
    nsLinuxNetworkSettings port(mOptions);
    if (setresuid(65534, 65534, 65534) != 0) _exit(9);
    const bool isRefused = port.ReadInterface("eth0", 0, &record) == NS_ERROR_FILE_ACCESS_DENIED &&
                           port.LockState() == NS_ERROR_FILE_ACCESS_DENIED;
    _exit(isRefused ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

TEST_F(LinuxSettingsTest, TheResolversFileLosesMoreThanItsServers) {
  nsLinuxNetworkSettings port(mOptions);
  const auto contents = [&] {
    std::string text;
    EXPECT_EQ(NS_ReadFile(mOptions.mResolver, &text), NS_OK);
    return text;
  };
  const std::string former = "search example.org\nnameserver 192.0.2.1\nnameserver 2001:db8::1\n";
  std::string record, none;
  ASSERT_EQ(port.ReadResolver(&none), NS_OK);
  std::ofstream(mDirectory + "/elsewhere") << former;
  std::filesystem::create_symlink("elsewhere", mOptions.mResolver);
  ASSERT_EQ(port.ReadResolver(&record), NS_OK);
  ASSERT_EQ(port.WriteResolver({Address("9.9.9.9")}), NS_OK);
  EXPECT_EQ(contents(), "nameserver 9.9.9.9\nsearch example.org\nnameserver 2001:db8::1\n");
  std::vector<nsSocketAddress> servers;
  EXPECT_EQ(port.ReadServers(&servers), NS_OK);
  EXPECT_EQ(servers, (std::vector<nsSocketAddress>{Address("9.9.9.9"), Address("2001:db8::1")}));
  ASSERT_EQ(port.RestoreResolver(record), NS_OK);
  EXPECT_TRUE(std::filesystem::is_symlink(mOptions.mResolver));
  EXPECT_EQ(contents(), former);
  ASSERT_EQ(port.RestoreResolver(none), NS_OK);
  EXPECT_FALSE(std::filesystem::exists(mOptions.mResolver));
}

TEST_F(LinuxSettingsTest, AStateBelongsToTwoOrToTheDead) {
  nsLinuxNetworkSettings first(mOptions);
  std::string text;
  EXPECT_EQ(first.LoadState(&text), NS_ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(first.SaveState("mine"), NS_ERROR_FILE_IS_LOCKED);
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t child = fork();
  if (child == 0) {
    nsLinuxNetworkSettings other(mOptions);
    const bool saved = NS_SUCCEEDED(other.LockState()) && NS_SUCCEEDED(other.SaveState("former"));
    const char done = saved ? 'y' : 'n';
    if (write(ready[1], &done, 1) == 1) pause();
    _exit(1);
  }
  char done = 0;
  ASSERT_EQ(read(ready[0], &done, 1), 1);
  EXPECT_EQ(done, 'y');
  EXPECT_EQ(first.LockState(), NS_ERROR_FILE_IS_LOCKED);
  EXPECT_EQ(first.LoadState(&text), NS_OK);
  EXPECT_EQ(text, "former");
  ASSERT_EQ(kill(child, SIGKILL), 0);
  ASSERT_EQ(waitpid(child, nullptr, 0), child);
  EXPECT_EQ(first.LockState(), NS_OK);
  EXPECT_EQ(first.SaveState("mine"), NS_OK);
  EXPECT_EQ(first.UnlockState(), NS_OK);
  EXPECT_EQ(first.UnlockState(), NS_OK);
  nsLinuxNetworkSettings second(mOptions);
  EXPECT_EQ(second.LockState(), NS_OK);
  close(ready[0]);
  close(ready[1]);
}

TEST_F(LinuxSettingsTest, AWordIsLostBetweenProcesses) {
  nsLinuxNetworkSettings holder(mOptions), asker(mOptions);
  std::string answer;
  ASSERT_EQ(holder.LockState(), NS_OK);
  EXPECT_EQ(asker.Ask("confirm", &answer), NS_ERROR_NOT_AVAILABLE);
  std::shared_ptr<nsEventSource> source;
  ASSERT_EQ(
      holder.Listen([](nsNetworkRequest aRequest) { aRequest.mAnswer(aRequest.mWord + " heard"); },
                    &source),
      NS_OK);
  EXPECT_FALSE(source->Consume());
  std::thread other([&] {
    source->Wait();
    EXPECT_TRUE(source->Consume());
  });
  EXPECT_EQ(asker.Ask("confirm", &answer), NS_OK);
  EXPECT_EQ(answer, "confirm heard");
  other.join();
  source = nullptr;
  EXPECT_EQ(asker.Ask("confirm", &answer), NS_ERROR_NOT_AVAILABLE);
}

TEST_F(LinuxSettingsTest, AFileForNetworkdLosesOrKeepsTooMuch) {
  const std::string former =
      "[Match]\nName=e*\n[Link]\nMTUBytes=1400\n[Network]\nDHCP=yes\nVLAN=v7\nDNS=192.0.2.7\n"
      "Address=192.0.2.5/24\nAddress=2001:db8::5/64\n# a comment\n[Route]\nGateway=192.0.2.1\n"
      "[Route]\nDestination=10.0.0.0/8\nGateway=192.0.2.2\n[Route]\nGateway=2001:db8::1\n";
  nsInterfaceSettings settings;
  settings.mAddresses = {Net("192.0.2.9", 24)};
  settings.mGateways = {Address("192.0.2.3"), Address("192.0.2.4")};
  settings.mServers = {Address("9.9.9.9")};
  const std::string text = nsNetworkdNetwork::FileText("eth0", settings, former);
  EXPECT_EQ(text.substr(text.find('\n') + 1),
            "[Match]\nName=eth0\n\n[Network]\nVLAN=v7\nAddress=2001:db8::5/64\nDHCP=ipv6\n"
            "Address=192.0.2.9/24\nDNS=9.9.9.9\n\n[Route]\nGateway=192.0.2.3\n\n[Route]\n"
            "Gateway=192.0.2.4\nMetric=1\n\n[Link]\nMTUBytes=1400\n\n[Route]\n"
            "Destination=10.0.0.0/8\nGateway=192.0.2.2\n\n[Route]\nGateway=2001:db8::1\n");
  // Of its own text it makes the same again.
  EXPECT_EQ(nsNetworkdNetwork::FileText("eth0", settings, text), text);
}

}  // namespace

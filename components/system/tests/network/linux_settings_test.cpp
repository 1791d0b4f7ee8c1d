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

#include "nsLinuxNetworkSettings.h"
#include "nsNativeFile.h"
#include "nsNetworkNamespace.h"

namespace {

class LinuxSettingsTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string name = (std::filesystem::temp_directory_path() / "vorel-test-XXXXXX").string();
    mDirectory = mkdtemp(name.data());
    mOptions = {mDirectory, mDirectory + "/resolv.conf", mDirectory + "/state/change"};
  }
  void TearDown() override { std::filesystem::remove_all(mDirectory); }

  std::string mDirectory;
  nsLinuxNetworkSettings::Options mOptions;
};

// What there is of IPv4, but for what only counts time.
std::string Seen(const nsNetworkNamespace& aNamespace) {
  return aNamespace.AskIp("-j -4 addr show dev eth0") + aNamespace.AskIp("-j -4 route show");
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
  const std::string before = Seen(network);

  nsLinuxNetworkSettings port(mOptions);
  std::string record;
  ASSERT_EQ(port.ReadInterface("eth0", &record), NS_OK);
  const nsInterfaceSettings wanted{
      {{{192, 0, 2, 6}, 24}, {{203, 0, 113, 9}, 28}}, {{203, 0, 113, 1}, {192, 0, 2, 1}}, 20};
  ASSERT_EQ(port.WriteInterface("eth0", wanted), NS_OK);

  std::string seen;
  const auto addresses = nlohmann::json::parse(network.AskIp("-j -4 addr show dev eth0"));
  for (const auto& address : addresses[0]["addr_info"])
    seen += address["local"].get<std::string>() + "/" +
            std::to_string(address["prefixlen"].get<int>()) + " ";
  for (const auto& route : nlohmann::json::parse(network.AskIp("-j -4 route show")))
    if (route.contains("gateway"))
      seen += route["dst"].get<std::string>() + ">" + route["gateway"].get<std::string>() + " " +
              std::to_string(route.value("metric", 0)) + " ";
  EXPECT_EQ(seen,
            "192.0.2.6/24 203.0.113.9/28 default>198.51.100.1 9 default>203.0.113.1 20 "
            "default>192.0.2.1 21 10.1.0.0/16>192.0.2.2 0 ");

  // From what this left, from nothing, and from a link that is down.
  for (const char* meanwhile : {"link set eth0 up", "addr flush dev eth0", "link set eth0 down"}) {
    network.Ip(meanwhile);
    ASSERT_EQ(port.RestoreInterface("eth0", record), NS_OK) << meanwhile;
    EXPECT_EQ(Seen(network), before) << meanwhile;
  }
  EXPECT_EQ(port.RestoreInterface("eth0", "I1A" + record), NS_ERROR_FILE_CORRUPTED);
  for (size_t length = 0; length < record.size(); ++length)
    (void)port.RestoreInterface("none", record.substr(0, length));
  EXPECT_EQ(Seen(network), before);
  EXPECT_EQ(port.WriteInterface("none", wanted), NS_ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(port.RestoreInterface("none", record), NS_ERROR_FILE_NOT_FOUND);
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
  ASSERT_EQ(port.WriteResolver({{9, 9, 9, 9}}), NS_OK);
  EXPECT_EQ(contents(), "nameserver 9.9.9.9\nsearch example.org\nnameserver 2001:db8::1\n");
  std::vector<nsIPv4Bytes> servers;
  EXPECT_EQ(port.ReadServers(&servers), NS_OK);
  EXPECT_EQ(servers, (std::vector<nsIPv4Bytes>{{9, 9, 9, 9}}));
  ASSERT_EQ(port.RestoreResolver(record), NS_OK);
  EXPECT_TRUE(std::filesystem::is_symlink(mOptions.mResolver));
  EXPECT_EQ(contents(), former);
  ASSERT_EQ(port.RestoreResolver(none), NS_OK);
  EXPECT_FALSE(std::filesystem::exists(mOptions.mResolver));
}

TEST_F(LinuxSettingsTest, AJournalBelongsToTwoOrToTheDead) {
  nsLinuxNetworkSettings first(mOptions);
  std::string text;
  EXPECT_EQ(first.LoadJournal(&text), NS_ERROR_FILE_NOT_FOUND);
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t child = fork();
  if (child == 0) {
    nsLinuxNetworkSettings other(mOptions);
    const char done = NS_SUCCEEDED(other.SaveJournal("former")) ? 'y' : 'n';
    if (write(ready[1], &done, 1) == 1) pause();
    _exit(1);
  }
  char done = 0;
  ASSERT_EQ(read(ready[0], &done, 1), 1);
  EXPECT_EQ(done, 'y');
  EXPECT_EQ(first.LoadJournal(&text), NS_ERROR_FILE_IS_LOCKED);
  EXPECT_EQ(first.SaveJournal("mine"), NS_ERROR_FILE_IS_LOCKED);
  ASSERT_EQ(kill(child, SIGKILL), 0);
  ASSERT_EQ(waitpid(child, nullptr, 0), child);
  EXPECT_EQ(first.LoadJournal(&text), NS_OK);
  EXPECT_EQ(text, "former");
  EXPECT_EQ(first.DropJournal(), NS_OK);
  EXPECT_EQ(first.DropJournal(), NS_OK);
  EXPECT_EQ(first.LoadJournal(&text), NS_ERROR_FILE_NOT_FOUND);
  close(ready[0]);
  close(ready[1]);
}

TEST_F(LinuxSettingsTest, AServiceThatRunsIsMissed) {
  nsLinuxNetworkSettings port(mOptions);
  std::string name = "?";
  EXPECT_EQ(port.FindService(&name), NS_OK);
  EXPECT_EQ(name, "");
  std::filesystem::create_directories(mDirectory + "/run/systemd/units");
  std::filesystem::create_symlink(
      "00", mDirectory + "/run/systemd/units/invocation:systemd-networkd.service");
  EXPECT_EQ(port.FindService(&name), NS_OK);
  EXPECT_EQ(name, "systemd-networkd");
}

}  // namespace

// Changes of real links, in a network of the test's own.
#include "nsHostTime.h"
#include "nsINetworkLinkService.h"
#include "nsIThread.h"
#include "nsIThreadManager.h"
#include "nsLinuxLinkMonitor.h"
#include "nsLostMessages.h"
#include "nsNetworkNamespace.h"
#include "nsTestHost.h"

namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;
constexpr char kContract[] = "@mozilla.org/network/network-link-service;1";

class NetworkLinkService : public nsHostTest {
 protected:
  void SetUp() override {
    if (!mNamespace.Lacks().empty()) GTEST_SKIP() << mNamespace.Lacks();
    NS_UseVirtualTime(true);
  }
  // The namespace can't be left while threads are in it.
  void TearDown() override {
    NS_UseVirtualTime(false);
    mHost.Stop();
  }

  void StartWatching() {
    Start();
    const auto service = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID);
    const auto observer = MakeRefCounted<nsTestObserver>(
        [this](nsISupports* aSubject, std::string, std::string aData) {
          mNotices.push_back(aData);
          EXPECT_TRUE(do_GetService<nsINetworkLinkService>(kContract).get() ==
                      do_QueryInterface<nsINetworkLinkService>(aSubject).get());
        });
    ASSERT_EQ(NS_OK, service->AddObserver(observer.get(), "network:link-status-changed", false));
  }
  /// Lets the main thread run until it hears of a change, and then the burst end.
  Strings NextNotices() {
    const auto manager = do_GetService<nsIThreadManager>(NS_THREADMANAGER_CONTRACTID);
    nsCOMPtr<nsIThread> thread;
    EXPECT_EQ(NS_OK, manager->GetMainThread(thread.getter_AddRefs()));
    // Other events of the start may come first.
    while (mNotices.empty()) {
      bool ran = false;
      EXPECT_EQ(NS_OK, thread->ProcessNextEvent(true, &ran));
      EXPECT_EQ(Strings{}, mNotices) << "told before the burst was over";
      NS_AdvanceTime(10);
    }
    return std::exchange(mNotices, {});
  }

  nsNetworkNamespace mNamespace;
  Strings mNotices;
};

// Nothing here makes the system say something later by itself: no link has a carrier.
TEST_F(NetworkLinkService, ChangeOfOneKindIsNotNoticed) {
  StartWatching();
  ASSERT_EQ(NS_OK, mHost.StartProfile());
  for (const char* change :
       {"link add w0 type veth peer name w1", "link set w1 name w2",
        "link set w2 address 02:00:00:00:00:05", "link set w2 mtu 1400", "link set w2 up",
        "link set w2 down", "address add 10.1.2.3/24 dev w2", "address delete 10.1.2.3/24 dev w2",
        "-6 address add fd00::1/64 dev w2 nodad", "route add blackhole 10.9.0.0/16",
        "route delete blackhole 10.9.0.0/16", "-6 route add blackhole fd01::/64",
        "link delete w2"}) {
    mNamespace.Ip(change);
    EXPECT_EQ(Strings{"down"}, NextNotices()) << change;
  }
}

TEST_F(NetworkLinkService, BurstBringsANoticeEach) {
  StartWatching();
  ASSERT_EQ(NS_OK, mHost.StartProfile());
  for (int i = 0; i < 20; ++i)
    mNamespace.Ip("link add w" + std::to_string(i) + " type veth peer name p" + std::to_string(i));
  EXPECT_EQ(Strings{"down"}, NextNotices());
}

TEST_F(NetworkLinkService, ServiceKnowsNothingOfTheLink) {
  mNamespace.Ip("link add w0 type veth peer name w1");
  StartWatching();
  ASSERT_EQ(NS_OK, mHost.StartProfile());
  const auto service = do_GetService<nsINetworkLinkService>(kContract);
  bool up = true, known = false;
  uint32_t type = 99;
  EXPECT_EQ(NS_OK, service->GetIsLinkUp(&up));
  EXPECT_EQ(NS_OK, service->GetLinkStatusKnown(&known));
  EXPECT_EQ(NS_OK, service->GetLinkType(&type));
  EXPECT_FALSE(up);
  EXPECT_TRUE(known);
  EXPECT_EQ(nsINetworkLinkService::LINK_TYPE_UNKNOWN, type);

  mNamespace.Ip("address add 10.1.2.3/24 dev w0");
  mNamespace.Ip("link set w1 up");
  mNamespace.Ip("link set w0 up");
  // The carrier may come a moment later, with news of its own.
  Strings notices;
  while (notices.empty() || notices.back() != "up") notices = NextNotices();
  EXPECT_EQ(NS_OK, service->GetIsLinkUp(&up));
  EXPECT_EQ(NS_OK, service->GetLinkType(&type));
  EXPECT_TRUE(up);
  EXPECT_EQ(nsINetworkLinkService::LINK_TYPE_ETHERNET, type);
}

TEST_F(NetworkLinkService, ChangeWhileTheProfileIsMadeIsLost) {
  StartWatching();
  mNamespace.Ip("link set lo up");
  NS_AdvanceTime(100);
  EXPECT_EQ(Strings{}, mNotices) << "told before anybody looked";
  ASSERT_EQ(NS_OK, mHost.StartProfile());
  EXPECT_EQ(Strings{"down"}, NextNotices());
  NS_AdvanceTime(100);
  EXPECT_EQ(Strings{}, mNotices) << "told of nothing";
  mHost.Stop();
  StartWatching();
  ASSERT_EQ(NS_OK, mHost.StartProfile());
  mNamespace.Ip("link set lo down");
  EXPECT_EQ(Strings{"down"}, NextNotices()) << "in the second run of a host";
}

TEST_F(NetworkLinkService, AnotherMachineShowsTheRealNetwork) {
  mNamespace.Ip("link add w0 type veth peer name w1");
  mNamespace.Ip("address add 10.1.2.3/24 dev w0");
  mNamespace.Ip("link set w1 up");
  mNamespace.Ip("link set w0 up");
  mOptions.mHasNetwork = false;
  Start();
  ASSERT_EQ(NS_OK, mHost.StartProfile());
  const auto service = do_GetService<nsINetworkLinkService>(kContract);
  bool up = true, known = true;
  EXPECT_EQ(NS_OK, service->GetIsLinkUp(&up));
  EXPECT_EQ(NS_OK, service->GetLinkStatusKnown(&known));
  EXPECT_FALSE(up);
  EXPECT_FALSE(known);
}

TEST_F(NetworkLinkService, HostThatFollowsNothingWatchesOrDoesNotKnow) {
  mNamespace.Ip("link set lo up");
  mOptions.mFollowsMachine = false;
  Start();
  ASSERT_EQ(NS_OK, mHost.StartProfile());
  const auto service = do_GetService<nsINetworkLinkService>(kContract);
  bool known = false;
  EXPECT_EQ(NS_OK, service->GetLinkStatusKnown(&known));
  EXPECT_TRUE(known);
  // Of the time zone neither.
  for (const auto& file : fs::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    EXPECT_NE("anon_inode:inotify", fs::read_symlink(file, gone).string());
  }
}

class LinuxLinkMonitor : public nsHostTest {
 protected:
  void Open() { ASSERT_EQ(NS_OK, nsLinuxLinkMonitor::Open(mMonitorOptions, &mMonitor)); }
  bool Changes() { return mMonitor->Consume(); }

  nsLinuxLinkMonitor::Options mMonitorOptions;
  std::unique_ptr<nsLinkMonitor> mMonitor;
};

TEST_F(LinuxLinkMonitor, LostMessagesAreNoChangeOrEndTheListening) {
  const nsNetworkNamespace network;
  if (!network.Lacks().empty()) GTEST_SKIP() << network.Lacks();
  mMonitorOptions.mReceiveBuffer = 1;  // the system makes it its least
  Open();
  EXPECT_FALSE(Changes());
  for (int i = 0; i < 20; ++i) network.Ip("link set lo mtu " + std::to_string(10000 + i));
  ASSERT_GT(NS_LostMessages(), 0) << "they all fit";
  EXPECT_TRUE(Changes());
  EXPECT_FALSE(Changes()) << "something is left";
  network.Ip("link set lo mtu 20000");
  EXPECT_TRUE(Changes()) << "deaf since";
}

TEST_F(LinuxLinkMonitor, ChangeOfNameServersIsNotNoticed) {
  mMonitorOptions.mResolverFile = Write("etc/resolv.conf", "nameserver 10.0.0.1\n");
  mMonitorOptions.mServiceDirectories = {Path("run/links")};
  Open();
  EXPECT_FALSE(Changes());
  Write("etc/hosts", "127.0.0.1 localhost\n");
  EXPECT_FALSE(Changes()) << "of another file";
  Write("etc/resolv.conf", "nameserver 10.0.0.2\n");
  EXPECT_TRUE(Changes()) << "written in place";
  fs::rename(Write("etc/resolv.new", "nameserver 10.0.0.3\n"), Path("etc/resolv.conf"));
  EXPECT_TRUE(Changes()) << "replaced";
  Write("elsewhere/real.conf", "");
  fs::remove(Path("etc/resolv.conf"));
  fs::create_symlink(Path("elsewhere/real.conf"), Path("etc/resolv.conf"));
  EXPECT_TRUE(Changes()) << "now a link";
  Write("elsewhere/other.conf", "");
  EXPECT_FALSE(Changes()) << "of a file beside what the link leads to";
  Write("elsewhere/real.conf", "nameserver 10.0.0.4\n");
  EXPECT_TRUE(Changes()) << "behind the link";
  Write("run/links/3", "DNS=10.0.0.5\n");  // the service starts, and sets the resolver
  Write("elsewhere/real.conf", "nameserver 127.0.0.53\n");
  EXPECT_TRUE(Changes());
  Write("run/links/3", "DNS=10.0.0.6\n");
  EXPECT_TRUE(Changes()) << "by a service that came later";
  fs::remove_all(Path("run/links"));
  EXPECT_TRUE(Changes()) << "the service ended";
  Write("run/links/3", "DNS=10.0.0.7\n");
  Write("etc/resolv.conf", "nameserver 127.0.0.53\n");
  EXPECT_TRUE(Changes());
  Write("run/links/3", "DNS=10.0.0.8\n");
  EXPECT_TRUE(Changes()) << "by a service that was started again";
  EXPECT_FALSE(Changes());
}

}  // namespace

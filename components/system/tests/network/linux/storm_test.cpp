// Discovery on real links: names that pass on while nobody looks, and system calls that fail.
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <set>

#include "nsLinuxNetwork.h"
#include "nsNetworkNamespace.h"
#include "nsNetworkTest.h"

namespace {

/// Which of the calls below fail, by their number from when the fault was set.
struct Fault {
  int mFrom = 0, mTo = 0;  // to is the first that does not fail any more
  int mError = 0;
  int mCalls = 0;

  bool Strikes() {
    ++mCalls;
    if (mCalls < mFrom || mCalls >= mTo) return false;
    errno = mError;
    return true;
  }
};
thread_local Fault gFault;

}  // namespace

// The linker puts these in the place of the C library's functions.
extern "C" {
int __real_socket(int, int, int);
ssize_t __real_sendto(int, const void*, size_t, int, const sockaddr*, socklen_t);
ssize_t __real_recvmsg(int, msghdr*, int);
int __real_open(const char*, int, ...);
ssize_t __real_read(int, void*, size_t);
int __real_access(const char*, int);

int __wrap_socket(int aDomain, int aType, int aProtocol) {
  return gFault.Strikes() ? -1 : __real_socket(aDomain, aType, aProtocol);
}
ssize_t __wrap_sendto(int aFd, const void* aData, size_t aSize, int aFlags, const sockaddr* aTo,
                      socklen_t aLength) {
  return gFault.Strikes() ? -1 : __real_sendto(aFd, aData, aSize, aFlags, aTo, aLength);
}
ssize_t __wrap_recvmsg(int aFd, msghdr* aMessage, int aFlags) {
  return gFault.Strikes() ? -1 : __real_recvmsg(aFd, aMessage, aFlags);
}
int __wrap_open(const char* aPath, int aFlags, mode_t aMode) {
  return gFault.Strikes() ? -1 : __real_open(aPath, aFlags, aMode);
}
ssize_t __wrap_read(int aFd, void* aData, size_t aSize) {
  return gFault.Strikes() ? -1 : __real_read(aFd, aData, aSize);
}
int __wrap_access(const char* aPath, int aMode) {
  return gFault.Strikes() ? -1 : __real_access(aPath, aMode);
}
}

namespace {

class NativeDiscovery : public nsNetworkTest {
 protected:
  void SetUp() override {
    if (!mNamespace.Lacks().empty()) GTEST_SKIP() << mNamespace.Lacks();
    StartHost();
    auto platform = std::make_shared<nsPlatform>(*mMachine.Platform());
    platform->mNetwork = std::make_shared<nsLinuxNetwork>();
    mManager = MakeRefCounted<nsSystemManager>(platform);
  }
  /// "vw0 3 02-..": name, index and address of each link that is a wire, as the system's own
  /// program tells.
  std::set<std::string> Wires() {
    std::set<std::string> wires;
    for (const auto& link : nlohmann::json::parse(mNamespace.AskIp("-j -d link")))
      if (link.contains("linkinfo") && link["linkinfo"].value("info_kind", "") == "veth")
        wires.insert(link["ifname"].get<std::string>() + " " + link["address"].get<std::string>());
    return wires;
  }
  static std::string Describe(const nsCOMPtr<nsISystemAdapterIP>& aAdapter) {
    nsCOMPtr<nsISystemMACStructure> mac;
    EXPECT_EQ(aAdapter->GetMacAddress(mac.getter_AddRefs()), NS_OK);
    std::string text = ::NS_TextOf(mac);
    std::ranges::transform(text, text.begin(),
                           [](char c) { return c == '-' ? ':' : static_cast<char>(tolower(c)); });
    return ::NS_TextOf(aAdapter, &nsISystemAdapterIP::GetSysPath) + " " + text;
  }
  std::set<std::string> Known() {
    std::set<std::string> known;
    for (const auto& adapter : Adapters(*mManager))
      EXPECT_TRUE(known.insert(Describe(adapter)).second);
    return known;
  }
  nsNetworkNamespace mNamespace;
};

/// Keeps the list by what it hears alone.
class Follower final : public nsImplements<Follower, nsISystemAdapterListener> {
 public:
  std::set<nsISystemAdapter*> mAdapters;
  std::set<std::string> mPaths;
  nsresult OnAdapterAdded(nsISystemAdapter* aAdapter) override {
    EXPECT_TRUE(mAdapters.insert(aAdapter).second);
    EXPECT_TRUE(mPaths.insert(Path(aAdapter)).second) << "the one before has not gone";
    return NS_OK;
  }
  nsresult OnAdapterRemoved(nsISystemAdapter* aAdapter) override {
    EXPECT_EQ(mAdapters.erase(aAdapter), 1u);
    EXPECT_EQ(mPaths.erase(Path(aAdapter)), 1u);
    return NS_OK;
  }
  nsresult OnAdapterChanged(nsISystemAdapter* aAdapter) override {
    EXPECT_TRUE(mAdapters.contains(aAdapter));
    return NS_OK;
  }

 private:
  ~Follower() override = default;
  static std::string Path(nsISystemAdapter* aAdapter) {
    nsString path;
    EXPECT_EQ(aAdapter->GetSysPath(path), NS_OK);
    return NS_ToUtf8(path);
  }
};

TEST_F(NativeDiscovery, AStormOfLinksThatTakeOverNamesLeavesGhostsOrLosesEvents) {
  const auto follower = MakeRefCounted<Follower>();
  ASSERT_EQ(mManager->AddAdapterListener(follower.get()), NS_OK);
  mNamespace.Ip("link add base type veth peer name basex");
  std::mt19937 random(31);
  const auto any = [&] { return "v" + std::to_string(random() % 6); };
  unsigned mac = 0;
  for (int look = 0; look < 60; ++look) {
    // All of it before anybody looks, as if the main thread were held.
    std::string batch;
    for (int change = 0; change < 12; ++change) {
      const std::string name = any(), other = any();
      char address[32];
      ++mac;
      std::snprintf(address, sizeof address, "02:00:00:00:%02x:%02x", mac >> 8 & 0xff, mac & 0xff);
      switch (random() % 9) {
        case 0:
        case 1:
          batch += "link del " + name;
          break;
        case 2:
          batch += "link add " + name + " type bridge";
          break;
        case 3:
          batch += "link add link base name " + name + " type macvlan";
          break;
        case 4:
          batch += "tuntap add dev " + name + " mode " + (random() % 2 ? "tap" : "tun");
          break;
        case 5:
          batch += "link set " + name + (random() % 2 ? " up" : " down");
          break;
        case 6:  // names change hands
          batch += "link set " + name + " name spare\nlink set " + other + " name " + name +
                   "\nlink set spare name " + other;
          break;
        default:
          batch += "link add " + name + " address " + address + " type veth peer name p" +
                   std::to_string(mac);
          break;
      }
      batch += "\n";
    }
    const std::string path = WriteFile("batch", batch);
    (void)mNamespace.AskIp("-force -batch " + path + " 2>/dev/null");
    ASSERT_EQ(Discover(), NS_OK);
    ASSERT_EQ(Known(), Wires()) << "after look " << look;
    std::set<nsISystemAdapter*> listed;
    for (const auto& adapter : Adapters(*mManager)) listed.insert(adapter.get());
    ASSERT_EQ(follower->mAdapters, listed) << "after look " << look;
  }
  (void)mManager->RemoveAdapterListener(follower.get());
}

TEST_F(NativeDiscovery, ACallThatFailsOnceRemovesTheNetwork) {
  mNamespace.AddWire("vw0");
  mNamespace.Ip("link add vb0 type bridge");
  mNamespace.Ip("tuntap add dev vt0 mode tap");
  ASSERT_EQ(Discover(), NS_OK);
  const Strings names = Names();
  ASSERT_EQ(names, (Strings{"lan vw0x", "lan vw0"}));
  const auto listener = MakeRefCounted<nsTestListener>();
  ASSERT_EQ(mManager->AddAdapterListener(listener.get()), NS_OK);
  for (const int error : {EMFILE, ENOBUFS, EINTR, ENOMEM}) {
    gFault = {};
    ASSERT_EQ(Discover(), NS_OK);
    const int calls = gFault.mCalls;
    ASSERT_GT(calls, 10);
    for (int call = 1; call <= calls; ++call) {
      gFault = {call, call + 1, error};
      EXPECT_EQ(Discover(), NS_OK) << "call " << call << ": " << strerror(error);
    }
    gFault = {};
  }
  EXPECT_EQ(listener->mHeard, Strings{});
  EXPECT_EQ(Names(), names);
  // For good: nothing is removed, and the reason is told.
  (void)TakeLog("");
  gFault = {1, 1 << 30, EMFILE};
  EXPECT_EQ(Discover(), NS_ERROR_FAILURE);
  gFault = {};
  EXPECT_EQ(TakeLog("warning"), (Strings{"warning system.manager: Can't read the network "
                                         "interfaces: Too many open files"}));
  EXPECT_EQ(listener->mHeard, Strings{});
  EXPECT_EQ(Names(), names);
  (void)mManager->RemoveAdapterListener(listener.get());
}

}  // namespace

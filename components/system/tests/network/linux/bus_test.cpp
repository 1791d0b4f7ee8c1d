// A NetworkManager that goes, comes back, and answers with errors: on a bus of the test's own, with
// the links of a namespace.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <map>
#include <thread>

#include "nsNetworkChange.h"
#include "nsNetworkNamespace.h"
#include "nsSettingsPlatform.h"
#include "nsSimulatedMachine.h"
#include "nsUniqueFd.h"

namespace {

using R = nsPlatformRegistry;
using End = nsNetworkChange::End;

/// A bus with one service on it, which has one device. One connection at a time.
class FakeBus {
 public:
  /// aActivate(whether it is the former one) brings a connection into force.
  FakeBus(const std::string& aPath, std::function<void(bool)> aActivate)
      : mActivate(std::move(aActivate)),
        mListener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    aPath.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(mListener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(listen(mListener.get(), 8), 0);
    mThread = std::thread([this] { Serve(); });
  }
  ~FakeBus() {
    mIsEnding = true;
    mThread.join();
  }

  /// As it was at the beginning.
  void Reset() {
    mIsReset = mIsFormerActive = true;
    mConnections = 0;
  }

  std::atomic<bool> mIsThere = true;
  std::atomic<int> mCalls = 0;     // of the service
  std::atomic<int> mFailing = -1;  // the number of the one that fails
  std::atomic<bool> mIsFormerActive = true;
  std::atomic<size_t> mConnections = 0;  // beside the former one

 private:
  static constexpr char kFormer[] = "former", kFormerPath[] = "/former";

  void Serve() {
    while (!mIsEnding) {
      pollfd ready{mListener.get(), POLLIN, 0};
      if (poll(&ready, 1, 10) <= 0) continue;
      const int connection = accept4(mListener.get(), nullptr, nullptr, SOCK_CLOEXEC);
      sd_bus* bus = nullptr;
      sd_id128_t id{};
      if (connection < 0 || sd_bus_new(&bus) < 0 ||
          sd_bus_set_fd(bus, connection, connection) < 0 || sd_bus_set_server(bus, true, id) < 0 ||
          sd_bus_start(bus) < 0 || sd_bus_add_filter(bus, nullptr, OnMessage, this) < 0)
        std::abort();
      while (!mIsEnding) {
        const int done = sd_bus_process(bus, nullptr);
        if (done < 0) break;
        if (done == 0 && sd_bus_wait(bus, 10'000) < 0) break;
      }
      sd_bus_flush_close_unref(bus);
    }
  }

  static int OnMessage(sd_bus_message* aCall, void* aSelf, sd_bus_error*) {
    uint8_t type = 0;
    if (sd_bus_message_get_type(aCall, &type) < 0 || type != SD_BUS_MESSAGE_METHOD_CALL) return 0;
    (void)static_cast<FakeBus*>(aSelf)->Answer(aCall);
    return 1;
  }

  int Answer(sd_bus_message* aCall) {
    const std::string method = sd_bus_message_get_member(aCall);
    const std::string path = sd_bus_message_get_path(aCall);
    if (method == "Hello") return sd_bus_reply_method_return(aCall, "s", ":1.1");
    if (method == "NameHasOwner") {
      const bool has = Text(aCall, 's') == "org.freedesktop.NetworkManager" && mIsThere;
      return sd_bus_reply_method_return(aCall, "b", has);
    }
    if (!mIsThere)
      return sd_bus_reply_method_errorf(aCall, "org.freedesktop.DBus.Error.ServiceUnknown", "none");
    if (mIsReset.exchange(false)) {
      mOurs.clear();
      mActive = kFormerPath;
    }
    if (++mCalls == mFailing)
      return sd_bus_reply_method_errorf(aCall, "org.freedesktop.NetworkManager.Failed",
                                        "asked for");

    if (method == "GetDeviceByIpIface") return sd_bus_reply_method_return(aCall, "o", "/device");
    if (method == "CheckpointCreate") return sd_bus_reply_method_return(aCall, "o", "/guard");
    if (method == "Get") {
      (void)Text(aCall, 's');
      return Property(aCall, Text(aCall, 's'));
    }
    if (method == "GetConnectionByUuid") {
      const std::string uuid = Text(aCall, 's');
      if (uuid == kFormer) return sd_bus_reply_method_return(aCall, "o", kFormerPath);
      for (const auto& [at, connection] : mOurs)
        if (connection.mUuid == uuid) return sd_bus_reply_method_return(aCall, "o", at.c_str());
      return NoConnection(aCall);
    }
    if (method == "AddConnection2") {
      const std::string at = "/ours" + std::to_string(++mNumber);
      mOurs[at] = {UuidOf(aCall), Message(sd_bus_message_ref(aCall))};
      mConnections = mOurs.size();
      return sd_bus_reply_method_return(aCall, "oa{sv}", at.c_str(), 0);
    }
    if (method == "ActivateConnection" || method == "CheckpointRollback") {
      const std::string at = method[0] == 'A' ? Text(aCall, 'o') : kFormerPath;
      if (at != kFormerPath && !mOurs.contains(at)) return NoConnection(aCall);
      mActive = at;
      mIsFormerActive = at == kFormerPath;
      mActivate(mIsFormerActive);
      return sd_bus_reply_method_return(aCall, "o", "/active");
    }
    if (method == "GetSettings" || method == "Update2" || method == "Delete") {
      if (path != kFormerPath && !mOurs.contains(path)) return NoConnection(aCall);
      if (method == "Update2") {
        mOurs[path].mSettings = Message(sd_bus_message_ref(aCall));
        return sd_bus_reply_method_return(aCall, "a{sv}", 0);
      }
      if (method == "Delete") {
        mOurs.erase(path);
        mConnections = mOurs.size();
        return sd_bus_reply_method_return(aCall, "");
      }
      if (path == kFormerPath)
        return sd_bus_reply_method_return(aCall, "a{sa{sv}}", 1, "connection", 1, "id", "s",
                                          "office");
      sd_bus_message* answer = nullptr;
      sd_bus_message* const settings = mOurs[path].mSettings.get();
      if (sd_bus_message_rewind(settings, true) < 0 ||
          sd_bus_message_new_method_return(aCall, &answer) < 0 ||
          sd_bus_message_copy(answer, settings, false) < 0)
        std::abort();
      const Message owned(answer);
      return sd_bus_send(nullptr, answer, nullptr);
    }
    return sd_bus_reply_method_return(aCall, "");  // of checkpoints
  }

  int Property(sd_bus_message* aCall, const std::string& aName) {
    const char* const path = sd_bus_message_get_path(aCall);
    if (aName == "ActiveConnection") return sd_bus_reply_method_return(aCall, "v", "o", "/active");
    if (aName == "Uuid")
      return sd_bus_reply_method_return(
          aCall, "v", "s", mActive == kFormerPath ? kFormer : mOurs[mActive].mUuid.c_str());
    const uint32_t state = std::strcmp(path, "/device") == 0 ? 100 : 2;
    return sd_bus_reply_method_return(aCall, "v", "u", aName == "State" ? state : 0u);
  }

  static int NoConnection(sd_bus_message* aCall) {
    return sd_bus_reply_method_errorf(
        aCall, "org.freedesktop.NetworkManager.Settings.InvalidConnection", "none");
  }
  static std::string Text(sd_bus_message* aMessage, char aType) {
    const char* text = nullptr;
    return sd_bus_message_read_basic(aMessage, aType, &text) > 0 ? text : "";
  }
  static std::string UuidOf(sd_bus_message* aCall) {
    std::string uuid;
    (void)sd_bus_message_enter_container(aCall, 'a', "{sa{sv}}");
    while (sd_bus_message_enter_container(aCall, 'e', "sa{sv}") > 0) {
      (void)Text(aCall, 's');
      (void)sd_bus_message_enter_container(aCall, 'a', "{sv}");
      while (sd_bus_message_enter_container(aCall, 'e', "sv") > 0) {
        if (Text(aCall, 's') == "uuid") {
          (void)sd_bus_message_enter_container(aCall, 'v', "s");
          uuid = Text(aCall, 's');
          (void)sd_bus_message_exit_container(aCall);
        } else {
          (void)sd_bus_message_skip(aCall, "v");
        }
        (void)sd_bus_message_exit_container(aCall);
      }
      (void)sd_bus_message_exit_container(aCall);
      (void)sd_bus_message_exit_container(aCall);
    }
    EXPECT_NE(uuid, "");
    return uuid;
  }

  struct Unref {
    void operator()(sd_bus_message* aMessage) const { sd_bus_message_unref(aMessage); }
  };
  using Message = std::unique_ptr<sd_bus_message, Unref>;
  struct Ours {
    std::string mUuid;
    Message mSettings;  // at its first argument
  };

  const std::function<void(bool)> mActivate;
  const nsUniqueFd mListener;
  std::map<std::string, Ours> mOurs;  // by path
  std::string mActive = kFormerPath;
  int mNumber = 0;
  std::atomic<bool> mIsEnding = false, mIsReset = false;
  std::thread mThread;
};

class NetworkBusTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string name = (std::filesystem::temp_directory_path() / "vorel-test-XXXXXX").string();
    mDirectory = mkdtemp(name.data());
    if (!mNetwork.Lacks().empty()) GTEST_SKIP() << mNetwork.Lacks();
    mNetwork.AddWire("eth0");
    Bring(true);
    const std::string key = NS_TcpipInterfaceKey("eth0");
    auto& registry = *mMachine.mRegistry;
    registry.Put(key, {"EnableDHCP", R::kDword, NS_RegistryDword(0)});
    registry.Put(key, {"IpAddress", R::kMultiString, NS_RegistryStrings({"203.0.113.10"})});
    registry.Put(key, {"SubnetMask", R::kMultiString, NS_RegistryStrings({"255.255.255.0"})});
    registry.Put(key, {"DefaultGateway", R::kMultiString, NS_RegistryStrings({"203.0.113.1"})});
    mBus = std::make_unique<FakeBus>(mDirectory + "/bus", [this](bool aFormer) { Bring(aFormer); });
  }
  void TearDown() override {
    mBus = nullptr;
    std::filesystem::remove_all(mDirectory);
  }
  void Bring(bool aFormer) const {
    const std::string net = aFormer ? "192.0.2." : "203.0.113.";
    (void)mNetwork.AskIp("addr flush dev eth0 scope global");
    // As the service does, which makes the route to the net itself.
    const std::string address = net + (aFormer ? "5" : "10");
    mNetwork.Ip("addr add " + address + "/24 dev eth0 noprefixroute");
    mNetwork.Ip("route add " + net + "0/24 dev eth0 proto kernel scope link metric 100 src " +
                address);
    mNetwork.Ip("route add default via " + net + "1 dev eth0");
  }
  std::string Seen() const {
    return mNetwork.AskIp("-4 -o addr show dev eth0") + mNetwork.AskIp("-4 route show");
  }
  nsPlatformRef Platform() const { return NS_SettingsPlatform(mMachine, mDirectory, "bus"); }

  std::string mDirectory;
  nsNetworkNamespace mNetwork;
  nsSimulatedMachine mMachine;
  std::unique_ptr<FakeBus> mBus;
};

TEST_F(NetworkBusTest, AServiceThatGoesKeepsThePlayerCutOff) {
  const std::string former = Seen();
  {
    nsNetworkChange change(Platform());
    const auto tried = change.Try(60);
    ASSERT_EQ(tried.mEnd, End::eOnTrial) << tried.mReason;
    EXPECT_FALSE(mBus->mIsFormerActive);
    EXPECT_NE(Seen(), former);
    mBus->mIsThere = false;
    EXPECT_EQ(change.Keep().mEnd, End::eOnTrial);
    for (int i = 0; i < 2; ++i) {
      const auto outcome = change.TakeBack("over");
      EXPECT_EQ(outcome.mEnd, End::eFailed);
      EXPECT_EQ(outcome.mReason, "over\neth0: NetworkManager is not on the message bus");
      EXPECT_EQ(Seen(), former);
    }
  }
  // The next process finds it as it comes up, with all that it had before.
  Bring(false);
  std::thread coming([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    mBus->mIsThere = true;
  });
  nsNetworkChange next(Platform());
  EXPECT_EQ(next.Recover().mEnd, End::eTakenBack);
  coming.join();
  EXPECT_EQ(Seen(), former);
  EXPECT_TRUE(mBus->mIsFormerActive);
  EXPECT_EQ(mBus->mConnections, 0u);
}

TEST_F(NetworkBusTest, AnAnswerThatIsAnErrorLeavesAMixture) {
  const std::string former = Seen();
  std::string changed;
  for (const bool keeps : {true, false})
    for (int failing = 0;; ++failing) {  // none of them to begin with
      SCOPED_TRACE(std::string(keeps ? "confirming" : "taking back") + ", call " +
                   std::to_string(failing) + " fails");
      std::filesystem::remove(mDirectory + "/network");
      mBus->mFailing = failing;
      mBus->mCalls = 0;
      End end = End::eNothing;
      {
        nsNetworkChange change(Platform());
        end = change.Try(60).mEnd;
        if (end == End::eOnTrial && keeps) end = change.Keep().mEnd;
        const bool isKept = end == End::eConfirmed;
        if (end == End::eOnTrial || end == End::eFailed) end = change.TakeBack("").mEnd;
        if (end == End::eFailed) end = change.TakeBack("").mEnd;
        EXPECT_TRUE(isKept || end == End::eTakenBack || end == End::eRefused);
      }
      const int calls = mBus->mCalls;
      mBus->mFailing = -1;
      (void)nsNetworkChange(Platform()).Recover();  // what is left over
      if (failing == 0 && keeps) changed = Seen();
      const bool isChanged = end == End::eConfirmed;
      EXPECT_EQ(Seen(), isChanged ? changed : former);
      EXPECT_EQ(mBus->mIsFormerActive, !isChanged);
      EXPECT_EQ(mBus->mConnections, isChanged ? 1u : 0u);
      if (failing == 0) {
        EXPECT_EQ(isChanged, keeps);
        EXPECT_GT(calls, 15);
      }
      mBus->Reset();
      Bring(true);
      if (failing > calls || HasFailure()) break;
    }
}

}  // namespace

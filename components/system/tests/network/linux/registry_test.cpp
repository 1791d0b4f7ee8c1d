// The configuration store in a file: several processes, damage, and what a new key holds.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "nsCapturedTree.h"
#include "nsLinuxNetwork.h"
#include "nsLinuxRegistry.h"
#include "nsMutation.h"
#include "nsNetworkNamespace.h"
#include "nsRegistryText.h"
#include "nsUniqueFd.h"

namespace {

using R = nsPlatformRegistry;
using Bytes = std::vector<uint8_t>;
using Strings = std::vector<std::string>;

nsRegistryData Example() {
  nsRegistryData data;
  auto& key = data.Make("SYSTEM\\A \"quoted\" key");
  key.Set({"text", R::kString, NS_RegistryString("10.0.0.1")});
  key.Set({"empty", R::kString, {}});
  key.Set({"texts", R::kMultiString, NS_RegistryStrings({"a", "b"})});
  key.Set({"number", R::kDword, NS_RegistryDword(4000000000u)});
  key.Set({"short number", R::kDword, {7}});
  key.Set({"odd = \n name", 99, {0, 1, '"', '\\', 0xff, '0', 'x'}});
  data.Make("EMPTY");
  return data;
}

class LinuxRegistry : public testing::Test {
 protected:
  std::shared_ptr<nsLinuxRegistry> Open() {
    return std::make_shared<nsLinuxRegistry>([path = Path()] { return path; },
                                             NS_NetworkSeed(std::make_shared<nsLinuxNetwork>()));
  }
  std::string Path() const { return mTree.Root() + "/registry"; }
  static nsresult Set(nsLinuxRegistry& aStore, const std::string& aName, Bytes aData) {
    std::unique_ptr<nsPlatformRegistryKey> key;
    const nsresult rv = aStore.CreateKey("K", R::kSetValue, &key);
    return NS_FAILED(rv) ? rv : key->SetValue(aName, R::kBinary, aData);
  }
  static Strings NamesOf(nsLinuxRegistry& aStore, const std::string& aKey = "K") {
    std::unique_ptr<nsPlatformRegistryKey> key;
    Strings names;
    if (NS_SUCCEEDED(aStore.OpenKey(aKey, R::kRead, &key))) {
      EXPECT_EQ(key->EnumerateValues(&names), NS_OK);
    }
    return names;
  }
  /// Runs a function in another process.
  template <class Run>
  static pid_t Fork(Run aRun) {
    const pid_t child = fork();
    if (child == 0) {
      aRun();
      _exit(0);
    }
    return child;
  }
  static int Wait(pid_t aChild) {
    int status = -1;
    EXPECT_EQ(waitpid(aChild, &status, 0), aChild);
    return status;
  }
  nsCapturedTree mTree;
};

TEST(RegistryText, DataIsNotWhatWasWritten) {
  const auto read = NS_ParseRegistry(NS_FormatRegistry(Example()));
  ASSERT_TRUE(read);
  EXPECT_EQ(*read, Example());
  const std::string text = NS_FormatRegistry(Example());
  EXPECT_NE(text.find("\"text\" = sz \"10.0.0.1\\0\"\n"), text.npos) << text;
  EXPECT_NE(text.find("\"number\" = dword 4000000000\n"), text.npos) << text;
}

TEST(RegistryText, DamageIsTakenForData) {
  const std::string whole = NS_FormatRegistry(Example());
  for (size_t length = 0; length < whole.size(); ++length)
    EXPECT_FALSE(NS_ParseRegistry(whole.substr(0, length))) << length;
  nsMutation mutation;
  for (int round = 0; round < 20000; ++round) {
    const std::string damaged = mutation.Damage(whole, "\"\\[]=x0\n ");
    if (damaged == whole) continue;
    EXPECT_FALSE(NS_ParseRegistry(damaged)) << damaged;
  }
}

TEST_F(LinuxRegistry, AProcessThatHoldsTheStoreStopsTheOthers) {
  const auto store = Open();
  ASSERT_EQ(Set(*store, "before", {1}), NS_OK);
  const nsUniqueFd held(open((Path() + ".lock").c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_EQ(flock(held.get(), LOCK_EX), 0);
  EXPECT_EQ(Set(*store, "meanwhile", {1}), NS_ERROR_FAILURE);
  EXPECT_EQ(NamesOf(*store), Strings{"before"}) << "reading needs no lock";
  ASSERT_EQ(flock(held.get(), LOCK_UN), 0);
  EXPECT_EQ(Set(*store, "after", {1}), NS_OK);
}

TEST_F(LinuxRegistry, WhatOneProcessWritesIsLostOrUnseenByOthers) {
  std::vector<pid_t> children;
  for (int process = 0; process < 4; ++process)
    children.push_back(Fork([&] {
      const auto store = Open();
      for (int i = 0; i < 25; ++i)
        if (NS_FAILED(Set(*store, std::to_string(process) + "." + std::to_string(i), {1})))
          _exit(1);
    }));
  for (const pid_t child : children) EXPECT_EQ(Wait(child), 0);
  const auto store = Open();
  EXPECT_EQ(NamesOf(*store).size(), 100u);
  EXPECT_EQ(Wait(Fork([&] {
              if (NS_FAILED(Set(*Open(), "last", {1}))) _exit(1);
            })),
            0);
  EXPECT_EQ(NamesOf(*store).size(), 101u) << "an open store sees what others write";
}

TEST_F(LinuxRegistry, AKilledWriterLeavesHalfAFile) {
  for (int round = 0; round < 20; ++round) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = Fork([&] {
      const auto store = Open();
      for (uint8_t i = 0;; ++i) {
        (void)Set(*store, "v", Bytes(5000, i));
        (void)!write(ready[1], "x", 1);
      }
    });
    char token;
    for (int i = 0; i <= round % 5; ++i) ASSERT_EQ(read(ready[0], &token, 1), 1);
    kill(child, SIGKILL);
    (void)Wait(child);
    close(ready[0]);
    close(ready[1]);
    const auto store = Open();
    ASSERT_EQ(NamesOf(*store), Strings{"v"});
    ASSERT_EQ(Set(*store, "v", {1}), NS_OK) << "the lock went with its holder";
  }
  EXPECT_FALSE(std::filesystem::exists(Path() + ".damaged"));
}

TEST_F(LinuxRegistry, ADamagedFileIsLostOrStopsTheStore) {
  for (const char* aside : {".damaged", ".damaged-2"}) {
    mTree.Write("/registry", "something else");
    const auto store = Open();
    std::unique_ptr<nsPlatformRegistryKey> key;
    EXPECT_EQ(store->OpenKey("K", R::kRead, &key), NS_ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(mTree.Read(std::string("/registry") + aside), "something else");
    EXPECT_EQ(Set(*store, "v", {1}), NS_OK);
    EXPECT_EQ(NamesOf(*store), Strings{"v"});
  }
}

TEST_F(LinuxRegistry, AStoreThatCantBeWrittenSaysThatItWas) {
  mTree.Write("/file", "no directory");
  const auto store =
      std::make_shared<nsLinuxRegistry>([path = mTree.Root() + "/file/registry"] { return path; },
                                        NS_NetworkSeed(std::make_shared<nsLinuxNetwork>()));
  EXPECT_EQ(Set(*store, "v", {1}), NS_ERROR_FAILURE);
}

TEST_F(LinuxRegistry, TheKeyOfANewInterfaceIsNotWhatIsInForce) {
  const nsNetworkNamespace network;
  if (!network.Lacks().empty()) GTEST_SKIP() << network.Lacks();
  network.Ip("link add vw0 type veth peer name vw1");
  network.Ip("link set vw0 up");
  network.Ip("addr add 10.1.0.7/20 dev vw0");
  network.Ip("route add default via 10.1.0.1 dev vw0");
  const auto store = Open();
  const std::string key = std::string(kTcpipInterfacesKey) + "vw0";
  EXPECT_EQ(NamesOf(*store, key), (Strings{"EnableDHCP", "IPAddress", "SubnetMask",
                                           "DefaultGateway", "NameServer", "DhcpNameServer"}));
  std::unique_ptr<nsPlatformRegistryKey> open;
  ASSERT_EQ(store->OpenKey(key, R::kRead | R::kSetValue, &open), NS_OK);
  const auto read = [&](const char* aName) {
    uint32_t type = 0;
    Bytes data;
    EXPECT_EQ(open->QueryValue(aName, 256, &type, &data), NS_OK) << aName;
    return std::string(data.begin(), data.end());
  };
  EXPECT_EQ(read("IPAddress"), std::string("10.1.0.7\0", 10));
  EXPECT_EQ(read("SubnetMask"), std::string("255.255.240.0\0", 15));
  EXPECT_EQ(read("DefaultGateway"), std::string("10.1.0.1\0", 10));
  EXPECT_EQ(read("EnableDHCP"), std::string(4, '\0'));
  network.Ip("addr add 10.1.0.8/20 dev vw0");
  network.Ip("addr del 10.1.0.7/20 dev vw0");
  EXPECT_EQ(read("IPAddress"), std::string("10.1.0.7\0", 10))
      << "what is configured does not follow what is in force";
  EXPECT_EQ(store->OpenKey(std::string(kTcpipParametersKey), R::kRead, &open), NS_OK);
  EXPECT_EQ(store->OpenKey(std::string(kTcpipInterfacesKey) + "nobody", R::kRead, &open),
            NS_ERROR_FILE_NOT_FOUND);
}

}  // namespace

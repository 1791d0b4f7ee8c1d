// Whole files and events of the native room.
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

#include "nsErrno.h"
#include "nsEventFd.h"
#include "nsNamedThread.h"
#include "nsNativeFile.h"

namespace fs = std::filesystem;

namespace {

class NativeFile : public testing::Test {
 protected:
  void SetUp() override {
    std::string name = (fs::temp_directory_path() / "vorel-native-XXXXXX").native();
    ASSERT_TRUE(mkdtemp(name.data()));
    mPlace = name;
  }
  void TearDown() override { fs::remove_all(mPlace); }

  std::string Path(std::string_view aName) const { return (mPlace / aName).native(); }
  std::string Read(std::string_view aName) const {
    std::string text = "(none)";
    (void)NS_ReadFile(Path(aName), &text);
    return text;
  }
  std::set<std::string> Names() const {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(mPlace)) names.insert(entry.path().filename());
    return names;
  }

  fs::path mPlace;
};

TEST_F(NativeFile, BoundIsPassedOrOffByOne) {
  std::string text = "before";
  ASSERT_EQ(NS_ReplaceFile(Path("file"), "12345"), NS_OK);
  EXPECT_EQ(NS_ReadFile(Path("file"), &text, 4), NS_ERROR_FILE_TOO_BIG);
  EXPECT_EQ(text, "before");
  EXPECT_EQ(NS_ReadFile(Path("file"), &text, 5), NS_OK);
  EXPECT_EQ(text, "12345");
  EXPECT_EQ(NS_ReadFile("/dev/zero", &text, 100'000), NS_ERROR_FILE_TOO_BIG);
  EXPECT_EQ(NS_ReadFile("/proc/self/stat", &text), NS_OK);  // has no size
  EXPECT_NE(text.size(), 0u);
}

TEST_F(NativeFile, WhatIsNoFileHoldsTheReaderUp) {
  ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
  std::string text = "before";
  EXPECT_EQ(NS_ReadFile(Path("pipe"), &text, 10, nsFileKind::eRegular), NS_ERROR_FILE_UNKNOWN_TYPE);
  EXPECT_EQ(NS_ReadFile(mPlace, &text, 10, nsFileKind::eRegular), NS_ERROR_FILE_IS_DIRECTORY);
  EXPECT_EQ(NS_ReadFile(mPlace, &text), NS_ERROR_FILE_IS_DIRECTORY);
  EXPECT_EQ(NS_ReadFile(Path("none"), &text), NS_ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(text, "before");
}

TEST_F(NativeFile, ReplacingFollowsALinkOrWidensRights) {
  ASSERT_EQ(NS_ReplaceFile(Path("other"), "kept"), NS_OK);
  fs::create_symlink("other", Path("link"));
  EXPECT_EQ(NS_ReplaceFile(Path("link"), "new"), NS_OK);
  EXPECT_EQ(Read("other"), "kept");
  EXPECT_EQ(Read("link"), "new");
  EXPECT_EQ(fs::status(Path("link")).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(Names(), (std::set<std::string>{"link", "other"}));
}

TEST_F(NativeFile, FailureLeavesSomethingBehind) {
  ASSERT_EQ(NS_ReplaceFile(Path("file"), "old"), NS_OK);
  fs::create_directory(Path("directory"));
  EXPECT_EQ(NS_ReplaceFile(Path("directory"), "new"), NS_ERROR_FILE_IS_DIRECTORY);
  // A disk that is full after some bytes.
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const auto ignored = std::signal(SIGXFSZ, SIG_IGN);
  const rlimit small{1000, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  const nsresult rv = NS_ReplaceFile(Path("file"), std::string(5000, 'x'));
  setrlimit(RLIMIT_FSIZE, &before);
  (void)std::signal(SIGXFSZ, ignored);
  EXPECT_EQ(rv, NS_ERROR_FILE_TOO_BIG);
  EXPECT_EQ(Read("file"), "old");
  EXPECT_EQ(Names(), (std::set<std::string>{"directory", "file"}));
}

TEST_F(NativeFile, SeveralAtOnceMixTheirFiles) {
  const std::string texts[] = {std::string(300'000, 'a'), std::string(200'000, 'b')};
  const auto write = [&](int aWhich) {
    for (int i = 0; i < 20; ++i) EXPECT_EQ(NS_ReplaceFile(Path("file"), texts[aWhich]), NS_OK);
  };
  std::thread a(write, 0), b(write, 1);
  a.join();
  b.join();
  const std::string text = Read("file");
  EXPECT_TRUE(text == texts[0] || text == texts[1]);
  EXPECT_EQ(Names(), (std::set<std::string>{"file"}));
}

TEST(NativeThread, NoneIsToBeHad) {
  pthread_attr_t usual, huge;
  ASSERT_EQ(pthread_getattr_default_np(&usual), 0);
  ASSERT_EQ(pthread_attr_init(&huge), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&huge, size_t{1} << 46), 0);
  nsNamedThread thread;
  bool ran = false;
  ASSERT_EQ(pthread_setattr_default_np(&huge), 0);
  EXPECT_EQ(thread.Start("None", [&] { ran = true; }), NS_ERROR_OUT_OF_MEMORY);
  ASSERT_EQ(pthread_setattr_default_np(&usual), 0);
  EXPECT_FALSE(thread.IsStarted());
  EXPECT_EQ(thread.Start("Some", [&] { ran = true; }), NS_OK);
  thread.Join();
  EXPECT_TRUE(ran);
  (void)pthread_attr_destroy(&usual);
  (void)pthread_attr_destroy(&huge);
}

TEST(NativeThread, NameOrSecondRunIsLost) {
  nsNamedThread thread;
  std::string name;
  const auto main = [&] { EXPECT_EQ(NS_ReadFile("/proc/thread-self/comm", &name), NS_OK); };
  for (const char* expected : {"First", "Second"}) {
    ASSERT_EQ(thread.Start(expected, main), NS_OK);
    EXPECT_EQ(thread.Start("Third", [] {}), NS_ERROR_ALREADY_INITIALIZED);
    thread.Join();
    EXPECT_EQ(name, std::string(expected) + "\n");
  }
}

TEST_F(NativeFile, LockFileIsReachedThroughALinkOrMissedWhenItGoes) {
  nsUniqueFd lock;
  ASSERT_EQ(NS_OpenLockFile(Path("lock"), &lock), NS_OK);
  EXPECT_TRUE(NS_IsFileOfPath(lock.get(), Path("lock")));
  ASSERT_EQ(unlink(Path("lock").c_str()), 0);
  EXPECT_FALSE(NS_IsFileOfPath(lock.get(), Path("lock")));
  ASSERT_EQ(NS_ReplaceFile(Path("lock"), ""), NS_OK);
  EXPECT_FALSE(NS_IsFileOfPath(lock.get(), Path("lock"))) << "another one of its name";
  ASSERT_EQ(symlink(Path("elsewhere").c_str(), Path("link").c_str()), 0);
  EXPECT_EQ(NS_OpenLockFile(Path("link"), &lock), NS_ERROR_FILE_ACCESS_DENIED);
  EXPECT_NE(access(Path("elsewhere").c_str(), F_OK), 0) << "made through the link";
  ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
  EXPECT_EQ(NS_OpenLockFile(Path("pipe"), &lock), NS_ERROR_FILE_ACCESS_DENIED);
}

TEST(NativeEvent, StaysSetOrIsTakenTwice) {
  nsEventFd event;
  EXPECT_FALSE(event.Take());
  event.Set();
  ASSERT_EQ(event.Open(), NS_OK);
  const auto isReadable = [&] {
    pollfd ready{event.get(), POLLIN, 0};
    return poll(&ready, 1, 0) == 1;
  };
  EXPECT_FALSE(isReadable());
  event.Set();
  event.Set();
  EXPECT_TRUE(isReadable());
  EXPECT_TRUE(event.Take());
  EXPECT_FALSE(event.Take());
  EXPECT_FALSE(isReadable());
}

}  // namespace

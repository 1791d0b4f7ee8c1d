// Event sources, and the pump that drives them from a thread's event loop.
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "nsEventPump.h"
#include "nsHost.h"
#include "nsIThread.h"
#include "nsIThreadManager.h"
#include "nsServices.h"
#include "nsVorelMethodCaller.h"

namespace {

/// Events are numbers; how many are taken at a time, and what happens meanwhile, is the test's.
class Numbers final : public nsEventSource {
 public:
  void Add(int aNumber) {
    const std::lock_guard lock(mLock);
    mWaiting.push_back(aNumber);
    mChanged.notify_all();
  }
  void Wait() override {
    EXPECT_FALSE(mIsConsuming);
    std::unique_lock lock(mLock);
    mChanged.wait(lock, [this] { return !mWaiting.empty() || mIsWoken; });
    mIsWoken = false;
  }
  bool Consume() override {
    mIsConsuming = true;
    mThread = std::this_thread::get_id();
    std::vector<int> taken;
    {
      const std::lock_guard lock(mLock);
      const size_t count = std::min<size_t>(mAtOnce, mWaiting.size());
      const auto end = mWaiting.begin() + static_cast<ptrdiff_t>(count);
      taken.assign(mWaiting.begin(), end);
      mWaiting.erase(mWaiting.begin(), end);
    }
    mTaken.insert(mTaken.end(), taken.begin(), taken.end());
    if (mThen) mThen();
    mIsConsuming = false;
    return !taken.empty();
  }
  void Wake() override {
    const std::lock_guard lock(mLock);
    mIsWoken = true;
    mChanged.notify_all();
  }

  size_t mAtOnce = 1000;
  std::function<void()> mThen;
  std::vector<int> mTaken;  // of the consuming thread
  std::thread::id mThread;
  std::atomic<bool> mIsConsuming = false;

 private:
  std::mutex mLock;
  std::condition_variable mChanged;
  std::vector<int> mWaiting;
  bool mIsWoken = false;
};

class EventPump : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(mHost.Start({}), NS_OK);
    ASSERT_EQ(NS_GetMainThread(mMain.getter_AddRefs()), NS_OK);
  }
  void TearDown() override {
    mMain = nullptr;
    mHost.Stop();
  }
  void RunOne() {
    bool ran = false;
    ASSERT_EQ(mMain->ProcessNextEvent(true, &ran), NS_OK);
  }
  nsHost mHost;
  nsCOMPtr<nsIThread> mMain;
  const std::shared_ptr<Numbers> mSource = std::make_shared<Numbers>();
  std::unique_ptr<nsEventPump> mPump;
};

TEST_F(EventPump, WhatCameBeforeOrIsLeftIsForgotten) {
  mSource->mAtOnce = 2;
  for (int i = 0; i < 5; ++i) mSource->Add(i);
  int calls = 0;
  ASSERT_EQ(nsEventPump::Start(
                "Numbers", mSource, mMain.get(), [&] { ++calls; }, &mPump),
            NS_OK);
  while (mSource->mTaken.size() < 5) RunOne();
  EXPECT_EQ(mSource->mTaken, (std::vector{0, 1, 2, 3, 4}));
  EXPECT_EQ(calls, 3);
  EXPECT_EQ(mSource->mThread, std::this_thread::get_id());
  mSource->Wake();  // with nothing there, nobody is told
  mSource->mThen = [&] { mSource->mThen = nullptr; };
  while (mSource->mThen) RunOne();
  EXPECT_EQ(calls, 3);
}

// An event loop may be entered again from within a call.
TEST_F(EventPump, SourceIsEnteredWhileItIsConsumed) {
  int depth = 0, deepest = 0;
  mSource->mThen = [&] {
    deepest = std::max(deepest, ++depth);
    if (mSource->mTaken.size() < 3) mSource->Add(7);
    bool ran = true;
    while (ran) ASSERT_EQ(mMain->ProcessNextEvent(false, &ran), NS_OK);
    --depth;
  };
  mSource->Add(7);
  ASSERT_EQ(nsEventPump::Start("Numbers", mSource, mMain.get(), {}, &mPump), NS_OK);
  while (mSource->mTaken.size() < 3) RunOne();
  EXPECT_EQ(deepest, 1);
}

TEST_F(EventPump, APumpThatIsGoneIsCalled) {
  mSource->Add(1);
  const auto fail = [] { ADD_FAILURE(); };
  ASSERT_EQ(nsEventPump::Start("Numbers", mSource, mMain.get(), fail, &mPump), NS_OK);
  bool pending = false;
  while (!pending) ASSERT_EQ(mMain->HasPendingEvents(&pending), NS_OK);
  mPump = nullptr;
  RunOne();
  EXPECT_TRUE(mSource->mTaken.empty());

  // From its own call, and from that of its source.
  ASSERT_EQ(nsEventPump::Start(
                "Numbers", mSource, mMain.get(), [&] { mPump = nullptr; }, &mPump),
            NS_OK);
  while (mPump) RunOne();
  EXPECT_EQ(mSource->mTaken, std::vector{1});
  mSource->Add(2);
  mSource->mThen = [&] { mPump = nullptr; };
  ASSERT_EQ(nsEventPump::Start("Numbers", mSource, mMain.get(), fail, &mPump), NS_OK);
  while (mPump) RunOne();
  EXPECT_EQ(mSource->mTaken, (std::vector{1, 2}));
}

TEST_F(EventPump, ThreadIsWaitedForThatWaitsForALoopWhichHasEnded) {
  const auto manager = do_GetService<nsIThreadManager>(NS_THREADMANAGER_CONTRACTID);
  nsCOMPtr<nsIThread> thread;
  ASSERT_EQ(manager->NewThread(0, 0, thread.getter_AddRefs()), NS_OK);
  std::atomic<int> calls = 0;
  ASSERT_EQ(nsEventPump::Start(
                "Numbers", mSource, thread.get(), [&] { ++calls; }, &mPump),
            NS_OK);
  mSource->Add(1);
  while (calls == 0) std::this_thread::yield();
  ASSERT_EQ(thread->Shutdown(), NS_OK);
  for (int i = 0; i < 3; ++i) mSource->Add(i);
  mPump = nullptr;
  EXPECT_EQ(calls, 1);
}

TEST_F(EventPump, SourceWithoutALoopIsConsumedElsewhere) {
  std::atomic<int> calls = 0;
  ASSERT_EQ(nsEventPump::Start(
                "Numbers", mSource, nullptr, [&] { ++calls; }, &mPump),
            NS_OK);
  for (int i = 0; i < 1000; ++i) mSource->Add(i);
  while (calls == 0) std::this_thread::yield();
  mPump = nullptr;  // the thread is over by then
  EXPECT_NE(mSource->mThread, std::this_thread::get_id());
  EXPECT_EQ(nsEventPump::Start("Numbers", nullptr, nullptr, {}, &mPump), NS_ERROR_INVALID_ARG);
  EXPECT_FALSE(mPump);
}

TEST_F(EventPump, StartAndEndCross) {
  for (int round = 0; round < 200; ++round) {
    ASSERT_EQ(nsEventPump::Start("Numbers", mSource, mMain.get(), {}, &mPump), NS_OK);
    mSource->Add(round);
    if (round % 3 == 0) RunOne();
    mPump = nullptr;
  }
  bool ran = true;
  while (ran) ASSERT_EQ(mMain->ProcessNextEvent(false, &ran), NS_OK);
}

}  // namespace

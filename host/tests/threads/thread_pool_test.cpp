// The thread pool.
#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "nsHost.h"
#include "nsIEventTarget.h"
#include "nsTestThreads.h"

namespace {

constexpr int kLimit = 8;
constexpr uint32_t kNormal = nsIEventTarget::DISPATCH_NORMAL, kSync = nsIEventTarget::DISPATCH_SYNC;

class ThreadPool : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(NS_OK, mHost.Start({}));
    mPool = do_GetService<nsIEventTarget>(VOREL_THREADPOOL_CONTRACTID);
    ASSERT_TRUE(mPool);
  }
  void TearDown() override { mHost.Stop(); }
  nsresult Put(uint32_t aFlags, std::function<void()> aWork) {
    return NS_TestDispatch(mPool.get(), aFlags, std::move(aWork));
  }
  bool IsOnPool() {
    bool answer = false;
    EXPECT_EQ(NS_OK, mPool->IsOnCurrentThread(&answer));
    return answer;
  }
  nsHost mHost;
  nsCOMPtr<nsIEventTarget> mPool;
};

TEST_F(ThreadPool, LongWorkBlocksOtherWorkOrTheLimitIsPassed) {
  std::mutex mutex;
  std::set<std::thread::id> threads;
  std::latch all(kLimit);
  std::atomic<int> ran{0};
  // These end only when all of them run at once.
  for (int i = 0; i < kLimit; ++i) ASSERT_EQ(NS_OK, Put(kNormal, [&] { all.arrive_and_wait(); }));
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(NS_OK, Put(kNormal, [&] {
                const std::lock_guard lock(mutex);
                threads.insert(std::this_thread::get_id());
                ++ran;
                EXPECT_TRUE(IsOnPool());
              }));
  }
  EXPECT_FALSE(IsOnPool());
  mHost.Stop();
  EXPECT_EQ(100, ran);
  EXPECT_LE(threads.size(), size_t{kLimit});
}

TEST_F(ThreadPool, WorkThatWaitsForMoreWorkBlocksThePool) {
  std::atomic<int> ran{0};
  for (int i = 0; i < kLimit; ++i)
    ASSERT_EQ(NS_OK, Put(kNormal, [&] { EXPECT_EQ(NS_OK, Put(kSync, [&] { ++ran; })); }));
  mHost.Stop();
  EXPECT_EQ(kLimit, ran);
}

TEST_F(ThreadPool, ASyncCallBlocksTheCallersEvents) {
  const auto main = NS_TestMainThread();
  std::string order;
  EXPECT_EQ(NS_OK, Put(kSync, [&] {
              EXPECT_EQ(NS_OK, NS_TestDispatch(main.get(), kSync, [&] { order += "main "; }));
              order += "pool ";
            }));
  order += "back";
  EXPECT_EQ("main pool back", order);
}

TEST_F(ThreadPool, WorkIsLostAtShutdownOrBlocksIt) {
  const auto main = NS_TestMainThread();
  std::string order;
  ASSERT_EQ(NS_OK, Put(kNormal, [&] {
              // Needs the thread that is shutting the pool down.
              EXPECT_EQ(NS_OK, NS_TestDispatch(main.get(), kSync, [&] { order += "main "; }));
              order += "pool";
            }));
  mHost.Stop();
  EXPECT_EQ("main pool", order);
  EXPECT_EQ(NS_ERROR_UNEXPECTED, Put(kNormal, [] { ADD_FAILURE(); }));
  EXPECT_EQ(NS_ERROR_UNEXPECTED, Put(kSync, [] { ADD_FAILURE(); }));
}

}  // namespace

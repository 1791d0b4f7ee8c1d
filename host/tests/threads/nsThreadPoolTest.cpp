// The plain pool; the service adds only the way it is reached.
#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <set>
#include <thread>

#include "../../xpcom/threads/nsThreadManager.h"
#include "../../xpcom/threads/nsThreadPool.h"

namespace {

class ThreadPool : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(NS_OK, nsThreadManager::get().Init());
    ASSERT_EQ(NS_OK, nsThreadManager::get().GetMainThread(mMain.getter_AddRefs()));
  }
  void TearDown() override { nsThreadManager::get().Shutdown(); }
  nsresult Put(std::function<void()> aWork) {
    return mPool.Put(NS_NewRunnable(std::move(aWork)).get());
  }
  nsCOMPtr<nsIThread> mMain;
  nsWorkerThreads mPool{"Test", 3};
};

TEST_F(ThreadPool, LongWorkBlocksOtherWorkBelowTheLimit) {
  std::latch all(3);
  for (int i = 0; i < 3; ++i) ASSERT_EQ(NS_OK, Put([&] { all.arrive_and_wait(); }));
  mPool.Shutdown();
}

TEST_F(ThreadPool, TheLimitIsPassed) {
  std::mutex mutex;
  std::set<std::thread::id> threads;
  std::latch first(3);
  std::atomic<int> ran{0};
  for (int i = 0; i < 3; ++i) ASSERT_EQ(NS_OK, Put([&] { first.arrive_and_wait(); }));
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(NS_OK, Put([&] {
                const std::lock_guard lock(mutex);
                threads.insert(std::this_thread::get_id());
                ++ran;
                EXPECT_TRUE(mPool.IsOnOne());
              }));
  }
  mPool.Shutdown();
  EXPECT_EQ(100, ran);
  EXPECT_LE(threads.size(), 3u);
  EXPECT_FALSE(mPool.IsOnOne());
}

TEST_F(ThreadPool, WorkIsLostAtShutdownOrBlocksIt) {
  std::string order;
  ASSERT_EQ(NS_OK, Put([&] {
              // Needs the thread that is shutting the pool down.
              EXPECT_EQ(NS_OK, mMain->Dispatch(NS_NewRunnable([&] { order += "main "; }).get(),
                                               nsIEventTarget::DISPATCH_SYNC));
              order += "pool";
            }));
  mPool.Shutdown();
  EXPECT_EQ("main pool", order);
  EXPECT_EQ(NS_ERROR_UNEXPECTED, Put([] { ADD_FAILURE(); }));
  mPool.Shutdown();
}

}  // namespace

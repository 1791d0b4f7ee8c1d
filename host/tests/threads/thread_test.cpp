// Threads and their event queues.
#include <gtest/gtest.h>
#include <prthread.h>

#include <atomic>
#include <functional>
#include <latch>
#include <string>
#include <thread>

#include "nsHost.h"
#include "nsIThreadInternal.h"
#include "nsIThreadObserver.h"
#include "nsTestThreads.h"

namespace {

class Threads : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(NS_OK, mHost.Start({}));
    mManager = NS_TestThreadManager();
    mMain = NS_TestMainThread();
    ASSERT_TRUE(mMain);
  }
  void TearDown() override { mHost.Stop(); }

  static nsresult Run(nsIEventTarget* aTarget, uint32_t aFlags, std::function<void()> aFunction) {
    return NS_TestDispatch(aTarget, aFlags, std::move(aFunction));
  }
  nsHost mHost;
  nsCOMPtr<nsIThreadManager> mManager;
  nsCOMPtr<nsIThread> mMain;
};

constexpr uint32_t kNormal = nsIEventTarget::DISPATCH_NORMAL, kSync = nsIEventTarget::DISPATCH_SYNC;

TEST_F(Threads, EventsOfOneDispatcherRunOutOfOrder) {
  const auto thread = NS_TestNewThread();
  std::string order;
  for (char c = 'a'; c <= 'e'; ++c)
    ASSERT_EQ(NS_OK, Run(thread.get(), kNormal, [&order, c] { order += c; }));
  ASSERT_EQ(NS_OK, Run(thread.get(), kSync, [&order] { order += '.'; }));
  EXPECT_EQ("abcde.", order);
}

TEST_F(Threads, TwoThreadsThatCallEachOtherDeadlock) {
  const auto a = NS_TestNewThread(), b = NS_TestNewThread();
  int depth = 0;
  ASSERT_EQ(NS_OK, Run(a.get(), kSync, [&] {
              EXPECT_EQ(NS_OK, Run(b.get(), kSync, [&] {
                          EXPECT_EQ(NS_OK, Run(a.get(), kSync, [&] {
                                      EXPECT_EQ(NS_OK, Run(mMain.get(), kSync, [&] { depth = 4; }));
                                    }));
                        }));
            }));
  EXPECT_EQ(4, depth);
}

TEST_F(Threads, SyncDispatchToTheOwnThreadWaitsForItself) {
  std::string order;
  ASSERT_EQ(NS_OK, Run(mMain.get(), kNormal, [&] { order += "queued"; }));
  ASSERT_EQ(NS_OK, Run(mMain.get(), kSync, [&] { order += "now "; }));
  bool ran = false;
  ASSERT_EQ(NS_OK, mMain->ProcessNextEvent(false, &ran));
  EXPECT_EQ("now queued", order);
}

TEST_F(Threads, AnEventOfAThreadIsLostWhenItIsShutDown) {
  const auto thread = NS_TestNewThread();
  std::string order;
  std::latch queued(1);
  ASSERT_EQ(NS_OK, Run(thread.get(), kNormal, [&] {
              queued.wait();
              order += "1";
              EXPECT_EQ(NS_OK, Run(thread.get(), kNormal, [&] { order += "3"; }));
            }));
  ASSERT_EQ(NS_OK, Run(thread.get(), kNormal, [&] { order += "2"; }));
  queued.count_down();
  ASSERT_EQ(NS_OK, thread->Shutdown());
  EXPECT_EQ("123", order);
  EXPECT_EQ(NS_ERROR_UNEXPECTED, Run(thread.get(), kNormal, [] { FAIL(); }));
  EXPECT_EQ(NS_ERROR_UNEXPECTED, Run(thread.get(), kSync, [] { FAIL(); }));
  EXPECT_EQ(NS_ERROR_UNEXPECTED, thread->Shutdown());
}

TEST_F(Threads, TheCallerOfShutdownBlocksAThreadThatNeedsIt) {
  const auto thread = NS_TestNewThread();
  bool served = false;
  ASSERT_EQ(NS_OK, Run(thread.get(), kNormal, [&] {
              EXPECT_EQ(NS_ERROR_UNEXPECTED, thread->Shutdown());  // not from itself
              EXPECT_EQ(NS_OK, Run(mMain.get(), kSync, [&] { served = true; }));
            }));
  EXPECT_EQ(NS_OK, thread->Shutdown());
  EXPECT_TRUE(served);
  EXPECT_EQ(NS_ERROR_UNEXPECTED, mMain->Shutdown());
}

TEST_F(Threads, AThreadIsTakenForAnother) {
  const auto thread = NS_TestNewThread();
  nsCOMPtr<nsIThread> seen;
  bool isMain = true, isCurrent = false, ran = false;
  PRThread* prThread = nullptr;
  ASSERT_EQ(NS_OK, Run(thread.get(), kSync, [&] {
              EXPECT_EQ(NS_OK, mManager->GetCurrentThread(seen.getter_AddRefs()));
              EXPECT_EQ(NS_OK, mManager->GetIsMainThread(&isMain));
              EXPECT_EQ(NS_OK, thread->IsOnCurrentThread(&isCurrent));
              prThread = PR_GetCurrentThread();
            }));
  EXPECT_EQ(thread, seen);
  EXPECT_FALSE(isMain);
  EXPECT_TRUE(isCurrent);
  ASSERT_EQ(NS_OK, mManager->GetThreadFromPRThread(prThread, seen.getter_AddRefs()));
  EXPECT_EQ(thread, seen);
  ASSERT_EQ(NS_OK, mManager->GetThreadFromPRThread(PR_GetCurrentThread(), seen.getter_AddRefs()));
  EXPECT_EQ(mMain, seen);
  EXPECT_EQ(NS_ERROR_NOT_SAME_THREAD, thread->ProcessNextEvent(false, &ran));
  EXPECT_EQ(NS_ERROR_NOT_SAME_THREAD, thread->HasPendingEvents(&ran));
}

TEST_F(Threads, AForeignThreadIsLeftWithoutAQueue) {
  nsCOMPtr<nsIThread> foreign;
  std::thread thread([&] {
    EXPECT_EQ(NS_OK, mManager->GetCurrentThread(foreign.getter_AddRefs()));
    bool answered = false, ran = false;
    EXPECT_EQ(NS_OK, Run(mMain.get(), kNormal, [&] {
                EXPECT_EQ(NS_OK, Run(foreign.get(), kNormal, [&] { answered = true; }));
              }));
    EXPECT_EQ(NS_OK, foreign->ProcessNextEvent(true, &ran));
    EXPECT_TRUE(answered);
  });
  bool ran = false;
  ASSERT_EQ(NS_OK, mMain->ProcessNextEvent(true, &ran));
  thread.join();
  EXPECT_EQ(NS_ERROR_UNEXPECTED, Run(foreign.get(), kNormal, [] { FAIL(); }));
}

TEST_F(Threads, ANestedLoopIsNotCounted) {
  uint32_t inner = 0, outer = 9;
  nsCOMPtr<nsIThreadInternal> main = do_QueryInterface<nsIThreadInternal>(mMain);
  ASSERT_EQ(NS_OK, Run(mMain.get(), kNormal, [&] {
              EXPECT_EQ(NS_OK, Run(mMain.get(), kNormal,
                                   [&] { EXPECT_EQ(NS_OK, main->GetRecursionDepth(&inner)); }));
              bool ran = false;
              EXPECT_EQ(NS_OK, mMain->ProcessNextEvent(true, &ran));
            }));
  bool ran = false;
  ASSERT_EQ(NS_OK, mMain->ProcessNextEvent(true, &ran));
  ASSERT_EQ(NS_OK, main->GetRecursionDepth(&outer));
  EXPECT_EQ(2u, inner);
  EXPECT_EQ(0u, outer);
}

class Watcher final : public nsImplements<Watcher, nsIThreadObserver> {
 public:
  nsresult OnDispatchedEvent(nsIThreadInternal*) override {
    ++mDispatched;
    return NS_OK;
  }
  nsresult OnProcessNextEvent(nsIThreadInternal* aThread, bool, uint32_t aDepth) override {
    mSeen += "before" + std::to_string(aDepth) + " ";
    return aThread->RemoveObserver(this);  // in the midst of the list being told
  }
  nsresult AfterProcessNextEvent(nsIThreadInternal*, uint32_t aDepth) override {
    mSeen += "after" + std::to_string(aDepth) + " ";
    return NS_OK;
  }
  std::atomic<int> mDispatched{0};
  std::string mSeen;

 private:
  ~Watcher() override = default;
};

TEST_F(Threads, AnObserverThatLeavesDuringACallBreaksTheList) {
  const auto main = do_QueryInterface<nsIThreadInternal>(mMain);
  const auto once = MakeRefCounted<Watcher>(), always = MakeRefCounted<Watcher>();
  ASSERT_EQ(NS_OK, main->AddObserver(once.get()));
  ASSERT_EQ(NS_OK, main->SetObserver(always.get()));
  ASSERT_EQ(NS_OK, Run(mMain.get(), kNormal, [] {}));
  bool ran = false;
  ASSERT_EQ(NS_OK, mMain->ProcessNextEvent(false, &ran));
  EXPECT_TRUE(ran);
  ASSERT_EQ(NS_OK, mMain->ProcessNextEvent(false, &ran));
  EXPECT_FALSE(ran);
  EXPECT_EQ("before0 ", once->mSeen);
  EXPECT_EQ("before0 after0 before0 after0 ", always->mSeen);
  EXPECT_EQ(1, always->mDispatched);
}

TEST_F(Threads, TheHostsEndLosesWorkOrLeavesThreadsBehind) {
  std::string order;
  const auto thread = NS_TestNewThread();  // which nobody shuts down
  ASSERT_EQ(NS_OK, Run(thread.get(), kNormal, [&] {
              EXPECT_EQ(NS_OK, Run(mMain.get(), kSync, [&] { order += "sync "; }));
              EXPECT_EQ(NS_OK, Run(mMain.get(), kNormal, [&] { order += "late"; }));
            }));
  mHost.Stop();
  EXPECT_EQ("sync late", order);
  EXPECT_EQ(NS_ERROR_UNEXPECTED, Run(mMain.get(), kNormal, [] { FAIL(); }));
  EXPECT_EQ(NS_ERROR_UNEXPECTED, Run(thread.get(), kNormal, [] { FAIL(); }));
  nsCOMPtr<nsIThread> more;
  EXPECT_EQ(NS_ERROR_NOT_INITIALIZED, mManager->NewThread(0, 0, more.getter_AddRefs()));
  bool isMain = false;
  ASSERT_EQ(NS_OK, mManager->GetIsMainThread(&isMain));
  EXPECT_TRUE(isMain);
}

TEST_F(Threads, ManyDispatchersLoseAnEventOrRunItTwice) {
  const auto target = NS_TestNewThread();
  int sum = 0;
  {
    std::vector<nsCOMPtr<nsIThread>> threads;
    for (int i = 0; i < 4; ++i) {
      threads.push_back(NS_TestNewThread());
      ASSERT_EQ(NS_OK, Run(threads.back().get(), kNormal, [&, i] {
                  for (int n = 0; n < 500; ++n)
                    EXPECT_EQ(NS_OK,
                              Run(n % 2 ? target.get() : mMain.get(), i % 2 ? kSync : kNormal, [&] {
                                EXPECT_EQ(NS_OK, Run(target.get(), kSync, [&] { ++sum; }));
                              }));
                }));
    }
    for (const auto& each : threads) ASSERT_EQ(NS_OK, each->Shutdown());
    bool ran = true;
    while (ran) ASSERT_EQ(NS_OK, mMain->ProcessNextEvent(false, &ran));
  }
  ASSERT_EQ(NS_OK, target->Shutdown());
  EXPECT_EQ(2000, sum);
}

}  // namespace

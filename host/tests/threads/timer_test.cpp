// Timers, on virtual time but for the last one.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "nsHost.h"
#include "nsHostTime.h"
#include "nsIObserver.h"
#include "nsITimer.h"
#include "nsITimerCallback.h"
#include "nsTestThreads.h"

namespace {

using Times = std::vector<int64_t>;

nsCOMPtr<nsITimer> NewTimer() { return do_CreateInstance<nsITimer>(NS_TIMER_CONTRACTID); }

class Timers : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(NS_OK, mHost.Start({}));
    NS_UseVirtualTime(true);
    mStart = NS_MonotonicNow();
  }
  void TearDown() override {
    NS_UseVirtualTime(false);
    mHost.Stop();
  }
  /// Milliseconds of virtual time since the test began.
  int64_t Elapsed() const { return (NS_MonotonicNow() - mStart) / 1000; }
  nsHost mHost;
  int64_t mStart = 0;
};

/// Does as it is told, and notes when.
class Callback final : public nsImplements<Callback, nsITimerCallback, nsIObserver> {
 public:
  explicit Callback(std::function<void(nsITimer*)> aDo) : mDo(std::move(aDo)) {}
  nsresult Notify(nsITimer* aTimer) override {
    mDo(aTimer);
    return NS_OK;
  }
  nsresult Observe(nsISupports* aSubject, const char* aTopic, const char16_t* aData) override {
    mTopic = aTopic;
    EXPECT_EQ(nullptr, aData);
    mDo(do_QueryInterface<nsITimer>(aSubject).get());
    return NS_OK;
  }
  std::string mTopic;

 private:
  ~Callback() override = default;
  std::function<void(nsITimer*)> mDo;
};
nsCOMPtr<Callback> NewCallback(std::function<void(nsITimer*)> aDo) {
  return MakeRefCounted<Callback>(std::move(aDo));
}

TEST_F(Timers, AKindOfCallbackIsNotCalled) {
  const auto byObserver = NewTimer(), byFunction = NewTimer(), byCallback = NewTimer();
  std::string seen;
  const auto observer =
      NewCallback([&](nsITimer* aTimer) { seen += aTimer == byObserver ? "o" : "?"; });
  const auto callback =
      NewCallback([&](nsITimer* aTimer) { seen += aTimer == byCallback ? "c" : "?"; });
  ASSERT_EQ(NS_OK, byObserver->Init(observer.get(), 1, nsITimer::TYPE_ONE_SHOT));
  ASSERT_EQ(NS_OK,
            byFunction->InitWithFuncCallback(
                [](nsITimer*, void* aClosure) { *static_cast<std::string*>(aClosure) += "f"; },
                &seen, 1, nsITimer::TYPE_ONE_SHOT));
  ASSERT_EQ(NS_OK, byCallback->InitWithCallback(callback.get(), 1, nsITimer::TYPE_ONE_SHOT));
  void* closure = nullptr;
  EXPECT_EQ(NS_OK, byFunction->GetClosure(&closure));
  EXPECT_EQ(&seen, closure);
  NS_AdvanceTime(0);
  EXPECT_EQ("", seen);
  NS_AdvanceTime(1);
  EXPECT_EQ("ofc", seen);  // in the order of arming
  EXPECT_EQ("timer-callback", observer->mTopic);
}

/// When a timer of a type and a delay of 10 ms fires within 60 ms, if its callback takes 15 ms the
/// first time.
Times FiringTimes(uint32_t aType, const std::function<int64_t()>& aElapsed) {
  Times times;
  const auto timer = NewTimer();
  const auto callback = NewCallback([&](nsITimer*) {
    times.push_back(aElapsed());
    if (times.size() == 1) NS_AdvanceTime(15);
  });
  EXPECT_EQ(NS_OK, timer->InitWithCallback(callback.get(), 10, aType));
  NS_AdvanceTime(60);
  return times;
}

TEST_F(Timers, ARepeatingTypeDriftsOrPilesUpAsAnotherOne) {
  const auto elapsed = [&] { return Elapsed(); };
  EXPECT_EQ((Times{10}), FiringTimes(nsITimer::TYPE_ONE_SHOT, elapsed));
  mStart = NS_MonotonicNow();
  EXPECT_EQ((Times{10, 35, 45, 55}), FiringTimes(nsITimer::TYPE_REPEATING_SLACK, elapsed));
  mStart = NS_MonotonicNow();
  EXPECT_EQ((Times{10, 20, 30, 40, 50, 60}),
            FiringTimes(nsITimer::TYPE_REPEATING_PRECISE, elapsed));
  mStart = NS_MonotonicNow();
  EXPECT_EQ((Times{10, 30, 40, 50, 60}),
            FiringTimes(nsITimer::TYPE_REPEATING_PRECISE_CAN_SKIP, elapsed));
}

TEST_F(Timers, ACancelledTimerFiresOnce) {
  const auto timer = NewTimer();
  int count = 0;
  const auto callback = NewCallback([&](nsITimer* aTimer) {
    if (++count == 3) {
      EXPECT_EQ(NS_OK, aTimer->Cancel());
    }
  });
  ASSERT_EQ(NS_OK, timer->InitWithCallback(callback.get(), 0, nsITimer::TYPE_REPEATING_SLACK));
  NS_AdvanceTime(100);
  EXPECT_EQ(3, count);
  ASSERT_EQ(NS_OK, timer->InitWithCallback(callback.get(), 5, nsITimer::TYPE_ONE_SHOT));
  ASSERT_EQ(NS_OK, timer->Cancel());
  NS_AdvanceTime(100);
  EXPECT_EQ(3, count);
}

TEST_F(Timers, TheSecondInitLeavesTheFirstArmed) {
  const auto timer = NewTimer();
  std::string seen;
  const auto first = NewCallback([&](nsITimer*) { seen += "first "; });
  const auto second = NewCallback([&](nsITimer*) { seen += std::to_string(Elapsed()) + " "; });
  ASSERT_EQ(NS_OK, timer->InitWithCallback(first.get(), 10, nsITimer::TYPE_REPEATING_PRECISE));
  NS_AdvanceTime(5);
  ASSERT_EQ(NS_OK, timer->InitWithCallback(second.get(), 10, nsITimer::TYPE_ONE_SHOT));
  EXPECT_EQ(NS_ERROR_ALREADY_INITIALIZED, timer->SetTarget(nullptr));
  NS_AdvanceTime(50);
  EXPECT_EQ("15 ", seen);
  // A fired one-shot is as one that was never initialised.
  nsCOMPtr<nsITimerCallback> callback = first;
  EXPECT_EQ(NS_OK, timer->GetCallback(callback.getter_AddRefs()));
  EXPECT_FALSE(callback);
  EXPECT_EQ(NS_ERROR_NOT_INITIALIZED, timer->SetDelay(1));
  EXPECT_EQ(NS_OK, timer->SetTarget(nullptr));
}

TEST_F(Timers, ANewDelayWaitsForTheOldOneToPass) {
  const auto timer = NewTimer();
  Times times;
  const auto callback = NewCallback([&](nsITimer* aTimer) {
    times.push_back(Elapsed());
    if (times.size() == 2) {
      EXPECT_EQ(NS_OK, aTimer->SetDelay(1));
    }
  });
  ASSERT_EQ(NS_OK, timer->InitWithCallback(callback.get(), 1000, nsITimer::TYPE_REPEATING_SLACK));
  NS_AdvanceTime(10);
  ASSERT_EQ(NS_OK, timer->SetDelay(20));
  NS_AdvanceTime(42);
  EXPECT_EQ((Times{30, 50, 51, 52}), times);
}

TEST_F(Timers, ATimerNobodyHoldsStillFires) {
  int count = 0;
  const auto callback = NewCallback([&](nsITimer*) { ++count; });
  {
    const auto timer = NewTimer();
    ASSERT_EQ(NS_OK, timer->InitWithCallback(callback.get(), 1, nsITimer::TYPE_ONE_SHOT));
  }
  NS_AdvanceTime(1);
  EXPECT_EQ(0, count);
  // One that is dropped by its own callback lives to the end of it.
  nsCOMPtr<nsITimer> held = NewTimer();
  const auto dropper = NewCallback([&](nsITimer* aTimer) {
    held = nullptr;
    uint32_t delay = 0;
    EXPECT_EQ(NS_OK, aTimer->GetDelay(&delay));
    EXPECT_EQ(1u, delay);
    ++count;
  });
  ASSERT_EQ(NS_OK, held->InitWithCallback(dropper.get(), 1, nsITimer::TYPE_REPEATING_SLACK));
  NS_AdvanceTime(10);
  EXPECT_EQ(1, count);
}

TEST_F(Timers, ATimerFiresOnTheWrongThreadOrOutOfOrder) {
  const auto worker = NS_TestNewThread(), main = NS_TestMainThread();
  nsCOMPtr<nsIThread> seen;
  const auto late = NewTimer(), early = NewTimer();
  nsCOMPtr<nsITimer> started;
  std::string order;
  const auto onMain = NewCallback([&](nsITimer*) { order += "main"; });
  const auto onWorker = NewCallback([&](nsITimer*) {
    seen = NS_TestThread(&nsIThreadManager::GetCurrentThread);
    order += "worker ";
    // What this starts on the main thread counts from now, 10 ms, and comes before the timer of 30
    // ms.
    const auto start = [&] {
      started = NewTimer();
      const auto callback =
          NewCallback([&](nsITimer*) { order += std::to_string(Elapsed()) + " "; });
      EXPECT_EQ(NS_OK, started->InitWithCallback(callback.get(), 5, nsITimer::TYPE_ONE_SHOT));
    };
    EXPECT_EQ(NS_OK, NS_TestDispatch(main.get(), nsIEventTarget::DISPATCH_NORMAL, start));
  });
  ASSERT_EQ(NS_OK, late->InitWithCallback(onMain.get(), 30, nsITimer::TYPE_ONE_SHOT));
  ASSERT_EQ(NS_OK, early->SetTarget(worker.get()));
  ASSERT_EQ(NS_OK, early->InitWithCallback(onWorker.get(), 10, nsITimer::TYPE_ONE_SHOT));
  NS_AdvanceTime(30);
  EXPECT_EQ("worker 15 main", order);
  EXPECT_EQ(worker, seen);
}

TEST_F(Timers, ATimerKeepsItsCallbackWhenItsThreadIsGone) {
  const auto worker = NS_TestNewThread();
  const auto timer = NewTimer();
  auto held = std::make_shared<int>();
  const std::weak_ptr<int> kept = held;
  ASSERT_EQ(NS_OK, timer->SetTarget(worker.get()));
  ASSERT_EQ(NS_OK, timer->InitWithCallback(
                       NewCallback([held = std::move(held)](nsITimer*) { ADD_FAILURE(); }).get(),
                       10, nsITimer::TYPE_REPEATING_PRECISE));
  ASSERT_EQ(NS_OK, worker->Shutdown());
  NS_AdvanceTime(30);
  EXPECT_TRUE(kept.expired());
}

TEST_F(Timers, WrongArgumentsAreTaken) {
  const auto timer = NewTimer();
  EXPECT_EQ(NS_ERROR_NULL_POINTER, timer->Init(nullptr, 1, 0));
  EXPECT_EQ(NS_ERROR_NULL_POINTER, timer->InitWithCallback(nullptr, 1, 0));
  EXPECT_EQ(NS_ERROR_NULL_POINTER, timer->InitWithFuncCallback(nullptr, nullptr, 1, 0));
  const auto callback = NewCallback([](nsITimer*) { ADD_FAILURE(); });
  EXPECT_EQ(NS_ERROR_INVALID_ARG, timer->InitWithCallback(callback.get(), 1, 4));
  EXPECT_EQ(NS_ERROR_INVALID_ARG, timer->SetType(4));
  NS_AdvanceTime(10);
}

// The system's clock: timers of two threads that are set, changed and cancelled from others while
// they fire.
TEST_F(Timers, TimersRaceWithTheirOwners) {
  NS_UseVirtualTime(false);
  const auto worker = NS_TestNewThread(), main = NS_TestMainThread();
  std::atomic<int> fired{0};
  const auto callback = NewCallback([&](nsITimer* aTimer) {
    if (++fired % 3 == 0) (void)aTimer->Cancel();
  });
  int last = 0;
  for (int round = 0; last < 50; ++round) {
    nsCOMPtr<nsITimer> timer = NewTimer();
    ASSERT_EQ(NS_OK, timer->SetTarget(round % 2 ? worker.get() : main.get()));
    ASSERT_EQ(NS_OK, timer->InitWithCallback(callback.get(), 0, static_cast<uint32_t>(round) % 4));
    bool ran = false;
    if (round % 2 == 0) {
      ASSERT_EQ(NS_OK, main->ProcessNextEvent(true, &ran));
    }
    (void)timer->SetDelay(0);
    ASSERT_EQ(NS_OK, timer->InitWithCallback(callback.get(), 0, static_cast<uint32_t>(round) % 4));
    timer = nullptr;
    last = fired;
  }
}

}  // namespace

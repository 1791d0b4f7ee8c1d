// Debouncing, on time by hand.
#include "nsDebounce.h"

#include "nsHostTime.h"
#include "nsTestHost.h"

namespace {

class Debounce : public nsHostTest {
 protected:
  void SetUp() override {
    Start();
    NS_UseVirtualTime(true);
  }
  void TearDown() override { NS_UseVirtualTime(false); }

  void EventAndWait(uint32_t aMilliseconds) {
    ASSERT_EQ(NS_OK, mDebounce.OnEvent());
    NS_AdvanceTime(aMilliseconds);
  }

  int mCalls = 0;
  nsDebounce mDebounce{4, 10, [this] { ++mCalls; }};
};

TEST_F(Debounce, EachEventIsACall) {
  EventAndWait(0);
  EventAndWait(3);
  EventAndWait(3);
  EXPECT_EQ(0, mCalls);
  NS_AdvanceTime(1);
  EXPECT_EQ(1, mCalls);
  NS_AdvanceTime(100);
  EXPECT_EQ(1, mCalls) << "a call without an event";
  EventAndWait(4);
  EXPECT_EQ(2, mCalls) << "there is one burst only";
}

TEST_F(Debounce, EventsWithoutEndAreNeverToldOf) {
  for (int i = 0; i < 100; ++i) EventAndWait(1);
  EXPECT_GE(mCalls, 9);
  EXPECT_LE(mCalls, 10);
}

TEST_F(Debounce, EventDuringTheCallIsLost) {
  nsDebounce* self = nullptr;
  int calls = 0;
  nsDebounce burst(4, 10, [&] {
    if (++calls == 1) {
      EXPECT_EQ(NS_OK, self->OnEvent());
    }
  });
  self = &burst;
  ASSERT_EQ(NS_OK, burst.OnEvent());
  NS_AdvanceTime(4);
  EXPECT_EQ(1, calls);
  NS_AdvanceTime(4);
  EXPECT_EQ(2, calls);
}

TEST_F(Debounce, CallComesAfterTheEndOfTheBurstObject) {
  {
    nsDebounce burst(4, 10, [] { ADD_FAILURE(); });
    ASSERT_EQ(NS_OK, burst.OnEvent());
  }
  NS_AdvanceTime(100);
}

}  // namespace

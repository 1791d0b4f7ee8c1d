// What every backend of the port of windows and their messages keeps to.
#include <algorithm>
#include <map>

#include "nsSimulatedMachine.h"
#include "nsWindowEventsContract.h"

namespace {

class SimulatedMachine final : public nsWindowEventsMachine {
 public:
  nsPlatformWindowEvents& Port() override { return *mMachine.mWindowEvents; }
  void Insert(const std::string& aName) override {
    mLetters[aName] = mNext;
    mMachine.mVolumes->Insert(mNext++);
  }
  void Remove(const std::string& aName) override { mMachine.mVolumes->Remove(mLetters[aName]); }
  bool ChangeDisplays() override {
    nsSimulatedDisplay display;
    display.mName = "HDMI-1";
    mMachine.mDisplays->Put(display);
    return true;
  }

 private:
  nsSimulatedMachine mMachine;
  std::map<std::string, char> mLetters;
  char mNext = 'E';
};

const std::string kArrival = "537 32768 2 bits 1", kRemoval = "537 32772 2 bits 1";

TEST_P(WindowEventsContract, NoWindowIsTakenForOne) {
  EXPECT_FALSE(Port().IsWindow(nullptr));
  EXPECT_TRUE(Port().IsWindow(&mFirst));
  nsPlatformWindowEvents::FormerProcedure former = 4711;
  EXPECT_EQ(Port().ReadProcedure(nullptr, &former), NS_ERROR_INVALID_ARG);
  EXPECT_EQ(former, 4711u);
  EXPECT_EQ(Port().ReplaceProcedure(nullptr, Hear), NS_ERROR_INVALID_ARG);
  EXPECT_EQ(Port().ReadProcedure(&mFirst, &former), NS_OK);
  EXPECT_EQ(Port().ReplaceProcedure(&mFirst, Hear), NS_OK);
  (void)Port().CallProcedure(former, {&mFirst, 1, 0, nullptr, 0});
  EXPECT_TRUE(sHeard.empty()) << "the former procedure is another one";
}

TEST_P(WindowEventsContract, FilterOfAnotherKindIsTaken) {
  (void)Port().ReplaceProcedure(&mFirst, Hear);
  nsDeviceInterfaceFilter filter;
  EXPECT_NE(Port().ListenForDevices(&mFirst, filter, nsPlatformWindowEvents::kAllInterfaceClasses),
            0u);
  filter.mSize = sizeof filter;
  filter.mDeviceType = nsDeviceBroadcast::kDeviceInterface;
  EXPECT_NE(Port().ListenForDevices(&mFirst, filter, 0), 0u);
  EXPECT_EQ(Port().ListenForDevices(&mFirst, filter, nsPlatformWindowEvents::kAllInterfaceClasses),
            0u);
}

TEST_P(WindowEventsContract, VolumeIsLostOrToldToOneWindowOnly) {
  (void)Port().ReplaceProcedure(&mFirst, Ignore);
  (void)Port().ReplaceProcedure(&mFirst, Hear);
  (void)Port().ReplaceProcedure(&mSecond, Hear);
  nsSourceConsumer consumer(Port().NewEvents());
  for (const char* name : {"a", "b", "c"}) mMachine->Insert(name);
  EXPECT_TRUE(consumer.Until([&] { return Count(&mSecond, kArrival) == 3; }));
  mMachine->Remove("b");
  mMachine->Remove("a");
  EXPECT_TRUE(consumer.Until([&] { return Count(&mSecond, kRemoval) == 2; }));
  EXPECT_EQ(Count(&mFirst, kArrival), 3u);
  EXPECT_EQ(Count(&mFirst, kRemoval), 2u);
}

TEST_P(WindowEventsContract, ChangeOfDisplaysIsNotHeardOf) {
  (void)Port().ReplaceProcedure(&mFirst, Hear);
  nsSourceConsumer consumer(Port().NewEvents());
  if (!mMachine->ChangeDisplays()) GTEST_SKIP() << "no display server here";
  EXPECT_TRUE(consumer.Until([&] { return Count(&mFirst, "126 0") >= 1; }));
}

INSTANTIATE_TEST_SUITE_P(
    Simulated, WindowEventsContract,
    testing::Values(NS_ContractBackend<nsWindowEventsMachine, SimulatedMachine>("machine")));

}  // namespace

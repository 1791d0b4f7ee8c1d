// The clock on a simulated machine.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "nsFaultSweep.h"
#include "nsString.h"
#include "nsSystemClock.h"
#include "nsTimeZoneTable.h"
#include "nsXPCOM.h"

namespace {

constexpr int64_t kFiveSecondsPast1504 = 1388675045;  // on 2 January 2014

nsSimulatedZone Berlin() {
  return {.mOlsonName = "Europe/Berlin",
          .mStandardName = u"W. Europe Standard Time",
          .mRules = {.mBias = -60,
                     .mDaylightBias = -60,
                     .mStandardDate = {.mMonth = 10, .mDay = 5, .mHour = 3},
                     .mDaylightDate = {.mMonth = 3, .mDay = 5, .mHour = 2}},
          .mLocalizedStandard = u"Mitteleurop\u00e4ische Zeit",
          .mLocalizedDaylight = u"Mitteleurop\u00e4ische Sommerzeit"};
}

nsCOMPtr<nsISystemClock> Clock(const nsSimulatedMachine& aMachine) {
  return MakeRefCounted<nsSystemClock>(aMachine.Platform());
}

template <nsresult (nsISystemClock::*Get)(nsACString&)>
std::string Read(nsISystemClock& aClock) {
  nsCString text("untouched");
  EXPECT_EQ((aClock.*Get)(text), NS_OK);
  return std::string(text.view());
}
constexpr auto Timezone = Read<&nsISystemClock::GetTimezone>;
constexpr auto LocalTime = Read<&nsISystemClock::GetLocalTime>;
constexpr auto UtcTime = Read<&nsISystemClock::GetUtcTime>;

TEST(Clock, TheTextHasItsPartsInAnotherOrder) {
  nsSimulatedMachine machine;
  machine.mClock->AddZone(Berlin());
  machine.mClock->SetZone("Europe/Berlin");
  machine.mClock->SetUtc(kFiveSecondsPast1504);
  const auto clock = Clock(machine);
  EXPECT_EQ(UtcTime(*clock), "010215042014.05");
  EXPECT_EQ(LocalTime(*clock), "010216042014.05");
}

TEST(Clock, ASetTimeReadsBackAsAnother) {
  nsSimulatedMachine machine;
  machine.mClock->AddZone(Berlin());
  machine.mClock->SetZone("Europe/Berlin");
  const auto clock = Clock(machine);
  for (const char* text : {"010203042026.05", "071523592026.59", "022900002028.00"}) {
    EXPECT_EQ(clock->SetLocalTime(nsCString(text)), NS_OK);
    EXPECT_EQ(LocalTime(*clock), text);
    EXPECT_EQ(clock->SetUtcTime(nsCString(text)), NS_OK);
    EXPECT_EQ(UtcTime(*clock), text);
  }
  EXPECT_EQ(clock->SetUtcTime(nsCString("010203042026")), NS_OK);
  EXPECT_EQ(UtcTime(*clock), "010203042026.00");
}

TEST(Clock, BadTimesMoveTheClockOrLeaveThePrivilegeOn) {
  nsSimulatedMachine machine;
  const auto clock = Clock(machine);
  const std::string before = UtcTime(*clock);
  for (const std::string text :
       {"", "x", "01020304", ".05", "010203042026.", "010203042026.x", "130203042026.00",
        "023003042026.00", "010224002026.00", "-10203042026.00"}) {
    EXPECT_EQ(clock->SetUtcTime(nsCString(text)), NS_ERROR_FAILURE) << text;
    EXPECT_EQ(clock->SetLocalTime(nsCString(text)), NS_ERROR_FAILURE) << text;
  }
  EXPECT_EQ(UtcTime(*clock), before);
  // A year has no limit in the text; what comes of it is the machine's to refuse or to take.
  (void)clock->SetUtcTime(nsCString("01020304" + std::string(5000, '9') + ".00"));
  (void)clock->SetUtcTime(
      nsCString(std::string("0102\0"
                            "03042026.05",
                            15)));
  EXPECT_FALSE(machine.mClock->IsEnabled(kPrivilegeSystemTime));
}

TEST(Clock, WithoutTheRightItIsSetAllTheSame) {
  nsSimulatedMachine machine;
  machine.mClock->AddZone(Berlin());
  machine.mClock->SetGranted(kPrivilegeSystemTime, false);
  machine.mClock->SetGranted(kPrivilegeTimeZone, false);
  const auto clock = Clock(machine);
  EXPECT_EQ(clock->SetUtcTime(nsCString("010203042026.05")), NS_ERROR_FAILURE);
  EXPECT_EQ(clock->SetLocalTime(nsCString("010203042026.05")), NS_ERROR_FAILURE);
  EXPECT_EQ(clock->SetTimezone(nsCString("Europe/Berlin")), NS_ERROR_FAILURE);
  EXPECT_TRUE(machine.mCalls->TakeJournal().empty());
}

TEST(Clock, AZoneIsNotFoundByOneOfItsNames) {
  nsSimulatedMachine machine;
  machine.mClock->AddZone(Berlin());
  const auto clock = Clock(machine);
  for (const auto tells : {nsSimulatedClock::kOlsonName, nsSimulatedClock::kStandardName,
                           nsSimulatedClock::kLocalizedName}) {
    machine.mClock->SetZone("Europe/Berlin", tells);
    EXPECT_EQ(Timezone(*clock), "Europe/Berlin") << tells;
  }
  // A machine whose localized name is the standard name needs no definition for the search.
  nsSimulatedMachine bare;
  bare.mClock->AddZone({.mOlsonName = "Asia/Tokyo",
                        .mStandardName = u"Tokyo Standard Time",
                        .mLocalizedStandard = u"Japan Standard Time"});
  bare.mClock->SetZone("Asia/Tokyo", nsSimulatedClock::kLocalizedName);
  EXPECT_EQ(Timezone(*Clock(bare)), "Asia/Tokyo");
}

TEST(Clock, AnUnknownZoneIsAFailureOrANewText) {
  nsSimulatedMachine machine;
  const auto clock = Clock(machine);
  machine.mClock->SetZone("Europe/Kyiv");
  EXPECT_EQ(Timezone(*clock), "Europe/Kyiv");  // not in the table; the machine's own name
  machine.mClock->SetZone("Europe/Kyiv", nsSimulatedClock::kLocalizedName);
  EXPECT_EQ(Timezone(*clock), "untouched");
  machine.mClock->SetZone("Europe/Kyiv", nsSimulatedClock::kNothing);
  nsCString text;
  EXPECT_EQ(clock->GetTimezone(text), NS_ERROR_FAILURE);
}

TEST(Clock, ALaterRowStandsInForTheFirst) {
  nsSimulatedMachine machine;
  machine.mClock->AddZone(
      {.mOlsonName = "Asia/Jerusalem", .mStandardName = u"Jerusalem Standard Time"});
  const auto clock = Clock(machine);
  EXPECT_EQ(clock->SetTimezone(nsCString("Asia/Jerusalem")), NS_ERROR_FAILURE);
  machine.mClock->AddZone(
      {.mOlsonName = "Asia/Jerusalem", .mStandardName = u"Israel Standard Time"});
  EXPECT_EQ(clock->SetTimezone(nsCString("Asia/Jerusalem")), NS_OK);
  machine.mCalls->TakeJournal();
  for (const char* text : {"", "asia/jerusalem", "Asia/Jerusalem ", "Europe/Kyiv"})
    EXPECT_EQ(clock->SetTimezone(nsCString(text)), NS_ERROR_FAILURE) << text;
  EXPECT_TRUE(machine.mCalls->TakeJournal().empty());
}

TEST(Clock, ADuplicateZoneOrTheOrderIsLostFromTheSupportedOnes) {
  nsSimulatedMachine machine;
  for (const char16_t* name : {u"Tokyo Standard Time", u"Japan Standard Time",
                               u"Azores Standard Time", u"GMT Standard Time"})
    machine.mClock->AddZone({.mOlsonName = {}, .mStandardName = name});
  const auto clock = Clock(machine);
  for (int call = 0; call < 2; ++call) {
    uint32_t count = 0;
    char** names = nullptr;
    ASSERT_EQ(clock->GetSupportedTimezones(&count, &names), NS_OK);
    std::string all;
    for (uint32_t i = 0; i < count; ++i) {
      all += std::string(names[i]) + " ";
      NS_Free(names[i]);
    }
    NS_Free(names);
    EXPECT_EQ(all, "Asia/Tokyo Asia/Tokyo Atlantic/Azores Europe/London ");
    // Made once a process.
    machine.mClock->AddZone({.mOlsonName = {}, .mStandardName = u"Romance Standard Time"});
  }
}

TEST(Clock, AFailingMachineLeavesAPrivilegeOnOrHidesTheFailure) {
  NS_SweepFaults([](nsSimulatedMachine& aMachine, bool aFaulty) {
    aMachine.mClock->AddZone(Berlin());
    const auto clock = Clock(aMachine);
    const bool local = NS_SUCCEEDED(clock->SetLocalTime(nsCString("010203042026.05")));
    const bool utc = NS_SUCCEEDED(clock->SetUtcTime(nsCString("010203042026.05")));
    const bool zone = NS_SUCCEEDED(clock->SetTimezone(nsCString("Europe/Berlin")));
    nsCString text;
    const bool read = NS_SUCCEEDED(clock->GetLocalTime(text)) &&
                      NS_SUCCEEDED(clock->GetUtcTime(text)) &&
                      NS_SUCCEEDED(clock->GetTimezone(text));
    if (!aFaulty) {
      EXPECT_TRUE(local && utc && zone && read);
      return;
    }
    const std::string failed = aMachine.mCalls->FailedCalls().at(0);
    const auto is = [&](std::initializer_list<std::string_view> aCalls) {
      return std::ranges::find(aCalls, failed) != aCalls.end();
    };
    EXPECT_FALSE(utc && is({"Clock.WriteUtcTime"}));
    EXPECT_FALSE(zone && is({"Clock.ReadRules", "Clock.FindZone", "Clock.WriteCurrentZone"}));
    EXPECT_FALSE(read && is({"Clock.ReadLocalTime", "Clock.ReadUtcTime"}));
    EXPECT_EQ(clock->SetTimezone(nsCString("Europe/Berlin")), NS_OK);
    EXPECT_EQ(clock->SetUtcTime(nsCString("010203042026.05")), NS_OK);
    EXPECT_FALSE(aMachine.mClock->IsEnabled(kPrivilegeSystemTime));
    EXPECT_FALSE(aMachine.mClock->IsEnabled(kPrivilegeTimeZone));
  });
}

TEST(ZoneTable, ARowIsMissingOrStandsElsewhere) {
  // Counted by hand from the list that the table was made of.
  EXPECT_EQ(kTimeZoneTable[37].mOlsonName, "Africa/Casablanca");
  EXPECT_EQ(kTimeZoneTable[88].mStandardName, u"Yakutsk Standard Time");
  EXPECT_EQ(kTimeZoneTable[89].mStandardName, u"Acre Standard Time");
  EXPECT_EQ(kTimeZoneTable[252].mOlsonName, "America/Yakutat");
  std::set<std::u16string_view> standard;
  std::set<std::string_view> olson;
  for (const nsTimeZoneRow& row : kTimeZoneTable) {
    standard.insert(row.mStandardName);
    olson.insert(row.mOlsonName);
  }
  EXPECT_EQ(standard.size(), 253u);
  EXPECT_EQ(olson.size(), 193u);
}

}  // namespace

#include "nsZoneFile.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <limits>
#include <set>
#include <tuple>

using namespace std::chrono;

namespace {

constexpr size_t kHeaderLength = 44;
constexpr int64_t kSecondsPerDay = 86400;
// A file with more is none: the largest of the zone data has some hundreds.
constexpr uint32_t kMaximumChanges = 20000;
// No clock on a wall has ever been further from UTC.
constexpr int32_t kMaximumOffset = 26 * 3600;

uint32_t ReadBig(std::string_view aBytes) {
  uint32_t value = 0;
  for (const char byte : aBytes.substr(0, 4)) value = value << 8 | static_cast<uint8_t>(byte);
  return value;
}

int64_t ReadBig64(std::string_view aBytes) {
  return static_cast<int64_t>(uint64_t{ReadBig(aBytes)} << 32 | ReadBig(aBytes.substr(4)));
}

int64_t SecondsOf(sys_days aDays) { return aDays.time_since_epoch().count() * kSecondsPerDay; }

year YearOf(int64_t aSeconds) {
  return year_month_day(floor<days>(sys_seconds(seconds(aSeconds)))).year();
}

// Eats a rule's text from the left. Each reader leaves the text as it is when it fails.
class Eater {
 public:
  explicit Eater(std::string_view aText) : mText(aText) {}

  bool AtEnd() const { return mText.empty(); }
  bool Eat(char aChar) {
    if (mText.empty() || mText[0] != aChar) return false;
    mText.remove_prefix(1);
    return true;
  }
  bool Number(int aMinimum, int aMaximum, int* aOut) {
    size_t length = 0;
    int value = 0;
    while (length < mText.size() && length < 4 && mText[length] >= '0' && mText[length] <= '9')
      value = value * 10 + (mText[length++] - '0');
    if (length == 0 || value < aMinimum || value > aMaximum) return false;
    mText.remove_prefix(length);
    *aOut = value;
    return true;
  }
  // "CET", or "<+03>" for names that are not made of letters.
  bool Name(std::string* aOut) {
    const bool quoted = Eat('<');
    const size_t length =
        std::min(mText.size(),
                 static_cast<size_t>(std::ranges::find_if(mText,
                                                          [&](char aChar) {
                                                            const bool letter =
                                                                (aChar >= 'a' && aChar <= 'z') ||
                                                                (aChar >= 'A' && aChar <= 'Z');
                                                            const bool other =
                                                                aChar == '+' || aChar == '-' ||
                                                                (aChar >= '0' && aChar <= '9');
                                                            return !(letter || (quoted && other));
                                                          }) -
                                     mText.begin()));
    if (length < 3) return false;
    *aOut = mText.substr(0, length);
    mText.remove_prefix(length);
    return !quoted || Eat('>');
  }
  // [+-]hh[:mm[:ss]], as seconds.
  bool Time(int aMaximumHours, int32_t* aOut) {
    const bool negative = Eat('-');
    if (!negative) Eat('+');
    int hour = 0, minute = 0, second = 0;
    if (!Number(0, aMaximumHours, &hour)) return false;
    if (Eat(':')) {
      if (!Number(0, 59, &minute)) return false;
      if (Eat(':') && !Number(0, 59, &second)) return false;
    }
    const int32_t time = hour * 3600 + minute * 60 + second;
    *aOut = negative ? -time : time;
    return true;
  }
  bool Date(nsZoneRule::Date* aOut) {
    if (!Eat(',')) return false;
    if (Eat('M')) {
      aOut->mKind = nsZoneRule::Date::kMonthWeekDay;
      if (!Number(1, 12, &aOut->mMonth) || !Eat('.') || !Number(1, 5, &aOut->mWeek) || !Eat('.') ||
          !Number(0, 6, &aOut->mDay))
        return false;
    } else if (Eat('J')) {
      aOut->mKind = nsZoneRule::Date::kDayWithoutLeap;
      if (!Number(1, 365, &aOut->mDay)) return false;
    } else {
      aOut->mKind = nsZoneRule::Date::kDayOfYear;
      if (!Number(0, 365, &aOut->mDay)) return false;
    }
    return !Eat('/') || Time(167, &aOut->mTime);
  }

 private:
  std::string_view mText;
};

// The wall clock's reading at the beginning of a rule's date, as if it were UTC.
int64_t WallTime(const nsZoneRule::Date& aDate, year aYear) {
  sys_days date;
  switch (aDate.mKind) {
    case nsZoneRule::Date::kMonthWeekDay: {
      const auto inMonth = aYear / month(static_cast<unsigned>(aDate.mMonth));
      const weekday on(static_cast<unsigned>(aDate.mDay));
      date = aDate.mWeek == 5 ? sys_days(inMonth / on[last])
                              : sys_days(inMonth / on[static_cast<unsigned>(aDate.mWeek)]);
      break;
    }
    case nsZoneRule::Date::kDayWithoutLeap:
      date = sys_days(aYear / January / 1) + days(aDate.mDay - 1);
      if (aYear.is_leap() && aDate.mDay >= 60) date += days(1);
      break;
    case nsZoneRule::Date::kDayOfYear:
      date = sys_days(aYear / January / 1) + days(aDate.mDay);
      break;
  }
  return SecondsOf(date) + aDate.mTime;
}

// Two wall clock readings, a year apart, as one yearly date; of the two when there is a choice, the
// last such day of the month, which is how those rules are made.
std::optional<nsPlatformTime> YearlyDate(int64_t aFirst, int64_t aSecond) {
  const auto split = [](int64_t aWall) {
    const sys_days date = floor<days>(sys_seconds(seconds(aWall)));
    const year_month_day parts(date);
    const auto dayOfMonth = unsigned(parts.day());
    std::set<unsigned> weeks{(dayOfMonth - 1) / 7 + 1};
    const year_month_day_last end(parts.year(), month_day_last(parts.month()));
    if (dayOfMonth + 7 > unsigned(end.day())) weeks.insert(5);
    return std::tuple(unsigned(parts.month()), weekday(date).c_encoding(), aWall - SecondsOf(date),
                      weeks);
  };
  const auto [month1, day1, time1, weeks1] = split(aFirst);
  const auto [month2, day2, time2, weeks2] = split(aSecond);
  if (month1 != month2 || day1 != day2 || time1 != time2) return std::nullopt;
  std::vector<unsigned> weeks;
  std::ranges::set_intersection(weeks1, weeks2, std::back_inserter(weeks));
  if (weeks.empty()) return std::nullopt;
  return nsPlatformTime{.mMonth = static_cast<uint16_t>(month1),
                        .mDayOfWeek = static_cast<uint16_t>(day1),
                        .mDay = static_cast<uint16_t>(weeks.back()),
                        .mHour = static_cast<uint16_t>(time1 / 3600),
                        .mMinute = static_cast<uint16_t>(time1 / 60 % 60),
                        .mSecond = static_cast<uint16_t>(time1 % 60)};
}

nsPlatformTime DateOfOneYear(int64_t aWall) {
  const sys_days date = floor<days>(sys_seconds(seconds(aWall)));
  const year_month_day parts(date);
  const int64_t time = aWall - SecondsOf(date);
  return {.mYear = static_cast<uint16_t>(int(parts.year())),
          .mMonth = static_cast<uint16_t>(unsigned(parts.month())),
          .mDayOfWeek = static_cast<uint16_t>(weekday(date).c_encoding()),
          .mDay = static_cast<uint16_t>(unsigned(parts.day())),
          .mHour = static_cast<uint16_t>(time / 3600),
          .mMinute = static_cast<uint16_t>(time / 60 % 60),
          .mSecond = static_cast<uint16_t>(time % 60)};
}

// A year of daylight time: it begins once and ends once.
struct DaylightYear {
  nsZoneTime mStandard, mDaylight;
  int64_t mDaylightFrom, mStandardFrom;  // on the wall clock just before

  static std::optional<DaylightYear> Of(const nsZoneFile& aZone, year aYear) {
    // Years of the wall clock; no clock is further from UTC than that.
    const int64_t from = SecondsOf(sys_days(aYear / January / 1));
    const int64_t to = SecondsOf(sys_days((aYear + years(1)) / January / 1));
    nsZoneTime before = aZone.At(from - kMaximumOffset - 1);
    std::vector<std::pair<nsZoneChange, int64_t>> changes;
    for (const nsZoneChange& change : aZone.Changes(from - kMaximumOffset, to + kMaximumOffset)) {
      const int64_t wall = change.mAt + before.mOffset;
      if (wall >= from && wall < to) changes.emplace_back(change, wall);
      before = change.mTo;
    }
    if (changes.size() != 2 || changes[0].first.mTo.mDaylight == changes[1].first.mTo.mDaylight)
      return std::nullopt;
    const auto& [summer, summerWall] = changes[changes[0].first.mTo.mDaylight ? 0 : 1];
    const auto& [winter, winterWall] = changes[changes[0].first.mTo.mDaylight ? 1 : 0];
    // What was in force before the first change must be what the second goes back to.
    const nsZoneTime atStart = aZone.At(changes[0].first.mAt - 1);
    if (atStart.mOffset != changes[1].first.mTo.mOffset) return std::nullopt;
    return DaylightYear{winter.mTo, summer.mTo, summerWall, winterWall};
  }
};

std::u16string Widen(const std::string& aName) { return {aName.begin(), aName.end()}; }

}  // namespace

std::optional<nsZoneRule> nsZoneRule::Parse(std::string_view aText) {
  nsZoneRule rule;
  Eater eater(aText);
  int32_t west = 0;
  if (!eater.Name(&rule.mStandard.mName) || !eater.Time(24, &west)) return std::nullopt;
  rule.mStandard.mOffset = -west;
  if (eater.AtEnd()) return rule;

  nsZoneTime summer{.mOffset = rule.mStandard.mOffset + 3600, .mDaylight = true, .mName = {}};
  if (!eater.Name(&summer.mName)) return std::nullopt;
  if (eater.Time(24, &west)) summer.mOffset = -west;
  if (!eater.Date(&rule.mDaylightFrom) || !eater.Date(&rule.mStandardFrom) || !eater.AtEnd())
    return std::nullopt;
  rule.mDaylight = std::move(summer);
  return rule;
}

void nsZoneRule::AppendChanges(int aYear, std::vector<nsZoneChange>* aChanges) const {
  if (!mDaylight) return;
  const year inYear(aYear);
  aChanges->push_back({WallTime(mDaylightFrom, inYear) - mStandard.mOffset, *mDaylight});
  aChanges->push_back({WallTime(mStandardFrom, inYear) - mDaylight->mOffset, mStandard});
}

std::optional<nsZoneFile> nsZoneFile::Parse(std::string_view aBytes) {
  // Two blocks, the first with 32-bit times for old readers, then the rule.
  nsZoneFile zone;
  const auto readCounts = [&](uint32_t(&aCounts)[6]) {
    if (aBytes.size() < kHeaderLength || aBytes.substr(0, 4) != "TZif") return false;
    for (size_t i = 0; i < 6; ++i) aCounts[i] = ReadBig(aBytes.substr(20 + i * 4));
    return std::ranges::all_of(aCounts, [](uint32_t aCount) { return aCount <= kMaximumChanges; });
  };
  // Order of the counts: UT indicators, standard indicators, leap seconds, changes, times, names.
  const auto blockLength = [](const uint32_t(&aCounts)[6], size_t aTimeSize) {
    return size_t{aCounts[3]} * (aTimeSize + 1) + size_t{aCounts[4]} * 6 + aCounts[5] +
           size_t{aCounts[2]} * (aTimeSize + 4) + aCounts[1] + aCounts[0];
  };

  uint32_t counts[6];
  if (!readCounts(counts)) return std::nullopt;
  const bool old = aBytes[4] == 0;
  if (!old) {
    const size_t skip = kHeaderLength + blockLength(counts, 4);
    if (aBytes.size() < skip) return std::nullopt;
    aBytes.remove_prefix(skip);
    if (!readCounts(counts)) return std::nullopt;
  }
  const size_t length = blockLength(counts, old ? 4 : 8);
  aBytes.remove_prefix(kHeaderLength);
  if (aBytes.size() < length) return std::nullopt;
  const std::string_view block = aBytes.substr(0, length);
  if (!(old ? zone.ReadBlock<4>(block, counts) : zone.ReadBlock<8>(block, counts)))
    return std::nullopt;
  if (old) return zone;

  aBytes.remove_prefix(length);
  const size_t end = aBytes.find('\n', 1);
  if (aBytes.empty() || aBytes[0] != '\n' || end == aBytes.npos) return std::nullopt;
  const std::string_view rule = aBytes.substr(1, end - 1);
  if (!rule.empty() && !(zone.mRule = nsZoneRule::Parse(rule))) return std::nullopt;
  return zone;
}

template <int Bytes>
bool nsZoneFile::ReadBlock(std::string_view aBlock, const uint32_t (&aCounts)[6]) {
  const size_t changes = aCounts[3], times = aCounts[4], nameBytes = aCounts[5];
  if (times == 0 || times > 256) return false;
  const std::string_view which = aBlock.substr(changes * Bytes);
  const std::string_view records = which.substr(changes);
  const std::string_view names = records.substr(times * 6, nameBytes);

  for (size_t i = 0; i < times; ++i) {
    const std::string_view record = records.substr(i * 6, 6);
    const auto offset = static_cast<int32_t>(ReadBig(record));
    const size_t name = static_cast<uint8_t>(record[5]);
    const size_t nameEnd = names.find('\0', name);
    if (offset < -kMaximumOffset || offset > kMaximumOffset || nameEnd == names.npos) return false;
    mTimes.push_back({.mOffset = offset,
                      .mDaylight = record[4] != 0,
                      .mName = std::string(names.substr(name, nameEnd - name))});
  }
  for (size_t i = 0; i < changes; ++i) {
    const std::string_view at = aBlock.substr(i * Bytes, Bytes);
    const int64_t time = Bytes == 8 ? ReadBig64(at) : static_cast<int32_t>(ReadBig(at));
    const auto to = static_cast<uint8_t>(which[i]);
    if (to >= times || (i > 0 && time <= mChanges.back().first)) return false;
    mChanges.emplace_back(time, to);
  }
  return true;
}

nsZoneTime nsZoneFile::At(int64_t aUtc) const {
  const auto next =
      std::ranges::upper_bound(mChanges, aUtc, {}, &std::pair<int64_t, uint8_t>::first);
  if (next == mChanges.end() && mRule) {
    std::vector<nsZoneChange> changes;
    const int inYear = int(YearOf(aUtc));
    for (int y = inYear - 1; y <= inYear + 1; ++y) mRule->AppendChanges(y, &changes);
    std::ranges::sort(changes, {}, &nsZoneChange::mAt);
    const auto after = std::ranges::upper_bound(changes, aUtc, {}, &nsZoneChange::mAt);
    return after == changes.begin() ? mRule->mStandard : std::prev(after)->mTo;
  }
  return next == mChanges.begin() ? mTimes.front() : mTimes[std::prev(next)->second];
}

std::vector<nsZoneChange> nsZoneFile::Changes(int64_t aFrom, int64_t aTo) const {
  std::vector<nsZoneChange> changes;
  for (const auto& [at, to] : mChanges) changes.push_back({at, mTimes[to]});
  if (mRule) {
    const int64_t told =
        mChanges.empty() ? std::numeric_limits<int64_t>::min() : mChanges.back().first;
    std::vector<nsZoneChange> ruled;
    for (int y = int(YearOf(aFrom)) - 1; y <= int(YearOf(aTo)) + 1; ++y)
      mRule->AppendChanges(y, &ruled);
    std::ranges::sort(ruled, {}, &nsZoneChange::mAt);
    std::ranges::copy_if(ruled, std::back_inserter(changes),
                         [&](const nsZoneChange& aChange) { return aChange.mAt > told; });
  }
  nsZoneTime before = At(aFrom - 1);
  std::erase_if(changes, [&](const nsZoneChange& aChange) {
    if (aChange.mAt < aFrom || aChange.mAt >= aTo || aChange.mTo == before) return true;
    before = aChange.mTo;
    return false;
  });
  return changes;
}

nsPlatformZoneInformation nsZoneFile::Describe(int64_t aNow) const {
  const nsZoneTime now = At(aNow);
  const year thisYear = YearOf(aNow + now.mOffset);
  const auto first = DaylightYear::Of(*this, thisYear);
  if (!first)
    return {.mRules = {.mBias = -now.mOffset / 60},
            .mStandardName = Widen(now.mName),
            .mDaylightName = {}};

  nsPlatformZoneInformation result{
      .mRules = {.mBias = -first->mStandard.mOffset / 60,
                 .mDaylightBias = (first->mStandard.mOffset - first->mDaylight.mOffset) / 60},
      .mStandardName = Widen(first->mStandard.mName),
      .mDaylightName = Widen(first->mDaylight.mName)};
  std::optional<nsPlatformTime> standardDate, daylightDate;
  const auto second = DaylightYear::Of(*this, thisYear + years(1));
  if (second && second->mStandard == first->mStandard && second->mDaylight == first->mDaylight) {
    standardDate = YearlyDate(first->mStandardFrom, second->mStandardFrom);
    daylightDate = YearlyDate(first->mDaylightFrom, second->mDaylightFrom);
  }
  if (!standardDate || !daylightDate) {
    standardDate = DateOfOneYear(first->mStandardFrom);
    daylightDate = DateOfOneYear(first->mDaylightFrom);
  }
  result.mRules.mStandardDate = *standardDate;
  result.mRules.mDaylightDate = *daylightDate;
  return result;
}

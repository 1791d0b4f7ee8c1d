#include "nsVersion.h"

#include <cstdint>
#include <limits>
#include <string>

namespace {

// Takes what stands before the next point.
std::string_view TakePart(std::string_view* aVersion) {
  const size_t point = aVersion->find('.');
  const std::string_view part = aVersion->substr(0, point);
  aVersion->remove_prefix(point == aVersion->npos ? aVersion->size() : point + 1);
  return part;
}

// A number at the start; too large ones are all the same.
int64_t TakeNumber(std::string_view* aPart) {
  constexpr int64_t kMax = std::numeric_limits<int32_t>::max();
  const bool negative = aPart->starts_with('-');
  if (negative) aPart->remove_prefix(1);
  int64_t value = 0;
  while (!aPart->empty() && aPart->front() >= '0' && aPart->front() <= '9') {
    value = std::min(kMax, value * 10 + (aPart->front() - '0'));
    aPart->remove_prefix(1);
  }
  return negative ? -value : value;
}

std::string TakeText(std::string_view* aPart) {
  const size_t end = std::min(aPart->find_first_of("0123456789-"), aPart->size());
  std::string text(aPart->substr(0, end));
  aPart->remove_prefix(end);
  return text;
}

struct Part {
  explicit Part(std::string_view aPart) {
    if (aPart == "*") {
      mNumber = std::numeric_limits<int64_t>::max();
      return;
    }
    mNumber = TakeNumber(&aPart);
    mText = TakeText(&aPart);
    if (mText == "+") {
      ++mNumber;
      mText = "pre";
    }
    mNumber2 = TakeNumber(&aPart);
    mText2 = aPart;
  }

  static std::strong_ordering CompareTexts(const std::string& aA, const std::string& aB) {
    if (aA.empty() || aB.empty()) return aA.empty() <=> aB.empty();
    return aA <=> aB;
  }
  friend std::strong_ordering operator<=>(const Part& aA, const Part& aB) {
    if (const auto order = aA.mNumber <=> aB.mNumber; order != 0) return order;
    if (const auto order = CompareTexts(aA.mText, aB.mText); order != 0) return order;
    if (const auto order = aA.mNumber2 <=> aB.mNumber2; order != 0) return order;
    return CompareTexts(aA.mText2, aB.mText2);
  }

  int64_t mNumber = 0, mNumber2 = 0;
  std::string mText, mText2;
};

}  // namespace

std::strong_ordering NS_CompareVersions(std::string_view aA, std::string_view aB) {
  do {
    const auto order = Part(TakePart(&aA)) <=> Part(TakePart(&aB));
    if (order != 0) return order;
  } while (!aA.empty() || !aB.empty());
  return std::strong_ordering::equal;
}

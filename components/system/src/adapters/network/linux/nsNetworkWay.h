// One of the ways by which an interface's settings come into force.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "nsPlatformNetworkSettings.h"

/// As the methods of nsPlatformNetworkSettings.
class nsNetworkWay {
 public:
  virtual ~nsNetworkWay() = default;

  virtual nsresult Read(const std::string& aName, uint32_t aGuard, std::string* aRecord) = 0;
  virtual nsresult Write(const std::string& aName, const std::string& aRecord,
                         const nsInterfaceSettings& aSettings) = 0;
  virtual nsresult Keep(const std::string& aName, const std::string& aRecord) = 0;
  virtual nsresult Forget(const std::string& aName, const std::string& aRecord) = 0;
  virtual nsresult Restore(const std::string& aName, const std::string& aRecord) = 0;
  const std::string& Reason() const { return mReason; }

 protected:
  nsresult Failed(nsresult aResult, std::string aReason) {
    mReason = std::move(aReason);
    return aResult;
  }

 private:
  std::string mReason;
};

/// Whether a condition has come within a time. Asks 50 times a second; ends early, with false, when
/// aCancelled is set.
inline bool NS_WaitFor(std::chrono::milliseconds aPatience, const std::atomic<bool>& aCancelled,
                       const std::function<bool()>& aCondition) {
  const auto end = std::chrono::steady_clock::now() + aPatience;
  while (!aCondition()) {
    if (aCancelled || std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

/// Texts one behind the other, with their lengths, so that they may have any bytes.
class nsRecordTexts {
 public:
  static std::string Format(const std::vector<std::string>& aTexts) {
    std::string all;
    for (const std::string& text : aTexts) all += std::to_string(text.size()) + ":" + text;
    return all;
  }
  /// False when it is not that many.
  static bool Parse(std::string_view aAll, size_t aCount, std::vector<std::string>* aTexts) {
    std::vector<std::string> texts;
    while (!aAll.empty()) {
      size_t length = 0, digits = 0;
      for (; digits < aAll.size() && digits < 9 && aAll[digits] >= '0' && aAll[digits] <= '9';
           ++digits)
        length = length * 10 + static_cast<size_t>(aAll[digits] - '0');
      if (digits == 0 || digits == aAll.size() || aAll[digits] != ':') return false;
      aAll.remove_prefix(digits + 1);
      if (length > aAll.size()) return false;
      texts.emplace_back(aAll.substr(0, length));
      aAll.remove_prefix(length);
    }
    if (texts.size() != aCount) return false;
    *aTexts = std::move(texts);
    return true;
  }
};

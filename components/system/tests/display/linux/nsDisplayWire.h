// A display that answers over a wire, well or badly.
#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "nsDdcMessages.h"
#include "nsDdcWire.h"

/// The first block of what a display says of itself, with that name.
inline std::string NS_TestDescription(const std::string& aName) {
  constexpr unsigned char kHead[] = {0,    255,  255,  255,  255, 255, 255, 0,
                                     0x10, 0xAC, 0x2C, 0xA0, 1,   2,   3,   4};
  std::string bytes(128, '\0');
  std::copy(std::begin(kHead), std::end(kHead), bytes.begin());
  bytes[72 + 3] = '\xFC';
  bytes.replace(77, 13, 13, ' ');
  bytes.replace(77, aName.size(), aName);
  bytes[77 + aName.size()] = '\n';
  return bytes;
}

/// Facts may be set before it is opened, or while nobody asks.
class nsDisplayOnWire : public std::enable_shared_from_this<nsDisplayOnWire> {
 public:
  std::map<uint8_t, uint16_t> mFeatures{{kDdcBrightness, 40}, {kDdcContrast, 60}};
  uint16_t mMaximum = 100;
  std::string mDescription;
  std::atomic<int> mRefused = 0;  ///< So many transfers to come fail.
  std::atomic<int> mGarbled = 0;  ///< So many replies to come are disturbed.
  std::function<void()> mAtFirstRequest;

  std::unique_ptr<nsDdcWire> Open(std::string*) {
    return std::make_unique<Wire>(shared_from_this());
  }
  /// Transfers come to no end meanwhile.
  void Hang(bool aHangs) {
    const std::lock_guard lock(mLock);
    mHangs = aHangs;
    mGoesOn.notify_all();
  }
  uint16_t Feature(uint8_t aFeature) {
    const std::lock_guard lock(mLock);
    return mFeatures.at(aFeature);
  }

 private:
  class Wire final : public nsDdcWire {
   public:
    explicit Wire(std::shared_ptr<nsDisplayOnWire> aDisplay) : mDisplay(std::move(aDisplay)) {}
    bool Write(uint8_t aAddress, std::span<const uint8_t> aBytes) override {
      return mDisplay->Take(aAddress, aBytes);
    }
    bool Read(uint8_t aAddress, std::span<uint8_t> aBytes) override {
      return mDisplay->Give(aAddress, aBytes);
    }

   private:
    const std::shared_ptr<nsDisplayOnWire> mDisplay;
  };

  bool Begin(std::unique_lock<std::mutex>& aLock) {
    mGoesOn.wait(aLock, [&] { return !mHangs; });
    return mRefused == 0 || mRefused-- < 0;
  }
  bool Take(uint8_t aAddress, std::span<const uint8_t> aBytes) {
    if (aAddress == kDdcAddress && mAtFirstRequest) std::exchange(mAtFirstRequest, nullptr)();
    std::unique_lock lock(mLock);
    if (!Begin(lock)) return false;
    if (aAddress != kDdcAddress) return true;
    const auto feature = mFeatures.find(aBytes[3]);
    const bool has = feature != mFeatures.end();
    if (aBytes[2] == 3 && has) feature->second = static_cast<uint16_t>(aBytes[4] << 8 | aBytes[5]);
    const uint16_t value = has ? feature->second : 0;
    mReply = {0x6E,
              0x88,
              2,
              static_cast<uint8_t>(!has),
              aBytes[3],
              0,
              static_cast<uint8_t>(mMaximum >> 8),
              static_cast<uint8_t>(mMaximum),
              static_cast<uint8_t>(value >> 8),
              static_cast<uint8_t>(value)};
    uint8_t sum = 0x50;
    for (const uint8_t byte : mReply) sum ^= byte;
    mReply.push_back(sum);
    return true;
  }
  bool Give(uint8_t aAddress, std::span<uint8_t> aBytes) {
    std::unique_lock lock(mLock);
    if (!Begin(lock)) return false;
    std::fill(aBytes.begin(), aBytes.end(), uint8_t{0});
    if (aAddress == kDdcAddress)
      std::copy_n(mReply.begin(), std::min(mReply.size(), aBytes.size()), aBytes.begin());
    else
      std::copy_n(mDescription.begin(), std::min(mDescription.size(), aBytes.size()),
                  aBytes.begin());
    if (aAddress == kDdcAddress && mGarbled > 0) {
      --mGarbled;
      aBytes[9] ^= 1;
    }
    return true;
  }

  std::mutex mLock;
  std::condition_variable mGoesOn;
  bool mHangs = false;
  std::vector<uint8_t> mReply;
};

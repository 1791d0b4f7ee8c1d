// What the contract suite of windows and their messages runs on.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "nsContract.h"
#include "nsPlatformWindowEvents.h"

/// A machine with the port under test, where volumes come and go and displays change.
class nsWindowEventsMachine {
 public:
  virtual ~nsWindowEventsMachine() = default;
  /// Why this machine can't be had here; empty when it can.
  virtual std::string Lacks() { return ""; }
  virtual nsPlatformWindowEvents& Port() = 0;
  /// A volume comes, by this name, or goes.
  virtual void Insert(const std::string& aName) = 0;
  virtual void Remove(const std::string& aName) = 0;
  /// False when this machine has no displays that can be changed.
  virtual bool ChangeDisplays() = 0;
};

/// Waits for sources on threads of its own, and consumes them where it is asked to.
class nsSourceConsumer {
 public:
  explicit nsSourceConsumer(std::vector<std::shared_ptr<nsEventSource>> aSources)
      : mSources(std::move(aSources)), mIsReady(mSources.size()) {
    for (size_t i = 0; i < mSources.size(); ++i)
      mThreads.emplace_back([this, i] {
        for (;;) {
          mSources[i]->Wait();
          std::unique_lock lock(mLock);
          mIsReady[i] = true;
          mChanged.notify_all();
          mChanged.wait(lock, [&] { return mIsOver || !mIsReady[i]; });
          if (mIsOver) return;
        }
      });
  }
  ~nsSourceConsumer() {
    {
      const std::lock_guard lock(mLock);
      mIsOver = true;
      mChanged.notify_all();
    }
    for (const auto& source : mSources) source->Wake();
    for (std::thread& thread : mThreads) thread.join();
  }

  /// Consumes what comes until that holds; false when it takes too long.
  bool Until(const std::function<bool()>& aHolds) {
    const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!aHolds()) {
      std::unique_lock lock(mLock);
      const auto ready = [&] { return std::ranges::find(mIsReady, true) != mIsReady.end(); };
      if (!mChanged.wait_until(lock, patience, ready)) return false;
      for (size_t i = 0; i < mSources.size(); ++i) {
        if (!mIsReady[i]) continue;
        lock.unlock();
        (void)mSources[i]->Consume();
        lock.lock();
        mIsReady[i] = false;
        mChanged.notify_all();
      }
    }
    return true;
  }

 private:
  const std::vector<std::shared_ptr<nsEventSource>> mSources;
  std::mutex mLock;
  std::condition_variable mChanged;
  std::vector<bool> mIsReady;
  bool mIsOver = false;
  std::vector<std::thread> mThreads;
};

class WindowEventsContract : public nsContractTest<nsWindowEventsMachine> {
 protected:
  using Message = nsWindowMessage;
  void TearDown() override { sHeard.clear(); }
  nsPlatformWindowEvents& Port() { return mMachine->Port(); }
  static intptr_t Hear(const nsWindowMessage& aMessage) {
    std::string line = std::to_string(aMessage.mMessage) + " " + std::to_string(aMessage.mWParam);
    if (aMessage.mBroadcast)
      line += " " + std::to_string(aMessage.mBroadcast->mDeviceType) + " bits " +
              std::to_string(__builtin_popcount(aMessage.mBroadcast->mUnitMask));
    sHeard.emplace_back(aMessage.mWindow, line);
    return 0;
  }
  static intptr_t Ignore(const nsWindowMessage&) { return 0; }
  static size_t Count(nsWindowHandle aWindow, const std::string& aLine) {
    return static_cast<size_t>(std::ranges::count(sHeard, std::pair(aWindow, aLine)));
  }

  static inline std::vector<std::pair<nsWindowHandle, std::string>> sHeard;
  int mFirst = 0, mSecond = 0;
};

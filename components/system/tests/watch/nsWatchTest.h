// What tests of watching share: a pool that is run by hand, listeners that keep what they hear, and
// a model that follows it.
#pragma once

#include <deque>
#include <set>

#include "nsIEventTarget.h"
#include "nsIRunnable.h"
#include "nsISystemFileSystemListener2.h"
#include "nsIThread.h"
#include "nsIThreadManager.h"
#include "nsITimer.h"
#include "nsRunEvents.h"
#include "nsSystemFileSystemWatcher.h"
#include "nsSystemTest.h"

/// Takes the place of the thread pool: what is dispatched waits until the test runs it, on the
/// test's own thread.
class nsManualPool final : public nsImplements<nsManualPool, nsIEventTarget> {
 public:
  static nsManualPool& Instance() {
    static const auto sPool = MakeRefCounted<nsManualPool>();
    return *sPool;
  }
  nsresult Dispatch(nsIRunnable* aEvent, uint32_t) override {
    mQueue.emplace_back(aEvent);
    return NS_OK;
  }
  nsresult IsOnCurrentThread(bool* aResult) override {
    *aResult = false;
    return NS_OK;
  }
  /// Runs what waits; says how much that was.
  size_t Run() {
    size_t count = 0;
    for (; !mQueue.empty(); ++count) {
      const auto event = mQueue.front();
      mQueue.pop_front();
      EXPECT_EQ(event->Run(), NS_OK);
    }
    return count;
  }
  void Clear() { mQueue.clear(); }

 private:
  ~nsManualPool() override = default;
  std::deque<nsCOMPtr<nsIRunnable>> mQueue;
};

namespace vorel::test {
inline constexpr nsCID kPoolCID = "f3b0c3c1-2a9e-45ae-8a3d-3f1f2f0f6c11"_iid;
inline constexpr Module::CIDEntry kPoolCIDs[] = {
    {&kPoolCID, true, nullptr,
     [](nsISupports*, const nsIID& aIID, void** aResult) {
       return nsManualPool::Instance().QueryInterface(aIID, aResult);
     }},
    {nullptr, false, nullptr, nullptr}};
inline constexpr Module::ContractIDEntry kPoolContractIDs[] = {
    {VOREL_THREADPOOL_CONTRACTID, &kPoolCID}, {nullptr, nullptr}};
inline constexpr Module kPoolModule = {Module::kVersion, kPoolCIDs, kPoolContractIDs, nullptr,
                                       nullptr,          nullptr,   nullptr};
}  // namespace vorel::test

namespace vorel::test {
/// Machine for watchers that are made by contract, as the service makes them.
inline nsPlatformRef gWatchPlatform;
inline constexpr nsCID kWatcherCID = "f3b0c3c1-2a9e-45ae-8a3d-3f1f2f0f6c12"_iid;
inline constexpr Module::CIDEntry kWatcherCIDs[] = {
    {&kWatcherCID, false, nullptr,
     [](nsISupports*, const nsIID& aIID, void** aResult) {
       return MakeRefCounted<nsSystemFileSystemWatcher>(gWatchPlatform)
           ->QueryInterface(aIID, aResult);
     }},
    {nullptr, false, nullptr, nullptr}};
inline constexpr Module::ContractIDEntry kWatcherContractIDs[] = {
    {"@vorel/system/filesystemwatcherprivate;1", &kWatcherCID}, {nullptr, nullptr}};
inline constexpr Module kWatcherModule = {
    Module::kVersion, kWatcherCIDs, kWatcherContractIDs, nullptr, nullptr, nullptr, nullptr};
}  // namespace vorel::test

/// Keeps what it hears as lines ("added a/b", "moved a > b"), on whichever thread, and a picture of
/// what is there as far as reports tell.
template <class Self, class Interface>
class nsWatchListenerBase : public nsImplements<Self, Interface> {
 public:
  using Paths = std::set<std::string>;

  /// Called after each line, on the thread of the report.
  std::function<void(const std::string& aLine)> mThen = [](const std::string&) {};

  std::vector<std::string> Take() {
    std::lock_guard lock(mLock);
    return std::exchange(mHeard, {});
  }
  size_t HeardCount() {
    std::lock_guard lock(mLock);
    return mHeard.size();
  }
  bool HasHeard(const std::string& aLine) {
    std::lock_guard lock(mLock);
    return std::find(mHeard.begin(), mHeard.end(), aLine) != mHeard.end();
  }
  Paths Picture() {
    std::lock_guard lock(mLock);
    return mPicture;
  }
  void SetPicture(Paths aPaths) {
    std::lock_guard lock(mLock);
    mPicture = std::move(aPaths);
  }

  nsresult OnWatcherStarted() override { return Hear("started"); }
  nsresult OnWatcherStopped() override { return Hear("stopped"); }
  nsresult OnWatcherError(uint32_t aCode, const nsAString& aText) override {
    return Hear("error " + std::to_string(aCode) + " " + NS_ToUtf8(aText));
  }
  nsresult OnFileSystemChanged(const nsAString& aPath) override {
    return Hear("changed " + NS_ToUtf8(aPath));
  }
  nsresult OnFileSystemRemoved(const nsAString& aPath) override {
    return Hear("removed " + NS_ToUtf8(aPath), NS_ToUtf8(aPath));
  }
  nsresult OnFileSystemAdded(const nsAString& aPath) override {
    return Hear("added " + NS_ToUtf8(aPath), {}, NS_ToUtf8(aPath));
  }

 protected:
  ~nsWatchListenerBase() override = default;

  nsresult Hear(std::string aLine, const std::string& aGone = {}, const std::string& aNew = {}) {
    {
      std::lock_guard lock(mLock);
      mHeard.push_back(aLine);
      mPicture.erase(aGone);
      if (!aNew.empty()) mPicture.insert(aNew);
    }
    mThen(aLine);
    return NS_OK;
  }

 private:
  std::mutex mLock;
  std::vector<std::string> mHeard;
  Paths mPicture;
};

class nsPlainWatchListener final
    : public nsWatchListenerBase<nsPlainWatchListener, nsISystemFileSystemListener> {
  ~nsPlainWatchListener() override = default;
};

class nsWatchListener final
    : public nsWatchListenerBase<nsWatchListener, nsISystemFileSystemListener2> {
 public:
  nsresult OnFileSystemMoved(const nsAString& aOldPath, const nsAString& aNewPath) override {
    const std::string from = NS_ToUtf8(aOldPath), to = NS_ToUtf8(aNewPath);
    return Hear("moved " + from + " > " + to, from, to);
  }

 private:
  ~nsWatchListener() override = default;
};

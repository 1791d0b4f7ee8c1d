// The thread that waits for a reader of directory changes, as a watcher has one, for tests.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "nsPlatformDirectoryChanges.h"
#include "nsPlatformFiles.h"

/// Opens a reader as a first walk does: all directories below the root are watched.
nsresult NS_OpenReader(nsPlatformDirectoryReader& aReader, nsPlatformFiles& aFiles,
                       const nsAString& aRoot);

/// Issues one read after the other and gathers the names. A failed or empty completion ends it.
class nsReaderThread final : nsPlatformDirectoryReader::Completion {
 public:
  explicit nsReaderThread(nsPlatformDirectoryReader& aReader, uint32_t aBufferSize = 65536)
      : mReader(aReader), mBuffer(aBufferSize), mThread([this] { Run(); }) {}
  ~nsReaderThread();

  using Names = std::set<std::u16string>;
  /// Blocks until the names since the last Clear are as asked for; false after a time in which they
  /// should have come.
  bool Await(const std::function<bool(const Names&)>& aCondition);
  bool AwaitName(std::u16string_view aName) {
    return Await([&](const Names& aNames) { return aNames.contains(std::u16string(aName)); });
  }
  bool AwaitEnd(nsresult* aResult);
  void Clear();

 private:
  void Run();

  void OnReadCompleted(nsresult aResult, uint32_t aBytes) override;

  nsPlatformDirectoryReader& mReader;
  std::vector<uint8_t> mBuffer;
  std::atomic<bool> mStop = false;
  bool mIsReading = false;  // the thread's
  std::mutex mLock;
  std::condition_variable mChanged;
  Names mNames;
  std::optional<nsresult> mEnd;
  std::thread mThread;
};

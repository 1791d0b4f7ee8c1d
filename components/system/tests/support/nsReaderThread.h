// The thread that waits for a reader of directory changes, as a watcher has one, for tests.
#pragma once

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
inline nsresult NS_OpenReader(nsPlatformDirectoryReader& aReader, nsPlatformFiles& aFiles,
                              const nsAString& aRoot) {
  if (nsresult rv = aReader.Open(aRoot); NS_FAILED(rv)) return rv;
  for (std::vector<nsString> stack{nsString(aRoot)}; !stack.empty();) {
    const nsString path = std::move(stack.back());
    stack.pop_back();
    (void)aReader.Watch(path);
    std::unique_ptr<nsPlatformFiles::Listing> listing;
    if (NS_FAILED(aFiles.OpenListing(path, false, &listing))) continue;
    while (listing->HasMore()) {
      nsPlatformFiles::Entry entry;
      if (NS_FAILED(listing->GetNext(&entry)) || entry.mKind != nsPlatformFiles::kDirectory)
        continue;
      stack.emplace_back(std::u16string(path.view()) + aFiles.Separator() +
                         std::u16string(entry.mLeafName.view()));
    }
  }
  return NS_OK;
}

/// Issues one read after the other and gathers the names. A failed or empty completion ends it.
class nsReaderThread final : nsPlatformDirectoryReader::Completion {
 public:
  explicit nsReaderThread(nsPlatformDirectoryReader& aReader, uint32_t aBufferSize = 65536)
      : mReader(aReader), mBuffer(aBufferSize), mThread([this] { Run(); }) {}
  ~nsReaderThread() {
    mStop = true;
    mReader.Wake();
    mThread.join();
  }

  using Names = std::set<std::u16string>;
  /// Blocks until the names since the last Clear are as asked for; false after a time in which they
  /// should have come.
  bool Await(const std::function<bool(const Names&)>& aCondition) {
    std::unique_lock lock(mLock);
    return mChanged.wait_for(lock, std::chrono::seconds(20), [&] { return aCondition(mNames); });
  }
  bool AwaitName(std::u16string_view aName) {
    return Await([&](const Names& aNames) { return aNames.contains(std::u16string(aName)); });
  }
  bool AwaitEnd(nsresult* aResult) {
    std::unique_lock lock(mLock);
    if (!mChanged.wait_for(lock, std::chrono::seconds(20), [&] { return mEnd.has_value(); }))
      return false;
    *aResult = *mEnd;
    return true;
  }
  void Clear() {
    std::lock_guard lock(mLock);
    mNames.clear();
  }

 private:
  void Run() {
    while (!mStop) {
      if (!mIsReading && !mEnd) {
        mIsReading = true;
        if (NS_FAILED(mReader.Read(mBuffer.data(), static_cast<uint32_t>(mBuffer.size()), true,
                                   0x53, this)))
          break;
      }
      mReader.Wait();
      (void)mReader.Consume();
    }
  }

  void OnReadCompleted(nsresult aResult, uint32_t aBytes) override {
    std::lock_guard lock(mLock);
    mIsReading = false;
    if (NS_FAILED(aResult) || aBytes == 0) mEnd = aResult;
    for (size_t at = 0; NS_SUCCEEDED(aResult) && at < aBytes;) {
      nsPlatformChangeRecord record;
      std::memcpy(&record, mBuffer.data() + at, nsPlatformChangeRecord::kSize);
      std::u16string name(record.mFileNameLength / 2, u' ');
      std::memcpy(name.data(), mBuffer.data() + at + nsPlatformChangeRecord::kSize,
                  record.mFileNameLength);
      mNames.insert(std::move(name));
      if (record.mNextEntryOffset == 0) break;
      at += record.mNextEntryOffset;
    }
    mChanged.notify_all();
  }

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

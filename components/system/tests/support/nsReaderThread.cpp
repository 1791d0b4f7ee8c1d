#include "nsReaderThread.h"

#include <chrono>
#include <cstring>
#include <memory>

nsresult NS_OpenReader(nsPlatformDirectoryReader& aReader, nsPlatformFiles& aFiles,
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

nsReaderThread::~nsReaderThread() {
  mStop = true;
  mReader.Wake();
  mThread.join();
}

bool nsReaderThread::Await(const std::function<bool(const Names&)>& aCondition) {
  std::unique_lock lock(mLock);
  return mChanged.wait_for(lock, std::chrono::seconds(20), [&] { return aCondition(mNames); });
}

bool nsReaderThread::AwaitEnd(nsresult* aResult) {
  std::unique_lock lock(mLock);
  if (!mChanged.wait_for(lock, std::chrono::seconds(20), [&] { return mEnd.has_value(); }))
    return false;
  *aResult = *mEnd;
  return true;
}

void nsReaderThread::Clear() {
  std::lock_guard lock(mLock);
  mNames.clear();
}

void nsReaderThread::Run() {
  while (!mStop) {
    if (!mIsReading && !mEnd) {
      mIsReading = true;
      if (NS_FAILED(mReader.Read(mBuffer.data(), static_cast<uint32_t>(mBuffer.size()), true, 0x53,
                                 this)))
        break;
    }
    mReader.Wait();
    (void)mReader.Consume();
  }
}

void nsReaderThread::OnReadCompleted(nsresult aResult, uint32_t aBytes) {
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

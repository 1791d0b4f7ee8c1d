#include "nsInotifyDirectoryChanges.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <optional>
#include <unordered_set>
#include <vector>

#include "nsEventFd.h"
#include "nsInotifyDirectories.h"
#include "nsLock.h"
#include "nsLogger.h"
#include "nsNamedThread.h"
#include "nsString.h"
#include "nsUtf.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// How long nothing must have happened before what has changed is named once more, and how long that
// may be put off while something always happens.
constexpr auto kQuietSpell = 50ms;
constexpr auto kLongestUnrest = 1000ms;

// The receiver acts on a pause of 10 ms between two completions. While changes come without one, a
// pause is made for it from time to time, long enough for a timer that is a little late.
constexpr auto kPause = 12ms;
constexpr auto kLongestStream = 500ms;

// How long until what could not be watched is tried again: that rights or a limit have changed is
// told by nobody. Twice as long each time.
constexpr auto kFirstRetry = 1000ms;
constexpr auto kLongestRetry = 64 * kFirstRetry;

class InotifyReader final : public nsPlatformDirectoryReader {
 public:
  ~InotifyReader() override { Close(); }

  nsresult Open(const nsAString& aRoot) override;
  bool IsOpen() const override;
  nsresult Watch(const nsAString& aDirectory) override;
  std::vector<nsPlatformUnwatched> TakeUnwatched() override;
  std::vector<nsPlatformUnwatched> StillUnwatched() override;
  void Close() override;
  nsresult Read(uint8_t* aBuffer, uint32_t aSize, bool aWatchSubtree, uint32_t aNotifyFilter,
                Completion* aCompletion) override;
  void Wait() override;
  bool Consume() override;
  void Wake() override;
  void Remind(std::u16string_view aName) override;

 private:
  void Run(nsInotifyDirectories& aDirectories);
  void NameDirectories(nsInotifyDirectories& aDirectories);
  int UntilQuiet() const;
  int UntilRetry() const;
  void Retry(nsInotifyDirectories& aDirectories);
  void GatherUnwatched(nsInotifyDirectories& aDirectories);
  void Publish(std::vector<std::u16string> aNames);
  void End(nsresult aResult);
  Clock::time_point DeliveryTime() const NS_REQUIRES(mLock);
  /// Whether a read that was issued could complete.
  bool HasEvents() const NS_REQUIRES(mLock) { return mCompletion && (!mNames.empty() || mEnd); }

  nsMutex mOpenLock;  // held to open and to close
  const nsCOMPtr<nsILog4Logger> mLog = NS_GetLogger("system.fileWatcher");

  // The reader's own thread.
  nsEventFd mStop;
  nsNamedThread mThread;
  Clock::time_point mUnrestStart, mLastEvent;
  Clock::time_point mNextRetry;
  Clock::duration mRetryDelay{};  // none: all is watched
  bool mIsRestless = false;       // something has changed since directories were named

  mutable nsMutex mLock;  // guards what follows
  std::shared_ptr<nsInotifyDirectories> mDirectories NS_GUARDED_BY(mLock);
  std::string mRoot NS_GUARDED_BY(mLock);
  std::vector<nsPlatformUnwatched> mUnwatched NS_GUARDED_BY(mLock);
  std::vector<nsPlatformUnwatched> mStillUnwatched NS_GUARDED_BY(mLock);
  bool mHasToldLength NS_GUARDED_BY(mLock) = false;
  nsCondition mChanged;
  bool mIsOpen NS_GUARDED_BY(mLock) = false;
  bool mIsWoken NS_GUARDED_BY(mLock) = false;
  std::unordered_set<std::u16string> mNames NS_GUARDED_BY(mLock);  // to be delivered
  std::optional<nsresult> mEnd NS_GUARDED_BY(mLock);               // to be delivered after them
  Clock::time_point mStreamStart NS_GUARDED_BY(mLock), mLastDelivery NS_GUARDED_BY(mLock);
  uint8_t* mBuffer NS_GUARDED_BY(mLock) = nullptr;
  uint32_t mSize NS_GUARDED_BY(mLock) = 0;
  Completion* mCompletion NS_GUARDED_BY(mLock) = nullptr;  // a read is issued
};

// ---- The side of the watcher

nsresult InotifyReader::Open(const nsAString& aRoot) {
  nsAutoLock openLock(mOpenLock);
  if (IsOpen()) return NS_ERROR_ALREADY_INITIALIZED;
  std::string root = vorel::Utf16ToName(NS_View(aRoot));
  while (root.size() > 1 && root.ends_with('/')) root.pop_back();
  auto directories = std::make_shared<nsInotifyDirectories>(root, mLog);
  if (nsresult rv = directories->Start(); NS_FAILED(rv)) return rv;
  if (NS_FAILED(mStop.Open())) return NS_ERROR_FAILURE;
  if (nsresult rv = mThread.Start("Inotify", [this, directories] { Run(*directories); });
      NS_FAILED(rv)) {
    mStop.Close();
    return rv;
  }
  nsAutoLock lock(mLock);
  mDirectories = std::move(directories);
  mRoot = std::move(root);
  mIsOpen = true;
  mHasToldLength = false;
  return NS_OK;
}

nsresult InotifyReader::Watch(const nsAString& aDirectory) {
  std::string path = vorel::Utf16ToName(NS_View(aDirectory));
  std::shared_ptr<nsInotifyDirectories> directories;
  {
    nsAutoLock lock(mLock);
    if (!mIsOpen) return NS_ERROR_NOT_INITIALIZED;
    directories = mDirectories;
    path.erase(0, mRoot.size());
  }
  while (path.ends_with('/')) path.pop_back();
  while (path.starts_with('/')) path.erase(0, 1);
  if (path.empty()) return NS_OK;
  nsresult rv = directories->Watch(path);
  if (NS_FAILED(rv)) GatherUnwatched(*directories);
  return rv;
}

std::vector<nsPlatformUnwatched> InotifyReader::TakeUnwatched() {
  nsAutoLock lock(mLock);
  return std::exchange(mUnwatched, {});
}

// Who asks must not wait for the directories, where a scan may hold everybody up.
std::vector<nsPlatformUnwatched> InotifyReader::StillUnwatched() {
  nsAutoLock lock(mLock);
  return mStillUnwatched;
}

void InotifyReader::GatherUnwatched(nsInotifyDirectories& aDirectories) {
  const auto unwatched = aDirectories.TakeUnwatched();
  const auto still = aDirectories.StillUnwatched();
  nsAutoLock lock(mLock);
  const auto told = [this](const auto& aUnwatched) NS_REQUIRES(mLock) {
    const int error = aUnwatched.mError;
    return nsPlatformUnwatched{
        vorel::NameToUtf16((mRoot == "/" ? mRoot : mRoot + "/") + aUnwatched.mPath),
        error == EACCES || error == EPERM ? NS_ERROR_FILE_ACCESS_DENIED : NS_ERROR_FAILURE};
  };
  for (const auto& one : unwatched) mUnwatched.push_back(told(one));
  mStillUnwatched.clear();
  for (const auto& one : still) mStillUnwatched.push_back(told(one));
}

bool InotifyReader::IsOpen() const {
  nsAutoLock lock(mLock);
  return mIsOpen;
}

void InotifyReader::Close() {
  nsAutoLock openLock(mOpenLock);
  {
    nsAutoLock lock(mLock);
    if (mDirectories) mDirectories->Stop();
  }
  mStop.Set();
  mThread.Join();
  mStop.Close();
  nsAutoLock lock(mLock);
  mDirectories.reset();
  mIsOpen = false;
  mCompletion = nullptr;
  mNames.clear();
  mUnwatched.clear();
  mStillUnwatched.clear();
  mEnd.reset();
}

// What is asked for is less than what is named in any case: more names are harmless.
nsresult InotifyReader::Read(uint8_t* aBuffer, uint32_t aSize, bool /*aWatchSubtree*/,
                             uint32_t /*aNotifyFilter*/, Completion* aCompletion) {
  nsAutoLock lock(mLock);
  if (!mIsOpen) return NS_ERROR_NOT_INITIALIZED;
  if (mCompletion) return NS_ERROR_IN_PROGRESS;
  mBuffer = aBuffer;
  mSize = aSize;
  mCompletion = aCompletion;
  return NS_OK;
}

Clock::time_point InotifyReader::DeliveryTime() const {
  return mLastDelivery - mStreamStart < kLongestStream ? Clock::time_point()
                                                       : mLastDelivery + kPause;
}

void InotifyReader::Wait() {
  nsAutoLock lock(mLock);
  while (!mIsWoken && (!HasEvents() || Clock::now() < DeliveryTime())) {
    if (HasEvents())
      mChanged.WaitUntil(lock, DeliveryTime());
    else
      mChanged.Wait(lock);
  }
  mIsWoken = false;
}

bool InotifyReader::Consume() {
  nsAutoLock lock(mLock);
  if (!HasEvents() || Clock::now() < DeliveryTime()) return false;
  nsresult result = NS_OK;
  nsPlatformChangeRecordWriter writer(mBuffer, mSize);
  while (!mNames.empty()) {
    const auto name = mNames.begin();
    if (!writer.Append(*name)) {
      if (writer.Bytes() > 0) break;
      // Not even alone.
      if (!std::exchange(mHasToldLength, true))
        SYSTEM_LOG_WARNING(mLog, "A path below " + mRoot + " is too long to be told (" +
                                     std::to_string(name->size()) +
                                     " units): changes there and at others like it are not seen");
    }
    mNames.erase(name);
  }
  if (writer.Bytes() > 0) {
    const auto now = Clock::now();
    if (now - mLastDelivery >= kPause) mStreamStart = now;
    mLastDelivery = now;
  } else if (mEnd) {
    result = *mEnd;
  } else {
    return true;
  }
  Completion* const completion = std::exchange(mCompletion, nullptr);
  lock.Unlock();
  completion->OnReadCompleted(result, writer.Bytes());
  return true;
}

void InotifyReader::Wake() {
  nsAutoLock lock(mLock);
  mIsWoken = true;
  mChanged.NotifyAll();
}

void InotifyReader::Remind(std::u16string_view aName) {
  nsAutoLock lock(mLock);
  if (!mIsOpen) return;
  mNames.emplace(aName);
  mChanged.NotifyAll();
}

// ---- The thread

void InotifyReader::Publish(std::vector<std::u16string> aNames) {
  nsAutoLock lock(mLock);
  for (std::u16string& name : aNames) mNames.insert(std::move(name));
  mChanged.NotifyAll();
}

void InotifyReader::End(nsresult aResult) {
  nsAutoLock lock(mLock);
  mEnd = aResult;
  mChanged.NotifyAll();
}

void InotifyReader::NameDirectories(nsInotifyDirectories& aDirectories) {
  mIsRestless = false;
  std::vector<std::u16string> names;
  for (const std::string& directory : aDirectories.TakeDirectories())
    names.push_back(directory.empty() ? u"." : vorel::NameToUtf16(directory) + u"/.");
  Publish(std::move(names));
}

int InotifyReader::UntilQuiet() const {
  if (!mIsRestless) return -1;
  const auto wait =
      std::chrono::ceil<std::chrono::milliseconds>(mLastEvent + kQuietSpell - Clock::now());
  return static_cast<int>(std::max(wait, 0ms).count());
}

int InotifyReader::UntilRetry() const {
  if (mRetryDelay == Clock::duration()) return -1;
  const auto wait = std::chrono::ceil<std::chrono::milliseconds>(mNextRetry - Clock::now());
  return static_cast<int>(std::max(wait, 0ms).count());
}

void InotifyReader::Retry(nsInotifyDirectories& aDirectories) {
  if (UntilRetry() == 0) {
    aDirectories.Retry();
    if (aDirectories.IsIncomplete()) {
      mRetryDelay = std::min<Clock::duration>(2 * mRetryDelay, kLongestRetry);
      mNextRetry = Clock::now() + mRetryDelay;
    }
    GatherUnwatched(aDirectories);
    NameDirectories(aDirectories);
  }
  if (!aDirectories.IsIncomplete()) {
    mRetryDelay = {};
  } else if (mRetryDelay == Clock::duration()) {
    mRetryDelay = kFirstRetry;
    mNextRetry = Clock::now() + mRetryDelay;
  }
}

void InotifyReader::Run(nsInotifyDirectories& aDirectories) {
  while (true) {
    std::array<pollfd, 3> waiting{{{aDirectories.Fd(), POLLIN, 0},
                                   {mStop.get(), POLLIN, 0},
                                   {aDirectories.MountTableFd(), POLLPRI, 0}}};
    Retry(aDirectories);
    const int untilQuiet = UntilQuiet(), untilRetry = UntilRetry();
    (void)poll(waiting.data(), waiting.size(),
               untilQuiet < 0 || untilRetry < 0 ? std::max(untilQuiet, untilRetry)
                                                : std::min(untilQuiet, untilRetry));
    if (waiting[1].revents) return;
    if (!waiting[0].revents && !waiting[2].revents) {
      if (UntilQuiet() == 0) NameDirectories(aDirectories);
      continue;
    }
    // Volumes last: their places are looked up where events have put them.
    const bool goesOn = (!waiting[0].revents || aDirectories.ReadEvents()) &&
                        (!waiting[2].revents || aDirectories.ReadMounts());
    GatherUnwatched(aDirectories);
    std::vector<std::u16string> names;
    for (const std::string& name : aDirectories.TakeNames())
      names.push_back(vorel::NameToUtf16(name));
    Publish(std::move(names));
    if (!goesOn) {
      End(NS_ERROR_FILE_NOT_FOUND);
      return;
    }
    mLastEvent = Clock::now();
    if (!std::exchange(mIsRestless, true)) mUnrestStart = mLastEvent;
    const bool hasOverflown = aDirectories.TakeOverflow();
    if (hasOverflown) aDirectories.Scan();  // all directories count as touched by it
    // Together with names of changes, so that the receiver is not kept from acting on them.
    if (hasOverflown || mLastEvent > mUnrestStart + kLongestUnrest) NameDirectories(aDirectories);
  }
}

}  // namespace

std::unique_ptr<nsPlatformDirectoryReader> nsInotifyDirectoryChanges::NewReader() {
  return std::make_unique<InotifyReader>();
}

#include "nsInotifyDirectoryChanges.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <unordered_set>
#include <vector>

#include "nsEventFd.h"
#include "nsInotifyDirectories.h"
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

class InotifyReader final : public nsPlatformDirectoryReader {
 public:
  ~InotifyReader() override { Close(); }

  nsresult Open(const nsAString& aRoot) override;
  bool IsOpen() const override;
  void Close() override;
  nsresult Read(uint8_t* aBuffer, uint32_t aSize, bool aWatchSubtree, uint32_t aNotifyFilter,
                Completion* aCompletion) override;
  void Wait() override;
  void Wake() override;
  void Remind(std::u16string_view aName) override;

 private:
  void Run();
  void NameDirectories();
  int UntilQuiet() const;
  void Publish(std::vector<std::u16string> aNames);
  void End(nsresult aResult);
  Clock::time_point DeliveryTime() const;

  // The reader's own thread.
  std::unique_ptr<nsInotifyDirectories> mDirectories;
  nsEventFd mStop;
  nsNamedThread mThread;
  Clock::time_point mUnrestStart, mLastEvent;
  bool mIsRestless = false;  // something has changed since directories were named

  mutable std::mutex mLock;  // guards what follows
  std::condition_variable mChanged;
  bool mIsOpen = false;
  bool mIsWoken = false;
  std::unordered_set<std::u16string> mNames;  // to be delivered
  std::optional<nsresult> mEnd;               // to be delivered after them
  Clock::time_point mStreamStart, mLastDelivery;
  uint8_t* mBuffer = nullptr;
  uint32_t mSize = 0;
  Completion* mCompletion = nullptr;  // a read is issued
};

// ---- The side of the watcher

nsresult InotifyReader::Open(const nsAString& aRoot) {
  if (IsOpen()) return NS_ERROR_ALREADY_INITIALIZED;
  std::string root = vorel::Utf16ToName(NS_View(aRoot));
  while (root.size() > 1 && root.ends_with('/')) root.pop_back();
  auto directories =
      std::make_unique<nsInotifyDirectories>(root, NS_GetLogger("system.fileWatcher"));
  if (nsresult rv = directories->Start(); NS_FAILED(rv)) return rv;
  if (NS_FAILED(mStop.Open())) return NS_ERROR_FAILURE;
  mDirectories = std::move(directories);
  {
    std::lock_guard lock(mLock);
    mIsOpen = true;
  }
  const nsresult rv = mThread.Start("Inotify", [this] { Run(); });
  if (NS_FAILED(rv)) Close();
  return rv;
}

bool InotifyReader::IsOpen() const {
  std::lock_guard lock(mLock);
  return mIsOpen;
}

void InotifyReader::Close() {
  if (mDirectories) mDirectories->Stop();
  mStop.Set();
  mThread.Join();
  mDirectories.reset();
  mStop.Close();
  std::lock_guard lock(mLock);
  mIsOpen = false;
  mCompletion = nullptr;
  mNames.clear();
  mEnd.reset();
}

// What is asked for is less than what is named in any case: more names are harmless.
nsresult InotifyReader::Read(uint8_t* aBuffer, uint32_t aSize, bool /*aWatchSubtree*/,
                             uint32_t /*aNotifyFilter*/, Completion* aCompletion) {
  std::lock_guard lock(mLock);
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
  std::unique_lock lock(mLock);
  while (!mIsWoken &&
         (!mCompletion || (mNames.empty() && !mEnd) || Clock::now() < DeliveryTime())) {
    if (mCompletion && (!mNames.empty() || mEnd))
      mChanged.wait_until(lock, DeliveryTime());
    else
      mChanged.wait(lock);
  }
  if (std::exchange(mIsWoken, false)) return;

  Completion* const completion = std::exchange(mCompletion, nullptr);
  nsresult result = NS_OK;
  nsPlatformChangeRecordWriter writer(mBuffer, mSize);
  if (mNames.empty()) {
    result = *mEnd;
  } else {
    while (!mNames.empty() && writer.Append(*mNames.begin())) mNames.erase(mNames.begin());
    const auto now = Clock::now();
    if (now - mLastDelivery >= kPause) mStreamStart = now;
    mLastDelivery = now;
  }
  lock.unlock();
  completion->OnReadCompleted(result, writer.Bytes());
}

void InotifyReader::Wake() {
  std::lock_guard lock(mLock);
  mIsWoken = true;
  mChanged.notify_all();
}

void InotifyReader::Remind(std::u16string_view aName) {
  std::lock_guard lock(mLock);
  if (!mIsOpen) return;
  mNames.emplace(aName);
  mChanged.notify_all();
}

// ---- The thread

void InotifyReader::Publish(std::vector<std::u16string> aNames) {
  std::lock_guard lock(mLock);
  for (std::u16string& name : aNames)
    // A name without room in a whole buffer can't be told, and is longer than any path may be.
    if (name.size() < 0x4000) mNames.insert(std::move(name));
  mChanged.notify_all();
}

void InotifyReader::End(nsresult aResult) {
  std::lock_guard lock(mLock);
  mEnd = aResult;
  mChanged.notify_all();
}

void InotifyReader::NameDirectories() {
  mIsRestless = false;
  std::vector<std::u16string> names;
  for (const std::string& directory : mDirectories->TakeDirectories())
    names.push_back(directory.empty() ? u"." : vorel::NameToUtf16(directory) + u"/.");
  Publish(std::move(names));
}

int InotifyReader::UntilQuiet() const {
  if (!mIsRestless) return -1;
  const auto wait =
      std::chrono::ceil<std::chrono::milliseconds>(mLastEvent + kQuietSpell - Clock::now());
  return static_cast<int>(std::max(wait, 0ms).count());
}

void InotifyReader::Run() {
  mDirectories->Scan();
  NameDirectories();
  while (true) {
    std::array<pollfd, 2> waiting{{{mDirectories->Fd(), POLLIN, 0}, {mStop.get(), POLLIN, 0}}};
    (void)poll(waiting.data(), waiting.size(), UntilQuiet());
    if (waiting[1].revents) return;
    if (!waiting[0].revents) {
      if (UntilQuiet() == 0) NameDirectories();
      continue;
    }
    const bool goesOn = mDirectories->ReadEvents();
    std::vector<std::u16string> names;
    for (const std::string& name : mDirectories->TakeNames())
      names.push_back(vorel::NameToUtf16(name));
    Publish(std::move(names));
    if (!goesOn) {
      End(NS_ERROR_FILE_NOT_FOUND);
      return;
    }
    mLastEvent = Clock::now();
    if (!std::exchange(mIsRestless, true)) mUnrestStart = mLastEvent;
    const bool hasOverflown = mDirectories->TakeOverflow();
    if (hasOverflown) mDirectories->Scan();  // all directories count as touched by it
    // Together with names of changes, so that the receiver is not kept from acting on them.
    if (hasOverflown || mLastEvent > mUnrestStart + kLongestUnrest) NameDirectories();
  }
}

}  // namespace

std::unique_ptr<nsPlatformDirectoryReader> nsInotifyDirectoryChanges::NewReader() {
  return std::make_unique<InotifyReader>();
}

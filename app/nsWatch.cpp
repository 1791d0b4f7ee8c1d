#include "nsWatch.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iostream>
#include <optional>
#include <string_view>
#include <utility>

#include "nsFdWatch.h"
#include "nsHost.h"
#include "nsIFileSystemWatcher.h"
#include "nsIFileSystemWatcherOptions.h"
#include "nsILocalFile.h"
#include "nsIObserver.h"
#include "nsIObserverService.h"
#include "nsIRunnable.h"
#include "nsISystemFileSystemListener2.h"
#include "nsIThread.h"
#include "nsITimer.h"
#include "nsImplements.h"
#include "nsProcess.h"
#include "nsServiceNotice.h"
#include "nsServices.h"
#include "nsSignalWatch.h"
#include "nsString.h"
#include "nsUtf.h"
#include "nsVorelMethodCaller.h"

namespace {

constexpr char kWatcherContractID[] = "@vorel/system/filesystemwatcher;1";
constexpr char kUnwatchedTopic[] = "filesystemwatcher-unwatched";
constexpr uint32_t kRetry = 500;                          // ms
constexpr int kFailure = 1, kGone = 3, kNothingCame = 4;  // exit statuses

/// Controls of both kinds, and what changes the order of a line or ends it.
bool IsSteering(char16_t aUnit) {
  return aUnit < 0x20 || (aUnit >= 0x7f && aUnit <= 0x9f) || aUnit == 0x61c || aUnit == 0x200e ||
         aUnit == 0x200f || (aUnit >= 0x2028 && aUnit <= 0x202e) ||
         (aUnit >= 0x2066 && aUnit <= 0x2069);
}

/// Names of files are not to steer the terminal, or to end the line.
std::string Plain(std::u16string_view aText) {
  std::u16string text(aText);
  std::ranges::replace_if(text, IsSteering, u'\ufffd');
  return vorel::Utf16ToUtf8(text);
}

std::string Quoted(std::u16string_view aText) {
  constexpr std::u16string_view kSpecial = u"\"\\\b\f\n\r\t";
  constexpr std::string_view kNames = "\"\\bfnrt";
  std::string result = "\"";
  for (size_t i = 0; i < aText.size(); ++i) {
    const char16_t unit = aText[i];
    const auto isLow = [&](size_t aAt) {
      return aAt < aText.size() && (aText[aAt] & 0xfc00) == 0xdc00;
    };
    if (const size_t special = kSpecial.find(unit); special != kSpecial.npos) {
      (result += '\\') += kNames[special];
    } else if ((unit & 0xfc00) == 0xd800 && isLow(i + 1)) {
      result += vorel::Utf16ToUtf8(aText.substr(i++, 2));
    } else if (IsSteering(unit) || (unit & 0xf800) == 0xd800) {  // or half of a pair
      std::array<char, 8> text;
      (void)std::snprintf(text.data(), text.size(), "\\u%04x", unsigned{unit});
      result += text.data();
    } else {
      result += vorel::Utf16ToUtf8(aText.substr(i, 1));
    }
  }
  return result + '"';
}

/// "file:" and the directory, by the working directory as it is now.
std::string UrlOf(const std::string& aDirectory) {
  std::string path = std::filesystem::absolute(aDirectory).lexically_normal();
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  path.erase(0, path.find_first_not_of('/'));  // more than one would begin a host
  std::string url = "file:///";
  for (const char byte : path) {
    constexpr std::string_view kPlain = "/-_.~";
    if ((byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'z') ||
        (byte >= 'A' && byte <= 'Z') || kPlain.find(byte) != kPlain.npos) {
      url += byte;
    } else {
      std::array<char, 4> text;
      (void)std::snprintf(text.data(), text.size(), "%%%02X",
                          static_cast<unsigned>(static_cast<unsigned char>(byte)));
      url += text.data();
    }
  }
  return url;
}

std::string IsoTime(int64_t aMilliseconds) {
  using namespace std::chrono;
  const sys_time<milliseconds> time{milliseconds(aMilliseconds)};
  const auto day = floor<days>(time);
  const year_month_day date(day);
  const hh_mm_ss clock(time - day);
  std::array<char, 40> text;
  (void)std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ",
                      static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                      static_cast<unsigned>(date.day()), static_cast<int>(clock.hours().count()),
                      static_cast<int>(clock.minutes().count()),
                      static_cast<int>(clock.seconds().count()),
                      static_cast<int>(clock.subseconds().count()));
  return text.data();
}

class Timer {
 public:
  ~Timer() { Cancel(); }
  void Cancel() {
    if (mTimer) (void)mTimer->Cancel();
  }
  void Start(uint32_t aMilliseconds, std::function<void()> aFunction) {
    mFunction = std::move(aFunction);
    if (!mTimer) mTimer = do_CreateInstance<nsITimer>(NS_TIMER_CONTRACTID);
    const auto call = [](nsITimer*, void* aSelf) { static_cast<Timer*>(aSelf)->mFunction(); };
    if (mTimer)
      (void)mTimer->InitWithFuncCallback(call, this, aMilliseconds, nsITimer::TYPE_ONE_SHOT);
  }

 private:
  nsCOMPtr<nsITimer> mTimer;
  std::function<void()> mFunction;
};

class Root;

/// What all directories have in common: the options, the output, the end.
class Session {
 public:
  Session(nsHost& aHost, const nsWatchOptions& aOptions, bool aJson, bool aHasSeveral)
      : mOptions(aOptions), mJson(aJson), mHasSeveral(aHasSeveral), mHost(aHost) {}

  /// One line, written together with those that follow at once.
  void Print(const std::string& aLine);
  void Flush();
  void Complain(std::u16string_view aMessage) {
    Flush();
    std::cerr << "vorel: " << Plain(aMessage) << '\n';
  }
  /// The first one counts.
  void End(int aStatus) {
    if (!mStatus) mStatus = aStatus;
    mHost.LeaveRun();
  }
  /// With the first change. With a comparison, when all directories have told theirs: it would be
  /// told again.
  void EndOnce() {
    if (mOptions.mSince.empty() || mStarted == mRoots.size()) End(0);
  }
  bool HasEnded() const { return mStatus.has_value(); }
  int Status() const { return mStatus.value_or(0); }

  const nsWatchOptions& mOptions;
  const bool mJson, mHasSeveral;
  bool mHasChange = false;
  size_t mStarted = 0;  // directories
  std::vector<nsCOMPtr<Root>> mRoots;

 private:
  class Flusher final : public nsImplements<Flusher, nsIRunnable> {
   public:
    explicit Flusher(Session* aSession) : mSession(aSession) {}
    nsresult Run() override {
      if (mSession) mSession->Flush();
      return NS_OK;
    }
    Session* mSession;

   private:
    ~Flusher() override = default;
  };

  nsHost& mHost;
  std::string mOutput;
  std::optional<int> mStatus;
  nsCOMPtr<Flusher> mFlusher;
};

void Session::Print(const std::string& aLine) {
  (mOutput += aLine) += '\n';
  if (mFlusher) return;
  mFlusher = MakeRefCounted<Flusher>(this);
  (void)NS_DispatchToMainThread(mFlusher.get(), NS_DISPATCH_NORMAL);
}

void Session::Flush() {
  if (mFlusher) mFlusher->mSession = nullptr;
  mFlusher = nullptr;
  std::cout << std::exchange(mOutput, {}) << std::flush;
  if (!std::cout) End(kFailure);  // nobody reads it any more
}

class Root final : public nsImplements<Root, nsISystemFileSystemListener2> {
 public:
  Root(Session* aSession, std::string aDirectory)
      : mSession(aSession), mDirectory(std::move(aDirectory)) {}

  nsresult Start();
  void Stop() { (void)mWatcher->StopWatching(); }
  void Leave() {
    mSession = nullptr;
    mRetry.Cancel();
    mWatcher = nullptr;  // which holds this, its listener
  }
  std::u16string Path() const {
    nsString path;
    (void)mWatcher->GetWatchPath(path);
    return std::u16string(path.view());
  }
  /// Nothing is watched any more. Who reads the changes should not have to look among them for
  /// that.
  void Fail(uint32_t aCode, std::u16string_view aText, std::u16string_view aMessage, int aStatus);

  nsresult OnWatcherStarted() override;
  nsresult OnWatcherStopped() override { return PrintEvent("stopped", "", u"stopped"); }
  nsresult OnWatcherError(uint32_t aCode, const nsAString& aText) override;
  nsresult OnFileSystemChanged(const nsAString& aPath) override {
    return Tell("changed", NS_View(aPath), {});
  }
  nsresult OnFileSystemRemoved(const nsAString& aPath) override {
    return Tell("removed", NS_View(aPath), {});
  }
  nsresult OnFileSystemAdded(const nsAString& aPath) override {
    return Tell("added", NS_View(aPath), {});
  }
  nsresult OnFileSystemMoved(const nsAString& aOldPath, const nsAString& aNewPath) override {
    return Tell("moved", NS_View(aNewPath), NS_View(aOldPath));
  }

 private:
  struct Details {
    std::string mJson, mText;
  };

  ~Root() override = default;

  /// aMembers: what the object has besides, with a comma before each.
  nsresult PrintEvent(std::string_view aEvent, const std::string& aMembers,
                      std::u16string_view aText);
  nsresult Tell(std::string_view aKind, std::u16string_view aPath, std::u16string_view aFrom);
  Details ReadDetails(std::u16string_view aPath) const;
  void Retry(uint32_t aMilliseconds);

  Session* mSession;             // null once that is over: a report may still be on its way
  const std::string mDirectory;  // as it was given
  nsCOMPtr<nsIFileSystemWatcher> mWatcher;
  Timer mRetry;
  bool mIsWaiting = false, mHasStarted = false;
};

nsresult Root::Start() {
  if (!mWatcher) {
    nsresult rv;
    mWatcher = do_CreateInstance<nsIFileSystemWatcher>(kWatcherContractID, &rv);
    if (NS_FAILED(rv)) return rv;
    nsFileSystemWatcherOptions options;
    const auto copy = [](const std::vector<std::string>& aFrom, std::vector<nsString>* aTo) {
      for (const std::string& pattern : aFrom) aTo->emplace_back(vorel::NameToUtf16(pattern));
    };
    copy(mSession->mOptions.mExclude, &options.mExclude);
    copy(mSession->mOptions.mOnly, &options.mOnly);
    options.mSettle = mSession->mOptions.mSettle;
    options.mSince.Assign(vorel::NameToUtf16(mSession->mOptions.mSince));
    rv = mWatcher->Init(this, nsCString(UrlOf(mDirectory)), true);
    if (NS_FAILED(rv)) return rv;
    const auto more = do_QueryInterface<nsIFileSystemWatcherOptions>(mWatcher, &rv);
    if (NS_SUCCEEDED(rv)) rv = more->SetOptions(options);
    if (NS_FAILED(rv)) return rv;
  }
  return mWatcher->StartWatching();
}

nsresult Root::PrintEvent(std::string_view aEvent, const std::string& aMembers,
                          std::u16string_view aText) {
  if (!mSession) return NS_OK;
  if (!mSession->mJson) {
    mSession->Print(Plain(aText));
    return NS_OK;
  }
  std::string line = "{";
  if (mSession->mHasSeveral) line += "\"root\":" + Quoted(vorel::NameToUtf16(mDirectory)) + ",";
  mSession->Print(((line += "\"event\":\"") += aEvent) += "\"" + aMembers + "}");
  return NS_OK;
}

void Root::Fail(uint32_t aCode, std::u16string_view aText, std::u16string_view aMessage,
                int aStatus) {
  if (mSession->mJson)
    (void)PrintEvent("error", ",\"code\":" + std::to_string(aCode) + ",\"text\":" + Quoted(aText),
                     u"");
  mSession->Complain(aMessage);
  mSession->End(aStatus);
}

nsresult Root::OnWatcherStarted() {
  if (!mSession) return NS_OK;
  mIsWaiting = false;
  (void)PrintEvent("started", "", u"watching " + Path());
  // What has been told before counts as told from now on.
  if (!std::exchange(mHasStarted, true)) ++mSession->mStarted;
  if (mSession->mOptions.mOnce && mSession->mHasChange) mSession->EndOnce();
  return NS_OK;
}

nsresult Root::OnWatcherError(uint32_t aCode, const nsAString& aText) {
  if (!mSession) return NS_OK;
  const std::u16string text(NS_View(aText));
  const std::string members = ",\"code\":" + std::to_string(aCode) + ",\"text\":" + Quoted(text);
  if (aCode == ERROR_INCOMPLETE) return PrintEvent("error", members, u"error    " + text);
  if (aCode == ERROR_FULL_LISTING)
    return PrintEvent(
        "error", members,
        u"there is nothing to compare with under the name " + text + u": everything is listed");
  const bool isOfRoot = aCode == ERROR_ROOT_MISSING || aCode == ERROR_ROOT_GONE;
  const std::u16string message = aCode == ERROR_ROOT_MISSING ? text + u" does not exist"
                                 : aCode == ERROR_ROOT_GONE
                                     ? text + u" was deleted, moved, replaced or unmounted"
                                     : u"error " + NS_ToUtf16(std::to_string(aCode)) + u" " + text;
  if (!mSession->mOptions.mWait || !isOfRoot) {
    Fail(aCode, text, message, aCode == ERROR_ROOT_GONE ? kGone : kFailure);
    return NS_OK;
  }
  const bool isTold = aCode == ERROR_ROOT_MISSING && mIsWaiting;
  mIsWaiting = true;
  Retry(aCode == ERROR_ROOT_GONE ? 0 : kRetry);
  return isTold ? NS_OK : PrintEvent("error", members, message);
}

// Not from within the report.
void Root::Retry(uint32_t aMilliseconds) {
  mRetry.Start(0, [this, aMilliseconds] {
    Stop();
    mRetry.Start(aMilliseconds, [this] { (void)Start(); });
  });
}

Root::Details Root::ReadDetails(std::u16string_view aPath) const {
  const bool isDirectory = aPath.ends_with(u'/');
  if (isDirectory) aPath.remove_suffix(1);
  const auto file = do_CreateInstance<nsILocalFile>(NS_LOCALFILE_CONTRACTID);
  int64_t time = 0, size = 0;
  if (!file || NS_FAILED(file->InitWithPath(nsString(Path() + u"/" + std::u16string(aPath)))) ||
      NS_FAILED(file->GetLastModifiedTimeOfLink(&time)) ||
      NS_FAILED(file->GetFileSizeOfLink(&size)))
    return {};  // it has gone again
  Details details{",\"time\":\"" + IsoTime(time) + "\"", "  " + IsoTime(time)};
  if (isDirectory) return details;  // of which there is no size to tell
  const std::string text = std::to_string(size);
  return {",\"size\":" + text + details.mJson, "  " + text + details.mText};
}

nsresult Root::Tell(std::string_view aKind, std::u16string_view aPath, std::u16string_view aFrom) {
  if (!mSession) return NS_OK;
  // With a comparison, what has been found when the end comes is still told, as it counts as that.
  if (mSession->HasEnded() && mSession->mOptions.mSince.empty()) return NS_OK;
  Details details;
  if (mSession->mOptions.mDetails && aKind != "removed") details = ReadDetails(aPath);
  if (mSession->mJson) {
    std::string members = aFrom.empty() ? "" : ",\"from\":" + Quoted(aFrom);
    members += aFrom.empty() ? ",\"path\":" : ",\"to\":";
    (void)PrintEvent(aKind, members + Quoted(aPath) + details.mJson, u"");
  } else {
    std::u16string base;
    if (mSession->mHasSeveral) {
      base = vorel::NameToUtf16(mDirectory);
      while (base.ends_with(u'/')) base.pop_back();
      base += u'/';
    }
    std::u16string text = NS_ToUtf16(aKind);
    text.resize(9, u' ');
    if (!aFrom.empty()) ((text += base) += aFrom) += u" > ";
    ((text += base) += aPath) += NS_ToUtf16(details.mText);
    (void)PrintEvent(aKind, "", text);
  }
  mSession->mHasChange = true;
  if (mSession->mOptions.mOnce) mSession->EndOnce();
  return NS_OK;
}

/// A root that is there but can't be watched is not its listener's to hear of.
class Unwatched final : public nsImplements<Unwatched, nsIObserver> {
 public:
  explicit Unwatched(Session& aSession) : mSession(aSession) {}
  nsresult Observe(nsISupports*, const char*, const char16_t* aPath) override {
    const std::u16string path = aPath ? aPath : u"";
    for (const auto& root : mSession.mRoots)
      if (root->Path() == path) root->Fail(1, path, path + u" can't be watched", kFailure);
    return NS_OK;
  }

 private:
  ~Unwatched() override = default;
  Session& mSession;
};

}  // namespace

int NS_Watch(nsHost& aHost, const std::vector<std::string>& aDirectories,
             const nsWatchOptions& aOptions, bool aJson, nsSignalWatch& aSignals,
             nsServiceNotice& aNotice) {
  Session session(aHost, aOptions, aJson, aDirectories.size() > 1);
  if (!aOptions.mSince.empty() && aHost.Options().mProfileDirectory.empty()) {
    session.Complain(u"--since needs a profile: there is neither --profile nor a home directory");
    return kFailure;
  }
  aSignals.Call([&](int) { session.End(0); });
  // Nobody reads the changes any more.
  std::unique_ptr<nsFdWatch> reader;
  if (const int output = vorel::process::OutputPipe(); output >= 0) {
    nsCOMPtr<nsIThread> mainThread;
    (void)NS_GetMainThread(mainThread.getter_AddRefs());
    (void)nsFdWatch::Start(
        output, mainThread.get(), [&] { session.End(kFailure); }, &reader);
  }
  const auto unwatched = MakeRefCounted<Unwatched>(session);
  const auto observers = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID);
  if (observers) (void)observers->AddObserver(unwatched.get(), kUnwatchedTopic, false);

  for (const std::string& directory : aDirectories)
    session.mRoots.push_back(MakeRefCounted<Root>(&session, directory));
  for (const auto& root : session.mRoots) {
    if (const nsresult rv = root->Start(); NS_FAILED(rv)) {
      session.Complain(u"the watch can't be started");
      session.End(kFailure);
      break;
    }
  }
  Timer timeout;
  if (aOptions.mTimeout > 0)
    timeout.Start(static_cast<uint32_t>(std::ceil(aOptions.mTimeout * 1000)),
                  [&] { session.End(aOptions.mOnce && !session.mHasChange ? kNothingCame : 0); });
  if (!session.HasEnded()) {
    aNotice.Ready();
    (void)aHost.Run();
  }
  aHost.Quit();  // which ends the watches
  if (observers) (void)observers->RemoveObserver(unwatched.get(), kUnwatchedTopic);
  session.Flush();
  for (const auto& root : session.mRoots) root->Leave();
  session.mRoots.clear();
  aSignals.Reset();
  return session.Status();
}

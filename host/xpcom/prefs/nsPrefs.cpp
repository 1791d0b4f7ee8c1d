#include "nsPrefs.h"

#include <algorithm>
#include <filesystem>

#include "nsHostMessage.h"
#include "nsNativeFile.h"
#include "nsServices.h"
#include "nsString.h"

namespace {

// Long enough for a burst of changes to become one file, short enough to lose little.
constexpr uint32_t kSaveDelayMilliseconds = 500;
// After a save that has failed, twice as long after each further one.
constexpr uint32_t kFirstRetryMilliseconds = 2000, kLastRetryMilliseconds = 60'000;
// Of a file that is none at all; the others are counted.
constexpr size_t kMostErrorsTold = 10;
// Such a file holds something else, and what of it would pass for a preference is none.
constexpr size_t kMostErrors = 1000;

std::string Because(nsresult aRv) { return std::string(NS_ResultName(aRv)); }

}  // namespace

const nsPrefs::Pref* nsPrefs::Find(std::string_view aName) const {
  const auto found = mPrefs.find(aName);
  return found == mPrefs.end() ? nullptr : &found->second;
}

// Makes a change, drops a preference that has no value left, and tells who watches, if what is in
// force has changed.
template <class Change>
void nsPrefs::Apply(Map::iterator aPref, Change aChange) {
  Pref& pref = aPref->second;
  const auto copy = [&] {
    return pref.Value() ? std::optional<nsPrefValue>(*pref.Value()) : std::nullopt;
  };
  const bool isWatched = !mWatches.empty();
  const auto userBefore = mUserFile.empty() ? std::nullopt : pref.mUser;
  const auto before = isWatched ? copy() : std::nullopt;
  aChange(pref);
  const bool isChanged = isWatched && before != copy();
  if (!mUserFile.empty() && userBefore != pref.mUser) SaveSoon();
  const std::string name = isChanged ? aPref->first : std::string();
  if (!pref.mDefault && !pref.mUser) mPrefs.erase(aPref);
  if (isChanged) Notify(name);
}

nsresult nsPrefs::Set(std::string_view aName, nsPrefValue aValue, bool aIsDefault) {
  // Our own files are in order: then each name belongs at the end.
  const bool isLast = mPrefs.empty() || mPrefs.rbegin()->first < aName;
  auto pref = isLast ? mPrefs.end() : mPrefs.lower_bound(aName);
  if (pref == mPrefs.end() || pref->first != aName) {
    pref = mPrefs.emplace_hint(pref, aName, Pref());
  } else {
    for (const auto* value : {&pref->second.mDefault, &pref->second.mUser})
      if (*value && (*value)->index() != aValue.index()) return NS_ERROR_UNEXPECTED;
  }
  Apply(pref, [&](Pref& aPref) {
    if (aIsDefault)
      aPref.mDefault = std::move(aValue);
    else if (aPref.mDefault == aValue)
      aPref.mUser.reset();
    else
      aPref.mUser = std::move(aValue);
  });
  return NS_OK;
}

void nsPrefs::ClearUser(std::string_view aName) {
  if (const auto pref = mPrefs.find(aName); pref != mPrefs.end())
    Apply(pref, [](Pref& aPref) { aPref.mUser.reset(); });
}

nsresult nsPrefs::SetLocked(std::string_view aName, bool aLocked) {
  const auto pref = mPrefs.find(aName);
  if (pref == mPrefs.end()) return NS_ERROR_UNEXPECTED;
  Apply(pref, [&](Pref& aPref) { aPref.mLocked = aLocked; });
  return NS_OK;
}

void nsPrefs::Remove(std::string_view aName) {
  if (const auto pref = mPrefs.find(aName); pref != mPrefs.end())
    Apply(pref, [](Pref& aPref) { aPref = Pref(); });
}

std::vector<std::string> nsPrefs::NamesBelow(std::string_view aPrefix) const {
  std::vector<std::string> names;
  for (auto pref = mPrefs.lower_bound(aPrefix);
       pref != mPrefs.end() && pref->first.starts_with(aPrefix); ++pref)
    names.push_back(pref->first);
  return names;
}

nsresult nsPrefs::AddObserver(nsIPrefBranch* aBranch, std::string aRoot, std::string aDomain,
                              nsIObserver* aObserver, bool aWeak) {
  nsObserverRef observer;
  const nsresult rv = nsObserverRef::Make(aObserver, aWeak, &observer);
  if (NS_SUCCEEDED(rv))
    mWatches.push_back({nsCOMPtr<nsIPrefBranch>(aBranch), std::move(aRoot), std::move(aDomain),
                        std::move(observer)});
  return rv;
}

nsresult nsPrefs::RemoveObserver(std::string_view aRoot, std::string_view aDomain,
                                 nsIObserver* aObserver) {
  for (auto watch = mWatches.begin(); watch != mWatches.end(); ++watch) {
    const auto observer = watch->mObserver.Get();
    if (watch->mRoot != aRoot || watch->mDomain != aDomain || !observer ||
        !NS_SameObject(observer.get(), aObserver))
      continue;
    const Watch removed = std::move(*watch);  // dropped when the list is whole again
    mWatches.erase(watch);
    return NS_OK;
  }
  return NS_ERROR_FAILURE;
}

void nsPrefs::Notify(const std::string& aName) {
  std::erase_if(mWatches, [](const Watch& aWatch) { return !aWatch.mObserver.Get(); });
  // Observers may add and remove observers.
  for (const Watch& watch : std::vector<Watch>(mWatches)) {
    const auto observer = watch.mObserver.Get();
    if (!observer || !aName.starts_with(watch.mDomain)) continue;
    const auto name = NS_ToUtf16(std::string_view(aName).substr(watch.mRoot.size()));
    (void)observer->Observe(watch.mBranch.get(), "nsPref:changed", name.c_str());
  }
}

// The number of errors.
size_t nsPrefs::Parse(const std::string& aPath, std::string_view aContents) {
  size_t errors = 0;
  NS_ParsePrefs(aContents, {[&](bool aIsUser, std::string aName, nsPrefValue aValue) {
                              return NS_SUCCEEDED(Set(aName, std::move(aValue), !aIsUser))
                                         ? std::string()
                                         : aName + " has a value of another type";
                            },
                            [&](size_t aLine, const std::string& aWhat) {
                              if (++errors > kMostErrorsTold) return errors < kMostErrors;
                              NS_HostMessage(eHostError,
                                             aPath + ":" + std::to_string(aLine) + ": " + aWhat);
                              return true;
                            }});
  if (errors >= kMostErrors)
    NS_HostMessage(eHostError, aPath + ": too many lines are wrong, the rest is not read");
  else if (errors > kMostErrorsTold)
    NS_HostMessage(eHostError, aPath + ": " + std::to_string(errors - kMostErrorsTold) +
                                   " more lines are wrong");
  return errors;
}

nsresult nsPrefs::ReadFile(const std::string& aPath) {
  std::string contents;
  const nsresult rv = NS_ReadFile(aPath, &contents, kConfigurationLimit, nsFileKind::eRegular);
  if (NS_SUCCEEDED(rv)) (void)Parse(aPath, contents);
  return rv;
}

void nsPrefs::ReadDirectory(const std::string& aDirectory) {
  std::error_code error;
  std::vector<std::string> paths;
  std::filesystem::directory_iterator entry(aDirectory, error);
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error))
    if (entry->path().extension() == ".js") paths.push_back(entry->path().native());
  if (error && error != std::errc::no_such_file_or_directory)
    NS_HostMessage(eHostError, aDirectory + ": " + error.message());
  std::sort(paths.begin(), paths.end());
  for (const std::string& path : paths)
    if (const nsresult rv = ReadFile(path); NS_FAILED(rv))
      NS_HostMessage(eHostError, path + ": " + Because(rv));
}

void nsPrefs::ReadUserFile(const std::string& aPath, bool aReadOnly) {
  std::string contents;
  const nsresult rv = NS_ReadFile(aPath, &contents, kConfigurationLimit, nsFileKind::eRegular);
  if (NS_FAILED(rv) && rv != NS_ERROR_FILE_NOT_FOUND) {
    NS_HostMessage(eHostError, aPath + ": " + Because(rv) + ". Changes are not saved.");
    mNotKept = rv;
    return;
  }
  const bool isDamaged = Parse(aPath, contents) > 0;
  if (aReadOnly) return;
  if (isDamaged) {
    std::string aside;
    std::error_code error;
    int number = 0;
    do aside = aPath + ".damaged" + (number ? "." + std::to_string(number) : "");
    while (std::filesystem::exists(aside, error) && ++number < 100);
    if (const nsresult kept = NS_ReplaceFile(aside, contents); NS_FAILED(kept)) {
      NS_HostMessage(eHostError, aside + ": " + Because(kept) + ". Changes are not saved.");
      mNotKept = kept;
      return;
    }
    NS_HostMessage(eHostWarning, aPath + " is damaged: its old contents are in " + aside + ".");
  }
  mUserFile = aPath;
  if (isDamaged) SaveSoon();
}

void nsPrefs::SaveSoon() {
  mIsDirty = true;
  SaveIn(kSaveDelayMilliseconds);
}

void nsPrefs::SaveIn(uint32_t aMilliseconds) {
  if (mTimer) return;
  mTimer = do_CreateInstance<nsITimer>(NS_TIMER_CONTRACTID);
  const auto save = [](nsITimer*, void* aSelf) { (void)static_cast<nsPrefs*>(aSelf)->Save(); };
  // Without a timer they are saved at the end.
  if (mTimer &&
      NS_FAILED(mTimer->InitWithFuncCallback(save, this, aMilliseconds, nsITimer::TYPE_ONE_SHOT)))
    mTimer = nullptr;
}

nsresult nsPrefs::SaveTo(const std::string& aPath) const {
  std::string text =
      "// The preferences of this profile. The host writes this file anew: what is changed here "
      "while it runs\n"
      "// is lost.\n\n";
  for (const auto& [name, pref] : mPrefs)
    if (pref.mUser) text += NS_FormatUserPref(name, *pref.mUser);
  const nsresult rv = NS_ReplaceFile(aPath, text);
  if (NS_FAILED(rv)) NS_HostMessage(eHostError, aPath + ": " + Because(rv) + ". It is not saved.");
  return rv;
}

nsresult nsPrefs::Save() {
  if (const auto timer = std::exchange(mTimer, nullptr)) (void)timer->Cancel();
  if (mUserFile.empty()) return mNotKept;
  if (!mIsDirty) return NS_OK;
  std::string reason;
  nsresult rv = mGuard ? mGuard(&reason) : NS_OK;
  if (NS_FAILED(rv))
    NS_HostMessage(eHostError, mUserFile + ": it is not saved. " + reason);
  else
    rv = SaveTo(mUserFile);
  if (NS_SUCCEEDED(rv)) {
    mIsDirty = false;
    mRetryDelay = 0;
    return rv;
  }
  // A disk that is full now may have room again, and nobody may change anything until then.
  mRetryDelay = std::clamp(2 * mRetryDelay, kFirstRetryMilliseconds, kLastRetryMilliseconds);
  SaveIn(mRetryDelay);
  return rv;
}

void nsPrefs::Shutdown() {
  (void)Save();
  if (const auto timer = std::exchange(mTimer, nullptr)) (void)timer->Cancel();
  mGuard = nullptr;
  mUserFile.clear();
  std::vector<Watch>().swap(mWatches);
}

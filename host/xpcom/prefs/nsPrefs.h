// All preferences: their values, who watches them, and their files.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "nsIPrefBranch.h"
#include "nsITimer.h"
#include "nsObserverService.h"
#include "nsPrefFile.h"

/// Names are whole names here. On the thread that made it.
class nsPrefs {
 public:
  struct Pref {
    std::optional<nsPrefValue> mDefault, mUser;
    bool mLocked = false;
    /// What is in force: the user's value, unless there is none or the preference is locked.
    const nsPrefValue* Value() const {
      return mUser && !mLocked ? &*mUser : mDefault ? &*mDefault : nullptr;
    }
  };
  using Map = std::map<std::string, Pref, std::less<>>;

  nsPrefs() = default;
  nsPrefs(const nsPrefs&) = delete;
  nsPrefs& operator=(const nsPrefs&) = delete;

  bool IsOnThread() const { return std::this_thread::get_id() == mThread; }
  const Map& All() const { return mPrefs; }
  /// Null for one that has neither value.
  const Pref* Find(std::string_view aName) const;
  /// NS_ERROR_UNEXPECTED for a value of another type than it has. A user's value that is the
  /// default is none.
  nsresult Set(std::string_view aName, nsPrefValue aValue, bool aIsDefault);
  void ClearUser(std::string_view aName);
  /// NS_ERROR_UNEXPECTED for one that is not there.
  nsresult SetLocked(std::string_view aName, bool aLocked);
  void Remove(std::string_view aName);
  /// The names that begin so, with their beginning.
  std::vector<std::string> NamesBelow(std::string_view aPrefix) const;

  // Watching. aDomain is the beginning of the names that are meant; observers hear names without
  // the branch's root.
  nsresult AddObserver(nsIPrefBranch* aBranch, std::string aRoot, std::string aDomain,
                       nsIObserver* aObserver, bool aWeak);
  /// NS_ERROR_FAILURE for one that is not there.
  nsresult RemoveObserver(std::string_view aRoot, std::string_view aDomain, nsIObserver* aObserver);

  // Files. What is wrong in one is a message with file and line.
  /// The *.js of a directory, in the order of their names; none if it is not there.
  void ReadDirectory(const std::string& aDirectory);
  nsresult ReadFile(const std::string& aPath);
  /// Reads the user's file and keeps it up to date from now on, unless that is forbidden. A damaged
  /// one is set aside first, so that nothing is lost; one that can't be read stays as it is, and
  /// nothing is written.
  void ReadUserFile(const std::string& aPath, bool aReadOnly);
  /// Writes the user's file if something has changed. Success when there is none to write; the
  /// reader's result when there is one that could not be read.
  nsresult Save();
  /// Called before each save of the user's file; a failure, with a sentence, is that of the save.
  void SetGuard(std::function<nsresult(std::string*)> aGuard) { mGuard = std::move(aGuard); }
  /// Writes all of the user's values to another file.
  nsresult SaveTo(const std::string& aPath) const;
  /// Saves, and forgets observers and the user's file.
  void Shutdown();

 private:
  struct Watch {
    nsCOMPtr<nsIPrefBranch> mBranch;
    std::string mRoot, mDomain;
    nsObserverRef mObserver;
  };

  template <class Change>
  void Apply(Map::iterator aPref, Change aChange);
  size_t Parse(const std::string& aPath, std::string_view aContents);
  void Notify(const std::string& aName);
  void SaveSoon();
  void SaveIn(uint32_t aMilliseconds);

  const std::thread::id mThread = std::this_thread::get_id();
  Map mPrefs;
  std::vector<Watch> mWatches;
  std::string mUserFile;      // empty: nothing is kept
  nsresult mNotKept = NS_OK;  // why, when that is a failure
  std::function<nsresult(std::string*)> mGuard;
  bool mIsDirty = false;
  uint32_t mRetryDelay = 0;  // milliseconds; 0 when the last save was a success
  nsCOMPtr<nsITimer> mTimer;
};

// Between a watch and its listener: leaves out what is not wanted, and waits until it has settled.
#pragma once

#include <deque>
#include <functional>
#include <list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "nsCOMPtr.h"
#include "nsIFileSystemWatcherOptions.h"
#include "nsISystemFileSystemListener2.h"
#include "nsITimer.h"
#include "nsImplements.h"

/// A pattern of names or paths, as nsFileSystemWatcherOptions has them. A path is relative, with
/// "/", and has none at its end.
class nsSystemFileSystemPattern {
 public:
  explicit nsSystemFileSystemPattern(std::u16string_view aText);
  bool Fits(std::u16string_view aPath) const;

 private:
  enum Kind : uint8_t { eUnit, eAnyUnit, eAnyInName, eAny, eMayEnter, eAnyDirectories };
  struct Step {
    Kind mKind;
    char16_t mUnit;
  };
  std::vector<Step> mSteps;
  bool mIsPath;
};

/// The listener that a watch sees; calls another one, on the same thread.
class nsSystemFileSystemFilter final
    : public nsImplements<nsSystemFileSystemFilter, nsISystemFileSystemListener2> {
 public:
  /// aWhenTold is called after OnWatcherStarted whenever nothing waits to be told any more.
  nsSystemFileSystemFilter(nsISystemFileSystemListener* aListener,
                           const nsFileSystemWatcherOptions& aOptions,
                           std::function<void()> aWhenTold = nullptr);

  nsresult OnWatcherStarted() override;
  nsresult OnWatcherStopped() override;
  nsresult OnWatcherError(uint32_t aCode, const nsAString& aText) override;
  nsresult OnFileSystemChanged(const nsAString& aPath) override;
  nsresult OnFileSystemRemoved(const nsAString& aPath) override;
  nsresult OnFileSystemAdded(const nsAString& aPath) override;
  nsresult OnFileSystemMoved(const nsAString& aOldPath, const nsAString& aNewPath) override;

  static constexpr uint32_t kLongestSettle = 3'600'000;  // ms

 private:
  /// What has happened at a path since something was told of it last.
  struct Place {
    bool mHad = false;        // was there when something was told last
    bool mIsThere = false;    // is something there now?
    bool mIsNew = false;      // that has never been told
    bool mIsChanged = false;  // that is not as it was told
    std::u16string mOrigin;   // where it was when it was told last
    bool mHasTurn = false;
    uint64_t mDue = 0;  // the tick
    std::list<std::u16string>::iterator mTurn;
  };

  struct Line {
    enum Kind { eChanged, eRemoved, eAdded, eMoved } mKind;
    std::u16string mPath;
    std::u16string mFrom{};  // of a move
  };

  ~nsSystemFileSystemFilter() override;

  bool IsWanted(std::u16string_view aPath) const;
  nsresult TellMove(const nsAString& aOldPath, const nsAString& aNewPath);
  Place& Touch(const std::u16string& aPath, bool aHad);
  void Wait(const std::u16string& aPath, Place& aPlace);
  void Leave(const std::u16string& aPath, Place& aPlace);
  void Settle(const std::u16string& aPath);
  void TellPlace(const std::u16string& aPath, bool aHasSettled);
  void Tick();
  void TellAll();
  void TellLines();

  const nsCOMPtr<nsISystemFileSystemListener> mListener;
  std::vector<nsSystemFileSystemPattern> mExclude, mOnly;
  const uint32_t mSettle;
  const std::function<void()> mWhenTold;
  bool mIsStarted = false;

  // Time is counted in ticks of a timer that runs while something waits.
  std::unordered_map<std::u16string, Place> mPlaces;
  std::list<std::u16string> mTurns;  // of those that wait, in the order in which they are due
  std::unordered_map<std::u16string, std::u16string> mWhere;  // where that of a place has gone
  nsCOMPtr<nsITimer> mTimer;
  uint64_t mTick = 0;
  std::deque<Line> mLines;  // what has settled: the listener may come back in a call
};

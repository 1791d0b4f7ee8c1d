#include "nsSystemFileSystemFilter.h"

#include <algorithm>
#include <utility>

#include "nsServices.h"
#include "nsString.h"

namespace {

// So many ticks make the time to settle; a change waits for one more, as the first is begun.
constexpr uint32_t kTicks = 8;

bool FitsOne(const std::vector<nsSystemFileSystemPattern>& aPatterns, std::u16string_view aPath) {
  return std::ranges::any_of(
      aPatterns, [&](const nsSystemFileSystemPattern& aPattern) { return aPattern.Fits(aPath); });
}

std::u16string_view WithoutEnd(std::u16string_view aPath) {
  if (aPath.ends_with(u'/')) aPath.remove_suffix(1);
  return aPath;
}

}  // namespace

// ---- Patterns

nsSystemFileSystemPattern::nsSystemFileSystemPattern(std::u16string_view aText)
    : mIsPath(aText.find(u'/') != aText.npos) {
  const auto step = [&](std::u16string_view aBeginning, std::initializer_list<Kind> aKinds) {
    if (!aText.starts_with(aBeginning)) return false;
    aText.remove_prefix(aBeginning.size());
    for (const Kind kind : aKinds) mSteps.push_back({kind, 0});
    return true;
  };
  while (!aText.empty()) {
    if (step(u"**/", {eMayEnter, eAnyDirectories}) || step(u"**", {eAny}) ||
        step(u"*", {eAnyInName}) || step(u"?", {eAnyUnit}))
      continue;
    mSteps.push_back({eUnit, aText.front()});
    aText.remove_prefix(1);
  }
}

bool nsSystemFileSystemPattern::Fits(std::u16string_view aPath) const {
  if (!mIsPath) aPath.remove_prefix(aPath.rfind(u'/') + 1);
  // All steps that the text so far can have led to: none is tried twice, whatever the pattern.
  std::vector<bool> at(mSteps.size() + 2), next;
  const auto skip = [&](std::vector<bool>& aSteps) {  // those that need nothing
    for (size_t i = 0; i < mSteps.size(); ++i) {
      const Kind kind = mSteps[i].mKind;
      if (!aSteps[i] || (kind != eAnyInName && kind != eAny && kind != eMayEnter)) continue;
      aSteps[i + 1] = true;
      if (kind == eMayEnter) aSteps[i + 2] = true;
    }
  };
  at[0] = true;
  skip(at);
  for (const char16_t unit : aPath) {
    next.assign(at.size(), false);
    for (size_t i = 0; i < mSteps.size(); ++i) {
      if (!at[i]) continue;
      const Kind kind = mSteps[i].mKind;
      if (kind == eUnit  ? unit == mSteps[i].mUnit
          : unit == u'/' ? kind == eAnyDirectories
                         : kind == eAnyUnit)
        next[i + 1] = true;
      if (kind == eAny || kind == eAnyDirectories || (kind == eAnyInName && unit != u'/'))
        next[i] = true;
    }
    at.swap(next);
    skip(at);
  }
  return at[mSteps.size()];
}

// ---- What is heard

nsSystemFileSystemFilter::nsSystemFileSystemFilter(nsISystemFileSystemListener* aListener,
                                                   const nsFileSystemWatcherOptions& aOptions,
                                                   std::function<void()> aWhenTold)
    : mListener(aListener), mSettle(aOptions.mSettle), mWhenTold(std::move(aWhenTold)) {
  for (const nsString& pattern : aOptions.mExclude) mExclude.emplace_back(pattern.view());
  for (const nsString& pattern : aOptions.mOnly) mOnly.emplace_back(pattern.view());
}

nsSystemFileSystemFilter::~nsSystemFileSystemFilter() {
  if (mTimer) (void)mTimer->Cancel();
}

// What lies below something left out is left out.
bool nsSystemFileSystemFilter::IsWanted(std::u16string_view aPath) const {
  const std::u16string_view path = WithoutEnd(aPath);
  if (!mExclude.empty()) {
    for (size_t end = path.find(u'/'); end != path.npos; end = path.find(u'/', end + 1))
      if (FitsOne(mExclude, path.substr(0, end))) return false;
    if (FitsOne(mExclude, path)) return false;
  }
  return mOnly.empty() || FitsOne(mOnly, path);
}

nsresult nsSystemFileSystemFilter::OnWatcherStarted() {
  mIsStarted = true;
  const nsresult rv = mListener->OnWatcherStarted();
  if (mTurns.empty() && mWhenTold) mWhenTold();
  return rv;
}

nsresult nsSystemFileSystemFilter::OnWatcherStopped() {
  TellAll();
  mIsStarted = false;
  return mListener->OnWatcherStopped();
}

nsresult nsSystemFileSystemFilter::OnWatcherError(uint32_t aCode, const nsAString& aText) {
  if (aCode == ERROR_ROOT_GONE) TellAll();
  return mListener->OnWatcherError(aCode, aText);
}

nsresult nsSystemFileSystemFilter::OnFileSystemChanged(const nsAString& aPath) {
  if (!IsWanted(NS_View(aPath))) return NS_OK;
  if (mSettle == 0) return mListener->OnFileSystemChanged(aPath);
  Place& place = Touch(std::u16string(NS_View(aPath)), true);
  if (!place.mIsThere) place.mIsNew = true;
  place.mIsThere = place.mIsChanged = true;
  return NS_OK;
}

nsresult nsSystemFileSystemFilter::OnFileSystemRemoved(const nsAString& aPath) {
  if (!IsWanted(NS_View(aPath))) return NS_OK;
  if (mSettle == 0) return mListener->OnFileSystemRemoved(aPath);
  const std::u16string path(NS_View(aPath));
  Leave(path, Touch(path, true));
  return NS_OK;
}

nsresult nsSystemFileSystemFilter::OnFileSystemAdded(const nsAString& aPath) {
  if (!IsWanted(NS_View(aPath))) return NS_OK;
  if (mSettle == 0) return mListener->OnFileSystemAdded(aPath);
  const std::u16string path(NS_View(aPath));
  Place& place = Touch(path, false);
  Leave(path, place);
  place.mIsThere = place.mIsNew = true;
  return NS_OK;
}

nsresult nsSystemFileSystemFilter::OnFileSystemMoved(const nsAString& aOldPath,
                                                     const nsAString& aNewPath) {
  if (!IsWanted(NS_View(aNewPath))) return OnFileSystemRemoved(aOldPath);
  if (!IsWanted(NS_View(aOldPath))) return OnFileSystemAdded(aNewPath);
  if (mSettle == 0) return TellMove(aOldPath, aNewPath);
  const std::u16string oldPath(NS_View(aOldPath)), newPath(NS_View(aNewPath));
  if (oldPath == newPath) return NS_OK;
  Place& from = Touch(oldPath, true);
  Place& to = Touch(newPath, false);
  Leave(newPath, to);
  to.mIsNew = !from.mIsThere || from.mIsNew;
  to.mIsThere = true;
  to.mIsChanged = from.mIsChanged;
  to.mOrigin = from.mOrigin;
  from.mIsThere = from.mIsChanged = false;
  if (to.mIsNew) return NS_OK;
  if (to.mOrigin == newPath)
    mWhere.erase(newPath);
  else
    mWhere[to.mOrigin] = newPath;
  return NS_OK;
}

// As the service does for its plain clients.
nsresult nsSystemFileSystemFilter::TellMove(const nsAString& aOldPath, const nsAString& aNewPath) {
  if (const auto listener = do_QueryInterface<nsISystemFileSystemListener2>(mListener))
    return listener->OnFileSystemMoved(aOldPath, aNewPath);
  (void)mListener->OnFileSystemRemoved(aOldPath);
  return mListener->OnFileSystemAdded(aNewPath);
}

// ---- What waits

/// The place of a path, which waits anew. aHad: whether there was something, if nothing waits
/// there.
nsSystemFileSystemFilter::Place& nsSystemFileSystemFilter::Touch(const std::u16string& aPath,
                                                                 bool aHad) {
  const auto [at, isNew] = mPlaces.try_emplace(aPath);
  Place& place = at->second;
  if (isNew && aHad) {
    place.mHad = place.mIsThere = true;
    place.mOrigin = aPath;
  }
  Wait(aPath, place);
  return place;
}

void nsSystemFileSystemFilter::Wait(const std::u16string& aPath, Place& aPlace) {
  if (!mTimer) {
    mTimer = do_CreateInstance<nsITimer>(NS_TIMER_CONTRACTID);
    const auto tick = [](nsITimer*, void* aSelf) {
      static_cast<nsSystemFileSystemFilter*>(aSelf)->Tick();
    };
    if (mTimer)
      (void)mTimer->InitWithFuncCallback(tick, this, std::max(mSettle / kTicks, 1u),
                                         nsITimer::TYPE_REPEATING_SLACK);
  }
  if (aPlace.mHasTurn) mTurns.erase(aPlace.mTurn);
  aPlace.mHasTurn = true;
  aPlace.mTurn = mTurns.insert(mTurns.end(), aPath);
  aPlace.mDue = mTick + std::min(mSettle, kTicks) + 1;
}

/// What is there has gone for good. Where it came from, that is now to be told.
void nsSystemFileSystemFilter::Leave(const std::u16string& aPath, Place& aPlace) {
  if (aPlace.mIsThere && !aPlace.mIsNew && aPlace.mOrigin != aPath) {
    mWhere.erase(aPlace.mOrigin);
    if (const auto origin = mPlaces.find(aPlace.mOrigin);
        origin != mPlaces.end() && !origin->second.mHasTurn)
      Wait(origin->first, origin->second);
  }
  aPlace.mIsThere = aPlace.mIsChanged = false;
}

void nsSystemFileSystemFilter::Settle(const std::u16string& aPath) {
  Place& place = mPlaces.at(aPath);
  mTurns.erase(place.mTurn);
  // The move is told when it has settled at the other end.
  if (!place.mIsThere && mWhere.contains(aPath)) {
    place.mHasTurn = false;
    return;
  }

  // What was told at a place has to leave before something comes there.
  std::vector<std::u16string> chain{aPath};
  for (auto next = mWhere.find(aPath); next != mWhere.end() && next->second != aPath;
       next = mWhere.find(chain.back()))
    chain.push_back(next->second);
  if (const auto next = mWhere.find(chain.back()); next != mWhere.end()) {
    // Things that have changed places: one of them is told as another one.
    mLines.push_back({Line::eRemoved, chain.back()});
    mPlaces.at(chain.back()).mHad = false;
    place.mIsNew = true;
    mWhere.erase(next);
  }
  for (size_t i = chain.size(); i > 0; --i) TellPlace(chain[i - 1], i == 1);
  mPlaces.erase(aPath);
}

void nsSystemFileSystemFilter::TellPlace(const std::u16string& aPath, bool aHasSettled) {
  Place& place = mPlaces.at(aPath);
  if (!place.mIsThere) {
    if (std::exchange(place.mHad, false)) mLines.push_back({Line::eRemoved, aPath});
    return;
  }
  const bool had = std::exchange(place.mHad, true);
  const std::u16string origin = std::exchange(place.mOrigin, aPath);
  if (std::exchange(place.mIsNew, false)) {
    place.mIsChanged = false;
    mLines.push_back({had ? Line::eChanged : Line::eAdded, aPath});
    return;
  }
  const bool isChanged = aHasSettled && std::exchange(place.mIsChanged, false);
  if (origin != aPath) {
    mWhere.erase(origin);
    if (const auto from = mPlaces.find(origin); from != mPlaces.end()) {
      from->second.mHad = false;
      if (!from->second.mHasTurn) mPlaces.erase(from);
    }
    if (had) mLines.push_back({Line::eRemoved, aPath});
    mLines.push_back({Line::eMoved, aPath, origin});
  }
  if (isChanged) mLines.push_back({Line::eChanged, aPath});
}

void nsSystemFileSystemFilter::TellLines() {
  while (!mLines.empty()) {
    const Line line = std::move(mLines.front());
    mLines.pop_front();
    const nsDependentString path(line.mPath);
    switch (line.mKind) {
      case Line::eChanged:
        (void)mListener->OnFileSystemChanged(path);
        break;
      case Line::eRemoved:
        (void)mListener->OnFileSystemRemoved(path);
        break;
      case Line::eAdded:
        (void)mListener->OnFileSystemAdded(path);
        break;
      case Line::eMoved:
        (void)TellMove(nsDependentString(line.mFrom), path);
    }
  }
}

void nsSystemFileSystemFilter::Tick() {
  const nsCOMPtr<nsISystemFileSystemListener2> alive = this;  // the listener may let go of it
  ++mTick;
  while (!mTurns.empty() && mPlaces.at(mTurns.front()).mDue <= mTick)
    Settle(std::u16string(mTurns.front()));
  TellLines();
  if (!mTurns.empty()) return;
  if (mTimer) (void)mTimer->Cancel();
  mTimer = nullptr;
  if (mIsStarted && mWhenTold) mWhenTold();
}

void nsSystemFileSystemFilter::TellAll() {
  while (!mTurns.empty()) Settle(std::u16string(mTurns.front()));
  if (mTimer) (void)mTimer->Cancel();
  mTimer = nullptr;
  TellLines();
}

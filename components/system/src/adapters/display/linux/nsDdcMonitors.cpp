#include "nsDdcMonitors.h"

#include <algorithm>
#include <utility>

#include "nsLogger.h"

namespace {

constexpr char kLogger[] = "system.adapter.displayoutput";

// The wire of a display among those that are possible: the one that bears its description.
std::unique_ptr<nsDdcWire> FindWire(const nsDdcBuses& aBuses, const nsDdcPlace& aPlace,
                                    const nsDdcMonitors::Opener& aOpener, std::string* aReason) {
  if (!aBuses.mOwn.empty()) return aOpener(aBuses.mOwn, aReason);
  std::unique_ptr<nsDdcWire> found;
  std::string reason = "no bus of a graphics card has it";
  for (const std::string& device : aBuses.mPossible) {
    auto wire = aOpener(device, &reason);
    if (!wire || !NS_IsDescribedAs(*wire, aPlace.mDescription)) continue;
    if (found) {
      *aReason = "several buses have one like it";
      return nullptr;
    }
    found = std::move(wire);
  }
  if (!found) *aReason = reason;
  return found;
}

}  // namespace

class nsDdcMonitors::Listeners {
 public:
  std::shared_ptr<nsEventFd> Add() {
    auto event = std::make_shared<nsEventFd>();
    (void)event->Open();  // without one nothing is heard of until the next look
    const nsAutoLock lock(mLock);
    mEvents.push_back(event);
    if (std::exchange(mIsUntold, false)) event->Set();
    return event;
  }
  void Tell() {
    const nsAutoLock lock(mLock);
    (void)std::erase_if(mEvents, [](const auto& aEvent) { return aEvent.expired(); });
    mIsUntold = mEvents.empty();
    for (const auto& event : mEvents)
      if (const auto alive = event.lock()) alive->Set();
  }

 private:
  nsMutex mLock;
  std::vector<std::weak_ptr<nsEventFd>> mEvents NS_GUARDED_BY(mLock);
  bool mIsUntold NS_GUARDED_BY(mLock) = false;  // a change that came before anybody listened
};

nsDdcMonitors::nsDdcMonitors(std::string aRoot, Opener aOpener, const nsDdcPauses& aPauses)
    : mFiles(std::move(aRoot)),
      mOpener(std::move(aOpener)),
      mPauses(aPauses),
      mListeners(std::make_shared<Listeners>()) {}

nsDdcMonitors::~nsDdcMonitors() {
  for (const auto& [output, followed] : mFollowed) followed.mMonitor->Leave();  // all at once
}

std::unique_ptr<nsDdcMonitor> nsDdcMonitors::Start(const nsDdcPlace& aPlace, bool aHasTwin) const {
  return std::make_unique<nsDdcMonitor>(
      [files = mFiles, place = aPlace, aHasTwin, opener = mOpener](std::string* aReason) {
        nsDdcBuses buses = NS_FindDdcBuses(files, place);
        // Which of the two it is can't be told.
        if (aHasTwin) buses.mPossible.clear();
        return FindWire(buses, place, opener, aReason);
      },
      [listeners = mListeners] { listeners->Tell(); }, mPauses);
}

void nsDdcMonitors::Follow(const std::vector<nsDdcPlace>& aPlaces) {
  (void)std::erase_if(mLeaving, [](const auto& aMonitor) { return aMonitor->IsOver(); });
  std::map<std::string, Followed> former = std::exchange(mFollowed, {});
  for (const nsDdcPlace& place : aPlaces) {
    const bool hasTwin =
        std::ranges::count(aPlaces, place.mDescription, &nsDdcPlace::mDescription) > 1;
    const auto known = former.find(place.mOutput);
    if (known != former.end() && known->second.mPlace == place &&
        known->second.mHasTwin == hasTwin) {
      nsDdcMonitor& monitor = *known->second.mMonitor;
      if (const std::string reason = monitor.TakeReason(); !reason.empty())
        SYSTEM_LOG_DEBUG(NS_GetLogger(kLogger), "The display on " + place.mOutput +
                                                    " is not asked over its own wire: " + reason);
      monitor.Refresh();
      mFollowed.insert(former.extract(known));
    } else {
      mFollowed.emplace(place.mOutput, Followed{place, hasTwin, Start(place, hasTwin)});
    }
  }
  for (auto& [output, followed] : former) {
    followed.mMonitor->Leave();
    mLeaving.push_back(std::move(followed.mMonitor));
  }
}

nsDdcMonitor* nsDdcMonitors::Find(const std::string& aOutput) const {
  const auto found = mFollowed.find(aOutput);
  return found == mFollowed.end() ? nullptr : found->second.mMonitor.get();
}

void nsDdcMonitors::Await(std::chrono::milliseconds aLimit) const {
  const auto until = std::chrono::steady_clock::now() + aLimit;
  for (const auto& [output, followed] : mFollowed) (void)followed.mMonitor->AwaitFirst(until);
}

std::shared_ptr<nsEventFd> nsDdcMonitors::Listen() { return mListeners->Add(); }

// All displays that are asked over their own wires, side by side.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "nsDdcMonitor.h"
#include "nsEventFd.h"
#include "nsFileTree.h"

/// One thread at a time, but for Listen. None of it waits for a display but Await.
class nsDdcMonitors {
 public:
  /// Opens a bus by its device; any thread.
  using Opener =
      std::function<std::unique_ptr<nsDdcWire>(const std::string& aDevice, std::string* aReason)>;

  /// aRoot is "/", or a directory with the files of another machine.
  explicit nsDdcMonitors(std::string aRoot = "/", Opener aOpener = NS_OpenDdcWire,
                         const nsDdcPauses& aPauses = {});
  ~nsDdcMonitors();

  /// These are the displays from now on. New ones are asked; those that stay are asked again from
  /// time to time. The log says of each that does not answer why, once.
  void Follow(const std::vector<nsDdcPlace>& aPlaces);
  /// The display on an output; null when it is none of those.
  nsDdcMonitor* Find(const std::string& aOutput) const;
  /// Until all have answered, or have failed to, for aLimit at most.
  void Await(std::chrono::milliseconds aLimit) const;
  /// An event that is set when what is known of one of them has become another, for as long as it
  /// exists; at once, when that was so before there was an event for it. Any thread.
  std::shared_ptr<nsEventFd> Listen();

 private:
  class Listeners;
  struct Followed {
    nsDdcPlace mPlace;
    bool mHasTwin;  // another one bears the same description
    std::unique_ptr<nsDdcMonitor> mMonitor;
  };

  std::unique_ptr<nsDdcMonitor> Start(const nsDdcPlace& aPlace, bool aHasTwin) const;

  const nsFileTree mFiles;
  const Opener mOpener;
  const nsDdcPauses mPauses;
  const std::shared_ptr<Listeners> mListeners;
  std::map<std::string, Followed> mFollowed;            // by output
  std::vector<std::unique_ptr<nsDdcMonitor>> mLeaving;  // with a transfer that still goes on
};

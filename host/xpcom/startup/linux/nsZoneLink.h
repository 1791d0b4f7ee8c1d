// Where the machine's time zone is set.
#pragma once

#include <map>
#include <set>
#include <string>

#include "nsEventFd.h"
#include "nsEventSource.h"
#include "nsUniqueFd.h"

/// Notices that /etc/localtime has become another file or link, also where it leads over other
/// links.
class nsZoneLink final : public nsEventSource {
 public:
  /// False when the system does not tell.
  bool Open();

  void Wait() override;
  bool Consume() override;
  void Wake() override { mWake.Set(); }

 private:
  void Follow();

  nsUniqueFd mChanges;
  nsEventFd mWake;
  std::map<int, std::set<std::string>> mNames;  // that count, by the watch of their directory
};

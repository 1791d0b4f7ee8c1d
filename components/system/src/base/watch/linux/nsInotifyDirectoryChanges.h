// Changes of directories from the kernel's inotify.
#pragma once

#include "nsPlatformDirectoryChanges.h"

/// Each reader has a thread of its own, which talks to the kernel and to the disk, so that the one
/// that waits does neither.
///
/// Beside the names that the kernel gives, a reader names directories themselves ("a/b/."): all of
/// them once it has them watched, since some may have changed between the first look and that
/// moment, and all after the kernel's queue has overflowed; those in which something has changed
/// once more after a quiet spell, since a look that came too early may have found only the half of
/// it; and one of them at growing intervals after that, since names that come while their receiver
/// is busy wait there for the next ones. A reader that has nothing of this left to do sleeps until
/// something changes.
class nsInotifyDirectoryChanges final : public nsPlatformDirectoryChanges {
 public:
  std::unique_ptr<nsPlatformDirectoryReader> NewReader() override;
};

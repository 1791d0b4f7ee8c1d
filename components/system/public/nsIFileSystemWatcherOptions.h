// What a watcher leaves out, puts off and starts from, for compiled clients.
#pragma once

#include <vector>

#include "nsString.h"
#include "nsXPCOMTypes.h"

/// The options that script gives to the constructor of a watcher, under the same names. Patterns: a
/// name, or, with "/" in it, a path below the root; "*" and "?" stand for what is in one name, "**"
/// for any part of a path.
struct nsFileSystemWatcherOptions {
  /// What fits one of these, and all that is below it, is not told.
  std::vector<nsString> mExclude{};
  /// Where there are some, only what fits one of these is told.
  std::vector<nsString> mOnly{};
  /// In milliseconds, up to 3,600,000: a change is told once nothing more has happened to the same
  /// path for this time, and what happened meanwhile as one. What still waits is told before
  /// OnWatcherStopped. 0: at once.
  uint32_t mSettle = 0;
  /// A name of up to 64 letters, digits, "-", "_" and "." that does not begin with ".". What
  /// differs from what the last watch of the root with this name has left in the profile is told
  /// before OnWatcherStarted. Without that, or with a damaged one, ERROR_FULL_LISTING and all there
  /// is. What has been told is left for the next one once it has been told after the start, and at
  /// the end. Such a watch is shared with nobody. Empty: no comparison.
  nsString mSince{};
};

/// Of the objects of "@vorel/system/filesystemwatcher;1". Main thread only.
// script: leave out
class nsIFileSystemWatcherOptions : public nsISupports {
 public:
  using Self = nsIFileSystemWatcherOptions;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsIFileSystemWatcherOptions";
  static constexpr nsIID kIID = "c0a1f2b7-5d3e-4c67-9f0e-6d2b8e4a7c31"_iid;

  /// Counts from the next StartWatching on. NS_ERROR_INVALID_ARG for a time that is too long or a
  /// name that is none.
  virtual nsresult SetOptions(const nsFileSystemWatcherOptions& aOptions) = 0;

 protected:
  ~nsIFileSystemWatcherOptions() = default;
};

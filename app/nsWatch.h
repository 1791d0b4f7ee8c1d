// vorel watch: prints what changes below directories.
#pragma once

#include <string>
#include <vector>

class nsHost;
class nsServiceNotice;
class nsSignalWatch;

/// What the command line asks of it; patterns and times as nsFileSystemWatcherOptions has them.
struct nsWatchOptions {
  bool mOnce = false;     ///< end with the first change
  bool mDetails = false;  ///< with size and time
  bool mWait = false;     ///< go on without the directory
  double mTimeout = 0;    ///< seconds; 0: none
  uint32_t mSettle = 0;   ///< ms
  std::vector<std::string> mExclude, mOnly;
  std::string mSince;  ///< empty: no comparison
};

/// Needs a running host, but no profile that has been announced and no script. Compiled, since what
/// runs for as long as the machine does should be small. Prints until the directories have gone, a
/// signal comes, or the options ask for the end; the status for the process.
int NS_Watch(nsHost& aHost, const std::vector<std::string>& aDirectories,
             const nsWatchOptions& aOptions, bool aJson, nsSignalWatch& aSignals,
             nsServiceNotice& aNotice);

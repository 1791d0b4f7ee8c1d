// What happens when the process has gone wrong: a report is written, and the process ends as it
// would have without.
#pragma once

#include <string>

/// One a process.
class nsCrashHandler {
 public:
  /// Takes over the signals by which a process goes wrong. The report will be a new file in that
  /// directory. False when the directory can't be made or the signals can't be had. Main thread; a
  /// second call changes the directory.
  static bool Install(const std::string& aDirectory);
  /// Gives the signals back to who had them. Nothing when it is not installed.
  static void Uninstall();
  /// What the report says first: lines of "key=value". May be called at any time; a report that is
  /// being written meanwhile has one of the two texts.
  static void SetAnnotations(const std::string& aLines);
};

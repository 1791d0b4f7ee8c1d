// What happens when the process has gone wrong: a report is written, and the process ends as it
// would have without.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// One a process.
class nsCrashHandler {
 public:
  static constexpr size_t kReportsKept = 20;
  /// The names of the reports in a directory, the oldest first.
  static std::vector<std::string> ListReports(const std::string& aDirectory);

  /// Takes over the signals by which a process goes wrong. The report will be a new file in that
  /// directory, where the last kReportsKept stay. False when the directory can't be made or the
  /// signals can't be had. Main thread; a second call changes the directory.
  ///
  /// Threads that are made from then on have a stack for the report, so that there is one also when
  /// theirs is spent.
  static bool Install(const std::string& aDirectory);
  static bool IsInstalled();
  /// Gives the signals back to who had them. Nothing when it is not installed.
  static void Uninstall();
  /// What the report says first: lines of "key=value". May be called at any time; a report that is
  /// being written meanwhile has one of the two texts.
  static void SetAnnotations(const std::string& aLines);
};

// The crash reporter.
#pragma once

#include <map>
#include <string>

#include "nsICrashReporter.h"

/// The part of nsAppRuntime that is "@mozilla.org/toolkit/crash-reporter;1". Writes reports into
/// the folder "crashes" of the profile; without a profile, into that of the directory for temporary
/// files. Sends them nowhere, and asks nobody. Main thread.
///
/// On from the host's start when the environment's VOREL_CRASHREPORTER is "1", or when that is not
/// set and the application's default for the preference "vorel.crashreporter.enabled" is true: the
/// profile's preferences are not read yet then.
class nsCrashReporter : public nsICrashReporter {
 public:
  using Self = nsCrashReporter;  // stands for the interface in the list of the whole object

  nsresult GetEnabled(bool* aEnabled) override;
  nsresult SetEnabled(bool aEnabled) override;
  nsresult GetServerURL(nsIURL**) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult SetServerURL(nsIURL*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  /// The folder of the reports.
  nsresult GetMinidumpPath(nsILocalFile** aMinidumpPath) override;
  nsresult SetMinidumpPath(nsILocalFile* aMinidumpPath) override;
  /// Replaces what was told under that key. NS_ERROR_NOT_INITIALIZED while it is off.
  /// NS_ERROR_INVALID_ARG for a key with "=" or the end of a line in it, and for a zero in either;
  /// ends of lines in the data are written as "\n".
  nsresult AnnotateCrashReport(const nsACString& aKey, const nsACString& aData) override;
  nsresult AppendAppNotesToCrashReport(const nsACString& aData) override;
  nsresult RegisterAppMemory(uint64_t, uint64_t) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult WriteMinidumpForException(void*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult AppendObjCExceptionInfoToAppNotes(void*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult GetSubmitReports(bool* aSubmitReports) override;
  nsresult SetSubmitReports(bool aSubmitReports) override;

  /// Notifies observers of "crash-report-found" of each report that nobody has been told of, the
  /// oldest first: with the file as subject and its name as data. Once a report: the file "told"
  /// beside them says up to which.
  void TellReports();

 protected:
  nsCrashReporter();
  ~nsCrashReporter();

 private:
  void WriteAnnotations() const;

  bool mEnabled = false;
  std::string mDirectory;
  std::map<std::string, std::string> mAnnotations;
};

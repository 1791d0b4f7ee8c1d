// Running the host inside a program.
//
//   nsHost host;
//   nsHostOptions options;
//   options.mApplicationDirectory = "/usr/share/player";
//   if (NS_FAILED(host.Start(options))) return Report(host.Error());
//   (void)host.StartProfile();
//   (void)host.Run();  // until somebody quits
//   host.Stop();
//
// One host at a time runs in a process, and it may be started and stopped any number of times. The
// thread that calls Start is the main thread until Stop; everything here is called on it.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Module.h"
#include "nsXPCOM.h"

struct nsHostOptions {
  /// The application: "chrome.manifest" and "application.manifest", whichever are there,
  /// "application.ini", "defaults/preferences/*.js". Empty: no application.
  std::string mApplicationDirectory;
  /// Where the machine's own settings live; made if it is not there. Empty: no profile, and
  /// settings that are made are gone with the host.
  std::string mProfileDirectory;
  /// Reads the profile's settings, but neither locks it nor writes to it, so that it may be in use
  /// elsewhere.
  bool mProfileReadOnly = false;
  /// Manifest files that are read after the application's.
  std::vector<std::string> mManifests;
  /// Modules in memory, which must outlive the host; registered after the host's own and before
  /// manifests. Their contract IDs take the place of equal ones of the host.
  std::vector<const vorel::Module*> mModules;
  /// Further files and directories that the directory service knows: key and path.
  std::vector<std::pair<std::string, std::string>> mFiles;
  /// Whether the network of this machine is the one that the network link service tells of. False:
  /// it knows of none, since the application is shown another machine.
  bool mHasNetwork = true;
  /// Whether changes of the machine's network and of its time zone are told while the host runs;
  /// what they are is known in any case. False for a run that is over within milliseconds: to end
  /// the watches alone takes the kernel half as long as such a run.
  bool mFollowsMachine = true;
  /// Logger name (empty: all) and severity of nsILog4Logger, or 3 for nothing; applied in order.
  std::vector<std::pair<std::string, uint32_t>> mLogLevels;
  GeckoProcessType mProcessType = GeckoProcessType_Default;
  /// What is left of the command line for the application.
  std::vector<std::string> mCommandLine;
};

class __attribute__((visibility("default"))) nsHost {
 public:
  nsHost();
  nsHost(const nsHost&) = delete;
  nsHost& operator=(const nsHost&) = delete;
  /// Stops it.
  ~nsHost();

  /// The host that runs in this process; null if there is none.
  static nsHost* Current();

  /// Locks the profile, brings the services up, registers modules and manifests, and tells the
  /// services of the category "xpcom-startup", then those of "app-startup", which are created by
  /// it. Whatever is wrong with a module is a message in the log and no failure.
  /// NS_ERROR_ALREADY_INITIALIZED when a host runs in this process; NS_ERROR_ABORT when a module
  /// that is needed at once refuses it, and has said why in the log: a machine file that is wrong.
  /// After a failure nothing runs, and Error says why.
  nsresult Start(const nsHostOptions& aOptions);
  /// Reads the profile's preferences and announces the profile: "profile-do-change",
  /// "load-extension-defaults", "vorel-application-start" (not when the profile is only read),
  /// "profile-after-change", its category, "profile-initial-state", "final-ui-startup", and
  /// "xul-window-registered" with a window of its own that shows nothing: the system's messages to
  /// windows come to it, with or without a screen. That one is left out when an observer of the
  /// others has called Quit or LeaveRun. NS_ERROR_NOT_INITIALIZED before Start;
  /// NS_ERROR_ALREADY_INITIALIZED the second time.
  nsresult StartProfile();
  /// Runs the main thread's events until somebody quits; at once back when that has happened
  /// already. NS_ERROR_NOT_INITIALIZED before Start.
  nsresult Run();
  /// Announces "quit-application-granted" and "quit-application", the first time, and lets Run come
  /// back.
  void Quit();
  /// Lets Run come back, now and until Stop, and announces nothing: for who will call Stop.
  void LeaveRun();
  /// True from Quit to the end of Stop.
  bool IsQuitting() const;
  /// True inside Stop.
  bool IsStopping() const;
  /// Quits, if nobody has, announces the end of the profile, and shuts down threads, services and
  /// modules. Nothing when it does not run. Whoever still holds an object of a library that was
  /// loaded must not touch it any more.
  void Stop();

  /// One sentence about the last failure of Start; empty after NS_ERROR_ABORT.
  const std::string& Error() const;
  const nsHostOptions& Options() const;

 private:
  class Impl;
  std::unique_ptr<Impl> mImpl;
};

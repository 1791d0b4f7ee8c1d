// vorel: shows the picture of the machine, or runs an application on it.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <utility>

#include "nsCommandLine.h"
#include "nsFdWatch.h"
#include "nsHost.h"
#include "nsICrashReporter.h"
#include "nsILog4.h"
#include "nsIPrefBranch.h"
#include "nsIPrefService.h"
#include "nsIThread.h"
#include "nsProcess.h"
#include "nsScriptHost.h"
#include "nsServiceNotice.h"
#include "nsServices.h"
#include "nsShell.h"
#include "nsSignalWatch.h"
#include "nsStandardStreams.h"
#include "nsString.h"
#include "nsSystemScript.h"
#include "nsUtf.h"
#include "nsVorelMethodCaller.h"

namespace {

using Task = nsCommandLine::Task;

constexpr int kFailure = 1;
constexpr int kWrongArguments = 2;

int Complain(int aStatus, const std::string& aText) {
  std::cerr << "vorel: " << vorel::Printable(aText) << '\n';
  return aStatus;
}

// A reader that is gone, or a full disk: the output, scripts' too, is not whole, so the status must
// say so.
int Flushed(int aStatus) {
  std::cout.flush();
  if (std::cout && !std::ferror(stdout)) return aStatus;
  return aStatus == 0 ? Complain(kFailure, "the output could not be written") : aStatus;
}

// share/vorel beside the program's own folder.
std::filesystem::path SharedFiles() {
  return vorel::process::ProgramFile().parent_path().parent_path() / "share" / "vorel";
}

std::string DefaultProfile() {
  const char* data = std::getenv("XDG_DATA_HOME");
  if (data && *data == '/') return std::string(data) + "/vorel";
  const char* home = std::getenv("HOME");
  return home && *home == '/' ? std::string(home) + "/.local/share/vorel" : "";
}

// What a crash report is to say of this run.
void AnnotateRun(const nsCommandLine& aLine) {
  const auto reporter = do_GetService<nsICrashReporter>("@mozilla.org/toolkit/crash-reporter;1");
  if (!reporter) return;
  std::string arguments;
  for (const std::string& argument : aLine.mArguments)
    arguments += (arguments.empty() ? "'" : " '") + argument + "'";
  const std::string script = aLine.mTask == Task::eApplication ? aLine.mScript
                             : aLine.mTask == Task::eEvaluate  ? "-e"
                                                               : "the program's own";
  // While reports are off there is nothing to say.
  (void)reporter->AnnotateCrashReport(nsCString("Script"), nsCString(script));
  (void)reporter->AnnotateCrashReport(nsCString("Arguments"), nsCString(arguments));
}

uint32_t Severity(const std::string& aLevel) {
  if (aLevel == "debug") return nsILog4Logger::SEVERITY_DEBUG;
  if (aLevel == "warning") return nsILog4Logger::SEVERITY_WARNING;
  if (aLevel == "error") return nsILog4Logger::SEVERITY_ERROR;
  return nsILog4Logger::SEVERITY_ERROR + 1;
}

// What is wrong with a file or directory of the command line; empty when nothing is.
std::string Unusable(const std::string& aPath, bool aIsDirectory) {
  std::error_code error;
  const auto status = std::filesystem::status(aPath, error);
  if (std::filesystem::exists(status) && std::filesystem::is_directory(status) != aIsDirectory)
    return aPath + (aIsDirectory ? ": Not a directory" : ": Is a directory");
  const std::string why = vorel::process::WhyUnreadable(aPath, aIsDirectory);
  return why.empty() ? why : aPath + ": " + why;
}

// A clear line now beats a warning among others later.
std::string UnusableFile(const nsCommandLine& aLine) {
  std::string wrong;
  std::error_code error;
  if (aLine.mTask == Task::eApplication) wrong = Unusable(aLine.mScript, false);
  // One that is not there is the watcher's to tell.
  if (aLine.mTask == Task::eWatch) {
    for (const std::string& directory : aLine.mArguments)
      if (wrong.empty() && std::filesystem::exists(directory, error))
        wrong = Unusable(directory, true);
  }
  if (wrong.empty() && !aLine.mMachineFile.empty()) wrong = Unusable(aLine.mMachineFile, false);
  if (wrong.empty() && !aLine.mApplicationDirectory.empty())
    wrong = Unusable(aLine.mApplicationDirectory, true);
  return wrong;
}

// The profile's preferences are read with its announcement.
void StartProfile(nsHost& aHost, nsScriptHost& aScript, const nsCommandLine& aLine) {
  constexpr char kPreference[] = "vorel.script.heap-limit";
  (void)aHost.StartProfile();
  const auto prefs = do_GetService<nsIPrefBranch>(NS_PREFSERVICE_CONTRACTID);
  int32_t limit = 0;
  if (aLine.mHeapLimit != 0 || !prefs || NS_FAILED(prefs->GetIntPref(kPreference, &limit))) return;
  if (std::cmp_greater_equal(limit, nsCommandLine::kLeastHeap) &&
      std::cmp_less_equal(limit, nsCommandLine::kMostHeap))
    aScript.SetHeapLimit(static_cast<uint32_t>(limit) << 20);
  else
    std::cerr << "vorel: the preference " << kPreference << " is no number of MiB from "
              << nsCommandLine::kLeastHeap << " to " << nsCommandLine::kMostHeap << '\n';
}

int RunScript(nsHost& aHost, nsScriptHost& aScript, const nsCommandLine& aLine,
              const std::filesystem::path& aShare, nsSignalWatch& aSignals,
              nsServiceNotice& aNotice) {
  // The picture listens from before the machine is looked at.
  if (aLine.mTask != Task::ePicture) StartProfile(aHost, aScript, aLine);
  aSignals.Call([&](int) { aScript.Quit(0); });
  // Nobody reads the changes any more. An application may have other things to do.
  std::unique_ptr<nsFdWatch> reader;
  const int output = vorel::process::OutputPipe();
  if (aLine.mFollow && output >= 0) {
    nsCOMPtr<nsIThread> mainThread;
    (void)NS_GetMainThread(mainThread.getter_AddRefs());
    (void)nsFdWatch::Start(
        output, mainThread.get(), [&] { aScript.Quit(kFailure); }, &reader);
  }
  nsresult rv;
  if (aScript.HasQuit()) {  // a component has, at the start
    rv = NS_OK;
  } else if (aLine.mTask == Task::eEvaluate) {
    std::string result;
    rv = aScript.Evaluate(aLine.mScript, "-e", &result);
    if (NS_SUCCEEDED(rv) && !result.empty()) std::cout << result << std::endl;
  } else {
    rv = aScript.RunFile(aLine.mTask == Task::ePicture    ? aShare / "picture.js"
                         : aLine.mTask == Task::eTv       ? aShare / "tv.js"
                         : aLine.mTask == Task::eDisplays ? aShare / "displays.js"
                         : aLine.mTask == Task::eSerial   ? aShare / "serial.js"
                         : aLine.mTask == Task::eNetwork  ? aShare / "network.js"
                                                          : std::filesystem::path(aLine.mScript));
  }
  if (aLine.mTask == Task::ePicture && NS_SUCCEEDED(rv)) (void)aHost.StartProfile();
  std::unique_ptr<nsStandardStreams> streams;
  if (aLine.mTask == Task::eSerial && NS_SUCCEEDED(rv) && !aScript.HasQuit())
    rv = nsStandardStreams::Start(vorel::process::IsInteractive(), &streams);
  const bool failed = NS_FAILED(rv) && !aScript.HasQuit();
  if (!failed) aNotice.Ready();
  const int status = failed ? kFailure : aScript.RunUntilDone();
  aSignals.Reset();
  return Flushed(status);
}

int RunShell(nsHost& aHost, nsScriptHost& aScript, const nsCommandLine& aLine,
             nsSignalWatch& aSignals) {
  StartProfile(aHost, aScript, aLine);
  const std::string& profile = aHost.Options().mProfileDirectory;
  nsShell shell(aScript, profile.empty() ? "" : profile + "/shell-history");
  aSignals.Call([&](int aSignal) {
    if (aSignal != SIGINT || !shell.ClearLine()) aScript.Quit(0);
  });
  const int status = shell.Run();
  aSignals.Reset();
  return Flushed(status);
}

int Run(const nsCommandLine& aLine) {
  const std::filesystem::path share = SharedFiles();
  static const auto sInterfaces = NS_SystemScriptInterfaces();
  nsScriptHost::AddInterfaces(sInterfaces, {kSystemScriptComments, kSystemScriptCommentCount},
                              kSystemScriptDeclarations);
  if (aLine.mTask == Task::ePrintTypes) {
    std::cout << nsScriptHost::PrintTypes();
    return Flushed(0);
  }
  if (const std::string wrong = UnusableFile(aLine); !wrong.empty())
    return Complain(kWrongArguments, wrong);

  nsHostOptions options;
  options.mApplicationDirectory = aLine.mApplicationDirectory.empty() ? (share / "default").string()
                                                                      : aLine.mApplicationDirectory;
  options.mProfileDirectory =
      aLine.mProfileDirectory.empty() ? DefaultProfile() : aLine.mProfileDirectory;
  // A look at the machine needs the settings but changes nothing, and may be taken beside a running
  // application.
  const bool isLook = aLine.mTask == Task::ePicture || aLine.mTask == Task::eWatch ||
                      aLine.mTask == Task::eTv || aLine.mTask == Task::eSerial ||
                      aLine.mTask == Task::eDisplays || aLine.mTask == Task::eNetwork;
  // What has changed by the time that it is over is for the next one.
  const bool isOneLook =
      !aLine.mFollow && (aLine.mTask == Task::ePicture || aLine.mTask == Task::eDisplays);
  options.mProfileReadOnly = isLook;
  if (options.mProfileDirectory.empty() && !isLook)
    std::cerr << "vorel: there is neither --profile nor a home directory: settings are not kept\n";
  // A watch needs neither script nor application.
  if (aLine.mTask == Task::eWatch)
    options.mApplicationDirectory = aLine.mApplicationDirectory;
  else
    options.mModules = {&nsScriptHost::Module()};
  options.mManifests = {(share / "vorel.manifest").string()};
  if (aLine.mTask == Task::eTv) options.mManifests.push_back((share / "tools.manifest").string());
  options.mFollowsMachine = !isOneLook;
  options.mHasNetwork = aLine.mMachineFile.empty();  // a simulated machine has one of its own
  if (!options.mHasNetwork) options.mFiles = {{"VorelMachine", aLine.mMachineFile}};
  for (const auto& [name, level] : aLine.mLogLevels)
    options.mLogLevels.emplace_back(name, Severity(level));
  options.mCommandLine = aLine.mArguments;

  nsSignalWatch signals;
  nsHost host;
  if (NS_FAILED(host.Start(options)))
    return host.Error().empty() ? kFailure : Complain(kFailure, host.Error());

  AnnotateRun(aLine);
  nsServiceNotice notice;
  const auto end = [&](int aStatus) {
    notice.Stopping();
    signals.LimitEnd(aStatus);
    host.Stop();  // before the scripts go, so that their observers hear of the end
    return Flushed(aStatus);
  };
  if (aLine.mTask == Task::eWatch)
    return end(NS_Watch(host, aLine.mArguments, aLine.mWatchOptions, aLine.mJson, signals, notice));

  nsScriptOptions scriptOptions;
  scriptOptions.mArguments = aLine.mArguments;
  if (isLook) {  // the program's own scripts
    if (aLine.mJson) scriptOptions.mArguments.push_back("--json");
    if (aLine.mFollow) scriptOptions.mArguments.push_back("--watch");
    if (vorel::process::IsTerminal()) scriptOptions.mArguments.push_back("--colours");
    if (aLine.mTask == Task::eSerial && vorel::process::IsInteractive())
      scriptOptions.mArguments.push_back("--interactive");
    scriptOptions.mEndsWithOutput = true;
    scriptOptions.mIsBrief = isOneLook || (aLine.mTask == Task::eNetwork && !aLine.mFollow);
  }
  if (aLine.mHeapLimit != 0) scriptOptions.mHeapLimit = aLine.mHeapLimit << 20;
  if (aLine.mTask == Task::eApplication) scriptOptions.mFile = aLine.mScript;
  std::string error;
  const auto script = nsScriptHost::Create(scriptOptions, &error);
  if (!script) return Complain(kFailure, error);
  return end(aLine.mTask == Task::eShell ? RunShell(host, *script, aLine, signals)
                                         : RunScript(host, *script, aLine, share, signals, notice));
}

}  // namespace

int main(int aCount, char** aArguments) {
  vorel::process::Prepare();
  nsCommandLine line;
  std::string error;
  if (!nsCommandLine::Parse({aArguments + 1, aArguments + aCount}, &line, &error))
    return Complain(kWrongArguments, error);
  if (line.mTask == Task::eHelp) {
    std::cout << nsCommandLine::Help();
    return Flushed(0);
  }
  if (line.mTask == Task::eVersion) {
    std::cout << "vorel " VOREL_VERSION "\n";
    return Flushed(0);
  }
  return Run(line);
}

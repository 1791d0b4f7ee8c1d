// Runs applications written in script.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Module.h"
#include "nsError.h"
#include "nsScriptTable.h"

/// What an application finds in its environment.
struct nsScriptOptions {
  /// The global `arguments`.
  std::vector<std::string> mArguments;
  /// The application's file: what relative addresses and imports are resolved against. Empty: the
  /// working directory.
  std::string mFile;
  /// The heap of scripts, in bytes. A script that wants more gets an exception, "out of memory",
  /// after one collection that did not help.
  uint32_t mHeapLimit = 512u << 20;
  /// Ends as by quit(0) once standard output can't be written: the application is there for what it
  /// prints. Others go on.
  bool mEndsWithOutput = false;
  /// Over within milliseconds: scripts are interpreted and never compiled to machine code, which
  /// would cost more than it gains. The engine is made so once for the process: this counts for the
  /// first one that is made, unless a component in script has been before it.
  bool mIsBrief = false;
};

/// The script engine with one environment: one global object, which the application and the
/// components written in script share.
///
/// At most one at a time in a process, on the main thread, which all of its operations belong to.
/// Made once the component manager is up and before the profile is announced, so that manifests may
/// name components in script. It takes leave of the engine when the host sends
/// "xpcom-shutdown-threads", or when it is destroyed, whichever comes first: requests of the
/// document's load group are cancelled, objects of script that compiled code still holds turn into
/// shells that answer NS_ERROR_NOT_AVAILABLE, and references that script held are released.
class __attribute__((visibility("default"))) nsScriptHost {
 public:
  /// Adds tables of interfaces to those of the platform, which are always there, the contract
  /// comments of their headers, and TypeScript declarations of the global names that come with
  /// them. All must live for ever. To be called before the first Create; a table that is added
  /// twice is added once.
  static void AddInterfaces(std::span<const nsScriptInterface* const> aInterfaces,
                            std::span<const nsScriptComment> aComments = {},
                            std::string_view aDeclarations = {});
  /// The TypeScript declarations of all tables and of the environment.
  static std::string PrintTypes();

  /// Null when the engine can't be started; *aError then says why.
  static std::unique_ptr<nsScriptHost> Create(const nsScriptOptions& aOptions, std::string* aError);
  nsScriptHost(const nsScriptHost&) = delete;
  nsScriptHost& operator=(const nsScriptHost&) = delete;
  ~nsScriptHost();

  /// Runs a file to its end, as a module when its name ends in ".mjs". NS_ERROR_FAILURE when it
  /// can't be read or compiled, or when it throws: the error is then reported (file, line, text,
  /// stack) on standard error.
  nsresult RunFile(const std::string& aFile);

  /// Runs a text. *aResult, where given, is what its last expression is, as a person would like to
  /// read it; empty for undefined. Errors as RunFile; aName stands in their place of a file.
  nsresult Evaluate(std::string_view aText, const char* aName, std::string* aResult);

  /// Another limit of the heap of scripts, in bytes. One below what is in use already is out of
  /// memory at the next allocation.
  void SetHeapLimit(uint32_t aBytes);

  /// Runs events until script calls quit(), or until nothing could call script any more: no timer,
  /// no pending job, and no object of script in the hands of compiled code (a listener, an
  /// observer). Returns the status for the process: what was given to quit(), otherwise 1 after an
  /// error that nobody caught, otherwise 0.
  int RunUntilDone();

  /// True once script has called quit(); scripts that are still running stop at that call.
  bool HasQuit() const;
  /// As if script had called quit(). May be called before RunUntilDone, and inside it.
  void Quit(int aStatus);

  /// Members that may follow a text like "systemManager.ad": whole names, sorted, without
  /// duplicates. *aStart is where in the text the name begins. Attributes before the last point are
  /// read for that, and no function is called.
  std::vector<std::string> Complete(std::string_view aText, size_t* aStart);
  /// True when a text is a beginning that lacks its end, so that a shell should read another line.
  bool IsIncomplete(std::string_view aText);

  /// Calls a function around everything that scripts print, and around reports of their errors:
  /// with true before, with false after it. Empty: no more.
  void SetAroundOutput(std::function<void(bool)> aFunction);

  /// The classes that the bridge brings: to be given to the host with nsHostOptions::mModules.
  static const vorel::Module& Module();

 private:
  nsScriptHost();
};

// Runs the program as a user would.
#pragma once

#include <signal.h>

#include <chrono>
#include <string>
#include <vector>

struct nsOutcome {
  int mStatus = -1;  ///< what it ended with; 128 and the signal's number when one ended it
  std::string mOutput;
  std::string mErrors;
};

#if defined(__SANITIZE_ADDRESS__)
#define VOREL_ADDRESS_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VOREL_ADDRESS_SANITIZER
#endif
#endif
/// The status of a program that has crashed. AddressSanitizer is told of a signal after the
/// program's own handler, and ends the process itself.
#ifdef VOREL_ADDRESS_SANITIZER
inline constexpr int kCrashed = 1;
#else
inline constexpr int kCrashed = 128 + SIGSEGV;
#endif

/// A run of the program, in an environment of its own: home and profile lie in a directory that
/// dies with it.
class nsProgram {
 public:
  nsProgram();
  ~nsProgram();
  nsProgram(const nsProgram&) = delete;
  nsProgram& operator=(const nsProgram&) = delete;

  /// Runs it to its end; one that takes longer than a minute is killed, and fails.
  nsOutcome Run(const std::vector<std::string>& aArguments);
  /// Starts it beside the test. WaitFor reads its output up to a text, Finish sends a signal (0:
  /// none) and waits.
  void Start(const std::vector<std::string>& aArguments);
  /// The same on a terminal of its own, where Type enters text; its errors are in the output.
  void StartOnTerminal(const std::vector<std::string>& aArguments);
  void Type(const std::string& aText);
  /// What it reads from standard input; nothing, unless this is called before.
  void SetInput(const std::string& aText) { mInput = Write("input", aText); }
  bool WaitFor(const std::string& aText);
  /// Reads its output no more.
  void CloseOutput();
  nsOutcome Finish(int aSignal);

  /// Writes a file below the directory and gives its path.
  std::string Write(const std::string& aName, const std::string& aText);
  const std::string& Directory() const { return mDirectory; }

 private:
  [[noreturn]] void Become(const std::vector<std::string>& aArguments);
  void Read(int aFd, std::string* aInto);
  bool Pump(std::chrono::steady_clock::time_point aUntil);

  std::string mDirectory;
  std::string mInput = "/dev/null";
  int mPid = -1;
  int mOut = -1, mErr = -1;
  nsOutcome mOutcome;
};

/// The source tree's own files: "app/machines/kiosk.json".
std::string SourceFile(const std::string& aPath);

// What a crash report says of the script that the process runs.
#pragma once

#include <cstddef>

/// Both functions are called when the process has gone wrong.
struct nsCrashScript {
  /// Has the script's thread call NS_AnswerCrash soon, if it is running script. Called in a handler
  /// of a signal, on any thread.
  void (*mInterrupt)();
  /// Writes the script's stack, a line for each function with its file and line, and gives the
  /// length; 0 when no script runs. On the script's thread, in NS_AnswerCrash or in a handler of a
  /// signal, as a last resort and with everything else written.
  size_t (*mDescribe)(char* aOut, size_t aCapacity);
};

/// Main thread, which is the script's from then on; null: there is none any more. aScript is kept.
void NS_SetCrashScript(const nsCrashScript* aScript);
/// Does nothing unless somebody waits for the script's stack. On the script's thread, at a moment
/// when it may be described.
void NS_AnswerCrash();

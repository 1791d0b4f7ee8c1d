// The interactive shell: reads script line by line and runs it.
#pragma once

#include <memory>
#include <string>

class nsScriptHost;

/// On a terminal, lines are edited, kept in a history and completed with the tabulator key. From
/// anywhere else they are read as they come, without a prompt. Events (timers, listeners) are
/// served in between in both cases.
class nsShell {
 public:
  /// The history is read from and written to a file, which only its owner may read; empty: it is
  /// gone with the shell.
  nsShell(nsScriptHost& aScript, std::string aHistoryFile);
  nsShell(const nsShell&) = delete;
  nsShell& operator=(const nsShell&) = delete;
  /// Gives the terminal back as it was.
  ~nsShell();

  /// Runs until script calls quit(), or until the input ends: that of a terminal at once and with
  /// status 0, any other one when nothing could call script any more. Returns the status for the
  /// process.
  int Run();
  /// Drops what has been entered so far; to be called on SIGINT. False when the input is no
  /// terminal, so that there is nothing to drop.
  bool ClearLine();

 private:
  class Terminal;
  void ReadTerminal();
  void ReadStream();
  void TakeLine(const std::string& aLine);
  void RunText();

  nsScriptHost& mScript;
  std::unique_ptr<Terminal> mTerminal;  ///< null when the input is no terminal
  std::string mText;                    ///< whole lines of a statement that lacks its end
  std::string mRest;                    ///< of a stream: the beginning of a line
  bool mEnded = false;
};

// The program's process: its descriptors and its signals.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

namespace vorel::process {

/// To be called first. Standard descriptors that are closed are taken, so that no file gets one of
/// them; writing to a reader that is gone is an error, and ends nothing.
void Prepare();
/// The file that runs.
std::filesystem::path ProgramFile();
/// Why a file can't be read, or a directory listed, in the system's words; empty when it can.
std::string WhyUnreadable(const std::string& aPath, bool aIsDirectory);
/// Whether standard output is a terminal.
bool IsTerminal();
/// Whether somebody sits at one: standard input is a terminal too.
bool IsInteractive();
/// The descriptor of standard output when it is a pipe; -1 otherwise.
int OutputPipe();

}  // namespace vorel::process

/// Calls a function with the signal's number on the main thread for SIGINT and SIGTERM, instead of
/// what they do otherwise. A script that never ends keeps the main thread from that: another
/// signal, two seconds after the first or later, then ends the process. Main thread.
class nsSignalWatch {
 public:
  /// Threads inherit it, so this comes before the first of them.
  static void Block();

  explicit nsSignalWatch(std::function<void(int)> aCall);
  nsSignalWatch(const nsSignalWatch&) = delete;
  nsSignalWatch& operator=(const nsSignalWatch&) = delete;
  ~nsSignalWatch();

 private:
  struct State;
  const std::shared_ptr<State> mState;
};

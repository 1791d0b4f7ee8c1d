// The program's process: its file and its descriptors.
#pragma once

#include <filesystem>
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

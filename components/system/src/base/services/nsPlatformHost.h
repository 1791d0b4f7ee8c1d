// The port of the machine as a whole: its name, its cursor, and commands run on it.
#pragma once

#include <cstdint>
#include <string>

#include "nsError.h"

/// All methods may be called from any thread.
class nsPlatformHost {
 public:
  using CommandHandle = uintptr_t;

  virtual ~nsPlatformHost() = default;

  /// The machine's name on the network. NS_ERROR_FAILURE when it is longer than aCapacity - 1
  /// bytes or not to be had.
  /// Windows: gethostname.
  virtual nsresult ReadHostName(uint32_t aCapacity, std::string* aName) = 0;
  /// System and processor architecture, as in "nt-ia32".
  /// Windows: none: known when it is built.
  virtual nsresult ReadPlatformName(std::string* aName) = 0;
  /// The serial number that the machine's maker gave it. NS_ERROR_NOT_IMPLEMENTED on a platform
  /// whose machines have none.
  /// Windows: GetSystemFirmwareTable, the serial number of "RSMB".
  virtual nsresult ReadDeviceId(std::string* aDeviceId) = 0;
  /// The number of this process, among those that run.
  /// Windows: GetCurrentProcessId.
  virtual nsresult ReadProcessId(uint32_t* aId) = 0;

  /// Adds 1 to the cursor's counter for true, takes 1 away for false; *aCounter is what it then is.
  /// The cursor shows while the counter is 0 or more. It is 0 to begin with. Without a display the
  /// counter is kept all the same.
  /// Windows: ShowCursor.
  virtual nsresult StepCursorCounter(bool aShow, int32_t* aCounter) = 0;

  // Commands: the one place where a process is started.

  /// Starts a line of the system's shell. *aError, the system's own number for logs, is written on
  /// failure.
  /// Windows: CreateProcessA of the shell, in a job of its own.
  virtual nsresult StartCommand(const std::string& aLine, CommandHandle* aCommand,
                                int32_t* aError) = 0;
  /// Waits, as long as it takes, for the end of a command that was started, and forgets the handle.
  /// *aStatus is what it ended with: 0 for success, 127 when there is no such command, 128 and the
  /// number of the signal that ended it. To be called once for each command.
  /// Windows: WaitForSingleObject, GetExitCodeProcess.
  virtual nsresult WaitForCommand(CommandHandle aCommand, int32_t* aStatus) = 0;
  /// Asks a command, and what it has started, to end. NS_ERROR_NOT_AVAILABLE, and nothing done,
  /// when it has ended and WaitForCommand has forgotten it.
  /// Windows: TerminateJobObject.
  virtual nsresult CancelCommand(CommandHandle aCommand) = 0;
};

#include "nsLinuxHost.h"

#include <signal.h>
#include <spawn.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "nsErrno.h"

nsresult nsLinuxHost::ReadHostName(uint32_t aCapacity, std::string* aName) {
  std::string name(aCapacity, '\0');
  // A name that is too long comes without a zero at its end, or as a failure.
  if (gethostname(name.data(), name.size()) != 0) return NS_LastResult();
  const size_t end = name.find('\0');
  if (end == name.npos) return NS_ERROR_FAILURE;
  *aName = name.substr(0, end);
  return NS_OK;
}

nsresult nsLinuxHost::ReadPlatformName(std::string* aName) {
  utsname system;
  if (uname(&system) != 0) return NS_LastResult();
  *aName = std::string("linux-") + system.machine;
  return NS_OK;
}

nsresult nsLinuxHost::ReadDeviceId(std::string*) { return NS_ERROR_NOT_IMPLEMENTED; }

nsresult nsLinuxHost::ReadProcessId(uint32_t* aId) {
  *aId = static_cast<uint32_t>(getpid());
  return NS_OK;
}

nsresult nsLinuxHost::StepCursorCounter(bool aShow, int32_t* aCounter) {
  const nsAutoLock lock(mCursorLock);
  const bool shown = mCursorCounter >= 0;
  mCursorCounter += aShow ? 1 : -1;
  if (const bool now = mCursorCounter >= 0; now != shown) mCursor.SetShown(now);
  *aCounter = mCursorCounter;
  return NS_OK;
}

nsresult nsLinuxHost::StartCommand(const std::string& aLine, CommandHandle* aCommand,
                                   int32_t* aError) {
  // In a process group of its own, so that all of a pipeline can be ended; with the signals as a
  // new program expects them, whatever this process has made of them.
  posix_spawnattr_t attributes;
  if (const int error = posix_spawnattr_init(&attributes); error != 0) {
    *aError = error;
    return NS_ResultOfErrno(error);
  }
  sigset_t all, none;
  sigfillset(&all);
  sigemptyset(&none);
  posix_spawnattr_setflags(&attributes,
                           POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  posix_spawnattr_setpgroup(&attributes, 0);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &all);
  std::string shell = "sh", option = "-c", line = aLine;
  char* const arguments[] = {shell.data(), option.data(), line.data(), nullptr};
  pid_t process = 0;
  const int error = posix_spawn(&process, "/bin/sh", nullptr, &attributes, arguments, environ);
  posix_spawnattr_destroy(&attributes);
  if (error != 0) {
    *aError = error;
    return NS_ResultOfErrno(error);
  }
  const nsAutoLock lock(mLock);
  mCommands.insert(process);
  *aCommand = static_cast<CommandHandle>(process);
  return NS_OK;
}

nsresult nsLinuxHost::WaitForCommand(CommandHandle aCommand, int32_t* aStatus) {
  const auto process = static_cast<pid_t>(aCommand);
  siginfo_t ended;
  int result;
  do {
    result = waitid(P_PID, static_cast<id_t>(process), &ended, WEXITED | WNOWAIT);
  } while (result != 0 && errno == EINTR);
  if (result != 0) return NS_LastResult();
  // From here on its number may become that of another process, which nobody meant to cancel.
  const nsAutoLock lock(mLock);
  mCommands.erase(process);
  int status = 0;
  if (waitpid(process, &status, 0) < 0) return NS_LastResult();
  *aStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return NS_OK;
}

nsresult nsLinuxHost::CancelCommand(CommandHandle aCommand) {
  const auto process = static_cast<pid_t>(aCommand);
  const nsAutoLock lock(mLock);
  if (!mCommands.contains(process)) return NS_ERROR_NOT_AVAILABLE;
  return kill(-process, SIGTERM) == 0 ? NS_OK : NS_LastResult();
}

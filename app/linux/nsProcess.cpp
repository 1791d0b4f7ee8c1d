#include "nsProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

// A standard descriptor that is closed would be given to the first file that is opened, and what is
// meant for a reader would end up in there. These can be neither read nor written as meant.
void TakeClosedDescriptors() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    if (fcntl(fd, F_GETFD) < 0) (void)open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

}  // namespace

namespace vorel::process {

void Prepare() {
  TakeClosedDescriptors();
  (void)signal(SIGPIPE, SIG_IGN);
}

std::filesystem::path ProgramFile() { return std::filesystem::read_symlink("/proc/self/exe"); }

std::string WhyUnreadable(const std::string& aPath, bool aIsDirectory) {
  return access(aPath.c_str(), aIsDirectory ? R_OK | X_OK : R_OK) == 0 ? "" : std::strerror(errno);
}

bool IsTerminal() { return isatty(STDOUT_FILENO); }

bool IsInteractive() { return isatty(STDIN_FILENO) && isatty(STDOUT_FILENO); }

int OutputPipe() {
  struct stat facts;
  return fstat(STDOUT_FILENO, &facts) == 0 && S_ISFIFO(facts.st_mode) ? STDOUT_FILENO : -1;
}

}  // namespace vorel::process

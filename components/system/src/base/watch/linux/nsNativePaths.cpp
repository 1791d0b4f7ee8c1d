#include "nsNativePaths.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <string>
#include <utility>

namespace vorel {

nsresult DirectoryError(int aErrno) {
  return aErrno == ELOOP ? NS_ERROR_FILE_NOT_DIRECTORY : NS_ResultOfErrno(aErrno);
}

namespace {

/// Goes down as far as one call takes it, and so on.
template <class Open>
int OpenInSteps(int aDirectory, std::string_view aPath, Open aOpen, int aFlags) {
  nsUniqueFd step;
  int at = aDirectory;
  while (aPath.size() >= PATH_MAX) {
    const size_t end = aPath.rfind('/', PATH_MAX - 1);
    if (end == 0 || end == aPath.npos) {
      errno = ENAMETOOLONG;
      return -1;
    }
    nsUniqueFd next(aOpen(at, std::string(aPath.substr(0, end)).c_str(), O_PATH | O_CLOEXEC));
    if (!next) return -1;
    step = std::move(next);
    at = step.get();
    aPath.remove_prefix(end + 1);
  }
  return aOpen(at, std::string(aPath).c_str(), aFlags | O_CLOEXEC);
}

}  // namespace

int OpenDirectoryAt(int aDirectory, std::string_view aPath, int aFlags) {
  while (aPath.size() > 1 && aPath.ends_with('/')) aPath.remove_suffix(1);
  const auto open = [](int aAt, const char* aStep, int aStepFlags) {
    return openat(aAt, aStep, aStepFlags | O_DIRECTORY);
  };
  return OpenInSteps(aDirectory, aPath, open, aFlags);
}

int OpenDirectoryBelow(int aDirectory, std::string_view aPath, int aFlags) {
  const auto open = [](int aAt, const char* aStep, int aStepFlags) {
    open_how how{};
    how.flags = static_cast<uint64_t>(aStepFlags | O_DIRECTORY);
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
    const long fd = syscall(SYS_openat2, aAt, aStep, &how, sizeof how);
    // Kernels before 5.6 look at the last component only.
    return fd >= 0 || errno != ENOSYS ? static_cast<int>(fd)
                                      : openat(aAt, aStep, aStepFlags | O_DIRECTORY | O_NOFOLLOW);
  };
  return OpenInSteps(aDirectory, aPath.empty() ? "." : aPath, open, aFlags);
}

}  // namespace vorel

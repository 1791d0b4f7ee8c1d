#include "nsNativePaths.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <utility>

#include "nsUtf.h"

namespace vorel {

std::u16string FromNative(std::string_view aBytes) {
  if (IsUtf8(aBytes)) return Utf8ToUtf16(aBytes);
  std::u16string text;
  while (!aBytes.empty()) {
    size_t length = 1;
    while (length <= std::min<size_t>(4, aBytes.size()) && !IsUtf8(aBytes.substr(0, length)))
      ++length;
    if (length <= std::min<size_t>(4, aBytes.size())) {
      text += Utf8ToUtf16(aBytes.substr(0, length));
      aBytes.remove_prefix(length);
    } else {
      text += static_cast<char16_t>(0xDC00 + static_cast<unsigned char>(aBytes.front()));
      aBytes.remove_prefix(1);
    }
  }
  return text;
}

std::string ToNative(std::u16string_view aText) {
  const auto isHigh = [](char16_t aUnit) { return aUnit >= 0xD800 && aUnit < 0xDC00; };
  std::string bytes;
  size_t start = 0;
  for (size_t i = 0; i < aText.size(); ++i) {
    if (aText[i] < 0xDC80 || aText[i] > 0xDCFF || (i > 0 && isHigh(aText[i - 1]))) continue;
    bytes += Utf16ToUtf8(aText.substr(start, i - start));
    bytes += static_cast<char>(aText[i] - 0xDC00);
    start = i + 1;
  }
  return bytes += Utf16ToUtf8(aText.substr(start));
}

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

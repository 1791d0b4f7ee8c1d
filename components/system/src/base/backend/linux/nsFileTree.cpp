#include "nsFileTree.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "nsNativeFile.h"
#include "nsRetry.h"
#include "nsUniqueFd.h"

namespace {

std::string Normalise(const std::string& aPath) {
  std::vector<std::string> parts;
  for (size_t at = 0; at < aPath.size();) {
    const size_t end = std::min(aPath.find('/', at), aPath.size());
    const std::string part = aPath.substr(at, end - at);
    if (part == "..") {
      if (!parts.empty()) parts.pop_back();
    } else if (!part.empty() && part != ".") {
      parts.push_back(part);
    }
    at = end + 1;
  }
  std::string path;
  for (const std::string& part : parts) path += "/" + part;
  return path.empty() ? "/" : path;
}

}  // namespace

std::optional<std::string> nsFileTree::ReadFile(const std::string& aPath) const {
  const std::string real = Real(aPath);
  nsUniqueFd fd(NS_RetryPassing(
      [&] { return open(real.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
  if (!fd) return std::nullopt;
  std::string text;
  bool good = NS_SUCCEEDED(NS_ReadDescriptor(fd.get(), &text));
  // The mount table comes in pieces. When it has changed in between, which the kernel tells for
  // this file alone, the pieces need not fit together.
  pollfd changed{fd.get(), POLLPRI, 0};
  for (int tries = 0; good && tries < 4 && poll(&changed, 1, 0) > 0 && (changed.revents & POLLPRI);
       ++tries)
    good = lseek(fd.get(), 0, SEEK_SET) == 0 && NS_SUCCEEDED(NS_ReadDescriptor(fd.get(), &text));
  const int error = errno;
  (void)fd.Close();
  errno = error;
  if (!good) return std::nullopt;
  return text;
}

std::string nsFileTree::ReadAttribute(const std::string& aPath) const {
  std::string text = ReadFile(aPath).value_or("");
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
  return text;
}

std::optional<std::string> nsFileTree::ReadLink(const std::string& aPath) const {
  char target[PATH_MAX];
  const std::string real = Real(aPath);
  const ssize_t length =
      NS_RetryPassing([&] { return readlink(real.c_str(), target, sizeof target); });
  if (length <= 0) return std::nullopt;
  const std::string text(target, static_cast<size_t>(length));
  return Normalise(text[0] == '/' ? text : aPath + "/../" + text);
}

bool nsFileTree::Exists(const std::string& aPath) const {
  const std::string real = Real(aPath);
  return NS_RetryPassing([&] { return access(real.c_str(), F_OK); }) == 0;
}

bool nsFileTree::IsDirectory(const std::string& aPath) const {
  const std::string real = Real(aPath);
  struct stat status;
  return NS_RetryPassing([&] { return stat(real.c_str(), &status); }) == 0 &&
         S_ISDIR(status.st_mode);
}

std::vector<std::string> nsFileTree::List(const std::string& aPath) const {
  std::vector<std::string> names;
  const std::string real = Real(aPath);
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(
      NS_RetryPassing([&] { return opendir(real.c_str()); }, nullptr), closedir);
  while (const dirent* entry = directory ? readdir(directory.get()) : nullptr) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

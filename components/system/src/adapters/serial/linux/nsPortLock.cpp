#include "nsPortLock.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <set>
#include <utility>

#include "nsLock.h"
#include "nsUniqueFd.h"

namespace {

// What this process holds: a file with our own number that we do not hold is left from a process
// before us that had the same number, as is usual in containers.
nsMutex gLock;
std::set<std::string>& Held() NS_REQUIRES(gLock) {
  static std::set<std::string> sHeld;
  return sHeld;
}

std::string ReadStart(const std::string& aPath) {
  const nsUniqueFd fd(open(aPath.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  char text[64];
  const ssize_t length = fd ? read(fd.get(), text, sizeof text) : -1;
  return {text, length > 0 ? static_cast<size_t>(length) : 0};
}

// 0 when there is no number in it.
pid_t ReadOwner(const std::string& aPath) {
  const std::string text = ReadStart(aPath);
  const size_t start = std::min(text.find_first_not_of(' '), text.size());
  pid_t pid = 0;
  (void)std::from_chars(text.data() + start, text.data() + text.size(), pid);
  return std::max(pid, 0);
}

bool IsAlive(pid_t aPid) { return kill(aPid, 0) == 0 || errno != ESRCH; }

}  // namespace

nsPortLock::nsPortLock(nsPortLock&& aOther) noexcept : mPath(std::exchange(aOther.mPath, {})) {}

nsPortLock& nsPortLock::operator=(nsPortLock&& aOther) noexcept {
  std::swap(mPath, aOther.mPath);
  return *this;
}

nsresult nsPortLock::Acquire(const std::string& aDirectory, const std::string& aDevice,
                             std::string* aUser) {
  constexpr int kTries = 3;
  Release();
  const nsAutoLock lock(gLock);
  const std::string path = aDirectory + "/LCK.." + aDevice.substr(aDevice.rfind('/') + 1);
  char number[16];
  std::snprintf(number, sizeof number, "%10d\n", getpid());
  // The file appears with its content: made under another name, and given its own by a link.
  const std::string temporary = aDirectory + "/LTMP.vorel." + std::to_string(getpid());
  for (int tries = 0; tries < kTries; ++tries) {
    (void)unlink(temporary.c_str());
    nsUniqueFd fd(
        open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644));
    if (!fd) return NS_OK;
    const bool written = write(fd.get(), number, 11) == 11 && fd.Close();
    const bool linked = written && link(temporary.c_str(), path.c_str()) == 0;
    const int error = errno;
    (void)unlink(temporary.c_str());
    if (linked) {
      mPath = path;
      Held().insert(path);
      return NS_OK;
    }
    if (!written || error != EEXIST) return NS_OK;
    const pid_t owner = ReadOwner(path);
    const bool ours = owner == getpid();
    if (ours ? Held().contains(path) : owner > 0 && IsAlive(owner)) {
      std::string name = ReadStart("/proc/" + std::to_string(owner) + "/comm");
      if (const size_t end = name.find('\n'); end != name.npos) name.resize(end);
      *aUser = std::to_string(owner) + (name.empty() ? "" : " (" + name + ")");
      return NS_ERROR_FILE_IS_LOCKED;
    }
    if (unlink(path.c_str()) != 0 && errno != ENOENT) return NS_OK;
  }
  return NS_OK;
}

void nsPortLock::Release() {
  if (mPath.empty()) return;
  const std::string path = std::exchange(mPath, {});
  const nsAutoLock lock(gLock);
  Held().erase(path);
  (void)unlink(path.c_str());
}

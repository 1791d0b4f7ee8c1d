#include "nsHostFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <utility>

#include "nsErrno.h"

namespace {

class Descriptor {
 public:
  Descriptor(const std::string& aPath, int aFlags)
      : mFd(::open(aPath.c_str(), aFlags | O_CLOEXEC, 0600)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (mFd >= 0) ::close(mFd);
  }
  explicit operator bool() const { return mFd >= 0; }
  int get() const { return mFd; }
  bool Close() { return ::close(std::exchange(mFd, -1)) == 0; }

 private:
  int mFd;
};

bool WriteAll(int aFd, std::string_view aContents) {
  while (!aContents.empty()) {
    const ssize_t written = ::write(aFd, aContents.data(), aContents.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    aContents.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

}  // namespace

nsresult NS_ReadFile(const std::string& aPath, std::string* aContents) {
  const Descriptor file(aPath, O_RDONLY);
  if (!file) return NS_LastResult();
  std::string contents;
  struct stat info;
  if (::fstat(file.get(), &info) == 0 && info.st_size > 0)
    contents.reserve(static_cast<size_t>(info.st_size) + 1);
  char buffer[64 * 1024];
  while (true) {
    const ssize_t got = ::read(file.get(), buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return NS_LastResult();
    if (got == 0) break;
    contents.append(buffer, static_cast<size_t>(got));
  }
  *aContents = std::move(contents);
  return NS_OK;
}

nsresult NS_ReplaceFile(const std::string& aPath, std::string_view aContents) {
  const std::string temporary = aPath + ".tmp";
  const auto write = [&] {
    Descriptor file(temporary, O_WRONLY | O_CREAT | O_TRUNC);
    return file && WriteAll(file.get(), aContents) && ::fsync(file.get()) == 0 && file.Close() &&
           std::rename(temporary.c_str(), aPath.c_str()) == 0;
  };
  if (!write()) {
    const nsresult rv = NS_LastResult();
    ::unlink(temporary.c_str());
    return rv;
  }
  const Descriptor directory(std::filesystem::path(aPath).parent_path().native(),
                             O_RDONLY | O_DIRECTORY);
  return directory && ::fsync(directory.get()) == 0 ? NS_OK : NS_LastResult();
}

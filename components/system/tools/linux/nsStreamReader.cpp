#include "nsStreamReader.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "nsErrno.h"

namespace {
constexpr int kWait = 100;  // milliseconds
}

nsresult nsStreamReader::Open(const std::string& aPath, uint64_t* aSize) {
  nsUniqueFd file(aPath == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)
                               : open(aPath.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat facts;
  if (file.get() < 0 || fstat(file.get(), &facts) != 0) return NS_LastResult();
  if (S_ISDIR(facts.st_mode)) return NS_ERROR_FILE_IS_DIRECTORY;
  mCanWait = !S_ISREG(facts.st_mode);
  *aSize = mCanWait ? 0 : static_cast<uint64_t>(facts.st_size);
  if (!mCanWait) (void)posix_fadvise(file.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
  mFile = std::move(file);
  return NS_OK;
}

nsresult nsStreamReader::Read(std::span<uint8_t> aBuffer, size_t* aRead, bool* aIsOver) {
  *aRead = 0;
  *aIsOver = false;
  if (mCanWait) {
    pollfd ready{mFile.get(), POLLIN, 0};
    const int count = poll(&ready, 1, kWait);
    if (count == 0 || (count < 0 && errno == EINTR)) return NS_OK;
  }
  const ssize_t count = read(mFile.get(), aBuffer.data(), aBuffer.size());
  if (count < 0) return errno == EINTR || errno == EAGAIN ? NS_OK : NS_LastResult();
  *aRead = static_cast<size_t>(count);
  *aIsOver = count == 0;
  return NS_OK;
}

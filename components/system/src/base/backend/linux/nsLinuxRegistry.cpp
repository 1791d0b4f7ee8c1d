#include "nsLinuxRegistry.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "nsIFile.h"
#include "nsIProperties.h"
#include "nsLogger.h"
#include "nsRegistryText.h"
#include "nsServices.h"
#include "nsString.h"

namespace {

nsresult FromErrno(int aError) {
  switch (aError) {
    case ENOENT:
      return NS_ERROR_FILE_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EROFS:
      return NS_ERROR_FILE_ACCESS_DENIED;
    case ENOSPC:
    case EDQUOT:
      return NS_ERROR_FILE_NO_DEVICE_SPACE;
    default:
      return NS_ERROR_FAILURE;
  }
}

class Fd {
 public:
  explicit Fd(int aFd) : mFd(aFd) {}
  ~Fd() {
    if (mFd >= 0) close(mFd);
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  explicit operator bool() const { return mFd >= 0; }
  int get() const { return mFd; }

 private:
  const int mFd;
};

std::string DirectoryOf(const std::string& aPath) { return aPath.substr(0, aPath.rfind('/')); }

void MakeDirectories(const std::string& aDirectory) {
  // What can't be made shows when the file in it is opened.
  for (size_t at = aDirectory.find('/', 1); at != aDirectory.npos;
       at = aDirectory.find('/', at + 1))
    (void)mkdir(aDirectory.substr(0, at).c_str(), 0700);
  (void)mkdir(aDirectory.c_str(), 0700);
}

/// NS_ERROR_FILE_CORRUPTED for a file that is not whole; a missing one is an empty store.
nsresult Load(const std::string& aPath, nsRegistryData* aData) {
  const Fd file(open(aPath.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) {
    if (errno != ENOENT) return FromErrno(errno);
    *aData = {};
    return NS_OK;
  }
  std::string text;
  char buffer[16384];
  for (;;) {
    const ssize_t got = read(file.get(), buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return FromErrno(errno);
    if (got == 0) break;
    text.append(buffer, static_cast<size_t>(got));
  }
  auto data = NS_ParseRegistry(text);
  if (!data) return NS_ERROR_FILE_CORRUPTED;
  *aData = std::move(*data);
  return NS_OK;
}

nsresult Save(const std::string& aPath, const nsRegistryData& aData) {
  const std::string text = NS_FormatRegistry(aData);
  const std::string beside = aPath + ".new";
  {
    const Fd file(open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (!file) return FromErrno(errno);
    for (size_t done = 0; done < text.size();) {
      const ssize_t wrote = write(file.get(), text.data() + done, text.size() - done);
      if (wrote < 0 && errno == EINTR) continue;
      if (wrote < 0) return FromErrno(errno);
      done += static_cast<size_t>(wrote);
    }
    if (fsync(file.get()) != 0) return FromErrno(errno);
  }
  if (rename(beside.c_str(), aPath.c_str()) != 0) return FromErrno(errno);
  const Fd directory(open(DirectoryOf(aPath).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return directory && fsync(directory.get()) == 0 ? NS_OK : FromErrno(errno);
}

nsresult Lock(const Fd& aFile) {
  if (!aFile) return FromErrno(errno);
  while (flock(aFile.get(), LOCK_EX) != 0)
    if (errno != EINTR) return FromErrno(errno);
  return NS_OK;
}

nsresult SetAside(const std::string& aPath) {
  std::string aside = aPath + ".damaged";
  for (int number = 2; access(aside.c_str(), F_OK) == 0; ++number)
    aside = aPath + ".damaged-" + std::to_string(number);
  if (rename(aPath.c_str(), aside.c_str()) != 0) return FromErrno(errno);
  SYSTEM_LOG_WARNING(NS_GetLogger("system.registry"),
                     "The configuration store " + aPath + " is damaged: set aside as " + aside);
  return NS_OK;
}

}  // namespace

nsresult nsLinuxRegistry::Read(const char*, const Visitor& aVisitor) {
  nsRegistryData data;
  nsresult rv = Load(mPath(), &data);
  if (rv == NS_ERROR_FILE_CORRUPTED) {
    // Setting it aside is a change: another process may be at it, or have done it already.
    rv = Change(nullptr, [&](nsRegistryData& aData) {
      data = aData;
      return NS_OK;
    });
  }
  return NS_FAILED(rv) ? rv : aVisitor(data);
}

nsresult nsLinuxRegistry::Change(const char*, const Visitor& aVisitor) {
  const std::string path = mPath();
  MakeDirectories(DirectoryOf(path));
  const Fd lock(open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  nsresult rv = Lock(lock);
  if (NS_FAILED(rv)) return rv;
  nsRegistryData data;
  rv = Load(path, &data);
  if (rv == NS_ERROR_FILE_CORRUPTED) rv = SetAside(path);
  if (NS_FAILED(rv)) return rv;
  const nsRegistryData before = data;
  rv = aVisitor(data);
  if (NS_FAILED(rv) || data == before) return rv;
  return Save(path, data);
}

std::string NS_RegistryPath() {
  nsCOMPtr<nsIFile> profile;
  nsCString path;
  if (const auto directories = do_GetService<nsIProperties>(NS_DIRECTORYSERVICE_CONTRACTID))
    (void)directories->Get("ProfD", nsIFile::kIID, NS_OutVoid(profile));
  if (profile && NS_SUCCEEDED(profile->GetNativePath(path)))
    return std::string(path.view()) + "/registry";
  // Only an absolute path counts there.
  const char* state = std::getenv("XDG_STATE_HOME");
  if (state && state[0] == '/') return std::string(state) + "/vorel/registry";
  const char* home = std::getenv("HOME");
  return std::string(home ? home : "") + "/.local/state/vorel/registry";
}

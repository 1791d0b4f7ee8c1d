#include "nsLinuxRegistry.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "nsErrno.h"
#include "nsIFile.h"
#include "nsIProperties.h"
#include "nsLogger.h"
#include "nsNativeFile.h"
#include "nsRegistryText.h"
#include "nsServices.h"
#include "nsString.h"
#include "nsUniqueFd.h"

namespace {

constexpr std::chrono::seconds kLockPatience(2);

/// What the port promises of a file's errors.
nsresult StoreError(nsresult aRv) {
  switch (aRv) {
    case NS_ERROR_FILE_READ_ONLY:
      return NS_ERROR_FILE_ACCESS_DENIED;
    case NS_OK:
    case NS_ERROR_FILE_NOT_FOUND:
    case NS_ERROR_FILE_ACCESS_DENIED:
    case NS_ERROR_FILE_NO_DEVICE_SPACE:
      return aRv;
    default:
      return NS_ERROR_FAILURE;
  }
}

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
  std::string text;
  const nsresult rv = NS_ReadFile(aPath, &text, kConfigurationLimit, nsFileKind::eRegular);
  if (rv == NS_ERROR_FILE_NOT_FOUND) {
    *aData = {};
    return NS_OK;
  }
  if (NS_FAILED(rv)) return StoreError(rv);
  auto data = NS_ParseRegistry(text);
  if (!data) return NS_ERROR_FILE_CORRUPTED;
  *aData = std::move(*data);
  return NS_OK;
}

// Others hold it for the time of one change. One that is stopped in the middle must not stop us.
nsresult Lock(const nsUniqueFd& aFile, const std::string& aPath) {
  const auto patience = std::chrono::steady_clock::now() + kLockPatience;
  while (flock(aFile.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EINTR && errno != EWOULDBLOCK) return StoreError(NS_LastResult());
    if (std::chrono::steady_clock::now() >= patience) {
      SYSTEM_LOG_WARNING(NS_GetLogger("system.registry"),
                         "The configuration store " + aPath + " is held by another process");
      return NS_ERROR_FAILURE;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return NS_OK;
}

nsresult SetAside(const std::string& aPath) {
  std::string aside = aPath + ".damaged";
  for (int number = 2; access(aside.c_str(), F_OK) == 0; ++number)
    aside = aPath + ".damaged-" + std::to_string(number);
  if (rename(aPath.c_str(), aside.c_str()) != 0) return StoreError(NS_LastResult());
  SYSTEM_LOG_WARNING(NS_GetLogger("system.registry"),
                     "The configuration store " + aPath + " is damaged: set aside as " + aside);
  return NS_OK;
}

}  // namespace

nsresult nsLinuxRegistry::Read(const char*, const Visitor& aVisitor) {
  nsRegistryData data;
  const std::string path = mPath();
  if (path.empty()) return aVisitor(data);
  nsresult rv = Load(path, &data);
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
  if (path.empty()) {
    SYSTEM_LOG_WARNING(NS_GetLogger("system.registry"),
                       "There is neither a profile nor a home directory: the configuration is not "
                       "stored");
    return NS_ERROR_FILE_ACCESS_DENIED;
  }
  MakeDirectories(DirectoryOf(path));
  nsUniqueFd lock;
  nsresult rv = StoreError(NS_OpenLockFile(path + ".lock", &lock));
  if (NS_SUCCEEDED(rv)) rv = Lock(lock, path);
  if (NS_FAILED(rv)) return rv;
  nsRegistryData data;
  rv = Load(path, &data);
  if (rv == NS_ERROR_FILE_CORRUPTED) rv = SetAside(path);
  if (NS_FAILED(rv)) return rv;
  const nsRegistryData before = data;
  rv = aVisitor(data);
  if (NS_FAILED(rv) || data == before) return rv;
  return StoreError(NS_ReplaceFile(path, NS_FormatRegistry(data)));
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
  return home && home[0] == '/' ? std::string(home) + "/.local/state/vorel/registry" : "";
}

#include "nsLinuxTuners.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "nsDvbDevices.h"
#include "nsDvbTuner.h"
#include "nsErrno.h"
#include "nsFileGroup.h"
#include "nsLogger.h"
#include "nsNativeFile.h"

namespace {

// The one line that tells why a tuner can't be opened.
void Tell(const std::string& aName, const std::string& aText) {
  SYSTEM_LOG_WARNING(NS_GetLogger("system.digitaltvreceiver"), aName + ": " + aText);
}

// "the process 1234 (name)", as far as this process may know.
std::string UserOf(const std::string& aNode) {
  namespace fs = std::filesystem;
  std::error_code error;
  for (fs::directory_iterator process("/proc", error), end; !error && process != end;
       process.increment(error)) {
    const std::string number = process->path().filename().string();
    if (number.find_first_not_of("0123456789") != number.npos) continue;
    std::error_code unseen;  // of another user, or gone
    for (fs::directory_iterator file(process->path() / "fd", unseen); !unseen && file != end;
         file.increment(unseen)) {
      std::error_code closed;
      if (fs::read_symlink(file->path(), closed) != aNode) continue;
      std::string name;
      (void)NS_ReadFile(process->path() / "comm", &name, 64, nsFileKind::eAny);  // or it has none
      name.erase(std::min(name.find('\n'), name.size()));
      return "the process " + number + (name.empty() ? "" : " (" + name + ")");
    }
  }
  return "another program";
}

}  // namespace

nsresult nsLinuxTuners::ListTuners(std::vector<nsTunerInfo>* aTuners) {
  std::vector<nsDvbDevice> devices;
  if (nsresult rv = NS_ListDvbDevices(&devices); NS_FAILED(rv)) return rv;
  std::vector<nsTunerInfo> tuners;
  for (nsDvbDevice& device : devices) tuners.push_back(std::move(device.mInfo));
  aTuners->swap(tuners);
  return NS_OK;
}

nsresult nsLinuxTuners::OpenTuner(const std::string& aPath, nsPlatformTunerRef* aTuner) {
  std::vector<nsDvbDevice> devices;
  if (nsresult rv = NS_ListDvbDevices(&devices); NS_FAILED(rv)) return rv;
  const auto device = std::ranges::find(
      devices, aPath, [](const nsDvbDevice& aDevice) -> auto& { return aDevice.mInfo.mPath; });
  if (device == devices.end()) {
    Tell(aPath, "there is no such tuner now");
    return NS_ERROR_FILE_NOT_FOUND;
  }
  const std::string& name = device->mInfo.mName;
  const std::string& node = device->mFrontend;
  nsUniqueFd frontend(open(node.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  if (!frontend) {
    const nsresult rv = NS_LastResult();
    if (rv == NS_ERROR_FILE_IS_LOCKED)
      Tell(name, node + " is used by " + UserOf(node));
    else if (rv == NS_ERROR_FILE_ACCESS_DENIED)
      Tell(name, "there is no right to open " + node + NS_GroupThatMay(node, S_IWGRP));
    else
      Tell(name, node + " can't be opened: " + std::string(NS_ResultName(rv)));
    return rv;
  }
  return nsDvbTuner::Make(std::move(frontend), *device, aTuner);
}

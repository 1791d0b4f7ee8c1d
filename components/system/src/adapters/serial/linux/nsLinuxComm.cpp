#include "nsLinuxComm.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <algorithm>

#include "nsErrno.h"
#include "nsFileGroup.h"
#include "nsLogger.h"
#include "nsPortLock.h"
#include "nsSerialDevices.h"
#include "nsTerminalLine.h"
#include "nsUniqueFd.h"

namespace {

// The one line that tells why a port can't be opened.
void Tell(const std::string& aName, const std::string& aText) {
  SYSTEM_LOG_WARNING(NS_GetLogger("system.adapter.serial"), aName + ": " + aText);
}

}  // namespace

nsresult nsLinuxComm::Look() {
  std::vector<nsCommPortInfo> ports;
  if (mOptions.mListed) {
    std::vector<nsSerialDevice> devices;
    const nsresult rv = NS_ListSerialDevices(&devices);
    if (NS_FAILED(rv)) return rv;
    ports = mNames.Name(std::move(devices));
  }
  for (const auto& [name, device] : mOptions.mMore) {
    std::erase_if(ports,
                  [&known = name](const nsCommPortInfo& aPort) { return aPort.mName == known; });
    nsCommPortInfo port;
    port.mName = name;
    port.mDevice = port.mIdentity = device;
    ports.push_back(std::move(port));
  }
  mPorts = std::move(ports);
  mHasLooked = true;
  return NS_OK;
}

const nsCommPortInfo* nsLinuxComm::Find(const std::string& aName) const {
  const auto found = std::ranges::find(mPorts, aName, &nsCommPortInfo::mName);
  return found == mPorts.end() ? nullptr : &*found;
}

nsresult nsLinuxComm::ListPorts(std::vector<nsCommPortInfo>* aPorts) {
  const nsAutoLock lock(mLock);
  const nsresult rv = Look();
  if (NS_SUCCEEDED(rv)) *aPorts = mPorts;
  return rv;
}

nsresult nsLinuxComm::ReadDefaultCommConfig(const std::string& aName, nsCommConfig* aConfig,
                                            uint32_t aSize) {
  if (aSize < nsCommConfig::kSize) return NS_ERROR_INVALID_ARG;
  const nsAutoLock lock(mLock);
  if (!mHasLooked)
    if (const nsresult rv = Look(); NS_FAILED(rv)) return rv;
  if (!Find(aName)) return NS_ERROR_FILE_NOT_FOUND;
  *aConfig = {};
  return NS_OK;
}

nsresult nsLinuxComm::OpenPort(const std::string& aFileName, uint32_t aAccess, uint32_t, uint32_t,
                               uint32_t aFlags, nsPlatformCommPortRef* aPort) {
  constexpr std::string_view kPrefix = "\\\\.\\";
  const std::string name =
      aFileName.starts_with(kPrefix) ? aFileName.substr(kPrefix.size()) : aFileName;
  std::string device;
  {
    const nsAutoLock lock(mLock);
    // Devices come and go: the line may be another one than at the last look.
    if (const nsresult rv = Look(); NS_FAILED(rv)) return rv;
    if (const nsCommPortInfo* port = Find(name)) device = port->mDevice;
  }
  if (device.empty()) {
    Tell(name, "there is no such port now");
    return NS_ERROR_FILE_NOT_FOUND;
  }

  nsPortLock lock;
  std::string user;
  if (NS_FAILED(lock.Acquire(mOptions.mLockDirectory, device, &user))) {
    Tell(name, device + " is used by the process " + user);
    return NS_ERROR_FILE_IS_LOCKED;
  }
  const bool reads = aAccess & kGenericRead, writes = aAccess & kGenericWrite;
  const int access = reads && writes ? O_RDWR : writes ? O_WRONLY : O_RDONLY;
  // Without waiting for a carrier, and not as the terminal of this process.
  nsUniqueFd fd(open(device.c_str(), access | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!fd || ioctl(fd.get(), TIOCEXCL) != 0) {
    const nsresult rv = NS_LastResult();
    if (rv == NS_ERROR_FILE_ACCESS_DENIED)
      Tell(name, "there is no right to open " + device + NS_GroupThatMay(device, S_IRGRP));
    else if (rv == NS_ERROR_FILE_IS_LOCKED)
      Tell(name, device + " is used by another program");
    else
      Tell(name, device + " can't be opened: " + std::string(NS_ResultName(rv)));
    return rv;
  }
  std::shared_ptr<nsTerminalLine> line;
  const nsresult rv = nsTerminalLine::Make(name, std::move(fd), std::move(lock), aAccess,
                                           (aFlags & kFlagOverlapped) != 0, &line);
  if (NS_FAILED(rv)) {
    Tell(name, device + " is no serial line");
    return rv;
  }
  *aPort = line;
  return NS_OK;
}

std::vector<std::pair<std::string, std::string>> NS_ParseSerialPorts(std::string_view aText) {
  std::vector<std::pair<std::string, std::string>> ports;
  while (!aText.empty()) {
    const std::string_view item = aText.substr(0, aText.find(','));
    aText.remove_prefix(std::min(item.size() + 1, aText.size()));
    const size_t sign = item.find('=');
    if (sign == item.npos || sign == 0 || sign + 1 == item.size()) continue;
    ports.emplace_back(item.substr(0, sign), item.substr(sign + 1));
  }
  return ports;
}

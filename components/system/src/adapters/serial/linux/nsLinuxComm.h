// Serial ports of Linux: terminal lines.
#pragma once

#include "nsLock.h"
#include "nsPlatformComm.h"
#include "nsPortNames.h"

class nsPortLock;

class nsLinuxComm final : public nsPlatformComm {
 public:
  struct Options {
    /// Names for lines that the system does not list: "COM40" and "/dev/rfcomm0".
    std::vector<std::pair<std::string, std::string>> mMore;
    std::string mLockDirectory = "/run/lock";
    /// Whether the lines that the system lists are there too.
    bool mListed = true;
  };
  explicit nsLinuxComm(std::shared_ptr<nsPlatformRegistry> aStore) : nsLinuxComm(aStore, {}) {}
  nsLinuxComm(std::shared_ptr<nsPlatformRegistry> aStore, Options aOptions)
      : mOptions(std::move(aOptions)), mNames(std::move(aStore)) {}

  nsresult ListPorts(std::vector<nsCommPortInfo>* aPorts) override;
  nsresult ReadDefaultCommConfig(const std::string& aName, nsCommConfig* aConfig,
                                 uint32_t aSize) override;
  nsresult OpenPort(const std::string& aFileName, uint32_t aAccess, uint32_t aShareMode,
                    uint32_t aDisposition, uint32_t aFlags, nsPlatformCommPortRef* aPort) override;

 private:
  /// Within the lock.
  nsresult Look() NS_REQUIRES(mLock);
  const nsCommPortInfo* Find(const std::string& aName) const NS_REQUIRES(mLock);

  const Options mOptions;
  nsMutex mLock;
  nsPortNames mNames NS_GUARDED_BY(mLock);
  bool mHasLooked NS_GUARDED_BY(mLock) = false;
  std::vector<nsCommPortInfo> mPorts NS_GUARDED_BY(mLock);
};

/// "COM40=/dev/rfcomm0,COM41=/tmp/line" as names and devices. What is no such pair is left out.
std::vector<std::pair<std::string, std::string>> NS_ParseSerialPorts(std::string_view aText);

// Network settings where no network service runs: rtnetlink, and the resolver's file.
#pragma once

#include "nsFileTree.h"
#include "nsPlatformNetworkSettings.h"
#include "nsUniqueFd.h"

/// Works on the network namespace of the calling thread. What is written is what the kernel holds:
/// it does not outlive a restart of the machine. The resolver's file does.
class nsLinuxNetworkSettings final : public nsPlatformNetworkSettings {
 public:
  struct Options {
    /// Where it is looked for services: "/", or a captured tree.
    std::string mRoot = "/";
    std::string mResolver = "/etc/resolv.conf";
    std::string mJournal = "/var/lib/vorel/network-change";
  };
  nsLinuxNetworkSettings() : nsLinuxNetworkSettings(Options()) {}
  explicit nsLinuxNetworkSettings(Options aOptions)
      : mOptions(std::move(aOptions)), mFiles(mOptions.mRoot) {}

  nsresult FindService(std::string* aName) override;
  nsresult ReadInterface(const std::string& aName, std::string* aRecord) override;
  nsresult WriteInterface(const std::string& aName, const nsInterfaceSettings& aSettings) override;
  nsresult RestoreInterface(const std::string& aName, const std::string& aRecord) override;
  nsresult ReadServers(std::vector<nsIPv4Bytes>* aServers) override;
  nsresult ReadResolver(std::string* aRecord) override;
  nsresult WriteResolver(const std::vector<nsIPv4Bytes>& aServers) override;
  nsresult RestoreResolver(const std::string& aRecord) override;
  nsresult LoadJournal(std::string* aText) override;
  nsresult SaveJournal(const std::string& aText) override;
  nsresult DropJournal() override;

 private:
  nsresult LockJournal();

  const Options mOptions;
  const nsFileTree mFiles;
  nsUniqueFd mLock;  // open while the journal is ours
};

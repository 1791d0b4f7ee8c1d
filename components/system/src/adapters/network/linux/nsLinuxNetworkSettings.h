// Network settings on Linux: by the service that manages an interface, or by the kernel; the
// resolver's file, and the state of changes.
#pragma once

#include <atomic>
#include <functional>

#include "nsFileTree.h"
#include "nsLock.h"
#include "nsNetworkWay.h"
#include "nsPlatformNetworkSettings.h"
#include "nsUniqueFd.h"

/// Works on the network namespace of the calling thread. What manages an interface is looked up
/// each time; the record of a change says by which way it is taken back.
class nsLinuxNetworkSettings final : public nsPlatformNetworkSettings {
 public:
  struct Options {
    std::string mResolver = "/etc/resolv.conf";
    std::string mState = "/var/lib/vorel/network";
    /// The message bus; empty for the system's.
    std::string mBus = {};
    /// Where DHCP clients are looked for, the kernel is set, and what systemd-networkd's files lie
    /// below: "/", or another tree.
    std::string mRoot = "/";
  };
  nsLinuxNetworkSettings() : nsLinuxNetworkSettings(Options()) {}
  explicit nsLinuxNetworkSettings(Options aOptions)
      : mOptions(std::move(aOptions)), mFiles(mOptions.mRoot) {}

  nsresult FindWay(const std::string& aName, nsInterfaceWay* aWay) override;
  nsresult AwaitService(const std::string& aService, uint32_t aMilliseconds) override;
  nsresult ReadInterface(const std::string& aName, uint32_t aGuard, std::string* aRecord) override;
  nsresult WriteInterface(const std::string& aName, const std::string& aRecord,
                          const nsInterfaceSettings& aSettings) override;
  nsresult KeepInterface(const std::string& aName, const std::string& aRecord) override;
  nsresult ForgetInterface(const std::string& aName, const std::string& aRecord) override;
  nsresult RestoreInterface(const std::string& aName, const std::string& aRecord) override;
  nsresult ReadServers(std::vector<nsSocketAddress>* aServers) override;
  nsresult ReadResolver(std::string* aRecord) override;
  nsresult WriteResolver(const std::vector<nsSocketAddress>& aServers) override;
  nsresult RestoreResolver(const std::string& aRecord) override;
  nsresult ReadIgmpVersion(uint32_t* aVersion) override;
  nsresult WriteIgmpVersion(uint32_t aVersion) override;
  nsresult LockState() override;
  nsresult UnlockState() override;
  nsresult LoadState(std::string* aText) override;
  nsresult SaveState(const std::string& aText) override;
  nsresult Listen(std::function<void(nsNetworkRequest)> aHandler,
                  std::shared_ptr<nsEventSource>* aSource) override;
  nsresult Ask(const std::string& aWord, std::string* aAnswer) override;
  std::string Reason() override;
  void Cancel() override { mCancelled = true; }

 private:
  enum class Kind : char { eKernel = 'K', eNetworkManager = 'N', eNetworkd = 'D' };
  nsresult FindKind(const std::string& aName, Kind* aKind);
  /// Calls aCall with a way of that kind, and keeps why it failed.
  nsresult With(Kind aKind, const std::function<nsresult(nsNetworkWay&)>& aCall);
  /// The same by the kind that a record begins with; aCall has the rest of it.
  nsresult WithRecord(const std::string& aRecord,
                      const std::function<nsresult(nsNetworkWay&, const std::string&)>& aCall);
  std::string FindDhcpClient(const std::string& aName) const;
  /// Of all interfaces; those that have one of their own keep it.
  std::string IgmpPath() const {
    return mOptions.mRoot + "/proc/sys/net/ipv4/conf/all/force_igmp_version";
  }
  std::string SocketPath() const { return mOptions.mState + ".socket"; }

  const Options mOptions;
  const nsFileTree mFiles;
  nsUniqueFd mLock;  // open while the state is ours
  std::atomic<bool> mCancelled = false;
  nsMutex mReasonLock;
  std::string mReason NS_GUARDED_BY(mReasonLock);
};

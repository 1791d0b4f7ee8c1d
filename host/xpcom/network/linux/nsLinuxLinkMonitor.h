// Changes of the network, from rtnetlink and from the files that tell of name servers.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "nsEventFd.h"
#include "nsLinkMonitor.h"
#include "nsUniqueFd.h"

class nsLinuxLinkMonitor final : public nsLinkMonitor {
 public:
  struct Options {
    /// The file of name servers; what it is a symbolic link to counts too.
    std::string mResolverFile = "/etc/resolv.conf";
    /// Where network services leave the name servers of each link; any file in them counts.
    std::vector<std::string> mServiceDirectories = {
        "/run/systemd/resolve", "/run/systemd/resolve/netif", "/run/systemd/netif/links",
        "/run/NetworkManager"};
    /// Bytes of messages that wait. What a machine with hundreds of links says at once fits; more
    /// is lost, and that is noticed.
    int mReceiveBuffer = 1 << 20;
  };

  static nsresult Open(const Options& aOptions, std::unique_ptr<nsLinkMonitor>* aResult);

  void Wait() override;
  bool Consume() override;
  void Wake() override { mWake.Set(); }

 private:
  /// By the number of a directory's watch: the names in it that count; an empty one is all of them.
  using Watches = std::map<int, std::set<std::string>>;

  explicit nsLinuxLinkMonitor(const Options& aOptions) : mOptions(aOptions) {}
  bool OpenLinks();
  bool ConsumeLinks();
  bool ConsumeFiles();
  bool WatchFiles();

  const Options mOptions;
  nsEventFd mWake;
  nsUniqueFd mLinks;  // rtnetlink
  nsUniqueFd mFiles;  // inotify; may be missing
  Watches mWatches;
};

// What the kernel tells of changes of the network.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "nsError.h"

/// Listens for changes of links, addresses, routes and DNS servers, in the network namespace of the
/// thread that opens it. One thread at a time.
class nsLinkMonitor {
 public:
  enum Status { kUnknown, kDown, kUp };

  /// NS_ERROR_FAILURE when the system gives no socket.
  static nsresult Open(std::unique_ptr<nsLinkMonitor>* aResult);
  ~nsLinkMonitor();
  nsLinkMonitor(const nsLinkMonitor&) = delete;
  nsLinkMonitor& operator=(const nsLinkMonitor&) = delete;

  /// Descriptors that can be read when there may be a change.
  std::vector<int> Descriptors() const;
  /// Takes everything there is to read, without waiting. True when something changed, or when so
  /// much did that the kernel dropped some of it: then everything is to be looked at again.
  bool Consume();

  /// Up when an interface that leads outward is running and has an address. *aType is of
  /// nsINetworkLinkService.
  static Status ReadStatus(uint32_t* aType);

 private:
  nsLinkMonitor() = default;
  bool ConsumeLinks();
  bool ConsumeFiles();
  void WatchFiles();

  int mLinks = -1;                   // rtnetlink
  int mFiles = -1;                   // inotify; -1 without
  std::set<std::string> mUnwatched;  // directories that were not there yet
  int mEtc = -1;                     // the watch of /etc, in which one name counts
};

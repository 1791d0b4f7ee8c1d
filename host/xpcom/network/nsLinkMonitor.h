// What the system tells of changes of the network.
#pragma once

#include <cstdint>
#include <memory>

#include "nsError.h"
#include "nsEventSource.h"

/// Listens for changes of links, addresses, routes and name servers from when it is opened, in the
/// network that the opening thread sees. Consume may also be called while another thread waits.
/// True means that something changed, or that changes were lost because they came faster than they
/// were taken; other messages are taken and are nothing.
class nsLinkMonitor : public nsEventSource {
 public:
  enum class Status { eUnknown, eDown, eUp };

  /// NS_ERROR_FAILURE when the system does not tell. Without means to hear of name servers it
  /// still opens, with a warning: their changes are then seen with the next change of a link.
  static nsresult Open(std::unique_ptr<nsLinkMonitor>* aResult);

  /// Up when an interface that leads out of the machine is running and has an address, unknown when
  /// the system does not say. *aType, of nsINetworkLinkService, is that of the first such
  /// interface.
  static Status ReadStatus(uint32_t* aType);
};

// What the system tells of changes of the network.
#pragma once

#include <cstdint>
#include <memory>

#include "nsError.h"

/// Listens for changes of links, addresses, routes and name servers from when it is opened, in the
/// network that the opening thread sees. One thread at a time.
class nsLinkMonitor {
 public:
  enum class Status { eUnknown, eDown, eUp };

  virtual ~nsLinkMonitor() = default;

  /// Can be read when there is something to take. It is the monitor's.
  virtual int Descriptor() const = 0;
  /// Takes what there is, without waiting; under a flood it comes back in between, and the
  /// descriptor can still be read. True when something changed, or when changes were lost because
  /// they came faster than they were taken: either way all is to be looked at again.
  virtual bool Consume() = 0;

  /// NS_ERROR_FAILURE when the system does not tell. Without means to hear of name servers it
  /// still opens, with a warning: their changes are then seen with the next change of a link.
  static nsresult Open(std::unique_ptr<nsLinkMonitor>* aResult);

  /// Up when an interface that leads out of the machine is running and has an address, unknown when
  /// the system does not say. *aType, of nsINetworkLinkService, is that of the first such
  /// interface.
  static Status ReadStatus(uint32_t* aType);
};

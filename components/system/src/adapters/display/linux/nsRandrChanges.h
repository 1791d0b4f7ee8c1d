// When displays come, go or change.
#pragma once

#include <chrono>
#include <memory>

#include "nsEventFd.h"
#include "nsPollSource.h"
#include "nsXConnection.h"

/// What the server says of outputs, crtcs and the screen, on a connection of its own. One change
/// comes as several messages: it is told when they have ended for a moment, or last too long. The
/// end of the server is a change, and so is the start of one, which is looked for once a second
/// while there is none. What displays tell of themselves is another one.
class nsRandrChanges final : public nsPollSource {
 public:
  /// aMonitors is set when a display has told something new.
  explicit nsRandrChanges(std::shared_ptr<nsEventFd> aMonitors) : mMonitors(std::move(aMonitors)) {}

  void Wait() override;
  bool Consume() override;

 private:
  using Clock = std::chrono::steady_clock;

  bool Connect();
  /// True when there was something of displays among it.
  bool TakeMessages();

  const std::shared_ptr<nsEventFd> mMonitors;
  std::unique_ptr<nsXConnection> mConnection;  // null without a server
  uint8_t mFirstEvent = 0;
  bool mIsFirst = true;
  bool mIsChanged = false;
};

// When displays come, go or change.
#pragma once

#include <chrono>
#include <memory>
#include <optional>

#include "nsEventFd.h"
#include "nsPollSource.h"
#include "nsRandr.h"
#include "nsXConnection.h"

/// What the server says of outputs, crtcs and the screen, on a connection of its own. One change
/// comes as several messages: it is told when they have ended for a moment, or last too long. The
/// end of the server is a change, and so is the start of one, which is looked for once a second
/// while there is none. What displays tell of themselves is another one.
class nsRandrChanges final : public nsPollSource {
 public:
  /// aMonitors is set when a display has told something new. aSeen is the moment of the last look:
  /// what has changed from then on is told. Nothing when that has found no server.
  nsRandrChanges(std::shared_ptr<nsEventFd> aMonitors, std::optional<nsRandrStamp> aSeen)
      : mMonitors(std::move(aMonitors)), mSeen(aSeen) {}

  void Wait() override;
  bool Consume() override;

 private:
  using Clock = std::chrono::steady_clock;

  /// True when the server is another one than the one that was seen, or has changed.
  bool Connect();
  bool OpenConnection();
  /// True when there was something of displays among it.
  bool TakeMessages();

  const std::shared_ptr<nsEventFd> mMonitors;
  std::unique_ptr<nsXConnection> mConnection;  // null without a server
  std::optional<nsRandrStamp> mSeen;           // by whoever looks at displays
  uint8_t mFirstEvent = 0;
  bool mIsChanged = false;
};

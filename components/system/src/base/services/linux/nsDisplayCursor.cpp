#include "nsDisplayCursor.h"

#include <stdlib.h>
#include <xcb/xfixes.h>

#include <utility>

#include "nsDisplayConnects.h"
#include "nsPipeSignal.h"

namespace {

constexpr uint32_t kFirstVersionThatHides = 4;

struct Free {
  void operator()(void* aMemory) const { free(aMemory); }
};

}  // namespace

void nsDisplayCursor::SetShown(bool aShown) {
  const nsPipeSignalHeld held;
  // With a display that is gone, the hiding on it is gone too.
  if (mConnection && !Send(aShown)) mConnection = nullptr;
  if (mConnection || aShown) return;
  Connect();
  if (mConnection && !Send(false)) mConnection = nullptr;
}

void nsDisplayCursor::Connect() {
  int screen = 0;
  Connection connection;
  {
    const nsAutoLock oneAtATime(gDisplayConnects);
    connection.reset(xcb_connect(nullptr, &screen));
  }
  if (xcb_connection_has_error(connection.get())) return;
  const auto* extension = xcb_get_extension_data(connection.get(), &xcb_xfixes_id);
  if (!extension || !extension->present) return;
  // The display lets a connection do only what the version that it has asked for knows.
  const std::unique_ptr<xcb_xfixes_query_version_reply_t, Free> version(
      xcb_xfixes_query_version_reply(
          connection.get(), xcb_xfixes_query_version(connection.get(), kFirstVersionThatHides, 0),
          nullptr));
  if (!version || version->major_version < kFirstVersionThatHides) return;
  auto roots = xcb_setup_roots_iterator(xcb_get_setup(connection.get()));
  for (; screen > 0 && roots.rem > 1; --screen) xcb_screen_next(&roots);
  mRoot = roots.data->root;
  mConnection = std::move(connection);
}

bool nsDisplayCursor::Send(bool aShown) {
  // What has come is read first: an end that came since the last request is seen by that alone.
  while (std::unique_ptr<xcb_generic_event_t, Free>(xcb_poll_for_event(mConnection.get()))) {
  }
  if (aShown)
    xcb_xfixes_show_cursor(mConnection.get(), mRoot);
  else
    xcb_xfixes_hide_cursor(mConnection.get(), mRoot);
  return xcb_flush(mConnection.get()) > 0;
}

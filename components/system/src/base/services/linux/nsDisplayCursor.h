// The mouse cursor of an X display.
#pragma once

#include <xcb/xcb.h>

#include <memory>

/// The mouse cursor of the X display that DISPLAY names, on the screen named there. A connection is
/// made when the cursor is hidden first, and anew when that display is gone. Where no display
/// answers, or it can't hide cursors, nothing happens and nothing is reported. The display itself
/// shows its cursor again when this object or the process ends.
///
/// One thread at a time. Hiding waits for a display's answer when it connects, and never otherwise.
class nsDisplayCursor {
 public:
  /// To be called for changes only, the first of which is a hiding: the display counts them.
  void SetShown(bool aShown);

 private:
  struct Disconnect {
    void operator()(xcb_connection_t* aConnection) const { xcb_disconnect(aConnection); }
  };
  using Connection = std::unique_ptr<xcb_connection_t, Disconnect>;

  void Connect();
  /// False when the display is gone.
  bool Send(bool aShown);

  Connection mConnection;  // null until something is hidden
  xcb_window_t mRoot = XCB_WINDOW_NONE;
};

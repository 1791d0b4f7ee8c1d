// A connection to the display server that nobody waits for in vain.
#pragma once

#include <stdlib.h>
#include <xcb/xcb.h>

#include <chrono>
#include <memory>
#include <optional>

/// What a reply or an event lies in.
template <class T>
struct nsXFree {
  void operator()(T* aMemory) const { free(aMemory); }
};
template <class T>
using nsXReply = std::unique_ptr<T, nsXFree<T>>;

/// One thread at a time. A server that does not answer in time counts as gone.
class nsXConnection {
 public:
  /// Connects to the server that DISPLAY names. Null when there is none, or it does not answer.
  static std::unique_ptr<nsXConnection> Open();
  ~nsXConnection();
  nsXConnection(const nsXConnection&) = delete;
  nsXConnection& operator=(const nsXConnection&) = delete;

  xcb_connection_t* get() const { return mConnection; }
  const xcb_screen_t& Screen() const { return *mScreen; }
  /// False from the moment on at which it has failed; then it is of no use any more.
  bool Works() const { return mWorks && !xcb_connection_has_error(mConnection); }

  /// The reply to a request that has been sent; null when the server refuses or is gone.
  template <class Reply, class Cookie>
  nsXReply<Reply> Wait(Cookie aCookie) {
    return nsXReply<Reply>(static_cast<Reply*>(WaitFor(aCookie.sequence)));
  }
  /// Whether a request without a reply, sent as a checked one, has been carried out.
  bool Check(xcb_void_cookie_t aCookie);

 private:
  nsXConnection(xcb_connection_t* aConnection, const xcb_screen_t* aScreen)
      : mConnection(aConnection), mScreen(aScreen) {}
  void* WaitFor(unsigned aSequence);

  xcb_connection_t* const mConnection;
  const xcb_screen_t* const mScreen;
  bool mWorks = true;
};

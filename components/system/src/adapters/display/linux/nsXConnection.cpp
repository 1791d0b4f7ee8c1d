#include "nsXConnection.h"

#include <dlfcn.h>
#include <poll.h>
#include <xcb/xcbext.h>

#include <cerrno>
#include <system_error>
#include <thread>

#include "nsDisplayConnects.h"
#include "nsLock.h"
#include "nsPipeSignal.h"

namespace {

using Clock = std::chrono::steady_clock;

// A server that is busy with a change of modes takes some hundred milliseconds.
constexpr auto kPatience = std::chrono::seconds(3);

struct Connecting {
  nsMutex mLock;
  nsCondition mDone;
  bool mIsDone NS_GUARDED_BY(mLock) = false;
  bool mIsAbandoned NS_GUARDED_BY(mLock) = false;
  xcb_connection_t* mConnection NS_GUARDED_BY(mLock) = nullptr;
  int mScreen NS_GUARDED_BY(mLock) = 0;
};

// A thread that is left behind may return into this library after the host has unloaded it.
void StayLoaded() {
  Dl_info self;
  if (dladdr(reinterpret_cast<void*>(&StayLoaded), &self) && self.dli_fname)
    (void)dlopen(self.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
}

// The greeting of a server that has been stopped never comes, and nothing ends the wait for it: a
// thread is left behind with that, and others that nobody waits for any more behind it.
xcb_connection_t* Connect(int* aScreen) {
  const auto state = std::make_shared<Connecting>();
  const auto connect = [state] {
    const nsPipeSignalHeld held;
    const nsAutoLock oneAtATime(gDisplayConnects);
    {
      const nsAutoLock lock(state->mLock);
      if (state->mIsAbandoned) return;
    }
    int screen = 0;
    xcb_connection_t* const connection = xcb_connect(nullptr, &screen);
    const nsAutoLock lock(state->mLock);
    if (state->mIsAbandoned) {
      xcb_disconnect(connection);
      return;
    }
    state->mConnection = connection;
    state->mScreen = screen;
    state->mIsDone = true;
    state->mDone.NotifyAll();
  };
  std::thread thread;
  try {
    thread = std::thread(connect);
  } catch (const std::system_error&) {
    connect();
  }
  {
    nsAutoLock lock(state->mLock);
    state->mIsAbandoned = !state->mDone.WaitFor(
        lock, kPatience, [&]() NS_REQUIRES(state->mLock) { return state->mIsDone; });
    if (state->mIsAbandoned) {
      StayLoaded();
      if (thread.joinable()) thread.detach();
      return nullptr;
    }
  }
  if (thread.joinable()) thread.join();
  const nsAutoLock lock(state->mLock);
  *aScreen = state->mScreen;
  return state->mConnection;
}

}  // namespace

std::unique_ptr<nsXConnection> nsXConnection::Open() {
  const char* const display = getenv("DISPLAY");
  if (!display || !*display) return nullptr;
  int number = 0;
  xcb_connection_t* const connection = Connect(&number);
  if (!connection) return nullptr;
  if (xcb_connection_has_error(connection)) {
    xcb_disconnect(connection);
    return nullptr;
  }
  auto screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
  for (; number > 0 && screens.rem > 1; --number) xcb_screen_next(&screens);
  return std::unique_ptr<nsXConnection>(new nsXConnection(connection, screens.data));
}

nsXConnection::~nsXConnection() {
  const nsPipeSignalHeld held;
  xcb_disconnect(mConnection);
}

void* nsXConnection::WaitFor(unsigned aSequence) {
  const nsPipeSignalHeld held;
  if (!Works() || xcb_flush(mConnection) <= 0) return nullptr;
  const auto until = Clock::now() + kPatience;
  for (;;) {
    void* reply = nullptr;
    xcb_generic_error_t* error = nullptr;
    if (xcb_poll_for_reply(mConnection, aSequence, &reply, &error)) {
      free(error);
      return reply;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
    pollfd waiting{xcb_get_file_descriptor(mConnection), POLLIN, 0};
    if (!Works() || left <= 0 ||
        (poll(&waiting, 1, static_cast<int>(left)) == 0 && Clock::now() >= until)) {
      mWorks = false;
      return nullptr;
    }
  }
}

bool nsXConnection::Check(xcb_void_cookie_t aCookie) {
  // With the reply to what comes after it, its own fate is known.
  if (!Wait<xcb_get_input_focus_reply_t>(xcb_get_input_focus(mConnection))) return false;
  const nsXReply<xcb_generic_error_t> error(xcb_request_check(mConnection, aCookie));
  return !error && Works();
}

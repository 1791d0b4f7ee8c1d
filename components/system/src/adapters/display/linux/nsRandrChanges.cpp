#include "nsRandrChanges.h"

#include <stdlib.h>
#include <xcb/randr.h>

#include <algorithm>
#include <utility>

#include "nsPipeSignal.h"

namespace {

using std::chrono::milliseconds;

constexpr int kPause = 1000;          // between two looks for a server, in ms
constexpr milliseconds kQuiet(10);    // ends a burst
constexpr milliseconds kLongest(30);  // a burst that does not end

constexpr uint16_t kEvents =
    XCB_RANDR_NOTIFY_MASK_SCREEN_CHANGE | XCB_RANDR_NOTIFY_MASK_CRTC_CHANGE |
    XCB_RANDR_NOTIFY_MASK_OUTPUT_CHANGE | XCB_RANDR_NOTIFY_MASK_OUTPUT_PROPERTY;

}  // namespace

bool nsRandrChanges::Connect() {
  const auto seen = std::exchange(mSeen, std::nullopt);
  if (!OpenConnection()) return seen.has_value();  // it has gone meanwhile
  const auto now = nsRandrStamp::Read(*mConnection);
  return !seen || seen != now;
}

bool nsRandrChanges::OpenConnection() {
  auto connection = nsXConnection::Open();
  if (!connection) return false;
  const auto extension = connection->Wait<xcb_query_extension_reply_t>(
      xcb_query_extension(connection->get(), 5, "RANDR"));
  if (!extension || !extension->present) return false;
  if (!connection->Wait<xcb_randr_query_version_reply_t>(xcb_randr_query_version(
          connection->get(), XCB_RANDR_MAJOR_VERSION, XCB_RANDR_MINOR_VERSION)) ||
      !connection->Check(
          xcb_randr_select_input_checked(connection->get(), connection->Screen().root, kEvents)))
    return false;
  mFirstEvent = extension->first_event;
  mConnection = std::move(connection);
  return true;
}

bool nsRandrChanges::TakeMessages() {
  bool any = false;
  while (const nsXReply<xcb_generic_event_t> event{xcb_poll_for_event(mConnection->get())}) {
    const uint8_t type = event->response_type & 0x7F;
    if (type == mFirstEvent + XCB_RANDR_SCREEN_CHANGE_NOTIFY ||
        type == mFirstEvent + XCB_RANDR_NOTIFY)
      any = true;
  }
  return any;
}

void nsRandrChanges::Wait() {
  Clock::time_point first, last;
  bool inBurst = false;
  while (!mIsChanged) {
    if (!mConnection && Connect()) {
      mIsChanged = true;
      return;
    }
    // Without a name no server can ever be found.
    int wait = mConnection || !getenv("DISPLAY") ? -1 : kPause;
    if (inBurst) {
      const auto end = std::min(last + kQuiet, first + kLongest);
      const auto left = std::chrono::ceil<milliseconds>(end - Clock::now()).count();
      if (left <= 0) {
        mIsChanged = true;
        return;
      }
      wait = static_cast<int>(left);
    }
    std::vector<pollfd> waiting{
        {mConnection ? xcb_get_file_descriptor(mConnection->get()) : -1, POLLIN, 0},
        {mMonitors->get(), POLLIN, 0}};
    if (Poll(waiting, wait) == Polled::eWoken) return;
    const bool told = mMonitors->Take();
    if ((mConnection && TakeMessages()) || told) {
      last = Clock::now();
      if (!std::exchange(inBurst, true)) first = last;
    }
    if (mConnection && !mConnection->Works()) {
      mConnection = nullptr;
      mIsChanged = true;
      return;
    }
  }
}

bool nsRandrChanges::Consume() { return std::exchange(mIsChanged, false); }

#include "nsServiceNotice.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "nsServices.h"
#include "nsUniqueFd.h"

namespace {

// The manager may be gone, or busy: nobody waits for it.
void Tell(std::string_view aState) {
  const char* const place = std::getenv("NOTIFY_SOCKET");
  const std::string_view path = place ? place : "";
  sockaddr_un address{};
  if (path.size() < 2 || path.size() >= sizeof address.sun_path ||
      (path[0] != '/' && path[0] != '@'))
    return;
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), path.size());
  if (path[0] == '@') address.sun_path[0] = '\0';  // one without a file
  const nsUniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (socket)
    (void)sendto(socket.get(), aState.data(), aState.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                 reinterpret_cast<const sockaddr*>(&address),
                 static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size()));
}

uint64_t NumberOf(const char* aVariable) {
  const char* const value = std::getenv(aVariable);
  const std::string_view text = value ? value : "";
  uint64_t number = 0;
  (void)std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

// Half of the period, in milliseconds; 0 when the manager does not ask for it.
uint32_t Interval() {
  const uint64_t process = NumberOf("WATCHDOG_PID");
  const uint64_t period = NumberOf("WATCHDOG_USEC");
  if (period == 0 || (process != 0 && process != static_cast<uint64_t>(getpid()))) return 0;
  return static_cast<uint32_t>(std::clamp<uint64_t>(period / 2000, 1, 24 * 3600 * 1000));
}

}  // namespace

nsServiceNotice::~nsServiceNotice() {
  if (mTimer) (void)mTimer->Cancel();
}

void nsServiceNotice::Ready() {
  Tell("READY=1");
  const uint32_t interval = Interval();
  if (interval == 0 || mTimer) return;
  mTimer = do_CreateInstance<nsITimer>(NS_TIMER_CONTRACTID);
  if (mTimer)
    (void)mTimer->InitWithFuncCallback([](nsITimer*, void*) { Tell("WATCHDOG=1"); }, nullptr,
                                       interval, nsITimer::TYPE_REPEATING_SLACK);
}

void nsServiceNotice::Stopping() {
  if (mIsStopping) return;
  mIsStopping = true;
  if (mTimer) (void)mTimer->Cancel();
  mTimer = nullptr;
  Tell("STOPPING=1");
}

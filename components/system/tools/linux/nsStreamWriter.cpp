#include "nsStreamWriter.h"

#include <limits.h>
#include <poll.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>

nsresult nsStreamWriter::Write(std::span<const char> aBytes) {
  bool isFull = false;
  while (!aBytes.empty()) {
    if (mIsStopped) return NS_ERROR_ABORT;
    const bool asksFirst = isFull || !mCanTry;
    if (asksFirst) {
      pollfd polled[] = {{STDOUT_FILENO, POLLOUT, 0}, {mStop.get(), POLLIN, 0}};
      if (poll(polled, 2, -1) < 0) {
        if (errno == EINTR) continue;
        return NS_LastResult();
      }
      if (polled[1].revents) return NS_ERROR_ABORT;
    }
    // As much as there is room for, where the output can tell. The descriptor itself is not made
    // one that never waits: others may have it too. A pipe that can be written has room for so many
    // bytes in any case, and what is no pipe takes them.
    const iovec bytes{const_cast<char*>(aBytes.data()), aBytes.size()};
    const ssize_t count =
        asksFirst ? write(STDOUT_FILENO, aBytes.data(), std::min<size_t>(aBytes.size(), PIPE_BUF))
                  : pwritev2(STDOUT_FILENO, &bytes, 1, -1, RWF_NOWAIT);
    isFull = count < 0 && errno == EAGAIN;
    if (count >= 0)
      aBytes = aBytes.subspan(static_cast<size_t>(count));
    else if (errno == EOPNOTSUPP && !asksFirst)
      mCanTry = false;  // a terminal, a socket, an older system
    else if (errno != EAGAIN && errno != EINTR)
      return errno == EPIPE ? NS_BASE_STREAM_CLOSED : NS_LastResult();
  }
  return NS_OK;
}

#include "nsStreamWriter.h"

#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>

nsresult nsStreamWriter::Write(std::span<const char> aBytes) {
  while (!aBytes.empty()) {
    pollfd polled[] = {{STDOUT_FILENO, POLLOUT, 0}, {mStop.get(), POLLIN, 0}};
    if (poll(polled, 2, -1) < 0) {
      if (errno == EINTR) continue;
      return NS_LastResult();
    }
    if (polled[1].revents) return NS_ERROR_ABORT;
    // A pipe that can be written has room for so many bytes: the write does not wait.
    const ssize_t count =
        write(STDOUT_FILENO, aBytes.data(), std::min<size_t>(aBytes.size(), PIPE_BUF));
    if (count < 0) {
      if (errno == EINTR || errno == EAGAIN) continue;
      return errno == EPIPE ? NS_BASE_STREAM_CLOSED : NS_LastResult();
    }
    aBytes = aBytes.subspan(static_cast<size_t>(count));
  }
  return NS_OK;
}

#include "nsNetlinkMessages.h"

#include <sys/socket.h>

#include <cerrno>

namespace vorel::netlink {

ssize_t Receive(int aSocket, std::span<uint8_t> aBuffer, bool* aIsCut) {
  for (;;) {
    sockaddr_nl from{};
    iovec piece{aBuffer.data(), aBuffer.size()};
    msghdr message{};
    message.msg_name = &from;
    message.msg_namelen = sizeof from;
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    const ssize_t got = recvmsg(aSocket, &message, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got >= 0 && from.nl_pid != 0) continue;
    *aIsCut = message.msg_flags & MSG_TRUNC;
    return got;
  }
}

}  // namespace vorel::netlink

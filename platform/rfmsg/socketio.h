#pragma once
// Internal: the few POSIX socket operations the transport needs, with errors
// turned into text for people.

#include <cstddef>
#include <string>

#include <sys/uio.h>

namespace RFMsgExp::SocketIo {

std::string errorText(int error);
// A listening, non-blocking socket on `port` (0: any free one); -1 and `error` on failure.
int listenOn(int port, bool everyInterface, std::string& error);
// The local port a socket is bound to.
int localPort(int fd);
// Accepts a waiting connection (non-blocking); -1 with errno set when there is none.
// `address` becomes "127.0.0.1:40312".
int acceptFrom(int listenFd, std::string& address);
void setNoDelay(int fd);
void setNonBlocking(int fd);
// Connects within `timeoutMs`, trying every address of `host`; -1 and `error` on failure.
int connectTo(const std::string& host, int port, int timeoutMs, std::string& error);
// Sends what the socket takes now without blocking: bytes sent, or -1 with errno set
// (EAGAIN when nothing fit).
long sendSome(int fd, const iovec* pieces, std::size_t count);
// The name of this machine.
std::string machineName();
// Drops sent bytes from the front of `pieces`; returns the new first piece.
std::size_t advance(iovec* pieces, std::size_t count, std::size_t sent);

} // namespace RFMsgExp::SocketIo

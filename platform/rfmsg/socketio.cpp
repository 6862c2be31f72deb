#include "rfmsg/socketio.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace RFMsgExp::SocketIo {

std::string errorText(int error)
{
    char buffer[256];
    // The GNU strerror_r may return a static text instead of filling the buffer.
    return strerror_r(error, buffer, sizeof buffer);
}

int listenOn(int port, bool everyInterface, std::string& error)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        error = errorText(errno);
        return -1;
    }
    // A restarted bridge may take its port back while old connections linger.
    const int on = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(everyInterface ? INADDR_ANY : INADDR_LOOPBACK);
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(fd, SOMAXCONN) != 0) {
        error = errorText(errno);
        ::close(fd);
        return -1;
    }
    return fd;
}

int localPort(int fd)
{
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        return 0;
    if (address.ss_family == AF_INET6)
        return ntohs(reinterpret_cast<sockaddr_in6&>(address).sin6_port);
    return ntohs(reinterpret_cast<sockaddr_in&>(address).sin_port);
}

namespace {

std::string addressText(const sockaddr_storage& address)
{
    char host[INET6_ADDRSTRLEN] = "?";
    if (address.ss_family == AF_INET6) {
        const auto& in6 = reinterpret_cast<const sockaddr_in6&>(address);
        ::inet_ntop(AF_INET6, &in6.sin6_addr, host, sizeof host);
        return "[" + std::string(host) + "]:" + std::to_string(ntohs(in6.sin6_port));
    }
    const auto& in4 = reinterpret_cast<const sockaddr_in&>(address);
    ::inet_ntop(AF_INET, &in4.sin_addr, host, sizeof host);
    return std::string(host) + ":" + std::to_string(ntohs(in4.sin_port));
}

} // namespace

int acceptFrom(int listenFd, std::string& address)
{
    // The address comes with the connection: asking later fails for one that was
    // already reset.
    sockaddr_storage remote{};
    socklen_t size = sizeof remote;
    const int fd = ::accept4(listenFd, reinterpret_cast<sockaddr*>(&remote), &size,
                             SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd >= 0)
        address = addressText(remote);
    return fd;
}

void setNoDelay(int fd)
{
    // Messages are whole frames: waiting to coalesce them only adds latency.
    const int on = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

void setNonBlocking(int fd)
{
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
}

namespace {

int connectOne(const addrinfo& address, std::chrono::steady_clock::time_point deadline,
               std::string& error)
{
    const int fd = ::socket(address.ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        error = errorText(errno);
        return -1;
    }
    if (::connect(fd, address.ai_addr, address.ai_addrlen) != 0) {
        if (errno != EINPROGRESS) {
            error = errorText(errno);
            ::close(fd);
            return -1;
        }
        for (;;) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            pollfd entry{fd, POLLOUT, 0};
            const int ready = ::poll(&entry, 1, static_cast<int>(std::max<long>(0, left.count())));
            if (ready < 0 && errno == EINTR)
                continue;
            if (ready <= 0) {
                error = ready == 0 ? "no answer in time" : errorText(errno);
                ::close(fd);
                return -1;
            }
            break;
        }
        int failure = 0;
        socklen_t size = sizeof failure;
        ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &failure, &size);
        if (failure != 0) {
            error = errorText(failure);
            ::close(fd);
            return -1;
        }
    }
    setNoDelay(fd);
    return fd;
}

} // namespace

int connectTo(const std::string& host, int port, int timeoutMs, std::string& error)
{
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV;
    addrinfo* addresses = nullptr;
    const std::string service = std::to_string(port);
    const int resolved = ::getaddrinfo(host.c_str(), service.c_str(), &hints, &addresses);
    if (resolved != 0) {
        error = std::string("cannot resolve the host name: ") + ::gai_strerror(resolved);
        return -1;
    }
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(std::max(0, timeoutMs));
    int fd = -1;
    for (addrinfo* address = addresses; address && fd < 0; address = address->ai_next)
        fd = connectOne(*address, deadline, error);
    ::freeaddrinfo(addresses);
    return fd;
}

long sendSome(int fd, const iovec* pieces, std::size_t count)
{
    msghdr message{};
    message.msg_iov = const_cast<iovec*>(pieces);
    message.msg_iovlen = std::min<std::size_t>(count, IOV_MAX);
    long sent;
    do
        sent = ::sendmsg(fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    while (sent < 0 && errno == EINTR);
    return sent;
}

std::string machineName()
{
    char name[256] = {};
    if (::gethostname(name, sizeof name - 1) != 0)
        return "localhost";
    return name;
}

std::size_t advance(iovec* pieces, std::size_t count, std::size_t sent)
{
    std::size_t first = 0;
    while (first < count && sent >= pieces[first].iov_len) {
        sent -= pieces[first].iov_len;
        ++first;
    }
    if (first < count) {
        pieces[first].iov_base = static_cast<char*>(pieces[first].iov_base) + sent;
        pieces[first].iov_len -= sent;
    }
    return first;
}

} // namespace RFMsgExp::SocketIo

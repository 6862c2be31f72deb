#include "rawpeer.h"

#include <chrono>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

RawPeer::RawPeer(int port)
{
    m_fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        ::close(m_fd);
        m_fd = -1;
    }
}

RawPeer::~RawPeer()
{
    close();
}

void RawPeer::send(const std::string& bytes)
{
    std::size_t sent = 0;
    while (m_fd >= 0 && sent < bytes.size()) {
        const long count = ::send(m_fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0)
            return;
        sent += static_cast<std::size_t>(count);
    }
}

void RawPeer::close()
{
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = -1;
}

void RawPeer::reset()
{
    if (m_fd < 0)
        return;
    const linger abort{1, 0};
    ::setsockopt(m_fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    close();
}

std::string RawPeer::readUntilClosed(int timeoutMs, bool* closed)
{
    std::string bytes;
    if (closed)
        *closed = false;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (m_fd >= 0) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd entry{m_fd, POLLIN, 0};
        if (left.count() <= 0 || ::poll(&entry, 1, static_cast<int>(left.count())) <= 0)
            break;
        char buffer[4096];
        const long count = ::recv(m_fd, buffer, sizeof buffer, 0);
        if (count <= 0) {
            if (closed)
                *closed = true;
            break;
        }
        bytes.append(buffer, static_cast<std::size_t>(count));
    }
    return bytes;
}

#include "rfmsg/bridgeconnection.h"

#include <algorithm>
#include <cerrno>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

#include "rfmsg/socketio.h"

namespace RFMsgExp {
namespace {

// Frames gathered into one sendmsg() call.
constexpr std::size_t kPiecesPerWrite = 64;
constexpr std::size_t kDrainOnClose = 1 << 20;

} // namespace

// Brings m_wantsWrite up to date when a method that holds the lock ends.
struct BridgeConnection::WantsWriteUpdate
{
    BridgeConnection& connection;
    ~WantsWriteUpdate() { connection.updateWantsWrite(); }
};

BridgeConnection::BridgeConnection(int fd, std::string address, std::uint32_t frameLimit,
                                   std::chrono::steady_clock::time_point deadline)
    : reader(frameLimit, true), handshakeDeadline(deadline), m_fd(fd), m_address(std::move(address))
{
}

BridgeConnection::~BridgeConnection()
{
    close();
}

bool BridgeConnection::send(std::shared_ptr<const std::string> frame)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const WantsWriteUpdate update{*this};
    if (m_fd < 0 || m_sendError != 0 || m_overflow != 0)
        return false;
    if (!m_queue.empty()) {
        // A single message over the limit may wait, but not on top of others.
        if (m_waiting + frame->size() > m_hardLimit) {
            m_overflow = m_waiting + frame->size();
            m_queue.clear();
            m_waiting = 0;
            return true;
        }
        // The network role is already waiting to write the queue; it is woken
        // only to time the soft limit once the queue goes over it.
        m_waiting += frame->size();
        const bool overSoftNow =
            m_waiting > m_softLimit && m_waiting - frame->size() <= m_softLimit;
        m_queue.push_back(std::move(frame));
        return overSoftNow;
    }
    const iovec piece{const_cast<char*>(frame->data()), frame->size()};
    const long sent = SocketIo::sendSome(m_fd, &piece, 1);
    if (sent == static_cast<long>(frame->size()))
        return false;
    if (sent < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
        m_sendError = errno;
        return true;
    }
    m_sentOfFront = sent < 0 ? 0 : static_cast<std::size_t>(sent);
    m_waiting = frame->size() - m_sentOfFront;
    m_queue.push_back(std::move(frame));
    return true;
}

void BridgeConnection::limitSendQueue(std::size_t hardLimit, std::size_t softLimit)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_hardLimit = hardLimit;
    m_softLimit = softLimit;
}

std::size_t BridgeConnection::sendQueueExcess(std::chrono::steady_clock::time_point now,
                                              std::chrono::milliseconds softFor,
                                              std::chrono::steady_clock::time_point& nextCheck)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_overflow != 0)
        return m_overflow;
    if (m_overSoftSince == std::chrono::steady_clock::time_point())
        return 0;
    const auto deadline = m_overSoftSince + softFor;
    if (deadline <= now)
        return m_waiting;
    nextCheck = std::min(nextCheck, deadline);
    return 0;
}

bool BridgeConnection::flush(std::string& error)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const WantsWriteUpdate update{*this};
    while (m_sendError == 0 && !m_queue.empty() && m_fd >= 0) {
        std::vector<iovec> pieces;
        for (std::size_t i = 0; i < m_queue.size() && i < kPiecesPerWrite; ++i) {
            const std::string& frame = *m_queue[i];
            const std::size_t skip = i == 0 ? m_sentOfFront : 0;
            pieces.push_back({const_cast<char*>(frame.data()) + skip, frame.size() - skip});
        }
        long sent = SocketIo::sendSome(m_fd, pieces.data(), pieces.size());
        if (sent < 0) {
            if (errno == EAGAIN || errno == EWOULDBLOCK)
                return true;
            m_sendError = errno;
            break;
        }
        m_waiting -= static_cast<std::size_t>(sent);
        while (sent > 0) {
            const std::size_t left = m_queue.front()->size() - m_sentOfFront;
            if (static_cast<std::size_t>(sent) < left) {
                m_sentOfFront += static_cast<std::size_t>(sent);
                break;
            }
            sent -= static_cast<long>(left);
            m_queue.pop_front();
            m_sentOfFront = 0;
        }
    }
    if (m_sendError != 0) {
        error = SocketIo::errorText(m_sendError);
        return false;
    }
    return true;
}

bool BridgeConnection::wantsWrite()
{
    return m_wantsWrite.load(std::memory_order_acquire);
}

void BridgeConnection::updateWantsWrite()
{
    if (m_waiting <= m_softLimit)
        m_overSoftSince = {};
    else if (m_overSoftSince == std::chrono::steady_clock::time_point())
        m_overSoftSince = std::chrono::steady_clock::now();
    m_wantsWrite.store(m_fd >= 0 && (!m_queue.empty() || m_sendError != 0),
                       std::memory_order_release);
}

void BridgeConnection::close()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const WantsWriteUpdate update{*this};
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = -1;
    m_queue.clear();
    m_waiting = 0;
}

void BridgeConnection::closeWith(const std::string& frame)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const WantsWriteUpdate update{*this};
    if (m_fd < 0)
        return;
    if (m_sendError == 0) {
        // Frames still queued go first, as far as they fit.
        std::vector<iovec> pieces;
        for (std::size_t i = 0; i < m_queue.size() && i < kPiecesPerWrite; ++i) {
            const std::size_t skip = i == 0 ? m_sentOfFront : 0;
            pieces.push_back(
                {const_cast<char*>(m_queue[i]->data()) + skip, m_queue[i]->size() - skip});
        }
        pieces.push_back({const_cast<char*>(frame.data()), frame.size()});
        SocketIo::sendSome(m_fd, pieces.data(), pieces.size());
    }
    // close() with unread input resets the connection and the peer might lose
    // the frame: stop sending, then drain a bounded amount first.
    ::shutdown(m_fd, SHUT_WR);
    char sink[4096];
    for (std::size_t drained = 0; drained < kDrainOnClose;) {
        const long received = ::recv(m_fd, sink, sizeof sink, MSG_DONTWAIT);
        if (received <= 0)
            break;
        drained += static_cast<std::size_t>(received);
    }
    ::close(m_fd);
    m_fd = -1;
    m_queue.clear();
    m_waiting = 0;
}

bool BridgeConnection::isOpen()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_fd >= 0;
}

void BridgeConnection::announce(std::string appName, int number)
{
    m_appName = std::move(appName);
    m_number = number;
}

std::string BridgeConnection::describe() const
{
    if (m_number == 0)
        return "peer at " + m_address;
    return "peer " + m_appName + " (" + std::to_string(m_number) + ") at " + m_address;
}

} // namespace RFMsgExp

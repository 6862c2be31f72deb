#pragma once
// Internal: one peer's connection at the bridge. The network role owns the
// reading side (the public members below); any thread may send, and sending
// never waits for the peer.

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

#include "rfmsg/deliveryqueue.h"
#include "rfmsg/framereader.h"
#include "rfmsg/receivebudget.h"

namespace RFMsgExp {

class BridgeConnection : public std::enable_shared_from_this<BridgeConnection>
{
public:
    BridgeConnection(int fd, std::string address, std::uint32_t frameLimit,
                     std::chrono::steady_clock::time_point handshakeDeadline);
    ~BridgeConnection();
    BridgeConnection(const BridgeConnection&) = delete;
    BridgeConnection& operator=(const BridgeConnection&) = delete;

    // Any thread. Sends what the socket takes at once and queues the rest.
    // True when the network role has to be woken: to write the rest, to time
    // the soft limit, or to close a peer whose queue went over its hard limit
    // (the queue is then dropped at once, and so is everything sent later).
    bool send(std::shared_ptr<const std::string> frame);
    // Bounds of the bytes waiting to be sent; set before the first send.
    void limitSendQueue(std::size_t hardLimit, std::size_t softLimit);
    // The bytes that were waiting when the queue went over its hard limit, or
    // that wait now when it has been over its soft limit for `softFor`; 0
    // while neither. `nextCheck` becomes the soft limit's deadline, if it
    // runs and is earlier.
    std::size_t sendQueueExcess(std::chrono::steady_clock::time_point now,
                                std::chrono::milliseconds softFor,
                                std::chrono::steady_clock::time_point& nextCheck);
    // Network thread: writes queued bytes while the socket takes them.
    // False with `error` when the connection broke (now or in an earlier send).
    bool flush(std::string& error);
    bool wantsWrite();
    // Closes the socket; later sends are dropped.
    void close();
    // Sends `frame` as far as the socket takes it at once, then closes without
    // resetting the connection, so that the peer gets to read the frame.
    void closeWith(const std::string& frame);
    bool isOpen();
    int fd() const { return m_fd; }

    // Set once by the network role when the peer announced itself, before
    // the connection is listed; read-only afterwards.
    void announce(std::string appName, int number);
    bool announced() const { return m_number != 0; }
    const std::string& appName() const { return m_appName; }
    int number() const { return m_number; }
    // "peer DXD (1) at 127.0.0.1:40312", or "peer at 127.0.0.1:40312" before it announced itself.
    std::string describe() const;

    // Network role only.
    Wire::FrameReader reader;
    const std::chrono::steady_clock::time_point handshakeDeadline;
    // A received message the full delivery queue could not take yet; while it
    // waits the connection is not read (TCP back-pressure on the peer).
    std::unique_ptr<Delivery> pending;
    // The next frame waits for room in the receive budget; meanwhile the
    // connection is not read either.
    bool waitingForBudget = false;
    // Memory reserved for the frame being received, and when a byte last came.
    ReceiveBudget::Reservation frameReservation;
    std::chrono::steady_clock::time_point lastProgress;
    bool readingPaused() const { return pending || waitingForBudget; }
    // The peer shut its side while reading was paused.
    bool peerClosed = false;
    // The events the network role's epoll watches for now (0: not registered).
    std::uint32_t watched = 0;

private:
    struct WantsWriteUpdate;
    // With the lock held.
    void updateWantsWrite();

    std::mutex m_mutex;
    int m_fd;
    const std::string m_address;
    std::string m_appName;
    int m_number = 0;
    std::deque<std::shared_ptr<const std::string>> m_queue;
    // Whether the network role must watch for room to write; read without the lock.
    std::atomic<bool> m_wantsWrite{false};
    std::size_t m_sentOfFront = 0;
    int m_sendError = 0;
    // Bytes of m_queue not sent yet, and what they may reach.
    std::size_t m_waiting = 0;
    std::size_t m_hardLimit = SIZE_MAX;
    std::size_t m_softLimit = SIZE_MAX;
    std::size_t m_overflow = 0;
    // Since when m_waiting is over the soft limit (the epoch: it is not).
    std::chrono::steady_clock::time_point m_overSoftSince;
};

} // namespace RFMsgExp

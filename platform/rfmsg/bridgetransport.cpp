#include "rfmsg/bridgetransport.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include "rfmsg/bridgeconnection.h"
#include "rfmsg/messageaccess.h"
#include "rfmsg/socketio.h"
#include "rfmsg/wirecodec.h"

namespace RFMsgExp {
namespace {

using Clock = std::chrono::steady_clock;

// Read at most this much from one peer before looking at the others again.
constexpr long kReadBudget = 16l << 20;
// How long a delivery may keep the network's thread before the other thread
// takes the network over, and how long after the last delivery the other
// thread keeps looking in.
constexpr auto kWatchInterval = std::chrono::milliseconds(2);
constexpr auto kWatchFor = std::chrono::milliseconds(200);
// What epoll reports besides connections (whose events carry a pointer).
constexpr std::uint64_t kWakeToken = 0;
constexpr std::uint64_t kListenToken = 1;
// The two threads.
constexpr int kDeliverer = 0;
constexpr int kHelper = 1;
// After waiting for the connections failed, the network role rests this long.
constexpr auto kWaitRest = std::chrono::milliseconds(100);
// Starts the summary of fault reports held back in the last second.
constexpr const char* kSummaryStart = "\u2026 and ";

bool equalIgnoringCase(const std::string& a, const std::string& b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) ==
                      std::tolower(static_cast<unsigned char>(y));
           });
}

std::string durationText(int milliseconds)
{
    if (milliseconds % 1000 == 0)
        return std::to_string(milliseconds / 1000) + " s";
    return std::to_string(milliseconds) + " ms";
}

int millisecondsUntil(Clock::time_point when, Clock::time_point now)
{
    if (when <= now)
        return 0;
    // Round up so that poll() does not wake just before the deadline.
    return static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(when - now).count());
}

// Bytes in MB (1,048,576 bytes) to one decimal, rounded up: "0.1" for a single byte.
std::string megabytesText(std::size_t bytes)
{
    const std::size_t tenths = (bytes * 10 + (1u << 20) - 1) >> 20;
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10);
}

std::string summaryText(long count, const std::string& reason, bool aboutAPeer)
{
    const std::string more = kSummaryStart + std::to_string(count) + " more ";
    if (!aboutAPeer)
        return more + (reason.empty() ? "reports of other faults" : "times: " + reason);
    return more + (count == 1 ? "connection closed: " : "connections closed: ") + reason;
}

std::shared_ptr<const std::string> frameOf(Wire::FrameEncoder&& encoder)
{
    return std::make_shared<const std::string>(std::move(encoder).take());
}

} // namespace

BridgeTransport::BridgeTransport(XBridge& owner)
    : m_owner(owner), m_budget([this] { wake(); }), m_queue([this] { wake(); }),
      m_wakeFd(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
{
}

BridgeTransport::~BridgeTransport()
{
    stopDelivery();
    if (m_wakeFd >= 0)
        ::close(m_wakeFd);
}

void BridgeTransport::wake()
{
    const std::uint64_t one = 1;
    if (m_wakeFd >= 0) [[maybe_unused]]
        auto written = ::write(m_wakeFd, &one, sizeof one);
}

void BridgeTransport::listen(int& port, int flags)
{
    std::lock_guard<std::mutex> control(m_controlMutex);
    stopNetwork();
    const bool everyInterface = (flags & 1) != 0;
    const std::string where =
        "cannot listen on port " + std::to_string(port) +
        (everyInterface ? " on every interface" : " on the loopback interface");
    if (port < 0 || port > 65535)
        throw IXException::Create(where + ": not a port number (0 to 65535)");
    if (m_wakeFd < 0)
        throw IXException::Create(where + ": the bridge has no wake-up event (" +
                                  SocketIo::errorText(errno) + ")");
    std::string error;
    const int listenFd = SocketIo::listenOn(port, everyInterface, error);
    if (listenFd < 0)
        throw IXException::Create(where + ": " + error);
    port = SocketIo::localPort(listenFd);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_port = port;
        m_nextNumber = 1;
        m_active = m_limits;
        m_queue.setBounds(m_limits.queuedMessages, m_limits.queuedBytes);
        m_budget.configure(m_limits.receiveBudget != 0 ? m_limits.receiveBudget
                                                       : 2 * std::size_t(m_limits.frameLimit),
                           m_limits.smallFrameLimit, m_limits.smallFrameReserve);
    }
    // Nobody holds the network role now: its state is ours to set.
    m_epollFd = ::epoll_create1(EPOLL_CLOEXEC);
    if (m_epollFd < 0) {
        const std::string reason = SocketIo::errorText(errno);
        ::close(listenFd);
        throw IXException::Create(where + ": " + reason);
    }
    epoll_event wakeEvent{};
    wakeEvent.events = EPOLLIN;
    wakeEvent.data.u64 = kWakeToken;
    ::epoll_ctl(m_epollFd, EPOLL_CTL_ADD, m_wakeFd, &wakeEvent);
    m_listenWatched = 0;
    m_listenFd = listenFd;
    m_acceptRestUntil = Clock::time_point();
    m_acceptFailing = false;
    m_reportWindowEnd = Clock::time_point();
    m_reportsInWindow = 0;
    m_heldReports.clear();
    m_stopNetwork = false;
    std::lock_guard<std::mutex> roles(m_roleMutex);
    if (m_workers.empty()) {
        m_stopWorkers = false;
        m_workers.emplace_back(&BridgeTransport::runDeliverer, this);
        m_workers.emplace_back(&BridgeTransport::runHelper, this);
    }
    m_networkWanted = true;
    m_roleChanged.notify_all();
}

void BridgeTransport::disconnect()
{
    std::lock_guard<std::mutex> control(m_controlMutex);
    stopNetwork();
    m_queue.clear();
}

void BridgeTransport::stopNetwork()
{
    {
        std::unique_lock<std::mutex> roles(m_roleMutex);
        if (!m_networkWanted && m_listenFd < 0)
            return;
        m_networkWanted = false;
        m_stopNetwork = true;
        wake();
        // The network role never waits for anyone, so this is quick. A thread
        // that holds it while delivering is not waited for: the role is taken
        // from it, and it finds that out when its delivery returns.
        m_roleChanged.wait(roles, [this] {
            return m_networkOwner < 0 || (m_networkOwner == kDeliverer && m_inlineDelivery);
        });
        m_networkOwner = -1;
        m_handBack = false;
    }
    m_roleChanged.notify_all();
    const std::string farewell = Wire::encodeClose("the bridge is disconnecting").flatten();
    for (const Connection& connection : m_connections) {
        connection->pending.reset();
        connection->frameReservation.release();
        connection->closeWith(farewell);
    }
    m_connections.clear();
    m_budgetWaiters.clear();
    m_waitingForBudget = 0;
    if (m_listenFd >= 0)
        ::close(m_listenFd);
    m_listenFd = -1;
    if (m_epollFd >= 0)
        ::close(m_epollFd);
    m_epollFd = -1;
    m_paused = 0;
    m_open = 0;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_listed.clear();
    m_port = 0;
}

void BridgeTransport::stopDelivery()
{
    std::lock_guard<std::mutex> control(m_controlMutex);
    stopNetwork();
    {
        std::lock_guard<std::mutex> roles(m_roleMutex);
        m_stopWorkers = true;
    }
    m_roleChanged.notify_all();
    for (std::thread& worker : m_workers) {
        // Called from OnReceive itself: that delivery cannot be waited for.
        if (worker.get_id() == std::this_thread::get_id())
            worker.detach();
        else
            worker.join();
    }
    m_workers.clear();
    m_queue.clear();
}

std::vector<Testing::Peer> BridgeTransport::peers()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_simulating)
        return m_simulatedPeers;
    std::vector<Testing::Peer> peers;
    peers.reserve(m_listed.size());
    for (const Connection& connection : m_listed)
        peers.push_back({connection->appName(), connection->number()});
    return peers;
}

int BridgeTransport::port()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_port;
}

void BridgeTransport::send(IRFMessage& message, const std::string& target)
{
    Connections targets;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_simulating) {
            if (!m_sendFailure.empty())
                throw IXException::Create(m_sendFailure);
            m_sent.push_back({Testing::contentOf(message), target});
            return;
        }
        for (const Connection& connection : m_listed)
            if (target.empty() || equalIgnoringCase(connection->appName(), target))
                targets.push_back(connection);
    }
    if (targets.empty())
        return;
    std::shared_ptr<const std::string> frame;
    try {
        frame = frameOf(Wire::encodeMessage(Internal::contentView(message)));
    } catch (const std::length_error& error) {
        throw IXException::Create(std::string("cannot send: ") + error.what());
    }
    for (const Connection& connection : targets)
        sendFrame(connection, frame);
}

void BridgeTransport::sendFrame(const Connection& connection,
                                std::shared_ptr<const std::string> frame)
{
    if (connection->send(std::move(frame)))
        wake();
}

void BridgeTransport::simulate(std::vector<Testing::Peer> peers)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_simulating = true;
    m_simulatedPeers = std::move(peers);
}

std::vector<Testing::SentMessage> BridgeTransport::sent()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_sent;
}

void BridgeTransport::failSends(std::string reason)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_sendFailure = std::move(reason);
}

void BridgeTransport::clearSent()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_sent.clear();
}

void BridgeTransport::setLimits(const Testing::TransportLimits& limits)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_limits = limits;
    m_queue.setBounds(limits.queuedMessages, limits.queuedBytes);
}

Testing::TransportStats BridgeTransport::stats()
{
    Testing::TransportStats stats;
    stats.queued = m_queue.size();
    stats.queuedHighWater = m_queue.highWater();
    stats.pausedConnections = m_paused.load();
    stats.openConnections = m_open.load();
    stats.failedAccepts = m_failedAccepts.load();
    stats.budgetReserved = m_budget.reserved();
    stats.budgetHighWater = m_budget.highWater();
    stats.waitingForBudget = m_waitingForBudget.load();
    return stats;
}

// Roles -----------------------------------------------------------------------

void BridgeTransport::runDeliverer()
{
    std::unique_lock<std::mutex> roles(m_roleMutex);
    for (;;) {
        if (m_stopWorkers)
            return;
        // Watching the network itself, it delivers what it reads at once.
        if (m_networkWanted && m_networkOwner < 0) {
            m_networkOwner = kDeliverer;
            roles.unlock();
            runNetwork(kDeliverer);
            roles.lock();
            continue;
        }
        if (!m_delivering && !m_queue.empty()) {
            m_delivering = true;
            roles.unlock();
            deliverAll();
            roles.lock();
            continue;
        }
        // The helper held the network during a long delivery: take it back.
        if (m_networkWanted && m_networkOwner == kHelper && !m_handBack) {
            m_handBack = true;
            wake();
        }
        m_roleChanged.wait(roles);
    }
}

void BridgeTransport::runHelper()
{
    std::unique_lock<std::mutex> roles(m_roleMutex);
    for (;;) {
        if (m_stopWorkers)
            return;
        const Clock::time_point now = Clock::now();
        // A delivery that lasts keeps the delivery thread: the network is taken from it.
        const bool takeOver =
            m_networkWanted && ((m_networkOwner == kDeliverer && m_inlineDelivery &&
                                 now - m_inlineSince >= kWatchInterval) ||
                                (m_networkOwner < 0 && m_delivering));
        if (takeOver) {
            m_networkOwner = kHelper;
            m_watching = false;
            m_handBack = false;
            // The delivery going on is no longer the network owner's.
            m_inlineDelivery = false;
            roles.unlock();
            runNetwork(kHelper);
            roles.lock();
            continue;
        }
        // While messages come, look in on the deliveries now and then; once
        // they have stopped coming for a while, sleep until called.
        m_watching = m_inlineDelivery || now - m_lastInlineStart < kWatchFor;
        if (m_watching)
            m_roleChanged.wait_for(roles, kWatchInterval);
        else
            m_roleChanged.wait(roles);
    }
}

void BridgeTransport::deliverAll()
{
    for (;;) {
        std::optional<Delivery> item = m_queue.tryPop();
        if (!item) {
            // Decided under the role lock: the network role looks at
            // m_delivering under it after every message it queues.
            std::lock_guard<std::mutex> roles(m_roleMutex);
            if (m_queue.empty()) {
                m_delivering = false;
                m_inlineDelivery = false;
                return;
            }
            continue;
        }
        deliver(*item);
    }
}

void BridgeTransport::deliver(Delivery& item)
{
    std::string escaped;
    if (!item.message) {
        msg_auto_ptr<IXException> error(IXException::Create(item.error));
        try {
            m_owner.OnError(*error);
        } catch (IXException* thrown) {
            if (thrown)
                thrown->Destroy();
        } catch (...) {
        }
        return;
    }
    msg_auto_ptr<IRFMessage> reply;
    try {
        reply = m_owner.OnReceive(std::move(item.message));
        if (reply && item.from)
            sendFrame(item.from, frameOf(Wire::encodeMessage(Internal::contentView(*reply))));
    } catch (IXException* thrown) {
        escaped = thrown ? thrown->GetInfo().str() : "a null exception";
        if (thrown)
            thrown->Destroy();
    } catch (const std::exception& thrown) {
        escaped = thrown.what();
    } catch (...) {
        escaped = "an unknown exception";
    }
    if (!escaped.empty()) {
        Delivery report;
        report.error = "OnReceive let an exception escape: " + escaped;
        deliver(report);
    }
}

// Network role ----------------------------------------------------------------

void BridgeTransport::runNetwork(int self)
{
    for (;;) {
        if (m_stopNetwork.load()) {
            std::lock_guard<std::mutex> roles(m_roleMutex);
            if (m_networkOwner == self)
                m_networkOwner = -1;
            m_roleChanged.notify_all();
            return;
        }
        if (self == kHelper) {
            std::lock_guard<std::mutex> roles(m_roleMutex);
            if (m_networkOwner != self)
                return;
            // Back to the delivery thread once it is free, so that it reads
            // and delivers without a hand-over again.
            if (m_handBack || (!m_delivering && !m_queue.empty())) {
                m_networkOwner = -1;
                m_handBack = false;
                m_roleChanged.notify_all();
                return;
            }
        } else if (!m_queue.empty()) {
            std::unique_lock<std::mutex> roles(m_roleMutex);
            if (m_networkOwner != self)
                return;
            if (!m_delivering) {
                // Delivered by the thread that read it: no hand-over on the
                // way. The helper takes the network if this takes long.
                m_delivering = true;
                m_inlineDelivery = true;
                m_inlineSince = m_lastInlineStart = Clock::now();
                const bool call = !m_watching;
                roles.unlock();
                if (call)
                    m_roleChanged.notify_all();
                deliverAll();
                roles.lock();
                if (m_networkOwner != self)
                    return;
                continue;
            }
        }
        pollOnce();
    }
}

void BridgeTransport::watch(int fd, std::uint32_t& watched, std::uint32_t wanted, epoll_event event)
{
    if (wanted == watched)
        return;
    event.events = wanted;
    // Nothing wanted is no registration at all: a hang-up would otherwise
    // be reported again and again.
    const int operation = wanted == 0    ? EPOLL_CTL_DEL
                          : watched == 0 ? EPOLL_CTL_ADD
                                         : EPOLL_CTL_MOD;
    ::epoll_ctl(m_epollFd, operation, fd, &event);
    watched = wanted;
}

void BridgeTransport::pollOnce()
{
    Clock::time_point now = Clock::now();
    const bool acceptResting = now < m_acceptRestUntil;
    int timeout = acceptResting ? millisecondsUntil(m_acceptRestUntil, now) : -1;
    epoll_event event{};
    event.data.u64 = kListenToken;
    watch(m_listenFd, m_listenWatched, acceptResting ? 0u : std::uint32_t(EPOLLIN), event);
    Clock::time_point nextCheck = Clock::time_point::max();
    if (!m_heldReports.empty())
        nextCheck = m_reportWindowEnd;
    const std::chrono::milliseconds softFor(m_active.sendQueueSoftTimeoutMs);
    for (const Connection& connection : m_connections) {
        // Over a limit: closed below, without waiting for an event.
        if (connection->sendQueueExcess(now, softFor, nextCheck) != 0)
            nextCheck = now;
        std::uint32_t wanted = 0;
        if (!connection->readingPaused())
            wanted |= EPOLLIN | EPOLLRDHUP;
        else if (!connection->peerClosed)
            wanted |= EPOLLRDHUP;
        if (connection->wantsWrite())
            wanted |= EPOLLOUT;
        event.data.ptr = connection.get();
        watch(connection->fd(), connection->watched, wanted, event);
        if (!connection->announced()) {
            const int left = millisecondsUntil(connection->handshakeDeadline, now);
            timeout = timeout < 0 ? left : std::min(timeout, left);
        }
        if (connection->reader.started()) {
            const int left = millisecondsUntil(
                connection->lastProgress + std::chrono::milliseconds(m_active.stallTimeoutMs), now);
            timeout = timeout < 0 ? left : std::min(timeout, left);
        }
    }
    if (nextCheck != Clock::time_point::max()) {
        const int left = millisecondsUntil(nextCheck, now);
        timeout = timeout < 0 ? left : std::min(timeout, left);
    }
    m_events.resize(m_connections.size() + 2);
    const int ready =
        ::epoll_wait(m_epollFd, m_events.data(), static_cast<int>(m_events.size()), timeout);
    if (ready < 0) {
        if (errno != EINTR) {
            // Not expected with valid descriptors; rest a little rather than spin.
            report("the bridge cannot wait for its connections: " + SocketIo::errorText(errno), {});
            m_acceptRestUntil = Clock::now() + kWaitRest;
        }
        return;
    }
    bool accepting = false;
    for (int i = 0; i < ready; ++i) {
        const epoll_event& happened = m_events[static_cast<std::size_t>(i)];
        if (happened.data.u64 == kWakeToken) {
            std::uint64_t count;
            [[maybe_unused]] auto read = ::read(m_wakeFd, &count, sizeof count);
            continue;
        }
        if (happened.data.u64 == kListenToken) {
            accepting = true;
            continue;
        }
        const Connection connection =
            static_cast<BridgeConnection*>(happened.data.ptr)->shared_from_this();
        const std::uint32_t revents = happened.events;
        if (!connection->isOpen())
            continue;
        try {
            if ((revents & (EPOLLOUT | EPOLLERR | EPOLLHUP)) && connection->wantsWrite()) {
                std::string error;
                if (!connection->flush(error)) {
                    fail(connection, "connection broken: " + error);
                    continue;
                }
            }
            if (connection->readingPaused()) {
                if (revents & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) {
                    // It left; what it sent before is still delivered.
                    connection->peerClosed = true;
                    unlist(connection);
                }
            } else if (revents & (EPOLLIN | EPOLLRDHUP | EPOLLHUP | EPOLLERR)) {
                readFrom(connection);
            }
        } catch (const std::bad_alloc&) {
            failOutOfMemory(connection);
        }
    }
    if (accepting && !acceptPeers())
        m_acceptRestUntil = Clock::now() + std::chrono::milliseconds(m_active.acceptPauseMs);
    for (const Connection& connection : m_connections)
        if (connection->pending && connection->isOpen())
            resume(connection);
    startWaitingFrames();
    now = Clock::now();
    const auto stallTimeout = std::chrono::milliseconds(m_active.stallTimeoutMs);
    for (const Connection& connection : m_connections) {
        if (!connection->isOpen())
            continue;
        if (!connection->announced() && connection->handshakeDeadline <= now)
            fail(connection,
                 "did not announce itself within " + durationText(m_active.handshakeTimeoutMs));
        // Its reservation would otherwise be held for as long as the peer likes.
        else if (connection->reader.started() && connection->lastProgress + stallTimeout <= now)
            fail(connection,
                 "stalled in the middle of a frame (" + connection->reader.midFrameDescription() +
                     " received; nothing more for " + durationText(m_active.stallTimeoutMs) + ")");
        else if (const std::size_t waiting = connection->sendQueueExcess(now, softFor, nextCheck))
            fail(connection,
                 "does not read what the bridge sends (" + megabytesText(waiting) + " MB waiting)");
    }
    summarizeReports(now);
    m_connections.erase(
        std::remove_if(m_connections.begin(), m_connections.end(),
                       [](const Connection& connection) { return !connection->isOpen(); }),
        m_connections.end());
    int paused = 0;
    for (const Connection& connection : m_connections)
        paused += connection->pending ? 1 : 0;
    m_paused = paused;
    m_open = static_cast<int>(m_connections.size());
    m_waitingForBudget = static_cast<int>(m_budgetWaiters.size());
}

bool BridgeTransport::acceptPeers()
{
    for (;;) {
        std::string address;
        const int fd = SocketIo::acceptFrom(m_listenFd, address);
        if (fd < 0) {
            if (errno == EINTR || errno == ECONNABORTED)
                continue;
            if (errno == EAGAIN || errno == EWOULDBLOCK)
                return true;
            ++m_failedAccepts;
            // Once for as long as it fails: the listener rests and tries again.
            if (!m_acceptFailing)
                report("the bridge cannot accept a connection on port " + std::to_string(port()) +
                           ": " + SocketIo::errorText(errno),
                       {});
            m_acceptFailing = true;
            return false;
        }
        m_acceptFailing = false;
        SocketIo::setNoDelay(fd);
        const Connection connection = std::make_shared<BridgeConnection>(
            fd, address, m_active.frameLimit,
            Clock::now() + std::chrono::milliseconds(m_active.handshakeTimeoutMs));
        connection->limitSendQueue(m_active.sendQueueHardLimit, m_active.sendQueueSoftLimit);
        if (openConnections() >= m_active.maxConnections) {
            const std::string why = "the bridge serves " + std::to_string(m_active.maxConnections) +
                                    " connections already";
            closeAndReport(connection, why, why);
            continue;
        }
        makeRoomForUnannounced();
        m_connections.push_back(connection);
    }
}

int BridgeTransport::openConnections()
{
    return static_cast<int>(
        std::count_if(m_connections.begin(), m_connections.end(),
                      [](const Connection& connection) { return connection->isOpen(); }));
}

void BridgeTransport::makeRoomForUnannounced()
{
    int unannounced = static_cast<int>(
        std::count_if(m_connections.begin(), m_connections.end(), [](const Connection& connection) {
            return connection->isOpen() && !connection->announced();
        }));
    for (const Connection& connection : m_connections) {
        if (unannounced < m_active.maxUnannouncedConnections)
            return;
        if (!connection->isOpen() || connection->announced())
            continue;
        // What it sent already is read first: a peer whose HELLO waits stays.
        readFrom(connection);
        if (connection->isOpen() && !connection->announced()) {
            const std::string why = "closed to make room for newer connections";
            closeAndReport(connection, why, why);
        }
        --unannounced;
    }
}

void BridgeTransport::readFrom(const Connection& connection)
{
    long budget = kReadBudget;
    while (connection->isOpen() && !connection->readingPaused()) {
        char* space = connection->reader.space();
        const long received =
            ::recv(connection->fd(), space, connection->reader.spaceSize(), MSG_DONTWAIT);
        if (received > 0) {
            const bool drained =
                static_cast<std::size_t>(received) < connection->reader.spaceSize();
            connection->reader.commit(static_cast<std::size_t>(received));
            connection->lastProgress = Clock::now();
            processFrames(connection);
            budget -= received;
            // Less than there was room for: the socket is empty, and asking
            // again would only cost a call (poll() says when more comes).
            if (drained || budget <= 0)
                return;
            continue;
        }
        if (received == 0) {
            endOfStream(connection);
            return;
        }
        if (errno == EINTR)
            continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK)
            return;
        const std::string reason = SocketIo::errorText(errno);
        if (connection->reader.midFrame())
            fail(connection, "connection lost in the middle of a frame (" +
                                 connection->reader.midFrameDescription() +
                                 " received): " + reason);
        else
            fail(connection, "connection broken: " + reason);
        return;
    }
}

void BridgeTransport::failOutOfMemory(const Connection& connection)
{
    fail(connection,
         "out of memory while receiving (" + connection->reader.midFrameDescription() + ")");
}

void BridgeTransport::processFrames(const Connection& connection)
{
    try {
        while (connection->isOpen() && !connection->readingPaused()) {
            switch (connection->reader.poll()) {
            case Wire::FrameReader::Status::NeedMore:
                if (!connection->reader.awaitingStart() || !startFrame(connection))
                    return;
                break;
            case Wire::FrameReader::Status::Failed:
                fail(connection, "sent " + connection->reader.error());
                return;
            case Wire::FrameReader::Status::Ready:
                handleFrame(connection);
                break;
            }
        }
    } catch (const std::bad_alloc&) {
        failOutOfMemory(connection);
    }
}

bool BridgeTransport::startFrame(const Connection& connection)
{
    const Wire::FrameReader::Frame frame = connection->reader.announced();
    // Refused from the header, before anything is reserved for the frame.
    if (frame.type == Wire::FrameType::Hello && frame.size > m_active.announcementLimit) {
        fail(connection,
             "sent " + Wire::overLimitText(frame.type, frame.size, m_active.announcementLimit));
        return false;
    }
    if (frame.type == Wire::FrameType::Message && !connection->announced()) {
        fail(connection, "sent a message before announcing itself");
        return false;
    }
    if (frame.type == Wire::FrameType::Welcome) {
        fail(connection, "sent a WELCOME frame, which only a bridge sends");
        return false;
    }
    // Frames that wait for room go first, in the order they came.
    const bool small = m_budget.isSmall(frame.size);
    const bool othersWait =
        std::any_of(m_budgetWaiters.begin(), m_budgetWaiters.end(), [&](const Connection& other) {
            return m_budget.isSmall(other->reader.announced().size) == small;
        });
    if (othersWait || !m_budget.tryReserve(frame.size, connection->frameReservation)) {
        connection->waitingForBudget = true;
        m_budgetWaiters.push_back(connection);
        return false;
    }
    connection->reader.start();
    connection->lastProgress = Clock::now();
    return true;
}

void BridgeTransport::startWaitingFrames()
{
    Connections started;
    bool blocked[2] = {false, false};
    for (auto waiter = m_budgetWaiters.begin(); waiter != m_budgetWaiters.end();) {
        const Connection connection = *waiter;
        const bool small = m_budget.isSmall(connection->reader.announced().size);
        if (connection->isOpen() &&
            (blocked[small] || !m_budget.tryReserve(connection->reader.announced().size,
                                                    connection->frameReservation))) {
            blocked[small] = true;
            ++waiter;
            continue;
        }
        connection->waitingForBudget = false;
        started.push_back(connection);
        waiter = m_budgetWaiters.erase(waiter);
    }
    for (const Connection& connection : started) {
        if (!connection->isOpen())
            continue;
        try {
            connection->reader.start();
        } catch (const std::bad_alloc&) {
            failOutOfMemory(connection);
            continue;
        }
        connection->lastProgress = Clock::now();
        // Bytes of the frame may have arrived before it had to wait.
        processFrames(connection);
    }
}

void BridgeTransport::handleFrame(const Connection& connection)
{
    // Given back once the frame is handled, unless its message takes it over.
    ReceiveBudget::Reservation reservation = std::move(connection->frameReservation);
    const Wire::FrameReader::Frame frame = connection->reader.front();
    switch (frame.type) {
    case Wire::FrameType::Hello:
        if (connection->announced())
            fail(connection, "announced itself a second time");
        else
            announce(connection, frame.payload, frame.size);
        return;
    case Wire::FrameType::Message: {
        Delivery item;
        try {
            MessageContent content =
                connection->reader.ownsPayload()
                    ? Wire::decodeMessage(connection->reader.takePayload(), &item.bytes)
                    : Wire::decodeMessage(frame.payload, frame.size, &item.bytes);
            item.message = Internal::adoptContent(std::move(content));
        } catch (const Wire::DecodeError& error) {
            fail(connection, std::string("sent a malformed message: ") + error.what());
            return;
        }
        item.from = connection;
        connection->reader.pop();
        // From now on the decoded message is what is held.
        item.reservation = std::move(reservation);
        item.reservation.resize(item.bytes);
        if (!m_queue.tryPush(item))
            connection->pending = std::make_unique<Delivery>(std::move(item));
        return;
    }
    case Wire::FrameType::Close:
        // The peer says goodbye; its reason is not needed here.
        connection->reader.pop();
        closeConnection(connection);
        return;
    case Wire::FrameType::Welcome:
        // Refused from its header.
        return;
    }
}

void BridgeTransport::announce(const Connection& connection, const char* payload, std::size_t size)
{
    Wire::Hello hello;
    try {
        hello = Wire::decodeHello(payload, size);
    } catch (const Wire::DecodeError& error) {
        fail(connection, std::string("sent a malformed announcement: ") + error.what());
        return;
    }
    connection->reader.pop();
    if (hello.protocol != Wire::kProtocolVersion) {
        fail(connection, "speaks protocol version " + std::to_string(hello.protocol) +
                             "; this bridge speaks version " +
                             std::to_string(Wire::kProtocolVersion));
        return;
    }
    Wire::Welcome welcome;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        welcome.number = m_nextNumber++;
    }
    welcome.frameLimit = m_active.frameLimit;
    welcome.library = Wire::kLibraryVersion;
    welcome.machine = SocketIo::machineName();
    connection->announce(hello.app, welcome.number);
    const auto frame = frameOf(Wire::encodeWelcome(welcome));
    // Listed and welcomed in one step: OnSend finds the peer only through the
    // list, so nothing it sends can come before WELCOME, and a peer that has
    // its number is listed.
    std::lock_guard<std::mutex> lock(m_mutex);
    connection->send(frame);
    m_listed.push_back(connection);
}

void BridgeTransport::endOfStream(const Connection& connection)
{
    if (connection->reader.midFrame())
        fail(connection, "connection lost in the middle of a frame (" +
                             connection->reader.midFrameDescription() + " received)");
    else
        closeConnection(connection);
}

void BridgeTransport::fail(const Connection& connection, const std::string& what)
{
    closeAndReport(connection, what, "this peer " + what);
}

void BridgeTransport::closeAndReport(const Connection& connection, const std::string& what,
                                     const std::string& farewell)
{
    const std::string text = connection->describe() + ": " + what + "; connection closed";
    unlist(connection);
    // Best effort: tell the peer why.
    connection->closeWith(Wire::encodeClose(farewell).flatten());
    closeConnection(connection);
    report(text, what);
}

void BridgeTransport::report(const std::string& text, const std::string& reason)
{
    const Clock::time_point now = Clock::now();
    summarizeReports(now);
    if (now >= m_reportWindowEnd) {
        m_reportWindowEnd = now + std::chrono::seconds(1);
        m_reportsInWindow = 0;
    }
    if (m_reportsInWindow < m_active.reportsPerSecond) {
        ++m_reportsInWindow;
        m_queue.push({{}, {}, text, 0});
        return;
    }
    bool aboutAPeer = !reason.empty();
    std::string key = aboutAPeer ? reason : text;
    const auto find = [&] {
        return std::find_if(m_heldReports.begin(), m_heldReports.end(),
                            [&](const HeldReports& entry) {
                                return entry.aboutAPeer == aboutAPeer && entry.reason == key;
                            });
    };
    auto held = find();
    // The summaries are bounded too: the last one takes every other reason.
    if (held == m_heldReports.end() &&
        static_cast<int>(m_heldReports.size()) + 1 >= m_active.reportsPerSecond) {
        key.clear();
        aboutAPeer = false;
        held = find();
    }
    if (held == m_heldReports.end())
        held = m_heldReports.insert(held, {key, aboutAPeer, 0});
    ++held->count;
}

void BridgeTransport::summarizeReports(Clock::time_point now)
{
    if (m_heldReports.empty() || now < m_reportWindowEnd)
        return;
    for (const HeldReports& held : m_heldReports)
        m_queue.push({{}, {}, summaryText(held.count, held.reason, held.aboutAPeer), 0});
    m_heldReports.clear();
}

void BridgeTransport::closeConnection(const Connection& connection)
{
    unlist(connection);
    if (connection->pending) {
        // A message that arrived complete is delivered even though its peer is gone.
        m_queue.push(std::move(*connection->pending));
        connection->pending.reset();
    }
    // What it held of the budget is free at once, not when the last of its
    // messages has been delivered.
    connection->frameReservation.release();
    connection->reader.discard();
    if (connection->waitingForBudget)
        m_budgetWaiters.erase(
            std::find(m_budgetWaiters.begin(), m_budgetWaiters.end(), connection));
    connection->waitingForBudget = false;
    connection->close();
}

void BridgeTransport::unlist(const Connection& connection)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_listed.erase(std::remove(m_listed.begin(), m_listed.end(), connection), m_listed.end());
}

void BridgeTransport::resume(const Connection& connection)
{
    if (!m_queue.tryPush(*connection->pending))
        return;
    connection->pending.reset();
    processFrames(connection);
}

} // namespace RFMsgExp

#pragma once
// Internal: the network side of one XBridge.
//
// Two library threads. The delivery thread hands received messages to
// XBridge::OnReceive one at a time, in arrival order, and errors to OnError;
// it is the only thread that ever calls them. While it has nothing to deliver
// it also holds the network role (accepting peers, reading and writing
// frames), so that a message it reads is delivered at once, with no hand-over
// between threads on its way. Should a delivery last longer than a moment
// (OnReceive waiting for the host's thread, say), the helper thread takes the
// network over until the delivery thread is free again: the network is served
// during every delivery. No user code runs in the network role, and a
// delivering thread never holds it against Disconnect: the host's thread
// never waits for a delivery.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <sys/epoll.h>

#include "rfmsg/deliveryqueue.h"
#include "rfmsg/receivebudget.h"
#include "rfmsg/testing.h"
#include "rfmsg/xbridge.h"

namespace RFMsgExp {

class BridgeConnection;

class BridgeTransport
{
public:
    explicit BridgeTransport(XBridge& owner);
    ~BridgeTransport();
    BridgeTransport(const BridgeTransport&) = delete;
    BridgeTransport& operator=(const BridgeTransport&) = delete;

    // Any thread (the host's main thread in practice). None of these waits
    // for a delivery in progress.
    void listen(int& port, int flags);
    void disconnect();
    std::vector<Testing::Peer> peers();
    int port();
    void send(IRFMessage& message, const std::string& target);

    // Disconnects and ends both threads once the delivery in progress returned.
    void stopDelivery();

    // Test seam.
    void simulate(std::vector<Testing::Peer> peers);
    std::vector<Testing::SentMessage> sent();
    void failSends(std::string reason);
    void clearSent();
    void setLimits(const Testing::TransportLimits& limits);
    Testing::TransportStats stats();

private:
    using Clock = std::chrono::steady_clock;
    using Connection = std::shared_ptr<BridgeConnection>;
    using Connections = std::vector<Connection>;

    void wake();
    // Takes the network role away and closes every connection (control mutex held).
    void stopNetwork();
    void runDeliverer();
    void runHelper();
    void deliverAll();
    void deliver(Delivery& item);
    void sendFrame(const Connection& connection, std::shared_ptr<const std::string> frame);

    // Network role, until it is stopped or taken over.
    void runNetwork(int self);
    void pollOnce();
    // Brings the epoll registration of `fd` from `watched` to `wanted` events.
    void watch(int fd, std::uint32_t& watched, std::uint32_t wanted, epoll_event event);
    bool acceptPeers();
    int openConnections();
    // Closes unannounced connections, oldest first, until one more fits.
    void makeRoomForUnannounced();
    void readFrom(const Connection& connection);
    void processFrames(const Connection& connection);
    // Starts the frame whose header arrived, once it may be received; false
    // when it waits for room in the receive budget or was refused.
    bool startFrame(const Connection& connection);
    void startWaitingFrames();
    void failOutOfMemory(const Connection& connection);
    void handleFrame(const Connection& connection);
    void announce(const Connection& connection, const char* payload, std::size_t size);
    void endOfStream(const Connection& connection);
    void fail(const Connection& connection, const std::string& what);
    // Closes, saying `farewell` to the peer, and reports `what`.
    void closeAndReport(const Connection& connection, const std::string& what,
                        const std::string& farewell);
    // Hands a fault report to OnError, or sums it up under `reason` (empty:
    // not about one peer) once this second's reports are used up.
    void report(const std::string& text, const std::string& reason);
    // At the end of a second: one report for each reason held back.
    void summarizeReports(Clock::time_point now);
    void closeConnection(const Connection& connection);
    void unlist(const Connection& connection);
    void resume(const Connection& connection);

    XBridge& m_owner;
    // Before the queue: the deliveries it holds give their reservations back.
    ReceiveBudget m_budget;
    DeliveryQueue m_queue;
    int m_wakeFd;

    // Serialises listen(), disconnect() and stopDelivery().
    std::mutex m_controlMutex;

    // Who does what.
    std::mutex m_roleMutex;
    std::condition_variable m_roleChanged;
    std::vector<std::thread> m_workers;
    bool m_stopWorkers = false;
    bool m_networkWanted = false;
    // The thread in the network role (kDeliverer, kHelper), or -1.
    int m_networkOwner = -1;
    // The delivery thread wants the network back from the helper.
    bool m_handBack = false;
    bool m_delivering = false;
    // The network's owner is delivering; since when.
    bool m_inlineDelivery = false;
    Clock::time_point m_inlineSince;
    Clock::time_point m_lastInlineStart;
    // The helper looks in at intervals (it need not be called).
    bool m_watching = false;
    std::atomic<bool> m_stopNetwork{false};

    // The network's state: used by the thread in the network role, or by
    // listen() and disconnect() while nobody can take that role.
    int m_listenFd = -1;
    Connections m_connections;
    Testing::TransportLimits m_active;
    Clock::time_point m_acceptRestUntil;
    // accept() failed, and that was reported; until it works again.
    bool m_acceptFailing = false;
    std::atomic<long> m_failedAccepts{0};
    // Fault reports of the second that ends at m_reportWindowEnd.
    struct HeldReports
    {
        std::string reason;
        bool aboutAPeer;
        long count;
    };
    Clock::time_point m_reportWindowEnd;
    int m_reportsInWindow = 0;
    std::vector<HeldReports> m_heldReports;
    int m_epollFd = -1;
    std::uint32_t m_listenWatched = 0;
    std::vector<epoll_event> m_events;
    std::atomic<int> m_paused{0};
    // Connections whose next frame waits for room in the budget, in the order they came.
    std::deque<Connection> m_budgetWaiters;
    std::atomic<int> m_waitingForBudget{0};
    std::atomic<int> m_open{0};

    // Guards what other threads read of the network side.
    std::mutex m_mutex;
    Connections m_listed;
    int m_port = 0;
    int m_nextNumber = 1;
    Testing::TransportLimits m_limits;
    bool m_simulating = false;
    std::vector<Testing::Peer> m_simulatedPeers;
    std::vector<Testing::SentMessage> m_sent;
    std::string m_sendFailure;
};

} // namespace RFMsgExp

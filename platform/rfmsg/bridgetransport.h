#pragma once
// Internal: the network side of one XBridge. A network thread accepts peers,
// reads and writes frames; a delivery thread hands received messages to
// XBridge::OnReceive one at a time and errors to OnError. No user code ever
// runs on the network thread, so the host's thread may always wait for it.

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "rfmsg/deliveryqueue.h"
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

    // Disconnects and ends the delivery thread once its delivery returned.
    void stopDelivery();

    // Test seam.
    void simulate(std::vector<Testing::Peer> peers);
    std::vector<Testing::SentMessage> sent();
    void clearSent();
    void setLimits(const Testing::TransportLimits& limits);
    Testing::TransportStats stats();

private:
    using Connection = std::shared_ptr<BridgeConnection>;
    using Connections = std::vector<Connection>;

    void wake();
    void stopNetwork();
    void runDelivery();
    void deliver(Delivery& item);
    void sendFrame(const Connection& connection, std::shared_ptr<const std::string> frame);

    // Network thread.
    void runNetwork(int listenFd);
    // False when accepting failed for another reason than "no more for now".
    bool acceptPeers(int listenFd, const Testing::TransportLimits& limits,
                     Connections& connections);
    void readFrom(const Connection& connection);
    void processFrames(const Connection& connection);
    void handleFrame(const Connection& connection);
    void announce(const Connection& connection, const char* payload, std::size_t size);
    void endOfStream(const Connection& connection);
    void fail(const Connection& connection, const std::string& what);
    void closeConnection(const Connection& connection);
    void unlist(const Connection& connection);
    bool resume(const Connection& connection);

    XBridge& m_owner;
    DeliveryQueue m_queue;
    int m_wakeFd;

    // Serialises listen(), disconnect() and stopDelivery().
    std::mutex m_controlMutex;
    std::thread m_network;
    std::thread m_delivery;
    std::atomic<bool> m_stopNetwork{false};
    std::atomic<int> m_paused{0};
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
};

} // namespace RFMsgExp

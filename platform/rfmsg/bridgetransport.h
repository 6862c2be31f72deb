#pragma once
// Internal: the network side of one XBridge.

#include <mutex>
#include <string>
#include <vector>

#include "rfmsg/testing.h"
#include "rfmsg/xbridge.h"

namespace RFMsgExp {

class BridgeTransport
{
public:
    explicit BridgeTransport(XBridge& owner);
    ~BridgeTransport();

    void listen(int& port, int flags);
    void disconnect();
    std::vector<Testing::Peer> peers();
    int port();
    void send(IRFMessage& message, const std::string& target);

    // Test seam.
    void simulate(std::vector<Testing::Peer> peers);
    std::vector<Testing::SentMessage> sent();
    void clearSent();

private:
    XBridge& m_owner;
    std::mutex m_mutex;
    bool m_simulating = false;
    std::vector<Testing::Peer> m_simulatedPeers;
    std::vector<Testing::SentMessage> m_sent;
    int m_port = 0;
};

} // namespace RFMsgExp

#include "rfmsg/bridgetransport.h"

#include <string>

namespace RFMsgExp {

BridgeTransport::BridgeTransport(XBridge& owner) : m_owner(owner) {}

BridgeTransport::~BridgeTransport() { disconnect(); }

void BridgeTransport::listen(int& port, int /*flags*/)
{
    throw IXException::Create("cannot listen on port " + std::to_string(port) +
                              ": the TCP transport is not built yet");
}

void BridgeTransport::disconnect() {}

std::vector<Testing::Peer> BridgeTransport::peers()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_simulating ? m_simulatedPeers : std::vector<Testing::Peer>();
}

int BridgeTransport::port()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_port;
}

void BridgeTransport::send(IRFMessage& message, const std::string& target)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_simulating)
        m_sent.push_back({Testing::contentOf(message), target});
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

void BridgeTransport::clearSent()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_sent.clear();
}

} // namespace RFMsgExp

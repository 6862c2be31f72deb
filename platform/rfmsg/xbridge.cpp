#include "rfmsg/xbridge.h"

#include <utility>

#include "rfmsg/bridgetransport.h"
#include "rfmsg/objectcount.h"
#include "rfmsg/socketio.h"
#include "rfmsg/testing.h"
#include "rfmsg/wireformat.h"

namespace RFMsgExp {
namespace {

class User final : public Internal::Counted<IXUser>
{
public:
    explicit User(Testing::Peer peer) : m_peer(std::move(peer)) {}
    msgString GetAppName() override { return m_peer.appName; }
    int GetNumber() override { return m_peer.number; }

private:
    Testing::Peer m_peer;
};

class UserSet final : public Internal::Counted<IXSetUsers>
{
public:
    explicit UserSet(std::vector<Testing::Peer> peers) : m_peers(std::move(peers)) {}
    int Count() override { return static_cast<int>(m_peers.size()); }
    msg_auto_ptr<IXUser> GetItem(int index) override
    {
        if (index < 0 || index >= Count())
            throw IXException::Create("user index " + std::to_string(index) + " out of range");
        return msg_auto_ptr<IXUser>(new User(m_peers[static_cast<std::size_t>(index)]));
    }

private:
    std::vector<Testing::Peer> m_peers;
};

} // namespace

XBridge::XBridge() : m_transport(std::make_unique<BridgeTransport>(*this)) {}

XBridge::~XBridge() = default;

bool XBridge::HasSomeone()
{
    return !m_transport->peers().empty();
}

msg_auto_ptr<IRFMessage> XBridge::OnReceive(msg_auto_ptr<IRFMessage> /*message*/)
{
    return msg_auto_ptr<IRFMessage>();
}

void XBridge::OnError(const IXException& /*error*/) {}

eResultKind XBridge::Init(int& port, int flags)
{
    m_transport->listen(port, flags);
    return eResult_OK;
}

eResultKind XBridge::Disconnect()
{
    m_transport->disconnect();
    return eResult_OK;
}

msg_auto_ptr<IXSetUsers> XBridge::GetConnected()
{
    if (m_noPeerSet)
        return {};
    return msg_auto_ptr<IXSetUsers>(new UserSet(m_transport->peers()));
}

msgString XBridge::GetMachineName()
{
    return SocketIo::machineName();
}

int XBridge::GetPort()
{
    return m_transport->port();
}

msgString XBridge::GetVersion()
{
    return Wire::kLibraryVersion;
}

msg_auto_ptr<IRFMessage> XBridge::OnSend(IRFMessage* message, const msgString& target)
{
    if (message)
        m_transport->send(*message, target.str());
    return msg_auto_ptr<IRFMessage>();
}

namespace Testing {

void simulatePeers(XBridge& bridge, std::vector<Peer> peers);
void simulateNoPeerSet(XBridge& bridge);
std::vector<SentMessage> sentMessages(XBridge& bridge);
void clearSentMessages(XBridge& bridge);
void failSends(XBridge& bridge, std::string reason);
void setTransportLimits(XBridge& bridge, const TransportLimits& limits);
TransportStats transportStats(XBridge& bridge);
void stopDelivery(XBridge& bridge);

} // namespace Testing

struct BridgeSeamAccess
{
    static BridgeTransport& transport(XBridge& bridge) { return *bridge.m_transport; }
    static bool& noPeerSet(XBridge& bridge) { return bridge.m_noPeerSet; }
};

void Testing::simulatePeers(XBridge& bridge, std::vector<Peer> peers)
{
    BridgeSeamAccess::noPeerSet(bridge) = false;
    BridgeSeamAccess::transport(bridge).simulate(std::move(peers));
}

void Testing::simulateNoPeerSet(XBridge& bridge)
{
    BridgeSeamAccess::noPeerSet(bridge) = true;
}

std::vector<Testing::SentMessage> Testing::sentMessages(XBridge& bridge)
{
    return BridgeSeamAccess::transport(bridge).sent();
}

void Testing::clearSentMessages(XBridge& bridge)
{
    BridgeSeamAccess::transport(bridge).clearSent();
}

void Testing::failSends(XBridge& bridge, std::string reason)
{
    BridgeSeamAccess::transport(bridge).failSends(std::move(reason));
}

void Testing::setTransportLimits(XBridge& bridge, const TransportLimits& limits)
{
    BridgeSeamAccess::transport(bridge).setLimits(limits);
}

Testing::TransportStats Testing::transportStats(XBridge& bridge)
{
    return BridgeSeamAccess::transport(bridge).stats();
}

void Testing::stopDelivery(XBridge& bridge)
{
    BridgeSeamAccess::transport(bridge).stopDelivery();
}

} // namespace RFMsgExp

#pragma once
// The bridge: listens for peers, delivers their messages to OnReceive, sends.

#include <memory>

#include "rfmsg/message.h"
#include "rfmsg/msgstring.h"
#include "rfmsg/users.h"
#include "rfmsg/xexception.h"
#include "rfmsg/xobject.h"

namespace RFMsgExp {

enum eResultKind { eResult_OK = 0, eResult_Failed = 1 };

class BridgeTransport;

class RFMSG_EXPORT XBridge
{
public:
    XBridge();
    virtual ~XBridge();
    XBridge(const XBridge&) = delete;
    XBridge& operator=(const XBridge&) = delete;

    // True when at least one peer is connected.
    virtual bool HasSomeone();
    // Called on a library thread (never the caller of Init), one message at a
    // time, in arrival order. Takes the message over; the reply is sent back
    // to the sender when not null. The network is served meanwhile.
    virtual msg_auto_ptr<IRFMessage> OnReceive(msg_auto_ptr<IRFMessage> message);
    // Called like OnReceive, in the same order, when a connection fails.
    virtual void OnError(const IXException& error);

    // Listens on `port` (0: a free one, written back). Bit 0 of `flags` set
    // listens on every interface, otherwise on loopback only. Throws an
    // IXException* naming the port and the reason when it cannot listen.
    eResultKind Init(int& port, int flags);
    // Closes every connection and stops listening. Never waits for a delivery
    // in progress, so it is safe on a thread that delivery is waiting for.
    eResultKind Disconnect();
    msg_auto_ptr<IXSetUsers> GetConnected();
    msgString GetMachineName();
    int GetPort();
    msgString GetVersion();
    // Sends to every connected peer, or to the peers of that application name.
    // The message stays the caller's. Returns no reply (null).
    msg_auto_ptr<IRFMessage> OnSend(IRFMessage* message, const msgString& target);

private:
    friend class BridgeTransport;
    friend struct BridgeSeamAccess;
    std::unique_ptr<BridgeTransport> m_transport;
    bool m_noPeerSet = false; // test seam: GetConnected() gives null
};

} // namespace RFMsgExp

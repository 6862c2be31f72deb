#pragma once
// The peer's end of a bridge connection, for peer tools and tests: connects,
// announces an application name, sends and receives message content.
// Failures throw an IXException* (the catcher releases it with Destroy())
// whose text says what failed and why.
//
// send() and receive() may run on two threads at once; close() may be called
// from any thread and ends a receive() that is waiting. Everything else
// belongs to one thread.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "rfmsg/messagecontent.h"
#include "rfmsg/rfmsgexport.h"

namespace RFMsgExp {

class RFMSG_EXPORT PeerClient
{
public:
    PeerClient();
    ~PeerClient();
    PeerClient(const PeerClient&) = delete;
    PeerClient& operator=(const PeerClient&) = delete;

    // Connects to the bridge at host:port and announces `appName`; returns
    // once the bridge has given this peer its number.
    void connect(const std::string& host, int port, const std::string& appName,
                 int timeoutMs = 10000);
    bool isConnected() const;
    // What the bridge said when it accepted this peer.
    int number() const;
    const std::string& libraryVersion() const;
    const std::string& machineName() const;

    // Sends one message. Returns once the whole frame is with the system; while
    // the bridge is not reading (its deliveries are behind) this waits.
    void send(const MessageContent& content);
    // The next message from the bridge, or nothing when `timeoutMs` passed first
    // (negative: no time limit). Throws when the connection ends; the text says
    // whether the bridge closed it, and why, or it broke.
    std::optional<MessageContent> receive(int timeoutMs);
    // Ends the connection in order: tells the bridge that no more messages
    // come and waits until it has read everything sent and closed its side
    // (messages arriving meanwhile are dropped). Throws when that takes longer
    // than `timeoutMs` or the connection breaks.
    void finish(int timeoutMs = 60000);
    // Closes the connection at once. Safe to call more than once.
    void close();

    // Largest frame accepted from the bridge (default 1 GiB).
    void setFrameLimit(std::uint32_t limit);

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace RFMsgExp

#pragma once
// A bridge on a real loopback port that records what it receives and the
// errors it reports, and lets a test wait for them.

#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "rfmsg/messagecontent.h"
#include "rfmsg/testing.h"
#include "rfmsg/xbridge.h"

// Application name and number of each listed peer, in the list's order.
using Peers = std::vector<std::pair<std::string, int>>;

class RecordingBridge : public RFMsgExp::XBridge
{
public:
    // Runs on a library thread for every message before it is recorded; its
    // result is the reply. Tests use it to answer or to block the delivery.
    using Handler =
        std::function<RFMsgExp::msg_auto_ptr<RFMsgExp::IRFMessage>(RFMsgExp::IRFMessage& message)>;

    ~RecordingBridge() override;

    // Init on a free loopback port; the port.
    int start(const RFMsgExp::Testing::TransportLimits& limits = {}, Handler handler = {});

    RFMsgExp::msg_auto_ptr<RFMsgExp::IRFMessage>
    OnReceive(RFMsgExp::msg_auto_ptr<RFMsgExp::IRFMessage> message) override;
    void OnError(const RFMsgExp::IXException& error) override;

    bool waitForMessages(std::size_t count, int timeoutMs = 10000);
    bool waitForErrors(std::size_t count, int timeoutMs = 10000);
    std::vector<RFMsgExp::MessageContent> messages() { return locked(m_messages); }
    std::vector<std::string> errors() { return locked(m_errors); }

    // GetConnected() read through the library's user set, every object released.
    Peers connected();
    bool waitForPeerCount(std::size_t count, int timeoutMs = 10000);

private:
    // A copy, taken while no delivery adds to it.
    template <typename Record> std::vector<Record> locked(const std::vector<Record>& records)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return records;
    }

    std::mutex m_mutex;
    Handler m_handler;
    std::vector<RFMsgExp::MessageContent> m_messages;
    std::vector<std::string> m_errors;
};

namespace BridgeTestSupport {

// Polls `condition` until it holds or `timeoutMs` passed; for states that
// raise no event of their own (the peer list, transport counters).
bool waitUntil(const std::function<bool()>& condition, int timeoutMs = 10000);
// The text of the IXException that `action` throws (released); empty when none.
std::string errorOf(const std::function<void()>& action);

// A frame as bytes: header and payload, with the payload's true length.
std::string frame(unsigned char type, const std::string& payload);
// A message with `text` and one property; a small document when asked.
RFMsgExp::MessageContent sampleMessage(int kind, const std::string& text,
                                       bool withDocument = false);

} // namespace BridgeTestSupport

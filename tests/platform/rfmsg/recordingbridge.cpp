#include "recordingbridge.h"

#include <chrono>
#include <thread>

using namespace RFMsgExp;

RecordingBridge::~RecordingBridge()
{
    // Deliveries call into this object: end them before it goes.
    Testing::stopDelivery(*this);
}

int RecordingBridge::start(const Testing::TransportLimits& limits, Handler handler)
{
    // No delivery may be reading the handler while it changes.
    Testing::stopDelivery(*this);
    m_handler = std::move(handler);
    Testing::setTransportLimits(*this, limits);
    int port = 0;
    Init(port, 0);
    return port;
}

msg_auto_ptr<IRFMessage> RecordingBridge::OnReceive(msg_auto_ptr<IRFMessage> message)
{
    msg_auto_ptr<IRFMessage> reply = m_handler ? m_handler(*message) : msg_auto_ptr<IRFMessage>();
    std::lock_guard<std::mutex> lock(m_mutex);
    m_messages.push_back(Testing::contentOf(*message));
    return reply;
}

void RecordingBridge::OnError(const IXException& error)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_errors.push_back(error.GetInfo().str());
}

bool RecordingBridge::waitForMessages(std::size_t count, int timeoutMs)
{
    return BridgeTestSupport::waitUntil([&] { return messages().size() >= count; }, timeoutMs);
}

bool RecordingBridge::waitForErrors(std::size_t count, int timeoutMs)
{
    return BridgeTestSupport::waitUntil([&] { return errors().size() >= count; }, timeoutMs);
}

Peers RecordingBridge::connected()
{
    Peers peers;
    msg_auto_ptr<IXSetUsers> users = GetConnected();
    for (int index = 0; index < users->Count(); ++index) {
        msg_auto_ptr<IXUser> user = users->GetItem(index);
        peers.emplace_back(user->GetAppName().str(), user->GetNumber());
    }
    return peers;
}

bool RecordingBridge::waitForPeerCount(std::size_t count, int timeoutMs)
{
    return BridgeTestSupport::waitUntil([&] { return connected().size() == count; }, timeoutMs);
}

namespace BridgeTestSupport {

bool waitUntil(const std::function<bool()>& condition, int timeoutMs)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (; !condition(); std::this_thread::sleep_for(std::chrono::milliseconds(2)))
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
    return true;
}

std::string errorOf(const std::function<void()>& action)
{
    std::string text;
    try {
        action();
    } catch (IXException* error) {
        text = error->GetInfo().str();
        error->Destroy();
    }
    return text;
}

std::string frame(unsigned char type, const std::string& payload)
{
    std::string bytes = {'R', 'F', 1, static_cast<char>(type)};
    const auto size = static_cast<std::uint32_t>(payload.size());
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>((size >> shift) & 0xff);
    return bytes + payload;
}

MessageContent sampleMessage(int kind, const std::string& text, bool withDocument)
{
    MessageContent content;
    content.kind = kind;
    content.text = text;
    content.properties = {{"RFDESIGN", "amp_top"}};
    if (withDocument)
        content.document = DocumentContent{
            "amp_top",
            "amp_top.sch",
            "C:\\designs\\amp",
            {{"lna", "( P1 P2 )", "", {{"P1", 1, 0, "P1", "input", 50.0, 0.0, 1.5}}}},
            {{0, 0, "internal"}, {1, 1, "external"}}};
    return content;
}

} // namespace BridgeTestSupport

#include "recordingbridge.h"

#include <chrono>
#include <thread>

#include <QCborMap>
#include <QCborValue>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "rfmsg/framereader.h"
#include "rfmsg/wirecodec.h"

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
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_messages.push_back(Testing::contentOf(*message));
    }
    m_changed.notify_all();
    return reply;
}

void RecordingBridge::OnError(const IXException& error)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_errors.push_back(error.GetInfo().str());
    }
    m_changed.notify_all();
}

bool RecordingBridge::waitFor(const std::function<bool()>& condition, int timeoutMs)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::milliseconds(timeoutMs), condition);
}

bool RecordingBridge::waitForMessages(std::size_t count, int timeoutMs)
{
    return waitFor([&] { return m_messages.size() >= count; }, timeoutMs);
}

bool RecordingBridge::waitForErrors(std::size_t count, int timeoutMs)
{
    return waitFor([&] { return m_errors.size() >= count; }, timeoutMs);
}

std::vector<MessageContent> RecordingBridge::messages()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_messages;
}

std::vector<std::string> RecordingBridge::errors()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_errors;
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

RawPeer::RawPeer(int port) : m_fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    if (port > 0)
        connect(port);
}

RawPeer::~RawPeer()
{
    close();
}

bool RawPeer::connect(int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0)
        return true;
    close();
    return false;
}

void RawPeer::send(const std::string& bytes)
{
    ::send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

void RawPeer::close(bool reset)
{
    const linger abort{1, 0};
    if (m_fd >= 0 && reset)
        ::setsockopt(m_fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = -1;
}

std::string RawPeer::address() const
{
    sockaddr_in local{};
    socklen_t size = sizeof local;
    ::getsockname(m_fd, reinterpret_cast<sockaddr*>(&local), &size);
    return "127.0.0.1:" + std::to_string(ntohs(local.sin_port));
}

std::optional<std::vector<std::string>> RawPeer::closeReasons()
{
    std::string bytes;
    char buffer[4096];
    pollfd entry{m_fd, POLLIN, 0};
    for (;;) {
        if (::poll(&entry, 1, 10000) <= 0)
            return std::nullopt;
        const long received = ::recv(m_fd, buffer, sizeof buffer, 0);
        if (received <= 0)
            break;
        bytes.append(buffer, static_cast<std::size_t>(received));
    }
    Wire::FrameReader reader;
    reader.append(bytes.data(), bytes.size());
    std::vector<std::string> reasons;
    for (; reader.poll() == Wire::FrameReader::Status::Ready; reader.pop()) {
        if (reader.front().type == Wire::FrameType::Close)
            reasons.push_back(Wire::decodeClose(reader.front().payload, reader.front().size));
    }
    return reasons;
}

bool waitUntil(const std::function<bool()>& condition, int timeoutMs)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

std::string errorOf(const std::function<void()>& action)
{
    try {
        action();
    } catch (IXException* error) {
        std::string text = error->GetInfo().str();
        error->Destroy();
        return text;
    }
    return {};
}

std::string frame(unsigned char type, const std::string& payload)
{
    std::string bytes = {'R', 'F', 1, static_cast<char>(type)};
    const auto size = static_cast<std::uint32_t>(payload.size());
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>((size >> shift) & 0xff);
    return bytes + payload;
}

std::string helloPayload(const std::string& app, int protocol)
{
    const QCborMap hello{{QStringLiteral("app"), QString::fromStdString(app)},
                         {QStringLiteral("protocol"), protocol}};
    return hello.toCborValue().toCbor().toStdString();
}

MessageContent sampleMessage(int kind, const std::string& text, bool withDocument)
{
    MessageContent content;
    content.kind = kind;
    content.text = text;
    content.properties = {{"RFDESIGN", "amp_top"}};
    if (withDocument) {
        RegionContent region{"lna", "( P1 P2 )", "", {{"P1", 1, 0, "P1", "input", 50.0, 0.0, 1.5}}};
        content.document = DocumentContent{"amp_top",
                                           "amp_top.sch",
                                           "C:\\designs\\amp",
                                           {region},
                                           {{0, 0, "internal"}, {1, 1, "external"}}};
    }
    return content;
}

} // namespace BridgeTestSupport

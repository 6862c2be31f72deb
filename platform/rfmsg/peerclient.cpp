#include "rfmsg/peerclient.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <mutex>
#include <stdexcept>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "rfmsg/framereader.h"
#include "rfmsg/socketio.h"
#include "rfmsg/wirecodec.h"
#include "rfmsg/xexception.h"

namespace RFMsgExp {
namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void raise(const std::string& text)
{
    throw IXException::Create(text);
}

} // namespace

struct PeerClient::State
{
    int fd = -1;
    // Set by close() from any thread; the descriptor itself is released only
    // by the owning thread, so a concurrent receive() never sees it reused.
    std::atomic<bool> open{false};
    std::mutex sendMutex;
    // Held by whoever uses the reader: receive(), or send() while it reads
    // ahead so that the bridge never waits for this peer to read.
    std::mutex readMutex;
    std::unique_ptr<Wire::FrameReader> reader;
    std::uint32_t frameLimit = Wire::kDefaultFrameLimit;
    std::string bridge;
    Wire::Welcome welcome;
    // The bridge ended the connection in order (end of stream between frames).
    bool bridgeEnded = false;
    // The socket's receive time-out now (-1: none).
    int receiveTimeoutMs = -1;

    void release()
    {
        if (fd >= 0)
            ::close(fd);
        fd = -1;
        open = false;
    }

    [[noreturn]] void end(const std::string& text)
    {
        if (fd >= 0)
            ::shutdown(fd, SHUT_RDWR);
        open = false;
        raise(text);
    }

    // Waits for the next whole frame until `deadline` (none: for ever); false on time-out.
    bool waitForFrame(std::optional<Clock::time_point> deadline)
    {
        for (;;) {
            switch (reader->poll()) {
            case Wire::FrameReader::Status::Ready:
                return true;
            case Wire::FrameReader::Status::Failed:
                end(bridge + " sent " + reader->error());
            case Wire::FrameReader::Status::NeedMore:
                break;
            }
            if (!open)
                raise("the connection to " + bridge + " is closed");
            int timeout = -1;
            if (deadline) {
                const auto left =
                    std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now());
                timeout = static_cast<int>(std::max<long>(0, left.count()));
            }
            // A blocking recv() with the socket's receive time-out waits in one
            // call where poll() and recv() take two.
            int flags = 0;
            if (timeout == 0)
                flags = MSG_DONTWAIT;
            else if (timeout != receiveTimeoutMs && !setReceiveTimeout(timeout))
                end("cannot wait for " + bridge + ": " + SocketIo::errorText(errno));
            char* space = reader->space();
            const long received = ::recv(fd, space, reader->spaceSize(), flags);
            if (received < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
                if (deadline && Clock::now() >= *deadline)
                    return false;
                continue;
            }
            if (received > 0) {
                reader->commit(static_cast<std::size_t>(received));
            } else if (received == 0) {
                if (!open)
                    raise("the connection to " + bridge + " is closed");
                if (reader->midFrame())
                    end(bridge + " closed the connection in the middle of a frame (" +
                        reader->midFrameDescription() + " received)");
                bridgeEnded = true;
                end(bridge + " closed the connection");
            } else if (errno != EINTR) {
                end("the connection to " + bridge + " broke: " + SocketIo::errorText(errno));
            }
        }
    }

    // Milliseconds, -1 for none; set on the socket only when it changes.
    bool setReceiveTimeout(int milliseconds)
    {
        timeval limit{};
        if (milliseconds > 0) {
            limit.tv_sec = milliseconds / 1000;
            limit.tv_usec = (milliseconds % 1000) * 1000;
        }
        if (::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) != 0)
            return false;
        receiveTimeoutMs = milliseconds;
        return true;
    }

    // Takes in what the bridge sent, without waiting, unless a receive() on
    // another thread does so already; receive() hands it out later.
    void readAhead()
    {
        std::unique_lock<std::mutex> reading(readMutex, std::try_to_lock);
        if (!reading.owns_lock())
            return;
        for (;;) {
            const long received = ::recv(fd, reader->space(), reader->spaceSize(), MSG_DONTWAIT);
            if (received <= 0 && !(received < 0 && errno == EINTR))
                return;
            if (received > 0)
                reader->commit(static_cast<std::size_t>(received));
        }
    }

    // Sends the whole frame, reading what the bridge sends meanwhile: a bridge
    // closes a peer that leaves too much of what it sends unread.
    void sendFrame(const Wire::FrameEncoder& frame)
    {
        std::vector<iovec> pieces = frame.pieces();
        std::lock_guard<std::mutex> lock(sendMutex);
        if (!open)
            raise("cannot send to " + bridge + ": the connection is closed");
        std::size_t first = 0;
        while (first < pieces.size()) {
            readAhead();
            const long sent = SocketIo::sendSome(fd, pieces.data() + first, pieces.size() - first);
            if (sent >= 0) {
                first += SocketIo::advance(pieces.data() + first, pieces.size() - first,
                                           static_cast<std::size_t>(sent));
                continue;
            }
            if (errno != EAGAIN && errno != EWOULDBLOCK)
                end("cannot send to " + bridge + ": " + SocketIo::errorText(errno));
            pollfd entry{fd, POLLOUT | POLLIN, 0};
            if (::poll(&entry, 1, -1) < 0 && errno != EINTR)
                end("cannot send to " + bridge + ": " + SocketIo::errorText(errno));
        }
    }

    [[noreturn]] void closedByBridge(const Wire::FrameReader::Frame& frame, const char* what)
    {
        std::string reason;
        try {
            reason = Wire::decodeClose(frame.payload, frame.size);
        } catch (const Wire::DecodeError&) {
        }
        end(bridge + " " + what + (reason.empty() ? std::string() : ": " + reason));
    }
};

PeerClient::PeerClient() : m_state(std::make_unique<State>()) {}

PeerClient::~PeerClient()
{
    m_state->release();
}

void PeerClient::setFrameLimit(std::uint32_t limit)
{
    m_state->frameLimit = limit;
}

void PeerClient::connect(const std::string& host, int port, const std::string& appName,
                         int timeoutMs)
{
    State& state = *m_state;
    state.release();
    state.bridge = "the bridge at " + host + ":" + std::to_string(port);
    if (appName.empty())
        raise("cannot connect to " + state.bridge + ": the application name is empty");
    const auto deadline = Clock::now() + std::chrono::milliseconds(std::max(0, timeoutMs));
    std::string error;
    state.fd = SocketIo::connectTo(host, port, timeoutMs, error);
    if (state.fd < 0)
        raise("cannot connect to " + state.bridge + ": " + error);
    state.open = true;
    // Blocking for receiving; sending never blocks (MSG_DONTWAIT, then poll()).
    ::fcntl(state.fd, F_SETFL, ::fcntl(state.fd, F_GETFL) & ~O_NONBLOCK);
    state.receiveTimeoutMs = -1;
    state.reader = std::make_unique<Wire::FrameReader>(state.frameLimit);
    state.welcome = Wire::Welcome();
    state.bridgeEnded = false;

    Wire::Hello hello;
    hello.app = appName;
    state.sendFrame(Wire::encodeHello(hello));
    std::lock_guard<std::mutex> reading(state.readMutex);
    if (!state.waitForFrame(deadline))
        state.end(state.bridge + " did not accept the announcement within " +
                  std::to_string(timeoutMs) + " ms");
    const Wire::FrameReader::Frame frame = state.reader->front();
    if (frame.type == Wire::FrameType::Close)
        state.closedByBridge(frame, "refused the connection");
    if (frame.type != Wire::FrameType::Welcome)
        state.end(state.bridge + " answered the announcement with a " +
                  Wire::frameTypeName(static_cast<unsigned char>(frame.type)) + " frame");
    try {
        state.welcome = Wire::decodeWelcome(frame.payload, frame.size);
    } catch (const Wire::DecodeError& decodeError) {
        state.end(state.bridge + " sent a malformed welcome: " + decodeError.what());
    }
    state.reader->pop();
}

bool PeerClient::isConnected() const
{
    return m_state->open;
}

int PeerClient::number() const
{
    return m_state->welcome.number;
}

const std::string& PeerClient::libraryVersion() const
{
    return m_state->welcome.library;
}

const std::string& PeerClient::machineName() const
{
    return m_state->welcome.machine;
}

void PeerClient::send(const MessageContent& content)
{
    State& state = *m_state;
    if (state.fd < 0)
        raise("cannot send: not connected to a bridge");
    const Wire::FrameEncoder frame = Wire::encodeMessage(content);
    std::size_t payload = 0;
    try {
        payload = frame.size() - Wire::kHeaderSize;
    } catch (const std::length_error& error) {
        raise("cannot send to " + state.bridge + ": " + error.what());
    }
    if (payload > state.welcome.frameLimit)
        raise("cannot send a message of " + std::to_string(payload) + " bytes to " + state.bridge +
              ": it takes frames of at most " + std::to_string(state.welcome.frameLimit) +
              " bytes");
    state.sendFrame(frame);
}

std::optional<MessageContent> PeerClient::receive(int timeoutMs)
{
    State& state = *m_state;
    if (state.fd < 0)
        raise("cannot receive: not connected to a bridge");
    std::optional<Clock::time_point> deadline;
    if (timeoutMs >= 0)
        deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    std::lock_guard<std::mutex> reading(state.readMutex);
    if (!state.waitForFrame(deadline))
        return std::nullopt;
    const Wire::FrameReader::Frame frame = state.reader->front();
    switch (frame.type) {
    case Wire::FrameType::Message: {
        MessageContent content;
        try {
            content = Wire::decodeMessage(frame.payload, frame.size);
        } catch (const Wire::DecodeError& error) {
            state.end(state.bridge + " sent a malformed message: " + error.what());
        }
        state.reader->pop();
        return content;
    }
    case Wire::FrameType::Close:
        state.closedByBridge(frame, "closed the connection");
    case Wire::FrameType::Hello:
    case Wire::FrameType::Welcome:
        break;
    }
    state.end(state.bridge + " sent an unexpected " +
              Wire::frameTypeName(static_cast<unsigned char>(frame.type)) + " frame");
}

void PeerClient::finish(int timeoutMs)
{
    State& state = *m_state;
    if (state.fd < 0 || !state.open)
        return;
    // No more messages from here: the bridge reads to the end and then closes.
    ::shutdown(state.fd, SHUT_WR);
    const auto deadline = Clock::now() + std::chrono::milliseconds(std::max(0, timeoutMs));
    std::lock_guard<std::mutex> reading(state.readMutex);
    try {
        for (;;) {
            if (!state.waitForFrame(deadline))
                state.end(state.bridge + " did not close the connection within " +
                          std::to_string(timeoutMs) + " ms after the last message");
            const bool farewell = state.reader->front().type == Wire::FrameType::Close;
            // Messages that still arrive are not wanted any more.
            state.reader->pop();
            if (farewell)
                break;
        }
    } catch (IXException* error) {
        if (!state.bridgeEnded)
            throw;
        error->Destroy();
    }
    state.release();
}

void PeerClient::close()
{
    State& state = *m_state;
    if (state.open.exchange(false) && state.fd >= 0)
        ::shutdown(state.fd, SHUT_RDWR);
}

} // namespace RFMsgExp

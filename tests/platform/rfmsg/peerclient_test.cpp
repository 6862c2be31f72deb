#include <gtest/gtest.h>

#include <filesystem>
#include <future>
#include <string>
#include <utility>

#include <QCborMap>
#include <QCborValue>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "recordingbridge.h"
#include "rfmsg/peerclient.h"
#include "rfmsg/testing.h"

using namespace RFMsgExp;
using BridgeTestSupport::errorOf;
using BridgeTestSupport::frame;

namespace {

enum class End { Stay, Close, Reset };

// A listening socket that plays the bridge's side by hand.
class FakeBridge
{
public:
    FakeBridge()
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        ::bind(m_listen, reinterpret_cast<sockaddr*>(&address), size);
        ::listen(m_listen, 4);
        ::getsockname(m_listen, reinterpret_cast<sockaddr*>(&address), &size);
        port = ntohs(address.sin_port);
    }
    ~FakeBridge()
    {
        ::close(m_peer);
        ::close(m_listen);
    }
    // Accepts one peer, reads its announcement, answers with `bytes` and
    // closes the connection (with a reset) when asked.
    std::future<void> serve(const std::string& bytes, End end)
    {
        return std::async(std::launch::async, [this, bytes, end] {
            m_peer = ::accept(m_listen, nullptr, nullptr);
            pollfd entry{m_peer, POLLIN, 0};
            char hello[512];
            if (::poll(&entry, 1, 5000) == 1 && ::recv(m_peer, hello, sizeof hello, 0) > 0)
                ::send(m_peer, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            const linger abort{1, 0};
            if (end == End::Reset)
                ::setsockopt(m_peer, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
            if (end != End::Stay)
                ::close(std::exchange(m_peer, -1));
        });
    }

    int port = 0;

private:
    int m_listen = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int m_peer = -1;
};

std::string cbor(const QCborMap& map)
{
    return map.toCborValue().toCbor().toStdString();
}

} // namespace

TEST(PeerClientErrors, NoBridgeListeningNamesHostPortAndReason)
{
    RecordingBridge bridge;
    const int port = bridge.start();
    bridge.Disconnect();
    PeerClient peer;
    EXPECT_EQ(errorOf([&] { peer.connect("127.0.0.1", port, "DXD", 2000); }),
              "cannot connect to the bridge at 127.0.0.1:" + std::to_string(port) +
                  ": Connection refused");
    EXPECT_FALSE(peer.isConnected());
    EXPECT_EQ(errorOf([&] { peer.send(MessageContent()); }),
              "cannot send: not connected to a bridge");
}

TEST(PeerClientErrors, RefusalCarriesTheBridgesReason)
{
    RecordingBridge bridge;
    const int port = bridge.start();
    PeerClient peer;
    EXPECT_EQ(errorOf([&] { peer.connect("127.0.0.1", port, std::string(300, 'A')); }),
              "the bridge at 127.0.0.1:" + std::to_string(port) +
                  " refused the connection: this peer sent a malformed announcement: the "
                  "announced application name is longer than 256 bytes");
    ASSERT_TRUE(bridge.waitForErrors(1));
}

TEST(PeerClientErrors, WhatTheBridgeGetsWrongIsNamed)
{
    const std::string welcome = frame(2, cbor(QCborMap{{QStringLiteral("number"), 4}}));
    struct Row
    {
        const char* name;
        std::string bytes;
        End end;
        std::string error;
    };
    const std::vector<Row> rows = {
        {"stays silent", "", End::Stay, " did not accept the announcement within 300 ms"},
        {"answers with a message", frame(3, cbor(QCborMap{{QStringLiteral("kind"), 1}})), End::Stay,
         " answered the announcement with a MESSAGE frame"},
        {"closes mid-frame", welcome + frame(3, std::string(40, 'm')).substr(0, 20), End::Close,
         " closed the connection in the middle of a frame (20 of 48 bytes of a MESSAGE frame "
         "received)"},
        {"resets the connection", welcome, End::Reset, " broke: Connection reset by peer"},
        {"sends garbage", welcome + "<html>", End::Stay,
         " sent data that is not a frame of this protocol"},
        {"greets twice", welcome + welcome, End::Stay, " sent an unexpected WELCOME frame"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        FakeBridge fake;
        std::future<void> bridgeSide = fake.serve(row.bytes, row.end);
        PeerClient peer;
        const std::string error = errorOf([&] {
            peer.connect("127.0.0.1", fake.port, "DXD", 300);
            EXPECT_EQ(peer.number(), 4);
            bridgeSide.wait();
            peer.receive(5000);
        });
        const std::string bridge = "the bridge at 127.0.0.1:" + std::to_string(fake.port);
        EXPECT_NE(error.find(bridge), std::string::npos) << error;
        EXPECT_NE(error.find(row.error), std::string::npos) << error;
        EXPECT_FALSE(peer.isConnected());
    }
}

TEST(PeerClientReceiving, CloseFromAnotherThreadEndsAWaitingReceiveAndTheSocketIsGivenBack)
{
    RecordingBridge bridge;
    const int port = bridge.start();
    const auto openFiles = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                             std::filesystem::directory_iterator());
    };
    const auto filesBefore = openFiles();
    {
        PeerClient peer;
        peer.connect("127.0.0.1", port, "DXD");
        auto waiting =
            std::async(std::launch::async, [&] { return errorOf([&] { peer.receive(-1); }); });
        peer.close();
        ASSERT_EQ(waiting.wait_for(std::chrono::seconds(10)), std::future_status::ready);
        EXPECT_NE(waiting.get().find("is closed"), std::string::npos);
    }
    ASSERT_TRUE(bridge.waitForPeerCount(0));
    EXPECT_TRUE(BridgeTestSupport::waitUntil([&] { return openFiles() == filesBefore; }))
        << "a socket was not closed";
}

TEST(PeerClientSending, MessageOverTheBridgesLimitIsRefusedBeforeSending)
{
    RecordingBridge bridge;
    Testing::TransportLimits limits;
    limits.frameLimit = 1024;
    PeerClient peer;
    peer.connect("127.0.0.1", bridge.start(limits), "DXD");
    const std::string error =
        errorOf([&] { peer.send(BridgeTestSupport::sampleMessage(222, std::string(2000, 'i'))); });
    EXPECT_NE(error.find("it takes frames of at most 1024 bytes"), std::string::npos) << error;
    peer.send(BridgeTestSupport::sampleMessage(222, "small"));
    ASSERT_TRUE(bridge.waitForMessages(1));
    EXPECT_EQ(bridge.messages()[0].text, "small");
    EXPECT_TRUE(bridge.errors().empty());
}

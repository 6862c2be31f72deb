#include <gtest/gtest.h>

#include <future>
#include <string>
#include <thread>

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
using BridgeTestSupport::frame;

namespace {

// A listening socket that plays the bridge's side by hand.
class FakeBridge
{
public:
    FakeBridge()
    {
        m_listen = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(m_listen, reinterpret_cast<sockaddr*>(&address), sizeof address);
        ::listen(m_listen, 4);
        socklen_t size = sizeof address;
        ::getsockname(m_listen, reinterpret_cast<sockaddr*>(&address), &size);
        m_port = ntohs(address.sin_port);
    }
    ~FakeBridge()
    {
        if (m_peer >= 0)
            ::close(m_peer);
        ::close(m_listen);
    }
    int port() const { return m_port; }
    // Accepts the peer and reads its announcement.
    void acceptPeer()
    {
        m_peer = ::accept(m_listen, nullptr, nullptr);
        pollfd entry{m_peer, POLLIN, 0};
        ::poll(&entry, 1, 5000);
        char buffer[512];
        [[maybe_unused]] auto read = ::recv(m_peer, buffer, sizeof buffer, 0);
    }
    void send(const std::string& bytes)
    {
        [[maybe_unused]] auto sent = ::send(m_peer, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
    void closePeer()
    {
        ::close(m_peer);
        m_peer = -1;
    }

private:
    int m_listen = -1;
    int m_peer = -1;
    int m_port = 0;
};

std::string cborOf(const QCborMap& map)
{
    return map.toCborValue().toCbor().toStdString();
}

const std::string kWelcome = frame(2, cborOf(QCborMap{{QStringLiteral("number"), 4}}));

// The text of what `action` throws; empty when it throws nothing.
template <typename Action> std::string errorOf(Action action)
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

TEST(PeerClientErrors, SilentBridgeTimesOut)
{
    FakeBridge fake;
    PeerClient peer;
    EXPECT_EQ(errorOf([&] { peer.connect("127.0.0.1", fake.port(), "DXD", 200); }),
              "the bridge at 127.0.0.1:" + std::to_string(fake.port()) +
                  " did not accept the announcement within 200 ms");
}

TEST(PeerClientErrors, RefusalCarriesTheBridgesReason)
{
    FakeBridge fake;
    auto bridgeSide = std::async(std::launch::async, [&] {
        fake.acceptPeer();
        fake.send(frame(
            4, cborOf(QCborMap{{QStringLiteral("reason"), "speaks protocol version 1 only"}})));
    });
    PeerClient peer;
    const std::string error = errorOf([&] { peer.connect("127.0.0.1", fake.port(), "DXD"); });
    bridgeSide.get();
    EXPECT_EQ(error, "the bridge at 127.0.0.1:" + std::to_string(fake.port()) +
                         " refused the connection: speaks protocol version 1 only");
}

TEST(PeerClientErrors, WhatTheBridgeGetsWrongIsNamed)
{
    struct Row
    {
        const char* name;
        std::string bytes;
        bool closeAfter;
        const char* error;
    };
    const std::vector<Row> rows = {
        {"closes mid-frame", frame(3, std::string(40, 'm')).substr(0, 20), true,
         " closed the connection in the middle of a frame (20 of 48 bytes of a MESSAGE frame "
         "received)"},
        {"closes", "", true, " closed the connection"},
        {"sends garbage", "<html>", false, " sent data that is not a frame of this protocol"},
        {"sends a malformed message", frame(3, cborOf(QCborMap{{QStringLiteral("kind"), "x"}})),
         false, " sent a malformed message: field 'kind' must be an integer"},
        {"greets twice", kWelcome, false, " sent an unexpected WELCOME frame"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        FakeBridge fake;
        auto bridgeSide = std::async(std::launch::async, [&] {
            fake.acceptPeer();
            fake.send(kWelcome + row.bytes);
            if (row.closeAfter)
                fake.closePeer();
        });
        PeerClient peer;
        peer.connect("127.0.0.1", fake.port(), "DXD");
        bridgeSide.get();
        EXPECT_EQ(peer.number(), 4);
        const std::string error = errorOf([&] { peer.receive(5000); });
        EXPECT_EQ(
            error.rfind("the bridge at 127.0.0.1:" + std::to_string(fake.port()) + row.error, 0),
            0u)
            << error;
        EXPECT_FALSE(peer.isConnected());
    }
}

TEST(PeerClientReceiving, NothingArrivesBeforeTheTimeRunsOut)
{
    RecordingBridge bridge;
    const int port = bridge.start();
    PeerClient peer;
    peer.connect("127.0.0.1", port, "DXD");
    EXPECT_FALSE(peer.receive(30));
    EXPECT_TRUE(peer.isConnected());
}

TEST(PeerClientReceiving, CloseFromAnotherThreadEndsAWaitingReceive)
{
    RecordingBridge bridge;
    const int port = bridge.start();
    PeerClient peer;
    peer.connect("127.0.0.1", port, "DXD");
    auto waiting =
        std::async(std::launch::async, [&] { return errorOf([&] { peer.receive(-1); }); });
    peer.close();
    ASSERT_EQ(waiting.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_NE(waiting.get().find("is closed"), std::string::npos);
    ASSERT_TRUE(bridge.waitForPeerCount(0));
}

TEST(PeerClientSending, MessageOverTheBridgesLimitIsRefusedBeforeSending)
{
    RecordingBridge bridge;
    Testing::TransportLimits limits;
    limits.frameLimit = 1024;
    const int port = bridge.start(limits);
    PeerClient peer;
    peer.connect("127.0.0.1", port, "DXD");
    const std::string error =
        errorOf([&] { peer.send(BridgeTestSupport::sampleMessage(222, std::string(2000, 'i'))); });
    EXPECT_NE(error.find("it takes frames of at most 1024 bytes"), std::string::npos) << error;
    peer.send(BridgeTestSupport::sampleMessage(222, "small"));
    ASSERT_TRUE(bridge.waitForMessages(1));
    EXPECT_EQ(bridge.messages()[0].text, "small");
    EXPECT_TRUE(bridge.errors().empty());
}

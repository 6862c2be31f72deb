#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <QHostAddress>
#include <QNetworkInterface>

#include "recordingbridge.h"
#include "rfmsg/peerclient.h"
#include "rfmsg/testing.h"

using namespace RFMsgExp;
using BridgeTestSupport::errorOf;
using BridgeTestSupport::sampleMessage;

namespace {

std::unique_ptr<PeerClient> connectPeer(int port, const std::string& app)
{
    auto peer = std::make_unique<PeerClient>();
    peer->connect("127.0.0.1", port, app);
    return peer;
}

// The text of the next message the peer receives; "(nothing)" when none came in time.
std::string nextText(PeerClient& peer, int timeoutMs = 5000)
{
    const std::optional<MessageContent> message = peer.receive(timeoutMs);
    return message ? message->text : "(nothing)";
}

void sendFromBridge(XBridge& bridge, const std::string& text, const std::string& target)
{
    msg_auto_ptr<IRFMessage> message = Testing::makeMessage(sampleMessage(224, text));
    bridge.OnSend(message.get(), target);
    EXPECT_EQ(message->GetText().str(), text) << "the message stays the caller's";
}

} // namespace

class XBridgeNetwork : public ::testing::Test
{
protected:
    void TearDown() override
    {
        bridge.reset();
        EXPECT_EQ(Testing::liveObjects(), m_liveAtStart) << "library objects were not released";
    }

    const long m_liveAtStart = Testing::liveObjects();
    std::unique_ptr<RecordingBridge> bridge = std::make_unique<RecordingBridge>();
};

TEST_F(XBridgeNetwork, PeersAreNumberedInOrderListedAndLeaveTheListAtOnce)
{
    const int port = bridge->start();
    EXPECT_EQ(bridge->GetPort(), port);
    auto dxd = connectPeer(port, "DXD");
    auto bsxe = connectPeer(port, "BSXE");
    auto other = connectPeer(port, "dxd");
    EXPECT_EQ(dxd->libraryVersion(), bridge->GetVersion().str());
    EXPECT_EQ(dxd->machineName(), bridge->GetMachineName().str());
    EXPECT_EQ(bridge->connected(), (Peers{{"DXD", 1}, {"BSXE", 2}, {"dxd", 3}}));

    dxd->close();
    ASSERT_TRUE(bridge->waitForPeerCount(2));
    EXPECT_EQ(bridge->connected(), (Peers{{"BSXE", 2}, {"dxd", 3}}));
    EXPECT_EQ(connectPeer(port, "DXD")->number(), 4) << "numbers are not reused";
    EXPECT_TRUE(bridge->HasSomeone());
    EXPECT_TRUE(bridge->errors().empty()) << "closing is no fault";

    // Init again drops every peer and numbers afresh.
    int next = 0;
    bridge->Init(next, 0);
    EXPECT_FALSE(bridge->HasSomeone());
    EXPECT_EQ(connectPeer(next, "BSXE")->number(), 1);
    const std::string dropped = errorOf([&] { bsxe->receive(5000); });
    EXPECT_NE(dropped.find("closed the connection"), std::string::npos) << dropped;
}

TEST_F(XBridgeNetwork, OnlyBitZeroOpensOtherInterfaces)
{
    std::string outside;
    for (const QHostAddress& address : QNetworkInterface::allAddresses())
        if (address.protocol() == QAbstractSocket::IPv4Protocol && !address.isLoopback())
            outside = address.toString().toStdString();
    if (outside.empty())
        GTEST_SKIP() << "this machine has no address but loopback";
    for (const int flags : {0, 1 | 6}) {
        int port = 0;
        bridge->Init(port, flags);
        PeerClient peer;
        const std::string error = errorOf([&] { peer.connect(outside, port, "DXD", 2000); });
        // A loopback bridge refuses; one open to all accepts.
        const std::string refusal = flags ? "" : "cannot connect to the bridge at " + outside;
        EXPECT_EQ(error.substr(0, refusal.size()), refusal) << error;
        EXPECT_EQ(error.empty(), flags != 0) << error;
    }
}

TEST_F(XBridgeNetwork, PortThatCannotBeListenedOnThrowsSayingWhyAndTheFirstBridgeGoesOn)
{
    const int port = bridge->start();
    auto peer = connectPeer(port, "DXD");
    for (const int wanted : {port, -1, 65536}) {
        RecordingBridge second;
        int asked = wanted;
        EXPECT_EQ(
            errorOf([&] { second.Init(asked, 0); }),
            "cannot listen on port " + std::to_string(wanted) + " on the loopback interface: " +
                (wanted == port ? "Address already in use" : "not a port number (0 to 65535)"));
        EXPECT_EQ(second.GetPort(), 0);
    }
    peer->send(sampleMessage(212, "still served"));
    ASSERT_TRUE(bridge->waitForMessages(1));
    EXPECT_EQ(bridge->connected(), (Peers{{"DXD", 1}}));
}

TEST_F(XBridgeNetwork, MessagesReachEveryPeerThoseOfTheNamedApplicationOrTheSendersReply)
{
    const int port = bridge->start({}, [](IRFMessage& message) {
        if (message.GetText().str() == "throw")
            throw IXException::Create("handler failed");
        return Testing::makeMessage(sampleMessage(20, "re: " + message.GetText().str()));
    });
    auto dxd = connectPeer(port, "DXD");
    auto bsxe = connectPeer(port, "BSXE");
    sendFromBridge(*bridge, "all", "");
    sendFromBridge(*bridge, "layout", "bsxe");
    sendFromBridge(*bridge, "nobody", "XYZ");
    bsxe->send(sampleMessage(212, "throw"));
    bsxe->send(sampleMessage(212, "from BSXE"));
    EXPECT_EQ(nextText(*bsxe), "all");
    EXPECT_EQ(nextText(*bsxe), "layout");
    EXPECT_EQ(nextText(*bsxe), "re: from BSXE") << "delivery did not go on after an exception";
    EXPECT_EQ(bridge->errors(),
              std::vector<std::string>{"OnReceive let an exception escape: handler failed"});
    EXPECT_EQ(nextText(*dxd), "all");

    EXPECT_EQ(nextText(*dxd, 50), "(nothing)") << "DXD got what was meant for BSXE";
}

TEST_F(XBridgeNetwork, MessagesSentWhilePeersConnectNeverComeBeforeTheirWelcome)
{
    const int port = bridge->start();
    std::atomic<bool> connecting{true};
    std::thread sender([&] {
        while (connecting)
            sendFromBridge(*bridge, "all", "");
    });
    for (int i = 1; i <= 200; ++i) {
        PeerClient peer;
        EXPECT_EQ(errorOf([&] {
                      peer.connect("127.0.0.1", port, "DXD");
                      EXPECT_EQ(peer.number(), i);
                      peer.finish();
                  }),
                  "");
    }
    connecting = false;
    sender.join();
}

TEST_F(XBridgeNetwork, DisconnectWhileADeliveryWaitsForTheCallerDoesNotWait)
{
    // The delivery blocks until "the main thread" (this test) has done its
    // work, as the plug-in's handlers wait for the host.
    std::promise<void> entered;
    std::promise<void> mainThreadDone;
    std::shared_future<void> done = mainThreadDone.get_future().share();
    const int port = bridge->start({}, [&](IRFMessage&) {
        entered.set_value();
        done.wait();
        return Testing::makeMessage(sampleMessage(20, "late reply"));
    });
    auto dxd = connectPeer(port, "DXD");
    auto bsxe = connectPeer(port, "BSXE");
    dxd->send(sampleMessage(222, "blocks"));
    ASSERT_EQ(entered.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);

    auto mainThread = std::async(std::launch::async, [&] {
        EXPECT_EQ(bridge->connected().size(), 2u);
        sendFromBridge(*bridge, "while busy", "BSXE");
        EXPECT_EQ(nextText(*bsxe), "while busy");
        bridge->Disconnect();
    });
    const bool returned =
        mainThread.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    mainThreadDone.set_value();
    ASSERT_TRUE(returned) << "the main thread waited for the delivery";
    mainThread.get();

    EXPECT_TRUE(bridge->connected().empty());
    EXPECT_EQ(bridge->GetPort(), 0);
    ASSERT_TRUE(bridge->waitForMessages(1));
    const std::string closed = errorOf([&] {
        while (dxd->receive(5000)) {
        }
    });
    EXPECT_NE(closed.find("the bridge is disconnecting"), std::string::npos) << closed;
    EXPECT_EQ(connectPeer(bridge->start(), "DXD")->number(), 1) << "it can start again";
}

TEST_F(XBridgeNetwork, WhileADeliveryWaitsTheNetworkIsServedAndAFullQueueStopsReading)
{
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    Testing::TransportLimits limits;
    limits.queuedMessages = 4;
    const int port = bridge->start(limits, [&](IRFMessage& message) {
        if (message.GetText().str() == "0")
            released.wait();
        return msg_auto_ptr<IRFMessage>();
    });
    auto peer = connectPeer(port, "DXD");
    auto other = connectPeer(port, "BSXE");
    constexpr int kCount = 200;
    for (int i = 0; i < kCount; ++i)
        peer->send(sampleMessage(212, std::to_string(i)));
    const bool paused = BridgeTestSupport::waitUntil(
        [&] { return Testing::transportStats(*bridge).pausedConnections == 1; });
    // While deliveries are behind, the bridge still answers.
    sendFromBridge(*bridge, "still here", "BSXE");
    EXPECT_EQ(nextText(*other), "still here");
    release.set_value();
    ASSERT_TRUE(paused) << "the bridge kept reading into a full queue";
    ASSERT_TRUE(bridge->waitForMessages(kCount));
    const std::vector<MessageContent> messages = bridge->messages();
    for (int i = 0; i < kCount; ++i)
        ASSERT_EQ(messages[static_cast<std::size_t>(i)].text, std::to_string(i));
    EXPECT_LE(Testing::transportStats(*bridge).queuedHighWater, limits.queuedMessages);
}

TEST(MessageText, IsLentWithoutACopyAndWhatWasLentNeverChanges)
{
    msg_auto_ptr<IRFMessage> message = Testing::makeMessage(sampleMessage(222, "body"));
    const msgString lent = message->GetText();
    EXPECT_EQ(message->GetText().c_str(), lent.c_str()) << "the text was copied";
    message->SetText("new");
    EXPECT_EQ(lent.str(), "body");
    EXPECT_EQ(Testing::contentOf(*message).text, "new");
    message.reset();
    EXPECT_EQ(lent.str(), "body") << "outlives its message";
}

TEST(PeerClientErrors, NameTheBridgeAndWhatItSaidOrWhatWentWrong)
{
    RecordingBridge bridge;
    Testing::TransportLimits limits;
    limits.frameLimit = 1024;
    const int port = bridge.start(limits);
    const std::string bridgeAt = "the bridge at 127.0.0.1:" + std::to_string(port);
    PeerClient refused;
    EXPECT_EQ(errorOf([&] { refused.connect("127.0.0.1", port, std::string(300, 'A')); }),
              bridgeAt + " refused the connection: this peer sent a malformed announcement: the "
                         "announced application name is longer than 256 bytes");
    // A message over the bridge's limit is refused before it is sent.
    PeerClient peer;
    peer.connect("127.0.0.1", port, "DXD");
    const std::string tooLarge =
        errorOf([&] { peer.send(sampleMessage(222, std::string(2000, 'i'))); });
    EXPECT_NE(tooLarge.find("it takes frames of at most 1024 bytes"), std::string::npos)
        << tooLarge;
    peer.send(sampleMessage(222, "small"));
    ASSERT_TRUE(bridge.waitForMessages(1));
    EXPECT_EQ(bridge.messages()[0].text, "small");

    bridge.Disconnect();
    PeerClient late;
    EXPECT_EQ(errorOf([&] { late.connect("127.0.0.1", port, "DXD", 2000); }),
              "cannot connect to " + bridgeAt + ": Connection refused");
    EXPECT_FALSE(late.isConnected());
    EXPECT_EQ(errorOf([&] { late.send(MessageContent()); }),
              "cannot send: not connected to a bridge");
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

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>

#include "recordingbridge.h"
#include "rfmsg/peerclient.h"
#include "rfmsg/testing.h"

using namespace RFMsgExp;
using BridgeTestSupport::sampleMessage;
using BridgeTestSupport::waitUntil;

namespace {

std::unique_ptr<PeerClient> connectPeer(int port, const std::string& app)
{
    auto peer = std::make_unique<PeerClient>();
    peer->connect("127.0.0.1", port, app);
    return peer;
}

std::string infoOf(IXException* error)
{
    std::string text = error->GetInfo().str();
    error->Destroy();
    return text;
}

// An IPv4 address of this machine other than loopback, if it has one.
std::string outsideAddress()
{
    ifaddrs* interfaces = nullptr;
    if (::getifaddrs(&interfaces) != 0)
        return {};
    std::string found;
    for (ifaddrs* entry = interfaces; entry && found.empty(); entry = entry->ifa_next) {
        if (!entry->ifa_addr || entry->ifa_addr->sa_family != AF_INET)
            continue;
        const auto* address = reinterpret_cast<sockaddr_in*>(entry->ifa_addr);
        if ((ntohl(address->sin_addr.s_addr) >> 24) == 127)
            continue;
        char text[INET_ADDRSTRLEN];
        ::inet_ntop(AF_INET, &address->sin_addr, text, sizeof text);
        found = text;
    }
    ::freeifaddrs(interfaces);
    return found;
}

} // namespace

class XBridgeNetwork : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_liveAtStart = Testing::liveObjects();
        bridge = std::make_unique<RecordingBridge>();
    }
    void TearDown() override
    {
        bridge.reset();
        EXPECT_EQ(Testing::liveObjects(), m_liveAtStart) << "library objects were not released";
    }

    std::unique_ptr<RecordingBridge> bridge;

private:
    long m_liveAtStart = 0;
};

TEST_F(XBridgeNetwork, PortZeroPicksAFreeLoopbackPort)
{
    const int port = bridge->start();
    EXPECT_GT(port, 0);
    EXPECT_EQ(bridge->GetPort(), port);
    auto peer = connectPeer(port, "DXD");
    EXPECT_EQ(peer->number(), 1);
    EXPECT_EQ(peer->libraryVersion(), bridge->GetVersion().str());
    EXPECT_EQ(peer->machineName(), bridge->GetMachineName().str());
    EXPECT_FALSE(bridge->GetMachineName().str().empty());
}

TEST_F(XBridgeNetwork, OnlyBitZeroOpensOtherInterfaces)
{
    const std::string outside = outsideAddress();
    if (outside.empty())
        GTEST_SKIP() << "this machine has no address but loopback";
    int port = 0;
    bridge->Init(port, 0);
    PeerClient peer;
    try {
        peer.connect(outside, port, "DXD", 2000);
        ADD_FAILURE() << "a loopback bridge accepted a connection on " << outside;
    } catch (IXException* error) {
        EXPECT_NE(infoOf(error).find(outside), std::string::npos);
    }
    port = 0;
    bridge->Init(port, 1 | 6);
    peer.connect(outside, port, "DXD", 2000);
    EXPECT_EQ(peer.number(), 1);
}

TEST_F(XBridgeNetwork, PortInUseThrowsNamingThePortAndTheReason)
{
    const int port = bridge->start();
    RecordingBridge second;
    int wanted = port;
    try {
        second.Init(wanted, 0);
        FAIL() << "a second bridge listened on a port in use";
    } catch (IXException* error) {
        const std::string text = infoOf(error);
        EXPECT_NE(text.find("port " + std::to_string(port)), std::string::npos) << text;
        EXPECT_NE(text.find("Address already in use"), std::string::npos) << text;
    }
    EXPECT_EQ(second.GetPort(), 0);
    // The first bridge is unharmed.
    auto peer = connectPeer(port, "DXD");
    EXPECT_EQ(bridge->connected().size(), 1u);
}

TEST_F(XBridgeNetwork, BadPortNumberThrows)
{
    for (int port : {-1, 65536}) {
        SCOPED_TRACE(port);
        int wanted = port;
        try {
            bridge->Init(wanted, 0);
            ADD_FAILURE() << "listened";
        } catch (IXException* error) {
            EXPECT_NE(infoOf(error).find("not a port number"), std::string::npos);
        }
    }
}

TEST_F(XBridgeNetwork, PeersAreNumberedInOrderOfConnectionAndListed)
{
    const int port = bridge->start();
    auto dxd = connectPeer(port, "DXD");
    auto bsxe = connectPeer(port, "BSXE");
    auto other = connectPeer(port, "dxd");
    EXPECT_EQ(dxd->number(), 1);
    EXPECT_EQ(bsxe->number(), 2);
    EXPECT_EQ(other->number(), 3);
    const std::vector<Testing::Peer> peers = bridge->connected();
    ASSERT_EQ(peers.size(), 3u);
    EXPECT_EQ(peers[0].appName, "DXD");
    EXPECT_EQ(peers[0].number, 1);
    EXPECT_EQ(peers[1].appName, "BSXE");
    EXPECT_EQ(peers[1].number, 2);
    EXPECT_EQ(peers[2].appName, "dxd");
    EXPECT_EQ(peers[2].number, 3);
    EXPECT_TRUE(bridge->HasSomeone());
}

TEST_F(XBridgeNetwork, PeerThatClosesLeavesTheListAtOnceWithoutAnError)
{
    const int port = bridge->start();
    auto dxd = connectPeer(port, "DXD");
    auto bsxe = connectPeer(port, "BSXE");
    dxd->close();
    ASSERT_TRUE(bridge->waitForPeerCount(1));
    EXPECT_EQ(bridge->connected()[0].appName, "BSXE");
    bsxe.reset();
    ASSERT_TRUE(bridge->waitForPeerCount(0));
    EXPECT_FALSE(bridge->HasSomeone());
    // A later peer gets the next number: numbers are not reused.
    EXPECT_EQ(connectPeer(port, "DXD")->number(), 3);
    EXPECT_TRUE(bridge->errors().empty());
}

TEST_F(XBridgeNetwork, OnSendReachesEveryPeerOrThoseOfTheNamedApplication)
{
    const int port = bridge->start();
    auto dxd = connectPeer(port, "DXD");
    auto bsxe = connectPeer(port, "BSXE");
    msg_auto_ptr<IRFMessage> toAll = Testing::makeMessage(sampleMessage(224, "all"));
    EXPECT_FALSE(bridge->OnSend(toAll.get(), ""));
    msg_auto_ptr<IRFMessage> toLayout = Testing::makeMessage(sampleMessage(222, "layout"));
    EXPECT_FALSE(bridge->OnSend(toLayout.get(), "bsxe"));
    msg_auto_ptr<IRFMessage> toNobody = Testing::makeMessage(sampleMessage(222, "nobody"));
    EXPECT_FALSE(bridge->OnSend(toNobody.get(), "XYZ"));

    std::optional<MessageContent> got = dxd->receive(5000);
    ASSERT_TRUE(got);
    EXPECT_EQ(got->text, "all");
    EXPECT_EQ(got->kind, 224);
    EXPECT_EQ(got->properties, sampleMessage(224, "").properties);
    EXPECT_FALSE(dxd->receive(50)) << "DXD got a message meant for BSXE";
    got = bsxe->receive(5000);
    ASSERT_TRUE(got);
    EXPECT_EQ(got->text, "all");
    got = bsxe->receive(5000);
    ASSERT_TRUE(got);
    EXPECT_EQ(got->text, "layout");
    // The messages stay the caller's.
    EXPECT_EQ(toLayout->GetText().str(), "layout");
}

TEST_F(XBridgeNetwork, MessagesSentWhilePeersConnectNeverComeBeforeTheirWelcome)
{
    const int port = bridge->start();
    std::atomic<bool> connecting{true};
    std::thread sender([&] {
        while (connecting) {
            msg_auto_ptr<IRFMessage> message = Testing::makeMessage(sampleMessage(224, "all"));
            bridge->OnSend(message.get(), "");
        }
    });
    for (int i = 0; i < 200; ++i) {
        try {
            PeerClient peer;
            peer.connect("127.0.0.1", port, "DXD");
            EXPECT_EQ(peer.number(), i + 1);
            peer.finish();
        } catch (IXException* error) {
            ADD_FAILURE() << infoOf(error);
        }
    }
    connecting = false;
    sender.join();
}

TEST_F(XBridgeNetwork, ReplyFromOnReceiveGoesBackToTheSenderOnly)
{
    bridge->setHandler([](IRFMessage& message) {
        MessageContent reply = sampleMessage(20, "re: " + message.GetText().str());
        return Testing::makeMessage(reply);
    });
    const int port = bridge->start();
    auto dxd = connectPeer(port, "DXD");
    auto bsxe = connectPeer(port, "BSXE");
    bsxe->send(sampleMessage(212, "from BSXE"));
    std::optional<MessageContent> reply = bsxe->receive(5000);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->kind, 20);
    EXPECT_EQ(reply->text, "re: from BSXE");
    EXPECT_FALSE(dxd->receive(50));
}

TEST_F(XBridgeNetwork, TenThousandMessagesFromFourPeersArriveCompleteAndInOrder)
{
    constexpr int kPeers = 4;
    constexpr int kEach = 2500;
    const int port = bridge->start();
    std::vector<std::thread> senders;
    std::atomic<int> failures{0};
    for (int p = 0; p < kPeers; ++p) {
        senders.emplace_back([&, p] {
            try {
                PeerClient peer;
                peer.connect("127.0.0.1", port, "P" + std::to_string(p));
                MessageContent content;
                content.kind = 212;
                for (int i = 0; i < kEach; ++i) {
                    content.properties = {{"peer", std::to_string(p)}, {"seq", std::to_string(i)}};
                    content.text = std::string(static_cast<std::size_t>(i % 200), 'a' + p);
                    peer.send(content);
                }
            } catch (IXException* error) {
                ADD_FAILURE() << infoOf(error);
                ++failures;
            }
        });
    }
    for (std::thread& sender : senders)
        sender.join();
    ASSERT_EQ(failures, 0);
    ASSERT_TRUE(bridge->waitForMessages(kPeers * kEach, 30000));
    std::map<std::string, int> next;
    for (const MessageContent& message : bridge->messages()) {
        ASSERT_EQ(message.properties.size(), 2u);
        const std::string& peer = message.properties[0].second;
        const int seq = std::stoi(message.properties[1].second);
        ASSERT_EQ(seq, next[peer]) << "peer " << peer << " out of order";
        ASSERT_EQ(message.text.size(), static_cast<std::size_t>(seq % 200));
        ++next[peer];
    }
    EXPECT_EQ(bridge->messages().size(), static_cast<std::size_t>(kPeers * kEach));
    EXPECT_TRUE(bridge->errors().empty());
}

TEST_F(XBridgeNetwork, DisconnectWhileADeliveryWaitsForTheCallerDoesNotWait)
{
    // The delivery blocks until "the main thread" (this test) has done its
    // work, as the plug-in's handlers wait for the host.
    std::promise<void> entered;
    std::promise<void> mainThreadDone;
    std::shared_future<void> done = mainThreadDone.get_future().share();
    bridge->setHandler([&](IRFMessage&) {
        entered.set_value();
        done.wait();
        return Testing::makeMessage(sampleMessage(20, "late reply"));
    });
    const int port = bridge->start();
    auto dxd = connectPeer(port, "DXD");
    auto bsxe = connectPeer(port, "BSXE");
    dxd->send(sampleMessage(222, "blocks"));
    ASSERT_EQ(entered.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);

    auto mainThread = std::async(std::launch::async, [&] {
        EXPECT_EQ(bridge->connected().size(), 2u);
        msg_auto_ptr<IRFMessage> message = Testing::makeMessage(sampleMessage(224, "while busy"));
        bridge->OnSend(message.get(), "BSXE");
        std::optional<MessageContent> got = bsxe->receive(5000);
        EXPECT_TRUE(got && got->text == "while busy");
        bridge->Disconnect();
    });
    const bool returned =
        mainThread.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    mainThreadDone.set_value();
    ASSERT_TRUE(returned) << "the main thread waited for the delivery";
    mainThread.get();

    EXPECT_EQ(bridge->connected().size(), 0u);
    EXPECT_EQ(bridge->GetPort(), 0);
    ASSERT_TRUE(bridge->waitForMessages(1));
    try {
        while (dxd->receive(5000)) {
        }
        ADD_FAILURE() << "the connection stayed open";
    } catch (IXException* error) {
        EXPECT_NE(infoOf(error).find("the bridge is disconnecting"), std::string::npos);
    }
    // It can start again.
    const int again = bridge->start();
    EXPECT_EQ(connectPeer(again, "DXD")->number(), 1);
}

TEST_F(XBridgeNetwork, DeliveriesRunOnOneLibraryThreadWhileTheNetworkIsServed)
{
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::mutex mutex;
    std::set<std::thread::id> threads;
    bridge->setHandler([&](IRFMessage& message) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            threads.insert(std::this_thread::get_id());
        }
        if (message.GetText().str() == "blocks")
            released.wait();
        return msg_auto_ptr<IRFMessage>();
    });
    const int port = bridge->start();
    auto dxd = connectPeer(port, "DXD");
    auto bsxe = connectPeer(port, "BSXE");
    dxd->send(sampleMessage(212, "blocks"));
    ASSERT_TRUE(waitUntil([&] {
        std::lock_guard<std::mutex> lock(mutex);
        return !threads.empty();
    }));
    for (int i = 0; i < 20; ++i)
        bsxe->send(sampleMessage(212, std::to_string(i)));
    // Read and queued while the first delivery still waits.
    const bool served = waitUntil([&] { return Testing::transportStats(*bridge).queued == 20; });
    release.set_value();
    ASSERT_TRUE(served);
    ASSERT_TRUE(bridge->waitForMessages(21));
    EXPECT_EQ(threads.size(), 1u);
    EXPECT_EQ(threads.count(std::this_thread::get_id()), 0u);
}

TEST_F(XBridgeNetwork, FullQueueStopsReadingAndLosesNothing)
{
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::atomic<bool> first{true};
    bridge->setHandler([&](IRFMessage&) {
        if (first.exchange(false))
            released.wait();
        return msg_auto_ptr<IRFMessage>();
    });
    Testing::TransportLimits limits;
    limits.queuedMessages = 4;
    const int port = bridge->start(limits);
    auto peer = connectPeer(port, "DXD");
    auto other = connectPeer(port, "BSXE");
    constexpr int kCount = 200;
    for (int i = 0; i < kCount; ++i)
        peer->send(sampleMessage(212, std::to_string(i)));
    const bool paused =
        waitUntil([&] { return Testing::transportStats(*bridge).pausedConnections == 1; });
    // While deliveries are behind, the bridge still answers.
    EXPECT_EQ(bridge->connected().size(), 2u);
    msg_auto_ptr<IRFMessage> message = Testing::makeMessage(sampleMessage(224, "still here"));
    bridge->OnSend(message.get(), "BSXE");
    EXPECT_TRUE(other->receive(5000));
    release.set_value();
    ASSERT_TRUE(paused) << "the bridge kept reading into a full queue";
    ASSERT_TRUE(bridge->waitForMessages(kCount));
    const std::vector<MessageContent> messages = bridge->messages();
    for (int i = 0; i < kCount; ++i)
        ASSERT_EQ(messages[static_cast<std::size_t>(i)].text, std::to_string(i));
    EXPECT_LE(Testing::transportStats(*bridge).queuedHighWater, limits.queuedMessages);
}

TEST_F(XBridgeNetwork, SixtyFourPeersAtOnceAreAllServed)
{
    constexpr int kPeers = 64;
    const int port = bridge->start();
    std::vector<std::unique_ptr<PeerClient>> peers(kPeers);
    std::vector<std::thread> threads;
    for (int p = 0; p < kPeers; ++p) {
        threads.emplace_back([&, p] {
            try {
                peers[static_cast<std::size_t>(p)] = connectPeer(port, "peer" + std::to_string(p));
                peers[static_cast<std::size_t>(p)]->send(sampleMessage(212, std::to_string(p)));
            } catch (IXException* error) {
                ADD_FAILURE() << infoOf(error);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    ASSERT_TRUE(bridge->waitForMessages(kPeers));
    const std::vector<Testing::Peer> listed = bridge->connected();
    ASSERT_EQ(listed.size(), static_cast<std::size_t>(kPeers));
    std::vector<bool> numberSeen(kPeers + 1, false);
    for (const Testing::Peer& peer : listed) {
        ASSERT_GE(peer.number, 1);
        ASSERT_LE(peer.number, kPeers);
        EXPECT_FALSE(numberSeen[static_cast<std::size_t>(peer.number)]) << "number given twice";
        numberSeen[static_cast<std::size_t>(peer.number)] = true;
    }
    msg_auto_ptr<IRFMessage> message = Testing::makeMessage(sampleMessage(224, "to all"));
    bridge->OnSend(message.get(), "");
    for (auto& peer : peers) {
        std::optional<MessageContent> got = peer->receive(5000);
        ASSERT_TRUE(got);
        EXPECT_EQ(got->text, "to all");
    }
}

TEST_F(XBridgeNetwork, InitAgainDropsThePeersAndStartsNumberingAfresh)
{
    const int port = bridge->start();
    auto old = connectPeer(port, "DXD");
    auto second = connectPeer(port, "BSXE");
    int next = 0;
    bridge->Init(next, 0);
    EXPECT_EQ(bridge->GetPort(), next);
    EXPECT_TRUE(bridge->connected().empty());
    EXPECT_EQ(connectPeer(next, "BSXE")->number(), 1);
    EXPECT_THROW(
        {
            try {
                old->receive(5000);
            } catch (IXException* error) {
                error->Destroy();
                throw std::runtime_error("closed");
            }
        },
        std::runtime_error);
}

TEST_F(XBridgeNetwork, EscapingExceptionIsReportedAndDeliveryGoesOn)
{
    bridge->setHandler([](IRFMessage& message) -> msg_auto_ptr<IRFMessage> {
        if (message.GetText().str() == "throw")
            throw IXException::Create("handler failed");
        return {};
    });
    const int port = bridge->start();
    auto peer = connectPeer(port, "DXD");
    peer->send(sampleMessage(212, "throw"));
    peer->send(sampleMessage(212, "fine"));
    ASSERT_TRUE(bridge->waitForErrors(1));
    EXPECT_EQ(bridge->errors()[0], "OnReceive let an exception escape: handler failed");
    ASSERT_TRUE(bridge->waitForMessages(1));
    EXPECT_EQ(bridge->messages()[0].text, "fine");
}

TEST_F(XBridgeNetwork, SimulatedPeersStandInForRealOnes)
{
    const int port = bridge->start();
    auto real = connectPeer(port, "DXD");
    Testing::simulatePeers(*bridge, {{"BSXE", 7}});
    const std::vector<Testing::Peer> listed = bridge->connected();
    ASSERT_EQ(listed.size(), 1u);
    EXPECT_EQ(listed[0].appName, "BSXE");
    EXPECT_EQ(listed[0].number, 7);
    msg_auto_ptr<IRFMessage> message = Testing::makeMessage(sampleMessage(222, "recorded"));
    bridge->OnSend(message.get(), "");
    const std::vector<Testing::SentMessage> sent = Testing::sentMessages(*bridge);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].content.text, "recorded");
    EXPECT_FALSE(real->receive(50)) << "a simulating bridge sent over the network";
}

TEST_F(XBridgeNetwork, LargeBodyArrivesIntact)
{
    const int port = bridge->start();
    auto peer = connectPeer(port, "BSXE");
    std::string body(8 << 20, '\0');
    for (std::size_t i = 0; i < body.size(); ++i)
        body[i] = static_cast<char>(i * 131 % 251);
    MessageContent content = sampleMessage(222, body, true);
    content.document->regions[0].egs = body.substr(0, 1 << 20);
    peer->send(content);
    ASSERT_TRUE(bridge->waitForMessages(1, 60000));
    const MessageContent got = bridge->messages()[0];
    EXPECT_TRUE(got.text == body) << "the body changed on the way";
    EXPECT_TRUE(got.document && got.document->regions[0].egs == content.document->regions[0].egs);
}

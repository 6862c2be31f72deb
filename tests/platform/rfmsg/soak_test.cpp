// Long runs of the bridge, behind the `soak` label (left out of the default
// test run); the attacks run against lumo-host in tests/e2e. Every message is
// answered with its text, as kind 20.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "recordingbridge.h"
#include "rfmsg/peerclient.h"
#include "rfmsg/testing.h"

using namespace RFMsgExp;
using BridgeTestSupport::sampleMessage;

class TransportSoak : public ::testing::Test
{
protected:
    void TearDown() override
    {
        EXPECT_TRUE(bridge->errors().empty()) << bridge->errors().front();
        bridge.reset();
        EXPECT_EQ(Testing::liveObjects(), m_liveAtStart) << "library objects were not released";
    }

    const long m_liveAtStart = Testing::liveObjects();
    std::unique_ptr<RecordingBridge> bridge = std::make_unique<RecordingBridge>();
    const int port = bridge->start({}, [](IRFMessage& message) {
        return Testing::makeMessage(sampleMessage(20, message.GetText().str()));
    });
};

TEST_F(TransportSoak, TwoHundredMegabyteBodyGoesBothWaysIntact)
{
    PeerClient peer;
    peer.connect("127.0.0.1", port, "BSXE");
    MessageContent content = sampleMessage(222, std::string(200u << 20, 'I'), true);
    for (std::size_t i = 0; i < content.text.size(); i += 4096)
        content.text[i] = static_cast<char>('A' + (i / 4096) % 26);
    peer.send(content);
    ASSERT_TRUE(bridge->waitForMessages(1, 120000));
    EXPECT_TRUE(bridge->messages()[0].text == content.text);
    EXPECT_TRUE(peer.receive(120000).value_or(MessageContent()).text == content.text);
}

TEST_F(TransportSoak, PeersComingAndGoingWhileMessagesGoToAllLeakNothingAndLoseNothing)
{
    constexpr int kThreads = 8;
    constexpr int kRounds = 2500;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < kRounds; ++round) {
                PeerClient peer;
                const std::string sent = std::to_string(round);
                EXPECT_EQ(BridgeTestSupport::errorOf([&] {
                              peer.connect("127.0.0.1", port, t % 2 ? "DXD" : "BSXE");
                              peer.send(sampleMessage(212, sent, round % 7 == 0));
                              // Messages to all may come first; the reply is kind 20.
                              std::optional<MessageContent> reply = peer.receive(30000);
                              while (reply && reply->kind != 20)
                                  reply = peer.receive(30000);
                              EXPECT_EQ(reply.value_or(MessageContent()).text, sent);
                              // In order: a peer that closes with unread messages resets
                              // the connection, which the bridge rightly reports.
                              peer.finish(30000);
                          }),
                          "");
            }
        });
    }
    for (int i = 0; i < 2000; ++i) {
        msg_auto_ptr<IRFMessage> message = Testing::makeMessage(sampleMessage(224, "all"));
        bridge->OnSend(message.get(), "");
        bridge->connected();
    }
    for (std::thread& thread : threads)
        thread.join();
    ASSERT_TRUE(bridge->waitForMessages(kThreads * kRounds, 60000)) << bridge->messages().size();
    EXPECT_TRUE(bridge->waitForPeerCount(0));
}

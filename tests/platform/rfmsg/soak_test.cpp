// Long runs of the bridge, behind the `soak` label (left out of the default
// test run); the attacks run against lumo-host in tests/e2e. The bridge
// answers every message with its text, as kind 20.

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "recordingbridge.h"
#include "rfmsg/peerclient.h"
#include "rfmsg/testing.h"

using namespace RFMsgExp;
using BridgeTestSupport::sampleMessage;

namespace {

msg_auto_ptr<IRFMessage> echo(IRFMessage& message)
{
    return Testing::makeMessage(sampleMessage(20, message.GetText().str()));
}

} // namespace

TEST(TransportSoak, TwoHundredMegabyteBodyGoesBothWaysIntact)
{
    const long liveAtStart = Testing::liveObjects();
    {
        RecordingBridge bridge;
        PeerClient peer;
        peer.connect("127.0.0.1", bridge.start({}, echo), "BSXE");
        MessageContent content = sampleMessage(222, std::string(200u << 20, 'I'), true);
        for (std::size_t i = 0; i < content.text.size(); i += 4096)
            content.text[i] = static_cast<char>('A' + (i / 4096) % 26);
        peer.send(content);
        EXPECT_TRUE(peer.receive(120000).value_or(MessageContent()).text == content.text);
    }
    EXPECT_EQ(Testing::liveObjects(), liveAtStart);
}

TEST(TransportSoak, PeersComingAndGoingWhileMessagesGoToAllLeakNothingAndLoseNothing)
{
    const long liveAtStart = Testing::liveObjects();
    {
        RecordingBridge bridge;
        const int port = bridge.start({}, echo);
        std::vector<std::thread> threads;
        for (int t = 0; t < 8; ++t) {
            threads.emplace_back([&, t] {
                for (int round = 0; round < 2500; ++round) {
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
                                  // In order: a peer that closes with unread messages
                                  // resets the connection, which the bridge rightly reports.
                                  peer.finish(30000);
                              }),
                              "");
                }
            });
        }
        for (int i = 0; i < 2000; ++i) {
            msg_auto_ptr<IRFMessage> message = Testing::makeMessage(sampleMessage(224, "all"));
            bridge.OnSend(message.get(), "");
            bridge.connected();
        }
        for (std::thread& thread : threads)
            thread.join();
        ASSERT_TRUE(bridge.waitForMessages(8 * 2500, 60000)) << bridge.messages().size();
        EXPECT_TRUE(bridge.waitForPeerCount(0));
        EXPECT_TRUE(bridge.errors().empty()) << bridge.errors().front();
    }
    EXPECT_EQ(Testing::liveObjects(), liveAtStart);
}

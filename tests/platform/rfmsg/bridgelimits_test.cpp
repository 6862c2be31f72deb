// What a faulty or hostile peer may cost the bridge on the receiving side,
// with small limits, over real sockets; honest peers are served meanwhile.

#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <string>
#include <vector>

#include <QCborArray>
#include <QCborMap>
#include <QCborValue>

#include "recordingbridge.h"
#include "rfmsg/peerclient.h"
#include "rfmsg/testing.h"

using namespace RFMsgExp;
using BridgeTestSupport::frame;
using BridgeTestSupport::helloPayload;
using BridgeTestSupport::RawPeer;
using BridgeTestSupport::sampleMessage;
using BridgeTestSupport::waitUntil;

namespace {

// Two frames of 200 KiB do not fit the budget together; frames of up to
// 8 KiB draw on their own reserve.
Testing::TransportLimits smallLimits()
{
    Testing::TransportLimits limits;
    limits.frameLimit = 256u << 10;
    limits.receiveBudget = 384u << 10;
    limits.smallFrameLimit = 8u << 10;
    limits.smallFrameReserve = 64u << 10;
    limits.stallTimeoutMs = 300;
    return limits;
}

Testing::TransportStats statsOf(XBridge& bridge)
{
    return Testing::transportStats(bridge);
}

} // namespace

TEST(BridgeLimits, BigFramesThatDoNotBothFitAreServedInTurnWhileSmallOnesFlow)
{
    const Testing::TransportLimits limits = smallLimits();
    std::promise<void> entered;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    RecordingBridge bridge;
    const int port = bridge.start(limits, [&](IRFMessage& message) {
        if (message.GetKind() == 1) {
            entered.set_value();
            released.wait();
        }
        return msg_auto_ptr<IRFMessage>();
    });
    PeerClient first;
    PeerClient second;
    PeerClient small;
    first.connect("127.0.0.1", port, "BSXE");
    second.connect("127.0.0.1", port, "BSXE");
    small.connect("127.0.0.1", port, "DXD");
    const std::string firstBody(200u << 10, 'a');
    const std::string secondBody(200u << 10, 'b');

    // The first big message is held by its delivery; the second frame waits.
    first.send(sampleMessage(1, firstBody));
    ASSERT_EQ(entered.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    auto sending =
        std::async(std::launch::async, [&] { second.send(sampleMessage(2, secondBody)); });
    const bool waited = waitUntil([&] { return statsOf(bridge).waitingForBudget == 1; });
    small.send(sampleMessage(3, "small"));
    const bool smallReceived = waitUntil([&] { return statsOf(bridge).queued == 1; });
    const Testing::TransportStats during = statsOf(bridge);
    release.set_value();
    EXPECT_TRUE(waited) << "the second big frame was read into a full budget";
    EXPECT_TRUE(smallReceived) << "a small message waited behind the big frame";
    EXPECT_EQ(during.waitingForBudget, 1);

    ASSERT_TRUE(bridge.waitForMessages(3));
    sending.get();
    const std::vector<MessageContent> messages = bridge.messages();
    EXPECT_EQ(messages[0].kind, 1);
    EXPECT_EQ(messages[1].text, "small");
    EXPECT_TRUE(messages[2].text == secondBody) << "the waiting frame arrived damaged";
    EXPECT_LE(statsOf(bridge).budgetHighWater, limits.receiveBudget);
    EXPECT_GE(statsOf(bridge).budgetHighWater, firstBody.size());
    EXPECT_TRUE(waitUntil([&] { return statsOf(bridge).budgetReserved == 0; }))
        << "delivered messages still hold the budget";
    EXPECT_TRUE(bridge.errors().empty()) << bridge.errors().front();
}

TEST(BridgeLimits, PeersStallingMidFrameHoldAtMostTheBudgetAndAreDroppedGivingItBack)
{
    const Testing::TransportLimits limits = smallLimits();
    constexpr std::size_t kFrame = 250u << 10;
    const std::string half = frame(3, std::string(kFrame, 'x')).substr(0, kFrame / 2);
    std::vector<std::unique_ptr<RawPeer>> stalling;
    // Declared before the bridge, which ends them by closing their connections.
    std::vector<std::future<void>> sending;
    RecordingBridge bridge;
    const int port = bridge.start(limits);
    for (int i = 0; i < 4; ++i) {
        stalling.push_back(std::make_unique<RawPeer>(port));
        stalling.back()->send(frame(1, helloPayload("STALL")));
        sending.push_back(std::async(std::launch::async,
                                     [peer = stalling.back().get(), &half] { peer->send(half); }));
    }
    PeerClient honest;
    honest.connect("127.0.0.1", port, "DXD");
    honest.send(sampleMessage(212, "small"));
    ASSERT_TRUE(bridge.waitForMessages(1)) << "a small message waited behind stalled frames";

    ASSERT_TRUE(bridge.waitForErrors(4, 20000));
    for (const std::string& error : bridge.errors()) {
        EXPECT_NE(error.find("stalled in the middle of a frame ("), std::string::npos) << error;
        EXPECT_NE(error.find(" of " + std::to_string(kFrame + 8) +
                             " bytes of a MESSAGE frame received; nothing more for 300 ms)"),
                  std::string::npos)
            << error;
    }
    EXPECT_LE(statsOf(bridge).budgetHighWater, limits.receiveBudget);
    EXPECT_TRUE(waitUntil([&] { return statsOf(bridge).budgetReserved == 0; }))
        << "dropped peers still hold the budget";
    const std::string body(200u << 10, 'h');
    honest.send(sampleMessage(212, body));
    ASSERT_TRUE(bridge.waitForMessages(2));
    EXPECT_TRUE(bridge.messages()[1].text == body);
}

TEST(BridgeLimits, TenThousandPortsGivingOnlyTheirNamesAreAccepted)
{
    QCborArray ports;
    for (int i = 0; i < 10000; ++i)
        ports.append(QCborMap{{QStringLiteral("name"), QStringLiteral("P%1").arg(i)}});
    const QCborMap region{{QStringLiteral("name"), QStringLiteral("lna")},
                          {QStringLiteral("ports"), ports}};
    const QCborMap message{
        {QStringLiteral("kind"), 212},
        {QStringLiteral("document"), QCborMap{{QStringLiteral("regions"), QCborArray{region}}}}};
    RecordingBridge bridge;
    RawPeer peer(bridge.start());
    peer.send(frame(1, helloPayload("DXD")) +
              frame(3, message.toCborValue().toCbor().toStdString()));
    ASSERT_TRUE(bridge.waitForMessages(1)) << (bridge.errors().empty() ? "" : bridge.errors()[0]);
    const std::vector<MessageContent> messages = bridge.messages();
    const std::vector<PortContent>& received = messages[0].document->regions[0].ports;
    ASSERT_EQ(received.size(), 10000u);
    EXPECT_EQ(received[9999].name, "P9999");
    EXPECT_EQ(received[9999].enabled, 1);
}

TEST(MessageText, IsLentWithoutACopyAndWhatWasLentNeverChanges)
{
    msg_auto_ptr<IRFMessage> message = Testing::makeMessage(sampleMessage(222, "body"));
    const msgString lent = message->GetText();
    EXPECT_EQ(message->GetText().c_str(), lent.c_str()) << "the text was copied";
    EXPECT_EQ(Testing::contentOf(*message).text, "body");
    message->SetText("new");
    EXPECT_EQ(lent.str(), "body");
    EXPECT_EQ(message->GetText().str(), "new");
    EXPECT_EQ(Testing::contentOf(*message).text, "new");
    message.reset();
    EXPECT_EQ(lent.str(), "body") << "outlives its message";
}

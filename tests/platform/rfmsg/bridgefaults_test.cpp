#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include <QCborMap>
#include <QCborValue>

#include "rawpeer.h"
#include "recordingbridge.h"
#include "rfmsg/peerclient.h"
#include "rfmsg/testing.h"

using namespace RFMsgExp;
using BridgeTestSupport::frame;
using BridgeTestSupport::helloPayload;

namespace {

std::string messagePayload(const QCborMap& message)
{
    return message.toCborValue().toCbor().toStdString();
}

const std::string kHello = frame(1, helloPayload("BAD"));

struct Fault
{
    const char* name;
    // Misbehaves on a raw connection to the bridge.
    std::function<void(RawPeer&)> act;
    // What OnError says, in part.
    std::string error;
    // Whether the peer was announced (and so named in the error) before it misbehaved.
    bool announced = true;
    // Another fitting account of the same fault, where timing decides which one is given.
    std::string alternative = {};
};

void PrintTo(const Fault& fault, std::ostream* out)
{
    *out << fault.name;
}

const Fault kFaults[] = {
    {"GarbageBytes", [](RawPeer& peer) { peer.send("GET / HTTP/1.1\r\nHost: bridge\r\n\r\n"); },
     "sent data that is not a frame of this protocol (it starts with the bytes 47 45 54 20 2f 20 "
     "48 54)",
     false},
    {"GarbageAfterAnnouncement",
     [](RawPeer& peer) {
         peer.send(kHello + std::string("\x00\x01garbage", 9) + std::string(20, '\x7f'));
     },
     "sent data that is not a frame of this protocol (it starts with the bytes 00 01 67 61 72 62 "
     "61 67)"},
    {"LengthPrefixOf4GiB",
     [](RawPeer& peer) {
         peer.send(kHello + std::string("RF\x01\x03\xff\xff\xff\xff", 8) + "abc");
     },
     "sent a MESSAGE frame of 4294967295 bytes, over the limit of 1073741824 bytes"},
    {"FrameOverTheLimit",
     [](RawPeer& peer) { peer.send(kHello + frame(3, std::string(70000, 'x'))); },
     "sent a MESSAGE frame of 70000 bytes, over the limit of 65536 bytes"},
    {"TruncatedPayload",
     [](RawPeer& peer) {
         const std::string whole = messagePayload(QCborMap{
             {QStringLiteral("kind"), 212}, {QStringLiteral("text"), QByteArray(50, 'n')}});
         peer.send(kHello + frame(3, whole.substr(0, whole.size() - 10)));
     },
     "sent a malformed message: field 'text' claims 50 bytes, more than the 40 left in the "
     "payload"},
    {"VanishesMidFrame",
     [](RawPeer& peer) {
         peer.send(kHello + frame(3, std::string(100, 'x')).substr(0, 38));
         peer.close();
     },
     "connection lost in the middle of a frame (38 of 108 bytes of a MESSAGE frame received)"},
    {"VanishesMidHeader",
     [](RawPeer& peer) {
         peer.send(kHello + "RF\x01");
         peer.close();
     },
     "connection lost in the middle of a frame (3 of the 8 header bytes of a frame received)"},
    {"ResetMidFrame",
     [](RawPeer& peer) {
         peer.send(kHello + frame(3, std::string(100, 'x')).substr(0, 20));
         peer.reset();
     },
     "connection lost in the middle of a frame (20 of 108 bytes of a MESSAGE frame received)", true,
     // The reset may overtake the bytes, which the receiving system then drops.
     "connection broken: Connection reset by peer"},
    {"NeverAnnounces", [](RawPeer&) {}, "did not announce itself within 300 ms", false},
    {"MessageBeforeAnnouncement",
     [](RawPeer& peer) {
         peer.send(frame(3, messagePayload(QCborMap{{QStringLiteral("kind"), 212}})));
     },
     "sent a message before announcing itself", false},
    {"AnnouncesTwice", [](RawPeer& peer) { peer.send(kHello + kHello); },
     "announced itself a second time"},
    {"MalformedAnnouncement",
     [](RawPeer& peer) {
         peer.send(frame(1, messagePayload(QCborMap{{QStringLiteral("app"), 5}})));
     },
     "sent a malformed announcement: field 'app' must be a string (found an integer)", false},
    {"OtherProtocolVersion", [](RawPeer& peer) { peer.send(frame(1, helloPayload("BAD", 2))); },
     "speaks protocol version 2; this bridge speaks version 1", false},
    {"KindIsText",
     [](RawPeer& peer) {
         peer.send(kHello + frame(3, messagePayload(QCborMap{
                                         {QStringLiteral("kind"), QStringLiteral("netlist")}})));
     },
     "sent a malformed message: field 'kind' must be an integer (found a text string)"},
    {"UnknownFrameType", [](RawPeer& peer) { peer.send(kHello + frame(9, "")); },
     "sent a frame of unknown type 9"},
    {"SendsAWelcome", [](RawPeer& peer) { peer.send(kHello + frame(2, "")); },
     "sent a WELCOME frame, which only a bridge sends"},
};

} // namespace

class BridgeFaults : public ::testing::TestWithParam<Fault>
{
};

TEST_P(BridgeFaults, FaultyPeerIsClosedAndReportedWhileTheOthersGoOn)
{
    const Fault& fault = GetParam();
    const long liveAtStart = Testing::liveObjects();
    {
        RecordingBridge bridge;
        Testing::TransportLimits limits;
        limits.handshakeTimeoutMs = 300;
        if (std::string(fault.name) == "FrameOverTheLimit")
            limits.frameLimit = 65536;
        const int port = bridge.start(limits);
        PeerClient good;
        good.connect("127.0.0.1", port, "DXD");

        RawPeer bad(port);
        ASSERT_TRUE(bad.connected());
        fault.act(bad);

        ASSERT_TRUE(bridge.waitForErrors(1)) << "no error reported";
        const std::string error = bridge.errors()[0];
        EXPECT_TRUE(
            error.find(fault.error) != std::string::npos ||
            (!fault.alternative.empty() && error.find(fault.alternative) != std::string::npos))
            << error;
        const std::string who =
            fault.announced ? "peer BAD (2) at 127.0.0.1:" : "peer at 127.0.0.1:";
        EXPECT_EQ(error.rfind(who, 0), 0u) << error;
        EXPECT_NE(error.find("; connection closed"), std::string::npos) << error;

        // The bridge closed the faulty connection.
        if (bad.connected()) {
            bool closed = false;
            bad.readUntilClosed(5000, &closed);
            EXPECT_TRUE(closed);
        }

        // The others go on.
        ASSERT_TRUE(bridge.waitForPeerCount(1));
        EXPECT_EQ(bridge.connected()[0].appName, "DXD");
        good.send(BridgeTestSupport::sampleMessage(212, "still served"));
        ASSERT_TRUE(bridge.waitForMessages(1));
        EXPECT_EQ(bridge.messages().back().text, "still served");
        EXPECT_EQ(bridge.errors().size(), 1u) << "reported more than once";
        EXPECT_EQ(Testing::transportStats(bridge).openConnections, 1);
    }
    EXPECT_EQ(Testing::liveObjects(), liveAtStart);
}

INSTANTIATE_TEST_SUITE_P(Peers, BridgeFaults, ::testing::ValuesIn(kFaults),
                         [](const ::testing::TestParamInfo<Fault>& info) {
                             return info.param.name;
                         });

TEST(BridgeFaultReasons, PeerThatStillListensIsToldWhyItWasClosed)
{
    RecordingBridge bridge;
    const int port = bridge.start();
    RawPeer peer(port);
    peer.send(kHello + frame(9, ""));
    bool closed = false;
    const std::string answer = peer.readUntilClosed(5000, &closed);
    EXPECT_TRUE(closed);
    // WELCOME first, then CLOSE with the reason.
    EXPECT_NE(answer.find(std::string("RF\x01\x02", 4)), std::string::npos);
    const std::size_t close = answer.find(std::string("RF\x01\x04", 4));
    ASSERT_NE(close, std::string::npos);
    const QCborValue reason =
        QCborValue::fromCbor(QByteArray::fromStdString(answer.substr(close + 8)));
    EXPECT_EQ(reason.toMap().value(QStringLiteral("reason")).toString().toStdString(),
              "this peer sent a frame of unknown type 9");
}

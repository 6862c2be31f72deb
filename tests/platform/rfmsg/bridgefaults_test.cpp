#include <gtest/gtest.h>

#include <string>

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

namespace {

std::string cbor(const QCborMap& map)
{
    return map.toCborValue().toCbor().toStdString();
}

const std::string kHello = frame(1, helloPayload("BAD"));
// 20,000 empty port maps: 20 kB that would take 2.5 MB decoded.
const std::string kAmplifying = [] {
    QCborArray ports;
    for (int i = 0; i < 20000; ++i)
        ports.append(QCborMap());
    const QCborMap region{{QStringLiteral("ports"), ports}};
    return cbor(QCborMap{
        {QStringLiteral("kind"), 212},
        {QStringLiteral("document"), QCborMap{{QStringLiteral("regions"), QCborArray{region}}}}});
}();
const std::string kTruncated =
    cbor(QCborMap{{QStringLiteral("kind"), 212}, {QStringLiteral("text"), QByteArray(50, 'n')}});

enum class End { Stay, Close, Reset };

struct Fault
{
    const char* name;
    // What the faulty peer sends, and how it ends.
    std::string bytes;
    End end;
    // What OnError says after the peer's name, in part.
    std::string error;
    // Whether the peer had announced itself (and so is named) before it misbehaved.
    bool announced = true;
    // Another fitting account of the same fault, where timing decides which one is given.
    std::string alternative = {};
};

void PrintTo(const Fault& fault, std::ostream* out)
{
    *out << fault.name;
}

const Fault kFaults[] = {
    {"GarbageBytes", "GET / HTTP/1.1\r\nHost: bridge\r\n\r\n", End::Stay,
     "sent data that is not a frame of this protocol (it starts with the bytes 47 45 54 20 2f 20 "
     "48 54)",
     false},
    {"LengthPrefixOf4GiB", kHello + std::string("RF\x01\x03\xff\xff\xff\xff", 8) + "abc", End::Stay,
     "sent a MESSAGE frame of 4294967295 bytes, over the limit of 1073741824 bytes"},
    {"FrameOverTheLimit", kHello + frame(3, std::string(70000, 'x')), End::Stay,
     "sent a MESSAGE frame of 70000 bytes, over the limit of 65536 bytes"},
    {"TruncatedFrame", kHello + frame(3, kTruncated.substr(0, kTruncated.size() - 10)), End::Stay,
     "sent a malformed message: field 'text' claims 50 bytes, more than the 40 left in the "
     "payload"},
    {"VanishesMidFrame", kHello + frame(3, std::string(100, 'x')).substr(0, 38), End::Close,
     "connection lost in the middle of a frame (38 of 108 bytes of a MESSAGE frame received)"},
    {"VanishesMidHeader", kHello + "RF\x01", End::Close,
     "connection lost in the middle of a frame (3 of the 8 header bytes of a frame received)"},
    // The reset may overtake the bytes, which the receiving system then drops.
    {"ResetMidFrame", kHello + frame(3, std::string(100, 'x')).substr(0, 20), End::Reset,
     "connection lost in the middle of a frame (20 of 108 bytes of a MESSAGE frame received)", true,
     "connection broken: Connection reset by peer"},
    {"HelloOverTheLimit", std::string("RF\x01\x01\x40\x00\x00\x00", 8) + "abc", End::Stay,
     "sent a HELLO frame of 1073741824 bytes, over the limit of 65536 bytes", false},
    {"MessageAmplifiedWhenDecoded", kHello + frame(3, kAmplifying), End::Stay,
     "sent a malformed message: field 'document.regions[0].ports' would make the decoded "
     "message larger than " +
         std::to_string(8 * kAmplifying.size() + (1 << 20)) +
         " bytes (8 times its payload plus 1 MiB)"},
    {"NeverAnnounces", "", End::Stay, "did not announce itself within 300 ms", false},
    {"MessageBeforeAnnouncement", frame(3, cbor(QCborMap{{QStringLiteral("kind"), 212}})),
     End::Stay, "sent a message before announcing itself", false},
    {"AnnouncesTwice", kHello + kHello, End::Stay, "announced itself a second time"},
    {"MalformedAnnouncement", frame(1, cbor(QCborMap{{QStringLiteral("app"), 5}})), End::Stay,
     "sent a malformed announcement: field 'app' must be a string (found an integer)", false},
    {"OtherProtocolVersion", frame(1, helloPayload("BAD", 2)), End::Stay,
     "speaks protocol version 2; this bridge speaks version 1", false},
    {"OtherFrameFormat", kHello + std::string("RF\x02\x03", 4), End::Stay,
     "sent a frame of format version 2, which is not supported (this side speaks version 1)"},
    {"UnknownFrameType", kHello + frame(9, ""), End::Stay, "sent a frame of unknown type 9"},
    {"SendsAWelcome", kHello + frame(2, ""), End::Stay,
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
        limits.frameLimit = std::string(fault.name) == "FrameOverTheLimit" ? 65536 : 1u << 30;
        const int port = bridge.start(limits);
        PeerClient good;
        good.connect("127.0.0.1", port, "DXD");

        RawPeer bad(port);
        ASSERT_TRUE(bad.connected());
        bad.send(fault.bytes);
        if (fault.end != End::Stay)
            bad.close(fault.end == End::Reset);

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
        if (bad.connected()) {
            EXPECT_TRUE(bad.closeReasons()) << "the faulty connection stayed open";
        }

        // The others go on.
        ASSERT_TRUE(bridge.waitForPeerCount(1));
        EXPECT_EQ(bridge.connected(), (Peers{{"DXD", 1}}));
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

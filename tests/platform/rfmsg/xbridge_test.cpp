// The bridge and its peers over real loopback sockets: numbering, sending,
// deliveries; what a faulty or hostile peer may cost the bridge (malformed
// bytes, receive budget, stalls, connections, fault reports and what waits to
// be sent) with an honest peer served meanwhile; and what a peer makes of a
// faulty bridge. Limits are small configured values.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include <QHostAddress>
#include <QNetworkInterface>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include "recordingbridge.h"
#include "rfmsg/peerclient.h"
#include "rfmsg/testing.h"

using namespace RFMsgExp;
using BridgeTestSupport::errorOf;
using BridgeTestSupport::frame;
using BridgeTestSupport::sampleMessage;
using BridgeTestSupport::waitUntil;

namespace {

sockaddr_in loopback(int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// A bare TCP socket on the loopback interface that sends whatever bytes a
// test gives it. The socket is made at once, so that it can connect while
// this process has no descriptor left.
class RawPeer
{
public:
    explicit RawPeer(int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) : m_fd(fd) {}
    ~RawPeer() { close(); }

    bool connect(int port)
    {
        const sockaddr_in address = loopback(port);
        return ::connect(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }
    // Listens on a free port; the port.
    int listen()
    {
        sockaddr_in address = loopback(0);
        socklen_t size = sizeof address;
        ::bind(m_fd, reinterpret_cast<sockaddr*>(&address), size);
        ::listen(m_fd, 4);
        ::getsockname(m_fd, reinterpret_cast<sockaddr*>(&address), &size);
        return ntohs(address.sin_port);
    }
    int accept() { return ::accept(m_fd, nullptr, nullptr); }
    // Blocks until the system took every byte, or the connection broke.
    void send(const std::string& bytes) { ::send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL); }
    // What came next; nothing once the other end closed.
    std::string receive()
    {
        char buffer[4096];
        return std::string(buffer, std::max(::recv(m_fd, buffer, sizeof buffer, 0), 0L));
    }
    // Everything until the other end closed; nothing when it stayed open for 10 s.
    std::optional<std::string> receiveAll()
    {
        std::string bytes;
        pollfd entry{m_fd, POLLIN, 0};
        for (std::string more = "-"; !more.empty(); bytes += more) {
            if (::poll(&entry, 1, 10000) <= 0)
                return std::nullopt;
            more = receive();
        }
        return bytes;
    }
    // Closes normally (FIN), or with a reset (RST) as a crashed system may.
    void close(bool reset = false)
    {
        const linger abort{1, 0};
        if (reset)
            ::setsockopt(m_fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
        if (m_fd >= 0)
            ::close(std::exchange(m_fd, -1));
    }
    // "127.0.0.1:40312", as the bridge names this end.
    std::string address() const
    {
        sockaddr_in local{};
        socklen_t size = sizeof local;
        ::getsockname(m_fd, reinterpret_cast<sockaddr*>(&local), &size);
        return "127.0.0.1:" + std::to_string(ntohs(local.sin_port));
    }

private:
    int m_fd;
};

// Uses up every free file descriptor of this process until it goes.
class DescriptorExhaustion
{
public:
    DescriptorExhaustion()
    {
        ::getrlimit(RLIMIT_NOFILE, &m_limit);
        rlimit lowered = m_limit;
        lowered.rlim_cur = std::min<rlim_t>(m_limit.rlim_cur, 2048);
        ::setrlimit(RLIMIT_NOFILE, &lowered);
        for (int fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC); fd >= 0;
             fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC))
            m_held.push_back(fd);
    }
    ~DescriptorExhaustion()
    {
        for (int fd : m_held)
            ::close(fd);
        ::setrlimit(RLIMIT_NOFILE, &m_limit);
    }

private:
    rlimit m_limit{};
    std::vector<int> m_held;
};

enum class End { Stay, Close, Reset };

// CBOR payloads: a HELLO {"app": "BAD", "protocol": 1}; a message whose
// 20,000 empty port maps (20 kB) would take 2.5 MB decoded.
const std::string kHello = frame(1, "\xa2\x63"
                                    "app\x63"
                                    "BAD\x68protocol\x01");
const std::string kAmplifying = "\xa2\x64kind\x18\xd4\x68"
                                "document\xa1\x67regions\x81\xa1\x65ports\x99\x4e\x20" +
                                std::string(20000, '\xa0');

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

// Checks, once a test's bridge and peers are gone, that every library object
// was released.
struct LiveObjectCheck
{
    ~LiveObjectCheck() { EXPECT_EQ(Testing::liveObjects(), liveAtStart) << "objects not released"; }
    const long liveAtStart = Testing::liveObjects();
};

} // namespace

class XBridgeNetwork : public LiveObjectCheck, public ::testing::Test
{
protected:
    // Starts the bridge and connects the honest peer, DXD (1).
    void start(const Testing::TransportLimits& limits, RecordingBridge::Handler handler = {})
    {
        port = bridge.start(limits, std::move(handler));
        honest.connect("127.0.0.1", port, "DXD");
    }
    // The honest peer is still served both ways.
    void expectHonestPeerServed()
    {
        const std::size_t before = bridge.messages().size();
        honest.send(sampleMessage(212, "still served"));
        ASSERT_TRUE(bridge.waitForMessages(before + 1, 20000));
        EXPECT_EQ(bridge.messages().back().text, "still served");
        sendFromBridge(bridge, "to DXD", "DXD");
        EXPECT_EQ(nextText(honest, 20000), "to DXD");
    }
    Testing::TransportStats stats() { return Testing::transportStats(bridge); }

    RecordingBridge bridge;
    PeerClient honest;
    int port = 0;
};

class BridgeLimits : public XBridgeNetwork
{
};

TEST_F(XBridgeNetwork, PeersAreNumberedListedAndSentToByApplicationNameUntilTheyLeave)
{
    start({}, [](IRFMessage& message) {
        if (message.GetText().str() == "throw")
            throw IXException::Create("handler failed");
        return Testing::makeMessage(sampleMessage(20, "re: " + message.GetText().str()));
    });
    auto bsxe = connectPeer(port, "BSXE");
    auto other = connectPeer(port, "dxd");
    EXPECT_EQ(honest.libraryVersion(), bridge.GetVersion().str());
    EXPECT_EQ(honest.machineName(), bridge.GetMachineName().str());
    EXPECT_EQ(bridge.connected(), (Peers{{"DXD", 1}, {"BSXE", 2}, {"dxd", 3}}));

    // To all, to the named application whatever its case, to nobody; replies
    // go to the sender, and a handler's exception is reported.
    sendFromBridge(bridge, "all", "");
    sendFromBridge(bridge, "layout", "bsxe");
    sendFromBridge(bridge, "nobody", "XYZ");
    bsxe->send(sampleMessage(212, "throw"));
    bsxe->send(sampleMessage(212, "from BSXE"));
    EXPECT_EQ(nextText(*bsxe), "all");
    EXPECT_EQ(nextText(*bsxe), "layout");
    EXPECT_EQ(nextText(*bsxe), "re: from BSXE") << "delivery did not go on after an exception";
    EXPECT_EQ(nextText(honest), "all");
    EXPECT_EQ(nextText(honest, 50), "(nothing)") << "DXD got what was meant for BSXE";
    EXPECT_EQ(bridge.errors(),
              std::vector<std::string>{"OnReceive let an exception escape: handler failed"});

    // A port that cannot be listened on: the first bridge goes on.
    for (const int wanted : {port, -1, 65536}) {
        RecordingBridge second;
        int asked = wanted;
        EXPECT_EQ(
            errorOf([&] { second.Init(asked, 0); }),
            "cannot listen on port " + std::to_string(wanted) + " on the loopback interface: " +
                (wanted == port ? "Address already in use" : "not a port number (0 to 65535)"));
        EXPECT_EQ(second.GetPort(), 0);
    }

    honest.close();
    ASSERT_TRUE(bridge.waitForPeerCount(2));
    EXPECT_EQ(bridge.connected(), (Peers{{"BSXE", 2}, {"dxd", 3}}));
    EXPECT_EQ(connectPeer(port, "DXD")->number(), 4) << "numbers are not reused";
    EXPECT_TRUE(bridge.HasSomeone());
    EXPECT_EQ(bridge.errors().size(), 1u) << "closing is no fault";

    // Init again drops every peer and numbers afresh.
    int next = 0;
    bridge.Init(next, 0);
    EXPECT_FALSE(bridge.HasSomeone());
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
        bridge.Init(port, flags);
        PeerClient peer;
        const std::string error = errorOf([&] { peer.connect(outside, port, "DXD", 2000); });
        // A loopback bridge refuses; one open to all accepts.
        const std::string refusal = flags ? "" : "cannot connect to the bridge at " + outside;
        EXPECT_EQ(error.substr(0, refusal.size()), refusal) << error;
        EXPECT_EQ(error.empty(), flags != 0) << error;
    }
}

TEST_F(XBridgeNetwork,
       WhileADeliveryWaitsAFullQueueStopsReadingTheRestIsServedAndDisconnectDoesNotWait)
{
    // The first delivery blocks until "the main thread" (this test) has done
    // its work, as the plug-in's handlers wait for the host.
    std::promise<void> entered;
    std::promise<void> mainThreadDone;
    std::shared_future<void> done = mainThreadDone.get_future().share();
    Testing::TransportLimits limits;
    limits.queuedMessages = 4;
    start(limits, [&](IRFMessage& message) {
        if (message.GetText().str() == "0") {
            entered.set_value();
            done.wait();
        }
        return Testing::makeMessage(sampleMessage(20, "reply"));
    });
    auto bsxe = connectPeer(port, "BSXE");
    for (int i = 0; i < 200; ++i)
        honest.send(sampleMessage(212, std::to_string(i)));
    ASSERT_EQ(entered.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_TRUE(waitUntil([&] { return stats().pausedConnections == 1; }))
        << "the bridge kept reading into a full queue";

    auto mainThread = std::async(std::launch::async, [&] {
        sendFromBridge(bridge, "while busy", "BSXE");
        EXPECT_EQ(nextText(*bsxe), "while busy");
        bridge.Disconnect();
    });
    const bool returned =
        mainThread.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    mainThreadDone.set_value();
    ASSERT_TRUE(returned) << "the main thread waited for the delivery";
    mainThread.get();
    EXPECT_TRUE(bridge.connected().empty());
    EXPECT_EQ(bridge.GetPort(), 0);
    ASSERT_TRUE(bridge.waitForMessages(1));
    const std::vector<MessageContent> messages = bridge.messages();
    for (std::size_t i = 0; i < messages.size(); ++i)
        ASSERT_EQ(messages[i].text, std::to_string(i)) << "delivered out of order";
    EXPECT_LE(stats().queuedHighWater, limits.queuedMessages);
}

TEST_F(XBridgeNetwork, PeerClientErrorsNameTheBridgeAndWhatItSaidOrWhatWentWrong)
{
    Testing::TransportLimits limits;
    limits.frameLimit = 1024;
    start(limits);
    const std::string bridgeAt = "the bridge at 127.0.0.1:" + std::to_string(port);
    PeerClient refused;
    EXPECT_EQ(errorOf([&] { refused.connect("127.0.0.1", port, std::string(300, 'A')); }),
              bridgeAt + " refused the connection: this peer sent a malformed announcement: the "
                         "announced application name is longer than 256 bytes");
    // A message over the bridge's limit is refused before it is sent.
    const std::string tooLarge =
        errorOf([&] { honest.send(sampleMessage(222, std::string(2000, 'i'))); });
    EXPECT_NE(tooLarge.find("it takes frames of at most 1024 bytes"), std::string::npos)
        << tooLarge;
    honest.send(sampleMessage(222, "small"));
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

TEST_F(XBridgeNetwork, PeerClientCloseFromAnotherThreadEndsAWaitingReceiveAndFreesTheSocket)
{
    const int port = bridge.start();
    const auto openFiles = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                             std::filesystem::directory_iterator());
    };
    const auto filesBefore = openFiles();
    {
        auto peer = connectPeer(port, "DXD");
        auto waiting =
            std::async(std::launch::async, [&] { return errorOf([&] { peer->receive(-1); }); });
        peer->close();
        ASSERT_EQ(waiting.wait_for(std::chrono::seconds(10)), std::future_status::ready);
        EXPECT_NE(waiting.get().find("is closed"), std::string::npos);
    }
    ASSERT_TRUE(bridge.waitForPeerCount(0));
    EXPECT_TRUE(waitUntil([&] { return openFiles() == filesBefore; })) << "a socket was not closed";
}

namespace {

struct Fault
{
    const char* name;
    // What the faulty peer sends; what OnError says between the peer's name
    // and "; connection closed".
    std::string bytes;
    std::string error;
    // Whether the peer had announced itself (and so is named) before it misbehaved.
    bool announced = true;
    End end = End::Stay;
};

const Fault kFaults[] = {
    {"GarbageBytes", "GET / HTTP/1.1\r\nHost: bridge\r\n\r\n",
     "sent data that is not a frame of this protocol (it starts with the bytes 47 45 54 20 2f 20 "
     "48 54)",
     false},
    {"LengthPrefixOf4GiB", kHello + std::string("RF\x01\x03\xff\xff\xff\xff", 8) + "abc",
     "sent a MESSAGE frame of 4294967295 bytes, over the limit of 1073741824 bytes"},
    {"VanishesMidHeader", kHello + "RF\x01",
     "connection lost in the middle of a frame (3 of the 8 header bytes of a frame received)", true,
     End::Close},
    {"StallsMidFrame", kHello + frame(3, std::string(1000, 'x')).substr(0, 508),
     "stalled in the middle of a frame (508 of 1008 bytes of a MESSAGE frame received; nothing "
     "more for 300 ms)"},
    {"HelloOverTheLimit", std::string("RF\x01\x01\x40\x00\x00\x00", 8) + "abc",
     "sent a HELLO frame of 1073741824 bytes, over the limit of 65536 bytes", false},
    {"MessageAmplifiedWhenDecoded", kHello + frame(3, kAmplifying),
     "sent a malformed message: field 'document.regions[0].ports' would make the decoded "
     "message larger than " +
         std::to_string(8 * kAmplifying.size() + (1 << 20)) +
         " bytes (8 times its payload plus 1 MiB)"},
    {"NeverAnnounces", "", "did not announce itself within 300 ms", false},
    {"MessageBeforeAnnouncement", frame(3, "\xa1\x64kind\x01"),
     "sent a message before announcing itself", false},
    {"AnnouncesTwice", kHello + kHello, "announced itself a second time"},
    {"MalformedAnnouncement",
     frame(1, "\xa1\x63"
              "app\x05"),
     "sent a malformed announcement: field 'app' must be a string (found an integer)", false},
    {"OtherProtocolVersion",
     frame(1, "\xa2\x63"
              "app\x63"
              "BAD\x68protocol\x02"),
     "speaks protocol version 2; this bridge speaks version 1", false},
    {"OtherFrameFormat", kHello + std::string("RF\x02\x03", 4),
     "sent a frame of format version 2, which is not supported (this side speaks version 1)"},
    {"UnknownFrameType", kHello + frame(9, ""), "sent a frame of unknown type 9"},
    {"SendsAWelcome", kHello + frame(2, ""), "sent a WELCOME frame, which only a bridge sends"},
    {"ConnectionBeyondTheTotal", kHello, "the bridge serves 1 connections already", false},
};

} // namespace

class BridgeFaults : public BridgeLimits, public ::testing::WithParamInterface<Fault>
{
};

TEST_P(BridgeFaults, FaultyPeerIsClosedToldWhyAndReportedOnceWhileTheOthersGoOn)
{
    const Fault& fault = GetParam();
    Testing::TransportLimits limits;
    limits.handshakeTimeoutMs = 300;
    limits.stallTimeoutMs = 300;
    // Frames of more than a few bytes draw on the budget, which must come back.
    limits.smallFrameLimit = 16;
    limits.maxConnections = std::string(fault.name) == "ConnectionBeyondTheTotal" ? 1 : 256;
    start(limits);
    RawPeer bad;
    ASSERT_TRUE(bad.connect(port));
    const std::string who = (fault.announced ? "peer BAD (2) at " : "peer at ") + bad.address();
    bad.send(fault.bytes);
    if (fault.end == End::Close)
        bad.close();

    ASSERT_TRUE(bridge.waitForErrors(1)) << "no error reported";
    const std::string error = bridge.errors()[0];
    // A peer's hang-up may come as a reset, which is then named too.
    EXPECT_EQ(error.rfind(who + ": " + fault.error, 0), 0u) << error;
    EXPECT_EQ(error.substr(error.size() - 19), "; connection closed") << error;
    // The peer hears why, in a CLOSE frame.
    EXPECT_TRUE(fault.end != End::Stay ||
                bad.receiveAll().value_or("").find(fault.error.substr(0, 30)) != std::string::npos);
    ASSERT_TRUE(bridge.waitForPeerCount(1));
    expectHonestPeerServed();
    EXPECT_EQ(bridge.errors().size(), 1u) << "reported more than once";
    EXPECT_TRUE(waitUntil([&] { return stats().budgetReserved == 0; })) << "budget kept";
}

INSTANTIATE_TEST_SUITE_P(Peers, BridgeFaults, ::testing::ValuesIn(kFaults),
                         [](const ::testing::TestParamInfo<Fault>& info) {
                             return info.param.name;
                         });

TEST(PeerClientErrors, WhatTheBridgeGetsWrongIsNamed)
{
    const std::string welcome = frame(2, "\xa1\x66number\x04");
    struct Row
    {
        const char* name;
        std::string bytes;
        End end;
        std::string error;
    };
    const std::vector<Row> rows = {
        {"stays silent", "", End::Stay, " did not accept the announcement within 300 ms"},
        {"answers with a message", frame(3, "\xa1\x64kind\x01"), End::Stay,
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
        // A bridge played by hand: it reads the announcement, answers with
        // the row's bytes and ends as the row says.
        RawPeer listener;
        const int port = listener.listen();
        auto bridgeSide = std::async(std::launch::async, [&] {
            auto bridge = std::make_unique<RawPeer>(listener.accept());
            bridge->receive();
            bridge->send(row.bytes);
            if (row.end != End::Stay)
                bridge->close(row.end == End::Reset);
            return bridge;
        });
        PeerClient peer;
        const std::string error = errorOf([&] {
            peer.connect("127.0.0.1", port, "DXD", 300);
            EXPECT_EQ(peer.number(), 4);
            bridgeSide.wait();
            peer.receive(5000);
        });
        EXPECT_NE(error.find("the bridge at 127.0.0.1:" + std::to_string(port) + row.error),
                  std::string::npos)
            << error;
        EXPECT_FALSE(peer.isConnected());
    }
}

TEST_F(BridgeLimits, BigFramesThatDoNotBothFitAreServedInTurnWhileSmallOnesFlow)
{
    std::promise<void> entered;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    // Two frames of 200 KiB do not fit the budget together; frames of up to
    // 8 KiB draw on their own reserve.
    Testing::TransportLimits limits;
    limits.frameLimit = 256u << 10;
    limits.receiveBudget = 384u << 10;
    limits.smallFrameLimit = 8u << 10;
    limits.smallFrameReserve = 64u << 10;
    start(limits, [&](IRFMessage& message) {
        if (message.GetKind() == 1) {
            entered.set_value();
            released.wait();
        }
        return msg_auto_ptr<IRFMessage>();
    });
    PeerClient first;
    PeerClient second;
    first.connect("127.0.0.1", port, "BSXE");
    second.connect("127.0.0.1", port, "BSXE");
    const std::string secondBody(200u << 10, 'b');

    // The first big message is held by its delivery; the second frame waits.
    first.send(sampleMessage(1, std::string(200u << 10, 'a')));
    ASSERT_EQ(entered.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    auto sending =
        std::async(std::launch::async, [&] { second.send(sampleMessage(2, secondBody)); });
    const bool waited = waitUntil([&] { return stats().waitingForBudget == 1; });
    honest.send(sampleMessage(3, "small"));
    const bool smallReceived = waitUntil([&] { return stats().queued == 1; });
    release.set_value();
    EXPECT_TRUE(waited) << "the second big frame was read into a full budget";
    EXPECT_TRUE(smallReceived) << "a small message waited behind the big frame";

    ASSERT_TRUE(bridge.waitForMessages(3));
    sending.get();
    EXPECT_EQ(bridge.messages()[1].text, "small");
    EXPECT_TRUE(bridge.messages()[2].text == secondBody) << "the waiting frame arrived damaged";
    EXPECT_LE(stats().budgetHighWater, limits.receiveBudget);
    EXPECT_GE(stats().budgetHighWater, 200u << 10);
    EXPECT_TRUE(bridge.errors().empty()) << bridge.errors().front();
}

TEST_F(BridgeLimits, FailingAcceptRestsIsReportedOnceAndTheOldestSilentPeerMakesRoom)
{
    Testing::TransportLimits limits;
    limits.maxUnannouncedConnections = 2;
    limits.acceptPauseMs = 50;
    start(limits);
    // Queued while accepting fails, then accepted in this order: the first
    // stays silent, the second announces itself before it is accepted, the
    // others stay silent.
    RawPeer silent, announcing, third, fourth, fifth;
    {
        DescriptorExhaustion exhaustion;
        const auto failingSince = std::chrono::steady_clock::now();
        ASSERT_TRUE(silent.connect(port));
        ASSERT_TRUE(bridge.waitForErrors(1));
        ASSERT_TRUE(announcing.connect(port));
        announcing.send(kHello);
        for (RawPeer* peer : {&third, &fourth, &fifth})
            ASSERT_TRUE(peer->connect(port));
        expectHonestPeerServed();
        ASSERT_TRUE(waitUntil([&] { return stats().failedAccepts >= 3; }));
        // Each failure is followed by a pause, so the failures are no more
        // frequent than that, however slowly this runs.
        const long failures = stats().failedAccepts;
        const auto elapsed = std::chrono::steady_clock::now() - failingSince;
        EXPECT_LE(failures - 1, elapsed / std::chrono::milliseconds(limits.acceptPauseMs));
        EXPECT_EQ(bridge.errors(),
                  std::vector<std::string>{"the bridge cannot accept a connection on port " +
                                           std::to_string(port) + ": Too many open files"});
        // A bridge made now has no descriptor for waking its threads.
        RecordingBridge starved;
        int any = 0;
        EXPECT_EQ(errorOf([&] { starved.Init(any, 0); }),
                  "cannot listen on port 0 on the loopback interface: the bridge has no wake-up "
                  "event (Too many open files)");
    }

    ASSERT_TRUE(bridge.waitForPeerCount(2));
    EXPECT_EQ(bridge.connected(), (Peers{{"DXD", 1}, {"BAD", 2}}));
    ASSERT_TRUE(bridge.waitForErrors(3));
    const std::string evicted = ": closed to make room for newer connections; connection closed";
    EXPECT_EQ(bridge.errors()[1], "peer at " + silent.address() + evicted);
    EXPECT_EQ(bridge.errors()[2], "peer at " + third.address() + evicted);
    EXPECT_TRUE(waitUntil([&] { return stats().openConnections == 4; }));
}

namespace {

struct SendQueueCase
{
    const char* name;
    std::size_t hardLimit;
    std::size_t softLimit;
    int softTimeoutMs;
    std::size_t messageSize;
    int messages;
    // The fault reported, as a pattern; empty: none, and the peer reads.
    std::string fault;
};

// What the system buffers on loopback (at most about 4 MB here) is well
// below what each row sends.
const SendQueueCase kSendQueueCases[] = {
    {"HardLimitClosesAtOnce", 512u << 10, 512u << 10, 600000, 64u << 10, 300,
     "does not read what the bridge sends \\(0\\.6 MB waiting\\)"},
    {"SoftLimitClosesOnceExceededForItsTime", 64u << 20, 256u << 10, 200, 64u << 10, 160,
     "does not read what the bridge sends \\((0\\.[3-9]|[1-9]\\d*\\.\\d) MB waiting\\)"},
    {"PeerThatReadsStaysOverTheSoftLimitForLessThanItsTime", 64u << 20, 256u << 10, 600000,
     64u << 10, 160, ""},
    {"SingleMessageOverTheHardLimitMayWait", 256u << 10, 256u << 10, 600000, 12u << 20, 1, ""},
};

} // namespace

class BridgeSendQueue : public BridgeLimits, public ::testing::WithParamInterface<SendQueueCase>
{
};

TEST_P(BridgeSendQueue, PeerThatLeavesTooMuchUnreadIsClosedWhileSendingReturnsAtOnce)
{
    const SendQueueCase& row = GetParam();
    Testing::TransportLimits limits;
    limits.sendQueueHardLimit = row.hardLimit;
    limits.sendQueueSoftLimit = row.softLimit;
    limits.sendQueueSoftTimeoutMs = row.softTimeoutMs;
    start(limits);
    PeerClient peer;
    peer.connect("127.0.0.1", port, "BSXE");
    // Never waits for the peer, whether it reads or not.
    for (int i = 0; i < row.messages; ++i) {
        msg_auto_ptr<IRFMessage> message =
            Testing::makeMessage(sampleMessage(213, std::string(row.messageSize, 'd')));
        bridge.OnSend(message.get(), "BSXE");
    }
    for (int i = 0; row.fault.empty() && i < row.messages; ++i)
        ASSERT_EQ(peer.receive(30000).value_or(MessageContent()).text.size(), row.messageSize);
    if (!row.fault.empty()) {
        ASSERT_TRUE(bridge.waitForErrors(1, 20000));
        EXPECT_TRUE(std::regex_match(bridge.errors()[0],
                                     std::regex("peer BSXE \\(2\\) at 127\\.0\\.0\\.1:\\d+: " +
                                                row.fault + "; connection closed")))
            << bridge.errors()[0];
    }
    ASSERT_TRUE(bridge.waitForPeerCount(row.fault.empty() ? 2 : 1));
    expectHonestPeerServed();
    EXPECT_EQ(bridge.errors().size(), row.fault.empty() ? 0u : 1u);
}

INSTANTIATE_TEST_SUITE_P(Peers, BridgeSendQueue, ::testing::ValuesIn(kSendQueueCases),
                         [](const ::testing::TestParamInfo<SendQueueCase>& info) {
                             return info.param.name;
                         });

TEST_F(BridgeLimits, ReportsBeyondTheRateAreSummedUpByReasonEachSecond)
{
    Testing::TransportLimits limits;
    limits.reportsPerSecond = 3;
    start(limits);
    // Twelve faults of four kinds: the bytes a peer starts with are part of the reason.
    std::vector<std::unique_ptr<RawPeer>> peers;
    for (int i = 0; i < 12; ++i) {
        peers.push_back(std::make_unique<RawPeer>());
        ASSERT_TRUE(peers.back()->connect(port));
        peers.back()->send(std::string("XXXXXXX") + char('a' + i % 4));
    }
    expectHonestPeerServed();
    const std::string reason = "sent data that is not a frame of this protocol \\(it starts with "
                               "the bytes (58 ){7}6[1-4]\\)";
    const std::regex verbatim("peer at 127\\.0\\.0\\.1:\\d+: " + reason + "; connection closed");
    const std::regex summary("\xe2\x80\xa6 and (\\d+) more (connection(s?) closed: " + reason +
                             "|reports of other faults)");
    int accounted = 0, verbatimFirst = 0, summaries = 0;
    ASSERT_TRUE(waitUntil(
        [&] {
            accounted = verbatimFirst = summaries = 0;
            for (const std::string& error : bridge.errors()) {
                std::smatch match;
                const bool summed = std::regex_match(error, match, summary);
                EXPECT_TRUE(summed || std::regex_match(error, verbatim)) << error;
                EXPECT_TRUE(!summed || !match[3].matched || (match[3] == "s") == (match[1] != "1"))
                    << error;
                summaries += summed;
                verbatimFirst += !summed && summaries == 0;
                accounted += summed ? std::stoi(match[1]) : 1;
            }
            return accounted >= 12;
        },
        20000));
    EXPECT_EQ(accounted, 12);
    EXPECT_EQ(verbatimFirst, limits.reportsPerSecond);
    // Four reasons, but no more summaries than reports: the last takes the rest.
    EXPECT_TRUE(summaries >= 1 && summaries <= limits.reportsPerSecond) << summaries;
}

TEST_F(BridgeLimits, PeerClientReadsWhileSendingALongBatchAndIsNotClosed)
{
    // Small limits, yet above what a burst of replies to the messages read at once may queue.
    Testing::TransportLimits limits;
    limits.queuedMessages = 4;
    limits.sendQueueHardLimit = 2u << 20;
    limits.sendQueueSoftLimit = 1u << 20;
    limits.sendQueueSoftTimeoutMs = 100;
    // Every message is answered with as much again.
    start(limits, [](IRFMessage& message) {
        return Testing::makeMessage(sampleMessage(20, message.GetText().str()));
    });
    const auto body = [](int i) { return std::string(64u << 10, char('a' + i % 26)); };
    auto sender = connectPeer(port, "BSXE");
    ASSERT_EQ(errorOf([&] {
                  for (int i = 0; i < 400; ++i)
                      sender->send(sampleMessage(212, body(i)));
              }),
              "");
    for (int i = 0; i < 400; ++i)
        ASSERT_TRUE(nextText(*sender, 30000) == body(i)) << i;
    EXPECT_TRUE(bridge.errors().empty()) << bridge.errors().front();
}

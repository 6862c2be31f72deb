// Limits that keep a faulty or hostile peer's cost bounded: connections,
// fault reports and what waits to be sent. Small configured values, real
// loopback sockets, and an honest peer served meanwhile in each case.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <regex>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include "recordingbridge.h"
#include "rfmsg/framereader.h"
#include "rfmsg/peerclient.h"
#include "rfmsg/testing.h"
#include "rfmsg/wirecodec.h"

using namespace RFMsgExp;
using BridgeTestSupport::frame;
using BridgeTestSupport::helloPayload;
using BridgeTestSupport::sampleMessage;
using BridgeTestSupport::waitUntil;

namespace {

using Clock = std::chrono::steady_clock;

// A bare loopback socket, created at once and connected when asked.
class RawSocket
{
public:
    RawSocket() = default;
    ~RawSocket()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    RawSocket(const RawSocket&) = delete;
    RawSocket& operator=(const RawSocket&) = delete;

    bool connect(int port)
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return ::connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    }
    void send(const std::string& bytes) { ::send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL); }
    // "127.0.0.1:40312", as the bridge names this end.
    std::string address() const
    {
        sockaddr_in local{};
        socklen_t size = sizeof local;
        ::getsockname(m_fd, reinterpret_cast<sockaddr*>(&local), &size);
        return "127.0.0.1:" + std::to_string(ntohs(local.sin_port));
    }
    // The frames the bridge sent until it closed the connection (within
    // 10 s); "open" when it did not.
    std::vector<std::pair<Wire::FrameType, std::string>> framesUntilClosed()
    {
        std::string bytes;
        char buffer[4096];
        pollfd entry{m_fd, POLLIN, 0};
        for (;;) {
            if (::poll(&entry, 1, 10000) <= 0)
                return {{Wire::FrameType::Close, "open"}};
            const long received = ::recv(m_fd, buffer, sizeof buffer, 0);
            if (received <= 0)
                break;
            bytes.append(buffer, static_cast<std::size_t>(received));
        }
        Wire::FrameReader reader;
        reader.append(bytes.data(), bytes.size());
        std::vector<std::pair<Wire::FrameType, std::string>> frames;
        while (reader.poll() == Wire::FrameReader::Status::Ready) {
            const Wire::FrameReader::Frame got = reader.front();
            frames.emplace_back(got.type, got.type == Wire::FrameType::Close
                                              ? Wire::decodeClose(got.payload, got.size)
                                              : std::string());
            reader.pop();
        }
        return frames;
    }

private:
    int m_fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

// Uses up every free file descriptor of this process until release().
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
    ~DescriptorExhaustion() { release(); }
    void release()
    {
        for (int fd : m_held)
            ::close(fd);
        m_held.clear();
        ::setrlimit(RLIMIT_NOFILE, &m_limit);
    }

private:
    rlimit m_limit{};
    std::vector<int> m_held;
};

const std::string kHello = frame(1, helloPayload("BAD"));

} // namespace

class BridgeConnectionLimits : public ::testing::Test
{
protected:
    int start(Testing::TransportLimits limits, RecordingBridge::Handler handler = {})
    {
        m_port = m_bridge.start(limits, std::move(handler));
        m_honest.connect("127.0.0.1", m_port, "DXD");
        return m_port;
    }
    // The honest peer is still served both ways.
    void expectHonestPeerServed()
    {
        const std::size_t before = m_bridge.messages().size();
        m_honest.send(sampleMessage(212, "still served"));
        ASSERT_TRUE(m_bridge.waitForMessages(before + 1, 20000));
        EXPECT_EQ(m_bridge.messages().back().text, "still served");
        msg_auto_ptr<IRFMessage> back = Testing::makeMessage(sampleMessage(224, "to DXD"));
        m_bridge.OnSend(back.get(), "DXD");
        std::optional<MessageContent> received = m_honest.receive(20000);
        while (received && received->text != "to DXD")
            received = m_honest.receive(20000);
        EXPECT_TRUE(received.has_value());
    }
    int openConnections() { return Testing::transportStats(m_bridge).openConnections; }

    RecordingBridge m_bridge;
    PeerClient m_honest;
    int m_port = 0;
};

TEST_F(BridgeConnectionLimits, FailingAcceptRestsIsReportedOnceAndTheOldestSilentPeerMakesRoom)
{
    Testing::TransportLimits limits;
    limits.maxUnannouncedConnections = 2;
    limits.acceptPauseMs = 50;
    const int port = start(limits);
    // Queued while accepting fails, then accepted in this order: the first
    // stays silent, the second announces itself before it is accepted, the
    // others stay silent.
    RawSocket silent, announcing, third, fourth, fifth;
    {
        DescriptorExhaustion exhaustion;
        const Clock::time_point failingSince = Clock::now();
        ASSERT_TRUE(silent.connect(port));
        ASSERT_TRUE(m_bridge.waitForErrors(1));
        ASSERT_TRUE(announcing.connect(port));
        announcing.send(kHello);
        ASSERT_TRUE(third.connect(port));
        ASSERT_TRUE(fourth.connect(port));
        ASSERT_TRUE(fifth.connect(port));
        expectHonestPeerServed();
        ASSERT_TRUE(
            waitUntil([&] { return Testing::transportStats(m_bridge).failedAccepts >= 3; }));
        // Each failure is followed by a pause, so the failures are no more
        // frequent than that, however slowly this runs.
        const long failures = Testing::transportStats(m_bridge).failedAccepts;
        const auto elapsed = Clock::now() - failingSince;
        EXPECT_LE(failures - 1, elapsed / std::chrono::milliseconds(limits.acceptPauseMs));
        ASSERT_EQ(m_bridge.errors().size(), 1u);
        EXPECT_EQ(m_bridge.errors()[0], "the bridge cannot accept a connection on port " +
                                            std::to_string(port) + ": Too many open files");
    }

    ASSERT_TRUE(m_bridge.waitForPeerCount(2));
    EXPECT_EQ(m_bridge.connected(), (Peers{{"DXD", 1}, {"BAD", 2}}));
    ASSERT_TRUE(m_bridge.waitForErrors(3));
    const std::string evicted = ": closed to make room for newer connections; connection closed";
    EXPECT_EQ(m_bridge.errors()[1], "peer at " + silent.address() + evicted);
    EXPECT_EQ(m_bridge.errors()[2], "peer at " + third.address() + evicted);
    const auto farewell = silent.framesUntilClosed();
    ASSERT_EQ(farewell.size(), 1u);
    EXPECT_EQ(farewell[0].second, "closed to make room for newer connections");
    EXPECT_TRUE(waitUntil([&] { return openConnections() == 4; }));
    expectHonestPeerServed();
    EXPECT_EQ(m_bridge.errors().size(), 3u);
}

TEST_F(BridgeConnectionLimits, ConnectionBeyondTheTotalIsRefusedWithTheReason)
{
    Testing::TransportLimits limits;
    limits.maxConnections = 3;
    const int port = start(limits);
    RawSocket first, second, refused;
    ASSERT_TRUE(first.connect(port));
    ASSERT_TRUE(second.connect(port));
    ASSERT_TRUE(waitUntil([&] { return openConnections() == 3; }));
    ASSERT_TRUE(refused.connect(port));
    refused.send(kHello);

    const auto frames = refused.framesUntilClosed();
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0], std::make_pair(Wire::FrameType::Close,
                                        std::string("the bridge serves 3 connections already")));
    ASSERT_TRUE(m_bridge.waitForErrors(1));
    EXPECT_EQ(m_bridge.errors()[0], "peer at " + refused.address() +
                                        ": the bridge serves 3 connections already; "
                                        "connection closed");
    EXPECT_EQ(openConnections(), 3);
    expectHonestPeerServed();
}

TEST_F(BridgeConnectionLimits, ReportsBeyondTheRateAreSummedUpByReasonEachSecond)
{
    Testing::TransportLimits limits;
    limits.reportsPerSecond = 3;
    start(limits);
    // Twelve faults of four kinds (the bytes a peer starts with are part of
    // the reason); the bridge reports three of them and sums up the rest.
    constexpr int kFaults = 12;
    std::vector<RawSocket> peers(kFaults);
    for (int i = 0; i < kFaults; ++i) {
        ASSERT_TRUE(peers[static_cast<std::size_t>(i)].connect(m_port));
        peers[static_cast<std::size_t>(i)].send(std::string("XXXXXXX") + char('a' + i % 4));
    }
    expectHonestPeerServed();
    const std::regex verbatim("peer at 127\\.0\\.0\\.1:\\d+: sent data that is not a frame of "
                              "this protocol \\(it starts with the bytes (58 ){7}6[1-4]\\); "
                              "connection closed");
    const std::regex summary("\xe2\x80\xa6 and (\\d+) more (connections? closed: sent data that is "
                             "not a frame of this protocol \\(it starts with the bytes (58 ){7}"
                             "6[1-4]\\)|reports of other faults)");
    int accounted = 0;
    ASSERT_TRUE(m_bridge.waitForErrors(4, 20000));
    ASSERT_TRUE(waitUntil(
        [&] {
            accounted = 0;
            for (const std::string& error : m_bridge.errors()) {
                std::smatch match;
                accounted += std::regex_match(error, match, summary) ? std::stoi(match[1]) : 1;
            }
            return accounted >= kFaults;
        },
        20000));
    EXPECT_EQ(accounted, kFaults);

    const std::vector<std::string> errors = m_bridge.errors();
    int reportedBeforeSummary = 0;
    int summaries = 0;
    for (const std::string& error : errors) {
        std::smatch match;
        if (std::regex_match(error, match, summary)) {
            ++summaries;
            if (match[2].str().rfind("conn", 0) == 0) {
                EXPECT_EQ(match[2].str().rfind(match[1] == "1" ? "connection " : "connections ", 0),
                          0u)
                    << error;
            }
        } else {
            EXPECT_TRUE(std::regex_match(error, verbatim)) << error;
            reportedBeforeSummary += summaries == 0 ? 1 : 0;
        }
    }
    EXPECT_EQ(reportedBeforeSummary, limits.reportsPerSecond);
    EXPECT_GE(summaries, 1);
    // Four reasons, but no more summaries than reports: the last takes the rest.
    EXPECT_LE(summaries, limits.reportsPerSecond);
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
    bool peerReads;
    // The fault reported, as a pattern; empty: none.
    std::string fault;
};

void PrintTo(const SendQueueCase& row, std::ostream* out)
{
    *out << row.name;
}

// What the system buffers on loopback (at most about 4 MB here) is well
// below what each row sends.
const SendQueueCase kSendQueueCases[] = {
    {"HardLimitClosesAtOnce", 512u << 10, 512u << 10, 600000, 64u << 10, 300, false,
     "does not read what the bridge sends \\(0\\.6 MB waiting\\)"},
    {"SoftLimitClosesOnceExceededForItsTime", 64u << 20, 256u << 10, 200, 64u << 10, 160, false,
     "does not read what the bridge sends \\((\\d+)\\.\\d MB waiting\\)"},
    {"PeerThatReadsStaysOverTheSoftLimitForLessThanItsTime", 64u << 20, 256u << 10, 600000,
     64u << 10, 160, true, ""},
    {"SingleMessageOverTheHardLimitMayWait", 256u << 10, 256u << 10, 600000, 12u << 20, 1, true,
     ""},
};

} // namespace

class BridgeSendQueue : public BridgeConnectionLimits,
                        public ::testing::WithParamInterface<SendQueueCase>
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
    peer.connect("127.0.0.1", m_port, "BSXE");
    const std::string body(row.messageSize, 'd');
    // Never waits for the peer, whether it reads or not.
    for (int i = 0; i < row.messages; ++i) {
        msg_auto_ptr<IRFMessage> message = Testing::makeMessage(sampleMessage(213, body));
        m_bridge.OnSend(message.get(), "BSXE");
    }
    if (row.peerReads) {
        for (int i = 0; i < row.messages; ++i) {
            const std::optional<MessageContent> received = peer.receive(30000);
            ASSERT_TRUE(received && received->text.size() == row.messageSize) << i;
        }
        EXPECT_EQ(m_bridge.connected(), (Peers{{"DXD", 1}, {"BSXE", 2}}));
    } else {
        ASSERT_TRUE(m_bridge.waitForErrors(1, 20000));
        const std::string error = m_bridge.errors()[0];
        EXPECT_TRUE(std::regex_match(
            error, std::regex("peer BSXE \\(2\\) at 127\\.0\\.0\\.1:\\d+: " + row.fault +
                              "; connection closed")))
            << error;
        std::smatch megabytes;
        if (std::regex_search(error, megabytes, std::regex("\\((\\d+\\.\\d) MB"))) {
            EXPECT_GT(std::stod(megabytes[1]) * (1 << 20), static_cast<double>(row.softLimit));
        }
        ASSERT_TRUE(m_bridge.waitForPeerCount(1));
    }
    expectHonestPeerServed();
    EXPECT_EQ(m_bridge.errors().size(), row.peerReads ? 0u : 1u);
}

INSTANTIATE_TEST_SUITE_P(Peers, BridgeSendQueue, ::testing::ValuesIn(kSendQueueCases),
                         [](const ::testing::TestParamInfo<SendQueueCase>& info) {
                             return info.param.name;
                         });

TEST_F(BridgeConnectionLimits, PeerClientReadsWhileSendingALongBatchAndIsNotClosed)
{
    Testing::TransportLimits limits;
    // Small limits, yet above what a burst of replies to the messages read
    // at once may queue.
    limits.queuedMessages = 4;
    limits.sendQueueHardLimit = 2u << 20;
    limits.sendQueueSoftLimit = 1u << 20;
    limits.sendQueueSoftTimeoutMs = 100;
    // Every message is answered with as much again.
    start(limits, [](IRFMessage& message) {
        return Testing::makeMessage(sampleMessage(20, message.GetText().str()));
    });
    constexpr int kBatch = 400;
    PeerClient sender;
    sender.connect("127.0.0.1", m_port, "BSXE");
    const std::string error = BridgeTestSupport::errorOf([&] {
        for (int i = 0; i < kBatch; ++i)
            sender.send(sampleMessage(212, std::string(64u << 10, char('a' + i % 26))));
    });
    ASSERT_EQ(error, "");
    for (int i = 0; i < kBatch; ++i) {
        const std::optional<MessageContent> reply = sender.receive(30000);
        ASSERT_TRUE(reply) << i;
        EXPECT_EQ(reply->text, std::string(64u << 10, char('a' + i % 26)));
    }
    EXPECT_TRUE(m_bridge.errors().empty()) << m_bridge.errors().front();
    expectHonestPeerServed();
}

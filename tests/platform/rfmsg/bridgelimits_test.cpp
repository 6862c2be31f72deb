// What a faulty or hostile peer may cost the bridge: receive budget, stalls,
// connections, fault reports and what waits to be sent. Small configured
// values, real loopback sockets, and an honest peer served meanwhile.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include "recordingbridge.h"
#include "rfmsg/peerclient.h"
#include "rfmsg/testing.h"

using namespace RFMsgExp;
using BridgeTestSupport::errorOf;
using BridgeTestSupport::frame;
using BridgeTestSupport::helloPayload;
using BridgeTestSupport::RawPeer;
using BridgeTestSupport::sampleMessage;
using BridgeTestSupport::waitUntil;

namespace {

using Clock = std::chrono::steady_clock;

const std::string kHello = frame(1, helloPayload("BAD"));

// Two frames of 200 KiB do not fit the budget together; frames of up to
// 8 KiB draw on their own reserve.
Testing::TransportLimits budgetLimits()
{
    Testing::TransportLimits limits;
    limits.frameLimit = 256u << 10;
    limits.receiveBudget = 384u << 10;
    limits.smallFrameLimit = 8u << 10;
    limits.smallFrameReserve = 64u << 10;
    limits.stallTimeoutMs = 300;
    return limits;
}

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

} // namespace

class BridgeLimits : public ::testing::Test
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
        msg_auto_ptr<IRFMessage> back = Testing::makeMessage(sampleMessage(224, "to DXD"));
        bridge.OnSend(back.get(), "DXD");
        std::optional<MessageContent> received = honest.receive(20000);
        while (received && received->text != "to DXD")
            received = honest.receive(20000);
        EXPECT_TRUE(received.has_value());
    }
    Testing::TransportStats stats() { return Testing::transportStats(bridge); }

    RecordingBridge bridge;
    PeerClient honest;
    int port = 0;
};

TEST_F(BridgeLimits, BigFramesThatDoNotBothFitAreServedInTurnWhileSmallOnesFlow)
{
    const Testing::TransportLimits limits = budgetLimits();
    std::promise<void> entered;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
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
    const std::string firstBody(200u << 10, 'a');
    const std::string secondBody(200u << 10, 'b');

    // The first big message is held by its delivery; the second frame waits.
    first.send(sampleMessage(1, firstBody));
    ASSERT_EQ(entered.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    auto sending =
        std::async(std::launch::async, [&] { second.send(sampleMessage(2, secondBody)); });
    const bool waited = waitUntil([&] { return stats().waitingForBudget == 1; });
    honest.send(sampleMessage(3, "small"));
    const bool smallReceived = waitUntil([&] { return stats().queued == 1; });
    const Testing::TransportStats during = stats();
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
    EXPECT_LE(stats().budgetHighWater, limits.receiveBudget);
    EXPECT_GE(stats().budgetHighWater, firstBody.size());
    EXPECT_TRUE(waitUntil([&] { return stats().budgetReserved == 0; }))
        << "delivered messages still hold the budget";
    EXPECT_TRUE(bridge.errors().empty()) << bridge.errors().front();
}

TEST_F(BridgeLimits, PeersStallingMidFrameHoldAtMostTheBudgetAndAreDroppedGivingItBack)
{
    const Testing::TransportLimits limits = budgetLimits();
    constexpr std::size_t kFrame = 250u << 10;
    const std::string half = frame(3, std::string(kFrame, 'x')).substr(0, kFrame / 2);
    start(limits);
    std::vector<std::unique_ptr<RawPeer>> stalling;
    std::vector<std::future<void>> sending;
    for (int i = 0; i < 4; ++i) {
        stalling.push_back(std::make_unique<RawPeer>(port));
        stalling.back()->send(frame(1, helloPayload("STALL")));
        sending.push_back(std::async(std::launch::async,
                                     [peer = stalling.back().get(), &half] { peer->send(half); }));
    }
    expectHonestPeerServed();

    ASSERT_TRUE(bridge.waitForErrors(4, 20000));
    for (const std::string& error : bridge.errors()) {
        EXPECT_NE(error.find("stalled in the middle of a frame (" + std::to_string(kFrame / 2) +
                             " of " + std::to_string(kFrame + 8) +
                             " bytes of a MESSAGE frame received; nothing more for 300 ms)"),
                  std::string::npos)
            << error;
    }
    EXPECT_LE(stats().budgetHighWater, limits.receiveBudget);
    EXPECT_TRUE(waitUntil([&] { return stats().budgetReserved == 0; }))
        << "dropped peers still hold the budget";
    const std::string body(200u << 10, 'h');
    honest.send(sampleMessage(212, body));
    ASSERT_TRUE(bridge.waitForMessages(2));
    EXPECT_TRUE(bridge.messages()[1].text == body);
}

TEST_F(BridgeLimits, SixtyFourPeersAnnouncingAtOnceThroughASmallBudgetAreAllServed)
{
    constexpr int kPeers = 64;
    // Every frame through a budget that holds only a few at once: frames wait
    // for each other and are all started in the end.
    Testing::TransportLimits limits;
    limits.smallFrameLimit = 0;
    limits.receiveBudget = 256;
    start(limits);
    std::vector<PeerClient> peers(kPeers);
    std::vector<std::thread> threads;
    for (int p = 0; p < kPeers; ++p) {
        threads.emplace_back([&, p] {
            EXPECT_EQ(errorOf([&] {
                          peers[p].connect("127.0.0.1", port, "peer" + std::to_string(p));
                          peers[p].send(sampleMessage(212, std::to_string(p)));
                      }),
                      "");
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    ASSERT_TRUE(bridge.waitForMessages(kPeers));
    std::set<int> numbers;
    for (const auto& [app, number] : bridge.connected())
        numbers.insert(number);
    EXPECT_EQ(numbers.size(), std::size_t(kPeers + 1)) << "a number given twice, or not listed";
    EXPECT_EQ(*numbers.rbegin(), kPeers + 1);
    msg_auto_ptr<IRFMessage> toAll = Testing::makeMessage(sampleMessage(224, "to all"));
    bridge.OnSend(toAll.get(), "");
    for (PeerClient& peer : peers) {
        const std::optional<MessageContent> received = peer.receive(10000);
        ASSERT_TRUE(received && received->text == "to all");
    }
    expectHonestPeerServed();
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
        const Clock::time_point failingSince = Clock::now();
        ASSERT_TRUE(silent.connect(port));
        ASSERT_TRUE(bridge.waitForErrors(1));
        ASSERT_TRUE(announcing.connect(port));
        announcing.send(kHello);
        ASSERT_TRUE(third.connect(port));
        ASSERT_TRUE(fourth.connect(port));
        ASSERT_TRUE(fifth.connect(port));
        expectHonestPeerServed();
        ASSERT_TRUE(waitUntil([&] { return stats().failedAccepts >= 3; }));
        // Each failure is followed by a pause, so the failures are no more
        // frequent than that, however slowly this runs.
        const long failures = stats().failedAccepts;
        const auto elapsed = Clock::now() - failingSince;
        EXPECT_LE(failures - 1, elapsed / std::chrono::milliseconds(limits.acceptPauseMs));
        ASSERT_EQ(bridge.errors().size(), 1u);
        EXPECT_EQ(bridge.errors()[0], "the bridge cannot accept a connection on port " +
                                          std::to_string(port) + ": Too many open files");
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
    EXPECT_EQ(silent.closeReasons(),
              std::vector<std::string>{"closed to make room for newer connections"});
    EXPECT_TRUE(waitUntil([&] { return stats().openConnections == 4; }));
    expectHonestPeerServed();
    EXPECT_EQ(bridge.errors().size(), 3u);
}

TEST_F(BridgeLimits, ConnectionBeyondTheTotalIsRefusedWithTheReason)
{
    Testing::TransportLimits limits;
    limits.maxConnections = 3;
    start(limits);
    RawPeer first(port), second(port);
    ASSERT_TRUE(waitUntil([&] { return stats().openConnections == 3; }));
    RawPeer refused(port);
    refused.send(kHello);

    EXPECT_EQ(refused.closeReasons(),
              std::vector<std::string>{"the bridge serves 3 connections already"});
    ASSERT_TRUE(bridge.waitForErrors(1));
    EXPECT_EQ(bridge.errors()[0], "peer at " + refused.address() +
                                      ": the bridge serves 3 connections already; "
                                      "connection closed");
    EXPECT_EQ(stats().openConnections, 3);
    expectHonestPeerServed();
}

TEST_F(BridgeLimits, ReportsBeyondTheRateAreSummedUpByReasonEachSecond)
{
    Testing::TransportLimits limits;
    limits.reportsPerSecond = 3;
    start(limits);
    // Twelve faults of four kinds (the bytes a peer starts with are part of
    // the reason); the bridge reports three of them and sums up the rest.
    constexpr int kFaults = 12;
    std::vector<std::unique_ptr<RawPeer>> peers;
    for (int i = 0; i < kFaults; ++i) {
        peers.push_back(std::make_unique<RawPeer>(port));
        ASSERT_TRUE(peers.back()->connected());
        peers.back()->send(std::string("XXXXXXX") + char('a' + i % 4));
    }
    expectHonestPeerServed();
    const std::regex verbatim("peer at 127\\.0\\.0\\.1:\\d+: sent data that is not a frame of "
                              "this protocol \\(it starts with the bytes (58 ){7}6[1-4]\\); "
                              "connection closed");
    const std::regex summary("\xe2\x80\xa6 and (\\d+) more (connections? closed: sent data that is "
                             "not a frame of this protocol \\(it starts with the bytes (58 ){7}"
                             "6[1-4]\\)|reports of other faults)");
    int accounted = 0;
    ASSERT_TRUE(waitUntil(
        [&] {
            accounted = 0;
            for (const std::string& error : bridge.errors()) {
                std::smatch match;
                accounted += std::regex_match(error, match, summary) ? std::stoi(match[1]) : 1;
            }
            return accounted >= kFaults;
        },
        20000));
    EXPECT_EQ(accounted, kFaults);

    int reportedBeforeSummary = 0;
    int summaries = 0;
    for (const std::string& error : bridge.errors()) {
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
    const std::string body(row.messageSize, 'd');
    // Never waits for the peer, whether it reads or not.
    for (int i = 0; i < row.messages; ++i) {
        msg_auto_ptr<IRFMessage> message = Testing::makeMessage(sampleMessage(213, body));
        bridge.OnSend(message.get(), "BSXE");
    }
    if (row.peerReads) {
        for (int i = 0; i < row.messages; ++i) {
            const std::optional<MessageContent> received = peer.receive(30000);
            ASSERT_TRUE(received && received->text.size() == row.messageSize) << i;
        }
        EXPECT_EQ(bridge.connected(), (Peers{{"DXD", 1}, {"BSXE", 2}}));
    } else {
        ASSERT_TRUE(bridge.waitForErrors(1, 20000));
        const std::string error = bridge.errors()[0];
        EXPECT_TRUE(std::regex_match(
            error, std::regex("peer BSXE \\(2\\) at 127\\.0\\.0\\.1:\\d+: " + row.fault +
                              "; connection closed")))
            << error;
        std::smatch megabytes;
        if (std::regex_search(error, megabytes, std::regex("\\((\\d+\\.\\d) MB"))) {
            EXPECT_GT(std::stod(megabytes[1]) * (1 << 20), static_cast<double>(row.softLimit));
        }
        ASSERT_TRUE(bridge.waitForPeerCount(1));
    }
    expectHonestPeerServed();
    EXPECT_EQ(bridge.errors().size(), row.peerReads ? 0u : 1u);
}

INSTANTIATE_TEST_SUITE_P(Peers, BridgeSendQueue, ::testing::ValuesIn(kSendQueueCases),
                         [](const ::testing::TestParamInfo<SendQueueCase>& info) {
                             return info.param.name;
                         });

TEST_F(BridgeLimits, PeerClientReadsWhileSendingALongBatchAndIsNotClosed)
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
    sender.connect("127.0.0.1", port, "BSXE");
    ASSERT_EQ(errorOf([&] {
                  for (int i = 0; i < kBatch; ++i)
                      sender.send(sampleMessage(212, std::string(64u << 10, char('a' + i % 26))));
              }),
              "");
    for (int i = 0; i < kBatch; ++i) {
        const std::optional<MessageContent> reply = sender.receive(30000);
        ASSERT_TRUE(reply && reply->text == std::string(64u << 10, char('a' + i % 26))) << i;
    }
    EXPECT_TRUE(bridge.errors().empty()) << bridge.errors().front();
    expectHonestPeerServed();
}

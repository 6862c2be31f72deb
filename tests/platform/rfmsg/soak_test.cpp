// Long runs, behind the `soak` label (left out of the default test run).

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include "recordingbridge.h"
#include "rfmsg/peerclient.h"
#include "rfmsg/testing.h"

using namespace RFMsgExp;
using BridgeTestSupport::errorOf;
using BridgeTestSupport::sampleMessage;

namespace {

// The most memory this process has held, in MB (VmHWM).
long peakMegabytes()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmHWM:", 0) == 0)
            return std::stol(line.substr(6)) / 1024;
    return -1;
}

int connectSilently(int port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (fd >= 0 && ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

} // namespace

TEST(TransportSoak, TwoHundredMegabyteBodyGoesBothWaysIntact)
{
    const long liveAtStart = Testing::liveObjects();
    {
        RecordingBridge bridge;
        PeerClient peer;
        peer.connect("127.0.0.1", bridge.start(), "BSXE");
        MessageContent content = sampleMessage(222, std::string(200u << 20, 'I'), true);
        for (std::size_t i = 0; i < content.text.size(); i += 4096)
            content.text[i] = static_cast<char>('A' + (i / 4096) % 26);
        peer.send(content);
        ASSERT_TRUE(bridge.waitForMessages(1, 120000));
        EXPECT_TRUE(bridge.messages()[0].text == content.text);
        msg_auto_ptr<IRFMessage> back = Testing::makeMessage(content);
        bridge.OnSend(back.get(), "BSXE");
        const std::optional<MessageContent> received = peer.receive(120000);
        EXPECT_TRUE(received && received->text == content.text);
    }
    EXPECT_EQ(Testing::liveObjects(), liveAtStart);
}

TEST(TransportSoak, PeersComingAndGoingLeakNothingAndLoseNothing)
{
    constexpr int kThreads = 8;
    constexpr int kRounds = 2500;
    const long liveAtStart = Testing::liveObjects();
    {
        RecordingBridge bridge;
        const int port = bridge.start({}, [](IRFMessage& message) {
            return Testing::makeMessage(sampleMessage(20, message.GetText().str()));
        });
        std::atomic<int> failures{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&, t] {
                for (int round = 0; round < kRounds; ++round) {
                    const std::string error = errorOf([&] {
                        PeerClient peer;
                        peer.connect("127.0.0.1", port, t % 2 ? "DXD" : "BSXE");
                        peer.send(sampleMessage(212, std::to_string(round), round % 7 == 0));
                        // Messages to all may come first; the reply is kind 20.
                        std::optional<MessageContent> reply = peer.receive(30000);
                        while (reply && reply->kind != 20)
                            reply = peer.receive(30000);
                        if (!reply || reply->text != std::to_string(round))
                            ++failures;
                        // In order: a peer that closes with unread messages resets
                        // the connection, which the bridge rightly reports.
                        peer.finish(30000);
                    });
                    if (!error.empty()) {
                        ADD_FAILURE() << error;
                        ++failures;
                    }
                }
            });
        }
        std::thread broadcaster([&] {
            for (int i = 0; i < 2000; ++i) {
                msg_auto_ptr<IRFMessage> message = Testing::makeMessage(sampleMessage(224, "all"));
                bridge.OnSend(message.get(), "");
                bridge.connected();
            }
        });
        for (std::thread& thread : threads)
            thread.join();
        broadcaster.join();
        EXPECT_EQ(failures, 0);
        ASSERT_TRUE(bridge.waitForMessages(kThreads * kRounds, 60000)) << bridge.messages().size();
        EXPECT_TRUE(bridge.waitForPeerCount(0));
        EXPECT_TRUE(bridge.errors().empty()) << bridge.errors().front();
    }
    EXPECT_EQ(Testing::liveObjects(), liveAtStart);
}

TEST(TransportSoak, FloodOfSilentConnectionsCostsBoundedFilesAndReports)
{
    constexpr int kFlood = 1500;
    rlimit files{};
    ::getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &files);
    RecordingBridge bridge;
    const int port = bridge.start();
    const auto start = std::chrono::steady_clock::now();
    std::vector<int> flood;
    int mostOpen = 0;
    PeerClient honest;
    for (int i = 0; i < kFlood; ++i) {
        const int fd = connectSilently(port);
        ASSERT_GE(fd, 0) << i;
        flood.push_back(fd);
        mostOpen = std::max(mostOpen, Testing::transportStats(bridge).openConnections);
        if (i == kFlood / 2)
            honest.connect("127.0.0.1", port, "DXD");
    }
    honest.send(sampleMessage(212, "served during the flood"));
    ASSERT_TRUE(bridge.waitForMessages(1, 60000));
    // Every silent connection ends: made room for, or timed out.
    const std::regex summary("\xe2\x80\xa6 and (\\d+) more .*");
    long accounted = 0;
    ASSERT_TRUE(BridgeTestSupport::waitUntil(
        [&] {
            accounted = 0;
            for (const std::string& error : bridge.errors()) {
                std::smatch match;
                accounted += std::regex_match(error, match, summary) ? std::stol(match[1]) : 1;
            }
            return accounted >= kFlood;
        },
        120000));
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const std::size_t reports = bridge.errors().size();
    std::printf("silent flood: %d connections, at most %d open at the bridge, %zu reports in "
                "%.1f s, peak memory %ld MB\n",
                kFlood, mostOpen, reports, seconds, peakMegabytes());
    EXPECT_EQ(accounted, kFlood);
    EXPECT_LE(mostOpen, 129);
    // Ten reports a second and a summary for each of the two reasons.
    EXPECT_LE(reports, static_cast<std::size_t>(12 * (seconds + 1)));
    EXPECT_EQ(bridge.connected(), (Peers{{"DXD", 1}}));
    for (const int fd : flood)
        ::close(fd);
}

TEST(TransportSoak, LayoutPeerThatNeverReadsCostsAtMostTheHardLimit)
{
    constexpr int kDesigns = 40;
    RecordingBridge bridge;
    const int port = bridge.start();
    PeerClient layout;
    layout.connect("127.0.0.1", port, "BSXE");
    PeerClient schematic;
    schematic.connect("127.0.0.1", port, "DXD");
    const std::string design(8u << 20, 'L');
    for (int i = 0; i < kDesigns; ++i) {
        msg_auto_ptr<IRFMessage> message = Testing::makeMessage(sampleMessage(212, design, true));
        bridge.OnSend(message.get(), "BSXE");
        msg_auto_ptr<IRFMessage> small = Testing::makeMessage(sampleMessage(224, "small"));
        bridge.OnSend(small.get(), "DXD");
    }
    ASSERT_TRUE(bridge.waitForErrors(1, 60000));
    std::printf("non-reading layout peer: %s; peak memory %ld MB\n", bridge.errors()[0].c_str(),
                peakMegabytes());
    std::smatch megabytes;
    const std::string error = bridge.errors()[0];
    ASSERT_TRUE(std::regex_search(
        error, megabytes,
        std::regex("does not read what the bridge sends \\((\\d+)\\.\\d MB waiting\\)")))
        << error;
    EXPECT_LE(std::stol(megabytes[1]), 256 + 8);
    for (int i = 0; i < kDesigns; ++i) {
        const std::optional<MessageContent> received = schematic.receive(60000);
        ASSERT_TRUE(received && received->text == "small");
    }
    EXPECT_TRUE(bridge.waitForPeerCount(1));
    EXPECT_EQ(bridge.connected(), (Peers{{"DXD", 2}}));
}

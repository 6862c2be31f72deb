// Full-size attacks of a hostile local peer on the bridge of lumo-host with
// the plug-in, printing what they add to the host's peak memory; an honest
// peer is served after each. Long: behind the `soak` label.

#include <gtest/gtest.h>

#include <QFile>
#include <QRegularExpression>
#include <QThread>

#include <chrono>
#include <cstdio>
#include <future>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include "e2e.h"
#include "rfmsg/wirecodec.h"

namespace {

using namespace E2E;
using namespace std::string_literals;
using Clock = std::chrono::steady_clock;

constexpr long MiB = 1l << 20;

// A frame header: the magic, the format version, `type` and the payload's `length`.
std::string frameHeader(char type, std::uint32_t length)
{
    const std::uint32_t bigEndian = htonl(length);
    return std::string{'R', 'F', 1, type} +
           std::string(reinterpret_cast<const char*>(&bigEndian), 4);
}

// A raw peer's socket, or -1.
int connectTo(int port, int receiveBuffer = 0)
{
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (receiveBuffer > 0)
        ::setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    sockaddr_in address{AF_INET, htons(std::uint16_t(port)), {htonl(INADDR_LOOPBACK)}, {}};
    if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0)
        return socket;
    ::close(socket);
    return -1;
}

// False once the connection broke.
bool sendAll(int socket, const std::string& bytes)
{
    for (std::size_t sent = 0; sent < bytes.size();) {
        const long count = ::send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0)
            return false;
        sent += std::size_t(count);
    }
    return true;
}

// Sets this process's soft limit of open files; what a child started now inherits.
bool limitFiles(rlim_t count)
{
    rlimit files{};
    ::getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = std::min(count, files.rlim_max);
    return ::setrlimit(RLIMIT_NOFILE, &files) == 0;
}

class Attack : public ::testing::Test
{
protected:
    // VmHWM (peak) or VmRSS (now) of the host, in bytes.
    long memory(const QByteArray& field)
    {
        QFile status(QStringLiteral("/proc/%1/status").arg(host.process().processId()));
        status.open(QIODevice::ReadOnly);
        const QByteArray all = status.readAll();
        return all.mid(all.indexOf(field) + field.size()).trimmed().split(' ')[0].toLong() * 1024;
    }
    QStringList reports() { return host.seen().texts({"info", "text", "Tessel Error: "}); }
    // Waits for the bridge's reports, a summary counting for as many as it
    // sums up; how many there are.
    long waitForReports(long count)
    {
        const QRegularExpression summary(QStringLiteral("\u2026 and (\\d+) more "));
        long accounted = 0;
        for (const Clock::time_point end = Clock::now() + std::chrono::minutes(4);
             accounted < count && Clock::now() < end; QThread::msleep(50)) {
            accounted = 0;
            for (const QString& report : reports())
                accounted += std::max(1l, summary.match(report).captured(1).toLong());
        }
        return accounted;
    }
    // Each report matches `pattern`, and an honest peer's netlist still makes a
    // design; the first report.
    QString expectReportedAndServed(const char* attack, long count, const char* pattern,
                                    long peakLimit)
    {
        EXPECT_GE(waitForReports(count), count);
        for (const QString& report : reports())
            EXPECT_TRUE(report.contains(QRegularExpression(pattern))) << report.toStdString();
        const long cost = memory("VmHWM:") - peakBefore;
        std::printf("%s: lumo-host's peak memory grew by %ld MiB\n", attack, cost / MiB);
        EXPECT_LE(cost, peakLimit);
        EXPECT_TRUE(send(host.port, "DXD", {"netlist.json"}));
        EXPECT_TRUE(
            host.waitFor({"call", "function", "mgclink_create_design"}).at(0)["ok"].toBool());
        return reports().value(0);
    }

    // The host keeps its 1,024 files; this process needs more for floods.
    const bool filesLimited = limitFiles(1024);
    BridgedHost host;
    const bool filesUnlimited = limitFiles(RLIM_INFINITY);
    const long peakBefore = memory("VmHWM:");
};

TEST_F(Attack, HelloClaimingAGibibyteCostsUnder48MiB)
{
    const int socket = connectTo(host.port);
    sendAll(socket, frameHeader(1, 1u << 30));
    const std::string chunk(MiB, 'h');
    for (const Clock::time_point end = Clock::now() + std::chrono::seconds(6);
         Clock::now() < end && sendAll(socket, chunk);) {
    }
    ::close(socket);
    expectReportedAndServed("HELLO claiming 1 GiB", 1,
                            "sent a HELLO frame of 1073741824 bytes, over the limit of 65536 bytes",
                            48 * MiB);
}

// Two fit the receive budget at once; the others wait, then stall in their turn.
TEST_F(Attack, FourPeersStallingHalfWayThroughAGigabyteHoldAtMostTheBudgetAndAreDropped)
{
    constexpr std::uint32_t Frame = 1000000000;
    const long residentBefore = memory("VmRSS:");
    // Each tells how long after its last progress the bridge closed it.
    std::vector<std::future<Clock::duration>> peers;
    for (int i = 0; i < 4; ++i)
        peers.push_back(std::async(std::launch::async, [this] {
            const int socket = connectTo(host.port);
            sendAll(socket,
                    RFMsgExp::Wire::encodeHello({"BSXE"}).flatten() + frameHeader(3, Frame));
            const std::string chunk(MiB, 'x');
            for (std::size_t sent = 0; sent < Frame / 2 && sendAll(socket, chunk);)
                sent += chunk.size();
            // The bridge has taken (nearly) all of it: its last progress.
            const Clock::time_point stalled = Clock::now();
            for (char sink[4096]; ::recv(socket, sink, sizeof sink, 0) > 0;) {
            }
            ::close(socket);
            return Clock::now() - stalled;
        }));
    expectReportedAndServed("4 peers stalling half-way through 1,000,000,000-byte frames", 4,
                            "stalled in the middle of a frame \\(", 2 * 1024 * MiB + 64 * MiB);
    for (std::future<Clock::duration>& peer : peers)
        EXPECT_LT(peer.get(), std::chrono::seconds(35)) << "dropped long after its last progress";
    EXPECT_LT(memory("VmRSS:") - residentBefore, 64 * MiB) << "their memory was not given back";
}

TEST_F(Attack, TwentyMillionEmptyPortMapsCostUnder256MiB)
{
    // {"kind": 212, "document": {"regions": [{"ports": [{}, {}, ... 20,000,000 of them]}]}}
    const std::string payload = "\xa2\x64kind\x18\xd4\x68"
                                "document\xa1\x67regions\x81\xa1\x65ports\x9a\x01\x31\x2d\x00"s +
                                std::string(20000000, '\xa0');
    const int socket = connectTo(host.port);
    sendAll(socket, RFMsgExp::Wire::encodeHello({"DXD"}).flatten() +
                        frameHeader(3, std::uint32_t(payload.size())) + payload);
    waitForReports(1);
    ::close(socket);
    expectReportedAndServed("20 MB MESSAGE of 20 million empty port maps", 1,
                            "field 'document.regions\\[0\\].ports' would make the decoded "
                            "message larger than",
                            256 * MiB);
}

// Every silent connection ends, made room for or timed out, with at most ten
// reports a second and a summary for each of the two reasons.
TEST_F(Attack, FloodOfSilentConnectionsIsReportedBoundedly)
{
    constexpr int Flood = 1500;
    const Clock::time_point start = Clock::now();
    std::vector<int> flood;
    for (int i = 0; i < Flood; ++i) {
        flood.push_back(connectTo(host.port));
        ASSERT_GE(flood.back(), 0) << i;
        if (i == Flood / 2)
            expectReportedAndServed("silent flood of 1500 connections", 0, "", 1l << 40);
    }
    EXPECT_EQ(waitForReports(Flood), Flood);
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    EXPECT_LE(reports().size(), 12 * (seconds + 1));
    for (const int socket : flood)
        ::close(socket);
    EXPECT_EQ(host.finish().exitCode, 0);
}

// Designs of 8 MB (the two files of 4 MB each that the command sends) pile up
// for the layout peer while others are served.
TEST_F(Attack, LayoutPeerThatNeverReadsCostsAtMostTheHardLimit)
{
    const int layout = connectTo(host.port, 4096);
    ASSERT_TRUE(sendAll(layout, RFMsgExp::Wire::encodeHello({"BSXE"}).flatten()));
    const QString schematic = writeFile(host.path("big.sch.iff"), QByteArray(4 << 20, 'S'));
    const QString board = writeFile(host.path("big.lay.iff"), QByteArray(4 << 20, 'L'));
    for (int i = 0; i < 40; ++i)
        host.command("mgcconnect_designsend_command(\"" + schematic + "\", \"" + board +
                     R"(", "big_top", "lna", "C:\\designs\\big");)");
    const QString report =
        expectReportedAndServed("layout peer that never reads", 1,
                                "^Tessel Error: .* peer BSXE \\(1\\) at 127\\.0\\.0\\.1:\\d+: does "
                                "not read what the bridge "
                                "sends \\(\\d+\\.\\d MB waiting\\)",
                                1l << 40);
    EXPECT_LE(report.section('(', -1).section(' ', 0, 0).toDouble(), 256 + 8)
        << report.toStdString();
    ::close(layout);
    EXPECT_EQ(host.finish().exitCode, 0);
}

} // namespace

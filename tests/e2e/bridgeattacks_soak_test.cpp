// Full-size attacks of a hostile local peer on the bridge of lumo-host with
// the plug-in, printing what they add to the host's peak memory; an honest
// peer is served after each. Long: behind the `soak` label.

#include <gtest/gtest.h>

#include <QDeadlineTimer>
#include <QFile>
#include <QRegularExpression>
#include <QThread>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <future>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include "e2e.h"
#include "peerprocess.h"
#include "rfmsg/wirecodec.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr long kMiB = 1l << 20;
const RecordMatch kBridgeError{"info", "text", "Tessel Error: "};

// VmHWM (peak) or VmRSS (now) of a process, in bytes.
long memoryOf(qint64 pid, const char* field)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith(field))
            return line.mid(static_cast<int>(std::strlen(field))).trimmed().split(' ')[0].toLong() *
                   1024;
    return -1;
}

// Sets this process's soft limit of open files; what a child started now inherits.
bool limitFiles(rlim_t count)
{
    rlimit files{};
    ::getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = std::min(count, files.rlim_max);
    return ::setrlimit(RLIMIT_NOFILE, &files) == 0;
}

int connectTo(int port, int receiveBuffer = 0)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (receiveBuffer > 0)
        ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

// False once the connection broke.
bool sendAll(int fd, const std::string& bytes)
{
    for (std::size_t sent = 0; sent < bytes.size();) {
        const long count = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0)
            return false;
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

std::string header(unsigned char type, std::uint32_t length)
{
    std::string bytes = {'R', 'F', 1, static_cast<char>(type)};
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>((length >> shift) & 0xff);
    return bytes;
}

std::string hello(const std::string& app)
{
    return RFMsgExp::Wire::encodeHello({app}).flatten();
}

} // namespace

class Attack : public ::testing::Test
{
protected:
    void SetUp() override
    {
        // The host keeps its 1,024 files; this process needs more for floods.
        limitFiles(RLIM_INFINITY);
        port = E2E::startBridge(host);
        ASSERT_GT(port, 0);
        peakBefore = memoryOf(host.process().processId(), "VmHWM:");
    }
    // What the attack added to the host's peak memory, printed.
    long peakCost(const std::string& attack)
    {
        const long cost = memoryOf(host.process().processId(), "VmHWM:") - peakBefore;
        std::printf("%s: lumo-host's peak memory grew by %ld MiB\n", attack.c_str(), cost / kMiB);
        return cost;
    }
    // The bridge's reports in the journal, a summary counting for as many as it sums up.
    long reportsAccountedFor()
    {
        const QRegularExpression summary(QStringLiteral("\u2026 and (\\d+) more "));
        long accounted = 0;
        for (const QString& error : host.seen().texts(kBridgeError)) {
            const QRegularExpressionMatch match = summary.match(error);
            accounted += match.hasMatch() ? match.captured(1).toLong() : 1;
        }
        return accounted;
    }
    bool waitForErrors(long count, int timeoutMs)
    {
        QDeadlineTimer deadline(timeoutMs);
        while (reportsAccountedFor() < count) {
            if (deadline.hasExpired())
                return false;
            QThread::msleep(50);
        }
        return true;
    }
    // An honest peer's netlist still makes a design.
    void expectServed()
    {
        ASSERT_EQ(PeerProcess::send(port, "DXD", {E2E::example("netlist.json")}), 0);
        const std::vector<QJsonObject> created =
            host.waitFor({"call", "function", "mgclink_create_design"});
        ASSERT_FALSE(created.empty());
        EXPECT_TRUE(created.front().value("ok").toBool());
    }

    const bool filesLimited = limitFiles(1024);
    HostProcess host{E2E::hostArguments()};
    int port = 0;
    long peakBefore = 0;
};

TEST_F(Attack, HelloClaimingAGibibyteCostsUnder48MiB)
{
    const int fd = connectTo(port);
    sendAll(fd, header(1, 1u << 30));
    const std::string chunk(kMiB, 'h');
    const Clock::time_point end = Clock::now() + std::chrono::seconds(6);
    while (Clock::now() < end && sendAll(fd, chunk)) {
    }
    ::close(fd);
    ASSERT_TRUE(waitForErrors(1, 30000));
    EXPECT_TRUE(host.seen().texts(kBridgeError)[0].contains(
        "sent a HELLO frame of 1073741824 bytes, over the limit of 65536 bytes"));
    EXPECT_LT(peakCost("HELLO claiming 1 GiB"), 48 * kMiB);
    expectServed();
}

TEST_F(Attack, FourPeersStallingHalfWayThroughAGigabyteHoldAtMostTheBudgetAndAreDropped)
{
    constexpr std::uint32_t kFrame = 1000000000;
    const long rssBefore = memoryOf(host.process().processId(), "VmRSS:");
    const std::string chunk(kMiB, 'x');
    // Each tells how long after its last progress the bridge closed it.
    std::vector<std::future<Clock::duration>> peers;
    for (int i = 0; i < 4; ++i) {
        peers.push_back(std::async(std::launch::async, [this, &chunk] {
            const int fd = connectTo(port);
            sendAll(fd, hello("BSXE") + header(3, kFrame));
            for (std::size_t sent = 0; sent < kFrame / 2 && sendAll(fd, chunk);
                 sent += chunk.size()) {
            }
            // The bridge has taken (nearly) all of it: its last progress.
            const Clock::time_point stalled = Clock::now();
            char sink[4096];
            while (::recv(fd, sink, sizeof sink, 0) > 0) {
            }
            ::close(fd);
            return Clock::now() - stalled;
        }));
    }
    // Two fit the budget at once; the others wait, then stall in their turn.
    ASSERT_TRUE(waitForErrors(4, 200000));
    for (std::future<Clock::duration>& peer : peers)
        EXPECT_LT(peer.get(), std::chrono::seconds(35)) << "dropped long after its last progress";
    for (const QString& error : host.seen().texts(kBridgeError))
        EXPECT_TRUE(error.contains("stalled in the middle of a frame (")) << error.toStdString();
    EXPECT_LE(peakCost("4 peers stalling half-way through 1,000,000,000-byte frames"),
              2 * (1l << 30) + 64 * kMiB);
    EXPECT_LT(memoryOf(host.process().processId(), "VmRSS:") - rssBefore, 64 * kMiB)
        << "their memory was not given back";
    expectServed();
}

TEST_F(Attack, TwentyMillionEmptyPortMapsCostUnder256MiB)
{
    // {"kind": 212, "document": {"regions": [{"ports": [{}, {}, ...]}]}}
    constexpr std::uint32_t kPorts = 20000000;
    std::string payload = "\xa2\x64kind\x18\xd4\x68"
                          "document\xa1\x67regions\x81\xa1\x65ports\x9a";
    for (int shift = 24; shift >= 0; shift -= 8)
        payload += static_cast<char>((kPorts >> shift) & 0xff);
    payload.append(kPorts, '\xa0');
    const int fd = connectTo(port);
    sendAll(fd, hello("DXD") + header(3, static_cast<std::uint32_t>(payload.size())) + payload);
    ASSERT_TRUE(waitForErrors(1, 60000));
    ::close(fd);
    EXPECT_TRUE(host.seen().texts(kBridgeError)[0].contains(
        "field 'document.regions[0].ports' would make the decoded message larger than"));
    EXPECT_LT(peakCost("20 MB MESSAGE of 20 million empty port maps"), 256 * kMiB);
    expectServed();
}

TEST_F(Attack, FloodOfSilentConnectionsIsReportedBoundedly)
{
    constexpr int kFlood = 1500;
    const Clock::time_point start = Clock::now();
    std::vector<int> flood;
    for (int i = 0; i < kFlood; ++i) {
        flood.push_back(connectTo(port));
        ASSERT_GE(flood.back(), 0) << i;
        if (i == kFlood / 2)
            expectServed();
    }
    // Every silent connection ends: made room for, or timed out.
    ASSERT_TRUE(waitForErrors(kFlood, 120000));
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    const std::size_t reports = host.seen().texts(kBridgeError).size();
    peakCost("silent flood of " + std::to_string(kFlood) + " connections, " +
             std::to_string(reports) + " reports in " + std::to_string(seconds) + " s");
    EXPECT_EQ(reportsAccountedFor(), kFlood);
    // Ten reports a second and a summary for each of the two reasons.
    EXPECT_LE(reports, static_cast<std::size_t>(12 * (seconds + 1)));
    for (const int fd : flood)
        ::close(fd);
    EXPECT_EQ(host.finish().exitCode, 0);
}

TEST_F(Attack, LayoutPeerThatNeverReadsCostsAtMostTheHardLimit)
{
    constexpr int kDesigns = 40;
    const int layout = connectTo(port, 4096);
    ASSERT_TRUE(sendAll(layout, hello("BSXE")));
    // Designs of 8 MB: the two files of 4 MB each that the command sends.
    const auto write = [this](const QString& name, char fill) {
        QFile file(host.path(name));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(QByteArray(4 << 20, fill));
        return file.fileName();
    };
    const QString schematic = write("big.sch.iff", 'S');
    const QString board = write("big.lay.iff", 'L');
    for (int i = 0; i < kDesigns; ++i)
        E2E::command(host, "mgcconnect_designsend_command(\"" + schematic + "\", \"" + board +
                               R"(", "big_top", "lna", "C:\\designs\\big");)");
    ASSERT_TRUE(waitForErrors(1, 60000));
    const QString error = host.seen().texts(kBridgeError).front();
    peakCost("layout peer that never reads");
    const QRegularExpressionMatch waiting =
        QRegularExpression(
            QStringLiteral("peer BSXE \\(1\\) at 127\\.0\\.0\\.1:\\d+: does not read "
                           "what the bridge sends \\((\\d+)\\.\\d MB waiting\\)"))
            .match(error);
    ASSERT_TRUE(waiting.hasMatch()) << error.toStdString();
    EXPECT_LE(waiting.captured(1).toInt(), 256 + 8);
    expectServed();
    ::close(layout);
    EXPECT_EQ(host.finish().exitCode, 0);
}

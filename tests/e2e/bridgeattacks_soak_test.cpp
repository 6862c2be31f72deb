// Full-size attacks of a hostile local peer on the bridge of lumo-host with
// the plug-in, printing the host's peak memory. Long: behind the `soak` label.

#include <gtest/gtest.h>

#include <QDeadlineTimer>
#include <QFile>
#include <QThread>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <future>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "e2e.h"
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

class Attack : public ::testing::Test
{
protected:
    void SetUp() override
    {
        port = E2E::startBridge(host);
        ASSERT_GT(port, 0);
        peakBefore = memoryOf(host.process().processId(), "VmHWM:");
    }
    // What the attack added to the host's peak memory, printed.
    long peakCost(const char* attack)
    {
        const long cost = memoryOf(host.process().processId(), "VmHWM:") - peakBefore;
        std::printf("%s: lumo-host's peak memory grew by %ld MiB\n", attack, cost / kMiB);
        return cost;
    }
    // Waits up to `timeoutMs` for `count` bridge errors in the journal.
    bool waitForErrors(std::size_t count, int timeoutMs)
    {
        QDeadlineTimer deadline(timeoutMs);
        while (host.seen().records(kBridgeError).size() < count) {
            if (deadline.hasExpired())
                return false;
            QThread::msleep(50);
        }
        return true;
    }
    // An honest peer is still listed and served.
    void expectServed()
    {
        const int socket = connectTo(port);
        sendAll(socket, RFMsgExp::Wire::encodeHello({"DXD"}).flatten());
        char welcome[8];
        EXPECT_EQ(::recv(socket, welcome, sizeof welcome, MSG_WAITALL), 8) << "no welcome";
        EXPECT_EQ(welcome[3], 2) << "not a WELCOME frame";
        ::close(socket);
    }

    static int connectTo(int port)
    {
        const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
        return fd;
    }
    // False once the connection broke.
    static bool sendAll(int fd, const std::string& bytes)
    {
        for (std::size_t sent = 0; sent < bytes.size();) {
            const long count = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (count <= 0)
                return false;
            sent += static_cast<std::size_t>(count);
        }
        return true;
    }
    static std::string header(unsigned char type, std::uint32_t length)
    {
        std::string bytes = {'R', 'F', 1, static_cast<char>(type)};
        for (int shift = 24; shift >= 0; shift -= 8)
            bytes += static_cast<char>((length >> shift) & 0xff);
        return bytes;
    }

    HostProcess host{E2E::hostArguments()};
    int port = 0;
    long peakBefore = 0;
};

} // namespace

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
            sendAll(fd, RFMsgExp::Wire::encodeHello({"BSXE"}).flatten());
            sendAll(fd, header(3, kFrame));
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
    sendAll(fd, RFMsgExp::Wire::encodeHello({"DXD"}).flatten());
    sendAll(fd, header(3, static_cast<std::uint32_t>(payload.size())) + payload);
    ASSERT_TRUE(waitForErrors(1, 60000));
    ::close(fd);
    EXPECT_TRUE(host.seen().texts(kBridgeError)[0].contains(
        "field 'document.regions[0].ports' would make the decoded message larger than"));
    EXPECT_LT(peakCost("20 MB MESSAGE of 20 million empty port maps"), 256 * kMiB);
    expectServed();
}

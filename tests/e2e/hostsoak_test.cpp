// Long runs against lumo-host with the plug-in, behind the `soak` label: a
// flood of connections that never announce themselves, and a layout peer
// that never reads.

#include <gtest/gtest.h>

#include <QFile>
#include <QHostAddress>
#include <QRegularExpression>
#include <QTcpSocket>

#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>
#include <vector>

#include <sys/resource.h>

#include "e2e.h"
#include "peerprocess.h"
#include "rfmsg/wirecodec.h"

namespace {

// The most memory a process has held, in MB (VmHWM).
long peakMegabytes(qint64 pid)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').front().toLong() / 1024;
    return -1;
}

} // namespace

TEST(HostSoak, FloodOfSilentConnectionsAgainstAHostOf1024FilesIsReportedBoundedly)
{
    constexpr int kFlood = 1500;
    // The host gets 1,024 files; this process needs more for the flood.
    rlimit files{};
    ::getrlimit(RLIMIT_NOFILE, &files);
    rlimit hostFiles = files;
    hostFiles.rlim_cur = std::min<rlim_t>(1024, files.rlim_max);
    ::setrlimit(RLIMIT_NOFILE, &hostFiles);
    HostProcess host(E2E::hostArguments());
    files.rlim_cur = files.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &files);
    const int port = E2E::startBridge(host);
    ASSERT_GT(port, 0);

    const auto start = std::chrono::steady_clock::now();
    std::vector<std::unique_ptr<QTcpSocket>> flood;
    for (int i = 0; i < kFlood; ++i) {
        flood.push_back(std::make_unique<QTcpSocket>());
        flood.back()->connectToHost(QHostAddress::LocalHost, static_cast<quint16>(port));
        ASSERT_TRUE(flood.back()->waitForConnected(20000)) << i;
        if (i == kFlood / 2) {
            ASSERT_EQ(PeerProcess::send(port, "DXD", {E2E::example("netlist.json")}), 0);
        }
    }
    const std::vector<QJsonObject> created =
        host.waitFor({"call", "function", "mgclink_create_design"});
    ASSERT_EQ(created.size(), 1u);
    EXPECT_TRUE(created[0].value("ok").toBool());

    // Every silent connection ends: made room for, or timed out.
    const QRegularExpression summary(QStringLiteral("\u2026 and (\\d+) more "));
    long accounted = 0;
    std::size_t reports = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
    while (accounted < kFlood && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        const std::vector<QJsonObject> errors =
            host.seen().records({"info", "text", "Tessel Error: "});
        reports = errors.size();
        accounted = 0;
        for (const QJsonObject& error : errors) {
            const QRegularExpressionMatch match = summary.match(error.value("text").toString());
            accounted += match.hasMatch() ? match.captured(1).toLong() : 1;
        }
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("lumo-host, silent flood: %d connections, %zu reports in %.1f s, peak memory "
                "%ld MB\n",
                kFlood, reports, seconds, peakMegabytes(host.process().processId()));
    EXPECT_EQ(accounted, kFlood);
    // Ten reports a second and a summary for each of the two reasons.
    EXPECT_LE(reports, static_cast<std::size_t>(12 * (seconds + 1)));
    flood.clear();
    EXPECT_EQ(host.finish().exitCode, 0);
}

TEST(HostSoak, LayoutPeerThatNeverReadsCostsTheHostAtMostTheHardLimit)
{
    constexpr int kDesigns = 40;
    HostProcess host(E2E::hostArguments());
    const int port = E2E::startBridge(host);
    ASSERT_GT(port, 0);
    QTcpSocket layout;
    layout.setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, 4096);
    layout.connectToHost(QHostAddress::LocalHost, static_cast<quint16>(port));
    ASSERT_TRUE(layout.waitForConnected(20000));
    layout.write(QByteArray::fromStdString(RFMsgExp::Wire::encodeHello({"BSXE"}).flatten()));
    ASSERT_TRUE(layout.waitForBytesWritten(20000));

    // Designs of 8 MB: the two files of 4 MB each that the command sends.
    const auto write = [&host](const QString& name, char fill) {
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
    const std::vector<QJsonObject> errors = host.waitFor({"info", "text", "Tessel Error: "});
    const QString error = errors.front().value("text").toString();
    std::printf("lumo-host, non-reading layout peer: %s; peak memory %ld MB\n",
                error.toStdString().c_str(), peakMegabytes(host.process().processId()));
    const QRegularExpressionMatch waiting =
        QRegularExpression(
            QStringLiteral("peer BSXE \\(1\\) at 127\\.0\\.0\\.1:\\d+: does not read "
                           "what the bridge sends \\((\\d+)\\.\\d MB waiting\\)"))
            .match(error);
    ASSERT_TRUE(waiting.hasMatch()) << error.toStdString();
    EXPECT_LE(waiting.captured(1).toInt(), 256 + 8);

    ASSERT_EQ(PeerProcess::send(port, "DXD", {E2E::example("netlist.json")}), 0);
    const std::vector<QJsonObject> created =
        host.waitFor({"call", "function", "mgclink_create_design"});
    EXPECT_TRUE(created.front().value("ok").toBool());
    EXPECT_EQ(host.finish().exitCode, 0);
}

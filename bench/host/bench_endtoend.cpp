// Netlist messages end to end: this program is the peer (the messaging
// library's peer client), the bridge and the plug-in run in a lumo-host
// process, each message's host statements are performed through idle requests
// on the host's main thread, and the host writes the design record and says so
// on its output. The message is the exchange benchmark's (10 ports, 4 KB
// netlist), so that benchmark's in-process figure, measured in the same run,
// is the baseline. Like it, the workspace lies once on disk (the system's
// temporary folder) and once in memory (/dev/shm).
//
// Where the time goes (strace -f -tt, callgrind, perf, perf sched on two
// loaded cores): per message the host does one recv, three hand-overs to its
// main thread and back (an eventfd write and a futex wait each), two file
// writes and one write to its output; no journal write (none is open here), no
// extra pipe read. Most instructions were the main thread's own work (the
// design record built through QJsonDocument, journal records built with no
// journal open): about 800,000 per message, now about 200,000. The tail is
// waiting for a CPU: on a busy machine a few messages in a hundred wait 1-10
// ms behind other processes, evenly spread, whatever the message (the host's
// main thread waits up to 8 ms to run after 0.8% of its wake-ups while other
// processes hold both cores). Run under chrt -f, where nothing else can delay
// this program and the host, the same build's 99th percentile is 2.4-2.6 times
// the in-process time (the build before these changes: 2.5-3.1); at a load of
// 10 on two cores, 13-30 times. Spinning instead of sleeping at the hand-overs
// cuts the median by a third but makes that tail worse on two shared cores, so
// every hand-over sleeps; waking the main thread through a pipe rather than
// Qt's queued call made no clear difference. Compare runs only in quiet
// moments.

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include "../common/netlistmessage.h"
#include "rfmsg/messagecontent.h"
#include "rfmsg/peerclient.h"
#include "rfmsg/xexception.h"

namespace {

using BenchMessages::NetlistBytes;
using BenchMessages::netlistMessage;
// Messages sent before their designs are awaited, in the throughput run.
constexpr int Batch = 32;
constexpr int WaitMs = 20000;

enum class Storage { Disk, Memory };

using Clock = std::chrono::steady_clock;

void ensureApplication()
{
    static int argc = 1;
    static char name[] = "bench_endtoend";
    static char* argv[] = {name, nullptr};
    if (!QCoreApplication::instance())
        new QCoreApplication(argc, argv);
}

// lumo-host with the plug-in, its bridge started on a free port, and this
// program connected to it as "DXD". Started once per storage.
class Link
{
public:
    explicit Link(Storage storage)
        : m_dir(storage == Storage::Memory && QFileInfo(QStringLiteral("/dev/shm")).isWritable()
                    ? QStringLiteral("/dev/shm/bench_endtoend-XXXXXX")
                    : QDir::tempPath() + QStringLiteral("/bench_endtoend-XXXXXX"))
    {
        ensureApplication();
        m_host.setProgram(QStringLiteral(LUMO_HOST_PATH));
        m_host.setArguments({"--plugin", QStringLiteral(KIVA51_PATH), "--workspace",
                             m_dir.filePath("workspace"), "--library", "rflib", "-"});
        m_host.setWorkingDirectory(m_dir.path());
        m_host.setProcessChannelMode(QProcess::SeparateChannels);
        m_host.setStandardErrorFile(QProcess::nullDevice());
        m_host.start();
        if (!m_host.waitForStarted(WaitMs)) {
            m_error = "lumo-host did not start: " + m_host.errorString().toStdString();
            return;
        }
        m_host.write("mgcconnect_initialize(0, 0);\nmgcconnect_show_connections();\n");
        const QRegularExpression listing(QStringLiteral("^\\[servers\\] .*, port (\\d+),"));
        int port = 0;
        while (port == 0) {
            const QByteArray line = nextLine();
            if (line.isNull()) {
                m_error = "lumo-host did not show the bridge's port";
                return;
            }
            const QRegularExpressionMatch match = listing.match(QString::fromUtf8(line));
            if (match.hasMatch())
                port = match.captured(1).toInt();
        }
        try {
            m_peer.connect("127.0.0.1", port, "DXD");
        } catch (RFMsgExp::IXException* error) {
            m_error = "cannot connect to the bridge: " + error->GetInfo().str();
            error->Destroy();
        }
    }

    ~Link()
    {
        m_peer.close();
        m_host.closeWriteChannel();
        if (!m_host.waitForFinished(WaitMs))
            m_host.kill();
    }

    const std::string& error() const { return m_error; }

    // False when the peer could not send; the reason is then error().
    bool send(const RFMsgExp::MessageContent& content)
    {
        try {
            m_peer.send(content);
            return true;
        } catch (RFMsgExp::IXException* error) {
            m_error = "sending failed: " + error->GetInfo().str();
            error->Destroy();
            return false;
        }
    }

    // Waits until the host has said that it wrote the next design record.
    bool waitCreated()
    {
        for (;;) {
            const QByteArray line = nextLine();
            if (line.isNull()) {
                m_error = "no design was created within " + std::to_string(WaitMs) + " ms";
                return false;
            }
            if (line.startsWith("[host] design amp_top_lna created: "))
                return true;
        }
    }

    bool designWritten() const
    {
        return QFileInfo(m_dir.filePath("workspace/designs/amp_top_lna.design")).size() > 0 &&
               QFileInfo(m_dir.filePath("workspace/netlists/amp_top_lna.net")).size() ==
                   static_cast<qint64>(NetlistBytes);
    }

private:
    // The host's next line of output, or a null array after the time limit.
    QByteArray nextLine()
    {
        QDeadlineTimer deadline(WaitMs);
        while (!m_host.canReadLine()) {
            if (deadline.hasExpired() || m_host.state() == QProcess::NotRunning)
                return {};
            m_host.waitForReadyRead(static_cast<int>(deadline.remainingTime()));
        }
        return m_host.readLine();
    }

    QTemporaryDir m_dir;
    QProcess m_host;
    RFMsgExp::PeerClient m_peer;
    std::string m_error;
};

Link& link(Storage storage)
{
    // Kept for the whole run: starting the host belongs to no measurement.
    static auto* disk = new Link(Storage::Disk);
    static auto* memory = new Link(Storage::Memory);
    return storage == Storage::Disk ? *disk : *memory;
}

double percentile(std::vector<double> values, double fraction)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const std::size_t index = static_cast<std::size_t>(fraction * double(values.size() - 1) + 0.5);
    return values[std::min(index, values.size() - 1)];
}

// One message at a time: the time from sending it to the host's word that the
// design is written.
void BM_EndToEndLatency(benchmark::State& state, Storage storage)
{
    Link& endToEnd = link(storage);
    if (!endToEnd.error().empty()) {
        state.SkipWithError(endToEnd.error().c_str());
        return;
    }
    const RFMsgExp::MessageContent content = netlistMessage();
    std::vector<double> latencies;
    latencies.reserve(static_cast<std::size_t>(state.max_iterations));
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        if (!endToEnd.send(content) || !endToEnd.waitCreated()) {
            state.SkipWithError(endToEnd.error().c_str());
            return;
        }
        latencies.push_back(
            std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    if (!endToEnd.designWritten())
        state.SkipWithError("the design record or the netlist file is not as expected");
    state.counters["latency_median_us"] = percentile(latencies, 0.5);
    state.counters["latency_p99_us"] = percentile(latencies, 0.99);
    state.SetItemsProcessed(state.iterations());
}

// Batches of messages sent back to back, then their designs awaited: the rate
// at which the whole link handles a stream of messages.
void BM_EndToEndThroughput(benchmark::State& state, Storage storage)
{
    Link& endToEnd = link(storage);
    if (!endToEnd.error().empty()) {
        state.SkipWithError(endToEnd.error().c_str());
        return;
    }
    const RFMsgExp::MessageContent content = netlistMessage();
    for (auto _ : state) {
        for (int message = 0; message < Batch; ++message) {
            if (!endToEnd.send(content)) {
                state.SkipWithError(endToEnd.error().c_str());
                return;
            }
        }
        for (int message = 0; message < Batch; ++message) {
            if (!endToEnd.waitCreated()) {
                state.SkipWithError(endToEnd.error().c_str());
                return;
            }
        }
    }
    state.SetItemsProcessed(state.iterations() * Batch);
}

BENCHMARK_CAPTURE(BM_EndToEndLatency, disk, Storage::Disk)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_EndToEndThroughput, disk, Storage::Disk)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_EndToEndLatency, memory, Storage::Memory)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_EndToEndThroughput, memory, Storage::Memory)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();

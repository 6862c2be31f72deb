// Netlist messages (10 ports, 4 KB netlist) through OnReceive on a messaging
// thread, with the host's main thread performing each statement through an
// idle request; beside the same number of bare cross-thread round trips plus
// one plain write of a file of the netlist's size, measured in the same run.
// Both run twice: with the files in the system's temporary folder (on disk,
// where rewriting a file can cost milliseconds and hide everything else) and
// in memory (/dev/shm), where the plug-in's own work shows.

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include "../common/netlistmessage.h"
#include "lumo/brio.h"
#include "lumo/hostbackend.h"
#include "lumo/idlerequest.h"
#include "lumo/pluginregistry.h"
#include "plugin/pluginstate.h"
#include "rfmsg/testing.h"
#include "server/xserverlumo.h"

extern "C" int RegisterLibraryContents(PluginRegistry* registry);

struct BRIOValueS
{
    std::string text;
};

namespace {

using BenchMessages::NetlistBytes;
using BenchMessages::netlistMessage;
// Two path queries and the create: the host statements of one netlist message.
constexpr int StatementsPerMessage = 3;

// The host's script engine reduced to what a netlist message needs: the two
// path queries answer through mgcIntermediate, every other statement succeeds.
class QuietBRIO : public BRIOInterface
{
public:
    void setPaths(std::string workspace, std::string netlists)
    {
        m_workspace = std::move(workspace);
        m_netlists = std::move(netlists);
    }
    long statements() const { return m_statements; }

    int interface_version() override { return 1500; }
    bool get_argument(int, BRIOTypeCode, BRIOValueHandle*) override { return false; }
    BRIOTypeCode argument_type(int) override { return 0; }
    bool register_library(std::uint64_t, std::uint64_t, std::uint64_t, int,
                          BRIOLibraryBlock*) override
    {
        return true;
    }
    bool evaluate_text(const char*, const char* text) override
    {
        ++m_statements;
        if (std::strcmp(text, "mgcIntermediate=mgclink_get_workspace_path();") == 0)
            m_answer = m_workspace;
        else if (std::strcmp(text, "mgcIntermediate=mgclink_get_netlists_path();") == 0)
            m_answer = m_netlists;
        return true;
    }
    void free_value(BRIOValueHandle value) override { delete value; }
    void* value_data(BRIOValueHandle value) override { return value->text.data(); }
    BRIOTypeCode string_type() override { return 3; }
    BRIOTypeCode integer_type() override { return 1; }
    BRIOValueHandle return_integer(int) override { return nullptr; }
    BRIOValueHandle find_variable(const char*, const char*) override
    {
        return new BRIOValueS{m_answer};
    }

private:
    std::string m_workspace;
    std::string m_netlists;
    std::string m_answer;
    long m_statements = 0;
};

class QuietRegistry : public PluginRegistry
{
public:
    explicit QuietRegistry(BRIOInterface& brio) : m_brio(brio) {}
    void* find_interface(const char*) override { return &m_brio; }
    int report_load_error(const char*) override { return 0; }

private:
    BRIOInterface& m_brio;
};

// The host's main thread (the benchmark's own) and one messaging thread. The
// main thread hands work over and performs the idle requests that the work
// posts until it is done; both sides wait on one mutex and condition variable.
class HostThreads : public HostBackend
{
public:
    HostThreads() : m_messaging([this] { serveMessaging(); }) { LumoHost::installBackend(this); }
    ~HostThreads() override
    {
        LumoHost::installBackend(nullptr);
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_stop = true;
        }
        m_changed.notify_all();
        m_messaging.join();
    }

    // Main thread.
    void run(const std::function<void()>& work)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_work = &work;
        m_workDone = false;
        m_changed.notify_all();
        for (;;) {
            m_changed.wait(lock, [&] { return m_request || m_workDone; });
            if (!m_request)
                return;
            IdleRequestC* request = std::exchange(m_request, nullptr);
            lock.unlock();
            request->perform();
            lock.lock();
            m_performed = true;
            m_changed.notify_all();
        }
    }

    // Messaging thread.
    bool postIdleRequest(IdleRequestC& request) override
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_request = &request;
        m_performed = false;
        m_changed.notify_all();
        m_changed.wait(lock, [&] { return m_performed; });
        return true;
    }
    void openWritableLibraries(std::set<std::string>&) override {}
    BRIOValue callFunction(const std::string&, const std::vector<BRIOValue>&) override
    {
        return BRIOValue();
    }

private:
    void serveMessaging()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        for (;;) {
            m_changed.wait(lock, [&] { return m_work || m_stop; });
            if (m_stop)
                return;
            const std::function<void()>* work = std::exchange(m_work, nullptr);
            lock.unlock();
            (*work)();
            lock.lock();
            m_workDone = true;
            m_changed.notify_all();
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    const std::function<void()>* m_work = nullptr;
    bool m_workDone = false;
    IdleRequestC* m_request = nullptr;
    bool m_performed = false;
    bool m_stop = false;
    std::thread m_messaging;
};

class NothingToDo : public IdleRequestC
{
public:
    void perform() override {}
};

// The plug-in registered once, on the benchmark's main thread, which thereby
// becomes the host's main thread.
struct Plugin
{
    QuietBRIO brio;
    QuietRegistry registry{brio};
    HostThreads threads;
    XServerLUMO* server = nullptr;

    static Plugin& instance()
    {
        static Plugin* plugin = new Plugin(); // the plug-in keeps pointers into it
        return *plugin;
    }

private:
    Plugin()
    {
        RegisterLibraryContents(&registry);
        server = PluginState::server();
    }
};

enum class Storage { Disk, Memory };

// A fresh folder for the benchmark's files; invalid when the storage is missing.
std::unique_ptr<QTemporaryDir> folderOn(Storage storage)
{
    const QString base = storage == Storage::Memory ? QStringLiteral("/dev/shm") : QDir::tempPath();
    return std::make_unique<QTemporaryDir>(base + QStringLiteral("/bench_exchange-XXXXXX"));
}

void BM_NetlistReceipt(benchmark::State& state, Storage storage)
{
    Plugin& plugin = Plugin::instance();
    const std::unique_ptr<QTemporaryDir> workspace = folderOn(storage);
    if (!workspace->isValid())
        return state.SkipWithError("no folder for the files");
    const std::string path = workspace->path().toStdString();
    plugin.brio.setPaths(path, path);
    const RFMsgExp::MessageContent content = netlistMessage();
    const std::function<void()> receive = [&] {
        plugin.server->OnReceive(RFMsgExp::Testing::makeMessage(content));
    };
    const long before = plugin.brio.statements();
    for (auto _ : state)
        plugin.threads.run(receive);
    if (plugin.brio.statements() - before != StatementsPerMessage * state.iterations() ||
        QFileInfo(QString::fromStdString(path + "/amp_top_lna.net")).size() != NetlistBytes)
        state.SkipWithError("the messages were not handled as expected");
    state.SetItemsProcessed(state.iterations());
}

void BM_NetlistBaseline(benchmark::State& state, Storage storage)
{
    Plugin& plugin = Plugin::instance();
    const std::unique_ptr<QTemporaryDir> workspace = folderOn(storage);
    if (!workspace->isValid())
        return state.SkipWithError("no folder for the files");
    const std::string file = workspace->path().toStdString() + "/baseline.net";
    const std::string netlist = netlistMessage().document->regions[0].netlist;
    const std::function<void()> roundTripsAndWrite = [&] {
        for (int statement = 0; statement < StatementsPerMessage; ++statement) {
            NothingToDo request;
            request.postAndWaitUntilPerformed();
        }
        std::ofstream(file, std::ios::out | std::ios::trunc) << netlist;
    };
    for (auto _ : state)
        plugin.threads.run(roundTripsAndWrite);
    if (QFileInfo(QString::fromStdString(file)).size() != NetlistBytes)
        state.SkipWithError("the baseline file was not written");
    state.SetItemsProcessed(state.iterations());
}

// Other work on the machine only ever adds time, so the fastest of the
// repetitions is the figure least disturbed by it.
double fastest(const std::vector<double>& values)
{
    return *std::min_element(values.begin(), values.end());
}

void timing(benchmark::internal::Benchmark* benchmark)
{
    benchmark->UseRealTime()->Unit(benchmark::kMicrosecond)->ComputeStatistics("min", fastest);
}

BENCHMARK_CAPTURE(BM_NetlistReceipt, disk, Storage::Disk)->Apply(timing);
BENCHMARK_CAPTURE(BM_NetlistBaseline, disk, Storage::Disk)->Apply(timing);
BENCHMARK_CAPTURE(BM_NetlistReceipt, memory, Storage::Memory)->Apply(timing);
BENCHMARK_CAPTURE(BM_NetlistBaseline, memory, Storage::Memory)->Apply(timing);

} // namespace

BENCHMARK_MAIN();
